// Every name the views write and the policy reader takes back, table by table, and what each
// lookup answers outside its table: values no listing shows one by one.

#include "policy/names.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <iterator>
#include <span>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "base/format.h"

namespace nw {
namespace {

using Words = std::vector<std::wstring>;

Words Split(const wchar_t* text) {
  std::wistringstream in(text);
  return Words(std::istream_iterator<std::wstring, wchar_t>(in), {});
}

// Null shows as a marker no table holds, so a missing name cannot pass for a fallback.
std::wstring Shown(const wchar_t* name) { return name == nullptr ? L"<no name>" : name; }

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

}  // namespace
}  // namespace nw
