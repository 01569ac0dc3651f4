// Entry point on Windows: the arguments arrive as UTF-16 and are handed to the command line's
// parser as UTF-8, the form every path and text of the lab has.

#include <string>
#include <vector>

#include "base/format.h"
#include "lab/lab.h"

int wmain(int argc, wchar_t** argv) {
  std::vector<std::string> arguments;
  arguments.reserve(argc);
  for (int i = 0; i < argc; ++i) arguments.push_back(nw::WideToUtf8(argv[i]));
  std::vector<char*> pointers;
  for (std::string& argument : arguments) pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  return nw::lab::RunLab(argc, pointers.data());
}
