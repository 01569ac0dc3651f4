// The document reader's element handlers, driven event by event as the node loop would: the
// placement rules, the values, the completeness checks and every refusal's message, and the
// records a document leaves behind.

#include "policy/policy_reader.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "cli/console.h"
#include "tests/unit/printed.h"

namespace nw {
namespace {

using testing::Printed;

// One event of a document: "<name" opens, ">name" closes, anything else is text.
using Script = std::vector<std::wstring>;

// Feeds the events until one is refused; returns how many were accepted.
size_t Feed(PolicyDocumentReader& reader, const Script& script) {
  size_t accepted = 0;
  for (const std::wstring& event : script) {
    bool ok;
    if (!event.empty() && event[0] == L'<') {
      ok = reader.OpenElement(event.c_str() + 1);
    } else if (!event.empty() && event[0] == L'>') {
      ok = reader.CloseElement(event.c_str() + 1);
    } else {
      ok = reader.TakeValue(event.c_str());
    }
    if (!ok) break;
    ++accepted;
  }
  return accepted;
}

// The events of a leaf element holding text.
Script Leaf(const std::wstring& name, const std::wstring& text) {
  return {L"<" + name, text, L">" + name};
}

Script Join(std::initializer_list<Script> parts) {
  Script all;
  for (const Script& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

// Removes the lookup echo lines, which every element prints, to keep expectations readable.
std::string WithoutLookups(const std::string& text) {
  std::string out;
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    end = end == std::string::npos ? text.size() : end + 1;
    const std::string line = text.substr(start, end - start);
    if (line.rfind("Return value from MatchElement = ", 0) != 0) out += line;
    start = end;
  }
  return out;
}

const wchar_t kUid1[] = L"11111111-2222-3333-4444-555555555555";
const wchar_t kUid2[] = L"aaaaaaaa-bbbb-cccc-dddd-eeeeeeeeeeee";

Script CompletePolicyHead() {
  return Join({{L"<policies", L"<policy"},
               Leaf(L"uid", kUid1),
               Leaf(L"ppuid", kUid2),
               Leaf(L"name", L"P"),
               Leaf(L"policytype", L"FW_POLICY_TYPE_PACKET")});
}

TEST(PolicyReaderTest, ACompletePolicyIsRecorded) {
  PolicyDocumentReader reader;
  const Script script = Join({CompletePolicyHead(),
                              Leaf(L"stateful", L"NO"),
                              Leaf(L"sticky", L"yes"),
                              Leaf(L"defaultlogoption", L"FW_LOG_OPTION_PACKET"),
                              {L"<default_action"},
                              Leaf(L"actiontype", L"FW_ACTION_ALLOW"),
                              {L">default_action"},
                              {L"<aggregate_match"},
                              Leaf(L"name", L"Agg"),
                              Leaf(L"or_operator", L"TRUE"),
                              Leaf(L"uid", kUid2),
                              {L"<match"},
                              Leaf(L"matchtype", L"FW_MATCH_LOCAL_PORT"),
                              Leaf(L"optype", L"FW_MATCH_OP_EQUAL"),
                              Leaf(L"value", L"80"),
                              {L">match"},
                              {L">aggregate_match", L"<default_group", L"<rule"},
                              Leaf(L"name", L"R"),
                              Leaf(L"uid", kUid1),
                              Leaf(L"enabled", L"1"),
                              Leaf(L"logthrottle", L"0"),
                              {L"<action"},
                              Leaf(L"actiontype", L"FW_ACTION_REDIRECT"),
                              Leaf(L"target", L"10.0.0.1 8080 -3"),
                              {L">action", L">rule", L">default_group", L"<group"},
                              Leaf(L"uid", kUid2),
                              Leaf(L"name", L"G"),
                              {L">group", L">policy", L">policies"}});
  std::string text;
  size_t accepted = 0;
  text = Printed([&] { accepted = Feed(reader, script); });
  EXPECT_EQ(accepted, script.size()) << text;
  EXPECT_EQ(WithoutLookups(text), "Into ProcessAggregateMatch\n");
  const PolicyDocument& doc = reader.document();
  ASSERT_EQ(doc.policies.size(), 1u);
  const PolicyRecord& p = doc.policies[0];
  EXPECT_EQ(p.name, L"P");
  EXPECT_EQ(p.type, FW_POLICY_TYPE_PACKET);
  EXPECT_FALSE(p.stateful);
  EXPECT_TRUE(p.sticky);
  EXPECT_EQ(p.defaultLogOption, 2);
  ASSERT_TRUE(p.defaultAction);
  EXPECT_EQ(p.defaultAction->type, FW_ACTION_ALLOW);
  ASSERT_EQ(p.aggregates.size(), 1u);
  EXPECT_TRUE(p.aggregates[0].orOperator);
  ASSERT_EQ(p.aggregates[0].matches.size(), 1u);
  EXPECT_EQ(p.aggregates[0].matches[0].type, FW_MATCH_LOCAL_PORT);
  EXPECT_EQ(p.aggregates[0].matches[0].op, FW_MATCH_OP_EQUAL);
  EXPECT_EQ(p.aggregates[0].matches[0].value, L"80");
  ASSERT_TRUE(p.defaultGroup);
  EXPECT_TRUE(p.defaultGroup->isDefault);
  ASSERT_EQ(p.defaultGroup->rules.size(), 1u);
  const RuleRecord& r = p.defaultGroup->rules[0];
  EXPECT_TRUE(r.enabled);
  EXPECT_EQ(r.logThrottle, 0u);
  ASSERT_TRUE(r.action);
  EXPECT_EQ(r.action->redirectPort, 8080);
  EXPECT_EQ(r.action->redirectValue, -3);
  EXPECT_EQ(r.action->redirectAddress.version, 4u);
  ASSERT_EQ(p.groups.size(), 1u);
  EXPECT_EQ(p.groups[0].name, L"G");
  EXPECT_FALSE(p.groups[0].isDefault);
}

// New records start as the format says: a policy stateful, a rule disabled without throttle,
// a match with its operator not given.
TEST(PolicyReaderTest, InitialValues) {
  PolicyDocumentReader reader;
  Printed([&] {
    Feed(reader, {L"<policy", L"<default_group", L"<rule", L"<match", L"<blacklist"});
  });
  const PolicyRecord& p = reader.document().policies.at(0);
  EXPECT_TRUE(p.stateful);
  EXPECT_FALSE(p.sticky || p.bootTimeOnly);
  EXPECT_EQ(p.type, 0);
  EXPECT_FALSE(p.defaultAction);
  const RuleRecord& r = p.defaultGroup->rules.at(0);
  EXPECT_FALSE(r.enabled || r.hotDropIfNotMatch || r.teredo || r.teredoAwareApp || r.invertMatch);
  EXPECT_FALSE(r.logThrottle);
  EXPECT_EQ(r.matches.at(0).op, FW_MATCH_OP_LAST);
  EXPECT_EQ(r.matches.at(0).type, 0);
}

// Each placement refusal: the events before it are accepted, the last one refused with its
// message.
TEST(PolicyReaderTest, PlacementRefusals) {
  const struct {
    Script script;
    const char* message;
  } cases[] = {
      {{L"<blacklist", L"<policy"}, "Error: in a blacklist when <policy> was encountered\n"},
      {{L"<policy", L"<policy"}, "Error: already in a policy when <policy> was encountered\n"},
      {{L"<policy", L"<group", L"<default_group"},
       "Error: already in a group when <default_group> was encountered\n"},
      {{L"<policy", L"<default_group", L">default_group", L"<default_group"},
       "Error: default group has already been specified for this policy\n"},
      {{L"<policy", L"<group", L"<group"},
       "Error: already in a group when <group> was encountered\n"},
      {{L"<policy", L"<group", L"<rule", L"<rule"},
       "Error: already in a rule when <rule> encountered\n"},
      {{L"<policy", L"<action"}, "Error: not in <rule> when <action> encountered!\n"},
      {{L"<policy", L"<group", L"<rule", L"<action", L"<action"},
       "Error: already in an action when <action> encountered!\n"},
      {{L"<policy", L"<group", L"<rule", L"<action", L"<default_action"},
       "Error: already in an action when <default_action> was encountered\n"},
      {Join({{L"<policy", L"<default_action"},
             Leaf(L"actiontype", L"FW_ACTION_ALLOW"),
             {L">default_action", L"<default_action"}}),
       "Error: default action has already been specified for this policy\n"},
      {{L"<policy", L"<aggregate_match", L"<aggregate_match"},
       "Into ProcessAggregateMatch\nInto ProcessAggregateMatch\n"
       "Error: already in an aggregate match when <aggregate_match> encountered\n"},
      {{L"<policy", L"<group", L"<rule", L"<match", L"<match"},
       "Error: already in a match when <match> encountered\n"},
      {{L"<policy", L"<match"}, "Error: got a match while not in a rule or aggregate match.\n"},
      {{L"<uid"}, "Must be in policy, aggregate match, group, or rule to use <uid>\n"},
      {{L"<name"}, "Must be in policy, group, or rule to use <name>\n"},
      {{L"<ppuid"}, "Must be in policy to use <ppuid>\n"},
      {{L"<target"}, "Error: cannot specify target unless in an action\n"},
      {{L"<length"}, "Error: cannot specify length unless in an action\n"},
      {{L"<actiontype"}, "Error: cannot specify actiontype unless in an action\n"},
      {{L"<enabled"}, "Error: cannot specify enabled unless in a rule\n"},
      {{L"<hotdropif"}, "Error: cannot specify hotdropif unless in a rule\n"},
      {{L"<teredo"}, "Error: cannot specify teredo unless in a rule\n"},
      {{L"<teredoawareapp"}, "Error: cannot specify teredoappaware unless in a rule\n"},
      {{L"<invertmatch"}, "Error: cannot specify invertmatch unless in a rule\n"},
      {{L"<logoption"}, "Error: cannot specify logoption unless in a rule\n"},
      {{L"<logthrottle"}, "Error: cannot specify logthrottle unless in a rule\n"},
      {{L"<matchtype"}, "Error: cannot specify matchtype unless in a match\n"},
      {{L"<optype"}, "Error: cannot specify optype unless in a match\n"},
      {{L"<value"}, "Error: cannot specify value unless in a match\n"},
      {{L"<or_operator"}, "Error: cannot specify or_operator unless in an aggregate match\n"},
      {{L"<stateful"}, "Error: cannot specify stateful unless in a policy\n"},
      {{L"<sticky"}, "Error: cannot specify sticky unless in a policy\n"},
      {{L"<boot_time_only"}, "Error: cannot specify boot_time_only unless in a policy\n"},
      {{L"<defaultlogoption"}, "Error: cannot specify defaultlogoption unless in a policy\n"},
      {{L"<policytype"}, "Error: cannot specify policytype unless in a policy\n"},
      {{L"<policy", L"<blacklist"}, "Error: in a policy when <blacklist> was encountered\n"},
      {{L"<blacklist", L"<blacklist"},
       "Error: already in a blacklist when <blacklist> was encountered\n"},
      {{L"<blacklist_logoption"},
       "Error: cannot specify blacklistlogoption unless in a blacklist\n"},
      {{L"<ip_range"}, "Error: cannot specify ip_range unless in a blacklist\n"},
      {{L"<blacklist", L"<ip_range", L"<ip_range"},
       "Error: already in an ip_range when <ip_range> encountered\n"},
      {{L"<low"}, "Error: must be in an ip_range to specify <low>\n"},
      {{L"<high"}, "Error: must be in an ip_range to specify <high>\n"},
      {{L"<ttl"}, "Error: must be in an ip_range to specify <ttl>\n"},
      // Where the format names no message, the element is refused without one.
      {{L"<group"}, ""},
      {{L"<policy", L"<rule"}, ""},
      {{L"<bogus"}, "MatchElement returning invalid for bogus\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::PrintToString(std::vector<std::wstring>(c.script)));
    PolicyDocumentReader reader;
    size_t accepted = 0;
    const std::string text = Printed([&] { accepted = Feed(reader, c.script); });
    EXPECT_EQ(accepted, c.script.size() - 1);
    EXPECT_EQ(WithoutLookups(text), c.message);
  }
}

// Element names are matched without regard to case, and each open prints its code.
TEST(PolicyReaderTest, ElementCodesIgnoreCase) {
  const struct {
    const wchar_t* name;
    const char* printed;
  } cases[] = {
      {L"policies", "Return value from MatchElement = 1\n"},
      {L"POLICIES", "Return value from MatchElement = 1\n"},
      {L"Blacklist", "Return value from MatchElement = 32\n"},
      {L"policiesx",
       "MatchElement returning invalid for policiesx\nReturn value from MatchElement = 0\n"},
  };
  for (const auto& c : cases) {
    PolicyDocumentReader reader;
    EXPECT_EQ(Printed([&] { reader.OpenElement(c.name); }), c.printed);
  }
}

// Values: each handler's refusal message, then the element refused at its end too.
TEST(PolicyReaderTest, ValueRefusals) {
  const Script policy = {L"<policy"};
  const Script rule = {L"<policy", L"<group", L"<rule"};
  const Script match = {L"<policy", L"<group", L"<rule", L"<match"};
  const Script range = {L"<blacklist", L"<ip_range"};
  const struct {
    Script open;
    const wchar_t* element;
    const wchar_t* text;
    const char* message;
  } cases[] = {
      {policy, L"policytype", L"FW_POLICY_TYPE_BOGUS", "Error: invalid value for policy type\n"},
      {policy, L"stateful", L"true",
       "Error: invalid value for stateful option, valid input is yes/no\n"},
      {policy, L"sticky", L"1", "Error: invalid value for sticky option, valid input is yes/no\n"},
      {policy, L"boot_time_only", L"y",
       "Error: invalid value for boot_time_only option, valid input is yes/no\n"},
      {policy, L"defaultlogoption", L"none", "Error: invalid value for default log option\n"},
      {rule, L"logoption", L"2", "Error: invalid value for log option\n"},
      {rule, L"enabled", L"yes", "Non-boolean value for enabled\n"},
      {rule, L"hotdropif", L"2", "Non-boolean value for hotdropif\n"},
      {rule, L"teredo", L"", "Non-boolean value for teredo\n"},
      {rule, L"teredoawareapp", L"no", "Non-boolean value for teredo aware app\n"},
      {rule, L"invertmatch", L"-1", "Non-boolean value for invert match\n"},
      {rule, L"logthrottle", L"1000001",
       "Error: Invalid value for log throttle. Log Throttle should be in the range [0,1000000]\n"},
      {rule, L"logthrottle", L"00",
       "Error: Invalid value for log throttle. Log Throttle should be in the range [0,1000000]\n"},
      {rule, L"logthrottle", L"0x0",
       "Error: Invalid value for log throttle. Log Throttle should be in the range [0,1000000]\n"},
      {match, L"matchtype", L"FW_MATCH_NOPE", "Error: invalid value for match type\n"},
      {match, L"matchtype", L"65535", "Error: invalid value for aggregate match type: 65535\n"},
      // A number is whatever starts with a digit, read as atoi reads it.
      {match, L"matchtype", L"0x10000", "Error: invalid value for aggregate match type: 0\n"},
      {match, L"matchtype", L"x65536", "Error: invalid value for match type\n"},
      {match, L"optype", L"FW_MATCH_OP_LAST", "Error: invalid value for op type\n"},
      {range, L"ttl", L"0x1ffffffff", "Error: ttl is non-numeric or greater than 0xFFFFFFFF\n"},
      {range, L"ttl", L"-1", "Error: ttl is non-numeric or greater than 0xFFFFFFFF\n"},
      {range, L"low", L"10.0.0", ""},
      {{L"<blacklist"},
       L"blacklist_logoption",
       L"x",
       "Error: invalid value for blacklist log option\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::wstring(c.element) + L"=" + c.text);
    PolicyDocumentReader reader;
    Script script = c.open;
    script.push_back(std::wstring(L"<") + c.element);
    script.push_back(c.text);
    size_t accepted = 0;
    const std::string text = Printed([&] { accepted = Feed(reader, script); });
    EXPECT_EQ(accepted, script.size() - 1);
    EXPECT_EQ(WithoutLookups(text), c.message);
    // The refused element's end is refused too.
    const std::wstring end = c.element;
    EXPECT_EQ(Printed([&] { EXPECT_FALSE(reader.CloseElement(end.c_str())); }),
              "Error: received unexpected </" +
                  std::string(end == L"blacklist_logoption" ? "blacklistlogoption"
                                                            : std::string(end.begin(), end.end())) +
                  ">\n");
  }
}

// Accepted values at their edges.
TEST(PolicyReaderTest, AcceptedValues) {
  PolicyDocumentReader reader;
  const Script script = Join({{L"<policy", L"<group", L"<rule"},
                              Leaf(L"logthrottle", L"1000000"),
                              Leaf(L"enabled", L"True"),
                              {L"<match"},
                              Leaf(L"matchtype", L"65537 or more"),
                              Leaf(L"optype", L"FW_MATCH_OP_EQUAL"),
                              {L">match", L"<match"},
                              Leaf(L"matchtype", L"fw_match_app_path"),
                              Leaf(L"optype", L"fw_match_op_bitmask_not"),
                              {L">match"}});
  const Script blacklist =
      Join({{L"<blacklist", L"<ip_range"}, Leaf(L"ttl", L"0xffffffff"), Leaf(L"low", L"fe80::1")});
  PolicyDocumentReader ranges;
  size_t accepted = 0, acceptedRanges = 0;
  Printed([&] {
    accepted = Feed(reader, script);
    acceptedRanges = Feed(ranges, blacklist);
  });
  EXPECT_EQ(accepted, script.size());
  EXPECT_EQ(acceptedRanges, blacklist.size());
  const RuleRecord& r = reader.document().policies.at(0).groups.at(0).rules.at(0);
  EXPECT_EQ(r.logThrottle, 1000000u);
  EXPECT_TRUE(r.enabled);
  EXPECT_EQ(r.matches.at(0).type, 65537);
  EXPECT_EQ(r.matches.at(1).type, FW_MATCH_APP_PATH);
  EXPECT_EQ(r.matches.at(1).op, FW_MATCH_OP_BITMASK_NOT);
  const RangeRecord& range = ranges.document().blacklists.at(0).ranges.at(0);
  EXPECT_EQ(range.timeToLive, 0xFFFFFFFFu);
  ASSERT_TRUE(range.low);
  EXPECT_EQ(range.low->version, 6u);
}

// Text without a pending element, and a second text in one element, have no handler.
TEST(PolicyReaderTest, TextWithoutHandler) {
  const struct {
    Script script;
    const char* message;
  } cases[] = {
      {{L"<policies", L"stray"}, "Bug: no function for processing 0\n"},
      {{L"<policy", L"<name", L"P", L"Q"}, "Bug: no function for processing 43\n"},
      {{L"<blacklist", L"<ip_range", L"<ttl", L"5", L"6"}, "Bug: no function for processing 56\n"},
  };
  for (const auto& c : cases) {
    PolicyDocumentReader reader;
    size_t accepted = 0;
    const std::string text = Printed([&] { accepted = Feed(reader, c.script); });
    EXPECT_EQ(accepted, c.script.size() - 1);
    EXPECT_EQ(WithoutLookups(text), c.message);
  }
}

// A leaf element without text is refused at its end, naming it.
TEST(PolicyReaderTest, LeafWithoutTextRefusedAtItsEnd) {
  PolicyDocumentReader reader;
  const Script script = {L"<policy", L"<group", L"<rule", L"<name", L">name"};
  size_t accepted = 0;
  const std::string text = Printed([&] { accepted = Feed(reader, script); });
  EXPECT_EQ(accepted, 4u);
  EXPECT_EQ(WithoutLookups(text), "Error: received unexpected </name>\n");
}

// Closing: a container that is not open, and one that is incomplete (what it lacks, in the
// order tested, then that it is incomplete). Either way the container is closed.
TEST(PolicyReaderTest, ClosingChecks) {
  const Script head = CompletePolicyHead();
  const struct {
    Script script;
    const char* message;
  } cases[] = {
      {{L">policy"}, "Error: encountered </policy> while not in a policy\n"},
      {{L">group"}, "Error: encountered </group> while not in a group\n"},
      {{L">default_group"}, "Error: encountered </default_group> while not in default group\n"},
      {{L">rule"}, "Error: encountered </rule> while not in a rule\n"},
      {{L">action"}, "Error: encountered </action> while not in an action\n"},
      {{L">default_action"}, "Error: encountered </default_action> while not in default action\n"},
      {{L">aggregate_match"},
       "Error: encountered </aggregate_match> while not in an aggregate match\n"},
      {{L">match"}, "Error: encountered </match> while not in a match\n"},
      {{L">blacklist"}, "Error: encountered </blacklist> while not in a blacklist\n"},
      {{L">ip_range"}, "Error: encountered </ip_range> while not in an ip_range\n"},
      {{L"<policy", L">policy"}, "Error: policy needs a uid\nError: policy is incomplete\n"},
      {Join({{L"<policy"}, Leaf(L"uid", kUid1), {L">policy"}}),
       "Error: policy needs a ppuid\nError: policy is incomplete\n"},
      {Join({{L"<policy"}, Leaf(L"uid", kUid1), Leaf(L"ppuid", kUid1), {L">policy"}}),
       "Error: policy needs a name\nError: policy is incomplete\n"},
      {Join({{L"<policy"},
             Leaf(L"uid", kUid1),
             Leaf(L"ppuid", kUid1),
             Leaf(L"name", L"N"),
             {L">policy"}}),
       "Error: policy needs a type\nError: policy is incomplete\n"},
      {Join({head, {L">policy"}}),
       "Error: policy needs a default group\nError: policy is incomplete\n"},
      {{L"<policy", L"<group", L">group"},
       "Error: group needs a uid\nError: group is incomplete\n"},
      {Join({{L"<policy", L"<group"}, Leaf(L"uid", kUid1), {L">group"}}),
       "Error: group needs a name\nError: group is incomplete\n"},
      {{L"<policy", L"<group", L"<rule", L">rule"},
       "Error: rule needs a uid\nError: rule is incomplete\n"},
      {Join({{L"<policy", L"<group", L"<rule"}, Leaf(L"uid", kUid1), {L">rule"}}),
       "Error: rule needs a name\nError: rule is incomplete\n"},
      {Join({{L"<policy", L"<group", L"<rule"},
             Leaf(L"uid", kUid1),
             Leaf(L"name", L"R"),
             {L">rule"}}),
       "Error: rule needs an action\nError: rule is incomplete\n"},
      {{L"<policy", L"<group", L"<rule", L"<action", L">action"}, "Error: action is incomplete\n"},
      {Join({{L"<policy", L"<group", L"<rule", L"<action"},
             Leaf(L"actiontype", L"FW_ACTION_JUMP"),
             {L">action"}}),
       "Error: action is incomplete\n"},
      {Join({{L"<policy", L"<group", L"<rule", L"<action"},
             Leaf(L"actiontype", L"FW_ACTION_BLOCK_HOST"),
             {L">action"}}),
       "Error: action is incomplete\n"},
      {{L"<policy", L"<default_action", L">default_action"},
       "Error: default action is incomplete\n"},
      {{L"<policy", L"<aggregate_match", L">aggregate_match"},
       "Into ProcessAggregateMatch\nError: aggregate match needs a uid\n"
       "Error: aggregate match is incomplete\n"},
      {Join({{L"<policy", L"<group", L"<rule", L"<match"},
             Leaf(L"matchtype", L"FW_MATCH_APP_PATH"),
             {L">match"}}),
       "Error: match is incomplete\n"},
      {{L"<blacklist", L">blacklist"},
       "Error: Blacklist must contain at least one ip_range\nError: blacklist is incomplete\n"},
      {{L"<blacklist", L"<ip_range", L">ip_range"},
       "Error: ip_range did not have low value set.\nError: ip_range is incomplete\n"},
      {Join({{L"<blacklist", L"<ip_range"}, Leaf(L"low", L"10.0.0.1"), {L">ip_range"}}),
       "Error: ip_range did not have high value set.\nError: ip_range is incomplete\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.message);
    PolicyDocumentReader reader;
    size_t accepted = 0;
    const std::string text = Printed([&] { accepted = Feed(reader, c.script); });
    EXPECT_EQ(accepted, c.script.size() - 1);
    EXPECT_EQ(WithoutLookups(text), c.message);
    // Closed in every case: closing again says it is not open.
    const std::wstring& last = c.script.back();
    EXPECT_NE(Printed([&] { reader.CloseElement(last.c_str() + 1); }).find("while not in"),
              std::string::npos);
  }
}

// A redirect is complete with an address and a port; a block-host action with a length.
TEST(PolicyReaderTest, CompleteActions) {
  const Script rule = {L"<policy", L"<group", L"<rule", L"<action"};
  const Script cases[] = {
      Join({rule,
            Leaf(L"actiontype", L"FW_ACTION_REDIRECT"),
            Leaf(L"target", L"fe80::1 53"),
            {L">action"}}),
      Join({rule,
            Leaf(L"actiontype", L"FW_ACTION_BLOCK_HOST"),
            Leaf(L"length", L"0x10"),
            {L">action"}}),
      Join({rule,
            Leaf(L"actiontype", L"FW_ACTION_CALL_PLUGIN"),
            Leaf(L"target", kUid1),
            {L">action"}}),
      Join({rule, Leaf(L"actiontype", L"FW_ACTION_ALLOW"), {L">action"}}),
  };
  for (const Script& script : cases) {
    PolicyDocumentReader reader;
    size_t accepted = 0;
    Printed([&] { accepted = Feed(reader, script); });
    EXPECT_EQ(accepted, script.size());
  }
}

}  // namespace
}  // namespace nw
