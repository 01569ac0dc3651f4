// Libraries on Windows: the loader's own calls, with their results and error numbers as they
// come.

#include <windows.h>

// The facility's methods share these names; with UNICODE they would be renamed to the W forms
// here but not elsewhere.
#undef LoadLibraryEx
#undef GetModuleHandleEx
#undef GetModuleFileName
#undef GetSystemDirectory
#undef GetCurrentDirectory

#include "platform/library.h"

namespace nw::platform {
namespace {

static_assert(kLoadLibrarySearchSystem32 == LOAD_LIBRARY_SEARCH_SYSTEM32);
static_assert(kLoadWithAlteredSearchPath == LOAD_WITH_ALTERED_SEARCH_PATH);

using SetDefaultDllDirectoriesFn = BOOL(WINAPI*)(DWORD);

/// SetDefaultDllDirectories from the kernel32 that is loaded: Windows 7 has it only with an
/// update installed, so it cannot be imported.
SetDefaultDllDirectoriesFn FindSetDefaultDllDirectories() {
  HMODULE kernel = ::GetModuleHandleW(L"kernel32.dll");
  if (kernel == nullptr) return nullptr;
  void* proc = reinterpret_cast<void*>(::GetProcAddress(kernel, "SetDefaultDllDirectories"));
  return reinterpret_cast<SetDefaultDllDirectoriesFn>(proc);
}

class Win32Libraries final : public Libraries {
 public:
  bool HasSetDefaultDllDirectories() override { return FindSetDefaultDllDirectories() != nullptr; }

  bool SetDefaultDllDirectories(uint32_t flags) override {
    SetDefaultDllDirectoriesFn set = FindSetDefaultDllDirectories();
    return set != nullptr && set(flags) != FALSE;
  }

  ModuleHandle LoadLibraryEx(const wchar_t* path, uint32_t flags, uint32_t* error) override {
    *error = 0;
    HMODULE module = ::LoadLibraryExW(path, nullptr, flags);
    if (module == nullptr) *error = ::GetLastError();
    return module;
  }

  ModuleHandle GetModuleHandleEx(const wchar_t* name) override {
    HMODULE module = nullptr;
    if (!::GetModuleHandleExW(0, name, &module)) return nullptr;
    return module;
  }

  void* GetProcAddress(ModuleHandle module, const char* name, uint32_t* error) override {
    *error = 0;
    FARPROC proc = ::GetProcAddress(static_cast<HMODULE>(module), name);
    if (proc == nullptr) *error = ::GetLastError();
    return reinterpret_cast<void*>(proc);
  }

  void FreeLibrary(ModuleHandle module) override { ::FreeLibrary(static_cast<HMODULE>(module)); }

  uint32_t GetModuleFileName(ModuleHandle module, wchar_t* buffer, uint32_t capacity,
                             uint32_t* error) override {
    // A successful call leaves the last error alone, so clear it first: otherwise an old error
    // would pass for this call's.
    ::SetLastError(0);
    const DWORD length = ::GetModuleFileNameW(static_cast<HMODULE>(module), buffer, capacity);
    *error = ::GetLastError();
    // A name that fits is a success whatever the call left behind; only a full buffer tells
    // of truncation.
    if (length != 0 && length < capacity) *error = 0;
    // Some loaders fill a short buffer to the end with no terminator; cut the text one
    // character earlier, as current Windows does, so the buffer always holds a string.
    if (length != 0 && length == capacity) buffer[capacity - 1] = L'\0';
    return length;
  }

  uint32_t GetSystemDirectory(wchar_t* buffer, uint32_t capacity) override {
    return ::GetSystemDirectoryW(buffer, capacity);
  }

  uint32_t GetCurrentDirectory(uint32_t capacity, wchar_t* buffer, uint32_t* error) override {
    *error = 0;
    const DWORD length = ::GetCurrentDirectoryW(capacity, buffer);
    if (length == 0) *error = ::GetLastError();
    return length;
  }
};

}  // namespace

template <>
Libraries& Facility<Libraries>::Host() {
  static Win32Libraries libraries;
  return libraries;
}

}  // namespace nw::platform
