#include "policy/policy_reader.h"

#include <cwctype>
#include <memory>

#include "cli/console.h"
#include "cli/wide_text.h"
#include "core/interfaces.h"
#include "platform/xml_reader.h"
#include "policy/names.h"
#include "policy/value_parsers.h"

namespace nw {
namespace {

using platform::XmlNodeType;

// The element vocabulary; an element's code is its place in this list, from 1.
enum Element : int {
  kUnknown = 0,
  kPolicies,
  kPolicy,
  kGroup,
  kDefaultGroup,
  kRule,
  kAction,
  kDefaultAction,
  kMatch,
  kAggregateMatch,
  kUid,
  kPpuid,
  kName,
  kTarget,
  kEnabled,
  kHotDropIf,
  kTeredo,
  kTeredoAwareApp,
  kInvertMatch,
  kLogOption,
  kLogThrottle,
  kValue,
  kOrOperator,
  kStateful,
  kSticky,
  kBootTimeOnly,
  kLength,
  kDefaultLogOption,
  kPolicyType,
  kActionType,
  kMatchType,
  kOpType,
  kBlacklist,
  kBlacklistLogOption,
  kIpRange,
  kLow,
  kHigh,
  kTtl,
  kElementCount,
};

constexpr const wchar_t* kElementNames[kElementCount] = {
    L"",
    L"policies",
    L"policy",
    L"group",
    L"default_group",
    L"rule",
    L"action",
    L"default_action",
    L"match",
    L"aggregate_match",
    L"uid",
    L"ppuid",
    L"name",
    L"target",
    L"enabled",
    L"hotdropif",
    L"teredo",
    L"teredoawareapp",
    L"invertmatch",
    L"logoption",
    L"logthrottle",
    L"value",
    L"or_operator",
    L"stateful",
    L"sticky",
    L"boot_time_only",
    L"length",
    L"defaultlogoption",
    L"policytype",
    L"actiontype",
    L"matchtype",
    L"optype",
    L"blacklist",
    L"blacklist_logoption",
    L"ip_range",
    L"low",
    L"high",
    L"ttl",
};

// The pending-value codes: what a leaf element's text is for, and the code once it is taken.
enum Pending : int {
  kNone = 0,
  kPolicyTypeValue = 1,
  kActionTypeValue = 2,
  kMatchTypeValue = 3,
  kOpTypeValue = 4,
  kPolicyTypeDone = 5,
  kActionTypeDone = 6,
  kMatchTypeDone = 7,
  kOpTypeDone = 8,
  kHotDropValue = 9,
  kHotDropDone = 10,
  kTeredoValue = 11,
  kTeredoDone = 12,
  kTeredoAwareValue = 13,
  kTeredoAwareDone = 14,
  kInvertValue = 15,
  kInvertDone = 16,
  kLogOptionValue = 17,
  kLogOptionDone = 18,
  kDefaultLogOptionValue = 19,
  kDefaultLogOptionDone = 20,
  kStatefulValue = 21,
  kStatefulDone = 22,
  kStickyValue = 23,
  kStickyDone = 24,
  kBootTimeValue = 25,
  kBootTimeDone = 26,
  kEnabledValue = 27,
  kEnabledDone = 28,
  kTargetValue = 29,
  kTargetDone = 30,
  kLengthValue = 31,
  kLengthDone = 32,
  kOrOperatorValue = 33,
  kOrOperatorDone = 34,
  kValueValue = 37,
  kValueDone = 38,
  kRuleNameValue = 39,
  kGroupNameValue = 40,
  kAggregateNameValue = 41,
  kPolicyNameValue = 42,
  kNameDone = 43,
  kPolicyUidValue = 44,
  kAggregateUidValue = 45,
  kPpuidValue = 46,
  kGroupUidValue = 47,
  kRuleUidValue = 48,
  kUidDone = 49,
  kPpuidDone = 50,
  kLowValue = 51,
  kLowDone = 52,
  kHighValue = 53,
  kHighDone = 54,
  kTtlValue = 55,
  kTtlDone = 56,
  kBlacklistLogOptionValue = 57,
  kBlacklistLogOptionDone = 58,
  kLogThrottleValue = 59,
  kLogThrottleDone = 60,
};

constexpr uint32_t kMaxLogThrottle = 1000000;

// The element's code, ignoring ASCII case; an unknown name says so and is 0.
int MatchElement(const wchar_t* name) {
  for (int code = 1; code < kElementCount; ++code) {
    const wchar_t* known = kElementNames[code];
    size_t i = 0;
    while (known[i] != L'\0' && name[i] != L'\0' &&
           std::towlower(static_cast<wint_t>(name[i])) == static_cast<wint_t>(known[i])) {
      ++i;
    }
    if (known[i] == L'\0' && name[i] == L'\0') return code;
  }
  ConsolePrint(L"MatchElement returning invalid for %s\n", name);
  return kUnknown;
}

// A leaf element: the record it needs open, the codes, and its placement message.
struct Leaf {
  int pending;
  int done;
  const wchar_t* misplaced;
};

// Which record must be open for a leaf element (the owner-dependent uid and name aside).
enum class Needs { kAction, kRule, kMatch, kAggregate, kPolicy, kBlacklist, kRange };

struct LeafRule {
  Element element;
  Needs needs;
  Leaf leaf;
};

constexpr LeafRule kLeaves[] = {
    {kTarget,
     Needs::kAction,
     {kTargetValue, kTargetDone, L"Error: cannot specify target unless in an action\n"}},
    {kLength,
     Needs::kAction,
     {kLengthValue, kLengthDone, L"Error: cannot specify length unless in an action\n"}},
    {kActionType,
     Needs::kAction,
     {kActionTypeValue, kActionTypeDone,
      L"Error: cannot specify actiontype unless in an action\n"}},
    {kEnabled,
     Needs::kRule,
     {kEnabledValue, kEnabledDone, L"Error: cannot specify enabled unless in a rule\n"}},
    {kHotDropIf,
     Needs::kRule,
     {kHotDropValue, kHotDropDone, L"Error: cannot specify hotdropif unless in a rule\n"}},
    {kTeredo,
     Needs::kRule,
     {kTeredoValue, kTeredoDone, L"Error: cannot specify teredo unless in a rule\n"}},
    {kTeredoAwareApp,
     Needs::kRule,
     {kTeredoAwareValue, kTeredoAwareDone,
      L"Error: cannot specify teredoappaware unless in a rule\n"}},
    {kInvertMatch,
     Needs::kRule,
     {kInvertValue, kInvertDone, L"Error: cannot specify invertmatch unless in a rule\n"}},
    {kLogOption,
     Needs::kRule,
     {kLogOptionValue, kLogOptionDone, L"Error: cannot specify logoption unless in a rule\n"}},
    {kLogThrottle,
     Needs::kRule,
     {kLogThrottleValue, kLogThrottleDone,
      L"Error: cannot specify logthrottle unless in a rule\n"}},
    {kMatchType,
     Needs::kMatch,
     {kMatchTypeValue, kMatchTypeDone, L"Error: cannot specify matchtype unless in a match\n"}},
    {kOpType,
     Needs::kMatch,
     {kOpTypeValue, kOpTypeDone, L"Error: cannot specify optype unless in a match\n"}},
    {kValue,
     Needs::kMatch,
     {kValueValue, kValueDone, L"Error: cannot specify value unless in a match\n"}},
    {kOrOperator,
     Needs::kAggregate,
     {kOrOperatorValue, kOrOperatorDone,
      L"Error: cannot specify or_operator unless in an aggregate match\n"}},
    {kStateful,
     Needs::kPolicy,
     {kStatefulValue, kStatefulDone, L"Error: cannot specify stateful unless in a policy\n"}},
    {kSticky,
     Needs::kPolicy,
     {kStickyValue, kStickyDone, L"Error: cannot specify sticky unless in a policy\n"}},
    {kBootTimeOnly,
     Needs::kPolicy,
     {kBootTimeValue, kBootTimeDone, L"Error: cannot specify boot_time_only unless in a policy\n"}},
    {kDefaultLogOption,
     Needs::kPolicy,
     {kDefaultLogOptionValue, kDefaultLogOptionDone,
      L"Error: cannot specify defaultlogoption unless in a policy\n"}},
    {kPolicyType,
     Needs::kPolicy,
     {kPolicyTypeValue, kPolicyTypeDone, L"Error: cannot specify policytype unless in a policy\n"}},
    {kPpuid, Needs::kPolicy, {kPpuidValue, kPpuidDone, L"Must be in policy to use <ppuid>\n"}},
    {kBlacklistLogOption,
     Needs::kBlacklist,
     {kBlacklistLogOptionValue, kBlacklistLogOptionDone,
      L"Error: cannot specify blacklistlogoption unless in a blacklist\n"}},
    {kLow,
     Needs::kRange,
     {kLowValue, kLowDone, L"Error: must be in an ip_range to specify <low>\n"}},
    {kHigh,
     Needs::kRange,
     {kHighValue, kHighDone, L"Error: must be in an ip_range to specify <high>\n"}},
    {kTtl,
     Needs::kRange,
     {kTtlValue, kTtlDone, L"Error: must be in an ip_range to specify <ttl>\n"}},
};

const LeafRule* FindLeaf(int element) {
  for (const LeafRule& rule : kLeaves) {
    if (rule.element == element) return &rule;
  }
  return nullptr;
}

// The done code a leaf element's end expects.
int DoneCode(int element) {
  if (element == kName) return kNameDone;
  if (element == kUid) return kUidDone;
  const LeafRule* leaf = FindLeaf(element);
  return leaf != nullptr ? leaf->leaf.done : -1;
}

// The name the end-of-element message prints: the vocabulary's, one of them without its
// underscore.
const wchar_t* EndName(int element) {
  return element == kBlacklistLogOption ? L"blacklistlogoption" : kElementNames[element];
}

bool Fail(const wchar_t* message) {
  ConsolePrint(L"%s", message);
  return false;
}

// Which name-element owner the name's value is measured as.
NameOwner OwnerOf(int pending) {
  switch (pending) {
    case kPolicyNameValue:
      return NameOwner::kPolicy;
    case kGroupNameValue:
      return NameOwner::kGroup;
    default:
      return NameOwner::kRule;  // a rule's, and an aggregate match's
  }
}

// Attributes have no meaning in the format: they are only echoed.
bool ListAttributes(platform::XmlReader& reader) {
  Status status = reader.MoveToFirstAttribute();
  if (status == platform::kXmlFalse) return true;
  if (status != kStatusOk) {
    ConsolePrint(L"Error moving to first attribute, error is %08.8lx", status);
    return false;
  }
  while (status == kStatusOk) {
    if (!reader.IsDefaultAttribute()) {
      std::wstring prefix, name, value;
      if ((status = reader.GetPrefix(&prefix)) != kStatusOk) {
        ConsolePrint(L"Error getting prefix, error is %08.8lx", status);
        return false;
      }
      if ((status = reader.GetLocalName(&name)) != kStatusOk) {
        ConsolePrint(L"Error getting local name, error is %08.8lx", status);
        return false;
      }
      if ((status = reader.GetValue(&value)) != kStatusOk) {
        ConsolePrint(L"Error getting value, error is %08.8lx", status);
        return false;
      }
      if (prefix.empty()) {
        ConsolePrint(L"Attr: %s=\"%s\" \n", name.c_str(), value.c_str());
      } else {
        ConsolePrint(L"Attr: %s:%s=\"%s\" \n", prefix.c_str(), name.c_str(), value.c_str());
      }
    }
    status = reader.MoveToNextAttribute();
  }
  reader.MoveToElement();
  return true;
}

// The prefix and local name of an element or end element, or the failure printed.
bool QualifiedName(platform::XmlReader& reader, std::wstring* prefix, std::wstring* name) {
  Status status = reader.GetPrefix(prefix);
  if (status != kStatusOk) {
    ConsolePrint(L"Error getting prefix, error is %08.8lx", status);
    return false;
  }
  status = reader.GetLocalName(name);
  if (status != kStatusOk) {
    ConsolePrint(L"Error getting local name, error is %08.8lx", status);
    return false;
  }
  return true;
}

void PrintNamed(const wchar_t* what, const std::wstring& prefix, const std::wstring& name) {
  if (prefix.empty()) {
    ConsolePrint(L"%s: %s\n", what, name.c_str());
  } else {
    ConsolePrint(L"%s: %s:%s\n", what, prefix.c_str(), name.c_str());
  }
}

}  // namespace

bool PolicyDocumentReader::ReadPolicyDocument(const wchar_t* path) {
  std::unique_ptr<platform::XmlReader> reader;
  platform::XmlOpenStep failed = platform::XmlOpenStep::kNone;
  Status status = kStatusOk;
  if (!platform::TheXmlDocuments().Open(path, &reader, &failed, &status)) {
    switch (failed) {
      case platform::XmlOpenStep::kLoadLibrary:
        ConsolePrint(L"Error loading library xmllite.dll, err=%d\n", status);
        ConsolePrint(L"Please install xmllite in order to process XML policies.\n");
        break;
      case platform::XmlOpenStep::kFindCreateReader:
        ConsolePrint(
            L"Error obtaining pointer to CreateXmlReader API, please reinstall xmllite!\n");
        break;
      case platform::XmlOpenStep::kOpenFile:
        ConsolePrint(L"Error creating file reader, error is %08.8lx", status);
        break;
      case platform::XmlOpenStep::kCreateReader:
        ConsolePrint(L"Error creating xml reader, error is %08.8lx", status);
        break;
      case platform::XmlOpenStep::kProhibitDtd:
        ConsolePrint(L"Error setting XmlReaderProperty_DtdProcessing, error is %08.8lx", status);
        break;
      case platform::XmlOpenStep::kSetInput:
      case platform::XmlOpenStep::kNone:
        ConsolePrint(L"Error setting input for reader, error is %08.8lx", status);
        break;
    }
    return false;
  }
  XmlNodeType type = XmlNodeType::kNone;
  // Any answer but 0 ends the document: its end, and equally a syntax error from here on.
  while ((endStatus_ = reader->Read(&type)) == kStatusOk) {
    std::wstring prefix, name, value;
    switch (type) {
      case XmlNodeType::kElement: {
        if (!QualifiedName(*reader, &prefix, &name)) return false;
        PrintNamed(L"Element", prefix, name);
        const bool empty = reader->IsEmptyElement();
        if (!ListAttributes(*reader)) return false;
        if (empty) ConsolePrint(L" (empty)");
        if (!OpenElement(name.c_str())) {
          ConsolePrint(L"Invalid element %s\n", name.c_str());
          return false;
        }
        break;
      }
      case XmlNodeType::kText:
        if ((status = reader->GetValue(&value)) != kStatusOk) {
          ConsolePrint(L"Error getting value, error is %08.8lx", status);
          return false;
        }
        ConsolePrint(L"Text: >%s<\n", value.c_str());
        if (!TakeValue(value.c_str())) {
          ConsolePrint(L"Invalid value %s\n", value.c_str());
          return false;
        }
        break;
      case XmlNodeType::kCData:
        reader->GetValue(&value);
        ConsolePrint(L"CDATA: %s\n", value.c_str());
        break;
      case XmlNodeType::kProcessingInstruction:
        if ((status = reader->GetLocalName(&name)) != kStatusOk) {
          ConsolePrint(L"Error getting name, error is %08.8lx", status);
          return false;
        }
        reader->GetValue(&value);
        ConsolePrint(L"Processing Instruction name:%s value:%s\n", name.c_str(), value.c_str());
        break;
      case XmlNodeType::kComment:
        reader->GetValue(&value);
        ConsolePrint(L"Comment: %s\n", value.c_str());
        break;
      case XmlNodeType::kDocumentType:
        ConsolePrint(L"DOCTYPE is not printed\n");
        break;
      case XmlNodeType::kEndElement:
        if (!QualifiedName(*reader, &prefix, &name)) return false;
        PrintNamed(L"End Element", prefix, name);
        if (!CloseElement(name.c_str())) {
          ConsolePrint(L"Invalid element end %s\n", name.c_str());
          return false;
        }
        break;
      case XmlNodeType::kXmlDeclaration:
        ConsolePrint(L"XmlDeclaration\n");
        if (!ListAttributes(*reader)) return false;
        break;
      default:  // whitespace and the node kinds the format does not use
        break;
    }
  }
  return true;
}

bool PolicyDocumentReader::OpenElement(const wchar_t* name) {
  const int element = MatchElement(name);
  ConsolePrint(L"Return value from MatchElement = %d\n", element);
  switch (element) {
    case kUnknown:
      return false;
    case kPolicies:
      return true;
    case kPolicy:
      if (blacklist_ != nullptr)
        return Fail(L"Error: in a blacklist when <policy> was encountered\n");
      if (policy_ != nullptr)
        return Fail(L"Error: already in a policy when <policy> was encountered\n");
      policy_ = &document_.policies.emplace_back();
      return true;
    case kDefaultGroup:
      if (group_ != nullptr) {
        return Fail(L"Error: already in a group when <default_group> was encountered\n");
      }
      if (policy_ == nullptr) return false;
      if (policy_->defaultGroup) {
        return Fail(L"Error: default group has already been specified for this policy\n");
      }
      group_ = &policy_->defaultGroup.emplace();
      group_->isDefault = true;
      return true;
    case kGroup:
      if (group_ != nullptr)
        return Fail(L"Error: already in a group when <group> was encountered\n");
      if (policy_ == nullptr) return false;
      group_ = &policy_->groups.emplace_back();
      return true;
    case kRule:
      if (rule_ != nullptr) return Fail(L"Error: already in a rule when <rule> encountered\n");
      if (group_ == nullptr) return false;
      rule_ = &group_->rules.emplace_back();
      return true;
    case kAction:
      if (rule_ == nullptr) return Fail(L"Error: not in <rule> when <action> encountered!\n");
      if (action_ != nullptr)
        return Fail(L"Error: already in an action when <action> encountered!\n");
      action_ = &rule_->action.emplace();
      return true;
    case kDefaultAction:
      if (action_ != nullptr) {
        return Fail(L"Error: already in an action when <default_action> was encountered\n");
      }
      if (policy_ == nullptr) return false;
      if (policy_->defaultAction) {
        return Fail(L"Error: default action has already been specified for this policy\n");
      }
      action_ = &policy_->defaultAction.emplace();
      return true;
    case kAggregateMatch:
      ConsolePrint(L"Into ProcessAggregateMatch\n");
      if (aggregate_ != nullptr) {
        return Fail(L"Error: already in an aggregate match when <aggregate_match> encountered\n");
      }
      if (policy_ == nullptr) return false;
      aggregate_ = &policy_->aggregates.emplace_back();
      return true;
    case kMatch:
      if (match_ != nullptr) return Fail(L"Error: already in a match when <match> encountered\n");
      if (aggregate_ != nullptr) {
        match_ = &aggregate_->matches.emplace_back();
      } else if (rule_ != nullptr) {
        match_ = &rule_->matches.emplace_back();
      } else {
        return Fail(L"Error: got a match while not in a rule or aggregate match.\n");
      }
      return true;
    case kBlacklist:
      if (policy_ != nullptr) return Fail(L"Error: in a policy when <blacklist> was encountered\n");
      if (blacklist_ != nullptr) {
        return Fail(L"Error: already in a blacklist when <blacklist> was encountered\n");
      }
      blacklist_ = &document_.blacklists.emplace_back();
      return true;
    case kIpRange:
      if (blacklist_ == nullptr)
        return Fail(L"Error: cannot specify ip_range unless in a blacklist\n");
      if (range_ != nullptr)
        return Fail(L"Error: already in an ip_range when <ip_range> encountered\n");
      range_ = &blacklist_->ranges.emplace_back();
      return true;
    case kUid:
      pending_ = rule_ != nullptr        ? kRuleUidValue
                 : group_ != nullptr     ? kGroupUidValue
                 : aggregate_ != nullptr ? kAggregateUidValue
                 : policy_ != nullptr    ? kPolicyUidValue
                                         : kNone;
      return pending_ != kNone ||
             Fail(L"Must be in policy, aggregate match, group, or rule to use <uid>\n");
    case kName:
      pending_ = rule_ != nullptr        ? kRuleNameValue
                 : group_ != nullptr     ? kGroupNameValue
                 : aggregate_ != nullptr ? kAggregateNameValue
                 : policy_ != nullptr    ? kPolicyNameValue
                                         : kNone;
      return pending_ != kNone || Fail(L"Must be in policy, group, or rule to use <name>\n");
    default:
      break;
  }
  const LeafRule* leaf = FindLeaf(element);
  if (leaf == nullptr) return false;
  const bool open = [&] {
    switch (leaf->needs) {
      case Needs::kAction:
        return action_ != nullptr;
      case Needs::kRule:
        return rule_ != nullptr;
      case Needs::kMatch:
        return match_ != nullptr;
      case Needs::kAggregate:
        return aggregate_ != nullptr;
      case Needs::kPolicy:
        return policy_ != nullptr;
      case Needs::kBlacklist:
        return blacklist_ != nullptr;
      case Needs::kRange:
        return range_ != nullptr;
    }
    return false;
  }();
  if (!open) return Fail(leaf->leaf.misplaced);
  pending_ = leaf->leaf.pending;
  return true;
}

// A name from one of the reader's tables; a refused one leaves 0 in the field.
bool PolicyDocumentReader::TakeEnumeration(int32_t* field, int which, const wchar_t* text) {
  struct Table {
    int pending;
    std::span<const NamedValue> names;
    const wchar_t* refused;
  };
  static const Table kTables[] = {
      {kPolicyTypeValue, kPolicyTypeReaderNames, L"Error: invalid value for policy type\n"},
      {kActionTypeValue, kActionReaderNames, L"Error: invalid value for action type\n"},
      {kOpTypeValue, kMatchOpReaderNames, L"Error: invalid value for op type\n"},
      {kLogOptionValue, kLogOptionReaderNames, L"Error: invalid value for log option\n"},
      {kDefaultLogOptionValue, kLogOptionReaderNames,
       L"Error: invalid value for default log option\n"},
      {kBlacklistLogOptionValue, kLogOptionReaderNames,
       L"Error: invalid value for blacklist log option\n"},
  };
  for (const Table& table : kTables) {
    if (table.pending != which) continue;
    if (LookUpName(table.names, text, field)) return true;
    return Fail(table.refused);
  }
  return false;
}

// The record a pending code writes into must still be open: an empty-element leaf (which has no
// end) can leave its code pending after its container closed.
bool PolicyDocumentReader::RecordOpenFor(int pending) const {
  switch (pending) {
    case kPolicyTypeValue:
    case kDefaultLogOptionValue:
    case kStatefulValue:
    case kStickyValue:
    case kBootTimeValue:
    case kPolicyNameValue:
    case kPolicyUidValue:
    case kPpuidValue:
      return policy_ != nullptr;
    case kActionTypeValue:
    case kTargetValue:
    case kLengthValue:
      return action_ != nullptr;
    case kMatchTypeValue:
    case kOpTypeValue:
    case kValueValue:
      return match_ != nullptr;
    case kHotDropValue:
    case kTeredoValue:
    case kTeredoAwareValue:
    case kInvertValue:
    case kEnabledValue:
    case kLogOptionValue:
    case kLogThrottleValue:
    case kRuleNameValue:
    case kRuleUidValue:
      return rule_ != nullptr;
    case kOrOperatorValue:
    case kAggregateNameValue:
    case kAggregateUidValue:
      return aggregate_ != nullptr;
    case kGroupNameValue:
    case kGroupUidValue:
      return group_ != nullptr;
    case kBlacklistLogOptionValue:
      return blacklist_ != nullptr;
    case kLowValue:
    case kHighValue:
    case kTtlValue:
      return range_ != nullptr;
    default:
      return false;
  }
}

bool PolicyDocumentReader::TakeValue(const wchar_t* text) {
  const int pending = RecordOpenFor(pending_) ? pending_ : -pending_;
  bool taken = false;
  int done = pending + 4;  // the four enumerations; every other code sets its own
  switch (pending) {
    case kPolicyTypeValue:
      taken = TakeEnumeration(&policy_->type, pending, text);
      break;
    case kActionTypeValue:
      taken = TakeEnumeration(&action_->type, pending, text);
      break;
    case kOpTypeValue:
      taken = TakeEnumeration(&match_->op, pending, text);
      break;
    case kMatchTypeValue: {
      int32_t type = 0;
      if (LookUpName(kMatchTypeReaderNames, text, &type)) {
        taken = true;
      } else if (text[0] >= L'0' && text[0] <= L'9') {
        // Any text that starts with a digit is a number, read as the runtime's atoi reads it.
        type = ParseDecimal(text);
        taken = type >= FW_MATCH_FIRST_AGGREGATE_MATCH;
        if (!taken) {
          ConsolePrint(L"Error: invalid value for aggregate match type: %d\n", type);
          type = 0;
        }
      } else {
        ConsolePrint(L"Error: invalid value for match type\n");
      }
      match_->type = type;
      break;
    }
    case kLogOptionValue:
    case kDefaultLogOptionValue:
    case kBlacklistLogOptionValue: {
      int32_t* field = pending == kLogOptionValue          ? &rule_->logOption
                       : pending == kDefaultLogOptionValue ? &policy_->defaultLogOption
                                                           : &blacklist_->logOption;
      taken = TakeEnumeration(field, pending, text);
      done = pending + 1;
      break;
    }
    case kHotDropValue:
    case kTeredoValue:
    case kTeredoAwareValue:
    case kInvertValue:
    case kEnabledValue:
    case kOrOperatorValue: {
      struct Flag {
        int pending;
        const wchar_t* refused;
      };
      static const Flag kFlags[] = {
          {kHotDropValue, L"Non-boolean value for hotdropif\n"},
          {kTeredoValue, L"Non-boolean value for teredo\n"},
          {kTeredoAwareValue, L"Non-boolean value for teredo aware app\n"},
          {kInvertValue, L"Non-boolean value for invert match\n"},
          {kEnabledValue, L"Non-boolean value for enabled\n"},
          {kOrOperatorValue, L"Non-boolean value for or_operator\n"},
      };
      bool* field = pending == kHotDropValue       ? &rule_->hotDropIfNotMatch
                    : pending == kTeredoValue      ? &rule_->teredo
                    : pending == kTeredoAwareValue ? &rule_->teredoAwareApp
                    : pending == kInvertValue      ? &rule_->invertMatch
                    : pending == kEnabledValue     ? &rule_->enabled
                                                   : &aggregate_->orOperator;
      const int value = ParseBoolean(text);
      taken = value >= 0;
      if (taken) {
        *field = value == 1;
      } else {
        for (const Flag& flag : kFlags) {
          if (flag.pending == pending) Fail(flag.refused);
        }
      }
      done = pending + 1;
      break;
    }
    case kStatefulValue:
    case kStickyValue:
    case kBootTimeValue: {
      bool* field = pending == kStatefulValue ? &policy_->stateful
                    : pending == kStickyValue ? &policy_->sticky
                                              : &policy_->bootTimeOnly;
      const int value = ParseYesNo(text);
      taken = value >= 0;
      if (taken) {
        *field = value == 1;
      } else {
        Fail(pending == kStatefulValue
                 ? L"Error: invalid value for stateful option, valid input is yes/no\n"
             : pending == kStickyValue
                 ? L"Error: invalid value for sticky option, valid input is yes/no\n"
                 : L"Error: invalid value for boot_time_only option, valid input is yes/no\n");
      }
      done = pending + 1;
      break;
    }
    case kTargetValue: {
      ParsedTarget target;
      taken = ParseTarget(text, action_->type, &target);
      if (taken && action_->type == FW_ACTION_REDIRECT) {
        action_->redirectAddress = target.address;
        action_->redirectPort = target.port;
        action_->redirectValue = target.value;
      } else if (taken) {
        action_->target = target.uid;
      }
      done = kTargetDone;
      break;
    }
    case kLengthValue: {
      uint64_t length = 0;
      taken = GetNumericValue(text, 0xFFFFFFFF, &length) && length != 0;
      if (taken) {
        action_->length = static_cast<uint32_t>(length);
      } else {
        Fail(L"Non-numeric value for length\n");
      }
      done = kLengthDone;
      break;
    }
    case kValueValue:
      match_->value = text;
      taken = true;
      done = kValueDone;
      break;
    case kRuleNameValue:
    case kGroupNameValue:
    case kAggregateNameValue:
    case kPolicyNameValue: {
      std::optional<std::wstring>* field = pending == kRuleNameValue        ? &rule_->name
                                           : pending == kGroupNameValue     ? &group_->name
                                           : pending == kAggregateNameValue ? &aggregate_->name
                                                                            : &policy_->name;
      std::wstring name;
      taken = ParseName(text, OwnerOf(pending), &name);
      if (taken) *field = std::move(name);
      done = kNameDone;
      break;
    }
    case kPolicyUidValue:
    case kAggregateUidValue:
    case kGroupUidValue:
    case kRuleUidValue:
    case kPpuidValue: {
      std::optional<Guid>* field = pending == kPolicyUidValue      ? &policy_->uid
                                   : pending == kAggregateUidValue ? &aggregate_->uid
                                   : pending == kGroupUidValue     ? &group_->uid
                                   : pending == kRuleUidValue      ? &rule_->uid
                                                                   : &policy_->pointProduct;
      Guid uid{};
      taken = ParseUid(text, &uid);
      if (taken) *field = uid;
      done = pending == kPpuidValue ? kPpuidDone : kUidDone;
      break;
    }
    case kLowValue:
    case kHighValue: {
      IpAddress address{};
      taken = ParseIpAddress(&address, text);
      if (taken) (pending == kLowValue ? range_->low : range_->high) = address;
      done = pending + 1;
      break;
    }
    case kTtlValue: {
      uint64_t ttl = 0;
      taken = GetNumericValue(text, 0xFFFFFFFF, &ttl);
      if (taken) {
        range_->timeToLive = static_cast<uint32_t>(ttl);
      } else {
        Fail(L"Error: ttl is non-numeric or greater than 0xFFFFFFFF\n");
      }
      done = kTtlDone;
      break;
    }
    case kLogThrottleValue: {
      uint64_t throttle = 0;
      // 0 is a throttle only when written as the single digit.
      taken = GetNumericValue(text, kMaxLogThrottle, &throttle) &&
              (throttle != 0 || std::wstring_view(text) == L"0");
      if (taken) {
        rule_->logThrottle = static_cast<uint32_t>(throttle);
      } else {
        ConsolePrint(
            L"Error: Invalid value for log throttle. Log Throttle should be in the range [%u,%u]\n",
            0u, kMaxLogThrottle);
      }
      done = kLogThrottleDone;
      break;
    }
    default:
      ConsolePrint(L"Bug: no function for processing %d\n", pending_);
      return false;
  }
  if (taken) pending_ = done;
  return taken;
}

bool PolicyDocumentReader::ActionComplete() const {
  switch (action_->type) {
    case 0:
      return false;
    case FW_ACTION_JUMP:
    case FW_ACTION_CALL_PLUGIN:
      return action_->target.has_value();
    case FW_ACTION_BLOCK_HOST:
      return action_->length != 0;
    case FW_ACTION_REDIRECT:
      return (action_->redirectAddress.version == 4 || action_->redirectAddress.version == 6) &&
             action_->redirectPort != 0;
    default:
      return true;
  }
}

bool PolicyDocumentReader::CloseElement(const wchar_t* name) {
  const int element = MatchElement(name);
  // Closing checks: the container must be open; an incomplete one prints what it lacks, then
  // that it is incomplete. Either way it is closed.
  auto close = [](auto*& open, const wchar_t* notOpen, auto&& lacks, const wchar_t* incomplete) {
    if (open == nullptr) return Fail(notOpen);
    const wchar_t* missing = lacks();
    open = nullptr;
    if (missing == nullptr) return true;
    if (missing[0] != L'\0') ConsolePrint(L"%s", missing);
    return Fail(incomplete);
  };
  auto complete = [] { return static_cast<const wchar_t*>(nullptr); };
  switch (element) {
    case kPolicies:
      return true;
    case kPolicy:
      return close(
          policy_, L"Error: encountered </policy> while not in a policy\n",
          [&]() -> const wchar_t* {
            if (!policy_->uid) return L"Error: policy needs a uid\n";
            if (!policy_->pointProduct) return L"Error: policy needs a ppuid\n";
            if (!policy_->name) return L"Error: policy needs a name\n";
            if (policy_->type == 0) return L"Error: policy needs a type\n";
            if (!policy_->defaultGroup) return L"Error: policy needs a default group\n";
            return nullptr;
          },
          L"Error: policy is incomplete\n");
    case kGroup:
      return close(
          group_, L"Error: encountered </group> while not in a group\n",
          [&]() -> const wchar_t* {
            if (!group_->uid) return L"Error: group needs a uid\n";
            if (!group_->name) return L"Error: group needs a name\n";
            return nullptr;
          },
          L"Error: group is incomplete\n");
    case kDefaultGroup:
      return close(group_, L"Error: encountered </default_group> while not in default group\n",
                   complete, L"Error: default group is incomplete\n");
    case kRule:
      return close(
          rule_, L"Error: encountered </rule> while not in a rule\n",
          [&]() -> const wchar_t* {
            if (!rule_->uid) return L"Error: rule needs a uid\n";
            if (!rule_->name) return L"Error: rule needs a name\n";
            if (!rule_->action) return L"Error: rule needs an action\n";
            return nullptr;
          },
          L"Error: rule is incomplete\n");
    case kAction:
    case kDefaultAction:
      return close(
          action_,
          element == kAction
              ? L"Error: encountered </action> while not in an action\n"
              : L"Error: encountered </default_action> while not in default action\n",
          [&]() -> const wchar_t* { return ActionComplete() ? nullptr : L""; },
          element == kAction ? L"Error: action is incomplete\n"
                             : L"Error: default action is incomplete\n");
    case kAggregateMatch:
      return close(
          aggregate_, L"Error: encountered </aggregate_match> while not in an aggregate match\n",
          [&]() -> const wchar_t* {
            return aggregate_->uid ? nullptr : L"Error: aggregate match needs a uid\n";
          },
          L"Error: aggregate match is incomplete\n");
    case kMatch:
      return close(
          match_, L"Error: encountered </match> while not in a match\n",
          [&]() -> const wchar_t* {
            return match_->type != 0 && match_->op != FW_MATCH_OP_LAST ? nullptr : L"";
          },
          L"Error: match is incomplete\n");
    case kBlacklist:
      return close(
          blacklist_, L"Error: encountered </blacklist> while not in a blacklist\n",
          [&]() -> const wchar_t* {
            return blacklist_->ranges.empty()
                       ? L"Error: Blacklist must contain at least one ip_range\n"
                       : nullptr;
          },
          L"Error: blacklist is incomplete\n");
    case kIpRange:
      return close(
          range_, L"Error: encountered </ip_range> while not in an ip_range\n",
          [&]() -> const wchar_t* {
            if (!range_->low) return L"Error: ip_range did not have low value set.\n";
            if (!range_->high) return L"Error: ip_range did not have high value set.\n";
            return nullptr;
          },
          L"Error: ip_range is incomplete\n");
    default:
      break;
  }
  const int done = element == kUnknown ? -1 : DoneCode(element);
  const bool expected = done >= 0 && pending_ == done;
  pending_ = kNone;
  if (expected) return true;
  ConsolePrint(L"Error: received unexpected </%s>\n",
               element == kUnknown ? name : EndName(element));
  return false;
}

}  // namespace nw
