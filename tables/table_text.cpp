#include "tables/table_text.h"

#include <cstdint>
#include <cstring>

namespace nw {

uint16_t PortFromNetworkOrder(uint16_t stored) {
  uint8_t bytes[sizeof stored];
  std::memcpy(bytes, &stored, sizeof stored);
  return static_cast<uint16_t>(bytes[0] << 8 | bytes[1]);
}

int64_t ParseDecimal64(const wchar_t* text) {
  if (text == nullptr) return 0;
  const wchar_t* p = text;
  while (*p == L' ' || (*p >= L'\t' && *p <= L'\r')) ++p;
  bool negative = false;
  if (*p == L'+' || *p == L'-') negative = *p++ == L'-';
  // The magnitude is kept unsigned and sticks just past the signed range once it gets there,
  // so a long run of digits clamps instead of wrapping.
  constexpr uint64_t kBeyond = static_cast<uint64_t>(INT64_MAX) + 1;
  uint64_t magnitude = 0;
  for (; *p >= L'0' && *p <= L'9'; ++p) {
    const auto digit = static_cast<uint64_t>(*p - L'0');
    magnitude = magnitude > kBeyond / 10 ? kBeyond + 1 : magnitude * 10 + digit;
  }
  if (negative) return magnitude >= kBeyond ? INT64_MIN : -static_cast<int64_t>(magnitude);
  return magnitude > static_cast<uint64_t>(INT64_MAX) ? INT64_MAX : static_cast<int64_t>(magnitude);
}

const wchar_t* ImageName(const wchar_t* path) {
  if (path == nullptr) return L"";
  const wchar_t* name = path;
  for (const wchar_t* p = path; *p != L'\0'; ++p) {
    if (*p == L'\\') name = p + 1;
  }
  return name;
}

namespace {

// A template, so that the comparison exists only where wide characters can exceed U+FFFF.
template <class Unit>
size_t Utf16UnitsOf(Unit unit) {
  if constexpr (sizeof(Unit) > 2) {
    return static_cast<uint32_t>(unit) > 0xFFFF ? 2 : 1;
  } else {
    return 1;  // the text is UTF-16 already
  }
}

}  // namespace

size_t Utf16Length(const wchar_t* text) {
  size_t units = 0;
  for (const wchar_t* p = text; *p != L'\0'; ++p) units += Utf16UnitsOf(*p);
  return units;
}

}  // namespace nw
