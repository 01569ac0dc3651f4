#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include "sim/common/file_io.h"

namespace nw::sim {
namespace {

const char* KindOf(mode_t mode) {
  if (S_ISDIR(mode)) return "a directory";
  if (S_ISFIFO(mode)) return "a FIFO";
  if (S_ISCHR(mode)) return "a character device";
  if (S_ISBLK(mode)) return "a block device";
  if (S_ISSOCK(mode)) return "a socket";
  return "neither a file nor a directory";
}

bool NotRegular(const std::string& file, mode_t mode, std::string* error) {
  *error = file + ": not a regular file (" + KindOf(mode) + ")";
  return false;
}

}  // namespace

bool FileExists(const std::string& file) {
  struct stat st;
  return ::lstat(file.c_str(), &st) == 0;
}

bool ReadRegularFile(const std::string& file, size_t limit, std::string* contents,
                     std::string* error) {
  // Non-blocking, so that opening a FIFO returns at once instead of waiting for a writer; what
  // was opened is then judged on the descriptor itself.
  const int fd = ::open(file.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (fd < 0) {
    const int openError = errno;
    struct stat st;
    // A socket cannot be opened at all; say what it is rather than the system's riddle.
    if (::stat(file.c_str(), &st) == 0 && !S_ISREG(st.st_mode)) {
      return NotRegular(file, st.st_mode, error);
    }
    *error = file + ": cannot open: " + std::strerror(openError);
    return false;
  }
  struct stat st;
  bool ok = false;
  if (::fstat(fd, &st) != 0) {
    *error = file + ": cannot read: " + std::strerror(errno);
  } else if (!S_ISREG(st.st_mode)) {
    NotRegular(file, st.st_mode, error);
  } else if (static_cast<unsigned long long>(st.st_size) > limit) {
    *error = file + ": too large: " + std::to_string(st.st_size) + " bytes (the limit is " +
             std::to_string(limit) + ")";
  } else {
    // The file may grow while it is read: never take more than the limit, and one byte more to
    // notice that it did.
    std::string text(static_cast<size_t>(st.st_size) + 1, '\0');
    size_t used = 0;
    ok = true;
    for (;;) {
      if (used == text.size()) {
        if (text.size() > limit) break;
        text.resize(std::min(limit + 1, text.size() * 2));
      }
      const ssize_t n = ::read(fd, text.data() + used, text.size() - used);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) {
        *error = file + ": cannot read: " + std::strerror(errno);
        ok = false;
        break;
      }
      if (n == 0) break;
      used += static_cast<size_t>(n);
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
  ::close(fd);
  return ok;
}

}  // namespace nw::sim
