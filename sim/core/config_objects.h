#pragma once

// The core's global configuration as the simulated core hands it out: a snapshot that Refresh
// fills from the scenario, and a builder whose Apply saves its settings into the scenario.

#include <memory>
#include <optional>
#include <string>

#include "core/interfaces.h"
#include "sim/common/sim_object.h"
#include "sim/core/core_objects.h"

namespace nw::sim {

class GlobalConfigAndStateInfo final : public SimObject<IGlobalConfigAndStateInfo, CoreState> {
 public:
  explicit GlobalConfigAndStateInfo(std::shared_ptr<CoreState> state)
      : SimObject(std::move(state), "IGlobalConfigAndStateInfo") {}

  Status Refresh() override;
  int32_t GetMaxKernelLogQueueSize() override;
  int32_t GetMaxPointProductReplyTime() override;
  bool GetPassthruMode(int32_t hookType) override;
  bool GetGlobalPassthruMode() override;
  bool IsHookConnected(int32_t policyType) override;
  uint32_t GetTraceLogMask() override;
  bool IsTrafficLogEnabled() override;
  int32_t GetMaxTrafficLogSize() override;
  int32_t GetMaxStateTableSize() override;
  int32_t GetStateTableGcPeriod() override;
  int32_t GetStateTableTcpTimeout() override;
  int32_t GetStateTableUdpTimeout() override;
  int32_t GetStateTableForcedTcpTimeout() override;
  const wchar_t* GetServiceBuildVersion() override;
  const wchar_t* GetEngineBuildVersion() override;
  const wchar_t* GetControlDllBuildVersion() override;
  int32_t GetLogThrottle() override;
  bool GetTrackForwardedConnections() override;
  int32_t GetStateTableTcpConnRemovalTimeOut() override;
  int32_t GetConnectionThrottleBurstThreshold() override;
  int32_t GetConnectionThrottleMaxConnectionsRate() override;

 private:
  // Until Refresh succeeds the snapshot is empty: zeros, nothing connected, no versions.
  GlobalSettings settings_ = Empty();
  HookState hooks_{false, false, false, false};
  CoreVersions versions_{std::nullopt, std::nullopt, std::nullopt};

  static GlobalSettings Empty();
  /// A version as the getter hands it out: owned by this object, null when there is none.
  static const wchar_t* Text(const std::optional<std::wstring>& version);
};

class GlobalConfigBuilder final : public SimObject<IGlobalConfigBuilder, CoreState> {
 public:
  /// A new builder holds the core's defaults until Refresh loads the current settings.
  explicit GlobalConfigBuilder(std::shared_ptr<CoreState> state)
      : SimObject(std::move(state), "IGlobalConfigBuilder") {}

  Status Refresh() override;
  Status ResetToDefaults() override;
  Status Apply() override;
  Status SetMaxKernelLogQueueSize(int32_t bytes) override;
  Status SetMaxPointProductReplyTime(int32_t seconds) override;
  Status SetPassthruMode(bool enable, int32_t hookType) override;
  Status SetGlobalPassthruMode(bool enable) override;
  Status SetTraceLogMask(uint32_t mask) override;
  Status EnableTrafficLog(bool enable, bool second) override;
  Status SetMaxTrafficLogSize(int32_t bytes) override;
  Status SetStateTableGcPeriod(int32_t seconds) override;
  Status SetStateTableTcpTimeout(int32_t seconds) override;
  Status SetStateTableUdpTimeout(int32_t seconds) override;
  Status SetStateTableForcedTcpTimeout(uint32_t seconds) override;
  Status SetLogThrottle(int32_t microseconds) override;
  Status SetTrackForwardedConnections(bool track) override;
  Status SetMaxStateTableSize(int32_t connections) override;
  Status SetStateTableTcpConnRemovalTimeOut(int32_t seconds) override;
  Status SetConnectionThrottleBurstThreshold(int32_t connections) override;
  Status SetConnectionThrottleMaxConnectionsRate(int32_t connectionsPerSecond) override;

 private:
  /// Traces the setter's call with its value and records it (see Record).
  template <class Field, class Value>
  Status Set(const char* operation, Field GlobalSettings::*field, Value value);
  /// Records value in field unless the scenario makes the setter fail.
  template <class Field, class Value>
  Status Record(const char* operation, Field GlobalSettings::*field, Value value);

  GlobalSettings settings_;
};

}  // namespace nw::sim
