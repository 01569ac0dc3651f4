#pragma once

// Wide-text helpers with the C runtime's semantics that every command subsystem reads its
// arguments and document values with.

#include <cstdint>

namespace nw {

/// Whole-string comparison folding only the ASCII letters, as the runtime's _wcsicmp does in the
/// default locale. A null text equals nothing.
bool EqualsIgnoringAsciiCase(const wchar_t* a, const wchar_t* b);

/// atoi semantics: leading white space, an optional sign, digits up to the first other
/// character; no digits give 0; out of range clamps to the nearest 32-bit signed value.
int32_t ParseDecimal(const wchar_t* text);
/// The 64-bit atoi: leading white space, an optional sign, digits up to
/// the first other character; no digits give 0; out of range clamps to the nearest signed
/// 64-bit value.
int64_t ParseDecimal64(const wchar_t* text);

}  // namespace nw
