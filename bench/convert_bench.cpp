// UTF-16 <-> UTF-8 conversion of the library against bare ICU on the same
// 10 MB of mixed text: mostly ASCII, some accented Latin and CJK, a few
// control characters (which the library writes in its escaped form).
#include <benchmark/benchmark.h>
#include <unicode/ustring.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "xmlstream.h"

namespace {

typedef std::basic_string<unsigned short> Units;

const std::size_t kTextBytes = 10u << 20;

// The text as UTF-16, and as the UTF-8 the library writes for it (escaped),
// which is what a reader decodes.
struct MixedText {
  Units wide;
  std::string utf8;

  MixedText() {
    static const unsigned short latin[] = {0xE9, 0xE8, 0xFC, 0xF1, 0xC7, 0xE5, 0xF8, 0xDF};
    std::mt19937 rng(4242);
    std::size_t bytes = 0;
    while (bytes < kTextBytes) {
      const unsigned roll = rng() % 10000;
      unsigned short c;
      if (roll < 2) {
        c = static_cast<unsigned short>(1 + rng() % 8);  // a control character now and then
        bytes += 6;
      } else if (roll < 600) {
        c = static_cast<unsigned short>(0x4E00 + rng() % 0x5000);
        bytes += 3;
      } else if (roll < 1400) {
        c = latin[rng() % 8];
        bytes += 2;
      } else {
        c = roll % 7 == 0 ? ' ' : static_cast<unsigned short>('a' + rng() % 26);
        bytes += 1;
      }
      wide.push_back(c);
    }
    char* out = nullptr;
    int size = 0;
    do_UTF162UTF8(wide.data(), static_cast<int>(wide.size()), out, size, 1);
    utf8.assign(out, static_cast<std::size_t>(size));
    delete[] out;
  }
};

const MixedText& Text() {
  static const MixedText text;
  return text;
}

void BM_do_UTF162UTF8(benchmark::State& state) {
  const MixedText& t = Text();
  const int escape = static_cast<int>(state.range(0));
  for (auto _ : state) {
    char* out = nullptr;
    int size = 0;
    do_UTF162UTF8(t.wide.data(), static_cast<int>(t.wide.size()), out, size, escape);
    benchmark::DoNotOptimize(out);
    delete[] out;
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(t.utf8.size()));
}
// Argument: the escape switch (1 is what the output stream passes).
BENCHMARK(BM_do_UTF162UTF8)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond);

// Bare ICU into one warm buffer (argument 0), and into a new buffer of the
// same size on every call (argument 1), which is what any routine that hands
// its result over in a new buffer pays on top: on a large text that is
// mostly the page faults of fresh memory.
void BM_icu_u_strToUTF8(benchmark::State& state) {
  const MixedText& t = Text();
  const bool fresh = state.range(0) != 0;
  const int32_t capacity = static_cast<int32_t>(4 * t.wide.size());
  std::unique_ptr<char[]> out(new char[static_cast<std::size_t>(capacity)]);
  for (auto _ : state) {
    if (fresh) out.reset(new char[static_cast<std::size_t>(capacity)]);
    UErrorCode status = U_ZERO_ERROR;
    int32_t size = 0;
    u_strToUTF8(out.get(), capacity, &size, reinterpret_cast<const UChar*>(t.wide.data()),
                static_cast<int32_t>(t.wide.size()), &status);
    benchmark::DoNotOptimize(size);
    if (U_FAILURE(status)) state.SkipWithError("u_strToUTF8 failed");
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(t.utf8.size()));
}
BENCHMARK(BM_icu_u_strToUTF8)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void BM_UTF82UTF16(benchmark::State& state) {
  const MixedText& t = Text();
  for (auto _ : state) {
    unsigned short* wide = nullptr;
    int size = 0;
    bool endsWithEscape = false;
    UTF82UTF16(false, t.utf8.data(), static_cast<int>(t.utf8.size()), false, true, wide, size, endsWithEscape);
    benchmark::DoNotOptimize(wide);
    delete[] wide;
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(t.utf8.size()));
}
BENCHMARK(BM_UTF82UTF16)->Unit(benchmark::kMillisecond);

void BM_icu_u_strFromUTF8(benchmark::State& state) {
  const MixedText& t = Text();
  const bool fresh = state.range(0) != 0;
  const int32_t capacity = static_cast<int32_t>(t.utf8.size());
  std::unique_ptr<UChar[]> out(new UChar[static_cast<std::size_t>(capacity)]);
  for (auto _ : state) {
    if (fresh) out.reset(new UChar[static_cast<std::size_t>(capacity)]);
    UErrorCode status = U_ZERO_ERROR;
    int32_t size = 0;
    u_strFromUTF8(out.get(), capacity, &size, t.utf8.data(), static_cast<int32_t>(t.utf8.size()), &status);
    benchmark::DoNotOptimize(size);
    if (U_FAILURE(status)) state.SkipWithError("u_strFromUTF8 failed");
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(t.utf8.size()));
}
BENCHMARK(BM_icu_u_strFromUTF8)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
