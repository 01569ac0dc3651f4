// The emulated host behind the driver commands: service control manager, network configuration,
// self-protection, mutexes and OS version, and that every change reaches the host file.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "base/format.h"
#include "platform/last_error.h"
#include "platform/named_mutex.h"
#include "platform/net_config.h"
#include "platform/os_version.h"
#include "platform/registry.h"
#include "platform/self_protection.h"
#include "platform/service_manager.h"
#include "sim/host/host_state.h"

namespace nw {
namespace {

using sim::Json;

/// A host file for one test, loaded as the emulated host; forgotten afterwards.
class DriverHostFile {
 public:
  explicit DriverHostFile(const std::string& json) {
    char pattern[] = "/tmp/nw-driver-host-XXXXXX";
    dir_ = ::mkdtemp(pattern);
    file_ = dir_ + "/host.json";
    std::ofstream(file_) << json;
    ::setenv("NETWARDEN_HOST", file_.c_str(), 1);
    ::setenv("NETWARDEN_DEBUG_LOG", (dir_ + "/debug.log").c_str(), 1);
    sim::ResetHostStateForTesting();
    sim::Usage() = sim::HostUsage();
    ok_ = sim::LoadHostState(&error_);
  }
  ~DriverHostFile() {
    ::unsetenv("NETWARDEN_HOST");
    ::unsetenv("NETWARDEN_DEBUG_LOG");
    sim::ResetHostStateForTesting();
    sim::Usage() = sim::HostUsage();
    std::system(("rm -rf '" + dir_ + "'").c_str());
  }
  DriverHostFile(const DriverHostFile&) = delete;
  DriverHostFile& operator=(const DriverHostFile&) = delete;

  bool ok() const { return ok_; }
  const std::string& error() const { return error_; }
  const std::string& file() const { return file_; }
  Json Saved() const {
    std::ifstream in(file_);
    return Json::parse(in);
  }
  std::string DebugLog() const {
    std::ifstream in(dir_ + "/debug.log");
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
  }

 private:
  std::string dir_;
  std::string file_;
  bool ok_ = false;
  std::string error_;
};

constexpr const char* kDrivers = R"({
  "registry": {
    "HKLM\\SYSTEM\\CurrentControlSet\\Services\\kvxnlfk": {"Type": 1, "Start": 1,
        "ImagePath": "\\SystemRoot\\system32\\drivers\\kvxnlfk.sys"},
    "HKLM\\SYSTEM\\CurrentControlSet\\Services\\kvxwfpk": {"Start": 4},
    "HKLM\\SYSTEM\\CurrentControlSet\\Services\\keyonly": {"Start": 3}
  },
  "services": {
    "kvxnlfk": {"running": true},
    "kvxwfpk": {},
    "stubborn": {"running": true, "refuseStop": 1051, "refuseStart": 2}
  }
})";

constexpr const wchar_t* kNdisKey = L"SYSTEM\\CurrentControlSet\\Services\\kvxnlfk";

platform::ServiceHandle Open(const wchar_t* name, uint32_t access, uint32_t* error) {
  platform::ServiceManager& scm = platform::TheServiceManager();
  platform::ServiceHandle manager = scm.OpenSCManager(platform::kScManagerAllAccess, error);
  platform::ServiceHandle service = scm.OpenService(manager, name, access, error);
  scm.CloseServiceHandle(manager);
  return service;
}

constexpr const char* kProtected = R"({
  "registry": {"HKLM\\SYSTEM\\CurrentControlSet\\Services\\kvxnlfk": {"Start": 1}},
  "services": {"kvxnlfk": {"running": true}},
  "selfProtection": {"lockedKeys": ["kvxnlfk", "kvxwfpk"]}
})";

TEST(EmulatedSelfProtection, ALockedKeyRefusesChangesUntilLiftedUnderAnException) {
  DriverHostFile host(kProtected);
  ASSERT_TRUE(host.ok()) << host.error();
  const Json before = host.Saved();
  platform::SelfProtection& protection = platform::TheSelfProtection();
  platform::ServiceManager& scm = platform::TheServiceManager();
  platform::Registry& registry = platform::TheRegistry();

  auto refused = [&](bool expectRefused) {
    uint32_t error = 0;
    platform::ServiceHandle service =
        Open(L"kvxnlfk", platform::kServiceChangeConfig | platform::kServiceStop, &error);
    const bool changed = scm.ChangeServiceConfig(service, platform::kServiceNoChange, 3,
                                                 platform::kServiceNoChange, nullptr, &error);
    EXPECT_EQ(changed, !expectRefused);
    if (expectRefused) {
      EXPECT_EQ(error, 5u);
    }
    scm.CloseServiceHandle(service);
    platform::RegistryKey key = nullptr;
    ASSERT_EQ(registry.OpenKey(platform::kHKeyLocalMachine, kNdisKey, 0x2001F, &key), 0u);
    const uint32_t value = 3;
    EXPECT_EQ(registry.SetValue(key, L"Start", platform::kRegDword, &value, 4),
              expectRefused ? 5u : 0u);
    registry.CloseKey(key);
  };

  EXPECT_TRUE(protection.IsServiceKeyLocked(L"KVXNLFK"));
  refused(true);
  EXPECT_FALSE(protection.LiftServiceKeyLock(L"kvxnlfk")) << "not without an exception";
  ASSERT_EQ(protection.BeginException(L"netwarden", L"kvxnlfk"), 0u);
  ASSERT_TRUE(protection.LiftServiceKeyLock(L"kvxnlfk"));
  EXPECT_FALSE(protection.IsServiceKeyLocked(L"kvxnlfk"));
  EXPECT_EQ(host.Saved()["selfProtection"]["lifted"], Json::array({"kvxnlfk"}));
  refused(false);
  protection.RestoreServiceKeyLock(L"kvxnlfk");
  protection.EndException(L"netwarden", L"kvxnlfk");
  EXPECT_TRUE(protection.IsServiceKeyLocked(L"kvxnlfk"));
  refused(true);
  Json after = host.Saved();
  after["registry"] = before["registry"];
  EXPECT_EQ(after, before) << "a restored host reads as it did";
  EXPECT_EQ(host.DebugLog(), "");
  sim::ReportHostLeaks();
  EXPECT_EQ(host.DebugLog(), "");
}

TEST(EmulatedSelfProtection, WhatIsLeftLiftedOrHeldIsReported) {
  DriverHostFile host(kProtected);
  ASSERT_TRUE(host.ok()) << host.error();
  platform::SelfProtection& protection = platform::TheSelfProtection();
  ASSERT_EQ(protection.BeginException(L"netwarden", L"kvxnlfk"), 0u);
  ASSERT_TRUE(protection.LiftServiceKeyLock(L"kvxnlfk"));
  EXPECT_FALSE(protection.LiftServiceKeyLock(L"kvxnlfk")) << "already lifted";
  protection.RestoreServiceKeyLock(L"kvxwfpk");  // not lifted: nothing happens
  sim::ReportHostLeaks();
  EXPECT_EQ(host.DebugLog(),
            "host: leak: service key lock of KVXNLFK still lifted\n"
            "host: leak: self-protection exception for KVXNLFK still held\n");
}

TEST(EmulatedSelfProtection, RefusalsAndAHostWithoutTheComponent) {
  {
    DriverHostFile host(
        R"({"selfProtection": {"lockedKeys": ["kvxwfpk"], "refuseExceptions": 5}})");
    ASSERT_TRUE(host.ok()) << host.error();
    EXPECT_EQ(platform::TheSelfProtection().BeginException(L"netwarden", L"kvxwfpk"), 5u);
    EXPECT_FALSE(platform::TheSelfProtection().LiftServiceKeyLock(L"kvxwfpk"));
  }
  DriverHostFile host("{}");
  ASSERT_TRUE(host.ok()) << host.error();
  platform::SelfProtection& protection = platform::TheSelfProtection();
  EXPECT_EQ(protection.BeginException(L"netwarden", L"kvxwfpk"), 0u);
  EXPECT_FALSE(protection.IsServiceKeyLocked(L"kvxwfpk"));
  EXPECT_FALSE(protection.LiftServiceKeyLock(L"kvxwfpk"));
  protection.EndException(L"netwarden", L"kvxwfpk");
  EXPECT_EQ(host.Saved(), Json::object()) << "a host without the component is not written";
}

constexpr const char* kNetwork = R"({
  "netcfg": {"components": ["ms_tcpip"]}
})";

struct NetSession {
  platform::NetCfg* cfg = nullptr;
  platform::NetCfgLock* lock = nullptr;
};

TEST(EmulatedNetworkConfiguration, ChangesWaitForApplyUnderTheWriteLock) {
  DriverHostFile host(kNetwork);
  ASSERT_TRUE(host.ok()) << host.error();
  platform::NetConfig& com = platform::TheNetConfig();
  platform::NetCfg* cfg = nullptr;
  EXPECT_EQ(com.CreateNetCfg(&cfg), platform::kCoENotInitialized);
  EXPECT_EQ(com.CoInitialize(), platform::kSOk);
  EXPECT_EQ(com.CoInitialize(), platform::kSFalse);
  com.CoUninitialize();
  ASSERT_EQ(com.CreateNetCfg(&cfg), platform::kSOk);
  platform::NetCfgLock* lock = nullptr;
  ASSERT_EQ(cfg->QueryLock(&lock), platform::kSOk);
  wchar_t* holder = nullptr;
  ASSERT_EQ(lock->AcquireWriteLock(5000, L"netwarden", &holder), platform::kSOk);
  EXPECT_EQ(holder, nullptr);
  EXPECT_EQ(host.Saved()["netcfg"]["writeLock"], Json({{"holder", "netwarden"}}));
  platform::NetCfgClassSetup* setup = nullptr;
  EXPECT_EQ(cfg->QueryNetCfgClassSetup(&platform::kGuidDevClassNetService, &setup),
            platform::kNetCfgENotInitialized);
  ASSERT_EQ(cfg->Initialize(nullptr), platform::kSOk);
  EXPECT_EQ(cfg->Initialize(nullptr), platform::kNetCfgEAlreadyInitialized);
  ASSERT_EQ(cfg->QueryNetCfgClassSetup(&platform::kGuidDevClassNetService, &setup), platform::kSOk);
  const platform::OboToken obo = {platform::kOboUser, nullptr, nullptr, nullptr, nullptr, 0};
  EXPECT_EQ(setup->Install(L"kvx_nlfk", &obo, 0, 0, nullptr, nullptr, nullptr), platform::kSOk);
  setup->Release();
  platform::NetCfgComponent* component = nullptr;
  ASSERT_EQ(cfg->FindComponent(L"KVX_NLFK", &component), platform::kSOk) << "ids ignore case";
  Guid classGuid{};
  EXPECT_EQ(component->GetClassGuid(&classGuid), platform::kSOk);
  EXPECT_TRUE(classGuid == platform::kGuidDevClassNetService);
  component->Release();
  EXPECT_EQ(host.Saved()["netcfg"]["components"], Json::array({"ms_tcpip"}))
      << "nothing is committed before Apply";
  EXPECT_EQ(cfg->Apply(), platform::kSOk);
  EXPECT_EQ(host.Saved()["netcfg"]["components"], Json::array({"ms_tcpip", "kvx_nlfk"}));
  EXPECT_EQ(cfg->Uninitialize(), platform::kSOk);
  EXPECT_EQ(lock->ReleaseWriteLock(), platform::kSOk);
  lock->Release();
  cfg->Release();
  EXPECT_FALSE(host.Saved()["netcfg"].contains("writeLock"));
  com.CoUninitialize();
  sim::ReportHostLeaks();
  EXPECT_EQ(host.DebugLog(), "");
}

TEST(EmulatedNetworkConfiguration, ChangesNotAppliedAreDroppedAndLocksAreNeeded) {
  DriverHostFile host(R"({"netcfg": {"components": ["kvx_nlfk"]}})");
  ASSERT_TRUE(host.ok()) << host.error();
  platform::NetConfig& com = platform::TheNetConfig();
  com.CoInitialize();
  platform::NetCfg* cfg = nullptr;
  ASSERT_EQ(com.CreateNetCfg(&cfg), platform::kSOk);
  ASSERT_EQ(cfg->Initialize(nullptr), platform::kSOk);
  platform::NetCfgComponent* component = nullptr;
  ASSERT_EQ(cfg->FindComponent(L"kvx_nlfk", &component), platform::kSOk);
  platform::NetCfgClass* netClass = nullptr;
  ASSERT_EQ(cfg->QueryNetCfgClass(&platform::kGuidDevClassNetService, &netClass), platform::kSOk);
  platform::NetCfgClassSetup* setup = nullptr;
  ASSERT_EQ(netClass->QueryClassSetup(&setup), platform::kSOk);
  const platform::OboToken obo = {platform::kOboUser, nullptr, nullptr, nullptr, nullptr, 0};
  EXPECT_EQ(setup->DeInstall(component, &obo, nullptr), platform::kNetCfgENoWriteLock);
  EXPECT_EQ(cfg->Apply(), platform::kNetCfgENoWriteLock);
  setup->Release();
  netClass->Release();
  component->Release();
  EXPECT_EQ(cfg->Uninitialize(), platform::kSOk);
  EXPECT_EQ(cfg->Uninitialize(), platform::kNetCfgENotInitialized);
  sim::ReportHostLeaks();
  EXPECT_EQ(host.DebugLog(),
            "host: leak: 1 COM initialisation(s) not undone\n"
            "host: leak: 1 network configuration object(s) still referenced\n");
  cfg->Release();
  com.CoUninitialize();
}

TEST(EmulatedNetworkConfiguration, AWriteLockHeldElsewhereNamesItsHolder) {
  const struct {
    const char* json;
    const wchar_t* holder;
  } cases[] = {{R"({"netcfg": {"writeLock": {"holder": "Network Setup"}}})", L"Network Setup"},
               {R"({"netcfg": {"writeLock": {}}})", nullptr}};
  for (const auto& c : cases) {
    DriverHostFile host(c.json);
    ASSERT_TRUE(host.ok()) << host.error();
    platform::NetConfig& com = platform::TheNetConfig();
    com.CoInitialize();
    platform::NetCfg* cfg = nullptr;
    ASSERT_EQ(com.CreateNetCfg(&cfg), platform::kSOk);
    platform::NetCfgLock* lock = nullptr;
    ASSERT_EQ(cfg->QueryLock(&lock), platform::kSOk);
    wchar_t* holder = nullptr;
    EXPECT_EQ(lock->AcquireWriteLock(5000, L"netwarden", &holder), platform::kSFalse);
    EXPECT_EQ(holder != nullptr ? std::wstring(holder) : L"(none)",
              c.holder != nullptr ? c.holder : L"(none)");
    com.CoTaskMemFree(holder);
    lock->Release();
    cfg->Release();
    com.CoUninitialize();
    sim::ReportHostLeaks();
    EXPECT_EQ(host.DebugLog(), "");
  }
}

TEST(EmulatedNetworkConfiguration, ChosenResultsReplaceTheOperations) {
  DriverHostFile host(R"({"netcfg": {"results": {"INetCfgClassSetup::Install": "0x0004A020",
                                                 "INetCfg::Apply": "0x0004A020",
                                                 "INetCfg::FindComponent": "0x80004001"}}})");
  ASSERT_TRUE(host.ok()) << host.error();
  platform::NetConfig& com = platform::TheNetConfig();
  com.CoInitialize();
  platform::NetCfg* cfg = nullptr;
  ASSERT_EQ(com.CreateNetCfg(&cfg), platform::kSOk);
  platform::NetCfgLock* lock = nullptr;
  ASSERT_EQ(cfg->QueryLock(&lock), platform::kSOk);
  wchar_t* holder = nullptr;
  ASSERT_EQ(lock->AcquireWriteLock(5000, L"netwarden", &holder), platform::kSOk);
  ASSERT_EQ(cfg->Initialize(nullptr), platform::kSOk);
  platform::NetCfgClassSetup* setup = nullptr;
  ASSERT_EQ(cfg->QueryNetCfgClassSetup(&platform::kGuidDevClassNetService, &setup), platform::kSOk);
  const platform::OboToken obo = {platform::kOboUser, nullptr, nullptr, nullptr, nullptr, 0};
  EXPECT_EQ(setup->Install(L"kvx_nlfk", &obo, 0, 0, nullptr, nullptr, nullptr),
            platform::kNetCfgSReboot);
  setup->Release();
  platform::NetCfgComponent* component = nullptr;
  EXPECT_EQ(cfg->FindComponent(L"kvx_nlfk", &component), platform::kENotImpl);
  EXPECT_EQ(component, nullptr);
  EXPECT_EQ(cfg->Apply(), platform::kNetCfgSReboot);
  EXPECT_EQ(host.Saved()["netcfg"]["components"], Json::array({"kvx_nlfk"}))
      << "a change that needs a reboot is made all the same";
  cfg->Uninitialize();
  lock->ReleaseWriteLock();
  lock->Release();
  cfg->Release();
  com.CoUninitialize();
}

TEST(EmulatedMutexesAndVersion, AsTheHostFileSays) {
  DriverHostFile host(R"({"mutexes": ["Global\\kvxhidin"],
                          "osVersion": {"major": 6, "minor": 1, "servicePackMajor": 1}})");
  ASSERT_TRUE(host.ok()) << host.error();
  platform::Mutexes& mutexes = platform::TheMutexes();
  uint32_t error = 0;
  platform::SetThreadLastError(0);
  EXPECT_EQ(mutexes.OpenMutex(platform::kSynchronize, L"Global\\KVXHIDIN", &error), nullptr)
      << "object names are case-sensitive";
  EXPECT_EQ(error, 2u);
  EXPECT_EQ(platform::ThreadLastError(), 2u);
  platform::MutexHandle mutex =
      mutexes.OpenMutex(platform::kSynchronize, L"Global\\kvxhidin", &error);
  ASSERT_NE(mutex, nullptr);
  EXPECT_EQ(mutexes.WaitForSingleObject(mutex, platform::kInfinite), platform::kWaitObject0);
  EXPECT_TRUE(mutexes.ReleaseMutex(mutex));
  EXPECT_TRUE(mutexes.CloseHandle(mutex));
  EXPECT_FALSE(mutexes.CloseHandle(mutex));
  platform::OsVersionInfo version;
  ASSERT_TRUE(platform::TheOsVersion().RtlGetVersion(&version));
  EXPECT_EQ(version.major, 6u);
  EXPECT_EQ(version.minor, 1u);
  EXPECT_EQ(version.servicePackMajor, 1u);
  EXPECT_EQ(version.servicePackMinor, 0u);
}

TEST(DriverHostFileErrors, NameThePathAndWhatWasExpected) {
  const struct {
    const char* json;
    const char* error;
  } cases[] = {
      {R"({"services": {"kvxnlfk": {"running": 1}}})",
       "/services/kvxnlfk/running: expected true or false"},
      {R"({"services": {"kvxnlfk": {"state": "up"}}})", "/services/kvxnlfk/state: expected"},
      {R"({"services": {"kvxnlfk": {"refuseStop": -1}}})",
       "/services/kvxnlfk/refuseStop: expected an integer from 0 to 4294967295"},
      {R"({"netcfg": {"results": {"Apply": 1}}})",
       "/netcfg/results/Apply: expected one of the known operations (CoCreateInstance, "},
      {R"({"netcfg": {"components": "kvx_nlfk"}})",
       "/netcfg/components: expected an array of PnP ids"},
      {R"({"netcfg": {"writeLock": {"owner": "x"}}})", "/netcfg/writeLock/owner: expected"},
      {R"({"mutexes": "Global\\kvxhidin"})", "/mutexes: expected an array of mutex names"},
      {R"({"osVersion": {"servicePackMajor": 65536}})",
       "/osVersion/servicePackMajor: expected an integer from 0 to 65535"},
      {R"({"selfProtection": {"lockedKeys": "kvxnlfk"}})",
       "/selfProtection/lockedKeys: expected an array of service names"},
      {R"({"faults": {"DeleteService": 5}})", "/faults/DeleteService: expected one of the known"},
  };
  for (const auto& c : cases) {
    DriverHostFile host(c.json);
    EXPECT_FALSE(host.ok()) << c.json;
    EXPECT_EQ(host.error().rfind(host.file() + ": " + c.error, 0), 0u)
        << host.error() << "\n  for " << c.json;
  }
  DriverHostFile accepted(R"({"faults": {"OpenSCManager": 5, "WaitForSingleObject": 258}})");
  EXPECT_TRUE(accepted.ok()) << accepted.error();
}

}  // namespace
}  // namespace nw
