// The profiling report's calibration and arithmetic at values no profile of the simulated driver
// holds, and its refusal of data that cannot hold its records, before the second of calibration
// is spent.

#include "tables/perf_report.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <string>
#include <vector>

#include "platform/clock.h"
#include "tests/unit/perf_data.h"

namespace nw {
namespace {

using testing::FakeClock;
using testing::ProfileData;

// Runs the report into a temporary file and returns what it wrote.
std::string Report(const std::vector<uint8_t>& data, bool csv, uint32_t* result = nullptr,
                   uint64_t size = UINT64_MAX) {
  std::FILE* out = std::tmpfile();
  const uint32_t status =
      PrintPerfReport(data.data(), size == UINT64_MAX ? data.size() : size, csv, out);
  if (result != nullptr) *result = status;
  std::string text(static_cast<size_t>(std::ftell(out)), '\0');
  std::rewind(out);
  text.resize(std::fread(text.data(), 1, text.size(), out));
  std::fclose(out);
  return text;
}

TEST(PerfCalibration, WaitsOneFullSecondOfTheCounterBetweenTwoCycleReadings) {
  const struct {
    uint64_t frequency, counterStep, cycleStep;
    int counterReads;  // the start, then every reading until a second has passed
  } cases[] = {
      {10, 3, 2400, 5},  // 0 3 6 9 12
      {10, 5, 2400, 3},  // 0 5 10: exactly one second is enough
      {10, 10, 7, 2},   {10, 11, 1, 2}, {10000000, 1000000, 3000000000, 11},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.counterStep);
    FakeClock clock(c.frequency, c.counterStep, c.cycleStep);
    const PerfCalibration calibration = CalibrateProcessorClock();
    EXPECT_EQ(calibration.frequency, c.frequency);
    EXPECT_EQ(calibration.cyclesPerSecond, c.cycleStep);
    EXPECT_EQ(clock.counterReads, c.counterReads);
    EXPECT_EQ(clock.cycleReads, 2);
  }
}

TEST(PerfCalibration, CounterThatWrapsStillWaitsOneSecond) {
  FakeClock clock(10, 4, 100);
  clock.state.counter = UINT64_MAX - 5;  // wraps after the second reading
  EXPECT_EQ(CalibrateProcessorClock().cyclesPerSecond, 100u);
  EXPECT_EQ(clock.counterReads, 4);  // -5, -1, 3, 7: 12 counts have passed
}

TEST(PerfArithmetic, RunFigures) {
  const struct {
    const char* what;
    uint64_t start, end, frequency, cyclesPerSecond;
    double duration;
    uint64_t runCycles;
    double ghz;
  } cases[] = {
      {"whole seconds", 5000000, 155000000, 10000000, 2400000000, 15.0, 36000000000, 2.4},
      {"a third of a second truncates the cycles", 0, 1, 3, 1000000000, 1.0 / 3, 333333333, 1.0},
      {"no time at all", 7, 7, 10, 3000000000, 0.0, 0, 3.0},
      // The unsigned difference of an end before the start is close to 2^64.
      {"end before start", 10, 5, 1, 2, 18446744073709551611.0, UINT64_MAX, 2e-9},
      {"one cycle per second", 0, 10, 10, 1, 1.0, 1, 1e-9},
      {"largest times", 0, UINT64_MAX, 1, 0, 18446744073709551615.0, 0, 0.0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    PerfDataHeader header;
    header.startTime = c.start;
    header.endTime = c.end;
    const PerfRun run = ComputePerfRun(header, {c.frequency, c.cyclesPerSecond});
    EXPECT_DOUBLE_EQ(run.durationSeconds, c.duration);
    EXPECT_EQ(run.runCycles, c.runCycles);
    EXPECT_DOUBLE_EQ(run.clockGhz, c.ghz);
    EXPECT_DOUBLE_EQ(run.cyclesPerSecond, static_cast<double>(c.cyclesPerSecond));
  }
}

TEST(PerfArithmetic, CounterFigures) {
  constexpr double kInf = std::numeric_limits<double>::infinity();
  const struct {
    const char* what;
    double duration;
    uint64_t runCycles;
    double cyclesPerSecond;
    uint64_t hits, total, min, max;
    double hitsPerSecond;
    uint64_t averageCycles;
    double averageMicroseconds, cpuPercent, minMicroseconds, maxMicroseconds;
  } cases[] = {
      {"round", 15, 36000000000, 2.4e9, 300000, 720000000, 960, 48000, 20000, 2400, 1.0, 2.0, 0.4,
       20.0},
      // The average in cycles is an integer division; the average in time is not.
      {"average of ten cycles over four hits", 1, 1000000, 1e6, 4, 10, 1, 9, 4, 2, 2.5, 0.001, 1,
       9},
      {"one hit of every cycle", 2, 100, 50, 1, UINT64_MAX, 0, UINT64_MAX, 0.5, UINT64_MAX,
       18446744073709551615.0 * 1e6 / 50, 18446744073709551615.0, 0, 18446744073709551615.0 * 2e4},
      {"no run time", 0, 0, 3e9, 5, 15, 3, 3, kInf, 3, 0.001, kInf, 0.001, 0.001},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    PerfRun run;
    run.durationSeconds = c.duration;
    run.runCycles = c.runCycles;
    run.cyclesPerSecond = c.cyclesPerSecond;
    PerfCounterRecord record;
    record.hitCount = c.hits;
    record.totalCycles = c.total;
    record.minCycles = c.min;
    record.maxCycles = c.max;
    const PerfCounterFigures figures = ComputeCounterFigures(record, run);
    EXPECT_DOUBLE_EQ(figures.hitsPerSecond, c.hitsPerSecond);
    EXPECT_EQ(figures.averageCycles, c.averageCycles);
    EXPECT_DOUBLE_EQ(figures.averageMicroseconds, c.averageMicroseconds);
    EXPECT_DOUBLE_EQ(figures.cpuPercent, c.cpuPercent);
    EXPECT_DOUBLE_EQ(figures.minMicroseconds, c.minMicroseconds);
    EXPECT_DOUBLE_EQ(figures.maxMicroseconds, c.maxMicroseconds);
  }
}

TEST(PerfArithmetic, TruncationToUnsignedSaturates) {
  const struct {
    double value;
    uint64_t expected;
  } cases[] = {
      {2.9999, 2},
      {0.0, 0},
      {-1.0, 0},
      {std::nan(""), 0},
      {18446744073709549568.0, 18446744073709549568u},  // the largest double below 2^64
      {18446744073709551616.0, UINT64_MAX},
      {std::numeric_limits<double>::infinity(), UINT64_MAX},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(TruncateToUnsigned(c.value), c.expected) << c.value;
  }
}

TEST(PerfReport, DataThatDoesNotHoldItsRecordsIsRefusedBeforeAnythingHappens) {
  ProfileData two;
  two.records = {{"a.c", "A", 1, 1, 1, 1, 1}, {"b.c", "B", 2, 1, 1, 1, 1}};
  const std::vector<uint8_t> bytes = two.Bytes();
  std::vector<uint8_t> padded = bytes;
  padded.resize(bytes.size() + 100);
  ProfileData claimsThousand = two;
  claimsThousand.counterCount = 1000;
  const struct {
    const char* what;
    std::vector<uint8_t> data;
    uint64_t size;
    uint32_t expected;
  } cases[] = {
      {"a count of 1,000 with data for 2", claimsThousand.Bytes(), UINT64_MAX, 13},
      {"the last record one byte short", bytes, bytes.size() - 1, 13},
      {"no room for the header", bytes, 39, 13},
      {"nothing at all", {}, 0, 13},
      {"exactly the records", bytes, bytes.size(), 0},
      {"bytes beyond the last record", padded, padded.size(), 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    FakeClock clock(1, 1, 1);
    uint32_t result = 99;
    const std::string text = Report(c.data, false, &result, c.size);
    EXPECT_EQ(result, c.expected);
    EXPECT_EQ(text.empty(), c.expected != 0);
    EXPECT_EQ(clock.counterReads + clock.cycleReads == 0, c.expected != 0);
  }
}

}  // namespace
}  // namespace nw
