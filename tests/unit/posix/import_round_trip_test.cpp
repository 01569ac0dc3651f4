// The import path against the document writer: a policy set written with the writer, read back
// into an empty simulated core and written again gives the same document, for generated sets
// holding every match type and operator, redirects, jumps, plug-ins and aggregates. The format's
// known exceptions (what the writer writes that the reader refuses or reads differently) have
// cases of their own.

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
#include "core/policy_values.h"
#include "platform/posix/paths_posix.h"
#include "policy/policy_builder.h"
#include "policy/policy_reader.h"
#include "sim/common/scenario.h"
#include "sim/core/blacklist_objects.h"
#include "sim/core/policy_objects.h"
#include "tests/unit/printed.h"

namespace nw::sim {
namespace {

using testing::Printed;

// A temporary folder for one test's files, removed at the end.
class Folder {
 public:
  Folder() {
    std::random_device random;
    path_ = std::filesystem::temp_directory_path() / ("nw-round-trip-" + std::to_string(random()));
    std::filesystem::create_directories(path_);
  }
  ~Folder() { std::filesystem::remove_all(path_); }
  std::string Write(const std::string& name, const std::string& text) const {
    const std::string file = (path_ / name).string();
    std::ofstream(file, std::ios::binary) << text;
    return file;
  }

 private:
  std::filesystem::path path_;
};

// A simulated core playing a scenario file.
struct Core {
  Core(const Folder& folder, const std::string& name, const std::string& scenario)
      : state(std::make_shared<CoreState>(
            LibraryState::Options{"kvxfwctl", "{}", folder.Write(name, scenario), "",
                                  [](const std::wstring&) {}, false})) {
    connection.policyManager = new PolicyManager(state);
    connection.highPriorityIpList = new HighPriorityIpListControl(state);
  }
  ~Core() {
    connection.policyManager->Release();
    connection.highPriorityIpList->Release();
  }
  std::string PolicyDocument() {
    return Printed([&] { WritePolicyDocument(connection.policyManager); });
  }
  std::string BlacklistDocument() {
    return Printed([&] { ShowBlacklist(&connection, 1); });
  }

  std::shared_ptr<CoreState> state;
  CoreConnection connection;
};

std::wstring WindowsForm(const std::string& file) { return platform::posix::WindowsFormOf(file); }

// What the writer writes and the reader takes back differently, removed from a generated
// policy so that the rest can be compared whole (each has a case in KnownExceptions):
void MakeReadable(PolicyModel& policy) {
  auto action = [](int32_t a) {
    return a == FW_ACTION_CONTINUE || a == FW_ACTION_BLOCK_HOST ? FW_ACTION_BLOCK_PACKET : a;
  };
  // A default action is written by its type alone, so one that needs a target or a length
  // does not read back complete.
  policy.defaultAction = action(policy.defaultAction);
  if (policy.defaultAction == FW_ACTION_REDIRECT || policy.defaultAction == FW_ACTION_JUMP ||
      policy.defaultAction == FW_ACTION_CALL_PLUGIN) {
    policy.defaultAction = FW_ACTION_BLOCK_PACKET;
  }
  policy.ppuid = PointProductId;  // the core gives a policy its adding product's identifier
  auto terms = [](std::vector<MatchModel>& matches) {
    // Types the reader has no name for, or the build step no operation.
    std::erase_if(matches, [](const MatchModel& match) {
      return match.type == FW_MATCH_ADAPTER_DESCRIPTION ||
             match.type == FW_MATCH_IP_ADDRESS_IS_LOCAL || match.type == FW_MATCH_APP_VENDOR;
    });
    for (MatchModel& match : matches) {
      for (TermModel& term : match.terms) {
        if (match.type == FW_MATCH_NETWORK_LAYER_PROTOCOL && term.uint16Range) {
          term.uint16Range.reset();  // the reader takes no range for this type
          term.uint16 = 0x0800;
          term.op = FW_MATCH_OP_EQUAL;
        }
        if (term.uint64 && match.type != FW_MATCH_INTERFACE_INDEX) {
          *term.uint64 &= 0x7FFFFFFF;  // written in decimal, read as 32-bit decimal
        }
        if (term.uint64Range && term.uint64Range->low >= term.uint64Range->high) {
          term.uint64Range->high = term.uint64Range->low + 1;  // equal ends are no range
        }
        if (term.ipRange &&
            std::memcmp(term.ipRange->low.bytes, term.ipRange->high.bytes, 16) > 0) {
          std::swap(term.ipRange->low, term.ipRange->high);
        }
      }
    }
  };
  for (AggregateModel& aggregate : policy.aggregates) terms(aggregate.matches);
  for (GroupModel& group : policy.groups) {
    for (RuleModel& rule : group.rules) {
      rule.action = action(rule.action);
      // A port of five digits does not fit the writer's field; 0 the reader refuses.
      if (rule.action == FW_ACTION_REDIRECT) rule.redirectPort = 1 + rule.redirectPort % 9999;
      terms(rule.matches);
    }
  }
}

TEST(ImportRoundTripTest, GeneratedPoliciesReadBackToTheSameDocument) {
  for (uint64_t seed : {1, 2, 3, 4}) {
    SCOPED_TRACE(seed);
    Folder folder;
    const GeneratedPolicies set{16, 12, 4, seed};
    PolicyStore store;
    for (uint32_t i = 0; i < set.count; ++i) {
      PolicyModel policy = GeneratePolicy(set, i);
      MakeReadable(policy);
      store.policies.push_back(std::make_shared<const PolicyModel>(std::move(policy)));
    }
    Json scenario = Json::object();
    scenario["policies"] = PoliciesToJson(store);
    Core written(folder, "written.json", JsonFileText(scenario));
    const std::string first = written.PolicyDocument();
    ASSERT_EQ(LastStatus, 0);
    const std::string document = folder.Write("policies.xml", first);

    Core read(folder, "read.json", R"({"policies": {"list": []}})");
    const std::string echo =
        Printed([&] { AddPoliciesFromFile(&read.connection, WindowsForm(document).c_str()); });
    const size_t error = echo.find("Error");
    ASSERT_EQ(error, std::string::npos) << echo.substr(error < 1200 ? 0 : error - 1200, 1600);
    EXPECT_EQ(LastStatus, 0);
    const std::string second = read.PolicyDocument();
    EXPECT_EQ(second, first);
  }
}

TEST(ImportRoundTripTest, BlacklistReadsBackToTheSameDocument) {
  Folder folder;
  Core written(folder, "written.json",
               R"({"blacklist": {"logOption": 2, "generate": {"count": 300, "seed": 9}}})");
  const std::string first = written.BlacklistDocument();
  const std::string document = folder.Write("blacklist.xml", first);
  Core read(folder, "read.json", R"({"blacklist": {"logOption": 0}})");
  const std::string echo =
      Printed([&] { SetBlacklistFromFile(&read.connection, WindowsForm(document).c_str()); });
  EXPECT_NE(echo.find("    Blacklist set successfully\n"), std::string::npos);
  EXPECT_EQ(read.BlacklistDocument(), first);
}

// What does not come back, each on its own: the line that refuses it, or what it becomes.
TEST(ImportRoundTripTest, KnownExceptions) {
  const char* rule = R"({"uid": "0bbbbbbb-0000-4000-8000-000000000001", "name": "R", )";
  const struct {
    const char* what;
    std::string rules;
    const char* refusal;
  } cases[] = {
      {"continue", std::string("[") + rule + R"("action": 8}])",
       "Error: invalid value for action type\nInvalid value FW_ACTION_CONTINUE\n"},
      {"block host", std::string("[") + rule + R"("action": 7}])", "Error: action is incomplete\n"},
      {"tunnel medium",
       std::string("[") + rule + R"("matches": [{"type": 19, "terms": [{"uint32": 5}]}]}])",
       "    Error building config: match\n"},
      {"unknown type", std::string("[") + rule + R"("matches": [{"type": 39, "terms": [{}]}]}])",
       "Error: invalid value for match type\n"},
      {"redirect port of five digits",
       std::string("[") + rule +
           R"("action": 3, "redirect": {"address": "10.1.2.3", "port": 10000, "value": 0}}])",
       "Target value - invalid 0 redirect port specified!\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    Folder folder;
    Core written(
        folder, "written.json",
        std::string(
            R"({"policies": {"list": [{"uid": "0aaaaaaa-0000-4000-8000-000000000001", "type": 2, "rules": )") +
            c.rules + "}]}}");
    const std::string document = folder.Write("policies.xml", written.PolicyDocument());
    Core read(folder, "read.json", R"({"policies": {"list": []}})");
    const std::string echo =
        Printed([&] { AddPoliciesFromFile(&read.connection, WindowsForm(document).c_str()); });
    EXPECT_NE(echo.find(c.refusal), std::string::npos) << echo;
    EXPECT_TRUE(read.state->GetScenario()->policies.policies.empty());
  }
  // A 64-bit number above the 32-bit range is written in decimal and read back clamped.
  Folder folder;
  Core written(
      folder, "written.json",
      std::string(
          R"({"policies": {"list": [{"uid": "0aaaaaaa-0000-4000-8000-000000000001", "type": 2, "rules": [)") +
          rule + R"("matches": [{"type": 24, "terms": [{"uint64": 9999999999}]}]}]}]}})");
  const std::string document = folder.Write("policies.xml", written.PolicyDocument());
  Core read(folder, "read.json", R"({"policies": {"list": []}})");
  Printed([&] { AddPoliciesFromFile(&read.connection, WindowsForm(document).c_str()); });
  const auto policies = read.state->GetScenario()->policies.policies;
  ASSERT_EQ(policies.size(), 1u);
  EXPECT_EQ(policies[0]->groups[0].rules.at(0).matches.at(0).terms.at(0).uint64, 2147483647u);
}

// The node loop's echo of every node kind, and the three ways a node is refused.
TEST(DocumentReaderTest, NodeLoopEchoesAndStopsAtTheFirstRefusal) {
  const struct {
    const char* document;
    bool read;
    const char* echo;
  } cases[] = {
      {"<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!-- note -->\n"
       "<policies xmlns:p=\"urn:x\" p:kind=\"a\" plain=\"b\">\n<?pi data?>\n"
       "<![CDATA[raw]]>\n<policy/>\n<p:bogus a=\"1\"/>\n</policies>\n",
       false,
       "XmlDeclaration\n"
       "Attr: version=\"1.0\" \n"
       "Attr: encoding=\"UTF-8\" \n"
       "Comment:  note \n"
       "Element: policies\n"
       "Attr: xmlns:p=\"urn:x\" \n"
       "Attr: p:kind=\"a\" \n"
       "Attr: plain=\"b\" \n"
       "Return value from MatchElement = 1\n"
       "Processing Instruction name:pi value:data\n"
       "CDATA: raw\n"
       "Element: policy\n"
       " (empty)Return value from MatchElement = 2\n"
       "Element: p:bogus\n"
       "Attr: a=\"1\" \n"
       " (empty)MatchElement returning invalid for bogus\n"
       "Return value from MatchElement = 0\n"
       "Invalid element bogus\n"},
      {"<policies><policy><stateful>maybe</stateful></policy></policies>", false,
       "Element: policies\nReturn value from MatchElement = 1\n"
       "Element: policy\nReturn value from MatchElement = 2\n"
       "Element: stateful\nReturn value from MatchElement = 23\n"
       "Text: >maybe<\n"
       "Error: invalid value for stateful option, valid input is yes/no\n"
       "Invalid value maybe\n"},
      {"<policies><policy><name>a<!--c-->b</name></policy></policies>", false,
       "Element: policies\nReturn value from MatchElement = 1\n"
       "Element: policy\nReturn value from MatchElement = 2\n"
       "Element: name\nReturn value from MatchElement = 12\n"
       "Text: >a<\nComment: c\nText: >b<\n"
       "Bug: no function for processing 43\n"
       "Invalid value b\n"},
      {"<policies></policy>", true, "Element: policies\nReturn value from MatchElement = 1\n"},
      {"<blacklist><ip_range></blacklist>", true,
       "Element: blacklist\nReturn value from MatchElement = 32\n"
       "Element: ip_range\nReturn value from MatchElement = 34\n"},
      {"<policies></policies>", true,
       "Element: policies\nReturn value from MatchElement = 1\nEnd Element: policies\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.document);
    Folder folder;
    const std::string file = folder.Write("document.xml", c.document);
    PolicyDocumentReader reader;
    bool read = false;
    EXPECT_EQ(Printed([&] { read = reader.ReadPolicyDocument(WindowsForm(file).c_str()); }),
              c.echo);
    EXPECT_EQ(read, c.read);
  }
}

// Opening failures print their step's message; a missing file is the file reader's.
TEST(DocumentReaderTest, MissingFile) {
  PolicyDocumentReader reader;
  EXPECT_EQ(Printed([&] {
              EXPECT_FALSE(reader.ReadPolicyDocument(WindowsForm("/nonexistent/x.xml").c_str()));
            }),
            "Error creating file reader, error is 80070003");
}

}  // namespace
}  // namespace nw::sim
