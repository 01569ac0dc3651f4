// The documents as an XML parser reads them: the policy document of the built-in host and of a
// generated set, and the blacklist document of a generated list, each parsed by libxml2 (no
// network, no DTD, no entities) and its element tree compared with what the simulated core
// holds, so that a misplaced or missing element cannot pass.

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "base/format.h"
#include "cli/console.h"
#include "cli/core_connection.h"
#include "cli/handlers.h"
#include "core/policy_values.h"
#include "policy/names.h"
#include "sim/common/scenario.h"
#include "sim/core/blacklist_objects.h"
#include "sim/core/default_scenario.h"
#include "sim/core/policy_objects.h"
#include "tests/unit/printed.h"

namespace nw::sim {
namespace {

using testing::Printed;

// A core playing scenarioText, with its debugger output kept for the test.
std::shared_ptr<CoreState> CoreFor(std::string_view scenarioText,
                                   std::vector<std::wstring>* lines) {
  return std::make_shared<CoreState>(
      LibraryState::Options{"kvxfwctl", scenarioText, std::string(), "",
                            [lines](const std::wstring& line) { lines->push_back(line); }, false});
}

using Leaf = std::pair<std::string, std::string>;
using XmlDoc = std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)>;

XmlDoc Parse(const std::string& text) {
  return XmlDoc(xmlReadMemory(text.data(), static_cast<int>(text.size()), "document.xml", nullptr,
                              XML_PARSE_NONET | XML_PARSE_NOBLANKS),
                xmlFreeDoc);
}

std::vector<xmlNode*> Children(xmlNode* node) {
  std::vector<xmlNode*> elements;
  for (xmlNode* child = node->children; child != nullptr; child = child->next) {
    if (child->type == XML_ELEMENT_NODE) elements.push_back(child);
  }
  return elements;
}

std::string Name(xmlNode* node) { return reinterpret_cast<const char*>(node->name); }

std::string Text(xmlNode* node) {
  xmlChar* content = xmlNodeGetContent(node);
  std::string text = content != nullptr ? reinterpret_cast<const char*>(content) : "";
  xmlFree(content);
  return text;
}

std::string Utf8(const wchar_t* text) { return WideToUtf8(text); }

// The leaf elements of node, in order, with their texts; containers appear by name alone.
std::vector<Leaf> Leaves(xmlNode* node) {
  std::vector<Leaf> leaves;
  for (xmlNode* child : Children(node)) {
    leaves.emplace_back(Name(child), Children(child).empty() ? Text(child) : std::string());
  }
  return leaves;
}

std::string TrueFalse(bool value) { return value ? "true" : "false"; }

// One match element per term; the element names its match's type.
void ExpectMatches(const std::vector<xmlNode*>& elements, size_t first,
                   const std::vector<MatchModel>& matches) {
  size_t at = first;
  for (const MatchModel& match : matches) {
    const std::string type = match.type >= FW_MATCH_FIRST_AGGREGATE_MATCH
                                 ? std::to_string(match.type)
                                 : Utf8(MatchTypeName(match.type));
    for (size_t term = 0; term < match.terms.size(); ++term, ++at) {
      ASSERT_LT(at, elements.size());
      EXPECT_EQ(Name(elements[at]), "match");
      const auto children = Children(elements[at]);
      ASSERT_GE(children.size(), 2u);
      EXPECT_EQ(Name(children[0]), "matchtype");
      EXPECT_EQ(Text(children[0]), type);
      EXPECT_EQ(Name(children[1]), "optype");
      EXPECT_EQ(Text(children[1]), Utf8(MatchOpName(match.terms[term].op)));
    }
  }
  EXPECT_EQ(at, elements.size());
}

void ExpectRule(xmlNode* element, const RuleModel& rule) {
  const std::string uid = GuidText(rule.uid);
  const auto children = Children(element);
  ASSERT_GE(children.size(), 8u);
  const std::vector<Leaf> expected = {
      {"name", rule.name.value_or(L"").empty() ? uid : WideToUtf8(*rule.name)},
      {"uid", uid},
      {"enabled", TrueFalse(rule.enabled)},
      {"hotdropif", TrueFalse(rule.hotDropIfNotMatch)},
      {"teredo", TrueFalse(rule.teredo)},
      {"teredoawareapp", TrueFalse(rule.teredoAwareApp)},
      {"invertmatch", TrueFalse(rule.invertMatch)},
      {"action", ""}};
  const auto leaves = Leaves(element);
  EXPECT_EQ(std::vector(leaves.begin(), leaves.begin() + 8), expected);
  const auto action = Leaves(children[7]);
  ASSERT_FALSE(action.empty());
  EXPECT_EQ(action[0], Leaf("actiontype", Utf8(ActionName(rule.action))));
  if (rule.action == FW_ACTION_JUMP || rule.action == FW_ACTION_CALL_PLUGIN) {
    EXPECT_EQ(action.size(), 2u);
    EXPECT_EQ(action[1].second, GuidText(rule.target));
  } else if (rule.action != FW_ACTION_REDIRECT) {
    EXPECT_EQ(action.size(), rule.logThrottle == kNoLogThrottle ? 2u : 3u);
    EXPECT_EQ(action[1], Leaf("logoption", Utf8(LogOptionName(rule.logOption))));
  }
  ExpectMatches(children, 8, rule.matches);
}

void ExpectPolicy(xmlNode* element, const PolicyModel& policy) {
  const std::string uid = GuidText(policy.uid);
  const auto children = Children(element);
  const auto leaves = Leaves(element);
  ASSERT_GE(children.size(), 10u);
  const std::vector<Leaf> head = {
      {"uid", uid},
      {"ppuid", GuidText(policy.ppuid)},
      {"name", policy.name.value_or(L"").empty() ? uid : WideToUtf8(*policy.name)},
      {"policytype", Utf8(PolicyTypeName(policy.type))},
      {"stateful", policy.stateful ? "YES" : "NO"},
      {"sticky", policy.sticky ? "YES" : "NO"},
      {"boot_time_only", policy.bootTimeOnly ? "YES" : "NO"},
      {"defaultlogoption", Utf8(LogOptionName(policy.defaultLogOption))},
      {"default_action", ""}};
  EXPECT_EQ(std::vector(leaves.begin(), leaves.begin() + 9), head);
  EXPECT_EQ(Leaves(children[8]),
            (std::vector<Leaf>{{"actiontype", Utf8(ActionName(policy.defaultAction))}}));
  size_t at = 9;
  for (const AggregateModel& aggregate : policy.aggregates) {
    ASSERT_LT(at, children.size());
    xmlNode* node = children[at++];
    EXPECT_EQ(Name(node), "aggregate_match");
    const std::string aggregateUid = GuidText(aggregate.uid);
    const auto parts = Children(node);
    ASSERT_GE(parts.size(), 3u);
    EXPECT_EQ(Text(parts[0]),
              aggregate.name.value_or(L"").empty() ? aggregateUid : WideToUtf8(*aggregate.name));
    EXPECT_EQ(Text(parts[1]), TrueFalse(aggregate.orOperator));
    EXPECT_EQ(Text(parts[2]), aggregateUid);
    ExpectMatches(parts, 3, aggregate.matches);
  }
  for (size_t g = 0; g < policy.groups.size(); ++g) {
    ASSERT_LT(at, children.size());
    xmlNode* node = children[at++];
    const auto parts = Children(node);
    size_t first = 0;
    if (g == 0) {
      EXPECT_EQ(Name(node), "default_group");
    } else {
      EXPECT_EQ(Name(node), "group");
      ASSERT_GE(parts.size(), 2u);
      EXPECT_EQ(Text(parts[0]), GuidText(policy.groups[g].uid));
      EXPECT_EQ(Text(parts[1]), GuidText(policy.groups[g].uid));
      first = 2;
    }
    ASSERT_EQ(parts.size(), first + policy.groups[g].rules.size());
    for (size_t r = 0; r < policy.groups[g].rules.size(); ++r) {
      SCOPED_TRACE("rule " + std::to_string(r));
      ExpectRule(parts[first + r], policy.groups[g].rules[r]);
    }
  }
  EXPECT_EQ(at, children.size());
}

void ExpectPolicyDocument(std::string_view scenarioText) {
  std::vector<std::wstring> lines;
  auto state = CoreFor(scenarioText, &lines);
  const Scenario* scenario = state->GetScenario();
  ASSERT_NE(scenario, nullptr);
  auto* manager = new PolicyManager(state);
  const std::string text = Printed([&] { WritePolicyDocument(manager); });
  manager->Release();
  EXPECT_EQ(LastStatus, 0);
  XmlDoc doc = Parse(text);
  ASSERT_NE(doc, nullptr) << text.substr(0, 2000);
  xmlNode* root = xmlDocGetRootElement(doc.get());
  EXPECT_EQ(Name(root), "policies");
  const auto policies = Children(root);
  size_t at = 0;
  for (int32_t type : {FW_POLICY_TYPE_PACKET, FW_POLICY_TYPE_STREAM}) {
    for (const Guid& uid : PolicyUids(scenario->policies, type)) {
      SCOPED_TRACE(GuidText(uid));
      ASSERT_LT(at, policies.size());
      EXPECT_EQ(Name(policies[at]), "policy");
      ExpectPolicy(policies[at++], *FindPolicy(scenario->policies, uid));
    }
  }
  EXPECT_EQ(at, policies.size());
}

TEST(DocumentTreeTest, BuiltInPolicies) { ExpectPolicyDocument(DefaultScenarioText()); }

TEST(DocumentTreeTest, GeneratedPolicies) {
  ExpectPolicyDocument(
      R"({"policies": {"generated": {"count": 24, "rules": 12, "matches": 4, "seed": 7}}})");
}

// The blacklist document of a generated list: every range back with its ends and time to live.
TEST(DocumentTreeTest, GeneratedBlacklist) {
  constexpr uint64_t kRanges = 500;
  std::vector<std::wstring> lines;
  auto state =
      CoreFor(R"({"blacklist": {"logOption": 2, "generate": {"count": 500, "seed": 3}}})", &lines);
  auto* control = new HighPriorityIpListControl(state);
  CoreConnection connection;
  connection.highPriorityIpList = control;
  const std::string text = Printed([&] { ShowBlacklist(&connection, 1); });
  control->Release();
  XmlDoc doc = Parse(text);
  ASSERT_NE(doc, nullptr);
  xmlNode* root = xmlDocGetRootElement(doc.get());
  EXPECT_EQ(Name(root), "blacklist");
  const auto children = Children(root);
  ASSERT_EQ(children.size(), 1 + kRanges);
  EXPECT_EQ(Text(children[0]), "FW_LOG_OPTION_PACKET");
  for (uint64_t i = 0; i < kRanges; ++i) {
    const BlacklistRange range = GenerateBlacklistRange(3, i);
    const auto leaves = Leaves(children[1 + i]);
    ASSERT_EQ(leaves.size(), 3u) << i;
    const int family = range.version == 6 ? AF_INET6 : AF_INET;
    uint8_t low[16] = {}, high[16] = {};
    EXPECT_EQ(inet_pton(family, leaves[0].second.c_str(), low), 1) << leaves[0].second;
    EXPECT_EQ(inet_pton(family, leaves[1].second.c_str(), high), 1) << leaves[1].second;
    EXPECT_EQ(std::string(low, low + 16), std::string(range.low.bytes, range.low.bytes + 16));
    EXPECT_EQ(std::string(high, high + 16), std::string(range.high.bytes, range.high.bytes + 16));
    EXPECT_EQ(std::stoul(leaves[2].second, nullptr, 16), range.timeToLive);
  }
}

}  // namespace
}  // namespace nw::sim
