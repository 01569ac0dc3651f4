#pragma once

#include <cstdint>

#include "platform/library.h"

namespace nw::platform {

/// Loads a library by its full path in the system directory, so that no other directory is
/// searched for it; its own dependencies are looked for in the system directory too where the
/// host can be told so (LOAD_LIBRARY_SEARCH_SYSTEM32). The platform's facilities use it for the
/// system libraries they bind at run time. Returns null with the Windows error in *error; 126
/// when the system directory cannot be named.
ModuleHandle LoadSystemDirectoryLibrary(const wchar_t* name, uint32_t* error);

}  // namespace nw::platform
