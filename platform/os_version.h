#pragma once

#include <cstdint>

#include "platform/facility.h"

namespace nw::platform {

/// What RtlGetVersion reports in its extended version record.
struct OsVersionInfo {
  uint32_t major = 0;
  uint32_t minor = 0;
  uint32_t build = 0;
  uint16_t servicePackMajor = 0;
  uint16_t servicePackMinor = 0;
};

/// The running system's version, as RtlGetVersion gives it (looked up in ntdll.dll at run time,
/// because the program keeps no link-time dependency on it).
class OsVersion {
 public:
  virtual ~OsVersion() = default;

  /// False when RtlGetVersion cannot be found or fails.
  virtual bool RtlGetVersion(OsVersionInfo* info) = 0;
};

template <>
OsVersion& Facility<OsVersion>::Host();

inline OsVersion& TheOsVersion() { return Facility<OsVersion>::Get(); }

}  // namespace nw::platform
