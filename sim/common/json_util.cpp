#include "sim/common/json_util.h"

#include <exception>
#include <limits>
#include <new>
#include <utility>
#include <vector>

#include "base/format.h"
#include "base/hex_digit.h"

namespace nw::sim {
namespace {

// Builds the document from the parser's events, so that a number out of range, a repeated field
// and nesting too deep are reported with the JSON path where they occur, and nothing is thrown.
class DocumentBuilder {
 public:
  using number_integer_t = Json::number_integer_t;
  using number_unsigned_t = Json::number_unsigned_t;
  using number_float_t = Json::number_float_t;
  using string_t = Json::string_t;
  using binary_t = Json::binary_t;

  DocumentBuilder(Json* root, size_t maxValues) : root_(root), maxValues_(maxValues) {}

  const std::string& error() const { return error_; }

  bool null() { return Value(nullptr); }
  bool boolean(bool value) { return Value(value); }
  bool number_integer(number_integer_t value) { return Value(value); }
  bool number_unsigned(number_unsigned_t value) { return Value(value); }
  bool number_float(number_float_t value, const string_t&) { return Value(value); }
  bool string(string_t& value) { return Value(std::move(value)); }
  // JSON text has no binary values; only the binary formats produce this event.
  bool binary(binary_t&) { return Fail(Path(), "JSON text"); }

  bool start_object(std::size_t) { return Open(Json::object()); }
  bool key(string_t& name) {
    Frame& frame = open_.back();
    if (frame.container->contains(name)) {
      return Fail(JsonPath(ContainerPath(), name), "each field once in its object");
    }
    frame.key = std::move(name);
    return true;
  }
  bool end_object() { return Close(); }
  bool start_array(std::size_t) { return Open(Json::array()); }
  bool end_array() { return Close(); }

  bool parse_error(std::size_t, const std::string& token, const nlohmann::detail::exception& e) {
    // 406: a number the double type cannot hold. Every other error is one of syntax, which the
    // parser describes with its line and column.
    if (e.id == 406) {
      return Fail(Path(), "a number within the range of a double (not " + token + ")");
    }
    std::string what = e.what();
    // Drop the library's own error number ("[json.exception.parse_error.101] ").
    if (!what.empty() && what[0] == '[') {
      const size_t close = what.find("] ");
      if (close != std::string::npos) what.erase(0, close + 2);
    }
    if (error_.empty()) error_ = "not valid JSON: " + what;
    return false;
  }

 private:
  struct Frame {
    Json* container;
    std::string key;  // of the field being read, in an object
  };

  // One step of a JSON path: the field or element of frame that is being read (placed: already
  // added to it, as an open container is).
  static std::string Step(const std::string& path, const Frame& frame, bool placed) {
    if (frame.container->is_object()) return JsonPath(path, frame.key);
    return JsonPath(path, frame.container->size() - (placed ? 1 : 0));
  }

  // The JSON path of the innermost open container ("" for the whole document).
  std::string ContainerPath() const {
    std::string path;
    for (size_t i = 0; i + 1 < open_.size(); ++i) path = Step(path, open_[i], true);
    return path;
  }

  // The JSON path of the value being read.
  std::string Path() const {
    return open_.empty() ? std::string() : Step(ContainerPath(), open_.back(), false);
  }

  bool Fail(const std::string& path, const std::string& expected) {
    if (error_.empty()) error_ = (path.empty() ? "/" : path) + ": expected " + expected;
    return false;
  }

  Json* Place(Json&& value) {
    if (open_.empty()) {
      *root_ = std::move(value);
      return root_;
    }
    Frame& frame = open_.back();
    if (frame.container->is_object()) {
      // The key stays with the frame: it names this value in the path of an error inside it.
      return &frame.container->emplace(frame.key, std::move(value)).first.value();
    }
    frame.container->push_back(std::move(value));
    return &frame.container->back();
  }

  bool Counted() {
    if (++values_ <= maxValues_) return true;
    return Fail(Path(), "at most " + std::to_string(maxValues_) + " values in the file");
  }

  template <class V>
  bool Value(V&& value) {
    if (!Counted()) return false;
    Place(Json(std::forward<V>(value)));
    return true;
  }

  bool Open(Json&& container) {
    if (open_.size() >= static_cast<size_t>(kMaxJsonDepth)) {
      return Fail(Path(),
                  "objects and arrays nested at most " + std::to_string(kMaxJsonDepth) + " deep");
    }
    if (!Counted()) return false;
    Json* placed = Place(std::move(container));
    open_.push_back(Frame{placed, {}});
    return true;
  }

  bool Close() {
    open_.pop_back();
    return true;
  }

  Json* root_;
  size_t maxValues_;
  std::vector<Frame> open_;
  size_t values_ = 0;
  std::string error_;
};

}  // namespace

bool ParseJsonText(std::string_view text, const std::string& source, Json* doc, std::string* error,
                   size_t maxValues) {
  // The parser would take a NUL byte for the end of the text and ignore what follows it.
  if (const size_t nul = text.find('\0'); nul != std::string_view::npos) {
    *error = source + ": not valid JSON: a NUL byte at offset " + std::to_string(nul);
    return false;
  }
  try {
    Json parsed;
    DocumentBuilder builder(&parsed, maxValues);
    if (!Json::sax_parse(text.begin(), text.end(), &builder, nlohmann::detail::input_format_t::json,
                         /*strict=*/true, /*ignore_comments=*/false)) {
      *error = source + ": " + (builder.error().empty() ? "not valid JSON" : builder.error());
      return false;
    }
    *doc = std::move(parsed);
    return true;
  } catch (const std::bad_alloc&) {
    *error = source + ": not enough memory to read it";
  } catch (const std::exception& e) {
    *error = source + ": not valid JSON: " + e.what();
  }
  return false;
}

bool LoadJsonFile(const std::string& file, Json* doc, std::string* error) {
  std::string text;
  try {
    if (!ReadRegularFile(file, kMaxJsonFileBytes, &text, error)) return false;
  } catch (const std::bad_alloc&) {
    *error = file + ": not enough memory to read it";
    return false;
  }
  return ParseJsonText(text, file, doc, error);
}

std::string JsonFileText(const Json& doc) {
  return doc.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
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

namespace {

bool Integer32(const Json& v, int32_t* out) {
  if (v.is_number_unsigned()) {
    const uint64_t u = v.get<uint64_t>();
    if (u > std::numeric_limits<uint32_t>::max()) return false;
    *out = static_cast<int32_t>(static_cast<uint32_t>(u));
    return true;
  }
  if (!v.is_number_integer() || v.get<int64_t>() < std::numeric_limits<int32_t>::min()) {
    return false;
  }
  *out = static_cast<int32_t>(v.get<int64_t>());
  return true;
}

}  // namespace

bool JsonChecker::Any32(const Json& v, const std::string& path, int32_t* out) {
  return Integer32(v, out) || Fail(path, "an integer from -2147483648 to 4294967295");
}

bool JsonChecker::Status(const Json& v, const std::string& path, int32_t* out) {
  const char* expected = "a status (an integer, or a text \"0x\" and up to 8 hex digits)";
  if (v.is_number_integer()) return Integer32(v, out) || Fail(path, expected);
  if (!v.is_string()) return Fail(path, expected);
  const std::string text = v.get<std::string>();
  if (text.size() < 3 || text.size() > 10 || text[0] != '0' || (text[1] != 'x' && text[1] != 'X')) {
    return Fail(path, expected);
  }
  uint32_t value = 0;
  for (size_t i = 2; i < text.size(); ++i) {
    const int digit = HexDigitValue(text[i]);
    if (digit < 0) return Fail(path, expected);
    value = value * 16 + static_cast<uint32_t>(digit);
  }
  *out = static_cast<int32_t>(value);
  return true;
}

}  // namespace nw::sim
