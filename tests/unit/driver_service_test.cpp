// Driver service control: start type and image path through the service control manager, stop
// and start, the WFP image path, the registry helpers, the self-protection steps and the log
// callbacks. Expected lines are the system's documented texts.

#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "drivers/service_control.h"
#include "tests/unit/fake_driver_host.h"

namespace nw {
namespace {

using testing::drivers::FakeDriverHost;
using testing::drivers::RecordLog;
using Lines = std::vector<std::string>;

const std::wstring kNdisKey = std::wstring(testing::drivers::kServicesKey) + L"kvxnlfk";
const std::wstring kWfpKey = std::wstring(testing::drivers::kServicesKey) + L"kvxwfpk";
constexpr const char* kNdisSystemRootPath = "\\SystemRoot\\system32\\drivers\\kvxnlfk.sys";

std::string Narrow(const std::optional<std::wstring>& text) {
  return text ? WideToUtf8(*text) : std::string("(none)");
}

/// A test name made of a case's description.
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

struct StartTypeCase {
  const char* what;
  std::function<void(FakeDriverHost&)> setUp;
  const wchar_t* service;
  uint32_t startType;
  uint32_t result;
  uint32_t previous;
  Lines log;
  /// The calls of the manager and of the self-protection hooks, in order.
  Lines calls;
};

class EnableDisableDriverViaScm : public ::testing::TestWithParam<StartTypeCase> {};

TEST_P(EnableDisableDriverViaScm, LogsChangesAndRestoresTheLock) {
  const StartTypeCase& c = GetParam();
  FakeDriverHost host;
  c.setUp(host);
  uint32_t previous = 12345;
  EXPECT_EQ(EnableDisableDriverViaSCM(c.service, c.startType, &previous, RecordLog), c.result);
  EXPECT_EQ(previous, c.previous);
  EXPECT_EQ(host.log, c.log);
  Lines calls;
  for (const auto& call : host.journal.calls) {
    if (call.rfind("RegSetValue", 0) != 0) calls.push_back(call);
  }
  EXPECT_EQ(calls, c.calls);
  host.protection.exceptions.clear();  // the caller's, held by the test
  EXPECT_EQ(host.Leftovers(), "");
}

const std::string kAttemptNdis4 =
    "EnableDisableDriverViaSCM: Attempting to change start type of service[kvxnlfk] to [4]";
const std::string kOpenNdis = "OpenService kvxnlfk 2";
const std::string kChangeNdis4 =
    std::string("ChangeServiceConfig kvxnlfk 4 ") + kNdisSystemRootPath + " ffffffff ffffffff";

INSTANTIATE_TEST_SUITE_P(
    Cases, EnableDisableDriverViaScm,
    ::testing::Values(
        StartTypeCase{
            "disable",
            [](FakeDriverHost& h) { h.scm.AddService(L"kvxnlfk", 1); },
            L"kvxnlfk",
            4,
            0,
            1,
            {kAttemptNdis4, std::string("Driver image path will be [") + kNdisSystemRootPath + "]"},
            {"IsServiceKeyLocked kvxnlfk", "OpenSCManager f003f", kOpenNdis, kChangeNdis4}},
        StartTypeCase{"boot start takes the relative path",
                      [](FakeDriverHost& h) { h.scm.AddService(L"kvxwfpk", 3); },
                      L"kvxwfpk",
                      0,
                      0,
                      3,
                      {"EnableDisableDriverViaSCM: Attempting to change start type of "
                       "service[kvxwfpk] to [0]",
                       "Driver image path will be [system32\\drivers\\kvxwfpk.sys]"},
                      {"IsServiceKeyLocked kvxwfpk", "OpenSCManager f003f", "OpenService kvxwfpk 2",
                       "ChangeServiceConfig kvxwfpk 0 system32\\drivers\\kvxwfpk.sys ffffffff "
                       "ffffffff"}},
        StartTypeCase{
            "no Start value: nothing to restore later",
            [](FakeDriverHost& h) {
              h.scm.AddService(L"kvxnlfk", 1);
              h.registry.SetString(kNdisKey, L"Start", L"1");  // not a DWORD
            },
            L"kvxnlfk",
            4,
            0,
            0xFFFFFFFF,
            {kAttemptNdis4, std::string("Driver image path will be [") + kNdisSystemRootPath + "]"},
            {"IsServiceKeyLocked kvxnlfk", "OpenSCManager f003f", kOpenNdis, kChangeNdis4}},
        StartTypeCase{"no service key: the thread's last error, and no manager",
                      [](FakeDriverHost&) { platform::SetThreadLastError(1168); },
                      L"kvxnlfk",
                      4,
                      1168,
                      0xFFFFFFFF,
                      {kAttemptNdis4, "Driver (kvxnlfk) failed to open service key [1168]"},
                      {}},
        StartTypeCase{"a key but no service",
                      [](FakeDriverHost& h) { h.registry.SetDword(kNdisKey, L"Start", 3); },
                      L"kvxnlfk",
                      4,
                      1060,
                      3,
                      {kAttemptNdis4, "Failed to open service (kvxnlfk) [1060]"},
                      {"IsServiceKeyLocked kvxnlfk", "OpenSCManager f003f", kOpenNdis}},
        StartTypeCase{"the manager refuses",
                      [](FakeDriverHost& h) {
                        h.scm.AddService(L"kvxnlfk", 1);
                        h.scm.openManagerError = 5;
                      },
                      L"kvxnlfk",
                      4,
                      5,
                      1,
                      {kAttemptNdis4, "Driver [kvxnlfk] failed to open SCM [5]"},
                      {"IsServiceKeyLocked kvxnlfk", "OpenSCManager f003f"}},
        StartTypeCase{
            "the change fails",
            [](FakeDriverHost& h) {
              h.scm.AddService(L"kvxnlfk", 1);
              h.scm.changeErrors[L"KVXNLFK"] = 1072;
            },
            L"kvxnlfk",
            4,
            1072,
            1,
            {kAttemptNdis4, std::string("Driver image path will be [") + kNdisSystemRootPath + "]",
             "Driver (kvxnlfk) failed to configure start of service Error[1072]"},
            {"IsServiceKeyLocked kvxnlfk", "OpenSCManager f003f", kOpenNdis, kChangeNdis4}},
        StartTypeCase{
            "a locked key is lifted and restored",
            [](FakeDriverHost& h) {
              h.scm.AddService(L"kvxnlfk", 1);
              h.protection.locked = {L"KVXNLFK"};
              h.protection.exceptions[L"KVXNLFK"] = 1;
            },
            L"kvxnlfk",
            4,
            0,
            1,
            {kAttemptNdis4, std::string("Driver image path will be [") + kNdisSystemRootPath + "]",
             "Restore lockdown of (kvxnlfk)"},
            {"IsServiceKeyLocked kvxnlfk", "LiftServiceKeyLock kvxnlfk", "OpenSCManager f003f",
             kOpenNdis, kChangeNdis4, "RestoreServiceKeyLock kvxnlfk"}},
        StartTypeCase{
            "a lock that cannot be lifted refuses the change",
            [](FakeDriverHost& h) {
              h.scm.AddService(L"kvxnlfk", 1);
              h.protection.locked = {L"KVXNLFK"};
            },
            L"kvxnlfk",
            4,
            5,
            1,
            {kAttemptNdis4, std::string("Driver image path will be [") + kNdisSystemRootPath + "]",
             "Driver (kvxnlfk) failed to configure start of service Error[5]"},
            {"IsServiceKeyLocked kvxnlfk", "LiftServiceKeyLock kvxnlfk", "OpenSCManager f003f",
             kOpenNdis, kChangeNdis4}},
        StartTypeCase{"a lifted lock is restored after a failure",
                      [](FakeDriverHost& h) {
                        h.scm.AddService(L"kvxnlfk", 1);
                        h.protection.locked = {L"KVXNLFK"};
                        h.protection.exceptions[L"KVXNLFK"] = 1;
                        h.scm.openManagerError = 1115;
                      },
                      L"kvxnlfk",
                      4,
                      1115,
                      1,
                      {kAttemptNdis4, "Driver [kvxnlfk] failed to open SCM [1115]",
                       "Restore lockdown of (kvxnlfk)"},
                      {"IsServiceKeyLocked kvxnlfk", "LiftServiceKeyLock kvxnlfk",
                       "OpenSCManager f003f", "RestoreServiceKeyLock kvxnlfk"}}),
    CaseName<StartTypeCase>);

TEST(EnableDisableDriverViaScmWrites, StartTypeAndImagePathReachTheService) {
  FakeDriverHost host;
  host.scm.AddService(L"kvxnlfk", 4);
  uint32_t previous = 0;
  ASSERT_EQ(EnableDisableDriverViaSCM(L"kvxnlfk", 1, &previous, RecordLog), 0u);
  EXPECT_EQ(host.registry.Dword(kNdisKey, L"Start"), 1u);
  EXPECT_EQ(Narrow(host.registry.String(kNdisKey, L"ImagePath")), kNdisSystemRootPath);
}

struct StopStartCase {
  const char* what;
  std::function<void(FakeDriverHost&)> setUp;
  bool stop;
  uint32_t result;
  Lines log;
  Lines calls;
  bool runningAfter;
};

class StopOrStart : public ::testing::TestWithParam<StopStartCase> {};

TEST_P(StopOrStart, SendsTheControlAndKeepsTheLock) {
  const StopStartCase& c = GetParam();
  FakeDriverHost host;
  c.setUp(host);
  EXPECT_EQ(StopOrStartService(L"kvxnlfk", c.stop, RecordLog), c.result);
  EXPECT_EQ(host.log, c.log);
  EXPECT_EQ(host.journal.calls, c.calls);
  EXPECT_EQ(host.scm.Running(L"kvxnlfk"), c.runningAfter);
  host.protection.exceptions.clear();  // the caller's, held by the test
  EXPECT_EQ(host.Leftovers(), "");
}

const std::string kStopping = "IGStopDriver::StopOrStartService - Stopping service (kvxnlfk)";
const std::string kStarting = "IGStopDriver::StopOrStartService - Starting service (kvxnlfk)";
const Lines kStopCalls = {"IsServiceKeyLocked kvxnlfk", "LiftServiceKeyLock kvxnlfk",
                          "OpenSCManager a0000000", "OpenService kvxnlfk 30",
                          "ControlService kvxnlfk 1"};

INSTANTIATE_TEST_SUITE_P(
    Cases, StopOrStart,
    ::testing::Values(
        StopStartCase{"stop",
                      [](FakeDriverHost& h) { h.scm.AddService(L"kvxnlfk", 1, true); },
                      true,
                      0,
                      {kStopping, "IGStopDriver::StopOrStartService - Sent stop to (kvxnlfk)"},
                      kStopCalls,
                      false},
        StopStartCase{"stop refused because not running",
                      [](FakeDriverHost& h) { h.scm.AddService(L"kvxnlfk", 1, false); },
                      true,
                      1062,
                      {kStopping,
                       "IGStopDriver::StopOrStartService - Failed to send stop to (kvxnlfk) "
                       "[1062]"},
                      kStopCalls,
                      false},
        StopStartCase{
            "an unknown service gets a null handle",
            [](FakeDriverHost&) {},
            true,
            6,
            {kStopping, "IGStopDriver::StopOrStartService - Failed to send stop to (kvxnlfk) [6]"},
            {"IsServiceKeyLocked kvxnlfk", "LiftServiceKeyLock kvxnlfk", "OpenSCManager a0000000",
             "OpenService kvxnlfk 30", "ControlService (null) 1"},
            false},
        StopStartCase{
            "a locked service is stopped under a lifted lock",
            [](FakeDriverHost& h) {
              h.scm.AddService(L"kvxnlfk", 1, true);
              h.protection.locked = {L"KVXNLFK"};
              h.protection.exceptions[L"KVXNLFK"] = 1;
            },
            true,
            0,
            {kStopping, "IGStopDriver::StopOrStartService - Sent stop to (kvxnlfk)",
             "IGStopDriver::StopOrStartService - Restore lockdown of (kvxnlfk)"},
            {"IsServiceKeyLocked kvxnlfk", "LiftServiceKeyLock kvxnlfk", "OpenSCManager a0000000",
             "OpenService kvxnlfk 30", "ControlService kvxnlfk 1", "RestoreServiceKeyLock kvxnlfk"},
            false},
        StopStartCase{"no manager: the stop wording serves a start too",
                      [](FakeDriverHost& h) {
                        h.scm.AddService(L"kvxnlfk", 1, false);
                        h.scm.openManagerError = 5;
                      },
                      false,
                      5,
                      {kStarting,
                       "IGStopDriver::StopOrStartService - Failed to open SCM to send stop to "
                       "(kvxnlfk) [5]"},
                      {"OpenSCManager a0000000"},
                      false},
        StopStartCase{"start",
                      [](FakeDriverHost& h) { h.scm.AddService(L"kvxnlfk", 1, false); },
                      false,
                      0,
                      {kStarting},
                      {"OpenSCManager a0000000", "OpenService kvxnlfk 30", "StartService kvxnlfk"},
                      true},
        StopStartCase{"a start that fails still answers 0",
                      [](FakeDriverHost& h) {
                        h.scm.AddService(L"kvxnlfk", 4, false);
                        h.scm.startErrors[L"KVXNLFK"] = 1058;
                      },
                      false,
                      0,
                      {kStarting},
                      {"OpenSCManager a0000000", "OpenService kvxnlfk 30", "StartService kvxnlfk"},
                      false}),
    CaseName<StopStartCase>);

struct ImagePathCase {
  const char* what;
  std::function<void(FakeDriverHost&)> setUp;
  uint32_t result;
  Lines log;
  std::string after;  // ImagePath afterwards
  uint32_t typeAfter;
};

class AdjustWfpImagePathTest : public ::testing::TestWithParam<ImagePathCase> {};

TEST_P(AdjustWfpImagePathTest, RewritesOnlyADifferentPath) {
  const ImagePathCase& c = GetParam();
  FakeDriverHost host;
  c.setUp(host);
  EXPECT_EQ(AdjustWfpImagePath(RecordLog), c.result);
  EXPECT_EQ(host.log, c.log);
  uint32_t type = 0;
  EXPECT_EQ(Narrow(host.registry.String(kWfpKey, L"ImagePath", &type)), c.after);
  EXPECT_EQ(type, c.typeAfter);
  // The exception is held around the whole operation; the lock itself is not lifted here.
  EXPECT_EQ(host.journal.Matching("BeginException"), Lines{"BeginException netwarden kvxwfpk"});
  EXPECT_EQ(host.journal.Matching("EndException"), Lines{"EndException netwarden kvxwfpk"});
  EXPECT_TRUE(host.journal.Matching("LiftServiceKeyLock").empty());
  EXPECT_EQ(host.Leftovers(), "");
}

constexpr const char* kWfpRelative = "system32\\drivers\\kvxwfpk.sys";

INSTANTIATE_TEST_SUITE_P(
    Cases, AdjustWfpImagePathTest,
    ::testing::Values(
        ImagePathCase{"the same path in other letter case is kept",
                      [](FakeDriverHost& h) {
                        h.registry.SetString(kWfpKey, L"ImagePath",
                                             L"System32\\DRIVERS\\KvxWfpk.SYS",
                                             platform::kRegExpandSz);
                      },
                      0,
                      {},
                      "System32\\DRIVERS\\KvxWfpk.SYS",
                      platform::kRegExpandSz},
        ImagePathCase{"the SystemRoot form is rewritten as REG_SZ",
                      [](FakeDriverHost& h) {
                        h.registry.SetString(kWfpKey, L"ImagePath",
                                             L"\\SystemRoot\\system32\\drivers\\kvxwfpk.sys",
                                             platform::kRegExpandSz);
                      },
                      0,
                      {"Adjust WFP image path from [\\SystemRoot\\system32\\drivers\\kvxwfpk.sys] "
                       "to [system32\\drivers\\kvxwfpk.sys]"},
                      kWfpRelative,
                      platform::kRegSz},
        ImagePathCase{"other separators are not the same path",
                      [](FakeDriverHost& h) {
                        h.registry.SetString(kWfpKey, L"ImagePath",
                                             L"system32/drivers/kvxwfpk.sys");
                      },
                      0,
                      {"Adjust WFP image path from [system32/drivers/kvxwfpk.sys] to "
                       "[system32\\drivers\\kvxwfpk.sys]"},
                      kWfpRelative,
                      platform::kRegSz},
        ImagePathCase{"no key: silent", [](FakeDriverHost&) {}, 0, {}, "(none)", 0},
        ImagePathCase{"no value: silent",
                      [](FakeDriverHost& h) { h.registry.SetDword(kWfpKey, L"Start", 0); },
                      0,
                      {},
                      "(none)",
                      0},
        ImagePathCase{"a value of another type: silent",
                      [](FakeDriverHost& h) {
                        h.registry.SetString(kWfpKey, L"ImagePath", L"x.sys",
                                             platform::kRegMultiSz);
                      },
                      0,
                      {},
                      "x.sys",
                      platform::kRegMultiSz},
        ImagePathCase{"a locked key refuses the write",
                      [](FakeDriverHost& h) {
                        h.registry.SetString(kWfpKey, L"ImagePath", L"drivers\\kvxwfpk.sys");
                        h.protection.locked = {L"KVXWFPK"};
                        h.protection.exceptions[L"KVXWFPK"] = 0;
                      },
                      5,
                      {"Failed to adjust WFP image path from [drivers\\kvxwfpk.sys] to "
                       "[system32\\drivers\\kvxwfpk.sys] [5]"},
                      "drivers\\kvxwfpk.sys",
                      platform::kRegSz}),
    CaseName<ImagePathCase>);

TEST(AdjustWfpImagePathLog, WithoutACallbackPrintsTheLine) {
  FakeDriverHost host;
  host.registry.SetString(kWfpKey, L"ImagePath", L"x.sys");
  const std::string console = CaptureConsole([] { EXPECT_EQ(AdjustWfpImagePath(), 0u); });
  EXPECT_EQ(console, "Adjust WFP image path from [x.sys] to [system32\\drivers\\kvxwfpk.sys]\n");
}

TEST(ServiceKeyTest, WalksThePathAndReportsOnlyAFailedWriteOpen) {
  FakeDriverHost host;
  host.registry.SetDword(kNdisKey, L"Start", 1);
  {
    ServiceKey key(L"kvxnlfk", kServiceKeyWrite);
    EXPECT_TRUE(key.IsOpen());
    // SYSTEM, CurrentControlSet, Services, the service: one key at a time, each closed again.
    EXPECT_EQ(host.registry.openAccess, std::vector<uint32_t>(4, 0x2001F));
    EXPECT_EQ(host.registry.openKeys, 1);
  }
  EXPECT_EQ(host.registry.openKeys, 0);

  host.registry.openErrors[L"HKLM\\SYSTEM\\CURRENTCONTROLSET"] = 1018;
  platform::SetThreadLastError(77);
  EXPECT_FALSE(ServiceKey(L"kvxnlfk", kServiceKeyRead).IsOpen());
  EXPECT_EQ(platform::ThreadLastError(), 77u);
  EXPECT_FALSE(ServiceKey(L"kvxnlfk", kServiceKeyWrite).IsOpen());
  EXPECT_EQ(platform::ThreadLastError(), 1018u);
  EXPECT_EQ(host.registry.openKeys, 0);

  host.registry.openErrors.clear();
  host.registry.SetString(testing::drivers::kComponentKey, L"PnPID_kvxnlfk", L"id");
  ServiceKey component = ServiceKey::ForComponent(L"kvxfire");
  wchar_t text[8];
  EXPECT_TRUE(ReadRegistryString(component, L"PnPID_kvxnlfk", text, 8));
  EXPECT_EQ(std::wstring(text), L"id");
}

struct StringReadCase {
  const char* what;
  uint32_t type;
  std::wstring stored;
  bool terminated;  // whether the stored data carries its terminator
  uint32_t capacity;
  bool ok;
  std::wstring read;
};

TEST(RegistryHelpers, ReadRegistryStringAcceptsTextThatFits) {
  const StringReadCase cases[] = {
      {"REG_SZ", platform::kRegSz, L"abc", true, 8, true, L"abc"},
      {"REG_EXPAND_SZ", platform::kRegExpandSz, L"%x%", true, 8, true, L"%x%"},
      {"exactly fills with its terminator", platform::kRegSz, L"abcd", true, 5, true, L"abcd"},
      {"one character too long", platform::kRegSz, L"abcde", true, 5, false, L""},
      {"unterminated is cut at its length", platform::kRegSz, L"abc", false, 8, true, L"abc"},
      {"unterminated filling the buffer loses its last character", platform::kRegSz, L"abcd", false,
       4, true, L"abc"},
      {"binary", platform::kRegBinary, L"ab", true, 8, false, L""},
      {"multi-string", platform::kRegMultiSz, L"ab", true, 8, false, L""},
  };
  for (const auto& c : cases) {
    FakeDriverHost host;
    host.registry.SetRaw(kNdisKey, L"V", c.type, c.stored.c_str(),
                         (c.stored.size() + (c.terminated ? 1 : 0)) * sizeof(wchar_t));
    std::vector<wchar_t> buffer(c.capacity, L'#');
    EXPECT_EQ(ReadRegistryString(ServiceKey(L"kvxnlfk", kServiceKeyRead), L"V", buffer.data(),
                                 c.capacity),
              c.ok)
        << c.what;
    if (c.ok) {
      EXPECT_EQ(std::wstring(buffer.data()), c.read) << c.what;
    }
  }
}

TEST(RegistryHelpers, ReadRegistryDwordWantsFourBytesOfDword) {
  const struct {
    const char* what;
    uint32_t type;
    size_t size;
    bool ok;
  } cases[] = {{"DWORD", platform::kRegDword, 4, true},
               {"binary of four bytes", platform::kRegBinary, 4, false},
               {"DWORD of two bytes", platform::kRegDword, 2, false},
               {"DWORD of eight bytes", platform::kRegDword, 8, false}};
  for (const auto& c : cases) {
    FakeDriverHost host;
    const uint8_t bytes[8] = {7, 0, 0, 0, 0, 0, 0, 0};
    host.registry.SetRaw(kNdisKey, L"V", c.type, bytes, c.size);
    uint32_t value = 99;
    EXPECT_EQ(ReadRegistryDword(ServiceKey(L"kvxnlfk", kServiceKeyRead), L"V", &value), c.ok)
        << c.what;
    EXPECT_EQ(value, c.ok ? 7u : 99u) << c.what;
  }
  FakeDriverHost host;
  uint32_t value = 99;
  EXPECT_FALSE(ReadRegistryDword(ServiceKey(L"kvxnlfk", kServiceKeyRead), L"V", &value));
}

TEST(RegistryHelpers, WriteRegistryStringWritesRegSzAndReportsFailure) {
  FakeDriverHost host;
  host.registry.AddKey(kNdisKey);
  ServiceKey key(L"kvxnlfk", kServiceKeyWrite);
  ASSERT_TRUE(WriteRegistryString(key, L"V", L"text"));
  const auto* value = host.registry.Find(kNdisKey, L"V");
  ASSERT_NE(value, nullptr);
  EXPECT_EQ(value->type, platform::kRegSz);
  EXPECT_EQ(value->data.size(), 5 * sizeof(wchar_t));  // characters and the terminator
  host.registry.setError = 1021;
  platform::SetThreadLastError(0);
  EXPECT_FALSE(WriteRegistryString(key, L"V", L"other"));
  EXPECT_EQ(platform::ThreadLastError(), 1021u);
}

TEST(DriverLog, PrintDriverLogEndsEveryLineAndNeverCuts) {
  const std::string long_text(1000, 'x');
  const std::string console = CaptureConsole([&] {
    PrintDriverLog("wide %S and %ls, narrow %hs, %d, %x", L"kvxnlfk", L"\u00e9\u20ac", "n", -2,
                   255u);
    PrintDriverLog("%hs", long_text.c_str());
    PrintDriverLog("ends in a break\n");
    PrintDriverLog(nullptr);
    SilentDriverLog("silent %d", 1);
  });
  // Wide text becomes the console's bytes: one byte up to U+00FF, a '?' beyond.
  EXPECT_EQ(console,
            "wide kvxnlfk and \xE9?, narrow n, -2, ff\n" + long_text + "\nends in a break\n\n");
}

TEST(SelfProtectionExceptionTest, HeldOnceAndRefusalReported) {
  FakeDriverHost host;
  {
    SelfProtectionException exception(L"netwarden", L"kvxnlfk", RecordLog);
    EXPECT_EQ(exception.result(), 0u);
    exception.End();
    exception.End();
  }
  EXPECT_EQ(host.journal.calls,
            (Lines{"BeginException netwarden kvxnlfk", "EndException netwarden kvxnlfk"}));
  EXPECT_TRUE(host.log.empty());

  host.journal.calls.clear();
  host.protection.refuseExceptions = 5;
  {
    SelfProtectionException exception(L"netwarden", L"kvxwfpk", RecordLog);
    EXPECT_EQ(exception.result(), 5u);
  }
  EXPECT_EQ(host.journal.calls, Lines{"BeginException netwarden kvxwfpk"});
  EXPECT_EQ(host.log, Lines{"SelfProtectionException: netwarden was refused an exception for "
                            "(kvxwfpk) [5]"});
}

TEST(DriverImagePath, BootStartIsRelativeEveryOtherStartTypeIsUnderSystemRoot) {
  wchar_t path[kImagePathChars];
  for (uint32_t startType : {1u, 2u, 3u, 4u, 0xFFFFFFFFu}) {
    ASSERT_TRUE(BuildDriverImagePath(L"kvxnlfk", startType, path, kImagePathChars));
    EXPECT_EQ(std::wstring(path), L"\\SystemRoot\\system32\\drivers\\kvxnlfk.sys") << startType;
  }
  ASSERT_TRUE(BuildDriverImagePath(L"kvxnlfk", 0, path, kImagePathChars));
  EXPECT_EQ(std::wstring(path), L"system32\\drivers\\kvxnlfk.sys");
  EXPECT_FALSE(BuildDriverImagePath(std::wstring(300, L'n').c_str(), 1, path, kImagePathChars));
}

}  // namespace
}  // namespace nw
