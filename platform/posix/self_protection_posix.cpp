// The self-protection component of the emulated host ("selfProtection" in the host file). It
// holds the listed service keys locked: the registry and the service control manager refuse to
// change a locked key or to stop its service (access denied). A process may lift a lock only
// while it holds an exception for that service. A lifted lock is written back to the host file
// at once ("lifted"), so a run that ends without restoring it leaves the key unlocked for the
// next run, as it would on a real host, and the leak report says so.

#include <string>

#include "platform/self_protection.h"
#include "sim/host/host_state.h"

namespace nw::platform {
namespace {

class PosixSelfProtection final : public SelfProtection {
 public:
  bool IsServiceKeyLocked(const wchar_t* service) override {
    return service != nullptr && sim::ServiceKeyLocked(service);
  }

  bool LiftServiceKeyLock(const wchar_t* service) override {
    if (!IsServiceKeyLocked(service)) return false;
    const std::wstring name = sim::UpperAscii(service);
    auto held = sim::Usage().exceptions.find(name);
    if (held == sim::Usage().exceptions.end() || held->second == 0) return false;
    std::string error;
    if (!sim::SetServiceKeyLifted(service, true, &error)) return false;
    sim::Usage().liftedKeys.insert(name);
    return true;
  }

  void RestoreServiceKeyLock(const wchar_t* service) override {
    if (service == nullptr) return;
    const std::wstring name = sim::UpperAscii(service);
    // Only a lock this process lifted is put back.
    if (sim::Usage().liftedKeys.count(name) == 0) return;
    std::string error;
    if (sim::SetServiceKeyLifted(service, false, &error)) sim::Usage().liftedKeys.erase(name);
  }

  uint32_t BeginException(const wchar_t*, const wchar_t* service) override {
    const sim::DriverHost& drivers = sim::Host().drivers;
    if (!drivers.selfProtection || service == nullptr) return 0;
    if (drivers.refuseExceptions) return *drivers.refuseExceptions;
    ++sim::Usage().exceptions[sim::UpperAscii(service)];
    return 0;
  }

  void EndException(const wchar_t*, const wchar_t* service) override {
    if (service == nullptr) return;
    auto held = sim::Usage().exceptions.find(sim::UpperAscii(service));
    if (held != sim::Usage().exceptions.end() && held->second > 0) --held->second;
  }
};

}  // namespace

template <>
SelfProtection& Facility<SelfProtection>::Host() {
  static PosixSelfProtection protection;
  return protection;
}

}  // namespace nw::platform
