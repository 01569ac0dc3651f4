// The simulated core's global configuration: what the snapshot shows, what the builder saves,
// and that a change reaches the next process through the scenario's file.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "core/interfaces.h"
#include "sim/common/library_state.h"
#include "sim/core/config_objects.h"
#include "sim/core/core_objects.h"
#include "sim/core/default_scenario.h"

namespace nw::sim {
namespace {

constexpr Status Hr(uint32_t value) { return static_cast<Status>(value); }

// A folder of its own for one test, removed when the test ends.
class TempFolder {
 public:
  TempFolder() {
    std::random_device random;
    path_ = std::filesystem::temp_directory_path() / ("nw-sim-config-" + std::to_string(random()));
    std::filesystem::create_directories(path_);
  }
  ~TempFolder() { std::filesystem::remove_all(path_); }
  std::string File(const char* name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// One process's view of the core: its own library state over the given files.
struct Core {
  Core(std::optional<std::string> scenarioFile, std::string defaultStateFile = "") {
    state = std::make_shared<CoreState>(LibraryState::Options{
        "kvxfwctl", DefaultScenarioText(), std::move(scenarioFile), std::move(defaultStateFile),
        [lines = lines](const std::wstring& line) { lines->push_back(line); }, false});
  }
  std::shared_ptr<std::vector<std::wstring>> lines = std::make_shared<std::vector<std::wstring>>();
  std::shared_ptr<CoreState> state;

  GlobalConfigAndStateInfo* Snapshot() { return new GlobalConfigAndStateInfo(state); }
  GlobalConfigBuilder* Builder() { return new GlobalConfigBuilder(state); }
};

TEST(SimConfigTest, SnapshotIsEmptyUntilRefreshAndThenShowsTheScenario) {
  TempFolder folder;
  const std::string file = folder.File("scenario.json");
  std::ofstream(file) << R"({"versions": {"engine": null, "service": "9.9"},
                              "hooks": {"fragment": true, "packet": false},
                              "config": {"stateTableForcedTcpTimeout": 4294967295,
                                         "streamPassthru": true, "traceLogMask": 31}})";
  Core core(file);
  GlobalConfigAndStateInfo* info = core.Snapshot();
  EXPECT_EQ(info->GetServiceBuildVersion(), nullptr);
  EXPECT_EQ(info->GetMaxStateTableSize(), 0);
  EXPECT_FALSE(info->IsHookConnected(2));

  ASSERT_EQ(info->Refresh(), 0);
  EXPECT_STREQ(info->GetServiceBuildVersion(), L"9.9");
  EXPECT_EQ(info->GetEngineBuildVersion(), nullptr);
  EXPECT_STREQ(info->GetControlDllBuildVersion(), L"4.12.305.0");  // absent: the default
  EXPECT_EQ(info->GetStateTableForcedTcpTimeout(), -1);
  EXPECT_EQ(info->GetTraceLogMask(), 31u);
  EXPECT_TRUE(info->GetPassthruMode(4));
  EXPECT_FALSE(info->GetPassthruMode(2));
  EXPECT_FALSE(info->GetPassthruMode(1));
  EXPECT_TRUE(info->IsHookConnected(1));
  EXPECT_FALSE(info->IsHookConnected(2));
  EXPECT_TRUE(info->IsHookConnected(4));  // absent: the default
  EXPECT_EQ(info->GetMaxStateTableSize(), 65536);
  info->Release();
}

TEST(SimConfigTest, RefreshFaultsTellTheTwoInterfacesApart) {
  const struct {
    const char* faults;
    Status snapshot, builder;
  } cases[] = {
      {R"({"Refresh": 7})", 7, 7},
      {R"({"IGlobalConfigAndStateInfo::Refresh": 7})", 7, 0},
      {R"({"IGlobalConfigBuilder::Refresh": 8, "Refresh": 7})", 7, 8},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.faults);
    TempFolder folder;
    const std::string file = folder.File("scenario.json");
    std::ofstream(file) << "{\"faults\": " << c.faults << "}";
    Core core(file);
    GlobalConfigAndStateInfo* info = core.Snapshot();
    GlobalConfigBuilder* builder = core.Builder();
    EXPECT_EQ(info->Refresh(), c.snapshot);
    EXPECT_EQ(builder->Refresh(), c.builder);
    info->Release();
    builder->Release();
  }
}

TEST(SimConfigTest, ApplySavesOnlyTheSettingsAndTheNextProcessSeesThem) {
  TempFolder folder;
  const std::string file = folder.File("scenario.json");
  std::ofstream(file) << R"({"hooks": {"stream": false}, "config": {"trafficLog": false}})";
  {
    Core core(file);
    GlobalConfigBuilder* builder = core.Builder();
    ASSERT_EQ(builder->Refresh(), 0);
    ASSERT_EQ(builder->EnableTrafficLog(true, true), 0);
    ASSERT_EQ(builder->SetStateTableForcedTcpTimeout(4294967295u), 0);
    EXPECT_EQ(builder->Apply(), 0);
    builder->Release();
  }
  const Json saved = Json::parse(ReadFile(file));
  EXPECT_EQ(saved.begin().key(), "hooks");  // the author's order is kept
  EXPECT_EQ(saved["hooks"], Json::parse(R"({"stream": false})"));
  EXPECT_EQ(saved["config"]["trafficLog"], true);
  EXPECT_EQ(saved["config"]["stateTableForcedTcpTimeout"], 4294967295u);
  EXPECT_EQ(saved["config"]["maxStateTableSize"], 65536);  // every setting is written out

  Core next(file);
  GlobalConfigAndStateInfo* info = next.Snapshot();
  ASSERT_EQ(info->Refresh(), 0);
  EXPECT_TRUE(info->IsTrafficLogEnabled());
  EXPECT_FALSE(info->IsHookConnected(4));
  info->Release();
}

TEST(SimConfigTest, BuilderStartsAtDefaultsAndResetRestoresThem) {
  TempFolder folder;
  const std::string file = folder.File("scenario.json");
  std::ofstream(file) << R"({"config": {"logThrottle": 5, "globalPassthru": true}})";
  Core core(file);
  GlobalConfigBuilder* builder = core.Builder();
  ASSERT_EQ(builder->Refresh(), 0);
  ASSERT_EQ(builder->ResetToDefaults(), 0);
  ASSERT_EQ(builder->Apply(), 0);
  builder->Release();
  EXPECT_EQ(Json::parse(ReadFile(file))["config"], GlobalSettingsToJson(GlobalSettings{}));
  EXPECT_EQ(GlobalSettingsToJson(GlobalSettings{}),
            Json::parse(std::string(DefaultScenarioText()))["config"])
      << "the built-in host should start at the documented defaults";
}

TEST(SimConfigTest, FailingSetterRecordsNothing) {
  TempFolder folder;
  const std::string file = folder.File("scenario.json");
  std::ofstream(file) << R"({"faults": {"SetTraceLogMask": "0x80070057"}})";
  Core core(file);
  GlobalConfigBuilder* builder = core.Builder();
  ASSERT_EQ(builder->Refresh(), 0);
  EXPECT_EQ(builder->SetTraceLogMask(0xFF), Hr(0x80070057));
  EXPECT_EQ(builder->SetPassthruMode(true, 3), kStatusInvalidArg);
  ASSERT_EQ(builder->Apply(), 0);
  builder->Release();
  EXPECT_EQ(Json::parse(ReadFile(file))["config"]["traceLogMask"], 3);
}

TEST(SimConfigTest, BuiltInScenarioLivesOnInTheDefaultStateFile) {
  TempFolder folder;
  const std::string stateFile = folder.File("kvx-sim-state.json");
  {
    Core core("", stateFile);
    GlobalConfigBuilder* builder = core.Builder();
    builder->Refresh();
    builder->SetMaxTrafficLogSize(4096);
    EXPECT_EQ(builder->Apply(), 0);
    builder->Release();
  }
  Core next("", stateFile);
  const Scenario* scenario = next.state->GetScenario();
  ASSERT_NE(scenario, nullptr);
  EXPECT_EQ(scenario->source, stateFile);
  EXPECT_EQ(scenario->config.maxTrafficLogSize, 4096u);
  EXPECT_TRUE(scenario->service.running);  // the rest of the built-in host came along
}

TEST(SimConfigTest, UnsavableChangeFailsAndChangesNothing) {
  TempFolder folder;
  const std::string gone = folder.File("gone");
  std::filesystem::create_directories(gone);
  const std::string file = gone + "/scenario.json";
  std::ofstream(file) << "{}";

  const struct {
    std::optional<std::string> scenarioFile;
    const wchar_t* reason;
  } cases[] = {
      {file, L"No such file or directory"},
      {std::string(), L"the built-in scenario has no state file to be saved to"},
  };
  for (const auto& c : cases) {
    Core core(c.scenarioFile);
    ASSERT_NE(core.state->GetScenario(), nullptr);
    std::filesystem::remove_all(gone);  // read, then the folder disappears
    GlobalConfigBuilder* builder = core.Builder();
    builder->SetMaxTrafficLogSize(1);
    EXPECT_EQ(builder->Apply(), kStatusSaveFailed);
    builder->Release();
    EXPECT_EQ(core.state->GetScenario()->config.maxTrafficLogSize, 10485760u);
    ASSERT_EQ(core.lines->size(), 1u);
    EXPECT_EQ(core.lines->front().rfind(L"kvxfwctl: cannot save the scenario: ", 0), 0u);
    EXPECT_NE(core.lines->front().find(c.reason), std::wstring::npos) << core.lines->front();
  }
}

}  // namespace
}  // namespace nw::sim
