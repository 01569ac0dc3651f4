// On Windows (and under Wine) the service, the key and the mutex are made for real, and taken
// away again at the end. A service left by an earlier run that was killed is removed first.

#include <windows.h>

#include "tests/conformance/driver_host_setup.h"

namespace nw::conformance {
namespace {

constexpr const wchar_t* kKeyOnly = L"SYSTEM\\CurrentControlSet\\Services\\nwconf_keyonly";
HANDLE mutex = nullptr;

void DeleteTestService(SC_HANDLE manager) {
  SC_HANDLE service = ::OpenServiceW(manager, L"nwconf_drv", DELETE);
  if (service == nullptr) return;
  ::DeleteService(service);
  ::CloseServiceHandle(service);
}

}  // namespace

bool SetUpHost(std::string* error) {
  SC_HANDLE manager = ::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
  if (manager == nullptr) {
    *error = "OpenSCManager " + std::to_string(::GetLastError());
    return false;
  }
  DeleteTestService(manager);
  SC_HANDLE service =
      ::CreateServiceW(manager, L"nwconf_drv", L"nwconf_drv", SERVICE_ALL_ACCESS,
                       SERVICE_KERNEL_DRIVER, SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL,
                       L"\\SystemRoot\\system32\\drivers\\nwconf_drv.sys", nullptr, nullptr,
                       nullptr, nullptr, nullptr);
  if (service == nullptr) {
    *error = "CreateService " + std::to_string(::GetLastError());
    ::CloseServiceHandle(manager);
    return false;
  }
  ::CloseServiceHandle(service);
  ::CloseServiceHandle(manager);
  HKEY key = nullptr;
  if (::RegCreateKeyExW(HKEY_LOCAL_MACHINE, kKeyOnly, 0, nullptr, 0, KEY_WRITE, nullptr, &key,
                        nullptr) != ERROR_SUCCESS) {
    *error = "RegCreateKeyEx nwconf_keyonly";
    return false;
  }
  const DWORD start = 3;
  ::RegSetValueExW(key, L"Start", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&start),
                   sizeof start);
  ::RegCloseKey(key);
  mutex = ::CreateMutexW(nullptr, FALSE, L"Global\\nwconf_mutex");
  if (mutex == nullptr) {
    *error = "CreateMutex " + std::to_string(::GetLastError());
    return false;
  }
  return true;
}

void TearDownHost() {
  SC_HANDLE manager = ::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
  if (manager != nullptr) {
    DeleteTestService(manager);
    ::CloseServiceHandle(manager);
  }
  ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, kKeyOnly);
  if (mutex != nullptr) ::CloseHandle(mutex);
}

}  // namespace nw::conformance
