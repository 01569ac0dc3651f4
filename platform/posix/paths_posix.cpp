#include "platform/posix/paths_posix.h"

#include "base/format.h"

namespace nw::platform::posix {

std::wstring WindowsFormOf(std::string_view posixPath) {
  std::wstring path = Utf8ToWide(posixPath);
  for (auto& c : path) c = c == L'/' ? L'\\' : c;
  return path;
}

std::string PosixPathOf(std::wstring_view windowsPath) {
  std::string path = WideToUtf8(windowsPath);
  for (auto& c : path) c = c == '\\' ? '/' : c;
  return path;
}

}  // namespace nw::platform::posix
