#include "tables/perf_report.h"

#include <cmath>
#include <cstdarg>
#include <cstring>

#include "base/format.h"
#include "platform/clock.h"

namespace nw {
namespace {

constexpr size_t kNameField = 64;

uint64_t ReadLe(const uint8_t* bytes, size_t count) {
  uint64_t value = 0;
  for (size_t i = count; i > 0; --i) value = value << 8 | bytes[i - 1];
  return value;
}

// A name field is zero-terminated, but one the driver filled to the last byte is cut there.
std::string ReadName(const uint8_t* field) {
  const char* text = reinterpret_cast<const char*>(field);
  size_t length = 0;
  while (length < kNameField && text[length] != '\0') ++length;
  return std::string(text, length);
}

// The report's lines are collected per record and written at once. They go through the
// program's own formatter rather than the C library's printf: glibc reads "%I64d" as its own
// "I" flag followed by a width of 64, and the two C libraries write a NaN with different signs,
// so only our engine gives the same bytes on both hosts.
class NarrowText {
 public:
  void Add(const char* format, ...) {
    va_list args;
    va_start(args, format);
    AppendFormatNarrow(text_, format, args);
    va_end(args);
  }
  void WriteTo(std::FILE* out) {
    std::fwrite(text_.data(), 1, text_.size(), out);
    text_.clear();
  }

 private:
  std::string text_;
};

// The format's "%I64d" and "%d" print the driver's unsigned fields as signed, as they stand.
long long Signed64(uint64_t value) { return static_cast<long long>(value); }
int Signed32(uint32_t value) { return static_cast<int>(value); }

void WriteCsvHeader(NarrowText& text, const PerfDataHeader& header, const PerfRun& run) {
  text.Add("\"CPU, GHz\", %.04f GHz\n", run.clockGhz);
  text.Add("\"Test duration, sec\", %.04f\n", run.durationSeconds);
  text.Add("ProfilePriceInTicks,%I64d\n", Signed64(header.profilePrice));
  text.Add("File,Function,HitCount,\"Hits/Sec\",\"AverageCPU(Cycles)\",AverageTime(uSec),");
  text.Add("\"AverageCPU(%%)\",MinCPU(Cycles),MaxCPU(Cycles),MinTime(uSec),MaxTime(uSec)\n");
}

void WriteCsvRecord(NarrowText& text, const PerfCounterRecord& record,
                    const PerfCounterFigures& figures) {
  text.Add("%s:%04d,", record.file.c_str(), Signed32(record.line));
  text.Add("%s,", record.function.c_str());
  text.Add("%I64d,", Signed64(record.hitCount));
  text.Add("%.02f,", figures.hitsPerSecond);
  text.Add("%I64d,", Signed64(figures.averageCycles));
  text.Add("%.04f,", figures.averageMicroseconds);
  text.Add("%.04f,", figures.cpuPercent);
  text.Add("%I64d,", Signed64(record.minCycles));
  text.Add("%I64d,", Signed64(record.maxCycles));
  text.Add("%.04f,", figures.minMicroseconds);
  text.Add("%.04f\n", figures.maxMicroseconds);
}

void WriteTextHeader(NarrowText& text, const PerfDataHeader& header, const PerfRun& run) {
  text.Add("CPU was clocked @   %.04f GHz\n", run.clockGhz);
  text.Add("Test duration:      %.04f seconds\n", run.durationSeconds);
  text.Add("Test ran for:       %I64d CPU cycles\n", Signed64(run.runCycles));
  text.Add(
      "Number of counters: %d\n\nNOTE: Due to variable clocks in modern CPUs the time "
      "measurements \nshould be taken with a grain of salt\n\n",
      Signed32(header.counterCount));
  text.Add(
      "%I64d CPU cycles are lost per profile sample and are already subtracted\nfrom each "
      "counter\n\n",
      Signed64(header.profilePrice));
}

void WriteTextRecord(NarrowText& text, const PerfCounterRecord& record,
                     const PerfCounterFigures& figures) {
  text.Add("%s:%04d\n", record.file.c_str(), Signed32(record.line));
  text.Add("Func:               %s\n", record.function.c_str());
  text.Add("Hit Count:          %I64d\n", Signed64(record.hitCount));
  text.Add("Hits/sec:           %.02f\n", figures.hitsPerSecond);
  text.Add("Average CPU Cycles: %I64d\n", Signed64(figures.averageCycles));
  text.Add("Average CPU, %%:     %02.04f\n", figures.cpuPercent);
  text.Add("Average Time, uSec: %.04f\n", figures.averageMicroseconds);
  text.Add("Min CPU Cycles:     %I64d\n", Signed64(record.minCycles));
  text.Add("Min Time, uSec:     %.04f\n", figures.minMicroseconds);
  text.Add("Max CPU Cycles:     %I64d\n", Signed64(record.maxCycles));
  text.Add("Max Time, uSec:     %.04f\n", figures.maxMicroseconds);
  text.Add("===============================================\n\n");
}

}  // namespace

PerfDataHeader ReadPerfDataHeader(const uint8_t* data) {
  PerfDataHeader header;
  header.counterCount = static_cast<uint32_t>(ReadLe(data, 4));
  header.counterTotal = static_cast<uint32_t>(ReadLe(data + 4, 4));
  header.startTime = ReadLe(data + 8, 8);
  header.endTime = ReadLe(data + 16, 8);
  header.profilePrice = ReadLe(data + 24, 8);
  return header;
}

PerfCounterRecord ReadPerfCounterRecord(const uint8_t* record) {
  PerfCounterRecord out;
  out.file = ReadName(record);
  out.function = ReadName(record + 64);
  out.line = static_cast<uint32_t>(ReadLe(record + 128, 4));
  out.hitCount = ReadLe(record + 136, 8);
  out.totalCycles = ReadLe(record + 144, 8);
  out.minCycles = ReadLe(record + 152, 8);
  out.maxCycles = ReadLe(record + 160, 8);
  return out;
}

uint32_t CheckPerfData(const uint8_t* data, uint64_t size) {
  if (data == nullptr || size < kPerfHeaderSize) return kPerfDataInvalid;
  const uint64_t records = (size - kPerfHeaderSize) / kPerfRecordSize;
  return ReadPerfDataHeader(data).counterCount > records ? kPerfDataInvalid : 0;
}

PerfCalibration CalibrateProcessorClock() {
  platform::Clock& clock = platform::TheClock();
  PerfCalibration calibration;
  calibration.frequency = clock.QueryPerformanceFrequency();
  const uint64_t start = clock.QueryPerformanceCounter();
  const uint64_t startCycles = clock.ReadCycleCounter();
  while (clock.QueryPerformanceCounter() - start < calibration.frequency) {
  }
  calibration.cyclesPerSecond = clock.ReadCycleCounter() - startCycles;
  return calibration;
}

uint64_t TruncateToUnsigned(double value) {
  // 2^64: the first value the type cannot hold.
  constexpr double kLimit = 18446744073709551616.0;
  if (!(value >= 0)) return 0;
  if (value >= kLimit) return UINT64_MAX;
  return static_cast<uint64_t>(value);
}

PerfRun ComputePerfRun(const PerfDataHeader& header, const PerfCalibration& calibration) {
  PerfRun run;
  run.cyclesPerSecond = static_cast<double>(calibration.cyclesPerSecond);
  run.durationSeconds = static_cast<double>(header.endTime - header.startTime) /
                        static_cast<double>(calibration.frequency);
  run.runCycles = TruncateToUnsigned(run.durationSeconds * run.cyclesPerSecond);
  run.clockGhz = run.cyclesPerSecond / 1000 / 1000 / 1000;
  return run;
}

PerfCounterFigures ComputeCounterFigures(const PerfCounterRecord& record, const PerfRun& run) {
  PerfCounterFigures figures;
  const double hits = static_cast<double>(record.hitCount);
  const double total = static_cast<double>(record.totalCycles);
  figures.hitsPerSecond = hits / run.durationSeconds;
  figures.averageCycles = record.totalCycles / record.hitCount;
  figures.averageMicroseconds = total / hits * 1000 * 1000 / run.cyclesPerSecond;
  figures.cpuPercent = total * 100 / static_cast<double>(run.runCycles);
  figures.minMicroseconds =
      static_cast<double>(record.minCycles) * 1000 * 1000 / run.cyclesPerSecond;
  figures.maxMicroseconds =
      static_cast<double>(record.maxCycles) * 1000 * 1000 / run.cyclesPerSecond;
  return figures;
}

uint32_t PrintPerfReport(const uint8_t* data, uint64_t size, bool csv, std::FILE* out) {
  if (const uint32_t invalid = CheckPerfData(data, size); invalid != 0) return invalid;
  const PerfDataHeader header = ReadPerfDataHeader(data);
  const PerfRun run = ComputePerfRun(header, CalibrateProcessorClock());
  NarrowText text;
  if (csv) {
    WriteCsvHeader(text, header, run);
  } else {
    WriteTextHeader(text, header, run);
  }
  text.WriteTo(out);
  for (uint32_t i = 0; i < header.counterCount; ++i) {
    const PerfCounterRecord record =
        ReadPerfCounterRecord(data + kPerfHeaderSize + uint64_t{i} * kPerfRecordSize);
    // The driver never reports a location that did not run; one that did not is left out
    // rather than divided by.
    if (record.hitCount == 0) continue;
    const PerfCounterFigures figures = ComputeCounterFigures(record, run);
    if (csv) {
      WriteCsvRecord(text, record, figures);
    } else {
      WriteTextRecord(text, record, figures);
    }
    text.WriteTo(out);
  }
  return 0;
}

void PrintNarrow(std::FILE* out, const char* format, ...) {
  std::string text;
  va_list args;
  va_start(args, format);
  AppendFormatNarrow(text, format, args);
  va_end(args);
  std::fwrite(text.data(), 1, text.size(), out);
}

}  // namespace nw
