// -IpConfig: every adapter the core sees, then the flat list of the host's addresses.

#include <cstddef>
#include <cstdint>

#include "cli/console.h"
#include "cli/handlers.h"
#include "core/interfaces.h"
#include "policy/names.h"

namespace nw {
namespace {

// Values start in column 30; a list's further entries stand under the first.
constexpr const wchar_t* kContinuation = L"\n                             ";
constexpr const wchar_t* kIndent = L"                             ";

// One more than the IPv6 form needs, as the adapter block has always used.
constexpr size_t kAdapterTextCapacity = 41;

void PrintHardwareAddress(const uint8_t* bytes, uint32_t length) {
  for (uint32_t i = 0; i < length; ++i) {
    ConsolePrint(i + 1 < length ? L"%02x-" : L"%02x", bytes[i]);
  }
}

// The lists format every address without looking at its version: anything but 4 comes out in
// the IPv6 form.
const wchar_t* ListText(wchar_t* text, const IpAddress* address) {
  FormatIpAddress(text, kAdapterTextCapacity, address);
  return text;
}

// The DHCP and WINS lines print an address only when it is one; otherwise the cleared buffer.
void PrintServerLine(const wchar_t* label, wchar_t* text, const IpAddress* address) {
  text[0] = L'\0';
  if (address->version == 4 || address->version == 6) {
    FormatIpAddress(text, kAdapterTextCapacity, address);
  }
  ConsolePrint(L"%s%s\n", label, text);
}

void PrintAdapter(IAdapterInfo& adapter) {
  wchar_t text[kAdapterTextCapacity] = {};
  ConsolePrint(L"%s\n", adapter.GetName());
  ConsolePrint(L"    Description............: %s\n", adapter.GetDescription());
  ConsolePrint(L"    Connspec DNS Suffix....: %s\n", adapter.GetConnectionSpecificDnsSuffix());

  ConsolePrint(L"    Physical Address.......: ");
  uint32_t length = 0;
  adapter.GetPhysicalAddress(&length);  // asked twice; the second answer is the one used
  const uint8_t* hardware = adapter.GetPhysicalAddress(&length);
  PrintHardwareAddress(hardware, length);
  ConsolePrint(L"\n");

  // A negative medium is no medium either; the table is only indexed from 0.
  const int32_t medium = adapter.GetPhysicalMedium();
  const wchar_t* mediumName = medium >= 0 && medium < kPhysicalMediumBound
                                  ? PhysicalMediumName(medium)
                                  : L"FW_PHYSICAL_MEDIUM_INVALID";
  ConsolePrint(L"    Phycal Medium..........: %s\n", mediumName);
  ConsolePrint(L"    Interface Index........: %d\n", adapter.GetInterfaceIndex(true));
  ConsolePrint(L"    Interface Index IpV6...: %d\n", adapter.GetInterfaceIndex(false));
  ConsolePrint(L"    DHCP Enabled...........: %s\n", adapter.IsDhcpEnabled() ? L"Yes" : L"No");
  ConsolePrint(L"    Have WINS..............: %s\n", adapter.HaveWins() ? L"Yes" : L"No");

  // Counts are asked again after every entry: the core's lists may change while we print.
  ConsolePrint(L"    IP Address List........: ");
  for (uint64_t i = 0; i < adapter.GetIpAddressCount(); ++i) {
    if (i != 0) ConsolePrint(kContinuation);
    const wchar_t* address = ListText(text, adapter.GetIpAddress(i));
    ConsolePrint(L"%s/%d", address, *adapter.GetIpAddressPrefixLength(i));
  }
  ConsolePrint(L"\n");

  ConsolePrint(L"    Default Gateway List...: ");
  if (adapter.GetGatewayCount() == 0) {
    ConsolePrint(L"\n");
  } else {
    // Two lines a gateway: its address, and its hardware address beneath it.
    for (uint64_t i = 0; i < adapter.GetGatewayCount(); ++i) {
      if (i != 0) ConsolePrint(kIndent);
      ConsolePrint(L"%s", ListText(text, adapter.GetGatewayAddress(i)));
      ConsolePrint(kContinuation);
      const uint8_t* gatewayHardware = adapter.GetGatewayPhysicalAddress(i);
      PrintHardwareAddress(gatewayHardware, adapter.GetGatewayPhysicalAddressLength(i));
      ConsolePrint(L"\n");
    }
  }

  PrintServerLine(L"    DHCP Server............: ", text, adapter.GetDhcpServer());

  ConsolePrint(L"    DNS Servers............: ");
  for (uint64_t i = 0; i < adapter.GetDnsServerCount(); ++i) {
    if (i != 0) ConsolePrint(kContinuation);
    ConsolePrint(L"%s", ListText(text, adapter.GetDnsServer(i)));
  }
  ConsolePrint(L"\n");

  PrintServerLine(L"    Primary WINS...........: ", text, adapter.GetPrimaryWinsServer());
  PrintServerLine(L"    Secondary WINS.........: ", text, adapter.GetSecondaryWinsServer());
}

}  // namespace

void IpConfigDisplay(IControl* control) {
  IIpConfig* config = nullptr;
  LastStatus = ObtainObject(
      &config, [&] { return control->GetIpConfigChanged(&config, &IpConfigInterfaceId); });
  if (LastStatus != kStatusOk) {
    ConsolePrint(L"    Error from IControl::GetIpConfigChanged: %08x.\n", LastStatus);
    return;
  }

  IAdapterInfoEnumerator* adapters = config->GetAdapterInfoEnumerator(true);
  ConsolePrint(L"\n\nNetwork adapters:\n");
  if (adapters != nullptr) {
    int number = 1;
    for (IAdapterInfo* adapter = adapters->Next(); adapter != nullptr; adapter = adapters->Next()) {
      ConsolePrint(L"\n\nAdapter #%d:\n\n", number++);
      PrintAdapter(*adapter);
    }
    adapters->Release();
  }

  IAddressInfoEnumerator* addresses = config->GetAddressInfoEnumerator();
  ConsolePrint(L"\n\nIP addresses:\n\n");
  if (addresses != nullptr) {
    for (IAddressInfo* info = addresses->Next(); info != nullptr; info = addresses->Next()) {
      const IpAddress* address = nullptr;
      // The last address decides the run's status, whatever came before it. An address the
      // core says it gave but did not is a failure of that address.
      LastStatus = ObtainObject(&address, [&] { return info->GetAddress(&address); });
      if (LastStatus != kStatusOk) {
        ConsolePrint(L"    Error from pAddressInfo->GetAddress %x\n", LastStatus);
        continue;
      }
      ConsolePrint(L"        Address = ");
      PrintIpAddress(address, false, true);
    }
    addresses->Release();
  }

  ConsolePrint(L"\n\n");
  config->Release();
}

}  // namespace nw
