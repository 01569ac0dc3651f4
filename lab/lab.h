#pragma once

// netwarden-lab: the subcommands and their command line, shared by the entry points of both
// hosts.

namespace nw::lab {

/// Exit statuses: 0 done (or "equal"), 1 "different" or "not found", 2 an error, said in one
/// line on standard error.
inline constexpr int kExitOk = 0;
inline constexpr int kExitDiffers = 1;
inline constexpr int kExitError = 2;

/// Parses the command line (UTF-8) and runs the subcommand it names.
int RunLab(int argc, char** argv);

}  // namespace nw::lab
