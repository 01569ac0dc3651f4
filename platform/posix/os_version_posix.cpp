// The OS version the emulated host reports ("osVersion" in the host file; Windows 10 when the
// file says nothing, and no RtlGetVersion at all when it says null).

#include "platform/os_version.h"
#include "sim/host/host_state.h"

namespace nw::platform {
namespace {

class PosixOsVersion final : public OsVersion {
 public:
  bool RtlGetVersion(OsVersionInfo* info) override {
    const auto& version = sim::Host().drivers.osVersion;
    if (!version) return false;
    info->major = version->major;
    info->minor = version->minor;
    info->build = version->build;
    info->servicePackMajor = version->servicePackMajor;
    info->servicePackMinor = version->servicePackMinor;
    return true;
  }
};

}  // namespace

template <>
OsVersion& Facility<OsVersion>::Host() {
  static PosixOsVersion version;
  return version;
}

}  // namespace nw::platform
