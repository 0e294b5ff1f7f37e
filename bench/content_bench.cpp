// Rendering an element tree: the rate of XmlElement::GetImage in MB of UTF-16
// image a second, beside the floor any renderer pays, plain std::u16string
// appends of the same text in pre-escaped pieces. Run at 10,000 and 100,000
// records: the rate must hold as the tree grows.
#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <vector>

#include "xmlcontent.h"

namespace {

const char16_t* const kAttrNames[5] = {u"id", u"name", u"kind", u"site", u"flags"};
const char16_t* const kFieldNames[5] = {u"f0", u"f1", u"f2", u"f3", u"f4"};

std::u16string Number(long n) {
  const std::string s = std::to_string(n);
  return std::u16string(s.begin(), s.end());
}

// The raw values of one record; one attribute and two fields need escaping.
struct Record {
  std::u16string attrs[5];
  std::u16string fields[5];
};

Record MakeRecord(long i) {
  Record r;
  const std::u16string n = Number(i);
  r.attrs[0] = n;
  r.attrs[1] = u"Smith & Sons " + n;
  r.attrs[2] = u"customer";
  r.attrs[3] = u"S" + Number(i % 100);
  r.attrs[4] = u"plain";
  r.fields[0] = u"text of record " + n;
  r.fields[1] = u"x < y & z";
  r.fields[2] = u"a longer run of plain field text that needs no escaping at all";
  r.fields[3] = u"line one\nline two";
  r.fields[4] = u"quote \" kept in text";
  return r;
}

// Prepares the pre-escaped pieces for the floor; not timed.
std::u16string Escaped(const std::u16string& s, bool attribute) {
  std::u16string out;
  for (char16_t c : s) {
    switch (c) {
      case u'&': out += u"&amp;"; break;
      case u'<': out += u"&lt;"; break;
      case u'>': out += u"&gt;"; break;
      case u'\n': out += u"&#xA;"; break;
      case u'"':
        out += attribute ? u"&quot;" : u"\"";
        break;
      default: out += c;
    }
  }
  return out;
}

const unsigned short* U16(const std::u16string& s) { return reinterpret_cast<const unsigned short*>(s.c_str()); }

std::unique_ptr<XmlElement> BuildTree(long records) {
  std::unique_ptr<XmlElement> root(new XmlElement(u"records"));
  for (long i = 0; i < records; ++i) {
    const Record r = MakeRecord(i);
    NXSmartPtr<XmlElement> rec = root->AddSubElement(u"rec");
    for (int k = 0; k < 5; ++k) rec->GetSTag().SetAttribute(NX_U16(kAttrNames[k]), U16(r.attrs[k]), 1);
    for (int k = 0; k < 5; ++k) rec->AddSubElement(kFieldNames[k])->AddCharData(U16(r.fields[k]));
  }
  return root;
}

// The same text as the tree's image, in the pieces a renderer would append.
std::vector<std::u16string> Pieces(long records) {
  std::vector<std::u16string> pieces;
  pieces.reserve(static_cast<std::size_t>(records) * 21 + 2);
  pieces.push_back(u"<records>");
  for (long i = 0; i < records; ++i) {
    const Record r = MakeRecord(i);
    pieces.push_back(u"<rec");
    for (int k = 0; k < 5; ++k)
      pieces.push_back(std::u16string(u" ") + kAttrNames[k] + u"=\"" + Escaped(r.attrs[k], true) + u"\"");
    pieces.push_back(u">\n");
    for (int k = 0; k < 5; ++k) {
      pieces.push_back(std::u16string(u"<") + kFieldNames[k] + u">");
      pieces.push_back(Escaped(r.fields[k], false));
      pieces.push_back(std::u16string(u"</") + kFieldNames[k] + u">");
    }
    pieces.push_back(u"</rec>");
  }
  pieces.push_back(u"</records>");
  return pieces;
}

std::u16string Join(const std::vector<std::u16string>& pieces) {
  std::u16string text;
  for (const std::u16string& p : pieces) text.append(p);
  return text;
}

void SetRate(benchmark::State& state, std::size_t units) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(units * 2));
  state.counters["image_MB"] = static_cast<double>(units * 2) / 1e6;
}

void BM_RenderTree(benchmark::State& state) {
  const long records = state.range(0);
  const std::unique_ptr<XmlElement> root = BuildTree(records);
  // Both sides of the comparison must produce the very same text.
  const std::u16string expected = Join(Pieces(records));
  const Obx_String first = root->GetImage(nullptr);
  if (first.Std() != Obx_StdString(expected.begin(), expected.end())) {
    state.SkipWithError("the tree's image differs from the pre-escaped text");
    return;
  }
  std::size_t units = 0;
  for (auto _ : state) {
    Obx_String image = root->GetImage(nullptr);
    units = static_cast<std::size_t>(image.GetLength());
    benchmark::DoNotOptimize(image.GetData());
  }
  SetRate(state, units);
}

void BM_PlainAppends(benchmark::State& state) {
  const std::vector<std::u16string> pieces = Pieces(state.range(0));
  std::size_t units = 0;
  for (auto _ : state) {
    std::u16string text;
    for (const std::u16string& p : pieces) text.append(p);
    units = text.size();
    benchmark::DoNotOptimize(text.data());
  }
  SetRate(state, units);
}

void BM_BuildTree(benchmark::State& state) {
  for (auto _ : state) {
    std::unique_ptr<XmlElement> root = BuildTree(state.range(0));
    benchmark::DoNotOptimize(root.get());
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

}  // namespace

BENCHMARK(BM_RenderTree)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PlainAppends)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BuildTree)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
