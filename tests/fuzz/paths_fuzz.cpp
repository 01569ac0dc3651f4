// libFuzzer target: any bytes as the components of a POSIX path. Its Windows form must lead back
// to exactly the same bytes, and that Windows form must survive the trip too.

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/posix/paths_posix.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // A path as the host reports one: absolute, no empty, "." or ".." components, no NUL.
  std::string path;
  std::string name;
  const auto flush = [&] {
    if (!name.empty() && name != "." && name != "..") path += "/" + name;
    name.clear();
  };
  for (size_t i = 0; i < size; ++i) {
    const char c = static_cast<char>(data[i]);
    if (c == '/' || c == '\0') {
      flush();
    } else {
      name += c;
    }
  }
  flush();
  if (path.empty()) return 0;
  const std::wstring windows = nw::platform::posix::WindowsFormOf(path);
  if (nw::platform::posix::PosixPathOf(windows) != path) __builtin_trap();
  if (nw::platform::posix::WindowsFormOf(nw::platform::posix::PosixPathOf(windows)) != windows) {
    __builtin_trap();
  }
  return 0;
}
