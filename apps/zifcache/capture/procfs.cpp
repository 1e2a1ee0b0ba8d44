#include "procfs.h"

#include <cctype>
#include <charconv>
#include <cmath>

namespace capture {
namespace {

std::string_view Trim(std::string_view s) {
   while (!s.empty() && (s.front() == ' ' || s.front() == '\t' || s.front() == '\n')) {
      s.remove_prefix(1);
   }
   while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\n')) {
      s.remove_suffix(1);
   }
   return s;
}

// Splits off the next blank-separated word.
std::string_view NextWord(std::string_view &s) {
   while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) {
      s.remove_prefix(1);
   }
   size_t end = 0;
   while (end < s.size() && s[end] != ' ' && s[end] != '\t') {
      end++;
   }
   std::string_view word = s.substr(0, end);
   s.remove_prefix(end);
   return word;
}

std::vector<std::string_view> Lines(std::string_view text) {
   std::vector<std::string_view> lines;
   while (!text.empty()) {
      size_t nl = text.find('\n');
      lines.push_back(text.substr(0, nl));
      if (nl == std::string_view::npos) {
         break;
      }
      text.remove_prefix(nl + 1);
   }
   return lines;
}

template <typename T>
std::optional<T> Decimal(std::string_view s) {
   T v{};
   auto [p, ec] = std::from_chars(s.data(), s.data() + s.size(), v, 10);
   if (ec != std::errc() || p != s.data() + s.size() || s.empty()) {
      return std::nullopt;
   }
   return v;
}

std::optional<double> Real(std::string_view s) {
   double v = 0;
   auto [p, ec] = std::from_chars(s.data(), s.data() + s.size(), v);
   if (ec != std::errc() || p != s.data() + s.size() || s.empty() || !std::isfinite(v)) {
      return std::nullopt;
   }
   return v;
}

// mountinfo escapes blanks and a few other bytes as \ooo.
std::string Unescape(std::string_view s) {
   std::string out;
   for (size_t i = 0; i < s.size(); i++) {
      if (s[i] == '\\' && i + 3 < s.size()) {
         std::string_view oct = s.substr(i + 1, 3);
         if (oct.size() == 3 && oct.find_first_not_of("01234567") == std::string_view::npos) {
            out.push_back(static_cast<char>(((oct[0] - '0') << 6) | ((oct[1] - '0') << 3) | (oct[2] - '0')));
            i += 3;
            continue;
         }
      }
      out.push_back(s[i]);
   }
   return out;
}

}  // namespace

std::optional<TaskStat> ParseStat(std::string_view text) {
   // The name sits in parentheses and may itself hold blanks and ')'; it
   // ends at the last ')'.
   size_t open = text.find('(');
   size_t close = text.rfind(')');
   if (open == std::string_view::npos || close == std::string_view::npos || close < open) {
      return std::nullopt;
   }
   TaskStat st;
   auto pid = Decimal<int>(Trim(text.substr(0, open)));
   if (!pid) {
      return std::nullopt;
   }
   st.pid = *pid;
   st.comm = std::string(text.substr(open + 1, close - open - 1));
   std::string_view rest = text.substr(close + 1);
   // Fields from 3 (state) on, numbered as in proc(5).
   std::string_view fields[13];
   for (auto &f : fields) {
      f = NextWord(rest);
   }
   if (fields[0].size() != 1 || fields[12].empty()) {
      return std::nullopt;
   }
   st.state = fields[0][0];
   auto ppid = Decimal<int>(fields[1]);
   auto pgrp = Decimal<int>(fields[2]);
   auto session = Decimal<int>(fields[3]);
   auto flags = Decimal<uint32_t>(fields[6]);
   auto utime = Decimal<uint64_t>(fields[11]);
   auto stime = Decimal<uint64_t>(fields[12]);
   if (!ppid || !pgrp || !session || !flags || !utime || !stime) {
      return std::nullopt;
   }
   st.ppid = *ppid;
   st.pgrp = *pgrp;
   st.session = *session;
   st.flags = *flags;
   st.utime = *utime;
   st.stime = *stime;
   return st;
}

TaskStatus ParseStatus(std::string_view text) {
   TaskStatus st;
   for (std::string_view line : Lines(text)) {
      size_t colon = line.find(':');
      if (colon == std::string_view::npos) {
         continue;
      }
      std::string_view key = line.substr(0, colon);
      std::string_view value = Trim(line.substr(colon + 1));
      if (key == "Tgid") {
         st.tgid = Decimal<int>(value).value_or(0);
      } else if (key == "NSpid") {
         st.nsPids.clear();
         while (!value.empty()) {
            if (auto v = Decimal<int>(NextWord(value))) {
               st.nsPids.push_back(*v);
            }
            value = Trim(value);
         }
      } else if (key == "Cpus_allowed_list") {
         st.cpusAllowedList = std::string(value);
      }
   }
   return st;
}

std::vector<Mapping> ParseMaps(std::string_view text) {
   std::vector<Mapping> maps;
   for (std::string_view line : Lines(text)) {
      std::string_view rest = line;
      std::string_view range = NextWord(rest);
      std::string_view perms = NextWord(rest);
      NextWord(rest);  // offset
      NextWord(rest);  // device
      std::string_view inode = NextWord(rest);
      size_t dash = range.find('-');
      if (dash == std::string_view::npos || perms.size() < 3 || inode.empty()) {
         continue;
      }
      Mapping m;
      auto hex = [](std::string_view s, uint64_t &v) {
         auto [p, ec] = std::from_chars(s.data(), s.data() + s.size(), v, 16);
         return ec == std::errc() && p == s.data() + s.size() && !s.empty();
      };
      if (!hex(range.substr(0, dash), m.start) || !hex(range.substr(dash + 1), m.end) || m.end < m.start) {
         continue;
      }
      m.readable = perms[0] == 'r';
      m.writable = perms[1] == 'w';
      m.executable = perms[2] == 'x';
      // The path is the rest of the line after the padding; it may hold blanks.
      m.path = std::string(Trim(rest));
      maps.push_back(std::move(m));
   }
   return maps;
}

std::optional<Interrupts> ParseInterrupts(std::string_view text) {
   auto lines = Lines(text);
   if (lines.empty()) {
      return std::nullopt;
   }
   Interrupts irqs;
   std::string_view header = lines[0];
   while (!NextWord(header).empty()) {
      irqs.cpus++;
   }
   if (irqs.cpus == 0) {
      return std::nullopt;
   }
   for (size_t i = 1; i < lines.size(); i++) {
      std::string_view rest = lines[i];
      std::string_view label = NextWord(rest);
      if (label.size() < 2 || label.back() != ':') {
         continue;
      }
      auto irq = Decimal<uint32_t>(label.substr(0, label.size() - 1));
      if (!irq) {
         continue;  // NMI, LOC and the other named lines
      }
      InterruptLine line;
      line.irq = *irq;
      // Lines of interrupts without an action may stop before the counts end.
      for (uint32_t c = 0; c < irqs.cpus; c++) {
         std::string_view save = rest;
         auto v = Decimal<uint64_t>(NextWord(rest));
         if (!v) {
            rest = save;
            break;
         }
         line.counts.push_back(*v);
      }
      line.counts.resize(irqs.cpus, 0);
      // Then the chip's name, the hardware number joined to the handler's
      // name by '-' (both optional), and the devices separated by ", ".
      std::vector<std::string_view> words;
      for (std::string_view w = NextWord(rest); !w.empty(); w = NextWord(rest)) {
         words.push_back(w);
      }
      size_t first = words.empty() ? 0 : 1;
      for (size_t w = 1; w < words.size(); w++) {
         std::string_view word = words[w];
         size_t dash = word.find('-');
         if (dash != std::string_view::npos && word.find_first_not_of("0123456789") == dash) {
            first = w + 1;
            break;
         }
      }
      std::string devices;
      for (size_t w = first; w < words.size(); w++) {
         if (!devices.empty()) {
            devices += ' ';
         }
         devices += words[w];
      }
      std::string_view all = devices;
      while (!all.empty()) {
         size_t sep = all.find(", ");
         std::string_view name = all.substr(0, sep);
         if (!name.empty()) {
            line.devices.emplace_back(name);
         }
         if (sep == std::string_view::npos) {
            break;
         }
         all.remove_prefix(sep + 2);
      }
      irqs.lines.push_back(std::move(line));
   }
   return irqs;
}

std::vector<std::string> ParseModules(std::string_view text) {
   std::vector<std::string> names;
   for (std::string_view line : Lines(text)) {
      std::string_view name = NextWord(line);
      if (!name.empty()) {
         names.emplace_back(name);
      }
   }
   return names;
}

std::optional<double> ParseUptime(std::string_view text) {
   auto v = Real(NextWord(text));
   if (!v || *v < 0) {
      return std::nullopt;
   }
   return v;
}

std::optional<std::array<double, 3>> ParseLoadavg(std::string_view text) {
   std::array<double, 3> loads{};
   for (double &l : loads) {
      auto v = Real(NextWord(text));
      if (!v || *v < 0) {
         return std::nullopt;
      }
      l = *v;
   }
   return loads;
}

std::optional<uint32_t> CountCpuList(std::string_view text) {
   text = Trim(text);
   if (text.empty()) {
      return 0u;
   }
   uint64_t count = 0;
   while (!text.empty()) {
      size_t comma = text.find(',');
      std::string_view part = text.substr(0, comma);
      size_t dash = part.find('-');
      auto lo = Decimal<uint32_t>(part.substr(0, dash));
      auto hi = dash == std::string_view::npos ? lo : Decimal<uint32_t>(part.substr(dash + 1));
      if (!lo || !hi || *hi < *lo) {
         return std::nullopt;
      }
      count += uint64_t{*hi} - *lo + 1;
      if (count > 0xffffffffu) {
         return std::nullopt;
      }
      if (comma == std::string_view::npos) {
         break;
      }
      text.remove_prefix(comma + 1);
   }
   return static_cast<uint32_t>(count);
}

std::vector<Mount> ParseMountinfo(std::string_view text) {
   std::vector<Mount> mounts;
   for (std::string_view line : Lines(text)) {
      std::string_view rest = line;
      std::string_view fields[5];
      for (auto &f : fields) {
         f = NextWord(rest);
      }
      if (fields[4].empty()) {
         continue;
      }
      // Optional fields end with a lone "-"; then type, source, options.
      std::string_view w;
      do {
         w = NextWord(rest);
      } while (!w.empty() && w != "-");
      if (w.empty()) {
         continue;
      }
      std::string_view type = NextWord(rest);
      std::string_view source = NextWord(rest);
      if (type.empty()) {
         continue;
      }
      mounts.push_back({Unescape(fields[4]), Unescape(type), Unescape(source)});
   }
   return mounts;
}

namespace {

// The words of a kernel command line: blank-separated, except inside double quotes.
std::vector<std::string_view> CmdlineWords(std::string_view text) {
   std::vector<std::string_view> words;
   size_t i = 0;
   while (i < text.size()) {
      while (i < text.size() && std::isspace(static_cast<unsigned char>(text[i]))) {
         i++;
      }
      size_t start = i;
      bool quoted = false;
      while (i < text.size() && (quoted || !std::isspace(static_cast<unsigned char>(text[i])))) {
         quoted = text[i] == '"' ? !quoted : quoted;
         i++;
      }
      if (i > start) {
         words.push_back(text.substr(start, i - start));
      }
   }
   return words;
}

// A BOOT_IMAGE= value that can stand as the kernel: not empty, no blank.
std::optional<std::string_view> BootImage(std::string_view word) {
   constexpr std::string_view kKey = "BOOT_IMAGE=";
   if (!word.starts_with(kKey)) {
      return std::nullopt;
   }
   std::string_view value = word.substr(kKey.size());
   if (value.size() >= 2 && value.front() == '"' && value.back() == '"') {
      value = value.substr(1, value.size() - 2);
   }
   for (char ch : value) {
      if (std::isspace(static_cast<unsigned char>(ch)) || ch == '"') {
         return std::nullopt;
      }
   }
   return value.empty() ? std::nullopt : std::optional(value);
}

}  // namespace

std::string ComposeBootCmdLine(std::string_view procCmdline, std::string_view release) {
   std::vector<std::string_view> words = CmdlineWords(procCmdline);
   std::string line = "/boot/vmlinuz-" + std::string(release);
   for (size_t i = 0; i < words.size(); i++) {
      if (auto image = BootImage(words[i])) {
         line = *image;
         words.erase(words.begin() + static_cast<ptrdiff_t>(i));
         break;
      }
   }
   for (std::string_view word : words) {
      line += ' ';
      line += word;
   }
   return line;
}

std::optional<CgroupValue> ParseCgroupValue(std::string_view text) {
   text = Trim(text);
   if (text == "max") {
      return CgroupValue{true, 0};
   }
   auto v = Decimal<uint64_t>(text);
   if (!v) {
      return std::nullopt;
   }
   return CgroupValue{false, *v};
}

int32_t ParseBuildNumber(std::string_view version) {
   version = Trim(version);
   if (version.empty() || version[0] != '#') {
      return 0;
   }
   version.remove_prefix(1);
   size_t end = 0;
   while (end < version.size() && version[end] >= '0' && version[end] <= '9') {
      end++;
   }
   return Decimal<int32_t>(version.substr(0, end)).value_or(0);
}

std::optional<RtcTime> ParseRtc(std::string_view date, std::string_view time) {
   date = Trim(date);
   time = Trim(time);
   if (date.size() != 10 || time.size() != 8 || date[4] != '-' || date[7] != '-' || time[2] != ':' || time[5] != ':') {
      return std::nullopt;
   }
   auto y = Decimal<int>(date.substr(0, 4)), mo = Decimal<int>(date.substr(5, 2)), d = Decimal<int>(date.substr(8, 2));
   auto h = Decimal<int>(time.substr(0, 2)), mi = Decimal<int>(time.substr(3, 2)), s = Decimal<int>(time.substr(6, 2));
   if (!y || !mo || !d || !h || !mi || !s) {
      return std::nullopt;
   }
   return RtcTime{*y, *mo, *d, *h, *mi, *s};
}

std::optional<uint64_t> ParseNumber(std::string_view text) {
   text = Trim(text);
   if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
      text.remove_prefix(2);
      uint64_t v = 0;
      auto [p, ec] = std::from_chars(text.data(), text.data() + text.size(), v, 16);
      if (ec != std::errc() || p != text.data() + text.size()) {
         return std::nullopt;
      }
      return v;
   }
   return Decimal<uint64_t>(text);
}

}  // namespace capture
