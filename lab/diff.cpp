#include "lab/diff.h"

#include <algorithm>
#include <map>
#include <memory>
#include <set>
#include <unordered_map>
#include <utility>

#include "base/format.h"
#include "core/policy_values.h"

namespace nw::lab {
namespace {

using sim::Json;

// The records of one policy as the scenario writes them, keyed by identifier: the policy's own
// fields, its aggregate matches, its groups and its rules (each with the group that holds it).
struct PolicyView {
  Json fields = Json::object();
  std::vector<std::pair<std::string, Json>> aggregates;
  std::vector<std::string> groups;
  std::vector<std::pair<std::string, Json>> rules;
};

// Built by appending: GCC 12 warns falsely (-Wrestrict) on " " + a temporary string.
std::string Quoted(const Json& name) {
  return name.is_string() ? std::string(" ").append(name.dump()) : std::string();
}

// A record's key: its identifier, and for the second and later records of a policy that share
// one (a scenario may leave identifiers out), "#<n>" after it.
class Keys {
 public:
  std::string Of(const Json& uid) {
    const std::string text = uid.get<std::string>();
    const int n = ++seen_[text];
    return n == 1 ? text : text + " #" + std::to_string(n);
  }

 private:
  std::map<std::string, int> seen_;
};

PolicyView ViewOf(const sim::PolicyModel& policy) {
  // The policy is written as the scenario writes it; the store only borrows it.
  sim::PolicyStore one;
  one.policies.push_back(std::shared_ptr<const sim::PolicyModel>(std::shared_ptr<void>(), &policy));
  Json written = std::move(sim::PoliciesToJson(one)["list"][0]);
  PolicyView view;
  Keys ruleKeys, groupKeys, aggregateKeys;
  const auto rulesOf = [&](Json& rules, const std::string& group) {
    for (Json& rule : rules) {
      std::string key = ruleKeys.Of(rule["uid"]);
      rule["group"] = group;
      view.rules.emplace_back(std::move(key), std::move(rule));
    }
  };
  // Read before the fields are moved out of the written policy.
  const Json defaultGroup = written.value("defaultGroup", written["uid"]);
  for (auto& item : written.items()) {
    if (item.key() == "aggregates") {
      for (Json& a : item.value()) {
        std::string key = aggregateKeys.Of(a["uid"]);
        view.aggregates.emplace_back(std::move(key), std::move(a));
      }
    } else if (item.key() == "rules") {
      rulesOf(item.value(), groupKeys.Of(defaultGroup));
    } else if (item.key() == "groups") {
      for (Json& g : item.value()) {
        const std::string key = groupKeys.Of(g["uid"]);
        view.groups.push_back(key);
        rulesOf(g["rules"], key);
      }
    } else {
      view.fields[item.key()] = std::move(item.value());
    }
  }
  return view;
}

class Differ {
 public:
  std::vector<Difference> found;

  // Every leaf that differs between a and b, named by its path below field.
  void Fields(const std::string& where, const std::string& field, const Json& a, const Json& b) {
    if (a == b) return;
    if (a.is_object() && b.is_object()) {
      for (const auto& item : a.items()) {
        const auto other = b.find(item.key());
        Fields(where, Join(field, item.key()), item.value(), other != b.end() ? *other : Json());
      }
      for (const auto& item : b.items()) {
        if (!a.contains(item.key())) Fields(where, Join(field, item.key()), Json(), item.value());
      }
      return;
    }
    if (a.is_array() && b.is_array() && !a.empty() && !b.empty() && a[0].is_structured()) {
      for (size_t i = 0; i < std::max(a.size(), b.size()); ++i) {
        const std::string at = field + "[" + std::to_string(i) + "]";
        if (i >= a.size()) {
          found.push_back({"changed", where, at, Json(), b[i]});
        } else if (i >= b.size()) {
          found.push_back({"changed", where, at, a[i], Json()});
        } else {
          Fields(where, at, a[i], b[i]);
        }
      }
      return;
    }
    found.push_back({"changed", where, field, a, b});
  }

  // Records present in a, in b or in both, matched by key, in a's order then b's.
  template <class Describe>
  void Keyed(const std::vector<std::pair<std::string, Json>>& a,
             const std::vector<std::pair<std::string, Json>>& b, Describe describe) {
    std::map<std::string, const Json*> inB;
    for (const auto& [key, value] : b) inB.emplace(key, &value);
    std::set<std::string> inA;
    for (const auto& [key, value] : a) {
      inA.insert(key);
      const auto other = inB.find(key);
      if (other == inB.end()) {
        found.push_back({"removed", describe(key, value), "", Json(), Json()});
      } else {
        Fields(describe(key, value), "", value, *other->second);
      }
    }
    for (const auto& [key, value] : b) {
      if (!inA.count(key)) found.push_back({"added", describe(key, value), "", Json(), Json()});
    }
  }

 private:
  static std::string Join(const std::string& path, const std::string& key) {
    return path.empty() ? key : path + "." + key;
  }
};

struct Listed {
  std::string uid;
  std::shared_ptr<const sim::PolicyModel> policy;
};

std::vector<Listed> Policies(const sim::Scenario& s) {
  std::vector<Listed> out;
  for (int32_t type = FW_POLICY_TYPE_FRAGMENT; type <= FW_POLICY_TYPE_STREAM; ++type) {
    for (auto& policy : sim::PoliciesOfType(s.policies, type)) {
      out.push_back({sim::GuidText(policy->uid), std::move(policy)});
    }
  }
  return out;
}

std::string NameOf(const sim::PolicyModel& policy) {
  return policy.name ? Quoted(Json(WideToUtf8(*policy.name))) : std::string();
}

// Whether every rule of the policy has an identifier of its own (its key is then the identifier).
bool DistinctRuleUids(const sim::PolicyModel& policy) {
  std::set<std::string> seen;
  for (const sim::GroupModel& group : policy.groups) {
    for (const sim::RuleModel& rule : group.rules) {
      if (!seen.insert(sim::GuidText(rule.uid)).second) return false;
    }
  }
  return true;
}

// A rule equal in both policies, in the same group at the same place, makes no difference; it is
// left out of both before they are written out and taken apart, which is most of the time a
// diff of two large hosts takes. Only where every rule's key is its identifier, so that leaving
// some out changes no other rule's key.
void DropEqualRules(sim::PolicyModel* a, sim::PolicyModel* b) {
  if (!DistinctRuleUids(*a) || !DistinctRuleUids(*b)) return;
  for (size_t g = 0; g < a->groups.size() && g < b->groups.size(); ++g) {
    auto& rulesA = a->groups[g].rules;
    auto& rulesB = b->groups[g].rules;
    if (!(a->groups[g].uid == b->groups[g].uid)) continue;
    for (size_t i = std::min(rulesA.size(), rulesB.size()); i-- > 0;) {
      if (rulesA[i] == rulesB[i]) {
        rulesA.erase(rulesA.begin() + static_cast<std::ptrdiff_t>(i));
        rulesB.erase(rulesB.begin() + static_cast<std::ptrdiff_t>(i));
      }
    }
  }
}

// Policies by identifier; only those whose records differ are taken apart field by field.
void DiffPolicies(const sim::Scenario& a, const sim::Scenario& b, Differ* differ) {
  const std::vector<Listed> listA = Policies(a), listB = Policies(b);
  std::unordered_map<std::string, const sim::PolicyModel*> inA, inB;
  for (const Listed& entry : listA) inA.emplace(entry.uid, entry.policy.get());
  for (const Listed& entry : listB) inB.emplace(entry.uid, entry.policy.get());
  for (const Listed& entry : listA) {
    const std::string& uid = entry.uid;
    const auto other = inB.find(uid);
    if (other == inB.end()) {
      differ->found.push_back(
          {"removed", "policy " + uid + NameOf(*entry.policy), "", Json(), Json()});
      continue;
    }
    if (*entry.policy == *other->second) continue;
    sim::PolicyModel policyA = *entry.policy, policyB = *other->second;
    DropEqualRules(&policyA, &policyB);
    const PolicyView va = ViewOf(policyA);
    const PolicyView vb = ViewOf(policyB);
    const std::string policy = "policy " + uid + Quoted(va.fields["name"]);
    differ->Fields(policy, "", va.fields, vb.fields);
    const std::string of = " of policy " + uid;
    differ->Keyed(va.aggregates, vb.aggregates, [&](const std::string& key, const Json& value) {
      return "aggregate match " + key + Quoted(value["name"]) + of;
    });
    std::vector<std::pair<std::string, Json>> groupsA, groupsB;
    for (const auto& g : va.groups) groupsA.emplace_back(g, Json());
    for (const auto& g : vb.groups) groupsB.emplace_back(g, Json());
    differ->Keyed(groupsA, groupsB,
                  [&](const std::string& key, const Json&) { return "group " + key + of; });
    differ->Keyed(va.rules, vb.rules, [&](const std::string& key, const Json& value) {
      return "rule " + key + Quoted(value["name"]) + of;
    });
  }
  for (const Listed& entry : listB) {
    if (!inA.count(entry.uid)) {
      differ->found.push_back(
          {"added", "policy " + entry.uid + NameOf(*entry.policy), "", Json(), Json()});
    }
  }
}

std::vector<std::pair<std::string, Json>> Ranges(const sim::Scenario& s) {
  std::vector<std::pair<std::string, Json>> out;
  const Json section = sim::BlacklistToJson(s.tables.blacklist);
  for (const Json& range : section["entries"]) {
    const auto plain = [](const Json& v) {
      return v.is_string() ? v.get<std::string>() : v.dump();
    };
    std::string key = plain(range["low"]) + "-" + plain(range["high"]);
    if (range.contains("version")) key += " (version " + range["version"].dump() + ")";
    Json fields = range;
    fields.erase("low");
    fields.erase("high");
    fields.erase("version");
    out.emplace_back(key, std::move(fields));
  }
  return out;
}

}  // namespace

std::vector<Difference> DiffScenarios(const sim::Scenario& a, const sim::Scenario& b) {
  Differ differ;
  DiffPolicies(a, b, &differ);
  differ.Fields("blacklist", "logOption", a.tables.blacklist.logOption,
                b.tables.blacklist.logOption);
  differ.Keyed(Ranges(a), Ranges(b),
               [](const std::string& key, const Json&) { return "blacklist range " + key; });
  differ.Fields("config", "", sim::GlobalSettingsToJson(a.config),
                sim::GlobalSettingsToJson(b.config));
  // The versions and hooks as the scenario writes them, without writing the rest of the host.
  const auto written = [](const sim::Scenario& s) {
    sim::Scenario only;
    only.versions = s.versions;
    only.hooks = s.hooks;
    return sim::ScenarioToJson(only);
  };
  const Json docA = written(a), docB = written(b);
  differ.Fields("versions", "", docA["versions"], docB["versions"]);
  differ.Fields("hooks", "", docA["hooks"], docB["hooks"]);
  return differ.found;
}

std::string DifferenceText(const Difference& d) {
  std::string line = d.change + " " + d.where;
  if (d.change == "changed") {
    line += ": " + (d.field.empty() ? std::string("value") : d.field) + ": " + d.from.dump() +
            " -> " + d.to.dump();
  }
  return line;
}

Json DifferencesToJson(const std::vector<Difference>& differences) {
  Json list = Json::array();
  for (const Difference& d : differences) {
    Json item = Json{{"change", d.change}, {"where", d.where}};
    if (d.change == "changed") {
      item["field"] = d.field;
      item["from"] = d.from;
      item["to"] = d.to;
    }
    list.push_back(std::move(item));
  }
  return Json{{"equal", differences.empty()}, {"differences", std::move(list)}};
}

}  // namespace nw::lab
