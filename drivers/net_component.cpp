#include "drivers/net_component.h"

#include <vector>

#include "drivers/service_control.h"

namespace nw {
namespace {

using platform::Failed;
using platform::HResult;

constexpr const wchar_t* kComponentKey = L"kvxfire";

/// Every install and removal is made on behalf of the user.
constexpr platform::OboToken kUserToken = {
    platform::kOboUser, nullptr, nullptr, nullptr, nullptr, 0};

/// Gives back everything GetINetCfg may have obtained when it fails.
HResult FailGetINetCfg(NetConfigHelper* helper, HResult hr, wchar_t* holder) {
  helper->log("NetConfigHelper::GetINetCfg - FAILED %x!\n", hr);
  if (helper->lock != nullptr) helper->lock->Release();
  if (helper->netCfg != nullptr) helper->netCfg->Release();
  helper->lock = nullptr;
  helper->netCfg = nullptr;
  if (holder != nullptr) platform::TheNetConfig().CoTaskMemFree(holder);
  return hr;
}

template <class T>
void ReleaseIfHeld(T* object) {
  if (object != nullptr) object->Release();
}

/// A query that claims success but hands out nothing has failed all the same. object is read
/// by reference, after the query has filled it.
template <class T>
HResult Obtained(HResult hr, T* const& object) {
  return !Failed(hr) && object == nullptr ? platform::kEFail : hr;
}

}  // namespace

HResult GetINetCfg(NetConfigHelper* helper) {
  DriverLogFn log = helper->log;
  HResult hr = Obtained(platform::TheNetConfig().CreateNetCfg(&helper->netCfg), helper->netCfg);
  if (Failed(hr)) {
    helper->netCfg = nullptr;
    log("NetConfigHelper::GetINetCfg - CoCreateInstance Failed (CLSID_CNetCfg) (IID_INetCfg) "
        "%x!\n",
        hr);
    return FailGetINetCfg(helper, hr, nullptr);
  }
  if (helper->readOnly) {
    hr = helper->netCfg->Initialize(nullptr);
    if (!Failed(hr)) return hr;
    log("NetConfigHelper::GetINetCfg - Unable to Initialize mpNetCfg %x!\n", hr);
    return FailGetINetCfg(helper, hr, nullptr);
  }
  hr = Obtained(helper->netCfg->QueryLock(&helper->lock), helper->lock);
  if (Failed(hr)) {
    helper->lock = nullptr;
    log("NetConfigHelper::GetINetCfg - QueryInterface Failed to get IID_INetCfgLock from "
        "IID_INetCfg %x!\n",
        hr);
    return FailGetINetCfg(helper, hr, nullptr);
  }
  wchar_t* holder = nullptr;
  hr = helper->lock->AcquireWriteLock(kWriteLockTimeoutMs, helper->clientDescription, &holder);
  if (Failed(hr)) {
    log("NetConfigHelper::GetINetCfg - Error trying to AcquireWriteLock on IID_INetCfgLock %x!\n",
        hr);
    return FailGetINetCfg(helper, hr, holder);
  }
  if (hr == platform::kSFalse) {
    log("NetConfigHelper::GetINetCfg - Unable to AcquireWriteLock on IID_INetCfgLock, lock "
        "timeout was %d (current owner %ls)!\n",
        kWriteLockTimeoutMs, holder != nullptr ? holder : L"Unknown");
    return FailGetINetCfg(helper, platform::kNetCfgENoWriteLock, holder);
  }
  hr = helper->netCfg->Initialize(nullptr);
  if (!Failed(hr)) {
    if (holder != nullptr) platform::TheNetConfig().CoTaskMemFree(holder);
    return hr;
  }
  log("NetConfigHelper::GetINetCfg - Unable to Initialize mpNetCfg %x!\n", hr);
  helper->lock->ReleaseWriteLock();
  return FailGetINetCfg(helper, hr, holder);
}

HResult ReleaseINetCfg(NetConfigHelper* helper) {
  HResult hr = platform::kSOk;
  if (helper->netCfg != nullptr) {
    hr = helper->netCfg->Uninitialize();
    if (Failed(hr)) {
      helper->log("NetConfigHelper::ReleaseINetCfg - failed to uninitialize INetCfg %x!\n", hr);
    }
  }
  if (!helper->readOnly && helper->lock != nullptr) {
    hr = helper->lock->ReleaseWriteLock();
    if (Failed(hr)) {
      helper->log("NetConfigHelper::ReleaseINetCfg - failed to release write lock %x!\n", hr);
    }
    helper->lock->Release();
    helper->lock = nullptr;
  }
  ReleaseIfHeld(helper->netCfg);
  helper->netCfg = nullptr;
  return hr;
}

std::wstring GetNetComponentPnpId(const wchar_t* service) {
  ServiceKey key = ServiceKey::ForComponent(kComponentKey);
  const std::wstring valueName = std::wstring(L"PnPID_") + service;
  // Most ids fit the first buffer; a longer one gets a second, larger try.
  for (uint32_t chars : {kPnpIdChars, kLongPnpIdChars}) {
    std::vector<wchar_t> buffer(chars);
    if (ReadRegistryString(key, valueName.c_str(), buffer.data(), chars)) {
      return std::wstring(buffer.data());
    }
  }
  return std::wstring();
}

HResult installNetCfg(NetConfigHelper* helper, const Guid* deviceClass, const wchar_t* service,
                      DriverLogFn log) {
  const std::wstring pnpId = GetNetComponentPnpId(service);
  if (pnpId.empty()) {
    log("installNetCfg() PnP ID not found for [%ls]. This is normal if the driver is not "
        "deployed. Exiting\n",
        service);
    return platform::kSOk;
  }
  platform::NetCfgClassSetup* setup = nullptr;
  HResult hr = Obtained(helper->netCfg->QueryNetCfgClassSetup(deviceClass, &setup), setup);
  if (Failed(hr)) {
    log("Failed to get IID_INetCfgClassSetup, hr=%x\n", hr);
  } else {
    log("Installing %ls...\n", pnpId.c_str());
    hr = setup->Install(pnpId.c_str(), &kUserToken, 0, 0, nullptr, nullptr, nullptr);
    log("pClassSetup->Install returned hr=%x\n", hr);
    setup->Release();
  }
  if (hr == platform::kSOk || hr == platform::kNetCfgSReboot) {
    log("Applying changes...\n");
    hr = helper->netCfg->Apply();
    if (hr == platform::kSOk) {
      log("Successfully applied changes!\n");
    } else if (hr == platform::kNetCfgSReboot) {
      log("Reboot is needed for the changes to take effect!\n");
    } else {
      log("Failed to apply changes, hr=%x\n", hr);
    }
  } else {
    log("Failed netcfg install\n");
  }
  log("installNetCfg hr=%x\n", hr);
  return hr;
}

HResult uninstallNetCfg(NetConfigHelper* helper, const wchar_t* service, DriverLogFn log) {
  const std::wstring pnpId = GetNetComponentPnpId(service);
  if (pnpId.empty()) {
    log("uninstallNetCfg() PnP ID not found for [%ls]. This is normal if the driver is not "
        "deployed. Exiting\n",
        service);
    return platform::kSOk;
  }
  log("Looking for net component %ls\n", pnpId.c_str());
  platform::NetCfgComponent* component = nullptr;
  HResult hr = helper->netCfg->FindComponent(pnpId.c_str(), &component);
  if (hr == platform::kSFalse) {
    log("INetCfg::FindComponent worked but returned no component. We most not be registered "
        "with NDIS. Continuing with the rest of the uninstall.\n");
    ReleaseIfHeld(component);
    return platform::kSOk;
  }
  if (hr != platform::kSOk) {
    log("Failed to find component, hr=%x\n", hr);
    ReleaseIfHeld(component);
    return hr;
  }
  // Each step needs what the one before obtained; the first failure ends the chain.
  platform::NetCfgClass* netClass = nullptr;
  platform::NetCfgClassSetup* setup = nullptr;
  log("Calling  pNetCfgCmp->GetClassGuid\n");
  Guid classGuid{};
  hr = component != nullptr ? component->GetClassGuid(&classGuid) : platform::kEFail;
  if (Failed(hr)) {
    log("pNetCfgCmp->GetClassGuid failed, hr=%x\n", hr);
  } else {
    hr = Obtained(helper->netCfg->QueryNetCfgClass(&classGuid, &netClass), netClass);
    if (Failed(hr)) {
      log("Failed to get IID_INetCfgClass, hr=%x\n", hr);
    } else {
      hr = Obtained(netClass->QueryClassSetup(&setup), setup);
      if (Failed(hr)) {
        log("Failed to get IID_INetCfgClassSetup, hr=%x\n", hr);
      } else {
        log("Uninstalling %ls...\n", pnpId.c_str());
        hr = setup->DeInstall(component, &kUserToken, nullptr);
        log("Uninstall returned hr=%x\n", hr);
        if (hr == platform::kSOk || hr == platform::kNetCfgSReboot) {
          log("Uninstall succeeded, applying changes...\n");
          hr = helper->netCfg->Apply();
          if (hr == platform::kSOk) {
            log("Successfully applied changes...\n");
          } else if (hr == platform::kNetCfgSReboot) {
            log("Reboot is needed for the changes to take effect!\n");
          } else {
            log("Failed to apply changes, hr=%x\n", hr);
          }
        }
      }
    }
  }
  ReleaseIfHeld(setup);
  ReleaseIfHeld(netClass);
  ReleaseIfHeld(component);
  return hr;
}

bool IsNetComponentRegistered(const wchar_t* service, DriverLogFn log) {
  const std::wstring pnpId = GetNetComponentPnpId(service);
  if (pnpId.empty()) {
    log("uninstallNetCfg() PnP ID not found for [%ls]. This is normal if the driver is not "
        "deployed. Exiting\n",
        service);
    return false;
  }
  log("Looking for net component %ls\n", pnpId.c_str());
  NetConfigHelper helper;
  helper.log = log;
  helper.readOnly = true;
  const HResult got = GetINetCfg(&helper);
  if (Failed(got)) {
    log("Failed to get INetCfg [%d]\n", got);
    return false;
  }
  platform::NetCfgComponent* component = nullptr;
  const HResult hr = helper.netCfg->FindComponent(pnpId.c_str(), &component);
  const bool registered = hr == platform::kSOk;
  if (!registered) log("Failed to find component [%ls] [%d]\n", pnpId.c_str(), hr);
  ReleaseIfHeld(component);
  const HResult uninitialized = helper.netCfg->Uninitialize();
  if (Failed(uninitialized)) {
    log("NetConfigHelper::ReleaseINetCfg - failed to uninitialize INetCfg %x!\n", uninitialized);
  }
  helper.netCfg->Release();
  return registered;
}

HResult InstallNetCfgWithLock(const Guid* deviceClass, const wchar_t* service, DriverLogFn log) {
  NetConfigHelper helper;
  helper.log = log;
  helper.clientDescription = DriverClientTag;
  const HResult got = GetINetCfg(&helper);
  if (Failed(got)) {
    log("Failed to get INetCfg, hr=%x\n", got);
    return got;
  }
  const HResult hr = installNetCfg(&helper, deviceClass, service, log);
  ReleaseINetCfg(&helper);
  return hr;
}

HResult UninstallNetCfgWithLock(const wchar_t* service, DriverLogFn log) {
  NetConfigHelper helper;
  helper.log = log;
  helper.clientDescription = DriverClientTag;
  const HResult got = GetINetCfg(&helper);
  if (Failed(got)) {
    log("Failed to get INetCfg, hr=%x\n", got);
    return got;
  }
  const HResult hr = uninstallNetCfg(&helper, service, log);
  ReleaseINetCfg(&helper);
  return hr;
}

}  // namespace nw
