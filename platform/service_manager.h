#pragma once

#include <cstdint>

#include "platform/facility.h"

namespace nw::platform {

using ServiceHandle = void*;

// Access rights, controls and results of the service control manager, with Windows' values.
inline constexpr uint32_t kScManagerAllAccess = 0xF003F;
inline constexpr uint32_t kGenericRead = 0x80000000u;
inline constexpr uint32_t kGenericWrite = 0x40000000u;
inline constexpr uint32_t kGenericExecute = 0x20000000u;
inline constexpr uint32_t kServiceQueryConfig = 0x0001;
inline constexpr uint32_t kServiceChangeConfig = 0x0002;
inline constexpr uint32_t kServiceStart = 0x0010;
inline constexpr uint32_t kServiceStop = 0x0020;
inline constexpr uint32_t kServiceNoChange = 0xFFFFFFFFu;
inline constexpr uint32_t kServiceControlStop = 1;
inline constexpr uint32_t kServiceKernelDriver = 1;

inline constexpr uint32_t kErrorAccessDenied = 5;
inline constexpr uint32_t kErrorInvalidHandle = 6;
inline constexpr uint32_t kErrorServiceAlreadyRunning = 1056;
inline constexpr uint32_t kErrorServiceDisabled = 1058;
inline constexpr uint32_t kErrorServiceDoesNotExist = 1060;
inline constexpr uint32_t kErrorServiceNotActive = 1062;

/// QUERY_SERVICE_CONFIGW in its x64 layout; the strings point into the caller's buffer, after
/// the record.
struct ServiceConfig {
  uint32_t serviceType;
  uint32_t startType;
  uint32_t errorControl;
  wchar_t* binaryPathName;
  wchar_t* loadOrderGroup;
  uint32_t tagId;
  wchar_t* dependencies;
  wchar_t* serviceStartName;
  wchar_t* displayName;
};

/// The service control manager of the local machine, with the semantics of the Win32 calls of
/// the same names. Every failing call returns false or null and sets *error to the Windows
/// error number that GetLastError would give; the backends also leave it as the thread's last
/// error (platform/last_error.h), as Windows does.
class ServiceManager {
 public:
  virtual ~ServiceManager() = default;

  /// OpenSCManagerW(null, null, access): the local machine's default database.
  virtual ServiceHandle OpenSCManager(uint32_t access, uint32_t* error) = 0;
  /// OpenServiceW: 1060 for a name the manager does not know.
  virtual ServiceHandle OpenService(ServiceHandle manager, const wchar_t* name, uint32_t access,
                                    uint32_t* error) = 0;
  /// ChangeServiceConfigW with kServiceNoChange where nothing is to change and null for the
  /// load-order group, tag, dependencies, account, password and display name.
  virtual bool ChangeServiceConfig(ServiceHandle service, uint32_t serviceType, uint32_t startType,
                                   uint32_t errorControl, const wchar_t* binaryPathName,
                                   uint32_t* error) = 0;
  /// ControlService; the service's reported status is not passed back.
  virtual bool ControlService(ServiceHandle service, uint32_t control, uint32_t* error) = 0;
  /// StartServiceW with no arguments.
  virtual bool StartService(ServiceHandle service, uint32_t* error) = 0;
  /// QueryServiceConfigW: fills config (bufferSize bytes) or fails with 122 and sets *needed to
  /// the size the record and its strings need.
  virtual bool QueryServiceConfig(ServiceHandle service, ServiceConfig* config, uint32_t bufferSize,
                                  uint32_t* needed, uint32_t* error) = 0;
  virtual bool CloseServiceHandle(ServiceHandle handle) = 0;
};

template <>
ServiceManager& Facility<ServiceManager>::Host();

inline ServiceManager& TheServiceManager() { return Facility<ServiceManager>::Get(); }

}  // namespace nw::platform
