#pragma once

// Bounded wide-string operations with the semantics the loader relies on: a capacity in
// characters from 1 to 2147483647, a result that is always terminated, and an error instead of
// a silently truncated success.

#include <cstddef>
#include <cstdint>

namespace nw {

inline constexpr int32_t kStrSafeInsufficientBuffer = static_cast<int32_t>(0x8007007Au);
inline constexpr int32_t kStrSafeInvalidParameter = static_cast<int32_t>(0x80070057u);
inline constexpr size_t kStrSafeMaxChars = 2147483647;

/// Copies src into dest (capacity cch). On truncation dest holds what fit, terminated.
int32_t BoundedCopy(wchar_t* dest, size_t cch, const wchar_t* src);
/// Appends src to the terminated text in dest. The text in dest must be terminated within cch.
int32_t BoundedCat(wchar_t* dest, size_t cch, const wchar_t* src);
/// Formats (the conventions of format.h) into dest.
int32_t BoundedPrintf(wchar_t* dest, size_t cch, const wchar_t* format, ...);
/// Measures text, looking at no more than maxChars characters for the terminator. False when
/// text is null or has no terminator within the bound.
bool BoundedLength(const wchar_t* text, size_t maxChars, size_t* length);

}  // namespace nw
