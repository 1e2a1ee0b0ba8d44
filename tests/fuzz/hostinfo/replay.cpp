// Feeds each seed file of the given corpus directories to the fuzz entry, so
// that the ordinary test run replays the seeds.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

int main(int argc, char **argv) {
   int replayed = 0;
   for (int i = 1; i < argc; ++i) {
      for (const auto &file : std::filesystem::directory_iterator(argv[i])) {
         std::ifstream in(file.path(), std::ios::binary);
         const std::vector<char> bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
         LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t *>(bytes.data()), bytes.size());
         ++replayed;
      }
   }
   std::printf("%d seeds replayed\n", replayed);
   return replayed > 0 ? 0 : 1;
}
