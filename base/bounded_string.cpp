#include "base/bounded_string.h"

#include <cstdarg>
#include <string>

#include "base/format.h"

namespace nw {
namespace {

bool ValidCapacity(size_t cch) { return cch != 0 && cch <= kStrSafeMaxChars; }

/// Copies at most count characters of src to dest (capacity cch), always terminating.
int32_t CopyBounded(wchar_t* dest, size_t cch, const wchar_t* src, size_t count) {
  size_t i = 0;
  for (; i < count && src[i] != L'\0'; ++i) {
    if (i + 1 == cch) {
      dest[i] = L'\0';
      return kStrSafeInsufficientBuffer;
    }
    dest[i] = src[i];
  }
  dest[i] = L'\0';
  return 0;
}

}  // namespace

int32_t BoundedCopy(wchar_t* dest, size_t cch, const wchar_t* src) {
  if (!ValidCapacity(cch)) return kStrSafeInvalidParameter;
  return CopyBounded(dest, cch, src == nullptr ? L"" : src, kStrSafeMaxChars);
}

int32_t BoundedCat(wchar_t* dest, size_t cch, const wchar_t* src) {
  size_t used = 0;
  if (!ValidCapacity(cch) || !BoundedLength(dest, cch, &used)) return kStrSafeInvalidParameter;
  return CopyBounded(dest + used, cch - used, src == nullptr ? L"" : src, kStrSafeMaxChars);
}

int32_t BoundedPrintf(wchar_t* dest, size_t cch, const wchar_t* format, ...) {
  if (!ValidCapacity(cch)) return kStrSafeInvalidParameter;
  std::wstring text;
  va_list args;
  va_start(args, format);
  AppendFormatWide(text, format, args);
  va_end(args);
  return CopyBounded(dest, cch, text.c_str(), text.size());
}

bool BoundedLength(const wchar_t* text, size_t maxChars, size_t* length) {
  if (text == nullptr) return false;
  for (size_t i = 0; i < maxChars; ++i) {
    if (text[i] == L'\0') {
      *length = i;
      return true;
    }
  }
  return false;
}

}  // namespace nw
