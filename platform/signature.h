#pragma once

#include <cstdint>

#include "core/guid.h"
#include "platform/facility.h"
#include "platform/library.h"

namespace nw::platform {

/// WINTRUST_FILE_INFO as the x64 verifier reads it (32 bytes).
struct WinTrustFileInfo {
  uint32_t cbStruct;
  const wchar_t* pcwszFilePath;
  void* hFile;
  const Guid* pgKnownSubject;
};

/// WINTRUST_DATA in its full x64 layout, signature settings included (88 bytes). Some SDK
/// headers stop before pSignatureSettings, so the layout is declared here once.
struct WinTrustData {
  uint32_t cbStruct;
  void* pPolicyCallbackData;
  void* pSIPClientData;
  uint32_t dwUIChoice;
  uint32_t fdwRevocationChecks;
  uint32_t dwUnionChoice;
  WinTrustFileInfo* pFile;
  uint32_t dwStateAction;
  void* hWVTStateData;
  wchar_t* pwszURLReference;
  uint32_t dwProvFlags;
  uint32_t dwUIContext;
  void* pSignatureSettings;
};

#if UINTPTR_MAX == 0xFFFFFFFFFFFFFFFFu
static_assert(sizeof(WinTrustFileInfo) == 32);
static_assert(sizeof(WinTrustData) == 88);
#endif

inline constexpr uint32_t kWtdUiNone = 2;
inline constexpr uint32_t kWtdRevokeNone = 0;
inline constexpr uint32_t kWtdChoiceFile = 1;
inline constexpr uint32_t kWtdStateActionVerify = 1;
inline constexpr uint32_t kWtdStateActionClose = 2;
inline constexpr uint32_t kWtdRevocationCheckNone = 0x10;
inline constexpr uint32_t kWtdCacheOnlyUrlRetrieval = 0x1000;

/// WINTRUST_ACTION_GENERIC_VERIFY_V2.
inline constexpr Guid kWinTrustActionGenericVerifyV2 = {
    0x00AAC56B, 0xCD44, 0x11D0, {0x8C, 0xC2, 0x00, 0xC0, 0x4F, 0xC2, 0x95, 0xEE}};

/// Authenticode verification and the message texts of its results. The caller loads the
/// system libraries (wintrust, crypt32) with the search flags its hardening chose and hands the
/// modules in, so that this facility never decides where a library comes from.
class Trust {
 public:
  virtual ~Trust() = default;

  /// Looks WinVerifyTrust up in wintrust (a loaded module, never null) and keeps it for
  /// WinVerifyTrust. Returns 0 or the Windows error of the lookup.
  virtual uint32_t BindWinVerifyTrust(ModuleHandle wintrust) = 0;
  /// WinVerifyTrust(window, action, data): 0 when the file is trusted, otherwise the failure.
  /// Only called after BindWinVerifyTrust succeeded.
  virtual int32_t WinVerifyTrust(void* window, const Guid* action, WinTrustData* data) = 0;
  /// The system's message text for a verification result from the message table of crypt32
  /// (a loaded module, never null), as a new[]-allocated string the caller deletes; null when
  /// there is none.
  virtual wchar_t* MessageText(ModuleHandle crypt32, int32_t result) = 0;
};

template <>
Trust& Facility<Trust>::Host();

inline Trust& TheTrust() { return Facility<Trust>::Get(); }

/// INVALID_HANDLE_VALUE: verify with no interactive user.
inline void* const kNoInteractiveUser = reinterpret_cast<void*>(static_cast<intptr_t>(-1));

}  // namespace nw::platform
