// What no simulated core can show of the runtime tables: the IP configuration asks an adapter
// for its hardware address twice and prints the second answer, which a real core may give
// differently from the first.

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "cli/console.h"
#include "cli/handlers.h"
#include "core/interfaces.h"
#include "tests/unit/printed.h"

namespace nw {
namespace {

// An adapter with nothing to show but its hardware address, which changes between the calls.
struct TwoFacedAdapter final : IAdapterInfo {
  std::vector<std::vector<uint8_t>> answers = {{0xde, 0xde, 0xde}, {0x00, 0x1a, 0x2b, 0x3c}};
  bool askedBefore = false;
  IpAddress none{};

  Status Unused0() override { return kStatusNotImplemented; }
  Status Unused1() override { return kStatusNotImplemented; }
  Status Unused2() override { return kStatusNotImplemented; }
  Status Unused3() override { return kStatusNotImplemented; }
  Status Unused4() override { return kStatusNotImplemented; }
  Status Unused5() override { return kStatusNotImplemented; }
  Status Unused6() override { return kStatusNotImplemented; }
  Status Unused7() override { return kStatusNotImplemented; }
  Status Unused8() override { return kStatusNotImplemented; }
  const uint8_t* GetPhysicalAddress(uint32_t* length) override {
    const std::vector<uint8_t>& answer = answers[askedBefore ? 1 : 0];
    askedBefore = true;
    *length = static_cast<uint32_t>(answer.size());
    return answer.data();
  }
  uint32_t GetInterfaceIndex(bool) override { return 0; }
  const wchar_t* GetConnectionSpecificDnsSuffix() override { return L""; }
  int32_t GetPhysicalMedium() override { return 1; }
  const uint8_t* GetIpAddressPrefixLength(uint64_t) override { return nullptr; }
  uint64_t GetIpAddressCount() override { return 0; }
  uint64_t GetGatewayCount() override { return 0; }
  const uint8_t* GetGatewayPhysicalAddress(uint64_t) override { return nullptr; }
  uint32_t GetGatewayPhysicalAddressLength(uint64_t) override { return 0; }
  const IpAddress* GetGatewayAddress(uint64_t) override { return &none; }
  const IpAddress* GetIpAddress(uint64_t) override { return &none; }
  bool IsDhcpEnabled() override { return false; }
  const IpAddress* GetDhcpServer() override { return &none; }
  uint64_t GetDnsServerCount() override { return 0; }
  const IpAddress* GetDnsServer(uint64_t) override { return &none; }
  bool HaveWins() override { return false; }
  const IpAddress* GetPrimaryWinsServer() override { return &none; }
  const IpAddress* GetSecondaryWinsServer() override { return &none; }
  const wchar_t* GetName() override { return L"adapter"; }
  const wchar_t* GetDescription() override { return L""; }
};

struct OneAdapter final : IAdapterInfoEnumerator {
  TwoFacedAdapter adapter;
  bool handedOut = false;
  Status Unused0() override { return kStatusNotImplemented; }
  uint32_t Release() override { return 0; }
  Status Unused2() override { return kStatusNotImplemented; }
  Status Unused3() override { return kStatusNotImplemented; }
  IAdapterInfo* Next() override { return handedOut ? nullptr : (handedOut = true, &adapter); }
};

struct OneAdapterConfig final : IIpConfig {
  OneAdapter adapters;
  Status Unused0() override { return kStatusNotImplemented; }
  uint32_t Release() override { return 0; }
  Status Unused2() override { return kStatusNotImplemented; }
  IAddressInfoEnumerator* GetAddressInfoEnumerator() override { return nullptr; }
  IAdapterInfoEnumerator* GetAdapterInfoEnumerator(bool) override { return &adapters; }
};

struct IpConfigControl final : IControl {
  OneAdapterConfig config;
  Status Unused0() override { return kStatusNotImplemented; }
  uint32_t Release() override { return 0; }
  Status GetPolicyManager(IPolicyManager**, const Guid*) override { return kStatusNotImplemented; }
  Status Unused3() override { return kStatusNotImplemented; }
  Status Unused4() override { return kStatusNotImplemented; }
  Status Unused5() override { return kStatusNotImplemented; }
  Status Unused6() override { return kStatusNotImplemented; }
  Status GetIpConfigChanged(IIpConfig** out, const Guid*) override {
    *out = &config;
    return kStatusOk;
  }
  Status Unused8() override { return kStatusNotImplemented; }
  Status GetHighPriorityIpListControl(IHighPriorityIpListControl**, const Guid*) override {
    return kStatusNotImplemented;
  }
  Status GetGlobalConfigBuilder(IGlobalConfigBuilder**, const Guid*) override {
    return kStatusNotImplemented;
  }
  Status GetGlobalConfigAndStateInfo(IGlobalConfigAndStateInfo**, const Guid*) override {
    return kStatusNotImplemented;
  }
  Status GetConnectionTable(IConnectionTable**, const Guid*) override {
    return kStatusNotImplemented;
  }
  Status GetOpenedEndpointTable(IOpenedEndpointTable**, const Guid*) override {
    return kStatusNotImplemented;
  }
  Status GetActiveProcesses(IActiveProcesses**, const Guid*) override {
    return kStatusNotImplemented;
  }
};

TEST(IpConfigTest, HardwareAddressIsTheSecondAnswer) {
  IpConfigControl control;
  const std::string out = testing::Printed([&] { IpConfigDisplay(&control); });
  EXPECT_NE(out.find("    Physical Address.......: 00-1a-2b-3c\n"), std::string::npos) << out;
}

}  // namespace
}  // namespace nw
