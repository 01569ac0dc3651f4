#pragma once

// Prepares the host for driver_host_conformance: a stopped kernel-driver service "nwconf_drv"
// (demand start, image path \SystemRoot\system32\drivers\nwconf_drv.sys), a key
// "nwconf_keyonly" under the Services key that belongs to no service, and an existing mutex
// "Global\nwconf_mutex". Each host does it its own way; the expectations are shared.

#include <string>

namespace nw::conformance {

bool SetUpHost(std::string* error);
void TearDownHost();

}  // namespace nw::conformance
