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
