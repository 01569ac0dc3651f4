#pragma once

// Which rules mention a value: an address, a port, an application path, a user or a hash.

#include <cstdint>
#include <string>
#include <vector>

#include "core/ip_address.h"
#include "sim/common/scenario.h"

namespace nw::lab {

/// One value looked for, as given on the command line:
///   ip:ADDRESS or ip:LOW-HIGH   an address term that holds it, or a range or prefix term that
///                               contains or overlaps it (domain-name terms are not resolved)
///   port:N or port:LOW-HIGH     a port term (local, remote, source, destination) equal to it,
///                               or whose range overlaps it
///   path:TEXT                   an application path term, compared as the core compares paths
///                               (without regard to letter case)
///   user:TEXT                   a user term, likewise
///   hash:32 HEX DIGITS          an MD5 hash-sum term with those bytes
struct Query {
  enum class Kind { kAddress, kPort, kPath, kUser, kHash };
  Kind kind = Kind::kAddress;
  IpAddress low{}, high{};
  uint16_t portLow = 0, portHigh = 0;
  std::wstring text;
  std::vector<uint8_t> hash;
  /// As given.
  std::string spelled;
};

/// Reads one query; on failure says in *error what was expected.
bool ParseQuery(const std::string& text, Query* out, std::string* error);

/// A term that mentions a query.
struct Mention {
  size_t match = 0;
  int32_t type = 0;
  /// The aggregate match the term belongs to, when the rule reaches it through a reference.
  std::optional<Guid> aggregate;
  size_t term = 0;
  int32_t op = 0;
  /// The term in the scenario's form.
  sim::Json value;
};

struct Found {
  Guid policy{};
  sim::NameText policyName;
  Guid group{};
  Guid rule{};
  sim::NameText ruleName;
  std::vector<Mention> mentions;
};

/// Every rule that mentions each of the queries (through its own matches or an aggregate match
/// it references), in the order -PolicyDisplay lists them (packet policies, then stream ones,
/// then the other types; groups and rules in their order).
std::vector<Found> FindRules(const sim::Scenario& scenario, const std::vector<Query>& queries);

/// For people: a line naming the rule, then an indented line per term.
std::string FoundText(const Found& found);
/// The --json form of the list.
sim::Json FoundToJson(const std::vector<Found>& found);

}  // namespace nw::lab
