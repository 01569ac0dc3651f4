#include "sim/common/fault_rules.h"

namespace nw::sim {
namespace {

bool ParseRule(JsonChecker& check, const Json& v, const std::string& path, FaultRule* out) {
  if (!v.is_object()) {
    return check.Fail(path, "a status, or {\"status\", \"call\" or \"from\"}");
  }
  if (!check.Object(v, path, {"status", "call", "from"})) return false;
  if (!v.contains("status")) return check.Fail(JsonPath(path, "status"), "a status");
  if (!check.Status(v["status"], JsonPath(path, "status"), &out->status)) return false;
  if (v.contains("call") == v.contains("from")) {
    return check.Fail(path,
                      "either \"call\" (one call) or \"from\" (that call and every later one)");
  }
  const char* key = v.contains("call") ? "call" : "from";
  uint64_t call = 0;
  if (!check.Unsigned(v[key], JsonPath(path, key), UINT64_MAX, &call)) return false;
  if (call == 0) return check.Fail(JsonPath(path, key), "a call number from 1");
  out->first = call;
  out->last = v.contains("call") ? call : UINT64_MAX;
  return true;
}

}  // namespace

bool ParseFaultRules(JsonChecker& check, const Json& v, const std::string& path, FaultRules* out) {
  FaultRules rules;
  if (v.is_array()) {
    if (v.empty()) return check.Fail(path, "at least one rule");
    for (size_t i = 0; i < v.size(); ++i) {
      FaultRule rule;
      if (!ParseRule(check, v[i], JsonPath(path, i), &rule)) return false;
      rules.push_back(rule);
    }
  } else if (v.is_object()) {
    FaultRule rule;
    if (!ParseRule(check, v, path, &rule)) return false;
    rules.push_back(rule);
  } else {
    FaultRule rule;
    if (!check.Status(v, path, &rule.status)) return false;
    rules.push_back(rule);
  }
  *out = std::move(rules);
  return true;
}

std::optional<int32_t> FaultForCall(const FaultRules& rules, uint64_t call) {
  for (const FaultRule& rule : rules) {
    if (call >= rule.first && call <= rule.last) return rule.status;
  }
  return std::nullopt;
}

Json FaultRulesToJson(const FaultRules& rules) {
  if (rules.size() == 1 && rules[0].first == 1 && rules[0].last == UINT64_MAX) {
    return rules[0].status;
  }
  Json list = Json::array();
  for (const FaultRule& rule : rules) {
    if (rule.first == rule.last) {
      list.push_back(Json{{"status", rule.status}, {"call", rule.first}});
    } else {
      list.push_back(Json{{"status", rule.status}, {"from", rule.first}});
    }
  }
  return list;
}

}  // namespace nw::sim
