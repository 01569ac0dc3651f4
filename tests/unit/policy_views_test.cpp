// What no simulated core can show of the policy views: getters that report success and hand
// out nothing, and take-jumps indications beyond the ones the simulated walk gives.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "cli/console.h"
#include "cli/handlers.h"
#include "core/policy_values.h"
#include "policy/match_render.h"
#include "policy/policy_document.h"
#include "policy/policy_listing.h"
#include "tests/unit/printed.h"

namespace nw {
namespace {

using CallLog = std::vector<std::string>;

// One term whose every getter succeeds without writing what it hands out.
class SilentTerms final : public IMatchTerms {
 public:
  SilentTerms(int32_t op, int32_t kind) : op_(op), kind_(kind) {}
  Status Unused0() override { return kStatusNotImplemented; }
  uint32_t GetCount() override { return 1; }
  int32_t GetOperator(uint32_t) override { return op_; }
  Status GetUint8(uint32_t, uint8_t*) override { return kStatusOk; }
  Status GetUint16(uint32_t, uint16_t*) override { return kStatusOk; }
  Status GetUint32(uint32_t, uint32_t*) override { return kStatusOk; }
  Status GetUint64(uint32_t, uint64_t*) override { return kStatusOk; }
  Status GetUint16Range(uint32_t, uint16_t*, uint16_t*) override { return kStatusOk; }
  Status Unused8() override { return kStatusNotImplemented; }
  Status GetUint64Range(uint32_t, uint64_t*, uint64_t*) override { return kStatusOk; }
  Status GetUint8Array(uint32_t, const uint8_t**, uint32_t*) override { return kStatusOk; }
  Status GetAggregateUid(uint32_t, const Guid**) override { return kStatusOk; }
  Status GetString(uint32_t, const wchar_t**, uint32_t*) override { return kStatusOk; }
  Status GetIpAddress(uint32_t, const IpAddress**) override { return kStatusOk; }
  Status GetIpAddressRange(uint32_t, const IpAddress**, const IpAddress**) override {
    return kStatusOk;
  }
  Status GetIpMask(uint32_t, const uint8_t**) override { return kStatusOk; }
  int32_t GetIpAddressMatchType(uint32_t) override { return kind_; }

 private:
  int32_t op_, kind_;
};

class SilentMatch final : public IMatch {
 public:
  SilentMatch(int32_t type, int32_t op, int32_t kind) : type_(type), terms_(op, kind) {}
  int32_t GetType() override { return type_; }
  IMatchTerms* GetTerms() override { return &terms_; }

 private:
  int32_t type_;
  SilentTerms terms_;
};

TEST(RenderMatchTest, GetterThatWritesNothingShowsZeros) {
  const std::string zero6 = "0:0:0:0:0:0:0:0";
  const struct {
    int32_t type, op, kind;
    const char* heading;  // the type's line as the listing writes it, and the operator
    std::string text, xml;
  } cases[] = {
      {7, 0, 0, "FW_MATCH_LOCAL_PORT (7)\n\n                op = FW_MATCH_OP_EQUAL",
       "                value = 0x0 (0)\n", "<value>0</value>\n"},
      {7, 4, 0, "FW_MATCH_LOCAL_PORT (7)\n\n                op = FW_MATCH_OP_IN_RANGE",
       "                low = 0x0 (0), high = 0x0 (0)\n", "<value>0-0</value>\n"},
      {10, 0, 0, "FW_MATCH_ICMPV6_TYPE (10)\n\n                op = FW_MATCH_OP_EQUAL",
       "                value = 0x0 (0)\n", "<value>0</value>\n"},
      {12, 0, 0, "FW_MATCH_CONNECTION_STATE (12)\n\n                op = FW_MATCH_OP_EQUAL",
       "                FWCS_UNKNOWN\n", "<value>FWCS_UNKNOWN</value>\n"},
      {20, 0, 0, "FW_MATCH_DIRECTION (20)\n\n                op = FW_MATCH_OP_EQUAL",
       "                unknown value for direction (0)\n",
       "<value>FW_DIRECTION_INVALID</value>\n"},
      {23, 4, 0, "FW_MATCH_INTERFACE_INDEX (23)\n\n                op = FW_MATCH_OP_IN_RANGE",
       "                low = 0x0 (0), high = 0x0 (0)\n", "<value>0x0-0x0</value>\n"},
      {25, 0, 0, "FW_MATCH_BYTES_RECEIVED (25)\n\n                op = FW_MATCH_OP_EQUAL",
       "                value = 0x0 (0)\n", "<value>0</value>\n"},
      {18, 0, 0, "FW_MATCH_REMOTE_ADAPTER_ADDRESS (18)\n\n                op = FW_MATCH_OP_EQUAL",
       "                value = 00-00-00-00-00-00-00-00\n",
       "<value>00-00-00-00-00-00-00-00</value>\n"},
      {4, 0, 0, "FW_MATCH_APP_MD5_HASH_SUM (4)\n\n                op = FW_MATCH_OP_EQUAL",
       "                value = 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00\n",
       "<value>0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0</value>\n"},
      {26, 0, 0, "FW_MATCH_CONNSPEC_DNS_SUFFIX (26)\n\n                op = FW_MATCH_OP_EQUAL",
       "                string = \n", "<value></value>\n\n"},
      {14, 0, 1, "FW_MATCH_LOCAL_IP_ADDRESS (14)\n\n                op = FW_MATCH_OP_EQUAL",
       "\t\t" + zero6 + "\n", "<value>" + zero6 + "</value>\n"},
      {29, 0, 2, "FW_MATCH_DESTINATION_IP_ADDRESS (29)\n\n                op = FW_MATCH_OP_EQUAL",
       "\t\t" + zero6 + "\n\t\t" + zero6 + "\n", "<value>" + zero6 + "-" + zero6 + "</value>\n"},
      {14, 0, 3, "FW_MATCH_LOCAL_IP_ADDRESS (14)\n\n                op = FW_MATCH_OP_EQUAL",
       "                " + zero6 + "/0\n", "<value>" + zero6 + "/0</value>\n"},
      {15, 0, 4, "FW_MATCH_REMOTE_IP_ADDRESS (15)\n\n                op = FW_MATCH_OP_EQUAL",
       "                \n", "<value></value>\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.heading);
    SilentMatch match(c.type, c.op, c.kind);
    EXPECT_EQ(
        testing::Printed([&] { RenderMatch(&match, kRenderText); }),
        std::string("            Match\n                match type: ") + c.heading + "\n" + c.text);
    const std::string xml = testing::Printed([&] { RenderMatch(&match, kRenderXml); });
    EXPECT_NE(xml.find("                    " + c.xml + "                </match>\n"),
              std::string::npos)
        << xml;
  }
  SilentMatch reference(0x10000, 0, 0);
  EXPECT_NE(testing::Printed([&] {
              RenderMatch(&reference, kRenderXml);
            }).find("<value>00000000-0000-0000-0000-000000000000</value>"),
            std::string::npos);
}

// A rule that answers what a test sets, and null for every identifier and address.
class NullRule final : public IRule {
 public:
  explicit NullRule(int32_t action) : action_(action) {}
  int32_t GetAction() override { return action_; }
  Status Unused1() override { return kStatusNotImplemented; }
  const Guid* GetTargetUid() override { return nullptr; }
  Status Unused3() override { return kStatusNotImplemented; }
  const Guid* GetUid() override { return nullptr; }
  int32_t GetLogOption() override { return 0; }
  bool GetHotDropIfNotMatch() override { return false; }
  bool IsEnabled() override { return true; }
  bool GetInvertMatch() override { return false; }
  const wchar_t* GetName() override { return L"r"; }
  Status Unused10() override { return kStatusNotImplemented; }
  bool IsTeredoRule() override { return false; }
  bool IsTeredoAwareApp() override { return false; }
  const IpAddress* GetRedirectAddress() override { return nullptr; }
  uint16_t GetRedirectPort() override { return 53; }
  int64_t GetRedirectValue() override { return 9; }
  uint32_t GetLogThrottle() override { return 0xFFFFFFFF; }

 private:
  int32_t action_;
};

class OneGroup final : public IPolicyGroup {
 public:
  const Guid* GetUid() override { return nullptr; }
};

// A policy of one group of rules, with a take-jumps walk scripted as (rule, indication) steps
// and the indication that comes with the null at its end.
struct PolicyScript {
  std::vector<int32_t> actions{};
  std::vector<uint32_t> indications{};
  uint32_t endIndication = 3;
};

class ScriptedPolicy final : public IPolicy {
 public:
  ScriptedPolicy(CallLog& log, const PolicyScript& script) : log_(log), script_(script) {
    for (int32_t action : script.actions) rules_.emplace_back(action);
  }
  Status Unused0() override { return kStatusNotImplemented; }
  uint32_t Release() override { return 0; }
  Status SetIterationMode(int32_t mode) override {
    log_.push_back("SetIterationMode(" + std::to_string(mode) + ")");
    return kStatusOk;
  }
  IAggregateMatch* GetCurrentAggregateMatch() override { return nullptr; }
  IAggregateMatch* GetNextAggregateMatch() override { return nullptr; }
  Status EnterAggregateMatch(IMatch*, void*) override { return kStatusOk; }
  Status Unused6() override { return kStatusNotImplemented; }
  Status LeaveAggregateMatch() override { return kStatusOk; }
  Status AdvanceIteration() override {
    log_.push_back("AdvanceIteration");
    return kStatusOk;
  }
  IPolicyGroup* GetNextGroup() override {
    return groupGiven_ ? nullptr : (groupGiven_ = true, &group_);
  }
  Status Unused10() override { return kStatusNotImplemented; }
  IMatch* GetNextMatch() override { return nullptr; }
  Status Unused12() override { return kStatusNotImplemented; }
  IRule* GetNextRuleTakingJumps(uint32_t* indication) override {
    log_.push_back("GetNextRuleTakingJumps");
    if (step_ >= script_.indications.size()) {
      *indication = script_.endIndication;
      return nullptr;
    }
    *indication = script_.indications[step_];
    return &rules_[step_++ % rules_.size()];
  }
  IRule* GetNextRule() override { return next_ < rules_.size() ? &rules_[next_++] : nullptr; }
  Status Unused15() override { return kStatusNotImplemented; }
  bool IsStateful() override { return false; }
  bool IsSticky() override { return false; }
  bool IsBootTimeOnly() override { return false; }
  const wchar_t* GetName() override { return L"p"; }
  int32_t GetDefaultAction() override { return 1; }
  int32_t GetDefaultLogOption() override { return 0; }
  Status Unused22() override { return kStatusNotImplemented; }
  const Guid* GetPointProductUid() override { return nullptr; }
  int32_t GetPolicyType() override { return 2; }

 private:
  CallLog& log_;
  PolicyScript script_;
  std::vector<NullRule> rules_;
  OneGroup group_;
  bool groupGiven_ = false;
  size_t next_ = 0, step_ = 0;
};

class OnePolicyList final : public IGuidList {
 public:
  Status Unused0() override { return kStatusNotImplemented; }
  uint32_t Release() override { return 0; }
  const Guid* GetGuids() override { return &uid_; }
  uint64_t GetCount() override { return 1; }

 private:
  Guid uid_{};
};

// One packet policy, handed out afresh at every fetch.
class OnePolicyManager final : public IPolicyManager {
 public:
  OnePolicyManager(CallLog& log, PolicyScript script) : log_(log), script_(std::move(script)) {}
  Status Unused0() override { return kStatusNotImplemented; }
  uint32_t Release() override { return 0; }
  Status GetPolicyBuilder(IPolicyBuilder**) override { return kStatusNotImplemented; }
  Status GetRuleBuilder(IRuleBuilder**) override { return kStatusNotImplemented; }
  Status GetAggregateMatchBuilder(IAggregateMatchBuilder**) override {
    return kStatusNotImplemented;
  }
  Status GetExistingPolicy(IPolicy** out, const Guid*) override {
    *out = fetched_.emplace_back(std::make_unique<ScriptedPolicy>(log_, script_)).get();
    return kStatusOk;
  }
  Status GetExistingPolicyList(IGuidList** out, int32_t type) override {
    *out = type == 2 ? &list_ : nullptr;
    return type == 2 ? kStatusOk : kStatusNotImplemented;
  }
  Status AddPolicy(IPolicyBuilder*, void*, void*) override { return kStatusNotImplemented; }
  Status DeletePolicy(const Guid*) override { return kStatusNotImplemented; }

 private:
  CallLog& log_;
  PolicyScript script_;
  OnePolicyList list_;
  std::vector<std::unique_ptr<ScriptedPolicy>> fetched_;
};

TEST(PolicyDocumentTest, NullIdentifiersAndAddressesAreWrittenCleared) {
  CallLog log;
  OnePolicyManager manager(log, {.actions = {FW_ACTION_JUMP, FW_ACTION_REDIRECT}});
  const std::string text = testing::Printed([&] { WritePoliciesOfType(&manager, 2); });
  for (const char* line : {"        <ppuid>00000000-0000-0000-0000-000000000000</ppuid>\n",
                           "                <uid>00000000-0000-0000-0000-000000000000</uid>\n",
                           "<target>00000000-0000-0000-0000-000000000000</target>\n",
                           "<target>0:0:0:0:0:0:0:0 53 9</target>\n"}) {
    EXPECT_NE(text.find(line), std::string::npos) << line << text;
  }
}

// AdvanceIteration comes once before the first rule, then after each later
// GetNextRuleTakingJumps whose indication is 0 or 1 as an unsigned number, also the one that
// ends the walk.
TEST(PolicyListingTest, AdvanceFollowsIndicationsZeroAndOneOnly) {
  const struct {
    std::vector<uint32_t> indications{};
    uint32_t end;
    std::vector<bool> advanced;  // after each call that follows the first
  } cases[] = {
      {{5, 0xFFFFFFFF, 0}, 0, {false, true, true}},
      {{3, 0}, 1, {true, true}},
      {{}, 1, {}},
  };
  for (const auto& c : cases) {
    CallLog log;
    OnePolicyManager manager(
        log, {.actions = {FW_ACTION_ALLOW}, .indications = c.indications, .endIndication = c.end});
    testing::Printed([&] { ShowPolicyType(&manager, 2); });
    CallLog expected = {"SetIterationMode(0)", "SetIterationMode(1)", "AdvanceIteration",
                        "GetNextRuleTakingJumps"};
    for (bool advanced : c.advanced) {
      expected.push_back("GetNextRuleTakingJumps");
      if (advanced) expected.push_back("AdvanceIteration");
    }
    EXPECT_EQ(log, expected);
  }
}

}  // namespace
}  // namespace nw
