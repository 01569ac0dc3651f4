#pragma once

#include <cstdint>

#include "platform/facility.h"

namespace nw::platform {

/// The two time sources the profiling report calibrates against each other: a performance
/// counter with a known frequency, and the processor's cycle counter, whose rate is learnt by
/// watching it for one second of the performance counter.
class Clock {
 public:
  virtual ~Clock() = default;

  /// QueryPerformanceFrequency: counts per second of the performance counter. Never 0.
  virtual uint64_t QueryPerformanceFrequency() = 0;
  /// QueryPerformanceCounter: the current count; it never goes backwards.
  virtual uint64_t QueryPerformanceCounter() = 0;
  /// The processor's time-stamp counter (cycles since an arbitrary start). Not named after the
  /// Windows headers' ReadTimeStampCounter, which is a macro for the intrinsic.
  virtual uint64_t ReadCycleCounter() = 0;
};

template <>
Clock& Facility<Clock>::Host();

inline Clock& TheClock() { return Facility<Clock>::Get(); }

}  // namespace nw::platform
