// Old packets: the cost of repairing and detecting against reading a clean
// packet. Over one generated packet of about 50 MB whose characters are a
// fifth outside ASCII (Chinese and accented Latin):
//   (a) the clean UTF-8 packet read token by token (GetNextToken);
//   (b) the same packet in the OM format for zh_CN.GBK, read through
//       IXmlCleanStreamSourceOM;
//   (c) the same packet in format 4 with control characters, read through
//       IXmlCleanStreamSourceFmt4;
//   (d) XmlDetectStreamSourceFactory on the OM packet (detection alone);
//   (e) the peak resident size of `nxxml copy --format 2` over a 1 GB OM
//       packet streamed through a pipe (a child process, so that the peak
//       is its own; read from its VmHWM while it works).
// Rates count each case's own input bytes; "payload" counts the bytes of
// the clean packet, the same work in every case.
#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <clocale>
#include <cstdlib>
#include <fstream>
#include <cstring>
#include <memory>
#include <string>

#include "bench_packet.h"
#include "xmlstream.h"

namespace {

using benchpacket::MemorySource;

// One character in its three spellings.
struct Spelling {
  std::string clean, om, fmt4;
};

// The characters texts are made of: ASCII letters, Chinese (one with an
// ASCII trail byte in GBK) and accented Latin that GBK holds.
std::vector<Spelling> Alphabet() {
  std::vector<Spelling> out;
  for (char c = 'a'; c <= 'z'; ++c) out.push_back({std::string(1, c), std::string(1, c), std::string(1, c)});
  for (const char* s : {" ", " ", " ", "0", "1", "2", "."}) out.push_back({s, s, s});
  for (const char* u : {"\xE4\xB8\xAD", "\xE6\x96\x87", "\xE7\xBB\xBF", "\xE8\x8C\xB6", "\xE4\xB8\x82", "\xC3\xA9",
                        "\xC3\xA8", "\xC3\xBC", "\xC3\xA0"}) {
    char* gbk = nullptr;
    int size = 0;
    bool escape = false;
    UTF82CP(false, u, static_cast<int>(std::strlen(u)), false, true, gbk, size, escape, 936);
    std::string om;
    for (int k = 0; k < size; ++k) {
      const unsigned char b = static_cast<unsigned char>(gbk[k]);
      om += b >= 128 ? "&#" + std::to_string(b) + ";" : std::string(1, static_cast<char>(b));
    }
    delete[] gbk;
    out.push_back({u, om, u});
  }
  return out;
}

struct Packets {
  std::string clean, om, fmt4;
  explicit Packets(std::size_t target) {
    const std::vector<Spelling> alphabet = Alphabet();
    const std::size_t ascii = alphabet.size() - 9;
    unsigned seed = 12345;
    auto next = [&seed] { return (seed = seed * 1103515245 + 12345) >> 8; };
    auto add = [this](const std::string& c, const std::string& o, const std::string& f) {
      clean += c;
      om += o;
      fmt4 += f;
    };
    add("<packet site=\"east\">\n", "<packet site=\"east\">\n", "<packet site=\"east\">\n");
    for (long id = 1; clean.size() < target; ++id) {
      const std::string head = "<record id=\"" + std::to_string(id) + "\" table=\"customers\"><name>";
      add(head, head, head);
      for (int field = 0; field < 2; ++field) {
        for (int k = 0; k < 60; ++k) {
          // A fifth of the characters outside ASCII.
          const Spelling& s = next() % 5 == 0 ? alphabet[ascii + next() % 9] : alphabet[next() % ascii];
          add(s.clean, s.om, s.fmt4);
        }
        if (field == 0) {
          // A control character in format 4's own spelling, the escaped
          // pair in the clean packet; OM cannot hold one.
          add("\xEF\xA0\x80\xEF\xA0\x87", "", "\xEF\xA0\x87");
          add("</name><note>", "</name><note>", "</name><note>");
        }
      }
      add("</note></record>\n", "</note></record>\n", "</note></record>\n");
    }
    add("</packet>\n", "</packet>\n", "</packet>\n");
  }
};

const Packets& Get() {
  static const Packets packets(50u << 20);
  return packets;
}

bool UseGbk(benchmark::State& state) {
  if (std::setlocale(LC_ALL, "zh_CN.GBK")) return true;
  state.SkipWithError("the locale zh_CN.GBK is not installed (scripts/setup.sh generates it)");
  return false;
}

void ReadTokens(benchmark::State& state, const std::string& data, int version) {
  std::size_t tokens = 0;
  for (auto _ : state) {
    IXmlStream in(new MemorySource(data));
    if (version) in.CleanSource(static_cast<AdRelayPacketVersion_t>(version));
    while (XmlToken* token = in.GetNextToken()) {
      ++tokens;
      delete token;
    }
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * data.size()));
  state.counters["payload"] = benchmark::Counter(static_cast<double>(state.iterations() * Get().clean.size()),
                                                 benchmark::Counter::kIsRate, benchmark::Counter::kIs1024);
  benchmark::DoNotOptimize(tokens);
}

void BM_a_CleanTokens(benchmark::State& state) { ReadTokens(state, Get().clean, 0); }

void BM_b_OMTokens(benchmark::State& state) {
  if (UseGbk(state)) ReadTokens(state, Get().om, eRelayPacketVersionOM);
}

void BM_c_Format4Tokens(benchmark::State& state) { ReadTokens(state, Get().fmt4, eRelayPacketVersionFormat4); }

void BM_d_DetectOM(benchmark::State& state) {
  const std::string& data = Get().om;
  for (auto _ : state) {
    DetectType_t type = eDetectedTypePlain;
    int nonAscii = 0, corrupt = 0;
    std::unique_ptr<IXmlStreamSource> source(XmlDetectStreamSourceFactory(
        new MemorySource(data), static_cast<long>(data.size()), -1, type, nonAscii, corrupt));
    if (type != eDetectedTypeOM) state.SkipWithError("the OM packet was not detected as OM");
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * data.size()));
  state.counters["payload"] = benchmark::Counter(static_cast<double>(state.iterations() * Get().clean.size()),
                                                 benchmark::Counter::kIsRate, benchmark::Counter::kIs1024);
}

#ifdef NXXML_TOOL
void BM_e_CopyFormat2PeakMemory(benchmark::State& state) {
  const long long total = 1LL << 30;
  // The OM records of the packet, repeated inside one root.
  const std::string& om = Get().om;
  // Whole records, about 8 MB of them.
  const std::size_t first = om.find("<record");
  const std::size_t last = om.rfind("</record>\n", first + (8u << 20)) + std::strlen("</record>\n");
  const std::string records = om.substr(first, last - first);
  for (auto _ : state) {
    int pipeFds[2];
    if (pipe(pipeFds) != 0) {
      state.SkipWithError("pipe failed");
      return;
    }
    const pid_t child = fork();
    if (child == 0) {
      dup2(pipeFds[0], 0);
      close(pipeFds[0]);
      close(pipeFds[1]);
      if (!freopen("/dev/null", "w", stdout)) _exit(127);
      execl(NXXML_TOOL, "nxxml", "copy", "--format", "2", "--locale", "zh_CN.GBK", "-", static_cast<char*>(nullptr));
      _exit(127);
    }
    close(pipeFds[0]);
    auto put = [fd = pipeFds[1]](const std::string& s) {
      for (std::size_t k = 0; k < s.size();) {
        const ssize_t n = write(fd, s.data() + k, s.size() - k);
        if (n <= 0) return false;
        k += static_cast<std::size_t>(n);
      }
      return true;
    };
    // The child's own high-water mark, read while it works: the one the
    // system reports at its end would count the pages of this process,
    // which the child shared until its exec.
    long peakKb = 0;
    auto sample = [&peakKb, child] {
      std::ifstream status("/proc/" + std::to_string(child) + "/status");
      for (std::string line; std::getline(status, line);)
        if (line.compare(0, 6, "VmHWM:") == 0) peakKb = std::max(peakKb, std::atol(line.c_str() + 6));
    };
    long long written = 0;
    bool ok = put("<packet site=\"east\">\n");
    while (ok && written < total) {
      ok = put(records);
      written += static_cast<long long>(records.size());
      sample();
    }
    ok = ok && put("</packet>\n");
    sample();
    close(pipeFds[1]);
    int status = 0;
    waitpid(child, &status, 0);
    if (!ok || !WIFEXITED(status) || WEXITSTATUS(status) != 0) state.SkipWithError("nxxml copy --format 2 failed");
    state.counters["peak_rss_MB"] = static_cast<double>(peakKb) / 1024.0;
    state.counters["packet_MB"] = static_cast<double>(written) / (1 << 20);
  }
}
BENCHMARK(BM_e_CopyFormat2PeakMemory)->Iterations(1)->Unit(benchmark::kSecond);
#endif

}  // namespace

BENCHMARK(BM_a_CleanTokens)->Unit(benchmark::kMillisecond)->MinTime(2);
BENCHMARK(BM_b_OMTokens)->Unit(benchmark::kMillisecond)->MinTime(2);
BENCHMARK(BM_c_Format4Tokens)->Unit(benchmark::kMillisecond)->MinTime(2);
BENCHMARK(BM_d_DetectOM)->Unit(benchmark::kMillisecond)->MinTime(2);

BENCHMARK_MAIN();
