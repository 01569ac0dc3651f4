#pragma once

// The emulated Windows host behind the POSIX platform backend: registry, system directory,
// loader behaviour, signature results and faults, read from the JSON file named by
// NETWARDEN_HOST. Without that variable the host is empty: no registry values, loader
// hardening available, every signature judged on the file itself.

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "sim/common/fault_rules.h"
#include "sim/common/json_util.h"
#include "sim/host/host_clock.h"
#include "sim/host/host_services.h"

namespace nw::sim {

struct RegistryValue {
  std::wstring name;  // as written in the host file
  uint32_t type = 0;
  std::vector<uint8_t> data;  // strings: wchar_t text with its terminator
};

struct HostState {
  /// Registry keys by their full path in upper case ("HKEY_LOCAL_MACHINE\\SOFTWARE\\..."); values
  /// by their upper-case name.
  std::map<std::wstring, std::map<std::wstring, RegistryValue>> registry;
  std::wstring systemDirectory = L"C:\\Windows\\system32";
  /// "present", "missing" or "fails".
  std::string setDefaultDllDirectories = "present";
  /// Library names present in the system directory (upper case). Every Windows host has the
  /// two the signature verification binds and the XML reader; a host file that lists its own
  /// replaces them.
  std::vector<std::wstring> systemLibraries = {L"WINTRUST.DLL", L"CRYPT32.DLL", L"XMLLITE.DLL"};
  /// Verification results forced for a path, as the host file writes it (the verifier compares
  /// paths as the file system would see them, see platform/posix/paths_posix.h).
  std::map<std::wstring, int32_t> signatureResults;
  /// The POSIX directory each drive letter (upper case) stands for; "C:" is "/" unless the host
  /// file says otherwise, and other letters name no drive unless it lists them.
  std::map<wchar_t, std::string> drives = {{L'C', "/"}};
  /// When not empty, only files with one of these SHA-256 digests (lower-case hex) are trusted.
  std::vector<std::string> trustedSha256;
  /// Fault injection by facility call name ("RegOpenKeyEx", "WSAStartup", ...).
  std::map<std::string, FaultRules> faults;
  /// How many calls each fault entry and each chosen network-configuration result has seen.
  std::map<std::string, uint64_t> calls;
  /// A scripted clock in place of the host's own, when the file has one.
  std::optional<HostClock> clock;
  /// Services, network configuration, mutexes, OS version and self-protection.
  DriverHost drivers;

  std::string file;  // empty: no host file
  Json document;     // the file as read, so that writes keep what they do not change
};

/// Reads the host file named by NETWARDEN_HOST (once per process). Returns false with *error
/// naming the file, the JSON path and what was expected there.
bool LoadHostState(std::string* error);
/// Checks and converts a host document, as LoadHostState does with the file it read; out keeps
/// its file and document, which are the caller's to set. Returns false with *error naming
/// source, the JSON path and what was expected.
bool ParseHostState(const Json& doc, const std::string& source, HostState* out, std::string* error);
/// The loaded host; an empty host until LoadHostState succeeded.
HostState& Host();
/// Forgets the loaded host so that the next LoadHostState reads the variable again (tests).
void ResetHostStateForTesting();

/// Upper-cases the ASCII letters only, as the registry and file system compare names.
std::wstring UpperAscii(std::wstring_view text);
/// The fault injected for this call of a facility call (counted from the first), if any.
std::optional<int32_t> HostFault(const std::string& call);
/// The result "netcfg.results" chooses for this call of a network-configuration operation, if
/// any.
std::optional<int32_t> NetcfgResult(const std::string& operation);
/// Stores a registry value and writes the host file back atomically (when there is one).
bool SetHostRegistryValue(const std::wstring& keyPath, const RegistryValue& value,
                          std::string* error);

}  // namespace nw::sim
