#pragma once

// Which rule decides a connection, and why every rule before it did not. The evaluation model
// is written down in docs/lab.md and lives in explain.cpp alone.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/ip_address.h"
#include "sim/common/scenario.h"

namespace nw::lab {

/// A connection as the command line gives it. What is not given is unknown, never guessed.
struct Connection {
  uint8_t protocol = 6;
  IpAddress localAddress{}, remoteAddress{};
  uint16_t localPort = 0, remotePort = 0;
  /// FW_DIRECTION_INBOUND (1) or FW_DIRECTION_OUTBOUND (2).
  int32_t direction = 2;
  std::optional<std::wstring> application;
  std::optional<std::wstring> user;
};

/// Reads "tcp", "udp", "icmp", "icmpv6" or a number from 0 to 255.
bool ParseProtocol(const std::string& text, uint8_t* out);
/// Reads "ADDRESS:PORT", with an IPv6 address in brackets ("[fe80::1]:443").
bool ParseEndpoint(const std::string& text, IpAddress* address, uint16_t* port);
/// Reads "in" or "out".
bool ParseDirection(const std::string& text, int32_t* out);

/// What one rule of the walk came to.
struct RuleOutcome {
  Guid rule{};
  sim::NameText name;
  Guid group{};
  int32_t action = 0;
  /// The walk's indication for it (0 a rule, 1 a followed jump, 2 a jump cut off).
  uint32_t indication = 0;
  /// "matches", "does not match", "unknown", "disabled", "skipped" (inside a jump not taken).
  std::string result;
  /// For "does not match" and "unknown": the term that decided it, and why.
  std::string term;
  std::string reason;
};

struct PolicyVerdict {
  int32_t type = 0;
  Guid policy{};
  sim::NameText name;
  /// Every rule the take-jumps walk hands out, in its order.
  std::vector<RuleOutcome> rules;
  /// The deciding rule (an index into rules), or none when the default action decides.
  std::optional<size_t> decidedBy;
  int32_t action = 0;
  /// Rules whose outcome is unknown and that come before the decision: the verdict holds when
  /// none of them matches.
  std::vector<size_t> unless;
};

/// Evaluates the connection against the packet policies and then the stream policies of the
/// scenario, each policy on its own, walking its rules in the order of the take-jumps listing.
/// On failure (a scenario the simulated core refuses) returns false with *error.
bool ExplainConnection(const sim::Scenario& scenario, const Connection& connection,
                       std::vector<PolicyVerdict>* out, std::string* error);

std::string VerdictText(const PolicyVerdict& verdict);
sim::Json VerdictsToJson(const std::vector<PolicyVerdict>& verdicts);

}  // namespace nw::lab
