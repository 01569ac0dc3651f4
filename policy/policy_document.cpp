#include "policy/policy_document.h"

#include "base/bounded_string.h"
#include "cli/console.h"
#include "cli/handlers.h"
#include "core/policy_values.h"
#include "policy/match_render.h"
#include "policy/names.h"
#include "policy/policy_listing.h"

namespace nw {
namespace {

// The redirect target's text buffer and the field its port is converted into (terminator
// included): a port of five digits does not fit and leaves the field empty.
constexpr size_t kRedirectTargetCapacity = 1024;
constexpr size_t kRedirectPortField = 5;

const wchar_t* YesNo(bool value) { return value ? L"YES" : L"NO"; }
const wchar_t* TrueFalse(bool value) { return value ? L"true" : L"false"; }

// A core that hands out no identifier is written as the all-zero one rather than followed.
const Guid* OrZero(const Guid* uid) {
  static const Guid kZero{};
  return uid != nullptr ? uid : &kZero;
}

struct GuidText {
  explicit GuidText(const Guid* uid) { FormatGuid(text, OrZero(uid)); }
  wchar_t text[kGuidTextCapacity];
};

// A name, or the identifier's text when the name is empty (or missing).
const wchar_t* NameOrUid(const wchar_t* name, const GuidText& uid) {
  return name != nullptr && name[0] != L'\0' ? name : uid.text;
}

void WriteMatchesOfCurrent(IPolicy* policy) {
  for (IMatch* match = policy->GetNextMatch(); match != nullptr; match = policy->GetNextMatch()) {
    RenderMatch(match, kRenderXml);
  }
}

// "<address> <port> <value>", where a port that does not fit its field leaves it empty.
void FormatRedirectTarget(IRule* rule, wchar_t (&target)[kRedirectTargetCapacity]) {
  static const IpAddress kCleared{};
  const IpAddress* address = rule->GetRedirectAddress();
  wchar_t addressText[kIpv6TextCapacity] = L"";
  FormatIpAddress(addressText, kIpv6TextCapacity, address != nullptr ? address : &kCleared);
  wchar_t port[kRedirectPortField];
  if (BoundedPrintf(port, kRedirectPortField, L"%u", unsigned{rule->GetRedirectPort()}) !=
      kStatusOk) {
    port[0] = L'\0';
  }
  BoundedPrintf(target, kRedirectTargetCapacity, L"%s %s %I64d", addressText, port,
                rule->GetRedirectValue());
}

void WriteAction(IRule* rule) {
  const int32_t action = rule->GetAction();
  ConsolePrint(L"                <action>\n");
  ConsolePrint(L"                    <actiontype>%s</actiontype>\n", ActionName(action));
  if (action == FW_ACTION_JUMP || action == FW_ACTION_CALL_PLUGIN) {
    const GuidText target(rule->GetTargetUid());
    ConsolePrint(L"                    <target>%s</target>\n", target.text);
  } else if (action == FW_ACTION_REDIRECT) {
    wchar_t target[kRedirectTargetCapacity];
    FormatRedirectTarget(rule, target);
    ConsolePrint(L"                    <target>%s</target>\n", target);
  } else {
    ConsolePrint(L"                    <logoption>%s</logoption>\n",
                 LogOptionName(rule->GetLogOption()));
    const uint32_t throttle = rule->GetLogThrottle();
    if (throttle != 0xFFFFFFFFu) {
      ConsolePrint(L"                    <logthrottle>%u</logthrottle>\n", throttle);
    }
  }
  ConsolePrint(L"                </action>\n");
}

void WriteRule(IPolicy* policy, IRule* rule) {
  const GuidText uid(rule->GetUid());
  ConsolePrint(L"            <rule>\n");
  ConsolePrint(L"                <name>%s</name>\n", NameOrUid(rule->GetName(), uid));
  ConsolePrint(L"                <uid>%s</uid>\n", uid.text);
  ConsolePrint(L"                <enabled>%s</enabled>\n", TrueFalse(rule->IsEnabled()));
  ConsolePrint(L"                <hotdropif>%s</hotdropif>\n",
               TrueFalse(rule->GetHotDropIfNotMatch()));
  ConsolePrint(L"                <teredo>%s</teredo>\n", TrueFalse(rule->IsTeredoRule()));
  ConsolePrint(L"                <teredoawareapp>%s</teredoawareapp>\n",
               TrueFalse(rule->IsTeredoAwareApp()));
  ConsolePrint(L"                <invertmatch>%s</invertmatch>\n",
               TrueFalse(rule->GetInvertMatch()));
  WriteAction(rule);
  WriteMatchesOfCurrent(policy);
  ConsolePrint(L"            </rule>\n");
}

void WriteRulesOfCurrentGroup(IPolicy* policy) {
  for (IRule* rule = policy->GetNextRule(); rule != nullptr; rule = policy->GetNextRule()) {
    WriteRule(policy, rule);
  }
}

// The first group is the default group, written without identifier or name; every further
// group names itself with its identifier, which the reader takes back as its name.
void WriteGroups(IPolicy* policy) {
  bool first = true;
  for (IPolicyGroup* group = policy->GetNextGroup(); group != nullptr;
       group = policy->GetNextGroup()) {
    if (first) {
      first = false;
      ConsolePrint(L"        <default_group>\n");
      WriteRulesOfCurrentGroup(policy);
      ConsolePrint(L"        </default_group>\n");
      continue;
    }
    const GuidText uid(group->GetUid());
    ConsolePrint(L"        <group>\n");
    ConsolePrint(L"            <uid>%s</uid>\n", uid.text);
    ConsolePrint(L"            <name>%s</name>\n", uid.text);
    WriteRulesOfCurrentGroup(policy);
    ConsolePrint(L"        </group>\n");
  }
}

void WriteAggregates(IPolicy* policy) {
  for (IAggregateMatch* aggregate = policy->GetNextAggregateMatch(); aggregate != nullptr;
       aggregate = policy->GetNextAggregateMatch()) {
    const GuidText uid(aggregate->GetUid());
    ConsolePrint(L"        <aggregate_match>\n");
    ConsolePrint(L"            <name>%s</name>\n", NameOrUid(aggregate->GetName(), uid));
    ConsolePrint(L"            <or_operator>%s</or_operator>\n",
                 TrueFalse(aggregate->IsOrOperator()));
    ConsolePrint(L"            <uid>%s</uid>\n", uid.text);
    WriteMatchesOfCurrent(policy);
    ConsolePrint(L"        </aggregate_match>\n");
  }
}

void WritePolicy(IPolicy* policy, const Guid* listedUid) {
  const GuidText uid(listedUid);
  const GuidText pointProduct(policy->GetPointProductUid());
  ConsolePrint(L"    <policy>\n");
  ConsolePrint(L"        <uid>%s</uid>\n", uid.text);
  ConsolePrint(L"        <ppuid>%s</ppuid>\n", pointProduct.text);
  ConsolePrint(L"        <name>%s</name>\n", NameOrUid(policy->GetName(), uid));
  ConsolePrint(L"        <policytype>%s</policytype>\n", PolicyTypeName(policy->GetPolicyType()));
  ConsolePrint(L"        <stateful>%s</stateful>\n", YesNo(policy->IsStateful()));
  ConsolePrint(L"        <sticky>%s</sticky>\n", YesNo(policy->IsSticky()));
  ConsolePrint(L"        <boot_time_only>%s</boot_time_only>\n", YesNo(policy->IsBootTimeOnly()));
  ConsolePrint(L"        <defaultlogoption>%s</defaultlogoption>\n",
               LogOptionName(policy->GetDefaultLogOption()));
  ConsolePrint(L"        <default_action>\n");
  ConsolePrint(L"            <actiontype>%s</actiontype>\n",
               ActionName(policy->GetDefaultAction()));
  ConsolePrint(L"        </default_action>\n");
  ConsolePrint(L"\n");
  policy->SetIterationMode(kIterateLinear);
  WriteAggregates(policy);
  WriteGroups(policy);
  ConsolePrint(L"    </policy>\n");
}

}  // namespace

void WritePoliciesOfType(IPolicyManager* manager, int32_t policyType) {
  IGuidList* list = nullptr;
  uint64_t count = 0;
  const Status listed = ListPolicies(manager, policyType, &list, &count, 0);
  if (listed != kStatusOk) {
    LastStatus = listed;
    return;
  }
  LastStatus = kStatusOk;
  const Guid* guids = PolicyGuids(list, &count);
  for (uint64_t i = 0; i < count; ++i) {
    IPolicy* policy = nullptr;
    LastStatus = FetchPolicy(manager, &guids[i], &policy);
    if (LastStatus != kStatusOk) {
      ConsolePrint(L"Error %x from GetExistingPolicy!\n", LastStatus);
      break;
    }
    WritePolicy(policy, &guids[i]);
    policy->Release();
  }
  list->Release();
}

void WritePolicyDocument(IPolicyManager* manager) {
  ConsolePrint(L"<policies>\n");
  WritePoliciesOfType(manager, FW_POLICY_TYPE_PACKET);
  WritePoliciesOfType(manager, FW_POLICY_TYPE_STREAM);
  ConsolePrint(L"</policies>\n");
}

}  // namespace nw
