#pragma once

#include <cstdint>

namespace nw::platform {

/// The calling thread's last-error value, as GetLastError/SetLastError keep it on Windows. The
/// facilities hand their errors back directly; this exists for the few places where the program
/// deliberately reports whatever an earlier call left behind. On the emulated host it is a
/// thread-local value that the service manager and the mutex calls set when they fail, as
/// Windows does, and that the registry, like Windows', never touches.
uint32_t ThreadLastError();
void SetThreadLastError(uint32_t error);

}  // namespace nw::platform
