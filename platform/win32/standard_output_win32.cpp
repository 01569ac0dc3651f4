#include <cstdio>

#include "platform/standard_output.h"

namespace nw::platform {

// The system runtime this build links (msvcrt) has no unlocked write, so this one takes the
// stream's lock; the listings' speed is measured on the Linux build.
bool WriteStandardOutput(const char* data, std::size_t size) {
  return std::fwrite(data, 1, size, stdout) == size;
}

}  // namespace nw::platform
