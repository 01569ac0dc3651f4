#pragma once

#include <cstdint>

#include "platform/library.h"

namespace nw::platform {

/// The LoadLibraryEx flags the system-library routines use: 0x800 (system directory only) or 0.
/// It starts at 0x800; the loader's hardening step sets it from what the host allowed.
extern uint32_t LibraryLoadFlags;

/// Loads a library of the system directory, and nothing of the same name from anywhere else:
/// by its bare name when the search is restricted (LibraryLoadFlags 0x800), otherwise by its
/// full path in the system directory. A name that is not relative is loaded as given. On its
/// first use in the process it sets LibraryLoadFlags from whether SetDefaultDllDirectories
/// exists. Every system library the program binds at run time comes through here. Returns the
/// module, or null with the Windows error in *error (when given): 126 when the system directory
/// cannot be named or the path does not fit.
ModuleHandle LoadSystemLibrary(const wchar_t* name, uint32_t* error = nullptr);

/// Puts LibraryLoadFlags and the first-use mark back to their start (tests run many starts in
/// one process).
void ResetSystemLibraryStateForTesting();

}  // namespace nw::platform
