// Replays every file of the corpus folders (or single files) given on the
// command line through the fuzz target, so that a normal build runs the
// committed seeds as a test without libFuzzer.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
  std::vector<std::filesystem::path> files;
  for (int i = 1; i < argc; ++i) {
    std::error_code ec;
    if (!std::filesystem::is_directory(argv[i], ec))
      files.emplace_back(argv[i]);
    else
      for (const auto& entry : std::filesystem::directory_iterator(argv[i]))
        if (entry.is_regular_file()) files.push_back(entry.path());
  }
  for (const auto& file : files) {
    std::ifstream in(file, std::ios::binary);
    if (!in) return std::fprintf(stderr, "cannot open %s\n", file.c_str()), 1;
    std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
  }
  std::printf("replayed %zu input(s)\n", files.size());
  return files.empty();
}
