// Iterating the sub-elements of a packet of a million records, with the
// range-for of SubElements() (also filtered by name, which compares each
// name ignoring case) and with the index loop over GetContentAsElement(i),
// which takes a reference on each item. The first two must run at the same
// rate within noise. A loop over GetSubElement(i) is quadratic and not run.
#include <benchmark/benchmark.h>

#include <memory>

#include "xmlcontent.h"

namespace {

const long kRecords = 1000000;

// Records with the line breaks between them a read packet has, so that the
// loops pass over character data as well.
const XmlElement& Packet() {
  static const std::unique_ptr<XmlElement> packet = [] {
    std::unique_ptr<XmlElement> p(new XmlElement(u"packet"));
    for (long i = 0; i < kRecords; ++i) {
      p->AddCharData(u"\n");
      p->AddSubElement(u"record")->GetSTag().SetLongAttr(NX_U16(u"id"), i, 1);
    }
    return p;
  }();
  return *packet;
}

void Finish(benchmark::State& state, long seen) {
  if (seen != kRecords) state.SkipWithError("not every record was visited");
  state.SetItemsProcessed(state.iterations() * kRecords);
}

// Counts the attributes of every record a range-for over range(packet)
// visits.
template <class Range>
void RangeFor(benchmark::State& state, const Range& range) {
  const XmlElement& packet = Packet();
  long seen = 0;
  for (auto _ : state) {
    seen = 0;
    for (XmlElement& record : range(packet)) seen += record.GetSTag().GetAttributeCount();
    benchmark::DoNotOptimize(seen);
  }
  Finish(state, seen);
}

void BM_SubElementsRangeFor(benchmark::State& state) {
  RangeFor(state, [](const XmlElement& packet) { return packet.SubElements(); });
}

void BM_SubElementsByNameRangeFor(benchmark::State& state) {
  RangeFor(state, [](const XmlElement& packet) { return packet.SubElements("Record"); });
}

void BM_GetContentAsElementLoop(benchmark::State& state) {
  const XmlElement& packet = Packet();
  long seen = 0;
  for (auto _ : state) {
    seen = 0;
    const int count = packet.GetContentCount();
    for (int i = 0; i < count; ++i)
      if (NXSmartPtr<XmlElement> record = packet.GetContentAsElement(i)) seen += record->GetSTag().GetAttributeCount();
    benchmark::DoNotOptimize(seen);
  }
  Finish(state, seen);
}

}  // namespace

BENCHMARK(BM_SubElementsRangeFor)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SubElementsByNameRangeFor)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_GetContentAsElementLoop)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
