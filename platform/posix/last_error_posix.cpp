#include "platform/last_error.h"

namespace nw::platform {
namespace {

// Windows starts every thread with a last error of 0.
thread_local uint32_t lastError = 0;

}  // namespace

uint32_t ThreadLastError() { return lastError; }

void SetThreadLastError(uint32_t error) { lastError = error; }

}  // namespace nw::platform
