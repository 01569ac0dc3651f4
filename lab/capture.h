#pragma once

// Reading a host's firewall into a scenario, through the getters the read-only views call.

#include "cli/core_connection.h"
#include "lab/progress.h"
#include "sim/common/scenario.h"

namespace nw::lab {

/// Reads what the read-only views show: the policies of every type (groups, rules, actions,
/// aggregate matches, matches and their terms), the blacklist, the global configuration and
/// state, the adapters and addresses, the connections, the opened endpoints and the processes.
/// It calls getters only, never a builder, a setter or Apply. Every table is listed entry by
/// entry. A getter that fails is recorded as a fault with its status, so that the replay fails
/// the same way, and as a line of out->captureNotes; the capture goes on with the rest.
/// progress, when given, hears of the policies and connections read as they go.
void CaptureHost(const CoreConnection& connection, sim::Scenario* out,
                 const ProgressReport& progress = {});

}  // namespace nw::lab
