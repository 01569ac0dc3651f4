// The registry of the emulated host: the keys and values of the host file, with the 64-bit
// host's redirection of HKLM\SOFTWARE to SOFTWARE\WOW6432Node for the 32-bit view.

#include <algorithm>
#include <cstring>
#include <set>
#include <string>

#include "core/status.h"
#include "platform/registry.h"
#include "sim/host/host_state.h"

namespace nw::platform {
namespace {

constexpr uint32_t kErrorAccessDenied = 5;
constexpr uint32_t kErrorInvalidHandle = 6;

struct OpenKey {
  std::wstring path;  // upper case, as the host stores it
};

/// Where a key opened through the given view lives in the 64-bit registry.
std::wstring ViewPath(std::wstring path, uint32_t access) {
  const std::wstring software = L"HKEY_LOCAL_MACHINE\\SOFTWARE";
  const std::wstring redirected = software + L"\\WOW6432NODE";
  const bool underSoftware = path.compare(0, software.size(), software) == 0 &&
                             (path.size() == software.size() || path[software.size()] == L'\\');
  const bool alreadyRedirected = path.compare(0, redirected.size(), redirected) == 0;
  if ((access & kKeyWow64_32Key) && underSoftware && !alreadyRedirected) {
    path.insert(software.size(), L"\\WOW6432NODE");
  }
  return path;
}

bool KeyExists(const std::wstring& path) {
  // A key exists when it holds values or when some key below it does.
  for (const auto& entry : sim::Host().registry) {
    const std::wstring& key = entry.first;
    if (key == path || (key.size() > path.size() && key.compare(0, path.size(), path) == 0 &&
                        key[path.size()] == L'\\')) {
      return true;
    }
  }
  return false;
}

std::set<platform::OpenKey*>& LiveKeys() {
  static std::set<platform::OpenKey*> keys;
  return keys;
}

/// The open key a handle stands for; null for anything this registry did not hand out.
platform::OpenKey* Live(RegistryKey key) {
  auto* open = static_cast<platform::OpenKey*>(key);
  return LiveKeys().count(open) != 0 ? open : nullptr;
}

class PosixRegistry final : public Registry {
 public:
  uint32_t OpenKey(RegistryKey root, const wchar_t* subKey, uint32_t access,
                   RegistryKey* key) override {
    *key = nullptr;
    if (auto fault = sim::HostFault("RegOpenKeyEx")) return static_cast<uint32_t>(*fault);
    // A key is opened below the predefined root or below a key opened before.
    const platform::OpenKey* parent = root != kHKeyLocalMachine ? Live(root) : nullptr;
    if (root != kHKeyLocalMachine && parent == nullptr) return kErrorInvalidHandle;
    if (subKey == nullptr) return kErrorInvalidParameter;
    std::wstring path = parent != nullptr ? parent->path : L"HKEY_LOCAL_MACHINE";
    std::wstring sub = sim::UpperAscii(subKey);
    while (!sub.empty() && sub.back() == L'\\') sub.pop_back();
    if (!sub.empty()) path += L"\\" + sub;
    path = ViewPath(path, access);
    if (!KeyExists(path)) return kErrorFileNotFound;
    auto* opened = new (std::nothrow) platform::OpenKey{path};
    if (opened == nullptr) return kErrorOutOfMemory;
    LiveKeys().insert(opened);
    ++sim::Usage().registryKeys;
    *key = opened;
    return 0;
  }

  uint32_t QueryValue(RegistryKey key, const wchar_t* name, uint32_t* type, void* data,
                      uint32_t* size) override {
    if (Live(key) == nullptr) return kErrorInvalidHandle;
    if (auto fault = sim::HostFault("RegQueryValueEx")) return static_cast<uint32_t>(*fault);
    const auto& registry = sim::Host().registry;
    auto values = registry.find(static_cast<platform::OpenKey*>(key)->path);
    if (values == registry.end()) return kErrorFileNotFound;
    auto value = values->second.find(sim::UpperAscii(name == nullptr ? L"" : name));
    if (value == values->second.end()) return kErrorFileNotFound;
    const auto& bytes = value->second.data;
    if (type != nullptr) *type = value->second.type;
    if (size == nullptr) return data == nullptr ? 0 : kErrorInvalidParameter;
    const uint32_t needed = static_cast<uint32_t>(bytes.size());
    if (data != nullptr && *size < needed) {
      *size = needed;
      return kErrorMoreData;
    }
    if (data != nullptr) std::memcpy(data, bytes.data(), bytes.size());
    *size = needed;
    return 0;
  }

  uint32_t SetValue(RegistryKey key, const wchar_t* name, uint32_t type, const void* data,
                    uint32_t size) override {
    if (Live(key) == nullptr) return kErrorInvalidHandle;
    if (auto fault = sim::HostFault("RegSetValueEx")) return static_cast<uint32_t>(*fault);
    // The self-protection component guards the keys of the services it protects.
    const std::wstring service = sim::ServiceOfKeyPath(static_cast<platform::OpenKey*>(key)->path);
    if (!service.empty() && sim::ServiceKeyLocked(service)) return kErrorAccessDenied;
    sim::RegistryValue value;
    value.name = name == nullptr ? L"" : name;
    value.type = type;
    const auto* bytes = static_cast<const uint8_t*>(data);
    value.data.assign(bytes, bytes + size);
    std::string error;
    if (!sim::SetHostRegistryValue(static_cast<platform::OpenKey*>(key)->path, value, &error)) {
      return kErrorAccessDenied;
    }
    return 0;
  }

  uint32_t CloseKey(RegistryKey key) override {
    platform::OpenKey* open = Live(key);
    if (open == nullptr) return kErrorInvalidHandle;
    LiveKeys().erase(open);
    delete open;
    --sim::Usage().registryKeys;
    return 0;
  }
};

}  // namespace

template <>
Registry& Facility<Registry>::Host() {
  static PosixRegistry registry;
  return registry;
}

}  // namespace nw::platform
