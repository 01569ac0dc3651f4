// Identifiers from the RPC runtime.

#include <rpc.h>
#include <windows.h>

#include <cstring>
#include <string>

#include "platform/uuid.h"

namespace nw::platform {
namespace {

static_assert(sizeof(UUID) == sizeof(Guid));

class Win32Uuids final : public Uuids {
 public:
  int32_t FromString(const wchar_t* text, Guid* out) override {
    UUID uuid;
    RPC_STATUS status;
    if (text == nullptr) {
      status = ::UuidFromStringW(nullptr, &uuid);
    } else {
      // The call takes a writable text, though it does not write to it.
      std::wstring copy(text);
      status = ::UuidFromStringW(reinterpret_cast<RPC_WSTR>(copy.data()), &uuid);
    }
    if (status != RPC_S_OK) return status;
    std::memcpy(out, &uuid, sizeof uuid);
    return 0;
  }

  int32_t Create(Guid* out) override {
    UUID uuid;
    const RPC_STATUS status = ::UuidCreate(&uuid);
    // A local-only identifier is still unique on this host, which is all a new policy needs.
    if (status != RPC_S_OK && status != RPC_S_UUID_LOCAL_ONLY) return status;
    std::memcpy(out, &uuid, sizeof uuid);
    return 0;
  }
};

}  // namespace

template <>
Uuids& Facility<Uuids>::Host() {
  static Win32Uuids uuids;
  return uuids;
}

}  // namespace nw::platform
