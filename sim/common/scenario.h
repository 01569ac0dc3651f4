#pragma once

// The scenario a simulated library plays: what the host's firewall looks like and which of its
// operations fail. Both simulated libraries read the same file, each into its own copy.

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sim/common/fault_rules.h"
#include "sim/common/json_util.h"
#include "sim/common/scenario_policies.h"
#include "sim/common/scenario_profile.h"
#include "sim/common/scenario_tables.h"

namespace nw::sim {

/// The environment variable naming the scenario file; unset or empty selects the built-in one.
inline constexpr const char* kScenarioVariable = "KVX_SIM_STATE";
/// How messages name the scenario embedded in the libraries.
inline constexpr const char* kBuiltInScenarioName = "<built-in scenario>";

struct ServiceState {
  /// When false, registering and unregistering fail as with the service stopped.
  bool running = true;
};

struct DebugOptions {
  /// One debugger-output line per operation and per Release.
  bool trace = false;
  /// One debugger-output line per object still referenced when the library is told to unload.
  bool reportLeaks = true;
  /// One debugger-output line per call of an operation, before it runs, with its arguments:
  /// of every interface, or of those named in callInterfaces when it is not empty.
  bool calls = false;
  std::vector<std::string> callInterfaces;
};

struct DriverLinkState {
  /// When false, connecting to the firewall's kernel driver fails as with the driver absent.
  bool driverRunning = true;
  /// When false, the driver was built without its profiler and refuses the profiling requests.
  bool profiler = true;
  /// What the profiler holds; empty (no records, all times 0) unless the scenario says.
  DriverProfile profile;
};

/// The core's global settings: what the configuration builder sets and the snapshot shows. The
/// initial values are the core's defaults, which ResetToDefaults restores. Integers are the
/// 32 bits the core keeps; the snapshot hands them out signed.
struct GlobalSettings {
  uint32_t maxKernelLogQueueSize = 1048576;
  uint32_t maxPointProductReplyTime = 30;
  bool globalPassthru = false;
  bool packetPassthru = false;
  bool streamPassthru = false;
  uint32_t traceLogMask = 0x00000003;
  bool trafficLog = false;
  uint32_t maxTrafficLogSize = 10485760;
  uint32_t maxStateTableSize = 65536;
  uint32_t stateTableGcPeriod = 30;
  uint32_t stateTableTcpTimeout = 120;
  uint32_t stateTableUdpTimeout = 60;
  uint32_t stateTableForcedTcpTimeout = 86400;
  uint32_t logThrottle = 1000;
  bool trackForwardedConnections = false;
  uint32_t stateTableTcpConnRemovalTimeout = 10;
  uint32_t connectionThrottleBurstThreshold = 1000;
  uint32_t connectionThrottleMaxConnectionsRate = 200;

  bool operator==(const GlobalSettings&) const = default;
};

/// The build versions the core reports; a missing one is reported as null.
struct CoreVersions {
  std::optional<std::wstring> service = L"4.12.305.0";
  std::optional<std::wstring> engine = L"4.12.305.0";
  std::optional<std::wstring> controlLibrary = L"4.12.305.0";
};

/// Which of the core's hooks are connected, by policy type.
struct HookState {
  bool fragment = false;
  bool packet = true;
  bool forward = false;
  bool stream = true;
};

struct Scenario {
  ServiceState service;
  /// Injected failures by operation name, or "name:item" for one item of an operation.
  std::map<std::string, FaultRules, std::less<>> faults;
  DebugOptions debug;
  DriverLinkState driverLink;
  CoreVersions versions;
  HookState hooks;
  GlobalSettings config;
  /// The core's policies.
  PolicyStore policies;
  /// Adapters, addresses, connections, endpoints and processes (scenario_tables.h).
  RuntimeTables tables;

  /// What a capture could not read back through the core's getters, one line each ("capture":
  /// {"notes": [...]}); the simulated libraries do not use it.
  std::vector<std::string> captureNotes;

  /// The file the scenario came from, or kBuiltInScenarioName.
  std::string source;
  /// The document as read, for sections that later readers interpret themselves.
  Json document;
};

/// Checks and converts a scenario document. On failure returns false and sets *error to
/// "<source>: <JSON path>: expected <what>".
bool ParseScenario(const Json& doc, const std::string& source, Scenario* out, std::string* error);

/// Reads the scenario file, or the built-in text when file is empty. On failure returns false
/// and sets *error to a one-line reason that starts with the file (or kBuiltInScenarioName).
bool LoadScenario(const std::string& file, std::string_view builtInText, Scenario* out,
                  std::string* error);

/// How many calls each fault entry has seen, by the entry's name.
using FaultCalls = std::map<std::string, uint64_t, std::less<>>;

/// The status one call of an operation is made to fail with, if any. operation is a plain name
/// ("Register") or one qualified by its interface ("IGlobalConfigBuilder::Refresh"). The call
/// counts for every entry that names it ("<qualified>:<item>", "<plain>:<item>", "<qualified>",
/// "<plain>"), each in its own count in *calls; of the entries whose rules hit their count, the
/// most particular, in that order, decides.
std::optional<int32_t> FindFault(const Scenario& scenario, FaultCalls* calls,
                                 std::string_view operation, std::string_view item = {});

/// The "config" section as a scenario writes it, every setting present.
Json GlobalSettingsToJson(const GlobalSettings& settings);

/// The scenario as a file holds it: every section of the host's state (service, faults,
/// versions, hooks, config, the runtime tables, the blacklist, the policies) and the capture's
/// notes, so that ParseScenario reads back what was written. The debugger options and the
/// driver link are not written: they describe a test run, not a host.
Json ScenarioToJson(const Scenario& scenario);

}  // namespace nw::sim
