#include "sim/drvlink/profile_reply.h"

#include <algorithm>
#include <cstring>

#include "sim/drvlink/drvlink_objects.h"

namespace nw::sim {
namespace {

constexpr size_t kReplyHeaderSize = 32;
constexpr size_t kProfileHeaderSize = 40;
constexpr size_t kRecordSize = 168;
constexpr size_t kNameSize = 64;
constexpr Status kErrorInsufficientBufferStatus = static_cast<Status>(kErrorInsufficientBuffer);

void PutLe(std::vector<uint8_t>& out, size_t offset, uint64_t value, size_t bytes) {
  for (size_t i = 0; i < bytes; ++i) out[offset + i] = static_cast<uint8_t>(value >> (8 * i));
}

void PutName(std::vector<uint8_t>& out, size_t offset, const std::string& name) {
  std::memcpy(out.data() + offset, name.data(), std::min(name.size(), kNameSize));
}

}  // namespace

std::vector<uint8_t> BuildProfileReply(const DriverProfile& profile) {
  const size_t count = profile.counters.size();
  std::vector<uint8_t> data(kProfileHeaderSize + count * kRecordSize, 0);
  PutLe(data, 0, profile.counterCount.value_or(static_cast<uint32_t>(count)), 4);
  PutLe(data, 4, profile.counterTotal.value_or(static_cast<uint32_t>(count)), 4);
  PutLe(data, 8, profile.startTime, 8);
  PutLe(data, 16, profile.endTime, 8);
  PutLe(data, 24, profile.profilePrice, 8);
  for (size_t i = 0; i < count; ++i) {
    const ProfileCounter& counter = profile.counters[i];
    const size_t at = kProfileHeaderSize + i * kRecordSize;
    PutName(data, at, counter.file);
    PutName(data, at + 64, counter.function);
    PutLe(data, at + 128, counter.line, 4);
    PutLe(data, at + 136, counter.hitCount, 8);
    PutLe(data, at + 144, counter.totalCycles, 8);
    PutLe(data, at + 152, counter.minCycles, 8);
    PutLe(data, at + 160, counter.maxCycles, 8);
  }
  if (profile.dataSize) data.resize(static_cast<size_t>(*profile.dataSize), 0);
  std::vector<uint8_t> reply(kReplyHeaderSize + data.size(), 0);
  PutLe(reply, 0, profile.announcedSize.value_or(data.size()), 8);
  if (!data.empty()) std::memcpy(reply.data() + kReplyHeaderSize, data.data(), data.size());
  return reply;
}

Status AnswerProfilingRequest(const DriverLinkState& driver, uint32_t code, void* output,
                              uint32_t outputSize, uint32_t* bytesReturned) {
  if (bytesReturned != nullptr) *bytesReturned = 0;
  if (!driver.profiler) return kErrorInvalidFunction;
  if (code != kDriverRequestReadProfile) return kStatusOk;
  if (output == nullptr || outputSize < kReplyHeaderSize) return kErrorInsufficientBufferStatus;
  const std::vector<uint8_t> reply = BuildProfileReply(driver.profile);
  size_t written = std::min<size_t>(outputSize, reply.size());
  if (driver.profile.replyLimit) written = std::min<size_t>(written, *driver.profile.replyLimit);
  std::memcpy(output, reply.data(), written);
  if (bytesReturned != nullptr) *bytesReturned = static_cast<uint32_t>(written);
  return kStatusOk;
}

}  // namespace nw::sim
