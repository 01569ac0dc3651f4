#include "sim/core/builder_objects.h"

#include <cstring>
#include <string>

#include "core/policy_values.h"
#include "sim/core/policy_objects.h"

namespace nw::sim {
namespace {

constexpr std::string_view kMatchBuilder = "IMatchBuilder";

uint16_t HostOrder(uint16_t networkOrder) {
  uint8_t bytes[2];
  std::memcpy(bytes, &networkOrder, sizeof bytes);
  return static_cast<uint16_t>(bytes[0] << 8 | bytes[1]);
}

int32_t PortType(int32_t end) {
  switch (end) {
    case kEndpointRemote:
      return FW_MATCH_REMOTE_PORT;
    case kEndpointSource:
      return FW_MATCH_SOURCE_PORT;
    case kEndpointDestination:
      return FW_MATCH_DESTINATION_PORT;
    default:
      return FW_MATCH_LOCAL_PORT;
  }
}

int32_t AddressType(int32_t end) {
  switch (end) {
    case kEndpointRemote:
      return FW_MATCH_REMOTE_IP_ADDRESS;
    case kEndpointSource:
      return FW_MATCH_SOURCE_IP_ADDRESS;
    case kEndpointDestination:
      return FW_MATCH_DESTINATION_IP_ADDRESS;
    default:
      return FW_MATCH_LOCAL_IP_ADDRESS;
  }
}

int32_t AdapterType(int32_t end) {
  switch (end) {
    case kEndpointRemote:
      return FW_MATCH_REMOTE_ADAPTER_ADDRESS;
    case kEndpointSource:
      return FW_MATCH_SOURCE_ADAPTER_ADDRESS;
    case kEndpointDestination:
      return FW_MATCH_DESTINATION_ADAPTER_ADDRESS;
    default:
      return FW_MATCH_LOCAL_ADAPTER_ADDRESS;
  }
}

ByteArrayValue Bytes(const uint8_t* bytes, uint32_t count) {
  ByteArrayValue value;
  value.storage.assign(bytes, bytes + count);
  value.given = count;
  value.count = count;
  return value;
}

}  // namespace

// ---- Matches ----------------------------------------------------------------------------------

template <class Fill>
Status SimMatchBuilder::Add(const char* operation, int32_t type, int32_t op, Fill fill) {
  std::string call(kMatchBuilder);
  call += "::";
  call += operation;
  Status status = kStatusOk;
  if (auto fault = state_.Fault(call)) {
    status = *fault;
  } else if (matches_ == nullptr) {
    status = kStatusUnexpected;
  } else {
    MatchModel match;
    match.type = type;
    TermModel& term = match.terms.emplace_back();
    term.op = op;
    fill(term);
    matches_->push_back(std::move(match));
  }
  state_.TraceCall(call, status);
  return status;
}

Status SimMatchBuilder::AddText(const char* operation, int32_t type, const wchar_t* text,
                                uint32_t length, int32_t op) {
  if (text == nullptr) return kStatusInvalidArg;
  // The core keeps the text with its terminator, as it hands strings out.
  return Add(operation, type, op, [&](TermModel& term) {
    term.string = StringValue{std::wstring(text, length), length + 1};
  });
}

Status SimMatchBuilder::AddUserIDMatch(const wchar_t* text, uint32_t length, int32_t op) {
  call_("AddUserIDMatch", length, op);
  return AddText("AddUserIDMatch", FW_MATCH_USER_ID, text, length, op);
}
Status SimMatchBuilder::AddAppPathMatch(const wchar_t* text, uint32_t length, int32_t op) {
  call_("AddAppPathMatch", length, op);
  return AddText("AddAppPathMatch", FW_MATCH_APP_PATH, text, length, op);
}
Status SimMatchBuilder::AddCommandLineParamsMatch(const wchar_t* text, uint32_t length,
                                                  int32_t op) {
  call_("AddCommandLineParamsMatch", length, op);
  return AddText("AddCommandLineParamsMatch", FW_MATCH_APP_COMMAND_LINE_PARAMS, text, length, op);
}
Status SimMatchBuilder::AddHashSumMatch(const uint8_t* bytes, uint32_t count, int32_t op) {
  call_("AddHashSumMatch", count, op);
  if (bytes == nullptr && count != 0) return kStatusInvalidArg;
  return Add("AddHashSumMatch", FW_MATCH_APP_MD5_HASH_SUM, op,
             [&](TermModel& term) { term.bytes = Bytes(bytes, count); });
}
Status SimMatchBuilder::AddAppDigitalSignerMatch(const wchar_t* text, uint32_t length,
                                                 int32_t caseSensitive, int32_t op) {
  call_("AddAppDigitalSignerMatch", length, caseSensitive, op);
  return AddText(
      "AddAppDigitalSignerMatch",
      caseSensitive != 0 ? FW_MATCH_APP_DIGITAL_SIGNER : FW_MATCH_APP_DIGITAL_SIGNER_CASEINS, text,
      length, op);
}
Status SimMatchBuilder::AddLocalPortMatch(int32_t end, uint16_t port, int32_t op) {
  call_("AddLocalPortMatch", end, port, op);
  return Add("AddLocalPortMatch", PortType(end), op,
             [&](TermModel& term) { term.uint16 = HostOrder(port); });
}
Status SimMatchBuilder::AddLocalPortRangeMatch(int32_t end, uint16_t low, uint16_t high,
                                               int32_t op) {
  call_("AddLocalPortRangeMatch", end, low, high, op);
  return Add("AddLocalPortRangeMatch", PortType(end), op, [&](TermModel& term) {
    term.uint16Range = Uint16Range{HostOrder(low), HostOrder(high)};
  });
}
Status SimMatchBuilder::AddIcmpV4TypeMatch(uint8_t type, int32_t op) {
  call_("AddIcmpV4TypeMatch", type, op);
  return Add("AddIcmpV4TypeMatch", FW_MATCH_ICMPV4_TYPE, op,
             [&](TermModel& term) { term.uint8 = type; });
}
Status SimMatchBuilder::AddIcmpV6TypeMatch(uint8_t type, int32_t op) {
  call_("AddIcmpV6TypeMatch", type, op);
  return Add("AddIcmpV6TypeMatch", FW_MATCH_ICMPV6_TYPE, op,
             [&](TermModel& term) { term.uint8 = type; });
}
Status SimMatchBuilder::AddTcpFlagsMatch(uint8_t flags, int32_t op) {
  call_("AddTcpFlagsMatch", flags, op);
  return Add("AddTcpFlagsMatch", FW_MATCH_TCP_FLAGS, op,
             [&](TermModel& term) { term.uint8 = flags; });
}
Status SimMatchBuilder::AddConnectionStateMatch(uint32_t state, int32_t op) {
  call_("AddConnectionStateMatch", state, op);
  return Add("AddConnectionStateMatch", FW_MATCH_CONNECTION_STATE, op,
             [&](TermModel& term) { term.uint32 = state; });
}
Status SimMatchBuilder::AddIpProtocolMatch(uint8_t protocol, int32_t op) {
  call_("AddIpProtocolMatch", protocol, op);
  return Add("AddIpProtocolMatch", FW_MATCH_IP_PROTOCOL, op,
             [&](TermModel& term) { term.uint8 = protocol; });
}
Status SimMatchBuilder::AddLocalIpAddressMatch(int32_t end, const IpAddress* address, int32_t op) {
  call_("AddLocalIpAddressMatch", end, op);
  if (address == nullptr) return kStatusInvalidArg;
  return Add("AddLocalIpAddressMatch", AddressType(end), op,
             [&](TermModel& term) { term.ip = *address; });
}
Status SimMatchBuilder::AddLocalIpAddressRangeMatch(int32_t end, const IpAddress* low,
                                                    const IpAddress* high, int32_t op) {
  call_("AddLocalIpAddressRangeMatch", end, op);
  if (low == nullptr || high == nullptr) return kStatusInvalidArg;
  return Add("AddLocalIpAddressRangeMatch", AddressType(end), op, [&](TermModel& term) {
    term.ipRange = IpAddressRange{*low, *high};
  });
}
Status SimMatchBuilder::AddLocalIpAddressPrefixMatch(int32_t end, const IpAddress* address,
                                                     uint8_t prefixLength, int32_t op) {
  call_("AddLocalIpAddressPrefixMatch", end, prefixLength, op);
  if (address == nullptr) return kStatusInvalidArg;
  return Add("AddLocalIpAddressPrefixMatch", AddressType(end), op, [&](TermModel& term) {
    term.ip = *address;
    term.prefix = prefixLength;
  });
}
Status SimMatchBuilder::AddLocalDomainNameMatch(int32_t end, const wchar_t* name, int32_t op) {
  call_("AddLocalDomainNameMatch", end, name, op);
  if (name == nullptr) return kStatusInvalidArg;
  const std::wstring text(name);
  return Add("AddLocalDomainNameMatch", AddressType(end), op, [&](TermModel& term) {
    term.string = StringValue{text, static_cast<uint32_t>(text.size() + 1)};
  });
}
Status SimMatchBuilder::AddNetworkLayerProtocolMatch(uint16_t protocol, int32_t op) {
  call_("AddNetworkLayerProtocolMatch", protocol, op);
  return Add("AddNetworkLayerProtocolMatch", FW_MATCH_NETWORK_LAYER_PROTOCOL, op,
             [&](TermModel& term) { term.uint16 = protocol; });
}
Status SimMatchBuilder::AddMacAddrMatch(int32_t end, const uint8_t* address, int32_t op) {
  call_("AddMacAddrMatch", end, op);
  if (address == nullptr) return kStatusInvalidArg;
  return Add("AddMacAddrMatch", AdapterType(end), op,
             [&](TermModel& term) { term.bytes = Bytes(address, 8); });
}
Status SimMatchBuilder::AddMacAddrRangeMatch(int32_t end, const uint8_t* low, const uint8_t* high,
                                             int32_t op) {
  call_("AddMacAddrRangeMatch", end, op);
  if (low == nullptr || high == nullptr) return kStatusInvalidArg;
  // Kept as the 16 bytes a range term hands out: low then high.
  uint8_t both[16];
  std::memcpy(both, low, 8);
  std::memcpy(both + 8, high, 8);
  return Add("AddMacAddrRangeMatch", AdapterType(end), op,
             [&](TermModel& term) { term.bytes = Bytes(both, 16); });
}
Status SimMatchBuilder::AddPhysicalMediumMatch(uint32_t medium, int32_t op) {
  call_("AddPhysicalMediumMatch", medium, op);
  return Add("AddPhysicalMediumMatch", FW_MATCH_PHYSICAL_MEDIUM, op,
             [&](TermModel& term) { term.uint32 = medium; });
}
Status SimMatchBuilder::AddDirectionMatch(uint32_t direction, int32_t op) {
  call_("AddDirectionMatch", direction, op);
  return Add("AddDirectionMatch", FW_MATCH_DIRECTION, op,
             [&](TermModel& term) { term.uint32 = direction; });
}
Status SimMatchBuilder::AddInterfaceIndexV6Match(uint32_t index, int32_t op) {
  call_("AddInterfaceIndexV6Match", index, op);
  return Add("AddInterfaceIndexV6Match", FW_MATCH_INTERFACE_INDEX_V6, op,
             [&](TermModel& term) { term.uint32 = index; });
}
Status SimMatchBuilder::AddInterfaceIndexV6RangeMatch(uint32_t low, uint32_t high, int32_t op) {
  call_("AddInterfaceIndexV6RangeMatch", low, high, op);
  return Add("AddInterfaceIndexV6RangeMatch", FW_MATCH_INTERFACE_INDEX_V6, op,
             [&](TermModel& term) {
               term.uint64Range = Uint64Range{low, high};
             });
}
Status SimMatchBuilder::AddInterfaceIndexV4Match(uint32_t index, int32_t op) {
  call_("AddInterfaceIndexV4Match", index, op);
  return Add("AddInterfaceIndexV4Match", FW_MATCH_INTERFACE_INDEX_V4, op,
             [&](TermModel& term) { term.uint32 = index; });
}
Status SimMatchBuilder::AddInterfaceIndexV4RangeMatch(uint32_t low, uint32_t high, int32_t op) {
  call_("AddInterfaceIndexV4RangeMatch", low, high, op);
  return Add("AddInterfaceIndexV4RangeMatch", FW_MATCH_INTERFACE_INDEX_V4, op,
             [&](TermModel& term) {
               term.uint64Range = Uint64Range{low, high};
             });
}
Status SimMatchBuilder::AddInterfaceIndexMatch(uint64_t index, int32_t op) {
  call_("AddInterfaceIndexMatch", index, op);
  return Add("AddInterfaceIndexMatch", FW_MATCH_INTERFACE_INDEX, op,
             [&](TermModel& term) { term.uint64 = index; });
}
Status SimMatchBuilder::AddInterfaceIndexRangeMatch(uint64_t low, uint64_t high, int32_t op) {
  call_("AddInterfaceIndexRangeMatch", low, high, op);
  return Add("AddInterfaceIndexRangeMatch", FW_MATCH_INTERFACE_INDEX, op, [&](TermModel& term) {
    term.uint64Range = Uint64Range{low, high};
  });
}
Status SimMatchBuilder::AddConnectionBytesSentMatch(uint64_t bytes, int32_t op) {
  call_("AddConnectionBytesSentMatch", bytes, op);
  return Add("AddConnectionBytesSentMatch", FW_MATCH_BYTES_SENT, op,
             [&](TermModel& term) { term.uint64 = bytes; });
}
Status SimMatchBuilder::AddConnectionBytesReceivedMatch(uint64_t bytes, int32_t op) {
  call_("AddConnectionBytesReceivedMatch", bytes, op);
  return Add("AddConnectionBytesReceivedMatch", FW_MATCH_BYTES_RECEIVED, op,
             [&](TermModel& term) { term.uint64 = bytes; });
}
Status SimMatchBuilder::AddConnectionSpecificDnsSuffixMatch(const wchar_t* text, uint32_t length,
                                                            int32_t op) {
  call_("AddConnectionSpecificDnsSuffixMatch", length, op);
  return AddText("AddConnectionSpecificDnsSuffixMatch", FW_MATCH_CONNSPEC_DNS_SUFFIX, text, length,
                 op);
}
Status SimMatchBuilder::AddProcessIdMatch(uint64_t processId, int32_t op) {
  call_("AddProcessIdMatch", processId, op);
  return Add("AddProcessIdMatch", FW_MATCH_PROCESS_ID, op,
             [&](TermModel& term) { term.uint64 = processId; });
}
Status SimMatchBuilder::AddPeFileDescriptionMatch(const wchar_t* text, uint32_t length,
                                                  int32_t op) {
  call_("AddPeFileDescriptionMatch", length, op);
  return AddText("AddPeFileDescriptionMatch", FW_MATCH_PE_FILE_DESCRIPTION, text, length, op);
}
Status SimMatchBuilder::AddStandardizedAppPathMatch(const wchar_t* text, uint32_t length,
                                                    int32_t op) {
  call_("AddStandardizedAppPathMatch", length, op);
  return AddText("AddStandardizedAppPathMatch", FW_MATCH_STANDARDIZED_APP_PATH, text, length, op);
}
Status SimMatchBuilder::AddHttpServerMatch(const wchar_t* text, uint32_t length, int32_t op) {
  call_("AddHttpServerMatch", length, op);
  return AddText("AddHttpServerMatch", FW_MATCH_HTTP_SERVER, text, length, op);
}
Status SimMatchBuilder::AddVtpPrivilegesMatch(uint64_t privileges, int32_t op) {
  call_("AddVtpPrivilegesMatch", privileges, op);
  return Add("AddVtpPrivilegesMatch", FW_MATCH_VTP_PRIVILEGES, op,
             [&](TermModel& term) { term.uint64 = privileges; });
}
Status SimMatchBuilder::AddAggregateMatch(const Guid* aggregateId, int32_t matchType, int32_t op) {
  call_("AddAggregateMatch", aggregateId, matchType, op);
  if (aggregateId == nullptr || matchType < FW_MATCH_FIRST_AGGREGATE_MATCH) {
    return kStatusInvalidArg;
  }
  return Add("AddAggregateMatch", matchType, op,
             [&](TermModel& term) { term.aggregate = *aggregateId; });
}

// ---- Rules ------------------------------------------------------------------------------------

template <class Change>
Status RuleBuilder::Set(const char* operation, Change change) {
  if (auto fault = Fault(operation)) return Traced(operation, *fault);
  change();
  return Traced(operation, kStatusOk);
}

Status RuleBuilder::Reset() {
  Call("Reset");
  return Set("Reset", [&] { rule_ = RuleModel{}; });
}
Status RuleBuilder::Create(const Guid* ruleId) {
  Call("Create", ruleId);
  if (ruleId == nullptr) return Traced("Create", kStatusInvalidArg);
  return Set("Create", [&] { rule_.uid = *ruleId; });
}
Status RuleBuilder::SetEnabled(bool enabled) {
  Call("SetEnabled", enabled);
  return Set("SetEnabled", [&] { rule_.enabled = enabled; });
}
Status RuleBuilder::SetAction(int32_t action, const Guid* target, uint32_t) {
  Call("SetAction", action, target);
  return Set("SetAction", [&] {
    rule_.action = action;
    rule_.target = target != nullptr ? *target : Guid{};
  });
}
Status RuleBuilder::SetRedirectAction(const IpAddress* address, uint16_t port, int64_t value) {
  Call("SetRedirectAction", port, value);
  if (address == nullptr) return Traced("SetRedirectAction", kStatusInvalidArg);
  return Set("SetRedirectAction", [&] {
    rule_.action = FW_ACTION_REDIRECT;
    rule_.redirectAddress = *address;
    rule_.redirectPort = port;
    rule_.redirectValue = value;
  });
}
Status RuleBuilder::SetLogOption(int32_t logOption) {
  Call("SetLogOption", logOption);
  return Set("SetLogOption", [&] { rule_.logOption = logOption; });
}
Status RuleBuilder::SetHotDropIfNotMatch(bool hotDrop) {
  Call("SetHotDropIfNotMatch", hotDrop);
  return Set("SetHotDropIfNotMatch", [&] { rule_.hotDropIfNotMatch = hotDrop; });
}
Status RuleBuilder::SetInvertMatch(bool invert) {
  Call("SetInvertMatch", invert);
  return Set("SetInvertMatch", [&] { rule_.invertMatch = invert; });
}
Status RuleBuilder::SetName(const wchar_t* name) {
  Call("SetName", name);
  return Set("SetName", [&] { rule_.name = name != nullptr ? NameText(name) : std::nullopt; });
}
Status RuleBuilder::SetTeredoRule(bool teredo, bool teredoAwareApp) {
  Call("SetTeredoRule", teredo, teredoAwareApp);
  return Set("SetTeredoRule", [&] {
    rule_.teredo = teredo;
    rule_.teredoAwareApp = teredoAwareApp;
  });
}
Status RuleBuilder::SetLogThrottle(uint32_t throttle) {
  Call("SetLogThrottle", throttle);
  return Set("SetLogThrottle", [&] { rule_.logThrottle = throttle; });
}

// ---- Aggregate matches ------------------------------------------------------------------------

Status AggregateMatchBuilder::SetBoolOp(bool orOperator) {
  Call("SetBoolOp", orOperator);
  if (auto fault = Fault("SetBoolOp")) return Traced("SetBoolOp", *fault);
  aggregate_.orOperator = orOperator;
  return Traced("SetBoolOp", kStatusOk);
}
Status AggregateMatchBuilder::SetFriendlyName(const wchar_t* name) {
  Call("SetFriendlyName", name);
  if (auto fault = Fault("SetFriendlyName")) return Traced("SetFriendlyName", *fault);
  aggregate_.name = name != nullptr ? NameText(name) : std::nullopt;
  return Traced("SetFriendlyName", kStatusOk);
}

// ---- Policies ---------------------------------------------------------------------------------

template <class Change>
Status PolicyBuilder::Set(const char* operation, Change change) {
  if (auto fault = Fault(operation)) return Traced(operation, *fault);
  return Traced(operation, change());
}

Status PolicyBuilder::Reset() {
  Call("Reset");
  return Set("Reset", [&] {
    policy_ = PolicyModel{};
    created_ = false;
    return kStatusOk;
  });
}
Status PolicyBuilder::SetStickyAndBootTime(bool sticky, bool bootTimeOnly) {
  Call("SetStickyAndBootTime", sticky, bootTimeOnly);
  return Set("SetStickyAndBootTime", [&] {
    policy_.sticky = sticky;
    policy_.bootTimeOnly = bootTimeOnly;
    return kStatusOk;
  });
}
Status PolicyBuilder::SetStateful(bool stateful) {
  Call("SetStateful", stateful);
  return Set("SetStateful", [&] {
    policy_.stateful = stateful;
    return kStatusOk;
  });
}
// The default group is the policy's first group and carries the policy's identifier.
Status PolicyBuilder::Create(const Guid* policyId, int32_t policyType) {
  Call("Create", policyId, policyType);
  if (policyId == nullptr) return Traced("Create", kStatusInvalidArg);
  return Set("Create", [&] {
    policy_.uid = *policyId;
    policy_.type = policyType;
    policy_.groups.assign(1, GroupModel{*policyId, {}});
    created_ = true;
    return kStatusOk;
  });
}
Status PolicyBuilder::SetName(const wchar_t* name) {
  Call("SetName", name);
  return Set("SetName", [&] {
    policy_.name = name != nullptr ? NameText(name) : std::nullopt;
    return kStatusOk;
  });
}
Status PolicyBuilder::AddGroup(const Guid* groupId) {
  Call("AddGroup", groupId);
  if (groupId == nullptr) return Traced("AddGroup", kStatusInvalidArg);
  return Set("AddGroup", [&] {
    if (!created_) return kStatusUnexpected;
    for (const GroupModel& group : policy_.groups) {
      if (group.uid == *groupId) return kStatusInvalidArg;
    }
    policy_.groups.push_back(GroupModel{*groupId, {}});
    return kStatusOk;
  });
}
Status PolicyBuilder::AddAggregateMatch(const Guid* aggregateId, IAggregateMatchBuilder* builder) {
  Call("AddAggregateMatch", aggregateId);
  if (aggregateId == nullptr || builder == nullptr) {
    return Traced("AddAggregateMatch", kStatusInvalidArg);
  }
  return Set("AddAggregateMatch", [&] {
    if (!created_) return kStatusUnexpected;
    AggregateModel aggregate = static_cast<AggregateMatchBuilder*>(builder)->aggregate();
    aggregate.uid = *aggregateId;
    policy_.aggregates.push_back(std::move(aggregate));
    return kStatusOk;
  });
}
Status PolicyBuilder::AddRuleToGroup(const Guid* groupId, IRuleBuilder* builder) {
  Call("AddRuleToGroup", groupId);
  if (groupId == nullptr || builder == nullptr) return Traced("AddRuleToGroup", kStatusInvalidArg);
  return Set("AddRuleToGroup", [&] {
    if (!created_) return kStatusUnexpected;
    for (GroupModel& group : policy_.groups) {
      if (group.uid == *groupId) {
        group.rules.push_back(static_cast<RuleBuilder*>(builder)->rule());
        return kStatusOk;
      }
    }
    return kStatusNotFound;
  });
}
Status PolicyBuilder::SetDefaultAction(int32_t action, int32_t logOption) {
  Call("SetDefaultAction", action, logOption);
  return Set("SetDefaultAction", [&] {
    policy_.defaultAction = action;
    policy_.defaultLogOption = logOption;
    return kStatusOk;
  });
}

}  // namespace nw::sim
