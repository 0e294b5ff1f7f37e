// Writing a packet: a ~50 MB packet-like document is generated, parsed once
// into record trees, and written back
//   (a) by OXmlStream to memory,
//   (b) by OXmlStream to a series of 10 MB files,
//   (c) as the same UTF-8 bytes rendered beforehand, one ofstream::write a
//       record: the floor of any writer,
//   (d) by libxml2's xmlTextWriter to a file, from the same trees held as
//       UTF-8 (prepared beforehand, so it pays for no conversion).
// Rates are MB of output a second of CPU time, the best of five repetitions
// (the machines this runs on are shared: the best run is the one least
// disturbed); the closing lines give (b)/(c) and (b)/(d).
#include <benchmark/benchmark.h>
#include <libxml/xmlwriter.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "xmlstream.h"

namespace {

const long long kDocumentBytes = 50LL << 20;
const long long kFileLimit = 10LL << 20;

// Deterministic: the same document on every run and machine.
class Lcg {
 public:
  unsigned Next(unsigned bound) {
    m_state = m_state * 6364136223846793005ULL + 1442695040888963407ULL;
    return static_cast<unsigned>(m_state >> 33) % bound;
  }

 private:
  unsigned long long m_state = 42;
};

std::string MakeDocument() {
  static const char* const tables[] = {"customers", "orders", "stock", "invoices"};
  static const char* const ops[] = {"insert", "update", "delete"};
  static const char* const words[] = {"alpha", "bravo", "delivery", "north", "street", "account",
                                      "pending", "order", "payment", "note", "priority", "route"};
  static const char* const foreign[] = {"J\xC3\xBCrgen Wei\xC3\x9F", "S\xC3\xA3o Paulo",
                                        "\xE8\x8C\xB6 \xE4\xB8\xAD\xE6\x96\x87", "K\xC3\xB6ln caf\xC3\xA9"};
  static const char* const entities[] = {" &amp; ", " &lt;b&gt; ", " &#xE9; "};
  Lcg rng;
  std::string doc = "<packet site=\"north\" version=\"5\">\n";
  doc.reserve(static_cast<std::size_t>(kDocumentBytes + (1 << 20)));
  for (long id = 1; static_cast<long long>(doc.size()) < kDocumentBytes; ++id) {
    doc += "<record id=\"" + std::to_string(id) + "\" table=\"" + tables[rng.Next(4)] + "\" op=\"" +
           ops[rng.Next(3)] + "\" stamp=\"2024-06-0" + std::to_string(1 + rng.Next(9)) + " 12:00:00\"";
    if (rng.Next(2)) doc += " note=\"a &amp; b\"";
    doc += ">";
    const unsigned fields = 3 + rng.Next(6);
    for (unsigned f = 0; f < fields; ++f) {
      const std::string name = "field" + std::to_string(f);
      doc += "<" + name + ">";
      if (rng.Next(10) == 0) {
        doc += foreign[rng.Next(4)];
      } else {
        const unsigned count = 3 + rng.Next(10);
        for (unsigned w = 0; w < count; ++w) {
          if (w) doc += ' ';
          doc += words[rng.Next(12)];
        }
      }
      if (rng.Next(8) == 0) doc += entities[rng.Next(3)];
      doc += "</" + name + ">";
    }
    doc += "</record>\n";
  }
  doc += "</packet>\n";
  return doc;
}

// The same tree with its texts in UTF-8, for libxml2.
struct Utf8Node {
  std::string name;
  std::vector<std::pair<std::string, std::string>> attributes;
  // Each item is either a text (child null) or a child element.
  struct Item {
    std::string text;
    std::unique_ptr<Utf8Node> child;
  };
  std::vector<Item> items;
};

std::unique_ptr<Utf8Node> Mirror(const XmlElement& e) {
  std::unique_ptr<Utf8Node> node(new Utf8Node);
  node->name = e.GetSTag().GetName().ToUtf8();
  const CMapStringToString& map = e.GetSTag().GetAttributes();
  for (int k = 0; k < map.GetCount(); ++k) node->attributes.emplace_back(map.KeyAt(k).ToUtf8(), map.ValueAt(k).ToUtf8());
  for (int i = 0; i < e.GetContentCount(); ++i) {
    Utf8Node::Item item;
    if (NXSmartPtr<XmlElement> child = e.GetContentAsElement(i))
      item.child = Mirror(*child);
    else
      item.text = e.GetContentAsCharData(i)->GetData().ToUtf8();
    node->items.push_back(std::move(item));
  }
  return node;
}

struct Packet {
  XmlSTag root;
  std::vector<NXSmartPtr<XmlElement>> records;
  std::vector<std::unique_ptr<Utf8Node>> mirrors;
  std::vector<std::string> rendered;  // each record's bytes and its line feed
  std::string head, tail;
  long long bytes = 0;  // of OXmlStream's output
  std::string folder;

  Packet() {
    char tmpl[] = "/tmp/nxxml_output_bench_XXXXXX";
    if (!::mkdtemp(tmpl)) std::abort();
    folder = tmpl;
    std::istringstream source(MakeDocument());
    IXmlStream in(source);
    in >> root;
    for (;;) {
      const XmlToken_t type = in.GetNextTokenType();
      if (type == XT_STAG) {
        NXSmartPtr<XmlElement> record(new XmlElement);
        in >> *record;
        records.push_back(record);
      } else if (type == XT_CHARDATA) {
        XmlCharData skipped(u"");
        in >> skipped;
      } else {
        break;
      }
    }
    for (const NXSmartPtr<XmlElement>& r : records) {
      mirrors.push_back(Mirror(*r));
      OXmlStream one(0LL);
      one << *r;
      one.write("\n", 1);
      rendered.push_back(one.Str());
    }
    OXmlStream h(0LL);
    h << root;
    head = h.Str();
    OXmlStream t(0LL);
    t << XmlETag(root.GetName());
    tail = t.Str();
    bytes = static_cast<long long>(head.size() + tail.size());
    for (const std::string& s : rendered) bytes += static_cast<long long>(s.size());
  }
  ~Packet() {
    if (std::system(("rm -rf '" + folder + "'").c_str()) != 0) std::cerr << "cannot remove " << folder << "\n";
  }
};

Packet& ThePacket() {
  static Packet packet;
  return packet;
}

void WriteAll(OXmlStream& out, const Packet& p) {
  out << p.root;
  for (const NXSmartPtr<XmlElement>& r : p.records) {
    out << *r;
    out.write("\n", 1);
  }
  out << XmlETag(p.root.GetName());
}

void BM_a_OXmlStreamToMemory(benchmark::State& state) {
  Packet& p = ThePacket();
  for (auto _ : state) {
    OXmlStream out(0LL);
    WriteAll(out, p);
    benchmark::DoNotOptimize(out.GetIsStrstream());
  }
  state.SetBytesProcessed(state.iterations() * p.bytes);
}

void BM_b_OXmlStreamToFiles(benchmark::State& state) {
  Packet& p = ThePacket();
  const Obx_String base = Obx_String::FromUtf8((p.folder + "/series").c_str());
  for (auto _ : state) {
    OXmlStream out(base.GetData(), kFileLimit, 0);
    WriteAll(out, p);
    out.Close();
    state.PauseTiming();
    CStringArray files;
    if (static_cast<long long>(out.Get_Created_Files(files)) != p.bytes) state.SkipWithError("wrong size");
    out.Delete_Created_Files(0);
    state.ResumeTiming();
  }
  state.SetBytesProcessed(state.iterations() * p.bytes);
}

void BM_c_PrerenderedOfstream(benchmark::State& state) {
  Packet& p = ThePacket();
  const std::string path = p.folder + "/prerendered";
  for (auto _ : state) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(p.head.data(), static_cast<std::streamsize>(p.head.size()));
    for (const std::string& s : p.rendered) out.write(s.data(), static_cast<std::streamsize>(s.size()));
    out.write(p.tail.data(), static_cast<std::streamsize>(p.tail.size()));
    out.close();
    state.PauseTiming();
    std::remove(path.c_str());
    state.ResumeTiming();
  }
  state.SetBytesProcessed(state.iterations() * p.bytes);
}

const xmlChar* X(const std::string& s) { return reinterpret_cast<const xmlChar*>(s.c_str()); }

void WriteNode(xmlTextWriterPtr w, const Utf8Node& node) {
  xmlTextWriterStartElement(w, X(node.name));
  for (const auto& a : node.attributes) xmlTextWriterWriteAttribute(w, X(a.first), X(a.second));
  for (const Utf8Node::Item& item : node.items) {
    if (item.child)
      WriteNode(w, *item.child);
    else
      xmlTextWriterWriteString(w, X(item.text));
  }
  xmlTextWriterEndElement(w);
}

void BM_d_Libxml2TextWriter(benchmark::State& state) {
  Packet& p = ThePacket();
  const std::string path = p.folder + "/libxml2";
  const std::string rootName = p.root.GetName().ToUtf8();
  long long bytes = 0;
  for (auto _ : state) {
    xmlTextWriterPtr w = xmlNewTextWriterFilename(path.c_str(), 0);
    xmlTextWriterStartElement(w, X(rootName));
    const CMapStringToString& map = p.root.GetAttributes();
    for (int k = 0; k < map.GetCount(); ++k)
      xmlTextWriterWriteAttribute(w, X(map.KeyAt(k).ToUtf8()), X(map.ValueAt(k).ToUtf8()));
    for (const std::unique_ptr<Utf8Node>& m : p.mirrors) {
      WriteNode(w, *m);
      xmlTextWriterWriteRaw(w, reinterpret_cast<const xmlChar*>("\n"));
    }
    xmlTextWriterEndElement(w);
    xmlFreeTextWriter(w);
    state.PauseTiming();
    std::ifstream written(path, std::ios::binary | std::ios::ate);
    bytes = static_cast<long long>(written.tellg());
    std::remove(path.c_str());
    state.ResumeTiming();
  }
  state.SetBytesProcessed(state.iterations() * bytes);
}

BENCHMARK(BM_a_OXmlStreamToMemory)->Unit(benchmark::kMillisecond)->Repetitions(5);
BENCHMARK(BM_b_OXmlStreamToFiles)->Unit(benchmark::kMillisecond)->Repetitions(5);
BENCHMARK(BM_c_PrerenderedOfstream)->Unit(benchmark::kMillisecond)->Repetitions(5);
BENCHMARK(BM_d_Libxml2TextWriter)->Unit(benchmark::kMillisecond)->Repetitions(5);

// Prints the usual table, then each rate in MB/s and the two ratios.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration) continue;
      const auto it = run.counters.find("bytes_per_second");
      if (it == run.counters.end()) continue;
      double& best = m_rates[run.benchmark_name().substr(3, 1)];
      if (it->second.value / 1e6 > best) best = it->second.value / 1e6;
    }
  }
  void Finalize() override {
    ConsoleReporter::Finalize();
    for (const auto& r : m_rates) std::printf("(%s) %8.1f MB/s (best of the repetitions)\n", r.first.c_str(), r.second);
    if (m_rates.count("b") && m_rates.count("c") && m_rates["c"] > 0)
      std::printf("(b)/(c) %.2f\n", m_rates["b"] / m_rates["c"]);
    if (m_rates.count("b") && m_rates.count("d") && m_rates["d"] > 0)
      std::printf("(b)/(d) %.2f (goal: at least 1.5)\n", m_rates["b"] / m_rates["d"]);
  }

 private:
  std::map<std::string, double> m_rates;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  ThePacket();  // generated and parsed once, before any timing
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
