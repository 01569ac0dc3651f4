// Reading the simulator's JSON files stays close to linear in their size: one object of many
// fields (a scenario section, or the values of one registry key in a host file) is read in time
// proportional to its number of fields. For comparison, the insertion-ordered type the library
// ships, which searches every earlier field on each insert, on smaller objects.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>

#include "sim/common/json_util.h"
#include "sim/host/host_state.h"

namespace {

/// {"<section>": {"<prefix>000000": 0, ...}} with fields fields, in a file removed at exit.
class KeysFile {
 public:
  KeysFile(int64_t fields, const char* section, const char* prefix) {
    char name[] = "/tmp/nw-json-bench-XXXXXX";
    const int fd = ::mkstemp(name);
    ::close(fd);
    path_ = name;
    text_ = std::string("{\"") + section + "\": {";
    char field[64];
    for (int64_t i = 0; i < fields; ++i) {
      std::snprintf(field, sizeof field, "%s\"%s%06lld\": %lld", i == 0 ? "" : ", ", prefix,
                    static_cast<long long>(i), static_cast<long long>(i));
      text_ += field;
    }
    text_ += "}}\n";
    std::ofstream(path_, std::ios::binary) << text_;
  }
  ~KeysFile() { std::remove(path_.c_str()); }
  const std::string& path() const { return path_; }
  const std::string& text() const { return text_; }

 private:
  std::string path_;
  std::string text_;
};

void BM_LoadObjectOfManyFields(benchmark::State& state) {
  KeysFile file(state.range(0), "faults", "key");
  for (auto _ : state) {
    nw::sim::Json doc;
    std::string error;
    if (!nw::sim::LoadJsonFile(file.path(), &doc, &error)) state.SkipWithError(error.c_str());
    benchmark::DoNotOptimize(doc);
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(file.text().size()));
  state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_LoadObjectOfManyFields)
    ->Arg(10000)
    ->Arg(40000)
    ->Arg(160000)
    ->Unit(benchmark::kMillisecond)
    ->Complexity(benchmark::oN);

// The whole host file path: read, parse, and build the emulated registry from 160,000 values.
void BM_LoadHostWithManyRegistryValues(benchmark::State& state) {
  KeysFile file(state.range(0), "registry", "");
  // One key holding every value: {"registry": {"HKLM\\SOFTWARE\\Big": {...}}}.
  const std::string values = file.text().substr(std::string("{\"registry\": ").size());
  const std::string host =
      "{\"registry\": {\"HKLM\\\\SOFTWARE\\\\Big\": " + values.substr(0, values.size() - 2) +
      "}}\n";
  std::ofstream(file.path(), std::ios::binary) << host;
  ::setenv("NETWARDEN_HOST", file.path().c_str(), 1);
  for (auto _ : state) {
    nw::sim::ResetHostStateForTesting();
    std::string error;
    if (!nw::sim::LoadHostState(&error)) state.SkipWithError(error.c_str());
  }
  ::unsetenv("NETWARDEN_HOST");
  nw::sim::ResetHostStateForTesting();
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(host.size()));
}
BENCHMARK(BM_LoadHostWithManyRegistryValues)->Arg(160000)->Unit(benchmark::kMillisecond);

// The type the files were read with before: every insert searches the fields before it.
void BM_OrderedJsonForComparison(benchmark::State& state) {
  KeysFile file(state.range(0), "faults", "key");
  for (auto _ : state) {
    auto doc = nlohmann::ordered_json::parse(file.text());
    benchmark::DoNotOptimize(doc);
  }
  state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_OrderedJsonForComparison)
    ->Arg(5000)
    ->Arg(10000)
    ->Arg(20000)
    ->Unit(benchmark::kMillisecond)
    ->Complexity(benchmark::oNSquared);

}  // namespace

BENCHMARK_MAIN();
