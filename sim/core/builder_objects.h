#pragma once

// The simulated core's builders: a policy builder, a rule builder and aggregate match builders
// that assemble a policy of the store's model, and the match builder each of the last two owns.
// PolicyManager::AddPolicy adds the assembled policy to the scenario and saves it.

#include <memory>
#include <vector>

#include "core/interfaces.h"
#include "sim/common/scenario_policies.h"
#include "sim/common/sim_object.h"
#include "sim/core/core_objects.h"

namespace nw::sim {

/// Appends one match of one term to the list it is given; every operation can be made to fail
/// by its name in the scenario's faults.
class SimMatchBuilder final : public IMatchBuilder {
 public:
  SimMatchBuilder(CoreState& state, std::vector<MatchModel>* matches)
      : state_(state), matches_(matches), call_(&state, "IMatchBuilder") {}
  void Target(std::vector<MatchModel>* matches) { matches_ = matches; }

  Status AddUserIDMatch(const wchar_t* text, uint32_t length, int32_t op) override;
  Status AddAppPathMatch(const wchar_t* text, uint32_t length, int32_t op) override;
  Status AddCommandLineParamsMatch(const wchar_t* text, uint32_t length, int32_t op) override;
  Status AddHashSumMatch(const uint8_t* bytes, uint32_t count, int32_t op) override;
  Status AddAppDigitalSignerMatch(const wchar_t* text, uint32_t length, int32_t caseSensitive,
                                  int32_t op) override;
  Status AddLocalPortMatch(int32_t end, uint16_t port, int32_t op) override;
  Status AddLocalPortRangeMatch(int32_t end, uint16_t low, uint16_t high, int32_t op) override;
  Status AddIcmpV4TypeMatch(uint8_t type, int32_t op) override;
  Status AddIcmpV6TypeMatch(uint8_t type, int32_t op) override;
  Status AddTcpFlagsMatch(uint8_t flags, int32_t op) override;
  Status AddConnectionStateMatch(uint32_t state, int32_t op) override;
  Status AddIpProtocolMatch(uint8_t protocol, int32_t op) override;
  Status AddLocalIpAddressMatch(int32_t end, const IpAddress* address, int32_t op) override;
  Status AddLocalIpAddressRangeMatch(int32_t end, const IpAddress* low, const IpAddress* high,
                                     int32_t op) override;
  Status AddLocalIpAddressPrefixMatch(int32_t end, const IpAddress* address, uint8_t prefixLength,
                                      int32_t op) override;
  Status AddLocalDomainNameMatch(int32_t end, const wchar_t* name, int32_t op) override;
  Status AddNetworkLayerProtocolMatch(uint16_t protocol, int32_t op) override;
  Status AddMacAddrMatch(int32_t end, const uint8_t* address, int32_t op) override;
  Status AddMacAddrRangeMatch(int32_t end, const uint8_t* low, const uint8_t* high,
                              int32_t op) override;
  Status AddPhysicalMediumMatch(uint32_t medium, int32_t op) override;
  Status AddDirectionMatch(uint32_t direction, int32_t op) override;
  Status AddInterfaceIndexV6Match(uint32_t index, int32_t op) override;
  Status AddInterfaceIndexV6RangeMatch(uint32_t low, uint32_t high, int32_t op) override;
  Status AddInterfaceIndexV4Match(uint32_t index, int32_t op) override;
  Status AddInterfaceIndexV4RangeMatch(uint32_t low, uint32_t high, int32_t op) override;
  Status AddInterfaceIndexMatch(uint64_t index, int32_t op) override;
  Status AddInterfaceIndexRangeMatch(uint64_t low, uint64_t high, int32_t op) override;
  Status AddConnectionBytesSentMatch(uint64_t bytes, int32_t op) override;
  Status AddConnectionBytesReceivedMatch(uint64_t bytes, int32_t op) override;
  Status AddConnectionSpecificDnsSuffixMatch(const wchar_t* text, uint32_t length,
                                             int32_t op) override;
  Status AddProcessIdMatch(uint64_t processId, int32_t op) override;
  Status AddPeFileDescriptionMatch(const wchar_t* text, uint32_t length, int32_t op) override;
  Status AddStandardizedAppPathMatch(const wchar_t* text, uint32_t length, int32_t op) override;
  Status AddHttpServerMatch(const wchar_t* text, uint32_t length, int32_t op) override;
  Status AddVtpPrivilegesMatch(uint64_t privileges, int32_t op) override;
  Status AddAggregateMatch(const Guid* aggregateId, int32_t matchType, int32_t op) override;

 private:
  /// Traces the operation and, unless a fault says otherwise, appends a match of type with
  /// the term fill makes.
  template <class Fill>
  Status Add(const char* operation, int32_t type, int32_t op, Fill fill);
  Status AddText(const char* operation, int32_t type, const wchar_t* text, uint32_t length,
                 int32_t op);

  CoreState& state_;
  std::vector<MatchModel>* matches_;
  CallTracer call_;
};

class RuleBuilder final : public SimObject<IRuleBuilder, CoreState> {
 public:
  explicit RuleBuilder(std::shared_ptr<CoreState> state)
      : SimObject(std::move(state), "IRuleBuilder"), matches_(this->state(), &rule_.matches) {}

  Status Reset() override;
  Status Create(const Guid* ruleId) override;
  Status SetEnabled(bool enabled) override;
  Status SetAction(int32_t action, const Guid* target, uint32_t length) override;
  Status SetRedirectAction(const IpAddress* address, uint16_t port, int64_t value) override;
  Status SetLogOption(int32_t logOption) override;
  Status SetHotDropIfNotMatch(bool hotDrop) override;
  Status SetInvertMatch(bool invert) override;
  Status SetName(const wchar_t* name) override;
  /// Null when the scenario names the operation among its faults (whatever the status).
  IMatchBuilder* GetMatchBuilder() override {
    Call("GetMatchBuilder");
    return Fault("GetMatchBuilder") ? nullptr : &matches_;
  }
  Status SetTeredoRule(bool teredo, bool teredoAwareApp) override;
  Status Unused13() override { return Unused("Unused13"); }
  Status SetLogThrottle(uint32_t throttle) override;

  const RuleModel& rule() const { return rule_; }

 private:
  template <class Change>
  Status Set(const char* operation, Change change);

  RuleModel rule_;
  SimMatchBuilder matches_;
};

class AggregateMatchBuilder final : public SimObject<IAggregateMatchBuilder, CoreState> {
 public:
  explicit AggregateMatchBuilder(std::shared_ptr<CoreState> state)
      : SimObject(std::move(state), "IAggregateMatchBuilder"),
        matches_(this->state(), &aggregate_.matches) {}

  Status SetBoolOp(bool orOperator) override;
  Status SetFriendlyName(const wchar_t* name) override;
  /// Null when the scenario names the operation among its faults (whatever the status).
  IMatchBuilder* GetMatchBuilder() override {
    Call("GetMatchBuilder");
    return Fault("GetMatchBuilder") ? nullptr : &matches_;
  }

  const AggregateModel& aggregate() const { return aggregate_; }

 private:
  AggregateModel aggregate_;
  SimMatchBuilder matches_;
};

class PolicyBuilder final : public SimObject<IPolicyBuilder, CoreState> {
 public:
  explicit PolicyBuilder(std::shared_ptr<CoreState> state)
      : SimObject(std::move(state), "IPolicyBuilder") {}

  Status Reset() override;
  Status SetStickyAndBootTime(bool sticky, bool bootTimeOnly) override;
  Status SetStateful(bool stateful) override;
  Status Create(const Guid* policyId, int32_t policyType) override;
  Status SetName(const wchar_t* name) override;
  Status AddGroup(const Guid* groupId) override;
  Status AddAggregateMatch(const Guid* aggregateId, IAggregateMatchBuilder* builder) override;
  Status Unused9() override { return Unused("Unused9"); }
  Status AddRuleToGroup(const Guid* groupId, IRuleBuilder* builder) override;
  Status Unused11() override { return Unused("Unused11"); }
  Status Unused12() override { return Unused("Unused12"); }
  Status Unused13() override { return Unused("Unused13"); }
  Status SetDefaultAction(int32_t action, int32_t logOption) override;

  /// The policy assembled since Create; none before.
  const PolicyModel* policy() const { return created_ ? &policy_ : nullptr; }

 private:
  template <class Change>
  Status Set(const char* operation, Change change);

  PolicyModel policy_;
  bool created_ = false;
};

}  // namespace nw::sim
