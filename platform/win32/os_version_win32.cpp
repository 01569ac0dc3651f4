// The OS version from RtlGetVersion, which, unlike GetVersionEx, is not shaped by the
// program's compatibility manifest. It is looked up in ntdll.dll at run time.

#include <windows.h>

#include "platform/os_version.h"

namespace nw::platform {
namespace {

using RtlGetVersionFn = LONG(WINAPI*)(OSVERSIONINFOEXW*);

class Win32OsVersion final : public OsVersion {
 public:
  bool RtlGetVersion(OsVersionInfo* info) override {
    HMODULE ntdll = ::GetModuleHandleW(L"ntdll.dll");
    if (ntdll == nullptr) return false;
    auto call = reinterpret_cast<RtlGetVersionFn>(
        reinterpret_cast<void*>(::GetProcAddress(ntdll, "RtlGetVersion")));
    if (call == nullptr) return false;
    OSVERSIONINFOEXW version = {};
    version.dwOSVersionInfoSize = sizeof version;
    if (call(&version) != 0) return false;
    info->major = version.dwMajorVersion;
    info->minor = version.dwMinorVersion;
    info->build = version.dwBuildNumber;
    info->servicePackMajor = version.wServicePackMajor;
    info->servicePackMinor = version.wServicePackMinor;
    return true;
  }
};

}  // namespace

template <>
OsVersion& Facility<OsVersion>::Host() {
  static Win32OsVersion version;
  return version;
}

}  // namespace nw::platform
