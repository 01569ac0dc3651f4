// The profiling commands against recording doubles of the driver link: the reply-buffer
// protocol of QueryDriverBuffer (sizes and calls), and what the handlers print and release.

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <string>
#include <vector>

#include "cli/console.h"
#include "cli/handlers.h"
#include "core/interfaces.h"
#include "tables/perf_profiling.h"
#include "tests/unit/fake_platform.h"
#include "tests/unit/perf_data.h"

namespace nw {
namespace {

// One answer of the driver: its status, the size its reply header announces, and the byte
// count it reports (it writes the header and a pattern up to that count, within the buffer).
struct Answer {
  Status status;
  uint64_t announced;
  uint32_t returned;
};

uint8_t Pattern(size_t offset) { return static_cast<uint8_t>(offset * 7 + 1); }

class RecordingLink final : public IDriverLink {
 public:
  struct Call {
    uint32_t code;
    const void* input;
    uint32_t inputSize;
    bool hasOutput;
    uint32_t outputSize;
    bool hasHolder;
  };
  std::vector<Answer> answers;  // the last one repeats
  std::vector<Call> calls;

  Status Unused0() override { return kStatusNotImplemented; }
  uint32_t Release() override { return 0; }
  Status Unused2() override { return kStatusNotImplemented; }
  Status SendControlRequest(uint32_t code, const void* input, uint32_t inputSize, void* output,
                            uint32_t outputSize, uint32_t* bytesReturned) override {
    calls.push_back(
        {code, input, inputSize, output != nullptr, outputSize, bytesReturned != nullptr});
    const Answer& answer = answers[std::min(calls.size(), answers.size()) - 1];
    auto* bytes = static_cast<uint8_t*>(output);
    const size_t written = std::min<size_t>(answer.returned, outputSize);
    for (size_t i = 0; i < written; ++i) bytes[i] = Pattern(i);
    for (size_t i = 0; i < 8 && i < outputSize; ++i) {
      bytes[i] = static_cast<uint8_t>(answer.announced >> (8 * i));
    }
    if (bytesReturned != nullptr) *bytesReturned = answer.returned;
    return answer.status;
  }
};

TEST(QueryDriverBuffer, AsksOnceOrTwiceAndHandsBackTheDataAfterTheHeader) {
  const struct {
    const char* what;
    uint32_t capacity;
    std::vector<Answer> answers;
    std::vector<uint32_t> outputSizes;
    uint32_t result;
    uint64_t dataSize;
  } cases[] = {
      {"a small capacity is raised to 4096", 100, {{0, 1000, 1032}}, {4096}, 0, 1000},
      {"the announced data fits", 65536, {{0, 1000, 1032}}, {65536}, 0, 1000},
      {"exactly fits: no second request", 4096, {{0, 4064, 4096}}, {4096}, 0, 4064},
      {"100,000 bytes of data: twice that plus 32",
       65536,
       {{0, 100000, 65536}, {0, 100000, 100032}},
       {65536, 200032},
       0,
       100000},
      {"shorter than announced after the second request",
       65536,
       {{0, 100000, 65536}, {0, 100000, 50032}},
       {65536, 200032},
       122,
       50000},
      {"one byte short", 65536, {{0, 1000, 1031}}, {65536, 2032}, 122, 999},
      {"20 bytes back", 65536, {{0, 1000, 20}}, {65536, 2032}, 8, 0},
      {"31 bytes back", 65536, {{0, 0, 31}}, {65536, 32}, 8, 0},
      {"a header and no data", 65536, {{0, 0, 32}}, {65536}, 0, 0},
      {"the first request fails", 65536, {{31, 0, 0}}, {65536}, 8, 0},
      {"the second request fails",
       65536,
       {{0, 100000, 65536}, {31, 100000, 100032}},
       {65536, 200032},
       8,
       0},
      {"more than one 32-bit request can ask for", 65536, {{0, 0x7FFFFFF0, 65536}}, {65536}, 8, 0},
      {"an announced size at the end of 64 bits", 65536, {{0, UINT64_MAX, 65536}}, {65536}, 8, 0},
      {"a byte count beyond the buffer counts as the buffer",
       4096,
       {{0, 4064, 4196}},
       {4096},
       0,
       4064},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    RecordingLink link;
    link.answers = c.answers;
    const char input[3] = {'i', 'n', 'p'};
    uint8_t* data = reinterpret_cast<uint8_t*>(1);
    uint64_t dataSize = 1;
    EXPECT_EQ(QueryDriverBuffer(&link, 65, input, sizeof input, &data, &dataSize, c.capacity),
              c.result);
    std::vector<uint32_t> outputSizes;
    for (const auto& call : link.calls) {
      outputSizes.push_back(call.outputSize);
      EXPECT_EQ(call.code, 65u);
      EXPECT_EQ(call.input, input);
      EXPECT_EQ(call.inputSize, sizeof input);
      EXPECT_TRUE(call.hasOutput);
      EXPECT_TRUE(call.hasHolder);
    }
    EXPECT_EQ(outputSizes, c.outputSizes);
    EXPECT_EQ(dataSize, c.dataSize);
    EXPECT_EQ(data == nullptr, c.result == 8);
    if (data != nullptr) {
      // The data begins after the 32 bytes of the reply header.
      if (dataSize > 0) {
        EXPECT_EQ(data[0], Pattern(32));
      }
      FreeDriverBuffer(data);
    }
  }
}

// The driver-link library as the handlers see it: a connector and a link whose answers the
// test sets, and the order in which they were released.
struct LinkWorld {
  Status getInterface = 0;
  bool nullConnector = false;
  Status connect = 0;
  bool nullLink = false;
  Status request = 0;
  std::vector<uint8_t> reply;  // the whole reply of request 65, header included
  std::string askedInterface;
  std::wstring driverName;
  std::vector<uint32_t> codes;
  std::vector<uint32_t> outputSizes;
  bool requestHadInput = false;
  bool requestHadBuffers = false;
  std::vector<std::string> releases;
};
LinkWorld* world = nullptr;

class FakeLink final : public IDriverLink {
 public:
  Status Unused0() override { return kStatusNotImplemented; }
  uint32_t Release() override {
    world->releases.push_back("link");
    return 0;
  }
  Status Unused2() override { return kStatusNotImplemented; }
  Status SendControlRequest(uint32_t code, const void* input, uint32_t inputSize, void* output,
                            uint32_t outputSize, uint32_t* bytesReturned) override {
    world->codes.push_back(code);
    world->outputSizes.push_back(outputSize);
    world->requestHadInput = world->requestHadInput || input != nullptr || inputSize != 0;
    world->requestHadBuffers = world->requestHadBuffers || input != nullptr || inputSize != 0 ||
                               output != nullptr || outputSize != 0 || bytesReturned != nullptr;
    if (world->request != 0) return world->request;
    const size_t written = std::min<size_t>(outputSize, world->reply.size());
    if (written > 0) std::copy_n(world->reply.begin(), written, static_cast<uint8_t*>(output));
    if (bytesReturned != nullptr) *bytesReturned = static_cast<uint32_t>(written);
    return 0;
  }
};

class FakeConnector final : public IDriverLinkConnector {
 public:
  Status Unused0() override { return kStatusNotImplemented; }
  uint32_t Release() override {
    world->releases.push_back("connector");
    return 0;
  }
  Status Unused2() override { return kStatusNotImplemented; }
  Status ConnectToContentDriver(const wchar_t* driverName, IDriverLink** link) override {
    world->driverName = driverName;
    *link = world->nullLink ? nullptr : &link_;
    return world->connect;
  }

 private:
  FakeLink link_;
};

FakeConnector connector;

Status FakeGetInterface(const char* name, void** out) {
  world->askedInterface = name;
  if (world->getInterface != 0) return world->getInterface;
  *out = world->nullConnector ? nullptr : static_cast<IDriverLinkConnector*>(&connector);
  return 0;
}

std::vector<uint8_t> Reply(const std::vector<uint8_t>& data, uint64_t announced) {
  std::vector<uint8_t> reply(32, 0);
  for (size_t i = 0; i < 8; ++i) reply[i] = static_cast<uint8_t>(announced >> (8 * i));
  reply.insert(reply.end(), data.begin(), data.end());
  return reply;
}

enum class Call { kStart, kStop, kText, kCsv };

struct HandlerCase {
  const char* what;
  Call call;
  bool libraryPresent = true;
  Status getInterface = 0;
  bool nullConnector = false;
  Status connect = 0;
  bool nullLink = false;
  Status request = 0;
  std::vector<uint8_t> reply = {};
  std::string console = {};
  std::vector<std::string> releases = {};
  std::vector<uint32_t> codes = {};
};

std::vector<uint8_t> EmptyProfile() {
  testing::ProfileData data;
  data.endTime = 20;
  return data.Bytes();
}

std::vector<uint8_t> CountBeyondData() {
  testing::ProfileData data;
  data.counterCount = 1000;
  data.records = {{"a.c", "A", 1, 1, 1, 1, 1}, {"b.c", "B", 2, 1, 1, 1, 1}};
  return data.Bytes();
}

const std::vector<std::string> kBoth = {"connector", "link"};
const char* const kNoProfiler = ".\nProbably vantor was not built with profiling flag\n";

class PerfHandlers : public ::testing::TestWithParam<HandlerCase> {};

TEST_P(PerfHandlers, PrintNarrowTextReleaseWhatTheyHeldAndLeaveTheStatusAlone) {
  const HandlerCase& c = GetParam();
  testing::FakePlatform fake;
  const std::wstring library = L"C:\\app\\kvxhida.dll";
  if (c.libraryPresent) {
    fake.trust.files = {{library, 0}};
    fake.libraries.loadable = {library};
  }
  fake.libraries.exports["NotComDllGetInterface"] = reinterpret_cast<void*>(&FakeGetInterface);
  LinkWorld w;
  w.getInterface = c.getInterface;
  w.nullConnector = c.nullConnector;
  w.connect = c.connect;
  w.nullLink = c.nullLink;
  w.request = c.request;
  w.reply = c.reply;
  world = &w;
  testing::FakeClock clock(10, 10, 2000000000);
  LastStatus = 0;

  ::testing::internal::CaptureStdout();
  switch (c.call) {
    case Call::kStart:
      PerfProfilingControl(true);
      break;
    case Call::kStop:
      PerfProfilingControl(false);
      break;
    case Call::kText:
      GetPerfData(false);
      break;
    case Call::kCsv:
      GetPerfData(true);
      break;
  }
  std::fflush(stdout);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), c.console);
  EXPECT_EQ(w.releases, c.releases);
  EXPECT_EQ(w.codes, c.codes);
  EXPECT_EQ(LastStatus, 0);
  if (c.libraryPresent) {
    EXPECT_EQ(w.askedInterface, "DrvLinkConnect");
    EXPECT_EQ(fake.libraries.freed.size(), 1u);  // the load reference goes at once
  }
  if (c.getInterface == 0 && !c.nullConnector && c.libraryPresent) {
    EXPECT_EQ(w.driverName, L"kvxfirek.sys");
  }
  if (c.call == Call::kStart || c.call == Call::kStop) {
    EXPECT_FALSE(w.requestHadBuffers);
  } else if (!w.outputSizes.empty()) {
    // The profile is read, with no input, into 65536 bytes first.
    EXPECT_EQ(w.outputSizes[0], 65536u);
    EXPECT_FALSE(w.requestHadInput);
  }
  world = nullptr;
}

INSTANTIATE_TEST_SUITE_P(
    Profiling, PerfHandlers,
    ::testing::Values(
        HandlerCase{.what = "library missing",
                    .call = Call::kStart,
                    .libraryPresent = false,
                    .console = "Error returned from DrvLinkConnectCreate, -2146885629"},
        HandlerCase{.what = "connector refused",
                    .call = Call::kText,
                    .getInterface = 5,
                    .console = "Error returned from DrvLinkConnectCreate, 5"},
        HandlerCase{.what = "no connector handed out",
                    .call = Call::kStop,
                    .nullConnector = true,
                    .console = "Error returned from DrvLinkConnectCreate, -2147467262"},
        HandlerCase{.what = "driver not running",
                    .call = Call::kCsv,
                    .connect = 2,
                    .console = "Error returned from ConnectToContentDriver kvxfirek.sys, 2",
                    .releases = {"connector"}},
        HandlerCase{.what = "no link handed out",
                    .call = Call::kStart,
                    .nullLink = true,
                    .console = "Error returned from ConnectToContentDriver kvxfirek.sys, "
                               "-2147467262",
                    .releases = {"connector"}},
        HandlerCase{.what = "start accepted",
                    .call = Call::kStart,
                    .console = "",
                    .releases = kBoth,
                    .codes = {63}},
        HandlerCase{
            .what = "start refused",
            .call = Call::kStart,
            .request = 1,
            .console = std::string("Failed to start performance profiling, err=1") + kNoProfiler,
            .releases = kBoth,
            .codes = {63}},
        HandlerCase{
            .what = "stop refused",
            .call = Call::kStop,
            .request = 50,
            .console = std::string("Failed to stop performance profiling, err=50") + kNoProfiler,
            .releases = kBoth,
            .codes = {64}},
        HandlerCase{.what = "read refused",
                    .call = Call::kText,
                    .request = 31,
                    .console = "Failed to get perf data, err=8\n",
                    .releases = kBoth,
                    .codes = {65}},
        HandlerCase{.what = "read shorter than announced",
                    .call = Call::kText,
                    .reply = Reply(EmptyProfile(), 41),
                    .console = "Failed to get perf data, err=122\n",
                    .releases = kBoth,
                    .codes = {65, 65}},
        HandlerCase{.what = "a count beyond the data",
                    .call = Call::kCsv,
                    .reply = Reply(CountBeyondData(), CountBeyondData().size()),
                    .console = "Failed to get perf data, err=13\n",
                    .releases = kBoth,
                    .codes = {65}},
        HandlerCase{.what = "zero records, comma-separated",
                    .call = Call::kCsv,
                    .reply = Reply(EmptyProfile(), 40),
                    .console = "\"CPU, GHz\", 2.0000 GHz\n"
                               "\"Test duration, sec\", 2.0000\n"
                               "ProfilePriceInTicks,0\n"
                               "File,Function,HitCount,\"Hits/Sec\",\"AverageCPU(Cycles)\","
                               "AverageTime(uSec),\"AverageCPU(%)\",MinCPU(Cycles),"
                               "MaxCPU(Cycles),MinTime(uSec),MaxTime(uSec)\n",
                    .releases = kBoth,
                    .codes = {65}},
        HandlerCase{.what = "zero records, text",
                    .call = Call::kText,
                    .reply = Reply(EmptyProfile(), 40),
                    .console = "CPU was clocked @   2.0000 GHz\n"
                               "Test duration:      2.0000 seconds\n"
                               "Test ran for:       4000000000 CPU cycles\n"
                               "Number of counters: 0\n\n"
                               "NOTE: Due to variable clocks in modern CPUs the time "
                               "measurements \nshould be taken with a grain of salt\n\n"
                               "0 CPU cycles are lost per profile sample and are already "
                               "subtracted\nfrom each counter\n\n",
                    .releases = kBoth,
                    .codes = {65}}),
    [](const ::testing::TestParamInfo<HandlerCase>& param) {
      std::string name = param.param.what;
      for (auto& ch : name) ch = std::isalnum(static_cast<unsigned char>(ch)) ? ch : '_';
      return name;
    });

}  // namespace
}  // namespace nw
