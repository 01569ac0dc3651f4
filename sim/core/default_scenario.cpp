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
    "driverRunning": true,
    "profiler": true,
    "profile": {
      "counterTotal": 48,
      "startTime": 81234567890,
      "endTime": 81534567890,
      "profilePrice": 38,
      "counters": [
        {
          "file": "fwk\\filter\\packet.c",
          "function": "FwClassifyPacket",
          "line": 412,
          "hitCount": 1843211,
          "totalCycles": 2764816500,
          "minCycles": 610,
          "maxCycles": 98211
        },
        {
          "file": "fwk\\state\\conntable.c",
          "function": "ConnTableLookup",
          "line": 97,
          "hitCount": 1520044,
          "totalCycles": 638418480,
          "minCycles": 212,
          "maxCycles": 40117
        },
        {
          "file": "fwk\\stream\\reassembly.c",
          "function": "StreamReassemble",
          "line": 1288,
          "hitCount": 20417,
          "totalCycles": 408340000,
          "minCycles": 4100,
          "maxCycles": 1210554
        }
      ]
    }
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
