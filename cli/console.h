#pragma once

#include <string>

#include "core/status.h"

namespace nw {

/// The run's status: 0 at start, the status of the last core call a handler made, -1 after the
/// usage text, 0x80000001 when the core could not be reached. The exit code of the process.
extern Status LastStatus;

/// Formats a wide printf-style text (the conventions of format.h) and writes it, in the bytes
/// of the runtime's default locale (see AppendFormatConsole), to the C runtime's standard output
/// in one write. Returns the number of characters formatted, or
/// a negative value when the write failed. Nothing is buffered between calls beyond stdio.
int ConsolePrint(const wchar_t* format, ...);

/// While one is alive, what ConsolePrint formats is kept here instead of being written: the lab
/// reads documents with the tool's own reader, whose echo and messages are not its output. One
/// at a time, on the thread that prints.
class ConsoleCapture {
 public:
  ConsoleCapture();
  ~ConsoleCapture();
  ConsoleCapture(const ConsoleCapture&) = delete;
  ConsoleCapture& operator=(const ConsoleCapture&) = delete;

  /// The bytes formatted since the capture began (or since the last Clear).
  const std::string& text() const { return text_; }
  void Clear() { text_.clear(); }

 private:
  std::string text_;
};

}  // namespace nw
