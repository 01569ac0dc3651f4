#pragma once

// What differs between two hosts: policies and what they hold, matched by identifier; blacklist
// ranges by their ends; configuration values, versions and hooks by name.

#include <string>
#include <vector>

#include "sim/common/scenario.h"

namespace nw::lab {

struct Difference {
  /// "added", "removed" or "changed".
  std::string change;
  /// What changed: "policy <uid> \"<name>\"", "rule <uid> \"<name>\" of policy <uid>",
  /// "group <uid> of policy <uid>", "aggregate match <uid> of policy <uid>", "blacklist range
  /// <low>-<high> (version <n>)", "blacklist", "config", "versions", "hooks".
  std::string where;
  /// For "changed": the field, as a path into the scenario's form of the record
  /// ("matches[0].terms[1].uint16", "name", "group"); empty otherwise.
  std::string field;
  /// For "changed": the values before and after, in the scenario's form.
  sim::Json from, to;
};

/// The differences from a to b, in a's order of policies (then b's new ones), then the
/// blacklist, the configuration, the versions and the hooks. Empty when the two are equal in
/// all of those.
std::vector<Difference> DiffScenarios(const sim::Scenario& a, const sim::Scenario& b);

/// One line for people: "<change> <where>" and, for a change, ": <field>: <from> -> <to>".
std::string DifferenceText(const Difference& difference);

/// The --json form: {"equal": bool, "differences": [{"change", "where", "field", "from",
/// "to"}]}, the last three only for a change.
sim::Json DifferencesToJson(const std::vector<Difference>& differences);

}  // namespace nw::lab
