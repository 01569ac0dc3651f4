#include "platform/system_library.h"

#include "base/bounded_string.h"
#include "core/status.h"

namespace nw::platform {

uint32_t LibraryLoadFlags = kLoadLibrarySearchSystem32;

namespace {

bool firstUse = true;

}  // namespace

ModuleHandle LoadSystemLibrary(const wchar_t* name, uint32_t* error) {
  uint32_t ignored = 0;
  if (error == nullptr) error = &ignored;
  Libraries& libraries = TheLibraries();
  if (firstUse) {
    firstUse = false;
    LibraryLoadFlags = libraries.HasSetDefaultDllDirectories() ? kLoadLibrarySearchSystem32 : 0;
  }
  size_t length = 0;
  const bool relative = BoundedLength(name, kStrSafeMaxChars, &length) && length >= 3 &&
                        name[0] != L'\\' && name[1] != L':';
  if (LibraryLoadFlags != 0 || !relative)
    return libraries.LoadLibraryEx(name, LibraryLoadFlags, error);
  constexpr uint32_t kPathChars = 260;
  wchar_t path[kPathChars] = {};
  const uint32_t directoryChars = libraries.GetSystemDirectory(path, kPathChars);
  if (directoryChars == 0 || directoryChars >= kPathChars ||
      BoundedCat(path, kPathChars, L"\\") != 0 || BoundedCat(path, kPathChars, name) != 0) {
    // Never fall back to the bare name: that would search the very directories we avoid.
    *error = kErrorModNotFound;
    return nullptr;
  }
  return libraries.LoadLibraryEx(path, LibraryLoadFlags, error);
}

void ResetSystemLibraryStateForTesting() {
  LibraryLoadFlags = kLoadLibrarySearchSystem32;
  firstUse = true;
}

}  // namespace nw::platform
