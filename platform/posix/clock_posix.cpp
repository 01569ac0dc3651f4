// The emulated host's clock: the host file's scripted clock when it has one, otherwise the
// system's monotonic clock standing in for the performance counter and the processor's own
// cycle counter. The performance counter runs at 10 MHz, as it does on current Windows, so
// that counter readings in a scenario mean the same time on both hosts.

#include <time.h>

#include "platform/clock.h"
#include "sim/host/host_state.h"

#if defined(__x86_64__) || defined(__i386__)
#include <x86intrin.h>
#endif

namespace nw::platform {
namespace {

constexpr uint64_t kNanosecondsPerSecond = 1000000000;
constexpr uint64_t kCounterFrequency = 10000000;
constexpr uint64_t kNanosecondsPerCount = kNanosecondsPerSecond / kCounterFrequency;

uint64_t MonotonicNanoseconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint64_t>(now.tv_sec) * kNanosecondsPerSecond +
         static_cast<uint64_t>(now.tv_nsec);
}

class PosixClock final : public Clock {
 public:
  uint64_t QueryPerformanceFrequency() override {
    const auto& scripted = sim::Host().clock;
    return scripted ? scripted->frequency : kCounterFrequency;
  }

  uint64_t QueryPerformanceCounter() override {
    auto& scripted = sim::Host().clock;
    return scripted ? scripted->ReadCounter() : MonotonicNanoseconds() / kNanosecondsPerCount;
  }

  uint64_t ReadCycleCounter() override {
    auto& scripted = sim::Host().clock;
    if (scripted) return scripted->ReadCycles();
#if defined(__x86_64__) || defined(__i386__)
    return __rdtsc();
#else
    // Without a time-stamp counter the report measures nanoseconds as its "cycles": any
    // steadily counting source serves the calibration.
    return MonotonicNanoseconds();
#endif
  }
};

}  // namespace

template <>
Clock& Facility<Clock>::Host() {
  static PosixClock clock;
  return clock;
}

}  // namespace nw::platform
