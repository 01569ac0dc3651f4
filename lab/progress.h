#pragma once

// A progress line on standard error for long work (a large capture or import).

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

namespace nw::lab {

/// What a long piece of work reports as it goes: how many of what it has done.
using ProgressReport = std::function<void(uint64_t count, const char* what)>;

/// Shows "netwarden-lab: <command>: <count> <what>" on standard error, rewritten in place,
/// when standard error is a terminal and the work has gone on for a second; at most ten times a
/// second, so that reporting costs nothing next to the work. Nothing when standard error is a
/// file or a pipe: a script sees only the messages that matter.
class Progress {
 public:
  explicit Progress(std::string command);
  ~Progress() { Done(); }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void Show(uint64_t count, const char* what);
  /// Clears the line, if one is shown.
  void Done();
  /// A report that shows on this line.
  ProgressReport Report() {
    return [this](uint64_t count, const char* what) { Show(count, what); };
  }

 private:
  std::string command_;
  bool terminal_;
  bool shown_ = false;
  std::chrono::steady_clock::time_point start_, next_;
};

}  // namespace nw::lab
