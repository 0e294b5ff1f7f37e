// Reading a replication packet: the input stream against bare expat on the
// same 50 MB of bytes. Expat with no-op handlers fed 4096 bytes at a time is
// the limit of any reader built on it; the stream is measured reading whole
// records (root start tag, then one XmlElement a record) and handing out
// every token. Each stream benchmark reports its rate as a fraction of
// expat's (vs_expat). Passes are timed in the thread's CPU time and the
// rates (MB/s, vs_expat) taken from the best pass of each: on a shared
// machine that is what stays put from run to run.
//
// With --stream-bytes=N (suffixes K, M, G) the program instead reads a
// document of N bytes record by record from a source that generates the
// records as it is read, and prints its peak resident memory: run it under
// /usr/bin/time -v to see that reading does not grow with the document.
#include <benchmark/benchmark.h>
#include <expat.h>
#include <sys/resource.h>
#include <time.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

#include "bench_packet.h"
#include "xmlstream.h"

namespace {

const std::size_t kDocumentBytes = 50u << 20;

using benchpacket::Document;
using benchpacket::GeneratingSource;
using benchpacket::MemorySource;
using benchpacket::kRootStart;
using benchpacket::kRootEnd;

const Document& Doc() {
  static const Document doc(kDocumentBytes);
  return doc;
}

void NoStart(void*, const char*, const char**) {}
void NoEnd(void*, const char*) {}
void NoText(void*, const char*, int) {}

// One pass of bare expat; false on a parse error.
bool ExpatPass(const std::string& bytes) {
  XML_Parser parser = XML_ParserCreate("UTF-8");
  XML_SetElementHandler(parser, NoStart, NoEnd);
  XML_SetCharacterDataHandler(parser, NoText);
  bool ok = true;
  const std::size_t chunk = 4096;
  for (std::size_t at = 0; ok && at < bytes.size(); at += chunk) {
    const std::size_t n = std::min(chunk, bytes.size() - at);
    ok = XML_Parse(parser, bytes.data() + at, static_cast<int>(n), XML_FALSE) == XML_STATUS_OK;
  }
  ok = ok && XML_Parse(parser, nullptr, 0, XML_TRUE) == XML_STATUS_OK;
  XML_ParserFree(parser);
  return ok;
}

// The thread's CPU time in seconds.
double CpuSeconds() {
  timespec t;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

// Times the passes of a benchmark; keeps the best.
class PassTimer {
 public:
  void Start() { m_start = CpuSeconds(); }
  void Stop() {
    const double seconds = CpuSeconds() - m_start;
    if (m_best == 0 || seconds < m_best) m_best = seconds;
  }
  double Best() const { return m_best; }

 private:
  double m_start = 0;
  double m_best = 0;
};

// Seconds the best pass of bare expat takes, as its benchmark measured it
// (or measured here when that benchmark was filtered out).
double g_expatSeconds = 0;

double ExpatSeconds() {
  if (g_expatSeconds == 0) {
    PassTimer timer;
    for (int k = 0; k < 3; ++k) {
      timer.Start();
      ExpatPass(Doc().bytes);
      timer.Stop();
    }
    g_expatSeconds = timer.Best();
  }
  return g_expatSeconds;
}

void SetRate(benchmark::State& state, const PassTimer& timer) {
  const double bytes = static_cast<double>(Doc().bytes.size());
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(Doc().bytes.size()));
  state.counters["MB/s"] = bytes / 1e6 / timer.Best();
  state.counters["doc_MB"] = bytes / 1e6;
}

void BM_ExpatNoOp(benchmark::State& state) {
  const Document& doc = Doc();
  PassTimer timer;
  for (auto _ : state) {
    timer.Start();
    if (!ExpatPass(doc.bytes)) state.SkipWithError("expat refused the document");
    timer.Stop();
  }
  SetRate(state, timer);
  g_expatSeconds = timer.Best();
}

void BM_StreamElements(benchmark::State& state) {
  const Document& doc = Doc();
  const double expat = ExpatSeconds();
  PassTimer timer;
  for (auto _ : state) {
    timer.Start();
    IXmlStream in(new MemorySource(doc.bytes));
    const long records = benchpacket::ReadRecords(in);
    timer.Stop();
    if (records != doc.records) state.SkipWithError("the stream read a different number of records");
  }
  SetRate(state, timer);
  state.counters["vs_expat"] = expat / timer.Best();
}

void BM_StreamTokens(benchmark::State& state) {
  const Document& doc = Doc();
  const double expat = ExpatSeconds();
  PassTimer timer;
  for (auto _ : state) {
    timer.Start();
    IXmlStream in(new MemorySource(doc.bytes));
    long tokens = 0;
    while (XmlToken* token = in.GetNextToken()) {
      ++tokens;
      delete token;
    }
    timer.Stop();
    if (tokens != doc.Tokens()) state.SkipWithError("the stream handed out a different number of tokens");
  }
  SetRate(state, timer);
  state.counters["vs_expat"] = expat / timer.Best();
}

BENCHMARK(BM_ExpatNoOp)->Unit(benchmark::kMillisecond)->MinTime(2);
BENCHMARK(BM_StreamElements)->Unit(benchmark::kMillisecond)->MinTime(2);
BENCHMARK(BM_StreamTokens)->Unit(benchmark::kMillisecond)->MinTime(2);

// Reads a generated packet of about target bytes record by record; prints
// what it read and the peak resident memory. Returns the exit status.
int StreamMode(unsigned long long target) {
  GeneratingSource* source = new GeneratingSource(target);
  const auto start = std::chrono::steady_clock::now();
  long records = 0;
  unsigned long long produced = 0;
  long generated = 0;
  try {
    IXmlStream in(source);  // owns the source
    records = benchpacket::ReadRecords(in);
    produced = source->Produced();
    generated = source->Records();
  } catch (QmMsgException* e) {
    std::fprintf(stderr, "error: %s\n", e->GetMessage(0).FullMsg().ToUtf8().c_str());
    e->Delete();
    return 1;
  }
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  struct rusage usage;
  getrusage(RUSAGE_SELF, &usage);
  std::printf("read %llu bytes, %ld records (of %ld) in %.2f s, %.1f MB/s; peak resident %.1f MB\n", produced,
              records, generated, seconds, static_cast<double>(produced) / 1e6 / seconds,
              static_cast<double>(usage.ru_maxrss) / 1024.0);
  return records == generated ? 0 : 1;
}

// "100M", "1G", "5000K" or plain bytes; 0 when malformed.
unsigned long long ParseSize(const char* text) {
  char* end = nullptr;
  unsigned long long value = std::strtoull(text, &end, 10);
  if (end == text) return 0;
  switch (*end) {
    case 'K': case 'k': value <<= 10; ++end; break;
    case 'M': case 'm': value <<= 20; ++end; break;
    case 'G': case 'g': value <<= 30; ++end; break;
    default: break;
  }
  return *end == 0 ? value : 0;
}

}  // namespace

int main(int argc, char** argv) {
  const char kFlag[] = "--stream-bytes=";
  for (int k = 1; k < argc; ++k) {
    if (std::strncmp(argv[k], kFlag, sizeof kFlag - 1) == 0) {
      const unsigned long long target = ParseSize(argv[k] + sizeof kFlag - 1);
      if (target == 0) {
        std::fprintf(stderr, "%s: bad size in %s\n", argv[0], argv[k]);
        return 2;
      }
      return StreamMode(target);
    }
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
