#pragma once

// The core's interfaces as the control library hands them out. Each is a table of operations
// whose slot order is the calling contract with the core: a virtual function is declared in its
// slot and nowhere else. Slots this program never calls are declared as Unused<N> so that every
// later slot keeps its place. No interface has a virtual destructor: objects are destroyed by
// the library when Release drops the last reference.

#include <cstdint>

#include "core/guid.h"
#include "core/ip_address.h"
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

// ---- The policy model ---------------------------------------------------------------------
// A policy has aggregate matches, a default group and further groups; groups hold rules, and
// rules and aggregate matches hold matches, each a type and one or more terms. Only the policy
// manager, a policy and a list of identifiers are counted objects. Groups, rules, aggregate
// matches, matches and their terms belong to the policy that handed them out and stay valid
// until its last Release; they have no Release of their own.

class IPolicyBuilder;
class IRuleBuilder;
class IAggregateMatchBuilder;
class IGuidList;
class IPolicy;
class IPolicyGroup;
class IRule;
class IAggregateMatch;
class IMatch;
class IMatchTerms;

/// The policy manager: finds the core's policies and changes them.
class IPolicyManager {
 public:
  virtual Status Unused0() = 0;
  virtual uint32_t Release() = 0;
  /// A new policy builder for AddPolicy.
  virtual Status GetPolicyBuilder(IPolicyBuilder** out) = 0;
  virtual Status GetRuleBuilder(IRuleBuilder** out) = 0;
  virtual Status GetAggregateMatchBuilder(IAggregateMatchBuilder** out) = 0;
  /// A new policy object for policyId, its walks at their start; the caller releases it.
  virtual Status GetExistingPolicy(IPolicy** out, const Guid* policyId) = 0;
  /// The identifiers of the policies of policyType (FW_POLICY_TYPE), in the core's order.
  virtual Status GetExistingPolicyList(IGuidList** out, int32_t policyType) = 0;
  /// Adds the policy the builder holds. The two out values are the core's; the program passes
  /// places for them and does not read them.
  virtual Status AddPolicy(IPolicyBuilder* builder, void* unusedOut1, void* unusedOut2) = 0;
  virtual Status DeletePolicy(const Guid* policyId) = 0;

 protected:
  ~IPolicyManager() = default;
};

/// A list of policy identifiers.
class IGuidList {
 public:
  virtual Status Unused0() = 0;
  virtual uint32_t Release() = 0;
  /// GetCount() identifiers, contiguous.
  virtual const Guid* GetGuids() = 0;
  virtual uint64_t GetCount() = 0;

 protected:
  ~IGuidList() = default;
};

/// Iteration modes of IPolicy::SetIterationMode.
inline constexpr int32_t kIterateLinear = 0;
inline constexpr int32_t kIterateTakingJumps = 1;

/// One policy with its walk cursors: aggregate matches, groups, rules (in the current group, or
/// along the evaluation path in take-jumps mode) and matches (of the current rule, or of the
/// aggregate match that is current or entered). Getters that hand out objects answer null at
/// the end of their walk.
class IPolicy {
 public:
  virtual Status Unused0() = 0;
  virtual uint32_t Release() = 0;
  /// kIterateLinear or kIterateTakingJumps: the order of the walk that follows.
  virtual Status SetIterationMode(int32_t mode) = 0;
  /// The aggregate match EnterAggregateMatch made current.
  virtual IAggregateMatch* GetCurrentAggregateMatch() = 0;
  /// The next aggregate match, made current for GetNextMatch.
  virtual IAggregateMatch* GetNextAggregateMatch() = 0;
  /// match is a match of the current rule whose type is an aggregate reference; reserved is
  /// null. Makes the referenced aggregate match current for GetNextMatch.
  virtual Status EnterAggregateMatch(IMatch* match, void* reserved) = 0;
  virtual Status Unused6() = 0;
  /// Returns GetNextMatch to the rule that EnterAggregateMatch left.
  virtual Status LeaveAggregateMatch() = 0;
  /// Take-jumps protocol: called once before the first GetNextRuleTakingJumps and after each
  /// one whose jump indication is 0 or 1.
  virtual Status AdvanceIteration() = 0;
  /// The default group first, then the further groups; null at the end.
  virtual IPolicyGroup* GetNextGroup() = 0;
  virtual Status Unused10() = 0;
  virtual IMatch* GetNextMatch() = 0;
  virtual Status Unused12() = 0;
  /// The next rule along the evaluation path, and in *jumpIndication how it was reached.
  virtual IRule* GetNextRuleTakingJumps(uint32_t* jumpIndication) = 0;
  /// The next rule of the current group.
  virtual IRule* GetNextRule() = 0;
  virtual Status Unused15() = 0;
  virtual bool IsStateful() = 0;
  virtual bool IsSticky() = 0;
  virtual bool IsBootTimeOnly() = 0;
  /// Possibly zero-length, never null.
  virtual const wchar_t* GetName() = 0;
  /// FW_ACTION.
  virtual int32_t GetDefaultAction() = 0;
  /// FW_LOG_OPTION.
  virtual int32_t GetDefaultLogOption() = 0;
  virtual Status Unused22() = 0;
  /// The point product that owns the policy.
  virtual const Guid* GetPointProductUid() = 0;
  /// FW_POLICY_TYPE.
  virtual int32_t GetPolicyType() = 0;

 protected:
  ~IPolicy() = default;
};

class IPolicyGroup {
 public:
  virtual const Guid* GetUid() = 0;

 protected:
  ~IPolicyGroup() = default;
};

class IRule {
 public:
  /// FW_ACTION.
  virtual int32_t GetAction() = 0;
  virtual Status Unused1() = 0;
  /// The jump's target group (action 9) or the plug-in (action 10).
  virtual const Guid* GetTargetUid() = 0;
  virtual Status Unused3() = 0;
  virtual const Guid* GetUid() = 0;
  /// FW_LOG_OPTION.
  virtual int32_t GetLogOption() = 0;
  virtual bool GetHotDropIfNotMatch() = 0;
  virtual bool IsEnabled() = 0;
  virtual bool GetInvertMatch() = 0;
  /// Possibly zero-length, never null.
  virtual const wchar_t* GetName() = 0;
  virtual Status Unused10() = 0;
  virtual bool IsTeredoRule() = 0;
  virtual bool IsTeredoAwareApp() = 0;
  /// Where action 3 redirects to.
  virtual const IpAddress* GetRedirectAddress() = 0;
  virtual uint16_t GetRedirectPort() = 0;
  virtual int64_t GetRedirectValue() = 0;
  /// 0xFFFFFFFF: no throttle.
  virtual uint32_t GetLogThrottle() = 0;

 protected:
  ~IRule() = default;
};

/// A named set of matches that rules reference through a match of aggregate type.
class IAggregateMatch {
 public:
  virtual const Guid* GetUid() = 0;
  /// Possibly zero-length, never null.
  virtual const wchar_t* GetName() = 0;
  /// True when the member matches are combined with OR.
  virtual bool IsOrOperator() = 0;

 protected:
  ~IAggregateMatch() = default;
};

class IMatch {
 public:
  /// FW_MATCH, or 0x10000 and above for a reference to an aggregate match.
  virtual int32_t GetType() = 0;
  virtual IMatchTerms* GetTerms() = 0;

 protected:
  ~IMatch() = default;
};

/// GetIpAddressMatchType's answers.
enum : int32_t {
  kIpAddressSingle = 1,
  kIpAddressRange = 2,
  kIpAddressPrefix = 3,
  kIpAddressDomainName = 4,
};

/// The terms of one match, by zero-based index. A getter returns 0 and its value, or a failure
/// status; the pointers it delivers point into the match's own memory.
class IMatchTerms {
 public:
  virtual Status Unused0() = 0;
  virtual uint32_t GetCount() = 0;
  /// FW_MATCH_OP.
  virtual int32_t GetOperator(uint32_t index) = 0;
  virtual Status GetUint8(uint32_t index, uint8_t* value) = 0;
  virtual Status GetUint16(uint32_t index, uint16_t* value) = 0;
  /// Directions, connection states and physical media.
  virtual Status GetUint32(uint32_t index, uint32_t* value) = 0;
  virtual Status GetUint64(uint32_t index, uint64_t* value) = 0;
  virtual Status GetUint16Range(uint32_t index, uint16_t* low, uint16_t* high) = 0;
  virtual Status Unused8() = 0;
  virtual Status GetUint64Range(uint32_t index, uint64_t* low, uint64_t* high) = 0;
  /// *count bytes at *bytes.
  virtual Status GetUint8Array(uint32_t index, const uint8_t** bytes, uint32_t* count) = 0;
  /// The aggregate match a reference points to.
  virtual Status GetAggregateUid(uint32_t index, const Guid** uid) = 0;
  /// *length is the core's count of the characters at *text.
  virtual Status GetString(uint32_t index, const wchar_t** text, uint32_t* length) = 0;
  virtual Status GetIpAddress(uint32_t index, const IpAddress** address) = 0;
  virtual Status GetIpAddressRange(uint32_t index, const IpAddress** low,
                                   const IpAddress** high) = 0;
  /// The prefix length of an address-with-prefix term.
  virtual Status GetIpMask(uint32_t index, const uint8_t** prefixLength) = 0;
  /// Which form an address term has: kIpAddressSingle ... kIpAddressDomainName.
  virtual int32_t GetIpAddressMatchType(uint32_t index) = 0;

 protected:
  ~IMatchTerms() = default;
};

// ---- Building policies ----------------------------------------------------------------------
// The policy manager hands out a policy builder, a rule builder and aggregate match builders;
// rules and aggregate matches get their matches through a match builder that belongs to them.
// A builder is reused: Reset starts the next policy or rule.

class IMatchBuilder;

class IPolicyBuilder {
 public:
  virtual Status Unused0() = 0;
  virtual uint32_t Release() = 0;
  virtual Status Reset() = 0;
  virtual Status SetStickyAndBootTime(bool sticky, bool bootTimeOnly) = 0;
  virtual Status SetStateful(bool stateful) = 0;
  /// Starts the policy policyId of policyType (FW_POLICY_TYPE) with its default group.
  virtual Status Create(const Guid* policyId, int32_t policyType) = 0;
  virtual Status SetName(const wchar_t* name) = 0;
  /// Adds a further group.
  virtual Status AddGroup(const Guid* groupId) = 0;
  /// Adds the aggregate match the builder holds under aggregateId.
  virtual Status AddAggregateMatch(const Guid* aggregateId, IAggregateMatchBuilder* builder) = 0;
  virtual Status Unused9() = 0;
  /// Adds the rule the builder holds to the group groupId (the policy's own identifier names
  /// the default group).
  virtual Status AddRuleToGroup(const Guid* groupId, IRuleBuilder* builder) = 0;
  virtual Status Unused11() = 0;
  virtual Status Unused12() = 0;
  virtual Status Unused13() = 0;
  /// FW_ACTION and FW_LOG_OPTION.
  virtual Status SetDefaultAction(int32_t action, int32_t logOption) = 0;

 protected:
  ~IPolicyBuilder() = default;
};

class IRuleBuilder {
 public:
  virtual Status Unused0() = 0;
  virtual uint32_t Release() = 0;
  virtual Status Reset() = 0;
  virtual Status Create(const Guid* ruleId) = 0;
  virtual Status SetEnabled(bool enabled) = 0;
  /// Any action but a redirect: FW_ACTION, the jump or plug-in target, the block-host length.
  virtual Status SetAction(int32_t action, const Guid* target, uint32_t length) = 0;
  virtual Status SetRedirectAction(const IpAddress* address, uint16_t port, int64_t value) = 0;
  virtual Status SetLogOption(int32_t logOption) = 0;
  virtual Status SetHotDropIfNotMatch(bool hotDrop) = 0;
  virtual Status SetInvertMatch(bool invert) = 0;
  virtual Status SetName(const wchar_t* name) = 0;
  /// The rule's match builder, owned by the rule builder; null when it has none.
  virtual IMatchBuilder* GetMatchBuilder() = 0;
  virtual Status SetTeredoRule(bool teredo, bool teredoAwareApp) = 0;
  virtual Status Unused13() = 0;
  virtual Status SetLogThrottle(uint32_t throttle) = 0;

 protected:
  ~IRuleBuilder() = default;
};

class IAggregateMatchBuilder {
 public:
  virtual Status Unused0() = 0;
  virtual uint32_t Release() = 0;
  /// True: the member matches are combined with OR.
  virtual Status SetBoolOp(bool orOperator) = 0;
  virtual Status SetFriendlyName(const wchar_t* name) = 0;
  /// The aggregate's match builder, owned by it; null when it has none.
  virtual IMatchBuilder* GetMatchBuilder() = 0;

 protected:
  ~IAggregateMatchBuilder() = default;
};

/// Which end of a connection an address, port or adapter term names.
enum : int32_t {
  kEndpointLocal = 1,
  kEndpointRemote = 2,
  kEndpointSource = 3,
  kEndpointDestination = 4,
};

/// Adds one match (of one term) to the rule or aggregate match it belongs to. Every operation
/// takes the operator (FW_MATCH_OP) last. Texts come with their length without terminator;
/// ports in network byte order. The core names no order for these operations; this is ours,
/// the order of the match types.
class IMatchBuilder {
 public:
  virtual Status AddUserIDMatch(const wchar_t* text, uint32_t length, int32_t op) = 0;
  virtual Status AddAppPathMatch(const wchar_t* text, uint32_t length, int32_t op) = 0;
  virtual Status AddCommandLineParamsMatch(const wchar_t* text, uint32_t length, int32_t op) = 0;
  virtual Status AddHashSumMatch(const uint8_t* bytes, uint32_t count, int32_t op) = 0;
  /// caseSensitive: 1 for FW_MATCH_APP_DIGITAL_SIGNER, 0 for its case-insensitive twin.
  virtual Status AddAppDigitalSignerMatch(const wchar_t* text, uint32_t length,
                                          int32_t caseSensitive, int32_t op) = 0;
  virtual Status AddLocalPortMatch(int32_t end, uint16_t port, int32_t op) = 0;
  virtual Status AddLocalPortRangeMatch(int32_t end, uint16_t low, uint16_t high, int32_t op) = 0;
  virtual Status AddIcmpV4TypeMatch(uint8_t type, int32_t op) = 0;
  virtual Status AddIcmpV6TypeMatch(uint8_t type, int32_t op) = 0;
  virtual Status AddTcpFlagsMatch(uint8_t flags, int32_t op) = 0;
  virtual Status AddConnectionStateMatch(uint32_t state, int32_t op) = 0;
  virtual Status AddIpProtocolMatch(uint8_t protocol, int32_t op) = 0;
  virtual Status AddLocalIpAddressMatch(int32_t end, const IpAddress* address, int32_t op) = 0;
  virtual Status AddLocalIpAddressRangeMatch(int32_t end, const IpAddress* low,
                                             const IpAddress* high, int32_t op) = 0;
  virtual Status AddLocalIpAddressPrefixMatch(int32_t end, const IpAddress* address,
                                              uint8_t prefixLength, int32_t op) = 0;
  virtual Status AddLocalDomainNameMatch(int32_t end, const wchar_t* name, int32_t op) = 0;
  virtual Status AddNetworkLayerProtocolMatch(uint16_t protocol, int32_t op) = 0;
  /// Eight bytes each.
  virtual Status AddMacAddrMatch(int32_t end, const uint8_t* address, int32_t op) = 0;
  virtual Status AddMacAddrRangeMatch(int32_t end, const uint8_t* low, const uint8_t* high,
                                      int32_t op) = 0;
  virtual Status AddPhysicalMediumMatch(uint32_t medium, int32_t op) = 0;
  virtual Status AddDirectionMatch(uint32_t direction, int32_t op) = 0;
  virtual Status AddInterfaceIndexV6Match(uint32_t index, int32_t op) = 0;
  virtual Status AddInterfaceIndexV6RangeMatch(uint32_t low, uint32_t high, int32_t op) = 0;
  virtual Status AddInterfaceIndexV4Match(uint32_t index, int32_t op) = 0;
  virtual Status AddInterfaceIndexV4RangeMatch(uint32_t low, uint32_t high, int32_t op) = 0;
  virtual Status AddInterfaceIndexMatch(uint64_t index, int32_t op) = 0;
  virtual Status AddInterfaceIndexRangeMatch(uint64_t low, uint64_t high, int32_t op) = 0;
  virtual Status AddConnectionBytesSentMatch(uint64_t bytes, int32_t op) = 0;
  virtual Status AddConnectionBytesReceivedMatch(uint64_t bytes, int32_t op) = 0;
  virtual Status AddConnectionSpecificDnsSuffixMatch(const wchar_t* text, uint32_t length,
                                                     int32_t op) = 0;
  virtual Status AddProcessIdMatch(uint64_t processId, int32_t op) = 0;
  virtual Status AddPeFileDescriptionMatch(const wchar_t* text, uint32_t length, int32_t op) = 0;
  virtual Status AddStandardizedAppPathMatch(const wchar_t* text, uint32_t length, int32_t op) = 0;
  virtual Status AddHttpServerMatch(const wchar_t* text, uint32_t length, int32_t op) = 0;
  virtual Status AddVtpPrivilegesMatch(uint64_t privileges, int32_t op) = 0;
  /// A reference of type matchType (0x10000 and above) to the aggregate match aggregateId.
  virtual Status AddAggregateMatch(const Guid* aggregateId, int32_t matchType, int32_t op) = 0;

 protected:
  ~IMatchBuilder() = default;
};

class IIpRangeList;

/// The high-priority IP list (blacklist) control: one log option for the whole list and the
/// list of address ranges, read as a snapshot or replaced, extended and reduced by a built one.
class IHighPriorityIpListControl {
 public:
  virtual Status Unused0() = 0;
  virtual uint32_t Release() = 0;
  /// The log option (FW_LOG_OPTION) of the list about to be built; the result is not used.
  virtual Status SetLogOption(int32_t logOption) = 0;
  /// The list's log option (FW_LOG_OPTION).
  virtual Status GetExistingLogOption(int32_t* logOption) = 0;
  /// A snapshot of the current ranges; the caller releases it.
  virtual Status GetExistingList(IIpRangeList** out) = 0;
  /// An empty list to fill with ranges for AppendList, DeleteList or SetNewList.
  virtual Status GetListBuilder(IIpRangeList** out) = 0;
  virtual Status AppendList(IIpRangeList* list) = 0;
  virtual Status DeleteList(IIpRangeList* list) = 0;
  virtual Status SetNewList(IIpRangeList* list) = 0;

 protected:
  ~IHighPriorityIpListControl() = default;
};

/// A list of address ranges, addressed by a zero-based index below GetCount. IPv4 ends are bare
/// 32-bit values with the first octet in the lowest byte; IPv6 ends are 16 bytes in network
/// order that belong to the list.
class IIpRangeList {
 public:
  virtual Status Unused0() = 0;
  virtual uint32_t Release() = 0;
  virtual uint64_t GetCount() = 0;
  virtual Status AddIpV4Range(uint32_t low, uint32_t high, uint32_t timeToLive) = 0;
  virtual Status AddIpV6Range(const uint8_t* low, const uint8_t* high, uint32_t timeToLive) = 0;
  virtual Status Unused5() = 0;
  virtual Status Unused6() = 0;
  virtual uint32_t GetLowV4(uint64_t index) = 0;
  virtual const uint8_t* GetLowV6(uint64_t index) = 0;
  virtual uint32_t GetHighV4(uint64_t index) = 0;
  virtual const uint8_t* GetHighV6(uint64_t index) = 0;
  /// 0xFFFFFFFF: the range never expires.
  virtual uint32_t GetTimeToLive(uint64_t index) = 0;
  virtual uint32_t GetTimeRemaining(uint64_t index) = 0;
  /// Whether the core created the range by itself.
  virtual bool GetAutoCreate(uint64_t index) = 0;
  /// 4 or 6.
  virtual int32_t GetIpVersion(uint64_t index) = 0;

 protected:
  ~IIpRangeList() = default;
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

// ---- Runtime tables: IP configuration, connection state table, opened endpoints, processes ----
// Counts and indexes are 64-bit, indexes from 0. Pointers and strings a getter returns belong
// to the object that returned them (or the object that owns it) and stay valid until it is
// released. Getters without a status cannot fail.

class IAdapterInfoEnumerator;
class IAddressInfoEnumerator;
class IProcessInfo;

/// The IP configuration: a snapshot, complete when IControl::GetIpConfigChanged hands it out.
class IIpConfig {
 public:
  virtual Status Unused0() = 0;
  virtual uint32_t Release() = 0;
  virtual Status Unused2() = 0;
  /// A new enumerator of the host's addresses, or null.
  virtual IAddressInfoEnumerator* GetAddressInfoEnumerator() = 0;
  /// A new enumerator of the network adapters, or null. The program always passes true; what
  /// the flag means is the core's business.
  virtual IAdapterInfoEnumerator* GetAdapterInfoEnumerator(bool flag) = 0;

 protected:
  ~IIpConfig() = default;
};

/// One network adapter, borrowed from its enumerator (never released by the program).
class IAdapterInfo {
 public:
  virtual Status Unused0() = 0;
  virtual Status Unused1() = 0;
  virtual Status Unused2() = 0;
  virtual Status Unused3() = 0;
  virtual Status Unused4() = 0;
  virtual Status Unused5() = 0;
  virtual Status Unused6() = 0;
  virtual Status Unused7() = 0;
  virtual Status Unused8() = 0;
  /// The hardware address; its length in bytes goes to *length.
  virtual const uint8_t* GetPhysicalAddress(uint32_t* length) = 0;
  /// ipv4: the IPv4 interface index; otherwise the IPv6 one.
  virtual uint32_t GetInterfaceIndex(bool ipv4) = 0;
  virtual const wchar_t* GetConnectionSpecificDnsSuffix() = 0;
  /// An FW_PHYSICAL_MEDIUM value.
  virtual int32_t GetPhysicalMedium() = 0;
  /// The prefix length of IP address index.
  virtual const uint8_t* GetIpAddressPrefixLength(uint64_t index) = 0;
  virtual uint64_t GetIpAddressCount() = 0;
  virtual uint64_t GetGatewayCount() = 0;
  virtual const uint8_t* GetGatewayPhysicalAddress(uint64_t index) = 0;
  /// Bytes.
  virtual uint32_t GetGatewayPhysicalAddressLength(uint64_t index) = 0;
  virtual const IpAddress* GetGatewayAddress(uint64_t index) = 0;
  virtual const IpAddress* GetIpAddress(uint64_t index) = 0;
  virtual bool IsDhcpEnabled() = 0;
  virtual const IpAddress* GetDhcpServer() = 0;
  virtual uint64_t GetDnsServerCount() = 0;
  virtual const IpAddress* GetDnsServer(uint64_t index) = 0;
  virtual bool HaveWins() = 0;
  virtual const IpAddress* GetPrimaryWinsServer() = 0;
  virtual const IpAddress* GetSecondaryWinsServer() = 0;
  virtual const wchar_t* GetName() = 0;
  virtual const wchar_t* GetDescription() = 0;

 protected:
  ~IAdapterInfo() = default;
};

class IAdapterInfoEnumerator {
 public:
  virtual Status Unused0() = 0;
  virtual uint32_t Release() = 0;
  virtual Status Unused2() = 0;
  virtual Status Unused3() = 0;
  /// The next adapter, borrowed from this enumerator; null after the last.
  virtual IAdapterInfo* Next() = 0;

 protected:
  ~IAdapterInfoEnumerator() = default;
};

/// One of the host's addresses, borrowed from its enumerator.
class IAddressInfo {
 public:
  /// On success *address points to a record owned by this object.
  virtual Status GetAddress(const IpAddress** address) = 0;

 protected:
  ~IAddressInfo() = default;
};

class IAddressInfoEnumerator {
 public:
  virtual Status Unused0() = 0;
  virtual uint32_t Release() = 0;
  virtual Status Unused2() = 0;
  virtual Status Unused3() = 0;
  /// The next address, borrowed from this enumerator; null after the last.
  virtual IAddressInfo* Next() = 0;

 protected:
  ~IAddressInfoEnumerator() = default;
};

/// The connection state table: a snapshot that Refresh fills.
class IConnectionTable {
 public:
  virtual Status Unused0() = 0;
  virtual uint32_t Release() = 0;
  /// Takes a fresh snapshot; 0 on success.
  virtual Status Refresh() = 0;
  virtual int64_t GetBytesSentSinceBoot() = 0;
  virtual int64_t GetBytesReceivedSinceBoot() = 0;
  virtual uint64_t GetConnectionCount() = 0;
  virtual const IpAddress* GetLocalAddress(uint64_t index) = 0;
  virtual const IpAddress* GetRemoteAddress(uint64_t index) = 0;
  /// The IP protocol number (1 ICMP, 6 TCP, 17 UDP, 58 ICMPv6).
  virtual uint8_t GetProtocol(uint64_t index) = 0;
  /// In network byte order; ICMP and ICMPv6 entries carry the protocol's own values instead.
  virtual uint16_t GetLocalPort(uint64_t index) = 0;
  virtual uint16_t GetRemotePort(uint64_t index) = 0;
  virtual uint32_t GetProcessId(uint64_t index) = 0;
  virtual Status Unused12() = 0;
  virtual Status Unused13() = 0;
  virtual Status Unused14() = 0;
  /// An FWCS connection state.
  virtual int32_t GetState(uint64_t index) = 0;
  /// The two values the listing shows as left/right; their meaning is the core's.
  virtual uint32_t GetPairRight(uint64_t index) = 0;
  virtual uint32_t GetPairLeft(uint64_t index) = 0;
  /// True when the connection runs from the local end to the remote end.
  virtual bool IsOutbound(uint64_t index) = 0;

 protected:
  ~IConnectionTable() = default;
};

/// The endpoints processes hold open: a snapshot that Refresh fills.
class IOpenedEndpointTable {
 public:
  virtual Status Unused0() = 0;
  virtual uint32_t Release() = 0;
  /// Takes a fresh snapshot; 0 on success.
  virtual Status Refresh() = 0;
  virtual uint64_t GetEndpointCount() = 0;
  virtual const IpAddress* GetLocalAddress(uint64_t index) = 0;
  virtual uint8_t GetProtocol(uint64_t index) = 0;
  /// In network byte order.
  virtual uint16_t GetLocalPort(uint64_t index) = 0;
  virtual uint32_t GetProcessId(uint64_t index) = 0;

 protected:
  ~IOpenedEndpointTable() = default;
};

/// The active processes: a list of identifiers that RefreshProcessIdList fills, and the details
/// of one process on request.
class IActiveProcesses {
 public:
  virtual Status Unused0() = 0;
  virtual uint32_t Release() = 0;
  /// Takes a fresh list of the active processes; 0 on success.
  virtual Status RefreshProcessIdList() = 0;
  virtual uint64_t GetProcessCount() = 0;
  virtual uint64_t GetProcessId(uint64_t index) = 0;
  /// Hands out the details of process processId in *info (a new object the caller releases);
  /// 0 on success. The program always passes 0 as flags.
  virtual Status QueryProcessInfo(IProcessInfo** info, uint64_t processId, uint32_t flags) = 0;

 protected:
  ~IActiveProcesses() = default;
};

/// What the core knows of one process. Strings may be null. The getters' reserved argument is
/// always 0 from the program.
class IProcessInfo {
 public:
  virtual Status Unused0() = 0;
  virtual uint32_t Release() = 0;
  virtual uint32_t GetProcessId() = 0;
  /// The 16-byte MD5 digest of the process image.
  virtual const uint8_t* GetMd5() = 0;
  virtual const wchar_t* GetPath(uint32_t reserved) = 0;
  virtual const wchar_t* GetCommandArgs(uint32_t reserved) = 0;
  /// The owner's security identifier in text form.
  virtual const wchar_t* GetTextSid(uint32_t reserved) = 0;
  /// Null when the image is unsigned.
  virtual const wchar_t* GetSigner(uint32_t reserved) = 0;
  virtual const wchar_t* GetPeDescription(uint32_t reserved) = 0;
  virtual bool IsTrusted() = 0;
  /// Whether the image has been validated: the verdicts mean something only then.
  virtual bool IsValidated() = 0;
  /// The image path with the letter case of the file system.
  virtual const wchar_t* GetCaseCorrectPath(uint32_t reserved) = 0;

 protected:
  ~IProcessInfo() = default;
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
