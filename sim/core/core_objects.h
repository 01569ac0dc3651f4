#pragma once

// The simulated core's objects behind kvxfwctl.dll: the point-product registration and the
// control interface with what it hands out.

#include <memory>
#include <mutex>
#include <vector>

#include "core/guid.h"
#include "core/status.h"
#include "sim/common/library_state.h"

namespace nw::sim {

/// The interface name the core's library hands the registration interface out under.
inline constexpr const char* kRegisterPointProductName = "VantorRegisterPointProduct3";
/// The service-not-active error as an HRESULT: what registering returns with the service stopped.
inline constexpr Status kStatusServiceNotActive = static_cast<Status>(0x80070426u);
/// The point products this core knows; registering any other is refused with E_INVALIDARG.
inline constexpr Guid kKnownPointProducts[] = {PointProductId};

/// The core library's state: the common part and the point products registered now.
class CoreState : public LibraryState {
 public:
  using LibraryState::LibraryState;

  void AddProduct(const Guid& product);
  void RemoveProduct(const Guid& product);
  bool IsRegistered(const Guid& product) const;
  /// NotComDllUnload: as the common one, and a point product still registered is reported as
  /// "kvxfwctl: leak: point product {<identifier>} still registered".
  Status Unload();

 private:
  mutable std::mutex productsMutex_;
  std::vector<Guid> products_;
};

/// The library's NotComDllGetInterface.
Status CoreGetInterface(const std::shared_ptr<CoreState>& state, const char* interfaceName,
                        void** out);

}  // namespace nw::sim
