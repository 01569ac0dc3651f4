#include "cli/dispatcher.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "cli/console.h"
#include "tests/unit/fake_platform.h"
#include "tests/unit/printed.h"

namespace nw {
namespace {

CommandCode Parse(std::vector<const wchar_t*> args) {
  args.insert(args.begin(), L"netwarden");
  return ParseCommandLine(static_cast<int>(args.size()), args.data());
}

struct OptionCase {
  const wchar_t* option;
  int values;  // how many values the option takes when accepted: 0, 1, or -1 for "at least one"
  CommandCode code;
};

// The whole command vocabulary, with the argument counts each option accepts.
const OptionCase kVocabulary[] = {
    {L"-PolicyDisplay", 0, 1},
    {L"-PolicyDisplayXml", 0, 2},
    {L"-PolicyAdd", 1, 20},
    {L"-PolicyDelete", 1, 21},
    {L"-DeleteAll", 0, 19},
    {L"-Summary", 0, 0},
    {L"-BlackListSet", 1, 22},
    {L"-BlackListAppend", 1, 23},
    {L"-BlackListDelete", 1, 24},
    {L"-BlackListDisplay", 0, 3},
    {L"-BlackListDisplayXml", 0, 4},
    {L"-ConfigDisplay", 0, 5},
    {L"-ConfigReset", 0, 18},
    {L"-KernelLogQueueSize", 1, 25},
    {L"-PointProductReplyTime", 1, 26},
    {L"-PassThru", 1, 17},
    {L"-PassThruStream", 1, 27},
    {L"-PassThruPacket", 1, 28},
    {L"-TrafficLog", 1, 11},
    {L"-TrafficLogSize", 1, 12},
    {L"-TrafficLogMask", 1, 13},
    {L"-IpConfig", 0, 6},
    {L"-disable_ndis", 0, 44},
    {L"-enable_ndis", 0, 14},
    {L"-disable_wfp", 0, 45},
    {L"-enable_wfp", 0, 15},
    {L"-disableUnusedNetDrivers", 0, 16},
    {L"-tcptime", -1, 29},
    {L"-udptime", -1, 30},
    {L"-forcedtcptime", -1, 31},
    {L"-tcpconnremovaltime", -1, 41},
    {L"-gcperiod", -1, 32},
    {L"-procquery", -1, 33},
    {L"-proc", -1, 10},
    {L"-logthrottle", -1, 34},
    {L"-trackfwd", -1, 35},
    {L"-connthrottlingrate", -1, 43},
    {L"-connthrottlingthreshold", -1, 42},
};

TEST(ParseCommandLine, EveryOptionWithItsArgumentCount) {
  for (const OptionCase& c : kVocabulary) {
    SCOPED_TRACE(::testing::PrintToString(std::wstring(c.option)));
    const bool alone = c.values == 0;
    const bool one = c.values != 0;
    const bool several = c.values == -1;
    EXPECT_EQ(Parse({c.option}), alone ? c.code : kUsageCode);
    EXPECT_EQ(Parse({c.option, L"v"}), one ? c.code : kUsageCode);
    EXPECT_EQ(Parse({c.option, L"v", L"w"}), several ? c.code : kUsageCode);
  }
}

TEST(ParseCommandLine, OptionsThatTakeAnyCount) {
  struct {
    const wchar_t* option;
    CommandCode code;
  } cases[] = {{L"-statetable", 7}, {L"-statetablesize", 36}, {L"-eptable", 8},
               {L"-proclist", 9},   {L"-StartPerf", 37},      {L"-StopPerf", 38}};
  for (const auto& c : cases) {
    EXPECT_EQ(Parse({c.option}), c.code);
    EXPECT_EQ(Parse({c.option, L"a"}), c.code);
    EXPECT_EQ(Parse({c.option, L"a", L"b", L"c"}), c.code);
  }
}

TEST(ParseCommandLine, PerfDataChoosesItsFormFromTheValue) {
  EXPECT_EQ(Parse({L"-GetPerfData"}), 39);
  EXPECT_EQ(Parse({L"-GetPerfData", L"-csv"}), 40);
  EXPECT_EQ(Parse({L"-getperfdata", L"-CSV", L"x"}), 40);
  EXPECT_EQ(Parse({L"-GetPerfData", L"csv"}), 39);
  EXPECT_EQ(Parse({L"-GetPerfData", L"-csvx"}), 39);
}

TEST(ParseCommandLine, WholeNameCaseInsensitiveAsciiOnly) {
  struct {
    std::vector<const wchar_t*> args;
    CommandCode code;
  } cases[] = {
      {{L"-sUMMARY"}, 0},
      {{L"-Passthru", L"off"}, 17},
      {{L"-PROC", L"12"}, 10},
      {{L"-proclis"}, kUsageCode},
      {{L"-proclistx"}, kUsageCode},
      {{L"-statetables"}, kUsageCode},
      {{L"Summary"}, kUsageCode},
      {{L"-Summary "}, kUsageCode},
      {{L""}, kUsageCode},
      // Only A-Z fold: a dotless capital I or a full-width letter is not the ASCII letter.
      {{L"-\u0130pConfig"}, kUsageCode},
      {{L"-\uFF33ummary"}, kUsageCode},
  };
  for (const auto& c : cases) EXPECT_EQ(Parse(c.args), c.code);
}

TEST(ParseCommandLine, NoOptionOrNullOption) {
  const wchar_t* programOnly[] = {L"netwarden", nullptr};
  EXPECT_EQ(ParseCommandLine(1, programOnly), kUsageCode);
  EXPECT_EQ(ParseCommandLine(0, programOnly), kUsageCode);
  const wchar_t* nullOption[] = {L"netwarden", nullptr, nullptr};
  EXPECT_EQ(ParseCommandLine(2, nullOption), kUsageCode);
}

// The gate: every code the parser recognises but this build does not serve ends in the usage and
// -1, and the core's library is never looked for.
TEST(RunNetwarden, RefusesEveryGatedCodeWithoutTouchingTheCore) {
  std::vector<std::vector<const wchar_t*>> refused;
  for (const OptionCase& c : kVocabulary) {
    if (c.code < kFirstRefusedCode) continue;
    refused.push_back({c.option});
    if (c.values != 0) refused.back().push_back(L"1");
  }
  for (const wchar_t* option : {L"-statetablesize", L"-StartPerf", L"-StopPerf", L"-GetPerfData"}) {
    refused.push_back({option});
  }
  refused.push_back({L"-GetPerfData", L"-csv"});

  const std::string usage = testing::Printed([] { PrintUsage(); });
  std::set<CommandCode> codes;
  for (std::vector<const wchar_t*>& args : refused) {
    args.insert(args.begin(), L"netwarden");
    args.push_back(nullptr);
    const int argc = static_cast<int>(args.size()) - 1;
    codes.insert(ParseCommandLine(argc, args.data()));
    SCOPED_TRACE(::testing::PrintToString(std::wstring(args[1])));
    testing::FakePlatform fake;
    LastStatus = 0;
    int32_t status = 0;
    EXPECT_EQ(testing::Printed([&] { status = RunNetwarden(argc, args.data()); }),
              usage + "\nReturning error: 0xFFFFFFFF\n");
    EXPECT_EQ(status, -1);
    EXPECT_TRUE(fake.libraries.ProductLoads().empty());
  }
  LastStatus = 0;
  std::set<CommandCode> all;
  for (CommandCode code = kFirstRefusedCode; code < kUsageCode; ++code) all.insert(code);
  EXPECT_EQ(codes, all);
}

}  // namespace
}  // namespace nw
