#pragma once

#include <cstdint>

namespace nw {

/// A 32-bit status in the core's convention: 0 is success, failures are usually negative HRESULTs.
using Status = int32_t;

inline constexpr Status kStatusOk = 0;
/// The run printed its usage text.
inline constexpr Status kStatusUsage = -1;
/// The control library or its registration interface could not be obtained.
inline constexpr Status kStatusCoreUnavailable = static_cast<Status>(0x80000001u);
/// An operation the core does not provide.
inline constexpr Status kStatusNotImplemented = static_cast<Status>(0x80004001u);
/// An interface name or identifier the library does not know.
inline constexpr Status kStatusNoInterface = static_cast<Status>(0x80004002u);
/// A bad argument.
inline constexpr Status kStatusInvalidArg = static_cast<Status>(0x80070057u);

// Windows error numbers that the loader returns as they stand.
inline constexpr uint32_t kErrorFileNotFound = 2;
inline constexpr uint32_t kErrorOutOfMemory = 14;
inline constexpr uint32_t kErrorInvalidParameter = 87;
inline constexpr uint32_t kErrorBufferOverflow = 111;
inline constexpr uint32_t kErrorInsufficientBuffer = 122;
inline constexpr uint32_t kErrorModNotFound = 126;
inline constexpr uint32_t kErrorProcNotFound = 127;
inline constexpr uint32_t kErrorMoreData = 234;
inline constexpr uint32_t kErrorInternalError = 1359;

/// A Windows error number as an HRESULT (HRESULT_FROM_WIN32).
constexpr Status HresultFromWin32(uint32_t error) {
  return error == 0 ? kStatusOk : static_cast<Status>((error & 0xFFFFu) | 0x80070000u);
}

// Verification results the loader distinguishes.
inline constexpr Status kCryptEFileError = static_cast<Status>(0x80092003u);
inline constexpr Status kCryptESecuritySettings = static_cast<Status>(0x80092026u);
inline constexpr Status kCertEExpired = static_cast<Status>(0x800B0101u);
inline constexpr Status kCertERevocationFailure = static_cast<Status>(0x800B010Eu);

}  // namespace nw
