#include "lab/explain.h"

#include <map>
#include <memory>
#include <tuple>

#include "base/format.h"
#include "core/interfaces.h"
#include "core/policy_values.h"
#include "lab/term_values.h"
#include "policy/names.h"
#include "sim/common/address_text.h"
#include "sim/core/core_objects.h"
#include "sim/core/policy_objects.h"

namespace nw::lab {
namespace {

using sim::Json;

// ---- Three-valued results -------------------------------------------------------------------

enum class Truth { kFalse, kTrue, kUnknown };

// Why a term, a match or a rule came out as it did.
struct Outcome {
  Truth truth = Truth::kTrue;
  std::string term;    // "match 1 FW_MATCH_USER_ID (1) term 0"
  std::string reason;  // "no user given"
};

Outcome Unknown(std::string reason) { return {Truth::kUnknown, "", std::move(reason)}; }
Outcome Holds(bool holds, std::string reason) {
  return {holds ? Truth::kTrue : Truth::kFalse, "", std::move(reason)};
}

// ---- Terms --------------------------------------------------------------------------------

std::string AddressText(const IpAddress& a) {
  const Json text = sim::AddressToJson(a);
  return text.is_string() ? text.get<std::string>() : text.dump();
}

// Compares value with the term's operand by the operator; ranges are handled by the callers.
Outcome Compare(int32_t op, uint64_t value, uint64_t operand, const std::string& what) {
  const std::string said = what + " " + std::to_string(value);
  switch (op) {
    case FW_MATCH_OP_EQUAL:
      return Holds(value == operand,
                   said + (value == operand ? " is " : " is not ") + std::to_string(operand));
    case FW_MATCH_OP_EQUAL_NOT:
      return Holds(value != operand,
                   said + (value != operand ? " is not " : " is ") + std::to_string(operand));
    case FW_MATCH_OP_GEQ:
      return Holds(value >= operand,
                   said + (value >= operand ? " >= " : " < ") + std::to_string(operand));
    case FW_MATCH_OP_LEQ:
      return Holds(value <= operand,
                   said + (value <= operand ? " <= " : " > ") + std::to_string(operand));
    default:
      return Unknown("the operator " + WideToUtf8(MatchOpName(op)) + " is not evaluated here");
  }
}

Outcome InRange(int32_t op, uint64_t value, uint64_t low, uint64_t high, const std::string& what) {
  const bool inside = low <= value && value <= high;
  const std::string range = std::to_string(low) + "-" + std::to_string(high);
  const std::string said = what + " " + std::to_string(value);
  if (op == FW_MATCH_OP_IN_RANGE)
    return Holds(inside, said + (inside ? " in " : " not in ") + range);
  return Holds(!inside, said + (inside ? " in " : " not in ") + range);
}

Outcome Port(const sim::TermModel& t, uint16_t port, const std::string& what) {
  if (IsRangeOperator(t.op)) {
    if (!t.uint16Range) return Unknown("the term holds no port range");
    return InRange(t.op, port, t.uint16Range->low, t.uint16Range->high, what);
  }
  if (!t.uint16) return Unknown("the term holds no port");
  return Compare(t.op, port, *t.uint16, what);
}

Outcome Address(const sim::TermModel& t, const IpAddress& address, const std::string& what) {
  IpAddress low{}, high{};
  switch (t.AddressKind()) {
    case kIpAddressSingle:
      if (!t.ip) return Unknown("the term holds no address");
      low = high = *t.ip;
      break;
    case kIpAddressRange:
      if (!t.ipRange) return Unknown("the term holds no address range");
      low = t.ipRange->low;
      high = t.ipRange->high;
      break;
    case kIpAddressPrefix:
      if (!t.ip || !t.prefix) return Unknown("the term holds no prefix");
      std::tie(low, high) = PrefixSpan(*t.ip, *t.prefix);
      break;
    default:
      return Unknown("a domain name is not resolved here");
  }
  const bool inside = InSpan(address, low, high);
  const std::string said = what + " " + AddressText(address) + (inside ? " in " : " not in ") +
                           AddressText(low) + "-" + AddressText(high);
  switch (t.op) {
    case FW_MATCH_OP_EQUAL:
    case FW_MATCH_OP_IN_RANGE:
      return Holds(inside, said);
    case FW_MATCH_OP_EQUAL_NOT:
    case FW_MATCH_OP_IN_RANGE_NOT:
      return Holds(!inside, said);
    default:
      return Unknown("the operator " + WideToUtf8(MatchOpName(t.op)) + " is not evaluated here");
  }
}

Outcome Text(const sim::TermModel& t, const std::optional<std::wstring>& given,
             const std::string& what) {
  if (!given) return Unknown("no " + what + " given");
  if (!t.string) return Unknown("the term holds no text");
  const bool same = SameTextIgnoringCase(t.string->text, *given);
  const std::string said = what + (same ? " is " : " is not ") + WideToUtf8(t.string->text);
  if (t.op == FW_MATCH_OP_EQUAL) return Holds(same, said);
  if (t.op == FW_MATCH_OP_EQUAL_NOT) return Holds(!same, said);
  return Unknown("the operator " + WideToUtf8(MatchOpName(t.op)) + " is not evaluated here");
}

// One term against the connection, by the type of its match.
Outcome Term(int32_t type, const sim::TermModel& t, const Connection& c) {
  const bool outbound = c.direction == FW_DIRECTION_OUTBOUND;
  switch (type) {
    case FW_MATCH_IP_PROTOCOL:
      if (!t.uint8) return Unknown("the term holds no protocol");
      return Compare(t.op, c.protocol, *t.uint8, "protocol");
    case FW_MATCH_LOCAL_PORT:
      return Port(t, c.localPort, "local port");
    case FW_MATCH_REMOTE_PORT:
      return Port(t, c.remotePort, "remote port");
    case FW_MATCH_SOURCE_PORT:
      return Port(t, outbound ? c.localPort : c.remotePort, "source port");
    case FW_MATCH_DESTINATION_PORT:
      return Port(t, outbound ? c.remotePort : c.localPort, "destination port");
    case FW_MATCH_LOCAL_IP_ADDRESS:
      return Address(t, c.localAddress, "local address");
    case FW_MATCH_REMOTE_IP_ADDRESS:
      return Address(t, c.remoteAddress, "remote address");
    case FW_MATCH_SOURCE_IP_ADDRESS:
      return Address(t, outbound ? c.localAddress : c.remoteAddress, "source address");
    case FW_MATCH_DESTINATION_IP_ADDRESS:
      return Address(t, outbound ? c.remoteAddress : c.localAddress, "destination address");
    case FW_MATCH_DIRECTION:
      if (!t.uint32) return Unknown("the term holds no direction");
      return Compare(t.op, static_cast<uint64_t>(c.direction), *t.uint32, "direction");
    case FW_MATCH_APP_PATH:
    case FW_MATCH_STANDARDIZED_APP_PATH:
      return Text(t, c.application, "application");
    case FW_MATCH_USER_ID:
      return Text(t, c.user, "user");
    default:
      return Unknown("the connection says nothing of " + WideToUtf8(MatchTypeName(type)));
  }
}

// ---- Matches and rules ----------------------------------------------------------------------

using Aggregates = std::map<std::string, const sim::AggregateModel*>;

Outcome Matches(const std::vector<sim::MatchModel>& matches, bool any, const Aggregates& aggregates,
                const Connection& c, const std::string& prefix, int depth);

// A match holds when one of its terms holds; a reference holds as its aggregate match does.
Outcome Match(const sim::MatchModel& match, size_t index, const Aggregates& aggregates,
              const Connection& c, const std::string& prefix, int depth) {
  const std::string where = prefix + "match " + std::to_string(index) + " " +
                            WideToUtf8(MatchTypeName(match.type)) + " (" +
                            std::to_string(match.type) + ")";
  if (match.type >= FW_MATCH_FIRST_AGGREGATE_MATCH) {
    const auto* term = match.terms.empty() ? nullptr : &match.terms.front();
    const auto found = term && term->aggregate ? aggregates.find(sim::GuidText(*term->aggregate))
                                               : aggregates.end();
    if (found == aggregates.end() || depth > 8) {
      return {Truth::kUnknown, where, "its aggregate match is not in the policy"};
    }
    return Matches(found->second->matches, found->second->orOperator, aggregates, c,
                   where + " -> aggregate match " + found->first + ": ", depth + 1);
  }
  Outcome result{Truth::kFalse, where, "no term"};
  for (size_t i = 0; i < match.terms.size(); ++i) {
    Outcome o = Term(match.type, match.terms[i], c);
    o.term = where + " term " + std::to_string(i);
    if (o.truth == Truth::kTrue) return o;
    if (o.truth == Truth::kUnknown || result.truth == Truth::kFalse) result = o;
  }
  return result;
}

// All matches (any: one of them) must hold; the first that decides is the one reported.
Outcome Matches(const std::vector<sim::MatchModel>& matches, bool any, const Aggregates& aggregates,
                const Connection& c, const std::string& prefix, int depth) {
  Outcome unknown{Truth::kTrue, "", ""};
  bool sawUnknown = false;
  Outcome last{any ? Truth::kFalse : Truth::kTrue, "", any ? "no match holds" : ""};
  for (size_t i = 0; i < matches.size(); ++i) {
    Outcome o = Match(matches[i], i, aggregates, c, prefix, depth);
    if (o.truth == Truth::kUnknown) {
      if (!sawUnknown) unknown = o;
      sawUnknown = true;
    } else if (any ? o.truth == Truth::kTrue : o.truth == Truth::kFalse) {
      return o;
    } else {
      last = o;
    }
  }
  return sawUnknown ? unknown : last;
}

bool Decides(int32_t action) { return action != FW_ACTION_CONTINUE && action != FW_ACTION_JUMP; }

const char* TruthText(Truth t) {
  return t == Truth::kTrue ? "matches" : t == Truth::kFalse ? "does not match" : "unknown";
}

// ---- The walk -----------------------------------------------------------------------------

struct Walked {
  Guid rule{};
  uint32_t indication = 0;
};

// The rules of policy in the order of the take-jumps listing, as the simulated core's walk
// hands them out under the listing's protocol.
std::vector<Walked> TakeJumps(sim::PolicyManager* manager, const Guid& uid) {
  std::vector<Walked> walk;
  IPolicy* policy = nullptr;
  if (manager->GetExistingPolicy(&policy, &uid) != kStatusOk || policy == nullptr) return walk;
  policy->SetIterationMode(kIterateTakingJumps);
  policy->AdvanceIteration();
  uint32_t indication = 0;
  for (IRule* rule = policy->GetNextRuleTakingJumps(&indication); rule != nullptr;
       rule = policy->GetNextRuleTakingJumps(&indication)) {
    walk.push_back({rule->GetUid() != nullptr ? *rule->GetUid() : Guid{}, indication});
    if (indication == 0 || indication == 1) policy->AdvanceIteration();
  }
  policy->Release();
  return walk;
}

// Where the walk is: a group and the next of its rules, and whether the jumps that led there
// all hold (a jump that does not hold skips what the walk hands out from its target).
struct Frame {
  size_t group;
  size_t next = 0;
  bool taken = true;
};

PolicyVerdict Evaluate(const sim::PolicyModel& policy, const std::vector<Walked>& walk,
                       const Connection& c) {
  PolicyVerdict verdict;
  verdict.type = policy.type;
  verdict.policy = policy.uid;
  verdict.name = policy.name;
  verdict.action = policy.defaultAction;
  Aggregates aggregates;
  for (const sim::AggregateModel& a : policy.aggregates) {
    aggregates.emplace(sim::GuidText(a.uid), &a);
  }
  // The walk's order and indications are the core's; which rule each step is follows from
  // them: the default group's rules in order, and after a followed jump its target's rules.
  std::vector<Frame> frames{{0}};
  for (const Walked& step : walk) {
    while (frames.size() > 1 &&
           frames.back().next >= policy.groups[frames.back().group].rules.size()) {
      frames.pop_back();
    }
    Frame& frame = frames.back();
    if (frame.next >= policy.groups[frame.group].rules.size()) break;
    const sim::GroupModel& group = policy.groups[frame.group];
    const sim::RuleModel& rule = group.rules[frame.next++];
    if (!(rule.uid == step.rule)) break;  // the walk and the policy disagree: stop there
    const bool taken = frame.taken;
    RuleOutcome outcome{rule.uid, rule.name, group.uid, rule.action, step.indication, "", "", ""};
    Outcome o{Truth::kFalse, "", ""};
    bool evaluated = false;
    if (verdict.decidedBy) {
      outcome.result = "not reached";
    } else if (!taken) {
      outcome.result = "skipped";
    } else if (!rule.enabled) {
      outcome.result = "disabled";
    } else {
      evaluated = true;
      o = Matches(rule.matches, false, aggregates, c, "", 0);
      if (rule.invertMatch && o.truth != Truth::kUnknown) {
        o.truth = o.truth == Truth::kTrue ? Truth::kFalse : Truth::kTrue;
        o.reason += " (the rule inverts its match)";
      }
      outcome.result = TruthText(o.truth);
      if (o.truth != Truth::kTrue || rule.invertMatch) {
        outcome.term = o.term;
        outcome.reason = o.reason;
      }
    }
    verdict.rules.push_back(outcome);
    const size_t at = verdict.rules.size() - 1;
    if (step.indication == 1) {
      size_t target = 0;
      while (target < policy.groups.size() && !(policy.groups[target].uid == rule.target)) {
        ++target;
      }
      if (target == policy.groups.size()) break;  // the walk and the policy disagree
      // A jump whose outcome is unknown is not followed; the verdict holds unless it matches.
      if (evaluated && o.truth == Truth::kUnknown) verdict.unless.push_back(at);
      frames.push_back({target, 0, evaluated && o.truth == Truth::kTrue});
      continue;
    }
    if (!evaluated || rule.action == FW_ACTION_JUMP || !Decides(rule.action)) continue;
    if (o.truth == Truth::kUnknown) verdict.unless.push_back(at);
    if (o.truth == Truth::kTrue) {
      verdict.decidedBy = at;
      verdict.action = rule.action;
    }
  }
  return verdict;
}

std::string Name(const sim::NameText& name) {
  return name ? Json(WideToUtf8(*name)).dump() : "null";
}

std::string ActionText(int32_t action) {
  return WideToUtf8(ActionName(action)) + " (" + std::to_string(action) + ")";
}

}  // namespace

bool ParseProtocol(const std::string& text, uint8_t* out) {
  const std::pair<const char*, uint8_t> names[] = {
      {"tcp", 6}, {"udp", 17}, {"icmp", 1}, {"icmpv6", 58}};
  for (const auto& [name, number] : names) {
    if (text == name) {
      *out = number;
      return true;
    }
  }
  if (text.empty() || text.size() > 3 ||
      text.find_first_not_of("0123456789") != std::string::npos) {
    return false;
  }
  const int value = std::stoi(text);
  if (value > 255) return false;
  *out = static_cast<uint8_t>(value);
  return true;
}

bool ParseEndpoint(const std::string& text, IpAddress* address, uint16_t* port) {
  std::string host, number;
  if (!text.empty() && text[0] == '[') {
    const size_t close = text.find("]:");
    if (close == std::string::npos) return false;
    host = text.substr(1, close - 1);
    number = text.substr(close + 2);
  } else {
    const size_t colon = text.rfind(':');
    if (colon == std::string::npos || text.find(':') != colon) return false;
    host = text.substr(0, colon);
    number = text.substr(colon + 1);
  }
  if (number.empty() || number.size() > 5 ||
      number.find_first_not_of("0123456789") != std::string::npos || std::stoi(number) > 65535) {
    return false;
  }
  IpAddress parsed{};
  if (!sim::ParseAddressText(host, &parsed)) return false;
  *address = parsed;
  *port = static_cast<uint16_t>(std::stoi(number));
  return true;
}

bool ParseDirection(const std::string& text, int32_t* out) {
  if (text == "in" || text == "out") {
    *out = text == "in" ? FW_DIRECTION_INBOUND : FW_DIRECTION_OUTBOUND;
    return true;
  }
  return false;
}

bool ExplainConnection(const sim::Scenario& scenario, const Connection& connection,
                       std::vector<PolicyVerdict>* out, std::string* error) {
  // The walk is the simulated core's own, in a core held in memory that has no faults (a fault
  // is a failure of a call, not part of what the policies say) and holds one policy at a time,
  // so that finding it costs nothing whatever the host's size.
  auto state = std::make_shared<sim::CoreState>(sim::LibraryState::Options{
      "kvxfwctl", "{}", std::string(), "", [](const std::wstring&) {}, false, true});
  if (state->GetScenario(error) == nullptr) return false;
  auto* manager = new sim::PolicyManager(state);
  out->clear();
  for (int32_t type : {FW_POLICY_TYPE_PACKET, FW_POLICY_TYPE_STREAM}) {
    for (const auto& policy : sim::PoliciesOfType(scenario.policies, type)) {
      state->UpdateScenario([&policy](sim::Scenario& held) { held.policies.policies = {policy}; });
      out->push_back(Evaluate(*policy, TakeJumps(manager, policy->uid), connection));
    }
  }
  manager->Release();
  return true;
}

std::string VerdictText(const PolicyVerdict& v) {
  std::string text = WideToUtf8(PolicyTypeName(v.type)) + " policy " + sim::GuidText(v.policy) +
                     " " + Name(v.name) + "\n";
  text += "  path:";
  for (const RuleOutcome& r : v.rules) {
    text += " " + sim::GuidText(r.rule).substr(0, 8) + ":" + std::to_string(r.indication);
  }
  text += "\n";
  for (size_t i = 0; i < v.rules.size(); ++i) {
    const RuleOutcome& r = v.rules[i];
    text += "  rule " + sim::GuidText(r.rule) + " " + Name(r.name) + " " + ActionText(r.action) +
            ": " + r.result;
    if (!r.term.empty() || !r.reason.empty()) {
      text += " (" + (r.term.empty() ? "" : r.term + ": ") + r.reason + ")";
    }
    text += "\n";
  }
  if (v.decidedBy) {
    text += "  decided by rule " + sim::GuidText(v.rules[*v.decidedBy].rule) + " " +
            Name(v.rules[*v.decidedBy].name) + ": " + ActionText(v.action) + "\n";
  } else {
    text += "  no rule decides: the policy's default action " + ActionText(v.action) + "\n";
  }
  for (size_t i : v.unless) {
    text += "  unless rule " + sim::GuidText(v.rules[i].rule) + " " + Name(v.rules[i].name) +
            " matches (" + v.rules[i].reason + ")\n";
  }
  return text;
}

Json VerdictsToJson(const std::vector<PolicyVerdict>& verdicts) {
  Json list = Json::array();
  for (const PolicyVerdict& v : verdicts) {
    Json rules = Json::array();
    for (const RuleOutcome& r : v.rules) {
      rules.push_back(Json{{"rule", sim::GuidText(r.rule)},
                           {"name", r.name ? Json(WideToUtf8(*r.name)) : Json()},
                           {"group", sim::GuidText(r.group)},
                           {"action", r.action},
                           {"indication", r.indication},
                           {"result", r.result},
                           {"term", r.term},
                           {"reason", r.reason}});
    }
    Json unless = Json::array();
    for (size_t i : v.unless) unless.push_back(sim::GuidText(v.rules[i].rule));
    list.push_back(
        Json{{"type", v.type},
             {"policy", sim::GuidText(v.policy)},
             {"name", v.name ? Json(WideToUtf8(*v.name)) : Json()},
             {"decidedBy", v.decidedBy ? Json(sim::GuidText(v.rules[*v.decidedBy].rule)) : Json()},
             {"action", v.action},
             {"actionName", WideToUtf8(ActionName(v.action))},
             {"unless", std::move(unless)},
             {"rules", std::move(rules)}});
  }
  return Json{{"policies", std::move(list)}};
}

}  // namespace nw::lab
