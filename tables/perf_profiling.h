#pragma once

// The profiling commands: starting and stopping the kernel driver's profiler and reading its
// counters, over a synchronous link to the driver. They keep to narrow text on standard output
// and never touch LastStatus.

#include <cstdint>

#include "core/interfaces.h"

namespace nw {

/// Every reply buffer is at least this large.
inline constexpr uint32_t kMinimumReplyBuffer = 4096;
/// The reply header before the data that QueryDriverBuffer hands back.
inline constexpr uint32_t kReplyHeaderSize = 32;
/// ERROR_NOT_ENOUGH_MEMORY: QueryDriverBuffer's answer to any failure of memory or driver and
/// to a reply shorter than its header.
inline constexpr uint32_t kQueryFailed = 8;
/// ERROR_INSUFFICIENT_BUFFER: the data came back shorter than the reply announced.
inline constexpr uint32_t kQueryShortData = 122;

/// Opens a synchronous link ("DrvLinkConnect" of the driver-link library) to the kernel driver
/// with the given file name. Returns the link, which the caller releases, or null after printing
/// "Error returned from DrvLinkConnectCreate, %d" (the library, its export or the connector
/// failed) or "Error returned from ConnectToContentDriver %ls, %d" (the driver could not be
/// reached), neither with a line break.
IDriverLink* OpenDriverLink(const wchar_t* driverName);

/// Sends a request that answers with a reply buffer (a 32-byte header whose first field is the
/// size of the data the driver holds, then the data) into a buffer of capacity bytes, but at
/// least 4096, and once more into one of twice the announced size plus 32 when the first did
/// not take it all. Returns 0 with *data pointing 32 bytes into the reply and *dataSize its
/// bytes; 122 with the same when the data came back shorter than announced; 8, with *data null,
/// when memory ran out, a send failed, fewer than 32 bytes came back, or the announced size
/// cannot be asked for in one 32-bit request. Whenever *data is set, free it with
/// FreeDriverBuffer.
uint32_t QueryDriverBuffer(IDriverLink* link, uint32_t code, const void* input, uint32_t inputSize,
                           uint8_t** data, uint64_t* dataSize, uint32_t capacity);
/// Frees a reply from the data pointer QueryDriverBuffer handed back (null is accepted).
void FreeDriverBuffer(uint8_t* data);

}  // namespace nw
