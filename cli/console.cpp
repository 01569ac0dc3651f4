#include "cli/console.h"

#include <climits>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <string>

#include "base/format.h"

namespace nw {

Status LastStatus = kStatusOk;

int ConsolePrint(const wchar_t* format, ...) {
  // Listings print a line per call, so the text is built in a buffer that lives as long as the
  // thread and keeps its capacity; only an unusually long line makes it grow.
  thread_local std::string line;
  line.clear();
  va_list args;
  va_start(args, format);
  const std::size_t count = AppendFormatConsole(line, format, args);
  va_end(args);
  const bool written = std::fwrite(line.data(), 1, line.size(), stdout) == line.size();
  // One huge line should not pin its memory for the rest of the run.
  constexpr std::size_t kKeptCapacity = std::size_t{1} << 20;
  if (line.capacity() > kKeptCapacity) std::string().swap(line);
  if (!written) return -1;
  return count > INT_MAX ? INT_MAX : static_cast<int>(count);
}

}  // namespace nw
