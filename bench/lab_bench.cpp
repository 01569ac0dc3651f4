// The lab's questions over a large host, once it is loaded: explain a connection, find the rules
// that mention an address, compare two hosts that differ in 1% of their rules. The host is the
// 10,000-policy set (20 rules of 3 matches each) listed in full, as a capture of it holds it;
// loading a capture from its file is measured apart (bench/lab_commands.sh).

#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <vector>

#include "lab/diff.h"
#include "lab/explain.h"
#include "lab/find.h"
#include "sim/common/scenario.h"
#include "sim/common/scenario_policies.h"

namespace {

using nw::sim::PolicyModel;
using nw::sim::Scenario;

// The generated set, every policy built and listed, as it is after loading a capture.
Scenario ListedHost() {
  const nw::sim::GeneratedPolicies set{10000, 20, 3, 1};
  Scenario host;
  host.policies.policies.reserve(set.count);
  for (uint32_t i = 0; i < set.count; ++i) {
    host.policies.policies.push_back(
        std::make_shared<const PolicyModel>(nw::sim::GeneratePolicy(set, i)));
  }
  return host;
}

const Scenario& Host() {
  static const Scenario host = ListedHost();
  return host;
}

void BM_Explain(benchmark::State& state) {
  nw::lab::Connection connection;
  nw::lab::ParseProtocol("tcp", &connection.protocol);
  nw::lab::ParseEndpoint("10.0.0.1:49152", &connection.localAddress, &connection.localPort);
  nw::lab::ParseEndpoint("192.0.2.77:443", &connection.remoteAddress, &connection.remotePort);
  std::vector<nw::lab::PolicyVerdict> verdicts;
  std::string error;
  const Scenario& host = Host();  // built before the clock starts
  for (auto _ : state) {
    verdicts.clear();
    if (!nw::lab::ExplainConnection(host, connection, &verdicts, &error)) {
      state.SkipWithError(error.c_str());
    }
    benchmark::DoNotOptimize(verdicts.data());
  }
  state.counters["policies"] = static_cast<double>(verdicts.size());
}
BENCHMARK(BM_Explain)->Unit(benchmark::kMillisecond);

void BM_FindAddress(benchmark::State& state) {
  nw::lab::Query query;
  std::string error;
  nw::lab::ParseQuery("ip:10.1.2.3", &query, &error);
  size_t found = 0;
  for (auto _ : state) {
    const auto rules = nw::lab::FindRules(Host(), {query});
    found = rules.size();
    benchmark::DoNotOptimize(found);
  }
  state.counters["rules"] = static_cast<double>(found);
}
BENCHMARK(BM_FindAddress)->Unit(benchmark::kMillisecond);

// B is A with every hundredth rule's first term changed.
void BM_Diff(benchmark::State& state) {
  Scenario changed = Host();
  size_t rule = 0, edited = 0;
  for (auto& shared : changed.policies.policies) {
    auto policy = std::make_shared<PolicyModel>(*shared);
    for (auto& group : policy->groups) {
      for (auto& r : group.rules) {
        if (rule++ % 100 != 0 || r.matches.empty() || r.matches[0].terms.empty()) continue;
        r.matches[0].terms[0].op ^= 1;
        ++edited;
      }
    }
    shared = std::move(policy);
  }
  size_t differences = 0;
  for (auto _ : state) {
    differences = nw::lab::DiffScenarios(Host(), changed).size();
    benchmark::DoNotOptimize(differences);
  }
  state.counters["rules_changed"] = static_cast<double>(edited);
  state.counters["differences"] = static_cast<double>(differences);
}
BENCHMARK(BM_Diff)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
