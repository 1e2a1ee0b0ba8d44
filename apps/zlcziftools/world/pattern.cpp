// The compiled pattern of pgrep and pkill.
#include "pattern.h"

namespace world {

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
