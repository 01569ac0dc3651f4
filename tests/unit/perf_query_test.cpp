// The reply-buffer arithmetic of QueryDriverBuffer at the sizes no run of the program asks for
// or no simulated driver answers with.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "core/interfaces.h"
#include "tables/perf_profiling.h"

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
      {"exactly fits: no second request", 4096, {{0, 4064, 4096}}, {4096}, 0, 4064},
      {"31 bytes back", 65536, {{0, 0, 31}}, {65536, 32}, 8, 0},
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

}  // namespace
}  // namespace nw
