// The snapshot format: damaged and truncated files are refused with the right
// status, JSON round trips are byte-identical, pack refuses bad entries.
#include "testutil.h"
#include "zifformat/layouts.h"
#include "zifformat/mapped_file.h"
#include "zifformat/snapshot_format.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <xxhash.h>

using namespace ziftest;
using zif::EntryKind;

namespace {

// Small, but with one entry of every kind and every key type.
constexpr const char *kSmall = R"({
  "simulator": {"rootDevice": 3},
  "meta": {"host": "h", "captured": "2026-11-22T10:00:00Z", "by": "t", "notes": ["a"]},
  "lists": [{"node": "world", "instances": [1, "x", null]}, {"node": "userworld_cartel", "status": "0xbad0001"}],
  "records": [{"node": "world_name", "keys": [1], "text": "w"}, {"node": "world_info", "keys": ["k", 2], "hex": "0102"}],
  "data": [{"node": "system_bootOptionFiles_content", "keys": ["b"], "text": "abc"}],
  "devinfo": [{"function": [0, 1, 2, 3], "hex": "ff"}],
  "sets": [{"node": "sched_groupPathNameToID", "input": ["p"], "hex": "07"}, {"node": "hardware_chipset_rtc", "status": 1}]
})";

std::vector<uint8_t> small() {
   return zif::packJson(kSmall);
}

// Reads one entry through the C API, as a command would.
ZLC_ReturnStatus readThroughApi(const zif::Entry &e) {
   auto node = [&]() -> ZIF_NodeNumber {
      for (const zif::NodeInfo &n : zif::allNodes()) {
         if (n.name == e.node) {
            return n.number;
         }
      }
      return 0;
   };
   ZIF_ParamList *keys = ZIF_ParamListCreate(1, 1);
   for (const zif::Key &k : e.keys) {
      if (k.type == zif::KeyType::Int) {
         ZIF_ParamListAddInt(keys, k.number);
      }
      if (k.type == zif::KeyType::Text) {
         ZIF_ParamListAddString(keys, k.text.c_str());
      }
   }
   ZLC_ReturnStatus s = ZLC_OK;
   unsigned char buf[ZLC_DEVINFO_REPLY_SIZE];
   switch (e.kind) {
      case EntryKind::List: {
         ZIF_ParamList *list = nullptr;
         s = ZIF_GetInstanceListAlloc(node(), keys, &list);
         ZIF_ParamListDestroy(list);
         break;
      }
      case EntryKind::Record:
         s = ZIF_Get(node(), keys, buf, 16);
         break;
      case EntryKind::Data: {
         uint32_t length;
         s = ZIF_GetDataLength(node(), keys, &length);
         break;
      }
      case EntryKind::DevInfo: {
         int64_t err;
         s = ZlcSyscall_DevInfo(static_cast<uint32_t>(e.keys[0].number), static_cast<uint32_t>(e.keys[1].number),
                                static_cast<uint32_t>(e.keys[2].number), static_cast<uint32_t>(e.keys[3].number), buf,
                                &err);
         break;
      }
      case EntryKind::Set:
      case EntryKind::SetAny:
         s = ZIF_Set(node(), nullptr, keys, buf, 8);
         break;
   }
   ZIF_ParamListDestroy(keys);
   return s;
}

}  // namespace

TEST(Truncation, EveryPrefixIsRefusedAsTruncated) {
   std::vector<uint8_t> file = small();
   zif::Reader reader;
   ASSERT_EQ(reader.open(file), ZLC_OK);
   for (size_t n = 1; n < file.size(); n++) {
      zif::Problem problem;
      ASSERT_EQ(reader.open(std::span(file).first(n), &problem), ZLC_SNAP_TRUNCATED) << "prefix " << n;
      EXPECT_EQ(problem.offset, n);
   }
   EXPECT_EQ(reader.open(std::span(file).first(0)), ZLC_SNAP_NOT_A_SNAPSHOT);
   file.push_back(0);
   EXPECT_EQ(reader.open(file), ZLC_SNAP_CORRUPT);
}

class Damage : public SourceTest {};

TEST_F(Damage, EveryDamagedByteIsRefusedAtOpenOrByTheReadOfItsEntry) {
   const std::vector<uint8_t> good = small();
   zif::Reader original;
   ASSERT_EQ(original.open(good), ZLC_OK);
   zif::Snapshot model;
   ASSERT_EQ(original.toModel(model), ZLC_OK);
   uint64_t dataStart = original.sectionOffset(zif::SectionId::Data);

   std::string path = dir.file("damaged.zifc");
   for (size_t i = 0; i < good.size(); i++) {
      for (uint8_t flip : {0x01, 0x80}) {
         std::vector<uint8_t> bad = good;
         bad[i] ^= flip;
         SCOPED_TRACE("byte " + std::to_string(i) + " ^ " + std::to_string(flip));
         zif::Reader reader;
         ZLC_ReturnStatus open = reader.open(bad);
         EXPECT_TRUE(open != ZLC_OK || reader.verifyAll() != ZLC_OK) << "zifcache check must refuse it";
         if (i < 8) {
            EXPECT_EQ(open, ZLC_SNAP_NOT_A_SNAPSHOT);
            continue;
         }
         if (i < 12) {
            EXPECT_EQ(open, ZLC_SNAP_BAD_VERSION);
            continue;
         }
         if (open != ZLC_OK) {
            EXPECT_EQ(open, ZLC_SNAP_CORRUPT);
            continue;
         }
         // Opened: the byte must lie in an entry's data, and reading that
         // entry through the API says so; other entries still read.
         ASSERT_GE(i, dataStart);
         writeBytes(path, bad);
         ASSERT_EQ(ZIF_UseCache(path.c_str(), 0), ZLC_OK);
         size_t hit = 0;
         for (size_t k = 0; k < original.size(); k++) {
            zif::IndexEntry e = original.entry(k);
            bool inside = i >= dataStart + e.dataOffset && i < dataStart + e.dataOffset + e.dataLength;
            ZLC_ReturnStatus s = readThroughApi(model.entries[k]);
            if (inside) {
               hit++;
               EXPECT_EQ(s, ZLC_SNAP_CORRUPT)
                     << zif::describeEntry(e.kind, original.entryNode(e), model.entries[k].keys);
            } else {
               EXPECT_NE(s, ZLC_SNAP_CORRUPT);
            }
         }
         EXPECT_EQ(hit, 1u);
      }
   }
}

namespace {

uint64_t loadU64(const uint8_t *p) {
   uint64_t v = 0;
   for (int i = 7; i >= 0; i--) {
      v = (v << 8) | p[i];
   }
   return v;
}

void storeU64(uint8_t *p, uint64_t v) {
   for (int i = 0; i < 8; i++) {
      p[i] = static_cast<uint8_t>(v >> (8 * i));
   }
}

// Where a section lies, from the section table: {u64 offset, u64 size, u64 checksum} each.
std::span<uint8_t> sectionOf(std::vector<uint8_t> &file, zif::SectionId id) {
   const uint8_t *entry = file.data() + zif::kSectionTableOffset + 24 * static_cast<size_t>(id);
   return std::span(file).subspan(loadU64(entry), loadU64(entry + 8));
}

// Makes every section checksum and the header checksum match the bytes again.
void restamp(std::vector<uint8_t> &file) {
   for (size_t i = 0; i < zif::kSectionCount; i++) {
      std::span<uint8_t> section = sectionOf(file, static_cast<zif::SectionId>(i));
      storeU64(file.data() + zif::kSectionTableOffset + 24 * i + 16, XXH3_64bits(section.data(), section.size()));
   }
   storeU64(file.data() + zif::kHeaderChecksumOffset, XXH3_64bits(file.data(), zif::kHeaderChecksumOffset));
}

}  // namespace

// Lookups binary-search the index, so entries out of order or two in the same
// place would hide entries: opening refuses them even when every checksum
// matches. Each case rewrites two entries' keys or index fields in place and
// restamps the checksums.
TEST(Open, MisorderedIndexWithValidChecksumsIsRefused) {
   // Two records of one node: two 9-byte integer keys in the keys section.
   constexpr const char *kTwoKeys = R"({"records": [{"node": "world_name", "keys": [1], "text": "a"},
                                                    {"node": "world_name", "keys": [2], "text": "b"}]})";
   // Two entries of one key: world_info is name 0, world_name name 1.
   constexpr const char *kTwoNodes = R"({"records": [{"node": "world_info", "keys": [1], "hex": "01"},
                                                     {"node": "world_name", "keys": [1], "text": "a"}]})";
   constexpr const char *kTwoKinds = R"({"records": [{"node": "world_name", "keys": [1], "text": "a"}],
                                         "data": [{"node": "world_info", "keys": [1], "hex": "01"}]})";
   using Mutation = void (*)(std::vector<uint8_t> &);
   struct Case {
      const char *what;
      const char *json;
      Mutation mutate;
   } cases[] = {
         {"keys swapped", kTwoKeys,
          [](std::vector<uint8_t> &f) {
             std::span<uint8_t> keys = sectionOf(f, zif::SectionId::Keys);
             std::swap_ranges(keys.begin(), keys.begin() + 9, keys.begin() + 9);
          }},
         {"one key twice", kTwoKeys,
          [](std::vector<uint8_t> &f) {
             std::span<uint8_t> keys = sectionOf(f, zif::SectionId::Keys);
             std::copy(keys.begin(), keys.begin() + 9, keys.begin() + 9);
          }},
         {"nodes swapped", kTwoNodes,
          [](std::vector<uint8_t> &f) {
             std::span<uint8_t> index = sectionOf(f, zif::SectionId::Index);  // the name id at 4
             std::swap_ranges(index.begin() + 4, index.begin() + 8, index.begin() + zif::kIndexEntrySize + 4);
          }},
         {"kinds swapped", kTwoKinds,
          [](std::vector<uint8_t> &f) {
             std::span<uint8_t> index = sectionOf(f, zif::SectionId::Index);  // the kind at 0
             std::swap(index[0], index[zif::kIndexEntrySize]);
          }},
   };
   for (const Case &c : cases) {
      SCOPED_TRACE(c.what);
      std::vector<uint8_t> file = zif::packJson(c.json);
      restamp(file);
      zif::Reader reader;
      ASSERT_EQ(reader.open(file), ZLC_OK) << "restamping alone keeps the file good";
      c.mutate(file);
      restamp(file);
      zif::Problem problem;
      EXPECT_EQ(reader.open(file, &problem), ZLC_SNAP_CORRUPT);
      EXPECT_EQ(problem.message, "bad index entry 1");
      const uint64_t indexStart = sectionOf(file, zif::SectionId::Index).data() - file.data();
      EXPECT_EQ(problem.offset, indexStart + zif::kIndexEntrySize);
   }
}

TEST(RoundTrip, PackDumpPackIsByteIdenticalAndOrderFree) {
   std::vector<uint8_t> first = small();
   zif::Reader reader;
   ASSERT_EQ(reader.open(first), ZLC_OK);
   zif::Snapshot model;
   ASSERT_EQ(reader.toModel(model), ZLC_OK);
   std::string json = zif::dumpJson(model);
   EXPECT_EQ(zif::packJson(json), first);

   // Entry order in the JSON does not matter.
   std::vector<uint8_t> a =
         zif::packJson(R"({"lists": [{"node": "world", "instances": [1]}, {"node": "world_info", "instances": [2]}]})");
   std::vector<uint8_t> b =
         zif::packJson(R"({"lists": [{"node": "world_info", "instances": [2]}, {"node": "world", "instances": [1]}]})");
   EXPECT_EQ(a, b);
}

TEST(RoundTrip, DumpUsesFieldsOnlyWhenTheyReproduceTheBytes) {
   struct Case {
      const char *record;
      const char *form;
   } cases[] = {
         {R"({"node": "hardware_chipset_rtc", "fields": {"hour": -1, "year": 2026}})", "\"fields\":{\"hour\":-1,"},
         // A byte that no field covers.
         {R"({"node": "hardware_chipset_rtc", "hex": "00000000 00000000 00000000 00000000 00000000 00000000 01000000 00000000"})",
          "\"hex\""},
         // Shorter than the layout (as records are stored, without trailing zeros), and longer.
         {R"({"node": "hardware_chipset_rtc", "hex": "01"})", "\"fields\":{\"hour\":1,"},
         {R"({"node": "hardware_chipset_rtc", "hex": "00000000 00000000 00000000 00000000 00000000 00000000 00000000 00000000 01"})",
          "\"hex\":\"00000000"},
         // Bytes after a text field's NUL.
         {R"({"node": "system_version", "hex": "41004200"})", "\"hex\""},
         {R"({"node": "system_version", "fields": {"product": "zelcore", "update": "U1"}})", "\"product\":\"zelcore\""},
         {R"({"node": "world_name", "keys": [1], "text": "init"})", "\"fields\":{\"name\":\"init\"}"},
         // Text without a layout, stored without its NUL.
         {R"({"node": "world", "keys": [1], "hex": "41"})", "\"text\":\"A\""},
   };
   for (const Case &c : cases) {
      std::string json = std::string(R"({"records": [)") + c.record + "]}";
      std::vector<uint8_t> bytes = zif::packJson(json);
      zif::Reader reader;
      ASSERT_EQ(reader.open(bytes), ZLC_OK);
      zif::Snapshot model;
      ASSERT_EQ(reader.toModel(model), ZLC_OK);
      // Stored without its trailing zeros.
      EXPECT_TRUE(model.entries[0].bytes.empty() || model.entries[0].bytes.back() != 0) << c.record;
      std::string dumped = zif::dumpJson(model);
      EXPECT_NE(dumped.find(c.form), std::string::npos) << c.record << "\n" << dumped;
      EXPECT_EQ(zif::packJson(dumped), bytes) << c.record;
   }
}

TEST(Pack, FieldEncodingsAndMergedDocuments) {
   zif::JsonPacker packer;
   packer.add(R"({"signature": {"digest": "0x00000000000000ff", "date": "first"},
                  "records": [{"node": "system_ntpclock_upTime", "fields": {"seconds": "0xffffffff", "secondsHigh": 1}}]})",
              "a.json");
   packer.add(R"({"signature": {"digest": "1", "date": "second"}, "meta": {"host": "b"},
                  "records": [{"node": "system_version", "fields": {"build": -2147483648}}]})",
              "b.json");
   zif::Snapshot s = packer.finish();
   EXPECT_EQ(s.signature.digest, 0xffu);
   EXPECT_EQ(s.signature.date, "first");
   EXPECT_EQ(s.meta.host, "b");
   ASSERT_EQ(s.entries.size(), 2u);
   EXPECT_EQ(s.entries[0].bytes, (std::vector<uint8_t>{0xff, 0xff, 0xff, 0xff, 1, 0, 0, 0}));
   EXPECT_EQ(s.entries[1].bytes.size(), 344u);
   EXPECT_EQ(s.entries[1].bytes[295], 0x80);

   // Both ends of a signed field's range are taken.
   EXPECT_NO_THROW(zif::packJson(R"({"records": [{"node": "hardware_chipset_rtc",
                                                  "fields": {"hour": 2147483647, "minute": -2147483648}}]})"));
   zif::Snapshot defaults = zif::JsonPacker().finish();
   EXPECT_EQ(defaults.signature.digest, zif::librarySignatureDigest());
}

TEST(Pack, RefusalsNameTheEntry) {
   struct Case {
      const char *json;
      const char *message;
   } cases[] = {
         {R"({"records": [{"node": "world_name", "text": "a"}, {"node": "wrld_info", "hex": ""}]})",
          "records[1]: unknown node \"wrld_info\""},
         {R"({"records": [{"node": "hardware_chipset_rtc", "fields": {"hours": 1}}]})",
          "records[0]: unknown field \"hours\""},
         {R"({"records": [{"node": "system_ntpclock_upTime", "fields": {"seconds": -1}}]})",
          "records[0]: field seconds"},
         {R"({"records": [{"node": "system_ntpclock_upTime", "fields": {"seconds": 4294967296}}]})", "out of range"},
         {R"({"records": [{"node": "system_ntpclock_upTime", "fields": {"seconds": "0x100000000"}}]})", "out of range"},
         {R"({"records": [{"node": "system_ntpclock_upTime", "fields": {"seconds": 1.5}}]})", "field seconds"},
         {R"({"records": [{"node": "hardware_chipset_rtc", "fields": {"hour": 2147483648}}]})", "out of range for S32"},
         {R"({"records": [{"node": "system_version", "fields": {"product": "0123456789012345678901234567890123"}}]})",
          "does not fit"},
         {R"({"records": [{"node": "world_info", "hex": "abc"}]})", "records[0]: bad hex"},
         {R"({"records": [{"node": "world_info", "hex": "zz"}]})", "records[0]: bad hex"},
         {R"({"records": [{"node": "world", "fields": {}}]})", "no record layout"},
         {R"({"records": [{"node": "world_info", "hex": "", "text": ""}]})", "exactly one of"},
         {R"({"records": [{"node": "world_info", "status": 0}]})", "non-zero"},
         {R"({"records": [{"node": "world_info", "keys": [1.5], "hex": ""}]})", "records[0]: keys[0]"},
         {R"({"records": [{"node": "world_info", "keys": [1], "hex": "01"}, {"node": "world_info", "keys": [1], "hex": "02"}]})",
          "records[1]: duplicate entry"},
         {R"({"records": [{"node": "world_info", "hexx": ""}]})", "unknown member \"hexx\""},
         {R"({"record": []})", "unknown member \"record\""},
         {R"({"lists": [{"node": "world"}]})", "lists[0]: needs"},
         {R"({"devinfo": [{"function": [0, 0, 0], "hex": ""}]})", "devinfo[0]"},
         {R"({"devinfo": [{"function": [0, 0, 0, 0], "hex": ")"
          "00"
          "\"}, {\"function\": [0, 0, 0, 0], \"status\": 1}]}",
          "devinfo[1]: duplicate"},
         {R"({"sets": [{"node": "world", "status": "xyz"}]})", "sets[0]: bad status"},
         {R"({"zifcache": 2})", "unsupported"},
         {R"([1, 2)", "not valid JSON"},
   };
   for (const Case &c : cases) {
      try {
         zif::packJson(c.json);
         ADD_FAILURE() << "accepted: " << c.json;
      } catch (const zif::FormatError &e) {
         EXPECT_NE(std::string(e.what()).find(c.message), std::string::npos) << e.what() << "\nfor " << c.json;
      }
   }

   // Duplicates across documents name both.
   zif::JsonPacker packer;
   packer.add(R"({"sets": [{"node": "world", "input": [1]}]})", "one.json");
   packer.add(R"({"sets": [{"node": "world", "input": [1], "status": 1}]})", "two.json");
   try {
      zif::snapshotBytes(packer.finish());
      ADD_FAILURE() << "duplicate accepted";
   } catch (const zif::FormatError &e) {
      EXPECT_NE(std::string(e.what()).find("two.json: sets[0]"), std::string::npos) << e.what();
      EXPECT_NE(std::string(e.what()).find("one.json: sets[0]"), std::string::npos) << e.what();
   }
}

// Catches mistakes in the .def files early: every field inside its record,
// integer widths matching their kinds, names unique.
TEST(Layouts, TableIsConsistent) {
   std::vector<std::string_view> nodes;
   for (const zif::RecordLayout &r : zif::allLayouts()) {
      SCOPED_TRACE(std::string(r.node));
      nodes.push_back(r.node);
      std::vector<std::string_view> names;
      for (const zif::FieldLayout &f : r.fields) {
         names.push_back(f.name);
         EXPECT_LE(uint64_t{f.offset} + f.width, r.length) << f.name;
         static constexpr uint32_t kWidth[] = {1, 2, 4, 8, 1, 2, 4, 8};
         if (zif::isInteger(f.kind)) {
            EXPECT_EQ(f.width, kWidth[static_cast<int>(f.kind)]) << f.name;
         } else {
            EXPECT_GE(f.width, 1u) << f.name;
         }
      }
      std::sort(names.begin(), names.end());
      EXPECT_EQ(std::adjacent_find(names.begin(), names.end()), names.end()) << "duplicate field name";
   }
   std::sort(nodes.begin(), nodes.end());
   EXPECT_EQ(std::adjacent_find(nodes.begin(), nodes.end()), nodes.end()) << "node with two layouts";
   EXPECT_NE(zif::findLayout("hardware_chipset_rtc"), nullptr);
}

// The run and wait states are numbers into the library's state name tables:
// every row names its state as the library does, and every state has a row.
TEST(Layouts, StateValuesNameTheLibrarysStates) {
   struct Table {
      std::string_view field;
      const CpuSched_StateElement *elements;
      uint32_t count;
   } tables[] = {{"runState", CpuSched_RunStateElements, CpuSched_NumRunStates},
                 {"waitState", CpuSched_WaitStateElements, CpuSched_NumWaitStates}};
   for (const Table &t : tables) {
      std::vector<std::string_view> named(t.count);
      for (const zif::NamedValue &v : zif::allValues()) {
         if (v.node == "sched_Vcpus_stats_summaryStats" && v.field == t.field) {
            ASSERT_LT(v.number, t.count) << v.name;
            EXPECT_EQ(v.name, std::string_view(t.elements[v.number].name));
            named[static_cast<size_t>(v.number)] = v.name;
         }
      }
      for (uint32_t i = 0; i < t.count; i++) {
         EXPECT_FALSE(named[i].empty()) << t.field << " " << i << " has no row";
      }
   }
}

// The example in the format documentation stays valid.
TEST(Docs, ExamplePacks) {
   std::ifstream in(DOCS_FORMAT_PATH);
   std::string doc{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
   size_t begin = doc.find("```json\n");
   ASSERT_NE(begin, std::string::npos);
   begin += 8;
   size_t end = doc.find("```", begin);
   ASSERT_NE(end, std::string::npos);
   EXPECT_NO_THROW(zif::packJson(doc.substr(begin, end - begin)));
}

// Files above the whole-mapping limit are mapped piece by piece; entries on
// either side of a large blob and a full check still read correctly.
TEST_F(Damage, LargeFilesAreReadThroughPartialMappings) {
   std::vector<uint8_t> blob((zif::MappedFile::kWholeLimit) + 12345, 0x5a);
   const uint8_t first[] = {'a', 0}, last[] = {'z', 0};
   std::vector<zif::RawEntry> entries = {
         {EntryKind::Record, "world_name", zif::encodeKeys({zif::Key::ofInt(1)}), 0, std::span(first), {}},
         {EntryKind::Data, "system_bootOptionFiles_content", zif::encodeKeys({zif::Key::ofText("big")}), 0, blob, {}},
         {EntryKind::DevInfo,
          {},
          zif::encodeKeys({zif::Key::ofInt(0), zif::Key::ofInt(0), zif::Key::ofInt(0), zif::Key::ofInt(0)}),
          1,
          {},
          {}},
         {EntryKind::SetAny, "world_name", "", 0, std::span(last), {}},
   };
   std::string path = dir.file("large.zifc");
   zif::Signature sig{zif::librarySignatureDigest(), zif::libraryBuildDate()};
   zif::writeFileAtomic(path, [&](zif::Sink &sink) { zif::writeRaw(sig, {}, {}, entries, sink); });

   zif::MappedFile file;
   ASSERT_EQ(file.open(path), ZLC_OK);
   zif::Reader reader;
   ASSERT_EQ(reader.open(file), ZLC_OK);
   EXPECT_EQ(reader.verifyAll(), ZLC_OK);

   ASSERT_EQ(ZIF_UseCache(path.c_str(), 0), ZLC_OK);
   ZIF_ParamList *q = ZIF_ParamListCreate(1, 1);
   ZIF_ParamListAddString(q, "big");
   uint32_t request[2] = {static_cast<uint32_t>(blob.size() - 3), 100};
   ZIFData *in = ZIFData_Create(8, request, 8);
   ZIFData *out = ZIFData_Create(100, nullptr, 0);
   ASSERT_EQ(ZIF_SetData(ZIF_NODE_system_bootOptionFiles_content.number, q, in, out), ZLC_OK);
   EXPECT_EQ(out->length, 3u);
   EXPECT_EQ(out->bytes[2], 0x5a);
   char answer[2] = {};
   EXPECT_EQ(ZIF_Set(ZIF_NODE_world_name.number, nullptr, nullptr, answer, 2), ZLC_OK);
   EXPECT_EQ(answer[0], 'z');
   ZIFData_Destroy(in);
   ZIFData_Destroy(out);
   ZIF_ParamListDestroy(q);
}

// Integer keys sort in numeric order, negatives first, and every order of
// lookups (in order, the same key again, backwards, missing, interleaved)
// finds the entry of its key, whatever the reader remembers between them.
TEST(Lookup, IntegerKeysSortNumericallyAndAnyLookupOrderFindsItsEntry) {
   const std::vector<int64_t> numbers = {INT64_MIN, -70000, -1, 0, 1, 255, 256, 65536, 70000, INT64_MAX};
   for (size_t i = 1; i < numbers.size(); i++) {
      EXPECT_LT(zif::encodeKeys({zif::Key::ofInt(numbers[i - 1])}), zif::encodeKeys({zif::Key::ofInt(numbers[i])}))
            << numbers[i - 1] << " before " << numbers[i];
   }
   std::string json = R"({"records": [)";
   for (int n = -40; n < 40; n++) {
      json += (n > -40 ? ", " : "") + std::string(R"({"node": "world_name", "keys": [)") + std::to_string(n * 300) +
              R"(], "text": "w)" + std::to_string(n * 300) + R"("})";
   }
   json += "]}";
   zif::Reader reader;
   const std::vector<uint8_t> file = zif::packJson(json);
   ASSERT_EQ(reader.open(file), ZLC_OK);
   auto nameOf = [&](int64_t n) -> std::string {
      auto i = reader.find(EntryKind::Record, "world_name", zif::encodeKeys({zif::Key::ofInt(n)}));
      std::span<const uint8_t> bytes;
      if (!i || reader.payload(*i, bytes) != ZLC_OK) {
         return "-";
      }
      return std::string(bytes.begin(), bytes.end());
   };
   // In key order with a missing key before each (a miss between neighbours
   // must not lose the entries after it), backwards with each twice,
   // scattered, and keys around the ends.
   std::vector<int64_t> order;
   for (int n = -40; n < 40; n++) {
      order.insert(order.end(), {n * 300 - 1, n * 300});
   }
   for (int n = 39; n >= -40; n--) {
      order.insert(order.end(), 2, n * 300);
   }
   for (int n = 0; n < 80; n++) {
      order.push_back(((n * 37) % 80 - 40) * 300);
   }
   order.insert(order.end(), {11701, 1, -12001, 12000});
   for (int64_t n : order) {
      const bool held = n % 300 == 0 && n >= -12000 && n < 12000;
      EXPECT_EQ(nameOf(n), held ? "w" + std::to_string(n) : "-") << n;
   }
}
