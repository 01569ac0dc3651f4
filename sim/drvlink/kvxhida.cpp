// kvxhida.dll: the simulated driver link. Its two exports are all the program sees.

#include <memory>
#include <new>

#include "sim/common/export.h"
#include "sim/core/default_scenario.h"
#include "sim/drvlink/drvlink_objects.h"

namespace {

using nw::sim::LibraryState;

const std::shared_ptr<LibraryState>& Library() {
  // The same built-in scenario as the core's, so that both describe one host.
  static const std::shared_ptr<LibraryState> state = std::make_shared<LibraryState>(
      LibraryState::Options{"kvxhida",
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
    return nw::sim::DriverLinkGetInterface(Library(), interfaceName, out);
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
