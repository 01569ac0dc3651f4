#pragma once

#include <cstdint>

#include "platform/facility.h"

namespace nw::platform {

/// Address families as Windows Sockets numbers them, on every host.
inline constexpr uint16_t kAfInet = 2;
inline constexpr uint16_t kAfInet6 = 23;

/// SOCKADDR_IN: 16 bytes; the address in network byte order.
struct SocketAddressIn {
  uint16_t family;
  uint16_t port;
  uint8_t address[4];
  uint8_t zero[8];
};
static_assert(sizeof(SocketAddressIn) == 16);

/// SOCKADDR_IN6: 28 bytes; the address in network byte order.
struct SocketAddressIn6 {
  uint16_t family;
  uint16_t port;
  uint32_t flowInfo;
  uint8_t address[16];
  uint32_t scopeId;
};
static_assert(sizeof(SocketAddressIn6) == 28);

/// A socket address of either family in the Windows layout; family tells which member holds it.
union SocketAddress {
  uint16_t family;
  SocketAddressIn v4;
  SocketAddressIn6 v6;
};

/// Process-wide services: debugger output, Windows Sockets, the runtime's invalid-parameter
/// hook.
class Process {
 public:
  virtual ~Process() = default;

  /// OutputDebugStringW: text for an attached debugger, never the console.
  virtual void OutputDebugString(const wchar_t* text) = 0;
  /// WSAStartup with the requested version: 0 or the Windows Sockets error number.
  virtual int32_t WsaStartup(uint16_t version) = 0;
  virtual void WsaCleanup() = 0;
  /// WSAStringToAddressW: parses an address literal of family (kAfInet or kAfInet6) into
  /// *address, whose size the caller passes in *length (16 for IPv4, 28 for IPv6). 0 on
  /// success, otherwise the Windows Sockets error number (10022 for text that is no address of
  /// that family). Needs WsaStartup to have succeeded.
  virtual int32_t StringToAddress(const wchar_t* text, uint16_t family, SocketAddress* address,
                                  int32_t* length) = 0;
  /// Installs a process-wide invalid-parameter handler that does nothing.
  virtual void IgnoreInvalidParameters() = 0;
};

template <>
Process& Facility<Process>::Host();

inline Process& TheProcess() { return Facility<Process>::Get(); }

}  // namespace nw::platform
