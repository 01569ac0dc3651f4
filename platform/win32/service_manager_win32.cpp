// The service control manager on Windows: the Win32 calls, their errors taken from
// GetLastError right after the call that failed.

#include <windows.h>

#include <cstddef>

// The facility's methods share these names; with UNICODE they would be renamed to the W forms
// here but not elsewhere.
#undef OpenSCManager
#undef OpenService
#undef ChangeServiceConfig
#undef StartService
#undef QueryServiceConfig

#include "platform/service_manager.h"

namespace nw::platform {
namespace {

static_assert(sizeof(ServiceConfig) == sizeof(QUERY_SERVICE_CONFIGW));
static_assert(offsetof(ServiceConfig, startType) == offsetof(QUERY_SERVICE_CONFIGW, dwStartType));
static_assert(offsetof(ServiceConfig, binaryPathName) ==
              offsetof(QUERY_SERVICE_CONFIGW, lpBinaryPathName));
static_assert(offsetof(ServiceConfig, tagId) == offsetof(QUERY_SERVICE_CONFIGW, dwTagId));
static_assert(offsetof(ServiceConfig, displayName) ==
              offsetof(QUERY_SERVICE_CONFIGW, lpDisplayName));
static_assert(kScManagerAllAccess == SC_MANAGER_ALL_ACCESS && kGenericRead == GENERIC_READ &&
              kGenericExecute == GENERIC_EXECUTE && kServiceChangeConfig == SERVICE_CHANGE_CONFIG &&
              kServiceStop == SERVICE_STOP && kServiceStart == SERVICE_START &&
              kServiceNoChange == SERVICE_NO_CHANGE && kServiceControlStop == SERVICE_CONTROL_STOP);

SC_HANDLE Sc(ServiceHandle handle) { return static_cast<SC_HANDLE>(handle); }

template <class T>
T Failed(uint32_t* error, T result) {
  *error = ::GetLastError();
  return result;
}

class Win32ServiceManager final : public ServiceManager {
 public:
  ServiceHandle OpenSCManager(uint32_t access, uint32_t* error) override {
    SC_HANDLE manager = ::OpenSCManagerW(nullptr, nullptr, access);
    return manager != nullptr ? manager : Failed<ServiceHandle>(error, nullptr);
  }

  ServiceHandle OpenService(ServiceHandle manager, const wchar_t* name, uint32_t access,
                            uint32_t* error) override {
    SC_HANDLE service = ::OpenServiceW(Sc(manager), name, access);
    return service != nullptr ? service : Failed<ServiceHandle>(error, nullptr);
  }

  bool ChangeServiceConfig(ServiceHandle service, uint32_t serviceType, uint32_t startType,
                           uint32_t errorControl, const wchar_t* binaryPathName,
                           uint32_t* error) override {
    return ::ChangeServiceConfigW(Sc(service), serviceType, startType, errorControl, binaryPathName,
                                  nullptr, nullptr, nullptr, nullptr, nullptr, nullptr)
               ? true
               : Failed(error, false);
  }

  bool ControlService(ServiceHandle service, uint32_t control, uint32_t* error) override {
    SERVICE_STATUS status = {};
    return ::ControlService(Sc(service), control, &status) ? true : Failed(error, false);
  }

  bool StartService(ServiceHandle service, uint32_t* error) override {
    return ::StartServiceW(Sc(service), 0, nullptr) ? true : Failed(error, false);
  }

  bool QueryServiceConfig(ServiceHandle service, ServiceConfig* config, uint32_t bufferSize,
                          uint32_t* needed, uint32_t* error) override {
    DWORD bytes = 0;
    const BOOL ok = ::QueryServiceConfigW(
        Sc(service), reinterpret_cast<QUERY_SERVICE_CONFIGW*>(config), bufferSize, &bytes);
    *needed = bytes;
    return ok ? true : Failed(error, false);
  }

  bool CloseServiceHandle(ServiceHandle handle) override {
    return ::CloseServiceHandle(Sc(handle)) != FALSE;
  }
};

}  // namespace

template <>
ServiceManager& Facility<ServiceManager>::Host() {
  static Win32ServiceManager manager;
  return manager;
}

}  // namespace nw::platform
