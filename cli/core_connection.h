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

/// E_POINTER: the status of a getter that reported success but handed out no object. A core
/// that breaks its contract that way fails the step that asked, with that step's own message,
/// instead of crashing the tool that is being used to look into it.
inline constexpr Status kStatusNullInterface = static_cast<Status>(0x80004003u);

/// Calls a core getter that hands out an object into *out and returns its status, or
/// kStatusNullInterface when it succeeded without an object.
template <class Object, class Call>
Status ObtainObject(Object** out, Call&& call) {
  const Status status = call();
  return status == kStatusOk && *out == nullptr ? kStatusNullInterface : status;
}

/// The control library's file name.
extern const wchar_t* const ControlLibraryName;

/// Loads the control library, registers the point product and fetches the control, policy
/// manager and blacklist interfaces into a zeroed record. Returns 0; 0x80000001 when the library
/// or its registration interface could not be obtained; or the failing core call's status
/// (kStatusNullInterface for a Register or GetPolicyManager that succeeded without an object).
/// A blacklist control that is null after success is not a failure: the blacklist views print
/// nothing then.
/// Failures are printed; whatever was obtained stays in the record for the teardown.
Status ConnectToCore(CoreConnection* connection);

/// Releases the interfaces in the order blacklist, policy manager, control, and then ends the
/// registration. Does not touch LastStatus.
void ReleaseCoreConnection(CoreConnection* connection);

}  // namespace nw
