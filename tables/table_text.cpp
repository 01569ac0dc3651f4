#include "tables/table_text.h"

#include <cstdint>
#include <cstring>

namespace nw {

uint16_t PortFromNetworkOrder(uint16_t stored) {
  uint8_t bytes[sizeof stored];
  std::memcpy(bytes, &stored, sizeof stored);
  return static_cast<uint16_t>(bytes[0] << 8 | bytes[1]);
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
