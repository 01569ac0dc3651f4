#include "platform/system_library.h"

#include <string>

#include "core/status.h"

namespace nw::platform {

ModuleHandle LoadSystemDirectoryLibrary(const wchar_t* name, uint32_t* error) {
  Libraries& libraries = TheLibraries();
  constexpr uint32_t kPathChars = 260;
  wchar_t directory[kPathChars] = {};
  const uint32_t length = libraries.GetSystemDirectory(directory, kPathChars);
  if (length == 0 || length >= kPathChars) {
    // Never fall back to the bare name: that would search the very directories we avoid.
    *error = kErrorModNotFound;
    return nullptr;
  }
  const std::wstring path = std::wstring(directory, length) + L"\\" + name;
  // The flag is refused where SetDefaultDllDirectories does not exist (Windows 7 without its
  // update); the full path alone still keeps the library itself to the system directory.
  const uint32_t flags = libraries.HasSetDefaultDllDirectories() ? kLoadLibrarySearchSystem32 : 0;
  return libraries.LoadLibraryEx(path.c_str(), flags, error);
}

}  // namespace nw::platform
