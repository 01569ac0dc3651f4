// The simulated core's runtime tables: what the scenario sections say, how bad ones are refused,
// and what the objects hand out, fail with and trace.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "core/interfaces.h"
#include "sim/common/address_text.h"
#include "sim/common/library_state.h"
#include "sim/common/scenario.h"
#include "sim/core/core_objects.h"
#include "sim/core/table_objects.h"

namespace nw::sim {
namespace {

constexpr Status Hr(uint32_t value) { return static_cast<Status>(value); }

std::vector<uint8_t> Bytes(const IpAddress& address) {
  return {address.bytes, address.bytes + sizeof address.bytes};
}

bool Parse(const std::string& text, Scenario* out, std::string* error) {
  Json doc;
  if (!ParseJsonText(text, "s.json", &doc, error)) return false;
  return ParseScenario(doc, "s.json", out, error);
}

// ---- Address literals -----------------------------------------------------------------------

TEST(AddressTextTest, LiteralsAndRefusals) {
  struct Case {
    const char* text;
    uint32_t version;  // 0: refused
    std::vector<uint8_t> bytes;
  };
  auto v6 = [](std::vector<uint8_t> head, std::vector<uint8_t> tail) {
    std::vector<uint8_t> bytes(16, 0);
    std::copy(head.begin(), head.end(), bytes.begin());
    std::copy(tail.begin(), tail.end(), bytes.end() - static_cast<long>(tail.size()));
    return bytes;
  };
  const std::vector<Case> cases = {
      {"10.0.0.1", 4, v6({10, 0, 0, 1}, {})},
      {"0.0.0.0", 4, v6({}, {})},
      {"255.255.255.255", 4, v6({255, 255, 255, 255}, {})},
      {"::", 6, v6({}, {})},
      {"::1", 6, v6({}, {0, 1})},
      {"fe80::1", 6, v6({0xfe, 0x80}, {0, 1})},
      {"FE80::ABCD:1", 6, v6({0xfe, 0x80}, {0xab, 0xcd, 0, 1})},
      {"1:2:3:4:5:6:7:8", 6, {0, 1, 0, 2, 0, 3, 0, 4, 0, 5, 0, 6, 0, 7, 0, 8}},
      {"1::", 6, v6({0, 1}, {})},
      {"1:2:3:4:5:6:7::", 6, v6({0, 1, 0, 2, 0, 3, 0, 4, 0, 5, 0, 6, 0, 7}, {})},
      {"::ffff:10.0.0.1", 6, v6({}, {0xff, 0xff, 10, 0, 0, 1})},
      {"2001:0:c0a8:114:2c5a:3f57:3f57:feeb",
       6,
       {0x20, 0x01, 0, 0, 0xc0, 0xa8, 0x01, 0x14, 0x2c, 0x5a, 0x3f, 0x57, 0x3f, 0x57, 0xfe, 0xeb}},
      {"", 0, {}},
      {"10.0.0", 0, {}},
      {"10.0.0.256", 0, {}},
      {"10.0.0.1.", 0, {}},
      {"10.0.0.0001", 0, {}},
      {"1:2:3:4:5:6:7", 0, {}},
      {"1:2:3:4:5:6:7:8:9", 0, {}},
      {"1::2::3", 0, {}},
      {":1::", 0, {}},
      {"12345::", 0, {}},
      {"g::", 0, {}},
      {"1:2:3:4:5:6:7::8", 0, {}},
      {"::10.0.0.1:1", 0, {}},
      {"fe80::1%3", 0, {}},
      {"[::1]", 0, {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    IpAddress address{};
    address.version = 99;
    EXPECT_EQ(ParseAddressText(c.text, &address), c.version != 0);
    if (c.version == 0) {
      EXPECT_EQ(address.version, 99u);  // untouched
      continue;
    }
    EXPECT_EQ(address.version, c.version);
    EXPECT_EQ(Bytes(address), c.bytes);
  }
}

// ---- Scenario sections ----------------------------------------------------------------------

TEST(ScenarioTablesTest, RefusesBadSectionsNamingThePath) {
  const std::string address =
      "expected an IPv4 or IPv6 literal, null, or {\"address\": <literal>, \"version\": "
      "<integer>}";
  const std::string hardware =
      "expected a hardware address (\"00-1a-2b-3c-4d-5e\", or \"\" for none)";
  const struct {
    const char* text;
    std::string expected;
  } cases[] = {
      {R"({"adapters": {}})", "/adapters: expected a list"},
      {R"({"adapters": [{"nme": "x"}]})",
       "/adapters/0/nme: expected one of the known fields (name, description, dnsSuffix, "
       "physicalAddress, physicalMedium, interfaceIndex, interfaceIndexV6, ipAddresses, "
       "gateways, dhcpEnabled, dhcpServer, dnsServers, haveWins, primaryWins, secondaryWins, "
       "ipAddressCounts, gatewayCounts, dnsServerCounts)"},
      {R"({"adapters": [{"name": 5}]})", "/adapters/0/name: expected a text"},
      {R"({"adapters": [{"physicalAddress": "00-1a-"}]})",
       "/adapters/0/physicalAddress: " + hardware},
      {R"({"adapters": [{"physicalAddress": "001a"}]})",
       "/adapters/0/physicalAddress: " + hardware},
      {R"({"adapters": [{"physicalAddress": "0g-1a"}]})",
       "/adapters/0/physicalAddress: " + hardware},
      {R"({"adapters": [{"physicalAddress": "0"}]})", "/adapters/0/physicalAddress: " + hardware},
      {R"({"adapters": [{"physicalMedium": 2147483648}]})",
       "/adapters/0/physicalMedium: expected an integer from -2147483648 to 2147483647"},
      {R"({"adapters": [{"physicalMedium": -2147483649}]})",
       "/adapters/0/physicalMedium: expected an integer from -2147483648 to 2147483647"},
      {R"({"adapters": [{"interfaceIndex": -1}]})",
       "/adapters/0/interfaceIndex: expected an integer from 0 to 4294967295"},
      {R"({"adapters": [{}, {"ipAddresses": [{"address": "10.0.0.1", "prefixLength": 256}]}]})",
       "/adapters/1/ipAddresses/0/prefixLength: expected an integer from 0 to 255"},
      {R"({"adapters": [{"dnsServers": ["10.0.0.256"]}]})", "/adapters/0/dnsServers/0: " + address},
      {R"({"adapters": [{"dhcpServer": 10}]})", "/adapters/0/dhcpServer: " + address},
      {R"({"adapters": [{"dhcpServer": {"address": "x"}}]})",
       "/adapters/0/dhcpServer/address: expected an IPv4 or IPv6 literal"},
      {R"({"adapters": [{"dhcpServer": {"version": -1}}]})",
       "/adapters/0/dhcpServer/version: expected an integer from 0 to 4294967295"},
      {R"({"adapters": [{"dhcpServer": {"bytes": []}}]})",
       "/adapters/0/dhcpServer/bytes: expected one of the known fields (address, version)"},
      {R"({"adapters": [{"haveWins": 1}]})", "/adapters/0/haveWins: expected true or false"},
      {R"({"addresses": "10.0.0.1"})", "/addresses: expected a list"},
      {R"({"addresses": ["10.0.0.1", "nope"]})", "/addresses/1: " + address},
      {R"({"connections": []})", "/connections: expected an object"},
      {R"({"connections": {"entries": [{"localPort": 65536}]}})",
       "/connections/entries/0/localPort: expected an integer from 0 to 65535"},
      {R"({"connections": {"entries": [{"protocol": 256}]}})",
       "/connections/entries/0/protocol: expected an integer from 0 to 255"},
      {R"({"connections": {"entries": [{"state": "FWCS_LISTEN"}]}})",
       "/connections/entries/0/state: expected an integer from -2147483648 to 2147483647"},
      {R"({"connections": {"entries": [{"pid": 4294967296}]}})",
       "/connections/entries/0/pid: expected an integer from 0 to 4294967295"},
      {R"({"connections": {"bytesSent": 9223372036854775808}})",
       "/connections/bytesSent: expected an integer from -9223372036854775808 to "
       "9223372036854775807"},
      {R"({"connections": {"bytesSent": 1.5}})",
       "/connections/bytesSent: expected an integer from -9223372036854775808 to "
       "9223372036854775807"},
      {R"({"connections": {"generate": {"count": 1000000000001}}})",
       "/connections/generate/count: expected an integer from 0 to 1000000000000"},
      {R"({"connections": {"generate": {"seed": -1}}})",
       "/connections/generate/seed: expected an integer from 0 to 18446744073709551615"},
      {R"({"connections": {"generate": {"cuont": 5}}})",
       "/connections/generate/cuont: expected one of the known fields (count, seed)"},
      {R"({"connections": {"counts": 5}})", "/connections/counts: expected a list"},
      {R"({"connections": {"counts": [1, -1]}})",
       "/connections/counts/1: expected an integer from 0 to 18446744073709551615"},
      {R"({"connections": {"rows": []}})",
       "/connections/rows: expected one of the known fields (bytesSent, bytesReceived, entries, "
       "generate, counts)"},
      {R"({"endpoints": {"entries": [{"localPort": 1}]}})",
       "/endpoints/entries/0/localPort: expected one of the known fields (pid, protocol, local, "
       "port)"},
      {R"({"endpoints": {"bytesSent": 1}})",
       "/endpoints/bytesSent: expected one of the known fields (entries, generate, counts)"},
      {R"({"processes": {"entries": [{"md5": "0011"}]}})",
       "/processes/entries/0/md5: expected an MD5 digest (32 hex digits)"},
      {R"({"processes": {"entries": [{"md5": "0011223344556677889900112233445z"}]}})",
       "/processes/entries/0/md5: expected an MD5 digest (32 hex digits)"},
      {R"({"processes": {"entries": [{"path": 5}]}})",
       "/processes/entries/0/path: expected a text"},
      {R"({"processes": {"entries": [{"pid": -4}]}})",
       "/processes/entries/0/pid: expected an integer from 0 to 18446744073709551615"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    Scenario s;
    std::string error;
    EXPECT_FALSE(Parse(c.text, &s, &error));
    EXPECT_EQ(error, "s.json: " + c.expected);
  }
}

// Each section as the writer writes it reads back to what it was written from; the document
// below is in the writer's own form, so any field lost or changed shows.
TEST(ScenarioWriterTest, SectionsReadBackAsTheyWereWritten) {
  const Json doc = Json::parse(R"({
    "faults": {"GetConnectionTable": -2147467259,
               "QueryProcessInfo:8": [{"status": 5, "call": 2}, {"status": 6, "from": 4}]},
    "adapters": [{"name": null, "description": "D é", "dnsSuffix": "", "physicalAddress": "00-1a-ff",
                  "physicalMedium": -3, "interfaceIndex": 4294967295, "interfaceIndexV6": 7,
                  "ipAddresses": [{"address": "fe80:0:0:0:0:0:0:1", "prefixLength": 64},
                                  {"address": null, "prefixLength": 0}],
                  "gateways": [{"address": "10.0.0.1", "physicalAddress": ""}],
                  "dhcpEnabled": true, "dhcpServer": {"address": "0:0:0:0:0:0:0:1", "version": 9},
                  "dnsServers": [null], "haveWins": false, "primaryWins": "10.0.0.2",
                  "secondaryWins": null, "ipAddressCounts": [2, 1], "dnsServerCounts": [0]}],
    "addresses": null,
    "connections": {"bytesSent": -5, "bytesReceived": 9007199254740993,
                    "entries": [{"pid": 4, "protocol": 1, "local": "10.0.0.1", "localPort": 8,
                                 "remote": "10.0.0.2", "remotePort": 0, "state": -1, "left": 1,
                                 "right": 2, "outbound": true},
                                {"pid": 0, "protocol": 6, "local": null, "localPort": 65535,
                                 "remote": {"address": "a00:1:0:0:0:0:0:5", "version": 4},
                                 "remotePort": 443, "state": 3, "left": 0, "right": 0,
                                 "outbound": false}],
                    "generate": {"count": 10, "seed": 3}, "counts": [2, 0]},
    "endpoints": {"entries": [{"pid": 1, "protocol": 17, "local": "0:0:0:0:0:0:0:1", "port": 53}]},
    "processes": {"entries": [{"pid": 8, "path": null, "caseCorrectPath": "C:\\A",
                               "commandArgs": "", "textSid": "S-1", "signer": null,
                               "peDescription": "P", "validated": true, "trusted": false,
                               "md5": "00112233445566778899aabbccddeeff"}],
                  "generate": {"count": 2, "seed": 0}},
    "blacklist": {"logOption": 7, "entries": [{"low": null, "high": "10.0.0.1", "version": 6,
                                               "ttl": 5, "remaining": 1, "autoCreate": true}]},
    "capture": {"notes": ["a note"]}
  })");
  Scenario parsed;
  std::string error;
  ASSERT_TRUE(ParseScenario(doc, "s.json", &parsed, &error)) << error;
  const Json written = ScenarioToJson(parsed);
  for (const auto& section : doc.items()) {
    EXPECT_EQ(written[section.key()], section.value()) << section.key();
  }
  Scenario again;
  ASSERT_TRUE(ParseScenario(written, "written", &again, &error)) << error;
  EXPECT_EQ(ScenarioToJson(again), written);
}

TEST(ScenarioTablesTest, FaultItemsOfTheTables) {
  const struct {
    const char* key;
    bool known;
  } cases[] = {
      {"GetIpConfigChanged", true},
      {"IControl::GetConnectionTable", true},
      {"IControl::GetOpenedEndpointTable", true},
      {"GetActiveProcesses", true},
      {"IConnectionTable::Refresh", true},
      {"IOpenedEndpointTable::Refresh", true},
      {"IActiveProcesses::Refresh", false},
      {"RefreshProcessIdList", true},
      {"GetAddress", true},
      {"GetAddress:0", true},
      {"IAddressInfo::GetAddress:18446744073709551615", true},
      {"GetAddress:18446744073709551616", false},
      {"GetAddress:01", false},
      {"GetAddress:", false},
      {"GetAddress:-1", false},
      {"QueryProcessInfo:4", true},
      {"IActiveProcesses::QueryProcessInfo:18446744073709551615", true},
      {"QueryProcessInfo:x", false},
      {"GetConnectionTable:1", false},
      {"RefreshProcessIdList:1", false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.key);
    Scenario s;
    std::string error;
    EXPECT_EQ(Parse(std::string(R"({"faults": {")") + c.key + R"(": 1}})", &s, &error), c.known)
        << error;
  }
}

// ---- Objects --------------------------------------------------------------------------------

// A core whose scenario is the given text (passed as its built-in one: no file involved).
struct Core {
  explicit Core(const std::string& scenario) : text(scenario) {
    state = std::make_shared<CoreState>(LibraryState::Options{
        "kvxfwctl", text, std::string(), "",
        [lines = lines](const std::wstring& line) { lines->push_back(line); }, false});
  }
  ~Core() { EXPECT_EQ(state->LiveObjects(), 0u) << "an object was not released"; }
  std::string text;
  std::shared_ptr<std::vector<std::wstring>> lines = std::make_shared<std::vector<std::wstring>>();
  std::shared_ptr<CoreState> state;
};

// ---- Generated tables -----------------------------------------------------------------------

TEST(GeneratedTablesTest, EntriesAreAFunctionOfSeedAndIndex) {
  int differing = 0;
  for (uint64_t i = 0; i < 200; ++i) {
    const ConnectionEntry a = GenerateConnection(7, i), b = GenerateConnection(7, i);
    EXPECT_EQ(Bytes(a.local), Bytes(b.local));
    EXPECT_EQ(a.storedLocalPort, b.storedLocalPort);
    EXPECT_EQ(a.state, b.state);
    differing += Bytes(GenerateConnection(8, i).remote) != Bytes(a.remote);
  }
  EXPECT_GT(differing, 190);  // another seed, another table
}

TEST(GeneratedTablesTest, ConnectionsLookLikeABusyHost) {
  std::set<uint8_t> protocols;
  std::set<int32_t> states;
  int ipv6 = 0, icmp = 0, outbound = 0;
  const int n = 4000;
  for (int i = 0; i < n; ++i) {
    const ConnectionEntry e = GenerateConnection(1, static_cast<uint64_t>(i));
    ASSERT_TRUE(e.local.version == 4 || e.local.version == 6);
    EXPECT_EQ(e.local.version, e.remote.version);
    protocols.insert(e.protocol);
    states.insert(e.state);
    ipv6 += e.local.version == 6;
    outbound += e.outbound;
    if (e.protocol == 1 || e.protocol == 58) {
      ++icmp;
      EXPECT_EQ(e.protocol == 58, e.local.version == 6);
      // Echo request or reply, stored as they are.
      EXPECT_TRUE(e.storedLocalPort == 0 || e.storedLocalPort == 8 || e.storedLocalPort == 128 ||
                  e.storedLocalPort == 129);
    }
    EXPECT_NE(e.processId, 0u);
    EXPECT_EQ(e.processId % 4, 0u);
  }
  EXPECT_EQ(protocols, (std::set<uint8_t>{1, 6, 17, 47, 58}));
  EXPECT_EQ(states.size(), 10u);
  EXPECT_GT(ipv6, n / 8);
  EXPECT_LT(ipv6, n / 2);
  EXPECT_GT(icmp, 0);
  EXPECT_GT(outbound, n / 2);
}

TEST(GeneratedTablesTest, TablesStartAfterTheListedEntries) {
  Core core(R"({"connections": {"entries": [{"pid": 1}], "generate": {"count": 100, "seed": 3}},
                "endpoints": {"generate": {"count": 50, "seed": 3}}})");
  ConnectionTable* connections = new ConnectionTable(core.state);
  ASSERT_EQ(connections->Refresh(), 0);
  EXPECT_EQ(connections->GetConnectionCount(), 101u);
  EXPECT_EQ(connections->GetProcessId(0), 1u);
  for (uint64_t i = 1; i < 101; ++i) {
    const ConnectionEntry expected = GenerateConnection(3, i - 1);
    ASSERT_EQ(Bytes(*connections->GetLocalAddress(i)), Bytes(expected.local)) << i;
    ASSERT_EQ(connections->GetRemotePort(i), expected.storedRemotePort) << i;
  }
  // Two addresses of one entry stay put while that entry is printed.
  const IpAddress* local = connections->GetLocalAddress(50);
  const IpAddress* remote = connections->GetRemoteAddress(50);
  connections->GetState(50);
  EXPECT_EQ(Bytes(*local), Bytes(GenerateConnection(3, 49).local));
  EXPECT_EQ(Bytes(*remote), Bytes(GenerateConnection(3, 49).remote));
  EXPECT_EQ(connections->GetLocalAddress(101)->version, 0u);
  connections->Release();

  OpenedEndpointTable* endpoints = new OpenedEndpointTable(core.state);
  ASSERT_EQ(endpoints->Refresh(), 0);
  EXPECT_EQ(endpoints->GetEndpointCount(), 50u);
  for (uint64_t i = 0; i < 50; ++i) {
    const EndpointEntry expected = GenerateEndpoint(3, i);
    ASSERT_EQ(endpoints->GetLocalPort(i), expected.storedPort);
    ASSERT_TRUE(expected.protocol == 6 || expected.protocol == 17);
  }
  endpoints->Release();
}

}  // namespace
}  // namespace nw::sim
