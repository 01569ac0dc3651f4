#pragma once

// How the configuration commands read their argument.

#include <cstdint>

#include "cli/wide_text.h"

namespace nw {

/// 1 for "yes", "on" or "true"; 0 for "no", "off" or "false" (ASCII case ignored); -1 for
/// anything else, a digit included.
int32_t ParseOnOff(const wchar_t* text);
/// Hex digits only, no prefix or sign; of a longer text the last eight digits count. A
/// zero-length text is 0. False on the first other character, *value then untouched.
bool ParseHex32(uint32_t* value, const wchar_t* text);

}  // namespace nw
