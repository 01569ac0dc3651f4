#include "lab/progress.h"

#include <cstdio>
#include <utility>

#include "lab/lab_files.h"

namespace nw::lab {

Progress::Progress(std::string command)
    : command_(std::move(command)),
      terminal_(StandardErrorIsTerminal()),
      start_(std::chrono::steady_clock::now()),
      next_(start_ + std::chrono::seconds(1)) {}

void Progress::Show(uint64_t count, const char* what) {
  if (!terminal_) return;
  const auto now = std::chrono::steady_clock::now();
  if (now < next_) return;
  next_ = now + std::chrono::milliseconds(100);
  // "\r" back to the line's start, "\x1b[K" clears what a longer line left.
  std::fprintf(stderr, "\rnetwarden-lab: %s: %llu %s\x1b[K", command_.c_str(),
               static_cast<unsigned long long>(count), what);
  std::fflush(stderr);
  shown_ = true;
}

void Progress::Done() {
  if (!shown_) return;
  std::fputs("\r\x1b[K", stderr);
  std::fflush(stderr);
  shown_ = false;
}

}  // namespace nw::lab
