// The summary, the full listing with its two walks, the presence queries and delete-all against
// a recording policy model: the exact text, the calls in their order, and LastStatus.

#include "policy/policy_listing.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "cli/console.h"
#include "cli/handlers.h"
#include "tests/unit/fake_policy.h"
#include "tests/unit/printed.h"

namespace nw {
namespace {

using testing::CallLog;
using testing::FakeManager;
using testing::FakeTerm;
using testing::PolicySpec;

using testing::Printed;

constexpr Guid Uid(uint32_t n) { return Guid{n, 0, 0, {0, 0, 0, 0, 0, 0, 0, 0}}; }
constexpr Status Hr(uint32_t value) { return static_cast<Status>(value); }

size_t CountOf(const CallLog& log, const std::string& call) {
  return static_cast<size_t>(std::count(log.begin(), log.end(), call));
}

const char kNoPoliciesSummary[] =
    "\n\nPOLICIES CURRENTLY IN FORCE...\n\n"
    "There are no FW_POLICY_TYPE_PACKET policies.\n"
    "====================================\n\n"
    "\n====================================\n\n"
    "There are no FW_POLICY_TYPE_STREAM policies.\n"
    "====================================\n\n";

TEST(PolicySummaryTest, NoPoliciesAtAll) {
  CallLog log;
  FakeManager manager(log);
  LastStatus = 0x77;
  EXPECT_EQ(Printed([&] { ShowPolicySummary(&manager); }), kNoPoliciesSummary);
  EXPECT_EQ(LastStatus, 0);
  EXPECT_EQ(Printed([&] { ShowAllPolicies(&manager); }),
            "\n\nDISPLAYING ALL POLICIES...\n\n"
            "There are no FW_POLICY_TYPE_PACKET policies.\n"
            "====================================\n\n"
            "\n====================================\n\n"
            "There are no FW_POLICY_TYPE_STREAM policies.\n"
            "====================================\n\n");
  EXPECT_EQ(CountOf(log, "IGuidList::Release"), 4u);
}

TEST(PolicySummaryTest, TwoStreamPoliciesOneWithoutName) {
  CallLog log;
  FakeManager manager(log);
  manager.lists[4] = {Uid(0x10), Uid(0xabcdef01)};
  manager.policies = {
      {Uid(0x10), PolicySpec{.name = L"", .stateful = true}},
      {Uid(0xabcdef01), PolicySpec{.name = L"Web", .sticky = true, .bootTimeOnly = true}}};
  EXPECT_EQ(Printed([&] { ShowPolicySummary(&manager); }),
            "\n\nPOLICIES CURRENTLY IN FORCE...\n\n"
            "There are no FW_POLICY_TYPE_PACKET policies.\n"
            "====================================\n\n"
            "\n====================================\n\n"
            "There are 2 FW_POLICY_TYPE_STREAM policies.\n"
            "====================================\n\n"
            "    Policy 00000010-0000-0000-0000-000000000000\n"
            "        Name: \n"
            "        Stateful: yes\n"
            "        Sticky: no\n"
            "        Boot-time only: no\n"
            "    Policy abcdef01-0000-0000-0000-000000000000\n"
            "        Name: Web\n"
            "        Stateful: no\n"
            "        Sticky: yes\n"
            "        Boot-time only: yes\n");
  EXPECT_EQ(CountOf(log, "Release"), 2u);
}

TEST(PolicySummaryTest, FailingFetchIsReportedAndTheNextPolicyTried) {
  CallLog log;
  FakeManager manager(log);
  manager.lists[2] = {Uid(1), Uid(2)};
  manager.policies = {{Uid(2), PolicySpec{.name = L"Second"}}};
  manager.fetchFails = {{Uid(1), 1, Hr(0x80070490)}};
  LastStatus = 0;
  const std::string out = Printed([&] { ShowPolicyTypeSummary(&manager, 2); });
  EXPECT_EQ(out,
            "There are 2 FW_POLICY_TYPE_PACKET policies.\n"
            "====================================\n\n"
            "    Policy 00000001-0000-0000-0000-000000000000\n"
            "Error 80070490 from GetExistingPolicy!\n"
            "    Policy 00000002-0000-0000-0000-000000000000\n"
            "        Name: Second\n"
            "        Stateful: no\n"
            "        Sticky: no\n"
            "        Boot-time only: no\n");
  EXPECT_EQ(LastStatus, 0);
  // The failing fetch stays the status when it is the last one.
  manager.fetchFails = {{Uid(2), 2, Hr(0x80004005)}};
  Printed([&] { ShowPolicyTypeSummary(&manager, 2); });
  EXPECT_EQ(LastStatus, Hr(0x80004005));
}

TEST(PolicySummaryTest, ListFailingForOneTypeOnly) {
  CallLog log;
  FakeManager manager(log);
  manager.lists[2] = {Uid(3)};
  manager.policies = {{Uid(3), PolicySpec{.name = L"Only"}}};
  manager.listFails[4] = Hr(0x80070005);
  EXPECT_EQ(Printed([&] { ShowPolicySummary(&manager); }),
            "\n\nPOLICIES CURRENTLY IN FORCE...\n\n"
            "There is one FW_POLICY_TYPE_PACKET policy.\n"
            "====================================\n\n"
            "    Policy 00000003-0000-0000-0000-000000000000\n"
            "        Name: Only\n"
            "        Stateful: no\n"
            "        Sticky: no\n"
            "        Boot-time only: no\n"
            "\n====================================\n\n"
            "GetExistingPolicyList returned error 0x80070005!\n");
  EXPECT_EQ(LastStatus, Hr(0x80070005));
}

TEST(ListPoliciesTest, HeaderByCountAndFailure) {
  const struct {
    int32_t type;
    size_t count;
    int header;
    const char* printed;
  } cases[] = {
      {2, 0, 1,
       "There are no FW_POLICY_TYPE_PACKET policies.\n====================================\n\n"},
      {4, 1, 1,
       "There is one FW_POLICY_TYPE_STREAM policy.\n====================================\n\n"},
      {2, 3, 1,
       "There are 3 FW_POLICY_TYPE_PACKET policies.\n====================================\n\n"},
      {5, 2, 1,
       "There are 2 FW_POLICY_TYPE_INVALID policies.\n====================================\n\n"},
      {2, 3, 0, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.printed);
    CallLog log;
    FakeManager manager(log);
    for (size_t i = 0; i < c.count; ++i)
      manager.lists[c.type].push_back(Uid(static_cast<uint32_t>(i)));
    IGuidList* list = nullptr;
    uint64_t count = 99;
    Status status = -1;
    EXPECT_EQ(Printed([&] { status = ListPolicies(&manager, c.type, &list, &count, c.header); }),
              c.printed);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(count, c.count);
    ASSERT_NE(list, nullptr);
    list->Release();
  }
  CallLog log;
  FakeManager manager(log);
  manager.listFails[2] = Hr(0x8000FFFF);
  IGuidList* list = reinterpret_cast<IGuidList*>(&manager);
  uint64_t count = 5;
  Status status = 0;
  EXPECT_EQ(Printed([&] { status = ListPolicies(&manager, 2, &list, &count, 1); }),
            "GetExistingPolicyList returned error 0x8000FFFF!\n");
  EXPECT_EQ(status, Hr(0x8000FFFF));
  EXPECT_EQ(list, nullptr);
  EXPECT_EQ(count, 0u);
}

// A core that answers success without an object fails that step with the invalid-pointer
// status, in the step's own words.
TEST(ListPoliciesTest, SuccessWithoutObjectFailsTheStep) {
  CallLog log;
  FakeManager manager(log);
  manager.nullList = true;
  EXPECT_EQ(Printed([&] { ShowPolicyTypeSummary(&manager, 2); }),
            "GetExistingPolicyList returned error 0x80004003!\n");
  EXPECT_EQ(LastStatus, Hr(0x80004003));

  FakeManager nullPolicies(log);
  nullPolicies.lists[4] = {Uid(9)};
  nullPolicies.nullPolicy = true;
  EXPECT_EQ(Printed([&] { ShowPolicyType(&nullPolicies, 4); }),
            "There is one FW_POLICY_TYPE_STREAM policy.\n"
            "====================================\n\n"
            "Error 80004003 from GetExistingPolicy!\n");
  EXPECT_EQ(LastStatus, Hr(0x80004003));
}

// A policy with two rules in the default group, a jump into a further group and an aggregate
// reference: the linear walk in group order with the aggregate up front, the take-jumps walk in
// jump order with the aggregate's members expanded one level deeper.
PolicySpec JumpingPolicy() {
  PolicySpec policy;
  policy.name = L"Jumping";
  policy.aggregates = {{L"Admins", true, {{14, {FakeTerm{.ip = {{10, 0, 0, 5}, 4}, .kind = 1}}}}},
                       {L"", false, {}}};
  policy.groups = {
      {{L"Refer", {{0x10000, {FakeTerm{}}}}},
       {L"Jump", {}},
       {L"Block", {{20, {FakeTerm{.u32 = 1}}}}}},
      {{L"Inside", {{13, {FakeTerm{.u8 = 6}}}}}},
  };
  policy.jumps = {{0, 0}, {1, 1}, {3, 0}, {2, 0}};
  return policy;
}

const char kJumpingListing[] =
    "There is one FW_POLICY_TYPE_PACKET policy.\n"
    "====================================\n\n"
    "    Policy 00000007-0000-0000-0000-000000000000:\n"
    "           Jumping\n"
    "    LINEAR ITERATION\n"
    "    ====================================\n\n"
    "        Aggregate Match\n"
    "            Name: Admins\n"
    "            Or operator: true\n"
    "            Match\n"
    "                match type: FW_MATCH_LOCAL_IP_ADDRESS (14)\n"
    "\n"
    "                op = FW_MATCH_OP_EQUAL\n"
    "\t\t10.0.0.5\n"
    "    ====================================\n\n"
    "        Aggregate Match\n"
    "            Name: \n"
    "            Or operator: false\n"
    "    ====================================\n\n"
    "        Rule\n"
    "            Name: Refer\n"
    "            Match\n"
    "                aggregate match 65536\n"
    "\n"
    "                op = FW_MATCH_OP_EQUAL\n"
    "            Aggregate match with 1 terms\n"
    "            ====================================\n\n"
    "        Rule\n"
    "            Name: Jump\n"
    "            ====================================\n\n"
    "        Rule\n"
    "            Name: Block\n"
    "            Match\n"
    "                match type: FW_MATCH_DIRECTION (20)\n"
    "\n"
    "                op = FW_MATCH_OP_EQUAL\n"
    "                inbound\n"
    "            ====================================\n\n"
    "        Rule\n"
    "            Name: Inside\n"
    "            Match\n"
    "                match type: FW_MATCH_IP_PROTOCOL (13)\n"
    "\n"
    "                op = FW_MATCH_OP_EQUAL\n"
    "                value = 0x6 (6)\n"
    "            ====================================\n\n"
    "    TAKE JUMPS ITERATION\n"
    "    ====================================\n\n"
    "        Rule\n"
    "            Name: Refer\n"
    "            Match\n"
    "                aggregate match 65536\n"
    "\n"
    "                op = FW_MATCH_OP_EQUAL\n"
    "            Aggregate match with 1 terms\n"
    "                Aggregate Match\n"
    "                    Name: Admins\n"
    "                    Or operator: true\n"
    "            Match\n"
    "                match type: FW_MATCH_LOCAL_IP_ADDRESS (14)\n"
    "\n"
    "                op = FW_MATCH_OP_EQUAL\n"
    "\t\t10.0.0.5\n"
    "                    ====================================\n\n"
    "    ====================================\n\n"
    "        Rule\n"
    "            Name: Jump\n"
    "    ====================================\n\n"
    "        Rule\n"
    "            Name: Inside\n"
    "            Match\n"
    "                match type: FW_MATCH_IP_PROTOCOL (13)\n"
    "\n"
    "                op = FW_MATCH_OP_EQUAL\n"
    "                value = 0x6 (6)\n"
    "    ====================================\n\n"
    "        Rule\n"
    "            Name: Block\n"
    "            Match\n"
    "                match type: FW_MATCH_DIRECTION (20)\n"
    "\n"
    "                op = FW_MATCH_OP_EQUAL\n"
    "                inbound\n"
    "    ====================================\n\n";

TEST(PolicyListingTest, BothWalksOfAPolicyWithJumpAndAggregate) {
  CallLog log;
  FakeManager manager(log);
  manager.lists[2] = {Uid(7)};
  manager.policies = {{Uid(7), JumpingPolicy()}};
  EXPECT_EQ(Printed([&] { ShowPolicyType(&manager, 2); }), kJumpingListing);
  // Two objects, each released; the aggregate entered and left once, with a null second
  // argument.
  EXPECT_EQ(CountOf(log, "GetExistingPolicy(7)"), 2u);
  EXPECT_EQ(CountOf(log, "Release"), 2u);
  EXPECT_EQ(CountOf(log, "EnterAggregateMatch"), 1u);
  EXPECT_EQ(CountOf(log, "LeaveAggregateMatch"), 1u);
  EXPECT_EQ(CountOf(log, "IGuidList::Release"), 1u);
}

// AdvanceIteration comes once after SetIterationMode(1) and before the first rule, then after
// each later GetNextRuleTakingJumps whose indication is 0 or 1 (as unsigned), also the one that
// ends the walk; the first rule's indication is never looked at.
TEST(PolicyListingTest, AdvanceFollowsIndicationsZeroAndOneOnly) {
  const struct {
    std::vector<uint32_t> indications;
    uint32_t end;
    std::vector<bool> advanced;  // after each call that follows the first
  } cases[] = {
      {{0, 1, 2, 3}, 2, {true, false, false, false}},
      {{5, 0xFFFFFFFF, 0}, 0, {false, true, true}},
      {{3, 0}, 1, {true, true}},
      {{1}, 3, {false}},
      {{}, 1, {}},
  };
  for (const auto& c : cases) {
    CallLog log;
    FakeManager manager(log);
    PolicySpec policy;
    policy.groups = {{}};
    for (size_t i = 0; i < c.indications.size(); ++i) {
      policy.groups[0].push_back({L"r" + std::to_wstring(i), {}});
      policy.jumps.push_back({i, c.indications[i]});
    }
    policy.endIndication = c.end;
    manager.lists[2] = {Uid(1)};
    manager.policies = {{Uid(1), policy}};
    Printed([&] { ShowPolicyType(&manager, 2); });
    // From the second walk on: the calls that make up the protocol.
    auto start = std::find(log.begin(), log.end(), "SetIterationMode(1)");
    ASSERT_NE(start, log.end());
    CallLog walk;
    for (auto it = start; it != log.end(); ++it) {
      if (*it == "SetIterationMode(1)" || *it == "AdvanceIteration" ||
          *it == "GetNextRuleTakingJumps") {
        walk.push_back(*it);
      }
    }
    CallLog expected = {"SetIterationMode(1)", "AdvanceIteration", "GetNextRuleTakingJumps"};
    for (bool advanced : c.advanced) {
      expected.push_back("GetNextRuleTakingJumps");
      if (advanced) expected.push_back("AdvanceIteration");
    }
    EXPECT_EQ(walk, expected);
  }
}

TEST(PolicyListingTest, EmptyPolicyShowsBothHeadersWithTheirSeparators) {
  CallLog log;
  FakeManager manager(log);
  manager.lists[4] = {Uid(0x20)};
  manager.policies = {{Uid(0x20), PolicySpec{.name = L""}}};
  EXPECT_EQ(Printed([&] { ShowPolicyType(&manager, 4); }),
            "There is one FW_POLICY_TYPE_STREAM policy.\n"
            "====================================\n\n"
            "    Policy 00000020-0000-0000-0000-000000000000:\n"
            "           \n"
            "    LINEAR ITERATION\n"
            "    ====================================\n\n"
            "    TAKE JUMPS ITERATION\n"
            "    ====================================\n\n");
}

const char kTwoEmptyPacketPolicies[] =
    "There are 2 FW_POLICY_TYPE_PACKET policies.\n"
    "====================================\n\n";
const char kFirstWalk[] =
    "    Policy 00000001-0000-0000-0000-000000000000:\n"
    "           One\n"
    "    LINEAR ITERATION\n"
    "    ====================================\n\n";
const char kSecondWalk[] =
    "    TAKE JUMPS ITERATION\n"
    "    ====================================\n\n";

TEST(PolicyListingTest, FailingFetchEndsTheType) {
  const struct {
    const char* what;
    uint32_t policy;
    uint32_t fetch;
    std::string printed;
  } cases[] = {
      {"first fetch of the first policy", 1, 1, ""},
      {"second walk of the first policy", 1, 2, std::string(kFirstWalk)},
      {"first fetch of the second policy", 2, 1, std::string(kFirstWalk) + kSecondWalk},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    CallLog log;
    FakeManager manager(log);
    manager.lists[2] = {Uid(1), Uid(2)};
    manager.lists[4] = {};
    manager.policies = {{Uid(1), PolicySpec{.name = L"One"}}, {Uid(2), PolicySpec{.name = L"Two"}}};
    manager.fetchFails = {{Uid(c.policy), c.fetch, Hr(0x8007000E)}};
    EXPECT_EQ(Printed([&] { ShowAllPolicies(&manager); }),
              "\n\nDISPLAYING ALL POLICIES...\n\n" + std::string(kTwoEmptyPacketPolicies) +
                  c.printed +
                  "Error 8007000e from GetExistingPolicy!\n"
                  "\n====================================\n\n"
                  "There are no FW_POLICY_TYPE_STREAM policies.\n"
                  "====================================\n\n");
    // The stream list succeeded last.
    EXPECT_EQ(LastStatus, 0);
    EXPECT_EQ(CountOf(log, "GetExistingPolicy(2)"), c.policy == 2 ? 1u : 0u);
    EXPECT_EQ(CountOf(log, "IGuidList::Release"), 2u);
  }
  // On its own the type ends with the failing fetch's status.
  CallLog log;
  FakeManager manager(log);
  manager.lists[2] = {Uid(1)};
  manager.policies = {{Uid(1), PolicySpec{.name = L"One"}}};
  manager.fetchFails = {{Uid(1), 2, Hr(0x80004005)}};
  Printed([&] { ShowPolicyType(&manager, 2); });
  EXPECT_EQ(LastStatus, Hr(0x80004005));
}

TEST(PolicyListingTest, ListFailingForStreamOnly) {
  CallLog log;
  FakeManager manager(log);
  manager.listFails[4] = Hr(0x80070005);
  EXPECT_EQ(Printed([&] { ShowAllPolicies(&manager); }),
            "\n\nDISPLAYING ALL POLICIES...\n\n"
            "There are no FW_POLICY_TYPE_PACKET policies.\n"
            "====================================\n\n"
            "\n====================================\n\n"
            "GetExistingPolicyList returned error 0x80070005!\n");
  EXPECT_EQ(LastStatus, Hr(0x80070005));
}

// The last term getter of the listing decides the status of a run that otherwise succeeds.
TEST(PolicyListingTest, LastTermGetterDecidesTheStatus) {
  CallLog log;
  FakeManager manager(log);
  PolicySpec policy;
  FakeTerm failing{.u8 = 1};
  failing.fail["GetUint8"] = Hr(0x80004005);
  policy.groups = {{{L"r", {{9, {failing}}}}}};
  policy.jumps = {{0, 0}};
  manager.lists[2] = {Uid(1)};
  manager.policies = {{Uid(1), policy}};
  Printed([&] { ShowPolicyType(&manager, 2); });
  EXPECT_EQ(LastStatus, Hr(0x80004005));
}

TEST(PolicyListingTest, AggregateTheCoreCannotEnterShowsNoNameOrOperator) {
  CallLog log;
  FakeManager manager(log);
  PolicySpec policy;
  policy.groups = {{{L"r", {{0x10002, {FakeTerm{}}}}}}};
  policy.jumps = {{0, 0}};
  policy.entered = std::nullopt;
  manager.lists[2] = {Uid(1)};
  manager.policies = {{Uid(1), policy}};
  const std::string out = Printed([&] { ShowPolicyType(&manager, 2); });
  EXPECT_NE(out.find("            Aggregate match with 1 terms\n"
                     "                Aggregate Match\n"
                     "                    ====================================\n\n"
                     "    ====================================\n\n"),
            std::string::npos)
      << out;
}

TEST(PolicyPresenceTest, AnswersAndWhatTheyAsk) {
  const struct {
    const char* what;
    std::vector<int> counts;    // packet, stream
    std::vector<Status> fails;  // packet, stream
    bool packet, any;
    const char* printed;  // by HasAnyPolicies
    size_t streamQueries;
  } cases[] = {
      {"none", {0, 0}, {0, 0}, false, false, "", 1},
      {"packet only", {2, 0}, {0, 0}, true, true, "", 0},
      {"stream only", {0, 1}, {0, 0}, false, true, "", 1},
      {"packet list fails",
       {0, 0},
       {Hr(0x80070005), 0},
       true,
       true,
       "GetExistingPolicyList returned error 0x80070005!\n",
       0},
      {"stream list fails",
       {0, 0},
       {0, Hr(0x8007000E)},
       false,
       true,
       "GetExistingPolicyList returned error 0x8007000E!\n",
       1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    CallLog log;
    FakeManager manager(log);
    for (int type : {2, 4}) {
      const size_t at = type == 2 ? 0 : 1;
      for (int i = 0; i < c.counts[at]; ++i) manager.lists[type].push_back(Uid(i));
      if (c.fails[at] != 0) manager.listFails[type] = c.fails[at];
    }
    LastStatus = 0x3C;
    bool packet = false, any = false;
    Printed([&] { packet = HasPacketPolicies(&manager); });
    EXPECT_EQ(packet, c.packet);
    log.clear();
    EXPECT_EQ(Printed([&] { any = HasAnyPolicies(&manager); }), c.printed);
    EXPECT_EQ(any, c.any);
    EXPECT_EQ(CountOf(log, "GetExistingPolicyList(4)"), c.streamQueries);
    EXPECT_EQ(CountOf(log, "IGuidList::Release"),
              (c.fails[0] == 0 ? 1u : 0u) + (c.streamQueries == 1 && c.fails[1] == 0 ? 1u : 0u));
    EXPECT_EQ(LastStatus, 0x3C);
  }
}

TEST(DeleteAllPoliciesTest, DeletesEachAndReportsIt) {
  CallLog log;
  FakeManager manager(log);
  manager.lists[2] = {Uid(1), Uid(2)};
  manager.lists[4] = {Uid(3)};
  manager.deleteFails["2"] = Hr(0x80070490);
  LastStatus = 0x55;
  EXPECT_EQ(Printed([&] { DeleteAllPolicies(&manager); }),
            "\n\nDELETING ALL POLICIES...\n\n"
            "    Policy 00000001-0000-0000-0000-000000000000:     successful\n"
            "    Policy 00000002-0000-0000-0000-000000000000:     failed, error code: 80070490\n"
            "    Policy 00000003-0000-0000-0000-000000000000:     successful\n");
  // A failed deletion does not touch the status.
  EXPECT_EQ(LastStatus, 0);
  EXPECT_EQ(CountOf(log, "IGuidList::Release"), 2u);

  // A failing list leaves its status unless the next type's list succeeds.
  CallLog other;
  FakeManager failing(other);
  failing.listFails[4] = Hr(0x80004005);
  failing.lists[2] = {Uid(9)};
  failing.deleteFails["9"] = Hr(0x80070005);
  EXPECT_EQ(Printed([&] { DeleteAllPolicies(&failing); }),
            "\n\nDELETING ALL POLICIES...\n\n"
            "    Policy 00000009-0000-0000-0000-000000000000:     failed, error code: 80070005\n"
            "GetExistingPolicyList returned error 0x80004005!\n");
  EXPECT_EQ(LastStatus, Hr(0x80004005));
  failing.listFails.clear();
  failing.listFails[2] = Hr(0x80004005);
  Printed([&] { DeleteAllPolicies(&failing); });
  EXPECT_EQ(LastStatus, 0);
}

}  // namespace
}  // namespace nw
