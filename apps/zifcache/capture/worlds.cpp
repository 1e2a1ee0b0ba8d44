// Worlds from Linux threads: one world per thread, one cartel per user
// process. Kernel threads are System worlds without a cartel; a process's
// other threads are clones whose parent is their process, so that they link
// under the main world. Exited processes that their parent has not reaped
// become zombie child records of the parent's cartel.
#include "parts.h"
#include "processes.h"

#include <unistd.h>
#include <map>

namespace capture {
namespace {

using Info = rec::world_info;
using Summary = rec::sched_Vcpus_stats_summaryStats;
using Child = rec::userworld_cartel_child;

struct States {
   uint32_t run, wait;
};

// The library's run and wait state of a Linux task state letter.
States StatesOf(char letter) {
   switch (letter) {
      case 'R':
         return {Summary::runState_RUN, Summary::waitState_NONE};
      case 'S':
         return {Summary::runState_WAIT, Summary::waitState_SLEEP};
      case 'D':
         return {Summary::runState_WAITB, Summary::waitState_IO};
      case 'K':
         return {Summary::runState_WAITB, Summary::waitState_NONE};
      case 'T':
      case 't':
      case 'P':
         return {Summary::runState_SUSPND, Summary::waitState_NONE};
      case 'Z':
      case 'X':
         return {Summary::runState_ZOMBIE, Summary::waitState_NONE};
      case 'I':
         return {Summary::runState_IDLE, Summary::waitState_IDLE};
      case 'W':
         return {Summary::runState_READY, Summary::waitState_NONE};
      default:
         return {Summary::runState_NEW, Summary::waitState_NONE};
   }
}

void PutWorld(Capture &c, const ProcessInfo &p, const ThreadInfo &t, uint64_t ticksPerSecond) {
   const bool main = t.tid == p.pid;
   uint32_t type = p.kernel ? Info::typeFlags_system
                   : main   ? Info::typeFlags_user
                            : Info::typeFlags_user | Info::typeFlags_clone;
   // The init process of a PID namespace is the root of its userspace.
   bool namespaceInit = !p.kernel && main && p.status.nsPids.size() > 1 && p.status.nsPids.back() == 1;
   uint32_t parent = p.kernel        ? static_cast<uint32_t>(t.stat.ppid)
                     : !main         ? static_cast<uint32_t>(p.pid)
                     : namespaceInit ? 0
                                     : static_cast<uint32_t>(p.stat.ppid);
   zif::Keys key{IntKey(t.tid)};

   Record info("world_info");
   info.Set("worldId", static_cast<uint32_t>(t.tid))
         .Set("userspaceId", p.userspace)
         .Set("cartelId", p.kernel ? 0u : static_cast<uint32_t>(p.pid))
         .Set("parentId", parent)
         .Set("processGroupId", static_cast<uint32_t>(t.stat.pgrp))
         .Set("sessionId", static_cast<uint32_t>(t.stat.session))
         .Set("typeFlags", type);
   c.Put(info, key);
   c.PutText("world_name", key, t.stat.comm);

   States states = StatesOf(t.stat.state);
   Record summary("sched_Vcpus_stats_summaryStats");
   summary.Set("runState", states.run).Set("waitState", states.wait);
   c.Put(summary, key);
   c.PutText("sched_Vcpus_stats_affinity", key, t.status.cpusAllowedList);
   Record times("sched_Vcpus_stats_stateTimes");
   times.Set("usedTime", (t.stat.utime + t.stat.stime) * 1000000 / ticksPerSecond);
   c.Put(times, key);
}

}  // namespace

void CaptureWorlds(Capture &c) {
   const auto &processes = Processes(c);
   long tick = sysconf(_SC_CLK_TCK);
   uint64_t ticksPerSecond = tick > 0 ? static_cast<uint64_t>(tick) : 100;

   zif::Keys worlds, cartels;
   std::map<int, std::vector<std::pair<int, uint32_t>>> children;  // parent pid -> (child pid, state)
   for (const ProcessInfo &p : processes) {
      if (p.zombie) {
         if (!p.kernel) {
            children[p.stat.ppid].emplace_back(p.pid, Child::state_zombie);
         }
         continue;
      }
      for (const ThreadInfo &t : p.threads) {
         PutWorld(c, p, t, ticksPerSecond);
         worlds.push_back(IntKey(t.tid));
      }
      if (p.kernel) {
         continue;
      }
      cartels.push_back(IntKey(p.pid));
      children[p.stat.ppid].emplace_back(p.pid, Child::state_alive);
      if (p.cmdline) {
         c.PutText("userworld_cartel_cmdline", {IntKey(p.pid)}, *p.cmdline);
      } else {
         // The read timed out: the reader shows the command as unavailable.
         zif::Entry e;
         e.kind = zif::EntryKind::Record;
         e.node = "userworld_cartel_cmdline";
         e.keys = {IntKey(p.pid)};
         e.status = 0xbad0001;
         c.entries.push_back(std::move(e));
      }
   }
   c.List("world", {}, std::move(worlds));

   // Every cartel has a child list, empty or not.
   for (const zif::Key &cartel : cartels) {
      zif::Keys kids;
      for (auto [child, state] : children[static_cast<int>(cartel.number)]) {
         Record rec("userworld_cartel_child");
         rec.Set("state", state);
         c.Put(rec, {cartel, IntKey(child)});
         kids.push_back(IntKey(child));
      }
      c.List("userworld_cartel_child", {cartel}, std::move(kids));
   }
   c.List("userworld_cartel", {}, std::move(cartels));
}

}  // namespace capture
