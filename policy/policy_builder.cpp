#include "policy/policy_builder.h"

#include <cstring>
#include <string>

#include "base/hex_digit.h"
#include "cli/console.h"
#include "cli/handlers.h"
#include "core/policy_values.h"
#include "policy/names.h"
#include "policy/value_parsers.h"

namespace nw {
namespace {

// What a match of a type the core cannot build leaves as the run's status.
constexpr Status kStatusUnbuildableMatch = static_cast<Status>(0x80000001u);

// Every builder call's status is the run's.
Status Stored(Status status) {
  LastStatus = status;
  return status;
}

uint16_t NetworkOrder(uint16_t port) {
  const uint8_t bytes[2] = {static_cast<uint8_t>(port >> 8), static_cast<uint8_t>(port)};
  uint16_t value;
  std::memcpy(&value, bytes, sizeof value);
  return value;
}

// An Add operation's call: its status stored, its failure reported under name.
bool Added(Status status, const wchar_t* name) {
  if (Stored(status) == kStatusOk) return true;
  ConsolePrint(L"    Error returned from %s, %08x\n", name, status);
  return false;
}

// Which end a typed match names.
int32_t EndOf(int32_t type) {
  switch (type) {
    case FW_MATCH_REMOTE_PORT:
    case FW_MATCH_REMOTE_IP_ADDRESS:
    case FW_MATCH_REMOTE_ADAPTER_ADDRESS:
      return kEndpointRemote;
    case FW_MATCH_SOURCE_PORT:
    case FW_MATCH_SOURCE_IP_ADDRESS:
    case FW_MATCH_SOURCE_ADAPTER_ADDRESS:
      return kEndpointSource;
    case FW_MATCH_DESTINATION_PORT:
    case FW_MATCH_DESTINATION_IP_ADDRESS:
    case FW_MATCH_DESTINATION_ADAPTER_ADDRESS:
      return kEndpointDestination;
    default:
      return kEndpointLocal;
  }
}

bool BuildPortMatch(IMatchBuilder* builder, int32_t type, const wchar_t* text, int32_t op) {
  if (IsRangeText(text)) {
    uint16_t low = 0, high = 0;
    if (!GetPortRange(text, &low, &high)) {
      ConsolePrint(L"    Invalid value for local port range match: %s\n", text);
      return false;
    }
    return Added(
        builder->AddLocalPortRangeMatch(EndOf(type), NetworkOrder(low), NetworkOrder(high), op),
        L"AddLocalPortRangeMatch");
  }
  uint64_t port = 0;
  if (!GetNumericValue(text, 0xFFFF, &port)) {
    ConsolePrint(L"    Value for local port match is non-numeric or greater than 65535: %s\n",
                 text);
    return false;
  }
  return Added(
      builder->AddLocalPortMatch(EndOf(type), NetworkOrder(static_cast<uint16_t>(port)), op),
      L"AddLocalPortMatch");
}

bool BuildByteMatch(IMatchBuilder* builder, int32_t type, const wchar_t* text, int32_t op) {
  uint64_t value = 0;
  const bool valid = GetNumericValue(text, 0xFF, &value);
  const auto byte = static_cast<uint8_t>(value);
  switch (type) {
    case FW_MATCH_ICMPV4_TYPE:
      if (!valid) {
        ConsolePrint(L"    Value for ICMP V4 type match is non-numeric or greater than 255: %s\n",
                     text);
        return false;
      }
      return Added(builder->AddIcmpV4TypeMatch(byte, op), L"AddIcmpV4TypeMatch");
    case FW_MATCH_ICMPV6_TYPE:
      if (!valid) {
        ConsolePrint(L"    Value for ICMP V6 type match is non-numeric or greater than 255: %s\n",
                     text);
        return false;
      }
      return Added(builder->AddIcmpV6TypeMatch(byte, op), L"AddIcmpV6TypeMatch");
    default:
      if (!valid) {
        ConsolePrint(L"    Value for TCP flags match is non-numeric or greater than 255: %s\n",
                     text);
        return false;
      }
      return Added(builder->AddTcpFlagsMatch(byte, op), L"AddTcpFlagsMatch");
  }
}

bool BuildAddressMatch(IMatchBuilder* builder, int32_t type, const wchar_t* text, int32_t op) {
  NetworkObject object;
  if (!BuildNetworkObj(text, &object)) {
    ConsolePrint(L"    Invalid local IP address: %s\n", text);
    return false;
  }
  const int32_t end = EndOf(type);
  Status status = kStatusOk;
  switch (object.kind) {
    case kIpAddressSingle:
      status = builder->AddLocalIpAddressMatch(end, &object.address, op);
      break;
    case kIpAddressRange:
      status = builder->AddLocalIpAddressRangeMatch(end, &object.address, &object.high, op);
      break;
    case kIpAddressPrefix:
      status = builder->AddLocalIpAddressPrefixMatch(end, &object.address, object.prefixLength, op);
      break;
    case kIpAddressDomainName:
      status = builder->AddLocalDomainNameMatch(end, object.domain.c_str(), op);
      break;
    default:
      ConsolePrint(L"    Invalid match type returned from BuildNetworkObj\n");
      return false;
  }
  return Added(status, L"AddLocalIpAddressMatch");
}

bool BuildMacMatch(IMatchBuilder* builder, int32_t type, const wchar_t* text, int32_t op) {
  uint8_t low[8] = {}, high[8] = {};
  size_t used = 0;
  if (!ParseMacAddress(text, low, &used)) {
    ConsolePrint(L"    Value for MAC address match is not valid: %s\n", text);
    return false;
  }
  const wchar_t* rest = text + used;
  while (*rest == L' ') ++rest;
  if (*rest == L'\0')
    return Added(builder->AddMacAddrMatch(EndOf(type), low, op), L"AddMacAddrMatch");
  if (!ParseMacAddress(rest, high, &used)) {
    ConsolePrint(L"    Value for MAC address match is not valid: %s\n", text);
    return false;
  }
  return Added(builder->AddMacAddrRangeMatch(EndOf(type), low, high, op), L"AddMacAddrMatch");
}

// Interface indexes V4 and V6: one 32-bit number, or a range; a bad range still counts as
// built when the run's status is 0.
bool BuildInterfaceIndex32(IMatchBuilder* builder, bool v6, const wchar_t* text, int32_t op) {
  if (IsRangeText(text)) {
    uint32_t low = 0, high = 0;
    if (!GetUint32Range(text, &low, &high)) {
      ConsolePrint(v6 ? L"Bad value for interface index v6 range %s\n"
                      : L"Bad value for interface index v4 range %s\n",
                   text);
      return LastStatus == kStatusOk;
    }
    return v6 ? Added(builder->AddInterfaceIndexV6RangeMatch(low, high, op),
                      L"AddInterfaceIndexV6RangeMatch")
              : Added(builder->AddInterfaceIndexV4RangeMatch(low, high, op),
                      L"AddInterfaceIndexV4RangeMatch");
  }
  uint64_t index = 0;
  if (!GetNumericValue(text, 0xFFFFFFFF, &index)) {
    ConsolePrint(v6 ? L"    Value for interface index V6 match is invalid: %s\n"
                    : L"    Value for interface index V4 match is invalid: %s\n",
                 text);
    return false;
  }
  const auto value = static_cast<uint32_t>(index);
  return v6 ? Added(builder->AddInterfaceIndexV6Match(value, op), L"AddInterfaceIndexV6Match")
            : Added(builder->AddInterfaceIndexV4Match(value, op), L"AddInterfaceIndexV4Match");
}

bool BuildInterfaceIndex(IMatchBuilder* builder, const wchar_t* text, int32_t op) {
  if (IsRangeText(text)) {
    uint64_t low = 0, high = 0;
    if (!GetUint64Range(text, &low, &high)) {
      ConsolePrint(L"    Invalid value for interface index range match: %s\n", text);
      return false;
    }
    return Added(builder->AddInterfaceIndexRangeMatch(low, high, op),
                 L"AddInterfaceIndexRangeMatch");
  }
  uint64_t index = 0;
  if (!GetNumericValue(text, UINT64_MAX, &index)) {
    ConsolePrint(L"    Value for interface index match is invalid: %s\n", text);
    return false;
  }
  return Added(builder->AddInterfaceIndexMatch(index, op), L"AddInterfaceIndexMatch");
}

bool BuildAggregateReference(IMatchBuilder* builder, int32_t type, const wchar_t* text,
                             int32_t op) {
  ConsolePrint(L"Aggregate match guid string = %s\n", text);
  Guid uid{};
  // A bad identifier is reported by the parser; the reference is still made, to the zero one.
  if (!ParseGuid(text, &uid)) uid = Guid{};
  ConsolePrint(L"Aggregate match guid value\n");
  PrintGuidWords(&uid, 1);
  if (Stored(builder->AddAggregateMatch(&uid, type, op)) != kStatusOk) {
    ConsolePrint(L"    Error returned from AddAggregateMatch, %08x\n", LastStatus);
    return false;
  }
  ConsolePrint(L"Returned from AddAggregateMatch\n");
  return true;
}

// A text match: the text and its length without terminator.
template <class Add>
bool BuildTextMatch(const std::wstring& text, const wchar_t* name, Add add) {
  return Added(add(text.c_str(), static_cast<uint32_t>(text.size())), name);
}

}  // namespace

bool BuildMatch(IMatchBuilder* builder, const MatchRecord& match) {
  const wchar_t* text = match.value.c_str();
  const int32_t op = match.op;
  const std::wstring& value = match.value;
  uint64_t number = 0;
  int32_t named = 0;
  if (match.type >= FW_MATCH_FIRST_AGGREGATE_MATCH) {
    return BuildAggregateReference(builder, match.type, text, op);
  }
  switch (match.type) {
    case FW_MATCH_USER_ID:
      return BuildTextMatch(value, L"AddUserIDMatch", [&](const wchar_t* t, uint32_t n) {
        return builder->AddUserIDMatch(t, n, op);
      });
    case FW_MATCH_APP_PATH:
      return BuildTextMatch(value, L"AddAppPathMatch", [&](const wchar_t* t, uint32_t n) {
        return builder->AddAppPathMatch(t, n, op);
      });
    case FW_MATCH_APP_COMMAND_LINE_PARAMS:
      return BuildTextMatch(value, L"AddCommandLineParamsMatch", [&](const wchar_t* t, uint32_t n) {
        return builder->AddCommandLineParamsMatch(t, n, op);
      });
    case FW_MATCH_APP_MD5_HASH_SUM: {
      uint8_t bytes[16] = {};
      size_t count = 0;
      if (!ParseByteList(text, sizeof bytes, bytes, &count)) {
        ConsolePrint(L"    Invalid value for MD5 hash sum match: %s\n", text);
        return false;
      }
      return Added(builder->AddHashSumMatch(bytes, static_cast<uint32_t>(count), op),
                   L"AddHashSumMatch");
    }
    case FW_MATCH_APP_VENDOR:
      return false;  // the core takes no vendor matches
    case FW_MATCH_APP_DIGITAL_SIGNER:
    case FW_MATCH_APP_DIGITAL_SIGNER_CASEINS:
      return BuildTextMatch(value, L"AddAppDigitalSignerMatch", [&](const wchar_t* t, uint32_t n) {
        return builder->AddAppDigitalSignerMatch(
            t, n, match.type == FW_MATCH_APP_DIGITAL_SIGNER ? 1 : 0, op);
      });
    case FW_MATCH_LOCAL_PORT:
    case FW_MATCH_REMOTE_PORT:
    case FW_MATCH_SOURCE_PORT:
    case FW_MATCH_DESTINATION_PORT:
      return BuildPortMatch(builder, match.type, text, op);
    case FW_MATCH_ICMPV4_TYPE:
    case FW_MATCH_ICMPV6_TYPE:
    case FW_MATCH_TCP_FLAGS:
      return BuildByteMatch(builder, match.type, text, op);
    case FW_MATCH_CONNECTION_STATE:
      return Added(builder->AddConnectionStateMatch(
                       static_cast<uint32_t>(ConnectionStateFromName(text)), op),
                   L"AddConnectionStateMatch");
    case FW_MATCH_IP_PROTOCOL:
      if (LookUpName(kIpProtocolReaderNames, text, &named)) {
        number = static_cast<uint32_t>(named);
      } else if (!GetNumericValue(text, 0xFF, &number)) {
        ConsolePrint(L"    Invalid value for protocol match: %s\n", text);
        return false;
      }
      return Added(builder->AddIpProtocolMatch(static_cast<uint8_t>(number), op),
                   L"AddIpProtocolMatch");
    case FW_MATCH_LOCAL_IP_ADDRESS:
    case FW_MATCH_REMOTE_IP_ADDRESS:
    case FW_MATCH_SOURCE_IP_ADDRESS:
    case FW_MATCH_DESTINATION_IP_ADDRESS:
      return BuildAddressMatch(builder, match.type, text, op);
    case FW_MATCH_NETWORK_LAYER_PROTOCOL:
      if (LookUpName(kLinkLayerProtocolReaderNames, text, &named)) {
        number = static_cast<uint32_t>(named);
      } else if (!GetNumericValue(text, 0xFFFF, &number)) {
        ConsolePrint(
            L"    Value for link layer protocol match is non-numeric or greater than 0xFFFF: %s\n",
            text);
        return false;
      }
      return Added(builder->AddNetworkLayerProtocolMatch(static_cast<uint16_t>(number), op),
                   L"AddNetworkLayerProtocolMatch");
    case FW_MATCH_LOCAL_ADAPTER_ADDRESS:
    case FW_MATCH_REMOTE_ADAPTER_ADDRESS:
    case FW_MATCH_SOURCE_ADAPTER_ADDRESS:
    case FW_MATCH_DESTINATION_ADAPTER_ADDRESS:
      return BuildMacMatch(builder, match.type, text, op);
    case FW_MATCH_PHYSICAL_MEDIUM:
      if (!LookUpName(kPhysicalMediumReaderNames, text, &named)) {
        ConsolePrint(L"    Invalid value for FW_MATCH_PHYSICAL_MEDIUM: %s\n", text);
        return false;
      }
      return Added(builder->AddPhysicalMediumMatch(static_cast<uint32_t>(named), op),
                   L"AddPhysicalMediumMatch");
    case FW_MATCH_DIRECTION:
      if (!LookUpName(kDirectionReaderNames, text, &named)) {
        ConsolePrint(L"    Invalid value for direction match: %s\n", text);
        return false;
      }
      return Added(builder->AddDirectionMatch(static_cast<uint32_t>(named), op),
                   L"AddDirectionMatch");
    case FW_MATCH_INTERFACE_INDEX_V6:
    case FW_MATCH_INTERFACE_INDEX_V4:
      return BuildInterfaceIndex32(builder, match.type == FW_MATCH_INTERFACE_INDEX_V6, text, op);
    case FW_MATCH_INTERFACE_INDEX:
      return BuildInterfaceIndex(builder, text, op);
    case FW_MATCH_BYTES_SENT:
    case FW_MATCH_BYTES_RECEIVED:
    case FW_MATCH_PROCESS_ID:
    case FW_MATCH_VTP_PRIVILEGES:
      if (!GetNumericValue(text, UINT64_MAX, &number)) return false;
      switch (match.type) {
        case FW_MATCH_BYTES_SENT:
          return Added(builder->AddConnectionBytesSentMatch(number, op),
                       L"AddConnectionBytesSentMatch");
        case FW_MATCH_BYTES_RECEIVED:
          return Added(builder->AddConnectionBytesReceivedMatch(number, op),
                       L"AddConnectionBytesReceivedMatch");
        case FW_MATCH_PROCESS_ID:
          // Reported under the bytes-received name, as it always has been.
          return Added(builder->AddProcessIdMatch(number, op), L"AddConnectionBytesReceivedMatch");
        default:
          return Added(builder->AddVtpPrivilegesMatch(number, op), L"AddVtpPrivilegesMatch");
      }
    case FW_MATCH_CONNSPEC_DNS_SUFFIX:
      return BuildTextMatch(value, L"AddConnectionSpecificDnsSuffixMatch",
                            [&](const wchar_t* t, uint32_t n) {
                              return builder->AddConnectionSpecificDnsSuffixMatch(t, n, op);
                            });
    case FW_MATCH_PE_FILE_DESCRIPTION:
      return BuildTextMatch(value, L"AddPeFileDescriptionMatch", [&](const wchar_t* t, uint32_t n) {
        return builder->AddPeFileDescriptionMatch(t, n, op);
      });
    case FW_MATCH_STANDARDIZED_APP_PATH:
      return BuildTextMatch(value, L"AddStandardizedAppPathMatch",
                            [&](const wchar_t* t, uint32_t n) {
                              return builder->AddStandardizedAppPathMatch(t, n, op);
                            });
    case FW_MATCH_HTTP_SERVER:
      return BuildTextMatch(value, L"AddHttpServerMatch", [&](const wchar_t* t, uint32_t n) {
        return builder->AddHttpServerMatch(t, n, op);
      });
    default:
      LastStatus = kStatusUnbuildableMatch;
      return false;
  }
}

namespace {

bool BuildMatches(IMatchBuilder* builder, const std::deque<MatchRecord>& matches) {
  for (const MatchRecord& match : matches) {
    if (!BuildMatch(builder, match)) {
      ConsolePrint(L"    Error building config: match\n");
      return false;
    }
  }
  return true;
}

// What the build was working on, for the error context.
struct Context {
  const PolicyRecord* policy = nullptr;
  const GroupRecord* group = nullptr;
  const RuleRecord* rule = nullptr;
};

const wchar_t* NameOf(const std::optional<std::wstring>& name) {
  return name ? name->c_str() : L"";
}

bool BuildRule(IPolicyBuilder* policyBuilder, IRuleBuilder* builder, const Guid& groupId,
               const RuleRecord& rule) {
  auto failed = [](const wchar_t* message, Status status) {
    ConsolePrint(message, status);
    ConsolePrint(L"    Error building config: rule\n");
    return false;
  };
  builder->Reset();
  const Guid uid = rule.uid.value_or(Guid{});
  if (Stored(builder->Create(&uid)) != kStatusOk) {
    ConsolePrint(L"    Error building config: RuleBuilder->Create %08x\n", LastStatus);
    return false;
  }
  if (Stored(builder->SetEnabled(rule.enabled)) != kStatusOk) {
    return failed(L"    Error from RuleBuilder->SetEnabled %08x\n", LastStatus);
  }
  if (rule.action) {
    const ActionRecord& action = *rule.action;
    const Guid target = action.target.value_or(Guid{});
    const Status status =
        action.type == FW_ACTION_REDIRECT
            ? builder->SetRedirectAction(&action.redirectAddress, action.redirectPort,
                                         action.redirectValue)
            : builder->SetAction(action.type, &target, action.length);
    if (Stored(status) != kStatusOk) {
      return failed(L"    Error from RuleBuilder->SetAction %08x\n", status);
    }
  }
  if (Stored(builder->SetHotDropIfNotMatch(rule.hotDropIfNotMatch)) != kStatusOk) {
    return failed(L"    Error from RuleBuilder->SetHotDropIfNotMatch %08x\n", LastStatus);
  }
  if (Stored(builder->SetTeredoRule(rule.teredo, rule.teredoAwareApp)) != kStatusOk) {
    return failed(L"    Error from RuleBuilder->SetTeredoRule %08x\n", LastStatus);
  }
  Stored(builder->SetInvertMatch(rule.invertMatch));
  if (Stored(builder->SetLogOption(rule.logOption)) != kStatusOk) {
    return failed(L"    Error from RuleBuilder->SetLogOption %08x\n", LastStatus);
  }
  if (rule.logThrottle && Stored(builder->SetLogThrottle(*rule.logThrottle)) != kStatusOk) {
    return failed(L"    Error from RuleBuilder->SetLogThrottle %08x\n", LastStatus);
  }
  Stored(builder->SetName(NameOf(rule.name)));
  IMatchBuilder* matches = builder->GetMatchBuilder();
  if (matches == nullptr) {
    ConsolePrint(L"    Error from RuleBuilder->GetMatchBuilder\n");
    ConsolePrint(L"    Error building config: rule\n");
    return false;
  }
  if (!BuildMatches(matches, rule.matches)) {
    ConsolePrint(L"    Error building config: rule\n");
    return false;
  }
  if (Stored(policyBuilder->AddRuleToGroup(&groupId, builder)) != kStatusOk) {
    ConsolePrint(L"    Error building config: PolicyBuilder->AddRuleToGroup %08x\n", LastStatus);
    return false;
  }
  return true;
}

bool BuildGroup(IPolicyBuilder* policyBuilder, IRuleBuilder* ruleBuilder, const Guid& groupId,
                const GroupRecord& group, Context* context) {
  context->group = &group;
  for (const RuleRecord& rule : group.rules) {
    context->rule = &rule;
    if (!BuildRule(policyBuilder, ruleBuilder, groupId, rule)) return false;
  }
  return true;
}

bool BuildAggregate(IPolicyManager* manager, IPolicyBuilder* policyBuilder,
                    const AggregateRecord& aggregate) {
  auto failed = [] {
    ConsolePrint(L"    Error building config: aggregate match\n");
    return false;
  };
  IAggregateMatchBuilder* builder = nullptr;
  if (Stored(ObtainObject(&builder, [&] { return manager->GetAggregateMatchBuilder(&builder); })) !=
      kStatusOk) {
    ConsolePrint(L"    Error retrieving aggregate match builder API: %08x.\n", LastStatus);
    return failed();
  }
  bool built = false;
  if (Stored(builder->SetBoolOp(aggregate.orOperator)) != kStatusOk) {
    ConsolePrint(L"    Error from pAggMatchBuilder->SetBoolOp %08x\n", LastStatus);
  } else if (Stored(builder->SetFriendlyName(NameOf(aggregate.name))) != kStatusOk) {
    ConsolePrint(L"    Error from pAggMatchBuilder->SetFriendlyName %08x\n", LastStatus);
  } else if (IMatchBuilder* matches = builder->GetMatchBuilder(); matches == nullptr) {
    ConsolePrint(L"    Error from pAggMatchBuilder->GetMatchBuilder\n");
  } else if (BuildMatches(matches, aggregate.matches)) {
    const Guid uid = aggregate.uid.value_or(Guid{});
    built = Stored(policyBuilder->AddAggregateMatch(&uid, builder)) == kStatusOk;
    if (!built) ConsolePrint(L"    Error from PolicyBuilder->AddAggregateMatch %08x\n", LastStatus);
  }
  builder->Release();
  return built || failed();
}

bool BuildPolicy(IPolicyManager* manager, IPolicyBuilder* builder, IRuleBuilder* ruleBuilder,
                 const PolicyRecord& policy, Context* context) {
  context->policy = &policy;
  // A policy without a default action blocks.
  const int32_t defaultAction =
      policy.defaultAction ? policy.defaultAction->type : FW_ACTION_BLOCK_PACKET;
  const Guid uid = policy.uid.value_or(Guid{});
  builder->Reset();
  if (Stored(builder->Create(&uid, policy.type)) != kStatusOk) {
    ConsolePrint(L"    Error from PolicyBuilder->Create %08x\n", LastStatus);
    return false;
  }
  Stored(builder->SetStateful(policy.stateful));
  Stored(builder->SetStickyAndBootTime(policy.sticky, policy.bootTimeOnly));
  Stored(builder->SetName(NameOf(policy.name)));
  if (Stored(builder->SetDefaultAction(defaultAction, policy.defaultLogOption)) != kStatusOk) {
    ConsolePrint(L"    Error from PolicyBuilder->SetDefaultAction %08x\n", LastStatus);
    return false;
  }
  for (const AggregateRecord& aggregate : policy.aggregates) {
    if (!BuildAggregate(manager, builder, aggregate)) return false;
  }
  if (!policy.defaultGroup) {
    ConsolePrint(L"    Error building config: no default group\n");
    return false;
  }
  // The default group is always known by its policy's identifier.
  if (!BuildGroup(builder, ruleBuilder, uid, *policy.defaultGroup, context)) {
    ConsolePrint(L"    Error building config: default group\n");
    return false;
  }
  for (const GroupRecord& group : policy.groups) {
    const Guid groupId = group.uid.value_or(Guid{});
    context->group = &group;
    context->rule = nullptr;
    if (Stored(builder->AddGroup(&groupId)) != kStatusOk) {
      ConsolePrint(L"    Error building config: AddGroup\n");
      ConsolePrint(L"    Error building config: group\n");
      return false;
    }
    if (!BuildGroup(builder, ruleBuilder, groupId, group, context)) {
      ConsolePrint(L"    Error building config: group\n");
      return false;
    }
  }
  return true;
}

void PrintContext(const Context& context) {
  if (context.policy != nullptr && context.policy->name && !context.policy->name->empty()) {
    ConsolePrint(L"\n    Policy at time of error: %s\n", context.policy->name->c_str());
  }
  if (context.group != nullptr && context.group->name && !context.group->name->empty()) {
    ConsolePrint(L"    Group at time of error: %s\n", context.group->name->c_str());
  }
  if (context.rule != nullptr && context.rule->name && !context.rule->name->empty()) {
    ConsolePrint(L"    Rule at time of error: %s\n", context.rule->name->c_str());
  }
}

bool BuildPolicies(IPolicyManager* manager, const std::deque<PolicyRecord>& policies) {
  IPolicyBuilder* builder = nullptr;
  if (Stored(ObtainObject(&builder, [&] { return manager->GetPolicyBuilder(&builder); })) !=
      kStatusOk) {
    ConsolePrint(L"    Error retrieving policy builder API: %08x.\n", LastStatus);
    return false;
  }
  IRuleBuilder* ruleBuilder = nullptr;
  if (Stored(ObtainObject(&ruleBuilder, [&] { return manager->GetRuleBuilder(&ruleBuilder); })) !=
      kStatusOk) {
    ConsolePrint(L"    Error retrieving rule builder API: %08x.\n", LastStatus);
    builder->Release();
    return false;
  }
  bool built = true;
  for (const PolicyRecord& policy : policies) {
    Context context;
    if (!BuildPolicy(manager, builder, ruleBuilder, policy, &context)) {
      ConsolePrint(L"    Error building configuration.\n");
      PrintContext(context);
      built = false;
      break;
    }
    ConsolePrint(L"Calling PolicyManager->AddPolicy\n");
    void* unused1 = nullptr;
    void* unused2 = nullptr;
    if (Stored(manager->AddPolicy(builder, &unused1, &unused2)) != kStatusOk) {
      ConsolePrint(L"    Error from PolicyManager->AddPolicy: %08x.\n", LastStatus);
      built = false;
      break;
    }
  }
  ruleBuilder->Release();
  builder->Release();
  return built;
}

// The list of one blacklist; ranges that mix versions or that the core refuses are reported
// and left out, without failing the build.
IIpRangeList* BuildRangeList(IHighPriorityIpListControl* control,
                             const BlacklistRecord& blacklist) {
  ConsolePrint(L"Calling BlackListControl->GetListBuilder with BlackListControl %p\n", control);
  IIpRangeList* list = nullptr;
  if (Stored(ObtainObject(&list, [&] { return control->GetListBuilder(&list); })) != kStatusOk) {
    ConsolePrint(L"Error: IHighPriorityIpListControl::GetListBuilder returned %08x.\n", LastStatus);
    return nullptr;
  }
  Stored(control->SetLogOption(blacklist.logOption));
  ConsolePrint(L"Starting loop to build ip range config\n");
  for (const RangeRecord& range : blacklist.ranges) {
    ConsolePrint(L"Building ip range config\n");
    const IpAddress low = range.low.value_or(IpAddress{});
    const IpAddress high = range.high.value_or(IpAddress{});
    if (low.version != high.version) {
      ConsolePrint(L"Error: mixing IP V4 and IP V6 addresses in an IP range is not allowed.\n");
      continue;
    }
    Status status;
    if (low.version == 4) {
      auto bare = [](const IpAddress& a) {
        return uint32_t{a.bytes[0]} | uint32_t{a.bytes[1]} << 8 | uint32_t{a.bytes[2]} << 16 |
               uint32_t{a.bytes[3]} << 24;
      };
      status = list->AddIpV4Range(bare(low), bare(high), range.timeToLive);
    } else {
      status = list->AddIpV6Range(low.bytes, high.bytes, range.timeToLive);
    }
    if (Stored(status) != kStatusOk) {
      ConsolePrint(L"Error: %08x returned from IIpRangeList::AddIpVxRange\n", status);
    }
  }
  return list;
}

bool BuildBlacklists(IHighPriorityIpListControl* control, int operation,
                     const std::deque<BlacklistRecord>& blacklists) {
  for (const BlacklistRecord& blacklist : blacklists) {
    IIpRangeList* list = control != nullptr ? BuildRangeList(control, blacklist) : nullptr;
    if (list == nullptr) {
      ConsolePrint(L"    Error building configuration.\n");
      return false;
    }
    Status status = kStatusOk;
    const wchar_t* failure = nullptr;
    switch (operation) {
      case kBlacklistSet:
        status = control->SetNewList(list);
        failure = L"    Error from IHighPriorityIpListControl->SetNewList: %08x.\n";
        break;
      case kBlacklistAppend:
        status = control->AppendList(list);
        failure = L"    Error from IHighPriorityIpListControl->AppendList: %08x.\n";
        break;
      case kBlacklistDelete:
        status = control->DeleteList(list);
        failure = L"    Error from IHighPriorityIpListControl->DeleteList: %08x.\n";
        break;
      default:
        ConsolePrint(L"Error: unknown operation passed to BuildBlackListConfig.\n");
        list->Release();
        return false;
    }
    if (Stored(status) != kStatusOk) {
      ConsolePrint(failure, status);
      list->Release();
      return false;
    }
    list->Release();
  }
  return true;
}

void FromFile(CoreConnection* connection, const wchar_t* path, int operation,
              const wchar_t* succeeded, const wchar_t* failed) {
  PolicyDocumentReader reader;
  if (!reader.ReadPolicyDocument(path)) {
    ConsolePrint(L"Error found in xml input file.\n");
    return;
  }
  ConsolePrint(BuildConfiguration(connection, operation, reader.document()) ? succeeded : failed);
}

}  // namespace

bool BuildConfiguration(CoreConnection* connection, int operation, const PolicyDocument& document) {
  if (document.policies.empty() && document.blacklists.empty()) {
    ConsolePrint(L"Error: neither policy not blacklist specified in the xml file.\n");
    return false;
  }
  if (!document.policies.empty() && !document.blacklists.empty()) {
    ConsolePrint(L"Error: cannot specify both blacklists and policies in the same xml file.\n");
    return false;
  }
  if (!document.blacklists.empty()) {
    return BuildBlacklists(connection->highPriorityIpList, operation, document.blacklists);
  }
  return BuildPolicies(connection->policyManager, document.policies);
}

void AddPoliciesFromFile(CoreConnection* connection, const wchar_t* path) {
  PolicyDocumentReader reader;
  if (!reader.ReadPolicyDocument(path)) {
    ConsolePrint(L"Error found in xml input file.\n");
    return;
  }
  BuildConfiguration(connection, 0, reader.document());
}

void SetBlacklistFromFile(CoreConnection* connection, const wchar_t* path) {
  FromFile(connection, path, kBlacklistSet, L"    Blacklist set successfully\n",
           L"    Error: attempt to set blacklist was unsuccessful\n");
}

void AppendBlacklistFromFile(CoreConnection* connection, const wchar_t* path) {
  FromFile(connection, path, kBlacklistAppend, L"    Blacklist appended successfully\n",
           L"    Error: attempt to append to blacklist was unsuccessful\n");
}

void DeleteBlacklistFromFile(CoreConnection* connection, const wchar_t* path) {
  FromFile(connection, path, kBlacklistDelete, L"    Blacklist deleted successfully\n",
           L"    Error: attempt to delete blacklist was unsuccessful\n");
}

void DeletePolicyByUid(IPolicyManager* manager, const wchar_t* text) {
  // Checked character by character: 8-4-4-4-12 hexadecimal digits.
  static constexpr int kGroups[] = {8, 4, 4, 4, 12};
  const wchar_t* at = text;
  bool wellFormed = true;
  uint64_t values[5] = {};
  for (size_t g = 0; g < 5 && wellFormed; ++g) {
    for (int i = 0; i < kGroups[g]; ++i, ++at) {
      const int digit = HexDigitValue(*at);
      if (digit < 0) {
        wellFormed = false;
        break;
      }
      values[g] = values[g] << 4 | static_cast<uint64_t>(digit);
    }
    if (wellFormed && g < 4 && *at++ != L'-') wellFormed = false;
  }
  if (!wellFormed || *at != L'\0') {
    ConsolePrint(L"Error, guid must look like this: xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx.\n");
    return;
  }
  Guid uid{};
  uid.Data1 = static_cast<uint32_t>(values[0]);
  uid.Data2 = static_cast<uint16_t>(values[1]);
  uid.Data3 = static_cast<uint16_t>(values[2]);
  uid.Data4[0] = static_cast<uint8_t>(values[3] >> 8);
  uid.Data4[1] = static_cast<uint8_t>(values[3]);
  for (int i = 0; i < 6; ++i) uid.Data4[2 + i] = static_cast<uint8_t>(values[4] >> (8 * (5 - i)));
  const Status status = Stored(manager->DeletePolicy(&uid));
  if (status == kStatusOk) {
    ConsolePrint(L"    Policy was deleted successfully.\n");
  } else {
    ConsolePrint(L"    Error deleting policy: %08x.\n", status);
  }
}

}  // namespace nw
