#include "sim/common/object_registry.h"

namespace nw::sim {

uint64_t ObjectRegistry::Add(const char* interfaceName, const std::atomic<uint32_t>* refs) {
  std::lock_guard<std::mutex> lock(mutex_);
  const uint64_t serial = nextSerial_++;
  live_.emplace(serial, Entry{interfaceName, refs});
  return serial;
}

void ObjectRegistry::Remove(uint64_t serial) {
  std::lock_guard<std::mutex> lock(mutex_);
  live_.erase(serial);
}

size_t ObjectRegistry::size() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return live_.size();
}

std::vector<ObjectRegistry::Live> ObjectRegistry::Snapshot() const {
  std::lock_guard<std::mutex> lock(mutex_);
  std::vector<Live> out;
  out.reserve(live_.size());
  for (const auto& [serial, entry] : live_) {
    out.push_back(Live{entry.interfaceName, entry.refs->load(std::memory_order_relaxed)});
  }
  return out;
}

}  // namespace nw::sim
