// One scan of /proc shared by the world and the open-file parts: every
// process with its threads, as far as they could be read.
#pragma once

#include "builder.h"
#include "procfs.h"

#include <optional>
#include <vector>

namespace capture {

struct ThreadInfo {
   int tid = 0;
   TaskStat stat;
   TaskStatus status;
};

struct ProcessInfo {
   int pid = 0;
   TaskStat stat;                       // of the main thread
   TaskStatus status;                   // of the main thread
   bool kernel = false;                 // a kernel thread
   bool zombie = false;                 // exited, waiting for its parent
   uint32_t userspace = 0;              // numbered PID namespace; 0 for kernel threads
   std::optional<std::string> cmdline;  // blanks between the arguments; nullopt when the read timed out
   std::vector<ThreadInfo> threads;     // the main thread first
};

// Reads /proc once per capture; processes and threads that vanish while
// they are read are left out.
const std::vector<ProcessInfo> &Processes(Capture &capture);

}  // namespace capture
