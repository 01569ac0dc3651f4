#include "cli/wide_text.h"

namespace nw {

bool EqualsIgnoringAsciiCase(const wchar_t* a, const wchar_t* b) {
  if (a == nullptr || b == nullptr) return false;
  auto fold = [](wchar_t c) { return c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c + 32) : c; };
  for (; *a != L'\0' && *b != L'\0'; ++a, ++b) {
    if (fold(*a) != fold(*b)) return false;
  }
  return *a == *b;
}

}  // namespace nw
