// The yardstick of the state-table benchmark: a plain program that writes the bytes of
// `netwarden -statetable` for a generated table, each line with snprintf into one buffer, and
// the buffer with one fwrite. It reads the same generated entries as the simulated core and
// knows nothing of netwarden's code.
//
// Usage: statetable_reference <connections> <seed>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "sim/common/scenario_tables.h"

namespace {

const char* const kStates[] = {
    "FWCS_UNKNOWN",      "FWCS_LISTEN",           "FWCS_INIT",
    "FWCS_CONNECTING",   "FWCS_ESTABLISHED",      "FWCS_PROBATION_PENDING",
    "FWCS_ON_PROBATION", "FWCS_PROBATION_FAILED", "FWCS_TIMED_OUT",
    "FWCS_CHILD_INIT",
};

int FormatAddress(char* out, size_t capacity, const nw::IpAddress& a) {
  const uint8_t* b = a.bytes;
  if (a.version == 4) return std::snprintf(out, capacity, "%u.%u.%u.%u", b[0], b[1], b[2], b[3]);
  return std::snprintf(out, capacity, "%x:%x:%x:%x:%x:%x:%x:%x", b[0] << 8 | b[1], b[2] << 8 | b[3],
                       b[4] << 8 | b[5], b[6] << 8 | b[7], b[8] << 8 | b[9], b[10] << 8 | b[11],
                       b[12] << 8 | b[13], b[14] << 8 | b[15]);
}

unsigned FromNetworkOrder(uint16_t stored) {
  uint8_t b[2];
  std::memcpy(b, &stored, sizeof b);
  return static_cast<unsigned>(b[0] << 8 | b[1]);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: statetable_reference <connections> <seed>\n");
    return 2;
  }
  const uint64_t count = std::strtoull(argv[1], nullptr, 10);
  const uint64_t seed = std::strtoull(argv[2], nullptr, 10);
  std::string out;
  char line[512];
  int n = std::snprintf(line, sizeof line,
                        "\nBytes Sent Since Boot:     0\nBytes Received Since Boot: 0\n"
                        "Active Connections:        %llu\n",
                        static_cast<unsigned long long>(count));
  out.append(line, static_cast<size_t>(n));
  for (const uint32_t version : {4u, 6u}) {
    out += version == 4 ? "\n=============================IPv4=================================\n"
                        : "\n=============================IPv6=================================\n";
    for (uint64_t i = 0; i < count; ++i) {
      const nw::sim::ConnectionEntry e = nw::sim::GenerateConnection(seed, i);
      if (e.local.version != version) continue;
      char local[48], remote[48];
      FormatAddress(local, sizeof local, e.local);
      FormatAddress(remote, sizeof remote, e.remote);
      const bool icmp = e.protocol == 1 || e.protocol == 58;
      const char* name = icmp              ? (e.remote.version == 6 ? "ICMPv6" : "ICMP")
                         : e.protocol == 6 ? "TCP"
                                           : "UDP";
      const unsigned localPort = icmp ? e.storedLocalPort : FromNetworkOrder(e.storedLocalPort);
      const unsigned remotePort = icmp ? e.storedRemotePort : FromNetworkOrder(e.storedRemotePort);
      const char* state = e.state >= 0 && e.state < 10 ? kStates[e.state] : "FWCS_INVALID";
      n = std::snprintf(line, sizeof line, "PID %04d %s %s %d %s %s %d %d/%d %s\n",
                        static_cast<int>(e.processId), name, local, static_cast<int>(localPort),
                        e.outbound ? "-->" : "<--", remote, static_cast<int>(remotePort),
                        static_cast<int>(e.left), static_cast<int>(e.right), state);
      out.append(line, static_cast<size_t>(n));
    }
  }
  return std::fwrite(out.data(), 1, out.size(), stdout) == out.size() ? 0 : 1;
}
