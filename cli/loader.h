#pragma once

// Finding, verifying and loading the product's libraries, and keeping the process's own
// library search away from untrusted directories.

#include <cstdint>

#include "core/status.h"
#include "platform/library.h"
#include "platform/signature.h"
#include "platform/system_library.h"

namespace nw {

/// Library names are measured with this bound (characters scanned for the terminator).
inline constexpr size_t kMaxLibraryNameChars = 32768;

/// One lookup, owned by the caller.
struct LibraryLoadRequest {
  const wchar_t* name = nullptr;                ///< file name or path; not owned
  uint64_t nameLength = 0;                      ///< characters, terminator excluded; 1 to 32768
  platform::ModuleHandle pathModule = nullptr;  ///< its directory is the "EXE directory"; null: us
  wchar_t* resolvedPath = nullptr;  ///< new[]: the full path tried; freed with FreeResolvedPath
  uint64_t resolvedCapacity = 0;    ///< characters allocated for resolvedPath
  platform::ModuleHandle module = nullptr;  ///< the loaded library on success
};

/// The state of one signature verification.
struct SignatureCheck {
  bool done = false;
  int32_t result = 0;
  platform::WinTrustFileInfo fileInfo = {};
  platform::WinTrustData trustData = {};
  const wchar_t* path = nullptr;  ///< set by the caller before the check runs
};

/// What VerifyFileSignature reports when asked for a message.
struct SignatureErrorText {
  int32_t result = 0;
  wchar_t* text = nullptr;  ///< new[]; the holder's owner deletes it
};

/// Restricts the process's library search to the system directory, or, where the host cannot,
/// preloads the system libraries the process needs from the system directory. Returns the
/// null-terminated new[] array of preloaded modules, or null when nothing was preloaded.
platform::ModuleHandle* HardenLibrarySearch();
/// Frees each preloaded module and the array itself (null is accepted).
void ReleasePreloadedLibraries(platform::ModuleHandle* modules);
/// Puts the process-wide loader state back to its start (tests run many starts in one process).
void ResetLoaderStateForTesting();

/// Finds request->name in the install directory, the current directory or the EXE directory,
/// verifies its signature and loads it. Returns 0 (request->module is set), a Windows error
/// number (87 bad name, 2 not found, 14 out of memory, 111 path overflow, 1359 internal
/// error, or the failing call's error), or the verification result that refused the file.
Status NCPrivateLoadAndValidateHPLDll(LibraryLoadRequest* request);
void FreeResolvedPath(LibraryLoadRequest* request);

/// Runs the verification of check->path once and caches its result. When it fails and
/// errorText is given, errorText receives the result and a message text.
int32_t VerifyFileSignature(SignatureCheck* check, SignatureErrorText* errorText);
/// Releases the verifier's state for a check that ran.
void CloseSignatureCheck(SignatureCheck* check);

/// Loads a product library already measured (nameLength characters) and asks its export
/// NotComDllGetInterface for interfaceName. The program's load reference is dropped at once.
Status GetProductInterface(const wchar_t* libraryName, uint64_t nameLength,
                           const char* interfaceName, void** out,
                           platform::ModuleHandle pathModule);
/// The same, measuring libraryName first (87 when it is null or unterminated within 32768).
Status NotComDllGetInterface(const wchar_t* libraryName, const char* interfaceName, void** out,
                             platform::ModuleHandle pathModule = nullptr);
/// Tells a loaded product library to let go (its export NotComDllUnload, when it has one).
void NotComDllUnload(const wchar_t* libraryName);

}  // namespace nw
