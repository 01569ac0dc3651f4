// The console path that keeps parsed formats: it must print exactly what the one-pass engine
// prints, also when a format's text changes under the same address and when more formats pass
// through it than it keeps.

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstddef>
#include <cwchar>
#include <string>
#include <vector>

#include "base/format.h"

namespace nw {
namespace {

struct Printed {
  std::string text;
  std::size_t units;
};

Printed ThroughFormatter(ConsoleFormatter& formatter, const wchar_t* format, ...) {
  va_list args;
  va_start(args, format);
  Printed printed;
  printed.text = std::string(formatter.Format(format, args, &printed.units));
  va_end(args);
  return printed;
}

Printed OnePass(const wchar_t* format, ...) {
  va_list args;
  va_start(args, format);
  Printed printed;
  printed.units = AppendFormatConsole(printed.text, format, args);
  va_end(args);
  return printed;
}

// One row: the format with its arguments, twice through one formatter (parsed, then kept) and
// once through the one-pass engine; all three must give the expected bytes and the same count.
template <class... Args>
void ExpectRow(ConsoleFormatter& formatter, const std::string& expected, const wchar_t* format,
               Args... args) {
  SCOPED_TRACE(testing::PrintToString(std::wstring(format)));
  const Printed first = ThroughFormatter(formatter, format, args...);
  const Printed kept = ThroughFormatter(formatter, format, args...);
  const Printed reference = OnePass(format, args...);
  EXPECT_EQ(first.text, expected);
  EXPECT_EQ(kept.text, expected);
  EXPECT_EQ(reference.text, expected);
  EXPECT_EQ(first.units, reference.units);
  EXPECT_EQ(kept.units, reference.units);
}

TEST(ConsoleFormatterTest, PrintsWhatTheOnePassEnginePrints) {
  ConsoleFormatter f;
  ExpectRow(f, "PID 0005 TCP ", L"PID %04d %s ", 5, L"TCP");
  ExpectRow(f, " 80 --> ", L" %d --> ", 80);
  ExpectRow(f, "%|%|7  |", L"%%|%5%|%-3d|", 7);
  ExpectRow(f, "caf\xE9 ?TCP", L"caf\u00e9 \u20ac%s", L"TCP");
  ExpectRow(f, "?x", L"%s", L"\U0001F600x");
  ExpectRow(f, "    5|5    |TC|", L"%*d|%-*d|%.*s|", 5, 5, 5, 5, 2, L"TCP");
  // An unknown conversion is printed as written but still takes its '*' arguments.
  ExpectRow(f, "%*q|7", L"%*q|%d", 99, 7);
  ExpectRow(f, "%.*y TCP", L"%.*y %s", 2, L"TCP");
  ExpectRow(f, "7 5 narrow", L"%I64d %zd %hs", 7LL, static_cast<std::size_t>(5), "narrow");
  ExpectRow(f, "-9000000000 ffffffff", L"%I64d %x", -9000000000LL, -1);
  ExpectRow(f, "0505 A", L"%04X %c", 0x505, L'A');
  ExpectRow(f, "tail %", L"tail %");
  ExpectRow(f, "%", L"%");
  ExpectRow(f, "", L"");
  ExpectRow(f, "0507\n", L"%02X%02X\n", 5, 7);
  ExpectRow(f, "1.50", L"%.2f", 1.5);
}

TEST(ConsoleFormatterTest, AFormatChangedInPlaceIsParsedAgain) {
  ConsoleFormatter formatter;
  wchar_t buffer[32];
  std::wcscpy(buffer, L"a=%d\n");
  EXPECT_EQ(ThroughFormatter(formatter, buffer, 1).text, "a=1\n");
  std::wcscpy(buffer, L"b=%s!");
  EXPECT_EQ(ThroughFormatter(formatter, buffer, L"x").text, "b=x!");
  // Shorter, and a prefix of what was there: the old tail must not be read as still there.
  std::wcscpy(buffer, L"b=");
  EXPECT_EQ(ThroughFormatter(formatter, buffer).text, "b=");
  std::wcscpy(buffer, L"b=%s!!");
  EXPECT_EQ(ThroughFormatter(formatter, buffer, L"y").text, "b=y!!");
  EXPECT_EQ(ThroughFormatter(formatter, nullptr).text, "");
}

TEST(ConsoleFormatterTest, MoreFormatsThanItKeeps) {
  ConsoleFormatter formatter;
  std::vector<std::wstring> formats;
  for (int i = 0; i < 1000; ++i) formats.push_back(std::to_wstring(i) + L":%d;");
  for (int round = 0; round < 2; ++round) {
    for (int i = 0; i < 1000; ++i) {
      ASSERT_EQ(
          ThroughFormatter(formatter, formats[static_cast<std::size_t>(i)].c_str(), round).text,
          std::to_string(i) + ":" + std::to_string(round) + ";");
    }
  }
}

TEST(ConsoleFormatterTest, AHugeTextDoesNotStayBehind) {
  ConsoleFormatter formatter;
  const Printed huge = ThroughFormatter(formatter, L"%3000000d|", 1);
  EXPECT_EQ(huge.text.size(), 3000001u);
  EXPECT_EQ(huge.units, 3000001u);
  EXPECT_EQ(ThroughFormatter(formatter, L"%d", 2).text, "2");
}

}  // namespace
}  // namespace nw
