// lsof: every cartel's working directory, open descriptors and memory
// mappings (those of mapping kind 2), one line each.
//
// Only the first argument counts: --help (or any part of it) prints the usage
// text; --file=TEXT keeps the lines whose path or description contains TEXT
// (case-sensitive; never the world name or the type). The exit status is the
// status of the sysinfo call that ended the listing, else 0. A snapshot file
// is listed like the live host.
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>

#include "blockoutput.h"
#include "lsofargs.h"
#include "records.h"
#include "sysinfo.h"
#include "ziftools.h"

namespace {

constexpr char kUsage[] =
      "Usage:\n"
      "\t --help print this message\n"
      "\t --file=name <name of file to filter for>\n";

constexpr std::uint32_t kListedMappingKind = rec::userworld_cartel_mem_mmaps::kind_file;
constexpr std::int32_t kNoDescriptor = -1;

struct Lister {
   Lister(std::optional<std::string_view> wanted, ZIF_ParamList *list, world::BlockOutput &out)
       : filter(wanted), query(list), output(out) {}

   std::optional<std::string_view> filter;
   ZIF_ParamList *query = nullptr;
   // The cartel's columns, "%-10d  %-20s  ", the same on each of its lines.
   world::LineBuffer cartelColumns;
   world::BlockOutput &output;
   // Room for the records, made once: each is a few KiB, zeroed when made.
   rec::world_name nameRecord;
   rec::userworld_cartel_fd_cwd cwdRecord;
   rec::userworld_cartel_fd_fds descriptorRecord;
   rec::userworld_cartel_mem_mmaps mappingRecord;

   // Reads the cartel's world name; false when it cannot be read.
   bool StartCartel(std::int32_t cartelId) {
      if (sysinfo::GetRecord(nameRecord, query) != 0) {
         return false;
      }
      cartelColumns.clear();
      world::AppendNumber(cartelColumns, cartelId, 10, true);
      cartelColumns += "  ";
      world::AppendLeft(cartelColumns, nameRecord.name(), 20);
      cartelColumns += "  ";
      return true;
   }

   bool Passes(std::string_view text) const { return !filter || text.find(*filter) != std::string_view::npos; }

   // The columns of a line up to the description, as "%-10d  %-20s  %-20s   %6d   ".
   world::LineBuffer &StartLine(std::string_view type, std::int32_t descriptor) const {
      world::LineBuffer &line = output.Buffer();
      line += cartelColumns.View();
      world::AppendLeft(line, type, 20);
      line += "   ";
      world::AppendNumber(line, descriptor, 6);
      line += "   ";
      return line;
   }

   void PrintLine(std::string_view type, std::int32_t descriptor, std::string_view description) const {
      world::LineBuffer &line = StartLine(type, descriptor);
      line += description;
      line += '\n';
      output.LineDone();
   }

   void PrintWorkingDirectory() {
      if (sysinfo::GetRecord(cwdRecord, query) != 0 || !Passes(cwdRecord.path())) {
         return;
      }
      PrintLine("cwd", kNoDescriptor, cwdRecord.path());
   }

   // Returns the status that ends the listing, else 0.
   ZLC_ReturnStatus PrintDescriptors(const sysinfo::InstanceList &descriptors) {
      for (int index = 0; index < descriptors.Count(); ++index) {
         const auto number = static_cast<std::int32_t>(ZIF_ParamGetInt(descriptors.At(index)));
         const ZLC_ReturnStatus status = ZIF_ParamListAddInt(query, number);
         if (status != 0) {
            output.Buffer() += "failed to add fd to ZIF parameter list\n";
            return status;
         }
         if (sysinfo::GetRecord(descriptorRecord, query) == 0 && Passes(descriptorRecord.description())) {
            PrintLine(descriptorRecord.type(), number, descriptorRecord.description());
         }
         ZIF_ParamListRemoveLastParam(query);
      }
      return 0;
   }

   // A mapping's line ends with " (prot:%s%s/len:%u)" after its name.
   ZLC_ReturnStatus PrintMappings() {
      sysinfo::InstanceList mappings;
      if (mappings.Fetch(sysinfo::Node(ZIF_NODE_userworld_cartel_mem_mmaps), query) != 0) {
         return 0;
      }
      for (int index = 0; index < mappings.Count(); ++index) {
         const ZLC_ReturnStatus status = ZIF_ParamListAddInt(query, ZIF_ParamGetInt(mappings.At(index)));
         if (status != 0) {
            output.Buffer() += "failed to add mmap to ZIF parameter list\n";
            return status;
         }
         if (sysinfo::GetRecord(mappingRecord, query) == 0 && mappingRecord.kind() == kListedMappingKind &&
             Passes(mappingRecord.name())) {
            const std::uint32_t prot = mappingRecord.prot();
            world::LineBuffer &line = StartLine("MMAP", mappingRecord.fd());
            line += mappingRecord.name();
            line += " (prot:";
            line += (prot & mappingRecord.prot_read) != 0 ? 'R' : '-';
            line += (prot & mappingRecord.prot_write) != 0 ? 'W' : '-';
            line += "/len:";
            world::AppendNumber(line, mappingRecord.length());
            line += ")\n";
            output.LineDone();
         }
         ZIF_ParamListRemoveLastParam(query);
      }
      return 0;
   }
};

}  // namespace

int LsofMain(int argc, char **argv) {
   const world::LsofArgument argument = world::ParseLsofArgument(argc >= 2 ? argv[1] : nullptr);
   if (argument.usage) {
      std::fputs(kUsage, stdout);
      return 0;
   }
   sysinfo::ParamListPtr query = sysinfo::MakeQueryList();
   if (!query) {
      std::fputs("WalkWorldList: Not enough memory\n", stderr);
      return 0;
   }
   sysinfo::InstanceList cartels;
   const ZLC_ReturnStatus status = cartels.Fetch(sysinfo::Node(ZIF_NODE_userworld_cartel), nullptr);
   if (status != 0) {
      std::fprintf(stderr, "WalkWorldList: error fetching world list 0x%x\n", status);
      return static_cast<int>(status);
   }
   world::BlockOutput output;
   output.Buffer() +=
         "Cartel    |      World name     |        Type         |   fd   |  Description     \n"
         "----------+---------------------+---------------------+--------+------------------\n";

   Lister lister(argument.filter, query.get(), output);
   ZLC_ReturnStatus failure = 0;
   const sysinfo::WalkResult walk = sysinfo::ForEachInstance(cartels, query.get(), [&](ZIF_Param *key, int) {
      if (!lister.StartCartel(static_cast<std::int32_t>(ZIF_ParamGetInt(key)))) {
         return sysinfo::Visit::Next;
      }
      lister.PrintWorkingDirectory();
      // Without its descriptor list a cartel gets no descriptor and no mapping lines.
      sysinfo::InstanceList descriptors;
      if (descriptors.Fetch(sysinfo::Node(ZIF_NODE_userworld_cartel_fd_fds), query.get()) != 0) {
         return sysinfo::Visit::Next;
      }
      failure = lister.PrintDescriptors(descriptors);
      if (failure == 0) {
         failure = lister.PrintMappings();
      }
      return failure == 0 ? sysinfo::Visit::Next : sysinfo::Visit::Stop;
   });
   if (walk.KeyCopyFailed()) {
      return static_cast<int>(ZLC_FAILURE);
   }
   return static_cast<int>(failure);
}
