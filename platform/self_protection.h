#pragma once

#include <cstdint>

#include "platform/facility.h"

namespace nw::platform {

/// The host's self-protection component: it can hold a driver service's registry key locked
/// against changes, and grant a process a temporary exception for changing one named driver's
/// service. On a host without such a component the key is never locked, nothing is lifted, and
/// an exception is granted without anything being done.
class SelfProtection {
 public:
  virtual ~SelfProtection() = default;

  /// Whether the component holds the key of service (its name, no path) locked.
  virtual bool IsServiceKeyLocked(const wchar_t* service) = 0;
  /// Lifts that lock for this process; true only when it was locked and is now lifted.
  virtual bool LiftServiceKeyLock(const wchar_t* service) = 0;
  /// Puts back a lock this process lifted.
  virtual void RestoreServiceKeyLock(const wchar_t* service) = 0;
  /// Asks for an exception for changing service on behalf of clientTag: 0 when granted,
  /// otherwise the Windows error number of the refusal.
  virtual uint32_t BeginException(const wchar_t* clientTag, const wchar_t* service) = 0;
  /// Gives back an exception that BeginException granted.
  virtual void EndException(const wchar_t* clientTag, const wchar_t* service) = 0;
};

template <>
SelfProtection& Facility<SelfProtection>::Host();

inline SelfProtection& TheSelfProtection() { return Facility<SelfProtection>::Get(); }

}  // namespace nw::platform
