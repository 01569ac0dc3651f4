#include "cli/driver_link.h"

#include "base/bounded_string.h"
#include "cli/console.h"
#include "cli/loader.h"
#include "core/interfaces.h"

namespace nw {

const wchar_t* const DriverLinkLibraryName = L"kvxhida.dll";
const wchar_t* const FirewallDriverName = L"kvxfirek.sys";

Status RequestDriverReevaluation() {
  size_t nameLength = 0;
  IDriverLinkConnector* connector = nullptr;
  Status status = kErrorInvalidParameter;
  if (BoundedLength(DriverLinkLibraryName, kMaxLibraryNameChars, &nameLength)) {
    status = GetProductInterface(DriverLinkLibraryName, nameLength, "DrvLinkConnectAsync",
                                 reinterpret_cast<void**>(&connector), nullptr);
  }
  if (status != kStatusOk || connector == nullptr) {
    if (status == kStatusOk) status = kStatusNoInterface;
    ConsolePrint(L"Failed to connect to driver [%d]\n", status);
    return status;
  }
  IDriverLink* link = nullptr;
  status = connector->ConnectToContentDriver(FirewallDriverName, &link);
  if (status != kStatusOk || link == nullptr) {
    if (status == kStatusOk) status = kStatusNoInterface;
    ConsolePrint(L"Failed to connect to content driver [%d]\n", status);
    connector->Release();
    return status;
  }
  status = link->SendControlRequest(FW_IOCTL_EVALUATE_NET_DRIVER_REQUIREMENTS, nullptr, 0, nullptr,
                                    0, nullptr);
  if (status != kStatusOk) {
    ConsolePrint(
        L"Failed to re-evaluate driver load state (FW_IOCTL_EVALUATE_NET_DRIVER_REQUIREMENTS) "
        L"[%d]\n",
        status);
  }
  link->Release();
  connector->Release();
  return status;
}

}  // namespace nw
