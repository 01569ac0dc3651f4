#include <windows.h>

#include <algorithm>
#include <string>

#include "base/format.h"
#include "sim/common/file_io.h"

namespace nw::sim {
namespace {

std::string WindowsError(DWORD code) { return "Windows error " + std::to_string(code); }

}  // namespace

bool FileExists(const std::string& file) {
  return ::GetFileAttributesW(Utf8ToWide(file).c_str()) != INVALID_FILE_ATTRIBUTES;
}

bool ReadRegularFile(const std::string& file, size_t limit, std::string* contents,
                     std::string* error) {
  // Backup semantics let a folder be opened too, so that it is named for what it is; a named
  // pipe opened for reading is judged by its type before anything is read from it.
  HANDLE handle = ::CreateFileW(Utf8ToWide(file).c_str(), GENERIC_READ,
                                FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  if (handle == INVALID_HANDLE_VALUE) {
    *error = file + ": cannot open: " + WindowsError(::GetLastError());
    return false;
  }
  bool ok = false;
  BY_HANDLE_FILE_INFORMATION info;
  LARGE_INTEGER size;
  const DWORD type = ::GetFileType(handle);
  if (type == FILE_TYPE_CHAR) {
    *error = file + ": not a regular file (a character device)";
  } else if (type == FILE_TYPE_PIPE) {
    *error = file + ": not a regular file (a FIFO)";
  } else if (type != FILE_TYPE_DISK || !::GetFileInformationByHandle(handle, &info)) {
    *error = file + ": not a regular file (neither a file nor a directory)";
  } else if ((info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
    *error = file + ": not a regular file (a directory)";
  } else if (!::GetFileSizeEx(handle, &size)) {
    *error = file + ": cannot read: " + WindowsError(::GetLastError());
  } else if (static_cast<unsigned long long>(size.QuadPart) > limit) {
    *error = file + ": too large: " + std::to_string(size.QuadPart) + " bytes (the limit is " +
             std::to_string(limit) + ")";
  } else {
    std::string text(static_cast<size_t>(size.QuadPart) + 1, '\0');
    size_t used = 0;
    ok = true;
    for (;;) {
      if (used == text.size()) {
        if (text.size() > limit) break;
        text.resize(std::min(limit + 1, text.size() * 2));
      }
      DWORD n = 0;
      const DWORD chunk = static_cast<DWORD>(std::min<size_t>(text.size() - used, 1u << 30));
      if (!::ReadFile(handle, text.data() + used, chunk, &n, nullptr)) {
        *error = file + ": cannot read: " + WindowsError(::GetLastError());
        ok = false;
        break;
      }
      if (n == 0) break;
      used += n;
    }
    if (ok && used > limit) {
      *error = file + ": too large: more than " + std::to_string(limit) + " bytes (the limit is " +
               std::to_string(limit) + ")";
      ok = false;
    }
    if (ok) {
      text.resize(used);
      *contents = std::move(text);
    }
  }
  ::CloseHandle(handle);
  return ok;
}

}  // namespace nw::sim
