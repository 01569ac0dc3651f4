#include "sim/common/scenario_policies.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <limits>
#include <string_view>

#include "base/format.h"
#include "base/hex_digit.h"
#include "core/policy_values.h"
#include "sim/common/address_text.h"

namespace nw::sim {
namespace {

// ---- Identifiers and addresses as text ---------------------------------------------------

bool IsPlainIpv4(const IpAddress& a) {
  return a.version == 4 && std::all_of(a.bytes + 4, a.bytes + 16, [](uint8_t b) { return b == 0; });
}

// ---- Reading ------------------------------------------------------------------------------

const Json* Find(const Json& object, const char* key) {
  auto it = object.find(key);
  return it == object.end() ? nullptr : &*it;
}

bool Signed64(JsonChecker& check, const Json& v, const std::string& path, int64_t* out) {
  if (!v.is_number_integer() ||
      (v.is_number_unsigned() && v.get<uint64_t>() > std::numeric_limits<int64_t>::max())) {
    return check.Fail(path, "an integer from -9223372036854775808 to 9223372036854775807");
  }
  *out = v.get<int64_t>();
  return true;
}

template <class T>
bool UnsignedAs(JsonChecker& check, const Json& v, const std::string& path, T* out) {
  uint64_t value = 0;
  if (!check.Unsigned(v, path, std::numeric_limits<T>::max(), &value)) return false;
  *out = static_cast<T>(value);
  return true;
}

template <class T>
bool OptionalField(JsonChecker& check, const Json& object, const std::string& path, const char* key,
                   T* out) {
  const Json* v = Find(object, key);
  if (v == nullptr) return true;
  const std::string at = JsonPath(path, key);
  if constexpr (std::is_same_v<T, bool>) {
    return check.Bool(*v, at, out);
  } else if constexpr (std::is_same_v<T, std::wstring>) {
    return check.WideString(*v, at, out);
  } else if constexpr (std::is_same_v<T, NameText>) {
    if (v->is_null()) {
      out->reset();
      return true;
    }
    return check.WideString(*v, at, &out->emplace());
  } else if constexpr (std::is_same_v<T, int32_t>) {
    return check.Any32(*v, at, out);
  } else if constexpr (std::is_same_v<T, int64_t>) {
    return Signed64(check, *v, at, out);
  } else {
    return UnsignedAs(check, *v, at, out);
  }
}

bool UidValue(JsonChecker& check, const Json& v, const std::string& path, Guid* out) {
  std::string text;
  if (!v.is_string() || !ParseGuidText(v.get<std::string>(), out)) {
    return check.Fail(path, "an identifier (xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx)");
  }
  return true;
}

bool UidField(JsonChecker& check, const Json& object, const std::string& path, const char* key,
              bool required, Guid* out) {
  const Json* v = Find(object, key);
  if (v == nullptr) {
    return !required || check.Fail(JsonPath(path, key), "an identifier (the field is required)");
  }
  return UidValue(check, *v, JsonPath(path, key), out);
}

bool AddressValue(JsonChecker& check, const Json& v, const std::string& path, IpAddress* out) {
  if (v.is_string()) {
    const std::string text = v.get<std::string>();
    if (ParseAddressText(text, out)) return true;
  } else if (v.is_object() && v.contains("bytes") && v.contains("version") && v.size() == 2 &&
             v["bytes"].is_array() && v["bytes"].size() == 16) {
    IpAddress address{};
    for (size_t i = 0; i < 16; ++i) {
      if (!UnsignedAs(check, v["bytes"][i], JsonPath(JsonPath(path, "bytes"), i),
                      &address.bytes[i])) {
        return false;
      }
    }
    if (!UnsignedAs(check, v["version"], JsonPath(path, "version"), &address.version)) {
      return false;
    }
    *out = address;
    return true;
  }
  return check.Fail(path,
                    "an address (IPv4 or IPv6 text, or {\"bytes\": [16 bytes], \"version\": n})");
}

template <class Range, class Element>
bool RangeValue(JsonChecker& check, const Json& v, const std::string& path, Range* out) {
  if (!v.is_array() || v.size() != 2) return check.Fail(path, "[low, high]");
  Element low{}, high{};
  if (!UnsignedAs(check, v[0], JsonPath(path, size_t{0}), &low) ||
      !UnsignedAs(check, v[1], JsonPath(path, size_t{1}), &high)) {
    return false;
  }
  out->low = low;
  out->high = high;
  return true;
}

bool ParseTerm(JsonChecker& check, const Json& v, const std::string& path, TermModel* out) {
  if (!check.Object(
          v, path,
          {"op", "uint8", "uint16", "uint32", "uint64", "uint16Range", "uint64Range", "bytes",
           "count", "aggregate", "string", "length", "ip", "ipRange", "prefix", "addressKind"})) {
    return false;
  }
  TermModel term;
  if (!OptionalField(check, v, path, "op", &term.op)) return false;
  auto take = [&](const char* key, auto parse) -> bool {
    const Json* value = Find(v, key);
    return value == nullptr || parse(*value, JsonPath(path, key));
  };
  const bool ok =
      take("uint8",
           [&](const Json& j, const std::string& p) {
             return UnsignedAs(check, j, p, &term.uint8.emplace());
           }) &&
      take("uint16",
           [&](const Json& j, const std::string& p) {
             return UnsignedAs(check, j, p, &term.uint16.emplace());
           }) &&
      take("uint32",
           [&](const Json& j, const std::string& p) {
             return UnsignedAs(check, j, p, &term.uint32.emplace());
           }) &&
      take("uint64",
           [&](const Json& j, const std::string& p) {
             return UnsignedAs(check, j, p, &term.uint64.emplace());
           }) &&
      take("uint16Range",
           [&](const Json& j, const std::string& p) {
             return RangeValue<Uint16Range, uint16_t>(check, j, p, &term.uint16Range.emplace());
           }) &&
      take("uint64Range",
           [&](const Json& j, const std::string& p) {
             return RangeValue<Uint64Range, uint64_t>(check, j, p, &term.uint64Range.emplace());
           }) &&
      take("bytes",
           [&](const Json& j, const std::string& p) {
             if (!j.is_array() || j.size() > kMaxByteArrayCount) {
               return check.Fail(
                   p, "an array of at most " + std::to_string(kMaxByteArrayCount) + " bytes");
             }
             ByteArrayValue& bytes = term.bytes.emplace();
             bytes.storage.resize(j.size());
             for (size_t i = 0; i < j.size(); ++i) {
               if (!UnsignedAs(check, j[i], JsonPath(p, i), &bytes.storage[i])) return false;
             }
             bytes.given = bytes.count = static_cast<uint32_t>(j.size());
             return true;
           }) &&
      take("aggregate",
           [&](const Json& j, const std::string& p) {
             return UidValue(check, j, p, &term.aggregate.emplace());
           }) &&
      take("string",
           [&](const Json& j, const std::string& p) {
             StringValue& s = term.string.emplace();
             if (!check.WideString(j, p, &s.text)) return false;
             s.length = static_cast<uint32_t>(s.text.size() + 1);
             return true;
           }) &&
      take("ip",
           [&](const Json& j, const std::string& p) {
             return AddressValue(check, j, p, &term.ip.emplace());
           }) &&
      take("ipRange",
           [&](const Json& j, const std::string& p) {
             if (!j.is_array() || j.size() != 2) return check.Fail(p, "[low, high]");
             IpAddressRange& range = term.ipRange.emplace();
             return AddressValue(check, j[0], JsonPath(p, size_t{0}), &range.low) &&
                    AddressValue(check, j[1], JsonPath(p, size_t{1}), &range.high);
           }) &&
      take("prefix",
           [&](const Json& j, const std::string& p) {
             return UnsignedAs(check, j, p, &term.prefix.emplace());
           }) &&
      take("addressKind", [&](const Json& j, const std::string& p) {
        return check.Any32(j, p, &term.addressKind.emplace());
      });
  if (!ok) return false;
  // The reported count and length go with the value they describe.
  if (const Json* count = Find(v, "count")) {
    const std::string at = JsonPath(path, "count");
    if (!term.bytes) return check.Fail(at, "no \"count\" without \"bytes\"");
    uint64_t reported = 0;
    if (!check.Unsigned(*count, at, kMaxByteArrayCount, &reported)) return false;
    term.bytes->count = static_cast<uint32_t>(reported);
    // Whoever trusts the count must find that many bytes.
    if (term.bytes->storage.size() < reported) term.bytes->storage.resize(reported);
  }
  if (const Json* length = Find(v, "length")) {
    const std::string at = JsonPath(path, "length");
    if (!term.string) return check.Fail(at, "no \"length\" without \"string\"");
    if (!UnsignedAs(check, *length, at, &term.string->length)) return false;
  }
  *out = std::move(term);
  return true;
}

template <class T, class Parse>
bool ArrayField(JsonChecker& check, const Json& object, const std::string& path, const char* key,
                std::vector<T>* out, Parse parse) {
  const Json* v = Find(object, key);
  if (v == nullptr) return true;
  const std::string at = JsonPath(path, key);
  if (!v->is_array()) return check.Fail(at, "an array");
  out->resize(v->size());
  for (size_t i = 0; i < v->size(); ++i) {
    if (!parse(check, (*v)[i], JsonPath(at, i), &(*out)[i])) return false;
  }
  return true;
}

bool ParseMatch(JsonChecker& check, const Json& v, const std::string& path, MatchModel* out) {
  return check.Object(v, path, {"type", "terms"}) &&
         OptionalField(check, v, path, "type", &out->type) &&
         ArrayField(check, v, path, "terms", &out->terms, ParseTerm);
}

bool ParseAggregate(JsonChecker& check, const Json& v, const std::string& path,
                    AggregateModel* out) {
  return check.Object(v, path, {"uid", "name", "or", "matches"}) &&
         UidField(check, v, path, "uid", false, &out->uid) &&
         OptionalField(check, v, path, "name", &out->name) &&
         OptionalField(check, v, path, "or", &out->orOperator) &&
         ArrayField(check, v, path, "matches", &out->matches, ParseMatch);
}

bool ParseRedirect(JsonChecker& check, const Json& v, const std::string& path, RuleModel* out) {
  if (!check.Object(v, path, {"address", "port", "value"})) return false;
  const Json* address = Find(v, "address");
  return (address == nullptr ||
          AddressValue(check, *address, JsonPath(path, "address"), &out->redirectAddress)) &&
         OptionalField(check, v, path, "port", &out->redirectPort) &&
         OptionalField(check, v, path, "value", &out->redirectValue);
}

bool ParseRule(JsonChecker& check, const Json& v, const std::string& path, RuleModel* out) {
  if (!check.Object(
          v, path,
          {"uid", "name", "action", "target", "redirect", "logOption", "logThrottle", "enabled",
           "hotDropIfNotMatch", "invertMatch", "teredo", "teredoAwareApp", "matches"})) {
    return false;
  }
  const Json* redirect = Find(v, "redirect");
  return UidField(check, v, path, "uid", false, &out->uid) &&
         OptionalField(check, v, path, "name", &out->name) &&
         OptionalField(check, v, path, "action", &out->action) &&
         UidField(check, v, path, "target", false, &out->target) &&
         (redirect == nullptr ||
          ParseRedirect(check, *redirect, JsonPath(path, "redirect"), out)) &&
         OptionalField(check, v, path, "logOption", &out->logOption) &&
         OptionalField(check, v, path, "logThrottle", &out->logThrottle) &&
         OptionalField(check, v, path, "enabled", &out->enabled) &&
         OptionalField(check, v, path, "hotDropIfNotMatch", &out->hotDropIfNotMatch) &&
         OptionalField(check, v, path, "invertMatch", &out->invertMatch) &&
         OptionalField(check, v, path, "teredo", &out->teredo) &&
         OptionalField(check, v, path, "teredoAwareApp", &out->teredoAwareApp) &&
         ArrayField(check, v, path, "matches", &out->matches, ParseMatch);
}

bool ParseGroup(JsonChecker& check, const Json& v, const std::string& path, GroupModel* out) {
  return check.Object(v, path, {"uid", "rules"}) &&
         UidField(check, v, path, "uid", true, &out->uid) &&
         ArrayField(check, v, path, "rules", &out->rules, ParseRule);
}

bool ParsePolicy(JsonChecker& check, const Json& v, const std::string& path, PolicyModel* out) {
  if (!check.Object(
          v, path,
          {"uid", "ppuid", "name", "type", "stateful", "sticky", "bootTimeOnly", "defaultAction",
           "defaultLogOption", "aggregates", "defaultGroup", "rules", "groups"})) {
    return false;
  }
  if (Find(v, "type") == nullptr) {
    return check.Fail(JsonPath(path, "type"), "a policy type (the field is required)");
  }
  GroupModel defaultGroup;
  std::vector<GroupModel> further;
  if (!(UidField(check, v, path, "uid", true, &out->uid) &&
        UidField(check, v, path, "ppuid", false, &out->ppuid) &&
        OptionalField(check, v, path, "name", &out->name) &&
        OptionalField(check, v, path, "type", &out->type) &&
        OptionalField(check, v, path, "stateful", &out->stateful) &&
        OptionalField(check, v, path, "sticky", &out->sticky) &&
        OptionalField(check, v, path, "bootTimeOnly", &out->bootTimeOnly) &&
        OptionalField(check, v, path, "defaultAction", &out->defaultAction) &&
        OptionalField(check, v, path, "defaultLogOption", &out->defaultLogOption) &&
        ArrayField(check, v, path, "aggregates", &out->aggregates, ParseAggregate))) {
    return false;
  }
  defaultGroup.uid = out->uid;
  if (!(UidField(check, v, path, "defaultGroup", false, &defaultGroup.uid) &&
        ArrayField(check, v, path, "rules", &defaultGroup.rules, ParseRule) &&
        ArrayField(check, v, path, "groups", &further, ParseGroup))) {
    return false;
  }
  out->groups.clear();
  out->groups.push_back(std::move(defaultGroup));
  // Jumps find their target group by its identifier, so no two groups may share one.
  for (size_t i = 0; i < further.size(); ++i) {
    for (const GroupModel& earlier : out->groups) {
      if (earlier.uid == further[i].uid) {
        return check.Fail(JsonPath(JsonPath(JsonPath(path, "groups"), i), "uid"),
                          "an identifier no other group of the policy has");
      }
    }
    out->groups.push_back(std::move(further[i]));
  }
  return true;
}

bool ParseGenerated(JsonChecker& check, const Json& v, const std::string& path,
                    GeneratedPolicies* out) {
  if (!check.Object(v, path, {"count", "rules", "matches", "seed"})) return false;
  const struct {
    const char* key;
    uint32_t max;
    uint32_t* field;
  } sizes[] = {{"count", kMaxGeneratedPolicies, &out->count},
               {"rules", kMaxGeneratedRules, &out->rules},
               {"matches", kMaxGeneratedMatches, &out->matches}};
  for (const auto& size : sizes) {
    const Json* value = Find(v, size.key);
    uint64_t number = 0;
    if (value == nullptr) {
      return check.Fail(JsonPath(path, size.key), "a number (the field is required)");
    }
    if (!check.Unsigned(*value, JsonPath(path, size.key), size.max, &number)) return false;
    *size.field = static_cast<uint32_t>(number);
  }
  return OptionalField(check, v, path, "seed", &out->seed);
}

// ---- Writing ------------------------------------------------------------------------------

}  // namespace

Json AddressToJson(const IpAddress& address) {
  char text[48];
  if (IsPlainIpv4(address)) {
    std::snprintf(text, sizeof text, "%u.%u.%u.%u", address.bytes[0], address.bytes[1],
                  address.bytes[2], address.bytes[3]);
    return text;
  }
  if (address.version == 6) {
    std::string out;
    for (int group = 0; group < 8; ++group) {
      std::snprintf(
          text, sizeof text, group == 0 ? "%x" : ":%x",
          static_cast<unsigned>(address.bytes[2 * group] << 8 | address.bytes[2 * group + 1]));
      out += text;
    }
    return out;
  }
  Json bytes = Json::array();
  for (uint8_t b : address.bytes) bytes.push_back(b);
  Json object = Json::object();
  object["bytes"] = bytes;
  object["version"] = address.version;
  return object;
}

Json TermToJson(const TermModel& term) {
  Json j = Json::object();
  j["op"] = term.op;
  if (term.uint8) j["uint8"] = *term.uint8;
  if (term.uint16) j["uint16"] = *term.uint16;
  if (term.uint32) j["uint32"] = *term.uint32;
  if (term.uint64) j["uint64"] = *term.uint64;
  if (term.uint16Range)
    j["uint16Range"] = Json::array({term.uint16Range->low, term.uint16Range->high});
  if (term.uint64Range)
    j["uint64Range"] = Json::array({term.uint64Range->low, term.uint64Range->high});
  if (term.bytes) {
    Json bytes = Json::array();
    for (uint32_t i = 0; i < term.bytes->given; ++i) bytes.push_back(term.bytes->storage[i]);
    j["bytes"] = bytes;
    if (term.bytes->count != term.bytes->given) j["count"] = term.bytes->count;
  }
  if (term.aggregate) j["aggregate"] = GuidText(*term.aggregate);
  if (term.string) {
    j["string"] = WideToUtf8(term.string->text);
    if (term.string->length != term.string->text.size() + 1) j["length"] = term.string->length;
  }
  if (term.ip) j["ip"] = AddressToJson(*term.ip);
  if (term.ipRange) {
    j["ipRange"] =
        Json::array({AddressToJson(term.ipRange->low), AddressToJson(term.ipRange->high)});
  }
  if (term.prefix) j["prefix"] = *term.prefix;
  if (term.addressKind) j["addressKind"] = *term.addressKind;
  return j;
}

namespace {

Json MatchesToJson(const std::vector<MatchModel>& matches) {
  Json out = Json::array();
  for (const MatchModel& match : matches) {
    Json terms = Json::array();
    for (const TermModel& term : match.terms) terms.push_back(TermToJson(term));
    Json j = Json::object();
    j["type"] = match.type;
    j["terms"] = terms;
    out.push_back(std::move(j));
  }
  return out;
}

Json NameToJson(const NameText& name) { return name ? Json(WideToUtf8(*name)) : Json(); }

Json RulesToJson(const std::vector<RuleModel>& rules) {
  Json out = Json::array();
  for (const RuleModel& rule : rules) {
    Json j = Json::object();
    j["uid"] = GuidText(rule.uid);
    j["name"] = NameToJson(rule.name);
    j["action"] = rule.action;
    if (!(rule.target == Guid{})) j["target"] = GuidText(rule.target);
    if (!(rule.redirectAddress == IpAddress{}) || rule.redirectPort != 0 ||
        rule.redirectValue != 0) {
      Json redirect = Json::object();
      redirect["address"] = AddressToJson(rule.redirectAddress);
      redirect["port"] = rule.redirectPort;
      redirect["value"] = rule.redirectValue;
      j["redirect"] = redirect;
    }
    j["logOption"] = rule.logOption;
    j["logThrottle"] = rule.logThrottle;
    j["enabled"] = rule.enabled;
    j["hotDropIfNotMatch"] = rule.hotDropIfNotMatch;
    j["invertMatch"] = rule.invertMatch;
    j["teredo"] = rule.teredo;
    j["teredoAwareApp"] = rule.teredoAwareApp;
    j["matches"] = MatchesToJson(rule.matches);
    out.push_back(std::move(j));
  }
  return out;
}

Json PolicyToJson(const PolicyModel& policy) {
  Json j = Json::object();
  j["uid"] = GuidText(policy.uid);
  j["ppuid"] = GuidText(policy.ppuid);
  j["name"] = NameToJson(policy.name);
  j["type"] = policy.type;
  j["stateful"] = policy.stateful;
  j["sticky"] = policy.sticky;
  j["bootTimeOnly"] = policy.bootTimeOnly;
  j["defaultAction"] = policy.defaultAction;
  j["defaultLogOption"] = policy.defaultLogOption;
  Json aggregates = Json::array();
  for (const AggregateModel& aggregate : policy.aggregates) {
    Json a = Json::object();
    a["uid"] = GuidText(aggregate.uid);
    a["name"] = NameToJson(aggregate.name);
    a["or"] = aggregate.orOperator;
    a["matches"] = MatchesToJson(aggregate.matches);
    aggregates.push_back(std::move(a));
  }
  j["aggregates"] = aggregates;
  // The store keeps the default group first; a policy always has it.
  const GroupModel& defaultGroup = policy.groups.front();
  if (!(defaultGroup.uid == policy.uid)) j["defaultGroup"] = GuidText(defaultGroup.uid);
  j["rules"] = RulesToJson(defaultGroup.rules);
  Json groups = Json::array();
  for (size_t i = 1; i < policy.groups.size(); ++i) {
    Json g = Json::object();
    g["uid"] = GuidText(policy.groups[i].uid);
    g["rules"] = RulesToJson(policy.groups[i].rules);
    groups.push_back(std::move(g));
  }
  j["groups"] = groups;
  return j;
}

// ---- The generated set --------------------------------------------------------------------

// splitmix64: small, fast and the same on every host, so that a seed names one set everywhere.
class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed) {}
  uint64_t Next() {
    uint64_t z = (state_ += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
  }
  uint32_t Below(uint32_t bound) { return static_cast<uint32_t>(Next() % bound); }
  bool Coin() { return (Next() & 1) != 0; }

 private:
  uint64_t state_;
};

// Every match type the listings have a form for, in the order the generator cycles through.
constexpr int32_t kGeneratedMatchTypes[] = {1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13,
                                            14, 15, 16, 17, 18, 19, 20, 23, 24, 25, 26, 27, 28,
                                            29, 30, 31, 32, 33, 34, 35, 36, 37, 38, 40, 42};
constexpr uint64_t kGeneratedTypeCount = std::size(kGeneratedMatchTypes);
constexpr uint64_t kGeneratedOperators = 8;
// Actions of ordinary generated rules; the one jump is placed where it leads somewhere.
constexpr int32_t kGeneratedActions[] = {1, 5, 6, 3, 4, 2, 10, 8, 7};

// Identifiers inside a generated policy: the policy's own with a tag in Data3.
Guid TaggedUid(const Guid& policy, uint16_t tag) {
  Guid uid = policy;
  uid.Data3 = tag;
  return uid;
}

IpAddress RandomAddress(Random& random, bool v6) {
  IpAddress address{};
  if (v6) {
    address.version = 6;
    address.bytes[0] = 0xfd;
    for (int i = 1; i < 16; ++i) address.bytes[i] = static_cast<uint8_t>(random.Next());
  } else {
    address.version = 4;
    address.bytes[0] = 10;
    for (int i = 1; i < 4; ++i) address.bytes[i] = static_cast<uint8_t>(random.Next());
  }
  return address;
}

constexpr const wchar_t* kGeneratedStrings[] = {
    L"C:\\Program Files\\Examplesoft\\app.exe",      L"--service --port 8080", L"R&D Tools Ltd",
    L"S-1-5-21-1004336348-1177238915-682003330-512", L"Ethernet adapter",      L"Backup agent",
    L"\\Device\\HarddiskVolume2\\Tools\\sync.exe",
};
constexpr const wchar_t* kGeneratedDomain = L"updates.example.com";

StringValue Text(const wchar_t* text) {
  StringValue value{text, 0};
  value.length = static_cast<uint32_t>(value.text.size() + 1);
  return value;
}

ByteArrayValue RandomBytes(Random& random, size_t size) {
  ByteArrayValue bytes;
  bytes.storage.resize(size);
  for (uint8_t& b : bytes.storage) b = static_cast<uint8_t>(random.Next());
  bytes.given = bytes.count = static_cast<uint32_t>(size);
  return bytes;
}

TermModel GenerateTerm(int32_t type, int32_t op, Random& random) {
  TermModel term;
  term.op = op;
  const bool range = op == 4 || op == 5;
  switch (type) {
    case 4:
      term.bytes = RandomBytes(random, 16);
      break;
    case 7:
    case 8:
    case 16:
    case 30:
    case 31:
      if (range) {
        const uint16_t low = static_cast<uint16_t>(1024 + random.Below(20000));
        term.uint16Range = Uint16Range{low, static_cast<uint16_t>(low + random.Below(1000))};
      } else {
        term.uint16 = static_cast<uint16_t>(type == 16 ? 0x0800 : random.Below(65536));
      }
      break;
    case 9:
    case 10:
    case 11:
    case 13:
      term.uint8 = static_cast<uint8_t>(random.Below(256));
      break;
    case 12:
      term.uint32 = random.Below(10);
      break;
    case 19:
      term.uint32 = 1 + random.Below(4);
      break;
    case 20:
      term.uint32 = 1 + random.Below(2);
      break;
    case 14:
    case 15:
    case 28:
    case 29: {
      const bool v6 = random.Coin();
      switch (random.Below(4)) {
        case 0:
          term.ip = RandomAddress(random, v6);
          break;
        case 1: {
          IpAddressRange& r = term.ipRange.emplace();
          r.low = RandomAddress(random, v6);
          r.high = r.low;
          r.high.bytes[v6 ? 15 : 3] = 0xfe;
          break;
        }
        case 2:
          term.ip = RandomAddress(random, v6);
          term.prefix = static_cast<uint8_t>(v6 ? 48 + random.Below(80) : 8 + random.Below(24));
          break;
        default:
          term.string = Text(kGeneratedDomain);
          break;
      }
      break;
    }
    case 17:
    case 18:
    case 32:
    case 33:
      term.bytes = RandomBytes(random, random.Coin() ? 16 : 8);
      break;
    case 23:
      if (range) {
        const uint64_t low = random.Below(64);
        term.uint64Range = Uint64Range{low, low + random.Below(64)};
      } else {
        term.uint64 = random.Below(64);
      }
      break;
    case 24:
    case 25:
    case 34:
    case 42:
      term.uint64 = random.Next() >> random.Below(64);
      break;
    case 38:
      break;
    default:  // the string types
      term.string = Text(kGeneratedStrings[random.Below(std::size(kGeneratedStrings))]);
      break;
  }
  return term;
}

// The match number across the whole set picks the type and, every full turn of the types, the
// next operator: a few hundred matches hold every type with every operator.
MatchModel GenerateMatch(uint64_t counter, Random& random) {
  MatchModel match;
  match.type = kGeneratedMatchTypes[counter % kGeneratedTypeCount];
  const auto op = static_cast<int32_t>(counter / kGeneratedTypeCount % kGeneratedOperators);
  match.terms.push_back(GenerateTerm(match.type, op, random));
  if (counter % 11 == 10) {
    match.terms.push_back(
        GenerateTerm(match.type, static_cast<int32_t>((op + 1) % kGeneratedOperators), random));
  }
  return match;
}

Guid GeneratedPattern(const GeneratedPolicies& set) {
  Guid uid{};
  uid.Data2 = 0x5eed;
  uid.Data3 = static_cast<uint16_t>(0x4000 | (set.seed & 0x0fff));
  uid.Data4[0] = static_cast<uint8_t>(0x80 | (set.seed >> 12 & 0x3f));
  for (int i = 1; i < 8; ++i) uid.Data4[i] = static_cast<uint8_t>(set.seed >> (10 + 6 * i));
  return uid;
}

}  // namespace

int32_t TermModel::AddressKind() const {
  if (addressKind) return *addressKind;
  if (prefix) return 3;
  if (ipRange) return 2;
  if (ip) return 1;
  if (string) return 4;
  return 0;
}

bool PolicyStore::operator==(const PolicyStore& o) const {
  return generated == o.generated &&
         std::equal(policies.begin(), policies.end(), o.policies.begin(), o.policies.end(),
                    [](const auto& a, const auto& b) { return *a == *b; });
}

std::string GuidText(const Guid& g) {
  char text[40];
  std::snprintf(text, sizeof text, "%08x-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x",
                static_cast<unsigned>(g.Data1), g.Data2, g.Data3, g.Data4[0], g.Data4[1],
                g.Data4[2], g.Data4[3], g.Data4[4], g.Data4[5], g.Data4[6], g.Data4[7]);
  return text;
}

bool ParseGuidText(std::string_view text, Guid* guid) {
  if (text.size() != 36) return false;
  uint8_t bytes[16];
  size_t n = 0;
  for (size_t i = 0; i < text.size();) {
    if (i == 8 || i == 13 || i == 18 || i == 23) {
      if (text[i] != '-') return false;
      ++i;
      continue;
    }
    const int high = HexDigitValue(text[i]), low = HexDigitValue(text[i + 1]);
    if (high < 0 || low < 0) return false;
    bytes[n++] = static_cast<uint8_t>(high << 4 | low);
    i += 2;
  }
  guid->Data1 = static_cast<uint32_t>(bytes[0]) << 24 | static_cast<uint32_t>(bytes[1]) << 16 |
                static_cast<uint32_t>(bytes[2]) << 8 | bytes[3];
  guid->Data2 = static_cast<uint16_t>(bytes[4] << 8 | bytes[5]);
  guid->Data3 = static_cast<uint16_t>(bytes[6] << 8 | bytes[7]);
  for (int i = 0; i < 8; ++i) guid->Data4[i] = bytes[8 + i];
  return true;
}

bool ParsePolicies(JsonChecker& check, const Json& v, const std::string& path, PolicyStore* out) {
  if (!check.Object(v, path, {"list", "generated"})) return false;
  PolicyStore store;
  if (const Json* generated = Find(v, "generated")) {
    if (!ParseGenerated(check, *generated, JsonPath(path, "generated"),
                        &store.generated.emplace())) {
      return false;
    }
  }
  std::vector<PolicyModel> list;
  if (!ArrayField(check, v, path, "list", &list, ParsePolicy)) return false;
  for (size_t i = 0; i < list.size(); ++i) {
    const bool generated =
        store.generated && GeneratedPolicyIndex(*store.generated, list[i].uid).has_value();
    const bool listed = std::any_of(store.policies.begin(), store.policies.end(),
                                    [&](const auto& p) { return p->uid == list[i].uid; });
    if (generated || listed) {
      return check.Fail(JsonPath(JsonPath(JsonPath(path, "list"), i), "uid"),
                        "an identifier no other policy has");
    }
    store.policies.push_back(std::make_shared<const PolicyModel>(std::move(list[i])));
  }
  *out = std::move(store);
  return true;
}

Json PoliciesToJson(const PolicyStore& store) {
  Json section = Json::object();
  Json list = Json::array();
  for (const auto& policy : store.policies) list.push_back(PolicyToJson(*policy));
  section["list"] = list;
  if (store.generated) {
    Json generated = Json::object();
    generated["count"] = store.generated->count;
    generated["rules"] = store.generated->rules;
    generated["matches"] = store.generated->matches;
    generated["seed"] = store.generated->seed;
    section["generated"] = generated;
  }
  return section;
}

std::vector<Guid> PolicyUids(const PolicyStore& store, int32_t policyType) {
  std::vector<Guid> uids;
  for (const auto& policy : store.policies) {
    if (policy->type == policyType) uids.push_back(policy->uid);
  }
  if (store.generated) {
    for (uint32_t i = 0; i < store.generated->count; ++i) {
      if (GeneratedPolicyType(i) == policyType) {
        uids.push_back(GeneratedPolicyUid(*store.generated, i));
      }
    }
  }
  return uids;
}

std::vector<std::shared_ptr<const PolicyModel>> PoliciesOfType(const PolicyStore& store,
                                                               int32_t policyType) {
  std::vector<std::shared_ptr<const PolicyModel>> policies;
  for (const auto& policy : store.policies) {
    if (policy->type == policyType) policies.push_back(policy);
  }
  if (store.generated) {
    for (uint32_t i = 0; i < store.generated->count; ++i) {
      if (GeneratedPolicyType(i) == policyType) {
        policies.push_back(
            std::make_shared<const PolicyModel>(GeneratePolicy(*store.generated, i)));
      }
    }
  }
  return policies;
}

std::shared_ptr<const PolicyModel> FindPolicy(const PolicyStore& store, const Guid& uid) {
  for (const auto& policy : store.policies) {
    if (policy->uid == uid) return policy;
  }
  if (store.generated) {
    if (auto index = GeneratedPolicyIndex(*store.generated, uid)) {
      return std::make_shared<const PolicyModel>(GeneratePolicy(*store.generated, *index));
    }
  }
  return nullptr;
}

int32_t GeneratedPolicyType(uint32_t index) {
  return index % 2 == 0 ? FW_POLICY_TYPE_PACKET : FW_POLICY_TYPE_STREAM;
}

Guid GeneratedPolicyUid(const GeneratedPolicies& set, uint32_t index) {
  Guid uid = GeneratedPattern(set);
  uid.Data1 = index;
  return uid;
}

std::optional<uint32_t> GeneratedPolicyIndex(const GeneratedPolicies& set, const Guid& uid) {
  Guid pattern = GeneratedPattern(set);
  pattern.Data1 = uid.Data1;
  if (!(pattern == uid) || uid.Data1 >= set.count) return std::nullopt;
  return uid.Data1;
}

PolicyModel GeneratePolicy(const GeneratedPolicies& set, uint32_t index) {
  Random random(set.seed * 0x2545F4914F6CDD1Dull + index);
  PolicyModel policy;
  policy.uid = GeneratedPolicyUid(set, index);
  policy.ppuid = Guid{0x0d1f5a7e, 0x5eed, 0x4b1d, {0x9a, 0x6e, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66}};
  policy.name = L"Generated policy " + std::to_wstring(index);
  policy.type = GeneratedPolicyType(index);
  policy.stateful = random.Coin();
  policy.sticky = random.Coin();
  policy.bootTimeOnly = random.Below(8) == 0;
  policy.defaultAction = kGeneratedActions[index % std::size(kGeneratedActions)];
  policy.defaultLogOption = static_cast<int32_t>(index % 3);

  // Matches are numbered across the whole set, so that every type and operator turns up.
  const uint64_t perPolicy = static_cast<uint64_t>(set.rules) * set.matches + 2;
  uint64_t counter = index * perPolicy;

  AggregateModel& aggregate = policy.aggregates.emplace_back();
  aggregate.uid = TaggedUid(policy.uid, 0xA000);
  aggregate.name = L"Aggregate " + std::to_wstring(index);
  aggregate.orOperator = index % 2 == 1;
  for (int i = 0; i < 2; ++i) aggregate.matches.push_back(GenerateMatch(counter++, random));

  // A quarter of the rules sit in a further group that a rule in the middle of the default
  // group jumps to, so that both walks visit every rule once.
  const uint32_t furtherRules = set.rules >= 4 ? set.rules / 4 : 0;
  const uint32_t defaultRules = set.rules - furtherRules;
  policy.groups.resize(furtherRules > 0 ? 2 : 1);
  policy.groups[0].uid = policy.uid;
  if (furtherRules > 0) policy.groups[1].uid = TaggedUid(policy.uid, 0xB000);
  for (uint32_t r = 0; r < set.rules; ++r) {
    RuleModel rule;
    rule.uid = TaggedUid(policy.uid, static_cast<uint16_t>(0xC000 + r));
    rule.name = L"Rule " + std::to_wstring(r);
    rule.action = kGeneratedActions[(index + r) % std::size(kGeneratedActions)];
    if (furtherRules > 0 && r == defaultRules / 2) {
      rule.action = FW_ACTION_JUMP;
      rule.target = policy.groups[1].uid;
    } else if (rule.action == FW_ACTION_CALL_PLUGIN) {
      rule.target = TaggedUid(policy.uid, 0xD000);
    } else if (rule.action == FW_ACTION_REDIRECT) {
      rule.redirectAddress = RandomAddress(random, false);
      rule.redirectPort = static_cast<uint16_t>(random.Below(65536));
      rule.redirectValue = static_cast<int64_t>(random.Next() % 1000) - 500;
    }
    rule.logOption = static_cast<int32_t>(r % 3);
    rule.logThrottle = r % 5 == 0 ? 1000 * r : kNoLogThrottle;
    rule.enabled = r % 7 != 6;
    rule.hotDropIfNotMatch = random.Below(4) == 0;
    rule.invertMatch = random.Below(8) == 0;
    rule.teredo = random.Below(8) == 0;
    rule.teredoAwareApp = random.Below(8) == 0;
    for (uint32_t m = 0; m < set.matches; ++m) {
      if (m == 0 && r % 8 == 2) {
        MatchModel reference;
        reference.type = FW_MATCH_FIRST_AGGREGATE_MATCH + static_cast<int32_t>(index % 4);
        reference.terms.emplace_back().aggregate = aggregate.uid;
        rule.matches.push_back(std::move(reference));
        ++counter;
      } else {
        rule.matches.push_back(GenerateMatch(counter++, random));
      }
    }
    policy.groups[r < defaultRules ? 0 : 1].rules.push_back(std::move(rule));
  }
  return policy;
}

}  // namespace nw::sim
