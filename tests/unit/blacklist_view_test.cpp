// The blacklist views against a recording blacklist control: both modes of every range form,
// the two failures, a missing control, and LastStatus.

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "cli/console.h"
#include "cli/handlers.h"
#include "tests/unit/printed.h"

namespace nw {
namespace {

using CallLog = std::vector<std::string>;

constexpr Status Hr(uint32_t value) { return static_cast<Status>(value); }

struct FakeRange {
  int32_t version = 4;
  uint32_t low4 = 0, high4 = 0;
  uint8_t low6[16] = {}, high6[16] = {};
  bool null6 = false;
  uint32_t ttl = 0xFFFFFFFF, remaining = 0;
  bool autoCreate = false;
};

class FakeRangeList final : public IIpRangeList {
 public:
  FakeRangeList(CallLog& log, const std::vector<FakeRange>& ranges) : log_(log), ranges_(ranges) {}
  Status Unused0() override { return kStatusNotImplemented; }
  uint32_t Release() override { return Log("IIpRangeList::Release", 0u); }
  uint64_t GetCount() override { return Log("GetCount", uint64_t{ranges_.size()}); }
  Status AddIpV4Range(uint32_t, uint32_t, uint32_t) override { return kStatusNotImplemented; }
  Status AddIpV6Range(const uint8_t*, const uint8_t*, uint32_t) override {
    return kStatusNotImplemented;
  }
  Status Unused5() override { return kStatusNotImplemented; }
  Status Unused6() override { return kStatusNotImplemented; }
  uint32_t GetLowV4(uint64_t i) override { return Log("GetLowV4", i, ranges_.at(i).low4); }
  const uint8_t* GetLowV6(uint64_t i) override {
    return Log("GetLowV6", i, ranges_.at(i).null6 ? nullptr : ranges_[i].low6);
  }
  uint32_t GetHighV4(uint64_t i) override { return Log("GetHighV4", i, ranges_.at(i).high4); }
  const uint8_t* GetHighV6(uint64_t i) override {
    return Log("GetHighV6", i, ranges_.at(i).null6 ? nullptr : ranges_[i].high6);
  }
  uint32_t GetTimeToLive(uint64_t i) override { return Log("GetTimeToLive", i, ranges_.at(i).ttl); }
  uint32_t GetTimeRemaining(uint64_t i) override {
    return Log("GetTimeRemaining", i, ranges_.at(i).remaining);
  }
  bool GetAutoCreate(uint64_t i) override {
    return Log("GetAutoCreate", i, ranges_.at(i).autoCreate);
  }
  int32_t GetIpVersion(uint64_t i) override {
    return Log("GetIpVersion", i, ranges_.at(i).version);
  }

 private:
  template <class T>
  T Log(const std::string& call, T result) {
    log_.push_back(call);
    return result;
  }
  template <class T>
  T Log(const char* call, uint64_t i, T result) {
    return Log(std::string(call) + "(" + std::to_string(i) + ")", result);
  }

  CallLog& log_;
  const std::vector<FakeRange>& ranges_;
};

class FakeBlacklistControl final : public IHighPriorityIpListControl {
 public:
  explicit FakeBlacklistControl(CallLog& log) : log_(log) {}

  int32_t logOption = 0;
  Status logOptionFails = 0;
  Status listFails = 0;
  bool nullList = false;
  std::vector<FakeRange> ranges;

  // One at a time: GCC 12 warns wrongly on assigning a list of these to the empty vector.
  void Add(std::initializer_list<FakeRange> list) {
    for (const FakeRange& range : list) ranges.push_back(range);
  }

  Status Unused0() override { return kStatusNotImplemented; }
  uint32_t Release() override { return 0; }
  Status SetLogOption(int32_t) override { return kStatusNotImplemented; }
  Status GetExistingLogOption(int32_t* out) override {
    log_.push_back("GetExistingLogOption");
    if (logOptionFails != 0) return logOptionFails;
    *out = logOption;
    return kStatusOk;
  }
  Status GetExistingList(IIpRangeList** out) override {
    log_.push_back("GetExistingList");
    if (listFails != 0) return listFails;
    if (!nullList) {
      list_ = std::make_unique<FakeRangeList>(log_, ranges);
      *out = list_.get();
    }
    return kStatusOk;
  }
  Status GetListBuilder(IIpRangeList**) override { return kStatusNotImplemented; }
  Status AppendList(IIpRangeList*) override { return kStatusNotImplemented; }
  Status DeleteList(IIpRangeList*) override { return kStatusNotImplemented; }
  Status SetNewList(IIpRangeList*) override { return kStatusNotImplemented; }

 private:
  CallLog& log_;
  std::unique_ptr<FakeRangeList> list_;
};

using testing::Printed;

std::string Show(FakeBlacklistControl& control, int mode) {
  CoreConnection connection;
  connection.highPriorityIpList = &control;
  return Printed([&] { ShowBlacklist(&connection, mode); });
}

FakeRange V6(uint8_t last, uint32_t ttl) {
  FakeRange range{.version = 6, .ttl = ttl, .remaining = 30};
  range.low6[0] = range.high6[0] = 0xfe;
  range.low6[1] = range.high6[1] = 0x80;
  range.low6[15] = 1;
  range.high6[15] = last;
  return range;
}

// One list in both modes: an infinite IPv4 range, a signed and an auto-created IPv6 one, a
// version the view does not know, and a time to live past the signed range.
TEST(BlacklistViewTest, EveryRangeFormInBothModes) {
  CallLog log;
  FakeBlacklistControl control(log);
  control.logOption = 2;
  control.Add({
      {.version = 4, .low4 = 0x0100000A, .high4 = 0xFF00000A, .ttl = 0xFFFFFFFF},
      V6(0x20, 600),
      {.version = 5, .ttl = 0x80000000, .remaining = 0xFFFFFFFE, .autoCreate = true},
  });
  control.ranges[1].autoCreate = true;
  EXPECT_EQ(Show(control, 0),
            "    Logging option is 2\n"
            "    Low:  10.0.0.1\n"
            "    High: 10.0.0.255\n"
            "           Time to live: infinite\n"
            "    Low:  fe80:0:0:0:0:0:0:1\n"
            "    High: fe80:0:0:0:0:0:0:20\n"
            "           Time to live: 600\n"
            "           Time remaining: 30\n"
            "           Auto create is true\n"
            "Unknown IP version 5 from IIpRangeList::GetIpVersion.\n"
            "           Time to live: -2147483648\n"
            "           Time remaining: -2\n"
            "           Auto create is true\n");
  EXPECT_EQ(LastStatus, 0);
  EXPECT_EQ(Show(control, 1),
            "<blacklist>\n"
            "    <blacklist_logoption>FW_LOG_OPTION_PACKET</blacklist_logoption>\n"
            "    <ip_range>\n"
            "        <low>10.0.0.1</low>\n"
            "        <high>10.0.0.255</high>\n"
            "        <ttl>0xffffffff</ttl>\n"
            "    </ip_range>\n"
            "    <ip_range>\n"
            "        <low>fe80:0:0:0:0:0:0:1</low>\n"
            "        <high>fe80:0:0:0:0:0:0:20</high>\n"
            "        <ttl>0x258</ttl>\n"
            "    </ip_range>\n"
            "    <ip_range>\n"
            "Unknown IP version 5 from IIpRangeList::GetIpVersion.\n"
            "        <ttl>0x80000000</ttl>\n"
            "    </ip_range>\n"
            "</blacklist>\n");
}

// The four per-range values are read first, in their order, then the ends the version asks for;
// the count once; the list released once.
TEST(BlacklistViewTest, ReadsEachRangeInTheContractOrder) {
  CallLog log;
  FakeBlacklistControl control(log);
  control.Add({{.version = 4}, V6(2, 1)});
  Show(control, 0);
  EXPECT_EQ(log,
            (CallLog{"GetExistingLogOption", "GetExistingList", "GetCount", "GetTimeToLive(0)",
                     "GetTimeRemaining(0)", "GetAutoCreate(0)", "GetIpVersion(0)", "GetLowV4(0)",
                     "GetHighV4(0)", "GetTimeToLive(1)", "GetTimeRemaining(1)", "GetAutoCreate(1)",
                     "GetIpVersion(1)", "GetLowV6(1)", "GetHighV6(1)", "IIpRangeList::Release"}));
}

TEST(BlacklistViewTest, LogOptionByModeAndName) {
  const struct {
    int32_t option;
    const char* text;
    const char* name;
  } cases[] = {
      {0, "0", "FW_LOG_OPTION_NONE"},    {1, "1", "FW_LOG_OPTION_CONNECTION_PARAMS"},
      {2, "2", "FW_LOG_OPTION_PACKET"},  {3, "3", "FW_LOG_OPTION_INVALID"},
      {7, "7", "FW_LOG_OPTION_INVALID"}, {-1, "-1", "FW_LOG_OPTION_INVALID"},
  };
  for (const auto& c : cases) {
    CallLog log;
    FakeBlacklistControl control(log);
    control.logOption = c.option;
    EXPECT_EQ(Show(control, 0), std::string("    Logging option is ") + c.text + "\n");
    EXPECT_EQ(Show(control, 1), std::string("<blacklist>\n    <blacklist_logoption>") + c.name +
                                    "</blacklist_logoption>\n</blacklist>\n");
  }
}

// Each failure is reported where its line would stand and stored; a failing log option still
// lists the ranges, a failing list still closes the document. The list's status is the last.
TEST(BlacklistViewTest, Failures) {
  const struct {
    Status logOptionFails, listFails;
    bool nullList;
    const char* text;
    const char* xml;
    Status status;
  } cases[] = {
      {Hr(0x80070005), 0, false,
       "    Error 80070005 from IHighPriorityIpListControl::GetExistingLogOption\n"
       "    Low:  1.0.0.0\n"
       "    High: 2.0.0.0\n"
       "           Time to live: infinite\n",
       "<blacklist>\n"
       "    Error 80070005 from IHighPriorityIpListControl::GetExistingLogOption\n"
       "    <ip_range>\n"
       "        <low>1.0.0.0</low>\n"
       "        <high>2.0.0.0</high>\n"
       "        <ttl>0xffffffff</ttl>\n"
       "    </ip_range>\n"
       "</blacklist>\n",
       0},
      {0, Hr(0xC0000001), false,
       "    Logging option is 0\n"
       "    Error c0000001 from IHighPriorityIpListControl::GetExistingList\n",
       "<blacklist>\n"
       "    <blacklist_logoption>FW_LOG_OPTION_NONE</blacklist_logoption>\n"
       "    Error c0000001 from IHighPriorityIpListControl::GetExistingList\n"
       "</blacklist>\n",
       Hr(0xC0000001)},
      {Hr(0x80004005), 0, true,
       "    Error 80004005 from IHighPriorityIpListControl::GetExistingLogOption\n"
       "    Error 80004003 from IHighPriorityIpListControl::GetExistingList\n",
       "<blacklist>\n"
       "    Error 80004005 from IHighPriorityIpListControl::GetExistingLogOption\n"
       "    Error 80004003 from IHighPriorityIpListControl::GetExistingList\n"
       "</blacklist>\n",
       Hr(0x80004003)},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    CallLog log;
    FakeBlacklistControl control(log);
    control.logOptionFails = c.logOptionFails;
    control.listFails = c.listFails;
    control.nullList = c.nullList;
    control.Add({{.version = 4, .low4 = 1, .high4 = 2}});
    EXPECT_EQ(Show(control, 0), c.text);
    EXPECT_EQ(LastStatus, c.status);
    EXPECT_EQ(Show(control, 1), c.xml);
    EXPECT_EQ(LastStatus, c.status);
  }
}

TEST(BlacklistViewTest, MissingControlPrintsNothingAndKeepsTheStatus) {
  CoreConnection connection;
  for (int mode : {0, 1}) {
    LastStatus = 0x1234;
    EXPECT_EQ(Printed([&] { ShowBlacklist(&connection, mode); }), "");
    EXPECT_EQ(LastStatus, 0x1234);
  }
}

// A core that hands out no bytes for an IPv6 end: the all-zero address, not a crash.
TEST(BlacklistViewTest, NullIpv6EndsPrintAsZero) {
  CallLog log;
  FakeBlacklistControl control(log);
  FakeRange range = V6(1, 0xFFFFFFFF);
  range.null6 = true;
  control.Add({range});
  EXPECT_EQ(Show(control, 0),
            "    Logging option is 0\n"
            "    Low:  0:0:0:0:0:0:0:0\n"
            "    High: 0:0:0:0:0:0:0:0\n"
            "           Time to live: infinite\n");
}

}  // namespace
}  // namespace nw
