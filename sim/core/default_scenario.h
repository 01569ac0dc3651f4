#pragma once

#include <string_view>

namespace nw::sim {

/// The scenario both simulated libraries play when KVX_SIM_STATE names none: a small host with
/// the firewall service and its driver running, nothing failing and leak reporting on. The same
/// text is in examples/default-scenario.json.
std::string_view DefaultScenarioText();

}  // namespace nw::sim
