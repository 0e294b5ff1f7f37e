// Peak memory of one huge token, against its size in UTF-16: a 100 MB
// name, a 200 MB attribute value, 2 million attributes on one tag and a
// 200 MB text, each read as check reads (GetNextToken) and copied as copy
// copies (to a file). Each run is a child process, so that its peak
// resident size is its own.
#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "xmlstream.h"

namespace {

// Streams <r> + head + body (a byte repeated, or a generated run) + tail + </r>.
class HugeSource : public IXmlStreamSource {
 public:
  HugeSource(std::string head, long long bodyBytes, std::string tail, bool attributes)
      : m_head("<r>" + std::move(head)), m_body(bodyBytes), m_tail(std::move(tail) + "</r>"), m_attributes(attributes) {}
  bool eof() override { return m_stage == 3; }
  long read(char* buf, long n) override {
    long k = 0;
    while (k < n && m_stage < 3) {
      if (m_stage == 0) {
        k += Take(m_head, buf + k, n - k);
      } else if (m_stage == 1) {
        if (m_attributes) {
          // " aNNNNNNN='v'", 14 bytes an attribute.
          while (k + 14 <= n && m_body > 0) {
            char item[32];
            std::snprintf(item, sizeof item, " a%07d='v'", static_cast<int>(m_body / 14 % 10000000));
            std::memcpy(buf + k, item, 14);
            k += 14;
            m_body -= 14;
          }
          if (m_body <= 0) Next();
          break;
        }
        const long m = m_body < n - k ? static_cast<long>(m_body) : n - k;
        std::memset(buf + k, 'x', static_cast<std::size_t>(m));
        k += m;
        m_body -= m;
        if (m_body == 0) Next();
      } else {
        k += Take(m_tail, buf + k, n - k);
      }
    }
    return k;
  }

 private:
  long Take(const std::string& s, char* buf, long n) {
    const long m = static_cast<long>(s.size() - m_pos) < n ? static_cast<long>(s.size() - m_pos) : n;
    std::memcpy(buf, s.data() + m_pos, static_cast<std::size_t>(m));
    m_pos += static_cast<std::size_t>(m);
    if (m_pos == s.size()) Next();
    return m;
  }
  void Next() {
    ++m_stage;
    m_pos = 0;
  }
  std::string m_head;
  long long m_body;
  std::string m_tail;
  bool m_attributes;
  int m_stage = 0;
  std::size_t m_pos = 0;
};

struct Case {
  const char* head;
  long long body;
  const char* tail;
  bool attributes;
  long long utf16Bytes;  // what the token holds in UTF-16
};

const Case kCases[] = {
    {"<", 100LL << 20, "/>", false, 200LL << 20},                   // a 100 MB name
    {"<a v='", 200LL << 20, "'/>", false, 400LL << 20},             // a 200 MB attribute value
    {"<a", 2000000LL * 14, "/>", true, 2000000LL * 14 * 2},         // 2 million attributes
    {"", 200LL << 20, "", false, 400LL << 20},                      // a 200 MB text
};

// Peak resident bytes of a child that reads (and with copy, writes) the case.
long long PeakOfChild(const Case& c, bool copy) {
  const pid_t pid = fork();
  if (pid == 0) {
    IXmlStream in(new HugeSource(c.head, c.body, c.tail, c.attributes));
    in.SetMaxTokenSize(1LL << 30);
    try {
      if (copy) {
        OXmlStream out(NX_U16(u"/dev/null"), 0, 0);
        while (!in.End()) in >> out;
      } else {
        while (XmlToken* t = in.GetNextToken()) delete t;
      }
    } catch (QmMsgException* e) {
      e->Delete();
      _exit(1);
    }
    _exit(0);
  }
  int status = 0;
  struct rusage usage;
  wait4(pid, &status, 0, &usage);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) return -1;
  return static_cast<long long>(usage.ru_maxrss) * 1024;
}

void BM_HugeTokenPeak(benchmark::State& state) {
  const Case& c = kCases[state.range(0)];
  const bool copy = state.range(1) != 0;
  long long peak = 0;
  for (auto _ : state) peak = PeakOfChild(c, copy);
  if (peak < 0) state.SkipWithError("the child failed");
  state.counters["peak_MB"] = static_cast<double>(peak) / (1 << 20);
  state.counters["x_utf16"] = static_cast<double>(peak) / static_cast<double>(c.utf16Bytes);
}

}  // namespace

// Arguments: case (name, value, attributes, text), then 0 check / 1 copy.
BENCHMARK(BM_HugeTokenPeak)
    ->ArgsProduct({{0, 1, 2, 3}, {0, 1}})
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

BENCHMARK_MAIN();
