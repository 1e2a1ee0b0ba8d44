#include "irqtext.h"

#include <array>
#include <cstdio>

namespace irqinfo {

namespace {

// A bounded append that, like snprintf, counts what it would have written:
// once that count has passed the room, nothing more is appended.
class BoundedText {
public:
   bool Full() const { return length_ >= kDeviceTextSize; }

   void Append(const char *text) {
      if (Full()) {
         return;
      }
      const int written = std::snprintf(buffer_.data() + length_, kDeviceTextSize - length_, "%s", text);
      length_ += static_cast<std::size_t>(written);
   }

   std::string Text() const { return std::string(buffer_.data()); }

private:
   std::array<char, kDeviceTextSize> buffer_{};
   std::size_t length_ = 0;
};

}  // namespace

std::string DeviceText(std::span<const char *const> names) {
   BoundedText text;
   for (std::size_t i = 0; i < names.size(); ++i) {
      if (text.Full()) {
         continue;
      }
      text.Append("ZLC ");
      text.Append(names[i] != nullptr ? names[i] : "device");
      if (i + 1 < names.size()) {
         text.Append(", ");
      }
   }
   return text.Text();
}

}  // namespace irqinfo
