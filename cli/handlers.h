#pragma once

// The command handlers the dispatcher calls. They print their results and failures and store
// the status of each core call in LastStatus; they return nothing.

#include <cstdint>

#include "cli/core_connection.h"
#include "cli/dispatcher.h"

namespace nw {

/// The narrow printf-style log routine every driver operation takes: "%S" and "%ls" take a wide
/// string, "%hs" a narrow one.
using DriverLogFn = void (*)(const char* format, ...);
/// Prints one driver log line through ConsolePrint as "%hs\n", however long it is.
void PrintDriverLog(const char* format, ...);

void ShowPolicySummary(IPolicyManager* policyManager);
void ShowAllPolicies(IPolicyManager* policyManager);
void WritePolicyDocument(IPolicyManager* policyManager);
/// mode 0: text; mode 1: XML.
void ShowBlacklist(CoreConnection* connection, int mode);
void ConfigDisplay(CoreConnection& connection);
void IpConfigDisplay(IControl* control);
void StateTableDisplay(IControl* control);
void EndpointTableDisplay(IControl* control);
void ProcessListDisplay(IControl* control);
void ProcessInfoDisplay(IControl* control, const wchar_t* processIdText, uint32_t flags);
/// Codes 11 to 13: traffic log on or off, its maximum size, the trace log mask.
void TrafficLogChange(CoreConnection& connection, CommandCode code, const wchar_t* value);
/// Code 17 (global pass-through; only off unless allowOn) and the kernel settings of codes 25
/// to 36 and 41 to 43, which the dispatcher refuses; codes 11 to 13 as TrafficLogChange.
void ConfigChange(CoreConnection& connection, CommandCode code, const wchar_t* value, bool allowOn);
/// Resets every global setting to the core's default (code 18, refused by the dispatcher).
void ConfigReset(CoreConnection& connection);
/// The import path's commands (policy/, refused by the dispatcher): each reads the document at
/// path and builds it into the core (codes 20 and 22 to 24).
void AddPoliciesFromFile(CoreConnection* connection, const wchar_t* path);
void SetBlacklistFromFile(CoreConnection* connection, const wchar_t* path);
void AppendBlacklistFromFile(CoreConnection* connection, const wchar_t* path);
void DeleteBlacklistFromFile(CoreConnection* connection, const wchar_t* path);
/// Deletes the policy whose identifier text is given, 8-4-4-4-12 hexadecimal digits (code 21).
void DeletePolicyByUid(IPolicyManager* manager, const wchar_t* text);
/// Deletes every packet and then every stream policy, reporting each (code 19). LastStatus ends
/// as the last list query left it; failed deletions do not change it.
void DeleteAllPolicies(IPolicyManager* manager);
/// The driver commands (drivers/): they never write LastStatus. The two disabling ones (codes
/// 44 and 45) are refused by the dispatcher; the load-state evaluation runs them.
void EnableNdisDriver(DriverLogFn log);
void EnableWfpDriver(DriverLogFn log);
void DisableNdisDriver(DriverLogFn log);
void DisableWfpDriver(DriverLogFn log);
void DisableUnusedNetDrivers(CoreConnection* connection);
/// Codes 37 and 38 (refused by the dispatcher): starts or stops the kernel driver's profiler.
void PerfProfilingControl(bool start);
/// Codes 39 and 40 (refused by the dispatcher): prints the profiler's counters as text, or as
/// comma-separated values when csv is set.
void GetPerfData(bool csv);

}  // namespace nw
