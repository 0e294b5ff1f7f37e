// Attachments: a 200 MB file of random bytes attached to a series of 64 MB
// files (OXmlStream::Mime64_Encode_File) and extracted back from the joined
// series (IXmlStream::Mime64_Decode), against the coreutils program base64
// encoding and decoding the same file in the same run: the floor a user
// would compare with. Each run is a child process, so that its peak
// resident size and its CPU time are its own; rates are MB of the file a
// second of CPU time, the best of the repetitions (the machines this runs
// on are shared). The closing lines give each ratio to coreutils. The big
// files live in a scratch folder that is removed at the end.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "xmlstream.h"

namespace {

const long long kFileBytes = 200LL << 20;
const long long kSeriesLimit = 64LL << 20;

std::string g_dir;

std::string Path(const char* name) { return g_dir + "/" + name; }
Obx_String Wide(const char* name) { return Obx_String::FromUtf8(Path(name).c_str()); }

void MakeRandomFile() {
  std::FILE* f = std::fopen(Path("random.bin").c_str(), "wb");
  std::vector<unsigned long long> block(1 << 17);
  unsigned long long x = 88172645463325252ULL;
  for (long long done = 0; done < kFileBytes; done += static_cast<long long>(block.size() * 8)) {
    for (auto& v : block) {
      x ^= x << 13;
      x ^= x >> 7;
      x ^= x << 17;
      v = x;
    }
    std::fwrite(block.data(), 8, block.size(), f);
  }
  std::fclose(f);
}

struct Run {
  double cpuSeconds = 0;
  double peakMB = 0;
  bool ok = false;
};

// Runs body in a child; its exit status 0 means it did its work.
Run InChild(const std::function<int()>& body) {
  const pid_t pid = fork();
  if (pid == 0) _exit(body());
  int status = 0;
  struct rusage usage;
  wait4(pid, &status, 0, &usage);
  Run run;
  run.ok = WIFEXITED(status) && WEXITSTATUS(status) == 0;
  run.cpuSeconds = static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                   static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
  run.peakMB = static_cast<double>(usage.ru_maxrss) / 1024;
  return run;
}

// coreutils base64 with its standard output in a file.
int Coreutils(const std::vector<const char*>& args, const std::string& output) {
  const int fd = ::open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (fd < 0 || ::dup2(fd, 1) < 0) return 1;
  std::vector<char*> argv;
  for (const char* a : args) argv.push_back(const_cast<char*>(a));
  argv.push_back(nullptr);
  ::execvp("base64", argv.data());
  return 1;
}

int Attach() {
  try {
    OXmlStream out(Wide("series"), kSeriesLimit, 0);
    out << XmlSTag(u"file");
    out.Mime64_Encode_File(Wide("random.bin"));
    out << XmlETag(u"file");
    out.Close();
  } catch (QmMsgException* e) {
    std::fprintf(stderr, "%s\n", e->GetFullText().ToUtf8().c_str());
    e->Delete();
    return 1;
  }
  return 0;
}

int Extract() {
  try {
    CStringArray names;
    names.Add(Wide("series"));
    for (int k = 2; ::access((Path("series") + "_" + std::to_string(k)).c_str(), F_OK) == 0; ++k)
      names.Add(Obx_String::FromUtf8((Path("series") + "_" + std::to_string(k)).c_str()));
    IXmlStream in(names);
    XmlSTag start(u"file");
    in >> start;
    in.Mime64_Decode(Wide("extracted.bin"));
    XmlETag end(u"file");
    in >> end;
  } catch (QmMsgException* e) {
    std::fprintf(stderr, "%s\n", e->GetFullText().ToUtf8().c_str());
    e->Delete();
    return 1;
  }
  return 0;
}

bool SameFiles(const std::string& a, const std::string& b) {
  return std::system(("cmp -s '" + a + "' '" + b + "'").c_str()) == 0;
}

std::map<std::string, Run> g_best;

void Measure(benchmark::State& state, const std::string& name, const std::function<int()>& body,
             const std::string& result) {
  Run best;
  for (auto _ : state) {
    const Run run = InChild(body);
    if (!run.ok) {
      state.SkipWithError("the child failed");
      return;
    }
    if (best.cpuSeconds == 0 || run.cpuSeconds < best.cpuSeconds) best.cpuSeconds = run.cpuSeconds;
    if (run.peakMB > best.peakMB) best.peakMB = run.peakMB;
    best.ok = true;
  }
  if (!result.empty() && !SameFiles(Path("random.bin"), result)) {
    state.SkipWithError("the bytes differ");
    return;
  }
  g_best[name] = best;
  state.counters["MB_per_s"] = static_cast<double>(kFileBytes >> 20) / best.cpuSeconds;
  state.counters["peak_MB"] = best.peakMB;
}

void BM_AttachToSeries(benchmark::State& state) { Measure(state, "attach", Attach, ""); }
void BM_CoreutilsEncode(benchmark::State& state) {
  Measure(state, "base64", [] { return Coreutils({"base64", Path("random.bin").c_str()}, Path("random.b64")); }, "");
}
void BM_ExtractFromSeries(benchmark::State& state) {
  Measure(state, "extract", Extract, Path("extracted.bin"));
}
void BM_CoreutilsDecode(benchmark::State& state) {
  Measure(state, "base64 -d", [] { return Coreutils({"base64", "-d", Path("random.b64").c_str()}, Path("decoded.bin")); },
          Path("decoded.bin"));
}

}  // namespace

// In this order: each decoder reads what the encoder before it wrote.
BENCHMARK(BM_AttachToSeries)->Iterations(3)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_CoreutilsEncode)->Iterations(3)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ExtractFromSeries)->Iterations(3)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_CoreutilsDecode)->Iterations(3)->Unit(benchmark::kMillisecond)->UseRealTime();

int main(int argc, char** argv) {
  char tmpl[] = "/tmp/nxxml_attach_bench_XXXXXX";
  if (!::mkdtemp(tmpl)) return 1;
  g_dir = tmpl;
  MakeRandomFile();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  auto ratio = [](const char* ours, const char* theirs) {
    if (!g_best.count(ours) || !g_best.count(theirs)) return;
    const Run& a = g_best[ours];
    const Run& b = g_best[theirs];
    std::printf("%-8s %7.1f MB/s, peak %5.1f MB | %-9s %7.1f MB/s, peak %5.1f MB | ratio %.2f\n", ours,
                static_cast<double>(kFileBytes >> 20) / a.cpuSeconds, a.peakMB, theirs,
                static_cast<double>(kFileBytes >> 20) / b.cpuSeconds, b.peakMB, b.cpuSeconds / a.cpuSeconds);
  };
  ratio("attach", "base64");
  ratio("extract", "base64 -d");
  return std::system(("rm -rf '" + g_dir + "'").c_str()) == 0 ? 0 : 1;
}
