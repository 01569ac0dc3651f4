// What no simulated core can show of the blacklist views: a core that hands out no bytes for
// the ends of an IPv6 range.

#include <gtest/gtest.h>

#include <string>

#include "cli/console.h"
#include "cli/handlers.h"
#include "tests/unit/printed.h"

namespace nw {
namespace {

// One IPv6 range that never expires, whose ends are null.
class EndlessRange final : public IIpRangeList {
 public:
  Status Unused0() override { return kStatusNotImplemented; }
  uint32_t Release() override { return 0; }
  uint64_t GetCount() override { return 1; }
  Status AddIpV4Range(uint32_t, uint32_t, uint32_t) override { return kStatusNotImplemented; }
  Status AddIpV6Range(const uint8_t*, const uint8_t*, uint32_t) override {
    return kStatusNotImplemented;
  }
  Status Unused5() override { return kStatusNotImplemented; }
  Status Unused6() override { return kStatusNotImplemented; }
  uint32_t GetLowV4(uint64_t) override { return 0; }
  const uint8_t* GetLowV6(uint64_t) override { return nullptr; }
  uint32_t GetHighV4(uint64_t) override { return 0; }
  const uint8_t* GetHighV6(uint64_t) override { return nullptr; }
  uint32_t GetTimeToLive(uint64_t) override { return 0xFFFFFFFF; }
  uint32_t GetTimeRemaining(uint64_t) override { return 0; }
  bool GetAutoCreate(uint64_t) override { return false; }
  int32_t GetIpVersion(uint64_t) override { return 6; }
};

class EndlessRangeControl final : public IHighPriorityIpListControl {
 public:
  Status Unused0() override { return kStatusNotImplemented; }
  uint32_t Release() override { return 0; }
  Status SetLogOption(int32_t) override { return kStatusNotImplemented; }
  Status GetExistingLogOption(int32_t* logOption) override {
    *logOption = 0;
    return kStatusOk;
  }
  Status GetExistingList(IIpRangeList** out) override {
    *out = &range_;
    return kStatusOk;
  }
  Status GetListBuilder(IIpRangeList**) override { return kStatusNotImplemented; }
  Status AppendList(IIpRangeList*) override { return kStatusNotImplemented; }
  Status DeleteList(IIpRangeList*) override { return kStatusNotImplemented; }
  Status SetNewList(IIpRangeList*) override { return kStatusNotImplemented; }

 private:
  EndlessRange range_;
};

TEST(BlacklistViewTest, NullIpv6EndsPrintAsZero) {
  EndlessRangeControl control;
  CoreConnection connection;
  connection.highPriorityIpList = &control;
  EXPECT_EQ(testing::Printed([&] { ShowBlacklist(&connection, 0); }),
            "    Logging option is 0\n"
            "    Low:  0:0:0:0:0:0:0:0\n"
            "    High: 0:0:0:0:0:0:0:0\n"
            "           Time to live: infinite\n");
}

}  // namespace
}  // namespace nw
