// The test driver on the emulated host: the same start as the program's own entry point, then
// the run with the gate open.

#include <cstdio>
#include <string>
#include <vector>

#include "base/format.h"
#include "cli/dispatcher.h"
#include "sim/host/host_state.h"

int main(int argc, char** argv) {
  std::string error;
  if (!nw::sim::LoadHostState(&error)) {
    std::fprintf(stderr, "netwarden-gated-test: bad host state: %s\n", error.c_str());
    return 2;
  }
  std::vector<std::wstring> args;
  args.reserve(static_cast<size_t>(argc));
  for (int i = 0; i < argc; ++i) args.push_back(nw::Utf8ToWide(argv[i]));
  std::vector<const wchar_t*> wideArgv;
  for (const auto& arg : args) wideArgv.push_back(arg.c_str());
  wideArgv.push_back(nullptr);
  return nw::RunWithGateOpen(argc, wideArgv.data());
}
