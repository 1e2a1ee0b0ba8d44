// irqinfo's device text: the kernel devices that use an interrupt cookie, as
// one text of at most 63 characters.
#pragma once

#include <cstddef>
#include <span>
#include <string>

namespace irqinfo {

// The room of a row's device text, its NUL included.
constexpr std::size_t kDeviceTextSize = 64;

// "ZLC name, ZLC name, ..." for the devices in list order; a null name (a
// device key without a string) shows as "device". The text is cut at 63
// characters; no ", " follows the last device.
std::string DeviceText(std::span<const char *const> names);

}  // namespace irqinfo
