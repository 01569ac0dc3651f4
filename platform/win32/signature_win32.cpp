// Authenticode verification on Windows. wintrust is not imported: it is loaded from the system
// directory the first time a file is checked, so that no other directory can supply it.

#include <windows.h>

#include <cstring>
#include <new>

#include "platform/signature.h"

namespace nw::platform {
namespace {

static_assert(sizeof(Guid) == sizeof(GUID));

// The verifier reads our WinTrustData through its untyped argument.
using WinVerifyTrustFn = LONG(WINAPI*)(HWND, GUID*, LPVOID);

struct WinTrustBinding {
  WinVerifyTrustFn verify = nullptr;
  DWORD error = 0;  // why verify is null
};

WinTrustBinding BindWinTrust() {
  WinTrustBinding binding;
  HMODULE wintrust = ::LoadLibraryExW(L"wintrust.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
  if (wintrust == nullptr) {
    binding.error = ::GetLastError();
    return binding;
  }
  void* proc = reinterpret_cast<void*>(::GetProcAddress(wintrust, "WinVerifyTrust"));
  if (proc == nullptr) {
    binding.error = ::GetLastError();
    ::FreeLibrary(wintrust);
    return binding;
  }
  // wintrust stays loaded for the rest of the process.
  binding.verify = reinterpret_cast<WinVerifyTrustFn>(proc);
  return binding;
}

class Win32Trust final : public Trust {
 public:
  int32_t WinVerifyTrust(void* window, const Guid* action, WinTrustData* data) override {
    static const WinTrustBinding binding = BindWinTrust();
    if (binding.verify == nullptr) {
      // A failure that somehow left no error number must still not read as "trusted".
      return HRESULT_FROM_WIN32(binding.error != 0 ? binding.error : ERROR_INTERNAL_ERROR);
    }
    GUID actionId;
    if (action != nullptr) std::memcpy(&actionId, action, sizeof actionId);
    return binding.verify(static_cast<HWND>(window), action != nullptr ? &actionId : nullptr, data);
  }

  wchar_t* MessageText(int32_t result) override {
    // The verification results' texts live in crypt32's message table.
    static const HMODULE crypt32 =
        ::LoadLibraryExW(L"crypt32.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    if (crypt32 == nullptr) return nullptr;
    wchar_t* system = nullptr;
    const DWORD length = ::FormatMessageW(
        FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_ALLOCATE_BUFFER |
            FORMAT_MESSAGE_IGNORE_INSERTS,
        crypt32, static_cast<DWORD>(result), 0, reinterpret_cast<LPWSTR>(&system), 0, nullptr);
    wchar_t* text = nullptr;
    if (length != 0 && system != nullptr) {
      text = new (std::nothrow) wchar_t[length + 1];
      if (text != nullptr) {
        std::memcpy(text, system, length * sizeof(wchar_t));
        text[length] = L'\0';
      }
    }
    if (system != nullptr) ::LocalFree(system);
    return text;
  }
};

}  // namespace

template <>
Trust& Facility<Trust>::Host() {
  static Win32Trust trust;
  return trust;
}

}  // namespace nw::platform
