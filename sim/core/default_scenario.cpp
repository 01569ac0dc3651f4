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
  },
  "versions": {
    "service": "4.12.305.0",
    "engine": "4.12.305.0",
    "controlLibrary": "4.12.305.0"
  },
  "hooks": {
    "fragment": false,
    "packet": true,
    "forward": false,
    "stream": true
  },
  "config": {
    "maxKernelLogQueueSize": 1048576,
    "maxPointProductReplyTime": 30,
    "globalPassthru": false,
    "packetPassthru": false,
    "streamPassthru": false,
    "traceLogMask": 3,
    "trafficLog": false,
    "maxTrafficLogSize": 10485760,
    "maxStateTableSize": 65536,
    "stateTableGcPeriod": 30,
    "stateTableTcpTimeout": 120,
    "stateTableUdpTimeout": 60,
    "stateTableForcedTcpTimeout": 86400,
    "logThrottle": 1000,
    "trackForwardedConnections": false,
    "stateTableTcpConnRemovalTimeout": 10,
    "connectionThrottleBurstThreshold": 1000,
    "connectionThrottleMaxConnectionsRate": 200
  }
}
)json";

}  // namespace

std::string_view DefaultScenarioText() { return kDefaultScenario; }

}  // namespace nw::sim
