// One table of expectations for the address, UUID and clock facilities, run against whichever
// backend this program is built with: the emulation on Linux, the real Win32 calls under Wine (or
// on Windows). Where the two disagree, the emulation is wrong. A plain program rather than a
// GoogleTest one, because the Windows build has no test framework; it prints each failed
// expectation and exits with 1 when there was any.

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "base/format.h"
#include "platform/clock.h"
#include "platform/process.h"
#include "platform/uuid.h"
#include "tests/conformance/expect.h"

namespace {

using namespace nw;
using nw::conformance::Expect;

std::string Bytes(const uint8_t* bytes, size_t count) {
  std::string text;
  char two[3];
  for (size_t i = 0; i < count; ++i) {
    std::snprintf(two, sizeof two, "%02x", bytes[i]);
    text += two;
  }
  return text;
}

void CheckAddresses() {
  constexpr int32_t kInvalid = 10022;
  const struct {
    const wchar_t* text;
    uint16_t family;
    int32_t error;
    const char* bytes;  // the address in network order, as hex
  } cases[] = {
      {L"10.0.0.1", platform::kAfInet, 0, "0a000001"},
      {L"255.255.255.255", platform::kAfInet, 0, "ffffffff"},
      {L"0.0.0.0", platform::kAfInet, 0, "00000000"},
      {L"fe80::1", platform::kAfInet6, 0, "fe800000000000000000000000000001"},
      {L"::", platform::kAfInet6, 0, "00000000000000000000000000000000"},
      {L"::ffff:10.0.0.1", platform::kAfInet6, 0, "00000000000000000000ffff0a000001"},
      {L"2001:DB8::A", platform::kAfInet6, 0, "20010db800000000000000000000000a"},
      {L"fe80::1", platform::kAfInet, kInvalid, ""},
      {L"10.0.0.1", platform::kAfInet6, kInvalid, ""},
      {L"256.0.0.1", platform::kAfInet, kInvalid, ""},
      {L"fe80::1::2", platform::kAfInet6, kInvalid, ""},
      {L"host.example", platform::kAfInet, kInvalid, ""},
      {L"", platform::kAfInet, kInvalid, ""},
      {L"", platform::kAfInet6, kInvalid, ""},
  };
  platform::Process& process = platform::TheProcess();
  for (const auto& c : cases) {
    const std::string name =
        "StringToAddress(\"" + WideToUtf8(c.text) + "\", " + std::to_string(c.family) + ")";
    platform::SocketAddress address;
    std::memset(&address, 0xA5, sizeof address);
    int32_t length = c.family == platform::kAfInet ? 16 : 28;
    const int32_t error = process.StringToAddress(c.text, c.family, &address, &length);
    Expect(error == c.error,
           name + ": error " + std::to_string(error) + ", expected " + std::to_string(c.error));
    if (error != 0 || c.error != 0) continue;
    Expect(address.family == c.family, name + ": family " + std::to_string(address.family));
    Expect(length == (c.family == platform::kAfInet ? 16 : 28),
           name + ": length " + std::to_string(length));
    const std::string bytes = c.family == platform::kAfInet ? Bytes(address.v4.address, 4)
                                                            : Bytes(address.v6.address, 16);
    Expect(bytes == c.bytes, name + ": address " + bytes + ", expected " + c.bytes);
    Expect(address.v4.port == 0, name + ": port not zero");
  }
}

std::string GuidText(const Guid& g) {
  char text[40];
  std::snprintf(text, sizeof text, "%08x-%04x-%04x-%s", static_cast<unsigned>(g.Data1), g.Data2,
                g.Data3, Bytes(g.Data4, 8).c_str());
  return text;
}

void CheckUuids() {
  constexpr int32_t kInvalid = platform::kRpcInvalidStringUuid;
  const struct {
    const wchar_t* text;
    int32_t status;
    const char* guid;  // Data1-Data2-Data3-Data4 as hex
  } cases[] = {
      {L"44eefc7c-a76a-4af4-abd9-c933cab67361", 0, "44eefc7c-a76a-4af4-abd9c933cab67361"},
      {L"44EEFC7C-A76A-4AF4-ABD9-C933CAB67361", 0, "44eefc7c-a76a-4af4-abd9c933cab67361"},
      {L"00000000-0000-0000-0000-000000000000", 0, "00000000-0000-0000-0000000000000000"},
      {nullptr, 0, "00000000-0000-0000-0000000000000000"},
      {L"{44eefc7c-a76a-4af4-abd9-c933cab67361}", kInvalid, ""},
      {L"44eefc7c-a76a-4af4-abd9-c933cab6736", kInvalid, ""},
      {L"44eefc7c-a76a-4af4-abd9-c933cab673611", kInvalid, ""},
      {L"44eefc7c-a76a-4af4-abd9-c933cab6736g", kInvalid, ""},
      {L"44eefc7ca76a-4af4-abd9-c933cab673610", kInvalid, ""},
      {L"", kInvalid, ""},
  };
  platform::Uuids& uuids = platform::TheUuids();
  for (const auto& c : cases) {
    // Built piece by piece: GCC 12 warns wrongly about a literal + temporary string here.
    std::string name = "UuidFromString(";
    name += c.text != nullptr ? '"' + WideToUtf8(c.text) + '"' : std::string("null");
    name += ')';
    Guid guid;
    std::memset(&guid, 0xA5, sizeof guid);
    const int32_t status = uuids.FromString(c.text, &guid);
    Expect(status == c.status, name + ": status " + std::to_string(status));
    if (status == 0 && c.status == 0) {
      Expect(GuidText(guid) == c.guid, name + ": " + GuidText(guid));
    }
  }
  Guid first{}, second{};
  Expect(uuids.Create(&first) == 0 && uuids.Create(&second) == 0, "UuidCreate failed");
  Expect(!(first == second), "UuidCreate gave the same identifier twice");
  Expect((first.Data3 >> 12) == 4,
         "UuidCreate: not a random (version 4) identifier: " + GuidText(first));
}

// The clock's contract as the profiling report relies on it: a frequency of at least 1, and two
// counters that move forward while time passes. Exact values differ by host; the relation of
// the performance counter to real time is checked within a loose bound.
void CheckClock() {
  platform::Clock& clock = platform::TheClock();
  const uint64_t frequency = clock.QueryPerformanceFrequency();
  Expect(frequency > 0, "QueryPerformanceFrequency: 0");
  Expect(clock.QueryPerformanceFrequency() == frequency,
         "QueryPerformanceFrequency changed between two calls");
  const uint64_t counter = clock.QueryPerformanceCounter();
  const uint64_t cycles = clock.ReadCycleCounter();
  // A twentieth of a second of the counter, waited for the way the report waits.
  uint64_t now = counter;
  uint64_t readings = 0;
  while (now - counter < frequency / 20) {
    const uint64_t next = clock.QueryPerformanceCounter();
    Expect(next >= now, "QueryPerformanceCounter went backwards");
    now = next;
    ++readings;
  }
  const uint64_t elapsedCycles = clock.ReadCycleCounter() - cycles;
  Expect(readings > 0, "QueryPerformanceCounter did not move");
  Expect(elapsedCycles > 0, "the time-stamp counter did not move");
}

}  // namespace

int main() {
  if (const int32_t error = platform::TheProcess().WsaStartup(0x0202)) {
    std::printf("FAILED: WSAStartup %d\n", static_cast<int>(error));
    return 1;
  }
  CheckAddresses();
  CheckUuids();
  CheckClock();
  platform::TheProcess().WsaCleanup();
  return nw::conformance::Verdict();
}
