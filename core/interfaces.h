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

/// The library-side exports every product library provides.
using NotComDllGetInterfaceFn = Status (*)(const char* interfaceName, void** out);
using NotComDllUnloadFn = Status (*)();

}  // namespace nw
