#include "sim/common/scenario_tables.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <limits>

#include "base/format.h"
#include "base/hex_digit.h"
#include "sim/common/address_text.h"
#include "sim/common/scenario.h"
#include "sim/common/scenario_policies.h"

namespace nw::sim {
namespace {

using Fields = std::initializer_list<std::string_view>;

// Each field reader leaves *out alone when the field is absent.
template <class Reader>
bool Optional(const Json& object, const std::string& path, const char* key, Reader read) {
  auto it = object.find(key);
  return it == object.end() || read(*it, JsonPath(path, key));
}

bool ReadUnsigned(JsonChecker& check, const Json& object, const std::string& path, const char* key,
                  uint64_t max, uint64_t* out) {
  return Optional(object, path, key, [&](const Json& v, const std::string& at) {
    return check.Unsigned(v, at, max, out);
  });
}

template <class T>
bool ReadNumber(JsonChecker& check, const Json& object, const std::string& path, const char* key,
                T* out) {
  uint64_t value = 0;
  if (!ReadUnsigned(check, object, path, key, std::numeric_limits<T>::max(), &value)) return false;
  if (object.contains(key)) *out = static_cast<T>(value);
  return true;
}

// A signed integer of type T.
template <class T>
bool ReadSigned(JsonChecker& check, const Json& object, const std::string& path, const char* key,
                T* out) {
  return Optional(object, path, key, [&](const Json& v, const std::string& at) {
    const bool fits =
        v.is_number_unsigned()
            ? v.get<uint64_t>() <= static_cast<uint64_t>(std::numeric_limits<T>::max())
            : v.is_number_integer() && v.get<int64_t>() >= std::numeric_limits<T>::min();
    if (!fits) {
      return check.Fail(at, "an integer from " + std::to_string(std::numeric_limits<T>::min()) +
                                " to " + std::to_string(std::numeric_limits<T>::max()));
    }
    *out = static_cast<T>(v.get<int64_t>());
    return true;
  });
}

bool ReadBool(JsonChecker& check, const Json& object, const std::string& path, const char* key,
              bool* out) {
  return Optional(object, path, key,
                  [&](const Json& v, const std::string& at) { return check.Bool(v, at, out); });
}

// A text, or null for a getter that returns null.
bool ReadText(JsonChecker& check, const Json& object, const std::string& path, const char* key,
              std::optional<std::wstring>* out) {
  return Optional(object, path, key, [&](const Json& v, const std::string& at) {
    if (v.is_null()) {
      out->reset();
      return true;
    }
    std::wstring text;
    if (!check.WideString(v, at, &text)) return false;
    *out = std::move(text);
    return true;
  });
}

constexpr const char* kAddressExpected =
    "an IPv4 or IPv6 literal, null, or {\"address\": <literal>, \"version\": <integer>}";

// An address: a literal, null (a cleared record, version 0), or an object whose version
// overrides the literal's, to give the core a record of any version.
bool ParseAddress(JsonChecker& check, const Json& v, const std::string& path, IpAddress* out) {
  if (v.is_null()) {
    *out = IpAddress{};
    return true;
  }
  if (v.is_string()) {
    if (!ParseAddressText(v.get<std::string>(), out)) return check.Fail(path, kAddressExpected);
    return true;
  }
  if (!v.is_object()) return check.Fail(path, kAddressExpected);
  if (!check.Object(v, path, {"address", "version"})) return false;
  IpAddress address{};
  auto text = v.find("address");
  if (text != v.end() &&
      (!text->is_string() || !ParseAddressText(text->get<std::string>(), &address))) {
    return check.Fail(JsonPath(path, "address"), "an IPv4 or IPv6 literal");
  }
  if (!ReadNumber(check, v, path, "version", &address.version)) return false;
  *out = address;
  return true;
}

bool ReadAddress(JsonChecker& check, const Json& object, const std::string& path, const char* key,
                 IpAddress* out) {
  return Optional(object, path, key, [&](const Json& v, const std::string& at) {
    return ParseAddress(check, v, at, out);
  });
}

template <class Item, class ParseItem>
bool ParseList(JsonChecker& check, const Json& v, const std::string& path, std::vector<Item>* out,
               ParseItem parseItem) {
  if (!v.is_array()) return check.Fail(path, "a list");
  std::vector<Item> items(v.size());
  for (size_t i = 0; i < v.size(); ++i) {
    if (!parseItem(v[i], JsonPath(path, i), &items[i])) return false;
  }
  *out = std::move(items);
  return true;
}

std::optional<uint8_t> HexByte(char high, char low) {
  const int h = HexDigitValue(high), l = HexDigitValue(low);
  if (h < 0 || l < 0) return std::nullopt;
  return static_cast<uint8_t>(h << 4 | l);
}

// A hardware address: two hex digits a byte, the bytes separated by '-' or ':'; "" is none.
bool ReadHardwareAddress(JsonChecker& check, const Json& object, const std::string& path,
                         const char* key, std::vector<uint8_t>* out) {
  return Optional(object, path, key, [&](const Json& v, const std::string& at) {
    const char* expected = "a hardware address (\"00-1a-2b-3c-4d-5e\", or \"\" for none)";
    if (!v.is_string()) return check.Fail(at, expected);
    const std::string text = v.get<std::string>();
    if (!text.empty() && text.size() % 3 != 2) return check.Fail(at, expected);
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i < text.size(); i += 3) {
      const bool separated = i + 2 == text.size() || text[i + 2] == '-' || text[i + 2] == ':';
      const auto byte = i + 1 < text.size() ? HexByte(text[i], text[i + 1]) : std::nullopt;
      if (!byte || !separated) return check.Fail(at, expected);
      bytes.push_back(*byte);
    }
    *out = std::move(bytes);
    return true;
  });
}

bool ReadMd5(JsonChecker& check, const Json& object, const std::string& path, uint8_t out[16]) {
  return Optional(object, path, "md5", [&](const Json& v, const std::string& at) {
    const char* expected = "an MD5 digest (32 hex digits)";
    if (!v.is_string() || v.get<std::string>().size() != 32) return check.Fail(at, expected);
    const std::string text = v.get<std::string>();
    uint8_t digest[16];
    for (size_t i = 0; i < 16; ++i) {
      const auto byte = HexByte(text[2 * i], text[2 * i + 1]);
      if (!byte) return check.Fail(at, expected);
      digest[i] = *byte;
    }
    std::copy(digest, digest + 16, out);
    return true;
  });
}

bool ParseUnicast(JsonChecker& check, const Json& v, const std::string& path,
                  AdapterScenario::Unicast* out) {
  return check.Object(v, path, {"address", "prefixLength"}) &&
         ReadAddress(check, v, path, "address", &out->address) &&
         ReadNumber(check, v, path, "prefixLength", &out->prefixLength);
}

bool ParseGateway(JsonChecker& check, const Json& v, const std::string& path,
                  AdapterScenario::Gateway* out) {
  return check.Object(v, path, {"address", "physicalAddress"}) &&
         ReadAddress(check, v, path, "address", &out->address) &&
         ReadHardwareAddress(check, v, path, "physicalAddress", &out->physicalAddress);
}

// Scripted answers of a count getter.
bool ParseCounts(JsonChecker& check, const Json& v, const std::string& path,
                 std::vector<uint64_t>* out) {
  return ParseList(
      check, v, path, out, [&](const Json& item, const std::string& itemPath, uint64_t* count) {
        return check.Unsigned(item, itemPath, std::numeric_limits<uint64_t>::max(), count);
      });
}

bool ParseAdapter(JsonChecker& check, const Json& v, const std::string& path,
                  AdapterScenario* out) {
  const Fields fields = {"name",           "description",    "dnsSuffix",        "physicalAddress",
                         "physicalMedium", "interfaceIndex", "interfaceIndexV6", "ipAddresses",
                         "gateways",       "dhcpEnabled",    "dhcpServer",       "dnsServers",
                         "haveWins",       "primaryWins",    "secondaryWins",    "ipAddressCounts",
                         "gatewayCounts",  "dnsServerCounts"};
  auto counts = [&](const char* key, std::vector<uint64_t>* items) {
    return Optional(v, path, key, [&](const Json& value, const std::string& at) {
      return ParseCounts(check, value, at, items);
    });
  };
  auto list = [&](const char* key, auto* items, auto parseItem) {
    return Optional(v, path, key, [&](const Json& value, const std::string& at) {
      return ParseList(check, value, at, items, parseItem);
    });
  };
  return check.Object(v, path, fields) && ReadText(check, v, path, "name", &out->name) &&
         ReadText(check, v, path, "description", &out->description) &&
         ReadText(check, v, path, "dnsSuffix", &out->dnsSuffix) &&
         ReadHardwareAddress(check, v, path, "physicalAddress", &out->physicalAddress) &&
         ReadSigned(check, v, path, "physicalMedium", &out->physicalMedium) &&
         ReadNumber(check, v, path, "interfaceIndex", &out->interfaceIndex) &&
         ReadNumber(check, v, path, "interfaceIndexV6", &out->interfaceIndexV6) &&
         list("ipAddresses", &out->ipAddresses,
              [&](const Json& item, const std::string& at, AdapterScenario::Unicast* unicast) {
                return ParseUnicast(check, item, at, unicast);
              }) &&
         list("gateways", &out->gateways,
              [&](const Json& item, const std::string& at, AdapterScenario::Gateway* gateway) {
                return ParseGateway(check, item, at, gateway);
              }) &&
         ReadBool(check, v, path, "dhcpEnabled", &out->dhcpEnabled) &&
         ReadAddress(check, v, path, "dhcpServer", &out->dhcpServer) &&
         list("dnsServers", &out->dnsServers,
              [&](const Json& item, const std::string& at, IpAddress* address) {
                return ParseAddress(check, item, at, address);
              }) &&
         ReadBool(check, v, path, "haveWins", &out->haveWins) &&
         ReadAddress(check, v, path, "primaryWins", &out->primaryWins) &&
         ReadAddress(check, v, path, "secondaryWins", &out->secondaryWins) &&
         counts("ipAddressCounts", &out->ipAddressCounts) &&
         counts("gatewayCounts", &out->gatewayCounts) &&
         counts("dnsServerCounts", &out->dnsServerCounts);
}

// The port fields of an entry: the port number, stored as the core stores it for protocol.
bool ReadPort(JsonChecker& check, const Json& object, const std::string& path, const char* key,
              uint8_t protocol, uint16_t* stored) {
  uint16_t port = 0;
  if (!ReadNumber(check, object, path, key, &port)) return false;
  *stored = StoredPort(protocol, port);
  return true;
}

bool ParseConnection(JsonChecker& check, const Json& v, const std::string& path,
                     ConnectionEntry* out) {
  const Fields fields = {"pid",        "protocol", "local", "localPort", "remote",
                         "remotePort", "state",    "left",  "right",     "outbound"};
  return check.Object(v, path, fields) && ReadNumber(check, v, path, "pid", &out->processId) &&
         ReadNumber(check, v, path, "protocol", &out->protocol) &&
         ReadAddress(check, v, path, "local", &out->local) &&
         ReadPort(check, v, path, "localPort", out->protocol, &out->storedLocalPort) &&
         ReadAddress(check, v, path, "remote", &out->remote) &&
         ReadPort(check, v, path, "remotePort", out->protocol, &out->storedRemotePort) &&
         ReadSigned(check, v, path, "state", &out->state) &&
         ReadNumber(check, v, path, "left", &out->left) &&
         ReadNumber(check, v, path, "right", &out->right) &&
         ReadBool(check, v, path, "outbound", &out->outbound);
}

bool ParseEndpoint(JsonChecker& check, const Json& v, const std::string& path, EndpointEntry* out) {
  return check.Object(v, path, {"pid", "protocol", "local", "port"}) &&
         ReadNumber(check, v, path, "pid", &out->processId) &&
         ReadNumber(check, v, path, "protocol", &out->protocol) &&
         ReadAddress(check, v, path, "local", &out->local) &&
         ReadPort(check, v, path, "port", out->protocol, &out->storedPort);
}

bool ParseProcess(JsonChecker& check, const Json& v, const std::string& path, ProcessEntry* out) {
  const Fields fields = {"pid",    "path",          "caseCorrectPath", "commandArgs", "textSid",
                         "signer", "peDescription", "validated",       "trusted",     "md5"};
  return check.Object(v, path, fields) && ReadNumber(check, v, path, "pid", &out->processId) &&
         ReadText(check, v, path, "path", &out->path) &&
         ReadText(check, v, path, "caseCorrectPath", &out->caseCorrectPath) &&
         ReadText(check, v, path, "commandArgs", &out->commandArgs) &&
         ReadText(check, v, path, "textSid", &out->textSid) &&
         ReadText(check, v, path, "signer", &out->signer) &&
         ReadText(check, v, path, "peDescription", &out->peDescription) &&
         ReadBool(check, v, path, "validated", &out->validated) &&
         ReadBool(check, v, path, "trusted", &out->trusted) && ReadMd5(check, v, path, out->md5);
}

bool ParseBlacklistRange(JsonChecker& check, const Json& v, const std::string& path,
                         BlacklistRange* out) {
  const Fields fields = {"low", "high", "version", "ttl", "remaining", "autoCreate"};
  if (!check.Object(v, path, fields) || !ReadAddress(check, v, path, "low", &out->low) ||
      !ReadAddress(check, v, path, "high", &out->high)) {
    return false;
  }
  out->version = static_cast<int32_t>(out->low.version);
  return ReadSigned(check, v, path, "version", &out->version) &&
         ReadNumber(check, v, path, "ttl", &out->timeToLive) &&
         ReadNumber(check, v, path, "remaining", &out->timeRemaining) &&
         ReadBool(check, v, path, "autoCreate", &out->autoCreate);
}

// What every big table has: its entries, the generated ones and the scripted counts.
template <class Entry, class ParseEntry>
bool ParseTable(JsonChecker& check, const Json& v, const std::string& path,
                TableScenario<Entry>* out, ParseEntry parseEntry) {
  auto entries = [&](const Json& value, const std::string& at) {
    return ParseList(check, value, at, &out->entries,
                     [&](const Json& item, const std::string& itemPath, Entry* entry) {
                       return parseEntry(check, item, itemPath, entry);
                     });
  };
  auto generate = [&](const Json& value, const std::string& at) {
    return check.Object(value, at, {"count", "seed"}) &&
           ReadUnsigned(check, value, at, "count", kMaxGeneratedEntries, &out->generated.count) &&
           ReadUnsigned(check, value, at, "seed", std::numeric_limits<uint64_t>::max(),
                        &out->generated.seed);
  };
  auto counts = [&](const Json& value, const std::string& at) {
    return ParseCounts(check, value, at, &out->counts);
  };
  return Optional(v, path, "entries", entries) && Optional(v, path, "generate", generate) &&
         Optional(v, path, "counts", counts);
}

}  // namespace

bool ParseAdapters(JsonChecker& check, const Json& v, const std::string& path, Scenario* s) {
  if (v.is_null()) {
    s->tables.adapters.reset();
    return true;
  }
  std::vector<AdapterScenario> adapters;
  if (!ParseList(check, v, path, &adapters,
                 [&](const Json& item, const std::string& at, AdapterScenario* adapter) {
                   return ParseAdapter(check, item, at, adapter);
                 })) {
    return false;
  }
  s->tables.adapters = std::move(adapters);
  return true;
}

bool ParseAddresses(JsonChecker& check, const Json& v, const std::string& path, Scenario* s) {
  if (v.is_null()) {
    s->tables.addresses.reset();
    return true;
  }
  std::vector<IpAddress> addresses;
  if (!ParseList(check, v, path, &addresses,
                 [&](const Json& item, const std::string& at, IpAddress* address) {
                   return ParseAddress(check, item, at, address);
                 })) {
    return false;
  }
  s->tables.addresses = std::move(addresses);
  return true;
}

bool ParseConnections(JsonChecker& check, const Json& v, const std::string& path, Scenario* s) {
  ConnectionsScenario& table = s->tables.connections;
  return check.Object(v, path, {"bytesSent", "bytesReceived", "entries", "generate", "counts"}) &&
         ReadSigned(check, v, path, "bytesSent", &table.bytesSent) &&
         ReadSigned(check, v, path, "bytesReceived", &table.bytesReceived) &&
         ParseTable(check, v, path, static_cast<TableScenario<ConnectionEntry>*>(&table),
                    ParseConnection);
}

bool ParseEndpoints(JsonChecker& check, const Json& v, const std::string& path, Scenario* s) {
  return check.Object(v, path, {"entries", "generate", "counts"}) &&
         ParseTable(check, v, path, &s->tables.endpoints, ParseEndpoint);
}

bool ParseProcesses(JsonChecker& check, const Json& v, const std::string& path, Scenario* s) {
  return check.Object(v, path, {"entries", "generate", "counts"}) &&
         ParseTable(check, v, path, &s->tables.processes, ParseProcess);
}

bool ParseBlacklist(JsonChecker& check, const Json& v, const std::string& path, Scenario* s) {
  BlacklistScenario& blacklist = s->tables.blacklist;
  return check.Object(v, path, {"logOption", "entries", "generate", "counts"}) &&
         Optional(v, path, "logOption",
                  [&](const Json& value, const std::string& at) {
                    return check.Any32(value, at, &blacklist.logOption);
                  }) &&
         ParseTable(check, v, path, static_cast<TableScenario<BlacklistRange>*>(&blacklist),
                    ParseBlacklistRange);
}

// ---- Writing --------------------------------------------------------------------------------

namespace {

// An address as ParseAddress reads it back: null for a cleared record, a literal, or for a
// record a literal cannot say (another version, bytes past an IPv4 address) its sixteen bytes
// as an IPv6 literal with the version the record claims.
Json TableAddressToJson(const IpAddress& address) {
  const bool zero =
      std::all_of(address.bytes, address.bytes + 16, [](uint8_t b) { return b == 0; });
  if (address.version == 0 && zero) return nullptr;
  const bool plainIpv4 = address.version == 4 && std::all_of(address.bytes + 4, address.bytes + 16,
                                                             [](uint8_t b) { return b == 0; });
  if (plainIpv4 || address.version == 6) return AddressToJson(address);
  IpAddress bytes = address;
  bytes.version = 6;
  return Json{{"address", AddressToJson(bytes)}, {"version", address.version}};
}

Json TextToJson(const std::optional<std::wstring>& text) {
  return text ? Json(WideToUtf8(*text)) : Json();
}

Json HexBytes(const uint8_t* bytes, size_t count, const char* separator) {
  std::string text;
  char digits[3];
  for (size_t i = 0; i < count; ++i) {
    if (i != 0) text += separator;
    std::snprintf(digits, sizeof digits, "%02x", bytes[i]);
    text += digits;
  }
  return text;
}

// The port a scenario writes: StoredPort undone.
uint16_t PortOf(uint8_t protocol, uint16_t stored) {
  if (protocol == 1 || protocol == 58) return stored;
  uint8_t bytes[2];
  std::memcpy(bytes, &stored, sizeof bytes);
  return static_cast<uint16_t>(bytes[0] << 8 | bytes[1]);
}

// The listed entries, the generated ones and the scripted counts of a table section.
template <class Entry, class EntryToJson>
void TableToJson(const TableScenario<Entry>& table, EntryToJson entryToJson, Json* section) {
  Json entries = Json::array();
  for (const Entry& entry : table.entries) entries.push_back(entryToJson(entry));
  (*section)["entries"] = std::move(entries);
  if (table.generated.count != 0) {
    (*section)["generate"] = Json{{"count", table.generated.count}, {"seed", table.generated.seed}};
  }
  if (!table.counts.empty()) (*section)["counts"] = table.counts;
}

Json AdapterToJson(const AdapterScenario& adapter) {
  Json j = Json::object();
  j["name"] = TextToJson(adapter.name);
  j["description"] = TextToJson(adapter.description);
  j["dnsSuffix"] = TextToJson(adapter.dnsSuffix);
  j["physicalAddress"] =
      HexBytes(adapter.physicalAddress.data(), adapter.physicalAddress.size(), "-");
  j["physicalMedium"] = adapter.physicalMedium;
  j["interfaceIndex"] = adapter.interfaceIndex;
  j["interfaceIndexV6"] = adapter.interfaceIndexV6;
  Json unicast = Json::array();
  for (const auto& u : adapter.ipAddresses) {
    unicast.push_back(
        Json{{"address", TableAddressToJson(u.address)}, {"prefixLength", u.prefixLength}});
  }
  j["ipAddresses"] = std::move(unicast);
  Json gateways = Json::array();
  for (const auto& g : adapter.gateways) {
    gateways.push_back(Json{
        {"address", TableAddressToJson(g.address)},
        {"physicalAddress", HexBytes(g.physicalAddress.data(), g.physicalAddress.size(), "-")}});
  }
  j["gateways"] = std::move(gateways);
  j["dhcpEnabled"] = adapter.dhcpEnabled;
  j["dhcpServer"] = TableAddressToJson(adapter.dhcpServer);
  Json dns = Json::array();
  for (const IpAddress& server : adapter.dnsServers) dns.push_back(TableAddressToJson(server));
  j["dnsServers"] = std::move(dns);
  j["haveWins"] = adapter.haveWins;
  j["primaryWins"] = TableAddressToJson(adapter.primaryWins);
  j["secondaryWins"] = TableAddressToJson(adapter.secondaryWins);
  if (!adapter.ipAddressCounts.empty()) j["ipAddressCounts"] = adapter.ipAddressCounts;
  if (!adapter.gatewayCounts.empty()) j["gatewayCounts"] = adapter.gatewayCounts;
  if (!adapter.dnsServerCounts.empty()) j["dnsServerCounts"] = adapter.dnsServerCounts;
  return j;
}

Json ConnectionToJson(const ConnectionEntry& e) {
  return Json{{"pid", e.processId},
              {"protocol", e.protocol},
              {"local", TableAddressToJson(e.local)},
              {"localPort", PortOf(e.protocol, e.storedLocalPort)},
              {"remote", TableAddressToJson(e.remote)},
              {"remotePort", PortOf(e.protocol, e.storedRemotePort)},
              {"state", e.state},
              {"left", e.left},
              {"right", e.right},
              {"outbound", e.outbound}};
}

Json EndpointToJson(const EndpointEntry& e) {
  return Json{{"pid", e.processId},
              {"protocol", e.protocol},
              {"local", TableAddressToJson(e.local)},
              {"port", PortOf(e.protocol, e.storedPort)}};
}

Json ProcessToJson(const ProcessEntry& p) {
  return Json{{"pid", p.processId},
              {"path", TextToJson(p.path)},
              {"caseCorrectPath", TextToJson(p.caseCorrectPath)},
              {"commandArgs", TextToJson(p.commandArgs)},
              {"textSid", TextToJson(p.textSid)},
              {"signer", TextToJson(p.signer)},
              {"peDescription", TextToJson(p.peDescription)},
              {"validated", p.validated},
              {"trusted", p.trusted},
              {"md5", HexBytes(p.md5, 16, "")}};
}

Json BlacklistRangeToJson(const BlacklistRange& range) {
  Json entry = Json::object();
  entry["low"] = TableAddressToJson(range.low);
  entry["high"] = TableAddressToJson(range.high);
  if (range.version != static_cast<int32_t>(range.low.version)) entry["version"] = range.version;
  entry["ttl"] = range.timeToLive;
  entry["remaining"] = range.timeRemaining;
  entry["autoCreate"] = range.autoCreate;
  return entry;
}

}  // namespace

Json AdaptersToJson(const RuntimeTables& tables) {
  if (!tables.adapters) return nullptr;
  Json list = Json::array();
  for (const AdapterScenario& adapter : *tables.adapters) list.push_back(AdapterToJson(adapter));
  return list;
}

Json AddressesToJson(const RuntimeTables& tables) {
  if (!tables.addresses) return nullptr;
  Json list = Json::array();
  for (const IpAddress& address : *tables.addresses) list.push_back(TableAddressToJson(address));
  return list;
}

Json ConnectionsToJson(const ConnectionsScenario& connections) {
  Json section =
      Json{{"bytesSent", connections.bytesSent}, {"bytesReceived", connections.bytesReceived}};
  TableToJson(connections, ConnectionToJson, &section);
  return section;
}

Json EndpointsToJson(const TableScenario<EndpointEntry>& endpoints) {
  Json section = Json::object();
  TableToJson(endpoints, EndpointToJson, &section);
  return section;
}

Json ProcessesToJson(const TableScenario<ProcessEntry>& processes) {
  Json section = Json::object();
  TableToJson(processes, ProcessToJson, &section);
  return section;
}

Json BlacklistToJson(const BlacklistScenario& blacklist) {
  Json section = Json{{"logOption", blacklist.logOption}};
  TableToJson(blacklist, BlacklistRangeToJson, &section);
  return section;
}

uint16_t StoredPort(uint8_t protocol, uint16_t port) {
  if (protocol == 1 || protocol == 58) return port;
  const uint8_t bytes[2] = {static_cast<uint8_t>(port >> 8), static_cast<uint8_t>(port & 0xFF)};
  uint16_t stored;
  std::memcpy(&stored, bytes, sizeof stored);
  return stored;
}

}  // namespace nw::sim
