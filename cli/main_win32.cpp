// Entry point on Windows: the arguments arrive as UTF-16 and are handed on unchanged. The host
// itself answers every platform call, so there is no state to read first.

#include "cli/dispatcher.h"

int wmain(int argc, wchar_t** argv) { return nw::RunNetwarden(argc, argv); }
