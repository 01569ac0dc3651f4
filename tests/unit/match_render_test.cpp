// RenderMatch against recording terms: every row of the rendering table in both modes, the
// operator's choice of getter, the failure lines, the escaping rule and what LastStatus keeps.

#include "policy/match_render.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "cli/console.h"
#include "tests/unit/fake_policy.h"
#include "tests/unit/printed.h"

namespace nw {
namespace {

using testing::CallLog;
using testing::FakeMatch;
using testing::FakeTerm;

using testing::Printed;

std::string Render(int32_t type, std::vector<FakeTerm> terms, int mode, CallLog* calls = nullptr) {
  CallLog log;
  FakeMatch match(log, type, std::move(terms));
  std::string out = Printed([&] { RenderMatch(&match, mode); });
  if (calls != nullptr) *calls = log;
  return out;
}

IpAddress V4(uint8_t a, uint8_t b, uint8_t c, uint8_t d) {
  IpAddress address{};
  address.bytes[0] = a;
  address.bytes[1] = b;
  address.bytes[2] = c;
  address.bytes[3] = d;
  address.version = 4;
  return address;
}

IpAddress LinkLocalOne() {
  IpAddress address{};
  address.bytes[0] = 0xfe;
  address.bytes[1] = 0x80;
  address.bytes[15] = 1;
  address.version = 6;
  return address;
}

// The display names the header lines show, as the listings write them.
const std::map<int32_t, std::string> kTypeNames = {
    {0, "FW_MATCH_INVALID"},
    {1, "FW_MATCH_USER_ID"},
    {2, "FW_MATCH_APP_PATH"},
    {3, "FW_MATCH_APP_COMMAND_LINE_PARAMS"},
    {4, "FW_MATCH_APP_MD5_HASH_SUM"},
    {5, "FW_MATCH_APP_VENDOR"},
    {6, "FW_MATCH_APP_DIGITAL_SIGNER"},
    {7, "FW_MATCH_LOCAL_PORT"},
    {8, "FW_MATCH_REMOTE_PORT"},
    {9, "FW_MATCH_ICMPV4_TYPE"},
    {10, "FW_MATCH_ICMPV6_TYPE"},
    {11, "FW_MATCH_TCP_FLAGS"},
    {12, "FW_MATCH_CONNECTION_STATE"},
    {13, "FW_MATCH_IP_PROTOCOL"},
    {14, "FW_MATCH_LOCAL_IP_ADDRESS"},
    {15, "FW_MATCH_REMOTE_IP_ADDRESS"},
    {16, "FW_MATCH_NETWORK_LAYER_PROTOCOL"},
    {17, "FW_MATCH_LOCAL_ADAPTER_ADDRESS"},
    {18, "FW_MATCH_REMOTE_ADAPTER_ADDRESS"},
    {19, "FW_MATCH_PHYSICAL_MEDIUM"},
    {20, "FW_MATCH_DIRECTION"},
    {21, "FW_MATCH_INTERFACE_INDEX_V6"},
    {22, "FW_MATCH_INTERFACE_INDEX_V4"},
    {23, "FW_MATCH_INTERFACE_INDEX"},
    {24, "FW_MATCH_BYTES_SENT"},
    {25, "FW_MATCH_BYTES_RECEIVED"},
    {26, "FW_MATCH_CONNSPEC_DNS_SUFFIX"},
    {27, "FW_MATCH_ADAPTER_DESCRIPTION"},
    {28, "FW_MATCH_SOURCE_IP_ADDRESS"},
    {29, "FW_MATCH_DESTINATION_IP_ADDRESS"},
    {30, "FW_MATCH_SOURCE_PORT"},
    {31, "FW_MATCH_DESTINATION_PORT"},
    {32, "FW_MATCH_SOURCE_ADAPTER_ADDRESS"},
    {33, "FW_MATCH_DESTINATION_ADAPTER_ADDRESS"},
    {34, "FW_MATCH_PROCESS_ID"},
    {35, "FW_MATCH_PE_FILE_DESCRIPTION"},
    {36, "FW_MATCH_STANDARDIZED_APP_PATH"},
    {37, "FW_MATCH_APP_DIGITAL_SIGNER_CASEINS"},
    {38, "FW_MATCH_IP_ADDRESS_IS_LOCAL"},
    {39, "FW_MATCH_CERT_HASH"},
    {40, "FW_MATCH_HTTP_SERVER"},
    {41, "FW_MATCH_HTTP_URI"},
    {42, "FW_MATCH_VTP_PRIVILEGES"},
    {43, "FW_MATCH_INVALID"},
    {0x8000, "FW_MATCH_CONNECTION_METADATA_MATCH"},
    {0xFFFF, "FW_MATCH_INVALID"},
    {-5, "FW_MATCH_INVALID"},
};
const char* const kOpNames[] = {
    "FW_MATCH_OP_EQUAL",   "FW_MATCH_OP_EQUAL_NOT",   "FW_MATCH_OP_GEQ",
    "FW_MATCH_OP_LEQ",     "FW_MATCH_OP_IN_RANGE",    "FW_MATCH_OP_IN_RANGE_NOT",
    "FW_MATCH_OP_BITMASK", "FW_MATCH_OP_BITMASK_NOT", "FW_MATCH_OP_INVALID",
};

// One term's block, around the value as a row states it.
std::string TextTerm(int32_t type, int32_t op, const std::string& value) {
  return "            Match\n                match type: " + kTypeNames.at(type) + " (" +
         std::to_string(type) + ")\n\n                op = " + kOpNames[op] + "\n" + value;
}
std::string XmlTerm(int32_t type, int32_t op, const std::string& value) {
  return "                <match>\n                    <matchtype>" + kTypeNames.at(type) +
         "</matchtype>\n                    <optype>" + kOpNames[op] + "</optype>\n" + value +
         "                </match>\n";
}

struct ValueRow {
  const char* what;
  std::vector<int32_t> types;
  std::vector<int32_t> ops;
  FakeTerm term;
  std::string text;  // the value as the listings write it
  std::string xml;   // the value as the policy document writes it
};

void ExpectRows(const std::vector<ValueRow>& rows) {
  for (const ValueRow& row : rows) {
    for (int32_t type : row.types) {
      for (int32_t op : row.ops) {
        SCOPED_TRACE(std::string(row.what) + ", type " + std::to_string(type) + ", op " +
                     std::to_string(op));
        FakeTerm term = row.term;
        term.op = op;
        EXPECT_EQ(Render(type, {term}, kRenderText), TextTerm(type, op, row.text));
        EXPECT_EQ(Render(type, {term}, kRenderXml), XmlTerm(type, op, row.xml));
      }
    }
  }
}

const std::vector<int32_t> kAllOps = {0, 1, 2, 3, 4, 5, 6, 7, 8};
const std::vector<int32_t> kRangeOps = {4, 5};
const std::vector<int32_t> kStringTypes = {1, 2, 3, 5, 6, 26, 27, 35, 36, 37, 40};
const std::vector<int32_t> kPortTypes = {7, 8, 16, 30, 31};
const std::vector<int32_t> kAddressTypes = {14, 15, 28, 29};
const std::vector<int32_t> kAdapterTypes = {17, 18, 32, 33};

TEST(RenderMatchTest, EveryTypeWritesItsValueInBothForms) {
  const std::vector<int32_t> singleOps = {0, 1, 2, 3, 6, 7, 8};
  ExpectRows({
      {"string",
       kStringTypes,
       {0, 4},
       FakeTerm{.text = L"C:\\Tools\\sync.exe"},
       "                string = C:\\Tools\\sync.exe\n",
       "                    <value>C:\\Tools\\sync.exe</value>\n\n"},
      {"hash sum",
       {4},
       {0, 4},
       FakeTerm{.bytes = {0xd4, 0x1d, 0x8c, 0xd9, 0x8f, 0x00, 0xb2, 0x04, 0xe9, 0x80, 0x09, 0x98,
                          0xec, 0xf8, 0x42, 0x7e}},
       "                value = d4 1d 8c d9 8f 00 b2 04 e9 80 09 98 ec f8 42 7e\n",
       "                    "
       "<value>212,29,140,217,143,0,178,4,233,128,9,152,236,248,66,126</value>\n"},
      {"hash sum of 20 bytes uses 16",
       {4},
       {0},
       FakeTerm{.bytes = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20}},
       "                value = 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f 10\n",
       "                    <value>1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16</value>\n"},
      {"port range", kPortTypes, kRangeOps, FakeTerm{.u16 = 7, .low16 = 1024, .high16 = 2048},
       "                low = 0x400 (1024), high = 0x800 (2048)\n",
       "                    <value>1024-2048</value>\n"},
      {"single port", kPortTypes, singleOps, FakeTerm{.u16 = 443, .low16 = 1, .high16 = 2},
       "                value = 0x1bb (443)\n", "                    <value>443</value>\n"},
      {"byte",
       {9, 10, 11, 13},
       kAllOps,
       FakeTerm{.u8 = 200, .u16 = 7, .low16 = 1, .high16 = 2},
       "                value = 0xc8 (200)\n",
       "                    <value>200</value>\n"},
      {"connection state",
       {12},
       {0},
       FakeTerm{.u32 = 4},
       "                FWCS_ESTABLISHED\n",
       "                    <value>FWCS_ESTABLISHED</value>\n"},
      {"first connection state",
       {12},
       {0},
       FakeTerm{.u32 = 0},
       "                FWCS_UNKNOWN\n",
       "                    <value>FWCS_UNKNOWN</value>\n"},
      {"last connection state",
       {12},
       {1},
       FakeTerm{.u32 = 9},
       "                FWCS_CHILD_INIT\n",
       "                    <value>FWCS_CHILD_INIT</value>\n"},
      {"connection state 10",
       {12},
       {0},
       FakeTerm{.u32 = 10},
       "                unrecognized connection state 10\n",
       "                unrecognized connection state 10\n"},
      {"connection state negative",
       {12},
       {0},
       FakeTerm{.u32 = 0xFFFFFFFF},
       "                unrecognized connection state -1\n",
       "                unrecognized connection state -1\n"},
      {"physical medium",
       {19},
       {0},
       FakeTerm{.u32 = 2},
       "                FW_PHYSICAL_MEDIUM_WIRELESS\n",
       "                    <value>FW_PHYSICAL_MEDIUM_WIRELESS</value>\n"},
      {"last physical medium",
       {19},
       {0},
       FakeTerm{.u32 = 7},
       "                FW_PHYSICAL_MEDIUM_TUNNEL_ISATAP\n",
       "                    <value>FW_PHYSICAL_MEDIUM_TUNNEL_ISATAP</value>\n"},
      {"physical medium 8",
       {19},
       {0},
       FakeTerm{.u32 = 8},
       "                unrecognized physical medium 8\n",
       "                unrecognized physical medium 8\n"},
      {"inbound",
       {20},
       {0},
       FakeTerm{.u32 = 1},
       "                inbound\n",
       "                    <value>FW_DIRECTION_INBOUND</value>\n"},
      {"outbound",
       {20},
       {1},
       FakeTerm{.u32 = 2},
       "                outbound\n",
       "                    <value>FW_DIRECTION_OUTBOUND</value>\n"},
      {"direction 3",
       {20},
       {0},
       FakeTerm{.u32 = 3},
       "                unknown value for direction (3)\n",
       "                    <value>FW_DIRECTION_INVALID</value>\n"},
      {"direction 0",
       {20},
       {0},
       FakeTerm{.u32 = 0},
       "                unknown value for direction (0)\n",
       "                    <value>FW_DIRECTION_INVALID</value>\n"},
      {"interface index",
       {23},
       singleOps,
       FakeTerm{.u64 = 12, .low64 = 1, .high64 = 2},
       "                value = 0xc (12)\n",
       "                    <value>0xc</value>\n"},
      {"interface index range",
       {23},
       kRangeOps,
       FakeTerm{.u64 = 12, .low64 = 1, .high64 = 0x10},
       "                low = 0x1 (1), high = 0x10 (16)\n",
       "                    <value>0x1-0x10</value>\n"},
      {"64-bit number",
       {24, 25, 34, 42},
       kAllOps,
       FakeTerm{.u64 = 12, .low64 = 1, .high64 = 2},
       "                value = 0xc (12)\n",
       "                    <value>12</value>\n"},
      {"64-bit number, all ones",
       {24},
       {0},
       FakeTerm{.u64 = 0xFFFFFFFFFFFFFFFFull},
       "                value = 0xffffffffffffffff (-1)\n",
       "                    <value>-1</value>\n"},
      {"single address",
       kAddressTypes,
       {0, 4},
       FakeTerm{.ip = V4(10, 1, 2, 3), .kind = 1},
       "\t\t10.1.2.3\n",
       "                    <value>10.1.2.3</value>\n"},
      {"single IPv6 address",
       {14},
       {0},
       FakeTerm{.ip = LinkLocalOne(), .kind = 1},
       "\t\tfe80:0:0:0:0:0:0:1\n",
       "                    <value>fe80:0:0:0:0:0:0:1</value>\n"},
      {"address range",
       kAddressTypes,
       {4},
       FakeTerm{.low = V4(10, 0, 0, 1), .high = V4(10, 0, 0, 9), .kind = 2},
       "\t\t10.0.0.1\n\t\t10.0.0.9\n",
       "                    <value>10.0.0.1-10.0.0.9</value>\n"},
      {"address with prefix",
       kAddressTypes,
       {0},
       FakeTerm{.ip = V4(192, 168, 0, 0), .prefix = 16, .kind = 3},
       "                192.168.0.0/16\n",
       "                    <value>192.168.0.0/16</value>\n"},
      {"domain name",
       kAddressTypes,
       {0},
       FakeTerm{.text = L"R&D.example.com", .kind = 4},
       "                R&D.example.com\n",
       "                    <value>R&D.example.com</value>\n"},
      {"address kind 5",
       kAddressTypes,
       {0},
       FakeTerm{.kind = 5},
       "                unrecognized type returned from IMatchTerms::GetIpAddressMatchType: 5\n",
       "                unrecognized type returned from IMatchTerms::GetIpAddressMatchType: 5\n"},
      {"address kind 0",
       {14},
       {0},
       FakeTerm{.kind = 0},
       "                unrecognized type returned from IMatchTerms::GetIpAddressMatchType: 0\n",
       "                unrecognized type returned from IMatchTerms::GetIpAddressMatchType: 0\n"},
      {"adapter address of 8 bytes",
       kAdapterTypes,
       {0},
       FakeTerm{.bytes = {0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0x5e, 0x6f, 0x70}},
       "                value = 00-1a-2b-3c-4d-5e-6f-70\n",
       "                    <value>00-1a-2b-3c-4d-5e-6f-70</value>\n"},
      {"adapter address of 16 bytes",
       kAdapterTypes,
       {0},
       FakeTerm{.bytes = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99, 0xaa, 0xbb,
                          0xcc, 0xdd, 0xee, 0xff}},
       "                value = 00-11-22-33-44-55-66-77 88-99-aa-bb-cc-dd-ee-ff\n",
       "                    <value>00-11-22-33-44-55-66-77 88-99-aa-bb-cc-dd-ee-ff</value>\n"},
      {"adapter address of 17 bytes has one group",
       {17},
       {0},
       FakeTerm{.bytes = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17}},
       "                value = 01-02-03-04-05-06-07-08\n",
       "                    <value>01-02-03-04-05-06-07-08</value>\n"},
      {"no value for is-local", {38}, kAllOps, FakeTerm{.u8 = 1, .u64 = 1, .kind = 1}, "", ""},
  });
}

TEST(RenderMatchTest, UnknownTypesNameTheirNumberInBothModes) {
  for (int32_t type : {0, 21, 22, 39, 41, 43, 0x8000, 0xFFFF, -5}) {
    SCOPED_TRACE(type);
    const std::string line = "            Unknown match type " + std::to_string(type) + "\n";
    EXPECT_EQ(Render(type, {FakeTerm{}}, kRenderText), TextTerm(type, 0, line));
    EXPECT_EQ(Render(type, {FakeTerm{}}, kRenderXml), XmlTerm(type, 0, line));
  }
}

// The core reports fewer bytes than the form has positions: the missing ones print as zero
// bytes, and nothing past the reported count is read (the fake puts guard bytes there).
TEST(RenderMatchTest, ShortArraysPrintZerosForMissingPositions) {
  const struct {
    const char* what;
    int32_t type;
    FakeTerm term;
    const char* text;
    const char* xml;
  } cases[] = {
      {"adapter address of 6 bytes", 17, FakeTerm{.bytes = {0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0x5e}},
       "                value = 00-1a-2b-3c-4d-5e-00-00\n",
       "                    <value>00-1a-2b-3c-4d-5e-00-00</value>\n"},
      {"adapter address reported as 3 of 8", 18,
       FakeTerm{.bytes = {1, 2, 3, 4, 5, 6, 7, 8}, .count = 3},
       "                value = 01-02-03-00-00-00-00-00\n",
       "                    <value>01-02-03-00-00-00-00-00</value>\n"},
      {"empty adapter address", 32, FakeTerm{}, "                value = 00-00-00-00-00-00-00-00\n",
       "                    <value>00-00-00-00-00-00-00-00</value>\n"},
      {"hash sum of 4 bytes", 4, FakeTerm{.bytes = {0xde, 0xad, 0xbe, 0xef}},
       "                value = de ad be ef 00 00 00 00 00 00 00 00 00 00 00 00\n",
       "                    <value>222,173,190,239,0,0,0,0,0,0,0,0,0,0,0,0</value>\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_EQ(Render(c.type, {c.term}, kRenderText), TextTerm(c.type, 0, c.text));
    EXPECT_EQ(Render(c.type, {c.term}, kRenderXml), XmlTerm(c.type, 0, c.xml));
  }
}

TEST(RenderMatchTest, AggregateReferenceShowsTheTermCountOrTheReferencedIdentifier) {
  const Guid target = {
      0x0a0b0c0d, 0x1e1f, 0x2a2b, {0x3c, 0x3d, 0x4e, 0x4f, 0x50, 0x51, 0x62, 0x63}};
  EXPECT_EQ(Render(65537, {FakeTerm{.aggregate = target}}, kRenderText),
            "            Match\n"
            "                aggregate match 65537\n"
            "\n"
            "                op = FW_MATCH_OP_EQUAL\n"
            "            Aggregate match with 1 terms\n");
  EXPECT_EQ(Render(65537, {FakeTerm{.aggregate = target}}, kRenderXml),
            "                <match>\n"
            "                    <matchtype>65537</matchtype>\n"
            "                    <optype>FW_MATCH_OP_EQUAL</optype>\n"
            "                    <value>0a0b0c0d-1e1f-2a2b-3c3d-4e4f50516263</value>\n"
            "                </match>\n");
  // Each term tells the count of all of them.
  EXPECT_EQ(Render(0x10000, {FakeTerm{.op = 1}, FakeTerm{.op = 0}}, kRenderText),
            "            Match\n"
            "                aggregate match 65536\n"
            "\n"
            "                op = FW_MATCH_OP_EQUAL_NOT\n"
            "            Aggregate match with 2 terms\n"
            "\n"
            "                op = FW_MATCH_OP_EQUAL\n"
            "            Aggregate match with 2 terms\n");
  // The getter's status is not looked at, and a null identifier is the all-zero one.
  FakeTerm failing{.aggregate = target, .nullAggregate = true};
  failing.fail["GetAggregateUid"] = static_cast<Status>(0x80004005u);
  EXPECT_EQ(Render(0x10001, {failing}, kRenderXml),
            "                <match>\n"
            "                    <matchtype>65537</matchtype>\n"
            "                    <optype>FW_MATCH_OP_EQUAL</optype>\n"
            "                    <value>00000000-0000-0000-0000-000000000000</value>\n"
            "                </match>\n");
}

TEST(RenderMatchTest, ThreeTermsShareOneHeaderInTextAndRepeatTheTypeInXml) {
  const std::vector<FakeTerm> terms = {
      FakeTerm{.op = 0, .u16 = 80},
      FakeTerm{.op = 4, .low16 = 1024, .high16 = 2048},
      FakeTerm{.op = 8, .u16 = 443},
  };
  EXPECT_EQ(Render(7, terms, kRenderText),
            "            Match\n"
            "                match type: FW_MATCH_LOCAL_PORT (7)\n"
            "\n"
            "                op = FW_MATCH_OP_EQUAL\n"
            "                value = 0x50 (80)\n"
            "\n"
            "                op = FW_MATCH_OP_IN_RANGE\n"
            "                low = 0x400 (1024), high = 0x800 (2048)\n"
            "\n"
            "                op = FW_MATCH_OP_INVALID\n"
            "                value = 0x1bb (443)\n");
  EXPECT_EQ(Render(7, terms, kRenderXml),
            "                <match>\n"
            "                    <matchtype>FW_MATCH_LOCAL_PORT</matchtype>\n"
            "                    <optype>FW_MATCH_OP_EQUAL</optype>\n"
            "                    <value>80</value>\n"
            "                </match>\n"
            "                <match>\n"
            "                    <matchtype>FW_MATCH_LOCAL_PORT</matchtype>\n"
            "                    <optype>FW_MATCH_OP_IN_RANGE</optype>\n"
            "                    <value>1024-2048</value>\n"
            "                </match>\n"
            "                <match>\n"
            "                    <matchtype>FW_MATCH_LOCAL_PORT</matchtype>\n"
            "                    <optype>FW_MATCH_OP_INVALID</optype>\n"
            "                    <value>443</value>\n"
            "                </match>\n");
}

TEST(RenderMatchTest, MatchWithoutTermsLeavesOnlyItsHeaderInText) {
  EXPECT_EQ(Render(13, {}, kRenderText),
            "            Match\n"
            "                match type: FW_MATCH_IP_PROTOCOL (13)\n");
  EXPECT_EQ(Render(13, {}, kRenderXml), "");
  EXPECT_EQ(Render(70000, {}, kRenderText),
            "            Match\n"
            "                aggregate match 70000\n");
}

struct FailureRow {
  int32_t type;
  FakeTerm term;
  const char* getter;  // the getter the fake fails
  const char* named;   // how the message names it
};

TEST(RenderMatchTest, FailingGetterPrintsItsLineAndEndsTheTerm) {
  const FailureRow rows[] = {
      {2, FakeTerm{}, "GetString", "GetString"},
      {24, FakeTerm{}, "GetUint64", "GetUint64"},
      {23, FakeTerm{}, "GetUint64", "GetUint64"},
      {23, FakeTerm{.op = 4}, "GetUint64Range", "GetUint64Range"},
      {7, FakeTerm{}, "GetUint16", "GetUint16"},
      {31, FakeTerm{.op = 5}, "GetUint16Range", "GetUint16Range"},
      {11, FakeTerm{}, "GetUint8", "GetUint8"},
      {20, FakeTerm{}, "GetUint32", "GetDirection"},
      {12, FakeTerm{}, "GetUint32", "GetConnectionState"},
      {19, FakeTerm{}, "GetUint32", "GetPhysicalMedium"},
      {4, FakeTerm{}, "GetUint8Array", "GetUint8Array"},
      {33, FakeTerm{}, "GetUint8Array", "GetUint8Array"},
      {14, FakeTerm{.kind = 1}, "GetIpAddress", "GetIpAddress"},
      {15, FakeTerm{.kind = 2}, "GetIpAddressRange", "GetIpAddressRange"},
      {28, FakeTerm{.kind = 3}, "GetIpMask", "GetIpAddress/Mask"},
      {29, FakeTerm{.kind = 3}, "GetIpAddress", "GetIpAddress/Mask"},
      {14, FakeTerm{.kind = 4}, "GetString", "GetString when obtaining domain name"},
  };
  for (const FailureRow& row : rows) {
    SCOPED_TRACE(std::string(row.named) + ", type " + std::to_string(row.type));
    FakeTerm term = row.term;
    term.fail[row.getter] = static_cast<Status>(0x8007000Eu);
    const std::string line =
        std::string("                error 8007000e from IMatchTerms::") + row.named + "\n";
    LastStatus = 0;
    EXPECT_EQ(Render(row.type, {term}, kRenderText), TextTerm(row.type, term.op, line));
    EXPECT_EQ(LastStatus, static_cast<Status>(0x8007000Eu));
    LastStatus = 0;
    EXPECT_EQ(Render(row.type, {term}, kRenderXml), XmlTerm(row.type, term.op, line));
    EXPECT_EQ(LastStatus, static_cast<Status>(0x8007000Eu));
  }
}

TEST(RenderMatchTest, FailureInTheMiddleTermLeavesTheOthersWhole) {
  FakeTerm middle{.op = 5};
  middle.fail["GetUint16Range"] = static_cast<Status>(0x80070057u);
  const std::vector<FakeTerm> terms = {FakeTerm{.u16 = 53}, middle, FakeTerm{.op = 1, .u16 = 67}};
  LastStatus = 0x1234;
  EXPECT_EQ(Render(8, terms, kRenderText),
            "            Match\n"
            "                match type: FW_MATCH_REMOTE_PORT (8)\n"
            "\n"
            "                op = FW_MATCH_OP_EQUAL\n"
            "                value = 0x35 (53)\n"
            "\n"
            "                op = FW_MATCH_OP_IN_RANGE_NOT\n"
            "                error 80070057 from IMatchTerms::GetUint16Range\n"
            "\n"
            "                op = FW_MATCH_OP_EQUAL_NOT\n"
            "                value = 0x43 (67)\n");
  // The last getter decides.
  EXPECT_EQ(LastStatus, 0);
  EXPECT_EQ(Render(8, terms, kRenderXml),
            "                <match>\n"
            "                    <matchtype>FW_MATCH_REMOTE_PORT</matchtype>\n"
            "                    <optype>FW_MATCH_OP_EQUAL</optype>\n"
            "                    <value>53</value>\n"
            "                </match>\n"
            "                <match>\n"
            "                    <matchtype>FW_MATCH_REMOTE_PORT</matchtype>\n"
            "                    <optype>FW_MATCH_OP_IN_RANGE_NOT</optype>\n"
            "                error 80070057 from IMatchTerms::GetUint16Range\n"
            "                </match>\n"
            "                <match>\n"
            "                    <matchtype>FW_MATCH_REMOTE_PORT</matchtype>\n"
            "                    <optype>FW_MATCH_OP_EQUAL_NOT</optype>\n"
            "                    <value>67</value>\n"
            "                </match>\n");
}

TEST(RenderMatchTest, OnlyValueGettersTouchLastStatus) {
  constexpr Status kBefore = 0x5A5A;
  FakeTerm failingUid{};
  failingUid.fail["GetAggregateUid"] = static_cast<Status>(0x80004005u);
  const struct {
    const char* what;
    int32_t type;
    std::vector<FakeTerm> terms;
    Status after;
  } cases[] = {
      {"a getter that succeeds", 9, {FakeTerm{.u8 = 1}}, 0},
      {"no getter for is-local", 38, {FakeTerm{}}, kBefore},
      {"aggregate identifier, failing", 0x10000, {failingUid}, kBefore},
      {"unknown address kind", 15, {FakeTerm{.kind = 7}}, kBefore},
      {"unknown type", 41, {FakeTerm{}}, kBefore},
      {"no terms", 7, {}, kBefore},
  };
  for (const auto& c : cases) {
    for (int mode : {kRenderText, kRenderXml}) {
      SCOPED_TRACE(std::string(c.what) + (mode == kRenderXml ? ", XML" : ", text"));
      LastStatus = kBefore;
      Render(c.type, c.terms, mode);
      EXPECT_EQ(LastStatus, c.after);
    }
  }
}

TEST(RenderMatchTest, AddressWithPrefixAsksTheMaskFirst) {
  CallLog calls;
  Render(29, {FakeTerm{.ip = V4(10, 0, 0, 0), .prefix = 8, .kind = 3}}, kRenderText, &calls);
  const CallLog expected = {"GetType",        "GetCount",
                            "GetOperator(0)", "GetIpAddressMatchType(0)",
                            "GetIpMask(0)",   "GetIpAddress(0)"};
  EXPECT_EQ(calls, expected);
  // Once the mask fails, the address is not asked for.
  FakeTerm failing{.kind = 3};
  failing.fail["GetIpMask"] = static_cast<Status>(0x80004005u);
  Render(29, {failing}, kRenderXml, &calls);
  EXPECT_EQ(calls.back(), "GetIpMask(0)");
}

// Only the first "&" is escaped, into room for the reported length plus four characters with
// the terminator: a length without the terminator loses the escaped text's last character.
TEST(RenderMatchTest, XmlEscapesTheFirstAmpersandWithinTheReportedLength) {
  const struct {
    const wchar_t* text;
    std::optional<uint32_t> length;  // none: the text and its terminator
    const char* xml;
  } cases[] = {
      {L"a&b&c", std::nullopt, "a&amp;b&c"},
      {L"a&b&c", 5, "a&amp;b&"},
      {L"a&b", 3, "a&amp;"},
      {L"&", 1, "&amp"},
      {L"&", 2, "&amp;"},
      {L"x<y>&z", std::nullopt, "x<y>&amp;z"},
      {L"no ampersand", 5, "no am"},
      {L"abc", 40, "abc"},
      {L"R&D", 0, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.xml);
    FakeTerm term{.text = c.text, .length = c.length};
    EXPECT_EQ(Render(3, {term}, kRenderXml),
              XmlTerm(3, 0, std::string("                    <value>") + c.xml + "</value>\n\n"));
  }
  // The text listing shows the copy as it is.
  EXPECT_EQ(Render(3, {FakeTerm{.text = L"a&b&c", .length = 5}}, kRenderText),
            TextTerm(3, 0, "                string = a&b&c\n"));
  EXPECT_EQ(Render(3, {FakeTerm{.text = L"a&b&c", .length = 4}}, kRenderText),
            TextTerm(3, 0, "                string = a&b&\n"));
}

TEST(RenderMatchTest, DomainNamesAreCutTo255Characters) {
  const std::wstring name(300, L'd');
  const std::string cut(255, 'd');
  EXPECT_EQ(Render(15, {FakeTerm{.text = name, .kind = 4}}, kRenderText),
            TextTerm(15, 0, "                " + cut + "\n"));
  EXPECT_EQ(Render(15, {FakeTerm{.text = name, .kind = 4}}, kRenderXml),
            XmlTerm(15, 0, "                    <value>" + cut + "</value>\n"));
  const std::wstring fits(255, L'e');
  EXPECT_EQ(Render(15, {FakeTerm{.text = fits, .kind = 4}}, kRenderText),
            TextTerm(15, 0, "                " + std::string(255, 'e') + "\n"));
}

// A getter that reports success without writing its outputs shows zeros and empty values, never
// whatever the variables held before.
TEST(RenderMatchTest, GetterThatWritesNothingShowsZeros) {
  const FakeTerm silent{.silent = true};
  FakeTerm range = silent;
  range.op = 4;
  const struct {
    int32_t type;
    FakeTerm term;
    const char* text;
    const char* xml;
  } cases[] = {
      {7, silent, "                value = 0x0 (0)\n", "                    <value>0</value>\n"},
      {7, range, "                low = 0x0 (0), high = 0x0 (0)\n",
       "                    <value>0-0</value>\n"},
      {10, silent, "                value = 0x0 (0)\n", "                    <value>0</value>\n"},
      {12, silent, "                FWCS_UNKNOWN\n",
       "                    <value>FWCS_UNKNOWN</value>\n"},
      {23, range, "                low = 0x0 (0), high = 0x0 (0)\n",
       "                    <value>0x0-0x0</value>\n"},
      {25, silent, "                value = 0x0 (0)\n", "                    <value>0</value>\n"},
      {18, silent, "                value = 00-00-00-00-00-00-00-00\n",
       "                    <value>00-00-00-00-00-00-00-00</value>\n"},
      {4, silent, "                value = 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00\n",
       "                    <value>0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0</value>\n"},
      {26, silent, "                string = \n", "                    <value></value>\n\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.type);
    EXPECT_EQ(Render(c.type, {c.term}, kRenderText), TextTerm(c.type, c.term.op, c.text));
    EXPECT_EQ(Render(c.type, {c.term}, kRenderXml), XmlTerm(c.type, c.term.op, c.xml));
  }
  FakeTerm prefix = silent;
  prefix.kind = 3;
  EXPECT_EQ(Render(14, {prefix}, kRenderText),
            TextTerm(14, 0, "                0:0:0:0:0:0:0:0/0\n"));
  FakeTerm pair = silent;
  pair.kind = 2;
  EXPECT_EQ(Render(29, {pair}, kRenderText),
            TextTerm(29, 0, "\t\t0:0:0:0:0:0:0:0\n\t\t0:0:0:0:0:0:0:0\n"));
  FakeTerm name = silent;
  name.kind = 4;
  EXPECT_EQ(Render(15, {name}, kRenderXml),
            XmlTerm(15, 0, "                    <value></value>\n"));
}

TEST(RenderMatchTest, NullValuesFromTheCorePrintAsEmptyOrCleared) {
  EXPECT_EQ(Render(2, {FakeTerm{.nullText = true}}, kRenderText),
            TextTerm(2, 0, "                string = \n"));
  EXPECT_EQ(Render(14, {FakeTerm{.nullText = true, .kind = 4}}, kRenderXml),
            XmlTerm(14, 0, "                    <value></value>\n"));
  EXPECT_EQ(Render(14, {FakeTerm{.nullAddresses = true, .kind = 1}}, kRenderText),
            TextTerm(14, 0, "\t\t0:0:0:0:0:0:0:0\n"));
  EXPECT_EQ(Render(15, {FakeTerm{.nullAddresses = true, .kind = 2}}, kRenderXml),
            XmlTerm(15, 0, "                    <value>0:0:0:0:0:0:0:0-0:0:0:0:0:0:0:0</value>\n"));
}

}  // namespace
}  // namespace nw
