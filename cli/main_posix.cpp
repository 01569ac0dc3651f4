// Entry point on the emulated host: arguments arrive as UTF-8 and are handed on as wide text,
// after the host state file (if any) has been read.

#include <cstdio>
#include <string>
#include <vector>

#include "base/format.h"
#include "cli/dispatcher.h"
#include "sim/host/host_state.h"

int main(int argc, char** argv) {
  std::string error;
  if (!nw::sim::LoadHostState(&error)) {
    // The host file belongs to the test harness, not to the emulated program: say what is wrong
    // on stderr and leave stdout to the program.
    std::fprintf(stderr, "netwarden: bad host state: %s\n", error.c_str());
    return 2;
  }
  std::vector<std::wstring> args;
  args.reserve(static_cast<size_t>(argc));
  for (int i = 0; i < argc; ++i) args.push_back(nw::Utf8ToWide(argv[i]));
  std::vector<const wchar_t*> wideArgv;
  for (const auto& arg : args) wideArgv.push_back(arg.c_str());
  wideArgv.push_back(nullptr);
  const int32_t status = nw::RunNetwarden(argc, wideArgv.data());
  // What a real host would keep after the process ends (an open write lock, a lifted key lock)
  // the emulated host reports to the debugger output, with anything else left open.
  nw::sim::ReportHostLeaks();
  return status;
}
