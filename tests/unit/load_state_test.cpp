// The deployed version as ReadHostBaseVersion reads it, where no command can look: the version
// mutex (the command always ignores it), the text field (never printed), the fifth part, the
// error codes, and stored text without a terminator.

#include "drivers/load_state.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "tests/unit/fake_driver_host.h"

namespace nw {
namespace {

using testing::drivers::FakeDriverHost;
using testing::drivers::kHostBaseKey32;
using Lines = std::vector<std::string>;

const std::string kOpenMutex = "OpenMutex Global\\kvxhidin 1048576";
const std::string kWait = "WaitForSingleObject 4294967295";

TEST(HostBaseVersionRead, ConsultsTheMutexAsAskedAndKeepsTheWholeRecord) {
  const struct {
    const char* what;
    int32_t flags;
    bool mutexExists;
    uint32_t wait;
    std::wstring stored;
    uint32_t result;
    std::vector<uint32_t> parts;
    std::wstring text;
    Lines calls;
  } cases[] = {
      {"a mutex makes it give up",
       0,
       true,
       0,
       L"20.11",
       kErrorBusy,
       {0, 0, 0, 0, 0},
       L"",
       {kOpenMutex, "CloseHandle"}},
      {"or wait for it and release it",
       kVersionWaitForMutex,
       true,
       platform::kWaitObject0,
       L"20.11",
       0,
       {20, 11, 0, 0, 0},
       L"20.11",
       {kOpenMutex, kWait, "ReleaseMutex", "CloseHandle"}},
      {"an abandoned mutex is owned all the same",
       kVersionWaitForMutex,
       true,
       platform::kWaitAbandoned,
       L"20.11",
       0,
       {20, 11, 0, 0, 0},
       L"20.11",
       {kOpenMutex, kWait, "ReleaseMutex", "CloseHandle"}},
      {"a failed wait owns nothing to release",
       kVersionWaitForMutex,
       true,
       platform::kWaitFailed,
       L"20.11",
       0,
       {20, 11, 0, 0, 0},
       L"20.11",
       {kOpenMutex, kWait, "CloseHandle"}},
      {"no mutex", 0, false, 0, L"20.11", 0, {20, 11, 0, 0, 0}, L"20.11", {kOpenMutex}},
      {"ignoring it wins over waiting",
       kVersionIgnoreMutex | kVersionWaitForMutex,
       true,
       0,
       L"20.11",
       0,
       {20, 11, 0, 0, 0},
       L"20.11",
       {}},
      {"the text starts at the first digit",
       kVersionIgnoreMutex,
       false,
       0,
       L"v 20.11 (build 7)",
       0,
       {20, 11, 7, 0, 0},
       L"20.11 (build 7)",
       {}},
      {"the text keeps 29 characters",
       kVersionIgnoreMutex,
       false,
       0,
       L"v1.2" + std::wstring(40, L'a'),
       0,
       {1, 2, 0, 0, 0},
       L"1.2" + std::wstring(26, L'a'),
       {}},
      {"at most five parts",
       kVersionIgnoreMutex,
       false,
       0,
       L"1.2.3.4.5.6.7",
       0,
       {1, 2, 3, 4, 5},
       L"1.2.3.4.5.6.7",
       {}},
  };
  for (const auto& c : cases) {
    FakeDriverHost host;
    host.registry.SetString(kHostBaseKey32, L"host_base_version", c.stored);
    if (c.mutexExists) host.mutexes.existing = {L"Global\\kvxhidin"};
    host.mutexes.waitResult = c.wait;
    HostBaseVersion version;
    std::memset(&version, 0xA5, sizeof version);
    EXPECT_EQ(ReadHostBaseVersion(c.flags, &version), c.result) << c.what;
    EXPECT_EQ(std::vector<uint32_t>(version.parts, version.parts + 5), c.parts) << c.what;
    EXPECT_EQ(std::wstring(version.text), c.text) << c.what;
    EXPECT_EQ(host.journal, c.calls) << c.what;
    EXPECT_EQ(host.Leftovers(), "") << c.what;
  }
}

TEST(HostBaseVersionRead, EveryOtherFailureHasItsOwnCode) {
  const std::wstring unterminated(100, L'7');
  FakeDriverHost host;
  host.registry.SetRaw(kHostBaseKey32, L"host_base_version", platform::kRegSz, unterminated.data(),
                       unterminated.size() * sizeof(wchar_t));
  HostBaseVersion version;
  EXPECT_EQ(ReadHostBaseVersion(kVersionIgnoreMutex, &version), kErrorBadConfiguration);
  host.registry.SetString(kHostBaseKey32, L"host_base_version", L"20.11");
  EXPECT_EQ(ReadHostBaseVersion(kVersionIgnoreMutex, nullptr), kErrorBadConfiguration);
  // Whatever keeps the key closed, the answer is that it is not there.
  host.registry.openErrors[L"HKLM\\SOFTWARE\\WOW6432NODE\\KORVANE\\HOSTBASE"] = 5;
  EXPECT_EQ(ReadHostBaseVersion(kVersionIgnoreMutex, &version), kErrorFileNotFound);
  EXPECT_EQ(host.Leftovers(), "");
}

}  // namespace
}  // namespace nw
