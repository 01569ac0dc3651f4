#pragma once

// The scenario a simulated library plays: what the host's firewall looks like and which of its
// operations fail. Both simulated libraries read the same file, each into its own copy.

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "sim/common/json_util.h"

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
};

struct DriverLinkState {
  /// When false, connecting to the firewall's kernel driver fails as with the driver absent.
  bool driverRunning = true;
};

struct Scenario {
  ServiceState service;
  /// Injected failures by operation name, or "name:item" for one item of an operation.
  std::map<std::string, int32_t, std::less<>> faults;
  DebugOptions debug;
  DriverLinkState driverLink;

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

/// The status an operation is made to fail with, if any. With an item ("68" for request code
/// 68), an entry for "operation:item" wins over one for the plain operation.
std::optional<int32_t> FindFault(const Scenario& scenario, std::string_view operation,
                                 std::string_view item = {});

}  // namespace nw::sim
