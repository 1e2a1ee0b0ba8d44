// The cartel text read and the pattern shared by pgrep and pkill.
#include "cartels.h"

#include "records.h"
#include "sysinfo.h"

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

Pattern::~Pattern() {
   if (compiled_) {
      regfree(&regex_);
   }
}

bool Pattern::Compile(const char *text, std::string &error) {
   if (compiled_) {
      regfree(&regex_);
      compiled_ = false;
   }
   const int code = regcomp(&regex_, text, REG_EXTENDED | REG_NOSUB);
   if (code != 0) {
      char buffer[256];
      regerror(code, &regex_, buffer, sizeof buffer);
      error = buffer;
      return false;
   }
   compiled_ = true;
   return true;
}

bool Pattern::Matches(const std::string &text) const {
   return compiled_ && regexec(&regex_, text.c_str(), 0, nullptr, 0) == 0;
}

}  // namespace world
