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
