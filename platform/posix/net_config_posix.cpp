// The network configuration of the emulated host: components by PnP id, the configuration's
// write lock, and changes that are kept in the INetCfg object until Apply commits them to the
// host file. "netcfg.results" in the host file makes an operation give a chosen result instead:
// NETCFG_S_REBOOT from Install, DeInstall or Apply still does the operation's work (a change
// that needs a reboot); any other chosen result does nothing.

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "platform/net_config.h"
#include "sim/host/host_state.h"

namespace nw::platform {
namespace {

std::optional<HResult> ChosenResult(const char* operation) { return sim::NetcfgResult(operation); }

bool SameId(const std::wstring& a, const std::wstring& b) {
  return sim::UpperAscii(a) == sim::UpperAscii(b);
}

/// Counts one reference of a configuration object for the leak report.
class Counted {
 protected:
  Counted() { ++sim::Usage().netcfgObjects; }
  ~Counted() { --sim::Usage().netcfgObjects; }
};

class PosixNetCfg;

class Component final : public NetCfgComponent, Counted {
 public:
  explicit Component(std::wstring id) : id_(std::move(id)) {}
  uint32_t Release() override {
    delete this;
    return 0;
  }
  HResult GetClassGuid(Guid* classGuid) override {
    if (auto chosen = ChosenResult("INetCfgComponent::GetClassGuid")) return *chosen;
    *classGuid = kGuidDevClassNetService;
    return kSOk;
  }
  const std::wstring& id() const { return id_; }

 private:
  std::wstring id_;
};

/// One INetCfg object: a view of the components, with the changes not yet applied.
class PosixNetCfg final : public NetCfg, Counted {
 public:
  uint32_t Release() override;
  HResult QueryLock(NetCfgLock** lock) override;
  HResult Initialize(void*) override {
    if (auto chosen = ChosenResult("INetCfg::Initialize")) return *chosen;
    if (initialized_) return kNetCfgEAlreadyInitialized;
    initialized_ = true;
    view_ = sim::Host().drivers.components;
    return kSOk;
  }
  HResult Uninitialize() override {
    if (auto chosen = ChosenResult("INetCfg::Uninitialize")) return *chosen;
    if (!initialized_) return kNetCfgENotInitialized;
    // Changes that were never applied are dropped.
    initialized_ = false;
    view_.clear();
    return kSOk;
  }
  HResult Apply() override {
    const std::optional<HResult> chosen = ChosenResult("INetCfg::Apply");
    if (chosen && *chosen != kNetCfgSReboot) return *chosen;
    if (!initialized_) return kNetCfgENotInitialized;
    if (!holdsWriteLock_) return kNetCfgENoWriteLock;
    std::string error;
    if (!sim::SetNetComponents(view_, &error)) return kEFail;
    return chosen.value_or(kSOk);
  }
  HResult FindComponent(const wchar_t* id, NetCfgComponent** component) override {
    *component = nullptr;
    if (auto chosen = ChosenResult("INetCfg::FindComponent")) return *chosen;
    if (!initialized_) return kNetCfgENotInitialized;
    if (id == nullptr) return kEInvalidArg;
    if (!Has(id)) return kSFalse;
    *component = new Component(id);
    return kSOk;
  }
  HResult QueryNetCfgClassSetup(const Guid* classGuid, NetCfgClassSetup** setup) override;
  HResult QueryNetCfgClass(const Guid* classGuid, NetCfgClass** netClass) override;

  // What the lock, class and class-setup objects of this configuration change.
  void set_holds_write_lock(bool held) { holdsWriteLock_ = held; }
  HResult Install(const wchar_t* id) {
    const std::optional<HResult> chosen = ChosenResult("INetCfgClassSetup::Install");
    if (chosen && *chosen != kNetCfgSReboot) return *chosen;
    if (const HResult refused = CanChange()) return refused;
    if (id == nullptr) return kEInvalidArg;
    if (!Has(id)) view_.push_back(id);
    return chosen.value_or(kSOk);
  }
  HResult DeInstall(NetCfgComponent* component) {
    const std::optional<HResult> chosen = ChosenResult("INetCfgClassSetup::DeInstall");
    if (chosen && *chosen != kNetCfgSReboot) return *chosen;
    if (const HResult refused = CanChange()) return refused;
    if (component == nullptr) return kEInvalidArg;
    const std::wstring& id = static_cast<Component*>(component)->id();
    view_.erase(std::remove_if(view_.begin(), view_.end(),
                               [&](const std::wstring& other) { return SameId(other, id); }),
                view_.end());
    return chosen.value_or(kSOk);
  }

 private:
  bool Has(const std::wstring& id) const {
    return std::any_of(view_.begin(), view_.end(),
                       [&](const std::wstring& other) { return SameId(other, id); });
  }
  HResult CanChange() const {
    if (!initialized_) return kNetCfgENotInitialized;
    return holdsWriteLock_ ? kSOk : kNetCfgENoWriteLock;
  }

  bool initialized_ = false;
  bool holdsWriteLock_ = false;
  std::vector<std::wstring> view_;
};

/// The write lock of the whole host, shared between processes through the host file.
class Lock final : public NetCfgLock, Counted {
 public:
  explicit Lock(PosixNetCfg* owner) : owner_(owner) {}
  uint32_t Release() override {
    delete this;
    return 0;
  }
  HResult AcquireWriteLock(uint32_t, const wchar_t* clientDescription, wchar_t** holder) override {
    *holder = nullptr;
    if (auto chosen = ChosenResult("INetCfgLock::AcquireWriteLock")) return *chosen;
    const sim::DriverHost& drivers = sim::Host().drivers;
    if (drivers.writeLockHeld) {
      // Nobody gives the lock back while this process waits, so the wait ends in a timeout at
      // once instead of after timeoutMs.
      if (drivers.writeLockHolder) *holder = CopyToTaskMemory(*drivers.writeLockHolder);
      return kSFalse;
    }
    std::optional<std::wstring> name;
    if (clientDescription != nullptr) name = clientDescription;
    std::string error;
    if (!sim::SetWriteLock(true, name, &error)) return kEFail;
    held_ = true;
    sim::Usage().writeLockHeld = true;
    owner_->set_holds_write_lock(true);
    return kSOk;
  }
  HResult ReleaseWriteLock() override {
    if (auto chosen = ChosenResult("INetCfgLock::ReleaseWriteLock")) return *chosen;
    if (!held_) return kSOk;
    std::string error;
    if (!sim::SetWriteLock(false, std::nullopt, &error)) return kEFail;
    held_ = false;
    sim::Usage().writeLockHeld = false;
    owner_->set_holds_write_lock(false);
    return kSOk;
  }

 private:
  static wchar_t* CopyToTaskMemory(const std::wstring& text) {
    auto* copy = static_cast<wchar_t*>(std::malloc((text.size() + 1) * sizeof(wchar_t)));
    if (copy == nullptr) return nullptr;
    std::memcpy(copy, text.c_str(), (text.size() + 1) * sizeof(wchar_t));
    ++sim::Usage().taskMemoryBlocks;
    return copy;
  }

  PosixNetCfg* owner_;  // the configuration this lock was obtained from; it outlives the lock
  bool held_ = false;
};

class ClassSetup final : public NetCfgClassSetup, Counted {
 public:
  explicit ClassSetup(PosixNetCfg* owner) : owner_(owner) {}
  uint32_t Release() override {
    delete this;
    return 0;
  }
  HResult Install(const wchar_t* id, const OboToken*, uint32_t, uint32_t, const wchar_t*,
                  const wchar_t*, NetCfgComponent** component) override {
    if (component != nullptr) *component = nullptr;
    return owner_->Install(id);
  }
  HResult DeInstall(NetCfgComponent* component, const OboToken*, wchar_t** references) override {
    if (references != nullptr) *references = nullptr;
    return owner_->DeInstall(component);
  }

 private:
  PosixNetCfg* owner_;
};

class Class final : public NetCfgClass, Counted {
 public:
  explicit Class(PosixNetCfg* owner) : owner_(owner) {}
  uint32_t Release() override {
    delete this;
    return 0;
  }
  HResult QueryClassSetup(NetCfgClassSetup** setup) override {
    *setup = nullptr;
    if (auto chosen = ChosenResult("INetCfgClass::QueryInterface")) return *chosen;
    *setup = new ClassSetup(owner_);
    return kSOk;
  }

 private:
  PosixNetCfg* owner_;
};

uint32_t PosixNetCfg::Release() {
  delete this;
  return 0;
}

HResult PosixNetCfg::QueryLock(NetCfgLock** lock) {
  *lock = nullptr;
  if (auto chosen = ChosenResult("INetCfg::QueryInterface")) return *chosen;
  *lock = new Lock(this);
  return kSOk;
}

HResult PosixNetCfg::QueryNetCfgClassSetup(const Guid* classGuid, NetCfgClassSetup** setup) {
  *setup = nullptr;
  if (auto chosen = ChosenResult("INetCfg::QueryNetCfgClass")) return *chosen;
  if (!initialized_) return kNetCfgENotInitialized;
  if (classGuid == nullptr || !(*classGuid == kGuidDevClassNetService)) return kEInvalidArg;
  *setup = new ClassSetup(this);
  return kSOk;
}

HResult PosixNetCfg::QueryNetCfgClass(const Guid* classGuid, NetCfgClass** netClass) {
  *netClass = nullptr;
  if (auto chosen = ChosenResult("INetCfg::QueryNetCfgClass")) return *chosen;
  if (!initialized_) return kNetCfgENotInitialized;
  if (classGuid == nullptr || !(*classGuid == kGuidDevClassNetService)) return kEInvalidArg;
  *netClass = new Class(this);
  return kSOk;
}

class PosixNetConfig final : public NetConfig {
 public:
  HResult CoInitialize() override { return sim::Usage().comApartments++ == 0 ? kSOk : kSFalse; }
  void CoUninitialize() override {
    if (sim::Usage().comApartments > 0) --sim::Usage().comApartments;
  }
  HResult CreateNetCfg(NetCfg** netCfg) override {
    *netCfg = nullptr;
    if (sim::Usage().comApartments == 0) return kCoENotInitialized;
    if (auto chosen = ChosenResult("CoCreateInstance")) return *chosen;
    *netCfg = new PosixNetCfg();
    return kSOk;
  }
  void CoTaskMemFree(void* memory) override {
    if (memory == nullptr) return;
    std::free(memory);
    --sim::Usage().taskMemoryBlocks;
  }
};

}  // namespace

template <>
NetConfig& Facility<NetConfig>::Host() {
  static PosixNetConfig config;
  return config;
}

}  // namespace nw::platform
