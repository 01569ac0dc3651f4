#pragma once

#include <cstdint>

#include "core/guid.h"
#include "platform/facility.h"

namespace nw::platform {

/// RPC_S_INVALID_STRING_UUID: the text is not a UUID in the 36-character form.
inline constexpr int32_t kRpcInvalidStringUuid = 1705;

/// Universally unique identifiers as the RPC runtime makes and reads them.
class Uuids {
 public:
  virtual ~Uuids() = default;

  /// UuidFromStringW: the 36-character form without braces, hex digits in either case. 0 or
  /// kRpcInvalidStringUuid; *out is written only on success.
  virtual int32_t FromString(const wchar_t* text, Guid* out) = 0;
  /// UuidCreate: a new random identifier. 0 on success.
  virtual int32_t Create(Guid* out) = 0;
};

template <>
Uuids& Facility<Uuids>::Host();

inline Uuids& TheUuids() { return Facility<Uuids>::Get(); }

}  // namespace nw::platform
