#include "policy/policy_listing.h"

#include "cli/console.h"
#include "cli/core_connection.h"
#include "cli/handlers.h"
#include "core/policy_values.h"
#include "policy/match_render.h"
#include "policy/names.h"

namespace nw {
namespace {

// The only two types the views list, in the order they list them.
constexpr int32_t kListedTypes[] = {FW_POLICY_TYPE_PACKET, FW_POLICY_TYPE_STREAM};

const wchar_t* NameText(const wchar_t* name) { return name != nullptr ? name : L""; }
const wchar_t* YesNo(bool value) { return value ? L"yes" : L"no"; }
const wchar_t* TrueFalse(bool value) { return value ? L"true" : L"false"; }

// One type's list; a failure is printed and leaves *list null.
Status QueryList(IPolicyManager* manager, int32_t policyType, IGuidList** list) {
  *list = nullptr;
  const Status status =
      ObtainObject(list, [&] { return manager->GetExistingPolicyList(list, policyType); });
  if (status != kStatusOk) {
    ConsolePrint(L"GetExistingPolicyList returned error 0x%X!\n", status);
    *list = nullptr;
  }
  return status;
}

void RenderMatchesOfCurrent(IPolicy* policy) {
  for (IMatch* match = policy->GetNextMatch(); match != nullptr; match = policy->GetNextMatch()) {
    RenderMatch(match, kRenderText);
  }
}

void WalkLinearly(IPolicy* policy) {
  policy->SetIterationMode(kIterateLinear);
  ConsolePrint(L"    LINEAR ITERATION\n");
  ConsolePrint(L"    ====================================\n\n");
  for (IAggregateMatch* aggregate = policy->GetNextAggregateMatch(); aggregate != nullptr;
       aggregate = policy->GetNextAggregateMatch()) {
    ConsolePrint(L"        Aggregate Match\n");
    ConsolePrint(L"            Name: %s\n", NameText(aggregate->GetName()));
    ConsolePrint(L"            Or operator: %s\n", TrueFalse(aggregate->IsOrOperator()));
    RenderMatchesOfCurrent(policy);
    ConsolePrint(L"    ====================================\n\n");
  }
  // Groups are walked but never named in the text listing.
  for (IPolicyGroup* group = policy->GetNextGroup(); group != nullptr;
       group = policy->GetNextGroup()) {
    for (IRule* rule = policy->GetNextRule(); rule != nullptr; rule = policy->GetNextRule()) {
      ConsolePrint(L"        Rule\n");
      ConsolePrint(L"            Name: %s\n", NameText(rule->GetName()));
      RenderMatchesOfCurrent(policy);
      ConsolePrint(L"            ====================================\n\n");
    }
  }
}

// An aggregate reference is expanded where it stands, one level deeper than the rule's own
// matches.
void ExpandAggregate(IPolicy* policy, IMatch* reference) {
  policy->EnterAggregateMatch(reference, nullptr);
  IAggregateMatch* aggregate = policy->GetCurrentAggregateMatch();
  ConsolePrint(L"                Aggregate Match\n");
  // A core that enters no aggregate has no name or operator to tell.
  if (aggregate != nullptr) {
    ConsolePrint(L"                    Name: %s\n", NameText(aggregate->GetName()));
    ConsolePrint(L"                    Or operator: %s\n", TrueFalse(aggregate->IsOrOperator()));
  }
  RenderMatchesOfCurrent(policy);
  policy->LeaveAggregateMatch();
  ConsolePrint(L"                    ====================================\n\n");
}

void WalkTakingJumps(IPolicy* policy) {
  policy->SetIterationMode(kIterateTakingJumps);
  ConsolePrint(L"    TAKE JUMPS ITERATION\n");
  ConsolePrint(L"    ====================================\n\n");
  policy->AdvanceIteration();
  uint32_t jump = 0;
  IRule* rule = policy->GetNextRuleTakingJumps(&jump);
  while (rule != nullptr) {
    ConsolePrint(L"        Rule\n");
    ConsolePrint(L"            Name: %s\n", NameText(rule->GetName()));
    for (IMatch* match = policy->GetNextMatch(); match != nullptr; match = policy->GetNextMatch()) {
      RenderMatch(match, kRenderText);
      if (match->GetType() >= FW_MATCH_FIRST_AGGREGATE_MATCH) ExpandAggregate(policy, match);
    }
    ConsolePrint(L"    ====================================\n\n");
    rule = policy->GetNextRuleTakingJumps(&jump);
    // The protocol asks for an advance after indications 0 and 1, before the rule is tested.
    if (jump <= 1) policy->AdvanceIteration();
  }
}

}  // namespace

const Guid* PolicyGuids(IGuidList* list, uint64_t* count) {
  const Guid* guids = list->GetGuids();
  if (guids == nullptr) *count = 0;
  return guids;
}

Status FetchPolicy(IPolicyManager* manager, const Guid* uid, IPolicy** policy) {
  *policy = nullptr;
  return ObtainObject(policy, [&] { return manager->GetExistingPolicy(policy, uid); });
}

Status ListPolicies(IPolicyManager* manager, int32_t policyType, IGuidList** list, uint64_t* count,
                    int printHeader) {
  *count = 0;
  const Status status = QueryList(manager, policyType, list);
  if (status != kStatusOk) return status;
  *count = (*list)->GetCount();
  if (printHeader == 1) {
    const wchar_t* name = PolicyTypeName(policyType);
    if (*count == 0) {
      ConsolePrint(L"There are no %s policies.\n", name);
    } else if (*count == 1) {
      ConsolePrint(L"There is one %s policy.\n", name);
    } else {
      ConsolePrint(L"There are %d %s policies.\n", static_cast<int32_t>(*count), name);
    }
    ConsolePrint(L"====================================\n\n");
  }
  return kStatusOk;
}

void ShowPolicyTypeSummary(IPolicyManager* manager, int32_t policyType) {
  IGuidList* list = nullptr;
  uint64_t count = 0;
  LastStatus = ListPolicies(manager, policyType, &list, &count, 1);
  if (LastStatus != kStatusOk) return;
  const Guid* guids = PolicyGuids(list, &count);
  for (uint64_t i = 0; i < count; ++i) {
    wchar_t uid[kGuidTextCapacity];
    FormatGuid(uid, &guids[i]);
    ConsolePrint(L"    Policy %s\n", uid);
    IPolicy* policy = nullptr;
    LastStatus = FetchPolicy(manager, &guids[i], &policy);
    if (LastStatus != kStatusOk) {
      ConsolePrint(L"Error %x from GetExistingPolicy!\n", LastStatus);
      continue;
    }
    ConsolePrint(L"        Name: %s\n", NameText(policy->GetName()));
    ConsolePrint(L"        Stateful: %s\n", YesNo(policy->IsStateful()));
    ConsolePrint(L"        Sticky: %s\n", YesNo(policy->IsSticky()));
    ConsolePrint(L"        Boot-time only: %s\n", YesNo(policy->IsBootTimeOnly()));
    policy->Release();
  }
  list->Release();
}

void ShowPolicyType(IPolicyManager* manager, int32_t policyType) {
  IGuidList* list = nullptr;
  uint64_t count = 0;
  LastStatus = ListPolicies(manager, policyType, &list, &count, 1);
  if (LastStatus != kStatusOk) return;
  const Guid* guids = PolicyGuids(list, &count);
  bool fetchFailed = false;
  for (uint64_t i = 0; i < count; ++i) {
    IPolicy* policy = nullptr;
    LastStatus = FetchPolicy(manager, &guids[i], &policy);
    if (LastStatus != kStatusOk) {
      fetchFailed = true;
      break;
    }
    wchar_t uid[kGuidTextCapacity];
    FormatGuid(uid, &guids[i]);
    ConsolePrint(L"    Policy %s:\n", uid);
    ConsolePrint(L"           %s\n", NameText(policy->GetName()));
    WalkLinearly(policy);
    policy->Release();
    // The second walk starts on a fresh object, at the start of every cursor.
    LastStatus = FetchPolicy(manager, &guids[i], &policy);
    if (LastStatus != kStatusOk) {
      fetchFailed = true;
      break;
    }
    WalkTakingJumps(policy);
    policy->Release();
  }
  if (fetchFailed) ConsolePrint(L"Error %x from GetExistingPolicy!\n", LastStatus);
  list->Release();
}

void ShowPolicySummary(IPolicyManager* manager) {
  ConsolePrint(L"\n\nPOLICIES CURRENTLY IN FORCE...\n\n");
  ShowPolicyTypeSummary(manager, FW_POLICY_TYPE_PACKET);
  ConsolePrint(L"\n====================================\n\n");
  ShowPolicyTypeSummary(manager, FW_POLICY_TYPE_STREAM);
}

void ShowAllPolicies(IPolicyManager* manager) {
  ConsolePrint(L"\n\nDISPLAYING ALL POLICIES...\n\n");
  ShowPolicyType(manager, FW_POLICY_TYPE_PACKET);
  ConsolePrint(L"\n====================================\n\n");
  ShowPolicyType(manager, FW_POLICY_TYPE_STREAM);
}

bool HasPacketPolicies(IPolicyManager* manager) {
  IGuidList* list = nullptr;
  if (QueryList(manager, FW_POLICY_TYPE_PACKET, &list) != kStatusOk) return true;
  const uint64_t count = list->GetCount();
  list->Release();
  return count != 0;
}

bool HasAnyPolicies(IPolicyManager* manager) {
  if (HasPacketPolicies(manager)) return true;
  IGuidList* list = nullptr;
  if (QueryList(manager, FW_POLICY_TYPE_STREAM, &list) != kStatusOk) return true;
  const uint64_t count = list->GetCount();
  list->Release();
  return count != 0;
}

void DeleteAllPolicies(IPolicyManager* manager) {
  ConsolePrint(L"\n\nDELETING ALL POLICIES...\n\n");
  for (const int32_t policyType : kListedTypes) {
    IGuidList* list = nullptr;
    const Status status = QueryList(manager, policyType, &list);
    if (status != kStatusOk) {
      LastStatus = status;
      continue;
    }
    LastStatus = kStatusOk;
    uint64_t count = list->GetCount();
    const Guid* guids = PolicyGuids(list, &count);
    for (uint64_t i = 0; i < count; ++i) {
      wchar_t uid[kGuidTextCapacity];
      FormatGuid(uid, &guids[i]);
      ConsolePrint(L"    Policy %s: ", uid);
      const Status deleted = manager->DeletePolicy(&guids[i]);
      if (deleted == kStatusOk) {
        ConsolePrint(L"    successful\n");
      } else {
        ConsolePrint(L"    failed, error code: %08x\n", deleted);
      }
    }
    list->Release();
  }
}

}  // namespace nw
