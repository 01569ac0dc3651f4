// The lab's searches on small scenarios: what find reports, what explain decides and why, and
// what diff names.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/format.h"
#include "lab/diff.h"
#include "lab/explain.h"
#include "lab/find.h"

namespace nw::lab {
namespace {

using sim::Json;

// A packet policy: rule "web" allows TCP to local port 80 or 8000-8080; "jump" sends
// connections from 10.0.0.0/8 into group G, whose first rule wants user S-1 and whose second
// blocks remote port 443; "app" allows one application (any case); the default blocks.
const char kPolicy[] = R"({"policies": {"list": [{
  "uid": "aaaaaaaa-0000-4000-8000-000000000001", "type": 2, "name": "P", "defaultAction": 5,
  "aggregates": [{"uid": "acacacac-0000-4000-8000-000000000001", "name": "tcp", "or": true,
                  "matches": [{"type": 13, "terms": [{"op": 0, "uint8": 6}]}]}],
  "rules": [
    {"uid": "b0000000-0000-4000-8000-000000000001", "name": "web", "action": 1, "matches": [
      {"type": 65536, "terms": [{"aggregate": "acacacac-0000-4000-8000-000000000001"}]},
      {"type": 7, "terms": [{"op": 0, "uint16": 80}, {"op": 4, "uint16Range": [8000, 8080]}]}]},
    {"uid": "b0000000-0000-4000-8000-000000000002", "name": "jump", "action": 9,
     "target": "c0000000-0000-4000-8000-000000000001", "matches": [
      {"type": 15, "terms": [{"op": 0, "ip": "10.0.0.0", "prefix": 8}]}]},
    {"uid": "b0000000-0000-4000-8000-000000000003", "name": "app", "action": 1, "matches": [
      {"type": 2, "terms": [{"op": 0, "string": "C:\\Apps\\Tool.exe"}]}]}],
  "groups": [{"uid": "c0000000-0000-4000-8000-000000000001", "rules": [
    {"uid": "b0000000-0000-4000-8000-000000000004", "name": "user", "action": 1, "matches": [
      {"type": 1, "terms": [{"op": 0, "string": "S-1"}]}]},
    {"uid": "b0000000-0000-4000-8000-000000000005", "name": "block", "action": 5, "matches": [
      {"type": 8, "terms": [{"op": 0, "uint16": 443}]}]}]}]
}]}})";

sim::Scenario ScenarioOf(const std::string& text) {
  sim::Scenario s;
  std::string error;
  EXPECT_TRUE(sim::ParseScenario(Json::parse(text), "s.json", &s, &error)) << error;
  return s;
}

std::string Names(const std::vector<Found>& found) {
  std::string names;
  for (const Found& f : found) names += (names.empty() ? "" : ",") + WideToUtf8(*f.ruleName);
  return names;
}

TEST(LabFind, EveryValueMustBeMentioned) {
  const sim::Scenario s = ScenarioOf(kPolicy);
  const struct {
    std::vector<std::string> terms;
    const char* rules;
  } cases[] = {
      {{"port:80"}, "web"},
      {{"port:8080"}, "web"},
      {{"port:8080-9000"}, "web"},
      {{"port:8081-9000"}, ""},
      {{"port:81"}, ""},
      {{"port:443"}, "block"},
      {{"ip:10.200.0.1"}, "jump"},
      {{"ip:9.255.255.255-10.0.0.0"}, "jump"},
      {{"ip:11.0.0.0"}, ""},
      {{"ip:::1"}, ""},
      {{"path:c:\\apps\\TOOL.EXE"}, "app"},
      {{"user:s-1"}, "user"},
      {{"port:80", "ip:10.0.0.1"}, ""},
      {{"hash:00112233445566778899aabbccddeeff"}, ""},
  };
  for (const auto& c : cases) {
    std::vector<Query> queries;
    for (const std::string& t : c.terms) {
      Query q;
      std::string error;
      ASSERT_TRUE(ParseQuery(t, &q, &error)) << error;
      queries.push_back(q);
    }
    EXPECT_EQ(Names(FindRules(s, queries)), c.rules) << c.terms[0];
  }
}

TEST(LabFind, QueriesThatDoNotParseSayWhatWasExpected) {
  for (const char* bad : {"port:65536", "port:9-8", "ip:10.0.0.1-::1", "ip:x", "hash:0011",
                          "path:", "colour:red", "80"}) {
    Query q;
    std::string error;
    EXPECT_FALSE(ParseQuery(bad, &q, &error)) << bad;
    EXPECT_NE(error.find("expected"), std::string::npos) << error;
  }
}

std::string Decision(const std::vector<PolicyVerdict>& verdicts) {
  const PolicyVerdict& v = verdicts.at(0);
  std::string text = v.decidedBy ? WideToUtf8(*v.rules[*v.decidedBy].name) : "default";
  text += ":" + std::to_string(v.action);
  for (size_t i : v.unless) text += " unless " + WideToUtf8(*v.rules[i].name);
  return text;
}

TEST(LabExplain, TheFirstRuleThatHoldsDecides) {
  const sim::Scenario s = ScenarioOf(kPolicy);
  const struct {
    const char* what;
    const char *protocol, *local, *remote, *direction, *app, *user;
    const char* decision;
  } cases[] = {
      {"web by port", "tcp", "10.1.1.1:80", "192.0.2.1:5000", "in", "", "", "web:1"},
      {"web by range", "tcp", "10.1.1.1:8080", "192.0.2.1:5000", "in", "", "", "web:1"},
      {"the range's low end", "tcp", "10.1.1.1:8000", "192.0.2.1:5000", "in", "", "", "web:1"},
      {"udp is not in the aggregate", "udp", "10.1.1.1:80", "192.0.2.1:53", "in", "x", "",
       "default:5"},
      {"the jump's second rule blocks", "tcp", "10.1.1.1:5000", "10.9.9.9:443", "out", "", "S-2",
       "block:5"},
      {"the jump's first rule needs the user", "tcp", "10.1.1.1:5000", "10.9.9.9:443", "out", "",
       "", "block:5 unless user"},
      {"no rule holds", "tcp", "10.1.1.1:5000", "192.0.2.1:443", "out", "C:\\other.exe", "",
       "default:5"},
      {"the application in another case", "tcp", "10.1.1.1:5000", "192.0.2.1:443", "out",
       "c:\\apps\\tool.exe", "", "app:1"},
      {"no application given", "tcp", "10.1.1.1:5000", "192.0.2.1:443", "out", "", "",
       "default:5 unless app"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    Connection conn;
    ASSERT_TRUE(ParseProtocol(c.protocol, &conn.protocol));
    ASSERT_TRUE(ParseEndpoint(c.local, &conn.localAddress, &conn.localPort));
    ASSERT_TRUE(ParseEndpoint(c.remote, &conn.remoteAddress, &conn.remotePort));
    ASSERT_TRUE(ParseDirection(c.direction, &conn.direction));
    if (*c.app) conn.application = Utf8ToWide(c.app);
    if (*c.user) conn.user = Utf8ToWide(c.user);
    std::vector<PolicyVerdict> verdicts;
    std::string error;
    ASSERT_TRUE(ExplainConnection(s, conn, &verdicts, &error)) << error;
    EXPECT_EQ(Decision(verdicts), c.decision);
    if (std::string(c.decision) == "default:5 unless app") {
      const std::string unless =
          "  unless rule b0000000-0000-4000-8000-000000000003 \"app\" "
          "matches (no application given)\n";
      EXPECT_NE(VerdictText(verdicts.at(0)).find(unless), std::string::npos)
          << VerdictText(verdicts.at(0));
    }
  }
}

// Continue holds without deciding; at most and at least include their bound; a single address.
const char kOperators[] = R"({"policies": {"list": [{
  "uid": "aaaaaaaa-0000-4000-8000-000000000002", "type": 2, "name": "Q", "defaultAction": 4,
  "rules": [
    {"name": "cont", "action": 8, "matches": [{"type": 7, "terms": [{"op": 0, "uint16": 22}]}]},
    {"name": "host", "action": 5, "matches": [{"type": 15, "terms": [{"op": 0, "ip": "192.0.2.7"}]}]},
    {"name": "low", "action": 1, "matches": [{"type": 7, "terms": [{"op": 3, "uint16": 1023}]}]},
    {"name": "high", "action": 6, "matches": [{"type": 7, "terms": [{"op": 2, "uint16": 1024}]}]}]
}]}})";

TEST(LabExplain, OperatorsAndActionsThatDoNotDecide) {
  const sim::Scenario s = ScenarioOf(kOperators);
  const struct {
    const char* remote;
    uint16_t port;
    const char* decision;
  } cases[] = {{"192.0.2.8:1", 22, "low:1"},
               {"192.0.2.8:1", 1023, "low:1"},
               {"192.0.2.8:1", 1024, "high:6"},
               {"192.0.2.7:1", 1024, "host:5"}};
  for (const auto& c : cases) {
    Connection conn;
    conn.localPort = c.port;
    ASSERT_TRUE(ParseEndpoint(c.remote, &conn.remoteAddress, &conn.remotePort));
    std::vector<PolicyVerdict> verdicts;
    std::string error;
    ASSERT_TRUE(ExplainConnection(s, conn, &verdicts, &error)) << error;
    EXPECT_EQ(Decision(verdicts), c.decision) << c.remote << " " << c.port;
  }
  Connection conn;
  conn.localPort = 22;
  std::vector<PolicyVerdict> verdicts;
  std::string error;
  ASSERT_TRUE(ExplainConnection(s, conn, &verdicts, &error)) << error;
  const std::string text = VerdictText(verdicts.at(0));
  for (const char* line : {"  rule 00000000-0000-0000-0000-000000000000 \"low\" FW_ACTION_ALLOW "
                           "(1): matches\n",
                           "  decided by rule 00000000-0000-0000-0000-000000000000 \"low\": "
                           "FW_ACTION_ALLOW (1)\n"}) {
    EXPECT_NE(text.find(line), std::string::npos) << line << " not in\n" << text;
  }
  Query single;
  ASSERT_TRUE(ParseQuery("ip:192.0.2.7", &single, &error));
  EXPECT_EQ(Names(FindRules(s, {single})), "host");
  ASSERT_TRUE(ParseQuery("ip:192.0.2.8", &single, &error));
  EXPECT_EQ(Names(FindRules(s, {single})), "");
}

TEST(LabExplain, APassedOverRuleNamesTheTermThatFailed) {
  const sim::Scenario s = ScenarioOf(kPolicy);
  Connection conn;
  ASSERT_TRUE(ParseEndpoint("10.1.1.1:81", &conn.localAddress, &conn.localPort));
  ASSERT_TRUE(ParseEndpoint("192.0.2.1:443", &conn.remoteAddress, &conn.remotePort));
  conn.application = L"C:\\Apps\\Tool.exe";
  std::vector<PolicyVerdict> verdicts;
  std::string error;
  ASSERT_TRUE(ExplainConnection(s, conn, &verdicts, &error)) << error;
  const PolicyVerdict& v = verdicts.at(0);
  // The walk: web, jump, the jump's group (skipped: the jump does not hold), then app.
  ASSERT_EQ(v.rules.size(), 5u);
  EXPECT_EQ(v.rules[0].result, "does not match");
  EXPECT_EQ(v.rules[0].term, "match 1 FW_MATCH_LOCAL_PORT (7) term 1");
  EXPECT_EQ(v.rules[0].reason, "local port 81 not in 8000-8080");
  EXPECT_EQ(v.rules[1].indication, 1u);
  EXPECT_EQ(v.rules[1].reason, "remote address 192.0.2.1 not in 10.0.0.0-10.255.255.255");
  EXPECT_EQ(v.rules[2].result, "skipped");
  EXPECT_EQ(v.rules[3].result, "skipped");
  EXPECT_EQ(v.rules[4].result, "matches");
  ASSERT_TRUE(v.decidedBy);
  EXPECT_EQ(*v.decidedBy, 4u);
}

TEST(LabExplain, ConnectionsThatDoNotParse) {
  uint8_t protocol = 0;
  IpAddress address{};
  uint16_t port = 0;
  int32_t direction = 0;
  EXPECT_FALSE(ParseProtocol("256", &protocol));
  EXPECT_FALSE(ParseProtocol("sctp", &protocol));
  EXPECT_FALSE(ParseEndpoint("10.0.0.1", &address, &port));
  EXPECT_FALSE(ParseEndpoint("10.0.0.1:65536", &address, &port));
  EXPECT_FALSE(ParseEndpoint("fe80::1:80", &address, &port));
  EXPECT_TRUE(ParseEndpoint("[fe80::1]:80", &address, &port));
  EXPECT_EQ(address.version, 6u);
  EXPECT_FALSE(ParseDirection("both", &direction));
}

TEST(LabDiff, NamesWhatChangedByIdentifier) {
  const sim::Scenario a = ScenarioOf(kPolicy);
  EXPECT_TRUE(DiffScenarios(a, a).empty());

  Json changed = Json::parse(kPolicy);
  changed["policies"]["list"][0]["rules"][0]["matches"][1]["terms"][0]["uint16"] = 8081u;
  changed["policies"]["list"][0]["groups"][0]["rules"].erase(0);
  // "app" moves from the default group to the end of the other; "jump" stays as it was.
  Json& rules = changed["policies"]["list"][0]["rules"];
  changed["policies"]["list"][0]["groups"][0]["rules"].push_back(rules[2]);
  rules.erase(2);
  changed["config"] = Json::parse(R"({"logThrottle": 7})");
  changed["blacklist"] = Json::parse(R"({"entries": [{"low": "192.0.2.1", "high": "192.0.2.9"}]})");
  sim::Scenario b;
  std::string error;
  ASSERT_TRUE(sim::ParseScenario(changed, "b.json", &b, &error)) << error;
  std::vector<std::string> lines;
  for (const Difference& d : DiffScenarios(a, b)) lines.push_back(DifferenceText(d));
  EXPECT_EQ(lines, (std::vector<std::string>{
                       "changed rule b0000000-0000-4000-8000-000000000001 \"web\" of policy "
                       "aaaaaaaa-0000-4000-8000-000000000001: matches[1].terms[0].uint16: 80 -> "
                       "8081",
                       "changed rule b0000000-0000-4000-8000-000000000003 \"app\" of policy "
                       "aaaaaaaa-0000-4000-8000-000000000001: group: "
                       "\"aaaaaaaa-0000-4000-8000-000000000001\" -> "
                       "\"c0000000-0000-4000-8000-000000000001\"",
                       "removed rule b0000000-0000-4000-8000-000000000004 \"user\" of policy "
                       "aaaaaaaa-0000-4000-8000-000000000001",
                       "added blacklist range 192.0.2.1-192.0.2.9",
                       "changed config: logThrottle: 1000 -> 7",
                   }));
  const Json json = DifferencesToJson(DiffScenarios(a, b));
  EXPECT_EQ(json["equal"], false);
  EXPECT_EQ(json["differences"][0]["field"], "matches[1].terms[0].uint16");
  EXPECT_EQ(json["differences"][0]["to"], 8081);
}

}  // namespace
}  // namespace nw::lab
