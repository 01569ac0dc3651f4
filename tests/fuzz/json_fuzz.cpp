// libFuzzer target: any bytes as a scenario or host file. Nothing may crash, throw or hang, and
// a document that is read must read back unchanged after being written out as a file holds it.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "sim/common/json_util.h"
#include "sim/common/scenario.h"
#include "sim/host/host_state.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  nw::sim::Json doc;
  std::string error;
  if (!nw::sim::ParseJsonText(text, "fuzz.json", &doc, &error)) {
    if (error.rfind("fuzz.json: ", 0) != 0) __builtin_trap();  // every refusal names the file
    return 0;
  }
  nw::sim::Json again;
  if (!nw::sim::ParseJsonText(nw::sim::JsonFileText(doc), "again", &again, &error) ||
      again != doc) {
    __builtin_trap();
  }
  nw::sim::Scenario scenario;
  nw::sim::ParseScenario(doc, "fuzz.json", &scenario, &error);
  nw::sim::HostState host;
  nw::sim::ParseHostState(doc, "fuzz.json", &host, &error);
  return 0;
}
