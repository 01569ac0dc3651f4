#include "sim/common/call_trace.h"

#include <cstdio>

#include "sim/common/scenario_policies.h"

namespace nw::sim {
namespace {

void Separate(std::string* text) {
  if (!text->empty()) *text += ", ";
}

void AppendQuoted(std::string* text, const std::string& value) {
  *text += '"';
  *text += value;
  *text += '"';
}

}  // namespace

void AppendCallArgument(std::string* text, bool value) {
  Separate(text);
  *text += value ? "true" : "false";
}

void AppendCallArgument(std::string* text, FlagWord value) {
  Separate(text);
  char hex[16];
  std::snprintf(hex, sizeof hex, "0x%08x", value.value);
  *text += hex;
}

void AppendCallArgument(std::string* text, const Guid* value) {
  Separate(text);
  *text += value != nullptr ? GuidText(*value) : "null";
}

void AppendCallArgument(std::string* text, const wchar_t* value) {
  Separate(text);
  if (value == nullptr) {
    *text += "null";
  } else {
    AppendQuoted(text, WideToUtf8(value));
  }
}

void AppendCallArgument(std::string* text, const char* value) {
  Separate(text);
  if (value == nullptr) {
    *text += "null";
  } else {
    AppendQuoted(text, value);
  }
}

void AppendCallArgument(std::string* text, int64_t value) {
  Separate(text);
  *text += std::to_string(value);
}

void AppendCallArgument(std::string* text, uint64_t value) {
  Separate(text);
  *text += std::to_string(value);
}

}  // namespace nw::sim
