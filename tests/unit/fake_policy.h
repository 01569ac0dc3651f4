#pragma once

// A policy model for the views' tests: every object answers from plain fields and records the
// calls it receives in one shared log, so that a test can pin what the views print and in
// which order they asked.

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/interfaces.h"

namespace nw::testing {

using CallLog = std::vector<std::string>;

/// One term: what each getter delivers, and the getters that fail (by name) with a status.
struct FakeTerm {
  int32_t op = 0;
  uint8_t u8 = 0;
  uint16_t u16 = 0;
  uint32_t u32 = 0;
  uint64_t u64 = 0;
  uint16_t low16 = 0, high16 = 0;
  uint64_t low64 = 0, high64 = 0;
  /// The array's bytes; the count reported is their number unless count says otherwise.
  std::vector<uint8_t> bytes{};
  std::optional<uint32_t> count{};
  Guid aggregate{};
  bool nullAggregate = false;
  /// The string; the length reported is its size plus one unless length says otherwise.
  std::wstring text{};
  std::optional<uint32_t> length{};
  bool nullText = false;
  IpAddress ip{}, low{}, high{};
  bool nullAddresses = false;
  uint8_t prefix = 0;
  int32_t kind = 0;
  std::map<std::string, Status> fail{};
  /// Every getter succeeds without writing what it hands out.
  bool silent = false;
};

/// Bytes placed after every array: a reader that goes past the reported count prints them.
inline constexpr uint8_t kGuardByte = 0xEE;

class FakeTerms final : public IMatchTerms {
 public:
  FakeTerms(CallLog& log, std::vector<FakeTerm> terms) : log_(log), terms_(std::move(terms)) {
    for (const FakeTerm& term : terms_) {
      auto& storage = storage_.emplace_back(term.bytes);
      storage.resize(storage.size() + 8, kGuardByte);
    }
  }

  Status Unused0() override { return Log("Unused0", 0, kStatusNotImplemented); }
  uint32_t GetCount() override {
    log_.push_back("GetCount");
    return static_cast<uint32_t>(terms_.size());
  }
  int32_t GetOperator(uint32_t i) override { return Log("GetOperator", i, terms_.at(i).op); }
  Status GetUint8(uint32_t i, uint8_t* v) override {
    return Answer("GetUint8", i, [&] { *v = terms_[i].u8; });
  }
  Status GetUint16(uint32_t i, uint16_t* v) override {
    return Answer("GetUint16", i, [&] { *v = terms_[i].u16; });
  }
  Status GetUint32(uint32_t i, uint32_t* v) override {
    return Answer("GetUint32", i, [&] { *v = terms_[i].u32; });
  }
  Status GetUint64(uint32_t i, uint64_t* v) override {
    return Answer("GetUint64", i, [&] { *v = terms_[i].u64; });
  }
  Status GetUint16Range(uint32_t i, uint16_t* low, uint16_t* high) override {
    return Answer("GetUint16Range", i, [&] {
      *low = terms_[i].low16;
      *high = terms_[i].high16;
    });
  }
  Status Unused8() override { return Log("Unused8", 0, kStatusNotImplemented); }
  Status GetUint64Range(uint32_t i, uint64_t* low, uint64_t* high) override {
    return Answer("GetUint64Range", i, [&] {
      *low = terms_[i].low64;
      *high = terms_[i].high64;
    });
  }
  Status GetUint8Array(uint32_t i, const uint8_t** bytes, uint32_t* count) override {
    return Answer("GetUint8Array", i, [&] {
      *bytes = storage_[i].data();
      *count = terms_[i].count.value_or(static_cast<uint32_t>(terms_[i].bytes.size()));
    });
  }
  Status GetAggregateUid(uint32_t i, const Guid** uid) override {
    return Answer("GetAggregateUid", i,
                  [&] { *uid = terms_[i].nullAggregate ? nullptr : &terms_[i].aggregate; });
  }
  Status GetString(uint32_t i, const wchar_t** text, uint32_t* length) override {
    return Answer("GetString", i, [&] {
      *text = terms_[i].nullText ? nullptr : terms_[i].text.c_str();
      *length = terms_[i].length.value_or(static_cast<uint32_t>(terms_[i].text.size() + 1));
    });
  }
  Status GetIpAddress(uint32_t i, const IpAddress** address) override {
    return Answer("GetIpAddress", i,
                  [&] { *address = terms_[i].nullAddresses ? nullptr : &terms_[i].ip; });
  }
  Status GetIpAddressRange(uint32_t i, const IpAddress** low, const IpAddress** high) override {
    return Answer("GetIpAddressRange", i, [&] {
      *low = terms_[i].nullAddresses ? nullptr : &terms_[i].low;
      *high = terms_[i].nullAddresses ? nullptr : &terms_[i].high;
    });
  }
  Status GetIpMask(uint32_t i, const uint8_t** prefix) override {
    return Answer("GetIpMask", i, [&] { *prefix = &terms_[i].prefix; });
  }
  int32_t GetIpAddressMatchType(uint32_t i) override {
    return Log("GetIpAddressMatchType", i, terms_.at(i).kind);
  }

 private:
  template <class T>
  T Log(const char* name, uint32_t i, T result) {
    log_.push_back(std::string(name) + "(" + std::to_string(i) + ")");
    return result;
  }
  template <class Fill>
  Status Answer(const char* name, uint32_t i, Fill fill) {
    auto failing = terms_.at(i).fail.find(name);
    if (failing != terms_[i].fail.end()) return Log(name, i, failing->second);
    if (!terms_[i].silent) fill();
    return Log(name, i, kStatusOk);
  }

  CallLog& log_;
  std::vector<FakeTerm> terms_;
  std::vector<std::vector<uint8_t>> storage_;
};

class FakeMatch final : public IMatch {
 public:
  FakeMatch(CallLog& log, int32_t type, std::vector<FakeTerm> terms)
      : log_(log), type_(type), terms_(log, std::move(terms)) {}
  int32_t GetType() override {
    log_.push_back("GetType");
    return type_;
  }
  IMatchTerms* GetTerms() override { return &terms_; }

 private:
  CallLog& log_;
  int32_t type_;
  FakeTerms terms_;
};

/// A match as a test states it.
struct MatchSpec {
  int32_t type;
  std::vector<FakeTerm> terms;
};

/// What a rule answers besides its name; the identifiers' null flags make the getters hand out
/// null.
struct RuleFields {
  int32_t action = 1;
  Guid uid{};
  Guid target{};
  bool nullTarget = false;
  IpAddress redirect{};
  bool nullRedirect = false;
  uint16_t port = 0;
  int64_t value = 0;
  int32_t logOption = 0;
  uint32_t throttle = 0xFFFFFFFF;
  bool enabled = true, hotDrop = false, teredo = false, teredoAware = false, invert = false;
};

class FakeRule final : public IRule {
 public:
  FakeRule(std::wstring name, RuleFields fields = {})
      : name_(std::move(name)), f_(std::move(fields)) {}
  int32_t GetAction() override { return f_.action; }
  Status Unused1() override { return kStatusNotImplemented; }
  const Guid* GetTargetUid() override { return f_.nullTarget ? nullptr : &f_.target; }
  Status Unused3() override { return kStatusNotImplemented; }
  const Guid* GetUid() override { return &f_.uid; }
  int32_t GetLogOption() override { return f_.logOption; }
  bool GetHotDropIfNotMatch() override { return f_.hotDrop; }
  bool IsEnabled() override { return f_.enabled; }
  bool GetInvertMatch() override { return f_.invert; }
  const wchar_t* GetName() override { return name_.c_str(); }
  Status Unused10() override { return kStatusNotImplemented; }
  bool IsTeredoRule() override { return f_.teredo; }
  bool IsTeredoAwareApp() override { return f_.teredoAware; }
  const IpAddress* GetRedirectAddress() override {
    return f_.nullRedirect ? nullptr : &f_.redirect;
  }
  uint16_t GetRedirectPort() override { return f_.port; }
  int64_t GetRedirectValue() override { return f_.value; }
  uint32_t GetLogThrottle() override { return f_.throttle; }

 private:
  std::wstring name_;
  RuleFields f_;
};

class FakeGroup final : public IPolicyGroup {
 public:
  explicit FakeGroup(Guid uid = {}) : uid_(uid) {}
  const Guid* GetUid() override { return &uid_; }

 private:
  Guid uid_{};
};

class FakeAggregate final : public IAggregateMatch {
 public:
  FakeAggregate(std::wstring name, bool orOperator, Guid uid = {})
      : name_(std::move(name)), or_(orOperator), uid_(uid) {}
  const Guid* GetUid() override { return &uid_; }
  const wchar_t* GetName() override { return name_.c_str(); }
  bool IsOrOperator() override { return or_; }

 private:
  std::wstring name_;
  bool or_;
  Guid uid_{};
};

/// A policy as a test states it: its aggregates, its groups of rules, and the take-jumps walk
/// as the core would answer it (rule numbers counted over all groups, with their indications).
struct PolicySpec {
  std::wstring name{};
  bool stateful = false, sticky = false, bootTimeOnly = false;
  struct Aggregate {
    std::wstring name;
    bool orOperator = false;
    std::vector<MatchSpec> matches;
    Guid uid{};
  };
  struct Rule {
    std::wstring name;
    std::vector<MatchSpec> matches;
    RuleFields fields{};
  };
  std::vector<Aggregate> aggregates{};
  std::vector<std::vector<Rule>> groups{};
  struct Step {
    size_t rule;
    uint32_t indication;
  };
  std::vector<Step> jumps{};
  /// The indication GetNextRuleTakingJumps gives with the null at the end.
  uint32_t endIndication = 3;
  /// Which aggregate EnterAggregateMatch enters; none: GetCurrentAggregateMatch is null.
  std::optional<size_t> entered = 0;
  /// The groups' identifiers, in order; a group beyond the list has the zero identifier.
  std::vector<Guid> groupUids{};
  int32_t defaultAction = 5;
  int32_t defaultLogOption = 0;
  int32_t type = 2;
  Guid pointProduct{};
  bool nullPointProduct = false;
};

class FakePolicy final : public IPolicy {
 public:
  FakePolicy(CallLog& log, const PolicySpec& shape) : log_(log), spec_(shape) {
    for (const auto& a : shape.aggregates) {
      aggregates_.emplace_back(a.name, a.orOperator, a.uid);
      aggregateMatches_.push_back(Matches(a.matches));
    }
    for (const auto& group : shape.groups) {
      const size_t number = groups_.size();
      groups_.emplace_back(number < shape.groupUids.size() ? shape.groupUids[number] : Guid{});
      auto& rules = rules_.emplace_back();
      for (const auto& r : group) {
        rules.push_back(std::make_unique<FakeRule>(r.name, r.fields));
        ruleMatches_.push_back(Matches(r.matches));
        flatRules_.push_back(rules.back().get());
      }
    }
  }

  Status Unused0() override { return Call("Unused0", kStatusNotImplemented); }
  uint32_t Release() override { return Call("Release", 0u); }
  Status SetIterationMode(int32_t mode) override {
    return Call("SetIterationMode(" + std::to_string(mode) + ")", kStatusOk);
  }
  IAggregateMatch* GetCurrentAggregateMatch() override {
    return Call(
        "GetCurrentAggregateMatch",
        spec_.entered ? static_cast<IAggregateMatch*>(&aggregates_[*spec_.entered]) : nullptr);
  }
  IAggregateMatch* GetNextAggregateMatch() override {
    if (nextAggregate_ >= aggregates_.size()) return Call("GetNextAggregateMatch", nullptr);
    current_ = &aggregateMatches_[nextAggregate_];
    position_ = 0;
    return Call("GetNextAggregateMatch", &aggregates_[nextAggregate_++]);
  }
  Status EnterAggregateMatch(IMatch* match, void* reserved) override {
    saved_ = {current_, position_};
    current_ = spec_.entered ? &aggregateMatches_[*spec_.entered] : nullptr;
    position_ = 0;
    (void)match;
    return Call(reserved == nullptr ? "EnterAggregateMatch" : "EnterAggregateMatch(reserved)",
                kStatusOk);
  }
  Status Unused6() override { return Call("Unused6", kStatusNotImplemented); }
  Status LeaveAggregateMatch() override {
    current_ = saved_.first;
    position_ = saved_.second;
    return Call("LeaveAggregateMatch", kStatusOk);
  }
  Status AdvanceIteration() override { return Call("AdvanceIteration", kStatusOk); }
  IPolicyGroup* GetNextGroup() override {
    if (nextGroup_ >= groups_.size()) return Call("GetNextGroup", nullptr);
    group_ = nextGroup_;
    nextRule_ = 0;
    return Call("GetNextGroup", &groups_[nextGroup_++]);
  }
  Status Unused10() override { return Call("Unused10", kStatusNotImplemented); }
  IMatch* GetNextMatch() override {
    if (current_ == nullptr || position_ >= current_->size()) return Call("GetNextMatch", nullptr);
    return Call("GetNextMatch", (*current_)[position_++].get());
  }
  Status Unused12() override { return Call("Unused12", kStatusNotImplemented); }
  IRule* GetNextRuleTakingJumps(uint32_t* indication) override {
    if (step_ >= spec_.jumps.size()) {
      *indication = spec_.endIndication;
      return Call("GetNextRuleTakingJumps", nullptr);
    }
    const auto& step = spec_.jumps[step_++];
    *indication = step.indication;
    current_ = &ruleMatches_[step.rule];
    position_ = 0;
    return Call("GetNextRuleTakingJumps", flatRules_[step.rule]);
  }
  IRule* GetNextRule() override {
    if (nextRule_ >= rules_[group_].size()) return Call("GetNextRule", nullptr);
    size_t flat = nextRule_;
    for (size_t g = 0; g < group_; ++g) flat += rules_[g].size();
    current_ = &ruleMatches_[flat];
    position_ = 0;
    return Call("GetNextRule", static_cast<IRule*>(rules_[group_][nextRule_++].get()));
  }
  Status Unused15() override { return Call("Unused15", kStatusNotImplemented); }
  bool IsStateful() override { return spec_.stateful; }
  bool IsSticky() override { return spec_.sticky; }
  bool IsBootTimeOnly() override { return spec_.bootTimeOnly; }
  const wchar_t* GetName() override { return spec_.name.c_str(); }
  int32_t GetDefaultAction() override { return spec_.defaultAction; }
  int32_t GetDefaultLogOption() override { return spec_.defaultLogOption; }
  Status Unused22() override { return Call("Unused22", kStatusNotImplemented); }
  const Guid* GetPointProductUid() override {
    return spec_.nullPointProduct ? nullptr : &spec_.pointProduct;
  }
  int32_t GetPolicyType() override { return spec_.type; }

 private:
  using MatchList = std::vector<std::unique_ptr<FakeMatch>>;
  MatchList Matches(const std::vector<MatchSpec>& specs) {
    MatchList list;
    for (const MatchSpec& m : specs)
      list.push_back(std::make_unique<FakeMatch>(log_, m.type, m.terms));
    return list;
  }
  template <class T>
  T Call(const std::string& name, T result) {
    log_.push_back(name);
    return result;
  }

  CallLog& log_;
  PolicySpec spec_;
  std::vector<FakeAggregate> aggregates_;
  std::vector<MatchList> aggregateMatches_;
  std::vector<FakeGroup> groups_;
  std::vector<std::vector<std::unique_ptr<FakeRule>>> rules_;
  std::vector<FakeRule*> flatRules_;
  std::vector<MatchList> ruleMatches_;
  MatchList* current_ = nullptr;
  size_t position_ = 0;
  std::pair<MatchList*, size_t> saved_{nullptr, 0};
  size_t nextAggregate_ = 0, nextGroup_ = 0, group_ = 0, nextRule_ = 0, step_ = 0;
};

class FakeGuidList final : public IGuidList {
 public:
  FakeGuidList(CallLog& log, std::vector<Guid> uids) : log_(log), uids_(std::move(uids)) {}
  Status Unused0() override { return kStatusNotImplemented; }
  uint32_t Release() override {
    log_.push_back("IGuidList::Release");
    return 0;
  }
  const Guid* GetGuids() override { return uids_.data(); }
  uint64_t GetCount() override { return uids_.size(); }

 private:
  CallLog& log_;
  std::vector<Guid> uids_;
};

/// The manager: lists by type (or the status the list fails with), policies by identifier, and
/// the fetches that fail (the n-th fetch of one identifier, counted from 1).
class FakeManager final : public IPolicyManager {
 public:
  explicit FakeManager(CallLog& log) : log_(log) {}

  std::map<int32_t, std::vector<Guid>> lists;
  std::map<int32_t, Status> listFails;
  std::vector<std::pair<Guid, PolicySpec>> policies;
  struct FetchFail {
    Guid uid;
    uint32_t fetch;
    Status status;
  };
  std::vector<FetchFail> fetchFails;
  std::map<std::string, Status> deleteFails;  // by the identifier's Data1 in decimal
  bool nullList = false;
  bool nullPolicy = false;

  Status Unused0() override { return kStatusNotImplemented; }
  uint32_t Release() override { return 0; }
  Status GetPolicyBuilder(IPolicyBuilder** out) override { return NotHere(out); }
  Status GetRuleBuilder(IRuleBuilder** out) override { return NotHere(out); }
  Status GetAggregateMatchBuilder(IAggregateMatchBuilder** out) override { return NotHere(out); }
  Status GetExistingPolicy(IPolicy** out, const Guid* uid) override {
    log_.push_back("GetExistingPolicy(" + std::to_string(uid->Data1) + ")");
    const uint32_t fetch = ++fetches_[uid->Data1];
    for (const FetchFail& f : fetchFails) {
      if (f.uid == *uid && f.fetch == fetch) return f.status;
    }
    if (nullPolicy) return kStatusOk;
    for (auto& [id, shape] : policies) {
      if (id == *uid) {
        *out = objects_.emplace_back(std::make_unique<FakePolicy>(log_, shape)).get();
        return kStatusOk;
      }
    }
    return static_cast<Status>(0x80070490u);
  }
  Status GetExistingPolicyList(IGuidList** out, int32_t type) override {
    log_.push_back("GetExistingPolicyList(" + std::to_string(type) + ")");
    if (auto failing = listFails.find(type); failing != listFails.end()) return failing->second;
    if (nullList) return kStatusOk;
    *out = lists_.emplace_back(std::make_unique<FakeGuidList>(log_, lists[type])).get();
    return kStatusOk;
  }
  Status AddPolicy(IPolicyBuilder*, void*, void*) override { return kStatusNotImplemented; }
  Status DeletePolicy(const Guid* uid) override {
    const std::string id = std::to_string(uid->Data1);
    log_.push_back("DeletePolicy(" + id + ")");
    auto failing = deleteFails.find(id);
    return failing == deleteFails.end() ? kStatusOk : failing->second;
  }

 private:
  template <class T>
  Status NotHere(T** out) {
    *out = nullptr;
    return kStatusNotImplemented;
  }
  CallLog& log_;
  std::map<uint32_t, uint32_t> fetches_;
  std::vector<std::unique_ptr<FakePolicy>> objects_;
  std::vector<std::unique_ptr<FakeGuidList>> lists_;
};

}  // namespace nw::testing
