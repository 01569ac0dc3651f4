#include <io.h>

#include <cstdio>

#include "base/format.h"
#include "lab/lab_files.h"

namespace nw::lab {

std::wstring DocumentPath(const std::string& file) { return Utf8ToWide(file); }

bool StandardErrorIsTerminal() { return _isatty(_fileno(stderr)) != 0; }

}  // namespace nw::lab
