#include "sim/host/host_services.h"

#include <algorithm>
#include <functional>
#include <iterator>

#include "base/format.h"
#include "platform/debug_log.h"
#include "sim/host/host_state.h"

namespace nw::sim {
namespace {

constexpr const char* kNetcfgResults[] = {
    "CoCreateInstance",
    "INetCfg::QueryInterface",
    "INetCfg::Initialize",
    "INetCfg::Uninitialize",
    "INetCfg::Apply",
    "INetCfg::FindComponent",
    "INetCfg::QueryNetCfgClass",
    "INetCfgLock::AcquireWriteLock",
    "INetCfgLock::ReleaseWriteLock",
    "INetCfgClass::QueryInterface",
    "INetCfgClassSetup::Install",
    "INetCfgClassSetup::DeInstall",
    "INetCfgComponent::GetClassGuid",
};

const std::wstring kServicesRoot = L"HKEY_LOCAL_MACHINE\\SYSTEM\\CURRENTCONTROLSET\\SERVICES\\";

bool OptionalError(JsonChecker& check, const Json& object, const std::string& path, const char* key,
                   std::optional<uint32_t>* out) {
  auto it = object.find(key);
  if (it == object.end()) return true;
  uint64_t value = 0;
  if (!check.Unsigned(*it, JsonPath(path, key), 0xFFFFFFFFu, &value)) return false;
  *out = static_cast<uint32_t>(value);
  return true;
}

bool ParseServices(const Json& v, JsonChecker& check, DriverHost* host) {
  if (!check.Object(v, "/services")) return false;
  for (const auto& item : v.items()) {
    const std::string path = JsonPath("/services", item.key());
    const Json& entry = item.value();
    HostService service;
    service.spelling = item.key();
    if (!check.Object(entry, path, {"running", "refuseStop", "refuseStart"})) return false;
    if (entry.contains("running") &&
        !check.Bool(entry["running"], JsonPath(path, "running"), &service.running)) {
      return false;
    }
    if (!OptionalError(check, entry, path, "refuseStop", &service.refuseStop) ||
        !OptionalError(check, entry, path, "refuseStart", &service.refuseStart)) {
      return false;
    }
    host->services[UpperAscii(Utf8ToWide(item.key()))] = std::move(service);
  }
  return true;
}

bool ParseNetcfg(const Json& v, JsonChecker& check, DriverHost* host) {
  if (!check.Object(v, "/netcfg", {"components", "writeLock", "results"})) return false;
  if (v.contains("components")) {
    const Json& list = v["components"];
    if (!list.is_array()) return check.Fail("/netcfg/components", "an array of PnP ids");
    for (size_t i = 0; i < list.size(); ++i) {
      std::wstring id;
      if (!check.WideString(list[i], JsonPath("/netcfg/components", i), &id)) return false;
      host->components.push_back(id);
    }
  }
  if (v.contains("writeLock")) {
    const Json& lock = v["writeLock"];
    if (!check.Object(lock, "/netcfg/writeLock", {"holder"})) return false;
    host->writeLockHeld = true;
    if (lock.contains("holder")) {
      std::wstring holder;
      if (!check.WideString(lock["holder"], "/netcfg/writeLock/holder", &holder)) return false;
      host->writeLockHolder = holder;
    }
  }
  if (v.contains("results")) {
    if (!check.Object(v["results"], "/netcfg/results")) return false;
    for (const auto& item : v["results"].items()) {
      const std::string path = JsonPath("/netcfg/results", item.key());
      if (std::find_if(std::begin(kNetcfgResults), std::end(kNetcfgResults), [&](const char* n) {
            return item.key() == n;
          }) == std::end(kNetcfgResults)) {
        std::string names;
        for (const char* n : kNetcfgResults) names += (names.empty() ? "" : ", ") + std::string(n);
        return check.Fail(path, "one of the known operations (" + names + ")");
      }
      FaultRules rules;
      if (!ParseFaultRules(check, item.value(), path, &rules)) return false;
      host->netcfgResults[item.key()] = std::move(rules);
    }
  }
  return true;
}

bool ParseOsVersion(const Json& v, JsonChecker& check, DriverHost* host) {
  if (v.is_null()) {
    host->osVersion.reset();
    return true;
  }
  if (!check.Object(v, "/osVersion",
                    {"major", "minor", "build", "servicePackMajor", "servicePackMinor"})) {
    return false;
  }
  HostOsVersion version;
  struct Field {
    const char* name;
    uint64_t max;
    uint64_t value;
  } fields[] = {{"major", 0xFFFFFFFF, version.major},
                {"minor", 0xFFFFFFFF, version.minor},
                {"build", 0xFFFFFFFF, version.build},
                {"servicePackMajor", 0xFFFF, version.servicePackMajor},
                {"servicePackMinor", 0xFFFF, version.servicePackMinor}};
  for (Field& field : fields) {
    if (v.contains(field.name) && !check.Unsigned(v[field.name], JsonPath("/osVersion", field.name),
                                                  field.max, &field.value)) {
      return false;
    }
  }
  version.major = static_cast<uint32_t>(fields[0].value);
  version.minor = static_cast<uint32_t>(fields[1].value);
  version.build = static_cast<uint32_t>(fields[2].value);
  version.servicePackMajor = static_cast<uint16_t>(fields[3].value);
  version.servicePackMinor = static_cast<uint16_t>(fields[4].value);
  host->osVersion = version;
  return true;
}

bool ServiceList(const Json& v, JsonChecker& check, const std::string& path,
                 std::set<std::wstring>* out) {
  if (!v.is_array()) return check.Fail(path, "an array of service names");
  for (size_t i = 0; i < v.size(); ++i) {
    std::wstring name;
    if (!check.WideString(v[i], JsonPath(path, i), &name)) return false;
    out->insert(UpperAscii(name));
  }
  return true;
}

bool ParseSelfProtection(const Json& v, JsonChecker& check, DriverHost* host) {
  if (!check.Object(v, "/selfProtection", {"lockedKeys", "lifted", "refuseExceptions"})) {
    return false;
  }
  host->selfProtection = true;
  if (v.contains("lockedKeys") &&
      !ServiceList(v["lockedKeys"], check, "/selfProtection/lockedKeys", &host->lockedKeys)) {
    return false;
  }
  if (v.contains("lifted") &&
      !ServiceList(v["lifted"], check, "/selfProtection/lifted", &host->liftedKeys)) {
    return false;
  }
  return OptionalError(check, v, "/selfProtection", "refuseExceptions", &host->refuseExceptions);
}

/// Applies change to a copy of the host document and writes it back; the caller updates the
/// emulated host only when this succeeded. A host without a file keeps its changes in memory.
bool SaveHostDocument(const std::function<void(Json&)>& change, std::string* error) {
  HostState& host = Host();
  if (host.file.empty()) return true;
  Json doc = host.document;
  change(doc);
  if (!WriteFileAtomically(host.file, doc.dump(2) + "\n", error)) return false;
  host.document = std::move(doc);
  return true;
}

}  // namespace

bool ParseDriverHost(const Json& doc, JsonChecker& check, DriverHost* host) {
  if (doc.contains("services") && !ParseServices(doc["services"], check, host)) return false;
  if (doc.contains("netcfg") && !ParseNetcfg(doc["netcfg"], check, host)) return false;
  if (doc.contains("mutexes")) {
    const Json& list = doc["mutexes"];
    if (!list.is_array()) return check.Fail("/mutexes", "an array of mutex names");
    for (size_t i = 0; i < list.size(); ++i) {
      std::wstring name;
      if (!check.WideString(list[i], JsonPath("/mutexes", i), &name)) return false;
      host->mutexes.push_back(name);
    }
  }
  if (doc.contains("osVersion") && !ParseOsVersion(doc["osVersion"], check, host)) return false;
  if (doc.contains("selfProtection") && !ParseSelfProtection(doc["selfProtection"], check, host)) {
    return false;
  }
  return true;
}

std::wstring ServiceKeyPath(const std::wstring& service) {
  return kServicesRoot + UpperAscii(service);
}

std::wstring ServiceOfKeyPath(const std::wstring& upperPath) {
  if (upperPath.compare(0, kServicesRoot.size(), kServicesRoot) != 0) return std::wstring();
  const std::wstring rest = upperPath.substr(kServicesRoot.size());
  return rest.substr(0, rest.find(L'\\'));
}

bool SetServiceRunning(const std::wstring& service, bool running, std::string* error) {
  DriverHost& drivers = Host().drivers;
  auto it = drivers.services.find(UpperAscii(service));
  if (it == drivers.services.end()) return false;
  if (!SaveHostDocument(
          [&](Json& doc) { doc["services"][it->second.spelling]["running"] = running; }, error)) {
    return false;
  }
  it->second.running = running;
  return true;
}

bool ServiceKeyLocked(const std::wstring& service) {
  const DriverHost& drivers = Host().drivers;
  const std::wstring name = UpperAscii(service);
  return drivers.lockedKeys.count(name) != 0 && drivers.liftedKeys.count(name) == 0;
}

bool SetServiceKeyLifted(const std::wstring& service, bool lifted, std::string* error) {
  const std::wstring name = UpperAscii(service);
  if (!SaveHostDocument(
          [&](Json& doc) {
            // The list of locks stays as the file wrote it; only the lifted ones are added and
            // taken away, so that a restored host reads as it did before.
            Json& protection = doc["selfProtection"];
            Json list = Json::array();
            if (protection.contains("lifted")) {
              for (const Json& entry : protection["lifted"]) {
                if (!entry.is_string() ||
                    UpperAscii(Utf8ToWide(entry.get<std::string>())) != name) {
                  list.push_back(entry);
                }
              }
            }
            if (lifted) list.push_back(WideToUtf8(service));
            if (list.empty()) {
              protection.erase("lifted");
            } else {
              protection["lifted"] = list;
            }
          },
          error)) {
    return false;
  }
  if (lifted) {
    Host().drivers.liftedKeys.insert(name);
  } else {
    Host().drivers.liftedKeys.erase(name);
  }
  return true;
}

bool SetNetComponents(const std::vector<std::wstring>& components, std::string* error) {
  if (!SaveHostDocument(
          [&](Json& doc) {
            Json list = Json::array();
            for (const auto& id : components) list.push_back(WideToUtf8(id));
            doc["netcfg"]["components"] = list;
          },
          error)) {
    return false;
  }
  Host().drivers.components = components;
  return true;
}

bool SetWriteLock(bool held, const std::optional<std::wstring>& holder, std::string* error) {
  if (!SaveHostDocument(
          [&](Json& doc) {
            if (!held) {
              if (doc.contains("netcfg")) doc["netcfg"].erase("writeLock");
              return;
            }
            Json lock = Json::object();
            if (holder) lock["holder"] = WideToUtf8(*holder);
            doc["netcfg"]["writeLock"] = lock;
          },
          error)) {
    return false;
  }
  Host().drivers.writeLockHeld = held;
  Host().drivers.writeLockHolder = held ? holder : std::nullopt;
  return true;
}

HostUsage& Usage() {
  static HostUsage usage;
  return usage;
}

void ReportHostLeaks() {
  const HostUsage& usage = Usage();
  auto report = [](const std::string& what) {
    platform::WriteDebuggerOutput(Utf8ToWide("host: leak: " + what + "\n").c_str());
  };
  auto count = [&](int n, const char* what) {
    if (n != 0) report(std::to_string(n) + " " + what);
  };
  count(usage.comApartments, "COM initialisation(s) not undone");
  count(usage.netcfgObjects, "network configuration object(s) still referenced");
  count(usage.taskMemoryBlocks, "CoTaskMem block(s) not freed");
  count(usage.serviceHandles, "service handle(s) still open");
  count(usage.mutexHandles, "mutex handle(s) still open");
  count(usage.registryKeys, "registry key(s) still open");
  if (usage.writeLockHeld) report("network configuration write lock still held");
  for (const auto& service : usage.liftedKeys) {
    report("service key lock of " + WideToUtf8(service) + " still lifted");
  }
  for (const auto& exception : usage.exceptions) {
    if (exception.second != 0) {
      report("self-protection exception for " + WideToUtf8(exception.first) + " still held");
    }
  }
}

}  // namespace nw::sim
