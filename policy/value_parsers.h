#pragma once

// The value parsers of the policy document's import path: how the document reader and the
// build step turn element texts into numbers, ranges, identifiers, redirect targets, network
// objects, hardware addresses and byte lists. Each parser is strict in its own way; the
// differences (separators, equal range ends, decimal clamping) are part of the format.
// Parsers that print a message say so; the others leave the message to their caller.

#include <cstddef>
#include <cstdint>
#include <string>

#include "core/guid.h"
#include "core/ip_address.h"

namespace nw {

/// The reader's numeric rule. Text of one or more decimal digits only is converted as a signed
/// 32-bit decimal number (beyond the range: 2147483647), widened with its sign, and accepted
/// when not above maximum (compared unsigned). Otherwise the text must be "0x" or "0X"
/// followed by one or more hexadecimal digits to its end, accumulated into 64 bits, and not
/// above maximum. Nothing else is accepted (no sign, no blanks). Prints nothing.
bool GetNumericValue(const wchar_t* text, uint64_t maximum, uint64_t* value);

/// Ranges split at the first "-", or else at the first ":", each end read by GetNumericValue
/// with the parser's maximum. Each prints its own messages ("GetPortRange: ...",
/// "GetUint32Range: ...", "GetUint64Range: ..."). GetPortRange refuses only low > high; the two
/// wider ones also refuse low == high.
bool GetPortRange(const wchar_t* text, uint16_t* low, uint16_t* high);
bool GetUint32Range(const wchar_t* text, uint32_t* low, uint32_t* high);
bool GetUint64Range(const wchar_t* text, uint64_t* low, uint64_t* high);
/// Whether the text is a range for the port and interface-index matches: it holds "-" or ":".
bool IsRangeText(const wchar_t* text);

/// Case-insensitive "1"/"true" gives 1, "0"/"false" gives 0, anything else -1. Prints nothing.
int ParseBoolean(const wchar_t* text);
/// Case-insensitive "yes" gives 1, "no" gives 0, anything else -1. Prints nothing.
int ParseYesNo(const wchar_t* text);

/// Whose name a name element gives; an aggregate match's name is measured as a rule's.
enum class NameOwner { kPolicy, kGroup, kRule };
/// At most 63 characters are accepted and copied whole into *name; a longer text prints the
/// owner's "... name is limited to 63 characters\n" and is refused.
bool ParseName(const wchar_t* text, NameOwner owner, std::wstring* name);

/// "auto" in any case: a new identifier from the platform (UuidCreate); otherwise ParseGuid,
/// which prints "user supplied UID string is invalid\n" on failure.
bool ParseUid(const wchar_t* text, Guid* uid);

/// What a target element gives: an identifier for every action but a redirect, or the
/// redirect's address, port and value.
struct ParsedTarget {
  Guid uid{};
  IpAddress address{};
  uint16_t port = 0;
  int64_t value = 0;
};
/// actionType 3 (redirect): "<address> <port>[ <value>]" with the address cut to 39 characters,
/// the port a signed 32-bit decimal kept in 16 bits and not 0, the value a signed 64-bit decimal.
/// Any other action: an identifier ("auto" not accepted). Prints the target messages
/// ("Target value - ...", "Illegal value for target guid\n") on refusal.
bool ParseTarget(const wchar_t* text, int32_t actionType, ParsedTarget* target);

/// An IP address match value. kind is kIpAddressSingle (address), kIpAddressRange (address
/// and high), kIpAddressPrefix (address and prefixLength) or kIpAddressDomainName (domain).
struct NetworkObject {
  int32_t kind = 0;
  IpAddress address{};
  IpAddress high{};
  uint8_t prefixLength = 0;
  std::wstring domain;
};
/// Single address, then address/prefix, then low-high range (falling back to a domain name
/// when an end is not an address and the text has no ":"), then a domain name without ":".
/// Prints nothing; the build step reports a refusal.
bool BuildNetworkObj(const wchar_t* text, NetworkObject* object);

/// Eight groups of hexadecimal digits; the first seven end at the next "-" (or, when the rest
/// holds no "-", at the next ":"), the eighth at the first character that is not a hex digit.
/// Each group's low byte is kept. *used is the number of characters read. Prints nothing.
bool ParseMacAddress(const wchar_t* text, uint8_t bytes[8], size_t* used);

/// Decimal numbers separated by any non-digit characters, each at most 255, at most capacity
/// of them. Prints nothing.
bool ParseByteList(const wchar_t* text, size_t capacity, uint8_t* bytes, size_t* count);

/// length characters, all hexadecimal digits (either case), accumulated into 32 bits; a length
/// of 0 gives 0. Prints nothing.
bool ParseHexWord(const wchar_t* text, size_t length, uint32_t* value);

}  // namespace nw
