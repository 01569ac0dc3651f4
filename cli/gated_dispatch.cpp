#include "cli/gated_dispatch.h"

#include "cli/console.h"
#include "cli/handlers.h"
#include "policy/policy_builder.h"
#include "policy/policy_listing.h"

namespace nw {

void RunGatedHandler(CommandCode code, CoreConnection* connection, int,
                     const wchar_t* const* argv) {
  switch (code) {
    case 19:
      return DeleteAllPolicies(connection->policyManager);
    case 20:
      return AddPoliciesFromFile(connection, argv[2]);
    case 21:
      return DeletePolicyByUid(connection->policyManager, argv[2]);
    case 22:
      return SetBlacklistFromFile(connection, argv[2]);
    case 23:
      return AppendBlacklistFromFile(connection, argv[2]);
    case 24:
      return DeleteBlacklistFromFile(connection, argv[2]);
    case 37:
      return PerfProfilingControl(true);
    case 38:
      return PerfProfilingControl(false);
    case 39:
      return GetPerfData(false);
    case 40:
      return GetPerfData(true);
    default:
      // Nothing may look done when nothing was.
      ConsolePrint(L"    Command %d has no handler in this build.\n", code);
      LastStatus = kStatusNotImplemented;
  }
}

}  // namespace nw
