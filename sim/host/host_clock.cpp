#include "sim/host/host_clock.h"

#include <limits>

namespace nw::sim {

uint64_t HostClock::ReadCounter() {
  const uint64_t reading = counter;
  counter += counterStep;
  return reading;
}

uint64_t HostClock::ReadCycles() {
  const uint64_t reading = cycles;
  cycles += cycleStep;
  return reading;
}

bool ParseHostClock(JsonChecker& check, const Json& value, const std::string& path,
                    std::optional<HostClock>* out) {
  if (!check.Object(value, path, {"frequency", "counter", "counterStep", "cycles", "cycleStep"})) {
    return false;
  }
  HostClock clock;
  constexpr uint64_t kMax = std::numeric_limits<uint64_t>::max();
  // A frequency or a counter step of 0 would leave the calibration waiting for a second that
  // never comes; a cycle step of 0 would stop the processor's clock. Neither is a host.
  const struct {
    const char* key;
    uint64_t HostClock::*field;
    uint64_t min;
  } fields[] = {
      {"frequency", &HostClock::frequency, 1},     {"counter", &HostClock::counter, 0},
      {"counterStep", &HostClock::counterStep, 1}, {"cycles", &HostClock::cycles, 0},
      {"cycleStep", &HostClock::cycleStep, 1},
  };
  for (const auto& field : fields) {
    auto it = value.find(field.key);
    if (it == value.end()) continue;
    const std::string fieldPath = JsonPath(path, field.key);
    if (!it->is_number_unsigned() || it->get<uint64_t>() < field.min) {
      return check.Fail(fieldPath, "an integer from " + std::to_string(field.min) + " to " +
                                       std::to_string(kMax));
    }
    clock.*field.field = it->get<uint64_t>();
  }
  *out = clock;
  return true;
}

}  // namespace nw::sim
