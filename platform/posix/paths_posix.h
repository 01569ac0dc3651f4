#pragma once

#include <string>
#include <string_view>

namespace nw::platform::posix {

/// The emulated host shows POSIX paths in Windows form: "/tmp/x/y" is "\\tmp\\x\\y", so the
/// program's path logic (split at the last "\\", join with "\\") is the same on both hosts.
std::wstring WindowsFormOf(std::string_view posixPath);
/// The file-system path of a Windows-form path ("\\" and "/" both separate components).
std::string PosixPathOf(std::wstring_view windowsPath);

}  // namespace nw::platform::posix
