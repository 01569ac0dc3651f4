#pragma once

// In-memory stand-ins for the host facilities the driver commands use: registry, service
// control manager, network configuration, self-protection, mutexes and OS version. They share
// one journal, so that a test can check the order in which the logic asked for things, and they
// count what is open, so that a test can check that every path gives everything back.

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
#include "platform/os_version.h"
#include "platform/registry.h"
#include "platform/self_protection.h"
#include "platform/service_manager.h"

namespace nw::testing::drivers {

inline std::wstring Upper(std::wstring text) {
  for (auto& c : text) c = (c >= L'a' && c <= L'z') ? static_cast<wchar_t>(c - 32) : c;
  return text;
}

/// What the logic asked of the host, in order.
struct Journal {
  std::vector<std::string> calls;
  void Add(const std::string& call) { calls.push_back(call); }
  /// The calls that start with prefix, in order.
  std::vector<std::string> Matching(const std::string& prefix) const {
    std::vector<std::string> out;
    for (const auto& call : calls) {
      if (call.rfind(prefix, 0) == 0) out.push_back(call);
    }
    return out;
  }
};

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
  explicit FakeRegistry(Journal& journal) : journal_(journal) {}

  void AddKey(const std::wstring& key) { keys_[Upper(key)]; }
  void SetRaw(const std::wstring& key, const std::wstring& name, uint32_t type, const void* data,
              size_t size) {
    Value& v = keys_[Upper(key)][Upper(name)];
    v.type = type;
    v.data.assign(static_cast<const uint8_t*>(data), static_cast<const uint8_t*>(data) + size);
  }
  void SetDword(const std::wstring& key, const std::wstring& name, uint32_t value) {
    SetRaw(key, name, platform::kRegDword, &value, 4);
  }
  void SetString(const std::wstring& key, const std::wstring& name, const std::wstring& text,
                 uint32_t type = platform::kRegSz) {
    SetRaw(key, name, type, text.c_str(), (text.size() + 1) * sizeof(wchar_t));
  }
  void Remove(const std::wstring& key, const std::wstring& name) {
    keys_[Upper(key)].erase(Upper(name));
  }
  const Value* Find(const std::wstring& key, const std::wstring& name) const {
    auto k = keys_.find(Upper(key));
    if (k == keys_.end()) return nullptr;
    auto v = k->second.find(Upper(name));
    return v == k->second.end() ? nullptr : &v->second;
  }
  std::optional<uint32_t> Dword(const std::wstring& key, const std::wstring& name) const {
    const Value* v = Find(key, name);
    if (v == nullptr || v->type != platform::kRegDword) return std::nullopt;
    uint32_t d = 0;
    std::memcpy(&d, v->data.data(), 4);
    return d;
  }
  std::optional<std::wstring> String(const std::wstring& key, const std::wstring& name,
                                     uint32_t* type = nullptr) const {
    const Value* v = Find(key, name);
    if (v == nullptr) return std::nullopt;
    if (type != nullptr) *type = v->type;
    std::wstring text(reinterpret_cast<const wchar_t*>(v->data.data()),
                      v->data.size() / sizeof(wchar_t));
    return text.substr(0, text.find(L'\0'));
  }

  /// Errors forced for one key path (upper case) or for every write.
  std::map<std::wstring, uint32_t> openErrors;
  uint32_t setError = 0;
  /// Keys a self-protection fake holds locked refuse writes (set by FakeSelfProtection).
  std::set<std::wstring>* lockedServices = nullptr;
  int openKeys = 0;
  std::vector<uint32_t> openAccess;

  uint32_t OpenKey(platform::RegistryKey root, const wchar_t* subKey, uint32_t access,
                   platform::RegistryKey* key) override {
    *key = nullptr;
    std::wstring path = root == platform::kHKeyLocalMachine ? std::wstring(L"HKLM")
                                                            : static_cast<OpenedKey*>(root)->path;
    path += L"\\" + Upper(subKey);
    if ((access & platform::kKeyWow64_32Key) && path.rfind(L"HKLM\\SOFTWARE\\", 0) == 0) {
      path.insert(13, L"\\WOW6432NODE");
    }
    openAccess.push_back(access);
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
    const std::wstring& path = static_cast<OpenedKey*>(key)->path;
    journal_.Add("RegSetValue " + WideToUtf8(path.substr(path.rfind(L'\\') + 1)) + " " +
                 WideToUtf8(name));
    if (setError != 0) return setError;
    if (lockedServices != nullptr && lockedServices->count(path.substr(path.rfind(L'\\') + 1))) {
      return 5;
    }
    Value& v = keys_[path][Upper(name)];
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

  Journal& journal_;
  std::map<std::wstring, std::map<std::wstring, Value>> keys_;
};

/// The services the manager knows; their configuration is in the fake registry.
class FakeServiceManager final : public platform::ServiceManager {
 public:
  FakeServiceManager(Journal& journal, FakeRegistry& registry)
      : journal_(journal), registry_(registry) {}

  void AddService(const std::wstring& name, uint32_t startType, bool running = false) {
    services_.insert(Upper(name));
    registry_.SetDword(kServicesKey + name, L"Start", startType);
    if (running) running_.insert(Upper(name));
  }
  bool Running(const std::wstring& name) const { return running_.count(Upper(name)) != 0; }

  uint32_t openManagerError = 0;
  std::map<std::wstring, uint32_t> changeErrors;  // by upper-case name
  std::map<std::wstring, uint32_t> stopErrors;
  std::map<std::wstring, uint32_t> startErrors;
  uint32_t queryError = 0;
  int openHandles = 0;

  platform::ServiceHandle OpenSCManager(uint32_t access, uint32_t* error) override {
    journal_.Add("OpenSCManager " + Hex(access));
    if (openManagerError != 0) return Fail(openManagerError, error);
    return New(L"");
  }
  platform::ServiceHandle OpenService(platform::ServiceHandle, const wchar_t* name, uint32_t access,
                                      uint32_t* error) override {
    journal_.Add("OpenService " + WideToUtf8(name) + " " + Hex(access));
    if (services_.count(Upper(name)) == 0) return Fail(platform::kErrorServiceDoesNotExist, error);
    return New(name);
  }
  bool ChangeServiceConfig(platform::ServiceHandle handle, uint32_t type, uint32_t startType,
                           uint32_t errorControl, const wchar_t* path, uint32_t* error) override {
    const std::wstring name = Name(handle);
    journal_.Add("ChangeServiceConfig " + WideToUtf8(name) + " " + std::to_string(startType) + " " +
                 WideToUtf8(path != nullptr ? path : L"(null)") + " " + Hex(type) + " " +
                 Hex(errorControl));
    if (handle == nullptr) return Fail(platform::kErrorInvalidHandle, error) != nullptr;
    if (Locked(Upper(name))) return Fail(platform::kErrorAccessDenied, error) != nullptr;
    if (auto it = changeErrors.find(Upper(name)); it != changeErrors.end()) {
      return Fail(it->second, error) != nullptr;
    }
    registry_.SetDword(kServicesKey + name, L"Start", startType);
    registry_.SetString(kServicesKey + name, L"ImagePath", path, platform::kRegExpandSz);
    return true;
  }
  bool ControlService(platform::ServiceHandle handle, uint32_t control, uint32_t* error) override {
    const std::wstring name = Name(handle);
    journal_.Add("ControlService " + WideToUtf8(name) + " " + std::to_string(control));
    if (handle == nullptr) return Fail(platform::kErrorInvalidHandle, error) != nullptr;
    if (Locked(Upper(name))) return Fail(platform::kErrorAccessDenied, error) != nullptr;
    if (auto it = stopErrors.find(Upper(name)); it != stopErrors.end()) {
      return Fail(it->second, error) != nullptr;
    }
    if (running_.erase(Upper(name)) == 0)
      return Fail(platform::kErrorServiceNotActive, error) != nullptr;
    return true;
  }
  bool StartService(platform::ServiceHandle handle, uint32_t* error) override {
    const std::wstring name = Name(handle);
    journal_.Add("StartService " + WideToUtf8(name));
    if (handle == nullptr) return Fail(platform::kErrorInvalidHandle, error) != nullptr;
    if (auto it = startErrors.find(Upper(name)); it != startErrors.end()) {
      return Fail(it->second, error) != nullptr;
    }
    running_.insert(Upper(name));
    return true;
  }
  bool QueryServiceConfig(platform::ServiceHandle handle, platform::ServiceConfig* config,
                          uint32_t bufferSize, uint32_t* needed, uint32_t* error) override {
    journal_.Add("QueryServiceConfig " + WideToUtf8(Name(handle)) + " " +
                 std::to_string(bufferSize));
    if (queryError != 0) return Fail(queryError, error) != nullptr;
    // The record and 40 bytes of strings: a caller that does not ask for the size fails.
    *needed = sizeof(platform::ServiceConfig) + 40;
    if (config == nullptr || bufferSize < *needed) {
      return Fail(kErrorInsufficientBuffer, error) != nullptr;
    }
    std::memset(config, 0, *needed);
    config->startType = registry_.Dword(kServicesKey + Name(handle), L"Start").value_or(3);
    return true;
  }
  bool CloseServiceHandle(platform::ServiceHandle handle) override {
    --openHandles;
    delete static_cast<std::wstring*>(handle);
    return true;
  }

 private:
  static std::string Hex(uint32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, "%x", value);
    return text;
  }
  bool Locked(const std::wstring& name) const {
    return registry_.lockedServices != nullptr && registry_.lockedServices->count(name) != 0;
  }
  platform::ServiceHandle New(const std::wstring& name) {
    ++openHandles;
    return new std::wstring(name);
  }
  /// The name the service was opened with; the tables are keyed by its upper case.
  static std::wstring Name(platform::ServiceHandle handle) {
    return handle == nullptr ? L"(null)" : *static_cast<std::wstring*>(handle);
  }
  static platform::ServiceHandle Fail(uint32_t code, uint32_t* error) {
    platform::SetThreadLastError(code);
    *error = code;
    return nullptr;
  }

  Journal& journal_;
  FakeRegistry& registry_;
  std::set<std::wstring> services_;
  std::set<std::wstring> running_;
};

/// The network configuration: the registered components and the write lock, with a result
/// chosen per operation ("Install", "Apply", ...); NETCFG_S_REBOOT from Install, DeInstall or
/// Apply still does the work, any other chosen result does nothing.
class FakeNetConfig final : public platform::NetConfig {
 public:
  explicit FakeNetConfig(Journal& journal) : journal_(journal) {}

  std::set<std::wstring> components;
  std::map<std::string, platform::HResult> results;
  /// Another client holds the write lock; holderName is what it tells (none: no name).
  bool lockHeldElsewhere = false;
  std::optional<std::wstring> holderName;
  int apartments = 0;
  int liveObjects = 0;
  int holderTexts = 0;  // texts handed out and not yet freed
  bool lockHeld = false;

  platform::HResult CoInitialize() override {
    journal_.Add("CoInitialize");
    return apartments++ == 0 ? platform::kSOk : platform::kSFalse;
  }
  void CoUninitialize() override {
    journal_.Add("CoUninitialize");
    --apartments;
  }
  platform::HResult CreateNetCfg(platform::NetCfg** netCfg) override {
    journal_.Add("CoCreateInstance");
    *netCfg = nullptr;
    if (auto r = Chosen("CoCreateInstance")) return *r;
    *netCfg = new Cfg(*this);
    return platform::kSOk;
  }
  void CoTaskMemFree(void* memory) override {
    if (memory == nullptr) return;
    --holderTexts;
    delete[] static_cast<wchar_t*>(memory);
  }

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
    Component(FakeNetConfig& o, std::wstring i) : Object(o), id(std::move(i)) {}
    uint32_t Release() override {
      delete this;
      return 0;
    }
    platform::HResult GetClassGuid(Guid* guid) override {
      owner.journal_.Add("GetClassGuid");
      if (auto r = owner.Chosen("GetClassGuid")) return *r;
      *guid = platform::kGuidDevClassNetService;
      return platform::kSOk;
    }
    std::wstring id;
  };

  struct Setup final : platform::NetCfgClassSetup, Object {
    using Object::Object;
    uint32_t Release() override {
      delete this;
      return 0;
    }
    platform::HResult Install(const wchar_t* id, const platform::OboToken* obo, uint32_t flags,
                              uint32_t build, const wchar_t* answerFile, const wchar_t* sections,
                              platform::NetCfgComponent** out) override {
      owner.journal_.Add("Install " + WideToUtf8(id) + " obo=" + std::to_string(obo->type) +
                         (flags == 0 && build == 0 && answerFile == nullptr &&
                                  sections == nullptr && out == nullptr && obo->component == nullptr
                              ? ""
                              : " with extras"));
      auto r = owner.Chosen("Install");
      if (r && *r != platform::kNetCfgSReboot) return *r;
      owner.components.insert(id);
      return r.value_or(platform::kSOk);
    }
    platform::HResult DeInstall(platform::NetCfgComponent* component, const platform::OboToken* obo,
                                wchar_t** refs) override {
      const std::wstring& id = static_cast<Component*>(component)->id;
      owner.journal_.Add("DeInstall " + WideToUtf8(id) + " obo=" + std::to_string(obo->type) +
                         (refs == nullptr ? "" : " with references"));
      auto r = owner.Chosen("DeInstall");
      if (r && *r != platform::kNetCfgSReboot) return *r;
      owner.components.erase(id);
      return r.value_or(platform::kSOk);
    }
  };

  struct Class final : platform::NetCfgClass, Object {
    using Object::Object;
    uint32_t Release() override {
      delete this;
      return 0;
    }
    platform::HResult QueryClassSetup(platform::NetCfgClassSetup** setup) override {
      owner.journal_.Add("QueryInterface INetCfgClassSetup");
      if (auto r = owner.Chosen("QueryClassSetup")) return *r;
      *setup = new Setup(owner);
      return platform::kSOk;
    }
  };

  struct Lock final : platform::NetCfgLock, Object {
    using Object::Object;
    uint32_t Release() override {
      delete this;
      return 0;
    }
    platform::HResult AcquireWriteLock(uint32_t timeout, const wchar_t* client,
                                       wchar_t** holder) override {
      owner.journal_.Add("AcquireWriteLock " + std::to_string(timeout) + " " +
                         WideToUtf8(client != nullptr ? client : L"(null)"));
      *holder = nullptr;
      if (auto r = owner.Chosen("AcquireWriteLock")) return *r;
      if (owner.lockHeldElsewhere) {
        if (owner.holderName) {
          *holder = new wchar_t[owner.holderName->size() + 1];
          std::wmemcpy(*holder, owner.holderName->c_str(), owner.holderName->size() + 1);
          ++owner.holderTexts;
        }
        return platform::kSFalse;
      }
      owner.lockHeld = true;
      return platform::kSOk;
    }
    platform::HResult ReleaseWriteLock() override {
      owner.journal_.Add("ReleaseWriteLock");
      owner.lockHeld = false;
      if (auto r = owner.Chosen("ReleaseWriteLock")) return *r;
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
      owner.journal_.Add("QueryInterface INetCfgLock");
      if (auto r = owner.Chosen("QueryLock")) return *r;
      *lock = new Lock(owner);
      return platform::kSOk;
    }
    platform::HResult Initialize(void* reserved) override {
      owner.journal_.Add(reserved == nullptr ? "Initialize" : "Initialize with reserved");
      if (auto r = owner.Chosen("Initialize")) return *r;
      return platform::kSOk;
    }
    platform::HResult Uninitialize() override {
      owner.journal_.Add("Uninitialize");
      if (auto r = owner.Chosen("Uninitialize")) return *r;
      return platform::kSOk;
    }
    platform::HResult Apply() override {
      owner.journal_.Add("Apply");
      if (auto r = owner.Chosen("Apply")) return *r;
      return platform::kSOk;
    }
    platform::HResult FindComponent(const wchar_t* id, platform::NetCfgComponent** out) override {
      owner.journal_.Add("FindComponent " + WideToUtf8(id));
      *out = nullptr;
      if (auto r = owner.Chosen("FindComponent")) return *r;
      if (owner.components.count(id) == 0) return platform::kSFalse;
      *out = new Component(owner, id);
      return platform::kSOk;
    }
    platform::HResult QueryNetCfgClassSetup(const Guid* guid,
                                            platform::NetCfgClassSetup** setup) override {
      owner.journal_.Add(std::string("QueryNetCfgClass INetCfgClassSetup") +
                         (*guid == platform::kGuidDevClassNetService ? "" : " other class"));
      if (auto r = owner.Chosen("QueryNetCfgClassSetup")) return *r;
      *setup = new Setup(owner);
      return platform::kSOk;
    }
    platform::HResult QueryNetCfgClass(const Guid* guid, platform::NetCfgClass** cls) override {
      owner.journal_.Add(std::string("QueryNetCfgClass INetCfgClass") +
                         (*guid == platform::kGuidDevClassNetService ? "" : " other class"));
      if (auto r = owner.Chosen("QueryNetCfgClass")) return *r;
      *cls = new Class(owner);
      return platform::kSOk;
    }
  };

  Journal& journal_;
};

/// A self-protection component holding some service keys locked. A lock can be lifted only
/// while an exception for its service is held (as on the emulated host).
class FakeSelfProtection final : public platform::SelfProtection {
 public:
  explicit FakeSelfProtection(Journal& journal) : journal_(journal) {}

  std::set<std::wstring> locked;  // upper case; the fake registry refuses writes below them
  std::set<std::wstring> lifted;
  std::map<std::wstring, int> exceptions;
  uint32_t refuseExceptions = 0;

  bool IsServiceKeyLocked(const wchar_t* service) override {
    journal_.Add("IsServiceKeyLocked " + WideToUtf8(service));
    return locked.count(Upper(service)) != 0;
  }
  bool LiftServiceKeyLock(const wchar_t* service) override {
    journal_.Add("LiftServiceKeyLock " + WideToUtf8(service));
    const std::wstring name = Upper(service);
    if (locked.count(name) == 0 || exceptions[name] == 0) return false;
    locked.erase(name);
    lifted.insert(name);
    return true;
  }
  void RestoreServiceKeyLock(const wchar_t* service) override {
    journal_.Add("RestoreServiceKeyLock " + WideToUtf8(service));
    const std::wstring name = Upper(service);
    if (lifted.erase(name) != 0) locked.insert(name);
  }
  uint32_t BeginException(const wchar_t* tag, const wchar_t* service) override {
    journal_.Add("BeginException " + WideToUtf8(tag) + " " + WideToUtf8(service));
    if (refuseExceptions != 0) return refuseExceptions;
    ++exceptions[Upper(service)];
    return 0;
  }
  void EndException(const wchar_t* tag, const wchar_t* service) override {
    journal_.Add("EndException " + WideToUtf8(tag) + " " + WideToUtf8(service));
    --exceptions[Upper(service)];
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
    journal_.Add("OpenMutex " + WideToUtf8(name) + " " + std::to_string(access));
    if (existing.count(name) == 0) {
      *error = kErrorFileNotFound;
      return nullptr;
    }
    ++open;
    return this;
  }
  uint32_t WaitForSingleObject(platform::MutexHandle, uint32_t ms) override {
    journal_.Add("WaitForSingleObject " + std::to_string(ms));
    return waitResult;
  }
  bool ReleaseMutex(platform::MutexHandle) override {
    journal_.Add("ReleaseMutex");
    return true;
  }
  bool CloseHandle(platform::MutexHandle) override {
    journal_.Add("CloseHandle");
    --open;
    return true;
  }

 private:
  Journal& journal_;
};

class FakeOsVersion final : public platform::OsVersion {
 public:
  std::optional<platform::OsVersionInfo> version;
  int calls = 0;
  bool RtlGetVersion(platform::OsVersionInfo* info) override {
    ++calls;
    if (!version) return false;
    *info = *version;
    return true;
  }
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
  FakeRegistry registry{journal};
  FakeServiceManager scm{journal, registry};
  FakeNetConfig netcfg{journal};
  FakeSelfProtection protection{journal};
  FakeMutexes mutexes{journal};
  FakeOsVersion os;
  std::vector<std::string> log;

  FakeDriverHost() {
    registry.lockedServices = &protection.locked;
    platform::Facility<platform::Registry>::SetForTesting(&registry);
    platform::Facility<platform::ServiceManager>::SetForTesting(&scm);
    platform::Facility<platform::NetConfig>::SetForTesting(&netcfg);
    platform::Facility<platform::SelfProtection>::SetForTesting(&protection);
    platform::Facility<platform::Mutexes>::SetForTesting(&mutexes);
    platform::Facility<platform::OsVersion>::SetForTesting(&os);
    recordedLog = &log;
    platform::SetThreadLastError(0);
  }
  ~FakeDriverHost() {
    platform::Facility<platform::Registry>::SetForTesting(nullptr);
    platform::Facility<platform::ServiceManager>::SetForTesting(nullptr);
    platform::Facility<platform::NetConfig>::SetForTesting(nullptr);
    platform::Facility<platform::SelfProtection>::SetForTesting(nullptr);
    platform::Facility<platform::Mutexes>::SetForTesting(nullptr);
    platform::Facility<platform::OsVersion>::SetForTesting(nullptr);
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
    if (netcfg.holderTexts != 0) out += "holder texts; ";
    if (netcfg.lockHeld) out += "write lock; ";
    if (!protection.lifted.empty()) out += "lifted lock; ";
    for (const auto& e : protection.exceptions) {
      if (e.second != 0) out += "exception " + WideToUtf8(e.first) + "; ";
    }
    if (mutexes.open != 0) out += "mutex; ";
    return out;
  }
};

}  // namespace nw::testing::drivers
