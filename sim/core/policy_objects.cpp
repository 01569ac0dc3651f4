#include "sim/core/policy_objects.h"

#include <algorithm>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "core/policy_values.h"
#include "sim/core/builder_objects.h"

namespace nw::sim {
namespace {

// Whether the scenario injects a fault into any of these operations (however qualified), so
// that the hot getters look for faults only when there can be one.
bool HasFaultFor(const Scenario& scenario, std::initializer_list<std::string_view> operations) {
  for (const auto& entry : scenario.faults) {
    std::string_view name = entry.first;
    const size_t qualifier = name.find("::");
    if (qualifier != std::string_view::npos) name.remove_prefix(qualifier + 2);
    name = name.substr(0, name.find(':'));
    for (std::string_view operation : operations) {
      if (name == operation) return true;
    }
  }
  return false;
}

class GuidList final : public SimObject<IGuidList, CoreState> {
 public:
  GuidList(std::shared_ptr<CoreState> state, std::vector<Guid> uids)
      : SimObject(std::move(state), "IGuidList"), uids_(std::move(uids)) {}
  const Guid* GetGuids() override {
    Call("GetGuids");
    return uids_.data();
  }
  uint64_t GetCount() override {
    Call("GetCount");
    return uids_.size();
  }

 private:
  std::vector<Guid> uids_;
};

struct Range {
  uint32_t begin = 0;
  uint32_t end = 0;
  bool empty() const { return begin >= end; }
};

class PolicyObject;

/// The kinds of object a policy owns, for their call traces.
enum class Owned { kTerms, kMatch, kRule, kGroup, kAggregate };

class SimTerms final : public IMatchTerms {
 public:
  SimTerms(PolicyObject* owner, const MatchModel* match, const Guid* container, uint32_t matchIndex)
      : owner_(owner), match_(match), container_(container), matchIndex_(matchIndex) {}

  Status Unused0() override;
  uint32_t GetCount() override;
  int32_t GetOperator(uint32_t index) override;
  Status GetUint8(uint32_t index, uint8_t* value) override {
    return Value("GetUint8", index, value, &TermModel::uint8);
  }
  Status GetUint16(uint32_t index, uint16_t* value) override {
    return Value("GetUint16", index, value, &TermModel::uint16);
  }
  Status GetUint32(uint32_t index, uint32_t* value) override {
    return Value("GetUint32", index, value, &TermModel::uint32);
  }
  Status GetUint64(uint32_t index, uint64_t* value) override {
    return Value("GetUint64", index, value, &TermModel::uint64);
  }
  Status GetUint16Range(uint32_t index, uint16_t* low, uint16_t* high) override;
  Status Unused8() override;
  Status GetUint64Range(uint32_t index, uint64_t* low, uint64_t* high) override;
  Status GetUint8Array(uint32_t index, const uint8_t** bytes, uint32_t* count) override;
  Status GetAggregateUid(uint32_t index, const Guid** uid) override;
  Status GetString(uint32_t index, const wchar_t** text, uint32_t* length) override;
  Status GetIpAddress(uint32_t index, const IpAddress** address) override;
  Status GetIpAddressRange(uint32_t index, const IpAddress** low, const IpAddress** high) override;
  Status GetIpMask(uint32_t index, const uint8_t** prefixLength) override;
  int32_t GetIpAddressMatchType(uint32_t index) override;

 private:
  // The course of every getter: the fault for this term, then the index, then whether the
  // term holds the kind asked for (take answers that and delivers the value).
  template <class Take>
  Status Get(const char* operation, uint32_t index, Take take);

  template <class T>
  Status Value(const char* operation, uint32_t index, T* out, std::optional<T> TermModel::*field) {
    if (out == nullptr)
      return Get(operation, index, [](const TermModel&) { return kStatusInvalidArg; });
    *out = 0;
    return Get(operation, index, [&](const TermModel& term) {
      if (!(term.*field)) return kStatusTypeMismatch;
      *out = *(term.*field);
      return kStatusOk;
    });
  }

  PolicyObject* owner_;
  const MatchModel* match_;
  const Guid* container_;
  uint32_t matchIndex_;
};

class SimMatch final : public IMatch {
 public:
  SimMatch(PolicyObject* owner, const MatchModel* model, const Guid* container, uint32_t index)
      : owner_(owner), model_(model), terms_(owner, model, container, index) {}
  int32_t GetType() override;
  IMatchTerms* GetTerms() override;
  const MatchModel& model() const { return *model_; }

 private:
  PolicyObject* owner_;
  const MatchModel* model_;
  SimTerms terms_;
};

class SimRule final : public IRule {
 public:
  SimRule(PolicyObject* owner, const RuleModel* model, Range matches, std::optional<uint32_t> jump)
      : owner_(owner), model_(model), matches_(matches), jumpGroup_(jump) {}

  int32_t GetAction() override;
  Status Unused1() override;
  const Guid* GetTargetUid() override;
  Status Unused3() override;
  const Guid* GetUid() override;
  int32_t GetLogOption() override;
  bool GetHotDropIfNotMatch() override;
  bool IsEnabled() override;
  bool GetInvertMatch() override;
  const wchar_t* GetName() override;
  Status Unused10() override;
  bool IsTeredoRule() override;
  bool IsTeredoAwareApp() override;
  const IpAddress* GetRedirectAddress() override;
  uint16_t GetRedirectPort() override;
  int64_t GetRedirectValue() override;
  uint32_t GetLogThrottle() override;

  Range matches() const { return matches_; }
  bool isJump() const { return model_->action == FW_ACTION_JUMP; }
  /// The group a jump leads to, when it names one of the policy's groups.
  std::optional<uint32_t> jumpGroup() const { return jumpGroup_; }

 private:
  PolicyObject* owner_;
  const RuleModel* model_;
  Range matches_;
  std::optional<uint32_t> jumpGroup_;
};

class SimGroup final : public IPolicyGroup {
 public:
  SimGroup(PolicyObject* owner, const GroupModel* model, Range rules)
      : owner_(owner), model_(model), rules_(rules) {}
  const Guid* GetUid() override;
  Range rules() const { return rules_; }

 private:
  PolicyObject* owner_;
  const GroupModel* model_;
  Range rules_;
};

class SimAggregate final : public IAggregateMatch {
 public:
  SimAggregate(PolicyObject* owner, const AggregateModel* model, Range matches)
      : owner_(owner), model_(model), matches_(matches) {}
  const Guid* GetUid() override;
  const wchar_t* GetName() override;
  bool IsOrOperator() override;
  Range matches() const { return matches_; }

 private:
  PolicyObject* owner_;
  const AggregateModel* model_;
  Range matches_;
};

class PolicyObject final : public SimObject<IPolicy, CoreState> {
 public:
  PolicyObject(std::shared_ptr<CoreState> state, std::shared_ptr<const PolicyModel> model,
               const Scenario& scenario);

  Status SetIterationMode(int32_t mode) override;
  IAggregateMatch* GetCurrentAggregateMatch() override {
    Call("GetCurrentAggregateMatch");
    return entered_;
  }
  IAggregateMatch* GetNextAggregateMatch() override;
  Status EnterAggregateMatch(IMatch* match, void* reserved) override;
  Status Unused6() override {
    Call("Unused6");
    return Done("Unused6", kStatusNotImplemented);
  }
  Status LeaveAggregateMatch() override;
  Status AdvanceIteration() override;
  IPolicyGroup* GetNextGroup() override;
  Status Unused10() override {
    Call("Unused10");
    return Done("Unused10", kStatusNotImplemented);
  }
  IMatch* GetNextMatch() override;
  Status Unused12() override {
    Call("Unused12");
    return Done("Unused12", kStatusNotImplemented);
  }
  IRule* GetNextRuleTakingJumps(uint32_t* jumpIndication) override;
  IRule* GetNextRule() override;
  Status Unused15() override {
    Call("Unused15");
    return Done("Unused15", kStatusNotImplemented);
  }
  bool IsStateful() override {
    Call("IsStateful");
    return model_->stateful;
  }
  bool IsSticky() override {
    Call("IsSticky");
    return model_->sticky;
  }
  bool IsBootTimeOnly() override {
    Call("IsBootTimeOnly");
    return model_->bootTimeOnly;
  }
  const wchar_t* GetName() override {
    Call("GetName");
    return model_->name ? model_->name->c_str() : nullptr;
  }
  int32_t GetDefaultAction() override {
    Call("GetDefaultAction");
    return model_->defaultAction;
  }
  int32_t GetDefaultLogOption() override {
    Call("GetDefaultLogOption");
    return model_->defaultLogOption;
  }
  Status Unused22() override {
    Call("Unused22");
    return Done("Unused22", kStatusNotImplemented);
  }
  const Guid* GetPointProductUid() override {
    Call("GetPointProductUid");
    return &model_->ppuid;
  }
  int32_t GetPolicyType() override {
    Call("GetPolicyType");
    return model_->type;
  }

  /// The fault the scenario injects into one term's getter, if any.
  std::optional<Status> TermFault(const char* operation, const Guid& container, uint32_t matchIndex,
                                  uint32_t termIndex) const;
  /// Traces "<interfaceName>::<operation> -> <status>" for an object the policy owns.
  Status TraceOwned(const char* interfaceName, const char* operation, Status status) const;
  /// Traces the call of an operation of an object the policy owns (see CallTracer).
  template <class... Args>
  void Trace(Owned owned, std::string_view operation, const Args&... args) const {
    ownedCalls_[static_cast<int>(owned)](operation, args...);
  }

 private:
  struct Frame {
    uint32_t group;
    uint32_t position;  // of the cursor among the group's rules
  };
  enum class Walk { kBeforeStart, kRunning, kEnded };

  Status Done(const char* operation, Status status) const {
    return trace_ ? Traced(operation, status) : status;
  }
  std::optional<Status> WalkFault(const char* operation) const {
    return walkFaults_ ? Fault(operation, uidText_) : std::nullopt;
  }
  void AddMatches(const std::vector<MatchModel>& matches, const Guid* container);
  void ResetWalks();
  SimRule& RuleAt(const Frame& frame) {
    return rules_[groups_[frame.group].rules().begin + frame.position];
  }
  bool OnPath(uint32_t group) const;
  bool Followable(const SimRule& rule) const {
    return rule.jumpGroup() && !OnPath(*rule.jumpGroup());
  }
  /// Leaves every group whose rules are done, returning to the rule after the jump into it.
  void ReturnFromFinishedGroups();
  IRule* HandOut(SimRule& rule, uint32_t indication, uint32_t* jumpIndication);
  void PassRuleAtCursor();

  std::shared_ptr<const PolicyModel> model_;
  std::string uidText_;
  /// The call traces of the objects the policy owns, by Owned.
  CallTracer ownedCalls_[5];
  bool trace_ = false;
  bool termFaults_ = false;
  bool walkFaults_ = false;

  std::vector<SimMatch> matches_;
  std::vector<SimRule> rules_;
  std::vector<SimGroup> groups_;
  std::vector<SimAggregate> aggregates_;

  int32_t mode_ = kIterateLinear;
  uint32_t nextAggregate_ = 0;
  uint32_t nextGroup_ = 0;
  Range ruleCursor_;
  Range matchCursor_;
  bool inAggregate_ = false;
  Range savedMatchCursor_;
  SimAggregate* entered_ = nullptr;
  Walk walk_ = Walk::kBeforeStart;
  std::vector<Frame> path_;
  uint32_t linearPosition_ = 0;
  /// The rule handed out last has not been passed yet.
  bool handedOut_ = false;
  uint32_t rulesHandedOut_ = 0;
};

// ---- Terms --------------------------------------------------------------------------------

template <class Take>
Status SimTerms::Get(const char* operation, uint32_t index, Take take) {
  owner_->Trace(Owned::kTerms, operation, index);
  Status status;
  if (auto fault = owner_->TermFault(operation, *container_, matchIndex_, index)) {
    status = *fault;
  } else if (index >= match_->terms.size()) {
    status = kStatusInvalidArg;
  } else {
    status = take(match_->terms[index]);
  }
  return owner_->TraceOwned("IMatchTerms", operation, status);
}

Status SimTerms::Unused0() {
  owner_->Trace(Owned::kTerms, "Unused0");
  return owner_->TraceOwned("IMatchTerms", "Unused0", kStatusNotImplemented);
}
Status SimTerms::Unused8() {
  owner_->Trace(Owned::kTerms, "Unused8");
  return owner_->TraceOwned("IMatchTerms", "Unused8", kStatusNotImplemented);
}

Status SimTerms::GetUint16Range(uint32_t index, uint16_t* low, uint16_t* high) {
  if (low == nullptr || high == nullptr) {
    return Get("GetUint16Range", index, [](const TermModel&) { return kStatusInvalidArg; });
  }
  *low = *high = 0;
  return Get("GetUint16Range", index, [&](const TermModel& term) {
    if (!term.uint16Range) return kStatusTypeMismatch;
    *low = term.uint16Range->low;
    *high = term.uint16Range->high;
    return kStatusOk;
  });
}

Status SimTerms::GetUint64Range(uint32_t index, uint64_t* low, uint64_t* high) {
  if (low == nullptr || high == nullptr) {
    return Get("GetUint64Range", index, [](const TermModel&) { return kStatusInvalidArg; });
  }
  *low = *high = 0;
  return Get("GetUint64Range", index, [&](const TermModel& term) {
    if (!term.uint64Range) return kStatusTypeMismatch;
    *low = term.uint64Range->low;
    *high = term.uint64Range->high;
    return kStatusOk;
  });
}

Status SimTerms::GetUint8Array(uint32_t index, const uint8_t** bytes, uint32_t* count) {
  if (bytes == nullptr || count == nullptr) {
    return Get("GetUint8Array", index, [](const TermModel&) { return kStatusInvalidArg; });
  }
  *bytes = nullptr;
  *count = 0;
  return Get("GetUint8Array", index, [&](const TermModel& term) {
    if (!term.bytes) return kStatusTypeMismatch;
    *bytes = term.bytes->storage.data();
    *count = term.bytes->count;
    return kStatusOk;
  });
}

Status SimTerms::GetAggregateUid(uint32_t index, const Guid** uid) {
  if (uid == nullptr) {
    return Get("GetAggregateUid", index, [](const TermModel&) { return kStatusInvalidArg; });
  }
  *uid = nullptr;
  return Get("GetAggregateUid", index, [&](const TermModel& term) {
    if (!term.aggregate) return kStatusTypeMismatch;
    *uid = &*term.aggregate;
    return kStatusOk;
  });
}

Status SimTerms::GetString(uint32_t index, const wchar_t** text, uint32_t* length) {
  if (text == nullptr || length == nullptr) {
    return Get("GetString", index, [](const TermModel&) { return kStatusInvalidArg; });
  }
  *text = nullptr;
  *length = 0;
  return Get("GetString", index, [&](const TermModel& term) {
    if (!term.string) return kStatusTypeMismatch;
    *text = term.string->text.c_str();
    *length = term.string->length;
    return kStatusOk;
  });
}

Status SimTerms::GetIpAddress(uint32_t index, const IpAddress** address) {
  if (address == nullptr) {
    return Get("GetIpAddress", index, [](const TermModel&) { return kStatusInvalidArg; });
  }
  *address = nullptr;
  return Get("GetIpAddress", index, [&](const TermModel& term) {
    if (!term.ip) return kStatusTypeMismatch;
    *address = &*term.ip;
    return kStatusOk;
  });
}

Status SimTerms::GetIpAddressRange(uint32_t index, const IpAddress** low, const IpAddress** high) {
  if (low == nullptr || high == nullptr) {
    return Get("GetIpAddressRange", index, [](const TermModel&) { return kStatusInvalidArg; });
  }
  *low = *high = nullptr;
  return Get("GetIpAddressRange", index, [&](const TermModel& term) {
    if (!term.ipRange) return kStatusTypeMismatch;
    *low = &term.ipRange->low;
    *high = &term.ipRange->high;
    return kStatusOk;
  });
}

Status SimTerms::GetIpMask(uint32_t index, const uint8_t** prefixLength) {
  if (prefixLength == nullptr) {
    return Get("GetIpMask", index, [](const TermModel&) { return kStatusInvalidArg; });
  }
  *prefixLength = nullptr;
  return Get("GetIpMask", index, [&](const TermModel& term) {
    if (!term.prefix) return kStatusTypeMismatch;
    *prefixLength = &*term.prefix;
    return kStatusOk;
  });
}

Status SimRule::Unused1() {
  owner_->Trace(Owned::kRule, "Unused1");
  return owner_->TraceOwned("IRule", "Unused1", kStatusNotImplemented);
}
Status SimRule::Unused3() {
  owner_->Trace(Owned::kRule, "Unused3");
  return owner_->TraceOwned("IRule", "Unused3", kStatusNotImplemented);
}
Status SimRule::Unused10() {
  owner_->Trace(Owned::kRule, "Unused10");
  return owner_->TraceOwned("IRule", "Unused10", kStatusNotImplemented);
}

uint32_t SimTerms::GetCount() {
  owner_->Trace(Owned::kTerms, "GetCount");
  return static_cast<uint32_t>(match_->terms.size());
}
int32_t SimTerms::GetOperator(uint32_t index) {
  owner_->Trace(Owned::kTerms, "GetOperator", index);
  return index < match_->terms.size() ? match_->terms[index].op : -1;
}
int32_t SimTerms::GetIpAddressMatchType(uint32_t index) {
  owner_->Trace(Owned::kTerms, "GetIpAddressMatchType", index);
  return index < match_->terms.size() ? match_->terms[index].AddressKind() : 0;
}

int32_t SimMatch::GetType() {
  owner_->Trace(Owned::kMatch, "GetType");
  return model_->type;
}
IMatchTerms* SimMatch::GetTerms() {
  owner_->Trace(Owned::kMatch, "GetTerms");
  return &terms_;
}

int32_t SimRule::GetAction() {
  owner_->Trace(Owned::kRule, "GetAction");
  return model_->action;
}
const Guid* SimRule::GetTargetUid() {
  owner_->Trace(Owned::kRule, "GetTargetUid");
  return &model_->target;
}
const Guid* SimRule::GetUid() {
  owner_->Trace(Owned::kRule, "GetUid");
  return &model_->uid;
}
int32_t SimRule::GetLogOption() {
  owner_->Trace(Owned::kRule, "GetLogOption");
  return model_->logOption;
}
bool SimRule::GetHotDropIfNotMatch() {
  owner_->Trace(Owned::kRule, "GetHotDropIfNotMatch");
  return model_->hotDropIfNotMatch;
}
bool SimRule::IsEnabled() {
  owner_->Trace(Owned::kRule, "IsEnabled");
  return model_->enabled;
}
bool SimRule::GetInvertMatch() {
  owner_->Trace(Owned::kRule, "GetInvertMatch");
  return model_->invertMatch;
}
const wchar_t* SimRule::GetName() {
  owner_->Trace(Owned::kRule, "GetName");
  return model_->name ? model_->name->c_str() : nullptr;
}
bool SimRule::IsTeredoRule() {
  owner_->Trace(Owned::kRule, "IsTeredoRule");
  return model_->teredo;
}
bool SimRule::IsTeredoAwareApp() {
  owner_->Trace(Owned::kRule, "IsTeredoAwareApp");
  return model_->teredoAwareApp;
}
const IpAddress* SimRule::GetRedirectAddress() {
  owner_->Trace(Owned::kRule, "GetRedirectAddress");
  return &model_->redirectAddress;
}
uint16_t SimRule::GetRedirectPort() {
  owner_->Trace(Owned::kRule, "GetRedirectPort");
  return model_->redirectPort;
}
int64_t SimRule::GetRedirectValue() {
  owner_->Trace(Owned::kRule, "GetRedirectValue");
  return model_->redirectValue;
}
uint32_t SimRule::GetLogThrottle() {
  owner_->Trace(Owned::kRule, "GetLogThrottle");
  return model_->logThrottle;
}

const Guid* SimGroup::GetUid() {
  owner_->Trace(Owned::kGroup, "GetUid");
  return &model_->uid;
}

const Guid* SimAggregate::GetUid() {
  owner_->Trace(Owned::kAggregate, "GetUid");
  return &model_->uid;
}
const wchar_t* SimAggregate::GetName() {
  owner_->Trace(Owned::kAggregate, "GetName");
  return model_->name ? model_->name->c_str() : nullptr;
}
bool SimAggregate::IsOrOperator() {
  owner_->Trace(Owned::kAggregate, "IsOrOperator");
  return model_->orOperator;
}

// ---- The policy and its walks -------------------------------------------------------------

PolicyObject::PolicyObject(std::shared_ptr<CoreState> state,
                           std::shared_ptr<const PolicyModel> model, const Scenario& scenario)
    : SimObject(std::move(state), "IPolicy"),
      model_(std::move(model)),
      ownedCalls_{{&this->state(), "IMatchTerms"},
                  {&this->state(), "IMatch"},
                  {&this->state(), "IRule"},
                  {&this->state(), "IPolicyGroup"},
                  {&this->state(), "IAggregateMatch"}} {
  uidText_ = GuidText(model_->uid);
  trace_ = scenario.debug.trace;
  termFaults_ =
      HasFaultFor(scenario, {"GetUint8", "GetUint16", "GetUint32", "GetUint64", "GetUint16Range",
                             "GetUint64Range", "GetUint8Array", "GetAggregateUid", "GetString",
                             "GetIpAddress", "GetIpAddressRange", "GetIpMask"});
  walkFaults_ = HasFaultFor(scenario, {"SetIterationMode", "EnterAggregateMatch",
                                       "LeaveAggregateMatch", "AdvanceIteration"});

  // Everything is laid out once, in linear order, before any pointer to it is handed out.
  size_t matchCount = 0, ruleCount = 0;
  for (const AggregateModel& aggregate : model_->aggregates) matchCount += aggregate.matches.size();
  for (const GroupModel& group : model_->groups) {
    ruleCount += group.rules.size();
    for (const RuleModel& rule : group.rules) matchCount += rule.matches.size();
  }
  matches_.reserve(matchCount);
  rules_.reserve(ruleCount);
  groups_.reserve(model_->groups.size());
  aggregates_.reserve(model_->aggregates.size());
  for (const AggregateModel& aggregate : model_->aggregates) {
    const auto first = static_cast<uint32_t>(matches_.size());
    AddMatches(aggregate.matches, &aggregate.uid);
    aggregates_.emplace_back(this, &aggregate,
                             Range{first, static_cast<uint32_t>(matches_.size())});
  }
  for (const GroupModel& group : model_->groups) {
    const auto firstRule = static_cast<uint32_t>(rules_.size());
    for (const RuleModel& rule : group.rules) {
      std::optional<uint32_t> target;
      if (rule.action == FW_ACTION_JUMP) {
        for (uint32_t g = 0; g < model_->groups.size(); ++g) {
          if (model_->groups[g].uid == rule.target) target = g;
        }
      }
      const auto first = static_cast<uint32_t>(matches_.size());
      AddMatches(rule.matches, &rule.uid);
      rules_.emplace_back(this, &rule, Range{first, static_cast<uint32_t>(matches_.size())},
                          target);
    }
    groups_.emplace_back(this, &group, Range{firstRule, static_cast<uint32_t>(rules_.size())});
  }
}

void PolicyObject::AddMatches(const std::vector<MatchModel>& matches, const Guid* container) {
  for (uint32_t i = 0; i < matches.size(); ++i)
    matches_.emplace_back(this, &matches[i], container, i);
}

std::optional<Status> PolicyObject::TermFault(const char* operation, const Guid& container,
                                              uint32_t matchIndex, uint32_t termIndex) const {
  if (!termFaults_) return std::nullopt;
  const std::string item = uidText_ + "/" + GuidText(container) + "/" + std::to_string(matchIndex) +
                           "/" + std::to_string(termIndex);
  return state().Fault(std::string("IMatchTerms::") + operation, item);
}

Status PolicyObject::TraceOwned(const char* interfaceName, const char* operation,
                                Status status) const {
  if (trace_) state().TraceCall(std::string(interfaceName) + "::" + operation, status);
  return status;
}

void PolicyObject::ResetWalks() {
  nextAggregate_ = nextGroup_ = 0;
  ruleCursor_ = matchCursor_ = savedMatchCursor_ = Range{};
  inAggregate_ = false;
  entered_ = nullptr;
  walk_ = Walk::kBeforeStart;
  path_.clear();
  linearPosition_ = rulesHandedOut_ = 0;
  handedOut_ = false;
}

Status PolicyObject::SetIterationMode(int32_t mode) {
  Call("SetIterationMode", mode);
  if (auto fault = WalkFault("SetIterationMode")) return Done("SetIterationMode", *fault);
  if (mode != kIterateLinear && mode != kIterateTakingJumps) {
    return Done("SetIterationMode", kStatusInvalidArg);
  }
  mode_ = mode;
  ResetWalks();
  return Done("SetIterationMode", kStatusOk);
}

IAggregateMatch* PolicyObject::GetNextAggregateMatch() {
  Call("GetNextAggregateMatch");
  if (nextAggregate_ >= aggregates_.size()) return nullptr;
  SimAggregate& aggregate = aggregates_[nextAggregate_++];
  matchCursor_ = aggregate.matches();
  return &aggregate;
}

IPolicyGroup* PolicyObject::GetNextGroup() {
  Call("GetNextGroup");
  if (nextGroup_ >= groups_.size()) return nullptr;
  SimGroup& group = groups_[nextGroup_++];
  ruleCursor_ = group.rules();
  matchCursor_ = Range{};
  return &group;
}

IRule* PolicyObject::GetNextRule() {
  Call("GetNextRule");
  if (ruleCursor_.empty()) return nullptr;
  SimRule& rule = rules_[ruleCursor_.begin++];
  matchCursor_ = rule.matches();
  return &rule;
}

IMatch* PolicyObject::GetNextMatch() {
  Call("GetNextMatch");
  if (matchCursor_.empty()) return nullptr;
  return &matches_[matchCursor_.begin++];
}

Status PolicyObject::EnterAggregateMatch(IMatch* match, void*) {
  Call("EnterAggregateMatch");
  if (auto fault = WalkFault("EnterAggregateMatch")) return Done("EnterAggregateMatch", *fault);
  // Only a reference among this policy's own matches can be entered, one at a time.
  auto own = std::find_if(matches_.begin(), matches_.end(),
                          [match](SimMatch& m) { return static_cast<IMatch*>(&m) == match; });
  if (own == matches_.end() || own->model().type < FW_MATCH_FIRST_AGGREGATE_MATCH) {
    return Done("EnterAggregateMatch", kStatusInvalidArg);
  }
  if (inAggregate_) return Done("EnterAggregateMatch", kStatusUnexpected);
  inAggregate_ = true;
  savedMatchCursor_ = matchCursor_;
  matchCursor_ = Range{};
  entered_ = nullptr;
  const auto& terms = own->model().terms;
  for (SimAggregate& aggregate : aggregates_) {
    if (!terms.empty() && terms.front().aggregate &&
        *aggregate.GetUid() == *terms.front().aggregate) {
      entered_ = &aggregate;
      matchCursor_ = aggregate.matches();
      return Done("EnterAggregateMatch", kStatusOk);
    }
  }
  // A reference to an aggregate the policy does not have enters nothing: no name, no members.
  return Done("EnterAggregateMatch", kStatusNotFound);
}

Status PolicyObject::LeaveAggregateMatch() {
  Call("LeaveAggregateMatch");
  if (auto fault = WalkFault("LeaveAggregateMatch")) return Done("LeaveAggregateMatch", *fault);
  if (!inAggregate_) return Done("LeaveAggregateMatch", kStatusUnexpected);
  inAggregate_ = false;
  entered_ = nullptr;
  matchCursor_ = savedMatchCursor_;
  return Done("LeaveAggregateMatch", kStatusOk);
}

bool PolicyObject::OnPath(uint32_t group) const {
  return std::any_of(path_.begin(), path_.end(),
                     [group](const Frame& f) { return f.group == group; });
}

void PolicyObject::ReturnFromFinishedGroups() {
  while (!path_.empty()) {
    const Frame& top = path_.back();
    const Range rules = groups_[top.group].rules();
    if (rules.begin + top.position < rules.end) return;
    path_.pop_back();
  }
}

// The cursor of a walk points at the rule GetNextRuleTakingJumps hands out next, and stays on
// it once it is handed out. AdvanceIteration passes the rule at the cursor (into its target
// group when it is a jump that is followed); a rule handed out and not passed by then is passed
// by the next GetNextRuleTakingJumps before it hands out another. A jump that is cut off is
// passed as it is handed out, so an AdvanceIteration after it passes the next rule unseen.
void PolicyObject::PassRuleAtCursor() {
  handedOut_ = false;
  if (mode_ == kIterateLinear) {
    ++linearPosition_;
    return;
  }
  ReturnFromFinishedGroups();
  if (path_.empty()) return;
  const SimRule& rule = RuleAt(path_.back());
  ++path_.back().position;
  if (Followable(rule)) path_.push_back(Frame{*rule.jumpGroup(), 0});
}

Status PolicyObject::AdvanceIteration() {
  Call("AdvanceIteration");
  if (auto fault = WalkFault("AdvanceIteration")) return Done("AdvanceIteration", *fault);
  if (walk_ == Walk::kBeforeStart) {
    walk_ = Walk::kRunning;
    if (mode_ == kIterateTakingJumps && !groups_.empty()) path_.push_back(Frame{0, 0});
  } else if (walk_ == Walk::kRunning) {
    PassRuleAtCursor();
  }
  return Done("AdvanceIteration", kStatusOk);
}

IRule* PolicyObject::HandOut(SimRule& rule, uint32_t indication, uint32_t* jumpIndication) {
  ++rulesHandedOut_;
  // A jump that is cut off is passed at once: there is nothing to advance into.
  handedOut_ = indication != kJumpCutOff;
  if (!handedOut_) ++path_.back().position;
  *jumpIndication = indication;
  matchCursor_ = rule.matches();
  return &rule;
}

IRule* PolicyObject::GetNextRuleTakingJumps(uint32_t* jumpIndication) {
  Call("GetNextRuleTakingJumps");
  uint32_t ignored = 0;
  if (jumpIndication == nullptr) jumpIndication = &ignored;
  *jumpIndication = kJumpEnd;
  if (walk_ != Walk::kRunning) return nullptr;
  if (handedOut_) PassRuleAtCursor();
  if (rulesHandedOut_ >= kMaxRulesPerWalk) {
    walk_ = Walk::kEnded;
    return nullptr;
  }
  if (mode_ == kIterateLinear) {
    if (linearPosition_ >= rules_.size()) {
      walk_ = Walk::kEnded;
      return nullptr;
    }
    return HandOut(rules_[linearPosition_], kJumpInSequence, jumpIndication);
  }
  ReturnFromFinishedGroups();
  if (path_.empty()) {
    walk_ = Walk::kEnded;
    return nullptr;
  }
  SimRule& rule = RuleAt(path_.back());
  if (!rule.isJump()) return HandOut(rule, kJumpInSequence, jumpIndication);
  return HandOut(rule, Followable(rule) ? kJumpFollowed : kJumpCutOff, jumpIndication);
}

}  // namespace

// ---- The manager --------------------------------------------------------------------------

template <class Builder, class Interface>
Status PolicyManager::HandOutBuilder(const char* operation, Interface** out) {
  Call(operation);
  if (out == nullptr) return Traced(operation, kStatusInvalidArg);
  *out = nullptr;
  if (auto fault = Fault(operation)) return Traced(operation, *fault);
  Builder* builder = NewObject<Builder>(sharedState());
  if (builder == nullptr) return Traced(operation, kStatusOutOfMemory);
  *out = builder;
  return Traced(operation, kStatusOk);
}

Status PolicyManager::GetPolicyBuilder(IPolicyBuilder** out) {
  return HandOutBuilder<PolicyBuilder>("GetPolicyBuilder", out);
}

Status PolicyManager::GetRuleBuilder(IRuleBuilder** out) {
  return HandOutBuilder<RuleBuilder>("GetRuleBuilder", out);
}

Status PolicyManager::GetAggregateMatchBuilder(IAggregateMatchBuilder** out) {
  return HandOutBuilder<AggregateMatchBuilder>("GetAggregateMatchBuilder", out);
}

// The assembled policy joins the store after the listed ones and the scenario is saved. The
// policy belongs to the point product that added it; an identifier the store already holds is
// refused, as is a builder that created nothing.
Status PolicyManager::Add(IPolicyBuilder* builder) {
  if (builder == nullptr) return kStatusInvalidArg;
  if (auto fault = Fault("AddPolicy")) return *fault;
  const Scenario* scenario = state().GetScenario();
  if (scenario == nullptr) return kStatusBadScenario;
  const PolicyModel* built = static_cast<PolicyBuilder*>(builder)->policy();
  if (built == nullptr) return kStatusUnexpected;
  if (FindPolicy(scenario->policies, built->uid) != nullptr) return kStatusAlreadyExists;
  auto policy = std::make_shared<PolicyModel>(*built);
  policy->ppuid = PointProductId;
  const bool keepsDocument = state().KeepsDocument();
  return state().UpdateScenario([&policy, keepsDocument](Scenario& changed) {
    changed.policies.policies.push_back(policy);
    if (keepsDocument) changed.document["policies"] = PoliciesToJson(changed.policies);
  });
}

Status PolicyManager::AddPolicy(IPolicyBuilder* builder, void*, void*) {
  Call("AddPolicy");
  return Traced("AddPolicy", Add(builder));
}

Status PolicyManager::GetExistingPolicyList(IGuidList** out, int32_t policyType) {
  Call("GetExistingPolicyList", policyType);
  if (out == nullptr) return Traced("GetExistingPolicyList", kStatusInvalidArg);
  *out = nullptr;
  const Scenario* scenario = state().GetScenario();
  if (scenario == nullptr) return Traced("GetExistingPolicyList", kStatusBadScenario);
  const std::string item = policyType >= 0 ? std::to_string(policyType) : std::string();
  if (auto fault = Fault("GetExistingPolicyList", item)) {
    return Traced("GetExistingPolicyList", *fault);
  }
  auto* list = NewObject<GuidList>(sharedState(), PolicyUids(scenario->policies, policyType));
  if (list == nullptr) return Traced("GetExistingPolicyList", kStatusOutOfMemory);
  *out = list;
  return Traced("GetExistingPolicyList", kStatusOk);
}

Status PolicyManager::FetchPolicy(IPolicy** out, const Guid* policyId) {
  if (out == nullptr) return kStatusInvalidArg;
  *out = nullptr;
  if (policyId == nullptr) return kStatusInvalidArg;
  const Scenario* scenario = state().GetScenario();
  if (scenario == nullptr) return kStatusBadScenario;
  if (auto fault = Fault("GetExistingPolicy", GuidText(*policyId))) return *fault;
  const PolicyStore& store = scenario->policies;
  std::shared_ptr<const PolicyModel> model;
  if (store.generated && lastGenerated_ && lastGeneratedSet_ == *store.generated &&
      lastGenerated_->uid == *policyId) {
    model = lastGenerated_;
  } else {
    model = FindPolicy(store, *policyId);
    if (model != nullptr && store.generated &&
        GeneratedPolicyIndex(*store.generated, *policyId).has_value()) {
      lastGenerated_ = model;
      lastGeneratedSet_ = *store.generated;
    }
  }
  if (model == nullptr) return kStatusNotFound;
  auto* policy = NewObject<PolicyObject>(sharedState(), std::move(model), *scenario);
  if (policy == nullptr) return kStatusOutOfMemory;
  *out = policy;
  return kStatusOk;
}

Status PolicyManager::GetExistingPolicy(IPolicy** out, const Guid* policyId) {
  Call("GetExistingPolicy", policyId);
  return Traced("GetExistingPolicy", FetchPolicy(out, policyId));
}

Status PolicyManager::Delete(const Guid* policyId) {
  if (policyId == nullptr) return kStatusInvalidArg;
  const Scenario* scenario = state().GetScenario();
  if (scenario == nullptr) return kStatusBadScenario;
  if (auto fault = Fault("DeletePolicy", GuidText(*policyId))) return *fault;
  const auto& listed = scenario->policies.policies;
  const bool found =
      std::any_of(listed.begin(), listed.end(), [&](const auto& p) { return p->uid == *policyId; });
  if (!found) {
    // A generated set is one line of the scenario; its members cannot go one at a time.
    const auto& generated = scenario->policies.generated;
    if (generated && GeneratedPolicyIndex(*generated, *policyId)) return kStatusNotImplemented;
    return kStatusNotFound;
  }
  const Guid uid = *policyId;
  return state().UpdateScenario([&uid](Scenario& changed) {
    auto& policies = changed.policies.policies;
    policies.erase(std::remove_if(policies.begin(), policies.end(),
                                  [&](const auto& p) { return p->uid == uid; }),
                   policies.end());
    changed.document["policies"] = PoliciesToJson(changed.policies);
  });
}

Status PolicyManager::DeletePolicy(const Guid* policyId) {
  Call("DeletePolicy", policyId);
  return Traced("DeletePolicy", Delete(policyId));
}

}  // namespace nw::sim
