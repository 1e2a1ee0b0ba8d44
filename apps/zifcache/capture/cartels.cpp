// Open files of each user process: its working directory, every descriptor
// with a type name and its link text, and its file-backed mappings (kind 2).
#include "parts.h"
#include "processes.h"

#include <sys/stat.h>

namespace capture {
namespace {

constexpr uint32_t kMappingOfFile = 2;
constexpr uint32_t kProtRead = 1, kProtWrite = 2, kProtExec = 4;
// Linux gives a mapping no descriptor number.
constexpr int32_t kNoDescriptor = -1;

// The type name of an open descriptor, from what it refers to.
std::string DescriptorType(const std::string &fdPath, const std::string &link) {
   struct stat st;
   if (stat(fdPath.c_str(), &st) == 0) {
      switch (st.st_mode & S_IFMT) {
         case S_IFREG:
            return "REG";
         case S_IFDIR:
            return "DIR";
         case S_IFCHR:
            return "CHR";
         case S_IFBLK:
            return "BLK";
         case S_IFIFO:
            return "FIFO";
         case S_IFSOCK:
            return "SOCK";
         case S_IFLNK:
            return "LNK";
         default:
            break;
      }
   }
   if (link.starts_with("socket:")) {
      return "SOCK";
   }
   if (link.starts_with("pipe:")) {
      return "FIFO";
   }
   return "anon";
}

void PutDescriptors(Capture &c, const zif::Key &cartel, const std::string &base) {
   zif::Keys fds;
   for (int fd : ListNumericDir(base + "/fd")) {
      std::string path = base + "/fd/" + std::to_string(fd);
      auto link = ReadLink(path);
      if (!link) {
         continue;  // closed meanwhile
      }
      Record rec("userworld_cartel_fd_fds");
      rec.Text("type", DescriptorType(path, *link)).Text("description", c.HostPathOf(*link));
      c.Put(rec, {cartel, IntKey(fd)});
      fds.push_back(IntKey(fd));
   }
   c.List("userworld_cartel_fd_fds", {cartel}, std::move(fds));
}

void PutMappings(Capture &c, const zif::Key &cartel, const std::string &base) {
   auto text = c.reader.Read(base + "/maps", 16 << 20);
   if (!text.text) {
      if (text.timedOut) {
         c.Note("cartels: mappings of " + std::to_string(cartel.number) + " timed out");
      }
      return;  // no list: the reader shows no mappings
   }
   zif::Keys keys;
   int64_t index = 0;
   for (const Mapping &m : ParseMaps(*text.text)) {
      if (m.path.empty() || m.path[0] != '/') {
         continue;  // anonymous, stack, heap, vdso
      }
      uint64_t length = m.end - m.start;
      Record rec("userworld_cartel_mem_mmaps");
      rec.Set("length", length > 0xffffffffu ? 0xffffffffu : length)
            .Set("kind", kMappingOfFile)
            .Set("prot", (m.readable ? kProtRead : 0) | (m.writable ? kProtWrite : 0) | (m.executable ? kProtExec : 0))
            .SetSigned("fd", kNoDescriptor)
            .Text("name", m.path);
      c.Put(rec, {cartel, IntKey(index)});
      keys.push_back(IntKey(index));
      index++;
   }
   c.List("userworld_cartel_mem_mmaps", {cartel}, std::move(keys));
}

}  // namespace

void CaptureCartels(Capture &c) {
   for (const ProcessInfo &p : Processes(c)) {
      if (p.kernel || p.zombie) {
         continue;
      }
      std::string base = c.Proc(std::to_string(p.pid));
      zif::Key cartel = IntKey(p.pid);
      if (auto cwd = ReadLink(base + "/cwd")) {
         c.PutText("userworld_cartel_fd_cwd", {cartel}, c.HostPathOf(*cwd));
      }
      PutDescriptors(c, cartel, base);
      PutMappings(c, cartel, base);
   }
}

}  // namespace capture
