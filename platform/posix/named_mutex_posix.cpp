// Named mutexes of the emulated host: those the host file lists exist, and nobody else owns
// them while this program waits, so a wait succeeds at once.

#include <set>
#include <string>

#include "core/status.h"
#include "platform/last_error.h"
#include "platform/named_mutex.h"
#include "sim/host/host_state.h"

namespace nw::platform {
namespace {

struct OpenMutexRecord {
  std::wstring name;
};

std::set<OpenMutexRecord*>& LiveMutexes() {
  static std::set<OpenMutexRecord*> mutexes;
  return mutexes;
}

OpenMutexRecord* Live(MutexHandle handle) {
  auto* record = static_cast<OpenMutexRecord*>(handle);
  return LiveMutexes().count(record) != 0 ? record : nullptr;
}

class PosixMutexes final : public Mutexes {
 public:
  MutexHandle OpenMutex(uint32_t, const wchar_t* name, uint32_t* error) override {
    uint32_t failure = 0;
    if (auto fault = sim::HostFault("OpenMutex")) {
      failure = static_cast<uint32_t>(*fault);
    } else if (name == nullptr) {
      failure = kErrorInvalidParameter;
    } else {
      // Object names are case-sensitive.
      for (const auto& existing : sim::Host().drivers.mutexes) {
        if (existing == name) {
          auto* record = new OpenMutexRecord{name};
          LiveMutexes().insert(record);
          ++sim::Usage().mutexHandles;
          return record;
        }
      }
      failure = kErrorFileNotFound;
    }
    SetThreadLastError(failure);
    *error = failure;
    return nullptr;
  }

  uint32_t WaitForSingleObject(MutexHandle mutex, uint32_t) override {
    if (Live(mutex) == nullptr) {
      SetThreadLastError(6);
      return kWaitFailed;
    }
    if (auto fault = sim::HostFault("WaitForSingleObject")) return static_cast<uint32_t>(*fault);
    return kWaitObject0;
  }

  bool ReleaseMutex(MutexHandle mutex) override { return Live(mutex) != nullptr; }

  bool CloseHandle(MutexHandle mutex) override {
    OpenMutexRecord* record = Live(mutex);
    if (record == nullptr) {
      SetThreadLastError(6);
      return false;
    }
    LiveMutexes().erase(record);
    delete record;
    --sim::Usage().mutexHandles;
    return true;
  }
};

}  // namespace

template <>
Mutexes& Facility<Mutexes>::Host() {
  static PosixMutexes mutexes;
  return mutexes;
}

}  // namespace nw::platform
