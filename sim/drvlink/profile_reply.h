#pragma once

// The driver's answers to the profiling requests: 63 starts the profiler, 64 stops it, 65 reads
// its counters into the caller's buffer.

#include <cstdint>
#include <vector>

#include "core/interfaces.h"
#include "core/status.h"
#include "sim/common/scenario.h"

namespace nw::sim {

/// The reply to the read request: a 32-byte reply header whose first field is the announced
/// size, then the profile data, all little-endian as the driver writes it.
std::vector<uint8_t> BuildProfileReply(const DriverProfile& profile);

/// Answers one profiling request as the driver of the scenario would: 1 (invalid function) from
/// a driver without the profiler; for the read, 122 (insufficient buffer) when the buffer cannot
/// take the 32-byte reply header, otherwise as much of the reply as fits the buffer and the
/// scenario's reply limit. *bytesReturned (when given) receives the bytes written.
Status AnswerProfilingRequest(const DriverLinkState& driver, uint32_t code, void* output,
                              uint32_t outputSize, uint32_t* bytesReturned);

}  // namespace nw::sim
