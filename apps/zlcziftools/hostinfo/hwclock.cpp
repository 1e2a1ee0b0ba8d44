// hwclock: shows the hardware clock (kept in UTC) or sets its time, its date
// or both. Fields not given keep the clock's current values. No range test is
// made: whatever integers the formats accept are written as they stand.
//
// When the clock cannot be read, nothing is shown or written: the record's
// fields would be undefined. A field given as -1 keeps the clock's value, also
// when both the time and the date are given.
#include <getopt.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "records.h"
#include "sysinfo.h"
#include "ziftools.h"

namespace {

constexpr char kUsage[] =
      "hwclock     -d --date <date>         Set date\n"
      "            -t --time <time>         Set time\n"
      "\n"
      "Valid date format: MM/DD/YYYY\n"
      "Valid time format: HH:MM:SS\n";
constexpr char kShortOptions[] = "t:d:";
constexpr option kLongOptions[] = {
      {"time", required_argument, nullptr, 't'},
      {"date", required_argument, nullptr, 'd'},
      {"help", no_argument, nullptr, 'h'},
      {nullptr, 0, nullptr, 0},
};

constexpr std::int32_t kNotGiven = -1;

// A clock setting in the order the clock node takes it.
struct ClockSetting {
   std::int32_t month = kNotGiven;
   std::int32_t day = kNotGiven;
   std::int32_t year = kNotGiven;
   std::int32_t hour = kNotGiven;
   std::int32_t minute = kNotGiven;
   std::int32_t second = kNotGiven;
};

[[noreturn]] void Usage() {
   std::fputs(kUsage, stderr);
   std::exit(1);
}

bool AnyNotGiven(const ClockSetting &s) {
   return s.month == kNotGiven || s.day == kNotGiven || s.year == kNotGiven || s.hour == kNotGiven ||
          s.minute == kNotGiven || s.second == kNotGiven;
}

void KeepCurrent(std::int32_t &slot, std::int32_t current) {
   if (slot == kNotGiven) {
      slot = current;
   }
}

void FillFromClock(ClockSetting &setting, const rec::hardware_chipset_rtc &clock) {
   KeepCurrent(setting.month, clock.month());
   KeepCurrent(setting.day, clock.day());
   KeepCurrent(setting.year, clock.year());
   KeepCurrent(setting.hour, clock.hour());
   KeepCurrent(setting.minute, clock.minute());
   KeepCurrent(setting.second, clock.second());
}

// Each field goes to the clock as its 32-bit value widened without sign extension.
ZLC_ReturnStatus WriteClock(const ClockSetting &setting) {
   sysinfo::ParamListPtr input = sysinfo::MakeParamList(0, 6);
   if (!input) {
      return ZLC_NO_MEMORY;
   }
   const std::array<std::int32_t, 6> fields = {setting.month, setting.day,    setting.year,
                                               setting.hour,  setting.minute, setting.second};
   for (std::int32_t field : fields) {
      ZLC_ReturnStatus status =
            ZIF_ParamListAddInt(input.get(), static_cast<std::int64_t>(static_cast<std::uint32_t>(field)));
      if (status != 0) {
         return status;
      }
   }
   unsigned char output[8] = {};
   return ZIF_Set(sysinfo::Node(ZIF_NODE_hardware_chipset_rtc), nullptr, input.get(), output, 0);
}

}  // namespace

int HwclockMain(int argc, char **argv) {
   const char *timeText = nullptr;
   const char *dateText = nullptr;
   int option;
   while ((option = getopt_long(argc, argv, kShortOptions, kLongOptions, nullptr)) != -1) {
      switch (option) {
         case 't':
            timeText = optarg;
            break;
         case 'd':
            dateText = optarg;
            break;
         default:
            Usage();
      }
   }

   ClockSetting setting;
   if (timeText != nullptr && std::sscanf(timeText, "%d:%d:%d", &setting.hour, &setting.minute, &setting.second) != 3) {
      std::printf("Invalid time format: %s\n", timeText);
      return 1;
   }
   if (dateText != nullptr && std::sscanf(dateText, "%d/%d/%d", &setting.month, &setting.day, &setting.year) != 3) {
      std::printf("Invalid date format: %s\n", dateText);
      return 1;
   }

   // With both texts given the clock is read only when one of them says -1.
   if (timeText == nullptr || dateText == nullptr || AnyNotGiven(setting)) {
      rec::hardware_chipset_rtc clock;
      ZLC_ReturnStatus status = sysinfo::GetRecord(clock, nullptr);
      if (status != 0) {
         std::fprintf(stderr, "Failed to read hardware clock: %s\n", ZLC_ReturnStatusToString(status));
         return 1;
      }
      if (timeText == nullptr && dateText == nullptr) {
         std::printf("%.2d:%.2d:%.2d   %.2d/%.2d/%.4d   UTC\n", clock.hour(), clock.minute(), clock.second(),
                     clock.month(), clock.day(), clock.year());
         return 0;
      }
      FillFromClock(setting, clock);
   }

   ZLC_ReturnStatus status = WriteClock(setting);
   if (status != 0) {
      std::printf("ZIF_Set error: 0x%x\n", status);
      return 1;
   }
   std::printf("Clock updated.\nTime: %.2d:%.2d:%.2d   Date: %.2d/%.2d/%.2d   UTC\n", setting.hour, setting.minute,
               setting.second, setting.month, setting.day, setting.year);
   return 0;
}
