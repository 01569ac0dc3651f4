#include "lab/term_values.h"

#include <cwctype>

#include "core/policy_values.h"

namespace nw::lab {

std::vector<uint8_t> AddressKey(const IpAddress& address) {
  return std::vector<uint8_t>(address.bytes, address.bytes + (address.version == 4 ? 4 : 16));
}

std::pair<IpAddress, IpAddress> PrefixSpan(const IpAddress& address, uint8_t length) {
  IpAddress low = address, high = address;
  const int bits = address.version == 4 ? 32 : 128;
  for (int bit = length; bit < bits; ++bit) {
    const uint8_t mask = static_cast<uint8_t>(0x80 >> (bit % 8));
    low.bytes[bit / 8] &= static_cast<uint8_t>(~mask);
    high.bytes[bit / 8] |= mask;
  }
  return {low, high};
}

bool InSpan(const IpAddress& address, const IpAddress& low, const IpAddress& high) {
  return low.version == address.version && high.version == address.version &&
         !(AddressKey(address) < AddressKey(low)) && !(AddressKey(high) < AddressKey(address));
}

bool SameTextIgnoringCase(const std::wstring& a, const std::wstring& b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (std::towlower(static_cast<wint_t>(a[i])) != std::towlower(static_cast<wint_t>(b[i]))) {
      return false;
    }
  }
  return true;
}

bool IsRangeOperator(int32_t op) {
  return op == FW_MATCH_OP_IN_RANGE || op == FW_MATCH_OP_IN_RANGE_NOT;
}

}  // namespace nw::lab
