#pragma once

#include <cstdint>

namespace nw {

/// 0 to 17: commands this build runs; 18 to 45: recognised but refused; 46: usage.
using CommandCode = int32_t;

inline constexpr CommandCode kFirstRefusedCode = 18;
inline constexpr CommandCode kUsageCode = 46;

// Option names shared by the parser and the usage text.
extern const wchar_t* const OptionStateTable;
extern const wchar_t* const OptionEndpointTable;
extern const wchar_t* const OptionTcpTime;
extern const wchar_t* const OptionForcedTcpTime;
extern const wchar_t* const OptionTcpConnRemovalTime;
extern const wchar_t* const OptionUdpTime;
extern const wchar_t* const OptionGcPeriod;
extern const wchar_t* const OptionProcessList;
extern const wchar_t* const OptionProcessQuery;
extern const wchar_t* const OptionProcess;
extern const wchar_t* const OptionLogThrottle;
extern const wchar_t* const OptionTrackForwarding;
extern const wchar_t* const OptionStateTableSize;
extern const wchar_t* const OptionConnThrottlingThreshold;
extern const wchar_t* const OptionConnThrottlingRate;
extern const wchar_t* const OptionDisableNdis;
extern const wchar_t* const OptionEnableNdis;
extern const wchar_t* const OptionDisableWfp;
extern const wchar_t* const OptionEnableWfp;
extern const wchar_t* const OptionDisableUnusedNetDrivers;

/// The command code of argv[1] (argc counts the program's name). No side effects.
CommandCode ParseCommandLine(int argc, const wchar_t* const* argv);
void PrintUsage();
/// The whole run: start-up, parse, gate, connect, one handler, teardown. Returns LastStatus.
int32_t RunNetwarden(int argc, const wchar_t* const* argv);

/// The same run as RunNetwarden with the gate open: a refused code connects like a served one
/// and runs its handler from the same table. For test drivers that reach the refused commands
/// end to end; the program's entry point never calls it.
int32_t RunWithGateOpen(int argc, const wchar_t* const* argv);

}  // namespace nw
