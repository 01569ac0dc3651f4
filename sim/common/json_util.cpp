#include "sim/common/json_util.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <limits>
#include <sstream>

#include "base/format.h"

namespace nw::sim {

bool ParseJsonText(std::string_view text, const std::string& source, Json* doc,
                   std::string* error) {
  *doc = Json::parse(text.begin(), text.end(), nullptr, /*allow_exceptions=*/false,
                     /*ignore_comments=*/false);
  if (doc->is_discarded()) {
    // Parse again with exceptions only to learn where the text went wrong.
    try {
      Json unused = Json::parse(text.begin(), text.end());
      (void)unused;
    } catch (const Json::parse_error& e) {
      *error = source + ": not valid JSON: " + e.what();
      return false;
    }
    *error = source + ": not valid JSON";
    return false;
  }
  return true;
}

bool LoadJsonFile(const std::string& file, Json* doc, std::string* error) {
  std::ifstream in(file, std::ios::binary);
  if (!in) {
    *error = file + ": cannot open: " + std::strerror(errno);
    return false;
  }
  std::ostringstream text;
  text << in.rdbuf();
  if (in.bad()) {
    *error = file + ": cannot read: " + std::strerror(errno);
    return false;
  }
  return ParseJsonText(text.str(), file, doc, error);
}

std::string JsonPath(const std::string& base, std::string_view key) {
  return base + "/" + std::string(key);
}

std::string JsonPath(const std::string& base, size_t index) {
  return base + "/" + std::to_string(index);
}

bool JsonChecker::Fail(const std::string& path, const std::string& expected) {
  if (error_.empty())
    error_ = source_ + ": " + (path.empty() ? "/" : path) + ": expected " + expected;
  return false;
}

bool JsonChecker::Object(const Json& v, const std::string& path,
                         std::initializer_list<std::string_view> known) {
  if (!v.is_object()) return Fail(path, "an object");
  if (known.size() == 0) return true;
  for (const auto& item : v.items()) {
    bool found = false;
    for (std::string_view k : known) found = found || k == item.key();
    if (!found) {
      std::string names;
      for (std::string_view k : known) names += (names.empty() ? "" : ", ") + std::string(k);
      return Fail(JsonPath(path, item.key()), "one of the known fields (" + names + ")");
    }
  }
  return true;
}

bool JsonChecker::String(const Json& v, const std::string& path, std::string* out) {
  if (!v.is_string()) return Fail(path, "a text");
  *out = v.get<std::string>();
  return true;
}

bool JsonChecker::WideString(const Json& v, const std::string& path, std::wstring* out) {
  std::string text;
  if (!String(v, path, &text)) return false;
  *out = Utf8ToWide(text);
  return true;
}

bool JsonChecker::Bool(const Json& v, const std::string& path, bool* out) {
  if (!v.is_boolean()) return Fail(path, "true or false");
  *out = v.get<bool>();
  return true;
}

bool JsonChecker::Unsigned(const Json& v, const std::string& path, uint64_t max, uint64_t* out) {
  if (!v.is_number_unsigned() || v.get<uint64_t>() > max) {
    return Fail(path, "an integer from 0 to " + std::to_string(max));
  }
  *out = v.get<uint64_t>();
  return true;
}

bool JsonChecker::Status(const Json& v, const std::string& path, int32_t* out) {
  const char* expected = "a status (an integer, or a text \"0x\" and up to 8 hex digits)";
  if (v.is_number_integer()) {
    if (v.is_number_unsigned()) {
      uint64_t u = v.get<uint64_t>();
      if (u > std::numeric_limits<uint32_t>::max()) return Fail(path, expected);
      *out = static_cast<int32_t>(static_cast<uint32_t>(u));
      return true;
    }
    int64_t s = v.get<int64_t>();
    if (s < std::numeric_limits<int32_t>::min()) return Fail(path, expected);
    *out = static_cast<int32_t>(s);
    return true;
  }
  if (!v.is_string()) return Fail(path, expected);
  const std::string text = v.get<std::string>();
  if (text.size() < 3 || text.size() > 10 || text[0] != '0' || (text[1] != 'x' && text[1] != 'X')) {
    return Fail(path, expected);
  }
  uint32_t value = 0;
  for (size_t i = 2; i < text.size(); ++i) {
    char c = text[i];
    uint32_t digit;
    if (c >= '0' && c <= '9')
      digit = static_cast<uint32_t>(c - '0');
    else if (c >= 'a' && c <= 'f')
      digit = static_cast<uint32_t>(c - 'a' + 10);
    else if (c >= 'A' && c <= 'F')
      digit = static_cast<uint32_t>(c - 'A' + 10);
    else
      return Fail(path, expected);
    value = value * 16 + digit;
  }
  *out = static_cast<int32_t>(value);
  return true;
}

}  // namespace nw::sim
