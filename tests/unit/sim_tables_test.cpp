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

// Port value whose two bytes in memory are first, second.
uint16_t InMemory(uint8_t first, uint8_t second) {
  const uint8_t bytes[2] = {first, second};
  uint16_t value;
  std::memcpy(&value, bytes, sizeof value);
  return value;
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

TEST(ScenarioTablesTest, ReadsEveryField) {
  Scenario s;
  std::string error;
  ASSERT_TRUE(Parse(R"({
    "adapters": [{
      "name": "{A}", "description": null, "physicalAddress": "00-1a-2B-3c-4d-5e",
      "physicalMedium": -7, "interfaceIndex": 4294967295, "interfaceIndexV6": 3,
      "ipAddresses": [{"address": "10.0.0.5", "prefixLength": 24}, {"prefixLength": 255}],
      "gateways": [{"address": "10.0.0.1", "physicalAddress": "aa:bb:cc:dd:ee:ff:00:11:22"}],
      "dhcpEnabled": true, "dhcpServer": {"address": "10.0.0.1", "version": 0},
      "dnsServers": ["::1", null], "haveWins": true, "primaryWins": "10.0.0.2"
    }, {}],
    "addresses": ["10.0.0.5", {"version": 6}],
    "connections": {
      "bytesSent": -9223372036854775808, "bytesReceived": 9223372036854775807,
      "entries": [
        {"pid": 4294967295, "protocol": 6, "local": "10.0.0.5", "localPort": 80,
         "remote": "fe80::1", "remotePort": 65535, "state": -2147483648, "left": 1, "right": 2,
         "outbound": true},
        {"protocol": 1, "localPort": 8, "remotePort": 513},
        {"protocol": 58, "localPort": 128}],
      "counts": [3, 2, 0],
      "generate": {"count": 1000000000000, "seed": 18446744073709551615}
    },
    "endpoints": {"entries": [{"pid": 7, "protocol": 17, "local": "0.0.0.0", "port": 53},
                             {"protocol": 1, "port": 8}]},
    "processes": {"entries": [
      {"pid": 18446744073709551615, "path": "C:\\x\\é.exe", "signer": null, "validated": true,
       "md5": "00112233445566778899AABBCCDDEEFF"},
      {}]}
  })",
                    &s, &error))
      << error;

  ASSERT_TRUE(s.tables.adapters);
  ASSERT_EQ(s.tables.adapters->size(), 2u);
  const AdapterScenario& a = (*s.tables.adapters)[0];
  EXPECT_EQ(a.name, L"{A}");
  EXPECT_FALSE(a.description);
  EXPECT_EQ(a.dnsSuffix, L"");  // absent: empty, not null
  EXPECT_EQ(a.physicalAddress, (std::vector<uint8_t>{0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0x5e}));
  EXPECT_EQ(a.physicalMedium, -7);
  EXPECT_EQ(a.interfaceIndex, 4294967295u);
  EXPECT_EQ(a.interfaceIndexV6, 3u);
  ASSERT_EQ(a.ipAddresses.size(), 2u);
  EXPECT_EQ(a.ipAddresses[0].address.version, 4u);
  EXPECT_EQ(a.ipAddresses[0].prefixLength, 24);
  EXPECT_EQ(a.ipAddresses[1].address.version, 0u);
  EXPECT_EQ(a.ipAddresses[1].prefixLength, 255);
  ASSERT_EQ(a.gateways.size(), 1u);
  EXPECT_EQ(a.gateways[0].physicalAddress.size(), 9u);
  EXPECT_TRUE(a.dhcpEnabled);
  EXPECT_EQ(a.dhcpServer.version, 0u);
  EXPECT_EQ(a.dhcpServer.bytes[0], 10);  // the literal's bytes stay under the given version
  ASSERT_EQ(a.dnsServers.size(), 2u);
  EXPECT_EQ(a.dnsServers[0].version, 6u);
  EXPECT_EQ(a.dnsServers[1].version, 0u);
  EXPECT_TRUE(a.haveWins);
  EXPECT_EQ(a.primaryWins.version, 4u);
  EXPECT_EQ(a.secondaryWins.version, 0u);
  const AdapterScenario& empty = (*s.tables.adapters)[1];
  EXPECT_EQ(empty.name, L"");
  EXPECT_EQ(empty.physicalMedium, 1);
  EXPECT_TRUE(empty.physicalAddress.empty());

  ASSERT_TRUE(s.tables.addresses);
  ASSERT_EQ(s.tables.addresses->size(), 2u);
  EXPECT_EQ((*s.tables.addresses)[1].version, 6u);

  const ConnectionsScenario& c = s.tables.connections;
  EXPECT_EQ(c.bytesSent, INT64_MIN);
  EXPECT_EQ(c.bytesReceived, INT64_MAX);
  ASSERT_EQ(c.entries.size(), 3u);
  EXPECT_EQ(c.entries[0].processId, 4294967295u);
  EXPECT_EQ(c.entries[0].storedLocalPort, InMemory(0x00, 0x50));
  EXPECT_EQ(c.entries[0].storedRemotePort, InMemory(0xFF, 0xFF));
  EXPECT_EQ(c.entries[0].state, INT32_MIN);
  EXPECT_EQ(c.entries[0].left, 1u);
  EXPECT_EQ(c.entries[0].right, 2u);
  EXPECT_TRUE(c.entries[0].outbound);
  EXPECT_EQ(c.entries[0].remote.version, 6u);
  // ICMP and ICMPv6 values are kept as they are.
  EXPECT_EQ(c.entries[1].storedLocalPort, 8);
  EXPECT_EQ(c.entries[1].storedRemotePort, 513);
  EXPECT_EQ(c.entries[2].storedLocalPort, 128);
  EXPECT_EQ(c.entries[1].local.version, 0u);
  EXPECT_FALSE(c.entries[1].outbound);
  EXPECT_EQ(c.counts, (std::vector<uint64_t>{3, 2, 0}));
  EXPECT_EQ(c.generated.count, kMaxGeneratedEntries);
  EXPECT_EQ(c.generated.seed, UINT64_MAX);
  EXPECT_EQ(c.size(), 3 + kMaxGeneratedEntries);

  ASSERT_EQ(s.tables.endpoints.entries.size(), 2u);
  EXPECT_EQ(s.tables.endpoints.entries[0].storedPort, InMemory(0x00, 0x35));
  EXPECT_EQ(s.tables.endpoints.entries[1].storedPort, 8);
  EXPECT_EQ(s.tables.endpoints.entries[1].protocol, 1);

  ASSERT_EQ(s.tables.processes.entries.size(), 2u);
  const ProcessEntry& p = s.tables.processes.entries[0];
  EXPECT_EQ(p.processId, UINT64_MAX);
  EXPECT_EQ(p.path, L"C:\\x\\\u00e9.exe");
  EXPECT_FALSE(p.signer);
  EXPECT_FALSE(p.caseCorrectPath);  // absent: null
  EXPECT_TRUE(p.validated);
  EXPECT_FALSE(p.trusted);
  EXPECT_EQ(p.md5[0], 0x00);
  EXPECT_EQ(p.md5[10], 0xAA);
  EXPECT_EQ(p.md5[15], 0xFF);
}

TEST(ScenarioTablesTest, AbsentAndNullSections) {
  Scenario absent;
  std::string error;
  ASSERT_TRUE(Parse("{}", &absent, &error)) << error;
  ASSERT_TRUE(absent.tables.adapters);
  EXPECT_TRUE(absent.tables.adapters->empty());
  ASSERT_TRUE(absent.tables.addresses);
  EXPECT_EQ(absent.tables.connections.size(), 0u);
  EXPECT_EQ(absent.tables.processes.size(), 0u);

  Scenario null;
  ASSERT_TRUE(Parse(R"({"adapters": null, "addresses": null})", &null, &error)) << error;
  EXPECT_FALSE(null.tables.adapters);
  EXPECT_FALSE(null.tables.addresses);
}

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

TEST(SimTablesTest, IpConfigHandsOutTheScenarioAdaptersAndAddresses) {
  Core core(R"({
    "adapters": [{"name": "eth", "description": "d", "dnsSuffix": "s",
                  "physicalAddress": "00-1a-2b-3c-4d-5e", "physicalMedium": 9,
                  "interfaceIndex": 12, "interfaceIndexV6": 13,
                  "ipAddresses": [{"address": "10.0.0.5", "prefixLength": 24}],
                  "gateways": [{"address": "10.0.0.1", "physicalAddress": "00-00-00-00-00-01"}],
                  "dhcpEnabled": true, "dhcpServer": "10.0.0.1", "dnsServers": ["fe80::1"],
                  "haveWins": true, "primaryWins": "10.0.0.2", "secondaryWins": "10.0.0.3"},
                 {"name": null, "physicalAddress": ""}],
    "addresses": ["10.0.0.5", "::1"]})");
  IpConfig* config = new IpConfig(core.state);
  IAdapterInfoEnumerator* adapters = config->GetAdapterInfoEnumerator(true);
  ASSERT_NE(adapters, nullptr);
  IAdapterInfo* a = adapters->Next();
  ASSERT_NE(a, nullptr);
  EXPECT_STREQ(a->GetName(), L"eth");
  EXPECT_STREQ(a->GetDescription(), L"d");
  EXPECT_STREQ(a->GetConnectionSpecificDnsSuffix(), L"s");
  uint32_t length = 0;
  const uint8_t* hardware = a->GetPhysicalAddress(&length);
  ASSERT_EQ(length, 6u);
  EXPECT_EQ(hardware[5], 0x5e);
  EXPECT_EQ(a->GetPhysicalMedium(), 9);
  EXPECT_EQ(a->GetInterfaceIndex(true), 12u);
  EXPECT_EQ(a->GetInterfaceIndex(false), 13u);
  EXPECT_EQ(a->GetIpAddressCount(), 1u);
  EXPECT_EQ(a->GetIpAddress(0)->bytes[3], 5);
  EXPECT_EQ(*a->GetIpAddressPrefixLength(0), 24);
  EXPECT_EQ(a->GetGatewayCount(), 1u);
  EXPECT_EQ(a->GetGatewayAddress(0)->bytes[3], 1);
  EXPECT_EQ(a->GetGatewayPhysicalAddressLength(0), 6u);
  EXPECT_EQ(a->GetGatewayPhysicalAddress(0)[5], 1);
  EXPECT_TRUE(a->IsDhcpEnabled());
  EXPECT_EQ(a->GetDhcpServer()->version, 4u);
  EXPECT_EQ(a->GetDnsServerCount(), 1u);
  EXPECT_EQ(a->GetDnsServer(0)->version, 6u);
  EXPECT_TRUE(a->HaveWins());
  EXPECT_EQ(a->GetPrimaryWinsServer()->bytes[3], 2);
  EXPECT_EQ(a->GetSecondaryWinsServer()->bytes[3], 3);
  // Past the end of a list: a cleared record and empty values, never a dangling pointer.
  EXPECT_EQ(a->GetIpAddress(1)->version, 0u);
  EXPECT_EQ(*a->GetIpAddressPrefixLength(7), 0);
  EXPECT_EQ(a->GetGatewayPhysicalAddressLength(1), 0u);
  EXPECT_NE(a->GetGatewayPhysicalAddress(1), nullptr);
  EXPECT_EQ(a->GetDnsServer(1)->version, 0u);
  EXPECT_EQ(a->Unused8(), kStatusNotImplemented);

  IAdapterInfo* b = adapters->Next();
  ASSERT_NE(b, nullptr);
  EXPECT_EQ(b->GetName(), nullptr);
  EXPECT_STREQ(b->GetDescription(), L"");
  b->GetPhysicalAddress(&length);
  EXPECT_EQ(length, 0u);
  EXPECT_EQ(adapters->Next(), nullptr);
  EXPECT_EQ(adapters->Next(), nullptr);

  // Items stay valid while the enumerator lives, whatever is released first.
  config->Release();
  EXPECT_STREQ(a->GetName(), L"eth");
  adapters->Release();
}

TEST(SimTablesTest, AddressFaultsByPlaceAndTraces) {
  Core core(R"({"debug": {"trace": true, "reportLeaks": false},
                "addresses": ["10.0.0.1", "10.0.0.2", "10.0.0.3"],
                "faults": {"GetAddress:1": "0x80070005", "IAddressInfo::GetAddress:2": 7}})");
  IpConfig* config = new IpConfig(core.state);
  IAddressInfoEnumerator* addresses = config->GetAddressInfoEnumerator();
  ASSERT_NE(addresses, nullptr);
  std::vector<Status> statuses;
  std::vector<int> last;
  for (IAddressInfo* info = addresses->Next(); info != nullptr; info = addresses->Next()) {
    const IpAddress* address = nullptr;
    statuses.push_back(info->GetAddress(&address));
    last.push_back(address != nullptr ? address->bytes[3] : -1);
  }
  EXPECT_EQ(statuses, (std::vector<Status>{0, Hr(0x80070005u), 7}));
  EXPECT_EQ(last, (std::vector<int>{1, -1, -1}));
  addresses->Release();
  config->Release();
  EXPECT_EQ(*core.lines, (std::vector<std::wstring>{
                             L"kvxfwctl: IAddressInfo::GetAddress -> 00000000\n",
                             L"kvxfwctl: IAddressInfo::GetAddress -> 80070005\n",
                             L"kvxfwctl: IAddressInfo::GetAddress -> 00000007\n",
                             L"kvxfwctl: IAddressInfoEnumerator::Release -> 0\n",
                             L"kvxfwctl: IIpConfig::Release -> 0\n",
                         }));
}

TEST(SimTablesTest, NullListsGiveNoEnumerators) {
  Core core(R"({"adapters": null, "addresses": null})");
  IpConfig* config = new IpConfig(core.state);
  EXPECT_EQ(config->GetAdapterInfoEnumerator(true), nullptr);
  EXPECT_EQ(config->GetAddressInfoEnumerator(), nullptr);
  config->Release();
}

TEST(SimTablesTest, ConnectionTableIsEmptyUntilRefreshAndFollowsTheScriptedCounts) {
  Core core(R"({"connections": {"bytesSent": 5, "bytesReceived": 6, "counts": [2, 3, 1],
                "entries": [
                  {"pid": 4, "protocol": 6, "local": "10.0.0.5", "localPort": 80,
                   "remote": "10.0.0.9", "remotePort": 51000, "state": 4, "left": 1, "right": 2,
                   "outbound": true},
                  {"pid": 5, "protocol": 1, "local": "fe80::1", "localPort": 8}]}})");
  ConnectionTable* table = new ConnectionTable(core.state);
  EXPECT_EQ(table->GetConnectionCount(), 0u);
  EXPECT_EQ(table->GetBytesSentSinceBoot(), 0);
  EXPECT_EQ(table->GetLocalAddress(0)->version, 0u);

  ASSERT_EQ(table->Refresh(), 0);
  EXPECT_EQ(table->GetBytesSentSinceBoot(), 5);
  EXPECT_EQ(table->GetBytesReceivedSinceBoot(), 6);
  EXPECT_EQ(table->GetConnectionCount(), 2u);
  EXPECT_EQ(table->GetConnectionCount(), 3u);
  EXPECT_EQ(table->GetConnectionCount(), 1u);
  EXPECT_EQ(table->GetConnectionCount(), 1u);  // the last answer repeats
  EXPECT_EQ(table->GetProcessId(0), 4u);
  EXPECT_EQ(table->GetProtocol(0), 6);
  EXPECT_EQ(table->GetLocalPort(0), InMemory(0x00, 0x50));
  EXPECT_EQ(table->GetRemotePort(0), InMemory(0xC7, 0x38));
  EXPECT_EQ(table->GetState(0), 4);
  EXPECT_EQ(table->GetPairLeft(0), 1u);
  EXPECT_EQ(table->GetPairRight(0), 2u);
  EXPECT_TRUE(table->IsOutbound(0));
  EXPECT_EQ(table->GetLocalAddress(1)->version, 6u);
  EXPECT_EQ(table->GetLocalPort(1), 8);
  // A listed entry's address keeps its place until the table goes.
  const IpAddress* kept = table->GetRemoteAddress(0);
  for (uint64_t i = 0; i < 40; ++i) table->GetLocalAddress(i);
  EXPECT_EQ(kept->bytes[3], 9);
  // Past the listed entries: a cleared entry.
  EXPECT_EQ(table->GetLocalAddress(2)->version, 0u);
  EXPECT_EQ(table->GetProcessId(2), 0u);

  // Refresh starts the script again.
  ASSERT_EQ(table->Refresh(), 0);
  EXPECT_EQ(table->GetConnectionCount(), 2u);
  EXPECT_EQ(table->Unused13(), kStatusNotImplemented);
  table->Release();
}

TEST(SimTablesTest, RefreshFaults) {
  const struct {
    const char* faults;
    Status connections, endpoints, processes;
  } cases[] = {
      {"{}", 0, 0, 0},
      {R"({"Refresh": 1})", 1, 1, 0},
      {R"({"IConnectionTable::Refresh": 2})", 2, 0, 0},
      {R"({"IOpenedEndpointTable::Refresh": 3, "Refresh": 9})", 9, 3, 0},
      {R"({"RefreshProcessIdList": "0xC0000022"})", 0, 0, Hr(0xC0000022u)},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.faults);
    Core core(std::string(R"({"faults": )") + c.faults + "}");
    ConnectionTable* connections = new ConnectionTable(core.state);
    OpenedEndpointTable* endpoints = new OpenedEndpointTable(core.state);
    ActiveProcesses* processes = new ActiveProcesses(core.state);
    EXPECT_EQ(connections->Refresh(), c.connections);
    EXPECT_EQ(endpoints->Refresh(), c.endpoints);
    EXPECT_EQ(processes->RefreshProcessIdList(), c.processes);
    connections->Release();
    endpoints->Release();
    processes->Release();
  }
}

TEST(SimTablesTest, EndpointsFromTheScenario) {
  Core core(R"({"endpoints": {"entries": [{"pid": 7, "protocol": 17, "local": "::", "port": 53}],
                               "counts": [5]}})");
  OpenedEndpointTable* table = new OpenedEndpointTable(core.state);
  EXPECT_EQ(table->GetEndpointCount(), 0u);
  ASSERT_EQ(table->Refresh(), 0);
  EXPECT_EQ(table->GetEndpointCount(), 5u);
  EXPECT_EQ(table->GetProcessId(0), 7u);
  EXPECT_EQ(table->GetProtocol(0), 17);
  EXPECT_EQ(table->GetLocalPort(0), InMemory(0x00, 0x35));
  EXPECT_EQ(table->GetLocalAddress(0)->version, 6u);
  EXPECT_EQ(table->GetLocalAddress(4)->version, 0u);
  table->Release();
}

TEST(SimTablesTest, ProcessesAreListedAfterRefreshAndQueriedByIdentifier) {
  Core core(R"({
    "faults": {"QueryProcessInfo:8": "0x80070005"},
    "processes": {"entries": [
      {"pid": 4},
      {"pid": 8, "path": "C:\\x.exe"},
      {"pid": 4294967300, "path": "C:\\Windows\\svchost.exe", "caseCorrectPath": "C:\\WINDOWS\\svchost.exe",
       "commandArgs": "-k", "textSid": "S-1-5-18", "signer": "S", "peDescription": "Host",
       "validated": true, "trusted": true, "md5": "000102030405060708090a0b0c0d0e0f"}],
      "generate": {"count": 3, "seed": 9}}})");
  ActiveProcesses* processes = new ActiveProcesses(core.state);
  EXPECT_EQ(processes->GetProcessCount(), 0u);
  // Querying needs no list.
  IProcessInfo* info = nullptr;
  ASSERT_EQ(processes->QueryProcessInfo(&info, 4294967300u, 0), 0);
  EXPECT_EQ(info->GetProcessId(), 4u);  // the 32 bits the getter has room for
  EXPECT_STREQ(info->GetPath(0), L"C:\\Windows\\svchost.exe");
  EXPECT_STREQ(info->GetCaseCorrectPath(0), L"C:\\WINDOWS\\svchost.exe");
  EXPECT_STREQ(info->GetCommandArgs(0), L"-k");
  EXPECT_STREQ(info->GetTextSid(0), L"S-1-5-18");
  EXPECT_STREQ(info->GetSigner(0), L"S");
  EXPECT_STREQ(info->GetPeDescription(0), L"Host");
  EXPECT_TRUE(info->IsValidated());
  EXPECT_TRUE(info->IsTrusted());
  EXPECT_EQ(info->GetMd5()[15], 0x0f);
  info->Release();

  ASSERT_EQ(processes->QueryProcessInfo(&info, 4, 0), 0);
  EXPECT_EQ(info->GetPath(0), nullptr);
  EXPECT_EQ(info->GetSigner(0), nullptr);
  EXPECT_FALSE(info->IsValidated());
  info->Release();

  info = reinterpret_cast<IProcessInfo*>(&core);
  EXPECT_EQ(processes->QueryProcessInfo(&info, 8, 0), Hr(0x80070005u));
  EXPECT_EQ(info, nullptr);
  EXPECT_EQ(processes->QueryProcessInfo(&info, 5, 0), kStatusProcessNotFound);
  EXPECT_EQ(processes->QueryProcessInfo(&info, UINT64_MAX, 0), kStatusProcessNotFound);
  EXPECT_EQ(processes->QueryProcessInfo(nullptr, 4, 0), kStatusInvalidArg);

  // Generated processes follow the listed ones and are found by their identifiers.
  ASSERT_EQ(processes->RefreshProcessIdList(), 0);
  ASSERT_EQ(processes->GetProcessCount(), 6u);
  EXPECT_EQ(processes->GetProcessId(0), 4u);
  EXPECT_EQ(processes->GetProcessId(2), 4294967300u);
  for (uint64_t i = 3; i < 6; ++i) {
    const uint64_t pid = processes->GetProcessId(i);
    EXPECT_EQ(pid, kGeneratedProcessIdBase + 4 * (i - 3));
    ASSERT_EQ(processes->QueryProcessInfo(&info, pid, 0), 0) << pid;
    EXPECT_EQ(info->GetProcessId(), static_cast<uint32_t>(pid));
    EXPECT_NE(info->GetPath(0), nullptr);
    info->Release();
  }
  EXPECT_EQ(processes->QueryProcessInfo(&info, kGeneratedProcessIdBase + 12, 0),
            kStatusProcessNotFound);
  EXPECT_EQ(processes->QueryProcessInfo(&info, kGeneratedProcessIdBase + 2, 0),
            kStatusProcessNotFound);
  processes->Release();
}

TEST(SimTablesTest, ControlHandsOutTheTablesByTheirIdentifiers) {
  Core core(R"({"faults": {"GetOpenedEndpointTable": "0x80004005"}})");
  IRegisterPointProduct* reg = nullptr;
  ASSERT_EQ(
      CoreGetInterface(core.state, "VantorRegisterPointProduct3", reinterpret_cast<void**>(&reg)),
      0);
  IControl* control = nullptr;
  ASSERT_EQ(reg->Register(&control, &ControlInterfaceId, &PointProductId), 0);

  IIpConfig* config = nullptr;
  EXPECT_EQ(control->GetIpConfigChanged(&config, &IpConfigInterfaceId), 0);
  ASSERT_NE(config, nullptr);
  config->Release();
  EXPECT_EQ(control->GetIpConfigChanged(&config, &ConnectionTableInterfaceId), kStatusNoInterface);
  EXPECT_EQ(config, nullptr);

  IConnectionTable* connections = nullptr;
  EXPECT_EQ(control->GetConnectionTable(&connections, &ConnectionTableInterfaceId), 0);
  ASSERT_NE(connections, nullptr);
  connections->Release();
  EXPECT_EQ(control->GetConnectionTable(&connections, &IpConfigInterfaceId), kStatusNoInterface);

  IOpenedEndpointTable* endpoints = nullptr;
  EXPECT_EQ(control->GetOpenedEndpointTable(&endpoints, &OpenedEndpointTableInterfaceId),
            Hr(0x80004005u));
  EXPECT_EQ(endpoints, nullptr);

  IActiveProcesses* processes = nullptr;
  EXPECT_EQ(control->GetActiveProcesses(&processes, &ActiveProcessesInterfaceId), 0);
  ASSERT_NE(processes, nullptr);
  processes->Release();
  EXPECT_EQ(control->GetActiveProcesses(&processes, &OpenedEndpointTableInterfaceId),
            kStatusNoInterface);
  control->Release();
  reg->Release();
}

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
