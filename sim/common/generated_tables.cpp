// Generated table entries (and blacklist ranges): each one a pure function of the table's seed and
// the entry's index, so a table of any size costs nothing until an entry is asked for, and asking
// twice gives the same entry. The mix is that of a busy small host: mostly IPv4, mostly TCP, a few
// ICMP exchanges, some other protocol now and then.

#include <cstdio>
#include <string>

#include "sim/common/scenario_tables.h"

namespace nw::sim {
namespace {

// A stream of well-mixed random bits from a seed and an index. Values in a range are taken by
// multiplying 32 random bits by the range's size, which needs no division.
class Mixer {
 public:
  Mixer(uint64_t seed, uint64_t index, uint64_t table)
      : state_(seed ^ (index * 0x9E3779B97F4A7C15u) ^ (table << 56)) {}

  uint64_t Next() {
    uint64_t z = (state_ += 0x9E3779B97F4A7C15u);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
    return z ^ (z >> 31);
  }
  /// A value from 0 to bound - 1.
  uint32_t Below(uint32_t bound) {
    if (!half_) {
      bits_ = Next();
      half_ = true;
    } else {
      bits_ >>= 32;
      half_ = false;
    }
    return static_cast<uint32_t>((bits_ & 0xFFFFFFFFu) * bound >> 32);
  }

 private:
  uint64_t state_;
  uint64_t bits_ = 0;
  bool half_ = false;
};

constexpr uint64_t kConnectionTable = 1;
constexpr uint64_t kEndpointTable = 2;
constexpr uint64_t kProcessTable = 3;
constexpr uint64_t kBlacklistTable = 4;

IpAddress Ipv4(uint8_t a, uint8_t b, uint8_t c, uint8_t d) {
  IpAddress address{};
  address.bytes[0] = a;
  address.bytes[1] = b;
  address.bytes[2] = c;
  address.bytes[3] = d;
  address.version = 4;
  return address;
}

IpAddress LocalIpv6(Mixer& mix) {
  IpAddress address{};
  address.bytes[0] = 0xfe;
  address.bytes[1] = 0x80;
  const uint64_t interfaceId = mix.Next();
  for (int i = 0; i < 8; ++i) address.bytes[8 + i] = static_cast<uint8_t>(interfaceId >> (8 * i));
  address.version = 6;
  return address;
}

IpAddress RemoteIpv6(Mixer& mix) {
  IpAddress address{};
  address.bytes[0] = 0x20;
  address.bytes[1] = 0x01;
  address.bytes[2] = 0x0d;
  address.bytes[3] = 0xb8;
  const uint64_t low = mix.Next();
  for (int i = 0; i < 8; ++i) address.bytes[8 + i] = static_cast<uint8_t>(low >> (8 * i));
  address.bytes[7] = static_cast<uint8_t>(mix.Below(256));
  address.version = 6;
  return address;
}

IpAddress RemoteIpv4(Mixer& mix) {
  return Ipv4(static_cast<uint8_t>(1 + mix.Below(223)), static_cast<uint8_t>(mix.Below(256)),
              static_cast<uint8_t>(mix.Below(256)), static_cast<uint8_t>(1 + mix.Below(254)));
}

uint32_t ProcessIdOf(Mixer& mix) { return 4 * (1 + mix.Below(400)); }

// Mostly TCP, then UDP, a few ICMP exchanges, and GRE now and then.
uint8_t ProtocolOf(Mixer& mix, bool ipv6) {
  const uint32_t roll = mix.Below(100);
  if (roll < 62) return 6;
  if (roll < 92) return 17;
  if (roll < 98) return ipv6 ? 58 : 1;
  return 47;
}

uint16_t WellKnownPort(Mixer& mix) {
  static constexpr uint16_t kPorts[] = {53, 80, 123, 135, 443, 445, 993, 3389, 5353, 8080};
  return kPorts[mix.Below(sizeof kPorts / sizeof kPorts[0])];
}

uint16_t EphemeralPort(Mixer& mix) { return static_cast<uint16_t>(49152 + mix.Below(16384)); }

}  // namespace

ConnectionEntry GenerateConnection(uint64_t seed, uint64_t index) {
  Mixer mix(seed, index, kConnectionTable);
  ConnectionEntry entry;
  const bool ipv6 = mix.Below(4) == 0;
  entry.processId = ProcessIdOf(mix);
  entry.protocol = ProtocolOf(mix, ipv6);
  entry.local = ipv6 ? LocalIpv6(mix) : Ipv4(192, 168, 1, static_cast<uint8_t>(2 + mix.Below(250)));
  entry.remote = ipv6 ? RemoteIpv6(mix) : RemoteIpv4(mix);
  entry.outbound = mix.Below(3) != 0;
  uint16_t localPort, remotePort;
  if (entry.protocol == 1 || entry.protocol == 58) {
    // Echo request or reply, code 0.
    localPort = static_cast<uint16_t>(mix.Below(2) == 0 ? (ipv6 ? 128 : 8) : (ipv6 ? 129 : 0));
    remotePort = 0;
  } else if (entry.outbound) {
    localPort = EphemeralPort(mix);
    remotePort = WellKnownPort(mix);
  } else {
    localPort = WellKnownPort(mix);
    remotePort = EphemeralPort(mix);
  }
  entry.storedLocalPort = StoredPort(entry.protocol, localPort);
  entry.storedRemotePort = StoredPort(entry.protocol, remotePort);
  // Most tracked connections are established; the rest spread over the other states.
  entry.state = mix.Below(3) != 0 ? 4 : static_cast<int32_t>(mix.Below(10));
  entry.left = mix.Below(64);
  entry.right = mix.Below(64);
  return entry;
}

EndpointEntry GenerateEndpoint(uint64_t seed, uint64_t index) {
  Mixer mix(seed, index, kEndpointTable);
  EndpointEntry entry;
  const bool ipv6 = mix.Below(4) == 0;
  entry.processId = ProcessIdOf(mix);
  entry.protocol = mix.Below(3) == 0 ? 17 : 6;
  if (ipv6) {
    entry.local = mix.Below(2) == 0 ? IpAddress{{}, 6} : LocalIpv6(mix);
  } else {
    entry.local = mix.Below(2) == 0 ? Ipv4(0, 0, 0, 0) : Ipv4(192, 168, 1, 20);
  }
  const uint16_t port = mix.Below(2) == 0 ? WellKnownPort(mix) : EphemeralPort(mix);
  entry.storedPort = StoredPort(entry.protocol, port);
  return entry;
}

ProcessEntry GenerateProcess(uint64_t seed, uint64_t index) {
  Mixer mix(seed, index, kProcessTable);
  ProcessEntry entry;
  entry.processId = kGeneratedProcessIdBase + 4 * index;
  const std::wstring number = std::to_wstring(index);
  const std::wstring folder = L"C:\\Program Files\\Tool" + std::to_wstring(mix.Below(50));
  entry.path = folder + L"\\worker" + number + L".exe";
  entry.caseCorrectPath = entry.path;
  entry.commandArgs = L"--instance " + number;
  entry.textSid =
      L"S-1-5-21-1004336348-1177238915-682003330-" + std::to_wstring(1000 + mix.Below(8));
  entry.validated = mix.Below(5) != 0;
  entry.trusted = entry.validated && mix.Below(4) != 0;
  if (mix.Below(3) != 0) entry.signer = L"Example Software Signing";
  entry.peDescription = L"Worker " + number;
  const uint64_t high = mix.Next(), low = mix.Next();
  for (int i = 0; i < 8; ++i) {
    entry.md5[i] = static_cast<uint8_t>(high >> (8 * i));
    entry.md5[8 + i] = static_cast<uint8_t>(low >> (8 * i));
  }
  return entry;
}

// A blacklist of addresses that attacked the host: mostly single IPv4 addresses or small IPv4
// blocks, some IPv6 prefixes, most of them made by the core itself and expiring, a few listed
// for good by an administrator.
BlacklistRange GenerateBlacklistRange(uint64_t seed, uint64_t index) {
  Mixer mix(seed, index, kBlacklistTable);
  BlacklistRange range;
  if (mix.Below(5) == 0) {
    range.low = RemoteIpv6(mix);
    range.high = range.low;
    for (int i = 8; i < 16; ++i) range.high.bytes[i] = 0xFF;
    range.version = 6;
  } else {
    range.low = RemoteIpv4(mix);
    range.high = range.low;
    if (mix.Below(3) == 0) {
      range.low.bytes[3] = 0;
      range.high.bytes[3] = 255;
    }
    range.version = 4;
  }
  range.autoCreate = mix.Below(4) != 0;
  if (range.autoCreate) {
    range.timeToLive = 60 * (1 + mix.Below(1440));
    range.timeRemaining = mix.Below(range.timeToLive);
  }
  return range;
}

std::optional<uint64_t> GeneratedProcessIndex(const GeneratedEntries& generated,
                                              uint64_t processId) {
  if (processId < kGeneratedProcessIdBase || (processId - kGeneratedProcessIdBase) % 4 != 0) {
    return std::nullopt;
  }
  const uint64_t index = (processId - kGeneratedProcessIdBase) / 4;
  if (index >= generated.count) return std::nullopt;
  return index;
}

}  // namespace nw::sim
