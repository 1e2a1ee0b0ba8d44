// Shared between the walk, the summary and the report of zifcache diff.
#pragma once

#include "diff.h"

#include <string>
#include <vector>

namespace zifdiff {

// One item per family of nodes (worlds, PCI functions, ramdisks, ...) or
// other node that changed, in a fixed order of families, then node order.
// Values are joined with " → ".
std::vector<std::string> summarize(const zif::Reader &before, const zif::Reader &after, const Result &result);

inline constexpr std::string_view kArrow = " → ";

// "ok", or the status in hex with its text: "0xbad0001 (Failure)".
std::string statusText(uint32_t status);

}  // namespace zifdiff
