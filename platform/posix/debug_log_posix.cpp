#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include "base/format.h"
#include "platform/debug_log.h"

namespace nw::platform {

void WriteDebuggerOutput(const wchar_t* text) {
  // Read the variable on every call: the simulated libraries share this code and a test may
  // point the log elsewhere between runs in one process.
  const char* file = std::getenv("NETWARDEN_DEBUG_LOG");
  if (file == nullptr || *file == '\0' || text == nullptr) return;
  const std::string bytes = WideToUtf8(text);
  // One append per message, so lines from the program and the simulated core interleave whole.
  int fd = ::open(file, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0) return;
  size_t done = 0;
  while (done < bytes.size()) {
    ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    done += static_cast<size_t>(n);
  }
  ::close(fd);
}

}  // namespace nw::platform
