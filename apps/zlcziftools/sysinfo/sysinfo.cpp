// The instance-list call and the key copy.
#include "sysinfo.h"

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "ziftools.h"

namespace sysinfo {

ZLC_ReturnStatus GetInstanceList(ZIF_NodeNumber node, ZIF_ParamList *parent, ZIF_ParamList **list) {
   return ZIF_GetInstanceListAlloc(node, parent, list);
}

bool CopyKey(ZIF_Param *key, ZIF_ParamList *query) {
   // The parameter's type is a 32-bit value at a fixed offset of the object.
   std::uint32_t type = 0;
   std::memcpy(&type, reinterpret_cast<const unsigned char *>(key) + ZIF_PARAM_TYPE_OFFSET, sizeof type);

   ZLC_ReturnStatus status;
   if (type == ZIF_PARAM_TYPE_INT) {
      status = ZIF_ParamListAddInt(query, ZIF_ParamGetInt(key));
   } else if (type == ZIF_PARAM_TYPE_STRING) {
      status = ZIF_ParamListAddString(query, ZIF_ParamGetString(key));
   } else {
      // The location is a fixed part of the message, not this file's: it names
      // where the check stood when the message was first published, and the
      // message keeps those bytes for the scripts that match it.
      Panic("NOT_IMPLEMENTED %s:%d\n", "apps/zlcziftools/ziftools", 180);
   }
   if (status != 0) {
      std::fprintf(stderr, "Couldn't add param to list: %#x", status);
      return false;
   }
   return true;
}

}  // namespace sysinfo
