#include "sim/common/address_text.h"

#include <cstdint>
#include <optional>

#include "base/hex_digit.h"

namespace nw::sim {
namespace {

// Four decimal parts of 0 to 255, one to three digits each.
bool ParseIpv4(std::string_view text, uint8_t out[4]) {
  for (int part = 0; part < 4; ++part) {
    if (part != 0) {
      if (text.empty() || text[0] != '.') return false;
      text.remove_prefix(1);
    }
    size_t digits = 0;
    unsigned value = 0;
    while (digits < text.size() && digits < 4 && text[digits] >= '0' && text[digits] <= '9') {
      value = value * 10 + static_cast<unsigned>(text[digits] - '0');
      ++digits;
    }
    if (digits == 0 || digits > 3 || value > 255) return false;
    out[part] = static_cast<uint8_t>(value);
    text.remove_prefix(digits);
  }
  return text.empty();
}

// Groups of one to four hex digits separated by ':' (an empty text is no group); a dotted IPv4
// tail counts as two groups when allowTail. Writes the 16-bit groups to out (at most max) and
// their number to *count.
bool ParseGroups(std::string_view text, bool allowTail, uint16_t* out, size_t max, size_t* count) {
  *count = 0;
  if (text.empty()) return true;
  for (;;) {
    const size_t end = text.find(':');
    const std::string_view group = text.substr(0, end);
    if (end == std::string_view::npos && allowTail && group.find('.') != std::string_view::npos) {
      uint8_t v4[4];
      if (*count + 2 > max || !ParseIpv4(group, v4)) return false;
      out[(*count)++] = static_cast<uint16_t>(v4[0] << 8 | v4[1]);
      out[(*count)++] = static_cast<uint16_t>(v4[2] << 8 | v4[3]);
      return true;
    }
    if (group.empty() || group.size() > 4 || *count == max) return false;
    unsigned value = 0;
    for (char c : group) {
      const int digit = HexDigitValue(c);
      if (digit < 0) return false;
      value = value * 16 + static_cast<unsigned>(digit);
    }
    out[(*count)++] = static_cast<uint16_t>(value);
    if (end == std::string_view::npos) return true;
    text.remove_prefix(end + 1);
  }
}

bool ParseIpv6(std::string_view text, uint8_t out[16]) {
  uint16_t groups[8] = {};
  const size_t gap = text.find("::");
  if (gap == std::string_view::npos) {
    size_t count = 0;
    if (!ParseGroups(text, true, groups, 8, &count) || count != 8) return false;
  } else {
    if (text.find("::", gap + 1) != std::string_view::npos) return false;
    uint16_t head[8], tail[8];
    size_t headCount = 0, tailCount = 0;
    if (!ParseGroups(text.substr(0, gap), false, head, 7, &headCount) ||
        !ParseGroups(text.substr(gap + 2), true, tail, 7, &tailCount) ||
        headCount + tailCount > 7) {
      return false;
    }
    for (size_t i = 0; i < headCount; ++i) groups[i] = head[i];
    for (size_t i = 0; i < tailCount; ++i) groups[8 - tailCount + i] = tail[i];
  }
  for (int i = 0; i < 8; ++i) {
    out[2 * i] = static_cast<uint8_t>(groups[i] >> 8);
    out[2 * i + 1] = static_cast<uint8_t>(groups[i] & 0xFF);
  }
  return true;
}

}  // namespace

bool ParseAddressText(std::string_view text, IpAddress* address) {
  IpAddress parsed{};
  if (ParseIpv4(text, parsed.bytes)) {
    parsed.version = 4;
  } else if (ParseIpv6(text, parsed.bytes)) {
    parsed.version = 6;
  } else {
    return false;
  }
  *address = parsed;
  return true;
}

}  // namespace nw::sim
