#include "sim/core/blacklist_objects.h"

namespace nw::sim {

Status HighPriorityIpListControl::GetExistingLogOption(int32_t* logOption) {
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

Status HighPriorityIpListControl::GetListBuilder(IIpRangeList** out) {
  if (out != nullptr) *out = nullptr;
  return Traced("GetListBuilder", kStatusNotImplemented);
}

IpRangeList::IpRangeList(std::shared_ptr<CoreState> state, const BlacklistScenario& blacklist)
    : SimObject(std::move(state), "IIpRangeList") {
  snapshot_.Load(blacklist);
}

}  // namespace nw::sim
