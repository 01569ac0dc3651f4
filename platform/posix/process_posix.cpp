#include <arpa/inet.h>
#include <sys/socket.h>

#include <cstring>
#include <string>

#include "base/format.h"
#include "platform/debug_log.h"
#include "platform/process.h"
#include "sim/host/host_state.h"

namespace nw::platform {
namespace {

class PosixProcess final : public Process {
 public:
  void OutputDebugString(const wchar_t* text) override { WriteDebuggerOutput(text); }

  int32_t WsaStartup(uint16_t) override { return sim::HostFault("WSAStartup").value_or(0); }

  void WsaCleanup() override {}

  // The dotted-decimal and IPv6 literal forms; Windows also takes a port or a scope suffix,
  // which nothing in this program hands it.
  int32_t StringToAddress(const wchar_t* text, uint16_t family, SocketAddress* address,
                          int32_t* length) override {
    constexpr int32_t kWsaInvalidArgument = 10022;
    constexpr int32_t kWsaFault = 10014;
    if (text == nullptr || address == nullptr || length == nullptr) return kWsaFault;
    const std::string narrow = WideToUtf8(text);
    if (family == kAfInet) {
      if (*length < static_cast<int32_t>(sizeof(SocketAddressIn))) return kWsaFault;
      SocketAddressIn parsed{};
      if (::inet_pton(AF_INET, narrow.c_str(), parsed.address) != 1) return kWsaInvalidArgument;
      parsed.family = kAfInet;
      address->v4 = parsed;
      *length = sizeof(SocketAddressIn);
      return 0;
    }
    if (family == kAfInet6) {
      if (*length < static_cast<int32_t>(sizeof(SocketAddressIn6))) return kWsaFault;
      SocketAddressIn6 parsed{};
      if (::inet_pton(AF_INET6, narrow.c_str(), parsed.address) != 1) return kWsaInvalidArgument;
      parsed.family = kAfInet6;
      address->v6 = parsed;
      *length = sizeof(SocketAddressIn6);
      return 0;
    }
    return kWsaInvalidArgument;
  }

  // The C library here has no invalid-parameter hook: its routines already return errors.
  void IgnoreInvalidParameters() override {}
};

}  // namespace

template <>
Process& Facility<Process>::Host() {
  static PosixProcess process;
  return process;
}

}  // namespace nw::platform
