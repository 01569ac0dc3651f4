// Named mutexes on Windows.

#include <windows.h>

#undef OpenMutex

#include "platform/named_mutex.h"

namespace nw::platform {
namespace {

static_assert(kSynchronize == SYNCHRONIZE && kInfinite == INFINITE &&
              kWaitObject0 == WAIT_OBJECT_0 && kWaitAbandoned == WAIT_ABANDONED &&
              kWaitFailed == WAIT_FAILED);

class Win32Mutexes final : public Mutexes {
 public:
  MutexHandle OpenMutex(uint32_t access, const wchar_t* name, uint32_t* error) override {
    HANDLE mutex = ::OpenMutexW(access, FALSE, name);
    if (mutex == nullptr) *error = ::GetLastError();
    return mutex;
  }
  uint32_t WaitForSingleObject(MutexHandle mutex, uint32_t milliseconds) override {
    return ::WaitForSingleObject(mutex, milliseconds);
  }
  bool ReleaseMutex(MutexHandle mutex) override { return ::ReleaseMutex(mutex) != FALSE; }
  bool CloseHandle(MutexHandle mutex) override { return ::CloseHandle(mutex) != FALSE; }
};

}  // namespace

template <>
Mutexes& Facility<Mutexes>::Host() {
  static Win32Mutexes mutexes;
  return mutexes;
}

}  // namespace nw::platform
