#pragma once

// The parts of the emulated Windows host that the driver commands use: services and their run
// state, the network configuration's components and write lock, named mutexes, the OS version
// and the self-protection component. Read from the host file with the rest of the host; every
// change is written back into that file atomically, so that the next run sees it.

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "sim/common/fault_rules.h"
#include "sim/common/json_util.h"

namespace nw::sim {

struct HostService {
  std::string spelling;  // the name as the host file writes it
  bool running = false;
  /// The Windows error a stop or a start fails with, when the service refuses it.
  std::optional<uint32_t> refuseStop;
  std::optional<uint32_t> refuseStart;
};

struct HostOsVersion {
  uint32_t major = 10;
  uint32_t minor = 0;
  uint32_t build = 19045;
  uint16_t servicePackMajor = 0;
  uint16_t servicePackMinor = 0;
};

struct DriverHost {
  /// Services the service control manager knows, by upper-case name. Their configuration
  /// (Type, Start, ErrorControl, ImagePath, ...) is in the registry, as on Windows.
  std::map<std::wstring, HostService> services;

  /// Registered network components (PnP ids as written).
  std::vector<std::wstring> components;
  /// Whether some client holds the configuration's write lock, and the name it gave (nullopt
  /// when it gave none).
  bool writeLockHeld = false;
  std::optional<std::wstring> writeLockHolder;
  /// Results the INetCfg operations give instead of their own ("INetCfg::Apply", ...).
  std::map<std::string, FaultRules> netcfgResults;

  /// Named mutexes that exist (names are case-sensitive, as Windows object names are).
  std::vector<std::wstring> mutexes;

  /// nullopt: RtlGetVersion is not available.
  std::optional<HostOsVersion> osVersion = HostOsVersion{};

  /// Whether the host has a self-protection component at all.
  bool selfProtection = false;
  /// Service keys it is set to hold locked, and those whose lock is lifted at the moment (both
  /// upper case). A key is locked when it is in the first and not in the second.
  std::set<std::wstring> lockedKeys;
  std::set<std::wstring> liftedKeys;
  /// When set, every exception is refused with this error.
  std::optional<uint32_t> refuseExceptions;
};

/// The calls of the service control manager and the mutexes that "faults" can make fail.
inline constexpr const char* kDriverHostFaults[] = {
    "OpenSCManager", "OpenService",        "ChangeServiceConfig", "ControlService",
    "StartService",  "QueryServiceConfig", "OpenMutex",           "WaitForSingleObject"};

/// Reads the driver sections of a host document into *host.
bool ParseDriverHost(const Json& doc, JsonChecker& check, DriverHost* host);

/// The registry path of a service's key, upper case as the emulated registry stores keys.
std::wstring ServiceKeyPath(const std::wstring& service);
/// The service whose key (or a key below it) path names, upper case; empty when none.
std::wstring ServiceOfKeyPath(const std::wstring& upperPath);
/// Whether the self-protection component holds service's key locked right now.
bool ServiceKeyLocked(const std::wstring& service);

// Changes, each written back to the host file before the emulated host takes it on. False with
// *error set when the file cannot be written; the host is then unchanged.
bool SetServiceRunning(const std::wstring& service, bool running, std::string* error);
bool SetServiceKeyLifted(const std::wstring& service, bool lifted, std::string* error);
bool SetNetComponents(const std::vector<std::wstring>& components, std::string* error);
bool SetWriteLock(bool held, const std::optional<std::wstring>& holder, std::string* error);

/// What the program holds on the emulated host right now, so that what it leaves behind at
/// exit can be reported.
struct HostUsage {
  int comApartments = 0;
  int netcfgObjects = 0;
  int taskMemoryBlocks = 0;
  int serviceHandles = 0;
  int mutexHandles = 0;
  int registryKeys = 0;
  bool writeLockHeld = false;
  std::set<std::wstring> liftedKeys;
  std::map<std::wstring, int> exceptions;  // by service, the number held
};
HostUsage& Usage();

/// Writes one "host: leak: ..." line to the debugger output for everything the program left
/// open, lifted or held. Called by the entry point after the run.
void ReportHostLeaks();

}  // namespace nw::sim
