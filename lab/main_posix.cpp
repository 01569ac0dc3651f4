// Entry point on the emulated host: the host state file (if any) is read first, as netwarden's
// own entry point does, so that the capture sees the same host.

#include <cstdio>
#include <string>

#include "lab/lab.h"
#include "sim/host/host_services.h"
#include "sim/host/host_state.h"

int main(int argc, char** argv) {
  std::string error;
  if (!nw::sim::LoadHostState(&error)) {
    std::fprintf(stderr, "netwarden-lab: bad host state: %s\n", error.c_str());
    return nw::lab::kExitError;
  }
  const int status = nw::lab::RunLab(argc, argv);
  nw::sim::ReportHostLeaks();
  return status;
}
