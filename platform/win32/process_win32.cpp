// Process-wide services on Windows.

#include <windows.h>
#include <winsock2.h>
#include <ws2tcpip.h>

#include <cstddef>
#include <cstdlib>
#include <string>

// The facility's method shares this name; with UNICODE it would be renamed to the W form here
// but not elsewhere.
#undef OutputDebugString

#include "platform/debug_log.h"
#include "platform/process.h"

namespace nw::platform {
namespace {

// The program checks every result itself; a runtime routine handed a bad argument should return
// its error rather than end the process.
void __cdecl IgnoreInvalidParameter(const wchar_t*, const wchar_t*, const wchar_t*, unsigned int,
                                    uintptr_t) {}

using SetInvalidParameterHandlerFn =
    _invalid_parameter_handler(__cdecl*)(_invalid_parameter_handler);

/// The C runtime DLL this program calls into. The import library's own
/// _set_invalid_parameter_handler only keeps the pointer to itself (older msvcrt.dll builds have
/// no such hook), so the hook is taken from the DLL when the DLL has it.
constexpr const wchar_t* kRuntimeDll =
#if defined(_UCRT)
    L"ucrtbase.dll";
#else
    L"msvcrt.dll";
#endif

class Win32Process final : public Process {
 public:
  void OutputDebugString(const wchar_t* text) override { WriteDebuggerOutput(text); }

  int32_t WsaStartup(uint16_t version) override {
    WSADATA data;
    return ::WSAStartup(version, &data);
  }

  void WsaCleanup() override { ::WSACleanup(); }

  int32_t StringToAddress(const wchar_t* text, uint16_t family, SocketAddress* address,
                          int32_t* length) override {
    if (text == nullptr) return WSAEFAULT;
    // The call takes a writable text, though it does not write to it.
    std::wstring copy(text);
    INT size = *length;
    if (::WSAStringToAddressW(copy.data(), family, nullptr, reinterpret_cast<SOCKADDR*>(address),
                              &size) != 0) {
      return ::WSAGetLastError();
    }
    *length = size;
    return 0;
  }

  void IgnoreInvalidParameters() override {
    // The runtime is loaded already (the program is running on it): no new reference is taken.
    HMODULE runtime = ::GetModuleHandleW(kRuntimeDll);
    if (runtime == nullptr) return;
    void* proc =
        reinterpret_cast<void*>(::GetProcAddress(runtime, "_set_invalid_parameter_handler"));
    // A runtime without the hook reports bad arguments through errno and return values only.
    if (proc == nullptr) return;
    reinterpret_cast<SetInvalidParameterHandlerFn>(proc)(IgnoreInvalidParameter);
  }
};

static_assert(sizeof(SocketAddressIn) == sizeof(SOCKADDR_IN));
static_assert(offsetof(SocketAddressIn, address) == offsetof(SOCKADDR_IN, sin_addr));
static_assert(sizeof(SocketAddressIn6) == sizeof(SOCKADDR_IN6));
static_assert(offsetof(SocketAddressIn6, address) == offsetof(SOCKADDR_IN6, sin6_addr));
static_assert(kAfInet == AF_INET && kAfInet6 == AF_INET6);

}  // namespace

template <>
Process& Facility<Process>::Host() {
  static Win32Process process;
  return process;
}

}  // namespace nw::platform
