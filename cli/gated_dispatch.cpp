#include "cli/gated_dispatch.h"

#include "cli/console.h"
#include "cli/handlers.h"

namespace nw {

void RunGatedHandler(CommandCode code, CoreConnection*, int, const wchar_t* const*) {
  switch (code) {
    case 37:
      return PerfProfilingControl(true);
    case 38:
      return PerfProfilingControl(false);
    case 39:
      return GetPerfData(false);
    case 40:
      return GetPerfData(true);
    default:
      // Nothing may look done when nothing was.
      ConsolePrint(L"    Command %d has no handler in this build.\n", code);
      LastStatus = kStatusNotImplemented;
  }
}

}  // namespace nw
