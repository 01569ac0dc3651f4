#include "drivers/load_state.h"

#include <cstring>
#include <vector>

#include "cli/console.h"
#include "cli/driver_link.h"
#include "cli/handlers.h"
#include "drivers/driver_actions.h"
#include "drivers/net_component.h"
#include "drivers/service_control.h"
#include "platform/named_mutex.h"
#include "platform/net_config.h"
#include "platform/registry.h"
#include "platform/service_manager.h"
#include "policy/policy_listing.h"

namespace nw {
namespace {

constexpr const wchar_t* kHostBaseKey = L"Software\\Korvane\\HostBase";
constexpr uint32_t kHostBaseKeyAccess = platform::kKeyRead | platform::kKeyWow64_32Key;
constexpr const wchar_t* kVersionMutex = L"Global\\kvxhidin";
constexpr uint32_t kVersionChars = 100;
constexpr const wchar_t* kComponentKeyPath =
    L"SYSTEM\\CurrentControlSet\\Services\\kvxmms\\Services\\kvxfire";

class ScmHandle {
 public:
  explicit ScmHandle(platform::ServiceHandle handle) : handle_(handle) {}
  ~ScmHandle() {
    if (handle_ != nullptr) platform::TheServiceManager().CloseServiceHandle(handle_);
  }
  ScmHandle(const ScmHandle&) = delete;
  ScmHandle& operator=(const ScmHandle&) = delete;
  platform::ServiceHandle get() const { return handle_; }

 private:
  platform::ServiceHandle handle_;
};

class RegistryKeyHolder {
 public:
  RegistryKeyHolder() = default;
  ~RegistryKeyHolder() {
    if (key_ != nullptr) platform::TheRegistry().CloseKey(key_);
  }
  RegistryKeyHolder(const RegistryKeyHolder&) = delete;
  RegistryKeyHolder& operator=(const RegistryKeyHolder&) = delete;
  platform::RegistryKey* out() { return &key_; }
  platform::RegistryKey get() const { return key_; }

 private:
  platform::RegistryKey key_ = nullptr;
};

class MutexHolder {
 public:
  MutexHolder() = default;
  ~MutexHolder() {
    if (mutex_ != nullptr) platform::TheMutexes().CloseHandle(mutex_);
  }
  MutexHolder(const MutexHolder&) = delete;
  MutexHolder& operator=(const MutexHolder&) = delete;
  void reset(platform::MutexHandle mutex) { mutex_ = mutex; }
  platform::MutexHandle get() const { return mutex_; }

 private:
  platform::MutexHandle mutex_ = nullptr;
};

/// Fills the version parts and the text from the stored string: digits build the current part,
/// the first non-digit after digits moves on to the next part, other characters are skipped.
void ParseVersion(const wchar_t* text, HostBaseVersion* version) {
  constexpr size_t kTextChars = sizeof version->text / sizeof version->text[0];
  size_t part = 0;
  bool inDigits = false;
  bool textTaken = false;
  for (const wchar_t* p = text; part < 5 && *p != L'\0'; ++p) {
    if (*p >= L'0' && *p <= L'9') {
      if (!textTaken) {
        textTaken = true;
        size_t n = 0;
        for (; n + 1 < kTextChars && p[n] != L'\0'; ++n) version->text[n] = p[n];
        version->text[n] = L'\0';
      }
      version->parts[part] = version->parts[part] * 10 + static_cast<uint32_t>(*p - L'0');
      inDigits = true;
    } else if (inDigits) {
      ++part;
      inDigits = false;
    }
  }
}

}  // namespace

LoadStateSteps DefaultLoadStateSteps() {
  return {RequestDriverReevaluation, HasAnyPolicies,   HasPacketPolicies,
          DisableWfpDriver,          EnableNdisDriver, DisableNdisDriver};
}

void DisableUnusedNetDrivers(CoreConnection* connection) {
  DisableUnusedNetDrivers(connection, DefaultLoadStateSteps());
}

void DisableUnusedNetDrivers(CoreConnection* connection, const LoadStateSteps& steps) {
  uint32_t wfpBefore = 0;
  uint32_t ndisBefore = 0;
  QueryServiceStartType(WfpDriverService, &wfpBefore);
  QueryServiceStartType(NdisDriverService, &ndisBefore);

  // A driver that cannot re-evaluate by itself belongs to a prior release; only one range of
  // those is known to need the evaluation done here.
  if (steps.requestDriverReevaluation() != 0) {
    HostBaseVersion version;
    if (ReadHostBaseVersion(kVersionIgnoreMutex, &version) != 0) {
      ConsolePrint(L"Failed to get HPL version information. Unable to evaluate latch state\n");
    } else {
      ConsolePrint(L"Deployed version of rtengine is [%d.%d.%d.%d]\n", version.parts[0],
                   version.parts[1], version.parts[2], version.parts[3]);
      if (version.parts[0] == 20 && version.parts[1] <= 11) {
        ConsolePrint(
            L"Performing manual re-evaluation of driver load requirements for prior release\n");
        IPolicyManager* policies = connection->policyManager;
        if (ReadDynamicNetworkFlag(L"dynamicNetworkWFP") && !steps.hasAnyPolicies(policies) &&
            wfpBefore != kStartTypeDisabled) {
          ConsolePrint(L"No policies present. Disabling kvxwfpk\n");
          steps.disableWfpDriver(PrintDriverLog);
        }
        if (ReadDynamicNetworkFlag(L"dynamicNetworkNDIS") && !steps.hasPacketPolicies(policies) &&
            ndisBefore != kStartTypeDisabled) {
          ConsolePrint(L"No packet policies present. Disabling kvxnflk\n");
          // The enable registers the component first, so that the disable's removal of it
          // has something to undo should a later step fail.
          steps.enableNdisDriver(PrintDriverLog);
          steps.disableNdisDriver(PrintDriverLog);
        }
      } else {
        ConsolePrint(L"Unable to evaluate latch state\n");
      }
    }
  }

  uint32_t wfpAfter = 0;
  uint32_t ndisAfter = 0;
  QueryServiceStartType(WfpDriverService, &wfpAfter);
  QueryServiceStartType(NdisDriverService, &ndisAfter);
  bool changed = false;
  if (wfpAfter != wfpBefore) {
    ConsolePrint(
        L"Driver load states re-evaluated, and the Korvane WFP driver has been disabled.\n");
    changed = true;
  }
  if (ndisAfter != ndisBefore) {
    ConsolePrint(
        L"Driver load states re-evaluated, and the Korvane NDIS driver has been disabled.\n");
    changed = true;
  }
  ConsolePrint(changed ? L"A reboot is required to unload driver(s).\n"
                       : L"No required changes were detected.\n");

  if (ndisAfter == kStartTypeDisabled) {
    platform::NetConfig& com = platform::TheNetConfig();
    com.CoInitialize();
    if (IsNetComponentRegistered(NdisDriverService, SilentDriverLog)) {
      ConsolePrint(
          L"The NDIS driver is disabled but registered. Unregistering NDIS driver (kvxnlfk).\n");
      steps.disableNdisDriver(SilentDriverLog);
    }
    com.CoUninitialize();
  }
  AdjustWfpImagePath(PrintDriverLog);
}

bool QueryServiceStartType(const wchar_t* service, uint32_t* startType) {
  platform::ServiceManager& scm = platform::TheServiceManager();
  uint32_t error = 0;
  ScmHandle manager(scm.OpenSCManager(platform::kGenericRead, &error));
  if (manager.get() == nullptr) {
    ConsolePrint(L"Failed to open service control manager [%d]\n", error);
    return false;
  }
  ScmHandle handle(scm.OpenService(manager.get(), service, platform::kGenericRead, &error));
  if (handle.get() == nullptr) {
    ConsolePrint(L"Failed to open service [%ls] [%d]\n", service, error);
    return false;
  }
  uint32_t needed = 0;
  if (scm.QueryServiceConfig(handle.get(), nullptr, 0, &needed, &error) ||
      error != kErrorInsufficientBuffer) {
    return false;
  }
  // The record is followed by its strings, so it is sized in bytes and kept pointer-aligned.
  std::vector<platform::ServiceConfig> buffer(needed / sizeof(platform::ServiceConfig) + 1);
  if (!scm.QueryServiceConfig(handle.get(), buffer.data(), needed, &needed, &error)) return false;
  *startType = buffer[0].startType;
  return true;
}

uint32_t ReadHostBaseVersion(int32_t flags, HostBaseVersion* version) {
  if (version != nullptr) std::memset(version, 0, sizeof *version);
  MutexHolder mutex;
  if ((flags & kVersionIgnoreMutex) == 0) {
    // The mutex exists while the product is updating the value: either give up or wait.
    uint32_t error = 0;
    mutex.reset(platform::TheMutexes().OpenMutex(platform::kSynchronize, kVersionMutex, &error));
    if (mutex.get() != nullptr) {
      if ((flags & kVersionWaitForMutex) == 0) return kErrorBusy;
      const uint32_t wait =
          platform::TheMutexes().WaitForSingleObject(mutex.get(), platform::kInfinite);
      if (wait == platform::kWaitObject0 || wait == platform::kWaitAbandoned) {
        platform::TheMutexes().ReleaseMutex(mutex.get());
      }
    }
  }
  RegistryKeyHolder key;
  if (platform::TheRegistry().OpenKey(platform::kHKeyLocalMachine, kHostBaseKey, kHostBaseKeyAccess,
                                      key.out()) != 0) {
    return kErrorFileNotFound;
  }
  wchar_t text[kVersionChars];
  uint32_t type = 0;
  uint32_t size = sizeof text;
  if (platform::TheRegistry().QueryValue(key.get(), L"host_base_version", &type, text, &size) !=
          0 ||
      type != platform::kRegSz || version == nullptr) {
    return kErrorBadConfiguration;
  }
  const size_t stored = size / sizeof(wchar_t);
  bool terminated = false;
  for (size_t i = 0; i < stored && !terminated; ++i) terminated = text[i] == L'\0';
  if (!terminated) return kErrorBadConfiguration;
  ParseVersion(text, version);
  return 0;
}

bool ReadDynamicNetworkFlag(const wchar_t* valueName) {
  platform::Registry& registry = platform::TheRegistry();
  RegistryKeyHolder key;
  const uint32_t opened = registry.OpenKey(platform::kHKeyLocalMachine, kComponentKeyPath,
                                           platform::kKeyRead, key.out());
  if (opened != 0) {
    ConsolePrint(L"Failed to open kvxfire MMS key [%d]\n", opened);
    return false;
  }
  // A DWORD's four bytes hold two UTF-16 characters on Windows; the buffer keeps room for two
  // characters of this host, so that a short text is judged by its type on every host.
  union {
    uint32_t dword;
    wchar_t text[2];
  } data = {};
  uint32_t type = 0;
  uint32_t size = sizeof data;
  uint32_t error = registry.QueryValue(key.get(), valueName, &type, &data, &size);
  const bool text =
      type == platform::kRegSz || type == platform::kRegExpandSz || type == platform::kRegMultiSz;
  if (error == 0 && !text && size > sizeof data.dword) error = kErrorMoreData;
  if (error != 0) {
    ConsolePrint(
        L"Unable to verify that the deployed version of rtengine supports dynamic network "
        L"driver loading [%ls] [%d]\n",
        valueName, error);
    return false;
  }
  if (type != platform::kRegDword) {
    // The number has always been 0 here, whatever the type was.
    ConsolePrint(L"Incorret registry value type for [%ls] [%d]\n", valueName, 0);
    return false;
  }
  return data.dword == 1;
}

}  // namespace nw
