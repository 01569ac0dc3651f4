// No self-protection component is named for Windows yet, so this backend is the host without
// one: no key is locked, nothing is lifted, and an exception is granted with nothing to do.
// When the component's control library is named, it is loaded through the product loader like
// the other product libraries, and its interface answers these calls.

#include "platform/self_protection.h"

namespace nw::platform {
namespace {

class Win32SelfProtection final : public SelfProtection {
 public:
  bool IsServiceKeyLocked(const wchar_t*) override { return false; }
  bool LiftServiceKeyLock(const wchar_t*) override { return false; }
  void RestoreServiceKeyLock(const wchar_t*) override {}
  uint32_t BeginException(const wchar_t*, const wchar_t*) override { return 0; }
  void EndException(const wchar_t*, const wchar_t*) override {}
};

}  // namespace

template <>
SelfProtection& Facility<SelfProtection>::Host() {
  static Win32SelfProtection protection;
  return protection;
}

}  // namespace nw::platform
