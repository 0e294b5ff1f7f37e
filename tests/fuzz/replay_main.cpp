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

static bool Replay(const std::filesystem::path& file)
{
    std::ifstream in(file, std::ios::binary);
    if (!in)
    {
        std::fprintf(stderr, "cannot open %s\n", file.c_str());
        return false;
    }
    std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    return true;
}

int main(int argc, char** argv)
{
    size_t count = 0;
    for (int i = 1; i < argc; ++i)
    {
        std::filesystem::path arg(argv[i]);
        std::error_code ec;
        if (std::filesystem::is_directory(arg, ec))
        {
            for (const auto& entry : std::filesystem::directory_iterator(arg))
            {
                if (!entry.is_regular_file())
                    continue;
                if (!Replay(entry.path()))
                    return 1;
                ++count;
            }
        }
        else
        {
            if (!Replay(arg))
                return 1;
            ++count;
        }
    }
    std::printf("replayed %zu input(s)\n", count);
    return count ? 0 : 1;
}
