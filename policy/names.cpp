#include "policy/names.h"

#include <cstring>
#include <iterator>

#include "cli/console.h"
#include "cli/wide_text.h"
#include "platform/uuid.h"

namespace nw {
namespace {

constexpr wchar_t kHexDigits[] = L"0123456789abcdef";

wchar_t* PutDecimalOctet(wchar_t* out, uint8_t octet) {
  if (octet >= 100) *out++ = static_cast<wchar_t>(L'0' + octet / 100);
  if (octet >= 10) *out++ = static_cast<wchar_t>(L'0' + octet / 10 % 10);
  *out++ = static_cast<wchar_t>(L'0' + octet % 10);
  return out;
}

// Leading zeros of a group are dropped digit by digit: the high byte gives two, one or no
// digits, the low byte's high nibble is kept when anything came before it, and its low nibble
// is always written.
wchar_t* PutHexGroup(wchar_t* out, uint8_t high, uint8_t low) {
  if (high > 0x0F) *out++ = kHexDigits[high >> 4];
  if (high != 0) *out++ = kHexDigits[high & 0x0F];
  if ((low >> 4) != 0 || high != 0) *out++ = kHexDigits[low >> 4];
  *out++ = kHexDigits[low & 0x0F];
  return out;
}

template <size_t N>
const wchar_t* Lookup(const wchar_t* const (&table)[N], int32_t value, int32_t bound,
                      const wchar_t* fallback) {
  static_assert(N > 0);
  if (value < 0 || value >= bound || static_cast<size_t>(value) >= N) return fallback;
  return table[value];
}

// ---- Display tables: indexed by value, the last entries kept although the bound hides them.

constexpr const wchar_t* kPolicyTypeNames[] = {
    L"FW_POLICY_TYPE_INVALID", L"FW_POLICY_TYPE_FRAGMENT", L"FW_POLICY_TYPE_PACKET",
    L"FW_POLICY_TYPE_FORWARD", L"FW_POLICY_TYPE_STREAM",
};

constexpr const wchar_t* kActionNames[] = {
    L"FW_ACTION_INVALID",
    L"FW_ACTION_ALLOW",
    L"FW_ACTION_ASK_POINT_PRODUCT",
    L"FW_ACTION_REDIRECT",
    L"FW_ACTION_ABSORB",
    L"FW_ACTION_BLOCK_PACKET",
    L"FW_ACTION_BLOCK_AND_RESET_CONNECTION",
    L"FW_ACTION_BLOCK_HOST",
    L"FW_ACTION_CONTINUE",
    L"FW_ACTION_JUMP",
    L"FW_ACTION_CALL_PLUGIN",
};

constexpr const wchar_t* kLogOptionNames[] = {
    L"FW_LOG_OPTION_NONE",
    L"FW_LOG_OPTION_CONNECTION_PARAMS",
    L"FW_LOG_OPTION_PACKET",
    L"FW_LOG_OPTION_LAST",
};

constexpr const wchar_t* kMatchTypeNames[] = {
    L"FW_MATCH_INVALID",
    L"FW_MATCH_USER_ID",
    L"FW_MATCH_APP_PATH",
    L"FW_MATCH_APP_COMMAND_LINE_PARAMS",
    L"FW_MATCH_APP_MD5_HASH_SUM",
    L"FW_MATCH_APP_VENDOR",
    L"FW_MATCH_APP_DIGITAL_SIGNER",
    L"FW_MATCH_LOCAL_PORT",
    L"FW_MATCH_REMOTE_PORT",
    L"FW_MATCH_ICMPV4_TYPE",
    L"FW_MATCH_ICMPV6_TYPE",
    L"FW_MATCH_TCP_FLAGS",
    L"FW_MATCH_CONNECTION_STATE",
    L"FW_MATCH_IP_PROTOCOL",
    L"FW_MATCH_LOCAL_IP_ADDRESS",
    L"FW_MATCH_REMOTE_IP_ADDRESS",
    L"FW_MATCH_NETWORK_LAYER_PROTOCOL",
    L"FW_MATCH_LOCAL_ADAPTER_ADDRESS",
    L"FW_MATCH_REMOTE_ADAPTER_ADDRESS",
    L"FW_MATCH_PHYSICAL_MEDIUM",
    L"FW_MATCH_DIRECTION",
    L"FW_MATCH_INTERFACE_INDEX_V6",
    L"FW_MATCH_INTERFACE_INDEX_V4",
    L"FW_MATCH_INTERFACE_INDEX",
    L"FW_MATCH_BYTES_SENT",
    L"FW_MATCH_BYTES_RECEIVED",
    L"FW_MATCH_CONNSPEC_DNS_SUFFIX",
    L"FW_MATCH_ADAPTER_DESCRIPTION",
    L"FW_MATCH_SOURCE_IP_ADDRESS",
    L"FW_MATCH_DESTINATION_IP_ADDRESS",
    L"FW_MATCH_SOURCE_PORT",
    L"FW_MATCH_DESTINATION_PORT",
    L"FW_MATCH_SOURCE_ADAPTER_ADDRESS",
    L"FW_MATCH_DESTINATION_ADAPTER_ADDRESS",
    L"FW_MATCH_PROCESS_ID",
    L"FW_MATCH_PE_FILE_DESCRIPTION",
    L"FW_MATCH_STANDARDIZED_APP_PATH",
    L"FW_MATCH_APP_DIGITAL_SIGNER_CASEINS",
    L"FW_MATCH_IP_ADDRESS_IS_LOCAL",
    L"FW_MATCH_CERT_HASH",
    L"FW_MATCH_HTTP_SERVER",
    L"FW_MATCH_HTTP_URI",
    L"FW_MATCH_VTP_PRIVILEGES",
    L"FW_MATCH_LAST_NON_AGGREGATE",
};

constexpr const wchar_t* kMatchOpNames[] = {
    L"FW_MATCH_OP_EQUAL",   L"FW_MATCH_OP_EQUAL_NOT",   L"FW_MATCH_OP_GEQ",
    L"FW_MATCH_OP_LEQ",     L"FW_MATCH_OP_IN_RANGE",    L"FW_MATCH_OP_IN_RANGE_NOT",
    L"FW_MATCH_OP_BITMASK", L"FW_MATCH_OP_BITMASK_NOT", L"FW_MATCH_OP_LAST",
};

constexpr const wchar_t* kDirectionNames[] = {
    L"FW_DIRECTION_INVALID",
    L"FW_DIRECTION_INBOUND",
    L"FW_DIRECTION_OUTBOUND",
    L"FW_DIRECTION_LAST",
};

constexpr const wchar_t* kPhysicalMediumNames[] = {
    L"FW_PHYSICAL_MEDIUM_INVALID",       L"FW_PHYSICAL_MEDIUM_WIRED",
    L"FW_PHYSICAL_MEDIUM_WIRELESS",      L"FW_PHYSICAL_MEDIUM_VIRTUAL",
    L"FW_PHYSICAL_MEDIUM_DIAL_UP",       L"FW_PHYSICAL_MEDIUM_TUNNEL_TEREDO",
    L"FW_PHYSICAL_MEDIUM_TUNNEL_6_TO_4", L"FW_PHYSICAL_MEDIUM_TUNNEL_ISATAP",
};

constexpr const wchar_t* kConnectionStateNames[] = {
    L"FWCS_UNKNOWN",      L"FWCS_LISTEN",           L"FWCS_INIT",
    L"FWCS_CONNECTING",   L"FWCS_ESTABLISHED",      L"FWCS_PROBATION_PENDING",
    L"FWCS_ON_PROBATION", L"FWCS_PROBATION_FAILED", L"FWCS_TIMED_OUT",
    L"FWCS_CHILD_INIT",
};
static_assert(std::size(kPhysicalMediumNames) == kPhysicalMediumBound);
static_assert(std::size(kConnectionStateNames) == kConnectionStateBound);

// ---- Reader tables, in the order the reader tries them.

constexpr NamedValue kPolicyTypeReader[] = {
    {L"FW_POLICY_TYPE_FRAGMENT", 1},
    {L"FW_POLICY_TYPE_PACKET", 2},
    {L"FW_POLICY_TYPE_FORWARD", 3},
    {L"FW_POLICY_TYPE_STREAM", 4},
};

// CONTINUE is left out on purpose: a rule that continues cannot be read back.
constexpr NamedValue kActionReader[] = {
    {L"FW_ACTION_ALLOW", 1},
    {L"FW_ACTION_BLOCK_PACKET", 5},
    {L"FW_ACTION_BLOCK_AND_RESET_CONNECTION", 6},
    {L"FW_ACTION_BLOCK_HOST", 7},
    {L"FW_ACTION_JUMP", 9},
    {L"FW_ACTION_CALL_PLUGIN", 10},
    {L"FW_ACTION_ASK_POINT_PRODUCT", 2},
    {L"FW_ACTION_REDIRECT", 3},
    {L"FW_ACTION_ABSORB", 4},
};

constexpr NamedValue kLogOptionReader[] = {
    {L"FW_LOG_OPTION_NONE", 0},
    {L"FW_LOG_OPTION_CONNECTION_PARAMS", 1},
    {L"FW_LOG_OPTION_PACKET", 2},
    {L"FW_LOG_OPTION_LAST", 3},
};

constexpr NamedValue kMatchTypeReader[] = {
    {L"FW_MATCH_USER_ID", 1},
    {L"FW_MATCH_APP_PATH", 2},
    {L"FW_MATCH_APP_COMMAND_LINE_PARAMS", 3},
    {L"FW_MATCH_APP_VENDOR", 5},
    {L"FW_MATCH_APP_DIGITAL_SIGNER", 6},
    {L"FW_MATCH_APP_MD5_HASH_SUM", 4},
    {L"FW_MATCH_LOCAL_PORT", 7},
    {L"FW_MATCH_REMOTE_PORT", 8},
    {L"FW_MATCH_ICMPV4_TYPE", 9},
    {L"FW_MATCH_ICMPV6_TYPE", 10},
    {L"FW_MATCH_TCP_FLAGS", 11},
    {L"FW_MATCH_CONNECTION_STATE", 12},
    {L"FW_MATCH_IP_PROTOCOL", 13},
    {L"FW_MATCH_LOCAL_IP_ADDRESS", 14},
    {L"FW_MATCH_REMOTE_IP_ADDRESS", 15},
    {L"FW_MATCH_NETWORK_LAYER_PROTOCOL", 16},
    {L"FW_MATCH_LOCAL_ADAPTER_ADDRESS", 17},
    {L"FW_MATCH_REMOTE_ADAPTER_ADDRESS", 18},
    {L"FW_MATCH_SOURCE_ADAPTER_ADDRESS", 32},
    {L"FW_MATCH_DESTINATION_ADAPTER_ADDRESS", 33},
    {L"FW_MATCH_PHYSICAL_MEDIUM", 19},
    {L"FW_MATCH_DIRECTION", 20},
    {L"FW_MATCH_INTERFACE_INDEX", 23},
    {L"FW_MATCH_INTERFACE_INDEX_V6", 21},
    {L"FW_MATCH_INTERFACE_INDEX_V4", 22},
    {L"FW_MATCH_BYTES_RECEIVED", 25},
    {L"FW_MATCH_BYTES_SENT", 24},
    {L"FW_MATCH_CONNSPEC_DNS_SUFFIX", 26},
    {L"FW_MATCH_AGGREGATE_MATCH", kFirstAggregateMatch},
    {L"FW_MATCH_SOURCE_PORT", 30},
    {L"FW_MATCH_DESTINATION_PORT", 31},
    {L"FW_MATCH_SOURCE_IP_ADDRESS", 28},
    {L"FW_MATCH_DESTINATION_IP_ADDRESS", 29},
    {L"FW_MATCH_PROCESS_ID", 34},
    {L"FW_MATCH_PE_FILE_DESCRIPTION", 35},
    {L"FW_MATCH_APP_DIGITAL_SIGNER_CASEINS", 37},
    {L"FW_MATCH_STANDARDIZED_APP_PATH", 36},
    {L"FW_MATCH_HTTP_SERVER", 40},
    {L"FW_MATCH_VTP_PRIVILEGES", 42},
};

constexpr NamedValue kMatchOpReader[] = {
    {L"FW_MATCH_OP_EQUAL", 0},   {L"FW_MATCH_OP_EQUAL_NOT", 1},   {L"FW_MATCH_OP_GEQ", 2},
    {L"FW_MATCH_OP_LEQ", 3},     {L"FW_MATCH_OP_IN_RANGE", 4},    {L"FW_MATCH_OP_IN_RANGE_NOT", 5},
    {L"FW_MATCH_OP_BITMASK", 6}, {L"FW_MATCH_OP_BITMASK_NOT", 7},
};

constexpr NamedValue kDirectionReader[] = {
    {L"FW_DIRECTION_INBOUND", 1},
    {L"FW_DIRECTION_OUTBOUND", 2},
};

// VPN and WAN are aliases the views never write.
constexpr NamedValue kPhysicalMediumReader[] = {
    {L"FW_PHYSICAL_MEDIUM_WIRED", 1},   {L"FW_PHYSICAL_MEDIUM_WIRELESS", 2},
    {L"FW_PHYSICAL_MEDIUM_VIRTUAL", 3}, {L"FW_PHYSICAL_MEDIUM_VPN", 3},
    {L"FW_PHYSICAL_MEDIUM_DIAL_UP", 4}, {L"FW_PHYSICAL_MEDIUM_WAN", 4},
};

constexpr NamedValue kConnectionStateReader[] = {
    {L"FWCS_UNKNOWN", 0},      {L"FWCS_LISTEN", 1},           {L"FWCS_INIT", 2},
    {L"FWCS_CONNECTING", 3},   {L"FWCS_ESTABLISHED", 4},      {L"FWCS_PROBATION_PENDING", 5},
    {L"FWCS_ON_PROBATION", 6}, {L"FWCS_PROBATION_FAILED", 7}, {L"FWCS_TIMED_OUT", 8},
    {L"FWCS_CHILD_INIT", 9},
};

constexpr NamedValue kIpProtocolReader[] = {
    {L"IP_PROTO_IPV6_HOPOPT", 0},    {L"IP_PROTO_ICMP", 1},         {L"IP_PROTO_IGMP", 2},
    {L"IP_PROTO_IPV4", 4},           {L"IP_PROTO_TCP", 6},          {L"IP_PROTO_UDP", 17},
    {L"IP_PROTO_IPV6", 41},          {L"IP_PROTO_ESP", 50},         {L"IP_PROTO_IPV6_ROUTEOPT", 43},
    {L"IP_PROTO_IPV6_FRAGOPT", 44},  {L"IP_PROTO_GRE", 47},         {L"IP_PROTO_IPV6_ICMP", 58},
    {L"IP_PROTO_IPV6_NONXTOPT", 59}, {L"IP_PROTO_IPV6_DSTOPT", 60},
};

constexpr NamedValue kLinkLayerProtocolReader[] = {
    {L"ARP", 0x0806}, {L"IP", 0x0800},      {L"IPv4", 0x0800}, {L"IPv6", 0x86DD},
    {L"IPX", 0x8137}, {L"NETBIOS", 0x8040}, {L"CDP", 0x2000},
};

}  // namespace

const std::span<const NamedValue> kPolicyTypeReaderNames = kPolicyTypeReader;
const std::span<const NamedValue> kActionReaderNames = kActionReader;
const std::span<const NamedValue> kLogOptionReaderNames = kLogOptionReader;
const std::span<const NamedValue> kMatchTypeReaderNames = kMatchTypeReader;
const std::span<const NamedValue> kMatchOpReaderNames = kMatchOpReader;
const std::span<const NamedValue> kDirectionReaderNames = kDirectionReader;
const std::span<const NamedValue> kPhysicalMediumReaderNames = kPhysicalMediumReader;
const std::span<const NamedValue> kConnectionStateReaderNames = kConnectionStateReader;
const std::span<const NamedValue> kIpProtocolReaderNames = kIpProtocolReader;
const std::span<const NamedValue> kLinkLayerProtocolReaderNames = kLinkLayerProtocolReader;

bool FormatIpAddress(wchar_t* destination, size_t capacity, const IpAddress* address) {
  const uint8_t* b = address->bytes;
  if (address->version == 4) {
    if (capacity < kIpv4TextCapacity) return false;
    wchar_t* out = destination;
    for (int i = 0; i < 4; ++i) {
      if (i != 0) *out++ = L'.';
      out = PutDecimalOctet(out, b[i]);
    }
    *out = L'\0';
    return true;
  }
  if (capacity < kIpv6TextCapacity) return false;
  wchar_t* out = destination;
  for (int group = 0; group < 8; ++group) {
    out = PutHexGroup(out, b[2 * group], b[2 * group + 1]);
    *out++ = L':';
  }
  out[-1] = L'\0';
  return true;
}

void PrintIpAddress(const IpAddress* address, bool leadingTabs, bool trailingNewline) {
  // Only the first character needs clearing: a format that fails writes nothing, and one that
  // succeeds writes its terminator. Listings print two addresses a line.
  wchar_t text[kIpv6TextCapacity];
  text[0] = L'\0';
  FormatIpAddress(text, kIpv6TextCapacity, address);
  if (leadingTabs) ConsolePrint(L"\t\t");
  ConsolePrint(L"%s", text);
  if (trailingNewline) ConsolePrint(L"\n");
}

void PrintIpv4Address(uint32_t address, bool trailingNewline) {
  IpAddress record{};
  record.version = 4;
  std::memcpy(record.bytes, &address, sizeof address);
  PrintIpAddress(&record, false, trailingNewline);
}

void PrintIpv6Address(const uint8_t bytes[16], bool trailingNewline) {
  IpAddress record{};
  record.version = 6;
  std::memcpy(record.bytes, bytes, sizeof record.bytes);
  PrintIpAddress(&record, false, trailingNewline);
}

void IpAddressFromSocketAddress(IpAddress* record, const platform::SocketAddress* address) {
  if (address->family == platform::kAfInet) {
    *record = IpAddress{};
    record->version = 4;
    std::memcpy(record->bytes, address->v4.address, sizeof address->v4.address);
  } else if (address->family == platform::kAfInet6) {
    *record = IpAddress{};
    record->version = 6;
    std::memcpy(record->bytes, address->v6.address, sizeof address->v6.address);
  }
}

bool ParseIpAddress(IpAddress* record, const wchar_t* text) {
  record->version = 0;
  platform::Process& process = platform::TheProcess();
  platform::SocketAddress address{};
  int32_t length = sizeof(platform::SocketAddressIn);
  if (process.StringToAddress(text, platform::kAfInet, &address, &length) != 0) {
    address = {};
    length = sizeof(platform::SocketAddressIn6);
    if (process.StringToAddress(text, platform::kAfInet6, &address, &length) != 0) return false;
  }
  IpAddressFromSocketAddress(record, &address);
  return true;
}

void FormatGuid(wchar_t* destination, const Guid* guid) {
  wchar_t* out = destination;
  auto put = [&out](uint64_t value, int digits) {
    for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4)
      *out++ = kHexDigits[value >> shift & 0xF];
  };
  put(guid->Data1, 8);
  *out++ = L'-';
  put(guid->Data2, 4);
  *out++ = L'-';
  put(guid->Data3, 4);
  *out++ = L'-';
  put(guid->Data4[0], 2);
  put(guid->Data4[1], 2);
  *out++ = L'-';
  for (int i = 2; i < 8; ++i) put(guid->Data4[i], 2);
  *out = L'\0';
}

bool ParseGuid(const wchar_t* text, Guid* guid) {
  if (platform::TheUuids().FromString(text, guid) != 0) {
    ConsolePrint(L"user supplied UID string is invalid\n");
    return false;
  }
  return true;
}

void PrintGuidWords(const Guid* guid, int depth) {
  for (int level = 0; level <= depth; ++level) ConsolePrint(L"    ");
  uint32_t words[4];
  std::memcpy(words, guid, sizeof words);
  ConsolePrint(L"guid: %08x %08x %08x %08x \n", words[0], words[1], words[2], words[3]);
}

const wchar_t* PolicyTypeName(int32_t value) {
  return Lookup(kPolicyTypeNames, value, 5, L"FW_POLICY_TYPE_INVALID");
}

const wchar_t* ActionName(int32_t value) {
  // Only 1 to 10 are looked up: value - 1 as unsigned puts 0 and negatives out of range.
  if (static_cast<uint32_t>(value) - 1u >= 10u) return L"FW_ACTION_INVALID";
  return kActionNames[value];
}

const wchar_t* LogOptionName(int32_t value) {
  return Lookup(kLogOptionNames, value, 3, L"FW_LOG_OPTION_INVALID");
}

const wchar_t* MatchTypeName(int32_t value) {
  if (value < 0) return L"FW_MATCH_INVALID";
  if (value < 43) return kMatchTypeNames[value];
  if (value >= 0x8000 && value <= 0x8FFF) return L"FW_MATCH_CONNECTION_METADATA_MATCH";
  if (value >= 0x9000 && value <= 0x9FFF) return L"FW_MATCH_NETIO_METADATA_MATCH";
  if (value < kFirstAggregateMatch) return L"FW_MATCH_INVALID";
  return L"FW_MATCH_FIRST_AGGREGATE_MATCH";
}

const wchar_t* MatchOpName(int32_t value) {
  return Lookup(kMatchOpNames, value, 8, L"FW_MATCH_OP_INVALID");
}

const wchar_t* DirectionName(int32_t value) {
  return Lookup(kDirectionNames, value, 3, L"FW_DIRECTION_INVALID");
}

const wchar_t* PhysicalMediumName(int32_t value) {
  return Lookup(kPhysicalMediumNames, value, kPhysicalMediumBound, nullptr);
}

const wchar_t* ConnectionStateName(int32_t value) {
  return Lookup(kConnectionStateNames, value, kConnectionStateBound, nullptr);
}

bool LookUpName(std::span<const NamedValue> table, const wchar_t* text, int32_t* value) {
  for (const NamedValue& entry : table) {
    if (EqualsIgnoringAsciiCase(text, entry.name)) {
      *value = entry.value;
      return true;
    }
  }
  *value = 0;
  return false;
}

int32_t ConnectionStateFromName(const wchar_t* text) {
  int32_t value = 0;
  LookUpName(kConnectionStateReaderNames, text, &value);
  return value;
}

}  // namespace nw
