// The import path's value parsers at the edges of what each accepts: the numeric rule's
// clamping and hexadecimal form, the three range parsers and their messages, names, identifiers,
// redirect targets, network objects, hardware addresses and byte lists.

#include "policy/value_parsers.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "base/format.h"
#include "core/interfaces.h"
#include "platform/uuid.h"
#include "policy/names.h"
#include "tests/unit/printed.h"

namespace nw {
namespace {

using testing::Printed;

std::string Narrow(const wchar_t* text) { return WideToUtf8(text); }

IpAddress Address(const wchar_t* text) {
  IpAddress address{};
  EXPECT_TRUE(ParseIpAddress(&address, text)) << Narrow(text);
  return address;
}

constexpr uint64_t kMax64 = UINT64_MAX;

// ---- The numeric rule -------------------------------------------------------------------------

TEST(ValueParserNumericTest, AcceptsDecimalAndHexadecimalUpToTheMaximum) {
  struct Case {
    const wchar_t* text;
    uint64_t maximum;
    bool ok;
    uint64_t value;
  };
  const Case cases[] = {
      {L"65535", 65535, true, 65535},
      {L"0xFFFF", 65535, true, 65535},
      {L"0xffff", 65535, true, 65535},
      {L"0XfFfF", 65535, true, 65535},
      {L"65536", 65535, false, 0},
      {L"0x10000", 65535, false, 0},
      {L"65534", 65535, true, 65534},
      {L"0", 65535, true, 0},
      {L"00065535", 65535, true, 65535},
      {L"012", 65535, true, 12},  // decimal, not octal
      {L"0x0", 65535, true, 0},
      {L"0x1f", 65535, true, 31},
      {L"-1", 65535, false, 0},
      {L"+1", 65535, false, 0},
      {L" 1", 65535, false, 0},
      {L"1 ", 65535, false, 0},
      {L"0x", 65535, false, 0},
      {L"0X", 65535, false, 0},
      {L"0x 1", 65535, false, 0},
      {L"0x1g", 65535, false, 0},
      {L"0xg1", 65535, false, 0},
      {L"x12", 65535, false, 0},
      {L"0b1", 65535, false, 0},
      {L"1x2", 65535, false, 0},
      {L"1.0", 65535, false, 0},
      {L"", 65535, false, 0},
      {L"0", 0, true, 0},
      {L"1", 0, false, 0},
      {L"0x0", 0, true, 0},
      {L"0x1", 0, false, 0},
      // Decimal text goes through a signed 32-bit conversion and stops at 2147483647.
      {L"9999999999", kMax64, true, 2147483647},
      {L"0x2540BE3FF", kMax64, true, 9999999999},
      {L"2147483647", kMax64, true, 2147483647},
      {L"2147483648", kMax64, true, 2147483647},
      {L"4294967296", kMax64, true, 2147483647},
      {L"99999999999999999999999", kMax64, true, 2147483647},
      {L"9999999999", 2147483647, true, 2147483647},
      {L"9999999999", 2147483646, false, 0},
      {L"0xFFFFFFFF", 0xFFFFFFFF, true, 0xFFFFFFFF},
      {L"0x100000000", 0xFFFFFFFF, false, 0},
      {L"4294967295", 0xFFFFFFFF, true, 2147483647},
      {L"0xFFFFFFFFFFFFFFFF", kMax64, true, kMax64},
      {L"0xFFFFFFFFFFFFFFFF", kMax64 - 1, false, 0},
      // Sixteen digits fill the accumulator; a seventeenth pushes the first one out.
      {L"0x10000000000000001", kMax64, true, 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(Narrow(c.text) + " max " + std::to_string(c.maximum));
    uint64_t value = 0x5EED;
    const std::string printed =
        Printed([&] { EXPECT_EQ(GetNumericValue(c.text, c.maximum, &value), c.ok); });
    EXPECT_EQ(value, c.ok ? c.value : 0x5EED);
    EXPECT_EQ(printed, "");
  }
}

// ---- Ranges -----------------------------------------------------------------------------------

enum class RangeParser { kPort, kUint32, kUint64 };

struct RangeCase {
  RangeParser parser;
  const wchar_t* text;
  bool ok;
  uint64_t low;
  uint64_t high;
  const char* printed;
};

bool ParseRange(RangeParser parser, const wchar_t* text, uint64_t* low, uint64_t* high) {
  switch (parser) {
    case RangeParser::kPort: {
      uint16_t l = 0x5EED, h = 0x5EED;
      const bool ok = GetPortRange(text, &l, &h);
      *low = l;
      *high = h;
      return ok;
    }
    case RangeParser::kUint32: {
      uint32_t l = 0x5EED, h = 0x5EED;
      const bool ok = GetUint32Range(text, &l, &h);
      *low = l;
      *high = h;
      return ok;
    }
    case RangeParser::kUint64:
      *low = *high = 0x5EED;
      return GetUint64Range(text, low, high);
  }
  return false;
}

TEST(ValueParserRangeTest, SplitsReadsAndComparesWithEachParsersMessages) {
  using enum RangeParser;
  const RangeCase cases[] = {
      // Ports: equal ends are a range of one.
      {kPort, L"80-80", true, 80, 80, ""},
      {kPort, L"80-81", true, 80, 81, ""},
      {kPort, L"81-80", false, 0, 0, "GetPortRange: low (81) greater than high (80), \n"},
      {kPort, L"80:90", true, 80, 90, ""},
      {kPort, L"0x50-0x5A", true, 80, 90, ""},
      {kPort, L"0-65535", true, 0, 65535, ""},
      {kPort, L"65535-65535", true, 65535, 65535, ""},
      {kPort, L"0-65536", false, 0, 0, "GetPortRange: GetNumericValue number 2 failed\n"},
      {kPort, L"0-0x10000", false, 0, 0, "GetPortRange: GetNumericValue number 2 failed\n"},
      {kPort, L"65536-65537", false, 0, 0, "GetPortRange: GetNumericValue number 1 failed\n"},
      {kPort, L"80 90", false, 0, 0, "GetPortRange: SplitRangeIntoTerms failed\n"},
      {kPort, L"80", false, 0, 0, "GetPortRange: SplitRangeIntoTerms failed\n"},
      {kPort, L"", false, 0, 0, "GetPortRange: SplitRangeIntoTerms failed\n"},
      {kPort, L"-80", false, 0, 0, "GetPortRange: GetNumericValue number 1 failed\n"},
      {kPort, L"80-", false, 0, 0, "GetPortRange: GetNumericValue number 2 failed\n"},
      {kPort, L"80 - 90", false, 0, 0, "GetPortRange: GetNumericValue number 1 failed\n"},
      {kPort, L"1-2-3", false, 0, 0, "GetPortRange: GetNumericValue number 2 failed\n"},
      // A "-" anywhere wins over an earlier ":".
      {kPort, L"1:2-3", false, 0, 0, "GetPortRange: GetNumericValue number 1 failed\n"},
      {kPort, L"1-2:3", false, 0, 0, "GetPortRange: GetNumericValue number 2 failed\n"},
      // Interface indexes, 32-bit: equal ends are refused as "greater than".
      {kUint32, L"5-5", false, 0, 0, "GetUint32Range: low (5) greater than high (5), \n"},
      {kUint32, L"5-6", true, 5, 6, ""},
      {kUint32, L"6-5", false, 0, 0, "GetUint32Range: low (6) greater than high (5), \n"},
      {kUint32, L"5:6", true, 5, 6, ""},
      {kUint32, L"0-0xFFFFFFFF", true, 0, 0xFFFFFFFF, ""},
      {kUint32, L"0xFFFFFFFE:0xFFFFFFFF", true, 0xFFFFFFFE, 0xFFFFFFFF, ""},
      {kUint32, L"0-0x100000000", false, 0, 0, "GetUint32Range: GetNumericValue number 2 failed\n"},
      {kUint32, L"0x100000000-0x100000001", false, 0, 0,
       "GetUint32Range: GetNumericValue number 1 failed\n"},
      {kUint32, L"5 6", false, 0, 0, "GetUint32Range: SplitRangeIntoTerms failed\n"},
      // Interface indexes, 64-bit.
      {kUint64, L"5-5", false, 0, 0, "GetUint64Range: low (5) greater than high (5), \n"},
      {kUint64, L"5-6", true, 5, 6, ""},
      {kUint64, L"7:6", false, 0, 0, "GetUint64Range: low (7) greater than high (6), \n"},
      {kUint64, L"0x100000000-0x100000001", true, 0x100000000, 0x100000001, ""},
      {kUint64, L"9999999999-0x2540BE3FF", true, 2147483647, 9999999999, ""},
      {kUint64, L"0xFFFFFFFFFFFFFFFE-0xFFFFFFFFFFFFFFFF", true, kMax64 - 1, kMax64, ""},
      // The message prints both ends as signed 64-bit numbers.
      {kUint64, L"0xFFFFFFFFFFFFFFFF-0x1", false, 0, 0,
       "GetUint64Range: low (-1) greater than high (1), \n"},
      {kUint64, L"x-1", false, 0, 0, "GetUint64Range: GetNumericValue number 1 failed\n"},
      {kUint64, L"1-x", false, 0, 0, "GetUint64Range: GetNumericValue number 2 failed\n"},
      {kUint64, L"1 2", false, 0, 0, "GetUint64Range: SplitRangeIntoTerms failed\n"},
  };
  for (const RangeCase& c : cases) {
    SCOPED_TRACE(Narrow(c.text) + " parser " + std::to_string(static_cast<int>(c.parser)));
    uint64_t low = 0, high = 0;
    bool ok = false;
    EXPECT_EQ(Printed([&] { ok = ParseRange(c.parser, c.text, &low, &high); }), c.printed);
    EXPECT_EQ(ok, c.ok);
    EXPECT_EQ(low, c.ok ? c.low : 0x5EED);
    EXPECT_EQ(high, c.ok ? c.high : 0x5EED);
  }
}

TEST(ValueParserRangeTest, TextWithADashOrColonIsARange) {
  struct Case {
    const wchar_t* text;
    bool range;
  };
  const Case cases[] = {{L"80-90", true}, {L"80:90", true},  {L"-", true},     {L":", true},
                        {L"80", false},   {L"80 90", false}, {L"0x50", false}, {L"", false}};
  for (const Case& c : cases) {
    EXPECT_EQ(IsRangeText(c.text), c.range) << Narrow(c.text);
  }
  // A single number with a blank in it is not a range, and the numeric rule refuses it.
  uint64_t value = 0;
  EXPECT_FALSE(GetNumericValue(L"80 90", 65535, &value));
}

// ---- Booleans and names -----------------------------------------------------------------------

TEST(ValueParserFlagTest, BooleanAndYesNoTakeOnlyTheirOwnWords) {
  struct Case {
    const wchar_t* text;
    int boolean;
    int yesNo;
  };
  const Case cases[] = {
      {L"1", 1, -1},      {L"true", 1, -1},  {L"TRUE", 1, -1},  {L"tRuE", 1, -1},
      {L"0", 0, -1},      {L"false", 0, -1}, {L"FALSE", 0, -1}, {L"False", 0, -1},
      {L"yes", -1, 1},    {L"YES", -1, 1},   {L"Yes", -1, 1},   {L"no", -1, 0},
      {L"NO", -1, 0},     {L"nO", -1, 0},    {L"on", -1, -1},   {L"off", -1, -1},
      {L"", -1, -1},      {L" 1", -1, -1},   {L"1 ", -1, -1},   {L"01", -1, -1},
      {L"10", -1, -1},    {L"2", -1, -1},    {L"-1", -1, -1},   {L"tru", -1, -1},
      {L"truee", -1, -1}, {L"fals", -1, -1}, {L"y", -1, -1},    {L"n", -1, -1},
      {L"yess", -1, -1},  {L" yes", -1, -1}, {L"non", -1, -1},  {L"ye", -1, -1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(Narrow(c.text));
    EXPECT_EQ(Printed([&] {
                EXPECT_EQ(ParseBoolean(c.text), c.boolean);
                EXPECT_EQ(ParseYesNo(c.text), c.yesNo);
              }),
              "");
  }
}

TEST(ValueParserNameTest, SixtyThreeCharactersAtMostWithTheOwnersMessage) {
  struct Case {
    NameOwner owner;
    size_t length;
    bool ok;
    const char* printed;
  };
  const Case cases[] = {
      {NameOwner::kPolicy, 0, true, ""},
      {NameOwner::kPolicy, 62, true, ""},
      {NameOwner::kPolicy, 63, true, ""},
      {NameOwner::kPolicy, 64, false, "policy name is limited to 63 characters\n"},
      {NameOwner::kPolicy, 300, false, "policy name is limited to 63 characters\n"},
      {NameOwner::kGroup, 63, true, ""},
      {NameOwner::kGroup, 64, false, "group name is limited to 63 characters\n"},
      {NameOwner::kRule, 63, true, ""},
      {NameOwner::kRule, 64, false, "rule name is limited to 63 characters\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::to_string(static_cast<int>(c.owner)) + " length " + std::to_string(c.length));
    std::wstring text;
    for (size_t i = 0; i < c.length; ++i) text += static_cast<wchar_t>(L'a' + i % 26);
    std::wstring name = L"before";
    bool ok = false;
    EXPECT_EQ(Printed([&] { ok = ParseName(text.c_str(), c.owner, &name); }), c.printed);
    EXPECT_EQ(ok, c.ok);
    EXPECT_EQ(name, c.ok ? text : L"before");
  }
}

// ---- Identifiers ------------------------------------------------------------------------------

// Hands out a fixed identifier for "auto" and reads texts with the host's own parser.
class FakeUuids final : public platform::Uuids {
 public:
  explicit FakeUuids(platform::Uuids& host) : host_(host) {}
  int32_t FromString(const wchar_t* text, Guid* out) override {
    return host_.FromString(text, out);
  }
  int32_t Create(Guid* out) override {
    ++creates;
    if (createStatus == 0) *out = created;
    return createStatus;
  }

  Guid created{0xC0FFEE01, 0x1234, 0x5678, {1, 2, 3, 4, 5, 6, 7, 8}};
  int32_t createStatus = 0;
  int creates = 0;

 private:
  platform::Uuids& host_;
};

class ValueParserUidTest : public ::testing::Test {
 protected:
  ValueParserUidTest() : uuids_(platform::TheUuids()) {
    platform::Facility<platform::Uuids>::SetForTesting(&uuids_);
  }
  ~ValueParserUidTest() override { platform::Facility<platform::Uuids>::SetForTesting(nullptr); }

  FakeUuids uuids_;
};

constexpr Guid kTextGuid = {
    0x01234567, 0x89ab, 0xcdef, {0x01, 0x23, 0x45, 0x67, 0x89, 0xab, 0xcd, 0xef}};

TEST_F(ValueParserUidTest, AutoInAnyCaseCreatesOtherTextIsParsed) {
  struct Case {
    const wchar_t* text;
    bool ok;
    int creates;
    Guid uid;
    const char* printed;
  };
  const Case cases[] = {
      {L"auto", true, 1, uuids_.created, ""},
      {L"AUTO", true, 1, uuids_.created, ""},
      {L"Auto", true, 1, uuids_.created, ""},
      {L"01234567-89ab-cdef-0123-456789abcdef", true, 0, kTextGuid, ""},
      {L"01234567-89AB-CDEF-0123-456789ABCDEF", true, 0, kTextGuid, ""},
      {L"{01234567-89ab-cdef-0123-456789abcdef}",
       false,
       0,
       {},
       "user supplied UID string is invalid\n"},
      {L"auto ", false, 0, {}, "user supplied UID string is invalid\n"},
      {L"autos", false, 0, {}, "user supplied UID string is invalid\n"},
      {L"", false, 0, {}, "user supplied UID string is invalid\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(Narrow(c.text));
    uuids_.creates = 0;
    Guid uid{};
    bool ok = false;
    EXPECT_EQ(Printed([&] { ok = ParseUid(c.text, &uid); }), c.printed);
    EXPECT_EQ(ok, c.ok);
    EXPECT_EQ(uuids_.creates, c.creates);
    if (c.ok) {
      EXPECT_EQ(uid, c.uid);
    }
  }
}

TEST_F(ValueParserUidTest, AFailedCreateRefusesAuto) {
  uuids_.createStatus = 1824;
  Guid uid{};
  EXPECT_FALSE(ParseUid(L"auto", &uid));
  EXPECT_EQ(uuids_.creates, 1);
}

// ---- Targets ----------------------------------------------------------------------------------

constexpr int32_t kRedirect = 3;
constexpr int32_t kJump = 9;
constexpr int32_t kCallPlugin = 10;

TEST(ValueParserTargetTest, RedirectIsAddressPortAndOptionalValue) {
  struct Case {
    const wchar_t* text;
    bool ok;
    const wchar_t* address;
    uint16_t port;
    int64_t value;
    const char* printed;
  };
  const char kNoSeparator[] =
      "Target value - could not find separating token between address and port!\n";
  const char kZeroPort[] = "Target value - invalid 0 redirect port specified!\n";
  const Case cases[] = {
      {L"10.0.0.1 8080", true, L"10.0.0.1", 8080, 0, ""},
      {L"10.0.0.1 8080 0", true, L"10.0.0.1", 8080, 0, ""},
      {L"10.0.0.1 8080 -5", true, L"10.0.0.1", 8080, -5, ""},
      {L"10.0.0.1 8080 9999999999", true, L"10.0.0.1", 8080, 9999999999, ""},
      {L"10.0.0.1 8080 9223372036854775807", true, L"10.0.0.1", 8080, INT64_MAX, ""},
      {L"10.0.0.1 8080 -9223372036854775808", true, L"10.0.0.1", 8080, INT64_MIN, ""},
      {L"fe80::1 443 7", true, L"fe80::1", 443, 7, ""},
      // The port is a signed 32-bit number kept in 16 bits.
      {L"10.0.0.1 1", true, L"10.0.0.1", 1, 0, ""},
      {L"10.0.0.1 65535", true, L"10.0.0.1", 65535, 0, ""},
      {L"10.0.0.1 65536", false, nullptr, 0, 0, kZeroPort},
      {L"10.0.0.1 65537", true, L"10.0.0.1", 1, 0, ""},
      {L"10.0.0.1 70000", true, L"10.0.0.1", 4464, 0, ""},
      {L"10.0.0.1 -1", true, L"10.0.0.1", 65535, 0, ""},
      {L"10.0.0.1 99999999999", true, L"10.0.0.1", 65535, 0, ""},
      {L"10.0.0.1 80x", true, L"10.0.0.1", 80, 0, ""},
      {L"10.0.0.1 0", false, nullptr, 0, 0, kZeroPort},
      {L"10.0.0.1 abc", false, nullptr, 0, 0, kZeroPort},
      {L"10.0.0.1 ", false, nullptr, 0, 0, kZeroPort},
      // What the writer leaves for a port it cannot fit: two blanks, then the value.
      {L"10.1.2.3  0", false, nullptr, 0, 0, kZeroPort},
      {L"10.0.0.1", false, nullptr, 0, 0, kNoSeparator},
      {L"10.0.0.1\t80", false, nullptr, 0, 0, kNoSeparator},
      {L"", false, nullptr, 0, 0, kNoSeparator},
      {L"10.0.0.256 80", false, nullptr, 0, 0,
       "Target value - invalid redirected address 10.0.0.256\n"},
      {L" 10.0.0.1 80", false, nullptr, 0, 0, "Target value - invalid redirected address \n"},
      {L"host 80", false, nullptr, 0, 0, "Target value - invalid redirected address host\n"},
      // The address is cut to 39 characters before it is read.
      {L"0000:0000:0000:0000:0000:0000:0000:0001 80", true, L"::1", 80, 0, ""},
      {L"0000:0000:0000:0000:0000:0000:0000:0001x 80", true, L"::1", 80, 0, ""},
      {L"0000:0000:0000:0000:0000:0000:0000:001x 80", false, nullptr, 0, 0,
       "Target value - invalid redirected address 0000:0000:0000:0000:0000:0000:0000:001x\n"},
      {L"0000:0000:0000:0000:0000:0000:0000:001xy 80", false, nullptr, 0, 0,
       "Target value - invalid redirected address 0000:0000:0000:0000:0000:0000:0000:001x\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(Narrow(c.text));
    ParsedTarget target;
    target.port = 0x5EED;
    bool ok = false;
    EXPECT_EQ(Printed([&] { ok = ParseTarget(c.text, kRedirect, &target); }), c.printed);
    EXPECT_EQ(ok, c.ok);
    if (!c.ok) {
      EXPECT_EQ(target.port, 0x5EED);
      continue;
    }
    EXPECT_EQ(target.address, Address(c.address));
    EXPECT_EQ(target.port, c.port);
    EXPECT_EQ(target.value, c.value);
  }
}

TEST(ValueParserTargetTest, EveryOtherActionTakesAnIdentifierOnly) {
  struct Case {
    int32_t action;
    const wchar_t* text;
    bool ok;
    const char* printed;
  };
  const char kRefused[] = "user supplied UID string is invalid\nIllegal value for target guid\n";
  const Case cases[] = {
      {kJump, L"01234567-89ab-cdef-0123-456789abcdef", true, ""},
      {kCallPlugin, L"01234567-89AB-CDEF-0123-456789ABCDEF", true, ""},
      {1, L"01234567-89ab-cdef-0123-456789abcdef", true, ""},
      {2, L"01234567-89ab-cdef-0123-456789abcdef", true, ""},
      {4, L"01234567-89ab-cdef-0123-456789abcdef", true, ""},
      {kJump, L"auto", false, kRefused},
      {kJump, L"AUTO", false, kRefused},
      {kJump, L"10.0.0.1 80", false, kRefused},
      {kCallPlugin, L"", false, kRefused},
      // A redirect reads the same identifier as an address and finds no blank.
      {kRedirect, L"01234567-89ab-cdef-0123-456789abcdef", false,
       "Target value - could not find separating token between address and port!\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(Narrow(c.text) + " action " + std::to_string(c.action));
    ParsedTarget target;
    bool ok = false;
    EXPECT_EQ(Printed([&] { ok = ParseTarget(c.text, c.action, &target); }), c.printed);
    EXPECT_EQ(ok, c.ok);
    if (c.ok) {
      EXPECT_EQ(target.uid, kTextGuid);
    }
  }
}

// ---- Network objects --------------------------------------------------------------------------

TEST(ValueParserNetworkObjectTest, AddressThenPrefixThenRangeThenDomain) {
  struct Case {
    const wchar_t* text;
    bool ok;
    int32_t kind;
    const wchar_t* address;  // low end for a range
    const wchar_t* high;
    uint8_t prefix;
  };
  const Case cases[] = {
      {L"10.0.0.1", true, kIpAddressSingle, L"10.0.0.1", nullptr, 0},
      {L"fe80::1", true, kIpAddressSingle, L"fe80::1", nullptr, 0},
      {L"10.0.0.0/8", true, kIpAddressPrefix, L"10.0.0.0", nullptr, 8},
      {L"10.0.0.0/0", true, kIpAddressPrefix, L"10.0.0.0", nullptr, 0},
      {L"10.0.0.0/32", true, kIpAddressPrefix, L"10.0.0.0", nullptr, 32},
      {L"10.0.0.0/33", false, 0, nullptr, nullptr, 0},
      {L"fe80::/64", true, kIpAddressPrefix, L"fe80::", nullptr, 64},
      {L"::/33", true, kIpAddressPrefix, L"::", nullptr, 33},
      {L"::/128", true, kIpAddressPrefix, L"::", nullptr, 128},
      {L"::/129", false, 0, nullptr, nullptr, 0},
      // The length is kept in a byte before it is checked.
      {L"10.0.0.0/288", true, kIpAddressPrefix, L"10.0.0.0", nullptr, 32},
      {L"10.0.0.0/289", false, 0, nullptr, nullptr, 0},
      {L"10.0.0.0/", false, 0, nullptr, nullptr, 0},
      {L"host/8", false, 0, nullptr, nullptr, 0},
      {L"10.0.0.1-10.0.0.9", true, kIpAddressRange, L"10.0.0.1", L"10.0.0.9", 0},
      {L"10.0.0.5-10.0.0.5", true, kIpAddressRange, L"10.0.0.5", L"10.0.0.5", 0},
      {L"10.0.0.9-10.0.0.1", false, 0, nullptr, nullptr, 0},
      // Bytes compare in address order, first octet first.
      {L"10.0.0.255-10.0.1.0", true, kIpAddressRange, L"10.0.0.255", L"10.0.1.0", 0},
      {L"10.0.1.0-10.0.0.255", false, 0, nullptr, nullptr, 0},
      {L"9.255.255.255-10.0.0.0", true, kIpAddressRange, L"9.255.255.255", L"10.0.0.0", 0},
      {L"fe80::1-fe80::2", true, kIpAddressRange, L"fe80::1", L"fe80::2", 0},
      {L"fe80::2-fe80::1", false, 0, nullptr, nullptr, 0},
      {L"1::ff-2::", true, kIpAddressRange, L"1::ff", L"2::", 0},
      {L"::2:0-::1:ffff", false, 0, nullptr, nullptr, 0},
      {L"10.0.0.1-fe80::1", false, 0, nullptr, nullptr, 0},
      {L"::1-10.0.0.1", false, 0, nullptr, nullptr, 0},
      // Ends that are not addresses make a host name, unless a colon rules one out.
      {L"my-host.example.com", true, kIpAddressDomainName, nullptr, nullptr, 0},
      {L"10.0.0.1-host", true, kIpAddressDomainName, nullptr, nullptr, 0},
      {L"fe80::1-host", false, 0, nullptr, nullptr, 0},
      {L"example.com", true, kIpAddressDomainName, nullptr, nullptr, 0},
      {L"300.1.1.1", true, kIpAddressDomainName, nullptr, nullptr, 0},
      {L"host:80", false, 0, nullptr, nullptr, 0},
      {L"fe80::g", false, 0, nullptr, nullptr, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(Narrow(c.text));
    NetworkObject object;
    object.kind = 99;
    bool ok = false;
    EXPECT_EQ(Printed([&] { ok = BuildNetworkObj(c.text, &object); }), "");
    EXPECT_EQ(ok, c.ok);
    if (!c.ok) {
      EXPECT_EQ(object.kind, 99);
      continue;
    }
    EXPECT_EQ(object.kind, c.kind);
    if (c.kind == kIpAddressDomainName) {
      EXPECT_EQ(object.domain, c.text);
      continue;
    }
    EXPECT_EQ(object.address, Address(c.address));
    if (c.kind == kIpAddressRange) {
      EXPECT_EQ(object.high, Address(c.high));
    }
    if (c.kind == kIpAddressPrefix) {
      EXPECT_EQ(object.prefixLength, c.prefix);
    }
  }
}

// ---- Hardware addresses, byte lists, hex words ------------------------------------------------

TEST(ValueParserMacAddressTest, EightGroupsEachKeepingItsLowByte) {
  struct Case {
    const wchar_t* text;
    bool ok;
    std::vector<uint8_t> bytes;
    size_t used;
  };
  const std::vector<uint8_t> oneToEight = {1, 2, 3, 4, 5, 6, 7, 8};
  const Case cases[] = {
      {L"01-02-03-04-05-06-07-08", true, oneToEight, 23},
      {L"01:02:03:04:05:06:07:08", true, oneToEight, 23},
      {L"1-2-3-4-5-6-7-8", true, oneToEight, 15},
      {L"01-02-03-04-05-06-07-08 11-12-13-14-15-16-17-18", true, oneToEight, 23},
      {L"01-02-03-04-05-06-07-08xyz", true, oneToEight, 23},
      {L"0a-0B-ff-FF-10-20-30-40", true, {0x0a, 0x0b, 0xff, 0xff, 0x10, 0x20, 0x30, 0x40}, 23},
      {L"0102-02-03-04-05-06-07-0108", true, {2, 2, 3, 4, 5, 6, 7, 8}, 27},
      {L"01-02-03-04-05-06-07-123456789", true, {1, 2, 3, 4, 5, 6, 7, 0x89}, 30},
      // Each group looks for "-" in the rest of the text first, ":" only when none is left.
      {L"01-02-03-04-05-06-07:08", true, oneToEight, 23},
      {L"01:02-03-04-05-06-07-08", false, {}, 0},
      {L"01-02:03-04-05-06-07-08", false, {}, 0},
      {L"01-02-03-04-05-06", false, {}, 0},
      {L"01-02-03-04-05-06-07", false, {}, 0},
      {L"01-02-03-04-05-06-07-", true, {1, 2, 3, 4, 5, 6, 7, 0}, 21},
      {L"01-0g-03-04-05-06-07-08", false, {}, 0},
      {L" 01-02-03-04-05-06-07-08", false, {}, 0},
      {L"01 -02-03-04-05-06-07-08", false, {}, 0},
      {L"", false, {}, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(Narrow(c.text));
    uint8_t bytes[9];
    std::memset(bytes, 0xAA, sizeof bytes);
    size_t used = 999;
    bool ok = false;
    EXPECT_EQ(Printed([&] { ok = ParseMacAddress(c.text, bytes, &used); }), "");
    EXPECT_EQ(ok, c.ok);
    EXPECT_EQ(bytes[8], 0xAA) << "written past the eighth byte";
    if (!c.ok) {
      EXPECT_EQ(std::vector<uint8_t>(bytes, bytes + 8), std::vector<uint8_t>(8, 0xAA));
      EXPECT_EQ(used, 999u);
      continue;
    }
    EXPECT_EQ(std::vector<uint8_t>(bytes, bytes + 8), c.bytes);
    EXPECT_EQ(used, c.used);
  }
}

TEST(ValueParserByteListTest, DecimalNumbersUpTo255AndUpToTheCapacity) {
  struct Case {
    const wchar_t* text;
    size_t capacity;
    bool ok;
    std::vector<uint8_t> bytes;
  };
  const Case cases[] = {
      {L"0,1,2,3,4,5,6,7,8,9,10,11,12,13,14,255",
       16,
       true,
       {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 255}},
      {L"0,1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16", 16, false, {}},
      {L"256", 16, false, {}},
      {L"255", 16, true, {255}},
      {L"0256", 16, false, {}},
      {L"0000255", 16, true, {255}},
      {L"4294967297", 16, false, {}},
      {L"99999999999999999999", 16, false, {}},
      {L"12", 16, true, {12}},
      {L"1 2\t3;4", 16, true, {1, 2, 3, 4}},
      {L",,1,,2,,", 16, true, {1, 2}},
      {L"-1", 16, true, {1}},
      {L"", 16, true, {}},
      {L"1", 0, false, {}},
      {L"1,2", 1, false, {}},
      {L"1,2", 2, true, {1, 2}},
      {L"1,2,256", 16, false, {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(Narrow(c.text) + " capacity " + std::to_string(c.capacity));
    std::vector<uint8_t> bytes(c.capacity + 1, 0xAA);
    size_t count = 999;
    bool ok = false;
    EXPECT_EQ(Printed([&] { ok = ParseByteList(c.text, c.capacity, bytes.data(), &count); }), "");
    EXPECT_EQ(ok, c.ok);
    EXPECT_EQ(bytes[c.capacity], 0xAA) << "written past the capacity";
    if (!c.ok) {
      EXPECT_EQ(bytes, std::vector<uint8_t>(c.capacity + 1, 0xAA));
      EXPECT_EQ(count, 999u);
      continue;
    }
    EXPECT_EQ(count, c.bytes.size());
    EXPECT_EQ(
        std::vector<uint8_t>(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(count)),
        c.bytes);
  }
}

TEST(ValueParserHexWordTest, ExactlyLengthHexDigitsIntoThirtyTwoBits) {
  struct Case {
    const wchar_t* text;
    size_t length;
    bool ok;
    uint32_t value;
  };
  const Case cases[] = {
      {L"", 0, true, 0},
      {L"zz", 0, true, 0},
      {L"ff", 2, true, 0xff},
      {L"FF", 2, true, 0xff},
      {L"fF", 1, true, 0xf},
      {L"09afAF", 6, true, 0x09afaf},
      {L"12345678", 8, true, 0x12345678},
      {L"ffffffff", 8, true, 0xffffffff},
      {L"123456789", 9, true, 0x23456789},
      {L"1g", 2, false, 0},
      {L"1g", 1, true, 1},
      {L"g1", 2, false, 0},
      {L"0x10", 4, false, 0},
      {L"-1", 2, false, 0},
      {L" 1", 2, false, 0},
      {L"1 ", 2, false, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(Narrow(c.text) + " length " + std::to_string(c.length));
    uint32_t value = 0xDEADBEEF;
    bool ok = false;
    EXPECT_EQ(Printed([&] { ok = ParseHexWord(c.text, c.length, &value); }), "");
    EXPECT_EQ(ok, c.ok);
    EXPECT_EQ(value, c.ok ? c.value : 0xDEADBEEF);
  }
}

}  // namespace
}  // namespace nw
