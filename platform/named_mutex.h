#pragma once

#include <cstdint>

#include "platform/facility.h"

namespace nw::platform {

using MutexHandle = void*;

inline constexpr uint32_t kSynchronize = 0x00100000;
inline constexpr uint32_t kInfinite = 0xFFFFFFFFu;
inline constexpr uint32_t kWaitObject0 = 0;
inline constexpr uint32_t kWaitAbandoned = 0x80;
inline constexpr uint32_t kWaitFailed = 0xFFFFFFFFu;

/// Named mutexes another process of the product may hold, with the semantics of OpenMutexW,
/// WaitForSingleObject, ReleaseMutex and CloseHandle.
class Mutexes {
 public:
  virtual ~Mutexes() = default;

  /// OpenMutexW(access, no inheritance, name): null with *error (2 when no such mutex exists).
  virtual MutexHandle OpenMutex(uint32_t access, const wchar_t* name, uint32_t* error) = 0;
  /// WaitForSingleObject: kWaitObject0, kWaitAbandoned or kWaitFailed.
  virtual uint32_t WaitForSingleObject(MutexHandle mutex, uint32_t milliseconds) = 0;
  virtual bool ReleaseMutex(MutexHandle mutex) = 0;
  virtual bool CloseHandle(MutexHandle mutex) = 0;
};

template <>
Mutexes& Facility<Mutexes>::Host();

inline Mutexes& TheMutexes() { return Facility<Mutexes>::Get(); }

}  // namespace nw::platform
