// The policy document against a recording policy model: the lines of a policy, its aggregate
// matches, groups and rules in their fixed orders, the action details, the failure paths, and
// LastStatus.

#include "policy/policy_document.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>

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
using testing::RuleFields;

using testing::Printed;

constexpr Guid Uid(uint32_t n) { return Guid{n, 0, 0, {0, 0, 0, 0, 0, 0, 0, 0}}; }
constexpr Status Hr(uint32_t value) { return static_cast<Status>(value); }

size_t CountOf(const CallLog& log, const std::string& call) {
  return static_cast<size_t>(std::count(log.begin(), log.end(), call));
}

// The lines every policy of these tests opens with, for a packet policy named name.
std::string Opening(const std::string& uid, const std::string& name) {
  return "    <policy>\n"
         "        <uid>" +
         uid +
         "</uid>\n"
         "        <ppuid>00000000-0000-0000-0000-000000000000</ppuid>\n"
         "        <name>" +
         name +
         "</name>\n"
         "        <policytype>FW_POLICY_TYPE_PACKET</policytype>\n"
         "        <stateful>NO</stateful>\n"
         "        <sticky>NO</sticky>\n"
         "        <boot_time_only>NO</boot_time_only>\n"
         "        <defaultlogoption>FW_LOG_OPTION_NONE</defaultlogoption>\n"
         "        <default_action>\n"
         "            <actiontype>FW_ACTION_BLOCK_PACKET</actiontype>\n"
         "        </default_action>\n"
         "\n";
}

TEST(PolicyDocumentTest, NoPoliciesIsAnEmptyElement) {
  CallLog log;
  FakeManager manager(log);
  LastStatus = 0x77;
  EXPECT_EQ(Printed([&] { WritePolicyDocument(&manager); }), "<policies>\n</policies>\n");
  EXPECT_EQ(LastStatus, 0);
  EXPECT_EQ(log, (CallLog{"GetExistingPolicyList(2)", "IGuidList::Release",
                          "GetExistingPolicyList(4)", "IGuidList::Release"}));
}

TEST(PolicyDocumentTest, PolicyWithAggregateDefaultGroupAndFurtherGroup) {
  CallLog log;
  FakeManager manager(log);
  PolicySpec policy;
  policy.name = L"";
  policy.stateful = true;
  policy.bootTimeOnly = true;
  policy.defaultAction = 11;
  policy.defaultLogOption = 9;
  policy.type = 4;
  policy.pointProduct = Uid(0xabc);
  policy.aggregates = {{L"", true, {{23, {FakeTerm{.u64 = 12}}}}, Uid(0x21)},
                       {L"Admins", false, {}, Uid(0x22)}};
  RuleFields first{.action = 1, .uid = Uid(0x31), .logOption = 2, .throttle = 0};
  RuleFields second{.action = 9,
                    .uid = Uid(0x32),
                    .target = Uid(0x41),
                    .enabled = false,
                    .hotDrop = true,
                    .teredo = true,
                    .teredoAware = true,
                    .invert = true};
  policy.groups = {
      {{L"Allow", {{24, {FakeTerm{.u64 = 12}}}}, first}, {L"", {}, second}},
      {{L"Inside",
        {},
        RuleFields{.action = 5, .uid = Uid(0x33), .logOption = 1, .throttle = 0xFFFFFFFE}}}};
  policy.groupUids = {Uid(0x51), Uid(0x41)};
  manager.lists[4] = {Uid(7)};
  manager.policies = {{Uid(7), policy}};
  EXPECT_EQ(Printed([&] { WritePolicyDocument(&manager); }),
            "<policies>\n"
            "    <policy>\n"
            "        <uid>00000007-0000-0000-0000-000000000000</uid>\n"
            "        <ppuid>00000abc-0000-0000-0000-000000000000</ppuid>\n"
            "        <name>00000007-0000-0000-0000-000000000000</name>\n"
            "        <policytype>FW_POLICY_TYPE_STREAM</policytype>\n"
            "        <stateful>YES</stateful>\n"
            "        <sticky>NO</sticky>\n"
            "        <boot_time_only>YES</boot_time_only>\n"
            "        <defaultlogoption>FW_LOG_OPTION_INVALID</defaultlogoption>\n"
            "        <default_action>\n"
            "            <actiontype>FW_ACTION_INVALID</actiontype>\n"
            "        </default_action>\n"
            "\n"
            "        <aggregate_match>\n"
            "            <name>00000021-0000-0000-0000-000000000000</name>\n"
            "            <or_operator>true</or_operator>\n"
            "            <uid>00000021-0000-0000-0000-000000000000</uid>\n"
            "                <match>\n"
            "                    <matchtype>FW_MATCH_INTERFACE_INDEX</matchtype>\n"
            "                    <optype>FW_MATCH_OP_EQUAL</optype>\n"
            "                    <value>0xc</value>\n"
            "                </match>\n"
            "        </aggregate_match>\n"
            "        <aggregate_match>\n"
            "            <name>Admins</name>\n"
            "            <or_operator>false</or_operator>\n"
            "            <uid>00000022-0000-0000-0000-000000000000</uid>\n"
            "        </aggregate_match>\n"
            "        <default_group>\n"
            "            <rule>\n"
            "                <name>Allow</name>\n"
            "                <uid>00000031-0000-0000-0000-000000000000</uid>\n"
            "                <enabled>true</enabled>\n"
            "                <hotdropif>false</hotdropif>\n"
            "                <teredo>false</teredo>\n"
            "                <teredoawareapp>false</teredoawareapp>\n"
            "                <invertmatch>false</invertmatch>\n"
            "                <action>\n"
            "                    <actiontype>FW_ACTION_ALLOW</actiontype>\n"
            "                    <logoption>FW_LOG_OPTION_PACKET</logoption>\n"
            "                    <logthrottle>0</logthrottle>\n"
            "                </action>\n"
            "                <match>\n"
            "                    <matchtype>FW_MATCH_BYTES_SENT</matchtype>\n"
            "                    <optype>FW_MATCH_OP_EQUAL</optype>\n"
            "                    <value>12</value>\n"
            "                </match>\n"
            "            </rule>\n"
            "            <rule>\n"
            "                <name>00000032-0000-0000-0000-000000000000</name>\n"
            "                <uid>00000032-0000-0000-0000-000000000000</uid>\n"
            "                <enabled>false</enabled>\n"
            "                <hotdropif>true</hotdropif>\n"
            "                <teredo>true</teredo>\n"
            "                <teredoawareapp>true</teredoawareapp>\n"
            "                <invertmatch>true</invertmatch>\n"
            "                <action>\n"
            "                    <actiontype>FW_ACTION_JUMP</actiontype>\n"
            "                    <target>00000041-0000-0000-0000-000000000000</target>\n"
            "                </action>\n"
            "            </rule>\n"
            "        </default_group>\n"
            "        <group>\n"
            "            <uid>00000041-0000-0000-0000-000000000000</uid>\n"
            "            <name>00000041-0000-0000-0000-000000000000</name>\n"
            "            <rule>\n"
            "                <name>Inside</name>\n"
            "                <uid>00000033-0000-0000-0000-000000000000</uid>\n"
            "                <enabled>true</enabled>\n"
            "                <hotdropif>false</hotdropif>\n"
            "                <teredo>false</teredo>\n"
            "                <teredoawareapp>false</teredoawareapp>\n"
            "                <invertmatch>false</invertmatch>\n"
            "                <action>\n"
            "                    <actiontype>FW_ACTION_BLOCK_PACKET</actiontype>\n"
            "                    <logoption>FW_LOG_OPTION_CONNECTION_PARAMS</logoption>\n"
            "                    <logthrottle>4294967294</logthrottle>\n"
            "                </action>\n"
            "            </rule>\n"
            "        </group>\n"
            "    </policy>\n"
            "</policies>\n");
  // One linear walk per policy, set before the aggregates and never changed; no jumps taken.
  EXPECT_EQ(CountOf(log, "SetIterationMode(0)"), 1u);
  EXPECT_EQ(CountOf(log, "SetIterationMode(1)"), 0u);
  EXPECT_EQ(CountOf(log, "AdvanceIteration"), 0u);
  EXPECT_LT(std::find(log.begin(), log.end(), "SetIterationMode(0)"),
            std::find(log.begin(), log.end(), "GetNextAggregateMatch"));
  EXPECT_EQ(CountOf(log, "Release"), 1u);
  EXPECT_EQ(CountOf(log, "IGuidList::Release"), 2u);
  // The last value getter (bytes sent) decides.
  EXPECT_EQ(LastStatus, 0);
}

// The action details by action: the target identifier for jumps and plug-ins, the redirect
// target text (its port in a field of four digits), and the log option with the throttle
// unless it is 0xFFFFFFFF for every other action.
TEST(PolicyDocumentTest, ActionDetails) {
  const IpAddress v4{{10, 1, 2, 3}, 4};
  const IpAddress v6{{0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}, 6};
  const struct {
    RuleFields fields;
    const char* details;
  } cases[] = {
      {{.action = 9, .target = Uid(0x99)},
       "                    <actiontype>FW_ACTION_JUMP</actiontype>\n"
       "                    <target>00000099-0000-0000-0000-000000000000</target>\n"},
      {{.action = 10, .target = Uid(0x98), .logOption = 2, .throttle = 5},
       "                    <actiontype>FW_ACTION_CALL_PLUGIN</actiontype>\n"
       "                    <target>00000098-0000-0000-0000-000000000000</target>\n"},
      {{.action = 10, .nullTarget = true},
       "                    <actiontype>FW_ACTION_CALL_PLUGIN</actiontype>\n"
       "                    <target>00000000-0000-0000-0000-000000000000</target>\n"},
      {{.action = 3, .redirect = v4, .port = 8080, .value = 0, .throttle = 7},
       "                    <actiontype>FW_ACTION_REDIRECT</actiontype>\n"
       "                    <target>10.1.2.3 8080 0</target>\n"},
      {{.action = 3, .redirect = v4, .port = 9999, .value = -5},
       "                    <actiontype>FW_ACTION_REDIRECT</actiontype>\n"
       "                    <target>10.1.2.3 9999 -5</target>\n"},
      {{.action = 3, .redirect = v4, .port = 10000, .value = 1},
       "                    <actiontype>FW_ACTION_REDIRECT</actiontype>\n"
       "                    <target>10.1.2.3  1</target>\n"},
      {{.action = 3, .redirect = v4, .port = 65535, .value = 0},
       "                    <actiontype>FW_ACTION_REDIRECT</actiontype>\n"
       "                    <target>10.1.2.3  0</target>\n"},
      {{.action = 3, .redirect = v6, .port = 0, .value = INT64_MIN},
       "                    <actiontype>FW_ACTION_REDIRECT</actiontype>\n"
       "                    <target>fe80:0:0:0:0:0:0:1 0 -9223372036854775808</target>\n"},
      {{.action = 3, .nullRedirect = true, .port = 53, .value = 9},
       "                    <actiontype>FW_ACTION_REDIRECT</actiontype>\n"
       "                    <target>0:0:0:0:0:0:0:0 53 9</target>\n"},
      {{.action = 7, .logOption = 3, .throttle = 0xFFFFFFFF},
       "                    <actiontype>FW_ACTION_BLOCK_HOST</actiontype>\n"
       "                    <logoption>FW_LOG_OPTION_INVALID</logoption>\n"},
      {{.action = 8, .logOption = -1, .throttle = 1000000},
       "                    <actiontype>FW_ACTION_CONTINUE</actiontype>\n"
       "                    <logoption>FW_LOG_OPTION_INVALID</logoption>\n"
       "                    <logthrottle>1000000</logthrottle>\n"},
      {{.action = 0, .logOption = 1, .throttle = 0},
       "                    <actiontype>FW_ACTION_INVALID</actiontype>\n"
       "                    <logoption>FW_LOG_OPTION_CONNECTION_PARAMS</logoption>\n"
       "                    <logthrottle>0</logthrottle>\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.details);
    CallLog log;
    FakeManager manager(log);
    PolicySpec policy;
    policy.name = L"P";
    policy.groups = {{{L"R", {}, c.fields}}};
    manager.lists[2] = {Uid(1)};
    manager.policies = {{Uid(1), policy}};
    EXPECT_EQ(Printed([&] { WritePoliciesOfType(&manager, 2); }),
              Opening("00000001-0000-0000-0000-000000000000", "P") +
                  "        <default_group>\n"
                  "            <rule>\n"
                  "                <name>R</name>\n"
                  "                <uid>00000000-0000-0000-0000-000000000000</uid>\n"
                  "                <enabled>true</enabled>\n"
                  "                <hotdropif>false</hotdropif>\n"
                  "                <teredo>false</teredo>\n"
                  "                <teredoawareapp>false</teredoawareapp>\n"
                  "                <invertmatch>false</invertmatch>\n"
                  "                <action>\n" +
                  c.details +
                  "                </action>\n"
                  "            </rule>\n"
                  "        </default_group>\n"
                  "    </policy>\n");
  }
}

TEST(PolicyDocumentTest, FailingFetchEndsTheTypeAndTheDocumentIsClosed) {
  CallLog log;
  FakeManager manager(log);
  PolicySpec policy;
  policy.name = L"P";
  manager.lists[2] = {Uid(1), Uid(2), Uid(3)};
  manager.lists[4] = {Uid(4)};
  manager.policies = {{Uid(1), policy}, {Uid(3), policy}, {Uid(4), policy}};
  manager.fetchFails = {{Uid(2), 1, Hr(0x80070005)}};
  EXPECT_EQ(Printed([&] { WritePolicyDocument(&manager); }),
            "<policies>\n" + Opening("00000001-0000-0000-0000-000000000000", "P") +
                "    </policy>\n"
                "Error 80070005 from GetExistingPolicy!\n" +
                Opening("00000004-0000-0000-0000-000000000000", "P") +
                "    </policy>\n"
                "</policies>\n");
  EXPECT_EQ(CountOf(log, "GetExistingPolicy(3)"), 0u);
  EXPECT_EQ(CountOf(log, "IGuidList::Release"), 2u);
  // The stream type's successful fetch is the last status.
  EXPECT_EQ(LastStatus, 0);

  // The failure is the run's status when it ends the last type.
  manager.lists[4] = {Uid(2)};
  Printed([&] { WritePolicyDocument(&manager); });
  EXPECT_EQ(LastStatus, Hr(0x80070490));
}

TEST(PolicyDocumentTest, ListFailingForOneTypeOnly) {
  const struct {
    int32_t failing;
    const char* text;
    Status status;
  } cases[] = {
      {2,
       "<policies>\n"
       "GetExistingPolicyList returned error 0x80004005!\n"
       "</policies>\n",
       0},
      {4,
       "<policies>\n"
       "GetExistingPolicyList returned error 0x80004005!\n"
       "</policies>\n",
       Hr(0x80004005)},
  };
  for (const auto& c : cases) {
    CallLog log;
    FakeManager manager(log);
    manager.listFails[c.failing] = Hr(0x80004005);
    EXPECT_EQ(Printed([&] { WritePolicyDocument(&manager); }), c.text);
    EXPECT_EQ(LastStatus, c.status) << c.failing;
    EXPECT_EQ(CountOf(log, "GetExistingPolicyList(2)"), 1u);
    EXPECT_EQ(CountOf(log, "GetExistingPolicyList(4)"), 1u);
  }
}

// A core that breaks its side: a list or a policy handed out as null after success fails its
// step with E_POINTER; a null point-product identifier is written as the zero one.
TEST(PolicyDocumentTest, NullObjectsFromTheCore) {
  CallLog log;
  FakeManager manager(log);
  manager.nullList = true;
  EXPECT_EQ(Printed([&] { WritePolicyDocument(&manager); }),
            "<policies>\n"
            "GetExistingPolicyList returned error 0x80004003!\n"
            "GetExistingPolicyList returned error 0x80004003!\n"
            "</policies>\n");
  EXPECT_EQ(LastStatus, Hr(0x80004003));

  manager.nullList = false;
  manager.nullPolicy = true;
  manager.lists[2] = {Uid(1)};
  EXPECT_EQ(Printed([&] { WritePoliciesOfType(&manager, 2); }),
            "Error 80004003 from GetExistingPolicy!\n");

  manager.nullPolicy = false;
  PolicySpec policy;
  policy.name = L"P";
  policy.nullPointProduct = true;
  manager.policies = {{Uid(1), policy}};
  EXPECT_EQ(Printed([&] { WritePoliciesOfType(&manager, 2); }),
            Opening("00000001-0000-0000-0000-000000000000", "P") + "    </policy>\n");
}

// A failing term getter inside the document: its line, the match element still closed, the
// next term still written, and its status the run's.
TEST(PolicyDocumentTest, FailingTermGetterInsideTheDocument) {
  CallLog log;
  FakeManager manager(log);
  PolicySpec policy;
  policy.name = L"P";
  FakeTerm failing{.op = 0, .fail = {{"GetUint16", Hr(0x8000FFFF)}}};
  policy.groups = {{{L"R", {{7, {FakeTerm{.u16 = 80}, failing}}}}}};
  manager.lists[2] = {Uid(1)};
  manager.policies = {{Uid(1), policy}};
  const std::string text = Printed([&] { WritePoliciesOfType(&manager, 2); });
  EXPECT_NE(text.find("                    <value>80</value>\n"
                      "                </match>\n"
                      "                <match>\n"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find("IMatchTerms::GetUint16\n                </match>\n            </rule>\n"),
            std::string::npos)
      << text;
  EXPECT_EQ(LastStatus, Hr(0x8000FFFF));
}

}  // namespace
}  // namespace nw
