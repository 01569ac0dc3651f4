// The network configuration on Windows: COM's INetCfg family. Each object of the facility holds
// one reference to the COM object it wraps and gives it back in Release.

#include <netcfgx.h>
#include <objbase.h>
#include <windows.h>

#include <cstring>
#include <new>

#include "platform/net_config.h"

namespace nw::platform {
namespace {

static_assert(sizeof(Guid) == sizeof(GUID));
static_assert(sizeof(OboToken) == sizeof(OBO_TOKEN));
static_assert(kOboUser == OBO_USER);
static_assert(kNetCfgSReboot == NETCFG_S_REBOOT && kNetCfgENoWriteLock == NETCFG_E_NO_WRITE_LOCK);

const GUID& AsGuid(const Guid* guid) { return *reinterpret_cast<const GUID*>(guid); }

// The identifiers are spelled out here rather than taken from an import library, which not every
// toolchain ships with these GUIDs.
constexpr GUID kClsidCNetCfg = {
    0x5B035261, 0x40F9, 0x11D1, {0xAA, 0xEC, 0x00, 0x80, 0x5F, 0xC1, 0x27, 0x0E}};
constexpr GUID kIidINetCfg = {
    0xC0E8AE93, 0x306E, 0x11D1, {0xAA, 0xCF, 0x00, 0x80, 0x5F, 0xC1, 0x27, 0x0E}};
constexpr GUID kIidINetCfgLock = {
    0xC0E8AE9F, 0x306E, 0x11D1, {0xAA, 0xCF, 0x00, 0x80, 0x5F, 0xC1, 0x27, 0x0E}};
constexpr GUID kIidINetCfgClassSetup = {
    0xC0E8AE9D, 0x306E, 0x11D1, {0xAA, 0xCF, 0x00, 0x80, 0x5F, 0xC1, 0x27, 0x0E}};
constexpr GUID kIidINetCfgClass = {
    0xC0E8AE97, 0x306E, 0x11D1, {0xAA, 0xCF, 0x00, 0x80, 0x5F, 0xC1, 0x27, 0x0E}};

/// Wraps the COM reference it is given; Release gives it back and ends the wrapper.
template <class Facade, class Com>
class Wrapper : public Facade {
 public:
  explicit Wrapper(Com* com) : com_(com) {}
  virtual ~Wrapper() = default;
  uint32_t Release() override {
    const ULONG count = com_->Release();
    delete this;
    return count;
  }

 protected:
  Com* com_;
};

/// Hands a COM object out through a facade, or gives its reference back when no wrapper can be
/// made.
template <class Wrapped, class Com, class Facade>
HResult WrapInto(HRESULT hr, Com* com, Facade** out) {
  *out = nullptr;
  if (FAILED(hr) || com == nullptr) return hr;
  Wrapped* wrapper = new (std::nothrow) Wrapped(com);
  if (wrapper == nullptr) {
    com->Release();
    return E_OUTOFMEMORY;
  }
  *out = wrapper;
  return hr;
}

class Component final : public Wrapper<NetCfgComponent, INetCfgComponent> {
 public:
  using Wrapper::Wrapper;
  HResult GetClassGuid(Guid* classGuid) override {
    return com_->GetClassGuid(reinterpret_cast<GUID*>(classGuid));
  }
  INetCfgComponent* com() const { return com_; }
};

class ClassSetup final : public Wrapper<NetCfgClassSetup, INetCfgClassSetup> {
 public:
  using Wrapper::Wrapper;
  HResult Install(const wchar_t* id, const OboToken* obo, uint32_t setupFlags,
                  uint32_t upgradeFromBuild, const wchar_t* answerFile,
                  const wchar_t* answerSections, NetCfgComponent** component) override {
    OBO_TOKEN token;
    std::memcpy(&token, obo, sizeof token);
    INetCfgComponent* installed = nullptr;
    const HRESULT hr = com_->Install(id, &token, setupFlags, upgradeFromBuild, answerFile,
                                     answerSections, component != nullptr ? &installed : nullptr);
    if (component == nullptr) return hr;
    const HResult wrapped = WrapInto<Component>(hr, installed, component);
    return FAILED(wrapped) ? wrapped : hr;
  }
  HResult DeInstall(NetCfgComponent* component, const OboToken* obo,
                    wchar_t** references) override {
    OBO_TOKEN token;
    std::memcpy(&token, obo, sizeof token);
    INetCfgComponent* com =
        component != nullptr ? static_cast<Component*>(component)->com() : nullptr;
    return com_->DeInstall(com, &token, references);
  }
};

class Class final : public Wrapper<NetCfgClass, INetCfgClass> {
 public:
  using Wrapper::Wrapper;
  HResult QueryClassSetup(NetCfgClassSetup** setup) override {
    INetCfgClassSetup* com = nullptr;
    const HRESULT hr = com_->QueryInterface(kIidINetCfgClassSetup, reinterpret_cast<void**>(&com));
    return WrapInto<ClassSetup>(hr, com, setup);
  }
};

class Lock final : public Wrapper<NetCfgLock, INetCfgLock> {
 public:
  using Wrapper::Wrapper;
  HResult AcquireWriteLock(uint32_t timeoutMs, const wchar_t* clientDescription,
                           wchar_t** holder) override {
    *holder = nullptr;
    return com_->AcquireWriteLock(timeoutMs, clientDescription, holder);
  }
  HResult ReleaseWriteLock() override { return com_->ReleaseWriteLock(); }
};

class Config final : public Wrapper<NetCfg, INetCfg> {
 public:
  using Wrapper::Wrapper;
  HResult QueryLock(NetCfgLock** lock) override {
    INetCfgLock* com = nullptr;
    const HRESULT hr = com_->QueryInterface(kIidINetCfgLock, reinterpret_cast<void**>(&com));
    return WrapInto<Lock>(hr, com, lock);
  }
  HResult Initialize(void* reserved) override { return com_->Initialize(reserved); }
  HResult Uninitialize() override { return com_->Uninitialize(); }
  HResult Apply() override { return com_->Apply(); }
  HResult FindComponent(const wchar_t* id, NetCfgComponent** component) override {
    INetCfgComponent* com = nullptr;
    const HRESULT hr = com_->FindComponent(id, &com);
    return WrapInto<Component>(hr, com, component);
  }
  HResult QueryNetCfgClassSetup(const Guid* classGuid, NetCfgClassSetup** setup) override {
    INetCfgClassSetup* com = nullptr;
    const HRESULT hr = com_->QueryNetCfgClass(&AsGuid(classGuid), kIidINetCfgClassSetup,
                                              reinterpret_cast<void**>(&com));
    return WrapInto<ClassSetup>(hr, com, setup);
  }
  HResult QueryNetCfgClass(const Guid* classGuid, NetCfgClass** netClass) override {
    INetCfgClass* com = nullptr;
    const HRESULT hr = com_->QueryNetCfgClass(&AsGuid(classGuid), kIidINetCfgClass,
                                              reinterpret_cast<void**>(&com));
    return WrapInto<Class>(hr, com, netClass);
  }
};

class Win32NetConfig final : public NetConfig {
 public:
  HResult CoInitialize() override { return ::CoInitialize(nullptr); }
  void CoUninitialize() override { ::CoUninitialize(); }
  HResult CreateNetCfg(NetCfg** netCfg) override {
    INetCfg* com = nullptr;
    const HRESULT hr = ::CoCreateInstance(kClsidCNetCfg, nullptr, CLSCTX_INPROC_SERVER, kIidINetCfg,
                                          reinterpret_cast<void**>(&com));
    return WrapInto<Config>(hr, com, netCfg);
  }
  void CoTaskMemFree(void* memory) override { ::CoTaskMemFree(memory); }
};

}  // namespace

template <>
NetConfig& Facility<NetConfig>::Host() {
  static Win32NetConfig config;
  return config;
}

}  // namespace nw::platform
