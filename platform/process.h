#pragma once

#include <cstdint>

#include "platform/facility.h"

namespace nw::platform {

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
  /// Installs a process-wide invalid-parameter handler that does nothing.
  virtual void IgnoreInvalidParameters() = 0;
};

template <>
Process& Facility<Process>::Host();

inline Process& TheProcess() { return Facility<Process>::Get(); }

}  // namespace nw::platform
