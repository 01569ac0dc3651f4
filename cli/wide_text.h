#pragma once

namespace nw {

/// Whole-string comparison folding only the ASCII letters, as the runtime's _wcsicmp does in the
/// default locale. A null text equals nothing.
bool EqualsIgnoringAsciiCase(const wchar_t* a, const wchar_t* b);

}  // namespace nw
