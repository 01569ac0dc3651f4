#pragma once

// Reading the simulator's JSON files (host state and core scenario) with errors that name the
// file, the JSON path and what was expected there.

#include <cstdint>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "sim/common/file_io.h"
#include "sim/common/indexed_map.h"

namespace nw::sim {

// Ordered, so that a file written back keeps the order its author gave it, and indexed, so that
// reading an object of many fields costs time in proportion to its size.
using Json = nlohmann::basic_json<IndexedOrderedMap>;

/// Objects and arrays nest at most this deep in a file that is read.
inline constexpr int kMaxJsonDepth = 64;
/// A file that is read holds at most this many values (objects, arrays and what they hold,
/// each counted once). With the size limit this bounds the memory a file can take, whatever
/// its shape: a million empty objects take about 100 MB.
inline constexpr size_t kMaxJsonValues = 1000000;

/// Reads and parses a whole file (see ReadRegularFile for what is refused before parsing). On
/// failure returns false and sets *error to "<file>: <reason>" (see ParseJsonText). Never
/// throws.
bool LoadJsonFile(const std::string& file, Json* doc, std::string* error);
/// Parses text that stands for a file named source (also used for built-in defaults). On
/// failure returns false and sets *error to one of
///   "<source>: not valid JSON: <where and what the parser found>"
///   "<source>: not valid JSON: a NUL byte at offset <n>"
///   "<source>: <JSON path>: expected a number within the range of a double (not <text>)"
///   "<source>: <JSON path>: expected each field once in its object"
///   "<source>: <JSON path>: expected objects and arrays nested at most 64 deep"
///   "<source>: <JSON path>: expected at most <maxValues> values in the file"
/// Never throws. maxValues is larger only for a program that reads what it wrote itself (the
/// lab reads captures of large hosts).
bool ParseJsonText(std::string_view text, const std::string& source, Json* doc, std::string* error,
                   size_t maxValues = kMaxJsonValues);
/// The document as a file holds it: indented by two, ending with a line end. Never throws:
/// text that is not UTF-8 (which a parsed document cannot hold) is written with U+FFFD.
std::string JsonFileText(const Json& doc);

/// Walks a document and keeps the first error as "<source>: <path>: expected <what>".
class JsonChecker {
 public:
  explicit JsonChecker(std::string source) : source_(std::move(source)) {}

  bool ok() const { return error_.empty(); }
  const std::string& error() const { return error_; }

  /// Records a failure at path (the first one wins); always returns false.
  bool Fail(const std::string& path, const std::string& expected);

  /// An object whose keys are all among known (an empty list accepts any key).
  bool Object(const Json& v, const std::string& path,
              std::initializer_list<std::string_view> known = {});
  bool String(const Json& v, const std::string& path, std::string* out);
  bool WideString(const Json& v, const std::string& path, std::wstring* out);
  bool Bool(const Json& v, const std::string& path, bool* out);
  /// An unsigned integer no larger than max.
  bool Unsigned(const Json& v, const std::string& path, uint64_t max, uint64_t* out);
  /// Any 32 bits: an integer from -2147483648 to 4294967295, a value above 2147483647 read as
  /// the negative number of the same bits.
  bool Any32(const Json& v, const std::string& path, int32_t* out);
  /// A 32-bit status: as Any32, or a text "0x" followed by one to eight hexadecimal digits.
  bool Status(const Json& v, const std::string& path, int32_t* out);

 private:
  std::string source_;
  std::string error_;
};

/// Joins a JSON path and a key ("/faults" + "Register" -> "/faults/Register").
std::string JsonPath(const std::string& base, std::string_view key);
std::string JsonPath(const std::string& base, size_t index);

}  // namespace nw::sim
