// Plays files through a fuzz target, once each: seeds and past findings, with any compiler.
//
//   TARGET-replay FILE|FOLDER...
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

void play(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
  LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

}  // namespace

int main(int argc, char** argv) {
  int played = 0;
  for (int i = 1; i < argc; ++i) {
    const std::filesystem::path path = std::filesystem::absolute(argv[i]);
    if (!std::filesystem::is_directory(path)) {
      play(path);
      ++played;
      continue;
    }
    for (const auto& entry : std::filesystem::recursive_directory_iterator(path)) {
      if (!entry.is_regular_file()) continue;
      play(entry.path());
      ++played;
    }
  }
  std::printf("%d inputs\n", played);
  return played > 0 ? 0 : 1;
}
