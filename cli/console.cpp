#include "cli/console.h"

#include <climits>
#include <cstdarg>
#include <cstddef>
#include <string_view>

#include "base/format.h"
#include "platform/standard_output.h"

namespace nw {

Status LastStatus = kStatusOk;

namespace {
std::string* captured = nullptr;
}  // namespace

ConsoleCapture::ConsoleCapture() { captured = &text_; }
ConsoleCapture::~ConsoleCapture() { captured = nullptr; }

int ConsolePrint(const wchar_t* format, ...) {
  // Listings print a line in a few calls per entry: the formatter keeps every format it has
  // parsed and its buffer, so a call costs the conversions and one stdio write.
  thread_local ConsoleFormatter formatter;
  va_list args;
  va_start(args, format);
  std::size_t count = 0;
  const std::string_view text = formatter.Format(format, args, &count);
  va_end(args);
  if (captured != nullptr) {
    captured->append(text);
  } else if (!platform::WriteStandardOutput(text.data(), text.size())) {
    return -1;
  }
  return count > INT_MAX ? INT_MAX : static_cast<int>(count);
}

}  // namespace nw
