#pragma once

// The command handlers the dispatcher calls. They print their results and failures and store
// the status of each core call in LastStatus; they return nothing.

#include <cstdint>

#include "cli/core_connection.h"
#include "cli/dispatcher.h"

namespace nw {

/// The narrow printf-style log routine every driver operation takes.
using DriverLogFn = void (*)(const char* format, ...);
/// Prints one driver log line through ConsolePrint as "%hs\n".
void PrintDriverLog(const char* format, ...);

void ShowPolicySummary(IPolicyManager* policyManager);
void ShowAllPolicies(IPolicyManager* policyManager);
void WritePolicyDocument(IPolicyManager* policyManager);
/// mode 0: text; mode 1: XML.
void ShowBlacklist(CoreConnection* connection, int mode);
void ConfigDisplay(CoreConnection* connection);
void IpConfigDisplay(IControl* control);
void StateTableDisplay(IControl* control);
void EndpointTableDisplay(IControl* control);
void ProcessListDisplay(IControl* control);
void ProcessInfoDisplay(IControl* control, const wchar_t* processIdText, uint32_t flags);
void TrafficLogChange(CoreConnection* connection, CommandCode code, const wchar_t* value);
void ConfigChange(CoreConnection* connection, CommandCode code, const wchar_t* value, bool allowOn);
void EnableNdisDriver(DriverLogFn log);
void EnableWfpDriver(DriverLogFn log);
void DisableUnusedNetDrivers(CoreConnection* connection);

}  // namespace nw
