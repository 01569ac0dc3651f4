#include "drivers/driver_actions.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "drivers/net_component.h"
#include "drivers/service_control.h"
#include "platform/net_config.h"
#include "platform/os_version.h"

namespace nw {

void* (*ActionArray::allocate)(size_t bytes) = std::malloc;

ActionArray::~ActionArray() { std::free(items_); }

uint32_t ActionArray::Append(IGAction* action) {
  if (count_ == capacity_) {
    const uint64_t grown = capacity_ == 0 ? 4 : uint64_t{capacity_} * 2;
    const uint64_t bytes = grown * sizeof(IGAction*);
    if (bytes > kMaxActionArrayBytes) return kErrorNotEnoughMemory;
    auto* items = static_cast<IGAction**>(allocate(static_cast<size_t>(bytes)));
    if (items == nullptr) return kErrorNotEnoughMemory;
    if (count_ != 0) std::memcpy(items, items_, count_ * sizeof(IGAction*));
    std::free(items_);
    items_ = items;
    capacity_ = static_cast<uint32_t>(grown);
  }
  items_[count_++] = action;
  return 0;
}

IGActionList::~IGActionList() {
  for (uint32_t i = 0; i < actions_.count(); ++i) delete actions_[i];
}

uint32_t IGActionList::Add(IGAction* action) {
  if (action == nullptr) return kErrorNotEnoughMemory;
  const uint32_t result = actions_.Append(action);
  if (result != 0) delete action;
  return result;
}

uint32_t IGActionList::doAction() {
  for (uint32_t i = 0; i < actions_.count(); ++i) {
    const uint32_t result = actions_[i]->doAction();
    if (result != 0) return result;
    // A step that cannot be recorded is done but can no longer be undone; the run stops there.
    if (completed_.Append(actions_[i]) != 0) return kErrorNotEnoughMemory;
  }
  return 0;
}

uint32_t IGActionList::undoAction() {
  uint32_t first = 0;
  for (uint32_t i = completed_.count(); i > 0; --i) {
    const uint32_t result = completed_[i - 1]->undoAction();
    if (first == 0) first = result;
  }
  return first;
}

uint32_t IGEnableDriver::doAction() {
  const uint32_t result =
      EnableDisableDriverViaSCM(service_, startType_, &previousStartType_, log_);
  hasPreviousStartType_ = previousStartType_ != kNoPreviousStartType;
  log_(doneFormat_, service_, result);
  return result;
}

uint32_t IGEnableDriver::undoAction() {
  if (hasPreviousStartType_) {
    // The undo's own reading of the old value must not replace the one kept for it.
    uint32_t scratch = 0;
    const uint32_t result = EnableDisableDriverViaSCM(service_, previousStartType_, &scratch, log_);
    log_(undoneFormat_, service_, result);
  }
  // Best effort: a start type that cannot be put back does not make the rollback fail.
  return 0;
}

IGDisableDriver::IGDisableDriver(const wchar_t* service, DriverLogFn log)
    : IGEnableDriver(service, kStartTypeDisabled, log,
                     "IGDisableDriver::doAction for service [%S] result is [%d]",
                     "IGDisableDriver::undoAction (%S) attempted with result of [%d]") {}

uint32_t IGStopDriver::doAction() { return StopOrStartService(service_, true, log_); }

uint32_t IGStopDriver::undoAction() { return StopOrStartService(service_, false, log_); }

uint32_t IGRegisterNetComponent::doAction() { return Install(); }

uint32_t IGRegisterNetComponent::undoAction() { return Uninstall(); }

uint32_t IGRegisterNetComponent::Install() {
  return static_cast<uint32_t>(InstallNetCfgWithLock(&deviceClass_, service_, log_));
}

uint32_t IGRegisterNetComponent::Uninstall() {
  return static_cast<uint32_t>(UninstallNetCfgWithLock(service_, log_));
}

void RunActionList(IGActionList* list) {
  if (list->doAction() == 0) {
    list->commitAction();
  } else {
    list->undoAction();
    list->abortAction();
  }
  delete list;
}

namespace {

/// What sets one driver command apart from the others.
struct DriverCommand {
  const wchar_t* service;
  bool usesCom;    // the list touches the network configuration
  bool liftsLock;  // the handler lifts the service key's lock around the whole list
};

/// Builds the list; false when it could not be built completely.
using ListBuilder = bool (*)(IGActionList* list, DriverLogFn log);

void RunDriverCommand(const DriverCommand& command, ListBuilder build, DriverLogFn log) {
  platform::NetConfig& com = platform::TheNetConfig();
  if (command.usesCom) com.CoInitialize();
  SelfProtectionException exception(DriverClientTag, command.service, log);
  const bool lifted = command.liftsLock && LiftServiceKeyLock(command.service);
  auto* list = new (std::nothrow) IGActionList();
  if (list != nullptr) {
    // A list missing one of its steps must not run: a removal without its undo partner could
    // not be rolled back.
    if (build(list, log)) {
      RunActionList(list);
    } else {
      delete list;
    }
  }
  if (lifted) RestoreServiceKeyLock(command.service);
  if (command.usesCom) com.CoUninitialize();
  exception.End();
}

template <class Action, class... Args>
bool AddAction(IGActionList* list, Args&&... args) {
  return list->Add(new (std::nothrow) Action(static_cast<Args&&>(args)...)) == 0;
}

bool BuildEnableNdis(IGActionList* list, DriverLogFn log) {
  return AddAction<IGRegisterNetComponent>(list, NdisDriverService,
                                           platform::kGuidDevClassNetService, log) &&
         AddAction<IGEnableDriver>(list, NdisDriverService, kStartTypeSystem, log);
}

bool BuildEnableWfp(IGActionList* list, DriverLogFn log) {
  // The callout driver must be loaded no later than the TCP/IP driver it attaches to.
  return AddAction<IGEnableDriver>(list, WfpDriverService, GetTcpipStartType(), log);
}

bool BuildDisableNdis(IGActionList* list, DriverLogFn log) {
  return AddAction<IGUnregisterNetComponent>(list, NdisDriverService,
                                             platform::kGuidDevClassNetService, log) &&
         AddAction<IGDisableDriver>(list, NdisDriverService, log) &&
         AddAction<IGStopDriver>(list, NdisDriverService, log);
}

bool BuildDisableWfp(IGActionList* list, DriverLogFn log) {
  return AddAction<IGDisableDriver>(list, WfpDriverService, log);
}

}  // namespace

void EnableNdisDriver(DriverLogFn log) {
  RunDriverCommand({NdisDriverService, true, true}, BuildEnableNdis, log);
}

void EnableWfpDriver(DriverLogFn log) {
  RunDriverCommand({WfpDriverService, false, true}, BuildEnableWfp, log);
}

void DisableNdisDriver(DriverLogFn log) {
  // No lock is lifted here: the start-type change and the stop lift and restore it themselves.
  RunDriverCommand({NdisDriverService, true, false}, BuildDisableNdis, log);
}

void DisableWfpDriver(DriverLogFn log) {
  RunDriverCommand({WfpDriverService, false, true}, BuildDisableWfp, log);
}

uint32_t GetTcpipStartType() {
  uint32_t startType = 0;
  ReadRegistryDword(ServiceKey(L"tcpip", kServiceKeyRead), L"Start", &startType);
  // Before Windows 7 the transport's entry point was tdx, so its start type decides.
  constexpr int32_t kWindows7 = 6100;
  if (GetOsVersionNumber() < kWindows7) {
    ReadRegistryDword(ServiceKey(L"tdx", kServiceKeyRead), L"Start", &startType);
  }
  return startType;
}

namespace {

bool osVersionKnown = false;
int32_t osVersionNumber = 0;

}  // namespace

int32_t GetOsVersionNumber() {
  if (!osVersionKnown) {
    osVersionKnown = true;
    platform::OsVersionInfo info;
    if (platform::TheOsVersion().RtlGetVersion(&info)) {
      osVersionNumber =
          static_cast<int32_t>(((info.major * 10 + info.minor) * 10 + info.servicePackMajor) * 10 +
                               info.servicePackMinor);
    }
  }
  return osVersionNumber;
}

void ResetOsVersionNumberForTesting() {
  osVersionKnown = false;
  osVersionNumber = 0;
}

}  // namespace nw
