#pragma once

// What one fault entry of a scenario or host file says: the status an operation fails with, and
// on which of its calls. The same forms serve the simulated core, the driver link and the
// emulated host, so that any of them can fail one call and let the others through.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "sim/common/json_util.h"

namespace nw::sim {

/// Calls first to last (counted from 1) fail with status.
struct FaultRule {
  int32_t status = 0;
  uint64_t first = 1;
  uint64_t last = UINT64_MAX;
};

/// One entry's rules; the first that covers a call decides it.
using FaultRules = std::vector<FaultRule>;

/// Reads an entry: a status (every call fails), an object {"status": s, "call": n} (only the
/// n-th call) or {"status": s, "from": n} (the n-th and every later one), or a list of such
/// objects. Calls count from 1.
bool ParseFaultRules(JsonChecker& check, const Json& v, const std::string& path, FaultRules* out);

/// The entry as ParseFaultRules reads it back: a bare status when every call fails, else the
/// list of its rules.
Json FaultRulesToJson(const FaultRules& rules);

/// The status the entry gives its call-th call, if it hits that one.
std::optional<int32_t> FaultForCall(const FaultRules& rules, uint64_t call);

}  // namespace nw::sim
