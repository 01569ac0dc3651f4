#include "sim/common/scenario.h"

#include <limits>

namespace nw::sim {
namespace {

// What may follow "name:" in a fault entry.
enum class FaultItem {
  kNone,
  kRequestCode,  // a driver request code in decimal
};

struct FaultOperation {
  std::string_view name;
  FaultItem item;
};

// Every operation a scenario can make fail. Later operations add a line here.
constexpr FaultOperation kFaultOperations[] = {
    {"Register", FaultItem::kNone},
    {"Unregister", FaultItem::kNone},
    {"GetPolicyManager", FaultItem::kNone},
    {"GetHighPriorityIpListControl", FaultItem::kNone},
    {"DrvLinkConnectAsync", FaultItem::kNone},
    {"DrvLinkConnect", FaultItem::kNone},
    {"ConnectToContentDriver", FaultItem::kNone},
    {"SendControlRequest", FaultItem::kRequestCode},
};

bool OptionalBool(JsonChecker& check, const Json& object, const std::string& path, const char* key,
                  bool* out) {
  auto it = object.find(key);
  return it == object.end() || check.Bool(*it, JsonPath(path, key), out);
}

bool ParseService(JsonChecker& check, const Json& v, const std::string& path, Scenario* s) {
  return check.Object(v, path, {"running"}) &&
         OptionalBool(check, v, path, "running", &s->service.running);
}

bool ParseDebug(JsonChecker& check, const Json& v, const std::string& path, Scenario* s) {
  return check.Object(v, path, {"trace", "reportLeaks"}) &&
         OptionalBool(check, v, path, "trace", &s->debug.trace) &&
         OptionalBool(check, v, path, "reportLeaks", &s->debug.reportLeaks);
}

bool ParseDriverLink(JsonChecker& check, const Json& v, const std::string& path, Scenario* s) {
  return check.Object(v, path, {"driverRunning"}) &&
         OptionalBool(check, v, path, "driverRunning", &s->driverLink.driverRunning);
}

// A request code as the fault key carries it: plain decimal, no sign or leading zero, so that
// one code has one spelling and the lookup finds it.
bool IsRequestCode(std::string_view text) {
  if (text.empty() || text.size() > 10 || (text.size() > 1 && text[0] == '0')) return false;
  uint64_t value = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
    value = value * 10 + static_cast<uint64_t>(c - '0');
  }
  return value <= std::numeric_limits<uint32_t>::max();
}

bool IsKnownFault(std::string_view key) {
  const size_t colon = key.find(':');
  const std::string_view name = key.substr(0, colon);
  for (const FaultOperation& op : kFaultOperations) {
    if (op.name != name) continue;
    if (colon == std::string_view::npos) return true;
    return op.item == FaultItem::kRequestCode && IsRequestCode(key.substr(colon + 1));
  }
  return false;
}

std::string KnownFaultsText() {
  std::string names;
  for (const FaultOperation& op : kFaultOperations) {
    if (!names.empty()) names += ", ";
    names += op.name;
    if (op.item == FaultItem::kRequestCode) names += ", " + std::string(op.name) + ":<code>";
  }
  return names;
}

bool ParseFaults(JsonChecker& check, const Json& v, const std::string& path, Scenario* s) {
  if (!check.Object(v, path)) return false;
  for (const auto& item : v.items()) {
    const std::string itemPath = JsonPath(path, item.key());
    if (!IsKnownFault(item.key())) {
      return check.Fail(itemPath, "a known operation (" + KnownFaultsText() + ")");
    }
    int32_t status = 0;
    if (!check.Status(item.value(), itemPath, &status)) return false;
    s->faults[item.key()] = status;
  }
  return true;
}

using SectionParser = bool (*)(JsonChecker& check, const Json& value, const std::string& path,
                               Scenario* scenario);

struct Section {
  const char* name;
  SectionParser parse;
};

// The top-level fields of a scenario, checked in this order. A new section is one line here.
constexpr Section kSections[] = {
    {"service", ParseService},
    {"faults", ParseFaults},
    {"debug", ParseDebug},
    {"driverLink", ParseDriverLink},
};

bool CheckTopLevelKeys(JsonChecker& check, const Json& doc) {
  for (const auto& item : doc.items()) {
    bool known = false;
    for (const Section& section : kSections) known = known || item.key() == section.name;
    if (known) continue;
    std::string names;
    for (const Section& section : kSections) {
      names += (names.empty() ? "" : ", ") + std::string(section.name);
    }
    return check.Fail(JsonPath("", item.key()), "one of the known fields (" + names + ")");
  }
  return true;
}

}  // namespace

bool ParseScenario(const Json& doc, const std::string& source, Scenario* out, std::string* error) {
  JsonChecker check(source);
  Scenario scenario;
  if (check.Object(doc, "") && CheckTopLevelKeys(check, doc)) {
    for (const Section& section : kSections) {
      auto it = doc.find(section.name);
      if (it != doc.end() && !section.parse(check, *it, JsonPath("", section.name), &scenario)) {
        break;
      }
    }
  }
  if (!check.ok()) {
    *error = check.error();
    return false;
  }
  scenario.source = source;
  scenario.document = doc;
  *out = std::move(scenario);
  return true;
}

bool LoadScenario(const std::string& file, std::string_view builtInText, Scenario* out,
                  std::string* error) {
  const std::string source = file.empty() ? kBuiltInScenarioName : file;
  Json doc;
  const bool read = file.empty() ? ParseJsonText(builtInText, source, &doc, error)
                                 : LoadJsonFile(file, &doc, error);
  return read && ParseScenario(doc, source, out, error);
}

std::optional<int32_t> FindFault(const Scenario& scenario, std::string_view operation,
                                 std::string_view item) {
  if (!item.empty()) {
    std::string key(operation);
    key += ':';
    key += item;
    auto it = scenario.faults.find(key);
    if (it != scenario.faults.end()) return it->second;
  }
  auto it = scenario.faults.find(operation);
  if (it == scenario.faults.end()) return std::nullopt;
  return it->second;
}

}  // namespace nw::sim
