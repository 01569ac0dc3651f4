#pragma once

#include "core/status.h"

namespace nw {

/// The driver-link library and the firewall driver it connects to.
extern const wchar_t* const DriverLinkLibraryName;
extern const wchar_t* const FirewallDriverName;

/// Asks the firewall's kernel driver to re-evaluate which network drivers the policies need.
/// Returns 0 when the driver accepted, otherwise the first failure (printed in decimal): the
/// loader's error, the connection's status or the request's status. Leaves LastStatus alone.
Status RequestDriverReevaluation();

}  // namespace nw
