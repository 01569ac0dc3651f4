#include "lab/find.h"

#include <map>

#include "base/format.h"
#include "base/hex_digit.h"
#include "core/interfaces.h"
#include "core/policy_values.h"
#include "lab/term_values.h"
#include "policy/names.h"
#include "sim/common/address_text.h"

namespace nw::lab {
namespace {

using sim::Json;

bool Overlaps(const IpAddress& low, const IpAddress& high, const Query& q) {
  if (low.version != q.low.version || high.version != q.low.version) return false;
  return !(AddressKey(high) < AddressKey(q.low)) && !(AddressKey(q.high) < AddressKey(low));
}

// Whether a term of a match of type mentions q. The value is read as the views read it: the
// port getter by the operator, the address by the form the term says it has.
bool Mentions(int32_t type, const sim::TermModel& t, const Query& q) {
  switch (q.kind) {
    case Query::Kind::kAddress:
      if (type != FW_MATCH_LOCAL_IP_ADDRESS && type != FW_MATCH_REMOTE_IP_ADDRESS &&
          type != FW_MATCH_SOURCE_IP_ADDRESS && type != FW_MATCH_DESTINATION_IP_ADDRESS) {
        return false;
      }
      switch (t.AddressKind()) {
        case kIpAddressSingle:
          return t.ip && Overlaps(*t.ip, *t.ip, q);
        case kIpAddressRange:
          return t.ipRange && Overlaps(t.ipRange->low, t.ipRange->high, q);
        case kIpAddressPrefix: {
          if (!t.ip || !t.prefix) return false;
          const auto [low, high] = PrefixSpan(*t.ip, *t.prefix);
          return Overlaps(low, high, q);
        }
        default:
          return false;  // a domain name says nothing of an address until it is resolved
      }
    case Query::Kind::kPort:
      if (type != FW_MATCH_LOCAL_PORT && type != FW_MATCH_REMOTE_PORT &&
          type != FW_MATCH_SOURCE_PORT && type != FW_MATCH_DESTINATION_PORT) {
        return false;
      }
      if (IsRangeOperator(t.op)) {
        return t.uint16Range && t.uint16Range->low <= q.portHigh &&
               q.portLow <= t.uint16Range->high;
      }
      return t.uint16 && q.portLow <= *t.uint16 && *t.uint16 <= q.portHigh;
    case Query::Kind::kPath:
      return (type == FW_MATCH_APP_PATH || type == FW_MATCH_STANDARDIZED_APP_PATH) && t.string &&
             SameTextIgnoringCase(t.string->text, q.text);
    case Query::Kind::kUser:
      return type == FW_MATCH_USER_ID && t.string && SameTextIgnoringCase(t.string->text, q.text);
    case Query::Kind::kHash:
      return type == FW_MATCH_APP_MD5_HASH_SUM && t.bytes && t.bytes->count == 16 &&
             std::equal(q.hash.begin(), q.hash.end(), t.bytes->storage.begin());
  }
  return false;
}

void Collect(const std::vector<sim::MatchModel>& matches, const Query& q,
             std::optional<Guid> aggregate, std::vector<Mention>* out) {
  for (size_t m = 0; m < matches.size(); ++m) {
    for (size_t t = 0; t < matches[m].terms.size(); ++t) {
      const sim::TermModel& term = matches[m].terms[t];
      if (Mentions(matches[m].type, term, q)) {
        out->push_back({m, matches[m].type, aggregate, t, term.op, sim::TermToJson(term)});
      }
    }
  }
}

std::string Name(const sim::NameText& name) {
  return name ? Json(WideToUtf8(*name)).dump() : "null";
}

bool ParseRange(const std::string& text, std::string* low, std::string* high) {
  const size_t dash = text.find('-');
  *low = text.substr(0, dash);
  *high = dash == std::string::npos ? text : text.substr(dash + 1);
  return !low->empty() && !high->empty();
}

bool ParsePort(const std::string& text, uint16_t* port) {
  if (text.empty() || text.size() > 5) return false;
  uint32_t value = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
    value = value * 10 + static_cast<uint32_t>(c - '0');
  }
  if (value > 65535) return false;
  *port = static_cast<uint16_t>(value);
  return true;
}

}  // namespace

bool ParseQuery(const std::string& text, Query* out, std::string* error) {
  const size_t colon = text.find(':');
  const std::string kind = text.substr(0, colon);
  const std::string value = colon == std::string::npos ? "" : text.substr(colon + 1);
  Query q;
  q.spelled = text;
  std::string low, high;
  if (kind == "ip") {
    q.kind = Query::Kind::kAddress;
    if (!ParseRange(value, &low, &high) || !sim::ParseAddressText(low, &q.low) ||
        !sim::ParseAddressText(high, &q.high) || q.low.version != q.high.version ||
        AddressKey(q.high) < AddressKey(q.low)) {
      *error = "ip:" + value + ": expected an IPv4 or IPv6 address, or LOW-HIGH of one version";
      return false;
    }
  } else if (kind == "port") {
    q.kind = Query::Kind::kPort;
    if (!ParseRange(value, &low, &high) || !ParsePort(low, &q.portLow) ||
        !ParsePort(high, &q.portHigh) || q.portHigh < q.portLow) {
      *error = "port:" + value + ": expected a port from 0 to 65535, or LOW-HIGH";
      return false;
    }
  } else if (kind == "path" || kind == "user") {
    q.kind = kind == "path" ? Query::Kind::kPath : Query::Kind::kUser;
    if (value.empty()) {
      *error = kind + ": expected a text after \"" + kind + ":\"";
      return false;
    }
    q.text = Utf8ToWide(value);
  } else if (kind == "hash") {
    q.kind = Query::Kind::kHash;
    for (size_t i = 0; value.size() == 32 && i < 32; i += 2) {
      const int h = HexDigitValue(value[i]), l = HexDigitValue(value[i + 1]);
      if (h < 0 || l < 0) break;
      q.hash.push_back(static_cast<uint8_t>(h << 4 | l));
    }
    if (q.hash.size() != 16) {
      *error = "hash:" + value + ": expected an MD5 digest of 32 hexadecimal digits";
      return false;
    }
  } else {
    *error = text + ": expected ip:, port:, path:, user: or hash: and a value";
    return false;
  }
  *out = std::move(q);
  return true;
}

std::vector<Found> FindRules(const sim::Scenario& scenario, const std::vector<Query>& queries) {
  std::vector<Found> found;
  for (int32_t type : {FW_POLICY_TYPE_PACKET, FW_POLICY_TYPE_STREAM, FW_POLICY_TYPE_FRAGMENT,
                       FW_POLICY_TYPE_FORWARD}) {
    for (const auto& policy : sim::PoliciesOfType(scenario.policies, type)) {
      const Guid& uid = policy->uid;
      std::map<std::string, const sim::AggregateModel*> aggregates;
      for (const sim::AggregateModel& a : policy->aggregates) {
        aggregates.emplace(sim::GuidText(a.uid), &a);
      }
      for (const sim::GroupModel& group : policy->groups) {
        for (const sim::RuleModel& rule : group.rules) {
          Found f{uid, policy->name, group.uid, rule.uid, rule.name, {}};
          bool all = true;
          for (const Query& q : queries) {
            const size_t before = f.mentions.size();
            Collect(rule.matches, q, std::nullopt, &f.mentions);
            for (const sim::MatchModel& match : rule.matches) {
              if (match.type < FW_MATCH_FIRST_AGGREGATE_MATCH) continue;
              for (const sim::TermModel& term : match.terms) {
                const auto a = term.aggregate ? aggregates.find(sim::GuidText(*term.aggregate))
                                              : aggregates.end();
                if (a != aggregates.end()) {
                  Collect(a->second->matches, q, a->second->uid, &f.mentions);
                }
              }
            }
            all = all && f.mentions.size() > before;
          }
          if (all && !queries.empty()) found.push_back(std::move(f));
        }
      }
    }
  }
  return found;
}

std::string FoundText(const Found& f) {
  std::string text = "policy " + sim::GuidText(f.policy) + " " + Name(f.policyName) + ", group " +
                     sim::GuidText(f.group) + ", rule " + sim::GuidText(f.rule) + " " +
                     Name(f.ruleName) + "\n";
  for (const Mention& m : f.mentions) {
    text += "    match " + std::to_string(m.match) + " " + WideToUtf8(MatchTypeName(m.type)) +
            " (" + std::to_string(m.type) + ")";
    if (m.aggregate) text += " of aggregate match " + sim::GuidText(*m.aggregate);
    text += ", term " + std::to_string(m.term) + " " + WideToUtf8(MatchOpName(m.op)) + ": " +
            m.value.dump() + "\n";
  }
  return text;
}

Json FoundToJson(const std::vector<Found>& found) {
  Json list = Json::array();
  for (const Found& f : found) {
    Json mentions = Json::array();
    for (const Mention& m : f.mentions) {
      mentions.push_back(
          Json{{"match", m.match},
               {"type", m.type},
               {"typeName", WideToUtf8(MatchTypeName(m.type))},
               {"aggregate", m.aggregate ? Json(sim::GuidText(*m.aggregate)) : Json()},
               {"term", m.term},
               {"value", m.value}});
    }
    list.push_back(Json{{"policy", sim::GuidText(f.policy)},
                        {"policyName", f.policyName ? Json(WideToUtf8(*f.policyName)) : Json()},
                        {"group", sim::GuidText(f.group)},
                        {"rule", sim::GuidText(f.rule)},
                        {"ruleName", f.ruleName ? Json(WideToUtf8(*f.ruleName)) : Json()},
                        {"mentions", std::move(mentions)}});
  }
  return Json{{"rules", std::move(list)}};
}

}  // namespace nw::lab
