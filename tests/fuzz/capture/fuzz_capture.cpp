// Fuzz target of the capture's parsers of /proc and /sys text: every input
// goes through each parser, which must never crash or read out of bounds.
#include "capture/procfs.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
   std::string_view text(reinterpret_cast<const char *>(data), size);
   using namespace capture;
   (void)ParseStat(text);
   (void)ParseStatus(text);
   (void)ParseMaps(text);
   (void)ParseInterrupts(text);
   (void)ParseModules(text);
   (void)ParseUptime(text);
   (void)ParseLoadavg(text);
   (void)CountCpuList(text);
   (void)ParseMountinfo(text);
   (void)ParseCgroupValue(text);
   (void)ParseBuildNumber(text);
   (void)ParseNumber(text);
   (void)ComposeBootCmdLine(text, "6.1.0");
   size_t half = size / 2;
   (void)ParseRtc(text.substr(0, half), text.substr(half));
   return 0;
}
