#pragma once

// The build step of the import path: what the document reader collected, handed to the core
// through its builder interfaces (policies) or its blacklist control (ranges), and the command
// entries that read a document and build it. The dispatcher refuses these commands; tests and
// the gated test driver reach them.

#include <cstdint>

#include "cli/core_connection.h"
#include "policy/policy_reader.h"

namespace nw {

/// Blacklist operations: replace the list, remove the document's ranges, add them.
inline constexpr int kBlacklistSet = 1;
inline constexpr int kBlacklistDelete = 2;
inline constexpr int kBlacklistAppend = 3;

/// Hands document to the core: its blacklists with operation, or its policies (for which the
/// operation plays no part). A document must hold one kind, not none and not both. The first
/// failing step ends the build, with its message; what was added before stays in the core.
/// Every builder call's status is stored in LastStatus.
bool BuildConfiguration(CoreConnection* connection, int operation, const PolicyDocument& document);

/// Hands one match of a document to builder, interpreting its value by its type, with the build
/// step's message when the value does not fit the type or the builder refuses it.
bool BuildMatch(IMatchBuilder* builder, const MatchRecord& match);

// The command entries (AddPoliciesFromFile, ..., DeletePolicyByUid) are declared with the other
// handlers (cli/handlers.h).

}  // namespace nw
