#include <unistd.h>

#include "lab/lab_files.h"
#include "platform/posix/paths_posix.h"

namespace nw::lab {

std::wstring DocumentPath(const std::string& file) { return platform::posix::WindowsFormOf(file); }

bool StandardErrorIsTerminal() { return isatty(STDERR_FILENO) == 1; }

}  // namespace nw::lab
