#pragma once

// The Windows network configuration service (the INetCfg family of COM interfaces), reduced to
// the operations that driver registration uses, with their published result codes. Each object
// below stands for one COM reference: Release gives it back, and the object is gone afterwards.

#include <cstdint>

#include "core/guid.h"
#include "platform/facility.h"

namespace nw::platform {

using HResult = int32_t;

inline constexpr HResult kSOk = 0;
inline constexpr HResult kSFalse = 1;
/// A change that takes effect only after a reboot (a success).
inline constexpr HResult kNetCfgSReboot = 0x0004A020;
/// The write lock is held by another client.
inline constexpr HResult kNetCfgENoWriteLock = static_cast<HResult>(0x8004A024u);
inline constexpr HResult kNetCfgEAlreadyInitialized = static_cast<HResult>(0x8004A020u);
inline constexpr HResult kNetCfgENotInitialized = static_cast<HResult>(0x8004A021u);
inline constexpr HResult kCoENotInitialized = static_cast<HResult>(0x800401F0u);
inline constexpr HResult kENotImpl = static_cast<HResult>(0x80004001u);
inline constexpr HResult kEInvalidArg = static_cast<HResult>(0x80070057u);
inline constexpr HResult kEFail = static_cast<HResult>(0x80004005u);

inline bool Failed(HResult hr) { return hr < 0; }

/// The device class of network services, where the NDIS filter is installed.
inline constexpr Guid kGuidDevClassNetService = {
    0x4D36E974, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}};

/// OBO_TOKEN: on whose behalf a component is installed or removed.
inline constexpr uint32_t kOboUser = 1;
struct OboToken {
  uint32_t type;
  void* component;
  const wchar_t* manufacturer;
  const wchar_t* product;
  const wchar_t* displayName;
  int32_t registered;
};

/// INetCfgComponent.
class NetCfgComponent {
 public:
  virtual uint32_t Release() = 0;
  virtual HResult GetClassGuid(Guid* classGuid) = 0;

 protected:
  ~NetCfgComponent() = default;
};

/// INetCfgClassSetup.
class NetCfgClassSetup {
 public:
  virtual uint32_t Release() = 0;
  /// Install(id, obo, setup flags, upgrade-from build, answer file, answer sections, component
  /// out); component may be null.
  virtual HResult Install(const wchar_t* id, const OboToken* obo, uint32_t setupFlags,
                          uint32_t upgradeFromBuild, const wchar_t* answerFile,
                          const wchar_t* answerSections, NetCfgComponent** component) = 0;
  /// DeInstall(component, obo, references out); references may be null.
  virtual HResult DeInstall(NetCfgComponent* component, const OboToken* obo,
                            wchar_t** references) = 0;

 protected:
  ~NetCfgClassSetup() = default;
};

/// INetCfgClass.
class NetCfgClass {
 public:
  virtual uint32_t Release() = 0;
  /// QueryInterface for IID_INetCfgClassSetup.
  virtual HResult QueryClassSetup(NetCfgClassSetup** setup) = 0;

 protected:
  ~NetCfgClass() = default;
};

/// INetCfgLock.
class NetCfgLock {
 public:
  virtual uint32_t Release() = 0;
  /// Waits up to timeoutMs for the write lock. S_FALSE when another client holds it: *holder
  /// then receives that client's description (CoTaskMem, may be null).
  virtual HResult AcquireWriteLock(uint32_t timeoutMs, const wchar_t* clientDescription,
                                   wchar_t** holder) = 0;
  virtual HResult ReleaseWriteLock() = 0;

 protected:
  ~NetCfgLock() = default;
};

/// INetCfg.
class NetCfg {
 public:
  virtual uint32_t Release() = 0;
  /// QueryInterface for IID_INetCfgLock.
  virtual HResult QueryLock(NetCfgLock** lock) = 0;
  virtual HResult Initialize(void* reserved) = 0;
  virtual HResult Uninitialize() = 0;
  virtual HResult Apply() = 0;
  /// S_FALSE (and a null component) when no component has that id.
  virtual HResult FindComponent(const wchar_t* id, NetCfgComponent** component) = 0;
  /// QueryNetCfgClass(class, IID_INetCfgClassSetup).
  virtual HResult QueryNetCfgClassSetup(const Guid* classGuid, NetCfgClassSetup** setup) = 0;
  /// QueryNetCfgClass(class, IID_INetCfgClass).
  virtual HResult QueryNetCfgClass(const Guid* classGuid, NetCfgClass** netClass) = 0;

 protected:
  ~NetCfg() = default;
};

/// COM on the calling thread and the network configuration's class object.
class NetConfig {
 public:
  virtual ~NetConfig() = default;

  /// CoInitialize(null): S_OK, or S_FALSE when the thread's apartment was already initialised.
  virtual HResult CoInitialize() = 0;
  virtual void CoUninitialize() = 0;
  /// CoCreateInstance(CLSID_CNetCfg, in-process server, IID_INetCfg).
  virtual HResult CreateNetCfg(NetCfg** netCfg) = 0;
  /// CoTaskMemFree, for the texts the configuration hands out.
  virtual void CoTaskMemFree(void* memory) = 0;
};

template <>
NetConfig& Facility<NetConfig>::Host();

inline NetConfig& TheNetConfig() { return Facility<NetConfig>::Get(); }

}  // namespace nw::platform
