#pragma once

// The kernel driver's profiler as a scenario describes it (the "profiler" and "profile" fields
// of the "driverLink" section): whether the driver was built with it, and the counters it
// hands out for the read request, with the knobs that make a reply malformed on purpose.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "sim/common/json_util.h"

namespace nw::sim {

/// One instrumented code location.
struct ProfileCounter {
  std::string file = {};      ///< up to 64 bytes; 64 fill the field and leave no terminator
  std::string function = {};  ///< the same
  uint32_t line = 0;
  uint64_t hitCount = 0;
  uint64_t totalCycles = 0;
  uint64_t minCycles = 0;
  uint64_t maxCycles = 0;
};

/// The profile data the driver holds, and how it answers the read request.
struct DriverProfile {
  std::vector<ProfileCounter> counters = {};
  /// The header's record count; absent: the number of counters.
  std::optional<uint32_t> counterCount = {};
  /// The header's count of counters the profiler holds in all; absent: the number of counters.
  std::optional<uint32_t> counterTotal = {};
  uint64_t startTime = 0;
  uint64_t endTime = 0;
  uint64_t profilePrice = 0;
  /// The size of the profile data: the header and records cut off, or padded with zero bytes,
  /// to this many bytes. Absent: exactly the header and the records.
  std::optional<uint64_t> dataSize = {};
  /// The size the reply announces; absent: the size of the data.
  std::optional<uint64_t> announcedSize = {};
  /// The driver never returns more than this many bytes of the reply.
  std::optional<uint32_t> replyLimit = {};
};

/// The most profile data a scenario may describe: the simulator builds it in memory per request.
inline constexpr uint64_t kMaxProfileDataSize = 16u << 20;

/// Reads the "profile" object of the "driverLink" section into *out. On failure returns false
/// with the reason recorded in check.
bool ParseDriverProfile(JsonChecker& check, const Json& value, const std::string& path,
                        DriverProfile* out);

}  // namespace nw::sim
