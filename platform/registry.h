#pragma once

#include <cstdint>

#include "platform/facility.h"

namespace nw::platform {

using RegistryKey = void*;

/// The predefined root HKEY_LOCAL_MACHINE.
inline const RegistryKey kHKeyLocalMachine =
    reinterpret_cast<RegistryKey>(static_cast<intptr_t>(static_cast<int32_t>(0x80000002u)));

inline constexpr uint32_t kKeyRead = 0x20019;
inline constexpr uint32_t kKeySetValue = 0x0002;
inline constexpr uint32_t kKeyCreateSubKey = 0x0004;
inline constexpr uint32_t kKeyWow64_32Key = 0x0200;

inline constexpr uint32_t kRegSz = 1;
inline constexpr uint32_t kRegExpandSz = 2;
inline constexpr uint32_t kRegBinary = 3;
inline constexpr uint32_t kRegDword = 4;
inline constexpr uint32_t kRegMultiSz = 7;

/// The registry, with the semantics of RegOpenKeyExW / RegQueryValueExW / RegSetValueExW /
/// RegCloseKey. Every call returns a Windows error number (0 = success). String data is
/// wchar_t text with its terminator, sized in bytes.
class Registry {
 public:
  virtual ~Registry() = default;

  /// Opens root\subKey with the access mask (kKeyWow64_32Key selects the 32-bit view). root is
  /// kHKeyLocalMachine or a key this registry opened.
  virtual uint32_t OpenKey(RegistryKey root, const wchar_t* subKey, uint32_t access,
                           RegistryKey* key) = 0;
  /// Reads a value. data may be null to ask for the size. *size is the capacity in bytes on
  /// entry and the value's size on return; 234 (ERROR_MORE_DATA) when it does not fit.
  virtual uint32_t QueryValue(RegistryKey key, const wchar_t* name, uint32_t* type, void* data,
                              uint32_t* size) = 0;
  virtual uint32_t SetValue(RegistryKey key, const wchar_t* name, uint32_t type, const void* data,
                            uint32_t size) = 0;
  virtual uint32_t CloseKey(RegistryKey key) = 0;
};

template <>
Registry& Facility<Registry>::Host();

inline Registry& TheRegistry() { return Facility<Registry>::Get(); }

}  // namespace nw::platform
