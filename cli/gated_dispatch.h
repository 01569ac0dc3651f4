#pragma once

// The handlers behind the commands the dispatcher's gate refuses, by command code, for test
// drivers that open the gate (RunWithGateOpen). The program itself never links this table.

#include "cli/dispatcher.h"

namespace nw {

/// Runs the handler that code would run were it served: 19 DeleteAllPolicies, 20
/// AddPoliciesFromFile, 21 DeletePolicyByUid, 22 to 24 the blacklist entries (set, append,
/// delete) with the path in argv[2]; 37 PerfProfilingControl(true), 38
/// PerfProfilingControl(false), 39 GetPerfData(false), 40 GetPerfData(true). A refused code
/// whose handler this build does not carry says so and sets LastStatus to 0x80004001.
void RunGatedHandler(CommandCode code, CoreConnection* connection, int argc,
                     const wchar_t* const* argv);

}  // namespace nw
