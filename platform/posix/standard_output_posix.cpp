#include <cstdio>

#include "platform/standard_output.h"

namespace nw::platform {

bool WriteStandardOutput(const char* data, std::size_t size) {
  return fwrite_unlocked(data, 1, size, stdout) == size;
}

}  // namespace nw::platform
