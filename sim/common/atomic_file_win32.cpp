#include <fcntl.h>
#include <io.h>
#include <process.h>
#include <sys/stat.h>
#include <windows.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/format.h"
#include "sim/common/json_util.h"

namespace nw::sim {

bool WriteFileAtomically(const std::string& file, std::string_view contents, std::string* error) {
  const std::string temp = file + ".tmp." + std::to_string(::_getpid());
  const std::wstring wideTemp = Utf8ToWide(temp);
  const std::wstring wideFile = Utf8ToWide(file);
  // Binary mode: the runtime would otherwise turn every "\n" into "\r\n".
  int fd = ::_wopen(wideTemp.c_str(), _O_WRONLY | _O_CREAT | _O_TRUNC | _O_BINARY | _O_NOINHERIT,
                    _S_IREAD | _S_IWRITE);
  if (fd < 0) {
    *error = temp + ": cannot create: " + std::strerror(errno);
    return false;
  }
  size_t written = 0;
  while (written < contents.size()) {
    const size_t chunk = std::min<size_t>(contents.size() - written, size_t{1} << 30);
    const int n = ::_write(fd, contents.data() + written, static_cast<unsigned>(chunk));
    if (n <= 0) {
      *error = temp + ": cannot write: " + std::strerror(errno);
      ::_close(fd);
      ::_wunlink(wideTemp.c_str());
      return false;
    }
    written += static_cast<size_t>(n);
  }
  if (::_commit(fd) != 0 || ::_close(fd) != 0) {
    *error = temp + ": cannot flush: " + std::strerror(errno);
    ::_wunlink(wideTemp.c_str());
    return false;
  }
  // rename() will not replace an existing file here; MoveFileEx does, and with write-through it
  // returns only once the new name is on disk.
  if (!::MoveFileExW(wideTemp.c_str(), wideFile.c_str(),
                     MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
    *error = file + ": cannot replace: Windows error " + std::to_string(::GetLastError());
    ::_wunlink(wideTemp.c_str());
    return false;
  }
  return true;
}

}  // namespace nw::sim
