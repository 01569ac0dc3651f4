// Driver actions: the growable action arrays and the action list's run, undo and destruction
// order, which no command can stage; the undo of a stop, which no command ever runs (the stop is
// always a list's last step); and the self-protection exception enclosing COM, which the host
// file cannot show.

#include "drivers/driver_actions.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "cli/handlers.h"
#include "drivers/service_control.h"
#include "tests/unit/fake_driver_host.h"

namespace nw {
namespace {

using testing::drivers::FakeDriverHost;
using testing::drivers::RecordLog;
using Lines = std::vector<std::string>;

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

TEST(ActionArrayTest, GrowthThatCannotHappenIsError8AndChangesNothing) {
  const uint32_t most = static_cast<uint32_t>(kMaxActionArrayBytes / sizeof(IGAction*));
  const struct {
    const char* what;
    int failFrom;  // allocation that fails (0: none)
    uint32_t full;
  } cases[] = {{"beyond 16 MiB of pointers", 0, most},
               {"the allocation fails", 2, 4}};  // the first growth works, the second not
  for (const auto& c : cases) {
    AllocatorScope allocator(c.failFrom);
    ActionArray array;
    for (uint32_t i = 0; i < c.full; ++i) ASSERT_EQ(array.Append(Fake(i)), 0u) << c.what;
    EXPECT_EQ(array.Append(Fake(c.full)), kErrorNotEnoughMemory) << c.what;
    EXPECT_EQ(array.count(), c.full) << c.what;
    EXPECT_EQ(array.capacity(), c.full) << c.what;
    EXPECT_EQ(array[c.full - 1], Fake(c.full - 1)) << c.what;
  }
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

/// A list that records the results of its own run and undo, its commit and its abort.
class RecordingList final : public IGActionList {
 public:
  explicit RecordingList(Lines* record) : record_(record) {}
  ~RecordingList() override { record_->push_back("delete list"); }
  uint32_t doAction() override {
    const uint32_t result = IGActionList::doAction();
    record_->push_back("list done " + std::to_string(result));
    return result;
  }
  uint32_t undoAction() override {
    const uint32_t result = IGActionList::undoAction();
    record_->push_back("list undone " + std::to_string(result));
    return result;
  }
  uint32_t commitAction() override {
    record_->push_back("commit list");
    return IGActionList::commitAction();
  }
  uint32_t abortAction() override {
    record_->push_back("abort list");
    return IGActionList::abortAction();
  }

 private:
  Lines* record_;
};

TEST(ActionListTest, RunsInOrderUndoesWhatWasDoneLastFirstAndDestroysInListOrder) {
  const struct {
    const char* what;
    std::vector<std::pair<uint32_t, uint32_t>> steps;  // do and undo results of a, b, c, ...
    Lines expected;
  } cases[] = {
      {"all succeed",
       {{0, 0}, {0, 0}, {0, 0}},
       {"do a", "do b", "do c", "list done 0", "commit list", "delete list", "delete a", "delete b",
        "delete c"}},
      {"the failing step is not undone and later ones do not run",
       {{0, 0}, {5, 0}, {0, 0}},
       {"do a", "do b", "list done 5", "undo a", "list undone 0", "abort list", "delete list",
        "delete a", "delete b", "delete c"}},
      {"undo runs last first",
       {{0, 0}, {0, 0}, {0, 0}, {87, 0}},
       {"do a", "do b", "do c", "do d", "list done 87", "undo c", "undo b", "undo a",
        "list undone 0", "abort list", "delete list", "delete a", "delete b", "delete c",
        "delete d"}},
      {"a failing undo skips none and the first failure met is reported",
       {{0, 3}, {0, 7}, {0, 5}, {2, 0}},
       {"do a", "do b", "do c", "do d", "list done 2", "undo c", "undo b", "undo a",
        "list undone 5", "abort list", "delete list", "delete a", "delete b", "delete c",
        "delete d"}},
      {"the first step fails: nothing to undo",
       {{1060, 0}, {0, 0}},
       {"do a", "list done 1060", "list undone 0", "abort list", "delete list", "delete a",
        "delete b"}},
  };
  for (const auto& c : cases) {
    Lines record;
    auto* list = new RecordingList(&record);
    for (size_t i = 0; i < c.steps.size(); ++i) {
      ASSERT_EQ(list->Add(new Step(std::string(1, static_cast<char>('a' + i)), &record,
                                   c.steps[i].first, c.steps[i].second)),
                0u);
    }
    RunActionList(list);
    EXPECT_EQ(record, c.expected) << c.what;
  }
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
    list->doAction();
  }
  list->undoAction();
  delete list;
  EXPECT_EQ(record,
            (Lines{"do a", "list done 8", "list undone 0", "delete list", "delete a", "delete b"}));
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

// ---- The undo of a stop ---------------------------------------------------------------------

TEST(StopUndo, StartsWithoutTouchingTheLockAndAnswersOnlyForTheManager) {
  const std::string starting = "IGStopDriver::StopOrStartService - Starting service (kvxnlfk)";
  const struct {
    const char* what;
    uint32_t openManagerError;
    uint32_t startError;
    uint32_t result;
    bool running;
    Lines log;
    Lines calls;
  } cases[] = {
      {"started",
       0,
       0,
       0,
       true,
       {starting},
       {"OpenSCManager", "OpenService kvxnlfk", "StartService"}},
      {"a refused start still answers 0",
       0,
       1058,
       0,
       false,
       {starting},
       {"OpenSCManager", "OpenService kvxnlfk", "StartService"}},
      {"no manager: the stop wording serves a start too",
       5,
       0,
       5,
       false,
       {starting,
        "IGStopDriver::StopOrStartService - Failed to open SCM to send stop to (kvxnlfk) [5]"},
       {"OpenSCManager"}},
  };
  for (const auto& c : cases) {
    FakeDriverHost host;
    host.scm.openManagerError = c.openManagerError;
    host.scm.startError = c.startError;
    IGStopDriver stop(L"kvxnlfk", RecordLog);
    EXPECT_EQ(stop.undoAction(), c.result) << c.what;
    EXPECT_EQ(host.scm.running, c.running) << c.what;
    EXPECT_EQ(host.log, c.log) << c.what;
    EXPECT_EQ(host.journal, c.calls) << c.what;
    EXPECT_EQ(host.Leftovers(), "") << c.what;
  }
}

// ---- The handlers' frame --------------------------------------------------------------------

TEST(DriverHandlerFrame, TheExceptionEnclosesComAndTheLockAndIsGivenBackOnceWhenGranted) {
  const struct {
    const char* what;
    void (*handler)(DriverLogFn);
    uint32_t refuse;
    Lines frame;
  } cases[] = {
      {"enable NDIS",
       EnableNdisDriver,
       0,
       {"CoInitialize", "BeginException netwarden kvxnlfk", "LiftServiceKeyLock kvxnlfk",
        "RestoreServiceKeyLock kvxnlfk", "CoUninitialize", "EndException netwarden kvxnlfk"}},
      {"disable NDIS",
       DisableNdisDriver,
       0,
       {"CoInitialize", "BeginException netwarden kvxnlfk", "CoUninitialize",
        "EndException netwarden kvxnlfk"}},
      {"enable WFP",
       EnableWfpDriver,
       0,
       {"BeginException netwarden kvxwfpk", "LiftServiceKeyLock kvxwfpk",
        "RestoreServiceKeyLock kvxwfpk", "EndException netwarden kvxwfpk"}},
      {"disable WFP",
       DisableWfpDriver,
       0,
       {"BeginException netwarden kvxwfpk", "LiftServiceKeyLock kvxwfpk",
        "RestoreServiceKeyLock kvxwfpk", "EndException netwarden kvxwfpk"}},
      {"enable NDIS refused its exception",
       EnableNdisDriver,
       5,
       {"CoInitialize", "BeginException netwarden kvxnlfk", "LiftServiceKeyLock kvxnlfk",
        "CoUninitialize"}},
  };
  for (const auto& c : cases) {
    // Nothing else is there: every list stops at its first step.
    FakeDriverHost host;
    host.protection.locked = {L"KVXNLFK", L"KVXWFPK"};
    host.protection.refuseExceptions = c.refuse;
    c.handler(RecordLog);
    Lines frame;
    for (const auto& call : host.journal) {
      if (call.rfind("Co", 0) == 0 || call.find("Exception ") != std::string::npos ||
          call.find("ServiceKeyLock ") != std::string::npos) {
        frame.push_back(call);
      }
    }
    EXPECT_EQ(frame, c.frame) << c.what;
    EXPECT_EQ(host.Leftovers(), "") << c.what;
  }
}

}  // namespace
}  // namespace nw
