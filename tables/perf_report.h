#pragma once

// The kernel profiler's report: the profile data the driver hands back for request 65, the
// figures derived from it, and the text and comma-separated forms of the report.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

namespace nw {

/// The profile data: a 40-byte header, then 168-byte counter records.
inline constexpr uint64_t kPerfHeaderSize = 40;
inline constexpr uint64_t kPerfRecordSize = 168;
/// ERROR_INVALID_DATA: what the report answers for data that does not hold the records its
/// header counts.
inline constexpr uint32_t kPerfDataInvalid = 13;

struct PerfDataHeader {
  uint32_t counterCount = 0;
  uint32_t counterTotal = 0;
  uint64_t startTime = 0;
  uint64_t endTime = 0;
  uint64_t profilePrice = 0;
};

struct PerfCounterRecord {
  std::string file;      ///< up to the terminator, at most the 64 bytes of the field
  std::string function;  ///< the same
  uint32_t line = 0;
  uint64_t hitCount = 0;
  uint64_t totalCycles = 0;
  uint64_t minCycles = 0;
  uint64_t maxCycles = 0;
};

/// Decode the little-endian layouts; data holds at least kPerfHeaderSize (or kPerfRecordSize)
/// bytes.
PerfDataHeader ReadPerfDataHeader(const uint8_t* data);
PerfCounterRecord ReadPerfCounterRecord(const uint8_t* record);

/// 0 when size bytes hold the header and the counterCount records it announces, otherwise
/// kPerfDataInvalid.
uint32_t CheckPerfData(const uint8_t* data, uint64_t size);

/// The processor's clock as measured against one second of the performance counter.
struct PerfCalibration {
  uint64_t frequency = 0;        ///< performance-counter counts per second
  uint64_t cyclesPerSecond = 0;  ///< time-stamp counter cycles in that second
};

/// Reads the frequency, then the performance counter and the time-stamp counter, waits (reading
/// the performance counter again and again) until one full second of it has passed, and reads
/// the time-stamp counter again. Takes a real second on a real host.
PerfCalibration CalibrateProcessorClock();

/// The figures of the whole profiling run.
struct PerfRun {
  double durationSeconds = 0;  ///< (endTime - startTime) / frequency
  uint64_t runCycles = 0;      ///< duration x cycles per second, truncated
  double clockGhz = 0;         ///< cycles per second / 10^9
  double cyclesPerSecond = 0;
};

PerfRun ComputePerfRun(const PerfDataHeader& header, const PerfCalibration& calibration);

/// The figures of one counter record.
struct PerfCounterFigures {
  double hitsPerSecond = 0;
  uint64_t averageCycles = 0;  ///< integer division
  double averageMicroseconds = 0;
  double cpuPercent = 0;  ///< of the run's cycles
  double minMicroseconds = 0;
  double maxMicroseconds = 0;
};

/// hitCount must not be 0 (the report skips such records).
PerfCounterFigures ComputeCounterFigures(const PerfCounterRecord& record, const PerfRun& run);

/// Converts a non-negative double to an unsigned 64-bit integer by truncation; values beyond
/// the type's range give its maximum, and NaN or negative values 0.
uint64_t TruncateToUnsigned(double value);

/// Writes the report on data (size bytes of profile data) to out, in the comma-separated form
/// when csv is set and in the text form otherwise; records with a hit count of 0 are left out.
/// Returns 0, or kPerfDataInvalid, before calibrating or writing anything, when the data does
/// not hold what its header says.
uint32_t PrintPerfReport(const uint8_t* data, uint64_t size, bool csv, std::FILE* out);

/// Narrow printf-style output of the profiling commands, formatted by the program's own engine
/// (base/format.h) and written to out with fwrite.
void PrintNarrow(std::FILE* out, const char* format, ...);

}  // namespace nw
