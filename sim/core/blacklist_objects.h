#pragma once

// The simulated core's high-priority IP list (blacklist): the control the program reads the
// list through, and the range lists it hands out, read from the scenario's "blacklist" section.

#include <memory>
#include <optional>
#include <vector>

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

  /// The log option the next list that is set or appended gives the blacklist.
  Status SetLogOption(int32_t logOption) override;
  /// An empty list to fill.
  Status GetListBuilder(IIpRangeList** out) override;
  /// The list's ranges after the listed ones.
  Status AppendList(IIpRangeList* list) override;
  /// Removes the listed ranges equal (ends and version) to one of the list's.
  Status DeleteList(IIpRangeList* list) override;
  /// The list's ranges in place of every range, the generated ones included.
  Status SetNewList(IIpRangeList* list) override;

 private:
  Status Change(const char* operation, IIpRangeList* list,
                void (*change)(BlacklistScenario& blacklist, const std::vector<BlacklistRange>&));

  std::optional<int32_t> logOption_;
};

/// The ranges of a blacklist snapshot. An index past the list reads a range of the defaults
/// (both ends cleared, version 4, never expiring, not auto-created); an IPv6
/// end stays valid while the program asks for no more than TableSnapshot::kRecentEntries other
/// generated ranges.
class IpRangeList final : public SimObject<IIpRangeList, CoreState> {
 public:
  IpRangeList(std::shared_ptr<CoreState> state, const BlacklistScenario& blacklist);

  uint64_t GetCount() override {
    Call("GetCount");
    return snapshot_.Count();
  }
  Status AddIpV4Range(uint32_t low, uint32_t high, uint32_t timeToLive) override;
  Status AddIpV6Range(const uint8_t* low, const uint8_t* high, uint32_t timeToLive) override;
  /// The ranges added or listed (a built list has no generated ones).
  const std::vector<BlacklistRange>& Listed() const { return snapshot_.Listed(); }
  Status Unused5() override { return Unused("Unused5"); }
  Status Unused6() override { return Unused("Unused6"); }
  uint32_t GetLowV4(uint64_t index) override {
    Call("GetLowV4", index);
    return BareIpv4(snapshot_.At(index).low);
  }
  const uint8_t* GetLowV6(uint64_t index) override {
    Call("GetLowV6", index);
    return snapshot_.At(index).low.bytes;
  }
  uint32_t GetHighV4(uint64_t index) override {
    Call("GetHighV4", index);
    return BareIpv4(snapshot_.At(index).high);
  }
  const uint8_t* GetHighV6(uint64_t index) override {
    Call("GetHighV6", index);
    return snapshot_.At(index).high.bytes;
  }
  uint32_t GetTimeToLive(uint64_t index) override {
    Call("GetTimeToLive", index);
    return snapshot_.At(index).timeToLive;
  }
  uint32_t GetTimeRemaining(uint64_t index) override {
    Call("GetTimeRemaining", index);
    return snapshot_.At(index).timeRemaining;
  }
  bool GetAutoCreate(uint64_t index) override {
    Call("GetAutoCreate", index);
    return snapshot_.At(index).autoCreate;
  }
  int32_t GetIpVersion(uint64_t index) override {
    Call("GetIpVersion", index);
    return snapshot_.At(index).version;
  }

 private:
  /// The first octet in the lowest byte, whatever the host's byte order.
  static uint32_t BareIpv4(const IpAddress& address) {
    return uint32_t{address.bytes[0]} | uint32_t{address.bytes[1]} << 8 |
           uint32_t{address.bytes[2]} << 16 | uint32_t{address.bytes[3]} << 24;
  }

  TableSnapshot<BlacklistRange> snapshot_{GenerateBlacklistRange};
};

}  // namespace nw::sim
