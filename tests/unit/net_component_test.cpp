// The registration probe: the one command that asks it passes the silent log, so its lines can
// only be seen here. It takes no write lock and gives back everything it obtained.

#include "drivers/net_component.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/unit/fake_driver_host.h"

namespace nw {
namespace {

using testing::drivers::FakeDriverHost;
using testing::drivers::kComponentKey;
using testing::drivers::RecordLog;
using Lines = std::vector<std::string>;

TEST(RegistrationProbe, AnswersWithoutTheWriteLockAndLogsEveryFailure) {
  const std::string looking = "Looking for net component kvx_nlfk\n";
  const struct {
    const char* what;
    bool deployed;
    bool registered;
    const char* failing;  // the operation given a chosen result, if any
    platform::HResult result;
    bool answer;
    Lines log;
  } cases[] = {
      {"registered", true, true, nullptr, 0, true, {looking}},
      {"deployed but not registered",
       true,
       false,
       nullptr,
       0,
       false,
       {looking, "Failed to find component [kvx_nlfk] [1]\n"}},
      {"not deployed",
       false,
       true,
       nullptr,
       0,
       false,
       {"uninstallNetCfg() PnP ID not found for [kvxnlfk]. This is normal if the driver is not "
        "deployed. Exiting\n"}},
      {"no configuration object",
       true,
       true,
       "CoCreateInstance",
       platform::kCoENotInitialized,
       false,
       {looking,
        "NetConfigHelper::GetINetCfg - CoCreateInstance Failed (CLSID_CNetCfg) (IID_INetCfg) "
        "800401f0!\n",
        "NetConfigHelper::GetINetCfg - FAILED 800401f0!\n",
        "Failed to get INetCfg [-2147221008]\n"}},
      {"initialising fails",
       true,
       true,
       "Initialize",
       platform::kEFail,
       false,
       {looking, "NetConfigHelper::GetINetCfg - Unable to Initialize mpNetCfg 80004005!\n",
        "NetConfigHelper::GetINetCfg - FAILED 80004005!\n",
        "Failed to get INetCfg [-2147467259]\n"}},
      {"finding fails",
       true,
       true,
       "FindComponent",
       platform::kENotImpl,
       false,
       {looking, "Failed to find component [kvx_nlfk] [-2147467263]\n"}},
      {"uninitialising fails: the answer stands",
       true,
       true,
       "Uninitialize",
       platform::kNetCfgENotInitialized,
       true,
       {looking, "NetConfigHelper::ReleaseINetCfg - failed to uninitialize INetCfg 8004a021!\n"}},
  };
  for (const auto& c : cases) {
    FakeDriverHost host;
    if (c.deployed) host.registry.SetString(kComponentKey, L"PnPID_kvxnlfk", L"kvx_nlfk");
    if (c.registered) host.netcfg.components = {L"kvx_nlfk"};
    if (c.failing != nullptr) host.netcfg.results[c.failing] = c.result;
    EXPECT_EQ(IsNetComponentRegistered(L"kvxnlfk", RecordLog), c.answer) << c.what;
    EXPECT_EQ(host.log, c.log) << c.what;
    for (const auto& call : host.journal) EXPECT_NE(call, "QueryLock") << c.what;
    EXPECT_EQ(host.Leftovers(), "") << c.what;
  }
}

}  // namespace
}  // namespace nw
