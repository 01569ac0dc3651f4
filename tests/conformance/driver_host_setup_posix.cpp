// The emulated host is told what it has through a host file of its own.

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "sim/host/host_state.h"
#include "tests/conformance/driver_host_setup.h"

namespace nw::conformance {
namespace {

std::string folder;

constexpr const char* kHost = R"({
  "registry": {
    "HKLM\\SYSTEM\\CurrentControlSet\\Services\\nwconf_drv": {
      "Type": 1, "Start": 3, "ErrorControl": 1,
      "ImagePath": {"type": "REG_EXPAND_SZ",
                    "data": "\\SystemRoot\\system32\\drivers\\nwconf_drv.sys"}
    },
    "HKLM\\SYSTEM\\CurrentControlSet\\Services\\nwconf_keyonly": {"Start": 3}
  },
  "services": {"nwconf_drv": {}},
  "mutexes": ["Global\\nwconf_mutex"]
})";

}  // namespace

bool SetUpHost(std::string* error) {
  char pattern[] = "/tmp/nw-conformance-XXXXXX";
  if (::mkdtemp(pattern) == nullptr) {
    *error = "no temporary folder";
    return false;
  }
  folder = pattern;
  const std::string file = folder + "/host.json";
  std::ofstream(file) << kHost;
  ::setenv("NETWARDEN_HOST", file.c_str(), 1);
  return sim::LoadHostState(error);
}

void TearDownHost() {
  std::remove((folder + "/host.json").c_str());
  ::rmdir(folder.c_str());
}

}  // namespace nw::conformance
