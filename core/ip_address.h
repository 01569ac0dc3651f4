#pragma once

#include <cstdint>

namespace nw {

/// An address as the core passes it: IPv4 in the first four bytes (the rest zero), IPv6 in all
/// sixteen, network byte order either way. version is 4, 6, or 0 for a cleared record.
struct IpAddress {
  uint8_t bytes[16];
  uint32_t version;
};
static_assert(sizeof(IpAddress) == 20);

}  // namespace nw
