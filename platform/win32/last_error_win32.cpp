#include <windows.h>

#include "platform/last_error.h"

namespace nw::platform {

uint32_t ThreadLastError() { return ::GetLastError(); }

void SetThreadLastError(uint32_t error) { ::SetLastError(error); }

}  // namespace nw::platform
