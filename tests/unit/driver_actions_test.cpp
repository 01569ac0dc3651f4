// Driver actions: the growable action arrays, the action list's run and undo order, the action
// classes, and the four handlers against recording host fakes, including that no path leaves a
// lifted lock, a held exception or an open COM apartment behind.

#include "drivers/driver_actions.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "cli/handlers.h"
#include "drivers/service_control.h"
#include "tests/unit/fake_driver_host.h"

namespace nw {
namespace {

using testing::drivers::FakeDriverHost;
using testing::drivers::kComponentKey;
using testing::drivers::kServicesKey;
using testing::drivers::RecordLog;
using Lines = std::vector<std::string>;

template <class Case>
std::string CaseName(const ::testing::TestParamInfo<Case>& param) {
  std::string name = param.param.what;
  for (auto& ch : name) ch = std::isalnum(static_cast<unsigned char>(ch)) ? ch : '_';
  return name;
}

// ---- The arrays and the list ----------------------------------------------------------------

/// Fails every allocation from the failAt-th on (counting from 1); 0 never fails.
int allocations = 0;
int failAt = 0;
void* CountingAllocate(size_t bytes) {
  ++allocations;
  return failAt != 0 && allocations >= failAt ? nullptr : std::malloc(bytes);
}

class AllocatorScope {
 public:
  explicit AllocatorScope(int failFrom) {
    allocations = 0;
    failAt = failFrom;
    ActionArray::allocate = CountingAllocate;
  }
  ~AllocatorScope() { ActionArray::allocate = std::malloc; }
  AllocatorScope(const AllocatorScope&) = delete;
  AllocatorScope& operator=(const AllocatorScope&) = delete;
};

IGAction* Fake(uintptr_t n) { return reinterpret_cast<IGAction*>(n * 8 + 8); }

TEST(ActionArrayTest, DoublesFromFourAndKeepsItsEntries) {
  ActionArray array;
  const struct {
    uint32_t count;
    uint32_t capacity;
  } steps[] = {{1, 4}, {4, 4}, {5, 8}, {8, 8}, {9, 16}, {17, 32}};
  uint32_t appended = 0;
  for (const auto& step : steps) {
    while (appended < step.count) ASSERT_EQ(array.Append(Fake(appended++)), 0u);
    EXPECT_EQ(array.count(), step.count);
    EXPECT_EQ(array.capacity(), step.capacity);
  }
  for (uint32_t i = 0; i < array.count(); ++i) EXPECT_EQ(array[i], Fake(i));
}

TEST(ActionArrayTest, GrowingBeyondSixteenMebibytesIsError8) {
  ActionArray array;
  const uint32_t most = static_cast<uint32_t>(kMaxActionArrayBytes / sizeof(IGAction*));
  for (uint32_t i = 0; i < most; ++i) ASSERT_EQ(array.Append(Fake(i)), 0u) << i;
  EXPECT_EQ(array.capacity(), most);
  EXPECT_EQ(array.Append(Fake(most)), kErrorNotEnoughMemory);
  EXPECT_EQ(array.count(), most);
  EXPECT_EQ(array[most - 1], Fake(most - 1));
}

TEST(ActionArrayTest, AFailedAllocationIsError8AndChangesNothing) {
  AllocatorScope failing(2);  // the first growth works, the second does not
  ActionArray array;
  for (uintptr_t i = 0; i < 4; ++i) ASSERT_EQ(array.Append(Fake(i)), 0u);
  EXPECT_EQ(array.Append(Fake(4)), kErrorNotEnoughMemory);
  EXPECT_EQ(array.count(), 4u);
  EXPECT_EQ(array.capacity(), 4u);
  EXPECT_EQ(array[3], Fake(3));
}

/// An action that records what is done to it.
class Step final : public IGAction {
 public:
  Step(std::string name, Lines* record, uint32_t doResult = 0, uint32_t undoResult = 0)
      : name_(std::move(name)), record_(record), do_(doResult), undo_(undoResult) {}
  ~Step() override { record_->push_back("delete " + name_); }
  uint32_t doAction() override {
    record_->push_back("do " + name_);
    return do_;
  }
  uint32_t undoAction() override {
    record_->push_back("undo " + name_);
    return undo_;
  }
  uint32_t commitAction() override {
    record_->push_back("commit " + name_);
    return 0;
  }
  uint32_t abortAction() override {
    record_->push_back("abort " + name_);
    return 0;
  }

 private:
  std::string name_;
  Lines* record_;
  uint32_t do_;
  uint32_t undo_;
};

/// A list that records its own commit and abort.
class RecordingList final : public IGActionList {
 public:
  explicit RecordingList(Lines* record) : record_(record) {}
  ~RecordingList() override { record_->push_back("delete list"); }
  uint32_t undoAction() override {
    undoResult = IGActionList::undoAction();
    record_->push_back("list undone " + std::to_string(undoResult));
    return undoResult;
  }
  uint32_t commitAction() override {
    record_->push_back("commit list");
    return IGActionList::commitAction();
  }
  uint32_t abortAction() override {
    record_->push_back("abort list");
    return IGActionList::abortAction();
  }
  uint32_t undoResult = 0;

 private:
  Lines* record_;
};

struct ListCase {
  const char* what;
  std::vector<std::pair<uint32_t, uint32_t>> steps;  // do and undo results of a, b, c, ...
  Lines expected;
};

class ActionListRun : public ::testing::TestWithParam<ListCase> {};

TEST_P(ActionListRun, RunsInOrderAndUndoesInReverse) {
  const ListCase& c = GetParam();
  Lines record;
  auto* list = new RecordingList(&record);
  for (size_t i = 0; i < c.steps.size(); ++i) {
    ASSERT_EQ(list->Add(new Step(std::string(1, static_cast<char>('a' + i)), &record,
                                 c.steps[i].first, c.steps[i].second)),
              0u);
  }
  RunActionList(list);
  EXPECT_EQ(record, c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, ActionListRun,
    ::testing::Values(
        ListCase{"all succeed",
                 {{0, 0}, {0, 0}, {0, 0}},
                 {"do a", "do b", "do c", "commit list", "delete list", "delete a", "delete b",
                  "delete c"}},
        ListCase{"the failing step is not undone and later ones do not run",
                 {{0, 0}, {5, 0}, {0, 0}},
                 {"do a", "do b", "undo a", "list undone 0", "abort list", "delete list",
                  "delete a", "delete b", "delete c"}},
        ListCase{"undo runs last first",
                 {{0, 0}, {0, 0}, {0, 0}, {87, 0}},
                 {"do a", "do b", "do c", "do d", "undo c", "undo b", "undo a", "list undone 0",
                  "abort list", "delete list", "delete a", "delete b", "delete c", "delete d"}},
        ListCase{"a failing undo skips none and the first failure met is reported",
                 {{0, 3}, {0, 7}, {0, 5}, {2, 0}},
                 {"do a", "do b", "do c", "do d", "undo c", "undo b", "undo a", "list undone 5",
                  "abort list", "delete list", "delete a", "delete b", "delete c", "delete d"}},
        ListCase{"the first step fails: nothing to undo",
                 {{1060, 0}, {0, 0}},
                 {"do a", "list undone 0", "abort list", "delete list", "delete a", "delete b"}}),
    CaseName<ListCase>);

TEST(ActionListTest, DoReturnsTheFailingResult) {
  Lines record;
  IGActionList list;
  list.Add(new Step("a", &record, 0));
  list.Add(new Step("b", &record, 1062));
  EXPECT_EQ(list.doAction(), 1062u);
  EXPECT_EQ(list.completed().count(), 1u);
  EXPECT_EQ(list.actions().count(), 2u);
}

TEST(ActionListTest, AStepThatCannotBeRecordedStopsTheRunAndIsNotUndone) {
  Lines record;
  auto* list = new RecordingList(&record);
  {
    // The list's own array takes the first allocation; recording the first success needs the
    // second.
    AllocatorScope failing(2);
    list->Add(new Step("a", &record));
    list->Add(new Step("b", &record));
    EXPECT_EQ(list->doAction(), kErrorNotEnoughMemory);
  }
  EXPECT_EQ(list->undoAction(), 0u);
  delete list;
  EXPECT_EQ(record, (Lines{"do a", "list undone 0", "delete list", "delete a", "delete b"}));
}

TEST(ActionListTest, AddRefusesNullAndDestroysWhatItCannotHold) {
  Lines record;
  IGActionList list;
  EXPECT_EQ(list.Add(nullptr), kErrorNotEnoughMemory);
  AllocatorScope failing(1);
  EXPECT_EQ(list.Add(new Step("a", &record)), kErrorNotEnoughMemory);
  EXPECT_EQ(record, Lines{"delete a"});
  EXPECT_EQ(list.actions().count(), 0u);
}

// ---- The action classes ---------------------------------------------------------------------

const std::wstring kNdisKey = std::wstring(kServicesKey) + L"kvxnlfk";

TEST(StartTypeActions, UndoPutsBackWhatWasFoundAndAlwaysSucceeds) {
  FakeDriverHost host;
  host.scm.AddService(L"kvxnlfk", 3);
  IGEnableDriver enable(L"kvxnlfk", 1, RecordLog);
  EXPECT_FALSE(enable.hasPreviousStartType());
  EXPECT_EQ(enable.doAction(), 0u);
  EXPECT_EQ(enable.previousStartType(), 3u);
  EXPECT_TRUE(enable.hasPreviousStartType());
  EXPECT_EQ(host.registry.Dword(kNdisKey, L"Start"), 1u);
  host.scm.changeErrors[L"KVXNLFK"] = 1072;
  EXPECT_EQ(enable.undoAction(), 0u);
  host.scm.changeErrors.clear();
  EXPECT_EQ(enable.undoAction(), 0u);
  EXPECT_EQ(host.registry.Dword(kNdisKey, L"Start"), 3u);
  // The undo's own reading of the start type does not replace the one kept.
  EXPECT_EQ(enable.previousStartType(), 3u);
  EXPECT_EQ(host.log,
            (Lines{"EnableDisableDriverViaSCM: Attempting to change start type of "
                   "service[kvxnlfk] to [1]",
                   "Driver image path will be [\\SystemRoot\\system32\\drivers\\kvxnlfk.sys]",
                   "IGEnableDriver::doAction for service [kvxnlfk] result is [0]",
                   "EnableDisableDriverViaSCM: Attempting to change start type of "
                   "service[kvxnlfk] to [3]",
                   "Driver image path will be [\\SystemRoot\\system32\\drivers\\kvxnlfk.sys]",
                   "Driver (kvxnlfk) failed to configure start of service Error[1072]",
                   "IGEnableDriver::undoAction (kvxnlfk) attempted with result of [1072]",
                   "EnableDisableDriverViaSCM: Attempting to change start type of "
                   "service[kvxnlfk] to [3]",
                   "Driver image path will be [\\SystemRoot\\system32\\drivers\\kvxnlfk.sys]",
                   "IGEnableDriver::undoAction (kvxnlfk) attempted with result of [0]"}));
}

TEST(StartTypeActions, WithoutAPreviousStartTypeTheUndoDoesNothing) {
  FakeDriverHost host;
  IGDisableDriver disable(L"kvxnlfk", RecordLog);
  platform::SetThreadLastError(0);
  EXPECT_EQ(disable.doAction(), 0u);  // no key: the stale last error, 0
  EXPECT_FALSE(disable.hasPreviousStartType());
  host.log.clear();
  EXPECT_EQ(disable.undoAction(), 0u);
  EXPECT_TRUE(host.log.empty());
}

TEST(StartTypeActions, DisableSetsFourUnderItsOwnName) {
  FakeDriverHost host;
  host.scm.AddService(L"kvxnlfk", 1);
  IGDisableDriver disable(L"kvxnlfk", RecordLog);
  EXPECT_EQ(disable.doAction(), 0u);
  EXPECT_EQ(disable.undoAction(), 0u);
  EXPECT_EQ(
      host.log[0],
      "EnableDisableDriverViaSCM: Attempting to change start type of service[kvxnlfk] to [4]");
  EXPECT_EQ(host.log[2], "IGDisableDriver::doAction for service [kvxnlfk] result is [0]");
  EXPECT_EQ(host.log[5], "IGDisableDriver::undoAction (kvxnlfk) attempted with result of [0]");
  EXPECT_EQ(host.registry.Dword(kNdisKey, L"Start"), 1u);
}

TEST(OtherActions, StopUndoesByStartingAndComponentsSwapInstallAndRemoval) {
  FakeDriverHost host;
  host.scm.AddService(L"kvxnlfk", 1, true);
  host.registry.SetString(kComponentKey, L"PnPID_kvxnlfk", L"kvx_nlfk");
  IGStopDriver stop(L"kvxnlfk", RecordLog);
  EXPECT_EQ(stop.doAction(), 0u);
  EXPECT_FALSE(host.scm.Running(L"kvxnlfk"));
  EXPECT_EQ(stop.undoAction(), 0u);
  EXPECT_TRUE(host.scm.Running(L"kvxnlfk"));
  EXPECT_EQ(stop.undoAction(), 0u);  // a failing start is not reported

  IGRegisterNetComponent registration(L"kvxnlfk", platform::kGuidDevClassNetService, RecordLog);
  IGUnregisterNetComponent removal(L"kvxnlfk", platform::kGuidDevClassNetService, RecordLog);
  EXPECT_EQ(registration.doAction(), 0u);
  EXPECT_EQ(host.netcfg.components.count(L"kvx_nlfk"), 1u);
  EXPECT_EQ(removal.doAction(), 0u);
  EXPECT_EQ(host.netcfg.components.count(L"kvx_nlfk"), 0u);
  EXPECT_EQ(removal.undoAction(), 0u);
  EXPECT_EQ(host.netcfg.components.count(L"kvx_nlfk"), 1u);
  EXPECT_EQ(registration.undoAction(), 0u);
  EXPECT_EQ(host.netcfg.components.count(L"kvx_nlfk"), 0u);
  host.netcfg.results["Apply"] = platform::kNetCfgSReboot;
  EXPECT_EQ(registration.doAction(), static_cast<uint32_t>(platform::kNetCfgSReboot));
  EXPECT_EQ(host.Leftovers(), "");
}

// ---- The handlers ---------------------------------------------------------------------------

const std::string kNdisRootPath = "\\SystemRoot\\system32\\drivers\\kvxnlfk.sys";
const Lines kInstallLines = {"Installing kvx_nlfk...\n", "pClassSetup->Install returned hr=0\n",
                             "Applying changes...\n", "Successfully applied changes!\n",
                             "installNetCfg hr=0\n"};
const Lines kUninstallLines = {"Looking for net component kvx_nlfk\n",
                               "Calling  pNetCfgCmp->GetClassGuid\n",
                               "Uninstalling kvx_nlfk...\n",
                               "Uninstall returned hr=0\n",
                               "Uninstall succeeded, applying changes...\n",
                               "Successfully applied changes...\n"};

Lines Join(std::initializer_list<Lines> parts) {
  Lines out;
  for (const auto& part : parts) out.insert(out.end(), part.begin(), part.end());
  return out;
}

Lines StartTypeLines(const char* service, uint32_t startType, const std::string& path) {
  return {std::string("EnableDisableDriverViaSCM: Attempting to change start type of service[") +
              service + "] to [" + std::to_string(startType) + "]",
          "Driver image path will be [" + path + "]"};
}

/// A host with both drivers installed, the NDIS filter deployed, and both keys locked.
void DriversInstalled(FakeDriverHost& h) {
  h.scm.AddService(L"kvxnlfk", 4, false);
  h.scm.AddService(L"kvxwfpk", 3, false);
  h.registry.SetString(kComponentKey, L"PnPID_kvxnlfk", L"kvx_nlfk");
  h.protection.locked = {L"KVXNLFK", L"KVXWFPK"};
}

struct HandlerCase {
  const char* what;
  std::function<void(FakeDriverHost&)> setUp;
  void (*handler)(DriverLogFn);
  Lines log;
  /// What the host looks like afterwards: NDIS start type, WFP start type, NDIS registered.
  uint32_t ndisStart;
  uint32_t wfpStart;
  bool registered;
};

class DriverHandlers : public ::testing::TestWithParam<HandlerCase> {};

TEST_P(DriverHandlers, LogTheirStepsAndLeaveNothingBehind) {
  const HandlerCase& c = GetParam();
  FakeDriverHost host;
  host.os.version = platform::OsVersionInfo{10, 0, 19045, 0, 0};
  ResetOsVersionNumberForTesting();
  c.setUp(host);
  const std::set<std::wstring> locked = host.protection.locked;
  c.handler(RecordLog);
  EXPECT_EQ(host.log, c.log);
  EXPECT_EQ(host.registry.Dword(kNdisKey, L"Start").value_or(99), c.ndisStart);
  EXPECT_EQ(host.registry.Dword(std::wstring(kServicesKey) + L"kvxwfpk", L"Start").value_or(99),
            c.wfpStart);
  EXPECT_EQ(host.netcfg.components.count(L"kvx_nlfk") != 0, c.registered);
  // No path leaves a lock lifted, an exception held, COM initialised or anything open.
  EXPECT_EQ(host.Leftovers(), "");
  EXPECT_EQ(host.protection.locked, locked);
  // The exception is the first and the last thing; COM, where used, is inside it.
  const auto& calls = host.journal.calls;
  ASSERT_FALSE(calls.empty());
  EXPECT_EQ(
      calls.front().rfind("BeginException netwarden ", 0) == 0 || calls.front() == "CoInitialize",
      true);
  if (host.protection.refuseExceptions == 0) {
    EXPECT_EQ(calls.back().rfind("EndException netwarden ", 0), 0u);
  } else {
    EXPECT_TRUE(host.journal.Matching("EndException").empty());
  }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, DriverHandlers,
    ::testing::Values(
        HandlerCase{"enable NDIS", DriversInstalled, EnableNdisDriver,
                    Join({kInstallLines,
                          StartTypeLines("kvxnlfk", 1, kNdisRootPath),
                          {"IGEnableDriver::doAction for service [kvxnlfk] result is [0]"}}),
                    1, 3, true},
        HandlerCase{"enable NDIS where it is not deployed",
                    [](FakeDriverHost& h) { h.scm.AddService(L"kvxnlfk", 4); }, EnableNdisDriver,
                    Join({{"installNetCfg() PnP ID not found for [kvxnlfk]. This is normal if "
                           "the driver is not deployed. Exiting\n"},
                          StartTypeLines("kvxnlfk", 1, kNdisRootPath),
                          {"IGEnableDriver::doAction for service [kvxnlfk] result is [0]"}}),
                    1, 99, false},
        HandlerCase{"enable NDIS where the start type cannot be set: the component goes again",
                    [](FakeDriverHost& h) {
                      DriversInstalled(h);
                      h.scm.changeErrors[L"KVXNLFK"] = 1072;
                    },
                    EnableNdisDriver,
                    Join({kInstallLines,
                          StartTypeLines("kvxnlfk", 1, kNdisRootPath),
                          {"Driver (kvxnlfk) failed to configure start of service Error[1072]",
                           "IGEnableDriver::doAction for service [kvxnlfk] result is [1072]"},
                          kUninstallLines}),
                    4, 3, false},
        HandlerCase{"enable NDIS needing a reboot: the start type is left alone",
                    [](FakeDriverHost& h) {
                      DriversInstalled(h);
                      h.netcfg.results["Apply"] = platform::kNetCfgSReboot;
                    },
                    EnableNdisDriver,
                    {"Installing kvx_nlfk...\n", "pClassSetup->Install returned hr=0\n",
                     "Applying changes...\n", "Reboot is needed for the changes to take effect!\n",
                     "installNetCfg hr=4a020\n"},
                    4,
                    3,
                    true},
        HandlerCase{
            "enable WFP with the TCP/IP start type",
            [](FakeDriverHost& h) {
              DriversInstalled(h);
              h.registry.SetDword(std::wstring(kServicesKey) + L"tcpip", L"Start", 1);
            },
            EnableWfpDriver,
            Join({StartTypeLines("kvxwfpk", 1, "\\SystemRoot\\system32\\drivers\\kvxwfpk.sys"),
                  {"IGEnableDriver::doAction for service [kvxwfpk] result is [0]"}}),
            4, 1, false},
        HandlerCase{"enable WFP without a TCP/IP start type: boot start", DriversInstalled,
                    EnableWfpDriver,
                    Join({StartTypeLines("kvxwfpk", 0, "system32\\drivers\\kvxwfpk.sys"),
                          {"IGEnableDriver::doAction for service [kvxwfpk] result is [0]"}}),
                    4, 0, false},
        HandlerCase{"enable WFP when the exception is refused",
                    [](FakeDriverHost& h) {
                      DriversInstalled(h);
                      h.protection.refuseExceptions = 5;
                    },
                    EnableWfpDriver,
                    Join({{"SelfProtectionException: netwarden was refused an exception for "
                           "(kvxwfpk) [5]"},
                          StartTypeLines("kvxwfpk", 0, "system32\\drivers\\kvxwfpk.sys"),
                          {"Driver (kvxwfpk) failed to configure start of service Error[5]",
                           "IGEnableDriver::doAction for service [kvxwfpk] result is [5]"}}),
                    4, 3, false},
        HandlerCase{"disable NDIS",
                    [](FakeDriverHost& h) {
                      DriversInstalled(h);
                      h.scm.AddService(L"kvxnlfk", 1, true);
                      h.netcfg.components = {L"kvx_nlfk"};
                    },
                    DisableNdisDriver,
                    Join({kUninstallLines,
                          StartTypeLines("kvxnlfk", 4, kNdisRootPath),
                          {"Restore lockdown of (kvxnlfk)",
                           "IGDisableDriver::doAction for service [kvxnlfk] result is [0]",
                           "IGStopDriver::StopOrStartService - Stopping service (kvxnlfk)",
                           "IGStopDriver::StopOrStartService - Sent stop to (kvxnlfk)",
                           "IGStopDriver::StopOrStartService - Restore lockdown of (kvxnlfk)"}}),
                    4, 3, false},
        HandlerCase{"disable NDIS with the stop refused: start type, then component, restored",
                    [](FakeDriverHost& h) {
                      DriversInstalled(h);
                      h.scm.AddService(L"kvxnlfk", 1, false);
                      h.netcfg.components = {L"kvx_nlfk"};
                    },
                    DisableNdisDriver,
                    Join({kUninstallLines,
                          StartTypeLines("kvxnlfk", 4, kNdisRootPath),
                          {"Restore lockdown of (kvxnlfk)",
                           "IGDisableDriver::doAction for service [kvxnlfk] result is [0]",
                           "IGStopDriver::StopOrStartService - Stopping service (kvxnlfk)",
                           "IGStopDriver::StopOrStartService - Failed to send stop to (kvxnlfk) "
                           "[1062]",
                           "IGStopDriver::StopOrStartService - Restore lockdown of (kvxnlfk)"},
                          StartTypeLines("kvxnlfk", 1, kNdisRootPath),
                          {"Restore lockdown of (kvxnlfk)",
                           "IGDisableDriver::undoAction (kvxnlfk) attempted with result of [0]"},
                          kInstallLines}),
                    1, 3, true},
        HandlerCase{"disable NDIS needing a reboot: neither start type nor stop",
                    [](FakeDriverHost& h) {
                      DriversInstalled(h);
                      h.scm.AddService(L"kvxnlfk", 1, true);
                      h.netcfg.components = {L"kvx_nlfk"};
                      h.netcfg.results["DeInstall"] = platform::kNetCfgSReboot;
                      h.netcfg.results["Apply"] = platform::kNetCfgSReboot;
                    },
                    DisableNdisDriver,
                    {"Looking for net component kvx_nlfk\n", "Calling  pNetCfgCmp->GetClassGuid\n",
                     "Uninstalling kvx_nlfk...\n", "Uninstall returned hr=4a020\n",
                     "Uninstall succeeded, applying changes...\n",
                     "Reboot is needed for the changes to take effect!\n"},
                    1,
                    3,
                    false},
        HandlerCase{
            "disable WFP", DriversInstalled, DisableWfpDriver,
            Join({StartTypeLines("kvxwfpk", 4, "\\SystemRoot\\system32\\drivers\\kvxwfpk.sys"),
                  {"IGDisableDriver::doAction for service [kvxwfpk] result is [0]"}}),
            4, 4, false}),
    CaseName<HandlerCase>);

struct OrderCase {
  const char* what;
  void (*handler)(DriverLogFn);
  const char* service;
  bool com;
  bool handlerLifts;
};

TEST(DriverHandlerOrder, ExceptionOutsideComOutsideTheHandlersLock) {
  const OrderCase cases[] = {{"enable NDIS", EnableNdisDriver, "kvxnlfk", true, true},
                             {"enable WFP", EnableWfpDriver, "kvxwfpk", false, true},
                             {"disable NDIS", DisableNdisDriver, "kvxnlfk", true, false},
                             {"disable WFP", DisableWfpDriver, "kvxwfpk", false, true}};
  for (const auto& c : cases) {
    FakeDriverHost host;
    DriversInstalled(host);
    const std::string service = c.service;
    c.handler(RecordLog);
    Lines frame;
    for (const auto& call : host.journal.calls) {
      if (call == "CoInitialize" || call == "CoUninitialize" ||
          call.rfind("BeginException", 0) == 0 || call.rfind("EndException", 0) == 0) {
        frame.push_back(call);
      }
    }
    Lines expected = {"BeginException netwarden " + service, "EndException netwarden " + service};
    if (c.com) expected = {"CoInitialize", expected[0], "CoUninitialize", expected[1]};
    EXPECT_EQ(frame, expected) << c.what;
    // The handler's own lift comes straight after the exception, its restore at the end.
    const auto begin = std::find(host.journal.calls.begin(), host.journal.calls.end(),
                                 "BeginException netwarden " + service);
    ASSERT_NE(begin, host.journal.calls.end());
    EXPECT_EQ(*(begin + 1) == "LiftServiceKeyLock " + service, c.handlerLifts) << c.what;
    EXPECT_EQ(host.Leftovers(), "") << c.what;
  }
}

TEST(DriverHandlerOrder, ASilentLogPrintsNothing) {
  FakeDriverHost host;
  DriversInstalled(host);
  host.scm.AddService(L"kvxnlfk", 1, false);
  host.netcfg.components = {L"kvx_nlfk"};
  ::testing::internal::CaptureStdout();
  DisableNdisDriver(SilentDriverLog);
  std::fflush(stdout);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
  // The work was done all the same: the refused stop rolled everything back.
  EXPECT_EQ(host.registry.Dword(kNdisKey, L"Start"), 1u);
  EXPECT_EQ(host.netcfg.components.count(L"kvx_nlfk"), 1u);
}

TEST(Versions, OsVersionNumberIsComputedOnceFromTheFourParts) {
  const struct {
    std::optional<platform::OsVersionInfo> version;
    int32_t number;
  } cases[] = {{platform::OsVersionInfo{6, 1, 7600, 0, 0}, 6100},
               {platform::OsVersionInfo{6, 1, 7601, 1, 0}, 6110},
               {platform::OsVersionInfo{6, 0, 6002, 2, 1}, 6021},
               {platform::OsVersionInfo{10, 0, 19045, 0, 0}, 10000},
               {std::nullopt, 0}};
  for (const auto& c : cases) {
    FakeDriverHost host;
    host.os.version = c.version;
    ResetOsVersionNumberForTesting();
    EXPECT_EQ(GetOsVersionNumber(), c.number);
    host.os.version = platform::OsVersionInfo{5, 1, 0, 3, 0};
    EXPECT_EQ(GetOsVersionNumber(), c.number);
    EXPECT_EQ(host.os.calls, 1);
  }
  ResetOsVersionNumberForTesting();
}

TEST(Versions, TcpipStartTypeAndTdxBeforeWindows7) {
  const struct {
    const char* what;
    platform::OsVersionInfo version;
    std::optional<uint32_t> tcpip;
    std::optional<uint32_t> tdx;
    uint32_t expected;
  } cases[] = {{"tcpip", {6, 1, 0, 0, 0}, 2, 3, 2},
               {"no value", {6, 1, 0, 0, 0}, std::nullopt, 3, 0},
               {"tdx decides before Windows 7", {6, 0, 0, 2, 0}, 2, 3, 3},
               {"tcpip stays when tdx has none", {6, 0, 0, 2, 0}, 2, std::nullopt, 2},
               {"neither", {6, 0, 0, 0, 0}, std::nullopt, std::nullopt, 0}};
  for (const auto& c : cases) {
    FakeDriverHost host;
    host.os.version = c.version;
    ResetOsVersionNumberForTesting();
    if (c.tcpip) host.registry.SetDword(std::wstring(kServicesKey) + L"tcpip", L"Start", *c.tcpip);
    if (c.tdx) host.registry.SetDword(std::wstring(kServicesKey) + L"tdx", L"Start", *c.tdx);
    EXPECT_EQ(GetTcpipStartType(), c.expected) << c.what;
    EXPECT_EQ(host.registry.openKeys, 0) << c.what;
  }
  ResetOsVersionNumberForTesting();
}

}  // namespace
}  // namespace nw
