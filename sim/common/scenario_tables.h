#pragma once

// The core's runtime tables as a scenario describes them: the IP configuration (adapters and
// the host's addresses), the connection state table, the opened endpoints, the processes and
// the high-priority IP list (blacklist).
// The three big tables can also be generated, any number of entries from a seed, computed
// from the index when asked for, so that neither the file nor the simulated core grows with
// them.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/ip_address.h"
#include "sim/common/json_util.h"

namespace nw::sim {

/// One network adapter of the IP configuration.
struct AdapterScenario {
  struct Unicast {
    IpAddress address{};
    uint8_t prefixLength = 0;
  };
  struct Gateway {
    IpAddress address{};
    std::vector<uint8_t> physicalAddress;
  };

  /// Null when the scenario says null; absent texts are empty.
  std::optional<std::wstring> name = std::wstring();
  std::optional<std::wstring> description = std::wstring();
  std::optional<std::wstring> dnsSuffix = std::wstring();
  std::vector<uint8_t> physicalAddress;
  int32_t physicalMedium = 1;
  uint32_t interfaceIndex = 0;
  uint32_t interfaceIndexV6 = 0;
  std::vector<Unicast> ipAddresses;
  std::vector<Gateway> gateways;
  bool dhcpEnabled = false;
  /// A cleared record (version 0) when there is none.
  IpAddress dhcpServer{};
  std::vector<IpAddress> dnsServers;
  bool haveWins = false;
  IpAddress primaryWins{};
  IpAddress secondaryWins{};
  /// What GetIpAddressCount, GetGatewayCount and GetDnsServerCount answer, one a call, the last
  /// repeating; empty: the number of entries. A count past the list reads cleared records.
  std::vector<uint64_t> ipAddressCounts;
  std::vector<uint64_t> gatewayCounts;
  std::vector<uint64_t> dnsServerCounts;
};

/// One connection of the state table. Ports are kept as the core stores them: in network byte
/// order, except for ICMP and ICMPv6 (protocols 1 and 58), whose values are stored as given.
struct ConnectionEntry {
  uint32_t processId = 0;
  uint8_t protocol = 6;
  IpAddress local{};
  IpAddress remote{};
  uint16_t storedLocalPort = 0;
  uint16_t storedRemotePort = 0;
  int32_t state = 0;
  uint32_t left = 0;
  uint32_t right = 0;
  bool outbound = false;
};

/// One opened endpoint; its port is stored as a connection's is.
struct EndpointEntry {
  uint32_t processId = 0;
  uint8_t protocol = 6;
  IpAddress local{};
  uint16_t storedPort = 0;
};

/// One process. Absent texts are null.
struct ProcessEntry {
  uint64_t processId = 0;
  std::optional<std::wstring> path;
  std::optional<std::wstring> caseCorrectPath;
  std::optional<std::wstring> commandArgs;
  std::optional<std::wstring> textSid;
  std::optional<std::wstring> signer;
  std::optional<std::wstring> peDescription;
  bool validated = false;
  bool trusted = false;
  uint8_t md5[16] = {};
};

/// Entries made from a seed, after the listed ones.
struct GeneratedEntries {
  uint64_t count = 0;
  uint64_t seed = 0;
};

/// A table: its listed entries, the generated ones after them, and optionally the answers its
/// count getter gives, one per call (the last one repeats), for a table that changes while it
/// is listed.
template <class Entry>
struct TableScenario {
  std::vector<Entry> entries;
  GeneratedEntries generated;
  std::vector<uint64_t> counts;

  uint64_t size() const { return entries.size() + generated.count; }
};

struct ConnectionsScenario : TableScenario<ConnectionEntry> {
  int64_t bytesSent = 0;
  int64_t bytesReceived = 0;
};

/// One range of the high-priority IP list (blacklist). version is what the core answers when
/// asked for the range's IP version: by default the low end's, but a scenario may give any
/// number. An IPv4 end keeps its address in the first four bytes.
struct BlacklistRange {
  IpAddress low{};
  IpAddress high{};
  int32_t version = 4;
  /// 0xFFFFFFFF: the range never expires.
  uint32_t timeToLive = 0xFFFFFFFF;
  uint32_t timeRemaining = 0;
  bool autoCreate = false;
};

/// The blacklist: the list's log option and its ranges (listed, then generated).
struct BlacklistScenario : TableScenario<BlacklistRange> {
  int32_t logOption = 0;
};

struct RuntimeTables {
  /// Null: the IP configuration hands out no adapter enumerator.
  std::optional<std::vector<AdapterScenario>> adapters = std::vector<AdapterScenario>();
  /// Null: no address enumerator.
  std::optional<std::vector<IpAddress>> addresses = std::vector<IpAddress>();
  ConnectionsScenario connections;
  TableScenario<EndpointEntry> endpoints;
  TableScenario<ProcessEntry> processes;
  BlacklistScenario blacklist;
};

/// The most entries a table may generate.
inline constexpr uint64_t kMaxGeneratedEntries = 1'000'000'000'000;

/// Generated entry index (from 0 among the generated ones) of a table with that seed.
ConnectionEntry GenerateConnection(uint64_t seed, uint64_t index);
EndpointEntry GenerateEndpoint(uint64_t seed, uint64_t index);
ProcessEntry GenerateProcess(uint64_t seed, uint64_t index);
BlacklistRange GenerateBlacklistRange(uint64_t seed, uint64_t index);
/// Generated processes have the identifiers kGeneratedProcessIdBase + 4 * index.
inline constexpr uint64_t kGeneratedProcessIdBase = 100000;
/// The generated index of a process identifier, if generated has one with it.
std::optional<uint64_t> GeneratedProcessIndex(const GeneratedEntries& generated,
                                              uint64_t processId);

/// The port value as the core stores it for protocol: network byte order, or as it is for ICMP.
uint16_t StoredPort(uint8_t protocol, uint16_t port);

struct Scenario;

/// The sections' parsers (see kSections in scenario.cpp): each checks its value at path and
/// fills scenario->tables, or records what was expected with check and returns false.
bool ParseAdapters(JsonChecker& check, const Json& value, const std::string& path,
                   Scenario* scenario);
bool ParseAddresses(JsonChecker& check, const Json& value, const std::string& path,
                    Scenario* scenario);
bool ParseConnections(JsonChecker& check, const Json& value, const std::string& path,
                      Scenario* scenario);
bool ParseEndpoints(JsonChecker& check, const Json& value, const std::string& path,
                    Scenario* scenario);
bool ParseProcesses(JsonChecker& check, const Json& value, const std::string& path,
                    Scenario* scenario);
bool ParseBlacklist(JsonChecker& check, const Json& value, const std::string& path,
                    Scenario* scenario);
/// The sections as a scenario writes them; the parsers above read each back to what it was
/// written from. Generated entries stay a seed and a count, scripted counts a list.
Json AdaptersToJson(const RuntimeTables& tables);
Json AddressesToJson(const RuntimeTables& tables);
Json ConnectionsToJson(const ConnectionsScenario& connections);
Json EndpointsToJson(const TableScenario<EndpointEntry>& endpoints);
Json ProcessesToJson(const TableScenario<ProcessEntry>& processes);
Json BlacklistToJson(const BlacklistScenario& blacklist);

}  // namespace nw::sim
