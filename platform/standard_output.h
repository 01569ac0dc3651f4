#pragma once

#include <cstddef>

namespace nw::platform {

/// Writes size bytes to the C runtime's standard output stream with one stdio write, in order
/// with every other write to it. Where the runtime offers it, the stream's lock is not taken:
/// the program has one thread (the console is never written from another), and the lock costs
/// as much as the copy for the short texts a listing writes. True when every byte was accepted.
bool WriteStandardOutput(const char* data, std::size_t size);

}  // namespace nw::platform
