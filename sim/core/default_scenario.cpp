#include "sim/core/default_scenario.h"

namespace nw::sim {
namespace {

// Keep examples/default-scenario.json the same as this text.
constexpr std::string_view kDefaultScenario = R"json({
  "service": {
    "running": true
  },
  "faults": {},
  "debug": {
    "trace": false,
    "reportLeaks": true
  },
  "driverLink": {
    "driverRunning": true
  },
  "versions": {
    "service": "4.12.305.0",
    "engine": "4.12.305.0",
    "controlLibrary": "4.12.305.0"
  },
  "hooks": {
    "fragment": false,
    "packet": true,
    "forward": false,
    "stream": true
  },
  "config": {
    "maxKernelLogQueueSize": 1048576,
    "maxPointProductReplyTime": 30,
    "globalPassthru": false,
    "packetPassthru": false,
    "streamPassthru": false,
    "traceLogMask": 3,
    "trafficLog": false,
    "maxTrafficLogSize": 10485760,
    "maxStateTableSize": 65536,
    "stateTableGcPeriod": 30,
    "stateTableTcpTimeout": 120,
    "stateTableUdpTimeout": 60,
    "stateTableForcedTcpTimeout": 86400,
    "logThrottle": 1000,
    "trackForwardedConnections": false,
    "stateTableTcpConnRemovalTimeout": 10,
    "connectionThrottleBurstThreshold": 1000,
    "connectionThrottleMaxConnectionsRate": 200
  },
  "adapters": [
    {
      "name": "{6A1C3F0E-5B2D-4E8A-9C71-2F4B8D0E1A35}",
      "description": "Gigabit Network Connection",
      "dnsSuffix": "corp.example",
      "physicalAddress": "00-1a-2b-3c-4d-5e",
      "physicalMedium": 1,
      "interfaceIndex": 12,
      "interfaceIndexV6": 12,
      "ipAddresses": [
        {"address": "192.168.1.20", "prefixLength": 24},
        {"address": "fe80::21a:2bff:fe3c:4d5e", "prefixLength": 64}
      ],
      "gateways": [
        {"address": "192.168.1.1", "physicalAddress": "00-1a-2b-00-00-01"}
      ],
      "dhcpEnabled": true,
      "dhcpServer": "192.168.1.1",
      "dnsServers": ["192.168.1.1", "192.168.1.2"],
      "haveWins": false,
      "primaryWins": null,
      "secondaryWins": null
    },
    {
      "name": "{0F3E7B12-8C44-4D0A-B5E6-9A2C1D7F4B80}",
      "description": "Wireless Network Adapter",
      "dnsSuffix": "",
      "physicalAddress": "3c-a9-f4-10-22-7b",
      "physicalMedium": 2,
      "interfaceIndex": 17,
      "interfaceIndexV6": 17,
      "ipAddresses": [],
      "gateways": [],
      "dhcpEnabled": true,
      "dhcpServer": null,
      "dnsServers": [],
      "haveWins": false,
      "primaryWins": null,
      "secondaryWins": null
    },
    {
      "name": "{A7D90C55-1E2F-4B3A-8D6C-5E4F3A2B1C0D}",
      "description": "Tunnel Adapter",
      "dnsSuffix": "",
      "physicalAddress": "00-00-00-00-00-00-00-e0",
      "physicalMedium": 5,
      "interfaceIndex": 0,
      "interfaceIndexV6": 14,
      "ipAddresses": [
        {"address": "2001:0:c0a8:114:2c5a:3f57:3f57:feeb", "prefixLength": 64}
      ],
      "gateways": [],
      "dhcpEnabled": false,
      "dhcpServer": null,
      "dnsServers": [],
      "haveWins": false,
      "primaryWins": null,
      "secondaryWins": null
    }
  ],
  "addresses": [
    "192.168.1.20",
    "fe80::21a:2bff:fe3c:4d5e",
    "2001:0:c0a8:114:2c5a:3f57:3f57:feeb",
    "127.0.0.1",
    "::1"
  ],
  "connections": {
    "bytesSent": 48213977,
    "bytesReceived": 913465021,
    "entries": [
      {"pid": 2310, "protocol": 6, "local": "192.168.1.20", "localPort": 50412, "remote": "203.0.113.80", "remotePort": 443, "state": 4, "left": 3, "right": 1, "outbound": true},
      {"pid": 1004, "protocol": 17, "local": "192.168.1.20", "localPort": 61530, "remote": "192.168.1.1", "remotePort": 53, "state": 4, "left": 0, "right": 0, "outbound": true},
      {"pid": 4, "protocol": 6, "local": "192.168.1.20", "localPort": 445, "remote": "192.168.1.35", "remotePort": 52211, "state": 4, "left": 1, "right": 2, "outbound": false},
      {"pid": 5120, "protocol": 1, "local": "192.168.1.20", "localPort": 8, "remote": "198.51.100.7", "remotePort": 0, "state": 3, "left": 0, "right": 0, "outbound": true},
      {"pid": 2310, "protocol": 6, "local": "fe80::21a:2bff:fe3c:4d5e", "localPort": 50433, "remote": "fe80::1", "remotePort": 8080, "state": 2, "left": 0, "right": 0, "outbound": true},
      {"pid": 1004, "protocol": 58, "local": "fe80::21a:2bff:fe3c:4d5e", "localPort": 135, "remote": "fe80::1", "remotePort": 0, "state": 4, "left": 0, "right": 0, "outbound": false}
    ]
  },
  "endpoints": {
    "entries": [
      {"pid": 1004, "protocol": 6, "local": "0.0.0.0", "port": 135},
      {"pid": 4, "protocol": 6, "local": "192.168.1.20", "port": 445},
      {"pid": 1004, "protocol": 17, "local": "0.0.0.0", "port": 5353},
      {"pid": 2310, "protocol": 17, "local": "192.168.1.20", "port": 61530},
      {"pid": 1004, "protocol": 6, "local": "::", "port": 135},
      {"pid": 1004, "protocol": 17, "local": "::", "port": 5353}
    ]
  },
  "processes": {
    "entries": [
      {"pid": 4},
      {"pid": 424, "path": "\\SystemRoot\\System32\\smss.exe", "caseCorrectPath": "C:\\Windows\\System32\\smss.exe", "commandArgs": "", "textSid": "S-1-5-18", "signer": "Example Platform Publisher", "peDescription": "Session Manager", "validated": true, "trusted": true, "md5": "5a9d6b1c2e3f405162738495a6b7c8d9"},
      {"pid": 1004, "path": "C:\\Windows\\System32\\svchost.exe", "caseCorrectPath": "C:\\Windows\\System32\\svchost.exe", "commandArgs": "-k netsvcs -p", "textSid": "S-1-5-18", "signer": "Example Platform Publisher", "peDescription": "Host Process for Services", "validated": true, "trusted": true, "md5": "8f14e45fceea167a5a36dedd4bea2543"},
      {"pid": 2310, "path": "C:\\Program Files\\Korvane\\HostBase\\kvxfires.exe", "caseCorrectPath": "C:\\Program Files\\Korvane\\HostBase\\kvxfires.exe", "commandArgs": null, "textSid": "S-1-5-18", "signer": "Korvane Software", "peDescription": "Korvane Firewall Service", "validated": true, "trusted": true, "md5": "c4ca4238a0b923820dcc509a6f75849b"},
      {"pid": 5120, "path": "C:\\Users\\alex\\AppData\\Local\\Programs\\notes\\notes.exe", "caseCorrectPath": "C:\\Users\\alex\\AppData\\Local\\Programs\\Notes\\notes.exe", "commandArgs": "--restore", "textSid": "S-1-5-21-1004336348-1177238915-682003330-1001", "signer": null, "peDescription": "Notes", "validated": true, "trusted": false, "md5": "0cc175b9c0f1b6a831c399e269772661"}
    ]
  }
}
)json";

}  // namespace

std::string_view DefaultScenarioText() { return kDefaultScenario; }

}  // namespace nw::sim
