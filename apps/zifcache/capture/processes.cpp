#include "processes.h"

#include <map>

namespace capture {
namespace {

std::optional<ThreadInfo> ReadThread(const std::string &dir, int tid) {
   auto statText = ReadFile(dir + "/stat", 4096);
   if (!statText) {
      return std::nullopt;
   }
   auto stat = ParseStat(*statText);
   if (!stat) {
      return std::nullopt;
   }
   auto statusText = ReadFile(dir + "/status", 16384);
   if (!statusText) {
      return std::nullopt;
   }
   return ThreadInfo{tid, std::move(*stat), ParseStatus(*statusText)};
}

// The command line with blanks for the NULs between the arguments.
std::string JoinArguments(std::string raw) {
   while (!raw.empty() && raw.back() == '\0') {
      raw.pop_back();
   }
   for (char &ch : raw) {
      if (ch == '\0') {
         ch = ' ';
      }
   }
   return raw;
}

std::optional<ProcessInfo> ReadProcess(Capture &c, int pid, std::map<std::string, uint32_t> &namespaces) {
   ProcessInfo p;
   p.pid = pid;
   std::string base = c.Proc(std::to_string(pid));
   auto main = ReadThread(base, pid);
   if (!main) {
      return std::nullopt;
   }
   p.stat = main->stat;
   p.status = main->status;
   p.kernel = (p.stat.flags & kLinuxKernelThreadFlag) != 0;
   p.zombie = p.stat.state == 'Z' || p.stat.state == 'X';

   if (!p.kernel) {
      auto ns = ReadLink(base + "/ns/pid");
      if (ns) {
         auto [it, added] = namespaces.try_emplace(*ns, static_cast<uint32_t>(namespaces.size() + 1));
         p.userspace = it->second;
      } else {
         p.userspace = 1;
      }
      auto cmd = c.reader.Read(base + "/cmdline", 4096);
      if (cmd.text) {
         p.cmdline = JoinArguments(std::move(*cmd.text));
      } else if (!cmd.timedOut) {
         return std::nullopt;  // gone
      }
   }

   for (int tid : ListNumericDir(base + "/task")) {
      // The main thread's own times are in its task directory; the
      // process's stat sums all threads.
      auto t = ReadThread(base + "/task/" + std::to_string(tid), tid);
      if (!t) {
         continue;
      }
      if (tid == pid) {
         p.threads.insert(p.threads.begin(), std::move(*t));
      } else {
         p.threads.push_back(std::move(*t));
      }
   }
   if (p.threads.empty() || p.threads.front().tid != pid) {
      // No task directory (a fixture or a very old kernel): the main thread alone.
      p.threads.insert(p.threads.begin(), ThreadInfo{pid, p.stat, p.status});
   }
   // A main thread that has exited while others run shows Z; the process
   // lives on.
   if (p.zombie && p.threads.size() > 1) {
      p.zombie = false;
   }
   return p;
}

}  // namespace

const std::vector<ProcessInfo> &Processes(Capture &c) {
   if (c.processes) {
      return *c.processes;
   }
   auto all = std::make_shared<std::vector<ProcessInfo>>();
   std::vector<int> pids = ListNumericDir(c.paths.proc);
   if (pids.empty()) {
      throw PartError("no processes under " + c.paths.proc);
   }
   // The initial PID namespace is userspace 1: the one of process 1.
   std::map<std::string, uint32_t> namespaces;
   if (auto ns = ReadLink(c.Proc("1/ns/pid"))) {
      namespaces.emplace(*ns, 1);
   }
   for (int pid : pids) {
      if (auto p = ReadProcess(c, pid, namespaces)) {
         all->push_back(std::move(*p));
      }
   }
   if (unsigned n = c.reader.Abandoned()) {
      c.Note("worlds: " + std::to_string(n) + " command line read(s) timed out; shown as unavailable");
   }
   c.processes = all;
   return *all;
}

}  // namespace capture
