#pragma once

#include <cstdint>

#include "platform/facility.h"

namespace nw::platform {

using ModuleHandle = void*;

inline constexpr uint32_t kLoadLibrarySearchSystem32 = 0x800;
inline constexpr uint32_t kLoadWithAlteredSearchPath = 0x8;

/// Library search, loading, export lookup and unloading, module file names and the directories
/// the loader searches. Paths are Windows paths ("\\" separates components) on every host.
/// Calls that fail return or report the Windows error number of the failure.
class Libraries {
 public:
  virtual ~Libraries() = default;

  /// SetDefaultDllDirectories, looked up in the loaded kernel32 at run time: false when the
  /// export does not exist.
  virtual bool HasSetDefaultDllDirectories() = 0;
  /// Calls SetDefaultDllDirectories (which must exist); false when the call fails.
  virtual bool SetDefaultDllDirectories(uint32_t flags) = 0;
  /// LoadLibraryExW: the module, or null with *error set.
  virtual ModuleHandle LoadLibraryEx(const wchar_t* path, uint32_t flags, uint32_t* error) = 0;
  /// GetModuleHandleExW with no flags: a new reference to an already loaded module, or null.
  virtual ModuleHandle GetModuleHandleEx(const wchar_t* name) = 0;
  /// GetProcAddress: the export, or null with *error set.
  virtual void* GetProcAddress(ModuleHandle module, const char* name, uint32_t* error) = 0;
  /// FreeLibrary: drops one reference.
  virtual void FreeLibrary(ModuleHandle module) = 0;
  /// GetModuleFileNameW (null module: the program). Returns the number of characters copied.
  /// When the name does not fit, returns capacity with the text truncated and *error = 122; on
  /// failure returns 0 with *error set.
  virtual uint32_t GetModuleFileName(ModuleHandle module, wchar_t* buffer, uint32_t capacity,
                                     uint32_t* error) = 0;
  /// GetSystemDirectoryW: the length copied; the length needed (terminator included) when the
  /// buffer is too small; 0 on failure.
  virtual uint32_t GetSystemDirectory(wchar_t* buffer, uint32_t capacity) = 0;
  /// GetCurrentDirectoryW: the length copied (terminator excluded); the length needed
  /// (terminator included) when capacity is too small; 0 on failure with *error set.
  virtual uint32_t GetCurrentDirectory(uint32_t capacity, wchar_t* buffer, uint32_t* error) = 0;
};

template <>
Libraries& Facility<Libraries>::Host();

inline Libraries& TheLibraries() { return Facility<Libraries>::Get(); }

}  // namespace nw::platform
