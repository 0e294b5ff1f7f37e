// Input streams on several threads: N threads each read a packet of their
// own (N = 1, 2 and the number of cores) record by record, and the
// aggregate rate is set beside N times the rate of one thread. Streams
// share nothing but the library's code, so anything that serialises them
// (a lock, a shared allocator, a counter written on every token, per-thread
// data on one cache line) shows as a ratio below 1.
//
// Each benchmark reports MB/s (all threads together, wall time of the
// slowest) and vs_linear: that rate over N times the one-thread rate of
// the same run. Rates are taken from the best pass.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "bench_packet.h"
#include "xmlstream.h"

namespace {

using benchpacket::Document;
using benchpacket::MemorySource;

const std::size_t kPacketBytes = 20u << 20;

// One packet a thread, each in memory of its own, made once for the most
// threads measured.
const std::vector<std::unique_ptr<Document>>& Packets(std::size_t count) {
  static std::vector<std::unique_ptr<Document>> packets;
  while (packets.size() < count) packets.emplace_back(new Document(kPacketBytes));
  return packets;
}

// The best wall time, in seconds, of passes in which n threads read their
// packets at once.
double BestPass(int n, int passes, bool& ok) {
  const auto& packets = Packets(static_cast<std::size_t>(n));
  double best = 0;
  for (int pass = 0; pass < passes; ++pass) {
    std::vector<long> records(static_cast<std::size_t>(n), 0);
    std::vector<std::thread> threads;
    const auto start = std::chrono::steady_clock::now();
    for (int t = 0; t < n; ++t) {
      threads.emplace_back([&, t] {
        IXmlStream in(new MemorySource(packets[static_cast<std::size_t>(t)]->bytes));
        records[static_cast<std::size_t>(t)] = benchpacket::ReadRecords(in);
      });
    }
    for (std::thread& thread : threads) thread.join();
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    for (int t = 0; t < n; ++t)
      ok = ok && records[static_cast<std::size_t>(t)] == packets[static_cast<std::size_t>(t)]->records;
    if (best == 0 || seconds < best) best = seconds;
  }
  return best;
}

double g_oneThreadSeconds = 0;

void BM_ReadOnThreads(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  bool ok = true;
  if (g_oneThreadSeconds == 0) g_oneThreadSeconds = BestPass(1, 3, ok);
  double best = 0;
  for (auto _ : state) {
    const double seconds = BestPass(n, 1, ok);
    state.SetIterationTime(seconds);
    if (best == 0 || seconds < best) best = seconds;
  }
  if (!ok) state.SkipWithError("a thread read a different number of records");
  const double bytes = static_cast<double>(n) * static_cast<double>(Packets(1)[0]->bytes.size());
  const double rate = bytes / best;
  const double oneThreadRate = static_cast<double>(Packets(1)[0]->bytes.size()) / g_oneThreadSeconds;
  state.counters["threads"] = n;
  state.counters["MB/s"] = rate / 1e6;
  state.counters["vs_linear"] = rate / (n * oneThreadRate);
}

void Arguments(benchmark::internal::Benchmark* b) {
  const int cores = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
  b->Arg(1);
  if (cores >= 2) b->Arg(2);
  if (cores > 2) b->Arg(cores);
}

BENCHMARK(BM_ReadOnThreads)->Apply(Arguments)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);

}  // namespace

BENCHMARK_MAIN();
