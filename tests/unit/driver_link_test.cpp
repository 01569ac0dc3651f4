#include "cli/driver_link.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "core/interfaces.h"
#include "tests/unit/fake_platform.h"

namespace nw {
namespace {

// What the fake driver-link library does, and what it saw.
struct DriverLinkWorld {
  Status getInterface = 0;
  Status connect = 0;
  Status request = 0;
  std::string askedInterface;
  std::wstring driverName;
  uint32_t requestCode = 0;
  bool requestHadBuffers = false;
  std::vector<std::string> releases;
};
DriverLinkWorld* world = nullptr;

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
    world->requestCode = code;
    world->requestHadBuffers = input != nullptr || inputSize != 0 || output != nullptr ||
                               outputSize != 0 || bytesReturned != nullptr;
    return world->request;
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
    if (world->connect != 0) return world->connect;
    *link = &link_;
    return 0;
  }

 private:
  FakeLink link_;
};

FakeConnector connector;

Status FakeGetInterface(const char* name, void** out) {
  world->askedInterface = name;
  if (world->getInterface != 0) return world->getInterface;
  *out = static_cast<IDriverLinkConnector*>(&connector);
  return 0;
}

struct Case {
  const char* what;
  bool libraryPresent;
  Status getInterface, connect, request;
  Status expected;
  const char* console;
  std::vector<std::string> releases;
};

class DriverLink : public ::testing::TestWithParam<Case> {};

TEST_P(DriverLink, ReportsTheFirstFailureAndReleasesWhatItHeld) {
  const Case& c = GetParam();
  testing::FakePlatform fake;
  const std::wstring library = L"C:\\app\\kvxhida.dll";
  if (c.libraryPresent) {
    fake.trust.files = {{library, 0}};
    fake.libraries.loadable = {library};
  }
  fake.libraries.exports["NotComDllGetInterface"] = reinterpret_cast<void*>(&FakeGetInterface);
  DriverLinkWorld w;
  w.getInterface = c.getInterface;
  w.connect = c.connect;
  w.request = c.request;
  world = &w;

  ::testing::internal::CaptureStdout();
  const Status status = RequestDriverReevaluation();
  std::fflush(stdout);
  const std::string console = ::testing::internal::GetCapturedStdout();

  EXPECT_EQ(status, c.expected);
  EXPECT_EQ(console, c.console);
  EXPECT_EQ(w.releases, c.releases);
  if (c.libraryPresent) {
    EXPECT_EQ(w.askedInterface, "DrvLinkConnectAsync");
    // The program's load reference is dropped as soon as the connector is obtained.
    EXPECT_EQ(fake.libraries.freed.size(), 1u);
  }
  if (c.getInterface == 0 && c.libraryPresent) {
    EXPECT_EQ(w.driverName, L"kvxfirek.sys");
  }
  if (c.expected == 0 || c.request != 0) {
    EXPECT_EQ(w.requestCode, 68u);
    EXPECT_FALSE(w.requestHadBuffers);
  }
  world = nullptr;
}

INSTANTIATE_TEST_SUITE_P(
    RequestDriverReevaluation, DriverLink,
    ::testing::Values(
        Case{"accepted", true, 0, 0, 0, 0, "", {"link", "connector"}},
        Case{"library missing",
             false,
             0,
             0,
             0,
             static_cast<Status>(kCryptEFileError),
             "Failed to connect to driver [-2146885629]\n",
             {}},
        Case{"connector refused", true, 5, 0, 0, 5, "Failed to connect to driver [5]\n", {}},
        Case{"driver not running",
             true,
             0,
             2,
             0,
             2,
             "Failed to connect to content driver [2]\n",
             {"connector"}},
        Case{"request refused",
             true,
             0,
             0,
             31,
             31,
             "Failed to re-evaluate driver load state "
             "(FW_IOCTL_EVALUATE_NET_DRIVER_REQUIREMENTS) [31]\n",
             {"link", "connector"}}),
    [](const ::testing::TestParamInfo<Case>& param) {
      std::string name = param.param.what;
      for (auto& ch : name) ch = ch == ' ' ? '_' : ch;
      return name;
    });

}  // namespace
}  // namespace nw
