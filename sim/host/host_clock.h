#pragma once

// A scripted clock for the emulated host: the performance counter and the cycle counter move on
// by a fixed step at every reading, so that the profiling report's one-second calibration takes
// no real time and its figures are the same on every run.

#include <cstdint>
#include <optional>
#include <string>

#include "platform/clock.h"
#include "sim/common/json_util.h"

namespace nw::sim {

struct HostClock {
  /// What QueryPerformanceFrequency answers (the usual 10 MHz of a Windows host by default).
  uint64_t frequency = 10000000;
  /// The next reading of the performance counter, and how far each reading moves it on.
  uint64_t counter = 0;
  uint64_t counterStep = 1000000;
  /// The next reading of the cycle counter, and how far each reading moves it on. Since the
  /// report reads the cycle counter once before and once after its calibration second, the
  /// step is the clock rate it measures, in cycles per second.
  uint64_t cycles = 0;
  uint64_t cycleStep = 3000000000;

  /// Each returns the current value and then moves it on by its step (wrapping at 2^64).
  uint64_t ReadCounter();
  uint64_t ReadCycles();
};

/// Reads the host file's "clock" object into *out. On failure returns false with the reason
/// recorded in check.
bool ParseHostClock(JsonChecker& check, const Json& value, const std::string& path,
                    std::optional<HostClock>* out);

/// The Clock facility over a scripted clock (which the caller keeps alive).
class ScriptedClock final : public platform::Clock {
 public:
  explicit ScriptedClock(HostClock* state) : state_(state) {}
  uint64_t QueryPerformanceFrequency() override { return state_->frequency; }
  uint64_t QueryPerformanceCounter() override { return state_->ReadCounter(); }
  uint64_t ReadCycleCounter() override { return state_->ReadCycles(); }

 private:
  HostClock* state_;
};

}  // namespace nw::sim
