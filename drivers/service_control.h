#pragma once

// The layer through which the driver commands touch the two network driver services: start
// type and image path through the service control manager, stop and start, the WFP driver's
// image path in the registry, registry access below the Services key, the self-protection hooks
// and the driver log callbacks. Nothing is kept between calls: every operation opens what it
// needs and closes it before it returns.

#include <cstddef>
#include <cstdint>

#include "cli/handlers.h"
#include "platform/registry.h"

namespace nw {

/// The NDIS lightweight filter and the WFP callout driver, as service names.
extern const wchar_t* const NdisDriverService;
extern const wchar_t* const WfpDriverService;
/// The tag under which netwarden asks the self-protection component and the network
/// configuration for their cooperation.
extern const wchar_t* const DriverClientTag;

inline constexpr uint32_t kStartTypeBoot = 0;
inline constexpr uint32_t kStartTypeSystem = 1;
inline constexpr uint32_t kStartTypeDisabled = 4;
/// No previous start type is known.
inline constexpr uint32_t kNoPreviousStartType = 0xFFFFFFFFu;

/// KEY_READ, and KEY_READ with KEY_SET_VALUE and KEY_CREATE_SUB_KEY.
inline constexpr uint32_t kServiceKeyRead = platform::kKeyRead;
inline constexpr uint32_t kServiceKeyWrite =
    platform::kKeyRead | platform::kKeySetValue | platform::kKeyCreateSubKey;
/// Characters of the buffers that image paths are built and read in.
inline constexpr size_t kImagePathChars = 260;

/// A DriverLogFn that prints nothing.
void SilentDriverLog(const char* format, ...);

/// An open registry key below HKLM\SYSTEM\CurrentControlSet\Services, closed when the object
/// ends. Opening walks the path one key at a time; when any step fails the object is empty.
class ServiceKey {
 public:
  /// The key of service, opened with access (kServiceKeyRead or kServiceKeyWrite). A failed
  /// write open leaves the registry's error as the thread's last error.
  ServiceKey(const wchar_t* service, uint32_t access);
  /// The per-component subkey of the kvxmms service (kvxmms\Services\<component>), for reading.
  static ServiceKey ForComponent(const wchar_t* component);
  ~ServiceKey();
  ServiceKey(ServiceKey&& other) noexcept;
  ServiceKey& operator=(ServiceKey&&) = delete;
  ServiceKey(const ServiceKey&) = delete;
  ServiceKey& operator=(const ServiceKey&) = delete;

  bool IsOpen() const { return key_ != nullptr; }
  platform::RegistryKey Get() const { return key_; }

 private:
  ServiceKey() = default;
  void Open(const wchar_t* const* path, size_t steps, uint32_t access);

  platform::RegistryKey key_ = nullptr;
};

/// True only if the value exists, is REG_DWORD and is exactly 4 bytes.
bool ReadRegistryDword(const ServiceKey& key, const wchar_t* name, uint32_t* value);
/// True only if the value exists and is REG_SZ or REG_EXPAND_SZ and fits capacity characters;
/// the buffer is then terminated at the length read, at most at capacity - 1.
bool ReadRegistryString(const ServiceKey& key, const wchar_t* name, wchar_t* buffer,
                        uint32_t capacity);
/// Writes text as REG_SZ. On failure the registry's error becomes the thread's last error.
bool WriteRegistryString(const ServiceKey& key, const wchar_t* name, const wchar_t* text);

// The self-protection hooks (platform/self_protection.h).
bool IsServiceKeyLocked(const wchar_t* service);
bool LiftServiceKeyLock(const wchar_t* service);
void RestoreServiceKeyLock(const wchar_t* service);

/// While it lives, holds the self-protection component's exception for changing one driver's
/// service. A refusal is reported through log; nothing else depends on it.
class SelfProtectionException {
 public:
  SelfProtectionException(const wchar_t* clientTag, const wchar_t* service, DriverLogFn log);
  ~SelfProtectionException() { End(); }
  SelfProtectionException(const SelfProtectionException&) = delete;
  SelfProtectionException& operator=(const SelfProtectionException&) = delete;

  /// Gives the exception back now (the handlers end it after COM); later calls do nothing.
  void End();
  /// 0 when granted, otherwise the component's error.
  uint32_t result() const { return result_; }

 private:
  const wchar_t* clientTag_;
  const wchar_t* service_;
  uint32_t result_;
  bool held_;
};

/// The image path a driver service gets with startType: relative for boot start, under
/// \SystemRoot otherwise. False when it does not fit capacity characters.
bool BuildDriverImagePath(const wchar_t* service, uint32_t startType, wchar_t* buffer,
                          size_t capacity);

/// Sets service's start type (and the image path that goes with it) through the service control
/// manager. *previousStartType receives the "Start" value read before the change, or
/// kNoPreviousStartType. Returns 0 or the Windows error of the step that failed.
uint32_t EnableDisableDriverViaSCM(const wchar_t* service, uint32_t startType,
                                   uint32_t* previousStartType, DriverLogFn log);
/// Sends a stop (stop true) or a start to service without waiting for it. A start's own result
/// is not reported: only a failure to reach the manager makes it non-zero.
uint32_t StopOrStartService(const wchar_t* service, bool stop, DriverLogFn log);
/// Rewrites the WFP driver's ImagePath to its relative form when it differs. A key or value
/// that cannot be read is not an error. log null means PrintDriverLog.
uint32_t AdjustWfpImagePath(DriverLogFn log = nullptr);

}  // namespace nw
