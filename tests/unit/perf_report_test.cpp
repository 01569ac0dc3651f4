// The profiling report: the clock calibration, the arithmetic at awkward values, and both forms
// of the report written from the driver's profile data.

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
using testing::ProfileRecord;

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

// A profile of three locations over 15 seconds of a 2.4 GHz processor.
ProfileData ThreeRecords() {
  ProfileData data;
  data.startTime = 5000000;
  data.endTime = 155000000;
  data.profilePrice = 57;
  data.records = {
      {"drivers\\fw\\filter.c", "FwFilterPacket", 7, 300000, 720000000, 960, 48000},
      {"conn.c", "ConnTrackLookup", 1234, 45, 1000000, 12000, 120000},
      {"log.c", "LogQueueFlush", 90210, 7, 3500001, 400000, 2600000},
  };
  return data;
}

constexpr uint64_t kFrequency = 10000000;
constexpr uint64_t kCyclesPerSecond = 2400000000;

TEST(PerfReport, TextForm) {
  FakeClock clock(kFrequency, kFrequency / 4, kCyclesPerSecond);
  EXPECT_EQ(Report(ThreeRecords().Bytes(), false),
            "CPU was clocked @   2.4000 GHz\n"
            "Test duration:      15.0000 seconds\n"
            "Test ran for:       36000000000 CPU cycles\n"
            "Number of counters: 3\n"
            "\n"
            "NOTE: Due to variable clocks in modern CPUs the time measurements \n"
            "should be taken with a grain of salt\n"
            "\n"
            "57 CPU cycles are lost per profile sample and are already subtracted\n"
            "from each counter\n"
            "\n"
            "drivers\\fw\\filter.c:0007\n"
            "Func:               FwFilterPacket\n"
            "Hit Count:          300000\n"
            "Hits/sec:           20000.00\n"
            "Average CPU Cycles: 2400\n"
            "Average CPU, %:     2.0000\n"
            "Average Time, uSec: 1.0000\n"
            "Min CPU Cycles:     960\n"
            "Min Time, uSec:     0.4000\n"
            "Max CPU Cycles:     48000\n"
            "Max Time, uSec:     20.0000\n"
            "===============================================\n"
            "\n"
            "conn.c:1234\n"
            "Func:               ConnTrackLookup\n"
            "Hit Count:          45\n"
            "Hits/sec:           3.00\n"
            "Average CPU Cycles: 22222\n"
            "Average CPU, %:     0.0028\n"
            "Average Time, uSec: 9.2593\n"
            "Min CPU Cycles:     12000\n"
            "Min Time, uSec:     5.0000\n"
            "Max CPU Cycles:     120000\n"
            "Max Time, uSec:     50.0000\n"
            "===============================================\n"
            "\n"
            "log.c:90210\n"
            "Func:               LogQueueFlush\n"
            "Hit Count:          7\n"
            "Hits/sec:           0.47\n"
            "Average CPU Cycles: 500000\n"
            "Average CPU, %:     0.0097\n"
            "Average Time, uSec: 208.3334\n"
            "Min CPU Cycles:     400000\n"
            "Min Time, uSec:     166.6667\n"
            "Max CPU Cycles:     2600000\n"
            "Max Time, uSec:     1083.3333\n"
            "===============================================\n"
            "\n");
}

TEST(PerfReport, CommaSeparatedForm) {
  FakeClock clock(kFrequency, kFrequency / 4, kCyclesPerSecond);
  EXPECT_EQ(Report(ThreeRecords().Bytes(), true),
            "\"CPU, GHz\", 2.4000 GHz\n"
            "\"Test duration, sec\", 15.0000\n"
            "ProfilePriceInTicks,57\n"
            "File,Function,HitCount,\"Hits/Sec\",\"AverageCPU(Cycles)\",AverageTime(uSec),"
            "\"AverageCPU(%)\",MinCPU(Cycles),MaxCPU(Cycles),MinTime(uSec),MaxTime(uSec)\n"
            "drivers\\fw\\filter.c:0007,FwFilterPacket,300000,20000.00,2400,1.0000,2.0000,960,"
            "48000,0.4000,20.0000\n"
            "conn.c:1234,ConnTrackLookup,45,3.00,22222,9.2593,0.0028,12000,120000,5.0000,50.0000\n"
            "log.c:90210,LogQueueFlush,7,0.47,500000,208.3334,0.0097,400000,2600000,166.6667,"
            "1083.3333\n");
}

TEST(PerfReport, RecordsWithoutHitsAreLeftOutAndNamesEndAtTheirField) {
  FakeClock clock(kFrequency, kFrequency, kCyclesPerSecond);
  ProfileData data;
  data.endTime = kFrequency;  // one second
  const std::string longName(64, 'f');
  data.records = {
      {"idle.c", "NeverRan", 1, 0, 0, 0, 0},
      {longName, longName, 2, 1, 2400, 2400, 2400},
  };
  // Names that fill their 64-byte fields have no terminator: the file name runs straight into
  // the function name, and that into the line number.
  EXPECT_EQ(Report(data.Bytes(), true),
            "\"CPU, GHz\", 2.4000 GHz\n"
            "\"Test duration, sec\", 1.0000\n"
            "ProfilePriceInTicks,0\n"
            "File,Function,HitCount,\"Hits/Sec\",\"AverageCPU(Cycles)\",AverageTime(uSec),"
            "\"AverageCPU(%)\",MinCPU(Cycles),MaxCPU(Cycles),MinTime(uSec),MaxTime(uSec)\n" +
                longName + ":0002," + longName +
                ",1,1.00,2400,1.0000,0.0001,2400,2400,1.0000,1.0000\n");
}

TEST(PerfReport, ZeroRecordsGiveTheHeaderLinesOnly) {
  FakeClock clock(kFrequency, kFrequency, kCyclesPerSecond);
  ProfileData data;
  data.endTime = 3 * kFrequency / 2;
  data.profilePrice = 12;
  EXPECT_EQ(Report(data.Bytes(), false),
            "CPU was clocked @   2.4000 GHz\n"
            "Test duration:      1.5000 seconds\n"
            "Test ran for:       3600000000 CPU cycles\n"
            "Number of counters: 0\n\n"
            "NOTE: Due to variable clocks in modern CPUs the time measurements \n"
            "should be taken with a grain of salt\n\n"
            "12 CPU cycles are lost per profile sample and are already subtracted\n"
            "from each counter\n\n");
}

TEST(PerfReport, SixtyFourBitFieldsPrintSigned) {
  FakeClock clock(1, 1, 1);
  ProfileData data;
  data.profilePrice = UINT64_MAX;
  data.records = {{"a.c", "F", 0xFFFFFFFF, 1, 0, UINT64_MAX, 0x8000000000000000}};
  const std::string report = Report(data.Bytes(), false);
  EXPECT_NE(report.find("-1 CPU cycles are lost"), std::string::npos) << report;
  EXPECT_NE(report.find("a.c:-001\n"), std::string::npos) << report;
  EXPECT_NE(report.find("Min CPU Cycles:     -1\n"), std::string::npos) << report;
  EXPECT_NE(report.find("Max CPU Cycles:     -9223372036854775808\n"), std::string::npos) << report;
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
