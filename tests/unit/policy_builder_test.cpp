// The build step against the simulated core: what a document's records become in the core's
// store and saved scenario, the order of the builder calls, every failure's message with the
// error context, and the blacklist operations.

#include "policy/policy_builder.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "cli/console.h"
#include "cli/handlers.h"
#include "policy/names.h"
#include "sim/common/scenario.h"
#include "sim/core/blacklist_objects.h"
#include "sim/core/default_scenario.h"
#include "sim/core/policy_objects.h"
#include "tests/unit/printed.h"

namespace nw {
namespace {

using sim::CoreState;
using sim::LibraryState;

using testing::Printed;

Guid Uid(uint32_t n) { return Guid{n, 0, 0x4000, {0x80, 0, 0, 0, 0, 0, 0, 0}}; }

constexpr Status kFailed = static_cast<Status>(0x80004005u);

// A simulated core playing a scenario file of its own, with its manager and blacklist control
// in a connection record; the file is removed at the end.
class Core {
 public:
  explicit Core(const std::string& scenario) {
    std::random_device random;
    path_ = (std::filesystem::temp_directory_path() /
             ("nw-builder-" + std::to_string(random()) + ".json"))
                .string();
    std::ofstream(path_, std::ios::binary) << scenario;
    state = std::make_shared<CoreState>(
        LibraryState::Options{"kvxfwctl", sim::DefaultScenarioText(), path_, "",
                              [this](const std::wstring& line) { trace.push_back(line); }, false});
    connection.policyManager = new sim::PolicyManager(state);
    connection.highPriorityIpList = new sim::HighPriorityIpListControl(state);
  }
  ~Core() {
    connection.policyManager->Release();
    connection.highPriorityIpList->Release();
    std::filesystem::remove(path_);
  }
  const sim::Scenario& scenario() { return *state->GetScenario(); }
  bool Traced(const std::string& call) const {
    for (const std::wstring& line : trace) {
      if (line.find(std::wstring(call.begin(), call.end())) != std::wstring::npos) return true;
    }
    return false;
  }

  std::shared_ptr<CoreState> state;
  CoreConnection connection;
  std::vector<std::wstring> trace;

 private:
  std::string path_;
};

MatchRecord Match(int32_t type, const wchar_t* value, int32_t op = FW_MATCH_OP_EQUAL) {
  MatchRecord match;
  match.type = type;
  match.op = op;
  match.value = value;
  return match;
}

RuleRecord Rule(uint32_t n, const wchar_t* name, std::deque<MatchRecord> matches = {}) {
  RuleRecord rule;
  rule.uid = Uid(n);
  rule.name = name;
  rule.enabled = true;
  rule.action = ActionRecord{};
  rule.action->type = FW_ACTION_ALLOW;
  rule.matches = std::move(matches);
  return rule;
}

PolicyRecord Policy(uint32_t n, const wchar_t* name, std::deque<RuleRecord> rules = {}) {
  PolicyRecord policy;
  policy.uid = Uid(n);
  policy.pointProduct = Uid(0xFF);
  policy.name = name;
  policy.type = FW_POLICY_TYPE_PACKET;
  policy.defaultGroup.emplace();
  policy.defaultGroup->isDefault = true;
  policy.defaultGroup->rules = std::move(rules);
  return policy;
}

constexpr const char* kEmptyCore = R"({"policies": {"list": []}, "debug": {"trace": true}})";

TEST(PolicyBuilderTest, DocumentMustHoldOneKind) {
  Core core(kEmptyCore);
  PolicyDocument empty;
  EXPECT_EQ(Printed([&] { EXPECT_FALSE(BuildConfiguration(&core.connection, 1, empty)); }),
            "Error: neither policy not blacklist specified in the xml file.\n");
  PolicyDocument both;
  both.policies.push_back(Policy(1, L"P"));
  both.blacklists.emplace_back();
  EXPECT_EQ(Printed([&] { EXPECT_FALSE(BuildConfiguration(&core.connection, 1, both)); }),
            "Error: cannot specify both blacklists and policies in the same xml file.\n");
}

// Every attribute of the records reaches the store; a policy without a default action blocks;
// the default group carries the policy's identifier; further groups their own.
TEST(PolicyBuilderTest, RecordsBecomeTheStoredPolicy) {
  Core core(kEmptyCore);
  PolicyDocument doc;
  PolicyRecord policy = Policy(1, L"Web");
  policy.stateful = false;
  policy.sticky = true;
  policy.bootTimeOnly = true;
  policy.defaultLogOption = 2;
  AggregateRecord aggregate;
  aggregate.uid = Uid(0x21);
  aggregate.name = L"Admins";
  aggregate.orOperator = true;
  aggregate.matches = {Match(FW_MATCH_REMOTE_IP_ADDRESS, L"10.0.0.1-10.0.0.9")};
  policy.aggregates.push_back(aggregate);
  RuleRecord redirect = Rule(0x31, L"Redirect",
                             {Match(0x10000, L"00000021-0000-4000-8000-000000000000"),
                              Match(FW_MATCH_LOCAL_PORT, L"1024:2048", FW_MATCH_OP_IN_RANGE)});
  redirect.action->type = FW_ACTION_REDIRECT;
  redirect.action->redirectAddress = IpAddress{{10, 1, 2, 3}, 4};
  redirect.action->redirectPort = 8080;
  redirect.action->redirectValue = -5;
  redirect.logThrottle = 0;
  redirect.hotDropIfNotMatch = redirect.invertMatch = redirect.teredo = true;
  policy.defaultGroup->rules.push_back(redirect);
  GroupRecord group;
  group.uid = Uid(0x41);
  group.name = L"ignored by the core";
  RuleRecord jump = Rule(0x32, L"Jump", {Match(FW_MATCH_APP_PATH, L"C:\\a&b.exe")});
  jump.action->type = FW_ACTION_JUMP;
  jump.action->target = Uid(0x41);
  group.rules.push_back(jump);
  policy.groups.push_back(group);
  doc.policies.push_back(policy);

  std::string text;
  text = Printed([&] { EXPECT_TRUE(BuildConfiguration(&core.connection, 0, doc)); });
  EXPECT_EQ(text,
            "Aggregate match guid string = 00000021-0000-4000-8000-000000000000\n"
            "Aggregate match guid value\n"
            "        guid: 00000021 40000000 00000080 00000000 \n"
            "Returned from AddAggregateMatch\n"
            "Calling PolicyManager->AddPolicy\n");
  EXPECT_EQ(LastStatus, 0);
  const auto stored = sim::FindPolicy(core.scenario().policies, Uid(1));
  ASSERT_NE(stored, nullptr);
  EXPECT_EQ(stored->name, L"Web");
  EXPECT_FALSE(stored->stateful);
  EXPECT_TRUE(stored->sticky && stored->bootTimeOnly);
  EXPECT_EQ(stored->defaultAction, FW_ACTION_BLOCK_PACKET);
  EXPECT_EQ(stored->defaultLogOption, 2);
  EXPECT_EQ(stored->ppuid, PointProductId);
  ASSERT_EQ(stored->aggregates.size(), 1u);
  EXPECT_EQ(stored->aggregates[0].uid, Uid(0x21));
  EXPECT_EQ(stored->aggregates[0].name, L"Admins");
  EXPECT_TRUE(stored->aggregates[0].orOperator);
  ASSERT_EQ(stored->aggregates[0].matches.size(), 1u);
  EXPECT_EQ(stored->aggregates[0].matches[0].terms.at(0).ipRange->high.bytes[3], 9);
  ASSERT_EQ(stored->groups.size(), 2u);
  EXPECT_EQ(stored->groups[0].uid, Uid(1));
  EXPECT_EQ(stored->groups[1].uid, Uid(0x41));
  const sim::RuleModel& r = stored->groups[0].rules.at(0);
  EXPECT_EQ(r.action, FW_ACTION_REDIRECT);
  EXPECT_EQ(r.redirectPort, 8080);
  EXPECT_EQ(r.redirectValue, -5);
  EXPECT_EQ(r.logThrottle, 0u);
  EXPECT_TRUE(r.hotDropIfNotMatch && r.invertMatch && r.teredo);
  EXPECT_FALSE(r.teredoAwareApp);
  ASSERT_EQ(r.matches.size(), 2u);
  EXPECT_EQ(r.matches[0].type, 0x10000);
  EXPECT_EQ(r.matches[0].terms.at(0).aggregate, Uid(0x21));
  EXPECT_EQ(r.matches[1].terms.at(0).uint16Range, (sim::Uint16Range{1024, 2048}));
  const sim::RuleModel& j = stored->groups[1].rules.at(0);
  EXPECT_EQ(j.target, Uid(0x41));
  EXPECT_EQ(j.matches.at(0).terms.at(0).string->text, L"C:\\a&b.exe");
  // No throttle in the document: the core's is left alone.
  EXPECT_TRUE(core.Traced("IRuleBuilder::SetLogThrottle"));
  Core untouched(kEmptyCore);
  PolicyDocument plain;
  plain.policies.push_back(Policy(2, L"P", {Rule(3, L"R")}));
  Printed([&] { BuildConfiguration(&untouched.connection, 0, plain); });
  EXPECT_FALSE(untouched.Traced("IRuleBuilder::SetLogThrottle"));
  EXPECT_TRUE(untouched.Traced("IRuleBuilder::SetLogOption"));
}

// Each failing step: its message, what follows it, the error context, and the status.
TEST(PolicyBuilderTest, FailuresAndTheirContext) {
  const std::string context =
      "    Error building configuration.\n\n"
      "    Policy at time of error: P\n";
  const struct {
    const char* fault;
    std::string printed;
  } cases[] = {
      {"GetPolicyBuilder", "    Error retrieving policy builder API: 80004005.\n"},
      {"GetRuleBuilder", "    Error retrieving rule builder API: 80004005.\n"},
      {"IPolicyBuilder::Create", "    Error from PolicyBuilder->Create 80004005\n" + context},
      {"SetDefaultAction", "    Error from PolicyBuilder->SetDefaultAction 80004005\n" + context},
      {"IRuleBuilder::Create",
       "    Error building config: RuleBuilder->Create 80004005\n"
       "    Error building config: default group\n" +
           context + "    Rule at time of error: R\n"},
      {"SetEnabled",
       "    Error from RuleBuilder->SetEnabled 80004005\n    Error building config: rule\n"
       "    Error building config: default group\n" +
           context + "    Rule at time of error: R\n"},
      {"SetAction",
       "    Error from RuleBuilder->SetAction 80004005\n    Error building config: rule\n"
       "    Error building config: default group\n" +
           context + "    Rule at time of error: R\n"},
      {"SetHotDropIfNotMatch",
       "    Error from RuleBuilder->SetHotDropIfNotMatch 80004005\n"
       "    Error building config: rule\n    Error building config: default group\n" +
           context + "    Rule at time of error: R\n"},
      {"SetTeredoRule",
       "    Error from RuleBuilder->SetTeredoRule 80004005\n    Error building config: rule\n"
       "    Error building config: default group\n" +
           context + "    Rule at time of error: R\n"},
      {"IRuleBuilder::SetLogOption",
       "    Error from RuleBuilder->SetLogOption 80004005\n    Error building config: rule\n"
       "    Error building config: default group\n" +
           context + "    Rule at time of error: R\n"},
      {"AddRuleToGroup",
       "    Error building config: PolicyBuilder->AddRuleToGroup 80004005\n"
       "    Error building config: default group\n" +
           context + "    Rule at time of error: R\n"},
      {"AddAppPathMatch",
       "    Error returned from AddAppPathMatch, 80004005\n    Error building config: match\n"
       "    Error building config: rule\n    Error building config: default group\n" +
           context + "    Rule at time of error: R\n"},
      {"AddPolicy",
       "Calling PolicyManager->AddPolicy\n"
       "    Error from PolicyManager->AddPolicy: 80004005.\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.fault);
    Core core(std::string(R"({"policies": {"list": []}, "faults": {")") + c.fault +
              R"(": "0x80004005"}})");
    PolicyDocument doc;
    doc.policies.push_back(Policy(1, L"P", {Rule(2, L"R", {Match(FW_MATCH_APP_PATH, L"x")})}));
    EXPECT_EQ(Printed([&] { EXPECT_FALSE(BuildConfiguration(&core.connection, 0, doc)); }),
              c.printed);
    EXPECT_EQ(LastStatus, static_cast<Status>(0x80004005u));
    EXPECT_TRUE(core.scenario().policies.policies.empty());
  }
}

// Aggregate matches are built before any group: a failure names only the policy. A match
// builder that is not there is told in words; the status stays that of the last core call.
TEST(PolicyBuilderTest, AggregateMatchFailures) {
  const std::string aggregate = "    Error building config: aggregate match\n";
  const struct {
    const char* fault;
    std::string printed;
    Status status;
  } cases[] = {
      {"GetAggregateMatchBuilder",
       "    Error retrieving aggregate match builder API: 80004005.\n" + aggregate, kFailed},
      {"SetBoolOp", "    Error from pAggMatchBuilder->SetBoolOp 80004005\n" + aggregate, kFailed},
      {"SetFriendlyName", "    Error from pAggMatchBuilder->SetFriendlyName 80004005\n" + aggregate,
       kFailed},
      {"IAggregateMatchBuilder::GetMatchBuilder",
       "    Error from pAggMatchBuilder->GetMatchBuilder\n" + aggregate, kStatusOk},
      {"AddUserIDMatch",
       "    Error returned from AddUserIDMatch, 80004005\n    Error building config: match\n" +
           aggregate,
       kFailed},
      {"IPolicyBuilder::AddAggregateMatch",
       "    Error from PolicyBuilder->AddAggregateMatch 80004005\n" + aggregate, kFailed},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.fault);
    Core core(std::string(R"({"policies": {"list": []}, "faults": {")") + c.fault +
              R"(": "0x80004005"}})");
    PolicyDocument doc;
    PolicyRecord policy = Policy(1, L"P", {Rule(2, L"R")});
    AggregateRecord& record = policy.aggregates.emplace_back();
    record.uid = Uid(0x21);
    record.name = L"A";
    record.matches = {Match(FW_MATCH_USER_ID, L"S-1-5-18")};
    doc.policies.push_back(policy);
    EXPECT_EQ(Printed([&] { EXPECT_FALSE(BuildConfiguration(&core.connection, 0, doc)); }),
              c.printed + "    Error building configuration.\n\n    Policy at time of error: P\n");
    EXPECT_EQ(LastStatus, c.status);
    EXPECT_TRUE(core.scenario().policies.policies.empty());
  }
}

// A vendor match cannot be built: the rule fails without a message of the match's own.
TEST(PolicyBuilderTest, VendorMatchFailsTheRule) {
  Core core(kEmptyCore);
  PolicyDocument doc;
  PolicyRecord policy = Policy(1, L"", {Rule(2, L"", {Match(FW_MATCH_APP_VENDOR, L"V")})});
  GroupRecord group;
  group.name = L"G";
  doc.policies.push_back(policy);
  EXPECT_EQ(Printed([&] { BuildConfiguration(&core.connection, 0, doc); }),
            "    Error building config: match\n"
            "    Error building config: rule\n"
            "    Error building config: default group\n"
            "    Error building configuration.\n");
}

TEST(PolicyBuilderTest, MissingDefaultGroupAndUnbuildableType) {
  Core core(kEmptyCore);
  PolicyDocument doc;
  doc.policies.push_back(Policy(1, L"P"));
  doc.policies[0].defaultGroup.reset();
  EXPECT_EQ(Printed([&] { BuildConfiguration(&core.connection, 0, doc); }),
            "    Error building config: no default group\n"
            "    Error building configuration.\n\n"
            "    Policy at time of error: P\n");
  PolicyDocument unknown;
  unknown.policies.push_back(Policy(1, L"P", {Rule(2, L"R", {Match(FW_MATCH_CERT_HASH, L"1")})}));
  Printed([&] { BuildConfiguration(&core.connection, 0, unknown); });
  EXPECT_EQ(LastStatus, static_cast<Status>(0x80000001u));
}

// The first failing policy ends the build; those added before it stay in the core.
TEST(PolicyBuilderTest, FailureKeepsWhatWasAdded) {
  Core core(kEmptyCore);
  PolicyDocument doc;
  doc.policies.push_back(Policy(1, L"First"));
  doc.policies.push_back(Policy(1, L"Same identifier"));
  doc.policies.push_back(Policy(3, L"Third"));
  EXPECT_EQ(Printed([&] { EXPECT_FALSE(BuildConfiguration(&core.connection, 0, doc)); }),
            "Calling PolicyManager->AddPolicy\n"
            "Calling PolicyManager->AddPolicy\n"
            "    Error from PolicyManager->AddPolicy: 800700b7.\n");
  ASSERT_EQ(core.scenario().policies.policies.size(), 1u);
  EXPECT_EQ(core.scenario().policies.policies[0]->name, L"First");
}

// Match values by type: what reaches the core, and the refusals' messages.
TEST(PolicyBuilderTest, MatchValues) {
  const struct {
    MatchRecord match;
    bool built;
    const char* printed;
  } cases[] = {
      {Match(FW_MATCH_LOCAL_PORT, L"65536"), false,
       "    Value for local port match is non-numeric or greater than 65535: 65536\n"},
      {Match(FW_MATCH_REMOTE_PORT, L"90-80"), false,
       "GetPortRange: low (90) greater than high (80), \n"
       "    Invalid value for local port range match: 90-80\n"},
      {Match(FW_MATCH_ICMPV4_TYPE, L"256"), false,
       "    Value for ICMP V4 type match is non-numeric or greater than 255: 256\n"},
      {Match(FW_MATCH_ICMPV6_TYPE, L"x"), false,
       "    Value for ICMP V6 type match is non-numeric or greater than 255: x\n"},
      {Match(FW_MATCH_TCP_FLAGS, L"0x100"), false,
       "    Value for TCP flags match is non-numeric or greater than 255: 0x100\n"},
      {Match(FW_MATCH_IP_PROTOCOL, L"tcpx"), false, "    Invalid value for protocol match: tcpx\n"},
      {Match(FW_MATCH_LOCAL_IP_ADDRESS, L"10.0.0.0/33"), false,
       "    Invalid local IP address: 10.0.0.0/33\n"},
      {Match(FW_MATCH_LOCAL_ADAPTER_ADDRESS, L"01-02-03"), false,
       "    Value for MAC address match is not valid: 01-02-03\n"},
      {Match(FW_MATCH_LOCAL_ADAPTER_ADDRESS, L"01-02-03-04-05-06-07-08 zz"), false,
       "    Value for MAC address match is not valid: 01-02-03-04-05-06-07-08 zz\n"},
      {Match(FW_MATCH_DIRECTION, L"sideways"), false,
       "    Invalid value for direction match: sideways\n"},
      {Match(FW_MATCH_INTERFACE_INDEX, L"5-5", FW_MATCH_OP_IN_RANGE), false,
       "GetUint64Range: low (5) greater than high (5), \n"
       "    Invalid value for interface index range match: 5-5\n"},
      {Match(FW_MATCH_INTERFACE_INDEX, L"0x"), false,
       "    Value for interface index match is invalid: 0x\n"},
      // A text with "-" is a range, whatever the operator.
      {Match(FW_MATCH_INTERFACE_INDEX, L"-1"), false,
       "GetUint64Range: GetNumericValue number 1 failed\n"
       "    Invalid value for interface index range match: -1\n"},
      // A bad V4/V6 range still counts as built while the run's status is 0.
      {Match(FW_MATCH_INTERFACE_INDEX_V4, L"9-1"), true,
       "GetUint32Range: low (9) greater than high (1), \n"
       "Bad value for interface index v4 range 9-1\n"},
      {Match(FW_MATCH_INTERFACE_INDEX_V6, L"x"), false,
       "    Value for interface index V6 match is invalid: x\n"},
      {Match(FW_MATCH_APP_MD5_HASH_SUM, L"1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17"), false,
       "    Invalid value for MD5 hash sum match: 1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17\n"},
      {Match(FW_MATCH_APP_MD5_HASH_SUM, L"1,2,3"), true, ""},
      {Match(FW_MATCH_CONNECTION_STATE, L"nonsense"), true, ""},
      {Match(FW_MATCH_LOCAL_ADAPTER_ADDRESS, L"01-02-03-04-05-06-07-08  11-12-13-14-15-16-17-18"),
       true, ""},
      {Match(FW_MATCH_PHYSICAL_MEDIUM, L"nonsense"), false,
       "    Invalid value for FW_MATCH_PHYSICAL_MEDIUM: nonsense\n"},
      {Match(FW_MATCH_PHYSICAL_MEDIUM, L"fw_physical_medium_vpn"), true, ""},
      {Match(FW_MATCH_NETWORK_LAYER_PROTOCOL, L"65536"), false,
       "    Value for link layer protocol match is non-numeric or greater than 0xFFFF: 65536\n"},
      {Match(FW_MATCH_NETWORK_LAYER_PROTOCOL, L"ipx"), true, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.match.type) + " " +
                 std::string(c.match.value.begin(), c.match.value.end()));
    Core core(kEmptyCore);
    PolicyDocument doc;
    doc.policies.push_back(Policy(1, L"", {Rule(2, L"", {c.match})}));
    LastStatus = 0;
    std::string text =
        Printed([&] { EXPECT_EQ(BuildConfiguration(&core.connection, 0, doc), c.built); });
    const std::string tail = c.built ? "Calling PolicyManager->AddPolicy\n"
                                     : "    Error building config: match\n"
                                       "    Error building config: rule\n"
                                       "    Error building config: default group\n"
                                       "    Error building configuration.\n";
    EXPECT_EQ(text, c.printed + tail);
  }
}

// Each match operation the core refuses is reported under its name (some share one), and the
// match fails with the rule.
TEST(PolicyBuilderTest, MatchOperationFailures) {
  const struct {
    int32_t type;
    const wchar_t* value;
    const char* operation;
    const char* reported;
  } cases[] = {
      {FW_MATCH_USER_ID, L"u", "AddUserIDMatch", "AddUserIDMatch"},
      {FW_MATCH_APP_PATH, L"p", "AddAppPathMatch", "AddAppPathMatch"},
      {FW_MATCH_APP_COMMAND_LINE_PARAMS, L"c", "AddCommandLineParamsMatch",
       "AddCommandLineParamsMatch"},
      {FW_MATCH_APP_MD5_HASH_SUM, L"1,2", "AddHashSumMatch", "AddHashSumMatch"},
      {FW_MATCH_APP_DIGITAL_SIGNER, L"s", "AddAppDigitalSignerMatch", "AddAppDigitalSignerMatch"},
      {FW_MATCH_REMOTE_PORT, L"80", "AddLocalPortMatch", "AddLocalPortMatch"},
      {FW_MATCH_SOURCE_PORT, L"80-90", "AddLocalPortRangeMatch", "AddLocalPortRangeMatch"},
      {FW_MATCH_ICMPV4_TYPE, L"8", "AddIcmpV4TypeMatch", "AddIcmpV4TypeMatch"},
      {FW_MATCH_ICMPV6_TYPE, L"128", "AddIcmpV6TypeMatch", "AddIcmpV6TypeMatch"},
      {FW_MATCH_TCP_FLAGS, L"2", "AddTcpFlagsMatch", "AddTcpFlagsMatch"},
      {FW_MATCH_CONNECTION_STATE, L"x", "AddConnectionStateMatch", "AddConnectionStateMatch"},
      {FW_MATCH_IP_PROTOCOL, L"ip_proto_tcp", "AddIpProtocolMatch", "AddIpProtocolMatch"},
      {FW_MATCH_LOCAL_IP_ADDRESS, L"10.0.0.1", "AddLocalIpAddressMatch", "AddLocalIpAddressMatch"},
      {FW_MATCH_REMOTE_IP_ADDRESS, L"10.0.0.1-10.0.0.2", "AddLocalIpAddressRangeMatch",
       "AddLocalIpAddressMatch"},
      {FW_MATCH_SOURCE_IP_ADDRESS, L"10.0.0.0/8", "AddLocalIpAddressPrefixMatch",
       "AddLocalIpAddressMatch"},
      {FW_MATCH_DESTINATION_IP_ADDRESS, L"example.com", "AddLocalDomainNameMatch",
       "AddLocalIpAddressMatch"},
      {FW_MATCH_NETWORK_LAYER_PROTOCOL, L"arp", "AddNetworkLayerProtocolMatch",
       "AddNetworkLayerProtocolMatch"},
      {FW_MATCH_REMOTE_ADAPTER_ADDRESS, L"1-2-3-4-5-6-7-8", "AddMacAddrMatch", "AddMacAddrMatch"},
      {FW_MATCH_SOURCE_ADAPTER_ADDRESS, L"1-2-3-4-5-6-7-8 9-a-b-c-d-e-f-10", "AddMacAddrRangeMatch",
       "AddMacAddrMatch"},
      {FW_MATCH_PHYSICAL_MEDIUM, L"FW_PHYSICAL_MEDIUM_WIRED", "AddPhysicalMediumMatch",
       "AddPhysicalMediumMatch"},
      {FW_MATCH_DIRECTION, L"FW_DIRECTION_OUTBOUND", "AddDirectionMatch", "AddDirectionMatch"},
      {FW_MATCH_INTERFACE_INDEX_V6, L"3", "AddInterfaceIndexV6Match", "AddInterfaceIndexV6Match"},
      {FW_MATCH_INTERFACE_INDEX_V6, L"3-4", "AddInterfaceIndexV6RangeMatch",
       "AddInterfaceIndexV6RangeMatch"},
      {FW_MATCH_INTERFACE_INDEX_V4, L"3", "AddInterfaceIndexV4Match", "AddInterfaceIndexV4Match"},
      {FW_MATCH_INTERFACE_INDEX_V4, L"3:4", "AddInterfaceIndexV4RangeMatch",
       "AddInterfaceIndexV4RangeMatch"},
      {FW_MATCH_INTERFACE_INDEX, L"3", "AddInterfaceIndexMatch", "AddInterfaceIndexMatch"},
      {FW_MATCH_INTERFACE_INDEX, L"3-4", "AddInterfaceIndexRangeMatch",
       "AddInterfaceIndexRangeMatch"},
      {FW_MATCH_BYTES_SENT, L"5", "AddConnectionBytesSentMatch", "AddConnectionBytesSentMatch"},
      {FW_MATCH_BYTES_RECEIVED, L"5", "AddConnectionBytesReceivedMatch",
       "AddConnectionBytesReceivedMatch"},
      {FW_MATCH_CONNSPEC_DNS_SUFFIX, L"corp", "AddConnectionSpecificDnsSuffixMatch",
       "AddConnectionSpecificDnsSuffixMatch"},
      {FW_MATCH_PROCESS_ID, L"4", "AddProcessIdMatch", "AddConnectionBytesReceivedMatch"},
      {FW_MATCH_PE_FILE_DESCRIPTION, L"d", "AddPeFileDescriptionMatch",
       "AddPeFileDescriptionMatch"},
      {FW_MATCH_STANDARDIZED_APP_PATH, L"s", "AddStandardizedAppPathMatch",
       "AddStandardizedAppPathMatch"},
      {FW_MATCH_HTTP_SERVER, L"h", "AddHttpServerMatch", "AddHttpServerMatch"},
      {FW_MATCH_VTP_PRIVILEGES, L"1", "AddVtpPrivilegesMatch", "AddVtpPrivilegesMatch"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.operation);
    Core core(std::string(R"({"policies": {"list": []}, "faults": {"IMatchBuilder::)") +
              c.operation + R"(": "0x80004005"}})");
    PolicyDocument doc;
    doc.policies.push_back(Policy(1, L"", {Rule(2, L"", {Match(c.type, c.value)})}));
    EXPECT_EQ(Printed([&] { BuildConfiguration(&core.connection, 0, doc); }),
              std::string("    Error returned from ") + c.reported +
                  ", 80004005\n"
                  "    Error building config: match\n"
                  "    Error building config: rule\n"
                  "    Error building config: default group\n"
                  "    Error building configuration.\n");
  }
}

// A further group names itself in the error context, and its failures end with their own line.
TEST(PolicyBuilderTest, FurtherGroupFailures) {
  const struct {
    const char* fault;
    std::string printed;
  } cases[] = {
      {"AddGroup", "    Error building config: AddGroup\n    Error building config: group\n"},
      {"SetEnabled",
       "    Error from RuleBuilder->SetEnabled 80004005\n    Error building config: rule\n"
       "    Error building config: group\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.fault);
    Core core(std::string(R"({"policies": {"list": []}, "faults": {")") + c.fault +
              R"(": "0x80004005"}})");
    PolicyDocument doc;
    PolicyRecord policy = Policy(1, L"P");
    GroupRecord& group = policy.groups.emplace_back();
    group.uid = Uid(9);
    group.name = L"G";
    group.rules.push_back(Rule(2, L"R"));
    doc.policies.push_back(policy);
    const std::string rule =
        std::string(c.fault) == "AddGroup" ? "" : "    Rule at time of error: R\n";
    EXPECT_EQ(Printed([&] { BuildConfiguration(&core.connection, 0, doc); }),
              c.printed +
                  "    Error building configuration.\n\n"
                  "    Policy at time of error: P\n"
                  "    Group at time of error: G\n" +
                  rule);
  }
}

// Ports reach the core in network byte order and come back as the numbers written; the MAC
// range keeps both addresses; the hash its bytes.
TEST(PolicyBuilderTest, StoredTerms) {
  Core core(kEmptyCore);
  PolicyDocument doc;
  doc.policies.push_back(Policy(1, L"",
                                {Rule(2, L"",
                                      {Match(FW_MATCH_DESTINATION_PORT, L"0x1bb"),
                                       Match(FW_MATCH_LOCAL_ADAPTER_ADDRESS,
                                             L"01-02-03-04-05-06-07-08 11-12-13-14-15-16-17-18"),
                                       Match(FW_MATCH_APP_MD5_HASH_SUM, L"1 2 255"),
                                       Match(FW_MATCH_SOURCE_IP_ADDRESS, L"fe80::/64"),
                                       Match(FW_MATCH_REMOTE_IP_ADDRESS, L"host-1.example"),
                                       Match(FW_MATCH_IP_PROTOCOL, L"17")})}));
  Printed([&] { ASSERT_TRUE(BuildConfiguration(&core.connection, 0, doc)); });
  const auto policy = sim::FindPolicy(core.scenario().policies, Uid(1));
  ASSERT_NE(policy, nullptr);
  const auto& matches = policy->groups[0].rules.at(0).matches;
  ASSERT_EQ(matches.size(), 6u);
  EXPECT_EQ(matches[0].type, FW_MATCH_DESTINATION_PORT);
  EXPECT_EQ(matches[0].terms[0].uint16, 443);
  EXPECT_EQ(matches[1].terms[0].bytes->count, 16u);
  EXPECT_EQ(matches[1].terms[0].bytes->storage[8], 0x11);
  EXPECT_EQ(matches[2].terms[0].bytes->storage, (std::vector<uint8_t>{1, 2, 255}));
  EXPECT_EQ(matches[3].type, FW_MATCH_SOURCE_IP_ADDRESS);
  EXPECT_EQ(matches[3].terms[0].prefix, 64);
  EXPECT_EQ(matches[4].terms[0].string->text, L"host-1.example");
  EXPECT_EQ(matches[5].terms[0].uint8, 17);
}

// Blacklists: the list built range by range (mixed versions skipped, the others added), then
// set, appended or deleted; the saved scenario follows.
// No command passes another operation; the list is built and then refused.
TEST(BlacklistBuilderTest, UnknownOperation) {
  Core core("{}");
  PolicyDocument doc;
  RangeRecord range;
  range.low = IpAddress{{10, 0, 0, 1}, 4};
  range.high = IpAddress{{10, 0, 0, 2}, 4};
  doc.blacklists.emplace_back().ranges.push_back(range);
  const std::string text =
      Printed([&] { EXPECT_FALSE(BuildConfiguration(&core.connection, 9, doc)); });
  EXPECT_NE(text.find("Building ip range config\n"
                      "Error: unknown operation passed to BuildBlackListConfig.\n"),
            std::string::npos)
      << text;
  EXPECT_TRUE(core.scenario().tables.blacklist.entries.empty());
}

TEST(BlacklistBuilderTest, Failures) {
  const struct {
    const char* fault;
    int operation;
    const char* tail;
  } cases[] = {
      {"GetListBuilder", kBlacklistSet,
       "Error: IHighPriorityIpListControl::GetListBuilder returned 80004005.\n"
       "    Error building configuration.\n"},
      {"SetNewList", kBlacklistSet,
       "Starting loop to build ip range config\nBuilding ip range config\n"
       "    Error from IHighPriorityIpListControl->SetNewList: 80004005.\n"},
      {"AppendList", kBlacklistAppend,
       "Starting loop to build ip range config\nBuilding ip range config\n"
       "    Error from IHighPriorityIpListControl->AppendList: 80004005.\n"},
      {"DeleteList", kBlacklistDelete,
       "Starting loop to build ip range config\nBuilding ip range config\n"
       "    Error from IHighPriorityIpListControl->DeleteList: 80004005.\n"},
      // A range the list refuses is reported and the build goes on.
      {"AddIpV4Range", kBlacklistSet,
       "Starting loop to build ip range config\nBuilding ip range config\n"
       "Error: 80004005 returned from IIpRangeList::AddIpVxRange\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.fault);
    Core core(std::string(R"({"faults": {")") + c.fault + R"(": "0x80004005"}})");
    PolicyDocument doc;
    RangeRecord range;
    range.low = IpAddress{{10, 0, 0, 1}, 4};
    range.high = IpAddress{{10, 0, 0, 2}, 4};
    doc.blacklists.emplace_back().ranges.push_back(range);
    const std::string text =
        Printed([&] { BuildConfiguration(&core.connection, c.operation, doc); });
    EXPECT_NE(text.find(c.tail), std::string::npos) << text;
  }
}

TEST(DeletePolicyByUidTest, FormAndResult) {
  Core core(
      R"({"policies": {"list": [{"uid": "9000000a-0000-4000-8000-00000000009b", "type": 2}]}})");
  const struct {
    const wchar_t* text;
    const char* printed;
  } cases[] = {
      {L"0000000a-0000-4000-8000-00000000000",
       "Error, guid must look like this: xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx.\n"},
      {L"0000000a-0000-4000-8000-00000000000bb",
       "Error, guid must look like this: xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx.\n"},
      {L"0000000a_0000-4000-8000-00000000000b",
       "Error, guid must look like this: xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx.\n"},
      {L"0000000g-0000-4000-8000-00000000000b",
       "Error, guid must look like this: xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx.\n"},
      {L"9000000A-0000-4000-8000-00000000009C", "    Error deleting policy: 80070490.\n"},
      {L"9000000A-0000-4000-8000-00000000009B", "    Policy was deleted successfully.\n"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(Printed([&] { DeletePolicyByUid(core.connection.policyManager, c.text); }),
              c.printed);
  }
  EXPECT_TRUE(core.scenario().policies.policies.empty());
}

}  // namespace
}  // namespace nw
