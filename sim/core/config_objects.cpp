#include "sim/core/config_objects.h"

namespace nw::sim {

// ---- Snapshot -----------------------------------------------------------------------------

GlobalSettings GlobalConfigAndStateInfo::Empty() {
  return {0, 0, false, false, false, 0, false, 0, 0, 0, 0, 0, 0, 0, false, 0, 0, 0};
}

const wchar_t* GlobalConfigAndStateInfo::Text(const std::optional<std::wstring>& version) {
  return version ? version->c_str() : nullptr;
}

Status GlobalConfigAndStateInfo::Refresh() {
  Call("Refresh");
  if (auto fault = Fault("Refresh")) return Traced("Refresh", *fault);
  const Scenario* scenario = state().GetScenario();
  if (scenario == nullptr) return Traced("Refresh", kStatusBadScenario);
  settings_ = scenario->config;
  hooks_ = scenario->hooks;
  versions_ = scenario->versions;
  return Traced("Refresh", kStatusOk);
}

// The getters cannot fail: they only read the snapshot.
int32_t GlobalConfigAndStateInfo::GetMaxKernelLogQueueSize() {
  Call("GetMaxKernelLogQueueSize");
  return static_cast<int32_t>(settings_.maxKernelLogQueueSize);
}
int32_t GlobalConfigAndStateInfo::GetMaxPointProductReplyTime() {
  Call("GetMaxPointProductReplyTime");
  return static_cast<int32_t>(settings_.maxPointProductReplyTime);
}
bool GlobalConfigAndStateInfo::GetPassthruMode(int32_t hookType) {
  Call("GetPassthruMode", hookType);
  if (hookType == 2) return settings_.packetPassthru;
  if (hookType == 4) return settings_.streamPassthru;
  return false;
}
bool GlobalConfigAndStateInfo::GetGlobalPassthruMode() {
  Call("GetGlobalPassthruMode");
  return settings_.globalPassthru;
}
bool GlobalConfigAndStateInfo::IsHookConnected(int32_t policyType) {
  Call("IsHookConnected", policyType);
  switch (policyType) {
    case 1:
      return hooks_.fragment;
    case 2:
      return hooks_.packet;
    case 3:
      return hooks_.forward;
    case 4:
      return hooks_.stream;
    default:
      return false;
  }
}
uint32_t GlobalConfigAndStateInfo::GetTraceLogMask() {
  Call("GetTraceLogMask");
  return settings_.traceLogMask;
}
bool GlobalConfigAndStateInfo::IsTrafficLogEnabled() {
  Call("IsTrafficLogEnabled");
  return settings_.trafficLog;
}
int32_t GlobalConfigAndStateInfo::GetMaxTrafficLogSize() {
  Call("GetMaxTrafficLogSize");
  return static_cast<int32_t>(settings_.maxTrafficLogSize);
}
int32_t GlobalConfigAndStateInfo::GetMaxStateTableSize() {
  Call("GetMaxStateTableSize");
  return static_cast<int32_t>(settings_.maxStateTableSize);
}
int32_t GlobalConfigAndStateInfo::GetStateTableGcPeriod() {
  Call("GetStateTableGcPeriod");
  return static_cast<int32_t>(settings_.stateTableGcPeriod);
}
int32_t GlobalConfigAndStateInfo::GetStateTableTcpTimeout() {
  Call("GetStateTableTcpTimeout");
  return static_cast<int32_t>(settings_.stateTableTcpTimeout);
}
int32_t GlobalConfigAndStateInfo::GetStateTableUdpTimeout() {
  Call("GetStateTableUdpTimeout");
  return static_cast<int32_t>(settings_.stateTableUdpTimeout);
}
int32_t GlobalConfigAndStateInfo::GetStateTableForcedTcpTimeout() {
  Call("GetStateTableForcedTcpTimeout");
  return static_cast<int32_t>(settings_.stateTableForcedTcpTimeout);
}
const wchar_t* GlobalConfigAndStateInfo::GetServiceBuildVersion() {
  Call("GetServiceBuildVersion");
  return Text(versions_.service);
}
const wchar_t* GlobalConfigAndStateInfo::GetEngineBuildVersion() {
  Call("GetEngineBuildVersion");
  return Text(versions_.engine);
}
const wchar_t* GlobalConfigAndStateInfo::GetControlDllBuildVersion() {
  Call("GetControlDllBuildVersion");
  return Text(versions_.controlLibrary);
}
int32_t GlobalConfigAndStateInfo::GetLogThrottle() {
  Call("GetLogThrottle");
  return static_cast<int32_t>(settings_.logThrottle);
}
bool GlobalConfigAndStateInfo::GetTrackForwardedConnections() {
  Call("GetTrackForwardedConnections");
  return settings_.trackForwardedConnections;
}
int32_t GlobalConfigAndStateInfo::GetStateTableTcpConnRemovalTimeOut() {
  Call("GetStateTableTcpConnRemovalTimeOut");
  return static_cast<int32_t>(settings_.stateTableTcpConnRemovalTimeout);
}
int32_t GlobalConfigAndStateInfo::GetConnectionThrottleBurstThreshold() {
  Call("GetConnectionThrottleBurstThreshold");
  return static_cast<int32_t>(settings_.connectionThrottleBurstThreshold);
}
int32_t GlobalConfigAndStateInfo::GetConnectionThrottleMaxConnectionsRate() {
  Call("GetConnectionThrottleMaxConnectionsRate");
  return static_cast<int32_t>(settings_.connectionThrottleMaxConnectionsRate);
}

// ---- Builder ------------------------------------------------------------------------------

template <class Field, class Value>
Status GlobalConfigBuilder::Set(const char* operation, Field GlobalSettings::*field, Value value) {
  Call(operation, value);
  return Record(operation, field, value);
}

template <class Field, class Value>
Status GlobalConfigBuilder::Record(const char* operation, Field GlobalSettings::*field,
                                   Value value) {
  if (auto fault = Fault(operation)) return Traced(operation, *fault);
  settings_.*field = static_cast<Field>(value);
  return Traced(operation, kStatusOk);
}

Status GlobalConfigBuilder::Refresh() {
  Call("Refresh");
  if (auto fault = Fault("Refresh")) return Traced("Refresh", *fault);
  const Scenario* scenario = state().GetScenario();
  if (scenario == nullptr) return Traced("Refresh", kStatusBadScenario);
  settings_ = scenario->config;
  return Traced("Refresh", kStatusOk);
}

Status GlobalConfigBuilder::ResetToDefaults() {
  Call("ResetToDefaults");
  if (auto fault = Fault("ResetToDefaults")) return Traced("ResetToDefaults", *fault);
  settings_ = GlobalSettings{};
  return Traced("ResetToDefaults", kStatusOk);
}

Status GlobalConfigBuilder::Apply() {
  Call("Apply");
  if (auto fault = Fault("Apply")) return Traced("Apply", *fault);
  const GlobalSettings settings = settings_;
  return Traced("Apply", state().UpdateScenario([&settings](Scenario& scenario) {
    scenario.config = settings;
    scenario.document["config"] = GlobalSettingsToJson(settings);
  }));
}

Status GlobalConfigBuilder::SetMaxKernelLogQueueSize(int32_t bytes) {
  return Set("SetMaxKernelLogQueueSize", &GlobalSettings::maxKernelLogQueueSize, bytes);
}
Status GlobalConfigBuilder::SetMaxPointProductReplyTime(int32_t seconds) {
  return Set("SetMaxPointProductReplyTime", &GlobalSettings::maxPointProductReplyTime, seconds);
}
Status GlobalConfigBuilder::SetPassthruMode(bool enable, int32_t hookType) {
  Call("SetPassthruMode", enable, hookType);
  if (hookType == 2) return Record("SetPassthruMode", &GlobalSettings::packetPassthru, enable);
  if (hookType == 4) return Record("SetPassthruMode", &GlobalSettings::streamPassthru, enable);
  // Only packet and stream hooks have a pass-through mode.
  if (auto fault = Fault("SetPassthruMode")) return Traced("SetPassthruMode", *fault);
  return Traced("SetPassthruMode", kStatusInvalidArg);
}
Status GlobalConfigBuilder::SetGlobalPassthruMode(bool enable) {
  return Set("SetGlobalPassthruMode", &GlobalSettings::globalPassthru, enable);
}
Status GlobalConfigBuilder::SetTraceLogMask(uint32_t mask) {
  return Set("SetTraceLogMask", &GlobalSettings::traceLogMask, mask);
}
// The second argument is recorded nowhere: the scenario has no setting it stands for.
Status GlobalConfigBuilder::EnableTrafficLog(bool enable, bool second) {
  Call("EnableTrafficLog", enable, second);
  return Record("EnableTrafficLog", &GlobalSettings::trafficLog, enable);
}
Status GlobalConfigBuilder::SetMaxTrafficLogSize(int32_t bytes) {
  return Set("SetMaxTrafficLogSize", &GlobalSettings::maxTrafficLogSize, bytes);
}
Status GlobalConfigBuilder::SetStateTableGcPeriod(int32_t seconds) {
  return Set("SetStateTableGcPeriod", &GlobalSettings::stateTableGcPeriod, seconds);
}
Status GlobalConfigBuilder::SetStateTableTcpTimeout(int32_t seconds) {
  return Set("SetStateTableTcpTimeout", &GlobalSettings::stateTableTcpTimeout, seconds);
}
Status GlobalConfigBuilder::SetStateTableUdpTimeout(int32_t seconds) {
  return Set("SetStateTableUdpTimeout", &GlobalSettings::stateTableUdpTimeout, seconds);
}
Status GlobalConfigBuilder::SetStateTableForcedTcpTimeout(uint32_t seconds) {
  return Set("SetStateTableForcedTcpTimeout", &GlobalSettings::stateTableForcedTcpTimeout, seconds);
}
Status GlobalConfigBuilder::SetLogThrottle(int32_t microseconds) {
  return Set("SetLogThrottle", &GlobalSettings::logThrottle, microseconds);
}
Status GlobalConfigBuilder::SetTrackForwardedConnections(bool track) {
  return Set("SetTrackForwardedConnections", &GlobalSettings::trackForwardedConnections, track);
}
Status GlobalConfigBuilder::SetMaxStateTableSize(int32_t connections) {
  return Set("SetMaxStateTableSize", &GlobalSettings::maxStateTableSize, connections);
}
Status GlobalConfigBuilder::SetStateTableTcpConnRemovalTimeOut(int32_t seconds) {
  return Set("SetStateTableTcpConnRemovalTimeOut", &GlobalSettings::stateTableTcpConnRemovalTimeout,
             seconds);
}
Status GlobalConfigBuilder::SetConnectionThrottleBurstThreshold(int32_t connections) {
  return Set("SetConnectionThrottleBurstThreshold",
             &GlobalSettings::connectionThrottleBurstThreshold, connections);
}
Status GlobalConfigBuilder::SetConnectionThrottleMaxConnectionsRate(int32_t connectionsPerSecond) {
  return Set("SetConnectionThrottleMaxConnectionsRate",
             &GlobalSettings::connectionThrottleMaxConnectionsRate, connectionsPerSecond);
}

}  // namespace nw::sim
