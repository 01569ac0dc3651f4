// The runtime-table views against a core that records every call: the exact report of each
// command, the calling contract (order, re-asked counts, what is released) and every status
// rule, without a library.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "cli/console.h"
#include "cli/handlers.h"
#include "core/interfaces.h"
#include "policy/names.h"
#include "tables/table_text.h"

namespace nw {
namespace {

constexpr Status Hr(uint32_t value) { return static_cast<Status>(value); }
constexpr Status kFailure = Hr(0x80004005u);

IpAddress V4(uint8_t a, uint8_t b, uint8_t c, uint8_t d) {
  IpAddress address{};
  address.bytes[0] = a, address.bytes[1] = b, address.bytes[2] = c, address.bytes[3] = d;
  address.version = 4;
  return address;
}

// fe80::<last> with the given version (6, or anything else to test the version rules).
IpAddress LinkLocal(uint8_t last, uint32_t version = 6) {
  IpAddress address{};
  address.bytes[0] = 0xfe, address.bytes[1] = 0x80, address.bytes[15] = last;
  address.version = version;
  return address;
}

// A port as the core stores it: the two bytes given, in memory order.
uint16_t Stored(uint8_t first, uint8_t second) {
  const uint8_t bytes[2] = {first, second};
  uint16_t value;
  std::memcpy(&value, bytes, sizeof value);
  return value;
}

using Calls = std::vector<std::string>;

// Every call any fake object saw, in order, with its arguments.
struct Recorder {
  Calls calls;
  template <class T>
  T Note(const std::string& call, T result) {
    calls.push_back(call);
    return result;
  }
  size_t Count(const std::string& call) const {
    size_t n = 0;
    for (const std::string& c : calls) n += c == call;
    return n;
  }
};

// Answers a count getter from a script (one answer a call, the last repeats), or a fixed size.
struct CountScript {
  std::vector<uint64_t> answers;
  size_t next = 0;
  uint64_t Answer(uint64_t size) {
    if (answers.empty()) return size;
    const uint64_t answer = answers[next];
    if (next + 1 < answers.size()) ++next;
    return answer;
  }
};

std::string Arg(uint64_t index) { return "(" + std::to_string(index) + ")"; }

// ---- Fake IP configuration ------------------------------------------------------------------

struct FakeAdapter final : IAdapterInfo {
  Recorder* rec = nullptr;
  const wchar_t* name = L"{adapter}";
  const wchar_t* description = L"Test Adapter";
  const wchar_t* suffix = L"example.test";
  std::vector<uint8_t> hardware;
  /// What the first of the two GetPhysicalAddress calls answers; the view must not use it.
  std::vector<uint8_t> firstHardware = std::vector<uint8_t>(3, 0xde);
  int32_t medium = 1;
  uint32_t index4 = 7, index6 = 8;
  struct Unicast {
    IpAddress address;
    uint8_t prefix;
  };
  std::vector<Unicast> unicast;
  CountScript unicastCounts;
  struct Gateway {
    IpAddress address;
    std::vector<uint8_t> hardware;
  };
  std::vector<Gateway> gateways;
  bool dhcp = false;
  IpAddress dhcpServer{};
  std::vector<IpAddress> dns;
  bool wins = false;
  IpAddress primaryWins{}, secondaryWins{};
  int hardwareCalls = 0;

  Status Unused0() override { return kStatusNotImplemented; }
  Status Unused1() override { return kStatusNotImplemented; }
  Status Unused2() override { return kStatusNotImplemented; }
  Status Unused3() override { return kStatusNotImplemented; }
  Status Unused4() override { return kStatusNotImplemented; }
  Status Unused5() override { return kStatusNotImplemented; }
  Status Unused6() override { return kStatusNotImplemented; }
  Status Unused7() override { return kStatusNotImplemented; }
  Status Unused8() override { return kStatusNotImplemented; }
  const uint8_t* GetPhysicalAddress(uint32_t* length) override {
    const std::vector<uint8_t>& bytes = hardwareCalls++ == 0 ? firstHardware : hardware;
    *length = static_cast<uint32_t>(bytes.size());
    return rec->Note("GetPhysicalAddress", bytes.data());
  }
  uint32_t GetInterfaceIndex(bool ipv4) override {
    return rec->Note(ipv4 ? "GetInterfaceIndex(true)" : "GetInterfaceIndex(false)",
                     ipv4 ? index4 : index6);
  }
  const wchar_t* GetConnectionSpecificDnsSuffix() override {
    return rec->Note("GetConnectionSpecificDnsSuffix", suffix);
  }
  int32_t GetPhysicalMedium() override { return rec->Note("GetPhysicalMedium", medium); }
  const uint8_t* GetIpAddressPrefixLength(uint64_t i) override {
    return rec->Note("GetIpAddressPrefixLength" + Arg(i), &unicast.at(i).prefix);
  }
  uint64_t GetIpAddressCount() override {
    return rec->Note("GetIpAddressCount", unicastCounts.Answer(unicast.size()));
  }
  uint64_t GetGatewayCount() override {
    return rec->Note("GetGatewayCount", static_cast<uint64_t>(gateways.size()));
  }
  const uint8_t* GetGatewayPhysicalAddress(uint64_t i) override {
    return rec->Note("GetGatewayPhysicalAddress" + Arg(i), gateways.at(i).hardware.data());
  }
  uint32_t GetGatewayPhysicalAddressLength(uint64_t i) override {
    return rec->Note("GetGatewayPhysicalAddressLength" + Arg(i),
                     static_cast<uint32_t>(gateways.at(i).hardware.size()));
  }
  const IpAddress* GetGatewayAddress(uint64_t i) override {
    return rec->Note("GetGatewayAddress" + Arg(i), &gateways.at(i).address);
  }
  const IpAddress* GetIpAddress(uint64_t i) override {
    return rec->Note("GetIpAddress" + Arg(i), &unicast.at(i).address);
  }
  bool IsDhcpEnabled() override { return rec->Note("IsDhcpEnabled", dhcp); }
  const IpAddress* GetDhcpServer() override { return rec->Note("GetDhcpServer", &dhcpServer); }
  uint64_t GetDnsServerCount() override {
    return rec->Note("GetDnsServerCount", static_cast<uint64_t>(dns.size()));
  }
  const IpAddress* GetDnsServer(uint64_t i) override {
    return rec->Note("GetDnsServer" + Arg(i), &dns.at(i));
  }
  bool HaveWins() override { return rec->Note("HaveWins", wins); }
  const IpAddress* GetPrimaryWinsServer() override {
    return rec->Note("GetPrimaryWinsServer", &primaryWins);
  }
  const IpAddress* GetSecondaryWinsServer() override {
    return rec->Note("GetSecondaryWinsServer", &secondaryWins);
  }
  const wchar_t* GetName() override { return rec->Note("GetName", name); }
  const wchar_t* GetDescription() override { return rec->Note("GetDescription", description); }
};

struct FakeAddress final : IAddressInfo {
  Recorder* rec = nullptr;
  IpAddress address{};
  Status status = 0;
  bool handsNothing = false;  // succeeds without a record
  Status GetAddress(const IpAddress** out) override {
    if (status == 0 && !handsNothing) *out = &address;
    return rec->Note("GetAddress", status);
  }
};

template <class Interface, class Item>
struct FakeEnumerator final : Interface {
  Recorder* rec = nullptr;
  const char* name = "";
  std::vector<Item>* items = nullptr;
  size_t next = 0;
  Status Unused0() override { return kStatusNotImplemented; }
  uint32_t Release() override { return rec->Note(std::string(name) + "::Release", 0u); }
  Status Unused2() override { return kStatusNotImplemented; }
  Status Unused3() override { return kStatusNotImplemented; }
  auto Next() -> decltype(std::declval<Interface&>().Next()) override {
    rec->calls.push_back(std::string(name) + "::Next");
    return next < items->size() ? &(*items)[next++] : nullptr;
  }
};

struct FakeIpConfig final : IIpConfig {
  Recorder* rec = nullptr;
  bool adapterEnumerator = true, addressEnumerator = true;
  std::vector<FakeAdapter> adapters;
  std::vector<FakeAddress> addresses;
  FakeEnumerator<IAdapterInfoEnumerator, FakeAdapter> adapterList;
  FakeEnumerator<IAddressInfoEnumerator, FakeAddress> addressList;

  Status Unused0() override { return kStatusNotImplemented; }
  uint32_t Release() override { return rec->Note("IIpConfig::Release", 0u); }
  Status Unused2() override { return kStatusNotImplemented; }
  IAddressInfoEnumerator* GetAddressInfoEnumerator() override {
    rec->calls.push_back("GetAddressInfoEnumerator");
    for (FakeAddress& a : addresses) a.rec = rec;
    addressList.rec = rec, addressList.name = "Addresses", addressList.items = &addresses;
    return addressEnumerator ? &addressList : nullptr;
  }
  IAdapterInfoEnumerator* GetAdapterInfoEnumerator(bool flag) override {
    rec->calls.push_back(flag ? "GetAdapterInfoEnumerator(true)"
                              : "GetAdapterInfoEnumerator(false)");
    for (FakeAdapter& a : adapters) a.rec = rec;
    adapterList.rec = rec, adapterList.name = "Adapters", adapterList.items = &adapters;
    return adapterEnumerator ? &adapterList : nullptr;
  }
};

// ---- Fake tables ----------------------------------------------------------------------------

struct Connection {
  uint32_t pid = 0;
  uint8_t protocol = 6;
  IpAddress local{}, remote{};
  uint16_t localPort = 0, remotePort = 0;  // as stored
  int32_t state = 4;
  uint32_t left = 0, right = 0;
  bool outbound = true;
};

struct FakeConnectionTable final : IConnectionTable {
  Recorder* rec = nullptr;
  Status refresh = 0;
  int64_t sent = 0, received = 0;
  std::vector<Connection> rows;
  CountScript counts;

  const Connection& Row(uint64_t i) { return rows.at(i); }
  Status Unused0() override { return kStatusNotImplemented; }
  uint32_t Release() override { return rec->Note("IConnectionTable::Release", 0u); }
  Status Refresh() override { return rec->Note("Refresh", refresh); }
  int64_t GetBytesSentSinceBoot() override { return rec->Note("GetBytesSentSinceBoot", sent); }
  int64_t GetBytesReceivedSinceBoot() override {
    return rec->Note("GetBytesReceivedSinceBoot", received);
  }
  uint64_t GetConnectionCount() override {
    return rec->Note("GetConnectionCount", counts.Answer(rows.size()));
  }
  const IpAddress* GetLocalAddress(uint64_t i) override {
    return rec->Note("GetLocalAddress" + Arg(i), &Row(i).local);
  }
  const IpAddress* GetRemoteAddress(uint64_t i) override {
    return rec->Note("GetRemoteAddress" + Arg(i), &Row(i).remote);
  }
  uint8_t GetProtocol(uint64_t i) override {
    return rec->Note("GetProtocol" + Arg(i), Row(i).protocol);
  }
  uint16_t GetLocalPort(uint64_t i) override {
    return rec->Note("GetLocalPort" + Arg(i), Row(i).localPort);
  }
  uint16_t GetRemotePort(uint64_t i) override {
    return rec->Note("GetRemotePort" + Arg(i), Row(i).remotePort);
  }
  uint32_t GetProcessId(uint64_t i) override {
    return rec->Note("GetProcessId" + Arg(i), Row(i).pid);
  }
  Status Unused12() override { return kStatusNotImplemented; }
  Status Unused13() override { return kStatusNotImplemented; }
  Status Unused14() override { return kStatusNotImplemented; }
  int32_t GetState(uint64_t i) override { return rec->Note("GetState" + Arg(i), Row(i).state); }
  uint32_t GetPairRight(uint64_t i) override {
    return rec->Note("GetPairRight" + Arg(i), Row(i).right);
  }
  uint32_t GetPairLeft(uint64_t i) override {
    return rec->Note("GetPairLeft" + Arg(i), Row(i).left);
  }
  bool IsOutbound(uint64_t i) override { return rec->Note("IsOutbound" + Arg(i), Row(i).outbound); }
};

struct Endpoint {
  uint32_t pid = 0;
  uint8_t protocol = 6;
  IpAddress local{};
  uint16_t port = 0;  // as stored
};

struct FakeEndpointTable final : IOpenedEndpointTable {
  Recorder* rec = nullptr;
  Status refresh = 0;
  std::vector<Endpoint> rows;
  CountScript counts;

  Status Unused0() override { return kStatusNotImplemented; }
  uint32_t Release() override { return rec->Note("IOpenedEndpointTable::Release", 0u); }
  Status Refresh() override { return rec->Note("Refresh", refresh); }
  uint64_t GetEndpointCount() override {
    return rec->Note("GetEndpointCount", counts.Answer(rows.size()));
  }
  const IpAddress* GetLocalAddress(uint64_t i) override {
    return rec->Note("GetLocalAddress" + Arg(i), &rows.at(i).local);
  }
  uint8_t GetProtocol(uint64_t i) override {
    return rec->Note("GetProtocol" + Arg(i), rows.at(i).protocol);
  }
  uint16_t GetLocalPort(uint64_t i) override {
    return rec->Note("GetLocalPort" + Arg(i), rows.at(i).port);
  }
  uint32_t GetProcessId(uint64_t i) override {
    return rec->Note("GetProcessId" + Arg(i), rows.at(i).pid);
  }
};

struct Process {
  uint64_t pid = 0;
  const wchar_t* path = nullptr;
  const wchar_t* caseCorrectPath = nullptr;
  const wchar_t* args = nullptr;
  const wchar_t* sid = nullptr;
  const wchar_t* signer = nullptr;
  const wchar_t* description = nullptr;
  bool validated = false, trusted = false;
  uint8_t md5[16] = {};
  Status query = 0;
};

struct FakeProcessInfo final : IProcessInfo {
  Recorder* rec = nullptr;
  const Process* p = nullptr;
  Status Unused0() override { return kStatusNotImplemented; }
  uint32_t Release() override { return rec->Note("IProcessInfo::Release", 0u); }
  uint32_t GetProcessId() override {
    return rec->Note("GetProcessId", static_cast<uint32_t>(p->pid));
  }
  const uint8_t* GetMd5() override { return rec->Note("GetMd5", p->md5); }
  const wchar_t* GetPath(uint32_t a) override { return rec->Note(Name("GetPath", a), p->path); }
  const wchar_t* GetCommandArgs(uint32_t a) override {
    return rec->Note(Name("GetCommandArgs", a), p->args);
  }
  const wchar_t* GetTextSid(uint32_t a) override {
    return rec->Note(Name("GetTextSid", a), p->sid);
  }
  const wchar_t* GetSigner(uint32_t a) override {
    return rec->Note(Name("GetSigner", a), p->signer);
  }
  const wchar_t* GetPeDescription(uint32_t a) override {
    return rec->Note(Name("GetPeDescription", a), p->description);
  }
  bool IsTrusted() override { return rec->Note("IsTrusted", p->trusted); }
  bool IsValidated() override { return rec->Note("IsValidated", p->validated); }
  const wchar_t* GetCaseCorrectPath(uint32_t a) override {
    return rec->Note(Name("GetCaseCorrectPath", a), p->caseCorrectPath);
  }
  static std::string Name(const char* call, uint32_t argument) {
    return std::string(call) + "(" + std::to_string(argument) + ")";
  }
};

struct FakeProcesses final : IActiveProcesses {
  Recorder* rec = nullptr;
  Status refresh = 0;
  std::vector<Process> rows;
  CountScript counts;
  bool nullInfo = false;  // queries succeed without an object
  FakeProcessInfo info;

  Status Unused0() override { return kStatusNotImplemented; }
  uint32_t Release() override { return rec->Note("IActiveProcesses::Release", 0u); }
  Status RefreshProcessIdList() override { return rec->Note("RefreshProcessIdList", refresh); }
  uint64_t GetProcessCount() override {
    return rec->Note("GetProcessCount", counts.Answer(rows.size()));
  }
  uint64_t GetProcessId(uint64_t i) override {
    return rec->Note("GetProcessId" + Arg(i), rows.at(i).pid);
  }
  Status QueryProcessInfo(IProcessInfo** out, uint64_t pid, uint32_t flags) override {
    const std::string call =
        "QueryProcessInfo(" + std::to_string(pid) + ", " + std::to_string(flags) + ")";
    for (const Process& p : rows) {
      if (p.pid != pid) continue;
      if (p.query == 0 && !nullInfo) {
        info.rec = rec, info.p = &p;
        *out = &info;
      }
      return rec->Note(call, p.query);
    }
    return rec->Note(call, Hr(0x80070490u));
  }
};

// ---- The core -------------------------------------------------------------------------------

struct FakeCore final : IControl {
  Recorder rec;
  Status getIpConfig = 0, getConnections = 0, getEndpoints = 0, getProcesses = 0;
  bool handsNothing = false;  // every getter succeeds without an object
  FakeIpConfig ipConfig;
  FakeConnectionTable connections;
  FakeEndpointTable endpoints;
  FakeProcesses processes;

  FakeCore() {
    ipConfig.rec = &rec;
    connections.rec = &rec;
    endpoints.rec = &rec;
    processes.rec = &rec;
  }

  Status Unused0() override { return kStatusNotImplemented; }
  uint32_t Release() override { return 0; }
  Status GetPolicyManager(IPolicyManager**, const Guid*) override { return kStatusNotImplemented; }
  Status Unused3() override { return kStatusNotImplemented; }
  Status Unused4() override { return kStatusNotImplemented; }
  Status Unused5() override { return kStatusNotImplemented; }
  Status Unused6() override { return kStatusNotImplemented; }
  Status GetIpConfigChanged(IIpConfig** out, const Guid* id) override {
    return Hand("GetIpConfigChanged", out, &ipConfig, id, IpConfigInterfaceId, getIpConfig);
  }
  Status Unused8() override { return kStatusNotImplemented; }
  Status GetHighPriorityIpListControl(IHighPriorityIpListControl**, const Guid*) override {
    return kStatusNotImplemented;
  }
  Status GetGlobalConfigBuilder(IGlobalConfigBuilder**, const Guid*) override {
    return kStatusNotImplemented;
  }
  Status GetGlobalConfigAndStateInfo(IGlobalConfigAndStateInfo**, const Guid*) override {
    return kStatusNotImplemented;
  }
  Status GetConnectionTable(IConnectionTable** out, const Guid* id) override {
    return Hand("GetConnectionTable", out, &connections, id, ConnectionTableInterfaceId,
                getConnections);
  }
  Status GetOpenedEndpointTable(IOpenedEndpointTable** out, const Guid* id) override {
    return Hand("GetOpenedEndpointTable", out, &endpoints, id, OpenedEndpointTableInterfaceId,
                getEndpoints);
  }
  Status GetActiveProcesses(IActiveProcesses** out, const Guid* id) override {
    return Hand("GetActiveProcesses", out, &processes, id, ActiveProcessesInterfaceId,
                getProcesses);
  }

 private:
  template <class Interface, class Object>
  Status Hand(const char* call, Interface** out, Object* object, const Guid* id,
              const Guid& expected, Status status) {
    rec.calls.push_back(call);
    EXPECT_TRUE(*id == expected) << call;
    if (status == 0 && !handsNothing) *out = object;
    return status;
  }
};

// Runs a view against the fake core with LastStatus preset to start; gives what it printed.
template <class View>
std::string Print(FakeCore& core, View view, Status start = 0) {
  LastStatus = start;
  ::testing::internal::CaptureStdout();
  view(static_cast<IControl*>(&core));
  std::fflush(stdout);
  return ::testing::internal::GetCapturedStdout();
}

std::string Hex8(Status status) {
  char text[16];
  std::snprintf(text, sizeof text, "%08x", static_cast<uint32_t>(status));
  return text;
}

// ---- -IpConfig ------------------------------------------------------------------------------

const std::string kBlanks29(29, ' ');

TEST(IpConfigTest, EmptyOrMissingListsPrintTheHeadingsOnly) {
  struct Case {
    const char* name;
    bool adapterEnumerator, addressEnumerator;
    Calls releases;
  };
  const std::vector<Case> cases = {
      {"empty lists",
       true,
       true,
       {"Adapters::Release", "Addresses::Release", "IIpConfig::Release"}},
      {"no enumerators", false, false, {"IIpConfig::Release"}},
      {"no adapter enumerator", false, true, {"Addresses::Release", "IIpConfig::Release"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    FakeCore core;
    core.ipConfig.adapterEnumerator = c.adapterEnumerator;
    core.ipConfig.addressEnumerator = c.addressEnumerator;
    EXPECT_EQ(Print(core, IpConfigDisplay, 0x77),
              "\n\nNetwork adapters:\n"
              "\n\nIP addresses:\n\n"
              "\n\n");
    EXPECT_EQ(LastStatus, 0);
    Calls releases;
    for (const std::string& call : core.rec.calls) {
      if (call.find("Release") != std::string::npos) releases.push_back(call);
    }
    EXPECT_EQ(releases, c.releases);
    EXPECT_EQ(core.rec.Count("GetAdapterInfoEnumerator(true)"), 1u);
  }
}

TEST(IpConfigTest, SnapshotRefusedPrintsItsLineOnly) {
  FakeCore core;
  core.getIpConfig = Hr(0x80070005u);
  EXPECT_EQ(Print(core, IpConfigDisplay),
            "    Error from IControl::GetIpConfigChanged: 80070005.\n");
  EXPECT_EQ(LastStatus, Hr(0x80070005u));
  EXPECT_EQ(core.rec.calls, Calls{"GetIpConfigChanged"});
}

TEST(IpConfigTest, FullAdapterBlock) {
  FakeCore core;
  FakeAdapter a;
  a.name = L"{6A1C3F0E}";
  a.description = L"Gigabit Network Connection";
  a.suffix = L"corp.example";
  a.hardware = {0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0x5e};
  a.medium = 2;
  a.index4 = 12;
  a.index6 = 0xFFFFFFFF;
  a.unicast = {{V4(192, 168, 1, 20), 24}, {LinkLocal(1), 64}};
  a.gateways = {{V4(192, 168, 1, 1), {0x00, 0x1a, 0x2b, 0x00, 0x00, 0x01}},
                {LinkLocal(0xfe, 0), {}}};
  a.dhcp = true;
  a.dhcpServer = V4(192, 168, 1, 1);
  a.dns = {V4(192, 168, 1, 1), LinkLocal(2)};
  a.wins = true;
  a.primaryWins = V4(10, 0, 0, 9);
  a.secondaryWins = LinkLocal(3);
  core.ipConfig.adapters = {a};
  const std::string expected =
      "\n\nNetwork adapters:\n"
      "\n\nAdapter #1:\n\n"
      "{6A1C3F0E}\n"
      "    Description............: Gigabit Network Connection\n"
      "    Connspec DNS Suffix....: corp.example\n"
      "    Physical Address.......: 00-1a-2b-3c-4d-5e\n"
      "    Phycal Medium..........: FW_PHYSICAL_MEDIUM_WIRELESS\n"
      "    Interface Index........: 12\n"
      "    Interface Index IpV6...: -1\n"
      "    DHCP Enabled...........: Yes\n"
      "    Have WINS..............: Yes\n"
      "    IP Address List........: 192.168.1.20/24\n" +
      kBlanks29 + "fe80:0:0:0:0:0:0:1/64\n" + "    Default Gateway List...: 192.168.1.1\n" +
      kBlanks29 + "00-1a-2b-00-00-01\n" + kBlanks29 + "fe80:0:0:0:0:0:0:fe\n" + kBlanks29 + "\n" +
      "    DHCP Server............: 192.168.1.1\n"
      "    DNS Servers............: 192.168.1.1\n" +
      kBlanks29 + "fe80:0:0:0:0:0:0:2\n" +
      "    Primary WINS...........: 10.0.0.9\n"
      "    Secondary WINS.........: fe80:0:0:0:0:0:0:3\n"
      "\n\nIP addresses:\n\n"
      "\n\n";
  EXPECT_EQ(Print(core, IpConfigDisplay), expected);
  EXPECT_EQ(core.rec.Count("GetPhysicalAddress"), 2u);
}

// The adapter block's edge rules, each shown by the lines it changes.
TEST(IpConfigTest, AdapterBlockEdges) {
  struct Case {
    const char* name;
    void (*setUp)(FakeAdapter&);
    std::vector<std::string> lines;  // each must appear in the output
  };
  const std::vector<Case> cases = {
      {"empty lists end their labels",
       [](FakeAdapter&) {},
       {"    IP Address List........: \n    Default Gateway List...: \n"
        "    DHCP Server............: \n    DNS Servers............: \n"}},
      {"no hardware address",
       [](FakeAdapter& a) { a.hardware = {}; },
       {"    Physical Address.......: \n"}},
      {"eight-byte hardware address",
       [](FakeAdapter& a) { a.hardware = {0, 0, 0, 0, 0, 0, 0, 0xe0}; },
       {"    Physical Address.......: 00-00-00-00-00-00-00-e0\n"}},
      {"medium 7 is the last name",
       [](FakeAdapter& a) { a.medium = 7; },
       {"    Phycal Medium..........: FW_PHYSICAL_MEDIUM_TUNNEL_ISATAP\n"}},
      {"medium 8 is invalid",
       [](FakeAdapter& a) { a.medium = 8; },
       {"    Phycal Medium..........: FW_PHYSICAL_MEDIUM_INVALID\n"}},
      {"a negative medium is invalid",
       [](FakeAdapter& a) { a.medium = -3; },
       {"    Phycal Medium..........: FW_PHYSICAL_MEDIUM_INVALID\n"}},
      {"medium 0",
       [](FakeAdapter& a) { a.medium = 0; },
       {"    Phycal Medium..........: FW_PHYSICAL_MEDIUM_INVALID\n"}},
      {"no DHCP, no WINS",
       [](FakeAdapter&) {},
       {"    DHCP Enabled...........: No\n    Have WINS..............: No\n"}},
      {"DHCP server of version 0 prints nothing",
       [](FakeAdapter& a) { a.dhcpServer = LinkLocal(9, 0); },
       {"    DHCP Server............: \n"}},
      {"DHCP server of version 6",
       [](FakeAdapter& a) { a.dhcpServer = LinkLocal(9); },
       {"    DHCP Server............: fe80:0:0:0:0:0:0:9\n"}},
      {"WINS of other versions print nothing",
       [](FakeAdapter& a) {
         a.primaryWins = V4(1, 2, 3, 4);
         a.primaryWins.version = 5;
         a.secondaryWins = V4(1, 2, 3, 4);
         a.secondaryWins.version = 0;
       },
       {"    Primary WINS...........: \n    Secondary WINS.........: \n"}},
      {"a list entry of version 0 is written as IPv6",
       [](FakeAdapter& a) {
         a.unicast = {{LinkLocal(5, 0), 10}};
       },
       {"    IP Address List........: fe80:0:0:0:0:0:0:5/10\n"}},
      {"an IPv4 text after a longer IPv6 one leaves nothing of it",
       [](FakeAdapter& a) {
         a.dns = {LinkLocal(0x55), V4(9, 9, 9, 9)};
       },
       {"    DNS Servers............: fe80:0:0:0:0:0:0:55\n" + kBlanks29 + "9.9.9.9\n"}},
      {"three addresses",
       [](FakeAdapter& a) {
         a.unicast = {{V4(10, 0, 0, 1), 8}, {V4(10, 0, 0, 2), 16}, {V4(10, 0, 0, 3), 32}};
       },
       {"    IP Address List........: 10.0.0.1/8\n" + kBlanks29 + "10.0.0.2/16\n" + kBlanks29 +
        "10.0.0.3/32\n    Default"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    FakeCore core;
    FakeAdapter adapter;
    c.setUp(adapter);
    core.ipConfig.adapters = {adapter};
    const std::string out = Print(core, IpConfigDisplay);
    for (const std::string& line : c.lines) EXPECT_NE(out.find(line), std::string::npos) << out;
  }
}

TEST(IpConfigTest, AdaptersAreNumberedFromOneAndCountsAreAskedAfterEveryEntry) {
  FakeCore core;
  FakeAdapter first, second;
  first.name = L"first";
  second.name = L"second";
  // Three addresses listed, but the count drops to 2 once the first has been printed.
  second.unicast = {{V4(10, 0, 0, 1), 8}, {V4(10, 0, 0, 2), 8}, {V4(10, 0, 0, 3), 8}};
  second.unicastCounts.answers = {3, 2};
  core.ipConfig.adapters = {first, second};
  const std::string out = Print(core, IpConfigDisplay);
  EXPECT_NE(out.find("\n\nAdapter #1:\n\nfirst\n"), std::string::npos);
  EXPECT_NE(out.find("\n\nAdapter #2:\n\nsecond\n"), std::string::npos);
  EXPECT_EQ(out.find("Adapter #3"), std::string::npos);
  EXPECT_NE(out.find("10.0.0.1/8\n" + kBlanks29 + "10.0.0.2/8\n    Default"), std::string::npos);
  // Once for each of the two adapters' lists (first: 1; second: 3 answers).
  EXPECT_EQ(core.rec.Count("GetIpAddressCount"), 4u);
}

TEST(IpConfigTest, TheLastAddressDecidesTheStatus) {
  struct Case {
    const char* name;
    std::vector<Status> statuses;
    Status last;
  };
  const std::vector<Case> cases = {
      {"all succeed", {0, 0}, 0},
      {"a failure then a success", {Hr(0x8007001Fu), 0}, 0},
      {"a success then a failure", {0, Hr(0xC0000001u)}, Hr(0xC0000001u)},
      {"only failures", {Hr(0x10u), Hr(0x20u)}, Hr(0x20u)},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    FakeCore core;
    std::string expected = "\n\nNetwork adapters:\n\n\nIP addresses:\n\n";
    for (size_t i = 0; i < c.statuses.size(); ++i) {
      FakeAddress address;
      address.address = i == 0 ? V4(127, 0, 0, 1) : LinkLocal(1);
      address.status = c.statuses[i];
      core.ipConfig.addresses.push_back(address);
      char line[64];
      std::snprintf(line, sizeof line, "    Error from pAddressInfo->GetAddress %x\n",
                    static_cast<uint32_t>(c.statuses[i]));
      expected += c.statuses[i] != 0 ? line
                  : i == 0           ? "        Address = 127.0.0.1\n"
                                     : "        Address = fe80:0:0:0:0:0:0:1\n";
    }
    expected += "\n\n";
    EXPECT_EQ(Print(core, IpConfigDisplay, 0x55), expected);
    EXPECT_EQ(LastStatus, c.last);
  }
}

// ---- -statetable ----------------------------------------------------------------------------

const char* const kV4Rule =
    "\n=============================IPv4=================================\n";
const char* const kV6Rule =
    "\n=============================IPv6=================================\n";

std::string StateTableReport(const std::string& totals, const std::string& v4,
                             const std::string& v6) {
  return "\n" + totals + kV4Rule + v4 + kV6Rule + v6;
}

TEST(StateTableTest, ConnectionLines) {
  struct Case {
    const char* name;
    Connection row;
    std::string line;  // empty: listed in neither section
    bool ipv6Section = false;
  };
  const std::vector<Case> cases = {
      {"TCP port bytes 00 50 show 80",
       {4, 6, V4(192, 168, 1, 20), V4(203, 0, 113, 80), Stored(0x00, 0x50), Stored(0xC4, 0xEC), 4,
        3, 1, false},
       "PID 0004 TCP 192.168.1.20 80 <-- 203.0.113.80 50412 3/1 FWCS_ESTABLISHED\n"},
      {"UDP outbound",
       {1004, 17, V4(10, 0, 0, 5), V4(10, 0, 0, 1), Stored(0xF0, 0x5A), Stored(0x00, 0x35), 0, 0, 0,
        true},
       "PID 1004 UDP 10.0.0.5 61530 --> 10.0.0.1 53 0/0 FWCS_UNKNOWN\n"},
      {"ICMP values unswapped",
       {5120, 1, V4(10, 0, 0, 5), V4(10, 0, 0, 7), 8, 0x0300, 3, 0, 0, true},
       "PID 5120 ICMP 10.0.0.5 8 --> 10.0.0.7 768 0/0 FWCS_CONNECTING\n"},
      {"protocol 1 with an IPv6 remote is ICMPv6",
       {7, 1, V4(10, 0, 0, 5), LinkLocal(1), 128, 0, 4, 0, 0, true},
       "PID 0007 ICMPv6 10.0.0.5 128 --> fe80:0:0:0:0:0:0:1 0 0/0 FWCS_ESTABLISHED\n"},
      {"protocol 58 with an IPv4 remote is ICMP",
       {7, 58, V4(10, 0, 0, 5), V4(10, 0, 0, 6), 129, 1, 4, 0, 0, false},
       "PID 0007 ICMP 10.0.0.5 129 <-- 10.0.0.6 1 0/0 FWCS_ESTABLISHED\n"},
      {"protocol 47 is UDP with swapped ports",
       {12345, 47, V4(10, 0, 0, 5), V4(10, 0, 0, 6), Stored(0x06, 0xBB), Stored(0x00, 0x01), 1, 0,
        0, true},
       "PID 12345 UDP 10.0.0.5 1723 --> 10.0.0.6 1 0/0 FWCS_LISTEN\n"},
      {"state 9 is the last name",
       {1, 6, V4(1, 1, 1, 1), V4(2, 2, 2, 2), 0, 0, 9, 0, 0, true},
       "PID 0001 TCP 1.1.1.1 0 --> 2.2.2.2 0 0/0 FWCS_CHILD_INIT\n"},
      {"state 10 is FWCS_INVALID",
       {1, 6, V4(1, 1, 1, 1), V4(2, 2, 2, 2), 0, 0, 10, 0, 0, true},
       "PID 0001 TCP 1.1.1.1 0 --> 2.2.2.2 0 0/0 FWCS_INVALID\n"},
      {"a negative state is FWCS_INVALID",
       {1, 6, V4(1, 1, 1, 1), V4(2, 2, 2, 2), 0, 0, -1, 0, 0, true},
       "PID 0001 TCP 1.1.1.1 0 --> 2.2.2.2 0 0/0 FWCS_INVALID\n"},
      {"left before right, both signed",
       {1, 6, V4(1, 1, 1, 1), V4(2, 2, 2, 2), 0, 0, 4, 0xFFFFFFFF, 42, true},
       "PID 0001 TCP 1.1.1.1 0 --> 2.2.2.2 0 -1/42 FWCS_ESTABLISHED\n"},
      {"IPv4 local with an IPv6 remote is listed under IPv4",
       {9, 6, V4(10, 0, 0, 5), LinkLocal(1), Stored(0, 80), Stored(0, 81), 4, 0, 0, true},
       "PID 0009 TCP 10.0.0.5 80 --> fe80:0:0:0:0:0:0:1 81 0/0 FWCS_ESTABLISHED\n"},
      {"IPv6 local is listed under IPv6",
       {9, 6, LinkLocal(2), V4(10, 0, 0, 5), Stored(0, 80), Stored(0, 81), 4, 0, 0, false},
       "PID 0009 TCP fe80:0:0:0:0:0:0:2 80 <-- 10.0.0.5 81 0/0 FWCS_ESTABLISHED\n",
       true},
      {"version 0 is in neither section",
       {9, 6, LinkLocal(2, 0), V4(10, 0, 0, 5), 0, 0, 4, 0, 0, false},
       ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    FakeCore core;
    core.connections.rows = {c.row};
    const std::string totals =
        "Bytes Sent Since Boot:     0\nBytes Received Since Boot: 0\nActive Connections:        "
        "1\n";
    EXPECT_EQ(Print(core, StateTableDisplay),
              StateTableReport(totals, c.ipv6Section ? "" : c.line, c.ipv6Section ? c.line : ""));
  }
}

TEST(StateTableTest, TotalsAndSectionsOfAWholeTable) {
  FakeCore core;
  core.connections.sent = 9000000000LL;
  core.connections.received = -5;
  core.connections.rows = {
      {1, 6, LinkLocal(1), LinkLocal(2), Stored(0, 1), Stored(0, 2), 4, 0, 0, true},
      {2, 17, V4(10, 0, 0, 2), V4(10, 0, 0, 3), Stored(0, 3), Stored(0, 4), 4, 0, 0, true},
      {3, 6, V4(10, 0, 0, 4), V4(10, 0, 0, 5), Stored(0, 5), Stored(0, 6), 4, 0, 0, false},
  };
  EXPECT_EQ(Print(core, StateTableDisplay, 0x33),
            StateTableReport("Bytes Sent Since Boot:     9000000000\n"
                             "Bytes Received Since Boot: -5\n"
                             "Active Connections:        3\n",
                             "PID 0002 UDP 10.0.0.2 3 --> 10.0.0.3 4 0/0 FWCS_ESTABLISHED\n"
                             "PID 0003 TCP 10.0.0.4 5 <-- 10.0.0.5 6 0/0 FWCS_ESTABLISHED\n",
                             "PID 0001 TCP fe80:0:0:0:0:0:0:1 1 --> fe80:0:0:0:0:0:0:2 2 0/0 "
                             "FWCS_ESTABLISHED\n"));
  EXPECT_EQ(LastStatus, 0);
  EXPECT_EQ(core.rec.calls.back(), "IConnectionTable::Release");
}

TEST(StateTableTest, OneEntryIsReadInTheContractOrder) {
  FakeCore core;
  core.connections.rows = {
      {1, 1, V4(1, 1, 1, 1), V4(2, 2, 2, 2), 0, 0, 4, 0, 0, true},
  };
  Print(core, StateTableDisplay);
  const Calls& calls = core.rec.calls;
  const auto first = std::find(calls.begin(), calls.end(), "GetProtocol(0)");
  ASSERT_NE(first, calls.end());
  const Calls entry(first, std::find(first, calls.end(), "GetConnectionCount"));
  EXPECT_EQ(entry,
            (Calls{"GetProtocol(0)", "GetProcessId(0)", "GetLocalPort(0)", "GetRemotePort(0)",
                   "GetRemoteAddress(0)", "GetLocalAddress(0)", "IsOutbound(0)",
                   "GetRemoteAddress(0)", "GetState(0)", "GetPairRight(0)", "GetPairLeft(0)"}));
}

TEST(StateTableTest, TheCountIsAskedAgainAfterEveryEntry) {
  FakeCore core;
  for (uint8_t i = 1; i <= 4; ++i) {
    core.connections.rows.push_back(
        {i, 6, V4(10, 0, 0, i), V4(10, 0, 1, i), Stored(0, i), Stored(0, i), 4, 0, 0, true});
  }
  // Totals: 4; then the table loses two entries after the first is listed, and the IPv6 pass
  // sees only those two.
  core.connections.counts.answers = {4, 4, 2};
  const std::string out = Print(core, StateTableDisplay);
  EXPECT_EQ(out, StateTableReport("Bytes Sent Since Boot:     0\n"
                                  "Bytes Received Since Boot: 0\n"
                                  "Active Connections:        4\n",
                                  "PID 0001 TCP 10.0.0.1 1 --> 10.0.1.1 1 0/0 FWCS_ESTABLISHED\n"
                                  "PID 0002 TCP 10.0.0.2 2 --> 10.0.1.2 2 0/0 FWCS_ESTABLISHED\n",
                                  ""));
  // 1 for the totals, 3 in the IPv4 pass, 3 in the IPv6 pass.
  EXPECT_EQ(core.rec.Count("GetConnectionCount"), 7u);
}

TEST(StateTableTest, FailuresPrintTheirLineAndKeepTheStatus) {
  struct Case {
    const char* name;
    Status get, refresh;
    std::string out;
    Calls calls;
  };
  const std::vector<Case> cases = {
      {"table refused",
       Hr(0x80004002u),
       0,
       "    Error from IControl::GetConnectionTable: 80004002.\n",
       {"GetConnectionTable"}},
      {"refresh fails",
       0,
       Hr(0xC000009Au),
       "    Error from IConnectionTable::Refresh: c000009a.\n",
       {"GetConnectionTable", "Refresh", "IConnectionTable::Release"}},
      {"a positive status is a failure too",
       0,
       1,
       "    Error from IConnectionTable::Refresh: 00000001.\n",
       {"GetConnectionTable", "Refresh", "IConnectionTable::Release"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    FakeCore core;
    core.getConnections = c.get;
    core.connections.refresh = c.refresh;
    EXPECT_EQ(Print(core, StateTableDisplay), c.out);
    EXPECT_EQ(LastStatus, c.get != 0 ? c.get : c.refresh);
    EXPECT_EQ(core.rec.calls, c.calls);
  }
}

// ---- -eptable -------------------------------------------------------------------------------

const char* const kEpV4Rule = "\n==========================IPv4=============================\n";
const char* const kEpV6Rule = "\n==========================IPv6============================\n";

TEST(EndpointTableTest, Report) {
  struct Case {
    const char* name;
    std::vector<Endpoint> rows;
    CountScript counts;
    std::string count, v4, v6;
  };
  const std::vector<Case> cases = {
      {"empty table", {}, {}, "0", "", ""},
      {"UDP port 53",
       {{1004, 17, V4(0, 0, 0, 0), Stored(0x00, 0x35)}},
       {},
       "1",
       "PID 1004 UDP 0.0.0.0 53\n",
       ""},
      {"protocol 1 is UDP with its port swapped",
       {{5, 1, V4(10, 0, 0, 1), 8}},
       {},
       "1",
       "PID 0005 UDP 10.0.0.1 2048\n",
       ""},
      {"TCP and the two sections; version 0 nowhere",
       {{4, 6, LinkLocal(1), Stored(0x01, 0xBD)},
        {8, 6, V4(192, 168, 1, 20), Stored(0x01, 0xBD)},
        {9, 6, LinkLocal(1, 0), Stored(0, 1)}},
       {},
       "3",
       "PID 0008 TCP 192.168.1.20 445\n",
       "PID 0004 TCP fe80:0:0:0:0:0:0:1 445\n"},
      {"a table that shrinks while listed",
       {{1, 6, V4(1, 0, 0, 1), Stored(0, 1)},
        {2, 6, V4(1, 0, 0, 2), Stored(0, 2)},
        {3, 6, V4(1, 0, 0, 3), Stored(0, 3)}},
       {{3, 3, 1}},
       "3",
       "PID 0001 TCP 1.0.0.1 1\n",
       ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    FakeCore core;
    core.endpoints.rows = c.rows;
    core.endpoints.counts = c.counts;
    EXPECT_EQ(Print(core, EndpointTableDisplay, 0x44),
              "\nOpened Endpoints:  " + c.count + "\n" + kEpV4Rule + c.v4 + kEpV6Rule + c.v6);
    EXPECT_EQ(LastStatus, 0);
    EXPECT_EQ(core.rec.calls.back(), "IOpenedEndpointTable::Release");
  }
}

TEST(EndpointTableTest, FailuresPrintTheirLineAndKeepTheStatus) {
  FakeCore refused;
  refused.getEndpoints = Hr(0x80070005u);
  EXPECT_EQ(Print(refused, EndpointTableDisplay),
            "    Error from IControl::GetOpenedEndpointTable: 80070005.\n");
  EXPECT_EQ(LastStatus, Hr(0x80070005u));
  EXPECT_EQ(refused.rec.calls, Calls{"GetOpenedEndpointTable"});

  FakeCore stale;
  stale.endpoints.refresh = Hr(0x8000FFFFu);
  EXPECT_EQ(Print(stale, EndpointTableDisplay),
            "    Error from IOpenedEndpointTable::Refresh: 8000ffff.\n");
  EXPECT_EQ(LastStatus, Hr(0x8000FFFFu));
  EXPECT_EQ(stale.rec.calls,
            (Calls{"GetOpenedEndpointTable", "Refresh", "IOpenedEndpointTable::Release"}));
}

// ---- -proclist ------------------------------------------------------------------------------

const std::string kProcessHeading =
    "PID\tImage Name           Signed Trust MD5\n" + std::string(76, '-') + "\n";

Process MakeProcess(uint64_t pid, const wchar_t* path, bool validated, const wchar_t* signer,
                    bool trusted) {
  Process p;
  p.pid = pid;
  p.path = path;
  p.validated = validated;
  p.signer = signer;
  p.trusted = trusted;
  for (uint8_t i = 0; i < 16; ++i) p.md5[i] = static_cast<uint8_t>(0xA0 + i);
  return p;
}

const char* const kMd5 = "A0A1A2A3A4A5A6A7A8A9AAABACADAEAF\n";

TEST(ProcessListTest, ProcessLines) {
  struct Case {
    const char* name;
    Process process;
    std::string line;
  };
  const std::vector<Case> cases = {
      {"svchost.exe padded with ten blanks",
       MakeProcess(1004, L"C:\\Windows\\System32\\svchost.exe", true, L"Signer", true),
       "1004\tsvchost.exe          Yes    Yes   0x"},
      {"a 21-character name joins the next column",
       MakeProcess(8, L"C:\\apps\\abcdefghijklmnopq.exe", true, L"Signer", true),
       "0008\tabcdefghijklmnopq.exeYes    Yes   0x"},
      {"a 20-character name gets one blank",
       MakeProcess(8, L"C:\\apps\\abcdefghijklmnop.exe", true, L"Signer", true),
       "0008\tabcdefghijklmnop.exe Yes    Yes   0x"},
      {"a longer name is not cut",
       MakeProcess(8, L"C:\\apps\\a-very-long-image-name.exe", true, L"Signer", true),
       "0008\ta-very-long-image-name.exeYes    Yes   0x"},
      {"unvalidated shows N/A", MakeProcess(5, L"C:\\x.exe", false, L"Signer", true),
       "0005\tx.exe                N/A    N/A   0x"},
      {"validated, unsigned, untrusted", MakeProcess(5, L"C:\\x.exe", true, nullptr, false),
       "0005\tx.exe                No     No    0x"},
      {"signed but untrusted", MakeProcess(5, L"C:\\x.exe", true, L"Signer", false),
       "0005\tx.exe                Yes    No    0x"},
      {"a path without a backslash is the name",
       MakeProcess(77777, L"notes.exe", false, nullptr, false),
       "77777\tnotes.exe            N/A    N/A   0x"},
      {"a null path is an empty name", MakeProcess(4, nullptr, false, nullptr, false),
       "0004\t                     N/A    N/A   0x"},
      {"a path ending in a backslash", MakeProcess(4, L"C:\\dir\\", false, nullptr, false),
       "0004\t                     N/A    N/A   0x"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    FakeCore core;
    core.processes.rows = {c.process};
    EXPECT_EQ(Print(core, ProcessListDisplay, 0x99),
              "\nActive Processes:  1\n\n" + kProcessHeading + c.line + kMd5);
    EXPECT_EQ(LastStatus, 0);
  }
}

TEST(ProcessListTest, VerdictsAreAskedOnlyOfAValidatedProcess) {
  FakeCore core;
  core.processes.rows = {MakeProcess(5, L"C:\\x.exe", false, L"Signer", true)};
  Print(core, ProcessListDisplay);
  EXPECT_EQ(core.rec.Count("IsTrusted"), 0u);
  EXPECT_EQ(core.rec.Count("GetSigner(0)"), 0u);
  EXPECT_EQ(core.rec.Count("QueryProcessInfo(5, 0)"), 1u);
  EXPECT_EQ(core.rec.Count("IProcessInfo::Release"), 1u);
}

TEST(ProcessListTest, QueryFailuresAndTheListStatus) {
  struct Case {
    const char* name;
    std::vector<Status> queries;
    CountScript counts;
    Status last;
  };
  const std::vector<Case> cases = {
      {"empty list", {}, {}, 0},
      {"one failure among successes", {0, Hr(0x80070005u), 0}, {}, 0},
      {"a success before a failure still counts", {0, Hr(0x80070005u)}, {}, 0},
      {"every query fails", {Hr(0x10u), Hr(0x80070057u)}, {}, Hr(0x80070057u)},
      // The heading's count is 0 and the list only then grows: the listing is not taken for a
      // success, and its last failure stands.
      {"a list empty when counted", {0, Hr(0x80070005u)}, {{0, 2}}, Hr(0x80070005u)},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    FakeCore core;
    std::string lines;
    for (size_t i = 0; i < c.queries.size(); ++i) {
      Process p = MakeProcess(10 + i, L"C:\\p.exe", false, nullptr, false);
      p.query = c.queries[i];
      core.processes.rows.push_back(p);
      char pid[8];
      std::snprintf(pid, sizeof pid, "%04zu", 10 + i);
      lines +=
          c.queries[i] != 0
              ? "    Error from IActiveProcesses::QueryProcessInfo: " + Hex8(c.queries[i]) + ".\n"
              : std::string(pid) + "\tp.exe                N/A    N/A   0x" + kMd5;
    }
    core.processes.counts = c.counts;
    // A last failing query leaves its status; a list whose first count was 0 is not reset.
    const Status start = 0x5A;
    core.processes.refresh = 0;
    const std::string count = std::to_string(c.counts.answers.empty() ? c.queries.size() : 0);
    EXPECT_EQ(Print(core,
                    [&](IControl* control) {
                      LastStatus = start;
                      ProcessListDisplay(control);
                    }),
              "\nActive Processes:  " + count + "\n\n" + kProcessHeading + lines);
    EXPECT_EQ(LastStatus, c.last);
    EXPECT_EQ(core.rec.calls.back(), "IActiveProcesses::Release");
  }
}

TEST(ProcessListTest, FailuresBeforeTheListing) {
  FakeCore refused;
  refused.getProcesses = Hr(0x80004005u);
  EXPECT_EQ(Print(refused, ProcessListDisplay),
            "    Error from IControl::GetActiveProcesses: 80004005.\n");
  EXPECT_EQ(LastStatus, kFailure);
  EXPECT_EQ(refused.rec.calls, Calls{"GetActiveProcesses"});

  FakeCore stale;
  stale.processes.refresh = Hr(0xC0000022u);
  EXPECT_EQ(Print(stale, ProcessListDisplay),
            "    Error from IActiveProcesses::RefreshProcessIdList: c0000022.\n");
  EXPECT_EQ(LastStatus, Hr(0xC0000022u));
  EXPECT_EQ(stale.rec.calls,
            (Calls{"GetActiveProcesses", "RefreshProcessIdList", "IActiveProcesses::Release"}));
}

// ---- -proc ----------------------------------------------------------------------------------

TEST(ProcessInfoTest, IdentifierText) {
  struct Case {
    const wchar_t* text;
    std::optional<uint64_t> asked;  // none: refused
  };
  const std::vector<Case> cases = {
      {L"4", 4},
      {L"4x", 4},
      {L"-1", UINT64_MAX},
      {L"  \t+17 trailing", 17},
      {L"0005", 5},
      {L"9223372036854775807", 9223372036854775807u},
      {L"99999999999999999999", 9223372036854775807u},
      {L"-99999999999999999999", 9223372036854775808u},
      {L"abc", std::nullopt},
      {L"0", std::nullopt},
      {L"", std::nullopt},
      {L"-0", std::nullopt},
      {L"x4", std::nullopt},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::PrintToString(std::wstring(c.text)));
    FakeCore core;
    const Status start = 0x1234;
    const std::string out = Print(
        core, [&](IControl* control) { ProcessInfoDisplay(control, c.text, 0); }, start);
    if (!c.asked) {
      std::string text;
      for (const wchar_t* p = c.text; *p; ++p) text += static_cast<char>(*p);
      EXPECT_EQ(out, "Invalid PID specified - " + text + "\n");
      EXPECT_EQ(LastStatus, start);
      EXPECT_TRUE(core.rec.calls.empty());
      continue;
    }
    // Nothing is listed, so the core answers "not found" for the identifier it was asked.
    EXPECT_EQ(core.rec.calls[1], "QueryProcessInfo(" + std::to_string(*c.asked) + ", 0)");
    EXPECT_EQ(LastStatus, Hr(0x80070490u));
  }
}

TEST(ProcessInfoTest, Details) {
  FakeCore core;
  Process p = MakeProcess(5, L"C:\\Windows\\notepad.exe", true, L"Signer Inc.", false);
  p.caseCorrectPath = L"C:\\WINDOWS\\notepad.exe";
  p.args = L"/A file.txt";
  p.sid = L"S-1-5-18";
  p.description = L"Notepad";
  core.processes.rows = {p};
  const std::string out = Print(
      core, [](IControl* control) { ProcessInfoDisplay(control, L"5", 0x40); }, 0x66);
  EXPECT_EQ(out,
            "\n"
            "PID         \t\t0005\n"
            "Path        \t\tC:\\Windows\\notepad.exe\n"
            "Case Correct Path        \t\tC:\\WINDOWS\\notepad.exe\n"
            "Command Args\t\t/A file.txt\n"
            "Text SID    \t\tS-1-5-18\n"
            "Validated   \t\tYes\n"
            "Trusted     \t\tNo\n"
            "Signer      \t\tSigner Inc.\n"
            "PE Descr    \t\tNotepad\n"
            "MD5         \t\t0xA0A1A2A3A4A5A6A7A8A9AAABACADAEAF\n");
  EXPECT_EQ(LastStatus, 0);
  // The flag word goes to the core as the dispatcher gave it; no list is taken; every string
  // is asked twice; the details are released before the process list.
  EXPECT_EQ(core.rec.Count("QueryProcessInfo(5, 64)"), 1u);
  EXPECT_EQ(core.rec.Count("RefreshProcessIdList"), 0u);
  for (const char* getter : {"GetPath(0)", "GetCaseCorrectPath(0)", "GetCommandArgs(0)",
                             "GetTextSid(0)", "GetSigner(0)", "GetPeDescription(0)"}) {
    EXPECT_EQ(core.rec.Count(getter), 2u) << getter;
  }
  const Calls tail(core.rec.calls.end() - 2, core.rec.calls.end());
  EXPECT_EQ(tail, (Calls{"IProcessInfo::Release", "IActiveProcesses::Release"}));
}

TEST(ProcessInfoTest, NullStringsAndUnvalidatedVerdicts) {
  FakeCore core;
  core.processes.rows = {MakeProcess(4, nullptr, false, nullptr, true)};
  EXPECT_EQ(Print(core, [](IControl* control) { ProcessInfoDisplay(control, L"4", 0); }),
            "\n"
            "PID         \t\t0004\n"
            "Path        \t\t\n"
            "Case Correct Path        \t\t\n"
            "Command Args\t\t\n"
            "Text SID    \t\t\n"
            "Validated   \t\tNo\n"
            "Trusted     \t\tYes\n"
            "Signer      \t\t\n"
            "PE Descr    \t\t\n"
            "MD5         \t\t0xA0A1A2A3A4A5A6A7A8A9AAABACADAEAF\n");
  // A null string is asked once: there is nothing to print.
  EXPECT_EQ(core.rec.Count("GetPath(0)"), 1u);
}

TEST(ProcessInfoTest, FailuresPrintTheirLineAndKeepTheStatus) {
  FakeCore refused;
  refused.getProcesses = Hr(0x80070426u);
  EXPECT_EQ(Print(refused, [](IControl* c) { ProcessInfoDisplay(c, L"4", 0); }),
            "    Error from IControl::GetActiveProcesses: 80070426.\n");
  EXPECT_EQ(LastStatus, Hr(0x80070426u));

  FakeCore failing;
  Process p = MakeProcess(8, L"C:\\x.exe", true, nullptr, false);
  p.query = Hr(0x80070005u);
  failing.processes.rows = {p};
  EXPECT_EQ(Print(failing, [](IControl* c) { ProcessInfoDisplay(c, L"8", 0); }),
            "    Error from IActiveProcesses::QueryProcessInfo: 80070005.\n");
  EXPECT_EQ(LastStatus, Hr(0x80070005u));
  EXPECT_EQ(failing.rec.calls,
            (Calls{"GetActiveProcesses", "QueryProcessInfo(8, 0)", "IActiveProcesses::Release"}));
}

// A core that reports success without handing out the object fails that step with E_POINTER,
// in the step's own message, instead of crashing the tool.
TEST(NullObjectTest, EachGetterFailsItsStep) {
  using View = void (*)(IControl*);
  const struct {
    const char* name;
    View view;
    std::string out;
  } cases[] = {
      {"-IpConfig", IpConfigDisplay, "    Error from IControl::GetIpConfigChanged: 80004003.\n"},
      {"-statetable", StateTableDisplay,
       "    Error from IControl::GetConnectionTable: 80004003.\n"},
      {"-eptable", EndpointTableDisplay,
       "    Error from IControl::GetOpenedEndpointTable: 80004003.\n"},
      {"-proclist", ProcessListDisplay, "    Error from IControl::GetActiveProcesses: 80004003.\n"},
      {"-proc", [](IControl* c) { ProcessInfoDisplay(c, L"4", 0); },
       "    Error from IControl::GetActiveProcesses: 80004003.\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    FakeCore core;
    core.handsNothing = true;
    EXPECT_EQ(Print(core, c.view), c.out);
    EXPECT_EQ(LastStatus, Hr(0x80004003u));
  }
}

TEST(NullObjectTest, AnAddressOrAProcessWithoutObject) {
  FakeCore addresses;
  FakeAddress missing, present;
  missing.handsNothing = true;
  present.address = V4(10, 0, 0, 1);
  addresses.ipConfig.addresses = {present, missing};
  EXPECT_EQ(Print(addresses, IpConfigDisplay),
            "\n\nNetwork adapters:\n\n\nIP addresses:\n\n"
            "        Address = 10.0.0.1\n"
            "    Error from pAddressInfo->GetAddress 80004003\n\n\n");
  EXPECT_EQ(LastStatus, Hr(0x80004003u));

  FakeCore list;
  list.processes.rows = {MakeProcess(4, nullptr, false, nullptr, false)};
  list.processes.nullInfo = true;
  EXPECT_EQ(Print(list, ProcessListDisplay),
            "\nActive Processes:  1\n\n" + kProcessHeading +
                "    Error from IActiveProcesses::QueryProcessInfo: 80004003.\n");
  EXPECT_EQ(LastStatus, Hr(0x80004003u));
  EXPECT_EQ(list.rec.Count("IProcessInfo::Release"), 0u);

  FakeCore one;
  one.processes.rows = {MakeProcess(4, nullptr, false, nullptr, false)};
  one.processes.nullInfo = true;
  EXPECT_EQ(Print(one, [](IControl* c) { ProcessInfoDisplay(c, L"4", 0); }),
            "    Error from IActiveProcesses::QueryProcessInfo: 80004003.\n");
  EXPECT_EQ(LastStatus, Hr(0x80004003u));
  EXPECT_EQ(one.rec.calls.back(), "IActiveProcesses::Release");
}

// ---- Shared conversions ---------------------------------------------------------------------

TEST(TableTextTest, Conversions) {
  EXPECT_EQ(PortFromNetworkOrder(Stored(0x00, 0x50)), 80);
  EXPECT_EQ(PortFromNetworkOrder(Stored(0x12, 0x34)), 0x1234);
  EXPECT_EQ(PortFromNetworkOrder(Stored(0xFF, 0x00)), 0xFF00);

  struct NameCase {
    const wchar_t* path;
    const wchar_t* name;
  };
  for (const NameCase& c : std::vector<NameCase>{{L"C:\\a\\b.exe", L"b.exe"},
                                                 {L"b.exe", L"b.exe"},
                                                 {L"\\\\server\\share\\c.exe", L"c.exe"},
                                                 {L"C:/a/b.exe", L"C:/a/b.exe"},
                                                 {L"", L""},
                                                 {nullptr, L""}}) {
    EXPECT_STREQ(ImageName(c.path), c.name);
  }

  EXPECT_EQ(Utf16Length(L""), 0u);
  EXPECT_EQ(Utf16Length(L"svchost.exe"), 11u);
  EXPECT_EQ(Utf16Length(L"caf\u00e9\u4e2d"), 5u);
  // A character beyond U+FFFF takes two units wherever the program runs.
  EXPECT_EQ(Utf16Length(L"a\U0001F600b"), 4u);
}

}  // namespace
}  // namespace nw
