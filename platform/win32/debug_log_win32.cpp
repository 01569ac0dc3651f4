#include <windows.h>

#include "platform/debug_log.h"

namespace nw::platform {

void WriteDebuggerOutput(const wchar_t* text) {
  if (text != nullptr) ::OutputDebugStringW(text);
}

}  // namespace nw::platform
