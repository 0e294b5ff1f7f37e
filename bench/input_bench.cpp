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

#include "xmlstream.h"

namespace {

const std::size_t kDocumentBytes = 50u << 20;
const unsigned kSeed = 20240605;

// Writes the records of a packet, deterministically from the seed. A record
// is a start tag with 4 or 5 attributes ending its line (as the writer lays
// it out), 3 to 8 fields of text, the end tag and a line feed. About a tenth
// of the texts hold accented Latin or CJK, and a few hold entity references.
class RecordWriter {
 public:
  explicit RecordWriter(unsigned seed) : m_rng(seed) {}

  // Appends one record; returns the number of fields it has.
  int Append(std::string& out) {
    ++m_records;
    const std::string n = std::to_string(m_records);
    out += "<rec id=\"";
    out += n;
    out += "\" kind=\"";
    out += kKinds[m_rng() % 4];
    out += "\" site=\"S";
    out += std::to_string(m_rng() % 100);
    out += "\" stamp=\"2024-06-";
    out += Two(1 + m_rng() % 28);
    out += ' ';
    out += Two(m_rng() % 24) + ":" + Two(m_rng() % 60) + ":" + Two(m_rng() % 60);
    out += '"';
    if (m_rng() % 2) {
      out += " owner=\"";
      AppendText(out, 4 + m_rng() % 12);
      out += '"';
    }
    out += ">\n";
    const int fields = 3 + static_cast<int>(m_rng() % 6);
    for (int f = 0; f < fields; ++f) {
      const char* name = kFields[f];
      out += '<';
      out += name;
      out += '>';
      AppendText(out, 4 + m_rng() % 60);
      out += "</";
      out += name;
      out += '>';
    }
    out += "</rec>\n";
    return fields;
  }

 private:
  static std::string Two(unsigned v) {
    char buf[4];
    std::snprintf(buf, sizeof buf, "%02u", v % 100);
    return buf;
  }

  // A text of about length characters, never empty.
  void AppendText(std::string& out, unsigned length) {
    const unsigned roll = m_rng() % 100;
    const bool foreign = roll < 10;
    const bool reference = roll >= 10 && roll < 15;
    for (unsigned k = 0; k < length; ++k) {
      const unsigned r = m_rng() % 100;
      if (foreign && r < 30) {
        if (r < 15) {
          out += kLatin[m_rng() % 8];
        } else {
          const unsigned c = 0x4E00 + m_rng() % 0x5000;  // CJK, three bytes
          out += static_cast<char>(0xE0 | (c >> 12));
          out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
          out += static_cast<char>(0x80 | (c & 0x3F));
        }
      } else if (reference && r < 8) {
        out += kReferences[m_rng() % 5];
      } else if (r < 85) {
        out += static_cast<char>('a' + m_rng() % 26);
      } else if (r < 95) {
        out += ' ';
      } else {
        out += static_cast<char>('0' + m_rng() % 10);
      }
    }
  }

  static constexpr const char* kKinds[4] = {"customer", "order", "invoice", "site"};
  static constexpr const char* kFields[8] = {"name", "street", "city", "note", "phone", "mail", "terms", "remark"};
  static constexpr const char* kLatin[8] = {"\xC3\xA9", "\xC3\xA8", "\xC3\xBC", "\xC3\xB1",
                                            "\xC3\x87", "\xC3\xA5", "\xC3\xB8", "\xC3\x9F"};
  static constexpr const char* kReferences[5] = {"&amp;", "&lt;", "&gt;", "&quot;", "&#xE9;"};

  std::mt19937 m_rng;
  long m_records = 0;
};

const char kRootStart[] = "<packet>\n";
const char kRootEnd[] = "</packet>\n";

struct Document {
  std::string bytes;
  long records = 0;
  long fields = 0;

  Document() {
    bytes.reserve(kDocumentBytes + 4096);
    bytes += kRootStart;
    RecordWriter writer(kSeed);
    while (bytes.size() < kDocumentBytes) {
      fields += writer.Append(bytes);
      ++records;
    }
    bytes += kRootEnd;
  }
  // Root start and end tags, each record's two tags, each field's three tokens.
  long Tokens() const { return 2 + 2 * records + 3 * fields; }
};

const Document& Doc() {
  static const Document doc;
  return doc;
}

// The document as a source, straight from memory: what the stream costs,
// not what copying it into a string stream costs.
class MemorySource : public IXmlStreamSource {
 public:
  explicit MemorySource(const std::string& bytes) : m_bytes(bytes) {}
  bool eof() override { return m_next >= m_bytes.size(); }
  long read(char* buf, long n) override {
    const std::size_t count = std::min(static_cast<std::size_t>(n), m_bytes.size() - m_next);
    std::memcpy(buf, m_bytes.data() + m_next, count);
    m_next += count;
    return static_cast<long>(count);
  }

 private:
  const std::string& m_bytes;
  std::size_t m_next = 0;
};

// A packet of about target bytes whose records are written as they are read.
class GeneratingSource : public IXmlStreamSource {
 public:
  explicit GeneratingSource(unsigned long long target) : m_target(target), m_writer(kSeed) {
    m_buffer = kRootStart;
  }
  bool eof() override { return m_done && m_next >= m_buffer.size(); }
  long read(char* buf, long n) override {
    if (m_next >= m_buffer.size()) Refill();
    const std::size_t count = std::min(static_cast<std::size_t>(n), m_buffer.size() - m_next);
    std::memcpy(buf, m_buffer.data() + m_next, count);
    m_next += count;
    m_produced += count;
    return static_cast<long>(count);
  }
  unsigned long long Produced() const { return m_produced; }
  long Records() const { return m_records; }

 private:
  void Refill() {
    m_buffer.clear();
    m_next = 0;
    if (m_done) return;
    while (m_buffer.size() < 65536 && m_produced + m_buffer.size() < m_target) {
      m_writer.Append(m_buffer);
      ++m_records;
    }
    if (m_produced + m_buffer.size() >= m_target) {
      m_buffer += kRootEnd;
      m_done = true;
    }
  }

  unsigned long long m_target;
  RecordWriter m_writer;
  std::string m_buffer;
  std::size_t m_next = 0;
  unsigned long long m_produced = 0;
  long m_records = 0;
  bool m_done = false;
};

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
    XmlSTag root;
    in >> root;
    long records = 0;
    bool ended = false;
    while (!ended) {
      switch (in.GetNextTokenType()) {
        case XT_STAG: {
          XmlElement record;
          in >> record;
          benchmark::DoNotOptimize(record.GetContentCount());
          ++records;
          break;
        }
        case XT_ETAG: {
          XmlETag end;
          in >> end;
          ended = true;
          break;
        }
        case XT_CHARDATA: {
          XmlCharData text(NX_U16(u""));
          in >> text;
          break;
        }
        default:
          ended = true;
          break;
      }
    }
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
    XmlSTag root;
    in >> root;
    for (;;) {
      const XmlToken_t type = in.GetNextTokenType();
      if (type == XT_STAG) {
        XmlElement record;
        in >> record;
        ++records;
      } else if (type == XT_CHARDATA) {
        XmlCharData text(NX_U16(u""));
        in >> text;
      } else {
        if (type == XT_ETAG) {
          XmlETag end;
          in >> end;
        }
        break;
      }
    }
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
