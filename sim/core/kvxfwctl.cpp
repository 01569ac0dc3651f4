// kvxfwctl.dll: the simulated core's control library. Its two exports are all the program sees.

#include <memory>
#include <new>

#include "sim/common/export.h"
#include "sim/core/core_objects.h"
#include "sim/core/default_scenario.h"

namespace {

using nw::sim::CoreState;

const std::shared_ptr<CoreState>& Library() {
  static const std::shared_ptr<CoreState> state = std::make_shared<CoreState>(
      CoreState::Options{"kvxfwctl",
                         nw::sim::DefaultScenarioText(),
                         std::nullopt,
                         nw::sim::FileBesideLibrary(nw::sim::kDefaultStateFileName),
                         {},
                         true});
  return state;
}

}  // namespace

NW_SIM_EXPORT int32_t NotComDllGetInterface(const char* interfaceName, void** out) {
  try {
    return nw::sim::CoreGetInterface(Library(), interfaceName, out);
  } catch (const std::bad_alloc&) {
    return nw::sim::kStatusOutOfMemory;
  }
}

NW_SIM_EXPORT int32_t NotComDllUnload() {
  try {
    return Library()->Unload();
  } catch (const std::bad_alloc&) {
    return nw::sim::kStatusOutOfMemory;
  }
}
