#pragma once

// Address literals in scenario files.

#include <string_view>

#include "core/ip_address.h"

namespace nw::sim {

/// Reads an IPv4 dotted-decimal literal (version 4) or an IPv6 literal with an optional "::"
/// and an optional dotted IPv4 tail (version 6) into *address. False for anything else, with
/// *address untouched.
bool ParseAddressText(std::string_view text, IpAddress* address);

}  // namespace nw::sim
