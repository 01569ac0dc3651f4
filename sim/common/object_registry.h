#pragma once

// The objects a simulated library has handed out and not yet destroyed, so that it can say at
// unload which ones the program forgot to release.

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace nw::sim {

class ObjectRegistry {
 public:
  struct Live {
    std::string interfaceName;
    uint32_t refs;
  };

  ObjectRegistry() = default;
  ObjectRegistry(const ObjectRegistry&) = delete;
  ObjectRegistry& operator=(const ObjectRegistry&) = delete;

  /// Records an object whose reference count lives at *refs (read when a report is made).
  /// Returns the serial that removes it again.
  uint64_t Add(const char* interfaceName, const std::atomic<uint32_t>* refs);
  void Remove(uint64_t serial);
  size_t size() const;
  /// The live objects in the order they were created.
  std::vector<Live> Snapshot() const;

 private:
  struct Entry {
    const char* interfaceName;
    const std::atomic<uint32_t>* refs;
  };

  mutable std::mutex mutex_;
  uint64_t nextSerial_ = 1;
  std::map<uint64_t, Entry> live_;
};

}  // namespace nw::sim
