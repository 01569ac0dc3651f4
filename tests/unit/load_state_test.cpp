// Driver load-state evaluation: every row of the decision table, the version, flag and start-type
// readers, with the policy queries, the driver link and the driver handlers replaced by fakes
// that record what was asked of them.

#include "drivers/load_state.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "cli/handlers.h"
#include "drivers/driver_actions.h"
#include "drivers/service_control.h"
#include "tests/unit/fake_driver_host.h"

namespace nw {
namespace {

using testing::drivers::FakeDriverHost;
using testing::drivers::kComponentKey;
using testing::drivers::kHostBaseKey32;
using testing::drivers::kServicesKey;
using Lines = std::vector<std::string>;

template <class Case>
std::string CaseName(const ::testing::TestParamInfo<Case>& param) {
  std::string name = param.param.what;
  for (auto& ch : name) ch = std::isalnum(static_cast<unsigned char>(ch)) ? ch : '_';
  return name;
}

std::string CaptureConsole(const std::function<void()>& run) {
  ::testing::internal::CaptureStdout();
  run();
  std::fflush(stdout);
  return ::testing::internal::GetCapturedStdout();
}

const std::wstring kWfpKey = std::wstring(kServicesKey) + L"kvxwfpk";
const std::wstring kNdisKey = std::wstring(kServicesKey) + L"kvxnlfk";

/// What the fake steps answer and what they were asked.
struct World {
  Status reevaluation = 1;
  bool driverDisablesWfp = false;  // the kernel driver's own evaluation disables the WFP driver
  bool anyPolicies = false;
  bool packetPolicies = false;
  IPolicyManager* expectedManager = nullptr;
  FakeDriverHost* host = nullptr;
  Lines calls;
};
World* world = nullptr;

const char* LogName(DriverLogFn log) {
  return log == PrintDriverLog ? "print" : log == SilentDriverLog ? "silent" : "other";
}

Status FakeReevaluation() {
  world->calls.push_back("RequestDriverReevaluation");
  if (world->driverDisablesWfp) world->host->registry.SetDword(kWfpKey, L"Start", 4);
  return world->reevaluation;
}
bool FakeHasAny(IPolicyManager* manager) {
  world->calls.push_back(manager == world->expectedManager ? "HasAnyPolicies"
                                                           : "HasAnyPolicies other manager");
  return world->anyPolicies;
}
bool FakeHasPacket(IPolicyManager* manager) {
  world->calls.push_back(manager == world->expectedManager ? "HasPacketPolicies"
                                                           : "HasPacketPolicies other manager");
  return world->packetPolicies;
}
void FakeDisableWfp(DriverLogFn log) {
  world->calls.push_back(std::string("DisableWfpDriver ") + LogName(log));
  world->host->registry.SetDword(kWfpKey, L"Start", 4);
  world->host->registry.SetString(kWfpKey, L"ImagePath",
                                  L"\\SystemRoot\\system32\\drivers\\kvxwfpk.sys",
                                  platform::kRegExpandSz);
}
void FakeEnableNdis(DriverLogFn log) {
  world->calls.push_back(std::string("EnableNdisDriver ") + LogName(log));
  world->host->registry.SetDword(kNdisKey, L"Start", 1);
  world->host->netcfg.components.insert(L"kvx_nlfk");
}
void FakeDisableNdis(DriverLogFn log) {
  world->calls.push_back(std::string("DisableNdisDriver ") + LogName(log));
  world->host->registry.SetDword(kNdisKey, L"Start", 4);
  world->host->netcfg.components.erase(L"kvx_nlfk");
}

constexpr LoadStateSteps kFakeSteps = {FakeReevaluation, FakeHasAny,     FakeHasPacket,
                                       FakeDisableWfp,   FakeEnableNdis, FakeDisableNdis};

/// A prior release that cannot evaluate by itself, both drivers enabled and dynamically
/// loadable, the NDIS filter deployed, and no policies.
void PriorRelease(FakeDriverHost& h, World& w) {
  h.scm.AddService(L"kvxwfpk", 0);
  h.scm.AddService(L"kvxnlfk", 1);
  h.registry.SetString(kWfpKey, L"ImagePath", L"system32\\drivers\\kvxwfpk.sys");
  h.registry.SetString(kHostBaseKey32, L"host_base_version", L"20.11.0.345");
  h.registry.SetDword(kComponentKey, L"dynamicNetworkWFP", 1);
  h.registry.SetDword(kComponentKey, L"dynamicNetworkNDIS", 1);
  h.registry.SetString(kComponentKey, L"PnPID_kvxnlfk", L"kvx_nlfk");
  h.netcfg.components = {L"kvx_nlfk"};
  w.reevaluation = 1;
}

const std::string kVersion2011 = "Deployed version of rtengine is [20.11.0.345]\n";
const std::string kManual =
    "Performing manual re-evaluation of driver load requirements for prior release\n";
const std::string kWfpLine = "No policies present. Disabling kvxwfpk\n";
const std::string kNdisLine = "No packet policies present. Disabling kvxnflk\n";
const std::string kWfpChanged =
    "Driver load states re-evaluated, and the Korvane WFP driver has been disabled.\n";
const std::string kNdisChanged =
    "Driver load states re-evaluated, and the Korvane NDIS driver has been disabled.\n";
const std::string kReboot = "A reboot is required to unload driver(s).\n";
const std::string kNoChange = "No required changes were detected.\n";
const std::string kWfpAdjusted =
    "Adjust WFP image path from [\\SystemRoot\\system32\\drivers\\kvxwfpk.sys] to "
    "[system32\\drivers\\kvxwfpk.sys]\n";
const Lines kBothDisabled = {"RequestDriverReevaluation", "HasAnyPolicies",
                             "DisableWfpDriver print",    "HasPacketPolicies",
                             "EnableNdisDriver print",    "DisableNdisDriver print"};

struct Row {
  const char* what;
  std::function<void(FakeDriverHost&, World&)> setUp;
  std::string console;
  Lines calls;
};

class DecisionTable : public ::testing::TestWithParam<Row> {};

TEST_P(DecisionTable, DisablesOnlyWhatNoPolicyKeeps) {
  const Row& row = GetParam();
  FakeDriverHost host;
  World w;
  w.host = &host;
  world = &w;
  row.setUp(host, w);
  CoreConnection connection;
  connection.policyManager = reinterpret_cast<IPolicyManager*>(&w);
  w.expectedManager = connection.policyManager;
  const std::string console =
      CaptureConsole([&] { DisableUnusedNetDrivers(&connection, kFakeSteps); });
  EXPECT_EQ(console, row.console);
  EXPECT_EQ(w.calls, row.calls);
  EXPECT_EQ(host.Leftovers(), "");
  world = nullptr;
}

const Row kRows[] = {
    Row{"the kernel driver evaluates by itself",
        [](FakeDriverHost& h, World& w) {
          PriorRelease(h, w);
          w.reevaluation = 0;
        },
        kNoChange,
        {"RequestDriverReevaluation"}},
    Row{"the kernel driver disables a driver itself",
        [](FakeDriverHost& h, World& w) {
          PriorRelease(h, w);
          w.reevaluation = 0;
          w.driverDisablesWfp = true;
        },
        kWfpChanged + kReboot,
        {"RequestDriverReevaluation"}},
    Row{"20.11 without policies: both drivers", PriorRelease,
        kVersion2011 + kManual + kWfpLine + kNdisLine + kWfpChanged + kNdisChanged + kReboot +
            kWfpAdjusted,
        kBothDisabled},
    Row{"20.0 is a prior release too",
        [](FakeDriverHost& h, World& w) {
          PriorRelease(h, w);
          h.registry.SetString(kHostBaseKey32, L"host_base_version", L"20.0.0.1");
        },
        "Deployed version of rtengine is [20.0.0.1]\n" + kManual + kWfpLine + kNdisLine +
            kWfpChanged + kNdisChanged + kReboot + kWfpAdjusted,
        kBothDisabled},
    Row{"20.12 is not",
        [](FakeDriverHost& h, World& w) {
          PriorRelease(h, w);
          h.registry.SetString(kHostBaseKey32, L"host_base_version", L"20.12.0.1");
        },
        "Deployed version of rtengine is "
        "[20.12.0.1]\nUnable to evaluate latch state\n" +
            kNoChange,
        {"RequestDriverReevaluation"}},
    Row{"21.0 is not",
        [](FakeDriverHost& h, World& w) {
          PriorRelease(h, w);
          h.registry.SetString(kHostBaseKey32, L"host_base_version", L"21.0.0.0");
        },
        "Deployed version of rtengine is "
        "[21.0.0.0]\nUnable "
        "to evaluate latch state\n" +
            kNoChange,
        {"RequestDriverReevaluation"}},
    Row{"19.11 is not",
        [](FakeDriverHost& h, World& w) {
          PriorRelease(h, w);
          h.registry.SetString(kHostBaseKey32, L"host_base_version", L"19.11.2.3");
        },
        "Deployed version of rtengine is "
        "[19.11.2.3]\nUnable to evaluate latch state\n" +
            kNoChange,
        {"RequestDriverReevaluation"}},
    Row{"no version",
        [](FakeDriverHost& h, World& w) {
          PriorRelease(h, w);
          h.registry.SetDword(kHostBaseKey32, L"host_base_version", 2011);
        },
        "Failed to get HPL version information. Unable to "
        "evaluate latch state\n" +
            kNoChange,
        {"RequestDriverReevaluation"}},
    Row{"any policy keeps the WFP driver",
        [](FakeDriverHost& h, World& w) {
          PriorRelease(h, w);
          w.anyPolicies = true;
        },
        kVersion2011 + kManual + kNdisLine + kNdisChanged + kReboot,
        {"RequestDriverReevaluation", "HasAnyPolicies", "HasPacketPolicies",
         "EnableNdisDriver print", "DisableNdisDriver print"}},
    Row{"a packet policy keeps both",
        [](FakeDriverHost& h, World& w) {
          PriorRelease(h, w);
          w.anyPolicies = true;
          w.packetPolicies = true;
        },
        kVersion2011 + kManual + kNoChange,
        {"RequestDriverReevaluation", "HasAnyPolicies", "HasPacketPolicies"}},
    Row{"a packet policy keeps the NDIS filter alone",
        [](FakeDriverHost& h, World& w) {
          PriorRelease(h, w);
          w.packetPolicies = true;
        },
        kVersion2011 + kManual + kWfpLine + kWfpChanged + kReboot + kWfpAdjusted,
        {"RequestDriverReevaluation", "HasAnyPolicies", "DisableWfpDriver print",
         "HasPacketPolicies"}},
    Row{"no dynamic WFP loading: policies not even asked",
        [](FakeDriverHost& h, World& w) {
          PriorRelease(h, w);
          h.registry.SetDword(kComponentKey, L"dynamicNetworkWFP", 0);
        },
        kVersion2011 + kManual + kNdisLine + kNdisChanged + kReboot,
        {"RequestDriverReevaluation", "HasPacketPolicies", "EnableNdisDriver print",
         "DisableNdisDriver print"}},
    Row{"dynamic WFP loading stored as text",
        [](FakeDriverHost& h, World& w) {
          PriorRelease(h, w);
          h.registry.SetString(kComponentKey, L"dynamicNetworkWFP", L"1");
        },
        kVersion2011 + kManual +
            "Incorret registry value type for "
            "[dynamicNetworkWFP] [0]\n" +
            kNdisLine + kNdisChanged + kReboot,
        {"RequestDriverReevaluation", "HasPacketPolicies", "EnableNdisDriver print",
         "DisableNdisDriver print"}},
    Row{"dynamic NDIS loading not recorded",
        [](FakeDriverHost& h, World& w) {
          PriorRelease(h, w);
          h.registry.Remove(kComponentKey, L"dynamicNetworkNDIS");
        },
        kVersion2011 + kManual + kWfpLine +
            "Unable to verify that the deployed version "
            "of "
            "rtengine supports dynamic network "
            "driver loading [dynamicNetworkNDIS] [2]\n" +
            kWfpChanged + kReboot + kWfpAdjusted,
        {"RequestDriverReevaluation", "HasAnyPolicies", "DisableWfpDriver print"}},
    Row{"no component key: neither flag",
        [](FakeDriverHost& h, World& w) {
          PriorRelease(h, w);
          h.registry.openErrors
              [L"HKLM\\SYSTEM\\CURRENTCONTROLSET\\SERVICES"
               L"\\"
               L"KVXMMS\\SERVICES\\"
               L"KVXFIRE"] = 2;
        },
        kVersion2011 + kManual + "Failed to open kvxfire MMS key [2]\n" +
            "Failed to open kvxfire MMS key [2]\n" + kNoChange,
        {"RequestDriverReevaluation"}},
    Row{"WFP already disabled",
        [](FakeDriverHost& h, World& w) {
          PriorRelease(h, w);
          h.registry.SetDword(kWfpKey, L"Start", 4);
        },
        kVersion2011 + kManual + kNdisLine + kNdisChanged + kReboot,
        {"RequestDriverReevaluation", "HasAnyPolicies", "HasPacketPolicies",
         "EnableNdisDriver print", "DisableNdisDriver print"}},
    Row{"NDIS already disabled but registered: only the "
        "silent removal",
        [](FakeDriverHost& h, World& w) {
          PriorRelease(h, w);
          w.reevaluation = 0;
          h.registry.SetDword(kNdisKey, L"Start", 4);
        },
        kNoChange + "The NDIS driver is disabled but "
                    "registered. Unregistering NDIS "
                    "driver "
                    "(kvxnlfk).\n",
        {"RequestDriverReevaluation", "DisableNdisDriver silent"}},
    Row{"NDIS disabled and not registered",
        [](FakeDriverHost& h, World& w) {
          PriorRelease(h, w);
          w.reevaluation = 0;
          h.registry.SetDword(kNdisKey, L"Start", 4);
          h.netcfg.components.clear();
        },
        kNoChange,
        {"RequestDriverReevaluation"}},
    Row{"start types that cannot be read",
        [](FakeDriverHost& h, World& w) {
          h.registry.SetString(kHostBaseKey32, L"host_base_version", L"20.11");
          h.registry.SetDword(kComponentKey, L"dynamicNetworkWFP", 1);
          h.registry.SetDword(kComponentKey, L"dynamicNetworkNDIS", 1);
          w.anyPolicies = true;
          w.packetPolicies = true;
        },
        "Failed to open service [kvxwfpk] [1060]\nFailed "
        "to "
        "open service [kvxnlfk] [1060]\n"
        "Deployed version of rtengine is [20.11.0.0]\n" +
            kManual +
            "Failed to open service [kvxwfpk] "
            "[1060]\nFailed to open service [kvxnlfk] "
            "[1060]\n" +
            kNoChange,
        {"RequestDriverReevaluation", "HasAnyPolicies", "HasPacketPolicies"}},
    Row{"no service manager",
        [](FakeDriverHost& h, World& w) {
          PriorRelease(h, w);
          w.reevaluation = 0;
          h.scm.openManagerError = 5;
        },
        "Failed to open service control manager [5]\n"
        "Failed to open service control manager [5]\n"
        "Failed to open service control manager [5]\n"
        "Failed to open service control manager [5]\n" +
            kNoChange,
        {"RequestDriverReevaluation"}},
};

INSTANTIATE_TEST_SUITE_P(Rows, DecisionTable, ::testing::ValuesIn(kRows), CaseName<Row>);

struct VersionCase {
  const char* what;
  std::function<void(FakeDriverHost&)> setUp;
  int32_t flags;
  uint32_t result;
  std::vector<uint32_t> parts;
  std::wstring text;
};

class HostBaseVersionRead : public ::testing::TestWithParam<VersionCase> {};

TEST_P(HostBaseVersionRead, ParsesTheStoredText) {
  const VersionCase& c = GetParam();
  FakeDriverHost host;
  c.setUp(host);
  HostBaseVersion version;
  std::memset(&version, 0xA5, sizeof version);
  EXPECT_EQ(ReadHostBaseVersion(c.flags, &version), c.result);
  EXPECT_EQ(std::vector<uint32_t>(version.parts, version.parts + 5), c.parts);
  EXPECT_EQ(std::wstring(version.text), c.text);
  EXPECT_EQ(host.Leftovers(), "");
}

void Stored(FakeDriverHost& h, const std::wstring& text) {
  h.registry.SetString(kHostBaseKey32, L"host_base_version", text);
}

const std::vector<uint32_t> kZero = {0, 0, 0, 0, 0};

const VersionCase kVersionCases[] = {
    VersionCase{"four parts",
                [](FakeDriverHost& h) { Stored(h, L"20.11.0.345"); },
                kVersionIgnoreMutex,
                0,
                {20, 11, 0, 345, 0},
                L"20.11.0.345"},
    VersionCase{"text before the first digit is not kept",
                [](FakeDriverHost& h) { Stored(h, L"v 20.11 (build 7)"); },
                kVersionIgnoreMutex,
                0,
                {20, 11, 7, 0, 0},
                L"20.11 (build 7)"},
    VersionCase{"separators in a row count once",
                [](FakeDriverHost& h) { Stored(h, L"20..11-_3"); },
                kVersionIgnoreMutex,
                0,
                {20, 11, 3, 0, 0},
                L"20..11-_3"},
    VersionCase{"at most five parts",
                [](FakeDriverHost& h) { Stored(h, L"1.2.3.4.5.6.7"); },
                kVersionIgnoreMutex,
                0,
                {1, 2, 3, 4, 5},
                L"1.2.3.4.5.6.7"},
    VersionCase{"the text keeps 29 characters",
                [](FakeDriverHost& h) { Stored(h, L"v1.2" + std::wstring(40, L'a')); },
                kVersionIgnoreMutex,
                0,
                {1, 2, 0, 0, 0},
                L"1.2" + std::wstring(26, L'a')},
    VersionCase{"parts are 32-bit and wrap",
                [](FakeDriverHost& h) { Stored(h, L"4294967296.4294967295"); },
                kVersionIgnoreMutex,
                0,
                {0, 4294967295u, 0, 0, 0},
                L"4294967296.4294967295"},
    VersionCase{"empty", [](FakeDriverHost& h) { Stored(h, L""); }, kVersionIgnoreMutex, 0, kZero,
                L""},
    VersionCase{"99 characters fit",
                [](FakeDriverHost& h) { Stored(h, L"1." + std::wstring(97, L'0')); },
                kVersionIgnoreMutex,
                0,
                {1, 0, 0, 0, 0},
                L"1.000000000000000000000000000"},
    VersionCase{"100 characters do not",
                [](FakeDriverHost& h) { Stored(h, L"1." + std::wstring(98, L'0')); },
                kVersionIgnoreMutex, kErrorBadConfiguration, kZero, L""},
    VersionCase{"no terminator within 100 characters",
                [](FakeDriverHost& h) {
                  const std::wstring text(100, L'7');
                  h.registry.SetRaw(kHostBaseKey32, L"host_base_version", platform::kRegSz,
                                    text.data(), text.size() * sizeof(wchar_t));
                },
                kVersionIgnoreMutex, kErrorBadConfiguration, kZero, L""},
    VersionCase{"not REG_SZ",
                [](FakeDriverHost& h) {
                  h.registry.SetString(kHostBaseKey32, L"host_base_version", L"20.11",
                                       platform::kRegExpandSz);
                },
                kVersionIgnoreMutex, kErrorBadConfiguration, kZero, L""},
    VersionCase{"no value", [](FakeDriverHost& h) { h.registry.AddKey(kHostBaseKey32); },
                kVersionIgnoreMutex, kErrorBadConfiguration, kZero, L""},
    VersionCase{"only in the 64-bit view",
                [](FakeDriverHost& h) {
                  h.registry.SetString(L"HKLM\\SOFTWARE\\Korvane\\HostBase", L"host_base_version",
                                       L"20.11");
                },
                kVersionIgnoreMutex, kErrorFileNotFound, kZero, L""},
    VersionCase{"a key that cannot be opened is reported as missing",
                [](FakeDriverHost& h) {
                  Stored(h, L"20.11");
                  h.registry.openErrors[L"HKLM\\SOFTWARE\\WOW6432NODE\\KORVANE\\HOSTBASE"] = 5;
                },
                kVersionIgnoreMutex, kErrorFileNotFound, kZero, L""},
    VersionCase{"the mutex makes it give up",
                [](FakeDriverHost& h) {
                  Stored(h, L"20.11");
                  h.mutexes.existing = {L"Global\\kvxhidin"};
                },
                0, kErrorBusy, kZero, L""},
    VersionCase{"or wait",
                [](FakeDriverHost& h) {
                  Stored(h, L"20.11");
                  h.mutexes.existing = {L"Global\\kvxhidin"};
                },
                kVersionWaitForMutex,
                0,
                {20, 11, 0, 0, 0},
                L"20.11"},
    VersionCase{"no mutex",
                [](FakeDriverHost& h) { Stored(h, L"20.11"); },
                0,
                0,
                {20, 11, 0, 0, 0},
                L"20.11"},
};

INSTANTIATE_TEST_SUITE_P(Cases, HostBaseVersionRead, ::testing::ValuesIn(kVersionCases),
                         CaseName<VersionCase>);

TEST(HostBaseVersionMutex, EachFlagConsultsTheMutexAsDocumented) {
  const struct {
    int32_t flags;
    bool exists;
    uint32_t wait;
    Lines calls;
  } cases[] = {
      {0, true, 0, {"OpenMutex Global\\kvxhidin 1048576", "CloseHandle"}},
      {1,
       true,
       0,
       {"OpenMutex Global\\kvxhidin 1048576", "WaitForSingleObject 4294967295", "ReleaseMutex",
        "CloseHandle"}},
      {1,
       true,
       platform::kWaitFailed,
       {"OpenMutex Global\\kvxhidin 1048576", "WaitForSingleObject 4294967295", "CloseHandle"}},
      {3, true, 0, {}},
      {2, true, 0, {}},
      {0, false, 0, {"OpenMutex Global\\kvxhidin 1048576"}},
  };
  for (const auto& c : cases) {
    FakeDriverHost host;
    Stored(host, L"1");
    if (c.exists) host.mutexes.existing = {L"Global\\kvxhidin"};
    host.mutexes.waitResult = c.wait;
    HostBaseVersion version;
    ReadHostBaseVersion(c.flags, &version);
    Lines calls;
    for (const auto& call : host.journal.calls) {
      if (call.rfind("RegSetValue", 0) != 0) calls.push_back(call);
    }
    EXPECT_EQ(calls, c.calls) << c.flags << " " << c.exists;
    EXPECT_EQ(host.mutexes.open, 0);
  }
  FakeDriverHost host;
  Stored(host, L"1");
  EXPECT_EQ(ReadHostBaseVersion(kVersionIgnoreMutex, nullptr), kErrorBadConfiguration);
}

TEST(DynamicNetworkFlag, OnlyADwordOfOneAllowsDynamicLoading) {
  const struct {
    const char* what;
    std::function<void(FakeDriverHost&)> setUp;
    bool answer;
    std::string console;
  } cases[] = {
      {"1", [](FakeDriverHost& h) { h.registry.SetDword(kComponentKey, L"F", 1); }, true, ""},
      {"0", [](FakeDriverHost& h) { h.registry.SetDword(kComponentKey, L"F", 0); }, false, ""},
      {"2", [](FakeDriverHost& h) { h.registry.SetDword(kComponentKey, L"F", 2); }, false, ""},
      {"text of one character",
       [](FakeDriverHost& h) { h.registry.SetString(kComponentKey, L"F", L"1"); }, false,
       "Incorret registry value type for [F] [0]\n"},
      {"text of two characters",
       [](FakeDriverHost& h) { h.registry.SetString(kComponentKey, L"F", L"10"); }, false,
       "Unable to verify that the deployed version of rtengine supports dynamic network driver "
       "loading [F] [234]\n"},
      {"four bytes of binary",
       [](FakeDriverHost& h) {
         h.registry.SetRaw(kComponentKey, L"F", platform::kRegBinary, "\1\0\0\0", 4);
       },
       false, "Incorret registry value type for [F] [0]\n"},
      {"five bytes of binary",
       [](FakeDriverHost& h) {
         h.registry.SetRaw(kComponentKey, L"F", platform::kRegBinary, "\1\0\0\0\0", 5);
       },
       false,
       "Unable to verify that the deployed version of rtengine supports dynamic network driver "
       "loading [F] [234]\n"},
      {"missing", [](FakeDriverHost& h) { h.registry.AddKey(kComponentKey); }, false,
       "Unable to verify that the deployed version of rtengine supports dynamic network driver "
       "loading [F] [2]\n"},
      {"no key", [](FakeDriverHost&) {}, false, "Failed to open kvxfire MMS key [2]\n"},
  };
  for (const auto& c : cases) {
    FakeDriverHost host;
    c.setUp(host);
    bool answer = !c.answer;
    EXPECT_EQ(CaptureConsole([&] { answer = ReadDynamicNetworkFlag(L"F"); }), c.console) << c.what;
    EXPECT_EQ(answer, c.answer) << c.what;
    EXPECT_EQ(host.registry.openKeys, 0) << c.what;
  }
}

TEST(ServiceStartType, AsksForTheSizeFirstAndReadsSilently) {
  FakeDriverHost host;
  host.scm.AddService(L"kvxwfpk", 2);
  uint32_t startType = 9;
  EXPECT_TRUE(QueryServiceStartType(L"kvxwfpk", &startType));
  EXPECT_EQ(startType, 2u);
  const std::string needed = std::to_string(sizeof(platform::ServiceConfig) + 40);
  EXPECT_EQ(host.journal.calls,
            (Lines{"OpenSCManager 80000000", "OpenService kvxwfpk 80000000",
                   "QueryServiceConfig kvxwfpk 0", "QueryServiceConfig kvxwfpk " + needed}));
  host.scm.queryError = 5;
  startType = 9;
  EXPECT_EQ(CaptureConsole([&] { EXPECT_FALSE(QueryServiceStartType(L"kvxwfpk", &startType)); }),
            "");
  EXPECT_EQ(startType, 9u);
  EXPECT_EQ(CaptureConsole([&] { EXPECT_FALSE(QueryServiceStartType(L"kvxnlfk", &startType)); }),
            "Failed to open service [kvxnlfk] [1060]\n");
  host.scm.openManagerError = 5;
  EXPECT_EQ(CaptureConsole([&] { EXPECT_FALSE(QueryServiceStartType(L"kvxwfpk", &startType)); }),
            "Failed to open service control manager [5]\n");
  EXPECT_EQ(startType, 9u);
  EXPECT_EQ(host.Leftovers(), "");
}

}  // namespace
}  // namespace nw
