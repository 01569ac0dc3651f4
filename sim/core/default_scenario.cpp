#include "sim/core/default_scenario.h"

namespace nw::sim {
namespace {

// Keep examples/default-scenario.json the same as this text.
constexpr std::string_view kDefaultScenario = R"json({
  "service": {
    "running": true
  },
  "faults": {},
  "debug": {
    "trace": false,
    "reportLeaks": true
  },
  "driverLink": {
    "driverRunning": true
  }
}
)json";

}  // namespace

std::string_view DefaultScenarioText() { return kDefaultScenario; }

}  // namespace nw::sim
