#pragma once

// The simulated core's policy store: the "policies" section of a scenario as plain structures,
// read from JSON, written back to it without loss, and extended by a generated set that is
// described in one line and built one policy at a time when asked for.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/guid.h"
#include "core/ip_address.h"
#include "sim/common/json_util.h"

namespace nw::sim {

/// A byte array as a term holds it: the bytes the scenario gave, and the count the core
/// reports, which may differ. storage holds at least count bytes (zeros after the given ones),
/// so a caller that trusts the count never reads outside it.
struct ByteArrayValue {
  std::vector<uint8_t> storage;
  /// How many of storage's bytes the scenario gave.
  uint32_t given = 0;
  /// What GetUint8Array reports.
  uint32_t count = 0;
  bool operator==(const ByteArrayValue&) const = default;
};

/// A string as a term holds it, with the length GetString reports (by default the characters
/// and the terminator).
struct StringValue {
  std::wstring text;
  uint32_t length = 0;
  bool operator==(const StringValue&) const = default;
};

struct Uint16Range {
  uint16_t low = 0, high = 0;
  bool operator==(const Uint16Range&) const = default;
};

struct Uint64Range {
  uint64_t low = 0, high = 0;
  bool operator==(const Uint64Range&) const = default;
};

struct IpAddressRange {
  IpAddress low{}, high{};
  bool operator==(const IpAddressRange&) const = default;
};

/// One term: an operator and a value for each getter kind the scenario gives. A getter whose
/// kind the term does not hold fails.
struct TermModel {
  int32_t op = 0;
  std::optional<uint8_t> uint8;
  std::optional<uint16_t> uint16;
  std::optional<uint32_t> uint32;
  std::optional<uint64_t> uint64;
  std::optional<Uint16Range> uint16Range;
  std::optional<Uint64Range> uint64Range;
  std::optional<ByteArrayValue> bytes;
  std::optional<Guid> aggregate;
  std::optional<StringValue> string;
  std::optional<IpAddress> ip;
  std::optional<IpAddressRange> ipRange;
  std::optional<uint8_t> prefix;
  /// What GetIpAddressMatchType answers; absent: derived from the values (see AddressKind).
  std::optional<int32_t> addressKind;

  /// The explicit kind, else 3 with a prefix, 2 with a range, 1 with an address, 4 with a
  /// string (a domain name), 0 with none of them.
  int32_t AddressKind() const;
  bool operator==(const TermModel&) const = default;
};

struct MatchModel {
  int32_t type = 0;
  std::vector<TermModel> terms;
  bool operator==(const MatchModel&) const = default;
};

/// A name as the core hands it out: a text, or null (the scenario's null).
using NameText = std::optional<std::wstring>;

struct AggregateModel {
  Guid uid{};
  NameText name = std::wstring();
  bool orOperator = false;
  std::vector<MatchModel> matches;
  bool operator==(const AggregateModel&) const = default;
};

/// The log throttle a rule has when none is set.
inline constexpr uint32_t kNoLogThrottle = 0xFFFFFFFF;

struct RuleModel {
  Guid uid{};
  NameText name = std::wstring();
  int32_t action = 1;
  /// The jump's target group or the plug-in.
  Guid target{};
  IpAddress redirectAddress{};
  uint16_t redirectPort = 0;
  int64_t redirectValue = 0;
  int32_t logOption = 0;
  uint32_t logThrottle = kNoLogThrottle;
  bool enabled = true;
  bool hotDropIfNotMatch = false;
  bool invertMatch = false;
  bool teredo = false;
  bool teredoAwareApp = false;
  std::vector<MatchModel> matches;
  bool operator==(const RuleModel&) const = default;
};

struct GroupModel {
  Guid uid{};
  std::vector<RuleModel> rules;
  bool operator==(const GroupModel&) const = default;
};

struct PolicyModel {
  Guid uid{};
  Guid ppuid{};
  NameText name = std::wstring();
  int32_t type = 0;
  bool stateful = false;
  bool sticky = false;
  bool bootTimeOnly = false;
  int32_t defaultAction = 5;
  int32_t defaultLogOption = 0;
  std::vector<AggregateModel> aggregates;
  /// The default group first (its identifier is the policy's unless the scenario says
  /// otherwise), then the further groups.
  std::vector<GroupModel> groups;
  bool operator==(const PolicyModel&) const = default;
};

/// A generated set: count policies of rules rules with matches matches each, from seed.
struct GeneratedPolicies {
  uint32_t count = 0;
  uint32_t rules = 0;
  uint32_t matches = 0;
  uint64_t seed = 0;
  bool operator==(const GeneratedPolicies&) const = default;
};

/// Bounds of a generated set, so that a scenario cannot ask for unbounded memory.
inline constexpr uint32_t kMaxGeneratedPolicies = 1000000;
inline constexpr uint32_t kMaxGeneratedRules = 1000;
inline constexpr uint32_t kMaxGeneratedMatches = 100;
/// The largest count a byte array may report (its storage is that large).
inline constexpr uint32_t kMaxByteArrayCount = 65536;

/// The policies the core holds, in the core's order: the listed ones, then the generated ones.
/// Policies are shared, so that an object handed out keeps its policy when the store changes.
struct PolicyStore {
  std::vector<std::shared_ptr<const PolicyModel>> policies;
  std::optional<GeneratedPolicies> generated;
  bool operator==(const PolicyStore& o) const;
};

/// Checks and converts the "policies" section.
bool ParsePolicies(JsonChecker& check, const Json& v, const std::string& path, PolicyStore* out);
/// The "policies" section as a scenario writes it; ParsePolicies reads it back to an equal store.
Json PoliciesToJson(const PolicyStore& store);

/// The identifiers of policyType's policies in the core's order.
std::vector<Guid> PolicyUids(const PolicyStore& store, int32_t policyType);
/// policyType's policies in the core's order, the generated ones built for the call: for a walk
/// over all of them, where looking each identifier up would cost the store's size every time.
std::vector<std::shared_ptr<const PolicyModel>> PoliciesOfType(const PolicyStore& store,
                                                               int32_t policyType);
/// The policy identified by uid, or null. A generated policy is built for the call.
std::shared_ptr<const PolicyModel> FindPolicy(const PolicyStore& store, const Guid& uid);

/// The generated set's policy number index (below set.count).
PolicyModel GeneratePolicy(const GeneratedPolicies& set, uint32_t index);
Guid GeneratedPolicyUid(const GeneratedPolicies& set, uint32_t index);
/// Which generated policy uid identifies, if any.
std::optional<uint32_t> GeneratedPolicyIndex(const GeneratedPolicies& set, const Guid& uid);
/// Generated policies alternate between packet (even numbers) and stream (odd numbers).
int32_t GeneratedPolicyType(uint32_t index);

/// A term as a scenario writes it, with its operator and every kind it holds.
Json TermToJson(const TermModel& term);

/// An address as a scenario writes it: an IPv4 or IPv6 literal, or for any other record its
/// bytes and version.
Json AddressToJson(const IpAddress& address);

/// The 36-character form, lower case; and its reading (either case, no braces).
std::string GuidText(const Guid& guid);
bool ParseGuidText(std::string_view text, Guid* guid);

}  // namespace nw::sim
