#include "cli/core_connection.h"

#include "base/bounded_string.h"
#include "cli/console.h"
#include "cli/loader.h"

namespace nw {

const wchar_t* const ControlLibraryName = L"kvxfwctl.dll";

namespace {

constexpr const char* kRegistrationInterfaceName = "VantorRegisterPointProduct3";

}  // namespace

Status ConnectToCore(CoreConnection* connection) {
  size_t nameLength = 0;
  Status status = kStatusOk;
  if (!BoundedLength(ControlLibraryName, kMaxLibraryNameChars, &nameLength)) {
    status = kErrorInvalidParameter;
  } else {
    status =
        GetProductInterface(ControlLibraryName, nameLength, kRegistrationInterfaceName,
                            reinterpret_cast<void**>(&connection->registerPointProduct), nullptr);
  }
  if (status != kStatusOk || connection->registerPointProduct == nullptr) {
    // Why the library is unavailable (not found, not trusted, no export) stays in the
    // debugger output; the user is told the one thing they can act on.
    ConsolePrint(L"    Error from VantorRegisterPointProductCreate.\n");
    return kStatusCoreUnavailable;
  }
  status = ObtainObject(&connection->control, [&] {
    return connection->registerPointProduct->Register(&connection->control, &ControlInterfaceId,
                                                      &PointProductId);
  });
  if (status != kStatusOk) {
    ConsolePrint(L"    Error from IRegisterPointProduct::Register: %08x.\n", status);
    ConsolePrint(L"    (Most often this is caused by service not running.)\n");
    return status;
  }
  status = ObtainObject(&connection->policyManager, [&] {
    return connection->control->GetPolicyManager(&connection->policyManager,
                                                 &PolicyManagerInterfaceId);
  });
  if (status != kStatusOk) {
    ConsolePrint(L"    Error retrieving policy manager API: %08x.\n", status);
    return status;
  }
  status = connection->control->GetHighPriorityIpListControl(&connection->highPriorityIpList,
                                                             &HighPriorityIpListInterfaceId);
  if (status != kStatusOk) {
    ConsolePrint(L"    Error retrieving high priority IP list API: %08x.\n", status);
    return status;
  }
  return kStatusOk;
}

void ReleaseCoreConnection(CoreConnection* connection) {
  if (connection->highPriorityIpList != nullptr) {
    connection->highPriorityIpList->Release();
    connection->highPriorityIpList = nullptr;
  }
  if (connection->policyManager != nullptr) {
    connection->policyManager->Release();
    connection->policyManager = nullptr;
  }
  if (connection->control != nullptr) {
    connection->control->Release();
    connection->control = nullptr;
  }
  if (connection->registerPointProduct != nullptr) {
    const Status status = connection->registerPointProduct->Unregister(&PointProductId, 0);
    if (status != kStatusOk) {
      ConsolePrint(L"    Error from IRegisterPointProduct::Unregister: %08x.\n", status);
    }
    connection->registerPointProduct->Release();
    connection->registerPointProduct = nullptr;
  }
}

}  // namespace nw
