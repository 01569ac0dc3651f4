#include "base/format.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <string>
#include <vector>

#include "cli/console.h"
#include "cli/handlers.h"

namespace {

constexpr bool kUtf16 = sizeof(wchar_t) == 2;

std::string Utf8(const wchar_t* format, ...) {
  std::string out;
  va_list args;
  va_start(args, format);
  nw::AppendFormatUtf8(out, format, args);
  va_end(args);
  return out;
}

std::string Narrow(const char* format, ...) {
  std::string out;
  va_list args;
  va_start(args, format);
  nw::AppendFormatNarrow(out, format, args);
  va_end(args);
  return out;
}

std::wstring Wide(const wchar_t* format, ...) {
  std::wstring out;
  va_list args;
  va_start(args, format);
  nw::AppendFormatWide(out, format, args);
  va_end(args);
  return out;
}

std::size_t Console(std::string& out, const wchar_t* format, ...) {
  va_list args;
  va_start(args, format);
  const std::size_t count = nw::AppendFormatConsole(out, format, args);
  va_end(args);
  return count;
}

void AppendNarrowTo(std::string& out, const char* format, ...) {
  va_list args;
  va_start(args, format);
  nw::AppendFormatNarrow(out, format, args);
  va_end(args);
}

void AppendWideTo(std::wstring& out, const wchar_t* format, ...) {
  va_list args;
  va_start(args, format);
  nw::AppendFormatWide(out, format, args);
  va_end(args);
}

// ASCII only: lets one table of formats drive the wide and the narrow entry points.
std::wstring Widen(const char* ascii) { return std::wstring(ascii, ascii + std::strlen(ascii)); }

// Wide text from raw units, for values a literal cannot spell on every host.
std::wstring Units(std::initializer_list<std::uint32_t> units) {
  std::wstring text;
  for (std::uint32_t unit : units) text.push_back(static_cast<wchar_t>(unit));
  return text;
}

std::wstring Replacements(std::size_t n) { return std::wstring(n, static_cast<wchar_t>(0xFFFD)); }

constexpr char kReplacementUtf8[] = "\xEF\xBF\xBD";

template <class T>
struct Case {
  const char* format;
  T value;
  const char* expected;
};

// Numeric conversions do not depend on the width of the format or of the output, so every case
// is checked through all three entry points.
template <class T>
void ExpectEverywhere(const std::vector<Case<T>>& cases) {
  for (const Case<T>& c : cases) {
    SCOPED_TRACE(c.format);
    const std::wstring wide_format = Widen(c.format);
    EXPECT_EQ(Utf8(wide_format.c_str(), c.value), c.expected);
    EXPECT_EQ(Narrow(c.format, c.value), c.expected);
    EXPECT_EQ(Wide(wide_format.c_str(), c.value), Widen(c.expected));
  }
}

TEST(FormatIntegerTest, ThirtyTwoBitAndNarrowerValues) {
  ExpectEverywhere<int>({
      {"%d", 0, "0"},
      {"%d", 42, "42"},
      {"%d", -42, "-42"},
      {"%d", INT_MIN, "-2147483648"},
      {"%d", INT_MAX, "2147483647"},
      {"%i", -7, "-7"},
      {"%u", -1, "4294967295"},
      {"%x", 0x1234, "1234"},
      {"%x", -1, "ffffffff"},
      {"%X", -1, "FFFFFFFF"},
      {"%o", 8, "10"},
      {"%o", -1, "37777777777"},
      {"%08x", 0x1234, "00001234"},
      {"%04d", 7, "0007"},
      {"%04d", -7, "-007"},
      {"%02x", 5, "05"},
      {"%02X", 0xAB, "AB"},
      {"%1d", 123, "123"},
      {"%d%%", 50, "50%"},
      // "l" stays 32-bit: a 64-bit read of a negative int would not give back -1.
      {"%ld", -1, "-1"},
      {"%ld", -42, "-42"},
      {"%lu", -1, "4294967295"},
      {"%lx", static_cast<int>(0xDEADBEEFu), "deadbeef"},
      {"%08.8lx", 0xBEEF, "0000beef"},
      {"%I32d", -1, "-1"},
      {"%I32x", 255, "ff"},
      // "h" keeps 16 bits, so 0x1FF survives whole; "hh" keeps 8.
      {"%02hx", 0x1FF, "1ff"},
      {"%02hx", 0x1FFFF, "ffff"},
      {"%02hhx", 0x1FF, "ff"},
      {"%hd", 70000, "4464"},
      {"%hd", 0x8000, "-32768"},
      {"%hu", -1, "65535"},
      {"%hX", 0x12345, "2345"},
      {"%hhd", 255, "-1"},
      {"%hhu", 263, "7"},
      {"%hhx", 0x1234, "34"},
  });
}

TEST(FormatIntegerTest, FlagsWidthAndPrecision) {
  ExpectEverywhere<int>({
      {"%+d", 5, "+5"},
      {"%+d", -5, "-5"},
      {"%+d", 0, "+0"},
      {"% d", 5, " 5"},
      {"% d", -5, "-5"},
      {"%+ d", 5, "+5"},
      {"% +d", 5, "+5"},
      {"%+u", 5, "5"},
      {"% x", 10, "a"},
      {"%5d", 42, "   42"},
      {"%-5d|", 42, "42   |"},
      {"%-05d|", 42, "42   |"},
      {"%05d", -42, "-0042"},
      {"%+05d", 42, "+0042"},
      {"% 05d", 42, " 0042"},
      {"%.3d", 7, "007"},
      {"%.3d", -7, "-007"},
      {"%8.3d", 7, "     007"},
      {"%08.3d", 7, "     007"},
      {"%-8.3d|", -7, "-007    |"},
      {"%.0d", 0, ""},
      {"%5.0d|", 0, "     |"},
      {"%.0x", 0, ""},
      {"%.0d", 1, "1"},
      {"%.d", 0, ""},
      {"%#x", 255, "0xff"},
      {"%#X", 255, "0XFF"},
      {"%#x", 0, "0"},
      {"%#08x", 255, "0x0000ff"},
      {"%#10.4x", 255, "    0x00ff"},
      {"%-#6x|", 255, "0xff  |"},
      {"%#o", 8, "010"},
      {"%#o", 0, "0"},
      {"%#.0o", 0, "0"},
      {"%#.3o", 8, "010"},
      {"%#5o", 8, "  010"},
  });
}

TEST(FormatIntegerTest, SixtyFourBitValues) {
  ExpectEverywhere<long long>({
      {"%I64d", -5LL, "-5"},
      {"%I64d", 1099511627776LL, "1099511627776"},
      {"%lld", LLONG_MIN, "-9223372036854775808"},
      {"%lld", LLONG_MAX, "9223372036854775807"},
      {"%jd", -1LL, "-1"},
      {"%020lld", -1234567890123LL, "-0000001234567890123"},
      {"%+lld", 9000000000LL, "+9000000000"},
  });
  ExpectEverywhere<unsigned long long>({
      {"%I64x", 0x1122334455667788ULL, "1122334455667788"},
      {"%I64X", 0xABCDEF0123456789ULL, "ABCDEF0123456789"},
      {"%llu", ULLONG_MAX, "18446744073709551615"},
      {"%I64u", 1ULL << 63, "9223372036854775808"},
      {"%llo", ULLONG_MAX, "1777777777777777777777"},
      {"%#llx", 0x10ULL, "0x10"},
      {"%ju", 12345678901ULL, "12345678901"},
  });
}

TEST(FormatIntegerTest, SizeValues) {
  ExpectEverywhere<std::size_t>({
      {"%zd", 42, "42"},
      {"%zu", 42, "42"},
      {"%zd", static_cast<std::size_t>(-3), "-3"},
      {"%Id", static_cast<std::size_t>(-3), "-3"},
      {"%Iu", 7, "7"},
      {"%zx", 0xABCDEF, "abcdef"},
      {"%5zu|", 12, "   12|"},
  });
  if constexpr (sizeof(std::size_t) == 8) {
    ExpectEverywhere<std::size_t>({
        {"%zx", static_cast<std::size_t>(1) << 40, "10000000000"},
        {"%Iu", static_cast<std::size_t>(-1), "18446744073709551615"},
    });
  }
}

TEST(FormatIntegerTest, EachLengthConsumesItsOwnArgument) {
  EXPECT_EQ(Utf8(L"%I64d|%d", -5LL, 7), "-5|7");
  EXPECT_EQ(Utf8(L"%d|%I64x|%d", 1, 0x100000000ULL, 2), "1|100000000|2");
  EXPECT_EQ(Utf8(L"%zu|%d", static_cast<std::size_t>(5), 9), "5|9");
  EXPECT_EQ(Utf8(L"%hd|%hhu|%d", 70000, 513, 3), "4464|1|3");
  EXPECT_EQ(Utf8(L"%lld|%lu|%d", -2LL, 4u, 6), "-2|4|6");
  EXPECT_EQ(Utf8(L"%f|%d", 1.5, 3), "1.500000|3");
  EXPECT_EQ(Utf8(L"%p|%d", static_cast<void*>(nullptr), 8), "0000000000000000|8");
  EXPECT_EQ(Narrow("%s|%I64u|%s", "a", 10ULL, "b"), "a|10|b");
}

TEST(FormatPointerTest, SixteenUpperCaseHexDigits) {
  const void* small = reinterpret_cast<const void*>(static_cast<std::uintptr_t>(0x1A2B));
  const void* wider = reinterpret_cast<const void*>(static_cast<std::uintptr_t>(0xDEADBEEFu));
  ExpectEverywhere<const void*>({
      {"%p", small, "0000000000001A2B"},
      {"%p", wider, "00000000DEADBEEF"},
      {"%p", nullptr, "0000000000000000"},
      {"%20p|", small, "    0000000000001A2B|"},
      {"%-18p|", small, "0000000000001A2B  |"},
      {"%4p", small, "0000000000001A2B"},
  });
}

TEST(FormatFloatTest, FixedNotation) {
  ExpectEverywhere<double>({
      {"%.04f", 3.14159, "3.1416"},
      {"%.02f", 2.5, "2.50"},
      {"%02.04f", 0.5, "0.5000"},
      // -1.005 is stored a little above -1.005, so it rounds towards zero.
      {"%8.2f", -1.005, "   -1.00"},
      {"%.0f", 0.5, "0"},
      {"%.0f", 1.5, "2"},
      {"%.0f", 2.5, "2"},
      {"%.0f", -0.4, "-0"},
      {"%f", 1e20, "100000000000000000000.000000"},
      {"%.0f", 1180591620717411303424.0, "1180591620717411303424"},
      {"%f", 0.0, "0.000000"},
      {"%f", -0.0, "-0.000000"},
      {"%f", 1.0 / 3, "0.333333"},
      {"%F", 1.5, "1.500000"},
      {"%.1f", 0.05, "0.1"},
      {"%.1f", 0.25, "0.2"},
      {"%.1f", 0.35, "0.3"},
      {"%.3f", 1e-10, "0.000"},
      {"%+.1f", 2.25, "+2.2"},
      {"% .2f", 1.0, " 1.00"},
      {"%+ .2f", 1.0, "+1.00"},
      {"%010.3f", -3.14159, "-00003.142"},
      {"%+010.2f", 3.14159, "+000003.14"},
      {"%-8.1f|", 1.25, "1.2     |"},
      {"%-08.1f|", 1.25, "1.2     |"},
      {"%#.0f", 3.0, "3."},
      {"%.0f", 3.0, "3"},
      {"%8f", 1.0, "1.000000"},
      {"%12f|", 1.0, "    1.000000|"},
      {"%lf", 0.5, "0.500000"},
  });
}

TEST(FormatFloatTest, ScientificNotation) {
  ExpectEverywhere<double>({
      {"%e", 12345.678, "1.234568e+04"},
      {"%E", 12345.678, "1.234568E+04"},
      {"%e", 0.0, "0.000000e+00"},
      {"%.3e", 0.0, "0.000e+00"},
      {"%.2e", 1e-300, "1.00e-300"},
      {"%e", 1e100, "1.000000e+100"},
      {"%.0e", 15.0, "2e+01"},
      {"%.0e", 25.0, "2e+01"},
      {"%#.0e", 15.0, "2.e+01"},
      {"%12.3e|", -1234.5, "  -1.234e+03|"},
      {"%010.2e", -1234.5, "-01.23e+03"},
      {"%+e", 1.0, "+1.000000e+00"},
  });
}

TEST(FormatFloatTest, GeneralNotation) {
  ExpectEverywhere<double>({
      {"%g", 0.0001, "0.0001"},
      {"%g", 0.00001, "1e-05"},
      {"%g", 123456789.0, "1.23457e+08"},
      {"%g", 100000.0, "100000"},
      {"%g", 1000000.0, "1e+06"},
      {"%g", 999999.5, "1e+06"},
      {"%G", 1e-10, "1E-10"},
      {"%g", 0.5, "0.5"},
      {"%g", 0.0, "0"},
      {"%g", 1.5, "1.5"},
      {"%g", -2.0, "-2"},
      {"%+g", 2.0, "+2"},
      {"%#g", 1.0, "1.00000"},
      {"%#g", 1e-5, "1.00000e-05"},
      {"%#.1g", 2.0, "2."},
      {"%.3g", 0.0001234, "0.000123"},
      {"%.3g", 1234.0, "1.23e+03"},
      {"%.0g", 25.0, "2e+01"},
      {"%.1g", 0.05, "0.05"},
      {"%.10g", 0.1, "0.1"},
      {"%.20g", 0.1, "0.10000000000000000555"},
      {"%10.3g|", 3.14159, "      3.14|"},
      {"%-10g|", 2.5, "2.5       |"},
      {"%08g", -2.5, "-00002.5"},
  });
}

TEST(FormatFloatTest, HexadecimalNotation) {
  ExpectEverywhere<double>({
      {"%a", 1.0, "0x1p+0"},
      {"%A", 3.0, "0X1.8P+1"},
      {"%.2a", 1.0, "0x1.00p+0"},
      {"%a", 0.0, "0x0p+0"},
      {"%a", -0.5, "-0x1p-1"},
      {"%a", 0.1, "0x1.999999999999ap-4"},
      {"%#a", 1.0, "0x1.p+0"},
      {"%010a", 1.0, "0x00001p+0"},
      {"%-8a|", 1.0, "0x1p+0  |"},
  });
}

TEST(FormatFloatTest, InfinityAndNan) {
  const double inf = std::numeric_limits<double>::infinity();
  const double nan = std::numeric_limits<double>::quiet_NaN();
  ExpectEverywhere<double>({
      {"%f", inf, "inf"},
      {"%F", inf, "INF"},
      {"%f", -inf, "-inf"},
      {"%+f", inf, "+inf"},
      {"% e", inf, " inf"},
      {"%G", -inf, "-INF"},
      {"%a", inf, "inf"},
      {"%-6f|", inf, "inf   |"},
      {"%05f", -inf, " -inf"},
      {"%E", nan, "NAN"},
      {"%g", nan, "nan"},
      {"%5.1f", nan, "  nan"},
      {"%f", std::copysign(nan, -1.0), "-nan"},
  });
}

TEST(FormatFloatTest, PrecisionBeyondAnyShortBuffer) {
  const std::string expected = "1." + std::string(600, '0');
  EXPECT_EQ(Utf8(L"%.600f", 1.0), expected);
  EXPECT_EQ(Narrow("%.600f", 1.0), expected);
  // The largest double has 309 digits before the point.
  EXPECT_EQ(Utf8(L"%.0f", DBL_MAX).size(), 309u);
  EXPECT_EQ(Utf8(L"%.3f", -DBL_MAX).size(), 1u + 309u + 4u);
}

struct WideCase {
  const wchar_t* format;
  const wchar_t* value;
  const char* expected;
};

TEST(FormatStringTest, WideArgumentsInWideFormat) {
  const std::vector<WideCase> cases = {
      {L"%s", L"-statetable", "-statetable"},
      {L"%s\n", L"-statetable", "-statetable\n"},
      {L"%ls", L"abc", "abc"},
      {L"%S", L"abc", "abc"},
      {L"%10s|", L"abc", "       abc|"},
      {L"%-6s|", L"abc", "abc   |"},
      {L"%2s|", L"abc", "abc|"},
      {L"%.2s", L"abcdef", "ab"},
      {L"%5.2s|", L"abcdef", "   ab|"},
      {L"%-5.2s|", L"abcdef", "ab   |"},
      {L"%.0s|", L"abc", "|"},
      {L"%.10s", L"abc", "abc"},
      {L"%s|", L"", "|"},
      {L"%3s|", L"", "   |"},
      {L"%s", nullptr, "(null)"},
      {L"%ls", nullptr, "(null)"},
      {L"%.3s", nullptr, "(nu"},
      {L"%8s|", nullptr, "  (null)|"},
      {L"%-8S|", nullptr, "(null)  |"},
      {L"%s", L"\u00e9", "\xC3\xA9"},
      {L"%s", L"\u20AC", "\xE2\x82\xAC"},
      {L"%s", L"\U0001F600", "\xF0\x9F\x98\x80"},
      // Width and precision count characters, not bytes or UTF-16 units.
      {L"%3s|", L"\u00e9", "  \xC3\xA9|"},
      {L"%3s|", L"\U0001F600", "  \xF0\x9F\x98\x80|"},
      {L"%-3s|", L"\U0001F600", "\xF0\x9F\x98\x80  |"},
      {L"%.1s|", L"\U0001F600x", "\xF0\x9F\x98\x80|"},
      {L"%.2s", L"\u00e9\u20ACx", "\xC3\xA9\xE2\x82\xAC"},
  };
  for (std::size_t i = 0; i < cases.size(); ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(Utf8(cases[i].format, cases[i].value), cases[i].expected);
  }
}

struct NarrowArgCase {
  const wchar_t* format;
  const char* value;
  const char* expected;
};

TEST(FormatStringTest, NarrowArgumentsInWideFormat) {
  const std::vector<NarrowArgCase> cases = {
      {L"%hs", "narrow", "narrow"},
      {L"%hS", "x", "x"},
      {L"%hs", nullptr, "(null)"},
      {L"%6hs|", "ab", "    ab|"},
      {L"%-6hs|", "ab", "ab    |"},
      {L"%.1hs", "ab", "a"},
      {L"%hs", "\xC3\xA9", "\xC3\xA9"},
      // Narrow text is measured in bytes and passed through untouched.
      {L"%4hs|", "\xC3\xA9", "  \xC3\xA9|"},
      {L"%hs", "\xFF\xFE", "\xFF\xFE"},
  };
  for (std::size_t i = 0; i < cases.size(); ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(Utf8(cases[i].format, cases[i].value), cases[i].expected);
  }
}

TEST(FormatStringTest, NarrowFormat) {
  const std::vector<Case<const char*>> narrow_args = {
      {"%s", "abc", "abc"},
      {"%hs", "abc", "abc"},
      {"%s", nullptr, "(null)"},
      {"%.2s", "abc", "ab"},
      {"%5s|", "\xC3\xA9", "   \xC3\xA9|"},
      {"%-4s|", "ab", "ab  |"},
      {"%s", "\xFF", "\xFF"},
  };
  for (const auto& c : narrow_args) {
    SCOPED_TRACE(c.format);
    EXPECT_EQ(Narrow(c.format, c.value), c.expected);
  }
  const std::vector<Case<const wchar_t*>> wide_args = {
      {"%ls", L"\u00e9", "\xC3\xA9"},       {"%S", L"x\U0001F600", "x\xF0\x9F\x98\x80"},
      {"%4ls|", L"\u00e9", "   \xC3\xA9|"}, {"%.1ls", L"\u00e9\u00e9", "\xC3\xA9"},
      {"%ls", nullptr, "(null)"},
  };
  for (const auto& c : wide_args) {
    SCOPED_TRACE(c.format);
    EXPECT_EQ(Narrow(c.format, c.value), c.expected);
  }
  // Narrow format text is UTF-8 already and goes out byte for byte.
  EXPECT_EQ(Narrow("caf\xC3\xA9 %d", 1), "caf\xC3\xA9 1");
  EXPECT_EQ(Narrow("\xFF%d", 2),
            "\xFF"
            "2");
}

TEST(FormatCharTest, WideAndNarrowCharacters) {
  const std::vector<Case<int>> wide_format = {
      {"%c", 'A', "A"},
      {"%c", 0xE9, "\xC3\xA9"},
      {"%c", 0x20AC, "\xE2\x82\xAC"},
      {"%lc", 'y', "y"},
      {"%C", 'z', "z"},
      {"%hc", 'q', "q"},
      {"%3c|", 'x', "  x|"},
      {"%-3c|", 'x', "x  |"},
      {"%3c|", 0xE9, "  \xC3\xA9|"},
      {"%c", 0xD800, kReplacementUtf8},
  };
  for (const auto& c : wide_format) {
    SCOPED_TRACE(c.format);
    EXPECT_EQ(Utf8(Widen(c.format).c_str(), c.value), c.expected);
  }
  const std::vector<Case<int>> narrow_format = {
      {"%c", 'q', "q"},         {"%2c|", 'q', " q|"}, {"%lc", 0xE9, "\xC3\xA9"},
      {"%C", 0xE9, "\xC3\xA9"}, {"%c", 0xC3, "\xC3"},
  };
  for (const auto& c : narrow_format) {
    SCOPED_TRACE(c.format);
    EXPECT_EQ(Narrow(c.format, c.value), c.expected);
  }
}

TEST(FormatStarTest, WidthAndPrecisionFromArguments) {
  EXPECT_EQ(Utf8(L"%*d|", 5, 42), "   42|");
  EXPECT_EQ(Utf8(L"%-*d|", 4, 7), "7   |");
  EXPECT_EQ(Utf8(L"%*d|", -4, 7), "7   |");
  EXPECT_EQ(Utf8(L"%0*d", 5, -3), "-0003");
  EXPECT_EQ(Utf8(L"%.*d", 3, 7), "007");
  EXPECT_EQ(Utf8(L"%.*d|", -1, 7), "7|");
  EXPECT_EQ(Utf8(L"%*.*f|", 8, 2, 3.14159), "    3.14|");
  EXPECT_EQ(Utf8(L"%*s|", 6, L"ab"), "    ab|");
  EXPECT_EQ(Utf8(L"%-*s|", 4, L"ab"), "ab  |");
  EXPECT_EQ(Utf8(L"%.*s", 2, L"abcd"), "ab");
  EXPECT_EQ(Utf8(L"%*hs|", 3, "a"), "  a|");
  EXPECT_EQ(Utf8(L"%*d%d", 3, 1, 2), "  12");
  EXPECT_EQ(Narrow("%*s|", 4, "ab"), "  ab|");
  EXPECT_EQ(Wide(L"%*d|", -3, 1), L"1  |");
}

TEST(FormatLiteralTest, PercentAndUnknownConversions) {
  EXPECT_EQ(Utf8(L"%%"), "%");
  EXPECT_EQ(Utf8(L"a%%b"), "a%b");
  EXPECT_EQ(Utf8(L"%%d"), "%d");
  EXPECT_EQ(Utf8(L"%%%d", 5), "%5");
  EXPECT_EQ(Utf8(L""), "");
  // Unknown conversions are printed as written and take no argument.
  EXPECT_EQ(Utf8(L"%y"), "%y");
  EXPECT_EQ(Utf8(L"%y%d", 5), "%y5");
  EXPECT_EQ(Utf8(L"%5.2q|%d", 6), "%5.2q|6");
  EXPECT_EQ(Utf8(L"%n|%d", 3), "%n|3");
  EXPECT_EQ(Utf8(L"%hy"), "%hy");
  EXPECT_EQ(Utf8(L"%\u00e9"), "%\xC3\xA9");
  // So is a conversion cut short by the end of the format.
  EXPECT_EQ(Utf8(L"100%"), "100%");
  EXPECT_EQ(Utf8(L"%-5"), "%-5");
  EXPECT_EQ(Utf8(L"%l"), "%l");
  EXPECT_EQ(Narrow("%y%s", "a"), "%ya");
  EXPECT_EQ(Narrow("50%"), "50%");
  EXPECT_EQ(Wide(L"%y|%d", 4), L"%y|4");
}

TEST(FormatLiteralTest, TextAroundConversions) {
  EXPECT_EQ(Utf8(L"caf\u00e9 \U0001F600"), "caf\xC3\xA9 \xF0\x9F\x98\x80");
  EXPECT_EQ(Utf8(L"[%s] %d items, %hs.", L"x", 3, "done"), "[x] 3 items, done.");
  EXPECT_EQ(Utf8(L"%s%s", L"ab", L"cd"), "abcd");
}

TEST(FormatAppendTest, KeepsWhatIsAlreadyThere) {
  std::string console = "prefix:";
  EXPECT_EQ(Console(console, L"%d", 5), 1u);
  EXPECT_EQ(console, "prefix:5");

  std::string narrow = "n:";
  AppendNarrowTo(narrow, "%s", "x");
  EXPECT_EQ(narrow, "n:x");

  std::wstring wide = L"w:";
  AppendWideTo(wide, L"%d", 7);
  EXPECT_EQ(wide, L"w:7");
}

TEST(FormatWideTest, ProducesWideCharacters) {
  EXPECT_EQ(Wide(L"%s|%hs|%d", L"\u00e9", "\xC3\xA9", 5), L"\u00e9|\u00e9|5");
  EXPECT_EQ(Wide(L"%hs", "\xF0\x9F\x98\x80"), L"\U0001F600");
  EXPECT_EQ(Wide(L"%hs", "\xFF"), Replacements(1));
  EXPECT_EQ(Wide(L"%hs", "\xC0\x80"), Replacements(2));
  EXPECT_EQ(Wide(L"%hc", 0xC3), Replacements(1));
  EXPECT_EQ(Wide(L"%c", 0xD800), Replacements(1));
  EXPECT_EQ(Wide(L"%5.1f|%-3c|", 2.25, L'x'), L"  2.2|x  |");
  EXPECT_EQ(Wide(L"%3s|", L"\U0001F600"), L"  \U0001F600|");
  EXPECT_EQ(Wide(L"%3hs|", "\xC3\xA9"), L" \u00e9|");
  EXPECT_EQ(Wide(L"caf\u00e9 %s", nullptr), L"caf\u00e9 (null)");
}

// The console receives the bytes of the runtime's default locale: one byte for U+0000 to
// U+00FF, a '?' for each code point beyond, narrow arguments byte for byte. The count is the
// number of wide characters the runtime would have been given.
TEST(FormatConsoleTest, WritesTheDefaultLocaleBytes) {
  struct ConsoleCase {
    const wchar_t* format;
    const wchar_t* value;
    std::string expected;
    std::size_t count;
  };
  const std::vector<ConsoleCase> wide_args = {
      {L"%s", L"abc", "abc", 3},
      {L"%s", L"\u0080\u00e9\u00ff", "\x80\xE9\xFF", 3},
      {L"%s", L"\u0100\u20AC", "??", 2},
      {L"%s", L"\U0001F600x", "?x", kUtf16 ? 3u : 2u},
      {L"%4s|", L"\U0001F600", "   ?|", kUtf16 ? 6u : 5u},
      {L"%.1s|", L"\u20AC\u00e9", "?|", 2},
      {L"\u00e9%s\u0101", L"", "\xE9?", 2},
  };
  for (const auto& c : wide_args) {
    SCOPED_TRACE(c.expected);
    std::string out;
    EXPECT_EQ(Console(out, c.format, c.value), c.count);
    EXPECT_EQ(out, c.expected);
  }
  struct NarrowArgConsoleCase {
    const wchar_t* format;
    const char* value;
    std::string expected;
  };
  const std::vector<NarrowArgConsoleCase> narrow_args = {
      {L"%hs", "\xC3\xA9", "\xC3\xA9"},
      {L"%hs", "\xE9\x80\xFF", "\xE9\x80\xFF"},
      {L"%-4hs|", "\xE2\x82", "\xE2\x82  |"},
  };
  for (const auto& c : narrow_args) {
    SCOPED_TRACE(c.expected);
    std::string out;
    EXPECT_EQ(Console(out, c.format, c.value), c.expected.size());
    EXPECT_EQ(out, c.expected);
  }
  std::string out;
  EXPECT_EQ(Console(out, L"%c%c%c", 0xE9, 0x100, 0xD800), 3u);
  EXPECT_EQ(out, "\xE9??");
}

struct ConversionCase {
  std::wstring wide;
  std::string utf8;
};

// Valid text converts exactly, in both directions.
TEST(Utf8ConversionTest, ValidTextRoundTrips) {
  const std::vector<ConversionCase> cases = {
      {L"", ""},
      {L"abc", "abc"},
      {std::wstring(L"a\0b", 3), std::string("a\0b", 3)},
      {L"\u007F", "\x7F"},
      {L"\u0080", "\xC2\x80"},
      {L"\u00e9", "\xC3\xA9"},
      {L"\u07FF", "\xDF\xBF"},
      {L"\u0800", "\xE0\xA0\x80"},
      {L"\u20AC", "\xE2\x82\xAC"},
      {L"\uFFFD", "\xEF\xBF\xBD"},
      {L"\uFFFF", "\xEF\xBF\xBF"},
      {L"\U00010000", "\xF0\x90\x80\x80"},
      {L"\U0001F600", "\xF0\x9F\x98\x80"},
      {L"\U0010FFFF", "\xF4\x8F\xBF\xBF"},
      {L"x\u00e9\U0001F600y", "x\xC3\xA9\xF0\x9F\x98\x80y"},
  };
  for (std::size_t i = 0; i < cases.size(); ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(nw::WideToUtf8(cases[i].wide), cases[i].utf8);
    EXPECT_EQ(nw::Utf8ToWide(cases[i].utf8), cases[i].wide);
  }
}

TEST(Utf8ConversionTest, InvalidWideTextBecomesReplacementCharacters) {
  const std::string rep = kReplacementUtf8;
  std::vector<ConversionCase> cases = {
      {Units({0xD800}), rep},
      {Units({0xDC00}), rep},
      {Units({0xDFFF, 'a'}), rep + "a"},
      {Units({0xD83D, 'x'}), rep + "x"},
      {Units({'x', 0xD83D}), "x" + rep},
      {Units({0xDE00, 0xD83D}), rep + rep},
  };
  if constexpr (kUtf16) {
    cases.push_back({Units({0xD83D, 0xDE00}), "\xF0\x9F\x98\x80"});
  } else {
    cases.push_back({Units({0xD83D, 0xDE00}), rep + rep});
    cases.push_back({Units({0x110000}), rep});
    cases.push_back({Units({0xFFFFFFFF, 'z'}), rep + "z"});
  }
  for (std::size_t i = 0; i < cases.size(); ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(nw::WideToUtf8(cases[i].wide), cases[i].utf8);
    const std::wstring format = L"%s";
    EXPECT_EQ(Utf8(format.c_str(), cases[i].wide.c_str()), cases[i].utf8);
  }
  // Format text itself goes through the same conversion.
  EXPECT_EQ(Utf8(Units({'<', 0xDC00, '>'}).c_str()), "<" + rep + ">");
}

TEST(Utf8ConversionTest, EachMalformedByteBecomesOneReplacement) {
  const std::vector<ConversionCase> cases = {
      {Replacements(1), "\x80"},
      {Replacements(1), "\xBF"},
      {Replacements(1), "\xFF"},
      {Replacements(1), "\xFE"},
      {Replacements(2), "\xC0\x80"},          // overlong NUL
      {Replacements(2), "\xC1\xBF"},          // overlong two-byte
      {Replacements(3), "\xE0\x80\xAF"},      // overlong three-byte
      {Replacements(3), "\xE0\x9F\xBF"},      // below U+0800 in three bytes
      {Replacements(4), "\xF0\x8F\xBF\xBF"},  // below U+10000 in four bytes
      {Replacements(3), "\xED\xA0\x80"},      // surrogate U+D800
      {Replacements(3), "\xED\xBF\xBF"},      // surrogate U+DFFF
      {Replacements(4), "\xF4\x90\x80\x80"},  // above U+10FFFF
      {Replacements(4), "\xF5\x80\x80\x80"},
      {Replacements(1), "\xC3"},
      {Replacements(2), "\xE2\x82"},
      {L"a" + Replacements(1) + L"b",
       "a\xC3"
       "b"},
      {Replacements(3) + L"A",
       "\xF0\x9F\x98"
       "A"},
      {L"\u00e9" + Replacements(1), "\xC3\xA9\xC3"},
      {Replacements(1) + L"\u00e9", "\xC3\xC3\xA9"},
  };
  for (std::size_t i = 0; i < cases.size(); ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(nw::Utf8ToWide(cases[i].utf8), cases[i].wide);
  }
}

TEST(ConsolePrintTest, WritesLocaleBytesToStdoutAndCountsWideCharacters) {
  testing::internal::CaptureStdout();
  const int first = nw::ConsolePrint(L"%s=%d\n", L"caf\u00e9", 42);
  const int second = nw::ConsolePrint(L"%hs|", "\xC3\xA9");
  const int third = nw::ConsolePrint(L"\U0001F600");
  const int empty = nw::ConsolePrint(L"");
  const int long_line = nw::ConsolePrint(L"%2000d|", 1);
  std::fflush(stdout);
  const std::string written = testing::internal::GetCapturedStdout();

  EXPECT_EQ(first, 8);
  EXPECT_EQ(second, 3);
  EXPECT_EQ(third, kUtf16 ? 2 : 1);
  EXPECT_EQ(empty, 0);
  EXPECT_EQ(long_line, 2001);
  const std::string expected = "caf\xE9=42\n\xC3\xA9|?" + std::string(1999, ' ') + "1|";
  EXPECT_EQ(written, expected);
}

}  // namespace

namespace nw {
namespace {

// A driver log line is narrow text handed to the console as "%hs": its bytes arrive untouched,
// followed by one line break.
TEST(DriverLogTest, PrintsTheNarrowLineAndALineBreak) {
  ::testing::internal::CaptureStdout();
  PrintDriverLog("Start type of %s is %d", "kvxnlfk", 3);
  PrintDriverLog("caf\xE9 %u%%", 7u);
  std::fflush(stdout);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "Start type of kvxnlfk is 3\ncaf\xE9 7%\n");
}

}  // namespace
}  // namespace nw
