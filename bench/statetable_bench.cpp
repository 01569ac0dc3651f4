// `netwarden -statetable` with a generated table of connections written to a file, against
//  - a reference program that writes the same bytes with snprintf into one buffer and one
//    fwrite (statetable_reference), and
//  - cat copying the tool's finished output to another file.
// The three run one after the other in every iteration, in alternating order, so that the load
// of a shared machine falls on all of them alike; medians of each, and their ratios, are
// reported, both of wall time and of CPU time (user + system, which the load distorts less).
// The peak memory benchmark runs the tool on tables of several sizes: the simulated core makes
// generated entries from their index, so what grows, if anything, is the tool's own.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

namespace {

// Set by CMake.
const char* const kNetwarden = NW_BENCH_NETWARDEN;
const char* const kReference = NW_BENCH_REFERENCE;
constexpr const char* kSeed = "1";

struct Run {
  bool ok = false;
  double wallSeconds = 0;
  double cpuSeconds = 0;
  long peakKilobytes = 0;
};

double Seconds(const timeval& t) { return static_cast<double>(t.tv_sec) + t.tv_usec / 1e6; }

// Runs program with args and the environment env, standard output into outFile; ok when it
// exits with 0.
Run Spawn(const char* program, std::vector<const char*> args, std::vector<std::string> env,
          const std::string& outFile) {
  args.insert(args.begin(), program);
  args.push_back(nullptr);
  env.push_back("PATH=/usr/bin:/bin");
  std::vector<char*> envp;
  for (std::string& e : env) envp.push_back(e.data());
  envp.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, outFile.c_str(),
                                   O_WRONLY | O_CREAT | O_TRUNC, 0644);
  Run run;
  const auto start = std::chrono::steady_clock::now();
  pid_t pid = 0;
  const int spawned = posix_spawnp(&pid, program, &actions, nullptr,
                                   const_cast<char* const*>(args.data()), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  if (spawned != 0) return run;
  int status = 0;
  rusage usage{};
  if (wait4(pid, &status, 0, &usage) != pid) return run;
  run.wallSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  run.cpuSeconds = Seconds(usage.ru_utime) + Seconds(usage.ru_stime);
  run.peakKilobytes = usage.ru_maxrss;
  run.ok = WIFEXITED(status) && WEXITSTATUS(status) == 0;
  return run;
}

// A folder of its own with a scenario of count generated connections.
class Workspace {
 public:
  explicit Workspace(int64_t count) {
    char folder[] = "/tmp/nw-statetable-bench-XXXXXX";
    if (mkdtemp(folder) == nullptr) return;
    dir_ = folder;
    std::ofstream(Path("scenario.json")) << "{\"connections\": {\"generate\": {\"count\": " << count
                                         << ", \"seed\": " << kSeed << "}}}\n";
  }
  ~Workspace() {
    for (const char* name : {"scenario.json", "tool.txt", "reference.txt", "copy.txt"}) {
      std::remove(Path(name).c_str());
    }
    if (!dir_.empty()) rmdir(dir_.c_str());
  }
  bool ok() const { return !dir_.empty(); }
  std::string Path(const char* name) const { return dir_ + "/" + name; }
  std::vector<std::string> Environment() const {
    return {"KVX_SIM_STATE=" + Path("scenario.json")};
  }

 private:
  std::string dir_;
};

// Compared a piece at a time: a child's peak memory as the kernel reports it starts from this
// process's own peak, so this process must never hold a whole output.
bool SameFiles(const std::string& a, const std::string& b) {
  std::ifstream first(a, std::ios::binary), second(b, std::ios::binary);
  std::vector<char> x(1 << 16), y(1 << 16);
  while (first && second) {
    first.read(x.data(), static_cast<std::streamsize>(x.size()));
    second.read(y.data(), static_cast<std::streamsize>(y.size()));
    if (first.gcount() != second.gcount() ||
        !std::equal(x.begin(), x.begin() + first.gcount(), y.begin())) {
      return false;
    }
  }
  return first.eof() && second.eof();
}

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const size_t n = values.size();
  return n == 0 ? 0 : n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

void BM_StateTableToFile(benchmark::State& state) {
  const int64_t count = state.range(0);
  const std::string countText = std::to_string(count);
  Workspace work(count);
  if (!work.ok()) return state.SkipWithError("cannot make a temporary folder");
  std::vector<double> toolWall, referenceWall, catWall, toolCpu, referenceCpu, catCpu;
  bool first = true;
  for (auto _ : state) {
    Run tool, reference;
    auto runTool = [&] {
      tool = Spawn(kNetwarden, {"-statetable"}, work.Environment(), work.Path("tool.txt"));
    };
    auto runReference = [&] {
      reference = Spawn(kReference, {countText.c_str(), kSeed}, {}, work.Path("reference.txt"));
    };
    if (toolWall.size() % 2 == 0) {
      runTool();
      runReference();
    } else {
      runReference();
      runTool();
    }
    const Run cat = Spawn("cat", {work.Path("tool.txt").c_str()}, {}, work.Path("copy.txt"));
    if (!tool.ok || !reference.ok || !cat.ok) {
      return state.SkipWithError("a program did not run or did not exit with 0");
    }
    if (first && !SameFiles(work.Path("tool.txt"), work.Path("reference.txt"))) {
      return state.SkipWithError("the tool and the reference wrote different bytes");
    }
    first = false;
    state.SetIterationTime(tool.wallSeconds);
    toolWall.push_back(tool.wallSeconds);
    referenceWall.push_back(reference.wallSeconds);
    catWall.push_back(cat.wallSeconds);
    toolCpu.push_back(tool.cpuSeconds);
    referenceCpu.push_back(reference.cpuSeconds);
    catCpu.push_back(cat.cpuSeconds);
  }
  state.counters["tool_ms"] = 1000 * Median(toolWall);
  state.counters["reference_ms"] = 1000 * Median(referenceWall);
  state.counters["cat_ms"] = 1000 * Median(catWall);
  // Targets: vs_reference at most 1, vs_cat at most 3.
  state.counters["vs_reference"] = Median(toolWall) / Median(referenceWall);
  state.counters["vs_cat"] = Median(toolWall) / Median(catWall);
  state.counters["cpu_tool_ms"] = 1000 * Median(toolCpu);
  state.counters["cpu_reference_ms"] = 1000 * Median(referenceCpu);
  state.counters["cpu_cat_ms"] = 1000 * Median(catCpu);
  state.counters["cpu_vs_reference"] = Median(toolCpu) / Median(referenceCpu);
  state.counters["cpu_vs_cat"] = Median(toolCpu) / Median(catCpu);
}
BENCHMARK(BM_StateTableToFile)
    ->Arg(1000000)
    ->Iterations(9)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

// Peak resident memory of a whole run against tables of growing size, with the reference's
// (which holds all its output) beside it for contrast.
void BM_StateTablePeakMemory(benchmark::State& state) {
  const int64_t count = state.range(0);
  const std::string countText = std::to_string(count);
  Workspace work(count);
  if (!work.ok()) return state.SkipWithError("cannot make a temporary folder");
  long tool = 0, reference = 0;
  for (auto _ : state) {
    const Run t = Spawn(kNetwarden, {"-statetable"}, work.Environment(), "/dev/null");
    const Run r = Spawn(kReference, {countText.c_str(), kSeed}, {}, "/dev/null");
    if (!t.ok || !r.ok) return state.SkipWithError("a program did not run or did not exit with 0");
    tool = std::max(tool, t.peakKilobytes);
    reference = std::max(reference, r.peakKilobytes);
  }
  state.counters["tool_peak_kb"] = static_cast<double>(tool);
  state.counters["reference_peak_kb"] = static_cast<double>(reference);
}
BENCHMARK(BM_StateTablePeakMemory)
    ->Arg(10000)
    ->Arg(100000)
    ->Arg(1000000)
    ->Iterations(3)
    ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
