#pragma once

// Small conversions the runtime-table views share.

#include <cstddef>
#include <cstdint>

#include "cli/wide_text.h"

namespace nw {

/// A port the core stores in network byte order, as the number it stands for.
uint16_t PortFromNetworkOrder(uint16_t stored);

/// The image name of a process path: what follows the last backslash, the whole path when it
/// has none, and an empty text for a null path.
const wchar_t* ImageName(const wchar_t* path);

/// The length of text in UTF-16 units, the unit the product's own platform counts in, so that
/// both builds pad a column alike (a character beyond U+FFFF counts 2).
size_t Utf16Length(const wchar_t* text);

}  // namespace nw
