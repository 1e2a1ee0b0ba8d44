// The kernel's records as the commands read them: the typed views generated
// from the library's record layout table (zellibs_records.h), and a read of a
// whole record by its type:
//
//    rec::system_version version;
//    if (sysinfo::GetRecord(version, nullptr) == 0) puts(version.product().data());
#pragma once

#include <cstdint>

#include "zellibs.h"
#include "zellibs_records.h"

namespace sysinfo {

// ZIF_Get of a whole record of the record's own length.
template <typename Record>
ZLC_ReturnStatus GetRecord(Record &record, ZIF_ParamList *params) {
   return ZIF_Get(Record::Node(), params, record.bytes.data(), static_cast<std::uint32_t>(Record::kSize));
}

}  // namespace sysinfo
