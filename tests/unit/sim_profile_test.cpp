// The simulated driver's profiler: the scenario's "profiler" and "profile" fields and the reply
// the read request gets (what the link answers is pinned by the end-to-end cases).

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "sim/common/scenario.h"
#include "sim/drvlink/profile_reply.h"

namespace nw::sim {
namespace {

std::string ParseError(const std::string& text) {
  Json doc = Json::parse(text);
  Scenario scenario;
  std::string error;
  EXPECT_FALSE(ParseScenario(doc, "s.json", &scenario, &error));
  return error;
}

TEST(ProfileScenario, RejectsBadFieldsNamingThePath) {
  const std::string records = "/driverLink/profile/counters";
  const struct {
    const char* text;
    std::string expected;
  } cases[] = {
      {R"({"driverLink": {"profiler": 1}})", "/driverLink/profiler: expected true or false"},
      {R"({"driverLink": {"profile": []}})", "/driverLink/profile: expected an object"},
      {R"({"driverLink": {"profile": {"count": 1}}})",
       "/driverLink/profile/count: expected one of the known fields (counters, counterCount, "
       "counterTotal, startTime, endTime, profilePrice, dataSize, announcedSize, replyLimit)"},
      {R"({"driverLink": {"profile": {"counterCount": 4294967296}}})",
       "/driverLink/profile/counterCount: expected an integer from 0 to 4294967295"},
      {R"({"driverLink": {"profile": {"dataSize": 16777217}}})",
       "/driverLink/profile/dataSize: expected an integer from 0 to 16777216"},
      {R"({"driverLink": {"profile": {"startTime": -1}}})",
       "/driverLink/profile/startTime: expected an integer from 0 to 18446744073709551615"},
      {R"({"driverLink": {"profile": {"replyLimit": 1.5}}})",
       "/driverLink/profile/replyLimit: expected an integer from 0 to 4294967295"},
      {R"({"driverLink": {"profile": {"counters": {}}}})",
       records + ": expected an array of at most 99864 counter objects"},
      {R"({"driverLink": {"profile": {"counters": [5]}}})", records + "/0: expected an object"},
      {R"({"driverLink": {"profile": {"counters": [{}, {"hits": 1}]}}})",
       records + "/1/hits: expected one of the known fields (file, function, line, hitCount, "
                 "totalCycles, minCycles, maxCycles)"},
      {R"({"driverLink": {"profile": {"counters": [{"file": "12345678901234567890123456789012345678901234567890123456789012345"}]}}})",
       records + "/0/file: expected a text of at most 64 bytes without a NUL"},
      {R"({"driverLink": {"profile": {"counters": [{"function": "a\u0000b"}]}}})",
       records + "/0/function: expected a text of at most 64 bytes without a NUL"},
      {R"({"driverLink": {"profile": {"counters": [{"line": 4294967296}]}}})",
       records + "/0/line: expected an integer from 0 to 4294967295"},
      {R"({"driverLink": {"profile": {"counters": [{"maxCycles": "7"}]}}})",
       records + "/0/maxCycles: expected an integer from 0 to 18446744073709551615"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(ParseError(c.text), "s.json: " + c.expected);
  }
}

TEST(ProfileScenario, AcceptsFieldsAtTheirLimits) {
  std::string counters;
  for (int i = 0; i < 99864; ++i) counters += i == 0 ? "{}" : ",{}";
  const std::string name(64, 'n');
  const std::string text = R"({"driverLink": {"profiler": false, "profile": {"dataSize": 16777216,
      "counterCount": 4294967295, "announcedSize": 18446744073709551615, "replyLimit": 0,
      "counters": [)" + counters +
                           R"(, {"file": ")" + name + R"(", "function": ")" + name +
                           R"(", "line": 4294967295, "hitCount": 18446744073709551615}]}}})";
  Scenario scenario;
  std::string error;
  // One counter too many: the last one makes 99865.
  EXPECT_FALSE(ParseScenario(Json::parse(text), "s.json", &scenario, &error));
  EXPECT_EQ(error,
            "s.json: /driverLink/profile/counters: expected an array of at most 99864 counter "
            "objects");
  const std::string fitting =
      R"({"driverLink": {"profiler": false, "profile": {"dataSize": 16777216,
      "counterCount": 4294967295, "announcedSize": 18446744073709551615, "replyLimit": 0,
      "counters": [)" +
      counters.substr(3) + R"(, {"file": ")" + name + R"(", "function": ")" + name +
      R"(", "line": 4294967295, "hitCount": 18446744073709551615}]}}})";
  ASSERT_TRUE(ParseScenario(Json::parse(fitting), "s.json", &scenario, &error)) << error;
  const DriverLinkState& driver = scenario.driverLink;
  EXPECT_FALSE(driver.profiler);
  ASSERT_EQ(driver.profile.counters.size(), 99864u);
  EXPECT_EQ(driver.profile.counters.back().file, name);
  EXPECT_EQ(driver.profile.counters.back().function, name);
  EXPECT_EQ(driver.profile.counters.back().line, 4294967295u);
  EXPECT_EQ(driver.profile.counters.back().hitCount, UINT64_MAX);
  EXPECT_EQ(driver.profile.counterCount, 4294967295u);
  EXPECT_EQ(driver.profile.dataSize, 16777216u);
  EXPECT_EQ(driver.profile.announcedSize, UINT64_MAX);
  EXPECT_EQ(driver.profile.replyLimit, 0u);
}

uint64_t Le(const std::vector<uint8_t>& bytes, size_t at, size_t count) {
  uint64_t value = 0;
  for (size_t i = 0; i < count; ++i) value |= uint64_t{bytes.at(at + i)} << (8 * i);
  return value;
}

std::string Text(const std::vector<uint8_t>& bytes, size_t at, size_t count) {
  return std::string(reinterpret_cast<const char*>(bytes.data() + at), count);
}

TEST(ProfileReply, HeaderAndRecordsAtTheirOffsetsLittleEndian) {
  DriverProfile profile;
  profile.counterTotal = 9;
  profile.startTime = 0x0102030405060708;
  profile.endTime = 0x1112131415161718;
  profile.profilePrice = 42;
  profile.counters = {{"a.c", "A", 7, 1, 2, 3, 4},
                      {std::string(64, 'f'), "Fn", 0x01020304, 0xA1, 0xA2, 0xA3, 0xA4}};
  const std::vector<uint8_t> reply = BuildProfileReply(profile);
  ASSERT_EQ(reply.size(), 32u + 40 + 2 * 168);
  EXPECT_EQ(Le(reply, 0, 8), 40u + 2 * 168);  // the announced size is the data's own
  EXPECT_EQ(Le(reply, 8, 24 / 3), 0u);
  const size_t data = 32;
  EXPECT_EQ(Le(reply, data + 0, 4), 2u);
  EXPECT_EQ(Le(reply, data + 4, 4), 9u);
  EXPECT_EQ(Le(reply, data + 8, 8), 0x0102030405060708u);
  EXPECT_EQ(Le(reply, data + 16, 8), 0x1112131415161718u);
  EXPECT_EQ(Le(reply, data + 24, 8), 42u);
  const size_t first = data + 40;
  EXPECT_EQ(Text(reply, first, 4), std::string("a.c\0", 4));
  EXPECT_EQ(Text(reply, first + 64, 2), std::string("A\0", 2));
  EXPECT_EQ(Le(reply, first + 128, 4), 7u);
  EXPECT_EQ(Le(reply, first + 136, 8), 1u);
  EXPECT_EQ(Le(reply, first + 144, 8), 2u);
  EXPECT_EQ(Le(reply, first + 152, 8), 3u);
  EXPECT_EQ(Le(reply, first + 160, 8), 4u);
  const size_t second = first + 168;
  EXPECT_EQ(Text(reply, second, 66), std::string(64, 'f') + "Fn");  // no terminator
  EXPECT_EQ(Le(reply, second + 128, 4), 0x01020304u);
  EXPECT_EQ(Le(reply, second + 160, 8), 0xA4u);
}

}  // namespace
}  // namespace nw::sim
