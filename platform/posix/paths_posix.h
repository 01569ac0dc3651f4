#pragma once

#include <string>
#include <string_view>

namespace nw::platform::posix {

/// The emulated host shows POSIX paths in Windows form: "/tmp/x/y" is "\\tmp\\x\\y", so the
/// program's path logic (split at the last "\\", join with "\\") is the same on both hosts.
/// Every POSIX name can be said this way and read back unchanged: a "\\" inside a name becomes
/// U+DC5C, and each byte of a name that is not part of valid UTF-8 becomes U+DC00 plus the
/// byte (U+DC80 to U+DCFF). Neither can come from valid UTF-8, so nothing else maps to them.
std::wstring WindowsFormOf(std::string_view posixPath);

/// The file-system path of a Windows-form path, resolved as Windows resolves it: "\\" and "/"
/// both separate components, empty and "." components are dropped, ".." removes the component
/// before it (never going above the root) without looking at the file system, and U+DC5C and
/// U+DC80 to U+DCFF stand for the bytes WindowsFormOf turned into them. A path that starts with
/// a drive letter ("C:\\inst", or "C:inst") is taken from the POSIX directory the host gives
/// that drive ("/" for C: unless the host file says otherwise); a path that starts with a
/// separator is the POSIX file system itself. Empty when the path is on a drive this host does
/// not have, so it names no file.
std::string PosixPathOf(std::wstring_view windowsPath);

/// Whether two Windows-form paths name the same file on this host, telling ASCII letters of
/// either case apart no more than Windows does: "\\bin\\..\\inst\\X.dll" and "C:\\inst\\x.dll\\"
/// are one file (with C: at "/").
bool SamePath(std::wstring_view a, std::wstring_view b);

}  // namespace nw::platform::posix
