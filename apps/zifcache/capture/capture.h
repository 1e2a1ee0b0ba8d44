// zifcache capture: one snapshot of the Linux host the tool runs on.
#pragma once

#include <string>
#include <vector>

namespace capture {

struct CaptureOptions {
   std::string out;
   std::string only, exclude;  // comma-separated part names
   std::string root;           // a directory holding proc/ and sys/ in place of the host's (tests)
   int readLimitMs = 250;      // limit of one read that may block behind a stuck process
   std::string commandLine;    // as typed, for the provenance
};

// The part names, in capture order.
const std::vector<std::string> &PartNames();

// Captures, writes OUT atomically and returns the exit status; messages go
// to standard error.
int RunCapture(const CaptureOptions &options);

}  // namespace capture
