// Driver service control where no command can look: registry values the host file cannot hold,
// what a write leaves behind, and the parts of the interface no command uses (a log that cannot
// be formatted, the default log, a service name too long for its image path).

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "drivers/service_control.h"
#include "tests/unit/fake_driver_host.h"
#include "tests/unit/printed.h"

namespace nw {
namespace {

using testing::Printed;
using testing::drivers::FakeDriverHost;

const std::wstring kNdisKey = std::wstring(testing::drivers::kServicesKey) + L"kvxnlfk";
const std::wstring kWfpKey = std::wstring(testing::drivers::kServicesKey) + L"kvxwfpk";

TEST(RegistryHelpers, ReadValuesTheHostFileCannotHold) {
  const struct {
    const char* what;
    std::wstring stored;  // without its terminator
    uint32_t capacity;
    std::wstring read;
  } strings[] = {
      {"unterminated text is cut at its length", L"abc", 8, L"abc"},
      {"unterminated text filling the buffer loses its last character", L"abcd", 4, L"abc"}};
  for (const auto& c : strings) {
    FakeDriverHost host;
    host.registry.SetRaw(kNdisKey, L"V", platform::kRegSz, c.stored.c_str(),
                         c.stored.size() * sizeof(wchar_t));
    std::vector<wchar_t> buffer(c.capacity, L'#');
    ASSERT_TRUE(ReadRegistryString(ServiceKey(L"kvxnlfk", kServiceKeyRead), L"V", buffer.data(),
                                   c.capacity))
        << c.what;
    EXPECT_EQ(std::wstring(buffer.data()), c.read) << c.what;
  }
  for (size_t size : {2u, 8u}) {
    FakeDriverHost host;
    const uint8_t bytes[8] = {7};
    host.registry.SetRaw(kNdisKey, L"V", platform::kRegDword, bytes, size);
    uint32_t value = 99;
    EXPECT_FALSE(ReadRegistryDword(ServiceKey(L"kvxnlfk", kServiceKeyRead), L"V", &value)) << size;
    EXPECT_EQ(value, 99u) << size;
  }
}

TEST(RegistryHelpers, AWriteKeepsTheTerminatorAndAFailedWriteOpenTellsWhy) {
  FakeDriverHost host;
  host.registry.AddKey(kNdisKey);
  {
    ServiceKey key(L"kvxnlfk", kServiceKeyWrite);
    ASSERT_TRUE(WriteRegistryString(key, L"V", L"text"));
  }
  const auto* value = host.registry.Find(kNdisKey, L"V");
  ASSERT_NE(value, nullptr);
  EXPECT_EQ(value->type, platform::kRegSz);
  EXPECT_EQ(value->data.size(), 5 * sizeof(wchar_t));

  host.registry.openErrors[L"HKLM\\SYSTEM\\CURRENTCONTROLSET"] = 1018;
  EXPECT_FALSE(ServiceKey(L"kvxnlfk", kServiceKeyWrite).IsOpen());
  EXPECT_EQ(platform::ThreadLastError(), 1018u);
  EXPECT_EQ(host.Leftovers(), "");
}

TEST(DriverLog, WhatNoCommandAsksFor) {
  FakeDriverHost host;
  host.registry.SetString(kWfpKey, L"ImagePath", L"x.sys");
  EXPECT_EQ(Printed([] { PrintDriverLog(nullptr); }), "");
  EXPECT_EQ(Printed([] { EXPECT_EQ(AdjustWfpImagePath(), 0u); }),
            "Adjust WFP image path from [x.sys] to [system32\\drivers\\kvxwfpk.sys]\n");
  wchar_t path[kImagePathChars];
  EXPECT_FALSE(BuildDriverImagePath(std::wstring(300, L'n').c_str(), 1, path, kImagePathChars));
  EXPECT_EQ(host.Leftovers(), "");
}

}  // namespace
}  // namespace nw
