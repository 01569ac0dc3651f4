#include "cli/wide_text.h"

#include <cstdint>

namespace nw {

bool EqualsIgnoringAsciiCase(const wchar_t* a, const wchar_t* b) {
  if (a == nullptr || b == nullptr) return false;
  auto fold = [](wchar_t c) { return c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c + 32) : c; };
  for (; *a != L'\0' && *b != L'\0'; ++a, ++b) {
    if (fold(*a) != fold(*b)) return false;
  }
  return *a == *b;
}

int32_t ParseDecimal(const wchar_t* text) {
  if (text == nullptr) return 0;
  const wchar_t* p = text;
  while (*p == L' ' || (*p >= L'\t' && *p <= L'\r')) ++p;
  bool negative = false;
  if (*p == L'+' || *p == L'-') negative = *p++ == L'-';
  // Past the 32-bit range the value only needs to stay past it, so the accumulator stops
  // growing there instead of overflowing.
  int64_t magnitude = 0;
  for (; *p >= L'0' && *p <= L'9'; ++p) {
    if (magnitude <= INT64_C(1) << 32) magnitude = magnitude * 10 + (*p - L'0');
  }
  const int64_t signedValue = negative ? -magnitude : magnitude;
  if (signedValue > INT32_MAX) return INT32_MAX;
  if (signedValue < INT32_MIN) return INT32_MIN;
  return static_cast<int32_t>(signedValue);
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

}  // namespace nw
