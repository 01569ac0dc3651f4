#include "policy/names.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <iterator>
#include <span>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "base/format.h"
#include "core/guid.h"
#include "tests/unit/fake_platform.h"
#include "tests/unit/printed.h"

namespace nw {
namespace {

using Words = std::vector<std::wstring>;

Words Split(const wchar_t* text) {
  std::wistringstream in(text);
  return Words(std::istream_iterator<std::wstring, wchar_t>(in), {});
}

// Null shows as a marker no table holds, so a missing name cannot pass for a fallback.
std::wstring Shown(const wchar_t* name) { return name == nullptr ? L"<no name>" : name; }

using testing::Printed;

// Display names in value order, as the views write them; the list's length is the bound.
const Words kPolicyTypes = Split(
    L"FW_POLICY_TYPE_INVALID FW_POLICY_TYPE_FRAGMENT FW_POLICY_TYPE_PACKET FW_POLICY_TYPE_FORWARD "
    L"FW_POLICY_TYPE_STREAM");
const Words kActions = Split(
    L"FW_ACTION_INVALID FW_ACTION_ALLOW FW_ACTION_ASK_POINT_PRODUCT FW_ACTION_REDIRECT "
    L"FW_ACTION_ABSORB FW_ACTION_BLOCK_PACKET FW_ACTION_BLOCK_AND_RESET_CONNECTION "
    L"FW_ACTION_BLOCK_HOST FW_ACTION_CONTINUE FW_ACTION_JUMP FW_ACTION_CALL_PLUGIN");
const Words kLogOptions =
    Split(L"FW_LOG_OPTION_NONE FW_LOG_OPTION_CONNECTION_PARAMS FW_LOG_OPTION_PACKET");
const Words kMatchTypes = Split(
    L"FW_MATCH_INVALID FW_MATCH_USER_ID FW_MATCH_APP_PATH FW_MATCH_APP_COMMAND_LINE_PARAMS "
    L"FW_MATCH_APP_MD5_HASH_SUM FW_MATCH_APP_VENDOR FW_MATCH_APP_DIGITAL_SIGNER "
    L"FW_MATCH_LOCAL_PORT FW_MATCH_REMOTE_PORT FW_MATCH_ICMPV4_TYPE FW_MATCH_ICMPV6_TYPE "
    L"FW_MATCH_TCP_FLAGS FW_MATCH_CONNECTION_STATE FW_MATCH_IP_PROTOCOL "
    L"FW_MATCH_LOCAL_IP_ADDRESS FW_MATCH_REMOTE_IP_ADDRESS FW_MATCH_NETWORK_LAYER_PROTOCOL "
    L"FW_MATCH_LOCAL_ADAPTER_ADDRESS FW_MATCH_REMOTE_ADAPTER_ADDRESS FW_MATCH_PHYSICAL_MEDIUM "
    L"FW_MATCH_DIRECTION FW_MATCH_INTERFACE_INDEX_V6 FW_MATCH_INTERFACE_INDEX_V4 "
    L"FW_MATCH_INTERFACE_INDEX FW_MATCH_BYTES_SENT FW_MATCH_BYTES_RECEIVED "
    L"FW_MATCH_CONNSPEC_DNS_SUFFIX FW_MATCH_ADAPTER_DESCRIPTION FW_MATCH_SOURCE_IP_ADDRESS "
    L"FW_MATCH_DESTINATION_IP_ADDRESS FW_MATCH_SOURCE_PORT FW_MATCH_DESTINATION_PORT "
    L"FW_MATCH_SOURCE_ADAPTER_ADDRESS FW_MATCH_DESTINATION_ADAPTER_ADDRESS FW_MATCH_PROCESS_ID "
    L"FW_MATCH_PE_FILE_DESCRIPTION FW_MATCH_STANDARDIZED_APP_PATH "
    L"FW_MATCH_APP_DIGITAL_SIGNER_CASEINS FW_MATCH_IP_ADDRESS_IS_LOCAL FW_MATCH_CERT_HASH "
    L"FW_MATCH_HTTP_SERVER FW_MATCH_HTTP_URI FW_MATCH_VTP_PRIVILEGES");
const Words kMatchOps = Split(
    L"FW_MATCH_OP_EQUAL FW_MATCH_OP_EQUAL_NOT FW_MATCH_OP_GEQ FW_MATCH_OP_LEQ "
    L"FW_MATCH_OP_IN_RANGE FW_MATCH_OP_IN_RANGE_NOT FW_MATCH_OP_BITMASK FW_MATCH_OP_BITMASK_NOT");
const Words kDirections = Split(L"FW_DIRECTION_INVALID FW_DIRECTION_INBOUND FW_DIRECTION_OUTBOUND");
const Words kPhysicalMedia = Split(
    L"FW_PHYSICAL_MEDIUM_INVALID FW_PHYSICAL_MEDIUM_WIRED FW_PHYSICAL_MEDIUM_WIRELESS "
    L"FW_PHYSICAL_MEDIUM_VIRTUAL FW_PHYSICAL_MEDIUM_DIAL_UP FW_PHYSICAL_MEDIUM_TUNNEL_TEREDO "
    L"FW_PHYSICAL_MEDIUM_TUNNEL_6_TO_4 FW_PHYSICAL_MEDIUM_TUNNEL_ISATAP");
const Words kConnectionStates = Split(
    L"FWCS_UNKNOWN FWCS_LISTEN FWCS_INIT FWCS_CONNECTING FWCS_ESTABLISHED FWCS_PROBATION_PENDING "
    L"FWCS_ON_PROBATION FWCS_PROBATION_FAILED FWCS_TIMED_OUT FWCS_CHILD_INIT");

struct Enumeration {
  const wchar_t* (*name)(int32_t);
  const Words& names;
  const wchar_t* fallback;  // null: the view prints its own message
  std::span<const NamedValue> reader;
  std::vector<int32_t> refused;  // shown values the reader does not take back
  int32_t first = 0;             // lowest value that is looked up
};

const Enumeration kEnumerations[] = {
    {PolicyTypeName, kPolicyTypes, L"FW_POLICY_TYPE_INVALID", kPolicyTypeReaderNames, {0}},
    {ActionName, kActions, L"FW_ACTION_INVALID", kActionReaderNames, {8}, 1},
    {LogOptionName, kLogOptions, L"FW_LOG_OPTION_INVALID", kLogOptionReaderNames, {}},
    {MatchTypeName, kMatchTypes, L"FW_MATCH_INVALID", kMatchTypeReaderNames, {0, 27, 38, 39, 41}},
    {MatchOpName, kMatchOps, L"FW_MATCH_OP_INVALID", kMatchOpReaderNames, {}},
    {DirectionName, kDirections, L"FW_DIRECTION_INVALID", kDirectionReaderNames, {0}},
    {PhysicalMediumName, kPhysicalMedia, nullptr, kPhysicalMediumReaderNames, {0, 5, 6, 7}},
    {ConnectionStateName, kConnectionStates, nullptr, kConnectionStateReaderNames, {}},
};

::testing::Message Trace(const Enumeration& e, int32_t value) {
  return ::testing::Message() << WideToUtf8(e.names.front()) << " table, value " << value;
}

TEST(NamesDisplay, EveryValueInsideTheBoundHasItsNameAndEveryOtherTheFallback) {
  for (const Enumeration& e : kEnumerations) {
    const int32_t bound = static_cast<int32_t>(e.names.size());
    for (int32_t value = e.first; value < bound; ++value) {
      SCOPED_TRACE(Trace(e, value));
      EXPECT_EQ(Shown(e.name(value)), e.names[value]);
    }
    // The entries stored past the bound (LAST and the like) must stay hidden too.
    for (int32_t value : {e.first - 1, -1, INT32_MIN, bound, bound + 1, 0x10000, INT32_MAX}) {
      if (e.name == MatchTypeName && value >= bound) continue;  // ranges, checked below
      SCOPED_TRACE(Trace(e, value));
      EXPECT_EQ(Shown(e.name(value)), Shown(e.fallback));
    }
  }
}

TEST(NamesDisplay, MatchTypesAboveTheTableFallIntoTheirRanges) {
  const std::pair<int32_t, const wchar_t*> cases[] = {
      {42, L"FW_MATCH_VTP_PRIVILEGES"},
      {43, L"FW_MATCH_INVALID"},
      {0x7FFF, L"FW_MATCH_INVALID"},
      {0x8000, L"FW_MATCH_CONNECTION_METADATA_MATCH"},
      {0x8FFF, L"FW_MATCH_CONNECTION_METADATA_MATCH"},
      {0x9000, L"FW_MATCH_NETIO_METADATA_MATCH"},
      {0x9FFF, L"FW_MATCH_NETIO_METADATA_MATCH"},
      {0xA000, L"FW_MATCH_INVALID"},
      {0xFFFF, L"FW_MATCH_INVALID"},
      {0x10000, L"FW_MATCH_FIRST_AGGREGATE_MATCH"},
      {INT32_MAX, L"FW_MATCH_FIRST_AGGREGATE_MATCH"},
  };
  for (const auto& [value, name] : cases) {
    SCOPED_TRACE(value);
    EXPECT_EQ(Shown(MatchTypeName(value)), name);
  }
}

// What the views write must read back as the same value, except the names the reader refuses
// on purpose, which must not be taken at all.
TEST(NamesReader, ShownNamesReadBackUnlessRefused) {
  for (const Enumeration& e : kEnumerations) {
    const int32_t bound = static_cast<int32_t>(e.names.size());
    for (int32_t value = e.first; value < bound; ++value) {
      SCOPED_TRACE(Trace(e, value));
      const bool refused = std::count(e.refused.begin(), e.refused.end(), value) != 0;
      int32_t read = -7;
      EXPECT_EQ(LookUpName(e.reader, e.name(value), &read), !refused);
      EXPECT_EQ(read, refused ? 0 : value);  // a miss stores 0
    }
  }
}

TEST(NamesReader, TablesWithAFixedOrderHoldExactlyTheirNamesInIt) {
  const struct {
    std::span<const NamedValue> table;
    const wchar_t* entries;
  } cases[] = {
      {kActionReaderNames,
       L"FW_ACTION_ALLOW=1 FW_ACTION_BLOCK_PACKET=5 FW_ACTION_BLOCK_AND_RESET_CONNECTION=6 "
       L"FW_ACTION_BLOCK_HOST=7 FW_ACTION_JUMP=9 FW_ACTION_CALL_PLUGIN=10 "
       L"FW_ACTION_ASK_POINT_PRODUCT=2 FW_ACTION_REDIRECT=3 FW_ACTION_ABSORB=4"},
      {kMatchTypeReaderNames,
       L"FW_MATCH_USER_ID=1 FW_MATCH_APP_PATH=2 FW_MATCH_APP_COMMAND_LINE_PARAMS=3 "
       L"FW_MATCH_APP_VENDOR=5 FW_MATCH_APP_DIGITAL_SIGNER=6 FW_MATCH_APP_MD5_HASH_SUM=4 "
       L"FW_MATCH_LOCAL_PORT=7 FW_MATCH_REMOTE_PORT=8 FW_MATCH_ICMPV4_TYPE=9 "
       L"FW_MATCH_ICMPV6_TYPE=10 FW_MATCH_TCP_FLAGS=11 FW_MATCH_CONNECTION_STATE=12 "
       L"FW_MATCH_IP_PROTOCOL=13 FW_MATCH_LOCAL_IP_ADDRESS=14 FW_MATCH_REMOTE_IP_ADDRESS=15 "
       L"FW_MATCH_NETWORK_LAYER_PROTOCOL=16 FW_MATCH_LOCAL_ADAPTER_ADDRESS=17 "
       L"FW_MATCH_REMOTE_ADAPTER_ADDRESS=18 FW_MATCH_SOURCE_ADAPTER_ADDRESS=32 "
       L"FW_MATCH_DESTINATION_ADAPTER_ADDRESS=33 FW_MATCH_PHYSICAL_MEDIUM=19 "
       L"FW_MATCH_DIRECTION=20 FW_MATCH_INTERFACE_INDEX=23 FW_MATCH_INTERFACE_INDEX_V6=21 "
       L"FW_MATCH_INTERFACE_INDEX_V4=22 FW_MATCH_BYTES_RECEIVED=25 FW_MATCH_BYTES_SENT=24 "
       L"FW_MATCH_CONNSPEC_DNS_SUFFIX=26 FW_MATCH_AGGREGATE_MATCH=65536 FW_MATCH_SOURCE_PORT=30 "
       L"FW_MATCH_DESTINATION_PORT=31 FW_MATCH_SOURCE_IP_ADDRESS=28 "
       L"FW_MATCH_DESTINATION_IP_ADDRESS=29 FW_MATCH_PROCESS_ID=34 "
       L"FW_MATCH_PE_FILE_DESCRIPTION=35 FW_MATCH_APP_DIGITAL_SIGNER_CASEINS=37 "
       L"FW_MATCH_STANDARDIZED_APP_PATH=36 FW_MATCH_HTTP_SERVER=40 FW_MATCH_VTP_PRIVILEGES=42"},
      {kIpProtocolReaderNames,
       L"IP_PROTO_IPV6_HOPOPT=0 IP_PROTO_ICMP=1 IP_PROTO_IGMP=2 IP_PROTO_IPV4=4 IP_PROTO_TCP=6 "
       L"IP_PROTO_UDP=17 IP_PROTO_IPV6=41 IP_PROTO_ESP=50 IP_PROTO_IPV6_ROUTEOPT=43 "
       L"IP_PROTO_IPV6_FRAGOPT=44 IP_PROTO_GRE=47 IP_PROTO_IPV6_ICMP=58 "
       L"IP_PROTO_IPV6_NONXTOPT=59 IP_PROTO_IPV6_DSTOPT=60"},
      // EtherTypes 0x0806, 0x0800, 0x86DD, 0x8137, 0x8040 and 0x2000.
      {kLinkLayerProtocolReaderNames,
       L"ARP=2054 IP=2048 IPv4=2048 IPv6=34525 IPX=33079 NETBIOS=32832 CDP=8192"},
  };
  for (const auto& c : cases) {
    const Words expected = Split(c.entries);
    SCOPED_TRACE(WideToUtf8(expected.front()));
    Words actual;
    for (const NamedValue& e : c.table)
      actual.push_back(std::wstring(e.name) + L"=" + std::to_wstring(e.value));
    EXPECT_EQ(actual, expected);
  }
}

TEST(NamesReader, LookUpIgnoresCaseButNothingElse) {
  const struct {
    std::span<const NamedValue> table;
    const wchar_t* text;
    bool found;
    int32_t value;
  } cases[] = {
      {kActionReaderNames, L"fw_action_allow", true, 1},
      {kActionReaderNames, L"FW_ACTION_ALLO", false, 0},
      {kActionReaderNames, L"FW_ACTION_ALLOWED", false, 0},
      {kActionReaderNames, L" FW_ACTION_ALLOW", false, 0},
      {kActionReaderNames, L"", false, 0},
      {kLogOptionReaderNames, L"fw_log_option_last", true, 3},
      {kPhysicalMediumReaderNames, L"fw_physical_medium_vpn", true, 3},
      {kPhysicalMediumReaderNames, L"FW_PHYSICAL_MEDIUM_WAN", true, 4},
      {kMatchTypeReaderNames, L"FW_MATCH_LAST_NON_AGGREGATE", false, 0},
      {kMatchTypeReaderNames, L"FW_MATCH_FIRST_AGGREGATE_MATCH", false, 0},
      {kMatchTypeReaderNames, L"fw_match_aggregate_match", true, 0x10000},
      {kMatchOpReaderNames, L"FW_MATCH_OP_LAST", false, 0},
      {kDirectionReaderNames, L"FW_DIRECTION_LAST", false, 0},
      {kIpProtocolReaderNames, L"ip_proto_ipv6_icmp", true, 58},
      {kLinkLayerProtocolReaderNames, L"ip", true, 0x0800},
      {kLinkLayerProtocolReaderNames, L"IPV4", true, 0x0800},
      {kLinkLayerProtocolReaderNames, L"ipv6", true, 0x86DD},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(WideToUtf8(c.text));
    int32_t value = -7;  // a miss stores 0 in the caller's field
    EXPECT_EQ(LookUpName(c.table, c.text, &value), c.found);
    EXPECT_EQ(value, c.value);
  }
}

TEST(NamesReader, ConnectionStateTakesAnyUnknownTextAsUnknown) {
  const std::pair<const wchar_t*, int32_t> cases[] = {
      {L"FWCS_ESTABLISHED", 4}, {L"fwcs_child_init", 9}, {L"FWCS_LISTEN", 1},
      {L"FWCS_INVALID", 0},     {L"listening", 0},       {L"", 0}};
  for (const auto& [text, value] : cases) {
    SCOPED_TRACE(WideToUtf8(text));
    EXPECT_EQ(ConnectionStateFromName(text), value);
  }
}

IpAddress Record(const std::vector<uint8_t>& bytes, uint32_t version) {
  IpAddress record{};
  std::copy(bytes.begin(), bytes.end(), record.bytes);
  record.version = version;
  return record;
}

const std::vector<uint8_t> kLinkLocal = {0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};

TEST(NamesIpText, FormatsBothFamiliesWithinTheirCapacity) {
  const struct {
    IpAddress address;
    size_t capacity;
    const wchar_t* text;  // null: refused, nothing written
  } cases[] = {
      {Record({0, 0, 0, 0}, 4), 40, L"0.0.0.0"},
      {Record({10, 0, 0, 1}, 4), 40, L"10.0.0.1"},
      {Record({100, 20, 3, 250}, 4), 40, L"100.20.3.250"},
      {Record({255, 255, 255, 255}, 4), 16, L"255.255.255.255"},
      {Record({255, 255, 255, 255}, 4), 15, nullptr},
      {Record(kLinkLocal, 6), 40, L"fe80:0:0:0:0:0:0:1"},
      {Record({}, 6), 40, L"0:0:0:0:0:0:0:0"},
      {Record({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 10, 0, 0, 1}, 6), 40,
       L"0:0:0:0:0:ffff:a00:1"},
      {Record({1, 0, 0, 0x10, 0x10, 0, 0xab, 0xcd, 0, 1, 0, 0xff, 0x0f, 0x0f, 0xf0, 0}, 6), 40,
       L"100:10:1000:abcd:1:ff:f0f:f000"},
      {Record(std::vector<uint8_t>(16, 0xff), 6), 40, L"ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"},
      {Record({0xff, 0xff}, 6), 39, nullptr},
      {Record(kLinkLocal, 0), 40, L"fe80:0:0:0:0:0:0:1"},
      {Record(kLinkLocal, 0), 16, nullptr},
      {Record(kLinkLocal, 5), 40, L"fe80:0:0:0:0:0:0:1"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::Message() << "version " << c.address.version << ", capacity "
                                      << c.capacity << ", byte 0 " << int{c.address.bytes[0]});
    wchar_t buffer[48];
    std::fill(std::begin(buffer), std::end(buffer), L'#');
    EXPECT_EQ(FormatIpAddress(buffer, c.capacity, &c.address), c.text != nullptr);
    const size_t written = c.text == nullptr ? 0 : std::wcslen(c.text) + 1;
    if (c.text != nullptr) {
      EXPECT_EQ(std::wstring(buffer), c.text);
    }
    EXPECT_EQ(static_cast<size_t>(std::count(buffer + written, std::end(buffer), L'#')),
              std::size(buffer) - written);
  }
}

TEST(NamesIpText, PrintsWithTheRequestedTabsAndNewline) {
  const IpAddress v4 = Record({192, 168, 1, 20}, 4);
  const IpAddress v6 = Record(kLinkLocal, 6);
  const struct {
    const IpAddress* address;
    bool tabs;
    bool newline;
    std::string printed;
  } cases[] = {
      {&v4, false, false, "192.168.1.20"},           {&v4, true, false, "\t\t192.168.1.20"},
      {&v4, false, true, "192.168.1.20\n"},          {&v4, true, true, "\t\t192.168.1.20\n"},
      {&v6, true, true, "\t\tfe80:0:0:0:0:0:0:1\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.printed);
    EXPECT_EQ(Printed([&] { PrintIpAddress(c.address, c.tabs, c.newline); }), c.printed);
  }
}

TEST(NamesIpText, PrintsBareAddresses) {
  // A bare IPv4 value keeps the first octet in its lowest byte.
  EXPECT_EQ(Printed([] { PrintIpv4Address(0x0100000Au, false); }), "10.0.0.1");
  EXPECT_EQ(Printed([] { PrintIpv4Address(0x04030201u, true); }), "1.2.3.4\n");
  EXPECT_EQ(Printed([] { PrintIpv4Address(0xFFFFFFFFu, false); }), "255.255.255.255");
  const uint8_t bytes[16] = {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x01, 0x00};
  EXPECT_EQ(Printed([&] { PrintIpv6Address(bytes, true); }), "2001:db8:0:0:0:0:0:100\n");
  EXPECT_EQ(Printed([&] { PrintIpv6Address(bytes, false); }), "2001:db8:0:0:0:0:0:100");
}

TEST(NamesIpText, SocketAddressesFillTheRecordOnlyForTheTwoFamilies) {
  platform::SocketAddress v4{};
  v4.v4 = {platform::kAfInet, 80, {192, 0, 2, 7}, {}};
  platform::SocketAddress v6{};
  v6.v6 = {platform::kAfInet6, 443, 0, {0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}, 3};
  platform::SocketAddress other{};
  other.v4 = {17, 0, {1, 2, 3, 4}, {}};
  const struct {
    const char* label;
    const platform::SocketAddress* address;
    IpAddress expected;
  } cases[] = {
      {"ipv4", &v4, Record({192, 0, 2, 7}, 4)},
      {"ipv6", &v6, Record(kLinkLocal, 6)},
      {"other", &other, Record(std::vector<uint8_t>(16, 0xee), 99)},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    IpAddress record = Record(std::vector<uint8_t>(16, 0xee), 99);  // stale contents
    IpAddressFromSocketAddress(&record, c.address);
    EXPECT_EQ(record.version, c.expected.version);
    EXPECT_EQ(std::memcmp(record.bytes, c.expected.bytes, 16), 0);
  }
}

TEST(NamesIpText, ParsesLiteralsOfEitherFamily) {
  const struct {
    const wchar_t* text;
    bool ok;
    IpAddress expected;
  } cases[] = {
      {L"192.168.0.1", true, Record({192, 168, 0, 1}, 4)},
      {L"0.0.0.0", true, Record({}, 4)},
      {L"fe80::1", true, Record(kLinkLocal, 6)},
      {L"::", true, Record({}, 6)},
      {L"::ffff:10.0.0.1", true,
       Record({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 10, 0, 0, 1}, 6)},
      {L"not an address", false, Record({}, 0)},
      {L"fe80::1::2", false, Record({}, 0)},
      {L"", false, Record({}, 0)},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(WideToUtf8(c.text));
    IpAddress record = Record(std::vector<uint8_t>(16, 0xee), 4);
    EXPECT_EQ(ParseIpAddress(&record, c.text), c.ok);
    EXPECT_EQ(record.version, c.expected.version);
    if (c.ok) {
      EXPECT_EQ(std::memcmp(record.bytes, c.expected.bytes, 16), 0);
    }
  }
}

TEST(NamesIpText, ParseTriesIpv4BeforeIpv6WithTheirSocketAddressSizes) {
  testing::FakePlatform fake;
  IpAddress record = Record({1, 2, 3, 4}, 4);
  EXPECT_FALSE(ParseIpAddress(&record, L"10.0.0.1"));
  EXPECT_EQ(record.version, 0u);
  const std::vector<std::pair<uint16_t, int32_t>> expected = {{2, 16}, {23, 28}};
  EXPECT_EQ(fake.process.addressRequests, expected);
}

const Guid kSample = {0xEFDC4955, 0x59FD, 0x43CA, {0x95, 0xBA, 0x5D, 0xE8, 0x72, 0x72, 0x12, 0x46}};

TEST(NamesGuid, FormatsThirtySixLowerCaseCharactersThatParseBack) {
  const struct {
    Guid guid;
    const wchar_t* text;
  } cases[] = {
      {kSample, L"efdc4955-59fd-43ca-95ba-5de872721246"},
      {Guid{}, L"00000000-0000-0000-0000-000000000000"},
      {{0x1, 0x2, 0x3, {}}, L"00000001-0002-0003-0000-000000000000"},
      {{0x00ABCDEF, 0x0A0B, 0xF000, {0, 1, 0x10, 0, 0, 0, 0, 0xFF}},
       L"00abcdef-0a0b-f000-0001-1000000000ff"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(WideToUtf8(c.text));
    wchar_t buffer[kGuidTextCapacity + 4];
    std::fill(std::begin(buffer), std::end(buffer), L'#');
    FormatGuid(buffer, &c.guid);
    EXPECT_EQ(std::wstring(buffer), c.text);
    EXPECT_EQ(std::wcslen(buffer), 36u);
    EXPECT_EQ(buffer[kGuidTextCapacity], L'#');
    Guid back{};
    EXPECT_TRUE(ParseGuid(buffer, &back));
    EXPECT_TRUE(back == c.guid);
  }
}

TEST(NamesGuid, ParsesEitherCaseAndRefusesAnythingElseWithAMessage) {
  const struct {
    const wchar_t* text;
    bool ok;
  } cases[] = {
      {L"efdc4955-59fd-43ca-95ba-5de872721246", true},
      {L"EFDC4955-59FD-43CA-95BA-5DE872721246", true},
      {L"EfDc4955-59Fd-43cA-95bA-5dE872721246", true},
      {L"{efdc4955-59fd-43ca-95ba-5de872721246}", false},
      {L"efdc4955-59fd-43ca-95ba-5de87272124", false},
      {L"efdc4955-59fd-43ca-95ba-5de8727212460", false},
      {L"efdc4955-59fd-43ca-95ba-5de87272124g", false},
      {L"efdc495559fd-43ca-95ba-5de872721246-", false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(WideToUtf8(c.text));
    Guid guid{};
    bool ok = false;
    const std::string printed = Printed([&] { ok = ParseGuid(c.text, &guid); });
    EXPECT_EQ(ok, c.ok);
    EXPECT_EQ(printed, c.ok ? "" : "user supplied UID string is invalid\n");
    if (c.ok) {
      EXPECT_TRUE(guid == kSample);
    }
  }
}

TEST(NamesGuid, PrintsFourWordsInMemoryOrderAfterTheIndentation) {
  const uint32_t words[4] = {0x01234567, 0x89abcdef, 0, 0xdeadbeef};
  Guid guid;
  std::memcpy(&guid, words, sizeof guid);
  const struct {
    int depth;
    std::string printed;
  } cases[] = {
      {0, "    guid: 01234567 89abcdef 00000000 deadbeef \n"},
      {2, "            guid: 01234567 89abcdef 00000000 deadbeef \n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.depth);
    EXPECT_EQ(Printed([&] { PrintGuidWords(&guid, c.depth); }), c.printed);
  }
}

}  // namespace
}  // namespace nw
