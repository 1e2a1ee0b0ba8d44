// The cartel walks of pgrep, pkill, pidof and userspaceof.
#include "cartelwalks.h"

#include <cstdio>

namespace world {

bool IsSkipStatus(ZLC_ReturnStatus status) {
   return status == 0xbad0062 || status == 0xbad0094;
}

ZLC_ReturnStatus ReadCartelText(ZIF_ParamList *query, bool commandLine, std::string &text) {
   ZLC_ReturnStatus status;
   if (commandLine) {
      rec::userworld_cartel_cmdline record;
      status = sysinfo::GetRecord(record, query);
      text = record.cmdline();
   } else {
      rec::world_name record;
      status = sysinfo::GetRecord(record, query);
      text = record.name();
   }
   return status;
}

ZLC_ReturnStatus CartelTexts::Open() {
   query_ = sysinfo::MakeQueryList();
   if (!query_) {
      return ZLC_NO_MEMORY;
   }
   return cartels_.Fetch(sysinfo::Node(ZIF_NODE_userworld_cartel), nullptr);
}

bool OpenCartelList(const ZIF_NodeObject &node, sysinfo::ParamListPtr &query, sysinfo::InstanceList &instances) {
   query = sysinfo::MakeQueryList();
   if (!query) {
      std::fputs("CartelList: Not enough memory\n", stderr);
      return false;
   }
   const ZLC_ReturnStatus status = instances.Fetch(sysinfo::Node(node), nullptr);
   if (status != 0) {
      std::fprintf(stderr, "CartelList: error fetching cartel list 0x%x\n", status);
      return false;
   }
   return true;
}

}  // namespace world
