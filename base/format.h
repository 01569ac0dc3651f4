#pragma once

#include <cstdarg>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace nw {

/// The system's printf conventions, identical on every host:
///   in a wide format "%s" takes a wide string, "%hs" a narrow one, "%ls" and "%S" a wide one;
///   in a narrow format "%s" takes a narrow string;
///   "%d %i %u %x %X %o %c" take 32-bit values, "h" makes them 16-bit, "hh" 8-bit, and "l" keeps
///   them 32-bit (long is 32 bits on the product's platform); "%I64d", "%I64x", "%lld" take
///   64-bit values; "%zd", "%zu", "%Id" a size; "%p" prints a pointer as 16 upper-case hex
///   digits; "%f", "%e", "%g" take a double; flags "-+ #0", width and precision (also "*").
/// Wide text is converted to UTF-8; a character that is not a valid code point becomes U+FFFD.

/// Appends the formatted text, as UTF-8, to out.
void AppendFormatUtf8(std::string& out, const wchar_t* format, va_list args);
/// Appends the formatted text as the console receives it: the bytes the C runtime writes under
/// its default locale. U+0000 to U+00FF become the byte of the same value, every other code
/// point (and an invalid one) a '?'; narrow arguments ("%hs") go out byte for byte. Returns how
/// many wide characters the text has (the length that AppendFormatWide would append).
std::size_t AppendFormatConsole(std::string& out, const wchar_t* format, va_list args);
/// The console path for a caller that prints text after text (ConsolePrint): the bytes of
/// AppendFormatConsole, but each format is parsed once, its literal text turned into console
/// bytes once, and kept by its address (checked against its text, so a format built in a reused
/// buffer is parsed again when it changes); the output buffer keeps its capacity between calls.
/// Nothing is allocated per call once a format has been seen. One per thread.
class ConsoleFormatter {
 public:
  ConsoleFormatter();
  ~ConsoleFormatter();
  ConsoleFormatter(const ConsoleFormatter&) = delete;
  ConsoleFormatter& operator=(const ConsoleFormatter&) = delete;

  /// The formatted text, valid until the next call; *units receives its length in wide
  /// characters (what AppendFormatConsole returns).
  std::string_view Format(const wchar_t* format, va_list args, std::size_t* units);

 private:
  struct Cache;
  std::unique_ptr<Cache> cache_;
  std::string out_;
};

/// Appends the formatted text, as wide characters, to out.
void AppendFormatWide(std::wstring& out, const wchar_t* format, va_list args);
/// Narrow format ("%s" is a narrow string); appends UTF-8 (narrow text is passed through).
void AppendFormatNarrow(std::string& out, const char* format, va_list args);
/// Narrow format whose wide arguments ("%S", "%ls") become the bytes the console writes for wide
/// text (see AppendFormatConsole), as the runtime's narrow printf converts them under its default
/// locale; narrow text is passed through.
void AppendFormatNarrowConsole(std::string& out, const char* format, va_list args);

std::string WideToUtf8(std::wstring_view text);
/// Malformed UTF-8 bytes become U+FFFD.
std::wstring Utf8ToWide(std::string_view text);

}  // namespace nw
