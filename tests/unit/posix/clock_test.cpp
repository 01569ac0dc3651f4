// The emulated host's clock: the host file's scripted clock, and the system's clocks without it.

#include "platform/clock.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "sim/host/host_state.h"

namespace nw {
namespace {

// Loads a host file for one test and goes back to the empty host afterwards.
class ClockHost {
 public:
  explicit ClockHost(const std::string& json) {
    char pattern[] = "/tmp/nw-clock-XXXXXX";
    const int fd = ::mkstemp(pattern);
    ::close(fd);
    file_ = pattern;
    std::ofstream(file_) << json;
    ::setenv("NETWARDEN_HOST", file_.c_str(), 1);
    sim::ResetHostStateForTesting();
    ok_ = sim::LoadHostState(&error_);
  }
  ~ClockHost() {
    ::unsetenv("NETWARDEN_HOST");
    sim::ResetHostStateForTesting();
    ::unlink(file_.c_str());
  }
  bool ok() const { return ok_; }
  std::string error() const {
    // Without the file's own name, which differs per run.
    return error_.substr(error_.find(": ") + 2);
  }

 private:
  std::string file_;
  bool ok_ = false;
  std::string error_;
};

// Each reading moves on by its step; the cycle counter wraps as the processor's would.
TEST(HostClock, ReadingsMoveOnByTheirSteps) {
  const struct {
    const char* clock;
    uint64_t frequency, counters[2], cycles[2];
  } cases[] = {
      {R"({"frequency": 1000, "counter": 5, "counterStep": 250, "cycles": 18446744073709551615,
           "cycleStep": 2})",
       1000,
       {5, 255},
       {UINT64_MAX, 1}},
      {"{}", 10000000, {0, 1000000}, {0, 3000000000}},  // ten megahertz, three gigahertz
      {R"({"frequency": 1, "counterStep": 1, "cycleStep": 1})", 1, {0, 1}, {0, 1}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.clock);
    ClockHost host(std::string(R"({"clock": )") + c.clock + "}");
    ASSERT_TRUE(host.ok()) << host.error();
    platform::Clock& clock = platform::TheClock();
    EXPECT_EQ(clock.QueryPerformanceFrequency(), c.frequency);
    EXPECT_EQ(clock.QueryPerformanceCounter(), c.counters[0]);
    EXPECT_EQ(clock.QueryPerformanceCounter(), c.counters[1]);
    EXPECT_EQ(clock.ReadCycleCounter(), c.cycles[0]);
    EXPECT_EQ(clock.ReadCycleCounter(), c.cycles[1]);
    EXPECT_EQ(clock.QueryPerformanceFrequency(), c.frequency);
  }
}

TEST(HostClock, BadClocksAreRefused) {
  const std::string any = "an integer from 0 to 18446744073709551615";
  const std::string positive = "an integer from 1 to 18446744073709551615";
  const struct {
    const char* json;
    std::string expected;
  } cases[] = {
      {R"({"clock": 5})", "/clock: expected an object"},
      {R"({"clock": {"tick": 5}})",
       "/clock/tick: expected one of the known fields (frequency, counter, counterStep, cycles, "
       "cycleStep)"},
      {R"({"clock": {"frequency": 0}})", "/clock/frequency: expected " + positive},
      {R"({"clock": {"counterStep": 0}})", "/clock/counterStep: expected " + positive},
      {R"({"clock": {"cycleStep": 0}})", "/clock/cycleStep: expected " + positive},
      {R"({"clock": {"counter": -1}})", "/clock/counter: expected " + any},
      {R"({"clock": {"cycles": 1.5}})", "/clock/cycles: expected " + any},
      {R"({"clock": {"frequency": "10"}})", "/clock/frequency: expected " + positive},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.json);
    ClockHost host(c.json);
    EXPECT_FALSE(host.ok());
    EXPECT_EQ(host.error(), c.expected);
  }
}

TEST(HostClock, WithoutAScriptTheSystemClocksCountForward) {
  ClockHost host("{}");
  ASSERT_TRUE(host.ok()) << host.error();
  platform::Clock& clock = platform::TheClock();
  EXPECT_EQ(clock.QueryPerformanceFrequency(), 10000000u);
  const uint64_t counter = clock.QueryPerformanceCounter();
  const uint64_t cycles = clock.ReadCycleCounter();
  ::usleep(2000);
  // At 10 MHz, two milliseconds are at least 20,000 counts; ten seconds would be 100,000,000.
  const uint64_t elapsed = clock.QueryPerformanceCounter() - counter;
  EXPECT_GE(elapsed, 20000u);
  EXPECT_LT(elapsed, 100000000u);
  EXPECT_GT(clock.ReadCycleCounter(), cycles);
}

}  // namespace
}  // namespace nw
