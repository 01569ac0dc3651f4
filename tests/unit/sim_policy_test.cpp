// The simulated policy model: the scenario's policies section read and written back without
// loss, the walk orders the core defines, every term getter, the faults per item, generated
// sets, and a listing through the real views with nothing failing.

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "cli/console.h"
#include "cli/handlers.h"
#include "core/interfaces.h"
#include "sim/common/library_state.h"
#include "sim/common/scenario.h"
#include "sim/common/scenario_policies.h"
#include "sim/core/core_objects.h"
#include "sim/core/default_scenario.h"
#include "sim/core/policy_objects.h"
#include "tests/unit/printed.h"

namespace nw::sim {
namespace {

constexpr Status Hr(uint32_t value) { return static_cast<Status>(value); }

Guid Uid(const char* text) {
  Guid uid{};
  EXPECT_TRUE(ParseGuidText(text, &uid)) << text;
  return uid;
}

// A scenario file of one test with the core that reads it, removed when the test ends.
class PolicyCore {
 public:
  explicit PolicyCore(const Json& scenario) {
    std::random_device random;
    path_ = (std::filesystem::temp_directory_path() /
             ("nw-sim-policy-" + std::to_string(random()) + ".json"))
                .string();
    std::ofstream(path_, std::ios::binary) << scenario.dump();
    state = std::make_shared<CoreState>(LibraryState::Options{
        "kvxfwctl", DefaultScenarioText(), path_, "",
        [lines = lines](const std::wstring& line) { lines->push_back(line); }, false});
    manager = new PolicyManager(state);
  }
  ~PolicyCore() {
    manager->Release();
    std::filesystem::remove(path_);
  }
  const std::string& path() const { return path_; }

  IPolicy* Fetch(const char* uid) {
    IPolicy* policy = nullptr;
    const Guid id = Uid(uid);
    EXPECT_EQ(manager->GetExistingPolicy(&policy, &id), 0) << uid;
    return policy;
  }

  std::shared_ptr<std::vector<std::wstring>> lines = std::make_shared<std::vector<std::wstring>>();
  std::shared_ptr<CoreState> state;
  PolicyManager* manager;

 private:
  std::string path_;
};

// The uids the walk tests use: a policy, its groups and their rules by letter.
constexpr const char* kPolicy = "0000000a-0000-0000-0000-000000000000";
std::string GroupUid(int n) {
  char text[40];
  std::snprintf(text, sizeof text, "0000000b-0000-0000-0000-%012d", n);
  return text;
}

Json RuleJson(const std::string& name, const std::string& jumpTo = "") {
  Json rule = {{"name", name}};
  if (!jumpTo.empty()) {
    rule["action"] = 9;
    rule["target"] = jumpTo;
  }
  return rule;
}

// A policy of groups, each a list of rules "name" or "name>group number" (a jump to that
// group; group 0 is the default group, whose uid is the policy's).
Json WalkPolicy(const std::vector<std::vector<std::string>>& groups) {
  auto target = [](int g) { return g == 0 ? std::string(kPolicy) : GroupUid(g); };
  auto rules = [&](const std::vector<std::string>& names) {
    Json list = Json::array();
    for (const std::string& name : names) {
      const size_t jump = name.find('>');
      list.push_back(
          jump == std::string::npos
              ? RuleJson(name)
              : RuleJson(name.substr(0, jump), name.substr(jump + 1) == "x"
                                                   ? "0000000c-0000-0000-0000-000000000000"
                                                   : target(std::stoi(name.substr(jump + 1)))));
    }
    return list;
  };
  Json further = Json::array();
  for (size_t g = 1; g < groups.size(); ++g) {
    further.push_back({{"uid", GroupUid(static_cast<int>(g))}, {"rules", rules(groups[g])}});
  }
  Json policy = {{"uid", kPolicy}, {"type", 2}, {"rules", rules(groups[0])}, {"groups", further}};
  return {{"policies", {{"list", Json::array({policy})}}}};
}

std::string Narrow(const wchar_t* text) { return std::string(text, text + std::wcslen(text)); }

// The walk as the listing drives it; each rule as "name:indication".
std::vector<std::string> TakeJumps(IPolicy* policy) {
  std::vector<std::string> walk;
  policy->SetIterationMode(kIterateTakingJumps);
  policy->AdvanceIteration();
  uint32_t jump = 0;
  IRule* rule = policy->GetNextRuleTakingJumps(&jump);
  while (rule != nullptr) {
    walk.push_back(Narrow(rule->GetName()) + ":" + std::to_string(jump));
    rule = policy->GetNextRuleTakingJumps(&jump);
    if (jump <= 1) policy->AdvanceIteration();
  }
  walk.push_back("end:" + std::to_string(jump));
  return walk;
}

std::vector<std::string> Linear(IPolicy* policy) {
  std::vector<std::string> walk;
  policy->SetIterationMode(kIterateLinear);
  for (IPolicyGroup* group = policy->GetNextGroup(); group != nullptr;
       group = policy->GetNextGroup()) {
    for (IRule* rule = policy->GetNextRule(); rule != nullptr; rule = policy->GetNextRule()) {
      walk.push_back(Narrow(rule->GetName()));
    }
  }
  return walk;
}

using Walk = std::vector<std::string>;

TEST(SimPolicyWalkTest, JumpsAreFollowedAndReturnAfterTheTargetGroup) {
  const struct {
    const char* what;
    std::vector<std::vector<std::string>> groups;
    Walk linear;
    Walk jumps;
  } cases[] = {
      {"no jumps", {{"a", "b"}}, {"a", "b"}, {"a:0", "b:0", "end:3"}},
      {"one jump",
       {{"a", "j>1", "b"}, {"c", "d"}},
       {"a", "j", "b", "c", "d"},
       {"a:0", "j:1", "c:0", "d:0", "b:0", "end:3"}},
      {"jump as the first rule",
       {{"j>1", "a"}, {"c"}},
       {"j", "a", "c"},
       {"j:1", "c:0", "a:0", "end:3"}},
      {"jump as the last rule",
       {{"a", "j>1"}, {"c"}},
       {"a", "j", "c"},
       {"a:0", "j:1", "c:0", "end:3"}},
      {"nested jumps",
       {{"a", "j>1", "b"}, {"c", "k>2", "d"}, {"e"}},
       {"a", "j", "b", "c", "k", "d", "e"},
       {"a:0", "j:1", "c:0", "k:1", "e:0", "d:0", "b:0", "end:3"}},
      {"a group jumped to twice",
       {{"j>1", "k>1"}, {"c"}},
       {"j", "k", "c"},
       {"j:1", "c:0", "k:1", "c:0", "end:3"}},
      {"empty target group", {{"j>1", "a"}, {}}, {"j", "a"}, {"j:1", "a:0", "end:3"}},
      {"cycle between two groups",
       {{"a", "j>1", "b"}, {"c", "k>2"}, {"d", "l>1", "e"}},
       {"a", "j", "b", "c", "k", "d", "l", "e"},
       {"a:0", "j:1", "c:0", "k:1", "d:0", "l:2", "e:0", "b:0", "end:3"}},
      {"jump back to the default group",
       {{"j>1"}, {"k>0", "c"}},
       {"j", "k", "c"},
       {"j:1", "k:2", "c:0", "end:3"}},
      {"jump to itself", {{"a", "j>0", "b"}}, {"a", "j", "b"}, {"a:0", "j:2", "b:0", "end:3"}},
      {"jump to no group", {{"j>x", "a"}}, {"j", "a"}, {"j:2", "a:0", "end:3"}},
      {"no rules at all", {{}}, {}, {"end:3"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    PolicyCore core(WalkPolicy(c.groups));
    IPolicy* policy = core.Fetch(kPolicy);
    ASSERT_NE(policy, nullptr);
    EXPECT_EQ(Linear(policy), c.linear);
    policy->Release();
    policy = core.Fetch(kPolicy);
    EXPECT_EQ(TakeJumps(policy), c.jumps);
    policy->Release();
    EXPECT_EQ(core.state->LiveObjects(), 1u);  // the manager
  }
}

TEST(SimPolicyWalkTest, TheProtocolMatters) {
  PolicyCore core(WalkPolicy({{"a", "j>1", "b"}, {"c", "k>1", "d"}}));
  IPolicy* policy = core.Fetch(kPolicy);
  uint32_t jump = 99;
  // Nothing is handed out before the first AdvanceIteration.
  ASSERT_EQ(policy->SetIterationMode(kIterateTakingJumps), 0);
  EXPECT_EQ(policy->GetNextRuleTakingJumps(&jump), nullptr);
  EXPECT_EQ(jump, kJumpEnd);
  // Advancing after every rule passes it at once; after the cut-off jump k that passes d.
  policy->AdvanceIteration();
  Walk walk;
  for (IRule* rule = policy->GetNextRuleTakingJumps(&jump); rule != nullptr;
       rule = policy->GetNextRuleTakingJumps(&jump)) {
    walk.push_back(Narrow(rule->GetName()) + ":" + std::to_string(jump));
    policy->AdvanceIteration();
  }
  EXPECT_EQ(walk, (Walk{"a:0", "j:1", "c:0", "k:2", "b:0"}));
  // A linear walk of the same calls visits every rule in group order, never jumping.
  ASSERT_EQ(policy->SetIterationMode(kIterateLinear), 0);
  policy->AdvanceIteration();
  walk.clear();
  for (IRule* rule = policy->GetNextRuleTakingJumps(&jump); rule != nullptr;
       rule = policy->GetNextRuleTakingJumps(&jump)) {
    walk.push_back(Narrow(rule->GetName()) + ":" + std::to_string(jump));
  }
  EXPECT_EQ(walk, (Walk{"a:0", "j:0", "b:0", "c:0", "k:0", "d:0"}));
  EXPECT_EQ(policy->SetIterationMode(2), kStatusInvalidArg);
  policy->Release();
}

// Jumps that fan out into 2^n paths are cut off after a fixed number of rules.
TEST(SimPolicyWalkTest, WalkIsBounded) {
  std::vector<std::vector<std::string>> groups;
  for (int g = 0; g < 20; ++g) {
    const std::string next = std::to_string(g + 1);
    groups.push_back(g < 19 ? std::vector<std::string>{"a>" + next, "b>" + next}
                            : std::vector<std::string>{"leaf"});
  }
  PolicyCore core(WalkPolicy(groups));
  IPolicy* policy = core.Fetch(kPolicy);
  const Walk walk = TakeJumps(policy);
  EXPECT_EQ(walk.size(), kMaxRulesPerWalk + 1);
  EXPECT_EQ(walk.back(), "end:3");
  policy->Release();
}

Json AggregatePolicy() {
  return Json::parse(R"({"policies": {"list": [{
    "uid": "0000000a-0000-0000-0000-000000000000", "type": 4, "name": "Agg",
    "aggregates": [
      {"uid": "000000a1-0000-0000-0000-000000000000", "name": "first", "or": true,
       "matches": [{"type": 9, "terms": [{"uint8": 1}]}, {"type": 9, "terms": [{"uint8": 2}]}]},
      {"uid": "000000a2-0000-0000-0000-000000000000", "name": "",
       "matches": [{"type": 9, "terms": [{"uint8": 3}]}]}],
    "rules": [{"name": "r", "matches": [
      {"type": 9, "terms": [{"uint8": 10}]},
      {"type": 65538, "terms": [{"aggregate": "000000a2-0000-0000-0000-000000000000"}]},
      {"type": 65536, "terms": [{"aggregate": "000000a9-0000-0000-0000-000000000000"}]},
      {"type": 9, "terms": [{"uint8": 11}]}]}]}]}})");
}

int ByteOf(IMatch* match) {
  uint8_t value = 0;
  EXPECT_EQ(match->GetTerms()->GetUint8(0, &value), 0);
  return value;
}

TEST(SimPolicyAggregateTest, AggregatesUpFrontAndEnteredWhereReferenced) {
  PolicyCore core(AggregatePolicy());
  IPolicy* policy = core.Fetch(kPolicy);
  policy->SetIterationMode(kIterateLinear);
  std::vector<std::string> seen;
  for (IAggregateMatch* a = policy->GetNextAggregateMatch(); a != nullptr;
       a = policy->GetNextAggregateMatch()) {
    seen.push_back(Narrow(a->GetName()) + (a->IsOrOperator() ? " or" : " and"));
    for (IMatch* m = policy->GetNextMatch(); m != nullptr; m = policy->GetNextMatch()) {
      seen.push_back(std::to_string(ByteOf(m)));
    }
  }
  EXPECT_EQ(seen, (std::vector<std::string>{"first or", "1", "2", " and", "3"}));

  policy->GetNextGroup();
  policy->GetNextRule();
  seen.clear();
  for (IMatch* m = policy->GetNextMatch(); m != nullptr; m = policy->GetNextMatch()) {
    if (m->GetType() < 0x10000) {
      seen.push_back(std::to_string(ByteOf(m)));
      continue;
    }
    const Status entered = policy->EnterAggregateMatch(m, nullptr);
    IAggregateMatch* current = policy->GetCurrentAggregateMatch();
    seen.push_back("enter " + std::to_string(static_cast<uint32_t>(entered)) + " " +
                   (current != nullptr ? "found" : "none"));
    for (IMatch* member = policy->GetNextMatch(); member != nullptr;
         member = policy->GetNextMatch()) {
      seen.push_back("member " + std::to_string(ByteOf(member)));
    }
    EXPECT_EQ(policy->LeaveAggregateMatch(), 0);
    EXPECT_EQ(policy->GetCurrentAggregateMatch(), nullptr);
  }
  EXPECT_EQ(seen, (std::vector<std::string>{"10", "enter 0 found", "member 3",
                                            "enter 2147943568 none", "11"}));
  EXPECT_EQ(policy->LeaveAggregateMatch(), kStatusUnexpected);
  policy->Release();
}

TEST(SimPolicyAggregateTest, OnlyOwnAggregateReferencesCanBeEntered) {
  PolicyCore core(AggregatePolicy());
  IPolicy* policy = core.Fetch(kPolicy);
  IPolicy* other = core.Fetch(kPolicy);
  policy->SetIterationMode(kIterateLinear);
  other->SetIterationMode(kIterateLinear);
  policy->GetNextGroup();
  policy->GetNextRule();
  other->GetNextGroup();
  other->GetNextRule();
  IMatch* plain = policy->GetNextMatch();
  IMatch* reference = policy->GetNextMatch();
  other->GetNextMatch();
  IMatch* foreign = other->GetNextMatch();
  EXPECT_EQ(policy->EnterAggregateMatch(nullptr, nullptr), kStatusInvalidArg);
  EXPECT_EQ(policy->EnterAggregateMatch(plain, nullptr), kStatusInvalidArg);
  EXPECT_EQ(policy->EnterAggregateMatch(foreign, nullptr), kStatusInvalidArg);
  EXPECT_EQ(policy->EnterAggregateMatch(reference, nullptr), 0);
  EXPECT_EQ(policy->EnterAggregateMatch(reference, nullptr), kStatusUnexpected);
  policy->Release();
  other->Release();
}

Json TermPolicy(const Json& terms, int type = 7) {
  Json policy = {
      {"uid", kPolicy},
      {"type", 2},
      {"rules", Json::array({{{"uid", "000000f0-0000-0000-0000-000000000000"},
                              {"matches", Json::array({{{"type", type}, {"terms", terms}}})}}})}};
  return {{"policies", {{"list", Json::array({policy})}}}};
}

// The terms of the only match of the only rule.
IMatchTerms* FirstTerms(IPolicy* policy) {
  policy->SetIterationMode(kIterateLinear);
  policy->GetNextGroup();
  policy->GetNextRule();
  return policy->GetNextMatch()->GetTerms();
}

TEST(SimPolicyTermTest, EachGetterDeliversItsKindAndRefusesOthers) {
  PolicyCore core(TermPolicy(Json::parse(R"([
      {"op": 4, "uint8": 7, "uint16": 80, "uint32": 4000000000, "uint64": 18446744073709551615,
       "uint16Range": [1024, 2048], "uint64Range": [1, 2], "bytes": [1, 2, 3], "count": 6,
       "aggregate": "000000a1-0000-0000-0000-000000000000", "string": "a&b&c", "length": 5,
       "ip": "fe80::1", "ipRange": ["10.0.0.1", {"bytes": [1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16],
       "version": 0}], "prefix": 64, "addressKind": 9},
      {"op": 8},
      {"string": "x", "ip": "10.0.0.1"},
      {"ipRange": ["10.0.0.1", "10.0.0.2"]},
      {"ip": "10.0.0.1"},
      {"ip": "::ffff:10.0.0.1", "addressKind": 4294967295}])")));
  IPolicy* policy = core.Fetch(kPolicy);
  IMatchTerms* terms = FirstTerms(policy);
  EXPECT_EQ(terms->GetCount(), 6u);
  EXPECT_EQ(terms->GetOperator(0), 4);
  EXPECT_EQ(terms->GetOperator(1), 8);
  EXPECT_EQ(terms->GetOperator(6), -1);

  uint8_t u8 = 0;
  uint16_t u16 = 0, low16 = 0, high16 = 0;
  uint32_t u32 = 0, count = 0, length = 0;
  uint64_t u64 = 0, low64 = 0, high64 = 0;
  const uint8_t* bytes = nullptr;
  const uint8_t* prefix = nullptr;
  const Guid* uid = nullptr;
  const wchar_t* text = nullptr;
  const IpAddress *ip = nullptr, *low = nullptr, *high = nullptr;
  ASSERT_EQ(terms->GetUint8(0, &u8), 0);
  EXPECT_EQ(u8, 7);
  ASSERT_EQ(terms->GetUint16(0, &u16), 0);
  EXPECT_EQ(u16, 80);
  ASSERT_EQ(terms->GetUint32(0, &u32), 0);
  EXPECT_EQ(u32, 4000000000u);
  ASSERT_EQ(terms->GetUint64(0, &u64), 0);
  EXPECT_EQ(u64, 18446744073709551615ull);
  ASSERT_EQ(terms->GetUint16Range(0, &low16, &high16), 0);
  EXPECT_EQ(low16, 1024);
  EXPECT_EQ(high16, 2048);
  ASSERT_EQ(terms->GetUint64Range(0, &low64, &high64), 0);
  EXPECT_EQ(high64, 2u);
  // The reported count exceeds the given bytes: the storage holds that many, zero-filled.
  ASSERT_EQ(terms->GetUint8Array(0, &bytes, &count), 0);
  ASSERT_EQ(count, 6u);
  EXPECT_EQ(std::vector<uint8_t>(bytes, bytes + count), (std::vector<uint8_t>{1, 2, 3, 0, 0, 0}));
  ASSERT_EQ(terms->GetAggregateUid(0, &uid), 0);
  EXPECT_EQ(*uid, Uid("000000a1-0000-0000-0000-000000000000"));
  ASSERT_EQ(terms->GetString(0, &text, &length), 0);
  EXPECT_STREQ(text, L"a&b&c");
  EXPECT_EQ(length, 5u);
  ASSERT_EQ(terms->GetIpAddress(0, &ip), 0);
  EXPECT_EQ(ip->version, 6u);
  EXPECT_EQ(ip->bytes[0], 0xfe);
  EXPECT_EQ(ip->bytes[15], 1);
  // An IPv4-mapped text is an IPv6 address whose last four bytes are the IPv4 ones.
  ASSERT_EQ(terms->GetIpAddress(5, &ip), 0);
  EXPECT_EQ(ip->version, 6u);
  EXPECT_EQ(std::vector<uint8_t>(ip->bytes + 10, ip->bytes + 16),
            (std::vector<uint8_t>{0xff, 0xff, 10, 0, 0, 1}));
  ASSERT_EQ(terms->GetIpAddressRange(0, &low, &high), 0);
  EXPECT_EQ(low->version, 4u);
  EXPECT_EQ(high->version, 0u);
  EXPECT_EQ(high->bytes[15], 16);
  ASSERT_EQ(terms->GetIpMask(0, &prefix), 0);
  EXPECT_EQ(*prefix, 64);
  // The address kind is what the scenario says, else follows from the values.
  EXPECT_EQ(terms->GetIpAddressMatchType(0), 9);
  EXPECT_EQ(terms->GetIpAddressMatchType(1), 0);
  EXPECT_EQ(terms->GetIpAddressMatchType(2), 1);
  EXPECT_EQ(terms->GetIpAddressMatchType(3), 2);
  EXPECT_EQ(terms->GetIpAddressMatchType(4), 1);
  EXPECT_EQ(terms->GetIpAddressMatchType(5), -1);  // any 32 bits, as the scenario gives them
  EXPECT_EQ(terms->GetIpAddressMatchType(9), 0);

  // A term without the kind refuses it and clears what it hands out; so does a wrong index.
  u16 = 5;
  EXPECT_EQ(terms->GetUint16(1, &u16), kStatusTypeMismatch);
  EXPECT_EQ(u16, 0);
  EXPECT_EQ(terms->GetString(1, &text, &length), kStatusTypeMismatch);
  EXPECT_EQ(text, nullptr);
  EXPECT_EQ(terms->GetIpMask(1, &prefix), kStatusTypeMismatch);
  EXPECT_EQ(prefix, nullptr);
  EXPECT_EQ(terms->GetUint8Array(1, &bytes, &count), kStatusTypeMismatch);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(terms->GetUint8(6, &u8), kStatusInvalidArg);
  EXPECT_EQ(terms->GetAggregateUid(6, &uid), kStatusInvalidArg);
  EXPECT_EQ(terms->GetUint32(0, nullptr), kStatusInvalidArg);
  policy->Release();
}

// A scenario that holds every kind of field, with values that differ from the defaults.
const char kRichPolicies[] = R"({
  "list": [{
    "uid": "6f1d0c2e-9a8b-4c7d-8e6f-5a4b3c2d1e0f", "ppuid": "00112233-4455-6677-8899-aabbccddeeff",
    "name": "Rich é", "type": 4, "stateful": true, "sticky": true, "bootTimeOnly": true,
    "defaultAction": 11, "defaultLogOption": 9,
    "aggregates": [{"uid": "10000000-0000-0000-0000-000000000001", "name": "A", "or": true,
                    "matches": [{"type": 9, "terms": [{"op": 1, "uint8": 255}]}]}],
    "defaultGroup": "20000000-0000-0000-0000-000000000002",
    "rules": [{"uid": "30000000-0000-0000-0000-000000000003", "name": "redirect", "action": 3,
               "redirect": {"address": "10.1.2.3", "port": 65535, "value": -5},
               "logOption": 2, "logThrottle": 0, "enabled": false, "hotDropIfNotMatch": true,
               "invertMatch": true, "teredo": true, "teredoAwareApp": true,
               "matches": [{"type": 65537, "terms": [
                 {"op": 7, "uint16": 1, "uint32": 2, "uint64": 3, "uint16Range": [4, 5],
                  "uint64Range": [6, 7], "bytes": [8, 9], "count": 16,
                  "aggregate": "10000000-0000-0000-0000-000000000001", "string": "s",
                  "length": 0, "ip": {"bytes": [1,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0], "version": 4},
                  "ipRange": ["::", "ffff::ffff"], "prefix": 128, "addressKind": -1}]}]}],
    "groups": [{"uid": "40000000-0000-0000-0000-000000000004",
                "rules": [{"name": "jump", "action": 9,
                           "target": "20000000-0000-0000-0000-000000000002"}]}]
  }, {
    "uid": "6f1d0c2e-9a8b-4c7d-8e6f-5a4b3c2d1e10", "type": 2, "name": null
  }],
  "generated": {"count": 10, "rules": 3, "matches": 2, "seed": 99}
})";

TEST(SimPolicyStoreTest, WrittenBackWithoutLoss) {
  PolicyStore store;
  JsonChecker check("rich");
  ASSERT_TRUE(ParsePolicies(check, Json::parse(kRichPolicies), "/policies", &store))
      << check.error();
  const Json written = PoliciesToJson(store);
  PolicyStore again;
  ASSERT_TRUE(ParsePolicies(check, written, "/policies", &again)) << check.error();
  EXPECT_TRUE(again == store);
  EXPECT_EQ(PoliciesToJson(again), written);
  // Spot checks that the fields were read at all.
  const PolicyModel& rich = *store.policies[0];
  EXPECT_EQ(rich.name, L"Rich \u00e9");
  EXPECT_FALSE(store.policies[1]->name);
  EXPECT_EQ(rich.defaultLogOption, 9);
  ASSERT_EQ(rich.groups.size(), 2u);
  EXPECT_EQ(rich.groups[0].uid, Uid("20000000-0000-0000-0000-000000000002"));
  const RuleModel& rule = rich.groups[0].rules[0];
  EXPECT_EQ(rule.redirectPort, 65535);
  EXPECT_EQ(rule.redirectValue, -5);
  EXPECT_EQ(rule.logThrottle, 0u);
  const TermModel& term = rule.matches[0].terms[0];
  EXPECT_EQ(term.bytes->count, 16u);
  EXPECT_EQ(term.bytes->storage.size(), 16u);
  EXPECT_EQ(term.string->length, 0u);
  EXPECT_EQ(term.ip->version, 4u);
  EXPECT_EQ(term.ipRange->high.bytes[0], 0xff);
  EXPECT_EQ(term.ipRange->high.bytes[15], 0xff);
  // The second policy: every default, its default group named after it.
  const PolicyModel& plain = *store.policies[1];
  EXPECT_EQ(plain.defaultAction, 5);
  EXPECT_EQ(plain.groups.size(), 1u);
  EXPECT_EQ(plain.groups[0].uid, plain.uid);
  // The generated set stays one line.
  EXPECT_EQ(written["generated"], Json::parse(R"({"count": 10, "rules": 3, "matches": 2,
                                                  "seed": 99})"));
}

TEST(SimPolicyStoreTest, BadSectionsNameThePathAndWhatWasExpected) {
  const std::string p = R"({"uid": "00000001-0000-0000-0000-000000000000", "type": 2)";
  const struct {
    std::string section;
    std::string expected;
  } cases[] = {
      {R"([])", "/policies: expected an object"},
      {R"({"lists": []})", "/policies/lists: expected one of the known fields (list, generated)"},
      {R"({"list": [{"type": 2}]})",
       "/policies/list/0/uid: expected an identifier (the field is required)"},
      {R"({"list": [{"uid": "00000001-0000-0000-0000-000000000000"}]})",
       "/policies/list/0/type: expected a policy type (the field is required)"},
      {R"({"list": [{"uid": "{00000001-0000-0000-0000-000000000000}", "type": 2}]})",
       "/policies/list/0/uid: expected an identifier (xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx)"},
      {R"({"list": [)" + p + "}, " + p + "}]}",
       "/policies/list/1/uid: expected an identifier no other policy has"},
      {R"({"list": [)" + p + R"(, "type": 4294967296}]})",
       "/policies/list/0/type: expected an integer from -2147483648 to 4294967295"},
      {R"({"list": [)" + p + R"(, "groups": [{"uid": "00000001-0000-0000-0000-000000000000"}]}]})",
       "/policies/list/0/groups/0/uid: expected an identifier no other group of the policy has"},
      {R"({"list": [)" + p + R"(, "groups": [{"rules": []}]}]})",
       "/policies/list/0/groups/0/uid: expected an identifier (the field is required)"},
      {R"({"list": [)" + p + R"(, "rules": [{"matches": [{"terms": [{"uint8": 256}]}]}]}]})",
       "/policies/list/0/rules/0/matches/0/terms/0/uint8: expected an integer from 0 to 255"},
      {R"({"list": [)" + p + R"(, "rules": [{"matches": [{"terms": [{"count": 3}]}]}]}]})",
       "/policies/list/0/rules/0/matches/0/terms/0/count: expected no \"count\" without \"bytes\""},
      {R"({"list": [)" + p +
           R"(, "rules": [{"matches": [{"terms": [{"bytes": [], "count": 65537}]}]}]}]})",
       "/policies/list/0/rules/0/matches/0/terms/0/count: expected an integer from 0 to 65536"},
      {R"({"list": [)" + p + R"(, "rules": [{"matches": [{"terms": [{"length": 3}]}]}]}]})",
       "/policies/list/0/rules/0/matches/0/terms/0/length: expected no \"length\" without "
       "\"string\""},
      {R"({"list": [)" + p + R"(, "rules": [{"matches": [{"terms": [{"ip": "10.0.0.256"}]}]}]}]})",
       "/policies/list/0/rules/0/matches/0/terms/0/ip: expected an address (IPv4 or IPv6 text, or "
       "{\"bytes\": [16 bytes], \"version\": n})"},
      {R"({"list": [)" + p +
           R"(, "rules": [{"matches": [{"terms": [{"ipRange": ["1::2::3", "::"]}]}]}]}]})",
       "/policies/list/0/rules/0/matches/0/terms/0/ipRange/0: expected an address (IPv4 or IPv6 "
       "text, or {\"bytes\": [16 bytes], \"version\": n})"},
      {R"({"list": [)" + p + R"(, "rules": [{"matches": [{"terms": [{"uint16Range": [1]}]}]}]}]})",
       "/policies/list/0/rules/0/matches/0/terms/0/uint16Range: expected [low, high]"},
      {R"({"list": [)" + p + R"(, "rules": [{"redirect": {"port": 65536}}]}]})",
       "/policies/list/0/rules/0/redirect/port: expected an integer from 0 to 65535"},
      {R"({"list": [)" + p + R"(, "rules": [{"action": "jump"}]}]})",
       "/policies/list/0/rules/0/action: expected an integer from -2147483648 to 4294967295"},
      {R"({"list": [)" + p + R"(, "rules": [{"bogus": 1}]}]})",
       "/policies/list/0/rules/0/bogus: expected one of the known fields (uid, name, action, "
       "target, redirect, logOption, logThrottle, enabled, hotDropIfNotMatch, invertMatch, "
       "teredo, teredoAwareApp, matches)"},
      {R"({"generated": {"count": 1, "rules": 1}})",
       "/policies/generated/matches: expected a number (the field is required)"},
      {R"({"generated": {"count": 1000001, "rules": 1, "matches": 1}})",
       "/policies/generated/count: expected an integer from 0 to 1000000"},
      {R"({"generated": {"count": 1, "rules": 1001, "matches": 1}})",
       "/policies/generated/rules: expected an integer from 0 to 1000"},
      {R"({"generated": {"count": 2, "rules": 1, "matches": 1},
           "list": [{"uid": "00000001-5eed-4000-8000-000000000000", "type": 2}]})",
       "/policies/list/0/uid: expected an identifier no other policy has"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.section);
    Scenario scenario;
    std::string error;
    EXPECT_FALSE(ParseScenario(Json::parse("{\"policies\": " + c.section + "}"), "s.json",
                               &scenario, &error));
    EXPECT_EQ(error, "s.json: " + c.expected);
  }
}

TEST(SimPolicyStoreTest, FaultItemsAreChecked) {
  const std::string uid = "00000001-0000-0000-0000-000000000000";
  const struct {
    std::string key;
    bool ok;
  } cases[] = {
      {"GetExistingPolicy:" + uid, true},
      {"GetExistingPolicy:" + uid + "#2", false},
      {"GetExistingPolicy:nope", false},
      {"GetExistingPolicyList:4", true},
      {"GetExistingPolicyList:04", false},
      {"GetExistingPolicyList:-1", false},
      {"DeletePolicy:" + uid, true},
      {"AdvanceIteration:" + uid, true},
      {"IPolicy::SetIterationMode:" + uid, true},
      {"GetString:" + uid + "/" + uid + "/0/1", true},
      {"GetString:" + uid + "/" + uid + "/0", false},
      {"GetString:" + uid + "/" + uid + "/0/1/2", false},
      {"GetString:" + uid + "/x/0/1", false},
      {"GetString:" + uid, false},
      {"IMatchTerms::GetIpMask:" + uid + "/" + uid + "/3/4", true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.key);
    Scenario scenario;
    std::string error;
    EXPECT_EQ(ParseScenario(Json{{"faults", {{c.key, 1}}}}, "s.json", &scenario, &error), c.ok)
        << error;
  }
}

TEST(SimPolicyGeneratedTest, SetIsDeterministicAndFindsItsMembers) {
  const GeneratedPolicies set{100, 20, 3, 7};
  PolicyStore store;
  store.generated = set;
  const std::vector<Guid> packet = PolicyUids(store, 2);
  const std::vector<Guid> stream = PolicyUids(store, 4);
  ASSERT_EQ(packet.size(), 50u);
  ASSERT_EQ(stream.size(), 50u);
  EXPECT_EQ(GeneratedPolicyIndex(set, stream[3]), 7u);
  EXPECT_EQ(GeneratedPolicyIndex(set, GeneratedPolicyUid(set, 100)), std::nullopt);
  EXPECT_EQ(GeneratedPolicyIndex(GeneratedPolicies{100, 20, 3, 8}, packet[0]), std::nullopt);
  const auto found = FindPolicy(store, stream[3]);
  ASSERT_NE(found, nullptr);
  EXPECT_TRUE(*found == GeneratePolicy(set, 7));
  EXPECT_EQ(found->type, 4);
  EXPECT_EQ(found->name, L"Generated policy 7");
  size_t rules = 0;
  for (const GroupModel& group : found->groups) rules += group.rules.size();
  EXPECT_EQ(rules, 20u);
  for (const GroupModel& group : found->groups) {
    for (const RuleModel& rule : group.rules) EXPECT_EQ(rule.matches.size(), 3u);
  }
  EXPECT_FALSE(GeneratePolicy(set, 7) == GeneratePolicy(GeneratedPolicies{100, 20, 3, 9}, 7));
}

// Every match type the listings know, and every operator, turns up within a modest set.
TEST(SimPolicyGeneratedTest, EveryTypeAndOperatorIsRepresented) {
  const GeneratedPolicies set{60, 20, 3, 1};
  std::set<std::pair<int32_t, int32_t>> seen;
  std::set<int32_t> kinds;
  bool aggregateReference = false;
  auto note = [&](const std::vector<MatchModel>& matches) {
    for (const MatchModel& match : matches) {
      aggregateReference = aggregateReference || match.type >= 0x10000;
      for (const TermModel& term : match.terms) {
        seen.insert({match.type, term.op});
        if (match.type == 14) kinds.insert(term.AddressKind());
      }
    }
  };
  for (uint32_t i = 0; i < set.count; ++i) {
    const PolicyModel policy = GeneratePolicy(set, i);
    for (const AggregateModel& aggregate : policy.aggregates) note(aggregate.matches);
    for (const GroupModel& group : policy.groups) {
      for (const RuleModel& rule : group.rules) note(rule.matches);
    }
  }
  for (int32_t type :
       {1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13, 14, 15, 16, 17, 18, 19,
        20, 23, 24, 25, 26, 27, 28, 29, 30, 31, 32, 33, 34, 35, 36, 37, 38, 40, 42}) {
    for (int32_t op = 0; op < 8; ++op) EXPECT_TRUE(seen.count({type, op})) << type << " " << op;
  }
  EXPECT_EQ(kinds, (std::set<int32_t>{1, 2, 3, 4}));
  EXPECT_TRUE(aggregateReference);
}

using testing::Printed;

// The views over a generated set through the simulated core: every value the renderer asks
// for is there, both walks visit every rule, and nothing is left referenced.
TEST(SimPolicyGeneratedTest, ListingAGeneratedSetFailsNowhere) {
  PolicyCore core(Json::parse(
      R"({"policies": {"generated": {"count": 12, "rules": 20, "matches": 3, "seed": 5}}})"));
  LastStatus = 0x1234;
  const std::string out = Printed([&] { ShowAllPolicies(core.manager); });
  EXPECT_EQ(LastStatus, 0);
  EXPECT_EQ(out.find("error"), std::string::npos);
  EXPECT_EQ(out.find("Unknown match type"), std::string::npos);
  EXPECT_EQ(out.find("unrecognized"), std::string::npos);
  size_t rules = 0;
  for (size_t at = out.find("        Rule\n"); at != std::string::npos;
       at = out.find("        Rule\n", at + 1)) {
    ++rules;
  }
  EXPECT_EQ(rules, 12u * 20u * 2u);
  EXPECT_NE(out.find("                Aggregate Match\n"), std::string::npos);
  EXPECT_EQ(core.state->LiveObjects(), 1u);
}

}  // namespace
}  // namespace nw::sim
