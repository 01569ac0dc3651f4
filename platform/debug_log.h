#pragma once

namespace nw::platform {

/// Sends one text to the debugger output of the host: OutputDebugStringW on Windows; on the
/// emulated host, an append to the file named by NETWARDEN_DEBUG_LOG (nothing when unset).
/// Shared by the program and the simulated libraries so that both land in one log.
void WriteDebuggerOutput(const wchar_t* text);

}  // namespace nw::platform
