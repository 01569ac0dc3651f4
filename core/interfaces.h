#pragma once

// The core's interfaces as the control library hands them out. Each is a table of operations
// whose slot order is the calling contract with the core: a virtual function is declared in its
// slot and nowhere else. Slots this program never calls are declared as Unused<N> so that every
// later slot keeps its place. No interface has a virtual destructor: objects are destroyed by
// the library when Release drops the last reference.

#include <cstdint>

#include "core/guid.h"
#include "core/status.h"

namespace nw {

class IControl;
class IPolicyManager;
class IHighPriorityIpListControl;
class IIpConfig;
class IGlobalConfigBuilder;
class IGlobalConfigAndStateInfo;
class IConnectionTable;
class IOpenedEndpointTable;
class IActiveProcesses;

/// The point-product registration interface ("VantorRegisterPointProduct3").
class IRegisterPointProduct {
 public:
  virtual Status Unused0() = 0;
  /// Drops the caller's reference; the result is not used.
  virtual uint32_t Release() = 0;
  /// Registers pointProductId and hands out the interface interfaceId (IControl).
  virtual Status Register(IControl** control, const Guid* interfaceId,
                          const Guid* pointProductId) = 0;
  /// Ends the registration of pointProductId; reserved is always 0.
  virtual Status Unregister(const Guid* pointProductId, uint64_t reserved) = 0;

 protected:
  ~IRegisterPointProduct() = default;
};

/// The core's control interface. Every getter hands out a new object the caller releases.
class IControl {
 public:
  virtual Status Unused0() = 0;
  virtual uint32_t Release() = 0;
  virtual Status GetPolicyManager(IPolicyManager** out, const Guid* interfaceId) = 0;
  virtual Status Unused3() = 0;
  virtual Status Unused4() = 0;
  virtual Status Unused5() = 0;
  virtual Status Unused6() = 0;
  virtual Status GetIpConfigChanged(IIpConfig** out, const Guid* interfaceId) = 0;
  virtual Status Unused8() = 0;
  virtual Status GetHighPriorityIpListControl(IHighPriorityIpListControl** out,
                                              const Guid* interfaceId) = 0;
  virtual Status GetGlobalConfigBuilder(IGlobalConfigBuilder** out, const Guid* interfaceId) = 0;
  virtual Status GetGlobalConfigAndStateInfo(IGlobalConfigAndStateInfo** out,
                                             const Guid* interfaceId) = 0;
  virtual Status GetConnectionTable(IConnectionTable** out, const Guid* interfaceId) = 0;
  virtual Status GetOpenedEndpointTable(IOpenedEndpointTable** out, const Guid* interfaceId) = 0;
  virtual Status GetActiveProcesses(IActiveProcesses** out, const Guid* interfaceId) = 0;

 protected:
  ~IControl() = default;
};

/// The policy manager. Its policy operations follow Release in slot order as the views need them.
class IPolicyManager {
 public:
  virtual Status Unused0() = 0;
  virtual uint32_t Release() = 0;

 protected:
  ~IPolicyManager() = default;
};

/// The high-priority IP list (blacklist) control. Its list operations follow Release.
class IHighPriorityIpListControl {
 public:
  virtual Status Unused0() = 0;
  virtual uint32_t Release() = 0;

 protected:
  ~IHighPriorityIpListControl() = default;
};

/// A snapshot of the core's global configuration and state. Refresh fills it; the getters read
/// the snapshot and cannot fail. The version strings belong to the object and stay valid until
/// its Release.
class IGlobalConfigAndStateInfo {
 public:
  virtual Status Unused0() = 0;
  virtual uint32_t Release() = 0;
  /// Loads the current configuration and state from the core; 0 on success.
  virtual Status Refresh() = 0;
  /// Bytes.
  virtual int32_t GetMaxKernelLogQueueSize() = 0;
  /// Seconds.
  virtual int32_t GetMaxPointProductReplyTime() = 0;
  /// hookType: FW_POLICY_TYPE_PACKET (2) or FW_POLICY_TYPE_STREAM (4).
  virtual bool GetPassthruMode(int32_t hookType) = 0;
  virtual bool GetGlobalPassthruMode() = 0;
  /// policyType: 1 to 4.
  virtual bool IsHookConnected(int32_t policyType) = 0;
  virtual uint32_t GetTraceLogMask() = 0;
  virtual bool IsTrafficLogEnabled() = 0;
  /// Bytes.
  virtual int32_t GetMaxTrafficLogSize() = 0;
  /// Connections.
  virtual int32_t GetMaxStateTableSize() = 0;
  /// Seconds, like the three timeouts that follow.
  virtual int32_t GetStateTableGcPeriod() = 0;
  virtual int32_t GetStateTableTcpTimeout() = 0;
  virtual int32_t GetStateTableUdpTimeout() = 0;
  virtual int32_t GetStateTableForcedTcpTimeout() = 0;
  /// Each may be null.
  virtual const wchar_t* GetServiceBuildVersion() = 0;
  virtual const wchar_t* GetEngineBuildVersion() = 0;
  virtual const wchar_t* GetControlDllBuildVersion() = 0;
  /// Microseconds.
  virtual int32_t GetLogThrottle() = 0;
  virtual bool GetTrackForwardedConnections() = 0;
  /// Seconds.
  virtual int32_t GetStateTableTcpConnRemovalTimeOut() = 0;
  /// Connections.
  virtual int32_t GetConnectionThrottleBurstThreshold() = 0;
  /// Connections per second.
  virtual int32_t GetConnectionThrottleMaxConnectionsRate() = 0;

 protected:
  ~IGlobalConfigAndStateInfo() = default;
};

/// Collects global settings and hands them to the core in one Apply. A setter only records its
/// value; nothing reaches the core before Apply. Every status is 0 on success.
class IGlobalConfigBuilder {
 public:
  virtual Status Unused0() = 0;
  virtual uint32_t Release() = 0;
  /// Loads the core's current global settings into the builder.
  virtual Status Refresh() = 0;
  /// Sets every global setting in the builder to the core's default.
  virtual Status ResetToDefaults() = 0;
  /// Hands the builder's settings to the core.
  virtual Status Apply() = 0;
  virtual Status SetMaxKernelLogQueueSize(int32_t bytes) = 0;
  virtual Status SetMaxPointProductReplyTime(int32_t seconds) = 0;
  /// hookType: FW_POLICY_TYPE_STREAM (4) or FW_POLICY_TYPE_PACKET (2).
  virtual Status SetPassthruMode(bool enable, int32_t hookType) = 0;
  virtual Status SetGlobalPassthruMode(bool enable) = 0;
  virtual Status SetTraceLogMask(uint32_t mask) = 0;
  /// The program always passes true as the second argument.
  virtual Status EnableTrafficLog(bool enable, bool second) = 0;
  virtual Status SetMaxTrafficLogSize(int32_t bytes) = 0;
  virtual Status SetStateTableGcPeriod(int32_t seconds) = 0;
  virtual Status SetStateTableTcpTimeout(int32_t seconds) = 0;
  virtual Status SetStateTableUdpTimeout(int32_t seconds) = 0;
  virtual Status SetStateTableForcedTcpTimeout(uint32_t seconds) = 0;
  virtual Status SetLogThrottle(int32_t microseconds) = 0;
  virtual Status SetTrackForwardedConnections(bool track) = 0;
  virtual Status SetMaxStateTableSize(int32_t connections) = 0;
  virtual Status SetStateTableTcpConnRemovalTimeOut(int32_t seconds) = 0;
  virtual Status SetConnectionThrottleBurstThreshold(int32_t connections) = 0;
  virtual Status SetConnectionThrottleMaxConnectionsRate(int32_t connectionsPerSecond) = 0;

 protected:
  ~IGlobalConfigBuilder() = default;
};

class IDriverLink;

/// The driver-link connector ("DrvLinkConnectAsync", "DrvLinkConnect").
class IDriverLinkConnector {
 public:
  virtual Status Unused0() = 0;
  virtual uint32_t Release() = 0;
  virtual Status Unused2() = 0;
  /// Connects to the kernel driver whose file name is driverName.
  virtual Status ConnectToContentDriver(const wchar_t* driverName, IDriverLink** link) = 0;

 protected:
  ~IDriverLinkConnector() = default;
};

/// A connection to the firewall's kernel driver.
class IDriverLink {
 public:
  virtual Status Unused0() = 0;
  virtual uint32_t Release() = 0;
  virtual Status Unused2() = 0;
  /// Sends request code with its buffers; bytesReturned may be null.
  virtual Status SendControlRequest(uint32_t code, const void* input, uint32_t inputSize,
                                    void* output, uint32_t outputSize, uint32_t* bytesReturned) = 0;

 protected:
  ~IDriverLink() = default;
};

/// Request code 68: re-evaluate which network drivers the current policies require.
inline constexpr uint32_t FW_IOCTL_EVALUATE_NET_DRIVER_REQUIREMENTS = 68;

// The kernel driver's built-in profiler: start, stop (no input, no output), and read its
// counters (a reply buffer: a 32-byte header announcing the data's size, then the data).
inline constexpr uint32_t kDriverRequestStartProfiling = 63;
inline constexpr uint32_t kDriverRequestStopProfiling = 64;
inline constexpr uint32_t kDriverRequestReadProfile = 65;

/// The library-side exports every product library provides.
using NotComDllGetInterfaceFn = Status (*)(const char* interfaceName, void** out);
using NotComDllUnloadFn = Status (*)();

}  // namespace nw
