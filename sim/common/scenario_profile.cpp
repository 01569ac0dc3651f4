#include "sim/common/scenario_profile.h"

#include <limits>

namespace nw::sim {
namespace {

constexpr uint64_t kMax32 = std::numeric_limits<uint32_t>::max();
constexpr uint64_t kMax64 = std::numeric_limits<uint64_t>::max();
// The driver's name fields are 64 bytes.
constexpr size_t kNameField = 64;
constexpr uint64_t kHeaderSize = 40;
constexpr uint64_t kRecordSize = 168;

bool Number(JsonChecker& check, const Json& object, const std::string& path, const char* key,
            uint64_t max, uint64_t* out) {
  auto it = object.find(key);
  return it == object.end() || check.Unsigned(*it, JsonPath(path, key), max, out);
}

template <class T>
bool OptionalNumber(JsonChecker& check, const Json& object, const std::string& path,
                    const char* key, uint64_t max, std::optional<T>* out) {
  auto it = object.find(key);
  if (it == object.end()) return true;
  uint64_t value = 0;
  if (!check.Unsigned(*it, JsonPath(path, key), max, &value)) return false;
  *out = static_cast<T>(value);
  return true;
}

bool Name(JsonChecker& check, const Json& object, const std::string& path, const char* key,
          std::string* out) {
  auto it = object.find(key);
  if (it == object.end()) return true;
  const std::string namePath = JsonPath(path, key);
  if (!check.String(*it, namePath, out)) return false;
  if (out->size() > kNameField || out->find('\0') != std::string::npos) {
    return check.Fail(namePath, "a text of at most 64 bytes without a NUL");
  }
  return true;
}

bool ParseCounter(JsonChecker& check, const Json& v, const std::string& path, ProfileCounter* out) {
  uint64_t line = 0;
  if (!check.Object(
          v, path,
          {"file", "function", "line", "hitCount", "totalCycles", "minCycles", "maxCycles"}) ||
      !Name(check, v, path, "file", &out->file) ||
      !Name(check, v, path, "function", &out->function) ||
      !Number(check, v, path, "line", kMax32, &line) ||
      !Number(check, v, path, "hitCount", kMax64, &out->hitCount) ||
      !Number(check, v, path, "totalCycles", kMax64, &out->totalCycles) ||
      !Number(check, v, path, "minCycles", kMax64, &out->minCycles) ||
      !Number(check, v, path, "maxCycles", kMax64, &out->maxCycles)) {
    return false;
  }
  out->line = static_cast<uint32_t>(line);
  return true;
}

}  // namespace

bool ParseDriverProfile(JsonChecker& check, const Json& value, const std::string& path,
                        DriverProfile* out) {
  DriverProfile profile;
  if (!check.Object(value, path,
                    {"counters", "counterCount", "counterTotal", "startTime", "endTime",
                     "profilePrice", "dataSize", "announcedSize", "replyLimit"}) ||
      !OptionalNumber(check, value, path, "counterCount", kMax32, &profile.counterCount) ||
      !OptionalNumber(check, value, path, "counterTotal", kMax32, &profile.counterTotal) ||
      !Number(check, value, path, "startTime", kMax64, &profile.startTime) ||
      !Number(check, value, path, "endTime", kMax64, &profile.endTime) ||
      !Number(check, value, path, "profilePrice", kMax64, &profile.profilePrice) ||
      !OptionalNumber(check, value, path, "dataSize", kMaxProfileDataSize, &profile.dataSize) ||
      !OptionalNumber(check, value, path, "announcedSize", kMax64, &profile.announcedSize) ||
      !OptionalNumber(check, value, path, "replyLimit", kMax32, &profile.replyLimit)) {
    return false;
  }
  auto counters = value.find("counters");
  if (counters != value.end()) {
    const std::string countersPath = JsonPath(path, "counters");
    const uint64_t room = (kMaxProfileDataSize - kHeaderSize) / kRecordSize;
    if (!counters->is_array() || counters->size() > room) {
      return check.Fail(countersPath,
                        "an array of at most " + std::to_string(room) + " counter objects");
    }
    profile.counters.resize(counters->size());
    for (size_t i = 0; i < counters->size(); ++i) {
      if (!ParseCounter(check, (*counters)[i], JsonPath(countersPath, i), &profile.counters[i])) {
        return false;
      }
    }
  }
  *out = std::move(profile);
  return true;
}

}  // namespace nw::sim
