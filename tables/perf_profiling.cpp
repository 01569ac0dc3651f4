#include "tables/perf_profiling.h"

#include <cstdio>
#include <new>

#include "base/bounded_string.h"
#include "cli/driver_link.h"
#include "cli/handlers.h"
#include "cli/loader.h"
#include "tables/perf_report.h"

namespace nw {
namespace {

constexpr uint32_t kReadProfileCapacity = 65536;
// The largest announced size whose regrown buffer, twice it plus the header, still fits the
// 32-bit output size of a request.
constexpr uint64_t kLargestRegrowableSize = (UINT32_MAX - kReplyHeaderSize) / 2;

uint64_t ReadLe64(const uint8_t* bytes) {
  uint64_t value = 0;
  for (size_t i = 8; i > 0; --i) value = value << 8 | bytes[i - 1];
  return value;
}

// A zeroed buffer, so that a driver that returns less than a header leaves nothing undefined
// to be read as the announced size.
uint8_t* NewReplyBuffer(uint64_t size) { return new (std::nothrow) uint8_t[size](); }

// Sends the request into buffer; *returned is the byte count, never more than the buffer holds.
bool Send(IDriverLink* link, uint32_t code, const void* input, uint32_t inputSize, uint8_t* buffer,
          uint32_t size, uint32_t* returned) {
  *returned = size;
  if (link->SendControlRequest(code, input, inputSize, buffer, size, returned) != kStatusOk) {
    return false;
  }
  if (*returned > size) *returned = size;
  return true;
}

}  // namespace

IDriverLink* OpenDriverLink(const wchar_t* driverName) {
  size_t nameLength = 0;
  if (!BoundedLength(DriverLinkLibraryName, kMaxLibraryNameChars, &nameLength)) {
    PrintNarrow(stdout, "Error returned from DrvLinkConnectCreate, %d",
                static_cast<int>(kErrorInvalidParameter));
    return nullptr;
  }
  IDriverLinkConnector* connector = nullptr;
  Status status = GetProductInterface(DriverLinkLibraryName, nameLength, "DrvLinkConnect",
                                      reinterpret_cast<void**>(&connector), nullptr);
  // A library that reports success without a connector has handed out nothing to use.
  if (status == kStatusOk && connector == nullptr) status = kStatusNoInterface;
  IDriverLink* link = nullptr;
  if (status != kStatusOk) {
    PrintNarrow(stdout, "Error returned from DrvLinkConnectCreate, %d", status);
  } else {
    status = connector->ConnectToContentDriver(driverName, &link);
    if (status == kStatusOk && link == nullptr) status = kStatusNoInterface;
    if (status != kStatusOk) {
      PrintNarrow(stdout, "Error returned from ConnectToContentDriver %ls, %d", driverName, status);
      link = nullptr;
    }
  }
  if (connector != nullptr) connector->Release();
  return link;
}

uint32_t QueryDriverBuffer(IDriverLink* link, uint32_t code, const void* input, uint32_t inputSize,
                           uint8_t** data, uint64_t* dataSize, uint32_t capacity) {
  *data = nullptr;
  *dataSize = 0;
  uint32_t size = capacity < kMinimumReplyBuffer ? kMinimumReplyBuffer : capacity;
  uint8_t* buffer = NewReplyBuffer(size);
  if (buffer == nullptr) return kQueryFailed;
  if (!Send(link, code, input, inputSize, buffer, size, &capacity)) {
    delete[] buffer;
    return kQueryFailed;
  }
  const uint64_t needed = ReadLe64(buffer);
  if (needed > UINT64_MAX - kReplyHeaderSize || needed + kReplyHeaderSize > capacity) {
    delete[] buffer;
    if (needed > kLargestRegrowableSize) return kQueryFailed;
    size = static_cast<uint32_t>(2 * needed + kReplyHeaderSize);
    buffer = NewReplyBuffer(size);
    if (buffer == nullptr) return kQueryFailed;
    if (!Send(link, code, input, inputSize, buffer, size, &capacity)) {
      delete[] buffer;
      return kQueryFailed;
    }
  }
  if (capacity < kReplyHeaderSize) {
    delete[] buffer;
    return kQueryFailed;
  }
  *dataSize = capacity - kReplyHeaderSize;
  *data = buffer + kReplyHeaderSize;
  return *dataSize < ReadLe64(buffer) ? kQueryShortData : 0;
}

void FreeDriverBuffer(uint8_t* data) {
  if (data != nullptr) delete[](data - kReplyHeaderSize);
}

void PerfProfilingControl(bool start) {
  IDriverLink* link = OpenDriverLink(FirewallDriverName);
  if (link == nullptr) return;
  const Status status =
      link->SendControlRequest(start ? kDriverRequestStartProfiling : kDriverRequestStopProfiling,
                               nullptr, 0, nullptr, 0, nullptr);
  if (status != kStatusOk) {
    PrintNarrow(stdout,
                "Failed to %s performance profiling, err=%d.\nProbably vantor was not built with "
                "profiling flag\n",
                start ? "start" : "stop", status);
  }
  link->Release();
}

void GetPerfData(bool csv) {
  IDriverLink* link = OpenDriverLink(FirewallDriverName);
  if (link == nullptr) return;
  uint8_t* data = nullptr;
  uint64_t size = 0;
  uint32_t result = QueryDriverBuffer(link, kDriverRequestReadProfile, nullptr, 0, &data, &size,
                                      kReadProfileCapacity);
  if (result == 0) result = PrintPerfReport(data, size, csv, stdout);
  if (result != 0) PrintNarrow(stdout, "Failed to get perf data, err=%d\n", result);
  // A short reply is the caller's to free as well.
  FreeDriverBuffer(data);
  link->Release();
}

}  // namespace nw
