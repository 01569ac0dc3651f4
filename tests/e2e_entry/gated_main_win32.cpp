// The test driver on Windows: the run with the gate open. Every platform call is the real one
// except the clock: when NETWARDEN_HOST names a host file with a "clock", that scripted clock
// stands in for the performance counter and the time-stamp counter, so that the profiling
// report's figures are the same as on the emulated host.

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>

#include "base/format.h"
#include "cli/dispatcher.h"
#include "platform/clock.h"
#include "sim/common/json_util.h"
#include "sim/host/host_clock.h"

namespace {

bool ReadScriptedClock(std::optional<nw::sim::HostClock>* clock, std::string* error) {
  const wchar_t* file = _wgetenv(L"NETWARDEN_HOST");
  if (file == nullptr || *file == L'\0') return true;
  const std::string name = nw::WideToUtf8(file);
  nw::sim::Json doc;
  if (!nw::sim::LoadJsonFile(name, &doc, error)) return false;
  nw::sim::JsonChecker check(name);
  if (!check.Object(doc, "")) {
    *error = check.error();
    return false;
  }
  auto it = doc.find("clock");
  if (it != doc.end() && !nw::sim::ParseHostClock(check, *it, "/clock", clock)) {
    *error = check.error();
    return false;
  }
  return true;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  std::optional<nw::sim::HostClock> clock;
  std::string error;
  if (!ReadScriptedClock(&clock, &error)) {
    std::fprintf(stderr, "netwarden-gated-test: bad host state: %s\n", error.c_str());
    return 2;
  }
  std::optional<nw::sim::ScriptedClock> scripted;
  if (clock) {
    scripted.emplace(&*clock);
    nw::platform::Facility<nw::platform::Clock>::SetForTesting(&*scripted);
  }
  return nw::RunWithGateOpen(argc, argv);
}
