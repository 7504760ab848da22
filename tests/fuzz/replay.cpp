// Runs a fuzz target once on each file of the folders given: the corpus as an ordinary test.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
  int files = 0;
  for (int i = 1; i < argc; ++i) {
    for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
      std::ifstream file(entry.path(), std::ios::binary);
      const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
      // Told before: a crash then names its input.
      std::fprintf(stderr, "%s\n", entry.path().filename().c_str());
      LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
      ++files;
    }
  }
  std::fprintf(stderr, "%d inputs\n", files);
  return files > 0 ? 0 : 1;
}
