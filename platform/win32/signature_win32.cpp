// Authenticode verification on Windows. wintrust and crypt32 are not imported: the loader loads
// them from the system directory, with the flags its hardening chose, and hands them in.

#include <windows.h>

#include <cstring>
#include <new>

#include "platform/signature.h"

namespace nw::platform {
namespace {

static_assert(sizeof(Guid) == sizeof(GUID));

// The verifier reads our WinTrustData through its untyped argument.
using WinVerifyTrustFn = LONG(WINAPI*)(HWND, GUID*, LPVOID);

class Win32Trust final : public Trust {
 public:
  uint32_t BindWinVerifyTrust(ModuleHandle wintrust) override {
    void* proc =
        reinterpret_cast<void*>(::GetProcAddress(static_cast<HMODULE>(wintrust), "WinVerifyTrust"));
    if (proc == nullptr) return ::GetLastError();
    verify_ = reinterpret_cast<WinVerifyTrustFn>(proc);
    return 0;
  }

  int32_t WinVerifyTrust(void* window, const Guid* action, WinTrustData* data) override {
    // Never "trusted" by accident when the caller skipped the binding.
    if (verify_ == nullptr) return HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND);
    GUID actionId;
    if (action != nullptr) std::memcpy(&actionId, action, sizeof actionId);
    return verify_(static_cast<HWND>(window), action != nullptr ? &actionId : nullptr, data);
  }

  wchar_t* MessageText(ModuleHandle crypt32, int32_t result) override {
    wchar_t* system = nullptr;
    const DWORD length =
        ::FormatMessageW(FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_ALLOCATE_BUFFER |
                             FORMAT_MESSAGE_IGNORE_INSERTS,
                         static_cast<HMODULE>(crypt32), static_cast<DWORD>(result), 0,
                         reinterpret_cast<LPWSTR>(&system), 0, nullptr);
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

 private:
  WinVerifyTrustFn verify_ = nullptr;
};

}  // namespace

template <>
Trust& Facility<Trust>::Host() {
  static Win32Trust trust;
  return trust;
}

}  // namespace nw::platform
