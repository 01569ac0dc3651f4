// One set of expectations for the host facilities the driver commands use (registry, service
// control manager, named mutexes, OS version, self-protection, and the part of the network
// configuration every host implements), run against whichever backend this program is built
// with: the emulation on Linux, the real Win32 calls under Wine (or on Windows). The host is
// prepared by driver_host_setup_<host>.cpp: a stopped kernel-driver service "nwconf_drv", a
// service key "nwconf_keyonly" without a service, and an existing mutex "Global\nwconf_mutex".
// Errors are pinned exactly, with a sentinel last error to see which calls set it.

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "base/format.h"
#include "platform/last_error.h"
#include "platform/named_mutex.h"
#include "platform/net_config.h"
#include "platform/os_version.h"
#include "platform/registry.h"
#include "platform/self_protection.h"
#include "platform/service_manager.h"
#include "tests/conformance/driver_host_setup.h"
#include "tests/conformance/expect.h"

namespace {

using namespace nw;
using namespace nw::platform;
using nw::conformance::Expect;
using nw::conformance::ExpectEqual;

constexpr uint32_t kSentinel = 0xdeadbeef;
constexpr const wchar_t* kServices = L"SYSTEM\\CurrentControlSet\\Services";
constexpr const wchar_t* kRootPath = L"\\SystemRoot\\system32\\drivers\\nwconf_drv.sys";
constexpr const wchar_t* kBootPath = L"system32\\drivers\\nwconf_drv.sys";

std::wstring ServiceKey(const wchar_t* name) { return std::wstring(kServices) + L"\\" + name; }

/// A value of the test service's key: its type and bytes, or the registry's error.
uint32_t ReadValue(const wchar_t* name, uint32_t* type, std::vector<uint8_t>* data) {
  Registry& registry = TheRegistry();
  RegistryKey key = nullptr;
  uint32_t error =
      registry.OpenKey(kHKeyLocalMachine, ServiceKey(L"nwconf_drv").c_str(), kKeyRead, &key);
  if (error != 0) return error;
  uint32_t size = 0;
  error = registry.QueryValue(key, name, type, nullptr, &size);
  if (error == 0) {
    data->assign(size, 0);
    error = registry.QueryValue(key, name, type, data->data(), &size);
  }
  registry.CloseKey(key);
  return error;
}

uint32_t StartValue() {
  uint32_t type = 0;
  std::vector<uint8_t> data;
  if (ReadValue(L"Start", &type, &data) != 0 || type != kRegDword || data.size() != 4) {
    return 0xFFFFFFFF;
  }
  uint32_t value = 0;
  std::memcpy(&value, data.data(), 4);
  return value;
}

std::wstring ImagePathValue(uint32_t* type) {
  std::vector<uint8_t> data;
  if (ReadValue(L"ImagePath", type, &data) != 0) return L"(none)";
  std::wstring text(reinterpret_cast<const wchar_t*>(data.data()), data.size() / sizeof(wchar_t));
  return text.substr(0, text.find(L'\0'));
}

void CheckRegistry() {
  Registry& registry = TheRegistry();
  RegistryKey key = nullptr;
  SetThreadLastError(kSentinel);
  ExpectEqual(
      registry.OpenKey(kHKeyLocalMachine, ServiceKey(L"nwconf_none").c_str(), kKeyRead, &key), 2,
      "RegOpenKeyEx of a missing key");
  ExpectEqual(ThreadLastError(), kSentinel, "RegOpenKeyEx leaves the last error");

  // One key at a time, below an opened key.
  RegistryKey system = nullptr;
  ExpectEqual(registry.OpenKey(kHKeyLocalMachine, L"SYSTEM", kKeyRead, &system), 0,
              "RegOpenKeyEx SYSTEM");
  ExpectEqual(registry.OpenKey(system, L"CurrentControlSet\\Services\\nwconf_drv", 0x2001F, &key),
              0, "RegOpenKeyEx below an opened key, for writing");
  registry.CloseKey(system);
  if (key == nullptr) return;

  uint32_t type = 0;
  uint32_t dword = 0;
  uint32_t size = sizeof dword;
  ExpectEqual(registry.QueryValue(key, L"Start", &type, &dword, &size), 0, "Start");
  ExpectEqual(type, kRegDword, "Start's type");
  ExpectEqual(size, 4, "Start's size");
  ExpectEqual(dword, 3, "Start");

  wchar_t small[1] = {L'#'};
  size = sizeof small;
  ExpectEqual(registry.QueryValue(key, L"ImagePath", &type, small, &size), 234,
              "ImagePath into a small buffer");
  ExpectEqual(size, static_cast<uint32_t>((std::wcslen(kRootPath) + 1) * sizeof(wchar_t)),
              "the size ImagePath needs");
  Expect(small[0] == L'#', "a value that does not fit is not copied");
  size = sizeof dword;
  ExpectEqual(registry.QueryValue(key, L"NoSuchValue", &type, &dword, &size), 2, "a missing value");

  const std::wstring text = L"nwconf text";
  ExpectEqual(registry.SetValue(key, L"NwConfText", kRegSz, text.c_str(),
                                static_cast<uint32_t>((text.size() + 1) * sizeof(wchar_t))),
              0, "RegSetValueEx REG_SZ");
  wchar_t back[32] = {};
  size = sizeof back;
  ExpectEqual(registry.QueryValue(key, L"NwConfText", &type, back, &size), 0, "read back");
  ExpectEqual(type, kRegSz, "the type written");
  Expect(std::wstring(back) == text, "the text written");
  ExpectEqual(registry.CloseKey(key), 0, "RegCloseKey");
}

void CheckServiceManager() {
  ServiceManager& scm = TheServiceManager();
  uint32_t error = 0;
  ServiceHandle manager = scm.OpenSCManager(kScManagerAllAccess, &error);
  Expect(manager != nullptr, "OpenSCManager with all access: " + std::to_string(error));
  if (manager == nullptr) return;

  const struct {
    const wchar_t* name;
    const char* what;
  } unknown[] = {{L"nwconf_none", "a service that does not exist"},
                 {L"nwconf_keyonly", "a key that is no service"}};
  for (const auto& u : unknown) {
    SetThreadLastError(kSentinel);
    error = 0;
    ServiceHandle service = scm.OpenService(manager, u.name, kServiceChangeConfig, &error);
    Expect(service == nullptr, std::string("OpenService of ") + u.what);
    ExpectEqual(error, 1060, std::string("OpenService of ") + u.what);
    ExpectEqual(ThreadLastError(), 1060, std::string("the last error after ") + u.what);
    if (service != nullptr) scm.CloseServiceHandle(service);
  }

  ServiceHandle service = scm.OpenService(
      manager, L"nwconf_drv",
      kServiceChangeConfig | kServiceStop | kServiceStart | kServiceQueryConfig, &error);
  Expect(service != nullptr, "OpenService nwconf_drv: " + std::to_string(error));
  if (service == nullptr) {
    scm.CloseServiceHandle(manager);
    return;
  }
  SetThreadLastError(kSentinel);
  Expect(scm.ChangeServiceConfig(service, kServiceNoChange, 1, kServiceNoChange, kRootPath, &error),
         "ChangeServiceConfig to system start: " + std::to_string(error));
  ExpectEqual(ThreadLastError(), kSentinel, "a change that works leaves the last error");
  ExpectEqual(StartValue(), 1, "Start after the change");
  uint32_t type = 0;
  Expect(ImagePathValue(&type) == kRootPath, "ImagePath after the change");
  // Windows writes an expandable string; Wine's manager a plain one.
  Expect(type == kRegExpandSz || type == kRegSz, "ImagePath is a string");

  uint32_t needed = 0;
  SetThreadLastError(kSentinel);
  Expect(!scm.QueryServiceConfig(service, nullptr, 0, &needed, &error),
         "QueryServiceConfig without a buffer");
  ExpectEqual(error, 122, "QueryServiceConfig without a buffer");
  ExpectEqual(ThreadLastError(), 122, "the last error after asking for the size");
  Expect(needed > sizeof(ServiceConfig), "the size covers the strings");
  std::vector<ServiceConfig> buffer(needed / sizeof(ServiceConfig) + 2);
  Expect(
      !scm.QueryServiceConfig(service, buffer.data(), needed - 1, &needed, &error) && error == 122,
      "QueryServiceConfig one byte short");
  if (scm.QueryServiceConfig(service, buffer.data(), needed, &needed, &error)) {
    ExpectEqual(buffer[0].serviceType, kServiceKernelDriver, "the service type");
    ExpectEqual(buffer[0].startType, 1, "the start type");
    Expect(std::wstring(buffer[0].binaryPathName) == kRootPath, "the image path");
  } else {
    Expect(false, "QueryServiceConfig with the size it asked for: " + std::to_string(error));
  }

  Expect(scm.ChangeServiceConfig(service, kServiceNoChange, 0, kServiceNoChange, kBootPath, &error),
         "ChangeServiceConfig to boot start");
  ExpectEqual(StartValue(), 0, "Start after the change to boot start");
  Expect(ImagePathValue(&type) == kBootPath, "the relative image path");

  SetThreadLastError(kSentinel);
  Expect(!scm.ControlService(service, kServiceControlStop, &error), "stop a stopped service");
  ExpectEqual(error, 1062, "stop a stopped service");
  ExpectEqual(ThreadLastError(), 1062, "the last error after a refused stop");
  Expect(scm.ChangeServiceConfig(service, kServiceNoChange, 4, kServiceNoChange, nullptr, &error),
         "ChangeServiceConfig to disabled");
  Expect(!scm.StartService(service, &error), "start a disabled service");
  ExpectEqual(error, 1058, "start a disabled service");
  Expect(ImagePathValue(&type) == kBootPath, "no path given: the image path is kept");
  scm.CloseServiceHandle(service);

  service = scm.OpenService(manager, L"nwconf_drv", kGenericRead, &error);
  Expect(service != nullptr, "OpenService for reading");
  Expect(!scm.ChangeServiceConfig(service, kServiceNoChange, 3, kServiceNoChange, nullptr, &error),
         "a change through a handle opened for reading");
  ExpectEqual(error, 5, "a change through a handle opened for reading");
  if (service != nullptr) scm.CloseServiceHandle(service);

  Expect(!scm.ControlService(nullptr, kServiceControlStop, &error), "stop on a null handle");
  ExpectEqual(error, 6, "stop on a null handle");
  Expect(!scm.StartService(nullptr, &error), "start on a null handle");
  ExpectEqual(error, 6, "start on a null handle");
  scm.CloseServiceHandle(manager);
}

void CheckMutexes() {
  Mutexes& mutexes = TheMutexes();
  uint32_t error = 0;
  SetThreadLastError(kSentinel);
  Expect(mutexes.OpenMutex(kSynchronize, L"Global\\nwconf_none", &error) == nullptr,
         "OpenMutex of a missing mutex");
  ExpectEqual(error, 2, "OpenMutex of a missing mutex");
  ExpectEqual(ThreadLastError(), 2, "the last error after a missing mutex");
  MutexHandle mutex = mutexes.OpenMutex(kSynchronize, L"Global\\nwconf_mutex", &error);
  Expect(mutex != nullptr, "OpenMutex of the test mutex: " + std::to_string(error));
  if (mutex == nullptr) return;
  ExpectEqual(mutexes.WaitForSingleObject(mutex, kInfinite), kWaitObject0, "wait for it");
  Expect(mutexes.ReleaseMutex(mutex), "release it");
  Expect(mutexes.CloseHandle(mutex), "close it");
}

void CheckNetworkConfiguration() {
  NetConfig& com = TheNetConfig();
  NetCfg* cfg = nullptr;
  ExpectEqual(static_cast<uint32_t>(com.CreateNetCfg(&cfg)),
              static_cast<uint32_t>(kCoENotInitialized), "CoCreateInstance before CoInitialize");
  Expect(cfg == nullptr, "no object without COM");
  ExpectEqual(static_cast<uint32_t>(com.CoInitialize()), 0, "CoInitialize");
  ExpectEqual(static_cast<uint32_t>(com.CoInitialize()), 1, "CoInitialize again: S_FALSE");
  com.CoUninitialize();
  ExpectEqual(static_cast<uint32_t>(com.CreateNetCfg(&cfg)), 0, "CoCreateInstance CNetCfg");
  if (cfg != nullptr) {
    NetCfgLock* lock = nullptr;
    ExpectEqual(static_cast<uint32_t>(cfg->QueryLock(&lock)), 0, "QueryInterface INetCfgLock");
    wchar_t* holder = nullptr;
    if (lock != nullptr) {
      ExpectEqual(static_cast<uint32_t>(lock->AcquireWriteLock(5000, L"netwarden", &holder)), 0,
                  "AcquireWriteLock");
      Expect(holder == nullptr, "no holder when the lock was free");
    }
    ExpectEqual(static_cast<uint32_t>(cfg->Initialize(nullptr)), 0, "Initialize");
    ExpectEqual(static_cast<uint32_t>(cfg->Uninitialize()), 0, "Uninitialize");
    if (lock != nullptr) {
      ExpectEqual(static_cast<uint32_t>(lock->ReleaseWriteLock()), 0, "ReleaseWriteLock");
      lock->Release();
    }
    cfg->Release();
  }
  com.CoUninitialize();
}

void CheckVersionAndProtection() {
  OsVersionInfo version;
  Expect(TheOsVersion().RtlGetVersion(&version), "RtlGetVersion");
  Expect(version.major >= 6, "a version from Windows Vista on: " + std::to_string(version.major));
  // Neither host has a self-protection component: nothing is locked or lifted.
  SelfProtection& protection = TheSelfProtection();
  Expect(!protection.IsServiceKeyLocked(L"nwconf_drv"), "no key is locked");
  ExpectEqual(protection.BeginException(L"netwarden", L"nwconf_drv"), 0, "an exception");
  Expect(!protection.LiftServiceKeyLock(L"nwconf_drv"), "nothing to lift");
  protection.EndException(L"netwarden", L"nwconf_drv");
}

}  // namespace

int main() {
  std::string error;
  if (!nw::conformance::SetUpHost(&error)) {
    std::printf("FAILED: the host could not be prepared: %s\n", error.c_str());
    return 1;
  }
  CheckRegistry();
  CheckServiceManager();
  CheckMutexes();
  CheckNetworkConfiguration();
  CheckVersionAndProtection();
  nw::conformance::TearDownHost();
  return nw::conformance::Verdict();
}
