#pragma once

// The simulated driver link behind kvxhida.dll: a connector that opens a link to the
// firewall's kernel driver, and the link that carries control requests. Its statuses are
// Windows error numbers, as the real link passes the driver's on.

#include <cstdint>
#include <memory>

#include "core/status.h"
#include "sim/common/library_state.h"

namespace nw::sim {

/// The kernel driver's file name, the only one a connector connects to.
inline constexpr const wchar_t* kContentDriverName = L"kvxfirek.sys";
/// ERROR_INVALID_FUNCTION: what the driver answers to a request code it does not know.
inline constexpr Status kErrorInvalidFunction = 1;

/// The library's NotComDllGetInterface ("DrvLinkConnectAsync" or "DrvLinkConnect").
Status DriverLinkGetInterface(const std::shared_ptr<LibraryState>& state, const char* interfaceName,
                              void** out);

}  // namespace nw::sim
