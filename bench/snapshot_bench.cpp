// Opening a snapshot and reading one record must cost about the same for a
// 10 KB file and a 1 GB file: the open checks the header and the index only,
// and a record's checksum covers just that record.
#include "zellibs.h"
#include "zellibs_testing.h"
#include "zifformat/layouts.h"
#include "zifformat/mapped_file.h"
#include "zifformat/snapshot_format.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace {

std::string gDir;

// A snapshot with a few bulk data entries of blobSize bytes each and the one
// record the benchmark reads. Both files have the same number of entries.
void generate(const std::string &path, size_t blobSize) {
   constexpr int kBlobs = 16;
   std::vector<uint8_t> blob(blobSize);
   for (size_t i = 0; i < blob.size(); i++) {
      blob[i] = static_cast<uint8_t>(i * 131 + 7);
   }
   static const uint8_t name[] = {'i', 'n', 'i', 't', 0};

   std::vector<zif::RawEntry> entries;
   for (int i = 0; i < kBlobs; i++) {
      zif::Keys keys{zif::Key::ofText("blob" + std::to_string(i))};
      entries.push_back({zif::EntryKind::Data, "system_bootOptionFiles_content", zif::encodeKeys(keys), 0, blob, {}});
   }
   entries.push_back(
         {zif::EntryKind::Record, "world_name", zif::encodeKeys({zif::Key::ofInt(1001)}), 0, std::span(name), {}});
   zif::Signature sig{zif::librarySignatureDigest(), zif::libraryBuildDate()};
   zif::writeFileAtomic(path, [&](zif::Sink &sink) { zif::writeRaw(sig, {}, {}, entries, sink); });
}

// The file of blobSize blobs, made on first use: a run that selects only the
// small file does not write the large one.
const std::string &snapshotWithBlobs(const std::string &name, size_t blobSize) {
   static std::map<std::string, std::string> made;
   auto [it, isNew] = made.try_emplace(name, gDir + "/" + name);
   if (isNew) {
      generate(it->second, blobSize);
   }
   return it->second;
}

void openAndRead(benchmark::State &state, const std::string &path) {
   ZIF_ParamList *keys = ZIF_ParamListCreate(1, 1);
   ZIF_ParamListAddInt(keys, 1001);
   char name[32];
   for (auto _ : state) {
      if (ZIF_UseCache(path.c_str(), 0) != ZLC_OK ||
          ZIF_Get(ZIF_NODE_world_name.number, keys, name, sizeof name) != ZLC_OK) {
         state.SkipWithError("read failed");
         break;
      }
      benchmark::DoNotOptimize(name);
      zif::resetSource();  // unmaps, as the end of a process would
   }
   ZIF_ParamListDestroy(keys);
   state.counters["file_MB"] = static_cast<double>(std::filesystem::file_size(path)) / 1e6;
}

void BM_OpenAndReadRecord_10KB(benchmark::State &state) {
   openAndRead(state, snapshotWithBlobs("small.zifc", 600));
}
void BM_OpenAndReadRecord_1GB(benchmark::State &state) {
   openAndRead(state, snapshotWithBlobs("large.zifc", size_t{64} << 20));
}
BENCHMARK(BM_OpenAndReadRecord_10KB);
BENCHMARK(BM_OpenAndReadRecord_1GB);

}  // namespace

int main(int argc, char **argv) {
   benchmark::Initialize(&argc, argv);
   std::string pattern = (std::filesystem::temp_directory_path() / "zifbench.XXXXXX").string();
   if (!mkdtemp(pattern.data())) {
      std::perror("mkdtemp");
      return 1;
   }
   gDir = pattern;
   benchmark::RunSpecifiedBenchmarks();
   benchmark::Shutdown();
   if (!std::getenv("ZIF_BENCH_KEEP")) {
      std::filesystem::remove_all(gDir);
   }
   return 0;
}
