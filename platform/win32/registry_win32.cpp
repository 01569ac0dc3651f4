// The registry on Windows: the Reg* calls with their status codes as they come.

#include <windows.h>

#include "platform/registry.h"

namespace nw::platform {
namespace {

static_assert(kKeyRead == KEY_READ);
static_assert(kKeyWow64_32Key == KEY_WOW64_32KEY);
static_assert(kRegSz == REG_SZ && kRegExpandSz == REG_EXPAND_SZ && kRegBinary == REG_BINARY &&
              kRegDword == REG_DWORD && kRegMultiSz == REG_MULTI_SZ);

/// The predefined roots are not addresses the compiler can compare at build time, so the one
/// root the program names is mapped here explicitly.
HKEY ToHkey(RegistryKey key) {
  return key == kHKeyLocalMachine ? HKEY_LOCAL_MACHINE : static_cast<HKEY>(key);
}

class Win32Registry final : public Registry {
 public:
  uint32_t OpenKey(RegistryKey root, const wchar_t* subKey, uint32_t access,
                   RegistryKey* key) override {
    HKEY opened = nullptr;
    const LSTATUS status = ::RegOpenKeyExW(ToHkey(root), subKey, 0, access, &opened);
    *key = status == ERROR_SUCCESS ? opened : nullptr;
    return static_cast<uint32_t>(status);
  }

  uint32_t QueryValue(RegistryKey key, const wchar_t* name, uint32_t* type, void* data,
                      uint32_t* size) override {
    DWORD valueType = 0;
    DWORD valueSize = size != nullptr ? *size : 0;
    const LSTATUS status =
        ::RegQueryValueExW(ToHkey(key), name, nullptr, type != nullptr ? &valueType : nullptr,
                           static_cast<BYTE*>(data), size != nullptr ? &valueSize : nullptr);
    // The type and size mean something only when the value was found.
    if (status == ERROR_SUCCESS || status == ERROR_MORE_DATA) {
      if (type != nullptr) *type = valueType;
      if (size != nullptr) *size = valueSize;
    }
    return static_cast<uint32_t>(status);
  }

  uint32_t SetValue(RegistryKey key, const wchar_t* name, uint32_t type, const void* data,
                    uint32_t size) override {
    return static_cast<uint32_t>(
        ::RegSetValueExW(ToHkey(key), name, 0, type, static_cast<const BYTE*>(data), size));
  }

  uint32_t CloseKey(RegistryKey key) override {
    return static_cast<uint32_t>(::RegCloseKey(ToHkey(key)));
  }
};

}  // namespace

template <>
Registry& Facility<Registry>::Host() {
  static Win32Registry registry;
  return registry;
}

}  // namespace nw::platform
