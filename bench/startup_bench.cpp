// Start-up cost: a whole `netwarden -ConfigDisplay` run (harden the search, verify and load the
// simulated core, register, one report, release, unload) against starting and exiting a
// trivial C program. The two are run alternately in every iteration, so machine noise falls on
// both alike and their ratio is what is reported.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

extern char** environ;

namespace {

// Set by CMake: the build's program and the yardstick beside this benchmark.
const char* const kNetwarden = NW_BENCH_NETWARDEN;
const char* const kTrivial = NW_BENCH_TRIVIAL;

/// Runs program with args, standard output to /dev/null; the wall time in seconds, or a
/// negative number when it could not run or did not exit with 0.
double TimeRun(const char* program, std::vector<const char*> args) {
  args.insert(args.begin(), program);
  args.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  // The built-in host: no scenario, no host state, no debug log.
  static char* const env[] = {const_cast<char*>("PATH=/usr/bin:/bin"), nullptr};
  const auto start = std::chrono::steady_clock::now();
  pid_t pid = 0;
  const int spawned = posix_spawn(&pid, program, &actions, nullptr,
                                  const_cast<char* const*>(args.data()), env);
  posix_spawn_file_actions_destroy(&actions);
  if (spawned != 0) return -1;
  int status = 0;
  if (waitpid(pid, &status, 0) != pid || !WIFEXITED(status) || WEXITSTATUS(status) != 0) return -1;
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void BM_ConfigDisplayStartUp(benchmark::State& state) {
  double trivial = 0, netwarden = 0;
  for (auto _ : state) {
    const double t = TimeRun(kTrivial, {});
    const double n = TimeRun(kNetwarden, {"-ConfigDisplay"});
    if (t < 0 || n < 0) {
      state.SkipWithError("a program did not run or did not exit with 0");
      return;
    }
    trivial += t;
    netwarden += n;
  }
  const double runs = static_cast<double>(state.iterations());
  state.counters["trivial_ms"] = 1000 * trivial / runs;
  state.counters["configdisplay_ms"] = 1000 * netwarden / runs;
  // Target: at most 5.
  state.counters["ratio"] = netwarden / trivial;
}
BENCHMARK(BM_ConfigDisplayStartUp)->Unit(benchmark::kMillisecond)->MinTime(2.0)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
