// Network component registration: the write lock, install, uninstall and the lock-free probe,
// with every documented log line, against a recording network configuration.

#include "drivers/net_component.h"

#include <gtest/gtest.h>

#include <cctype>
#include <functional>
#include <string>
#include <vector>

#include "tests/unit/fake_driver_host.h"

namespace nw {
namespace {

using testing::drivers::FakeDriverHost;
using testing::drivers::kComponentKey;
using testing::drivers::RecordLog;
using Lines = std::vector<std::string>;

template <class Case>
std::string CaseName(const ::testing::TestParamInfo<Case>& param) {
  std::string name = param.param.what;
  for (auto& ch : name) ch = std::isalnum(static_cast<unsigned char>(ch)) ? ch : '_';
  return name;
}

void Deployed(FakeDriverHost& h) {
  h.registry.SetString(kComponentKey, L"PnPID_kvxnlfk", L"kvx_nlfk");
}

const std::string kNotFoundInstall =
    "installNetCfg() PnP ID not found for [kvxnlfk]. This is normal if the driver is not "
    "deployed. Exiting\n";
const std::string kNotFoundUninstall =
    "uninstallNetCfg() PnP ID not found for [kvxnlfk]. This is normal if the driver is not "
    "deployed. Exiting\n";
const Lines kLockAndInit = {"CoCreateInstance", "QueryInterface INetCfgLock",
                            "AcquireWriteLock 5000 netwarden", "Initialize"};
const Lines kRelease = {"Uninitialize", "ReleaseWriteLock"};

Lines Join(std::initializer_list<Lines> parts) {
  Lines out;
  for (const auto& part : parts) out.insert(out.end(), part.begin(), part.end());
  return out;
}

struct Case {
  const char* what;
  std::function<void(FakeDriverHost&)> setUp;
  platform::HResult result;
  Lines log;
  Lines calls;
};

class InstallWithLock : public ::testing::TestWithParam<Case> {};

TEST_P(InstallWithLock, LogsEachStepAndGivesEverythingBack) {
  const Case& c = GetParam();
  FakeDriverHost host;
  c.setUp(host);
  EXPECT_EQ(InstallNetCfgWithLock(&platform::kGuidDevClassNetService, L"kvxnlfk", RecordLog),
            c.result);
  EXPECT_EQ(host.log, c.log);
  EXPECT_EQ(host.journal.calls, c.calls);
  EXPECT_EQ(host.Leftovers(), "");
}

const Lines kInstalled = {"QueryNetCfgClass INetCfgClassSetup", "Install kvx_nlfk obo=1"};

INSTANTIATE_TEST_SUITE_P(
    Cases, InstallWithLock,
    ::testing::Values(
        Case{"installed and applied",
             Deployed,
             0,
             {"Installing kvx_nlfk...\n", "pClassSetup->Install returned hr=0\n",
              "Applying changes...\n", "Successfully applied changes!\n", "installNetCfg hr=0\n"},
             Join({kLockAndInit, kInstalled, {"Apply"}, kRelease})},
        Case{"not deployed",
             [](FakeDriverHost&) {},
             0,
             {kNotFoundInstall},
             Join({kLockAndInit, kRelease})},
        Case{"an install that needs a reboot is still applied",
             [](FakeDriverHost& h) {
               Deployed(h);
               h.netcfg.results["Install"] = platform::kNetCfgSReboot;
             },
             0,
             {"Installing kvx_nlfk...\n", "pClassSetup->Install returned hr=4a020\n",
              "Applying changes...\n", "Successfully applied changes!\n", "installNetCfg hr=0\n"},
             Join({kLockAndInit, kInstalled, {"Apply"}, kRelease})},
        Case{"apply needs a reboot",
             [](FakeDriverHost& h) {
               Deployed(h);
               h.netcfg.results["Apply"] = platform::kNetCfgSReboot;
             },
             platform::kNetCfgSReboot,
             {"Installing kvx_nlfk...\n", "pClassSetup->Install returned hr=0\n",
              "Applying changes...\n", "Reboot is needed for the changes to take effect!\n",
              "installNetCfg hr=4a020\n"},
             Join({kLockAndInit, kInstalled, {"Apply"}, kRelease})},
        Case{"apply fails",
             [](FakeDriverHost& h) {
               Deployed(h);
               h.netcfg.results["Apply"] = platform::kEFail;
             },
             platform::kEFail,
             {"Installing kvx_nlfk...\n", "pClassSetup->Install returned hr=0\n",
              "Applying changes...\n", "Failed to apply changes, hr=80004005\n",
              "installNetCfg hr=80004005\n"},
             Join({kLockAndInit, kInstalled, {"Apply"}, kRelease})},
        Case{"S_FALSE from install is a failure",
             [](FakeDriverHost& h) {
               Deployed(h);
               h.netcfg.results["Install"] = platform::kSFalse;
             },
             1,
             {"Installing kvx_nlfk...\n", "pClassSetup->Install returned hr=1\n",
              "Failed netcfg install\n", "installNetCfg hr=1\n"},
             Join({kLockAndInit, kInstalled, kRelease})},
        Case{"no class setup",
             [](FakeDriverHost& h) {
               Deployed(h);
               h.netcfg.results["QueryNetCfgClassSetup"] = platform::kENotImpl;
             },
             platform::kENotImpl,
             {"Failed to get IID_INetCfgClassSetup, hr=80004001\n", "Failed netcfg install\n",
              "installNetCfg hr=80004001\n"},
             Join({kLockAndInit, {"QueryNetCfgClass INetCfgClassSetup"}, kRelease})},
        Case{"the lock is held by a named client",
             [](FakeDriverHost& h) {
               Deployed(h);
               h.netcfg.lockHeldElsewhere = true;
               h.netcfg.holderName = L"Network Setup";
             },
             platform::kNetCfgENoWriteLock,
             {"NetConfigHelper::GetINetCfg - Unable to AcquireWriteLock on IID_INetCfgLock, lock "
              "timeout was 5000 (current owner Network Setup)!\n",
              "NetConfigHelper::GetINetCfg - FAILED 8004a024!\n",
              "Failed to get INetCfg, hr=8004a024\n"},
             {"CoCreateInstance", "QueryInterface INetCfgLock", "AcquireWriteLock 5000 netwarden"}},
        Case{"the lock is held by a client without a name",
             [](FakeDriverHost& h) {
               Deployed(h);
               h.netcfg.lockHeldElsewhere = true;
             },
             platform::kNetCfgENoWriteLock,
             {"NetConfigHelper::GetINetCfg - Unable to AcquireWriteLock on IID_INetCfgLock, lock "
              "timeout was 5000 (current owner Unknown)!\n",
              "NetConfigHelper::GetINetCfg - FAILED 8004a024!\n",
              "Failed to get INetCfg, hr=8004a024\n"},
             {"CoCreateInstance", "QueryInterface INetCfgLock", "AcquireWriteLock 5000 netwarden"}},
        Case{"the lock cannot be taken",
             [](FakeDriverHost& h) {
               Deployed(h);
               h.netcfg.results["AcquireWriteLock"] = static_cast<platform::HResult>(0x80070005);
             },
             static_cast<platform::HResult>(0x80070005),
             {"NetConfigHelper::GetINetCfg - Error trying to AcquireWriteLock on IID_INetCfgLock "
              "80070005!\n",
              "NetConfigHelper::GetINetCfg - FAILED 80070005!\n",
              "Failed to get INetCfg, hr=80070005\n"},
             {"CoCreateInstance", "QueryInterface INetCfgLock", "AcquireWriteLock 5000 netwarden"}},
        Case{"no configuration object",
             [](FakeDriverHost& h) {
               Deployed(h);
               h.netcfg.results["CoCreateInstance"] = platform::kCoENotInitialized;
             },
             platform::kCoENotInitialized,
             {"NetConfigHelper::GetINetCfg - CoCreateInstance Failed (CLSID_CNetCfg) "
              "(IID_INetCfg) 800401f0!\n",
              "NetConfigHelper::GetINetCfg - FAILED 800401f0!\n",
              "Failed to get INetCfg, hr=800401f0\n"},
             {"CoCreateInstance"}},
        Case{"no lock interface",
             [](FakeDriverHost& h) {
               Deployed(h);
               h.netcfg.results["QueryLock"] = static_cast<platform::HResult>(0x80004002);
             },
             static_cast<platform::HResult>(0x80004002),
             {"NetConfigHelper::GetINetCfg - QueryInterface Failed to get IID_INetCfgLock from "
              "IID_INetCfg 80004002!\n",
              "NetConfigHelper::GetINetCfg - FAILED 80004002!\n",
              "Failed to get INetCfg, hr=80004002\n"},
             {"CoCreateInstance", "QueryInterface INetCfgLock"}},
        Case{"initialising fails under the lock",
             [](FakeDriverHost& h) {
               Deployed(h);
               h.netcfg.results["Initialize"] = platform::kNetCfgEAlreadyInitialized;
             },
             platform::kNetCfgEAlreadyInitialized,
             {"NetConfigHelper::GetINetCfg - Unable to Initialize mpNetCfg 8004a020!\n",
              "NetConfigHelper::GetINetCfg - FAILED 8004a020!\n",
              "Failed to get INetCfg, hr=8004a020\n"},
             Join({kLockAndInit, {"ReleaseWriteLock"}})},
        Case{"every release step runs and reports",
             [](FakeDriverHost& h) {
               Deployed(h);
               h.netcfg.results["Uninitialize"] = platform::kNetCfgENotInitialized;
               h.netcfg.results["ReleaseWriteLock"] = platform::kEFail;
             },
             0,
             {"Installing kvx_nlfk...\n", "pClassSetup->Install returned hr=0\n",
              "Applying changes...\n", "Successfully applied changes!\n", "installNetCfg hr=0\n",
              "NetConfigHelper::ReleaseINetCfg - failed to uninitialize INetCfg 8004a021!\n",
              "NetConfigHelper::ReleaseINetCfg - failed to release write lock 80004005!\n"},
             Join({kLockAndInit, kInstalled, {"Apply"}, kRelease})}),
    CaseName<Case>);

class UninstallWithLock : public ::testing::TestWithParam<Case> {};

TEST_P(UninstallWithLock, LogsEachStepAndGivesEverythingBack) {
  const Case& c = GetParam();
  FakeDriverHost host;
  c.setUp(host);
  EXPECT_EQ(UninstallNetCfgWithLock(L"kvxnlfk", RecordLog), c.result);
  EXPECT_EQ(host.log, c.log);
  EXPECT_EQ(host.journal.calls, c.calls);
  EXPECT_EQ(host.Leftovers(), "");
}

void Registered(FakeDriverHost& h) {
  Deployed(h);
  h.netcfg.components = {L"kvx_nlfk"};
}

const Lines kFound = {"FindComponent kvx_nlfk", "GetClassGuid", "QueryNetCfgClass INetCfgClass",
                      "QueryInterface INetCfgClassSetup", "DeInstall kvx_nlfk obo=1"};
const Lines kUninstallLines = {"Looking for net component kvx_nlfk\n",
                               "Calling  pNetCfgCmp->GetClassGuid\n", "Uninstalling kvx_nlfk...\n"};

INSTANTIATE_TEST_SUITE_P(
    Cases, UninstallWithLock,
    ::testing::Values(
        Case{"removed and applied", Registered, 0,
             Join({kUninstallLines,
                   {"Uninstall returned hr=0\n", "Uninstall succeeded, applying changes...\n",
                    "Successfully applied changes...\n"}}),
             Join({kLockAndInit, kFound, {"Apply"}, kRelease})},
        Case{"not registered",
             Deployed,
             0,
             {"Looking for net component kvx_nlfk\n",
              "INetCfg::FindComponent worked but returned no component. We most not be "
              "registered with NDIS. Continuing with the rest of the uninstall.\n"},
             Join({kLockAndInit, {"FindComponent kvx_nlfk"}, kRelease})},
        Case{"not deployed",
             [](FakeDriverHost&) {},
             0,
             {kNotFoundUninstall},
             Join({kLockAndInit, kRelease})},
        Case{"finding fails",
             [](FakeDriverHost& h) {
               Registered(h);
               h.netcfg.results["FindComponent"] = platform::kENotImpl;
             },
             platform::kENotImpl,
             {"Looking for net component kvx_nlfk\n", "Failed to find component, hr=80004001\n"},
             Join({kLockAndInit, {"FindComponent kvx_nlfk"}, kRelease})},
        Case{"no class of the component",
             [](FakeDriverHost& h) {
               Registered(h);
               h.netcfg.results["GetClassGuid"] = platform::kEFail;
             },
             platform::kEFail,
             {"Looking for net component kvx_nlfk\n", "Calling  pNetCfgCmp->GetClassGuid\n",
              "pNetCfgCmp->GetClassGuid failed, hr=80004005\n"},
             Join({kLockAndInit, {"FindComponent kvx_nlfk", "GetClassGuid"}, kRelease})},
        Case{"no class interface",
             [](FakeDriverHost& h) {
               Registered(h);
               h.netcfg.results["QueryNetCfgClass"] = platform::kENotImpl;
             },
             platform::kENotImpl,
             {"Looking for net component kvx_nlfk\n", "Calling  pNetCfgCmp->GetClassGuid\n",
              "Failed to get IID_INetCfgClass, hr=80004001\n"},
             Join({kLockAndInit,
                   {"FindComponent kvx_nlfk", "GetClassGuid", "QueryNetCfgClass INetCfgClass"},
                   kRelease})},
        Case{"no class setup",
             [](FakeDriverHost& h) {
               Registered(h);
               h.netcfg.results["QueryClassSetup"] = static_cast<platform::HResult>(0x80004002);
             },
             static_cast<platform::HResult>(0x80004002),
             {"Looking for net component kvx_nlfk\n", "Calling  pNetCfgCmp->GetClassGuid\n",
              "Failed to get IID_INetCfgClassSetup, hr=80004002\n"},
             Join({kLockAndInit,
                   {"FindComponent kvx_nlfk", "GetClassGuid", "QueryNetCfgClass INetCfgClass",
                    "QueryInterface INetCfgClassSetup"},
                   kRelease})},
        Case{"removal refused: only its own line",
             [](FakeDriverHost& h) {
               Registered(h);
               h.netcfg.results["DeInstall"] = static_cast<platform::HResult>(0x80070005);
             },
             static_cast<platform::HResult>(0x80070005),
             Join({kUninstallLines, {"Uninstall returned hr=80070005\n"}}),
             Join({kLockAndInit, kFound, kRelease})},
        Case{"a removal that needs a reboot is still applied",
             [](FakeDriverHost& h) {
               Registered(h);
               h.netcfg.results["DeInstall"] = platform::kNetCfgSReboot;
             },
             0,
             Join({kUninstallLines,
                   {"Uninstall returned hr=4a020\n", "Uninstall succeeded, applying changes...\n",
                    "Successfully applied changes...\n"}}),
             Join({kLockAndInit, kFound, {"Apply"}, kRelease})},
        Case{"apply needs a reboot",
             [](FakeDriverHost& h) {
               Registered(h);
               h.netcfg.results["Apply"] = platform::kNetCfgSReboot;
             },
             platform::kNetCfgSReboot,
             Join({kUninstallLines,
                   {"Uninstall returned hr=0\n", "Uninstall succeeded, applying changes...\n",
                    "Reboot is needed for the changes to take effect!\n"}}),
             Join({kLockAndInit, kFound, {"Apply"}, kRelease})},
        Case{"apply fails",
             [](FakeDriverHost& h) {
               Registered(h);
               h.netcfg.results["Apply"] = static_cast<platform::HResult>(0x8004a024);
             },
             static_cast<platform::HResult>(0x8004a024),
             Join({kUninstallLines,
                   {"Uninstall returned hr=0\n", "Uninstall succeeded, applying changes...\n",
                    "Failed to apply changes, hr=8004a024\n"}}),
             Join({kLockAndInit, kFound, {"Apply"}, kRelease})},
        Case{
            "the lock is held elsewhere",
            [](FakeDriverHost& h) {
              Registered(h);
              h.netcfg.lockHeldElsewhere = true;
              h.netcfg.holderName = L"Setup";
            },
            platform::kNetCfgENoWriteLock,
            {"NetConfigHelper::GetINetCfg - Unable to AcquireWriteLock on IID_INetCfgLock, lock "
             "timeout was 5000 (current owner Setup)!\n",
             "NetConfigHelper::GetINetCfg - FAILED 8004a024!\n",
             "Failed to get INetCfg, hr=8004a024\n"},
            {"CoCreateInstance", "QueryInterface INetCfgLock", "AcquireWriteLock 5000 netwarden"}}),
    CaseName<Case>);

struct ProbeCase {
  const char* what;
  std::function<void(FakeDriverHost&)> setUp;
  bool registered;
  Lines log;
  Lines calls;
};

class Probe : public ::testing::TestWithParam<ProbeCase> {};

TEST_P(Probe, AsksWithoutTheWriteLock) {
  const ProbeCase& c = GetParam();
  FakeDriverHost host;
  c.setUp(host);
  EXPECT_EQ(IsNetComponentRegistered(L"kvxnlfk", RecordLog), c.registered);
  EXPECT_EQ(host.log, c.log);
  EXPECT_EQ(host.journal.calls, c.calls);
  EXPECT_EQ(host.Leftovers(), "");
}

INSTANTIATE_TEST_SUITE_P(
    Cases, Probe,
    ::testing::Values(
        ProbeCase{"registered",
                  Registered,
                  true,
                  {"Looking for net component kvx_nlfk\n"},
                  {"CoCreateInstance", "Initialize", "FindComponent kvx_nlfk", "Uninitialize"}},
        ProbeCase{
            "deployed but not registered",
            Deployed,
            false,
            {"Looking for net component kvx_nlfk\n", "Failed to find component [kvx_nlfk] [1]\n"},
            {"CoCreateInstance", "Initialize", "FindComponent kvx_nlfk", "Uninitialize"}},
        ProbeCase{"not deployed", [](FakeDriverHost&) {}, false, {kNotFoundUninstall}, {}},
        ProbeCase{"no configuration object",
                  [](FakeDriverHost& h) {
                    Registered(h);
                    h.netcfg.results["CoCreateInstance"] = platform::kCoENotInitialized;
                  },
                  false,
                  {"Looking for net component kvx_nlfk\n",
                   "NetConfigHelper::GetINetCfg - CoCreateInstance Failed (CLSID_CNetCfg) "
                   "(IID_INetCfg) 800401f0!\n",
                   "NetConfigHelper::GetINetCfg - FAILED 800401f0!\n",
                   "Failed to get INetCfg [-2147221008]\n"},
                  {"CoCreateInstance"}},
        ProbeCase{"initialising fails",
                  [](FakeDriverHost& h) {
                    Registered(h);
                    h.netcfg.results["Initialize"] = platform::kEFail;
                  },
                  false,
                  {"Looking for net component kvx_nlfk\n",
                   "NetConfigHelper::GetINetCfg - Unable to Initialize mpNetCfg 80004005!\n",
                   "NetConfigHelper::GetINetCfg - FAILED 80004005!\n",
                   "Failed to get INetCfg [-2147467259]\n"},
                  {"CoCreateInstance", "Initialize"}},
        ProbeCase{"finding fails",
                  [](FakeDriverHost& h) {
                    Registered(h);
                    h.netcfg.results["FindComponent"] = platform::kENotImpl;
                  },
                  false,
                  {"Looking for net component kvx_nlfk\n",
                   "Failed to find component [kvx_nlfk] [-2147467263]\n"},
                  {"CoCreateInstance", "Initialize", "FindComponent kvx_nlfk", "Uninitialize"}},
        ProbeCase{"uninitialising fails",
                  [](FakeDriverHost& h) {
                    Registered(h);
                    h.netcfg.results["Uninitialize"] = platform::kNetCfgENotInitialized;
                  },
                  true,
                  {"Looking for net component kvx_nlfk\n",
                   "NetConfigHelper::ReleaseINetCfg - failed to uninitialize INetCfg 8004a021!\n"},
                  {"CoCreateInstance", "Initialize", "FindComponent kvx_nlfk", "Uninitialize"}}),
    CaseName<ProbeCase>);

TEST(PnpId, ReadsLongIdsOnTheSecondTryAndTooLongOnesAsAbsent) {
  const struct {
    const char* what;
    uint32_t type;
    size_t length;
    bool found;
  } cases[] = {{"short", platform::kRegSz, 8, true},
               {"expandable", platform::kRegExpandSz, 8, true},
               {"255 characters: the first buffer", platform::kRegSz, 255, true},
               {"300 characters: the second buffer", platform::kRegSz, 300, true},
               {"511 characters: the second buffer", platform::kRegSz, 511, true},
               {"600 characters: absent", platform::kRegSz, 600, false},
               {"a number is no id", platform::kRegDword, 0, false}};
  for (const auto& c : cases) {
    FakeDriverHost host;
    const std::wstring id(c.length, L'p');
    if (c.type == platform::kRegDword) {
      host.registry.SetDword(kComponentKey, L"PnPID_kvxnlfk", 1);
    } else {
      host.registry.SetString(kComponentKey, L"PnPID_kvxnlfk", id, c.type);
    }
    EXPECT_EQ(GetNetComponentPnpId(L"kvxnlfk"), c.found ? id : L"") << c.what;
    EXPECT_EQ(host.registry.openKeys, 0) << c.what;
  }
  FakeDriverHost host;
  host.registry.SetString(kComponentKey, L"PnPID_kvxwfpk", L"other");
  EXPECT_EQ(GetNetComponentPnpId(L"kvxnlfk"), L"");
  EXPECT_EQ(GetNetComponentPnpId(L"kvxwfpk"), L"other");
}

TEST(NetConfigHelperTest, ReadOnlyUseTakesNoLockAndReleasesEverything) {
  FakeDriverHost host;
  NetConfigHelper helper;
  helper.log = RecordLog;
  helper.readOnly = true;
  ASSERT_EQ(GetINetCfg(&helper), 0);
  EXPECT_NE(helper.netCfg, nullptr);
  EXPECT_EQ(helper.lock, nullptr);
  EXPECT_EQ(ReleaseINetCfg(&helper), 0);
  EXPECT_EQ(helper.netCfg, nullptr);
  EXPECT_EQ(host.journal.calls, (Lines{"CoCreateInstance", "Initialize", "Uninitialize"}));
  EXPECT_EQ(host.Leftovers(), "");
}

}  // namespace
}  // namespace nw
