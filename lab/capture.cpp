#include "lab/capture.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "base/format.h"
#include "core/guid.h"
#include "core/policy_values.h"
#include "sim/core/policy_objects.h"

namespace nw::lab {
namespace {

using sim::Scenario;

std::string Hex(Status status) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(status));
  return text;
}

// A getter that failed: the replay fails it the same way, and the file says so.
void Failed(Scenario* out, const std::string& fault, Status status, const std::string& what) {
  out->faults[fault] = sim::FaultRules{sim::FaultRule{status}};
  out->captureNotes.push_back(fault + " failed with " + Hex(status) + ": " + what);
}

std::optional<std::wstring> Text(const wchar_t* text) {
  return text != nullptr ? std::optional<std::wstring>(text) : std::nullopt;
}

IpAddress Address(const IpAddress* address) { return address != nullptr ? *address : IpAddress{}; }

Guid Uid(const Guid* uid) { return uid != nullptr ? *uid : Guid{}; }

// ---- Policies ------------------------------------------------------------------------------

// Where a term is: "<policy>/<rule or aggregate>/<match index>/<term index>", as a fault item
// names it.
struct TermPlace {
  Scenario* out;
  std::string owner;  // "<policy>/<rule or aggregate>"
  size_t match = 0;
};

// Every getter is asked: a term holds the kinds whose getter succeeds, which is all a view can
// see of it. A getter that fails otherwise than for a kind the term does not hold fails the
// same way in the replay.
sim::TermModel ReadTerm(IMatchTerms* terms, uint32_t i, const TermPlace& place) {
  const auto got = [&](const char* getter, Status status) {
    if (status == kStatusOk) return true;
    if (status != sim::kStatusTypeMismatch) {
      Failed(place.out,
             std::string(getter) + ":" + place.owner + "/" + std::to_string(place.match) + "/" +
                 std::to_string(i),
             status, "that value of the term is not captured");
    }
    return false;
  };
  sim::TermModel term;
  term.op = terms->GetOperator(i);
  uint8_t u8 = 0;
  if (got("GetUint8", terms->GetUint8(i, &u8))) term.uint8 = u8;
  uint16_t u16 = 0;
  if (got("GetUint16", terms->GetUint16(i, &u16))) term.uint16 = u16;
  uint32_t u32 = 0;
  if (got("GetUint32", terms->GetUint32(i, &u32))) term.uint32 = u32;
  uint64_t u64 = 0;
  if (got("GetUint64", terms->GetUint64(i, &u64))) term.uint64 = u64;
  uint16_t low16 = 0, high16 = 0;
  if (got("GetUint16Range", terms->GetUint16Range(i, &low16, &high16))) {
    term.uint16Range = sim::Uint16Range{low16, high16};
  }
  uint64_t low64 = 0, high64 = 0;
  if (got("GetUint64Range", terms->GetUint64Range(i, &low64, &high64))) {
    term.uint64Range = sim::Uint64Range{low64, high64};
  }
  const uint8_t* bytes = nullptr;
  uint32_t count = 0;
  if (got("GetUint8Array", terms->GetUint8Array(i, &bytes, &count))) {
    sim::ByteArrayValue value;
    if (bytes != nullptr) value.storage.assign(bytes, bytes + count);
    value.storage.resize(count);
    value.given = count;
    value.count = count;
    term.bytes = std::move(value);
  }
  const Guid* aggregate = nullptr;
  if (got("GetAggregateUid", terms->GetAggregateUid(i, &aggregate)))
    term.aggregate = Uid(aggregate);
  const wchar_t* text = nullptr;
  uint32_t length = 0;
  if (got("GetString", terms->GetString(i, &text, &length))) {
    term.string = sim::StringValue{text != nullptr ? text : L"", length};
  }
  const IpAddress* ip = nullptr;
  if (got("GetIpAddress", terms->GetIpAddress(i, &ip))) term.ip = Address(ip);
  const IpAddress *low = nullptr, *high = nullptr;
  if (got("GetIpAddressRange", terms->GetIpAddressRange(i, &low, &high))) {
    term.ipRange = sim::IpAddressRange{Address(low), Address(high)};
  }
  const uint8_t* prefix = nullptr;
  if (got("GetIpMask", terms->GetIpMask(i, &prefix)) && prefix != nullptr) term.prefix = *prefix;
  const int32_t kind = terms->GetIpAddressMatchType(i);
  if (kind != term.AddressKind()) term.addressKind = kind;
  return term;
}

sim::MatchModel ReadMatch(IMatch* match, const TermPlace& place) {
  sim::MatchModel model;
  model.type = match->GetType();
  IMatchTerms* terms = match->GetTerms();
  if (terms == nullptr) return model;
  const uint32_t count = terms->GetCount();
  for (uint32_t i = 0; i < count; ++i) model.terms.push_back(ReadTerm(terms, i, place));
  return model;
}

// The matches GetNextMatch walks: the current rule's, or the current aggregate match's.
std::vector<sim::MatchModel> ReadMatches(IPolicy* policy, TermPlace place) {
  std::vector<sim::MatchModel> matches;
  for (IMatch* match = policy->GetNextMatch(); match != nullptr; match = policy->GetNextMatch()) {
    matches.push_back(ReadMatch(match, place));
    ++place.match;
  }
  return matches;
}

sim::RuleModel ReadRule(IPolicy* policy, IRule* rule, const Guid& policyUid, Scenario* out) {
  sim::RuleModel model;
  model.uid = Uid(rule->GetUid());
  model.name = Text(rule->GetName());
  model.action = rule->GetAction();
  model.target = Uid(rule->GetTargetUid());
  model.redirectAddress = Address(rule->GetRedirectAddress());
  model.redirectPort = rule->GetRedirectPort();
  model.redirectValue = rule->GetRedirectValue();
  model.logOption = rule->GetLogOption();
  model.logThrottle = rule->GetLogThrottle();
  model.enabled = rule->IsEnabled();
  model.hotDropIfNotMatch = rule->GetHotDropIfNotMatch();
  model.invertMatch = rule->GetInvertMatch();
  model.teredo = rule->IsTeredoRule();
  model.teredoAwareApp = rule->IsTeredoAwareApp();
  model.matches =
      ReadMatches(policy, {out, sim::GuidText(policyUid) + "/" + sim::GuidText(model.uid)});
  return model;
}

sim::PolicyModel ReadPolicy(IPolicy* policy, const Guid& uid, Scenario* out) {
  sim::PolicyModel model;
  model.uid = uid;
  model.ppuid = Uid(policy->GetPointProductUid());
  model.name = Text(policy->GetName());
  model.type = policy->GetPolicyType();
  model.stateful = policy->IsStateful();
  model.sticky = policy->IsSticky();
  model.bootTimeOnly = policy->IsBootTimeOnly();
  model.defaultAction = policy->GetDefaultAction();
  model.defaultLogOption = policy->GetDefaultLogOption();
  const Status mode = policy->SetIterationMode(kIterateLinear);
  if (mode != kStatusOk) {
    out->captureNotes.push_back("IPolicy::SetIterationMode of " + sim::GuidText(uid) +
                                " failed with " + Hex(mode) +
                                ": its groups and aggregate matches are not captured");
    return model;
  }
  for (IAggregateMatch* aggregate = policy->GetNextAggregateMatch(); aggregate != nullptr;
       aggregate = policy->GetNextAggregateMatch()) {
    sim::AggregateModel a;
    a.uid = Uid(aggregate->GetUid());
    a.name = Text(aggregate->GetName());
    a.orOperator = aggregate->IsOrOperator();
    a.matches = ReadMatches(policy, {out, sim::GuidText(uid) + "/" + sim::GuidText(a.uid)});
    model.aggregates.push_back(std::move(a));
  }
  for (IPolicyGroup* group = policy->GetNextGroup(); group != nullptr;
       group = policy->GetNextGroup()) {
    sim::GroupModel g;
    g.uid = Uid(group->GetUid());
    for (IRule* rule = policy->GetNextRule(); rule != nullptr; rule = policy->GetNextRule()) {
      g.rules.push_back(ReadRule(policy, rule, uid, out));
    }
    model.groups.push_back(std::move(g));
  }
  return model;
}

// A policy whose groups could not be walked still has its default group in a scenario.
sim::PolicyModel WithDefaultGroup(sim::PolicyModel model, Scenario* out) {
  if (model.groups.empty()) {
    out->captureNotes.push_back("policy " + sim::GuidText(model.uid) +
                                " handed out no group: an empty default group stands for it");
    model.groups.push_back(sim::GroupModel{model.uid, {}});
  }
  return model;
}

void CapturePolicies(IPolicyManager* manager, Scenario* out, const ProgressReport& progress) {
  out->policies = sim::PolicyStore();
  for (int32_t type = FW_POLICY_TYPE_FRAGMENT; type <= FW_POLICY_TYPE_STREAM; ++type) {
    IGuidList* list = nullptr;
    const Status listed =
        ObtainObject(&list, [&] { return manager->GetExistingPolicyList(&list, type); });
    if (listed != kStatusOk) {
      Failed(out, "GetExistingPolicyList:" + std::to_string(type), listed,
             "the policies of that type are not captured");
      if (list != nullptr) list->Release();
      continue;
    }
    const std::vector<Guid> uids(list->GetGuids(), list->GetGuids() + list->GetCount());
    list->Release();
    for (const Guid& uid : uids) {
      IPolicy* policy = nullptr;
      const Status fetched =
          ObtainObject(&policy, [&] { return manager->GetExistingPolicy(&policy, &uid); });
      if (fetched != kStatusOk) {
        Failed(out, "GetExistingPolicy:" + sim::GuidText(uid), fetched,
               "listed, but its policy is not captured");
        if (policy != nullptr) policy->Release();
        // Listed all the same, so that the replay lists it and fails to fetch it.
        sim::PolicyModel placeholder;
        placeholder.uid = uid;
        placeholder.type = type;
        placeholder.groups.push_back(sim::GroupModel{uid, {}});
        out->policies.policies.push_back(
            std::make_shared<const sim::PolicyModel>(std::move(placeholder)));
        continue;
      }
      out->policies.policies.push_back(std::make_shared<const sim::PolicyModel>(
          WithDefaultGroup(ReadPolicy(policy, uid, out), out)));
      policy->Release();
      if (progress) progress(out->policies.policies.size(), "policies read");
    }
  }
}

// ---- Blacklist -----------------------------------------------------------------------------

IpAddress RangeEnd(IIpRangeList* list, uint64_t i, int32_t version, bool low) {
  IpAddress end{};
  if (version == 4) {
    const uint32_t value = low ? list->GetLowV4(i) : list->GetHighV4(i);
    for (int b = 0; b < 4; ++b) end.bytes[b] = static_cast<uint8_t>(value >> (8 * b));
    end.version = 4;
    return end;
  }
  const uint8_t* bytes = low ? list->GetLowV6(i) : list->GetHighV6(i);
  if (bytes != nullptr) {
    std::memcpy(end.bytes, bytes, 16);
    end.version = 6;
  }
  return end;
}

void CaptureBlacklist(IHighPriorityIpListControl* control, Scenario* out) {
  sim::BlacklistScenario& blacklist = out->tables.blacklist;
  blacklist = sim::BlacklistScenario();
  if (control == nullptr) {
    // What a core that hands out no blacklist control looks like to the views.
    out->faults["GetHighPriorityIpListControl"] = sim::FaultRules{sim::FaultRule{kStatusOk}};
    out->captureNotes.push_back("the core handed out no blacklist control");
    return;
  }
  int32_t logOption = 0;
  const Status option = control->GetExistingLogOption(&logOption);
  if (option != kStatusOk) {
    Failed(out, "GetExistingLogOption", option, "the blacklist's log option is not captured");
  } else {
    blacklist.logOption = logOption;
  }
  IIpRangeList* list = nullptr;
  const Status got = ObtainObject(&list, [&] { return control->GetExistingList(&list); });
  if (got != kStatusOk) {
    Failed(out, "GetExistingList", got, "the blacklist's ranges are not captured");
    if (list != nullptr) list->Release();
    return;
  }
  const uint64_t count = list->GetCount();
  for (uint64_t i = 0; i < count; ++i) {
    sim::BlacklistRange range;
    range.version = list->GetIpVersion(i);
    range.low = RangeEnd(list, i, range.version, true);
    range.high = RangeEnd(list, i, range.version, false);
    range.timeToLive = list->GetTimeToLive(i);
    range.timeRemaining = list->GetTimeRemaining(i);
    range.autoCreate = list->GetAutoCreate(i);
    blacklist.entries.push_back(range);
  }
  list->Release();
}

// ---- Configuration -------------------------------------------------------------------------

void CaptureConfig(IControl* control, Scenario* out) {
  IGlobalConfigAndStateInfo* info = nullptr;
  const Status got = ObtainObject(&info, [&] {
    return control->GetGlobalConfigAndStateInfo(&info, &GlobalConfigAndStateInfoInterfaceId);
  });
  if (got != kStatusOk) {
    Failed(out, "GetGlobalConfigAndStateInfo", got, "the configuration is not captured");
    if (info != nullptr) info->Release();
    return;
  }
  const Status refreshed = info->Refresh();
  if (refreshed != kStatusOk) {
    Failed(out, "IGlobalConfigAndStateInfo::Refresh", refreshed,
           "the configuration is not captured");
    info->Release();
    return;
  }
  sim::GlobalSettings& c = out->config;
  const auto u32 = [](int32_t value) { return static_cast<uint32_t>(value); };
  c.maxKernelLogQueueSize = u32(info->GetMaxKernelLogQueueSize());
  c.maxPointProductReplyTime = u32(info->GetMaxPointProductReplyTime());
  c.globalPassthru = info->GetGlobalPassthruMode();
  c.packetPassthru = info->GetPassthruMode(FW_POLICY_TYPE_PACKET);
  c.streamPassthru = info->GetPassthruMode(FW_POLICY_TYPE_STREAM);
  c.traceLogMask = info->GetTraceLogMask();
  c.trafficLog = info->IsTrafficLogEnabled();
  c.maxTrafficLogSize = u32(info->GetMaxTrafficLogSize());
  c.maxStateTableSize = u32(info->GetMaxStateTableSize());
  c.stateTableGcPeriod = u32(info->GetStateTableGcPeriod());
  c.stateTableTcpTimeout = u32(info->GetStateTableTcpTimeout());
  c.stateTableUdpTimeout = u32(info->GetStateTableUdpTimeout());
  c.stateTableForcedTcpTimeout = u32(info->GetStateTableForcedTcpTimeout());
  c.logThrottle = u32(info->GetLogThrottle());
  c.trackForwardedConnections = info->GetTrackForwardedConnections();
  c.stateTableTcpConnRemovalTimeout = u32(info->GetStateTableTcpConnRemovalTimeOut());
  c.connectionThrottleBurstThreshold = u32(info->GetConnectionThrottleBurstThreshold());
  c.connectionThrottleMaxConnectionsRate = u32(info->GetConnectionThrottleMaxConnectionsRate());
  out->versions.service = Text(info->GetServiceBuildVersion());
  out->versions.engine = Text(info->GetEngineBuildVersion());
  out->versions.controlLibrary = Text(info->GetControlDllBuildVersion());
  out->hooks.fragment = info->IsHookConnected(FW_POLICY_TYPE_FRAGMENT);
  out->hooks.packet = info->IsHookConnected(FW_POLICY_TYPE_PACKET);
  out->hooks.forward = info->IsHookConnected(FW_POLICY_TYPE_FORWARD);
  out->hooks.stream = info->IsHookConnected(FW_POLICY_TYPE_STREAM);
  info->Release();
}

// ---- IP configuration ----------------------------------------------------------------------

sim::AdapterScenario ReadAdapter(IAdapterInfo* adapter) {
  sim::AdapterScenario a;
  a.name = Text(adapter->GetName());
  a.description = Text(adapter->GetDescription());
  a.dnsSuffix = Text(adapter->GetConnectionSpecificDnsSuffix());
  uint32_t length = 0;
  const uint8_t* physical = adapter->GetPhysicalAddress(&length);
  if (physical != nullptr) a.physicalAddress.assign(physical, physical + length);
  a.physicalMedium = adapter->GetPhysicalMedium();
  a.interfaceIndex = adapter->GetInterfaceIndex(true);
  a.interfaceIndexV6 = adapter->GetInterfaceIndex(false);
  const uint64_t addresses = adapter->GetIpAddressCount();
  for (uint64_t i = 0; i < addresses; ++i) {
    const uint8_t* prefix = adapter->GetIpAddressPrefixLength(i);
    a.ipAddresses.push_back(
        {Address(adapter->GetIpAddress(i)), static_cast<uint8_t>(prefix != nullptr ? *prefix : 0)});
  }
  const uint64_t gateways = adapter->GetGatewayCount();
  for (uint64_t i = 0; i < gateways; ++i) {
    sim::AdapterScenario::Gateway gateway;
    gateway.address = Address(adapter->GetGatewayAddress(i));
    const uint8_t* bytes = adapter->GetGatewayPhysicalAddress(i);
    if (bytes != nullptr) {
      gateway.physicalAddress.assign(bytes, bytes + adapter->GetGatewayPhysicalAddressLength(i));
    }
    a.gateways.push_back(std::move(gateway));
  }
  a.dhcpEnabled = adapter->IsDhcpEnabled();
  a.dhcpServer = Address(adapter->GetDhcpServer());
  const uint64_t servers = adapter->GetDnsServerCount();
  for (uint64_t i = 0; i < servers; ++i) a.dnsServers.push_back(Address(adapter->GetDnsServer(i)));
  a.haveWins = adapter->HaveWins();
  a.primaryWins = Address(adapter->GetPrimaryWinsServer());
  a.secondaryWins = Address(adapter->GetSecondaryWinsServer());
  return a;
}

void CaptureIpConfig(IControl* control, Scenario* out) {
  IIpConfig* config = nullptr;
  const Status got = ObtainObject(
      &config, [&] { return control->GetIpConfigChanged(&config, &IpConfigInterfaceId); });
  if (got != kStatusOk) {
    Failed(out, "GetIpConfigChanged", got, "the IP configuration is not captured");
    if (config != nullptr) config->Release();
    return;
  }
  out->tables.adapters.reset();
  if (IAdapterInfoEnumerator* adapters = config->GetAdapterInfoEnumerator(true)) {
    out->tables.adapters.emplace();
    for (IAdapterInfo* adapter = adapters->Next(); adapter != nullptr; adapter = adapters->Next()) {
      out->tables.adapters->push_back(ReadAdapter(adapter));
    }
    adapters->Release();
  }
  out->tables.addresses.reset();
  if (IAddressInfoEnumerator* addresses = config->GetAddressInfoEnumerator()) {
    out->tables.addresses.emplace();
    uint64_t index = 0;
    for (IAddressInfo* address = addresses->Next(); address != nullptr;
         address = addresses->Next(), ++index) {
      const IpAddress* value = nullptr;
      const Status read = address->GetAddress(&value);
      if (read != kStatusOk) {
        Failed(out, "GetAddress:" + std::to_string(index), read, "that address is not captured");
      }
      out->tables.addresses->push_back(Address(read == kStatusOk ? value : nullptr));
    }
    addresses->Release();
  }
  config->Release();
}

// ---- Runtime tables ------------------------------------------------------------------------

void CaptureConnections(IControl* control, Scenario* out, const ProgressReport& progress) {
  IConnectionTable* table = nullptr;
  const Status got = ObtainObject(
      &table, [&] { return control->GetConnectionTable(&table, &ConnectionTableInterfaceId); });
  if (got != kStatusOk) {
    Failed(out, "GetConnectionTable", got, "the connections are not captured");
    if (table != nullptr) table->Release();
    return;
  }
  const Status refreshed = table->Refresh();
  if (refreshed != kStatusOk) {
    Failed(out, "IConnectionTable::Refresh", refreshed, "the connections are not captured");
    table->Release();
    return;
  }
  sim::ConnectionsScenario& connections = out->tables.connections;
  connections.bytesSent = table->GetBytesSentSinceBoot();
  connections.bytesReceived = table->GetBytesReceivedSinceBoot();
  const uint64_t count = table->GetConnectionCount();
  connections.entries.reserve(count);
  for (uint64_t i = 0; i < count; ++i) {
    sim::ConnectionEntry e;
    e.processId = table->GetProcessId(i);
    e.protocol = table->GetProtocol(i);
    e.local = Address(table->GetLocalAddress(i));
    e.remote = Address(table->GetRemoteAddress(i));
    e.storedLocalPort = table->GetLocalPort(i);
    e.storedRemotePort = table->GetRemotePort(i);
    e.state = table->GetState(i);
    e.left = table->GetPairLeft(i);
    e.right = table->GetPairRight(i);
    e.outbound = table->IsOutbound(i);
    connections.entries.push_back(e);
    if (progress && i % 4096 == 0) progress(i, "connections read");
  }
  table->Release();
}

void CaptureEndpoints(IControl* control, Scenario* out) {
  IOpenedEndpointTable* table = nullptr;
  const Status got = ObtainObject(&table, [&] {
    return control->GetOpenedEndpointTable(&table, &OpenedEndpointTableInterfaceId);
  });
  if (got != kStatusOk) {
    Failed(out, "GetOpenedEndpointTable", got, "the opened endpoints are not captured");
    if (table != nullptr) table->Release();
    return;
  }
  const Status refreshed = table->Refresh();
  if (refreshed != kStatusOk) {
    Failed(out, "IOpenedEndpointTable::Refresh", refreshed,
           "the opened endpoints are not captured");
    table->Release();
    return;
  }
  const uint64_t count = table->GetEndpointCount();
  out->tables.endpoints.entries.reserve(count);
  for (uint64_t i = 0; i < count; ++i) {
    sim::EndpointEntry e;
    e.processId = table->GetProcessId(i);
    e.protocol = table->GetProtocol(i);
    e.local = Address(table->GetLocalAddress(i));
    e.storedPort = table->GetLocalPort(i);
    out->tables.endpoints.entries.push_back(e);
  }
  table->Release();
}

void CaptureProcesses(IControl* control, Scenario* out) {
  IActiveProcesses* processes = nullptr;
  const Status got = ObtainObject(&processes, [&] {
    return control->GetActiveProcesses(&processes, &ActiveProcessesInterfaceId);
  });
  if (got != kStatusOk) {
    Failed(out, "GetActiveProcesses", got, "the processes are not captured");
    if (processes != nullptr) processes->Release();
    return;
  }
  const Status refreshed = processes->RefreshProcessIdList();
  if (refreshed != kStatusOk) {
    Failed(out, "RefreshProcessIdList", refreshed, "the process list is not captured");
  }
  const uint64_t count = refreshed == kStatusOk ? processes->GetProcessCount() : 0;
  for (uint64_t i = 0; i < count; ++i) {
    sim::ProcessEntry entry;
    entry.processId = processes->GetProcessId(i);
    IProcessInfo* info = nullptr;
    const Status queried =
        ObtainObject(&info, [&] { return processes->QueryProcessInfo(&info, entry.processId, 0); });
    if (queried != kStatusOk) {
      Failed(out, "QueryProcessInfo:" + std::to_string(entry.processId), queried,
             "listed, but its details are not captured");
      if (info != nullptr) info->Release();
    } else {
      if (const uint8_t* md5 = info->GetMd5()) std::memcpy(entry.md5, md5, sizeof entry.md5);
      entry.path = Text(info->GetPath(0));
      entry.caseCorrectPath = Text(info->GetCaseCorrectPath(0));
      entry.commandArgs = Text(info->GetCommandArgs(0));
      entry.textSid = Text(info->GetTextSid(0));
      entry.signer = Text(info->GetSigner(0));
      entry.peDescription = Text(info->GetPeDescription(0));
      entry.validated = info->IsValidated();
      entry.trusted = info->IsTrusted();
      info->Release();
    }
    out->tables.processes.entries.push_back(std::move(entry));
  }
  processes->Release();
}

}  // namespace

void CaptureHost(const CoreConnection& connection, Scenario* out, const ProgressReport& progress) {
  *out = Scenario();
  out->tables.adapters.reset();
  out->tables.addresses.reset();
  CaptureConfig(connection.control, out);
  CapturePolicies(connection.policyManager, out, progress);
  CaptureBlacklist(connection.highPriorityIpList, out);
  CaptureIpConfig(connection.control, out);
  CaptureConnections(connection.control, out, progress);
  CaptureEndpoints(connection.control, out);
  CaptureProcesses(connection.control, out);
}

}  // namespace nw::lab
