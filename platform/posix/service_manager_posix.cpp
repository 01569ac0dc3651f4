// The service control manager of the emulated host. It knows the services the host file lists
// under "services"; their configuration lives in their registry keys, as on Windows, and every
// change (start type, image path, run state) is written back to the host file.

#include <cstring>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include "base/format.h"
#include "core/status.h"
#include "platform/last_error.h"
#include "platform/registry.h"
#include "platform/service_manager.h"
#include "sim/host/host_state.h"

namespace nw::platform {
namespace {

constexpr uint32_t kErrorInvalidServiceControl = 1052;
constexpr uint32_t kDefaultStartType = 3;  // demand start, when the key has no "Start"
constexpr uint32_t kDefaultErrorControl = 1;

// The generic rights as the service control manager maps them for a service object.
constexpr uint32_t kServiceQueryStatus = 0x0004;
constexpr uint32_t kServiceEnumerateDependents = 0x0008;
constexpr uint32_t kServicePauseContinue = 0x0040;
constexpr uint32_t kServiceInterrogate = 0x0080;
constexpr uint32_t kServiceUserDefinedControl = 0x0100;
constexpr uint32_t kReadControl = 0x00020000;

uint32_t MapServiceAccess(uint32_t access) {
  uint32_t mapped = access & 0x0FFFFFFF;
  if (access & kGenericRead) {
    mapped |= kServiceQueryConfig | kServiceQueryStatus | kServiceInterrogate |
              kServiceEnumerateDependents | kReadControl;
  }
  if (access & kGenericWrite) mapped |= kServiceChangeConfig | kReadControl;
  if (access & kGenericExecute) {
    mapped |= kServiceStart | kServiceStop | kServicePauseContinue | kServiceUserDefinedControl |
              kReadControl;
  }
  return mapped;
}

struct ScmObject {
  bool isService = false;
  uint32_t access = 0;
  std::wstring service;  // upper case
};

std::set<ScmObject*>& LiveHandles() {
  static std::set<ScmObject*> handles;
  return handles;
}

/// Records err as the thread's last error and the call's error, as the Win32 calls do.
template <class T>
T Fail(uint32_t err, uint32_t* error, T result) {
  SetThreadLastError(err);
  *error = err;
  return result;
}

ScmObject* Service(ServiceHandle handle) {
  auto* object = static_cast<ScmObject*>(handle);
  if (object == nullptr || LiveHandles().count(object) == 0 || !object->isService) return nullptr;
  return object;
}

const sim::RegistryValue* ServiceValue(const std::wstring& service, const wchar_t* name) {
  const auto& registry = sim::Host().registry;
  auto key = registry.find(sim::ServiceKeyPath(service));
  if (key == registry.end()) return nullptr;
  auto value = key->second.find(sim::UpperAscii(name));
  return value == key->second.end() ? nullptr : &value->second;
}

uint32_t DwordValue(const std::wstring& service, const wchar_t* name, uint32_t fallback) {
  const sim::RegistryValue* value = ServiceValue(service, name);
  if (value == nullptr || value->type != kRegDword || value->data.size() != 4) return fallback;
  uint32_t dword = 0;
  std::memcpy(&dword, value->data.data(), 4);
  return dword;
}

std::wstring TextValue(const std::wstring& service, const wchar_t* name) {
  const sim::RegistryValue* value = ServiceValue(service, name);
  if (value == nullptr || (value->type != kRegSz && value->type != kRegExpandSz)) return L"";
  std::wstring text(reinterpret_cast<const wchar_t*>(value->data.data()),
                    value->data.size() / sizeof(wchar_t));
  return text.substr(0, text.find(L'\0'));
}

bool WriteValue(const std::wstring& service, const wchar_t* name, uint32_t type, const void* data,
                size_t size) {
  sim::RegistryValue value;
  value.name = name;
  value.type = type;
  const auto* bytes = static_cast<const uint8_t*>(data);
  value.data.assign(bytes, bytes + size);
  std::string error;
  return sim::SetHostRegistryValue(sim::ServiceKeyPath(service), value, &error);
}

class PosixServiceManager final : public ServiceManager {
 public:
  ServiceHandle OpenSCManager(uint32_t access, uint32_t* error) override {
    if (auto fault = sim::HostFault("OpenSCManager")) {
      return Fail(static_cast<uint32_t>(*fault), error, nullptr);
    }
    return NewHandle(false, access, L"");
  }

  ServiceHandle OpenService(ServiceHandle manager, const wchar_t* name, uint32_t access,
                            uint32_t* error) override {
    auto* object = static_cast<ScmObject*>(manager);
    if (object == nullptr || LiveHandles().count(object) == 0 || object->isService) {
      return Fail(kErrorInvalidHandle, error, nullptr);
    }
    if (name == nullptr) return Fail(kErrorInvalidParameter, error, nullptr);
    if (auto fault = sim::HostFault("OpenService")) {
      return Fail(static_cast<uint32_t>(*fault), error, nullptr);
    }
    const std::wstring service = sim::UpperAscii(name);
    if (sim::Host().drivers.services.count(service) == 0) {
      return Fail(kErrorServiceDoesNotExist, error, nullptr);
    }
    return NewHandle(true, MapServiceAccess(access), service);
  }

  bool ChangeServiceConfig(ServiceHandle handle, uint32_t serviceType, uint32_t startType,
                           uint32_t errorControl, const wchar_t* binaryPathName,
                           uint32_t* error) override {
    ScmObject* service = Service(handle);
    if (service == nullptr) return Fail(kErrorInvalidHandle, error, false);
    if ((service->access & kServiceChangeConfig) == 0) {
      return Fail(kErrorAccessDenied, error, false);
    }
    if (auto fault = sim::HostFault("ChangeServiceConfig")) {
      return Fail(static_cast<uint32_t>(*fault), error, false);
    }
    if (startType != kServiceNoChange && startType > 4) {
      return Fail(kErrorInvalidParameter, error, false);
    }
    // The self-protection component guards the key the manager would write to.
    if (sim::ServiceKeyLocked(service->service)) return Fail(kErrorAccessDenied, error, false);
    const std::wstring& name = service->service;
    bool written = true;
    if (serviceType != kServiceNoChange) {
      written = written && WriteValue(name, L"Type", kRegDword, &serviceType, 4);
    }
    if (startType != kServiceNoChange) {
      written = written && WriteValue(name, L"Start", kRegDword, &startType, 4);
    }
    if (errorControl != kServiceNoChange) {
      written = written && WriteValue(name, L"ErrorControl", kRegDword, &errorControl, 4);
    }
    if (binaryPathName != nullptr) {
      // Windows keeps a service's image path as an expandable string.
      const size_t bytes = (std::wcslen(binaryPathName) + 1) * sizeof(wchar_t);
      written = written && WriteValue(name, L"ImagePath", kRegExpandSz, binaryPathName, bytes);
    }
    if (!written) return Fail(kErrorAccessDenied, error, false);
    return true;
  }

  bool ControlService(ServiceHandle handle, uint32_t control, uint32_t* error) override {
    ScmObject* service = Service(handle);
    if (service == nullptr) return Fail(kErrorInvalidHandle, error, false);
    if (control != kServiceControlStop) return Fail(kErrorInvalidServiceControl, error, false);
    if ((service->access & kServiceStop) == 0) return Fail(kErrorAccessDenied, error, false);
    if (auto fault = sim::HostFault("ControlService")) {
      return Fail(static_cast<uint32_t>(*fault), error, false);
    }
    if (sim::ServiceKeyLocked(service->service)) return Fail(kErrorAccessDenied, error, false);
    const sim::HostService& state = sim::Host().drivers.services.at(service->service);
    if (!state.running) return Fail(kErrorServiceNotActive, error, false);
    if (state.refuseStop) return Fail(*state.refuseStop, error, false);
    std::string reason;
    if (!sim::SetServiceRunning(service->service, false, &reason)) {
      return Fail(kErrorAccessDenied, error, false);
    }
    return true;
  }

  bool StartService(ServiceHandle handle, uint32_t* error) override {
    ScmObject* service = Service(handle);
    if (service == nullptr) return Fail(kErrorInvalidHandle, error, false);
    if ((service->access & kServiceStart) == 0) return Fail(kErrorAccessDenied, error, false);
    if (auto fault = sim::HostFault("StartService")) {
      return Fail(static_cast<uint32_t>(*fault), error, false);
    }
    const sim::HostService& state = sim::Host().drivers.services.at(service->service);
    if (DwordValue(service->service, L"Start", kDefaultStartType) == 4) {
      return Fail(kErrorServiceDisabled, error, false);
    }
    if (state.running) return Fail(kErrorServiceAlreadyRunning, error, false);
    if (state.refuseStart) return Fail(*state.refuseStart, error, false);
    std::string reason;
    if (!sim::SetServiceRunning(service->service, true, &reason)) {
      return Fail(kErrorAccessDenied, error, false);
    }
    return true;
  }

  bool QueryServiceConfig(ServiceHandle handle, ServiceConfig* config, uint32_t bufferSize,
                          uint32_t* needed, uint32_t* error) override {
    ScmObject* service = Service(handle);
    if (service == nullptr) return Fail(kErrorInvalidHandle, error, false);
    if ((service->access & kServiceQueryConfig) == 0) {
      return Fail(kErrorAccessDenied, error, false);
    }
    if (auto fault = sim::HostFault("QueryServiceConfig")) {
      return Fail(static_cast<uint32_t>(*fault), error, false);
    }
    const std::wstring& name = service->service;
    std::wstring displayName = TextValue(name, L"DisplayName");
    if (displayName.empty())
      displayName = Utf8ToWide(sim::Host().drivers.services.at(name).spelling);
    // The strings follow the record: image path, group, dependencies (a list ending in an
    // empty string), account, display name.
    const std::wstring texts[] = {TextValue(name, L"ImagePath"), TextValue(name, L"Group"),
                                  std::wstring(), TextValue(name, L"ObjectName"), displayName};
    size_t size = sizeof(ServiceConfig);
    for (size_t i = 0; i < std::size(texts); ++i) {
      size += (texts[i].size() + (i == 2 ? 2 : 1)) * sizeof(wchar_t);
    }
    *needed = static_cast<uint32_t>(size);
    if (config == nullptr || bufferSize < size) {
      return Fail(kErrorInsufficientBuffer, error, false);
    }
    std::memset(config, 0, size);
    config->serviceType = DwordValue(name, L"Type", kServiceKernelDriver);
    config->startType = DwordValue(name, L"Start", kDefaultStartType);
    config->errorControl = DwordValue(name, L"ErrorControl", kDefaultErrorControl);
    config->tagId = DwordValue(name, L"Tag", 0);
    auto* next = reinterpret_cast<wchar_t*>(config + 1);
    wchar_t** slots[] = {&config->binaryPathName, &config->loadOrderGroup, &config->dependencies,
                         &config->serviceStartName, &config->displayName};
    for (size_t i = 0; i < std::size(texts); ++i) {
      *slots[i] = next;
      std::memcpy(next, texts[i].c_str(), texts[i].size() * sizeof(wchar_t));
      next += texts[i].size() + (i == 2 ? 2 : 1);  // the buffer was zeroed: terminators are there
    }
    return true;
  }

  bool CloseServiceHandle(ServiceHandle handle) override {
    auto* object = static_cast<ScmObject*>(handle);
    if (object == nullptr || LiveHandles().erase(object) == 0) {
      SetThreadLastError(kErrorInvalidHandle);
      return false;
    }
    delete object;
    --sim::Usage().serviceHandles;
    return true;
  }

 private:
  static ServiceHandle NewHandle(bool isService, uint32_t access, const std::wstring& service) {
    auto* object = new ScmObject{isService, access, service};
    LiveHandles().insert(object);
    ++sim::Usage().serviceHandles;
    return object;
  }
};

}  // namespace

template <>
ServiceManager& Facility<ServiceManager>::Host() {
  static PosixServiceManager manager;
  return manager;
}

}  // namespace nw::platform
