// Simulator back end: a snapshot that plays the live kernel. Reads come from
// the file; the clock setting and group memory allocation are applied to the
// file, which is rewritten atomically so that the next process sees them.
// Writers take turns, so that none of them puts back what another one changed.
#include "backend_snapshot.h"

#include "zellibs_records.h"
#include "zellibs_testing.h"
#include "zifformat/layouts.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <system_error>
#include <thread>

namespace zif {
namespace {

using Rtc = rec::hardware_chipset_rtc;
using MemAlloc = rec::sched_groups_memAllocationInMB;
std::chrono::milliseconds gWriterLockWait = kWriterLockWait;

// One writer at a time per snapshot: an exclusive flock on PATH.lock, a file
// beside the snapshot (the snapshot itself is replaced by every write, so a
// lock on it would go with the old file). Readers take no lock: they map
// whichever complete file the path names. The lock ends with the descriptor,
// also when the process dies.
class WriterLock {
public:
   enum class Outcome { Held, Busy, Failed };

   WriterLock() = default;
   WriterLock(const WriterLock &) = delete;
   WriterLock &operator=(const WriterLock &) = delete;
   ~WriterLock() {
      if (fd_ >= 0) {
         ::close(fd_);
      }
   }

   // Waits at most wait for the lock. A blocked flock runs on a helper
   // thread, so that waiters queue in the kernel and are woken when the lock
   // is let go (a waiter that polls starves behind writers that come straight
   // back); a helper left behind at the bound closes the descriptor itself
   // when its call ends.
   Outcome acquire(const std::string &lockPath, std::chrono::milliseconds wait) {
      fd_ = ::open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
      if (fd_ < 0 && errno == EACCES) {
         fd_ = ::open(lockPath.c_str(), O_RDONLY | O_CLOEXEC);  // another user's lock file locks as well
      }
      if (fd_ < 0) {
         return Outcome::Failed;
      }
      if (flock(fd_, LOCK_EX | LOCK_NB) == 0) {
         return Outcome::Held;
      }
      if (errno != EWOULDBLOCK) {
         return Outcome::Failed;
      }
      auto waiter = std::make_shared<Waiter>();
      waiter->fd = fd_;
      try {
         std::thread([waiter] { waiter->lock(); }).detach();
      } catch (const std::system_error &) {
         return Outcome::Failed;
      }
      std::unique_lock<std::mutex> guard(waiter->mutex);
      if (!waiter->ended.wait_for(guard, wait, [&] { return waiter->done; })) {
         waiter->abandoned = true;
         fd_ = -1;
         return Outcome::Busy;
      }
      return waiter->locked ? Outcome::Held : Outcome::Failed;
   }

private:
   struct Waiter {
      std::mutex mutex;
      std::condition_variable ended;
      int fd = -1;
      bool done = false;
      bool locked = false;
      bool abandoned = false;

      void lock() {
         int result;
         while ((result = flock(fd, LOCK_EX)) != 0 && errno == EINTR) {
         }
         std::lock_guard<std::mutex> guard(mutex);
         done = true;
         locked = result == 0;
         if (abandoned) {
            ::close(fd);
         }
         ended.notify_all();
      }
   };

   int fd_ = -1;
};

constexpr std::string_view kRtcNode = "hardware_chipset_rtc";
constexpr std::string_view kMemAllocNode = "sched_groups_memAllocationInMB";

// A signed value, little-endian, into a field of a record (grown to hold it).
void putS(std::vector<uint8_t> &rec, rec::Field field, int64_t v) {
   if (rec.size() < field.offset + field.width) {
      rec.resize(field.offset + field.width, 0);
   }
   for (size_t i = 0; i < field.width; i++) {
      rec[field.offset + i] = static_cast<uint8_t>(static_cast<uint64_t>(v) >> (8 * i));
   }
}

bool parseSetting(std::string_view text, std::string_view name, int64_t &value) {
   if (text.size() <= name.size() + 1 || text.substr(0, name.size()) != name || text[name.size()] != '=') {
      return false;
   }
   text.remove_prefix(name.size() + 1);
   auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
   return ec == std::errc() && end == text.data() + text.size();
}

class SimulatorBackend : public SnapshotBackend {
public:
   ZLC_ReturnStatus set(std::string_view node, const Keys &keys, const Keys &input,
                        std::span<uint8_t> output) override {
      ZLC_ReturnStatus status;
      if (storedSetAnswer(node, input, output, status)) {
         return status;
      }
      if (node == kRtcNode) {
         return setClock(input);
      }
      if (node == kMemAllocNode) {
         return setMemAllocation(keys, input);
      }
      return ZLC_NOT_SUPPORTED;
   }

   // A capture of a Linux host keys each ram disk's inodes by device and inode
   // number; a device holds part of the in-memory root file system when some
   // inode key names it.
   bool inodeKey(uint64_t device, uint64_t inode, uint64_t &key) override {
      if (rootDevice() != ZLC_INODE_KEYS_BY_DEVICE) {
         return SnapshotBackend::inodeKey(device, inode, key);
      }
      if (device > UINT32_MAX || inode > UINT32_MAX || !inodeDevices().contains(device)) {
         return false;
      }
      key = static_cast<uint64_t>(ZLC_DEVICE_INODE_KEY(device, inode));
      return true;
   }

private:
   // Gathered once: the simulator's writes never change inodes.
   const std::set<uint64_t> &inodeDevices() {
      if (!inodeDevices_) {
         inodeDevices_.emplace();
         Keys inodes;
         if (listInstances("system_zelorfs_inodes", {}, inodes) == ZLC_OK) {
            for (const Key &k : inodes) {
               if (k.type == KeyType::Int) {
                  inodeDevices_->insert(static_cast<uint64_t>(k.number) >> 32);
               }
            }
         }
      }
      return *inodeDevices_;
   }
   std::optional<std::set<uint64_t>> inodeDevices_;

   // Input: month, day, year, hour, minute, second, each a 32-bit value
   // widened to 64 bits.
   ZLC_ReturnStatus setClock(const Keys &input) {
      if (input.size() != 6) {
         return ZLC_BAD_PARAM;
      }
      for (const Key &k : input) {
         if (k.type != KeyType::Int) {
            return ZLC_BAD_PARAM;
         }
      }
      static constexpr rec::Field kOrder[] = {Rtc::month_field, Rtc::day_field,    Rtc::year_field,
                                              Rtc::hour_field,  Rtc::minute_field, Rtc::second_field};
      return update(kRtcNode, {}, Rtc::kSize, [&](std::vector<uint8_t> &rec) {
         for (size_t i = 0; i < std::size(kOrder); i++) {
            putS(rec, kOrder[i], static_cast<int32_t>(static_cast<uint32_t>(input[i].number)));
         }
      });
   }

   // Keys: the group ID. Input: texts "min=N" and/or "max=N".
   ZLC_ReturnStatus setMemAllocation(const Keys &keys, const Keys &input) {
      if (keys.size() != 1 || keys[0].type != KeyType::Int || input.empty()) {
         return ZLC_BAD_PARAM;
      }
      std::optional<int64_t> min, max;
      for (const Key &k : input) {
         int64_t v;
         if (k.type != KeyType::Text) {
            return ZLC_BAD_PARAM;
         }
         if (parseSetting(k.text, "min", v)) {
            min = v;
         } else if (parseSetting(k.text, "max", v)) {
            max = v;
         } else {
            return ZLC_BAD_PARAM;
         }
      }
      return update(kMemAllocNode, keys, MemAlloc::kSize, [&](std::vector<uint8_t> &rec) {
         if (min) {
            putS(rec, MemAlloc::min_field, *min);
         }
         if (max) {
            putS(rec, MemAlloc::max_field, *max);
         }
      });
   }

   // Rewrites one record (created with length bytes when absent or when it
   // holds an injected status) and reopens the file. Under the writer lock
   // the file is read afresh, as another process may have replaced it since
   // this one opened it.
   template <typename Change>
   ZLC_ReturnStatus update(std::string_view node, const Keys &keys, uint32_t length, Change change) {
      const std::string lockPath = path_ + ".lock";
      WriterLock lock;
      switch (lock.acquire(lockPath, gWriterLockWait)) {
         case WriterLock::Outcome::Held:
            break;
         case WriterLock::Outcome::Busy:
            std::fprintf(stderr,
                         "zellibs: simulator snapshot %s: another writer has held %s for %lld ms; nothing changed\n",
                         path_.c_str(), lockPath.c_str(), static_cast<long long>(gWriterLockWait.count()));
            return ZLC_WRITE_FAILED;
         case WriterLock::Outcome::Failed:
            return ZLC_WRITE_FAILED;
      }
      ZLC_ReturnStatus s = load(path_);
      if (s != ZLC_OK) {
         return s;
      }
      Snapshot model;
      s = reader_.toModel(model);
      if (s != ZLC_OK) {
         return s;
      }
      Entry *target = nullptr;
      for (Entry &e : model.entries) {
         if (e.kind == EntryKind::Record && e.node == node && e.keys == keys) {
            target = &e;
         }
      }
      if (!target) {
         model.entries.push_back({EntryKind::Record, std::string(node), keys, 0, {}, {}, {}});
         target = &model.entries.back();
      }
      if (target->status != 0) {
         target->status = 0;
         target->bytes.clear();
      }
      if (target->bytes.size() < length) {
         target->bytes.resize(length, 0);
      }
      change(target->bytes);
      try {
         writeFileAtomic(path_, [&](Sink &sink) { writeSnapshot(model, sink); });
      } catch (const std::exception &) {
         return ZLC_WRITE_FAILED;
      }
      return load(path_);
   }
};

}  // namespace

void setWriterLockWait(std::chrono::milliseconds wait) {
   gWriterLockWait = wait;
}

std::unique_ptr<Backend> openSimulatorBackend(const std::string &path, ZLC_ReturnStatus &status) {
   // Writes replace the file itself, not a symbolic link that names it.
   std::string real = path;
   if (char *resolved = realpath(path.c_str(), nullptr)) {
      real = resolved;
      std::free(resolved);
   }
   auto b = std::make_unique<SimulatorBackend>();
   status = b->load(real);
   if (status != ZLC_OK) {
      return nullptr;
   }
   return b;
}

}  // namespace zif
