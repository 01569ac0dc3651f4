#include "sim/common/scenario.h"

#include <exception>
#include <iterator>
#include <limits>

#include "base/format.h"

namespace nw::sim {
namespace {

// What may follow "name:" in a fault entry.
enum class FaultItem {
  kNone,
  kRequestCode,   // a driver request code in decimal
  kAddressIndex,  // the place of an address in the scenario's "addresses", from 0, in decimal
  kProcessId,     // a process identifier in decimal
  kPolicyType,    // a policy type in decimal
  kPolicy,        // a policy's identifier
  kTerm,          // "<policy uid>/<rule or aggregate uid>/<match index>/<term index>"
};

struct FaultOperation {
  std::string_view interfaceName;
  std::string_view name;
  FaultItem item = FaultItem::kNone;
};

constexpr std::string_view kConfigBuilder = "IGlobalConfigBuilder";

// Every operation a scenario can make fail, with the interface it belongs to. A fault entry
// names the operation alone (every interface's) or as "<interface>::<operation>". Later
// operations add a line here.
constexpr FaultOperation kFaultOperations[] = {
    {"IRegisterPointProduct", "Register"},
    {"IRegisterPointProduct", "Unregister"},
    {"IControl", "GetPolicyManager"},
    {"IControl", "GetHighPriorityIpListControl"},
    {"IControl", "GetGlobalConfigBuilder"},
    {"IControl", "GetGlobalConfigAndStateInfo"},
    {"IGlobalConfigAndStateInfo", "Refresh"},
    {kConfigBuilder, "Refresh"},
    {kConfigBuilder, "ResetToDefaults"},
    {kConfigBuilder, "Apply"},
    {kConfigBuilder, "SetMaxKernelLogQueueSize"},
    {kConfigBuilder, "SetMaxPointProductReplyTime"},
    {kConfigBuilder, "SetPassthruMode"},
    {kConfigBuilder, "SetGlobalPassthruMode"},
    {kConfigBuilder, "SetTraceLogMask"},
    {kConfigBuilder, "EnableTrafficLog"},
    {kConfigBuilder, "SetMaxTrafficLogSize"},
    {kConfigBuilder, "SetStateTableGcPeriod"},
    {kConfigBuilder, "SetStateTableTcpTimeout"},
    {kConfigBuilder, "SetStateTableUdpTimeout"},
    {kConfigBuilder, "SetStateTableForcedTcpTimeout"},
    {kConfigBuilder, "SetLogThrottle"},
    {kConfigBuilder, "SetTrackForwardedConnections"},
    {kConfigBuilder, "SetMaxStateTableSize"},
    {kConfigBuilder, "SetStateTableTcpConnRemovalTimeOut"},
    {kConfigBuilder, "SetConnectionThrottleBurstThreshold"},
    {kConfigBuilder, "SetConnectionThrottleMaxConnectionsRate"},
    {"", "DrvLinkConnectAsync"},  // library exports: no interface to qualify them
    {"", "DrvLinkConnect"},
    {"IDriverLinkConnector", "ConnectToContentDriver"},
    {"IDriverLink", "SendControlRequest", FaultItem::kRequestCode},
    {"IControl", "GetIpConfigChanged"},
    {"IControl", "GetConnectionTable"},
    {"IControl", "GetOpenedEndpointTable"},
    {"IControl", "GetActiveProcesses"},
    {"IAddressInfo", "GetAddress", FaultItem::kAddressIndex},
    {"IConnectionTable", "Refresh"},
    {"IOpenedEndpointTable", "Refresh"},
    {"IActiveProcesses", "RefreshProcessIdList"},
    {"IActiveProcesses", "QueryProcessInfo", FaultItem::kProcessId},
    {"IHighPriorityIpListControl", "GetExistingLogOption"},
    {"IHighPriorityIpListControl", "GetExistingList"},
    {"IHighPriorityIpListControl", "SetLogOption"},
    {"IHighPriorityIpListControl", "GetListBuilder"},
    {"IHighPriorityIpListControl", "AppendList"},
    {"IHighPriorityIpListControl", "DeleteList"},
    {"IHighPriorityIpListControl", "SetNewList"},
    {"IIpRangeList", "AddIpV4Range"},
    {"IIpRangeList", "AddIpV6Range"},
    {"IPolicyManager", "GetPolicyBuilder"},
    {"IPolicyManager", "GetRuleBuilder"},
    {"IPolicyManager", "GetAggregateMatchBuilder"},
    {"IPolicyManager", "AddPolicy"},
    {"IPolicyBuilder", "Reset"},
    {"IPolicyBuilder", "SetStickyAndBootTime"},
    {"IPolicyBuilder", "SetStateful"},
    {"IPolicyBuilder", "Create"},
    {"IPolicyBuilder", "SetName"},
    {"IPolicyBuilder", "AddGroup"},
    {"IPolicyBuilder", "AddAggregateMatch"},
    {"IPolicyBuilder", "AddRuleToGroup"},
    {"IPolicyBuilder", "SetDefaultAction"},
    {"IRuleBuilder", "Reset"},
    {"IRuleBuilder", "Create"},
    {"IRuleBuilder", "SetName"},
    {"IRuleBuilder", "SetEnabled"},
    {"IRuleBuilder", "SetAction"},
    {"IRuleBuilder", "SetRedirectAction"},
    {"IRuleBuilder", "SetLogOption"},
    {"IRuleBuilder", "SetHotDropIfNotMatch"},
    {"IRuleBuilder", "SetInvertMatch"},
    {"IRuleBuilder", "SetTeredoRule"},
    {"IRuleBuilder", "GetMatchBuilder"},
    {"IAggregateMatchBuilder", "GetMatchBuilder"},
    {"IRuleBuilder", "SetLogThrottle"},
    {"IAggregateMatchBuilder", "SetBoolOp"},
    {"IAggregateMatchBuilder", "SetFriendlyName"},
    {"IMatchBuilder", "AddUserIDMatch"},
    {"IMatchBuilder", "AddAppPathMatch"},
    {"IMatchBuilder", "AddCommandLineParamsMatch"},
    {"IMatchBuilder", "AddHashSumMatch"},
    {"IMatchBuilder", "AddAppDigitalSignerMatch"},
    {"IMatchBuilder", "AddLocalPortMatch"},
    {"IMatchBuilder", "AddLocalPortRangeMatch"},
    {"IMatchBuilder", "AddIcmpV4TypeMatch"},
    {"IMatchBuilder", "AddIcmpV6TypeMatch"},
    {"IMatchBuilder", "AddTcpFlagsMatch"},
    {"IMatchBuilder", "AddConnectionStateMatch"},
    {"IMatchBuilder", "AddIpProtocolMatch"},
    {"IMatchBuilder", "AddLocalIpAddressMatch"},
    {"IMatchBuilder", "AddLocalIpAddressRangeMatch"},
    {"IMatchBuilder", "AddLocalIpAddressPrefixMatch"},
    {"IMatchBuilder", "AddLocalDomainNameMatch"},
    {"IMatchBuilder", "AddNetworkLayerProtocolMatch"},
    {"IMatchBuilder", "AddMacAddrMatch"},
    {"IMatchBuilder", "AddMacAddrRangeMatch"},
    {"IMatchBuilder", "AddPhysicalMediumMatch"},
    {"IMatchBuilder", "AddDirectionMatch"},
    {"IMatchBuilder", "AddInterfaceIndexV6Match"},
    {"IMatchBuilder", "AddInterfaceIndexV6RangeMatch"},
    {"IMatchBuilder", "AddInterfaceIndexV4Match"},
    {"IMatchBuilder", "AddInterfaceIndexV4RangeMatch"},
    {"IMatchBuilder", "AddInterfaceIndexMatch"},
    {"IMatchBuilder", "AddInterfaceIndexRangeMatch"},
    {"IMatchBuilder", "AddConnectionBytesSentMatch"},
    {"IMatchBuilder", "AddConnectionBytesReceivedMatch"},
    {"IMatchBuilder", "AddConnectionSpecificDnsSuffixMatch"},
    {"IMatchBuilder", "AddProcessIdMatch"},
    {"IMatchBuilder", "AddPeFileDescriptionMatch"},
    {"IMatchBuilder", "AddStandardizedAppPathMatch"},
    {"IMatchBuilder", "AddHttpServerMatch"},
    {"IMatchBuilder", "AddVtpPrivilegesMatch"},
    {"IMatchBuilder", "AddAggregateMatch"},
    {"IPolicyManager", "GetExistingPolicy", FaultItem::kPolicy},
    {"IPolicyManager", "GetExistingPolicyList", FaultItem::kPolicyType},
    {"IPolicyManager", "DeletePolicy", FaultItem::kPolicy},
    {"IPolicy", "SetIterationMode", FaultItem::kPolicy},
    {"IPolicy", "EnterAggregateMatch", FaultItem::kPolicy},
    {"IPolicy", "LeaveAggregateMatch", FaultItem::kPolicy},
    {"IPolicy", "AdvanceIteration", FaultItem::kPolicy},
    {"IMatchTerms", "GetUint8", FaultItem::kTerm},
    {"IMatchTerms", "GetUint16", FaultItem::kTerm},
    {"IMatchTerms", "GetUint32", FaultItem::kTerm},
    {"IMatchTerms", "GetUint64", FaultItem::kTerm},
    {"IMatchTerms", "GetUint16Range", FaultItem::kTerm},
    {"IMatchTerms", "GetUint64Range", FaultItem::kTerm},
    {"IMatchTerms", "GetUint8Array", FaultItem::kTerm},
    {"IMatchTerms", "GetAggregateUid", FaultItem::kTerm},
    {"IMatchTerms", "GetString", FaultItem::kTerm},
    {"IMatchTerms", "GetIpAddress", FaultItem::kTerm},
    {"IMatchTerms", "GetIpAddressRange", FaultItem::kTerm},
    {"IMatchTerms", "GetIpMask", FaultItem::kTerm},
};

// The settings of the "config" section, in the order a scenario writes them: each is a number
// or a switch.
struct Setting {
  const char* name;
  uint32_t GlobalSettings::*number;
  bool GlobalSettings::*flag;
};

constexpr Setting kSettings[] = {
    {"maxKernelLogQueueSize", &GlobalSettings::maxKernelLogQueueSize, nullptr},
    {"maxPointProductReplyTime", &GlobalSettings::maxPointProductReplyTime, nullptr},
    {"globalPassthru", nullptr, &GlobalSettings::globalPassthru},
    {"packetPassthru", nullptr, &GlobalSettings::packetPassthru},
    {"streamPassthru", nullptr, &GlobalSettings::streamPassthru},
    {"traceLogMask", &GlobalSettings::traceLogMask, nullptr},
    {"trafficLog", nullptr, &GlobalSettings::trafficLog},
    {"maxTrafficLogSize", &GlobalSettings::maxTrafficLogSize, nullptr},
    {"maxStateTableSize", &GlobalSettings::maxStateTableSize, nullptr},
    {"stateTableGcPeriod", &GlobalSettings::stateTableGcPeriod, nullptr},
    {"stateTableTcpTimeout", &GlobalSettings::stateTableTcpTimeout, nullptr},
    {"stateTableUdpTimeout", &GlobalSettings::stateTableUdpTimeout, nullptr},
    {"stateTableForcedTcpTimeout", &GlobalSettings::stateTableForcedTcpTimeout, nullptr},
    {"logThrottle", &GlobalSettings::logThrottle, nullptr},
    {"trackForwardedConnections", nullptr, &GlobalSettings::trackForwardedConnections},
    {"stateTableTcpConnRemovalTimeout", &GlobalSettings::stateTableTcpConnRemovalTimeout, nullptr},
    {"connectionThrottleBurstThreshold", &GlobalSettings::connectionThrottleBurstThreshold,
     nullptr},
    {"connectionThrottleMaxConnectionsRate", &GlobalSettings::connectionThrottleMaxConnectionsRate,
     nullptr},
};

bool OptionalBool(JsonChecker& check, const Json& object, const std::string& path, const char* key,
                  bool* out) {
  auto it = object.find(key);
  return it == object.end() || check.Bool(*it, JsonPath(path, key), out);
}

bool ParseService(JsonChecker& check, const Json& v, const std::string& path, Scenario* s) {
  return check.Object(v, path, {"running"}) &&
         OptionalBool(check, v, path, "running", &s->service.running);
}

// "calls": true, false, or the names of the interfaces whose calls are traced.
bool ParseCalls(JsonChecker& check, const Json& v, const std::string& path, DebugOptions* debug) {
  if (v.is_boolean()) {
    debug->calls = v.get<bool>();
    return true;
  }
  const char* expected = "true, false or a list of interface names (\"IProcessInfo\", ...)";
  if (!v.is_array() || v.empty()) return check.Fail(path, expected);
  for (size_t i = 0; i < v.size(); ++i) {
    std::string name;
    if (!v[i].is_string() || (name = v[i].get<std::string>()).empty() || name[0] != 'I') {
      return check.Fail(JsonPath(path, i), "an interface name (\"IProcessInfo\", ...)");
    }
    debug->callInterfaces.push_back(std::move(name));
  }
  debug->calls = true;
  return true;
}

bool ParseDebug(JsonChecker& check, const Json& v, const std::string& path, Scenario* s) {
  return check.Object(v, path, {"trace", "reportLeaks", "calls"}) &&
         OptionalBool(check, v, path, "trace", &s->debug.trace) &&
         OptionalBool(check, v, path, "reportLeaks", &s->debug.reportLeaks) &&
         (!v.contains("calls") ||
          ParseCalls(check, v["calls"], JsonPath(path, "calls"), &s->debug));
}

bool ParseDriverLink(JsonChecker& check, const Json& v, const std::string& path, Scenario* s) {
  return check.Object(v, path, {"driverRunning", "profiler", "profile"}) &&
         OptionalBool(check, v, path, "driverRunning", &s->driverLink.driverRunning) &&
         OptionalBool(check, v, path, "profiler", &s->driverLink.profiler) &&
         (!v.contains("profile") ||
          ParseDriverProfile(check, v["profile"], JsonPath(path, "profile"),
                             &s->driverLink.profile));
}

bool ParseVersion(JsonChecker& check, const Json& object, const std::string& path, const char* key,
                  std::optional<std::wstring>* out) {
  auto it = object.find(key);
  if (it == object.end()) return true;
  if (it->is_null()) {
    out->reset();
    return true;
  }
  std::wstring text;
  if (!check.WideString(*it, JsonPath(path, key), &text)) return false;
  *out = std::move(text);
  return true;
}

bool ParseVersions(JsonChecker& check, const Json& v, const std::string& path, Scenario* s) {
  return check.Object(v, path, {"service", "engine", "controlLibrary"}) &&
         ParseVersion(check, v, path, "service", &s->versions.service) &&
         ParseVersion(check, v, path, "engine", &s->versions.engine) &&
         ParseVersion(check, v, path, "controlLibrary", &s->versions.controlLibrary);
}

bool ParseHooks(JsonChecker& check, const Json& v, const std::string& path, Scenario* s) {
  return check.Object(v, path, {"fragment", "packet", "forward", "stream"}) &&
         OptionalBool(check, v, path, "fragment", &s->hooks.fragment) &&
         OptionalBool(check, v, path, "packet", &s->hooks.packet) &&
         OptionalBool(check, v, path, "forward", &s->hooks.forward) &&
         OptionalBool(check, v, path, "stream", &s->hooks.stream);
}

bool ParseSetting(JsonChecker& check, const Setting& setting, const Json& v,
                  const std::string& path, GlobalSettings* out) {
  if (setting.flag != nullptr) return check.Bool(v, path, &(out->*setting.flag));
  uint64_t value = 0;
  if (!check.Unsigned(v, path, std::numeric_limits<uint32_t>::max(), &value)) return false;
  out->*setting.number = static_cast<uint32_t>(value);
  return true;
}

bool ParseConfig(JsonChecker& check, const Json& v, const std::string& path, Scenario* s) {
  if (!check.Object(v, path)) return false;
  for (const auto& item : v.items()) {
    const std::string itemPath = JsonPath(path, item.key());
    const Setting* setting = nullptr;
    for (const Setting& candidate : kSettings) {
      if (item.key() == candidate.name) setting = &candidate;
    }
    if (setting == nullptr) {
      std::string names;
      for (const Setting& known : kSettings) {
        names += (names.empty() ? "" : ", ") + std::string(known.name);
      }
      return check.Fail(itemPath, "one of the known settings (" + names + ")");
    }
    if (!ParseSetting(check, *setting, item.value(), itemPath, &s->config)) return false;
  }
  return true;
}

// A number as a fault key carries it: plain decimal, no sign or leading zero, so that one
// number has one spelling and the lookup finds it.
bool IsDecimal(std::string_view text, uint64_t max) {
  if (text.empty() || text.size() > 20 || (text.size() > 1 && text[0] == '0')) return false;
  uint64_t value = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
    const auto digit = static_cast<uint64_t>(c - '0');
    if (value > (max - digit) / 10) return false;
    value = value * 10 + digit;
  }
  return true;
}

bool IsPolicyItem(std::string_view text) {
  Guid uid;
  return ParseGuidText(text, &uid);
}

bool IsTermItem(std::string_view text) {
  std::string_view parts[4];
  for (int i = 0; i < 3; ++i) {
    const size_t slash = text.find('/');
    if (slash == std::string_view::npos) return false;
    parts[i] = text.substr(0, slash);
    text.remove_prefix(slash + 1);
  }
  parts[3] = text;
  const uint64_t max = std::numeric_limits<uint32_t>::max();
  return IsPolicyItem(parts[0]) && IsPolicyItem(parts[1]) && IsDecimal(parts[2], max) &&
         IsDecimal(parts[3], max);
}

bool IsItem(FaultItem kind, std::string_view text) {
  switch (kind) {
    case FaultItem::kNone:
      return false;
    case FaultItem::kRequestCode:
      return IsDecimal(text, std::numeric_limits<uint32_t>::max());
    case FaultItem::kAddressIndex:
    case FaultItem::kProcessId:
      return IsDecimal(text, std::numeric_limits<uint64_t>::max());
    case FaultItem::kPolicyType:
      return IsDecimal(text, std::numeric_limits<int32_t>::max());
    case FaultItem::kPolicy:
      return IsPolicyItem(text);
    case FaultItem::kTerm:
      return IsTermItem(text);
  }
  return false;
}

const char* ItemPlaceholder(FaultItem kind) {
  switch (kind) {
    case FaultItem::kRequestCode:
      return "<code>";
    case FaultItem::kAddressIndex:
      return "<index>";
    case FaultItem::kProcessId:
      return "<pid>";
    case FaultItem::kPolicyType:
      return "<policy type>";
    case FaultItem::kPolicy:
      return "<policy uid>";
    case FaultItem::kTerm:
      return "<policy uid>/<rule or aggregate uid>/<match>/<term>";
    case FaultItem::kNone:
      break;
  }
  return "";
}

constexpr std::string_view kQualifier = "::";

bool IsKnownFault(std::string_view key) {
  std::string_view interfaceName;
  const size_t qualifier = key.find(kQualifier);
  if (qualifier != std::string_view::npos) {
    interfaceName = key.substr(0, qualifier);
    if (interfaceName.empty()) return false;  // "::Refresh" would never be looked up
    key.remove_prefix(qualifier + kQualifier.size());
  }
  const size_t colon = key.find(':');
  const std::string_view name = key.substr(0, colon);
  for (const FaultOperation& op : kFaultOperations) {
    if (op.name != name || (!interfaceName.empty() && op.interfaceName != interfaceName)) continue;
    if (colon == std::string_view::npos) return true;
    return IsItem(op.item, key.substr(colon + 1));
  }
  return false;
}

std::string KnownFaultsText() {
  std::string names;
  for (size_t i = 0; i < std::size(kFaultOperations); ++i) {
    const FaultOperation& op = kFaultOperations[i];
    bool seen = false;  // Refresh belongs to several interfaces
    for (size_t j = 0; j < i; ++j) seen = seen || kFaultOperations[j].name == op.name;
    if (!seen) names += (names.empty() ? "" : ", ") + std::string(op.name);
  }
  names += "; any of them as <interface>::<operation>";
  // The operations that take an item, grouped by the item's form.
  for (FaultItem kind : {FaultItem::kRequestCode, FaultItem::kAddressIndex, FaultItem::kProcessId,
                         FaultItem::kPolicyType, FaultItem::kPolicy, FaultItem::kTerm}) {
    std::string group;
    for (const FaultOperation& op : kFaultOperations) {
      if (op.item == kind) group += (group.empty() ? "" : ", ") + std::string(op.name);
    }
    if (!group.empty()) names += "; " + group + " as <operation>:" + ItemPlaceholder(kind);
  }
  return names;
}

bool ParseFaults(JsonChecker& check, const Json& v, const std::string& path, Scenario* s) {
  if (!check.Object(v, path)) return false;
  for (const auto& item : v.items()) {
    const std::string itemPath = JsonPath(path, item.key());
    if (!IsKnownFault(item.key())) {
      return check.Fail(itemPath, "a known operation (" + KnownFaultsText() + ")");
    }
    FaultRules rules;
    if (!ParseFaultRules(check, item.value(), itemPath, &rules)) return false;
    s->faults[item.key()] = std::move(rules);
  }
  return true;
}

bool ParsePolicySection(JsonChecker& check, const Json& v, const std::string& path, Scenario* s) {
  return ParsePolicies(check, v, path, &s->policies);
}

bool ParseCapture(JsonChecker& check, const Json& v, const std::string& path, Scenario* s) {
  if (!check.Object(v, path, {"notes"})) return false;
  auto notes = v.find("notes");
  if (notes == v.end()) return true;
  const std::string at = JsonPath(path, "notes");
  if (!notes->is_array()) return check.Fail(at, "a list of texts");
  for (size_t i = 0; i < notes->size(); ++i) {
    if (!(*notes)[i].is_string()) return check.Fail(JsonPath(at, i), "a text");
    s->captureNotes.push_back((*notes)[i].get<std::string>());
  }
  return true;
}

using SectionParser = bool (*)(JsonChecker& check, const Json& value, const std::string& path,
                               Scenario* scenario);

struct Section {
  const char* name;
  SectionParser parse;
};

// The top-level fields of a scenario, checked in this order. A new section is one line here.
constexpr Section kSections[] = {
    {"service", ParseService},
    {"faults", ParseFaults},
    {"debug", ParseDebug},
    {"driverLink", ParseDriverLink},
    {"versions", ParseVersions},
    {"hooks", ParseHooks},
    {"config", ParseConfig},
    {"adapters", ParseAdapters},  // the runtime tables (scenario_tables.cpp)
    {"addresses", ParseAddresses},
    {"connections", ParseConnections},
    {"endpoints", ParseEndpoints},
    {"processes", ParseProcesses},
    {"blacklist", ParseBlacklist},
    {"policies", ParsePolicySection},  // the policy store (scenario_policies.cpp)
    {"capture", ParseCapture},
};

bool CheckTopLevelKeys(JsonChecker& check, const Json& doc) {
  for (const auto& item : doc.items()) {
    bool known = false;
    for (const Section& section : kSections) known = known || item.key() == section.name;
    if (known) continue;
    std::string names;
    for (const Section& section : kSections) {
      names += (names.empty() ? "" : ", ") + std::string(section.name);
    }
    return check.Fail(JsonPath("", item.key()), "one of the known fields (" + names + ")");
  }
  return true;
}

}  // namespace

bool ParseScenario(const Json& doc, const std::string& source, Scenario* out, std::string* error) {
  JsonChecker check(source);
  Scenario scenario;
  try {
    if (check.Object(doc, "") && CheckTopLevelKeys(check, doc)) {
      for (const Section& section : kSections) {
        auto it = doc.find(section.name);
        if (it != doc.end() && !section.parse(check, *it, JsonPath("", section.name), &scenario)) {
          break;
        }
      }
    }
    if (check.ok()) {
      scenario.source = source;
      scenario.document = doc;
      *out = std::move(scenario);
      return true;
    }
  } catch (const std::exception& e) {
    // A section reader that slipped past its checks: still a bad scenario, never a throw out of
    // the library.
    check.Fail("", std::string("a readable scenario (") + e.what() + ")");
  }
  *error = check.error();
  return false;
}

bool LoadScenario(const std::string& file, std::string_view builtInText, Scenario* out,
                  std::string* error) {
  const std::string source = file.empty() ? kBuiltInScenarioName : file;
  Json doc;
  const bool read = file.empty() ? ParseJsonText(builtInText, source, &doc, error)
                                 : LoadJsonFile(file, &doc, error);
  return read && ParseScenario(doc, source, out, error);
}

std::optional<int32_t> FindFault(const Scenario& scenario, FaultCalls* calls,
                                 std::string_view operation, std::string_view item) {
  if (scenario.faults.empty()) return std::nullopt;
  std::string_view plain = operation;
  const size_t qualifier = operation.find(kQualifier);
  if (qualifier != std::string_view::npos) plain.remove_prefix(qualifier + kQualifier.size());
  const bool qualified = plain.size() != operation.size();
  // Most particular first; every entry that names the call counts it, whichever decides.
  std::string keys[4];
  size_t count = 0;
  if (!item.empty()) {
    if (qualified) keys[count++] = std::string(operation) + ":" + std::string(item);
    keys[count++] = std::string(plain) + ":" + std::string(item);
  }
  if (qualified) keys[count++] = std::string(operation);
  keys[count++] = std::string(plain);
  std::optional<int32_t> decided;
  for (size_t i = 0; i < count; ++i) {
    auto it = scenario.faults.find(keys[i]);
    if (it == scenario.faults.end()) continue;
    const uint64_t call = ++(*calls)[keys[i]];
    if (!decided) decided = FaultForCall(it->second, call);
  }
  return decided;
}

Json GlobalSettingsToJson(const GlobalSettings& settings) {
  Json section = Json::object();
  for (const Setting& setting : kSettings) {
    if (setting.flag != nullptr) {
      section[setting.name] = settings.*setting.flag;
    } else {
      section[setting.name] = settings.*setting.number;
    }
  }
  return section;
}

Json ScenarioToJson(const Scenario& scenario) {
  const auto version = [](const std::optional<std::wstring>& text) {
    return text ? Json(WideToUtf8(*text)) : Json();
  };
  Json doc = Json::object();
  doc["service"] = Json{{"running", scenario.service.running}};
  if (!scenario.faults.empty()) {
    Json faults = Json::object();
    for (const auto& [name, rules] : scenario.faults) faults[name] = FaultRulesToJson(rules);
    doc["faults"] = std::move(faults);
  }
  Json versions = Json::object();
  versions["service"] = version(scenario.versions.service);
  versions["engine"] = version(scenario.versions.engine);
  versions["controlLibrary"] = version(scenario.versions.controlLibrary);
  doc["versions"] = std::move(versions);
  doc["hooks"] = Json{{"fragment", scenario.hooks.fragment},
                      {"packet", scenario.hooks.packet},
                      {"forward", scenario.hooks.forward},
                      {"stream", scenario.hooks.stream}};
  doc["config"] = GlobalSettingsToJson(scenario.config);
  doc["adapters"] = AdaptersToJson(scenario.tables);
  doc["addresses"] = AddressesToJson(scenario.tables);
  doc["connections"] = ConnectionsToJson(scenario.tables.connections);
  doc["endpoints"] = EndpointsToJson(scenario.tables.endpoints);
  doc["processes"] = ProcessesToJson(scenario.tables.processes);
  doc["blacklist"] = BlacklistToJson(scenario.tables.blacklist);
  doc["policies"] = PoliciesToJson(scenario.policies);
  if (!scenario.captureNotes.empty()) {
    Json notes = Json::array();
    for (const std::string& note : scenario.captureNotes) notes.push_back(note);
    doc["capture"] = Json{{"notes", std::move(notes)}};
  }
  return doc;
}

}  // namespace nw::sim
