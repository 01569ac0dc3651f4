#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "sim/common/json_util.h"

namespace nw::sim {

bool WriteFileAtomically(const std::string& file, std::string_view contents, std::string* error) {
  const std::string temp = file + ".tmp." + std::to_string(::getpid());
  int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) {
    *error = temp + ": cannot create: " + std::strerror(errno);
    return false;
  }
  size_t written = 0;
  while (written < contents.size()) {
    ssize_t n = ::write(fd, contents.data() + written, contents.size() - written);
    if (n < 0) {
      if (errno == EINTR) continue;
      *error = temp + ": cannot write: " + std::strerror(errno);
      ::close(fd);
      ::unlink(temp.c_str());
      return false;
    }
    written += static_cast<size_t>(n);
  }
  const bool synced = ::fsync(fd) == 0;
  const int syncError = errno;
  const bool closed = ::close(fd) == 0;
  if (!synced || !closed) {
    *error = temp + ": cannot flush: " + std::strerror(synced ? errno : syncError);
    ::unlink(temp.c_str());
    return false;
  }
  if (::rename(temp.c_str(), file.c_str()) != 0) {
    *error = file + ": cannot replace: " + std::strerror(errno);
    ::unlink(temp.c_str());
    return false;
  }
  return true;
}

}  // namespace nw::sim
