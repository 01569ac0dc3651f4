#pragma once

// -disableUnusedNetDrivers: makes sure neither network driver stays loaded when the current
// policies do not need it. The firewall's kernel driver normally decides that itself; for the
// one range of prior engine releases that cannot, the command decides by hand.

#include <cstdint>

#include "cli/core_connection.h"
#include "cli/handlers.h"

namespace nw {

/// The deployed engine's version, from "host_base_version".
struct HostBaseVersion {
  uint32_t parts[5];
  /// The version text from its first digit on.
  wchar_t text[30];
};

/// ReadHostBaseVersion's flags: bit 0 waits for the version mutex instead of giving up while it
/// exists; bit 1 does not consult the mutex at all.
inline constexpr int32_t kVersionWaitForMutex = 1;
inline constexpr int32_t kVersionIgnoreMutex = 2;

/// The Windows errors ReadHostBaseVersion returns.
inline constexpr uint32_t kErrorBusy = 170;
inline constexpr uint32_t kErrorBadConfiguration = 1610;

/// What the evaluation asks of the rest of the system. The defaults are the real operations;
/// tests put fakes in their place.
struct LoadStateSteps {
  /// RequestDriverReevaluation: 0 when the kernel driver re-evaluated by itself.
  Status (*requestDriverReevaluation)();
  /// Whether any packet or stream policy exists (a failing query answers true).
  bool (*hasAnyPolicies)(IPolicyManager* manager);
  /// Whether any packet policy exists (a failing query answers true).
  bool (*hasPacketPolicies)(IPolicyManager* manager);
  void (*disableWfpDriver)(DriverLogFn log);
  void (*enableNdisDriver)(DriverLogFn log);
  void (*disableNdisDriver)(DriverLogFn log);
};

/// The real operations.
LoadStateSteps DefaultLoadStateSteps();

/// The evaluation with the given steps; DisableUnusedNetDrivers(connection) uses the defaults.
void DisableUnusedNetDrivers(CoreConnection* connection, const LoadStateSteps& steps);

/// The service's configured start type, read through the service control manager.
bool QueryServiceStartType(const wchar_t* service, uint32_t* startType);
/// Reads and parses the deployed version into *version (zeroed first). Returns 0, 170 while
/// the version mutex exists (unless asked to wait or to ignore it), 2 when the HostBase key
/// cannot be opened, 1610 when the value is missing, not REG_SZ, unterminated within 100
/// characters, or version is null.
uint32_t ReadHostBaseVersion(int32_t flags, HostBaseVersion* version);
/// Whether the deployed engine allows the driver named by valueName to be loaded dynamically
/// ("dynamicNetworkWFP" or "dynamicNetworkNDIS" equal to 1).
bool ReadDynamicNetworkFlag(const wchar_t* valueName);

}  // namespace nw
