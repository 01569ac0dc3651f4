#pragma once

// The simulated core's high-priority IP list (blacklist): the control the program reads the
// list through, and the range lists it hands out, read from the scenario's "blacklist" section.

#include <memory>

#include "core/interfaces.h"
#include "sim/common/sim_object.h"
#include "sim/core/core_objects.h"
#include "sim/core/table_objects.h"

namespace nw::sim {

class HighPriorityIpListControl final : public SimObject<IHighPriorityIpListControl, CoreState> {
 public:
  explicit HighPriorityIpListControl(std::shared_ptr<CoreState> state)
      : SimObject(std::move(state), "IHighPriorityIpListControl") {}

  Status GetExistingLogOption(int32_t* logOption) override;
  /// A snapshot of the scenario's ranges, taken now.
  Status GetExistingList(IIpRangeList** out) override;

  // Changing the list comes with the document reader; until then the core refuses.
  Status SetLogOption(int32_t) override { return Traced("SetLogOption", kStatusNotImplemented); }
  Status GetListBuilder(IIpRangeList** out) override;
  Status AppendList(IIpRangeList*) override { return Traced("AppendList", kStatusNotImplemented); }
  Status DeleteList(IIpRangeList*) override { return Traced("DeleteList", kStatusNotImplemented); }
  Status SetNewList(IIpRangeList*) override { return Traced("SetNewList", kStatusNotImplemented); }
};

/// The ranges of a blacklist snapshot. An index past the list reads a cleared range; an IPv6
/// end stays valid while the program asks for no more than TableSnapshot::kRecentEntries other
/// generated ranges.
class IpRangeList final : public SimObject<IIpRangeList, CoreState> {
 public:
  IpRangeList(std::shared_ptr<CoreState> state, const BlacklistScenario& blacklist);

  uint64_t GetCount() override { return snapshot_.Count(); }
  Status AddIpV4Range(uint32_t, uint32_t, uint32_t) override {
    return Traced("AddIpV4Range", kStatusNotImplemented);
  }
  Status AddIpV6Range(const uint8_t*, const uint8_t*, uint32_t) override {
    return Traced("AddIpV6Range", kStatusNotImplemented);
  }
  Status Unused5() override { return Traced("Unused5", kStatusNotImplemented); }
  Status Unused6() override { return Traced("Unused6", kStatusNotImplemented); }
  uint32_t GetLowV4(uint64_t index) override { return BareIpv4(snapshot_.At(index).low); }
  const uint8_t* GetLowV6(uint64_t index) override { return snapshot_.At(index).low.bytes; }
  uint32_t GetHighV4(uint64_t index) override { return BareIpv4(snapshot_.At(index).high); }
  const uint8_t* GetHighV6(uint64_t index) override { return snapshot_.At(index).high.bytes; }
  uint32_t GetTimeToLive(uint64_t index) override { return snapshot_.At(index).timeToLive; }
  uint32_t GetTimeRemaining(uint64_t index) override { return snapshot_.At(index).timeRemaining; }
  bool GetAutoCreate(uint64_t index) override { return snapshot_.At(index).autoCreate; }
  int32_t GetIpVersion(uint64_t index) override { return snapshot_.At(index).version; }

 private:
  /// The first octet in the lowest byte, whatever the host's byte order.
  static uint32_t BareIpv4(const IpAddress& address) {
    return uint32_t{address.bytes[0]} | uint32_t{address.bytes[1]} << 8 |
           uint32_t{address.bytes[2]} << 16 | uint32_t{address.bytes[3]} << 24;
  }

  TableSnapshot<BlacklistRange> snapshot_{GenerateBlacklistRange};
};

}  // namespace nw::sim
