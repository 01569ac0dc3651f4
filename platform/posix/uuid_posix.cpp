// Identifiers from the system's UUID library. Its byte order is the RFC's (big-endian fields);
// a Guid keeps its first three fields in host order, as Windows does.

#include <uuid/uuid.h>

#include <string>

#include "base/format.h"
#include "platform/uuid.h"

namespace nw::platform {
namespace {

Guid FromRfcBytes(const uuid_t bytes) {
  Guid guid{};
  guid.Data1 = static_cast<uint32_t>(bytes[0]) << 24 | static_cast<uint32_t>(bytes[1]) << 16 |
               static_cast<uint32_t>(bytes[2]) << 8 | bytes[3];
  guid.Data2 = static_cast<uint16_t>(bytes[4] << 8 | bytes[5]);
  guid.Data3 = static_cast<uint16_t>(bytes[6] << 8 | bytes[7]);
  for (int i = 0; i < 8; ++i) guid.Data4[i] = bytes[8 + i];
  return guid;
}

class PosixUuids final : public Uuids {
 public:
  int32_t FromString(const wchar_t* text, Guid* out) override {
    if (text == nullptr) {
      // The RPC runtime reads a null text as the nil identifier.
      *out = Guid{};
      return 0;
    }
    // Anything outside ASCII cannot be a hex digit or a dash; the narrow form keeps the length
    // check honest by mapping it to a character that is neither.
    std::string narrow;
    for (const wchar_t* p = text; *p != L'\0'; ++p) {
      narrow += *p < 0x80 ? static_cast<char>(*p) : '?';
    }
    uuid_t bytes;
    if (uuid_parse(narrow.c_str(), bytes) != 0) return kRpcInvalidStringUuid;
    *out = FromRfcBytes(bytes);
    return 0;
  }

  int32_t Create(Guid* out) override {
    uuid_t bytes;
    uuid_generate_random(bytes);
    *out = FromRfcBytes(bytes);
    return 0;
  }
};

}  // namespace

template <>
Uuids& Facility<Uuids>::Host() {
  static PosixUuids uuids;
  return uuids;
}

}  // namespace nw::platform
