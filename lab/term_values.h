#pragma once

// How find and explain read a term's value: addresses as spans, texts as the core compares them.

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "core/ip_address.h"

namespace nw::lab {

/// An address's bytes as one big-endian number, for comparing ends: the four of an IPv4
/// address, the sixteen of any other.
std::vector<uint8_t> AddressKey(const IpAddress& address);

/// The first and the last address that an address with a prefix of length bits covers.
std::pair<IpAddress, IpAddress> PrefixSpan(const IpAddress& address, uint8_t length);

/// Whether address lies between low and high, all three of one version.
bool InSpan(const IpAddress& address, const IpAddress& low, const IpAddress& high);

/// Equal without regard to letter case, as the core compares paths and users.
bool SameTextIgnoringCase(const std::wstring& a, const std::wstring& b);

/// The operators whose value is a range (the views then read the range getters).
bool IsRangeOperator(int32_t op);

}  // namespace nw::lab
