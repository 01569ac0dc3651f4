// `netwarden -PolicyDisplay` over a generated set of 10,000 policies x 20 rules x 3 matches,
// standard output to a file, against policy_display_reference writing the same bytes with
// snprintf into one buffer. Both run as processes, alternately in every iteration, so that the
// load of a shared machine falls on both alike; their ratio is the figure that counts. The first
// iteration also checks that the two files are the same bytes.
// Also, on their own: `-PolicyDisplayXml` over the same set, and `-BlackListDisplay` over
// generated lists of 10,000 to 1,000,000 ranges, whose peak memory must not grow with the list.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

namespace {

// Set by CMake: the build's program and the yardstick beside this benchmark.
const char* const kNetwarden = NW_BENCH_NETWARDEN;
const char* const kReference = NW_BENCH_POLICY_REFERENCE;

constexpr const char* kCount = "10000";
constexpr const char* kRules = "20";
constexpr const char* kMatches = "3";
constexpr const char* kSeed = "1";

struct Run {
  bool ok = false;
  double wall = 0;  // seconds
  double cpu = 0;   // user and system seconds
  long peakKb = 0;  // maximum resident set
};

/// Runs program with args and environment, standard output to outputFile.
Run Spawn(const char* program, std::vector<const char*> args, std::vector<std::string> env,
          const std::string& outputFile) {
  args.insert(args.begin(), program);
  args.push_back(nullptr);
  std::vector<char*> envp;
  for (std::string& e : env) envp.push_back(e.data());
  envp.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, outputFile.c_str(),
                                   O_WRONLY | O_CREAT | O_TRUNC, 0644);
  Run run;
  const auto start = std::chrono::steady_clock::now();
  pid_t pid = 0;
  const int spawned = posix_spawn(&pid, program, &actions, nullptr,
                                  const_cast<char* const*>(args.data()), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  if (spawned != 0) return run;
  int status = 0;
  rusage usage{};
  if (wait4(pid, &status, 0, &usage) != pid) return run;
  run.wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  run.cpu = static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
            static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
  run.peakKb = usage.ru_maxrss;
  run.ok = WIFEXITED(status) && WEXITSTATUS(status) == 0;
  return run;
}

bool SameFiles(const std::string& a, const std::string& b) {
  std::ifstream fa(a, std::ios::binary), fb(b, std::ios::binary);
  std::vector<char> ba(1 << 20), bb(1 << 20);
  while (fa && fb) {
    fa.read(ba.data(), static_cast<std::streamsize>(ba.size()));
    fb.read(bb.data(), static_cast<std::streamsize>(bb.size()));
    if (fa.gcount() != fb.gcount() ||
        !std::equal(ba.begin(), ba.begin() + fa.gcount(), bb.begin())) {
      return false;
    }
  }
  return fa.eof() && fb.eof();
}

void BM_PolicyDisplayGenerated(benchmark::State& state) {
  char folder[] = "/tmp/nw-policy-bench-XXXXXX";
  if (mkdtemp(folder) == nullptr) {
    state.SkipWithError("no temporary folder");
    return;
  }
  const std::string scenario = std::string(folder) + "/scenario.json";
  const std::string toolOut = std::string(folder) + "/netwarden.txt";
  const std::string referenceOut = std::string(folder) + "/reference.txt";
  std::ofstream(scenario) << "{\"policies\": {\"generated\": {\"count\": " << kCount
                          << ", \"rules\": " << kRules << ", \"matches\": " << kMatches
                          << ", \"seed\": " << kSeed << "}}}\n";
  const std::vector<std::string> env = {"PATH=/usr/bin:/bin", "KVX_SIM_STATE=" + scenario};

  Run tool, reference;
  long peakKb = 0;
  bool checked = false;
  for (auto _ : state) {
    const Run t = Spawn(kNetwarden, {"-PolicyDisplay"}, env, toolOut);
    const Run r = Spawn(kReference, {kCount, kRules, kMatches, kSeed, referenceOut.c_str()},
                        {"PATH=/usr/bin:/bin"}, "/dev/null");
    if (!t.ok || !r.ok) {
      state.SkipWithError("a program did not run or did not exit with 0");
      break;
    }
    if (!checked && !SameFiles(toolOut, referenceOut)) {
      state.SkipWithError("netwarden and the reference wrote different bytes");
      break;
    }
    checked = true;
    tool.wall += t.wall;
    tool.cpu += t.cpu;
    reference.wall += r.wall;
    reference.cpu += r.cpu;
    peakKb = std::max(peakKb, t.peakKb);
  }
  struct stat info {};
  stat(toolOut.c_str(), &info);
  std::remove(scenario.c_str());
  std::remove(toolOut.c_str());
  std::remove(referenceOut.c_str());
  rmdir(folder);
  if (!checked) return;
  const double runs = static_cast<double>(state.iterations());
  state.counters["netwarden_s"] = tool.wall / runs;
  state.counters["reference_s"] = reference.wall / runs;
  state.counters["ratio"] = tool.wall / reference.wall;  // target: at most 1.5
  state.counters["netwarden_cpu_s"] = tool.cpu / runs;
  state.counters["reference_cpu_s"] = reference.cpu / runs;
  state.counters["cpu_ratio"] = tool.cpu / reference.cpu;
  state.counters["output_MB"] = static_cast<double>(info.st_size) / 1e6;
  state.counters["netwarden_MB_per_s"] =
      static_cast<double>(info.st_size) / 1e6 / (tool.wall / runs);
  state.counters["netwarden_peak_KB"] = static_cast<double>(peakKb);
}
BENCHMARK(BM_PolicyDisplayGenerated)->Unit(benchmark::kSecond)->Iterations(5)->UseRealTime();

// One view run against a scenario, measured on its own: mean wall and CPU time, output size and
// rate, peak resident memory.
void MeasureView(benchmark::State& state, const std::string& scenarioText, const char* option) {
  char folder[] = "/tmp/nw-view-bench-XXXXXX";
  if (mkdtemp(folder) == nullptr) {
    state.SkipWithError("no temporary folder");
    return;
  }
  const std::string scenario = std::string(folder) + "/scenario.json";
  const std::string output = std::string(folder) + "/netwarden.txt";
  std::ofstream(scenario) << scenarioText;
  const std::vector<std::string> env = {"PATH=/usr/bin:/bin", "KVX_SIM_STATE=" + scenario};
  Run total;
  long peakKb = 0;
  for (auto _ : state) {
    const Run run = Spawn(kNetwarden, {option}, env, output);
    if (!run.ok) {
      state.SkipWithError("netwarden did not run or did not exit with 0");
      break;
    }
    total.wall += run.wall;
    total.cpu += run.cpu;
    peakKb = std::max(peakKb, run.peakKb);
  }
  struct stat info {};
  stat(output.c_str(), &info);
  std::remove(scenario.c_str());
  std::remove(output.c_str());
  rmdir(folder);
  const double runs = static_cast<double>(state.iterations());
  state.counters["netwarden_s"] = total.wall / runs;
  state.counters["netwarden_cpu_s"] = total.cpu / runs;
  state.counters["output_MB"] = static_cast<double>(info.st_size) / 1e6;
  state.counters["netwarden_MB_per_s"] =
      static_cast<double>(info.st_size) / 1e6 / (total.wall / runs);
  state.counters["netwarden_peak_KB"] = static_cast<double>(peakKb);
}

void BM_PolicyDocumentGenerated(benchmark::State& state) {
  MeasureView(state,
              std::string("{\"policies\": {\"generated\": {\"count\": ") + kCount +
                  ", \"rules\": " + kRules + ", \"matches\": " + kMatches + ", \"seed\": " + kSeed +
                  "}}}\n",
              "-PolicyDisplayXml");
}
BENCHMARK(BM_PolicyDocumentGenerated)->Unit(benchmark::kSecond)->Iterations(5)->UseRealTime();

void BM_BlacklistGenerated(benchmark::State& state) {
  MeasureView(state,
              "{\"blacklist\": {\"generate\": {\"count\": " + std::to_string(state.range(0)) +
                  ", \"seed\": 3}}}\n",
              "-BlackListDisplay");
}
BENCHMARK(BM_BlacklistGenerated)
    ->Arg(10000)
    ->Arg(100000)
    ->Arg(1000000)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3)
    ->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
