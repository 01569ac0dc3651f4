#include "sim/host/host_state.h"

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <exception>

#include "base/format.h"

namespace nw::sim {
namespace {

bool loaded = false;

HostState& State() {
  static HostState state;
  return state;
}

/// "HKLM\\x" and "HKEY_LOCAL_MACHINE\\x" name the same key; stored upper case without a
/// trailing separator.
std::wstring NormalizeKeyPath(std::wstring_view path) {
  std::wstring upper = UpperAscii(path);
  while (!upper.empty() && upper.back() == L'\\') upper.pop_back();
  const std::wstring shortRoot = L"HKLM";
  if (upper.compare(0, shortRoot.size(), shortRoot) == 0 &&
      (upper.size() == shortRoot.size() || upper[shortRoot.size()] == L'\\')) {
    upper = L"HKEY_LOCAL_MACHINE" + upper.substr(shortRoot.size());
  }
  return upper;
}

std::vector<uint8_t> StringBytes(const std::wstring& text) {
  std::vector<uint8_t> bytes((text.size() + 1) * sizeof(wchar_t), 0);
  std::memcpy(bytes.data(), text.c_str(), text.size() * sizeof(wchar_t));
  return bytes;
}

const std::map<std::string, uint32_t>& TypeNames() {
  static const std::map<std::string, uint32_t> names = {{"REG_SZ", 1},
                                                        {"REG_EXPAND_SZ", 2},
                                                        {"REG_BINARY", 3},
                                                        {"REG_DWORD", 4},
                                                        {"REG_MULTI_SZ", 7}};
  return names;
}

bool ReadValue(JsonChecker& check, const Json& v, const std::string& path, RegistryValue* out) {
  if (v.is_string()) {
    out->type = 1;
    out->data = StringBytes(Utf8ToWide(v.get<std::string>()));
    return true;
  }
  if (v.is_number_unsigned()) {
    uint64_t dword = 0;
    if (!check.Unsigned(v, path, 0xFFFFFFFFu, &dword)) return false;
    out->type = 4;
    const uint32_t d = static_cast<uint32_t>(dword);
    out->data.assign(reinterpret_cast<const uint8_t*>(&d),
                     reinterpret_cast<const uint8_t*>(&d) + 4);
    return true;
  }
  if (!v.is_object()) return check.Fail(path, "a text, a DWORD or {\"type\", \"data\"}");
  if (!check.Object(v, path, {"type", "data"})) return false;
  std::string typeName;
  if (!v.contains("type") || !check.String(v["type"], JsonPath(path, "type"), &typeName)) {
    return check.Fail(JsonPath(path, "type"), "REG_SZ, REG_EXPAND_SZ, REG_DWORD or REG_BINARY");
  }
  auto type = TypeNames().find(typeName);
  if (type == TypeNames().end() || type->second == 7) {
    return check.Fail(JsonPath(path, "type"), "REG_SZ, REG_EXPAND_SZ, REG_DWORD or REG_BINARY");
  }
  out->type = type->second;
  const std::string dataPath = JsonPath(path, "data");
  const Json& data = v.contains("data") ? v["data"] : Json();
  if (out->type == 1 || out->type == 2) {
    std::wstring text;
    if (!check.WideString(data, dataPath, &text)) return false;
    out->data = StringBytes(text);
  } else if (out->type == 4) {
    uint64_t dword = 0;
    if (!check.Unsigned(data, dataPath, 0xFFFFFFFFu, &dword)) return false;
    const uint32_t d = static_cast<uint32_t>(dword);
    out->data.assign(reinterpret_cast<const uint8_t*>(&d),
                     reinterpret_cast<const uint8_t*>(&d) + 4);
  } else {
    if (!data.is_array()) return check.Fail(dataPath, "an array of bytes");
    for (size_t i = 0; i < data.size(); ++i) {
      uint64_t byte = 0;
      if (!check.Unsigned(data[i], JsonPath(dataPath, i), 255, &byte)) return false;
      out->data.push_back(static_cast<uint8_t>(byte));
    }
  }
  return true;
}

/// "drives": {"D": "/srv/d"}: a letter (or a letter and a colon) to the absolute POSIX path of
/// the directory it stands for, written with "/" or "\\".
bool ParseDrives(JsonChecker& check, const Json& drives, HostState* host) {
  if (!check.Object(drives, "/drives")) return false;
  for (const auto& item : drives.items()) {
    const std::string path = JsonPath("/drives", item.key());
    const std::string& name = item.key();
    const bool letter = (name.size() == 1 || (name.size() == 2 && name[1] == ':')) &&
                        std::isalpha(static_cast<unsigned char>(name[0]));
    if (!letter) return check.Fail(path, "a drive letter (\"D\" or \"D:\")");
    std::string root;
    if (!check.String(item.value(), path, &root)) return false;
    for (char& c : root) c = c == '\\' ? '/' : c;
    if (root.empty() || root[0] != '/') return check.Fail(path, "an absolute path (\"/srv/d\")");
    host->drives[static_cast<wchar_t>(std::toupper(static_cast<unsigned char>(name[0])))] = root;
  }
  return true;
}

bool Parse(const Json& doc, JsonChecker& check, HostState* host) {
  if (!check.Object(doc, "",
                    {"registry", "systemDirectory", "setDefaultDllDirectories", "systemLibraries",
                     "signatures", "trustedSha256", "faults", "drives", "clock", "services",
                     "netcfg", "mutexes", "osVersion", "selfProtection"})) {
    return false;
  }
  if (!ParseDriverHost(doc, check, &host->drivers)) return false;
  if (doc.contains("registry")) {
    const Json& reg = doc["registry"];
    if (!check.Object(reg, "/registry")) return false;
    for (const auto& key : reg.items()) {
      const std::string keyPath = JsonPath("/registry", key.key());
      const std::wstring normalized = NormalizeKeyPath(Utf8ToWide(key.key()));
      if (normalized.rfind(L"HKEY_LOCAL_MACHINE\\", 0) != 0) {
        return check.Fail(keyPath, "a key under HKEY_LOCAL_MACHINE (or HKLM)");
      }
      if (!check.Object(key.value(), keyPath)) return false;
      auto& values = host->registry[normalized];
      for (const auto& value : key.value().items()) {
        RegistryValue parsed;
        parsed.name = Utf8ToWide(value.key());
        if (!ReadValue(check, value.value(), JsonPath(keyPath, value.key()), &parsed)) return false;
        values[UpperAscii(parsed.name)] = std::move(parsed);
      }
    }
  }
  if (doc.contains("systemDirectory") &&
      !check.WideString(doc["systemDirectory"], "/systemDirectory", &host->systemDirectory)) {
    return false;
  }
  if (doc.contains("setDefaultDllDirectories")) {
    std::string mode;
    if (!check.String(doc["setDefaultDllDirectories"], "/setDefaultDllDirectories", &mode) ||
        (mode != "present" && mode != "missing" && mode != "fails")) {
      return check.Fail("/setDefaultDllDirectories", "\"present\", \"missing\" or \"fails\"");
    }
    host->setDefaultDllDirectories = mode;
  }
  if (doc.contains("systemLibraries")) {
    const Json& libs = doc["systemLibraries"];
    if (!libs.is_array()) return check.Fail("/systemLibraries", "an array of library names");
    host->systemLibraries.clear();
    for (size_t i = 0; i < libs.size(); ++i) {
      std::wstring name;
      if (!check.WideString(libs[i], JsonPath("/systemLibraries", i), &name)) return false;
      host->systemLibraries.push_back(UpperAscii(name));
    }
  }
  if (doc.contains("signatures")) {
    if (!check.Object(doc["signatures"], "/signatures")) return false;
    for (const auto& item : doc["signatures"].items()) {
      int32_t result = 0;
      if (!check.Status(item.value(), JsonPath("/signatures", item.key()), &result)) return false;
      host->signatureResults[Utf8ToWide(item.key())] = result;
    }
  }
  if (doc.contains("drives") && !ParseDrives(check, doc["drives"], host)) return false;
  if (doc.contains("trustedSha256")) {
    const Json& digests = doc["trustedSha256"];
    if (!digests.is_array()) return check.Fail("/trustedSha256", "an array of SHA-256 digests");
    for (size_t i = 0; i < digests.size(); ++i) {
      std::string digest;
      const std::string path = JsonPath("/trustedSha256", i);
      if (!check.String(digests[i], path, &digest)) return false;
      for (auto& c : digest) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
      if (digest.size() != 64 ||
          digest.find_first_not_of("0123456789abcdef") != std::string::npos) {
        return check.Fail(path, "64 hexadecimal digits");
      }
      host->trustedSha256.push_back(digest);
    }
  }
  if (doc.contains("clock") && !ParseHostClock(check, doc["clock"], "/clock", &host->clock)) {
    return false;
  }
  if (doc.contains("faults")) {
    static const char* const kKnown[] = {
        "RegOpenKeyEx",        "RegQueryValueEx",   "RegSetValueEx",     "WSAStartup",
        "GetCurrentDirectory", "GetModuleFileName", "GetSystemDirectory"};
    if (!check.Object(doc["faults"], "/faults")) return false;
    for (const auto& item : doc["faults"].items()) {
      bool known = false;
      for (const char* k : kKnown) known = known || item.key() == k;
      for (const char* k : kDriverHostFaults) known = known || item.key() == k;
      const std::string path = JsonPath("/faults", item.key());
      if (!known) {
        std::string names;
        for (const char* k : kKnown) names += (names.empty() ? "" : ", ") + std::string(k);
        for (const char* k : kDriverHostFaults) names += ", " + std::string(k);
        return check.Fail(path, "one of the known faults (" + names + ")");
      }
      FaultRules rules;
      if (!ParseFaultRules(check, item.value(), path, &rules)) return false;
      host->faults[item.key()] = std::move(rules);
    }
  }
  return true;
}

/// Writes a registry value into the host file, keeping the spelling the file already uses for
/// the key and the value.
bool SaveRegistryValue(HostState& host, const std::wstring& key, const RegistryValue& value,
                       std::string* error) {
  try {
    Json doc = host.document;
    std::string keyName = WideToUtf8(key);
    for (const auto& item : doc["registry"].items()) {
      if (NormalizeKeyPath(Utf8ToWide(item.key())) == key) keyName = item.key();
    }
    Json& keyObject = doc["registry"][keyName];
    std::string name = WideToUtf8(value.name);
    for (const auto& item : keyObject.items()) {
      if (UpperAscii(Utf8ToWide(item.key())) == UpperAscii(value.name)) name = item.key();
    }
    if (value.type == 1 || value.type == 2) {
      std::wstring text(reinterpret_cast<const wchar_t*>(value.data.data()),
                        value.data.size() / sizeof(wchar_t));
      while (!text.empty() && text.back() == L'\0') text.pop_back();
      keyObject[name] = value.type == 1
                            ? Json(WideToUtf8(text))
                            : Json{{"type", "REG_EXPAND_SZ"}, {"data", WideToUtf8(text)}};
    } else if (value.type == 4 && value.data.size() == 4) {
      uint32_t d = 0;
      std::memcpy(&d, value.data.data(), 4);
      keyObject[name] = d;
    } else {
      keyObject[name] = Json{{"type", "REG_BINARY"}, {"data", value.data}};
    }
    if (!WriteFileAtomically(host.file, JsonFileText(doc), error)) return false;
    host.document = std::move(doc);
    return true;
  } catch (const std::exception& e) {
    *error = host.file + ": cannot prepare the change: " + e.what();
    return false;
  }
}

}  // namespace

std::wstring UpperAscii(std::wstring_view text) {
  std::wstring out(text);
  for (auto& c : out) {
    if (c >= L'a' && c <= L'z') c = static_cast<wchar_t>(c - L'a' + L'A');
  }
  return out;
}

bool ParseHostState(const Json& doc, const std::string& source, HostState* out,
                    std::string* error) {
  JsonChecker check(source);
  HostState parsed;
  try {
    Parse(doc, check, &parsed);
  } catch (const std::exception& e) {
    check.Fail("", std::string("a readable host file (") + e.what() + ")");
  }
  if (!check.ok()) {
    *error = check.error();
    return false;
  }
  parsed.file = std::move(out->file);
  parsed.document = std::move(out->document);
  *out = std::move(parsed);
  return true;
}

bool LoadHostState(std::string* error) {
  if (loaded) return true;
  HostState fresh;
  const char* file = std::getenv("NETWARDEN_HOST");
  if (file != nullptr && *file != '\0') {
    fresh.file = file;
    Json doc;
    if (!LoadJsonFile(fresh.file, &doc, error) || !ParseHostState(doc, fresh.file, &fresh, error)) {
      return false;
    }
    fresh.document = std::move(doc);
  }
  State() = std::move(fresh);
  loaded = true;
  return true;
}

HostState& Host() { return State(); }

void ResetHostStateForTesting() {
  State() = HostState();
  loaded = false;
}

namespace {

// The calls of one host operation are counted only while an entry names it.
std::optional<int32_t> Hit(const std::map<std::string, FaultRules>& entries,
                           const std::string& call, const char* counter) {
  auto it = entries.find(call);
  if (it == entries.end()) return std::nullopt;
  return FaultForCall(it->second, ++State().calls[counter + call]);
}

}  // namespace

std::optional<int32_t> HostFault(const std::string& call) {
  return Hit(State().faults, call, "fault:");
}

std::optional<int32_t> NetcfgResult(const std::string& operation) {
  return Hit(State().drivers.netcfgResults, operation, "netcfg:");
}

bool SetHostRegistryValue(const std::wstring& keyPath, const RegistryValue& value,
                          std::string* error) {
  HostState& host = State();
  const std::wstring key = NormalizeKeyPath(keyPath);
  // Write the file first: a failed write leaves both the file and the emulated host as they
  // were.
  if (!host.file.empty() && !SaveRegistryValue(host, key, value, error)) return false;
  host.registry[key][UpperAscii(value.name)] = value;
  return true;
}

}  // namespace nw::sim
