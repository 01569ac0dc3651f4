#include "sim/core/blacklist_objects.h"

#include <algorithm>
#include <cstring>

#include "sim/common/scenario.h"

namespace nw::sim {

Status HighPriorityIpListControl::GetExistingLogOption(int32_t* logOption) {
  Call("GetExistingLogOption");
  if (auto fault = Fault("GetExistingLogOption")) return Traced("GetExistingLogOption", *fault);
  const Scenario* scenario = state().GetScenario();
  Status status = kStatusOk;
  if (logOption == nullptr) {
    status = kStatusInvalidArg;
  } else if (scenario == nullptr) {
    status = kStatusBadScenario;
  } else {
    *logOption = scenario->tables.blacklist.logOption;
  }
  return Traced("GetExistingLogOption", status);
}

Status HighPriorityIpListControl::GetExistingList(IIpRangeList** out) {
  Call("GetExistingList");
  Status status = kStatusOk;
  if (out == nullptr) return Traced("GetExistingList", kStatusInvalidArg);
  *out = nullptr;
  const Scenario* scenario = state().GetScenario();
  if (auto fault = Fault("GetExistingList")) {
    status = *fault;
  } else if (scenario == nullptr) {
    status = kStatusBadScenario;
  } else if (IpRangeList* list =
                 NewObject<IpRangeList>(sharedState(), scenario->tables.blacklist)) {
    *out = list;
  } else {
    status = kStatusOutOfMemory;
  }
  return Traced("GetExistingList", status);
}

Status HighPriorityIpListControl::SetLogOption(int32_t logOption) {
  Call("SetLogOption", logOption);
  if (auto fault = Fault("SetLogOption")) return Traced("SetLogOption", *fault);
  logOption_ = logOption;
  return Traced("SetLogOption", kStatusOk);
}

Status HighPriorityIpListControl::GetListBuilder(IIpRangeList** out) {
  Call("GetListBuilder");
  if (out == nullptr) return Traced("GetListBuilder", kStatusInvalidArg);
  *out = nullptr;
  if (auto fault = Fault("GetListBuilder")) return Traced("GetListBuilder", *fault);
  IpRangeList* list = NewObject<IpRangeList>(sharedState(), BlacklistScenario{});
  if (list == nullptr) return Traced("GetListBuilder", kStatusOutOfMemory);
  *out = list;
  return Traced("GetListBuilder", kStatusOk);
}

// The list given is one this core handed out from GetListBuilder.
Status HighPriorityIpListControl::Change(const char* operation, IIpRangeList* list,
                                         void (*change)(BlacklistScenario& blacklist,
                                                        const std::vector<BlacklistRange>&)) {
  Call(operation);
  if (list == nullptr) return Traced(operation, kStatusInvalidArg);
  if (auto fault = Fault(operation)) return Traced(operation, *fault);
  const std::vector<BlacklistRange>& ranges = static_cast<IpRangeList*>(list)->Listed();
  const std::optional<int32_t> logOption = logOption_;
  const bool keepsDocument = state().KeepsDocument();
  return Traced(operation, state().UpdateScenario([&](Scenario& changed) {
    BlacklistScenario& blacklist = changed.tables.blacklist;
    change(blacklist, ranges);
    if (logOption) blacklist.logOption = *logOption;
    if (keepsDocument) changed.document["blacklist"] = BlacklistToJson(blacklist);
  }));
}

Status HighPriorityIpListControl::AppendList(IIpRangeList* list) {
  return Change("AppendList", list, [](BlacklistScenario& blacklist, const auto& ranges) {
    blacklist.entries.insert(blacklist.entries.end(), ranges.begin(), ranges.end());
  });
}

Status HighPriorityIpListControl::DeleteList(IIpRangeList* list) {
  return Change("DeleteList", list, [](BlacklistScenario& blacklist, const auto& ranges) {
    std::erase_if(blacklist.entries, [&](const BlacklistRange& listed) {
      return std::any_of(ranges.begin(), ranges.end(), [&](const BlacklistRange& range) {
        return range.version == listed.version && range.low == listed.low &&
               range.high == listed.high;
      });
    });
  });
}

Status HighPriorityIpListControl::SetNewList(IIpRangeList* list) {
  return Change("SetNewList", list, [](BlacklistScenario& blacklist, const auto& ranges) {
    blacklist.entries = ranges;
    blacklist.generated = GeneratedEntries{};
    blacklist.counts.clear();
  });
}

Status IpRangeList::AddIpV4Range(uint32_t low, uint32_t high, uint32_t timeToLive) {
  Call("AddIpV4Range", low, high, timeToLive);
  if (auto fault = Fault("AddIpV4Range")) return Traced("AddIpV4Range", *fault);
  auto address = [](uint32_t bare) {
    IpAddress a{};
    for (int i = 0; i < 4; ++i) a.bytes[i] = static_cast<uint8_t>(bare >> (8 * i));
    a.version = 4;
    return a;
  };
  snapshot_.Append(BlacklistRange{address(low), address(high), 4, timeToLive, timeToLive, false});
  return Traced("AddIpV4Range", kStatusOk);
}

Status IpRangeList::AddIpV6Range(const uint8_t* low, const uint8_t* high, uint32_t timeToLive) {
  Call("AddIpV6Range", timeToLive);
  if (low == nullptr || high == nullptr) return Traced("AddIpV6Range", kStatusInvalidArg);
  if (auto fault = Fault("AddIpV6Range")) return Traced("AddIpV6Range", *fault);
  auto address = [](const uint8_t* bytes) {
    IpAddress a{};
    std::memcpy(a.bytes, bytes, sizeof a.bytes);
    a.version = 6;
    return a;
  };
  snapshot_.Append(BlacklistRange{address(low), address(high), 6, timeToLive, timeToLive, false});
  return Traced("AddIpV6Range", kStatusOk);
}

IpRangeList::IpRangeList(std::shared_ptr<CoreState> state, const BlacklistScenario& blacklist)
    : SimObject(std::move(state), "IIpRangeList") {
  snapshot_.Load(blacklist);
}

}  // namespace nw::sim
