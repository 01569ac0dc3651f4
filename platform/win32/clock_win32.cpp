// The performance counter and the time-stamp counter of a Windows host.

#include <windows.h>
#include <x86intrin.h>

#include "platform/clock.h"

namespace nw::platform {
namespace {

class Win32Clock final : public Clock {
 public:
  // Both calls succeed on every Windows since XP and report positive values.
  uint64_t QueryPerformanceFrequency() override {
    LARGE_INTEGER frequency;
    ::QueryPerformanceFrequency(&frequency);
    return static_cast<uint64_t>(frequency.QuadPart);
  }

  uint64_t QueryPerformanceCounter() override {
    LARGE_INTEGER counter;
    ::QueryPerformanceCounter(&counter);
    return static_cast<uint64_t>(counter.QuadPart);
  }

  uint64_t ReadCycleCounter() override { return __rdtsc(); }
};

}  // namespace

template <>
Clock& Facility<Clock>::Host() {
  static Win32Clock clock;
  return clock;
}

}  // namespace nw::platform
