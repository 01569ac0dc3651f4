#pragma once

// Test doubles of the profiling tests: a clock that counts its readings, and profile data laid
// out byte by byte as the driver writes it.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/clock.h"

namespace nw::testing {

/// A clock whose counters move on by a fixed step per reading; in place for its lifetime.
class FakeClock final : public platform::Clock {
 public:
  struct State {
    uint64_t frequency, counter, counterStep, cycles, cycleStep;
  };
  State state;
  int counterReads = 0;
  int cycleReads = 0;

  FakeClock(uint64_t frequency, uint64_t counterStep, uint64_t cycleStep)
      : state{frequency, 0, counterStep, 1000, cycleStep} {
    platform::Facility<platform::Clock>::SetForTesting(this);
  }
  ~FakeClock() override { platform::Facility<platform::Clock>::SetForTesting(nullptr); }

  uint64_t QueryPerformanceFrequency() override { return state.frequency; }
  uint64_t QueryPerformanceCounter() override {
    ++counterReads;
    const uint64_t reading = state.counter;
    state.counter += state.counterStep;
    return reading;
  }
  uint64_t ReadCycleCounter() override {
    ++cycleReads;
    const uint64_t reading = state.cycles;
    state.cycles += state.cycleStep;
    return reading;
  }
};

struct ProfileRecord {
  std::string file;  // at most 64 bytes; 64 leave no terminator
  std::string function;
  uint32_t line;
  uint64_t hitCount, totalCycles, minCycles, maxCycles;
};

/// Profile data: the 40-byte header, then 168 bytes per record, little-endian.
struct ProfileData {
  std::optional<uint32_t> counterCount;  // absent: the number of records
  uint32_t counterTotal = 64;
  uint64_t startTime = 0;
  uint64_t endTime = 0;
  uint64_t profilePrice = 0;
  std::vector<ProfileRecord> records;

  std::vector<uint8_t> Bytes() const {
    std::vector<uint8_t> out(40 + 168 * records.size(), 0);
    Put(out, 0, counterCount.value_or(static_cast<uint32_t>(records.size())), 4);
    Put(out, 4, counterTotal, 4);
    Put(out, 8, startTime, 8);
    Put(out, 16, endTime, 8);
    Put(out, 24, profilePrice, 8);
    Put(out, 32, 0xA5A5A5A5A5A5A5A5u, 8);  // reserved: never read
    for (size_t i = 0; i < records.size(); ++i) {
      const ProfileRecord& r = records[i];
      const size_t at = 40 + 168 * i;
      r.file.copy(reinterpret_cast<char*>(out.data() + at), 64);
      r.function.copy(reinterpret_cast<char*>(out.data() + at + 64), 64);
      Put(out, at + 128, r.line, 4);
      Put(out, at + 132, 0xA5A5A5A5u, 4);  // alignment: never read
      Put(out, at + 136, r.hitCount, 8);
      Put(out, at + 144, r.totalCycles, 8);
      Put(out, at + 152, r.minCycles, 8);
      Put(out, at + 160, r.maxCycles, 8);
    }
    return out;
  }

 private:
  static void Put(std::vector<uint8_t>& out, size_t at, uint64_t value, size_t bytes) {
    for (size_t i = 0; i < bytes; ++i) out[at + i] = static_cast<uint8_t>(value >> (8 * i));
  }
};

}  // namespace nw::testing
