// The simulated libraries' behaviour, driven through the objects the exports hand out: scenario
// checking, fault injection, the statuses the program sees and the debugger-output lines.

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "core/interfaces.h"
#include "sim/common/library_state.h"
#include "sim/common/scenario.h"
#include "sim/core/core_objects.h"
#include "sim/core/default_scenario.h"
#include "sim/drvlink/drvlink_objects.h"

namespace nw::sim {
namespace {

constexpr Status Hr(uint32_t value) { return static_cast<Status>(value); }

// A scenario file for one test, removed when the test ends.
class ScenarioFile {
 public:
  explicit ScenarioFile(const std::string& text) {
    std::random_device random;
    path_ = (std::filesystem::temp_directory_path() /
             ("nw-sim-test-" + std::to_string(random()) + ".json"))
                .string();
    std::ofstream(path_, std::ios::binary) << text;
  }
  ~ScenarioFile() { std::filesystem::remove(path_); }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// A library state that reads the given scenario text and keeps what it writes.
template <class State>
struct TestLibrary {
  TestLibrary(const char* prefix, const std::string& scenario) : file(scenario) {
    state = std::make_shared<State>(LibraryState::Options{
        prefix, DefaultScenarioText(), file.path(), "",
        [lines = lines](const std::wstring& line) { lines->push_back(line); }, false});
  }
  ScenarioFile file;
  std::shared_ptr<std::vector<std::wstring>> lines = std::make_shared<std::vector<std::wstring>>();
  std::shared_ptr<State> state;
};

std::string LoadError(const std::string& text, std::string* file) {
  ScenarioFile scenario(text);
  *file = scenario.path();
  Scenario parsed;
  std::string error;
  EXPECT_FALSE(LoadScenario(scenario.path(), "", &parsed, &error));
  return error;
}

TEST(ScenarioTest, RejectsBadDocumentsNamingFilePathAndWhatWasExpected) {
  const std::string status =
      "expected a status (an integer, or a text \"0x\" and up to 8 hex digits)";
  // The list of known operations is the table's; what matters is that the reader names it.
  const std::string operation = "expected a known operation (Register, Unregister, ";
  const struct {
    const char* text;
    std::string expected;  // after "<file>: "
  } cases[] = {
      {"[]", "/: expected an object"},
      {R"({"service": {"running": "yes"}})", "/service/running: expected true or false"},
      {R"({"debug": true})", "/debug: expected an object"},
      {R"({"debug": {"calls": "yes"}})",
       "/debug/calls: expected true, false or a list of interface names (\"IProcessInfo\", ...)"},
      {R"({"debug": {"calls": []}})",
       "/debug/calls: expected true, false or a list of interface names (\"IProcessInfo\", ...)"},
      {R"({"debug": {"calls": ["IControl", "Release"]}})",
       "/debug/calls/1: expected an interface name (\"IProcessInfo\", ...)"},
      {R"({"servce": {}})",
       "/servce: expected one of the known fields (service, faults, debug, driverLink, versions, "
       "hooks, config, adapters, addresses, connections, endpoints, processes, blacklist, "
       "policies, capture)"},
      {R"({"driverLink": {"running": false}})",
       "/driverLink/running: expected one of the known fields (driverRunning, profiler, profile)"},
      {R"({"faults": {"Regster": 5}})", "/faults/Regster: " + operation},
      {R"({"faults": {"Register:1": 5}})", "/faults/Register:1: " + operation},
      {R"({"faults": {"::Refresh": 5}})", "/faults/::Refresh: " + operation},
      {R"({"faults": {"IControl::Refresh": 5}})", "/faults/IControl::Refresh: " + operation},
      {R"({"faults": {"IDriverLink::DrvLinkConnect": 5}})",
       "/faults/IDriverLink::DrvLinkConnect: " + operation},
      {R"({"config": {"trafficLog": 1}})", "/config/trafficLog: expected true or false"},
      {R"({"config": {"logThrottle": -1}})",
       "/config/logThrottle: expected an integer from 0 to 4294967295"},
      {R"({"versions": {"engine": 4}})", "/versions/engine: expected a text"},
      {R"({"faults": {"SendControlRequest:0x44": 5}})",
       "/faults/SendControlRequest:0x44: " + operation},
      {R"({"faults": {"SendControlRequest:068": 5}})",
       "/faults/SendControlRequest:068: " + operation},
      {R"({"faults": {"SendControlRequest:4294967296": 5}})",
       "/faults/SendControlRequest:4294967296: " + operation},
      {R"({"faults": {"Register": "0x123456789"}})", "/faults/Register: " + status},
      {R"({"faults": {"Register": "12z"}})", "/faults/Register: " + status},
      {R"({"faults": {"Register": "0x"}})", "/faults/Register: " + status},
      {R"({"faults": {"Register": 4294967296}})", "/faults/Register: " + status},
      {R"({"faults": {"Register": -2147483649}})", "/faults/Register: " + status},
      {R"({"faults": {"Register": 1.5}})", "/faults/Register: " + status},
      {R"({"faults": {"Register": {"status": 5}}})",
       "/faults/Register: expected either \"call\" (one call) or \"from\" (that call and every "
       "later one)"},
      {R"({"faults": {"Register": {"status": 5, "call": 1, "from": 2}}})",
       "/faults/Register: expected either \"call\" (one call) or \"from\" (that call and every "
       "later one)"},
      {R"({"faults": {"Register": {"call": 2}}})", "/faults/Register/status: expected a status"},
      {R"({"faults": {"Register": {"status": 5, "call": 0}}})",
       "/faults/Register/call: expected a call number from 1"},
      {R"({"faults": {"Register": {"status": 5, "from": -1}}})",
       "/faults/Register/from: expected an integer from 0 to 18446744073709551615"},
      {R"({"faults": {"Register": {"status": 5, "call": 2, "after": 1}}})",
       "/faults/Register/after: expected one of the known fields (status, call, from)"},
      {R"({"faults": {"Register": []}})", "/faults/Register: expected at least one rule"},
      {R"({"faults": {"Register": [5]}})",
       "/faults/Register/0: expected a status, or {\"status\", \"call\" or \"from\"}"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    std::string file;
    const std::string error = LoadError(c.text, &file);
    if (c.expected.ends_with(operation)) {
      EXPECT_EQ(error.rfind(file + ": " + c.expected, 0), 0u) << error;
      EXPECT_TRUE(
          error.ends_with(" as <operation>:<policy uid>/<rule or aggregate uid>/<match>/"
                          "<term>)"))
          << error;
    } else {
      EXPECT_EQ(error, file + ": " + c.expected);
    }
  }
}

TEST(ScenarioTest, UnreadableFilesNameTheFile) {
  std::string file;
  EXPECT_EQ(LoadError("{\"service\": ", &file).rfind(file + ": not valid JSON", 0), 0u);

  Scenario parsed;
  std::string error;
  const std::string missing = (std::filesystem::temp_directory_path() / "nw-no-such.json").string();
  EXPECT_FALSE(LoadScenario(missing, "", &parsed, &error));
  EXPECT_EQ(error.rfind(missing + ": cannot open", 0), 0u) << error;

  EXPECT_FALSE(LoadScenario("", "{", &parsed, &error));
  EXPECT_EQ(error.rfind("<built-in scenario>: not valid JSON", 0), 0u) << error;
}

TEST(ScenarioTest, StatusesReadAsIntegersOrHexText) {
  const struct {
    const char* value;
    Status expected;
  } cases[] = {
      {"0", 0},
      {"31", 31},
      {"-2147024891", Hr(0x80070005)},
      {"-2147483648", Hr(0x80000000)},
      {"2147483647", 0x7FFFFFFF},
      {"4294967295", -1},
      {R"("0xFFFFFFFF")", -1},
      {R"("0x80070426")", Hr(0x80070426)},
      {R"("0Xc0000022")", Hr(0xC0000022)},
      {R"("0x5")", 5},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.value);
    Scenario parsed;
    std::string error;
    ASSERT_TRUE(
        ParseScenario(Json::parse(std::string(R"({"faults": {"Register": )") + c.value + "}}"),
                      "test", &parsed, &error))
        << error;
    FaultCalls calls;
    EXPECT_EQ(FindFault(parsed, &calls, "Register"), c.expected);
  }
}

// Each entry counts the calls it names; of the entries that hit their count, the most
// particular decides.
TEST(ScenarioTest, FaultEntriesHitTheirCalls) {
  using Calls = std::vector<std::pair<const char*, std::optional<Status>>>;  // item, result
  const struct {
    const char* faults;
    Calls calls;
  } cases[] = {
      {R"({"SendControlRequest": 31, "SendControlRequest:68": 7})",
       {{"68", 7}, {"69", 31}, {"", 31}}},
      {R"({"SendControlRequest:68": 7})", {{"69", std::nullopt}, {"68", 7}}},
      {R"({"Register": 7})", {{"68", std::nullopt}}},
      {R"({"SendControlRequest": {"call": 2, "status": 31}})",
       {{"63", std::nullopt}, {"64", 31}, {"63", std::nullopt}}},
      {R"({"SendControlRequest": {"from": 2, "status": 31}})",
       {{"63", std::nullopt}, {"64", 31}, {"65", 31}}},
      {R"({"SendControlRequest": [{"call": 1, "status": 5}, {"from": 3, "status": 6}]})",
       {{"63", 5}, {"63", std::nullopt}, {"63", 6}, {"63", 6}}},
      // The item's entry counts request 65 only; the plain one counts every request.
      {R"({"SendControlRequest:65": {"call": 2, "status": 7}, "SendControlRequest": 31})",
       {{"65", 31}, {"64", 31}, {"65", 7}}},
      {R"({"SendControlRequest:65": {"call": 2, "status": 7},
           "SendControlRequest": {"call": 2, "status": 31}})",
       {{"65", std::nullopt}, {"65", 7}, {"65", std::nullopt}}},
      {R"({"IDriverLink::SendControlRequest": {"call": 1, "status": 8}})",
       {{"65", 8}, {"65", std::nullopt}}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.faults);
    Scenario parsed;
    std::string error;
    ASSERT_TRUE(ParseScenario(Json{{"faults", Json::parse(c.faults)}}, "test", &parsed, &error))
        << error;
    FaultCalls calls;
    for (const auto& [item, expected] : c.calls) {
      SCOPED_TRACE(item);
      EXPECT_EQ(FindFault(parsed, &calls, "IDriverLink::SendControlRequest", item), expected);
    }
  }
}

TEST(ScenarioTest, BuiltInIsTheExampleAndAHealthyHost) {
  Scenario builtIn;
  std::string error;
  ASSERT_TRUE(LoadScenario("", DefaultScenarioText(), &builtIn, &error)) << error;
  EXPECT_EQ(builtIn.source, "<built-in scenario>");
  EXPECT_TRUE(builtIn.service.running);
  EXPECT_TRUE(builtIn.driverLink.driverRunning);
  EXPECT_TRUE(builtIn.faults.empty());
  EXPECT_FALSE(builtIn.debug.trace);
  EXPECT_TRUE(builtIn.debug.reportLeaks);

  const auto example = std::filesystem::path(__FILE__).parent_path().parent_path().parent_path() /
                       "examples" / "default-scenario.json";
  Json exampleDoc;
  ASSERT_TRUE(LoadJsonFile(example.string(), &exampleDoc, &error)) << error;
  EXPECT_EQ(exampleDoc, builtIn.document) << "examples/default-scenario.json has drifted";
}

// The core knows the identity the program registers under: another is refused, and one that is
// registered but never unregistered under its own identifier is reported at unload.
TEST(CoreTest, PointProductIdentifiersAreChecked) {
  constexpr Guid kOther = {
      0xEFDC4955, 0x59FD, 0x43CA, {0x95, 0xBA, 0x5D, 0xE8, 0x72, 0x72, 0x12, 0x47}};
  const std::wstring kStillRegistered =
      L"kvxfwctl: leak: point product {EFDC4955-59FD-43CA-95BA-5DE872721246} still registered\n";
  const struct {
    const char* what;
    Guid registerAs;
    Guid unregisterAs;
    uint64_t reserved;
    Status registered;
    Status unregistered;
    bool reported;
  } cases[] = {
      {"own identity", PointProductId, PointProductId, 0, 0, 0, false},
      {"unknown product", kOther, kOther, 0, Hr(0x80070057), 0, false},
      {"unregistered as another", PointProductId, kOther, 0, 0, 0, true},
      {"reserved not zero", PointProductId, PointProductId, 1, 0, Hr(0x80070057), true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    TestLibrary<CoreState> lib("kvxfwctl", "{}");
    IRegisterPointProduct* reg = nullptr;
    CoreGetInterface(lib.state, "VantorRegisterPointProduct3", reinterpret_cast<void**>(&reg));
    IControl* control = nullptr;
    EXPECT_EQ(reg->Register(&control, &ControlInterfaceId, &c.registerAs), c.registered);
    EXPECT_EQ(control != nullptr, c.registered == 0);
    if (control != nullptr) control->Release();
    EXPECT_EQ(reg->Unregister(&c.unregisterAs, c.reserved), c.unregistered);
    reg->Release();
    lib.state->Unload();
    EXPECT_EQ(*lib.lines, c.reported ? std::vector<std::wstring>{kStillRegistered}
                                     : std::vector<std::wstring>{});
  }
}

TEST(CoreTest, UnknownNamesAndInterfacesAreRefused) {
  TestLibrary<CoreState> lib("kvxfwctl", "{}");
  void* out = &lib;
  EXPECT_EQ(CoreGetInterface(lib.state, "VantorRegisterPointProduct2", &out), Hr(0x80004002));
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(CoreGetInterface(lib.state, nullptr, &out), Hr(0x80070057));
  EXPECT_EQ(CoreGetInterface(lib.state, "VantorRegisterPointProduct3", nullptr), Hr(0x80070057));

  IRegisterPointProduct* reg = nullptr;
  ASSERT_EQ(
      CoreGetInterface(lib.state, "VantorRegisterPointProduct3", reinterpret_cast<void**>(&reg)),
      0);
  IControl* control = nullptr;
  EXPECT_EQ(reg->Register(&control, &PolicyManagerInterfaceId, &PointProductId), Hr(0x80004002));
  EXPECT_EQ(control, nullptr);
  reg->Release();
}

// Runs the program's driver sequence; returns the two statuses (the second -1 when not sent).
std::pair<Status, Status> ConnectAndSend(TestLibrary<LibraryState>& lib, const wchar_t* driver,
                                         uint32_t code) {
  IDriverLinkConnector* connector = nullptr;
  EXPECT_EQ(DriverLinkGetInterface(lib.state, "DrvLinkConnectAsync",
                                   reinterpret_cast<void**>(&connector)),
            0);
  if (connector == nullptr) return {-1, -1};
  IDriverLink* link = nullptr;
  const Status connected = connector->ConnectToContentDriver(driver, &link);
  EXPECT_EQ(link != nullptr, connected == 0);
  Status sent = -1;
  if (link != nullptr) {
    uint32_t bytesReturned = 99;
    sent = link->SendControlRequest(code, nullptr, 0, nullptr, 0, &bytesReturned);
    if (sent == 0) {
      EXPECT_EQ(bytesReturned, 0u);
    }
    link->Release();
  }
  connector->Release();
  return {connected, sent};
}

TEST(DriverLinkTest, ConnectsToTheFirewallDriverAndAnswersItsRequest) {
  const struct {
    const char* scenario;
    const wchar_t* driver;
    uint32_t code;
    Status connected;
    Status sent;
  } cases[] = {
      {"{}", L"kvxfirek.sys", 68, 0, 0},
      {"{}", L"KvxFireK.SYS", 68, 0, 0},
      {"{}", L"kvxfirek.sys", 69, 0, 1},
      {"{}", L"kvxfirek.sy", 68, 2, -1},
      {"{}", L"kvxfirek.sys.old", 68, 2, -1},
      {R"({"driverLink": {"driverRunning": false}})", L"kvxfirek.sys", 68, 2, -1},
      {R"({"faults": {"ConnectToContentDriver": 5}})", L"kvxfirek.sys", 68, 5, -1},
      {R"({"faults": {"SendControlRequest": 31, "SendControlRequest:68": 1168}})", L"kvxfirek.sys",
       68, 0, 1168},
      {R"({"faults": {"SendControlRequest": 31, "SendControlRequest:68": 1168}})", L"kvxfirek.sys",
       69, 0, 31},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.scenario);
    TestLibrary<LibraryState> lib("kvxhida", c.scenario);
    EXPECT_EQ(ConnectAndSend(lib, c.driver, c.code), std::make_pair(c.connected, c.sent));
    EXPECT_EQ(lib.state->LiveObjects(), 0u);
  }
}

TEST(DebugOutputTest, LeakReportFollowsDebugOptionsAndBadScenarioIsReportedOnce) {
  const struct {
    const char* scenario;
    std::vector<std::wstring> expected;  // "<file>" stands for the scenario file
  } cases[] = {
      {"{}",
       {L"kvxfwctl: leak: IRegisterPointProduct still referenced (refs 1)\n",
        L"kvxfwctl: leak: point product {EFDC4955-59FD-43CA-95BA-5DE872721246} still "
        L"registered\n"}},
      {R"({"debug": {"reportLeaks": false}})", {}},
      {R"({"debug": {"trace": false, "reportLeaks": false}, "bogus": 1})",
       {L"kvxfwctl: bad scenario: <file>: /bogus: expected one of the known fields (service, "
        L"faults, debug, driverLink, versions, hooks, config, adapters, addresses, connections, "
        L"endpoints, processes, blacklist, policies, capture)\n",
        L"kvxfwctl: leak: IRegisterPointProduct still referenced (refs 1)\n"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.scenario);
    TestLibrary<CoreState> lib("kvxfwctl", c.scenario);
    IRegisterPointProduct* reg = nullptr;
    CoreGetInterface(lib.state, "VantorRegisterPointProduct3", reinterpret_cast<void**>(&reg));
    IControl* control = nullptr;
    reg->Register(&control, &ControlInterfaceId, &PointProductId);
    if (control != nullptr) control->Release();
    EXPECT_EQ(lib.state->Unload(), 0);
    reg->Release();
    std::vector<std::wstring> expected = c.expected;
    const std::wstring file(lib.file.path().begin(), lib.file.path().end());
    for (std::wstring& line : expected) {
      if (auto at = line.find(L"<file>"); at != std::wstring::npos) line.replace(at, 6, file);
    }
    EXPECT_EQ(*lib.lines, expected);
  }
}

}  // namespace
}  // namespace nw::sim
