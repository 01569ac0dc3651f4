#pragma once

// In-memory stand-ins for the host facilities behind the driver commands, for the paths the
// end-to-end cases cannot reach or cannot see: a start sent to a driver, the version mutex, the
// silent registration probe, texts stored without a terminator. They share one journal, so that
// a test can check the order in which the logic asked for things, and they count what is open,
// so that a test can check that every path gives everything back.

#include <cstdarg>
#include <cstring>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "base/format.h"
#include "core/status.h"
#include "platform/last_error.h"
#include "platform/named_mutex.h"
#include "platform/net_config.h"
#include "platform/registry.h"
#include "platform/self_protection.h"
#include "platform/service_manager.h"

namespace nw::testing::drivers {

inline std::wstring Upper(std::wstring text) {
  for (auto& c : text) c = (c >= L'a' && c <= L'z') ? static_cast<wchar_t>(c - 32) : c;
  return text;
}

/// What the logic asked of the host, in order.
using Journal = std::vector<std::string>;

constexpr const wchar_t* kServicesKey = L"HKLM\\SYSTEM\\CurrentControlSet\\Services\\";
constexpr const wchar_t* kComponentKey =
    L"HKLM\\SYSTEM\\CurrentControlSet\\Services\\kvxmms\\Services\\kvxfire";
constexpr const wchar_t* kHostBaseKey32 = L"HKLM\\SOFTWARE\\WOW6432Node\\Korvane\\HostBase";

/// A registry tree under HKLM. Key paths are given as "HKLM\\...".
class FakeRegistry final : public platform::Registry {
 public:
  struct Value {
    uint32_t type = 0;
    std::vector<uint8_t> data;
  };

  void AddKey(const std::wstring& key) { keys_[Upper(key)]; }
  void SetRaw(const std::wstring& key, const std::wstring& name, uint32_t type, const void* data,
              size_t size) {
    Value& v = keys_[Upper(key)][Upper(name)];
    v.type = type;
    v.data.assign(static_cast<const uint8_t*>(data), static_cast<const uint8_t*>(data) + size);
  }
  void SetString(const std::wstring& key, const std::wstring& name, const std::wstring& text) {
    SetRaw(key, name, platform::kRegSz, text.c_str(), (text.size() + 1) * sizeof(wchar_t));
  }
  const Value* Find(const std::wstring& key, const std::wstring& name) const {
    auto k = keys_.find(Upper(key));
    if (k == keys_.end()) return nullptr;
    auto v = k->second.find(Upper(name));
    return v == k->second.end() ? nullptr : &v->second;
  }

  /// An error forced for one key path (upper case, as opened).
  std::map<std::wstring, uint32_t> openErrors;
  int openKeys = 0;

  uint32_t OpenKey(platform::RegistryKey root, const wchar_t* subKey, uint32_t access,
                   platform::RegistryKey* key) override {
    *key = nullptr;
    std::wstring path = root == platform::kHKeyLocalMachine ? std::wstring(L"HKLM")
                                                            : static_cast<OpenedKey*>(root)->path;
    path += L"\\" + Upper(subKey);
    if ((access & platform::kKeyWow64_32Key) && path.rfind(L"HKLM\\SOFTWARE\\", 0) == 0) {
      path.insert(13, L"\\WOW6432NODE");
    }
    auto forced = openErrors.find(path);
    if (forced != openErrors.end()) return forced->second;
    if (!Exists(path)) return kErrorFileNotFound;
    ++openKeys;
    *key = new OpenedKey{path};
    return 0;
  }
  uint32_t QueryValue(platform::RegistryKey key, const wchar_t* name, uint32_t* type, void* data,
                      uint32_t* size) override {
    const auto& values = keys_[static_cast<OpenedKey*>(key)->path];
    auto v = values.find(Upper(name));
    if (v == values.end()) return kErrorFileNotFound;
    *type = v->second.type;
    const uint32_t needed = static_cast<uint32_t>(v->second.data.size());
    if (*size < needed) {
      *size = needed;
      return kErrorMoreData;
    }
    std::memcpy(data, v->second.data.data(), needed);
    *size = needed;
    return 0;
  }
  uint32_t SetValue(platform::RegistryKey key, const wchar_t* name, uint32_t type, const void* data,
                    uint32_t size) override {
    Value& v = keys_[static_cast<OpenedKey*>(key)->path][Upper(name)];
    v.type = type;
    v.data.assign(static_cast<const uint8_t*>(data), static_cast<const uint8_t*>(data) + size);
    return 0;
  }
  uint32_t CloseKey(platform::RegistryKey key) override {
    --openKeys;
    delete static_cast<OpenedKey*>(key);
    return 0;
  }

 private:
  struct OpenedKey {
    std::wstring path;
  };
  bool Exists(const std::wstring& path) const {
    for (const auto& key : keys_) {
      if (key.first == path || key.first.rfind(path + L"\\", 0) == 0) return true;
    }
    return false;
  }

  std::map<std::wstring, std::map<std::wstring, Value>> keys_;
};

/// A service control manager that knows the NDIS filter and can only start it: the start is
/// the one request no command sends.
class FakeServiceManager final : public platform::ServiceManager {
 public:
  explicit FakeServiceManager(Journal& journal) : journal_(journal) {}

  uint32_t openManagerError = 0;
  uint32_t startError = 0;
  bool running = false;
  int openHandles = 0;

  platform::ServiceHandle OpenSCManager(uint32_t, uint32_t* error) override {
    journal_.push_back("OpenSCManager");
    if (openManagerError != 0) return Fail(openManagerError, error);
    return New();
  }
  platform::ServiceHandle OpenService(platform::ServiceHandle, const wchar_t* name, uint32_t,
                                      uint32_t* error) override {
    journal_.push_back("OpenService " + WideToUtf8(name));
    if (Upper(name) != L"KVXNLFK") return Fail(platform::kErrorServiceDoesNotExist, error);
    return New();
  }
  bool ChangeServiceConfig(platform::ServiceHandle, uint32_t, uint32_t, uint32_t, const wchar_t*,
                           uint32_t* error) override {
    return Fail(platform::kErrorAccessDenied, error) != nullptr;
  }
  bool ControlService(platform::ServiceHandle, uint32_t, uint32_t* error) override {
    return Fail(platform::kErrorAccessDenied, error) != nullptr;
  }
  bool StartService(platform::ServiceHandle handle, uint32_t* error) override {
    journal_.push_back(handle == nullptr ? "StartService (null)" : "StartService");
    if (handle == nullptr) return Fail(platform::kErrorInvalidHandle, error) != nullptr;
    if (startError != 0) return Fail(startError, error) != nullptr;
    running = true;
    return true;
  }
  bool QueryServiceConfig(platform::ServiceHandle, platform::ServiceConfig*, uint32_t, uint32_t*,
                          uint32_t* error) override {
    return Fail(platform::kErrorAccessDenied, error) != nullptr;
  }
  bool CloseServiceHandle(platform::ServiceHandle handle) override {
    --openHandles;
    delete static_cast<int*>(handle);
    return true;
  }

 private:
  platform::ServiceHandle New() {
    ++openHandles;
    return new int(0);
  }
  static platform::ServiceHandle Fail(uint32_t code, uint32_t* error) {
    platform::SetThreadLastError(code);
    *error = code;
    return nullptr;
  }

  Journal& journal_;
};

/// The network configuration as the registration probe sees it: the registered components and
/// a result chosen per operation ("CoCreateInstance", "Initialize", "FindComponent",
/// "Uninitialize"). It gives out no write lock and no class interfaces.
class FakeNetConfig final : public platform::NetConfig {
 public:
  explicit FakeNetConfig(Journal& journal) : journal_(journal) {}

  std::set<std::wstring> components;
  std::map<std::string, platform::HResult> results;
  int apartments = 0;
  int liveObjects = 0;

  platform::HResult CoInitialize() override {
    journal_.push_back("CoInitialize");
    return apartments++ == 0 ? platform::kSOk : platform::kSFalse;
  }
  void CoUninitialize() override {
    journal_.push_back("CoUninitialize");
    --apartments;
  }
  platform::HResult CreateNetCfg(platform::NetCfg** netCfg) override {
    *netCfg = nullptr;
    if (auto r = Chosen("CoCreateInstance")) return *r;
    *netCfg = new Cfg(*this);
    return platform::kSOk;
  }
  void CoTaskMemFree(void*) override {}

 private:
  std::optional<platform::HResult> Chosen(const std::string& operation) const {
    auto it = results.find(operation);
    if (it == results.end()) return std::nullopt;
    return it->second;
  }

  struct Object {
    explicit Object(FakeNetConfig& o) : owner(o) { ++owner.liveObjects; }
    ~Object() { --owner.liveObjects; }
    FakeNetConfig& owner;
  };

  struct Component final : platform::NetCfgComponent, Object {
    using Object::Object;
    uint32_t Release() override {
      delete this;
      return 0;
    }
    platform::HResult GetClassGuid(Guid* guid) override {
      *guid = platform::kGuidDevClassNetService;
      return platform::kSOk;
    }
  };

  struct Cfg final : platform::NetCfg, Object {
    using Object::Object;
    uint32_t Release() override {
      delete this;
      return 0;
    }
    platform::HResult QueryLock(platform::NetCfgLock** lock) override {
      owner.journal_.push_back("QueryLock");
      *lock = nullptr;
      return platform::kENotImpl;
    }
    platform::HResult Initialize(void*) override {
      if (auto r = owner.Chosen("Initialize")) return *r;
      return platform::kSOk;
    }
    platform::HResult Uninitialize() override {
      owner.journal_.push_back("Uninitialize");
      if (auto r = owner.Chosen("Uninitialize")) return *r;
      return platform::kSOk;
    }
    platform::HResult Apply() override { return platform::kENotImpl; }
    platform::HResult FindComponent(const wchar_t* id, platform::NetCfgComponent** out) override {
      *out = nullptr;
      if (auto r = owner.Chosen("FindComponent")) return *r;
      if (owner.components.count(id) == 0) return platform::kSFalse;
      *out = new Component(owner);
      return platform::kSOk;
    }
    platform::HResult QueryNetCfgClassSetup(const Guid*,
                                            platform::NetCfgClassSetup** setup) override {
      *setup = nullptr;
      return platform::kENotImpl;
    }
    platform::HResult QueryNetCfgClass(const Guid*, platform::NetCfgClass** cls) override {
      *cls = nullptr;
      return platform::kENotImpl;
    }
  };

  Journal& journal_;
};

/// A self-protection component that grants every exception unless told to refuse, holds the
/// keys in locked, lets a lock be lifted only under an exception, and records what it was asked.
class FakeSelfProtection final : public platform::SelfProtection {
 public:
  explicit FakeSelfProtection(Journal& journal) : journal_(journal) {}

  std::set<std::wstring> locked;  // upper case
  std::set<std::wstring> lifted;
  uint32_t refuseExceptions = 0;
  int exceptions = 0;

  bool IsServiceKeyLocked(const wchar_t* service) override {
    journal_.push_back("IsServiceKeyLocked " + WideToUtf8(service));
    return locked.count(Upper(service)) != 0;
  }
  bool LiftServiceKeyLock(const wchar_t* service) override {
    journal_.push_back("LiftServiceKeyLock " + WideToUtf8(service));
    if (exceptions == 0 || locked.erase(Upper(service)) == 0) return false;
    lifted.insert(Upper(service));
    return true;
  }
  void RestoreServiceKeyLock(const wchar_t* service) override {
    journal_.push_back("RestoreServiceKeyLock " + WideToUtf8(service));
    if (lifted.erase(Upper(service)) != 0) locked.insert(Upper(service));
  }
  uint32_t BeginException(const wchar_t* tag, const wchar_t* service) override {
    journal_.push_back("BeginException " + WideToUtf8(tag) + " " + WideToUtf8(service));
    if (refuseExceptions != 0) return refuseExceptions;
    ++exceptions;
    return 0;
  }
  void EndException(const wchar_t* tag, const wchar_t* service) override {
    journal_.push_back("EndException " + WideToUtf8(tag) + " " + WideToUtf8(service));
    --exceptions;
  }

 private:
  Journal& journal_;
};

class FakeMutexes final : public platform::Mutexes {
 public:
  explicit FakeMutexes(Journal& journal) : journal_(journal) {}
  std::set<std::wstring> existing;
  uint32_t waitResult = platform::kWaitObject0;
  int open = 0;

  platform::MutexHandle OpenMutex(uint32_t access, const wchar_t* name, uint32_t* error) override {
    journal_.push_back("OpenMutex " + WideToUtf8(name) + " " + std::to_string(access));
    if (existing.count(name) == 0) {
      *error = kErrorFileNotFound;
      return nullptr;
    }
    ++open;
    return this;
  }
  uint32_t WaitForSingleObject(platform::MutexHandle, uint32_t ms) override {
    journal_.push_back("WaitForSingleObject " + std::to_string(ms));
    return waitResult;
  }
  bool ReleaseMutex(platform::MutexHandle) override {
    journal_.push_back("ReleaseMutex");
    return true;
  }
  bool CloseHandle(platform::MutexHandle) override {
    journal_.push_back("CloseHandle");
    --open;
    return true;
  }

 private:
  Journal& journal_;
};

/// A driver log that keeps its lines, formatted.
inline std::vector<std::string>* recordedLog = nullptr;
inline void RecordLog(const char* format, ...) {
  std::string line;
  va_list args;
  va_start(args, format);
  AppendFormatNarrow(line, format, args);
  va_end(args);
  if (recordedLog != nullptr) recordedLog->push_back(line);
}

/// Puts every fake in place for one test, with a log that records, and the host's facilities
/// back afterwards.
struct FakeDriverHost {
  Journal journal;
  FakeRegistry registry;
  FakeServiceManager scm{journal};
  FakeNetConfig netcfg{journal};
  FakeSelfProtection protection{journal};
  FakeMutexes mutexes{journal};
  std::vector<std::string> log;

  FakeDriverHost() {
    platform::Facility<platform::Registry>::SetForTesting(&registry);
    platform::Facility<platform::ServiceManager>::SetForTesting(&scm);
    platform::Facility<platform::NetConfig>::SetForTesting(&netcfg);
    platform::Facility<platform::SelfProtection>::SetForTesting(&protection);
    platform::Facility<platform::Mutexes>::SetForTesting(&mutexes);
    recordedLog = &log;
    platform::SetThreadLastError(0);
  }
  ~FakeDriverHost() {
    platform::Facility<platform::Registry>::SetForTesting(nullptr);
    platform::Facility<platform::ServiceManager>::SetForTesting(nullptr);
    platform::Facility<platform::NetConfig>::SetForTesting(nullptr);
    platform::Facility<platform::SelfProtection>::SetForTesting(nullptr);
    platform::Facility<platform::Mutexes>::SetForTesting(nullptr);
    recordedLog = nullptr;
  }
  FakeDriverHost(const FakeDriverHost&) = delete;
  FakeDriverHost& operator=(const FakeDriverHost&) = delete;

  /// Nothing is left open, lifted, held or initialised.
  std::string Leftovers() const {
    std::string out;
    if (registry.openKeys != 0) out += "registry keys " + std::to_string(registry.openKeys) + "; ";
    if (scm.openHandles != 0) out += "service handles " + std::to_string(scm.openHandles) + "; ";
    if (netcfg.apartments != 0) out += "COM " + std::to_string(netcfg.apartments) + "; ";
    if (netcfg.liveObjects != 0) out += "objects " + std::to_string(netcfg.liveObjects) + "; ";
    if (protection.exceptions != 0) out += "exceptions; ";
    if (!protection.lifted.empty()) out += "lifted locks; ";
    if (mutexes.open != 0) out += "mutex; ";
    return out;
  }
};

}  // namespace nw::testing::drivers
