#pragma once

#include "core/interfaces.h"

namespace nw {

/// The run's four core interfaces; the record owns one reference on each non-null one.
struct CoreConnection {
  IPolicyManager* policyManager = nullptr;
  IRegisterPointProduct* registerPointProduct = nullptr;
  IControl* control = nullptr;
  IHighPriorityIpListControl* highPriorityIpList = nullptr;
};

/// The control library's file name.
extern const wchar_t* const ControlLibraryName;

/// Loads the control library, registers the point product and fetches the control, policy
/// manager and blacklist interfaces into a zeroed record. Returns 0; 0x80000001 when the library
/// or its registration interface could not be obtained; or the failing core call's status.
/// Failures are printed; whatever was obtained stays in the record for the teardown.
Status ConnectToCore(CoreConnection* connection);

/// Releases the interfaces in the order blacklist, policy manager, control, and then ends the
/// registration. Does not touch LastStatus.
void ReleaseCoreConnection(CoreConnection* connection);

}  // namespace nw
