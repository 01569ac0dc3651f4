#pragma once

// The text forms every view shares: IP addresses, identifiers and the core's enumerations, in
// both directions. The display direction writes what the views print; the reader direction
// takes what a policy document may say, which is a slightly different set of names on purpose.

#include <cstddef>
#include <cstdint>
#include <span>

#include "core/guid.h"
#include "core/ip_address.h"
#include "platform/process.h"

namespace nw {

/// Characters FormatIpAddress needs, terminator included.
inline constexpr size_t kIpv4TextCapacity = 16;
inline constexpr size_t kIpv6TextCapacity = 40;
/// Characters FormatGuid writes, terminator included.
inline constexpr size_t kGuidTextCapacity = 37;

/// Writes the address as text: version 4 as dotted decimal, any other version as eight groups
/// of hex with no "::" shortening. False, and nothing written, when capacity is below what the
/// form needs (kIpv4TextCapacity or kIpv6TextCapacity).
bool FormatIpAddress(wchar_t* destination, size_t capacity, const IpAddress* address);
/// Prints the address, after "\t\t" when leadingTabs and followed by "\n" when trailingNewline.
void PrintIpAddress(const IpAddress* address, bool leadingTabs, bool trailingNewline);
/// Prints a bare IPv4 value (first octet in the lowest byte).
void PrintIpv4Address(uint32_t address, bool trailingNewline);
void PrintIpv6Address(const uint8_t bytes[16], bool trailingNewline);
/// Fills the record from an IPv4 or IPv6 socket address; any other family leaves it unchanged.
void IpAddressFromSocketAddress(IpAddress* record, const platform::SocketAddress* address);
/// Parses an IPv4 or IPv6 literal through the platform's parser (Windows Sockets must have
/// started). version is 0 when the text is neither; the result tells the same.
bool ParseIpAddress(IpAddress* record, const wchar_t* text);

/// Writes the 36-character lower-case form without braces; destination holds kGuidTextCapacity.
void FormatGuid(wchar_t* destination, const Guid* guid);
/// Reads the 36-character form (either case, no braces). On failure prints
/// "user supplied UID string is invalid\n" and returns false.
bool ParseGuid(const wchar_t* text, Guid* guid);
/// The reader's diagnostic form: depth + 1 indentations, "guid: ", four 32-bit words.
void PrintGuidWords(const Guid* guid, int depth);

// ---- Display names ----------------------------------------------------------------------------

enum : int32_t {
  FW_POLICY_TYPE_INVALID = 0,
  FW_POLICY_TYPE_FRAGMENT = 1,
  FW_POLICY_TYPE_PACKET = 2,
  FW_POLICY_TYPE_FORWARD = 3,
  FW_POLICY_TYPE_STREAM = 4,
};

/// Match types at or above this one are aggregate matches, shown as numbers.
inline constexpr int32_t kFirstAggregateMatch = 0x10000;
/// Values at or above these have no name; the views print their own message.
inline constexpr int32_t kPhysicalMediumBound = 8;
inline constexpr int32_t kConnectionStateBound = 10;

const wchar_t* PolicyTypeName(int32_t value);
const wchar_t* ActionName(int32_t value);
const wchar_t* LogOptionName(int32_t value);
const wchar_t* MatchTypeName(int32_t value);
const wchar_t* MatchOpName(int32_t value);
const wchar_t* DirectionName(int32_t value);
/// Null outside 0 to kPhysicalMediumBound - 1.
const wchar_t* PhysicalMediumName(int32_t value);
/// Null outside 0 to kConnectionStateBound - 1.
const wchar_t* ConnectionStateName(int32_t value);

// ---- Reader names -----------------------------------------------------------------------------

/// One name a document may use and the value it stands for.
struct NamedValue {
  const wchar_t* name;
  int32_t value;
};

/// The reader's tables, in the order their names are tried.
extern const std::span<const NamedValue> kPolicyTypeReaderNames;
extern const std::span<const NamedValue> kActionReaderNames;
extern const std::span<const NamedValue> kLogOptionReaderNames;
extern const std::span<const NamedValue> kMatchTypeReaderNames;
extern const std::span<const NamedValue> kMatchOpReaderNames;
extern const std::span<const NamedValue> kDirectionReaderNames;
extern const std::span<const NamedValue> kPhysicalMediumReaderNames;
extern const std::span<const NamedValue> kConnectionStateReaderNames;
extern const std::span<const NamedValue> kIpProtocolReaderNames;
extern const std::span<const NamedValue> kLinkLayerProtocolReaderNames;

/// The first name of table equal to text, ignoring ASCII case, gives *value. False when none
/// is, with 0 stored in *value (the caller prints its own message).
bool LookUpName(std::span<const NamedValue> table, const wchar_t* text, int32_t* value);
/// Connection states are read leniently: text that names none of them is FWCS_UNKNOWN (0).
int32_t ConnectionStateFromName(const wchar_t* text);

}  // namespace nw
