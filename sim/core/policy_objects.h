#pragma once

// The simulated core's policy model: the policy manager, which reads the scenario's policy
// store at every call, the identifier lists it hands out and the policy objects with their
// walks. Groups, rules, aggregate matches, matches and terms live inside their policy object.

#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <optional>

#include "core/interfaces.h"
#include "sim/common/scenario_policies.h"
#include "sim/common/sim_object.h"
#include "sim/core/core_objects.h"

namespace nw::sim {

/// GetNextRuleTakingJumps's jump indications. A rule handed out with 0 or 1 is passed by the
/// next AdvanceIteration (or else by the next GetNextRuleTakingJumps); a rule handed out with 2
/// is passed at once, so an AdvanceIteration after it would pass the rule that follows unseen.
/// 0: a rule that is not a jump (or any rule of a linear walk).
inline constexpr uint32_t kJumpInSequence = 0;
/// 1: a jump that is followed: passing it enters its target group, and when that group's rules
///    are done the walk returns to the rule after the jump.
inline constexpr uint32_t kJumpFollowed = 1;
/// 2: a jump that is not followed because its target is not a group of the policy or is a
///    group the walk is already inside (a cycle); the walk goes on after it.
inline constexpr uint32_t kJumpCutOff = 2;
/// 3: the walk has ended, or has not been started by AdvanceIteration (the rule is null).
inline constexpr uint32_t kJumpEnd = 3;
/// One walk hands out at most this many rules: a faulty protocol or a scenario whose jumps
/// fan out cannot make it run on for ever.
inline constexpr uint32_t kMaxRulesPerWalk = 100000;

/// A policy the store does not hold: the not-found HRESULT.
inline constexpr Status kStatusNotFound = static_cast<Status>(0x80070490u);
/// A policy whose identifier the store already holds: the already-exists HRESULT.
inline constexpr Status kStatusAlreadyExists = static_cast<Status>(0x800700B7u);
/// A term asked for a kind of value it does not hold: the type-mismatch HRESULT.
inline constexpr Status kStatusTypeMismatch = static_cast<Status>(0x80020005u);
/// An operation out of its order (leaving an aggregate match that was not entered).
inline constexpr Status kStatusUnexpected = static_cast<Status>(0x8000FFFFu);

class PolicyManager final : public SimObject<IPolicyManager, CoreState> {
 public:
  explicit PolicyManager(std::shared_ptr<CoreState> state)
      : SimObject(std::move(state), "IPolicyManager") {}

  Status GetPolicyBuilder(IPolicyBuilder** out) override;
  Status GetRuleBuilder(IRuleBuilder** out) override;
  Status GetAggregateMatchBuilder(IAggregateMatchBuilder** out) override;
  Status GetExistingPolicy(IPolicy** out, const Guid* policyId) override;
  Status GetExistingPolicyList(IGuidList** out, int32_t policyType) override;
  Status AddPolicy(IPolicyBuilder* builder, void* unusedOut1, void* unusedOut2) override;
  Status DeletePolicy(const Guid* policyId) override;

 private:
  Status FetchPolicy(IPolicy** out, const Guid* policyId);
  Status Delete(const Guid* policyId);
  Status Add(IPolicyBuilder* builder);
  template <class Builder, class Interface>
  Status HandOutBuilder(const char* operation, Interface** out);

  /// The generated policy built last: both walks of a listing fetch it, one after the other.
  std::shared_ptr<const PolicyModel> lastGenerated_;
  GeneratedPolicies lastGeneratedSet_;
};

}  // namespace nw::sim
