#pragma once

// Registering the NDIS filter as a network component through the Windows network configuration
// (the INetCfg family): the write lock, install by PnP id, find and de-install, apply, and the
// lock-free probe of whether the component is registered. The caller has initialised COM on the
// thread.

#include <cstdint>
#include <string>

#include "cli/handlers.h"
#include "core/guid.h"
#include "platform/net_config.h"

namespace nw {

/// One use of the network configuration, from GetINetCfg to ReleaseINetCfg.
struct NetConfigHelper {
  platform::NetCfg* netCfg = nullptr;    ///< owned reference; null when not held
  platform::NetCfgLock* lock = nullptr;  ///< owned reference; null when not held
  DriverLogFn log = nullptr;
  const wchar_t* clientDescription = nullptr;  ///< the lock holder's name; null for the probe
  bool readOnly = false;                       ///< no write lock is taken or released
};

/// How long GetINetCfg waits for the write lock.
inline constexpr uint32_t kWriteLockTimeoutMs = 5000;
/// Characters of the first and the second attempt to read a PnP id.
inline constexpr uint32_t kPnpIdChars = 256;
inline constexpr uint32_t kLongPnpIdChars = 512;

/// Creates and initialises an INetCfg in helper (with its write lock unless read-only). Returns
/// the HRESULT; on failure the helper holds nothing.
platform::HResult GetINetCfg(NetConfigHelper* helper);
/// Uninitialises, gives the write lock back and releases; every step runs. Returns the result
/// of the last step that reports one.
platform::HResult ReleaseINetCfg(NetConfigHelper* helper);
/// The component's INF id from "PnPID_<service>" of the kvxfire key; empty when there is none.
std::wstring GetNetComponentPnpId(const wchar_t* service);
/// Installs service's component in deviceClass and applies the change; 0 when the driver is not
/// deployed (no PnP id). NETCFG_S_REBOOT when a reboot is needed.
platform::HResult installNetCfg(NetConfigHelper* helper, const Guid* deviceClass,
                                const wchar_t* service, DriverLogFn log);
/// Finds service's component, de-installs it and applies the change; 0 when the driver is not
/// deployed or its component is not registered.
platform::HResult uninstallNetCfg(NetConfigHelper* helper, const wchar_t* service, DriverLogFn log);
/// Whether service's component is registered, asked without the write lock.
bool IsNetComponentRegistered(const wchar_t* service, DriverLogFn log);

/// installNetCfg (uninstallNetCfg) with a helper of its own that holds the write lock for the
/// client "netwarden" around it.
platform::HResult InstallNetCfgWithLock(const Guid* deviceClass, const wchar_t* service,
                                        DriverLogFn log);
platform::HResult UninstallNetCfgWithLock(const wchar_t* service, DriverLogFn log);

}  // namespace nw
