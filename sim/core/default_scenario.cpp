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
    "driverRunning": true,
    "profiler": true,
    "profile": {
      "counterTotal": 48,
      "startTime": 81234567890,
      "endTime": 81534567890,
      "profilePrice": 38,
      "counters": [
        {
          "file": "fwk\\filter\\packet.c",
          "function": "FwClassifyPacket",
          "line": 412,
          "hitCount": 1843211,
          "totalCycles": 2764816500,
          "minCycles": 610,
          "maxCycles": 98211
        },
        {
          "file": "fwk\\state\\conntable.c",
          "function": "ConnTableLookup",
          "line": 97,
          "hitCount": 1520044,
          "totalCycles": 638418480,
          "minCycles": 212,
          "maxCycles": 40117
        },
        {
          "file": "fwk\\stream\\reassembly.c",
          "function": "StreamReassemble",
          "line": 1288,
          "hitCount": 20417,
          "totalCycles": 408340000,
          "minCycles": 4100,
          "maxCycles": 1210554
        }
      ]
    }
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
  },
  "blacklist": {
    "logOption": 1,
    "entries": [
      {
        "low": "203.0.113.7",
        "high": "203.0.113.7",
        "ttl": 4294967295
      },
      {
        "low": "198.51.100.0",
        "high": "198.51.100.255",
        "ttl": 3600,
        "remaining": 1712,
        "autoCreate": true
      },
      {
        "low": "2001:db8:bad::",
        "high": "2001:db8:bad::ffff",
        "ttl": 86400,
        "remaining": 86000
      }
    ]
  },
  "policies": {
    "list": [
      {
        "uid": "c4097673-c006-4e89-9c6c-49d34bc71d4d",
        "ppuid": "5fec2b0e-3259-43dd-9896-962e70b7d154",
        "name": "Core network protection",
        "type": 2,
        "stateful": false,
        "sticky": true,
        "bootTimeOnly": false,
        "defaultAction": 1,
        "defaultLogOption": 0,
        "aggregates": [
          {
            "uid": "579b21b0-28da-4451-9afb-a8a7f46d2f6e",
            "name": "Management stations",
            "or": true,
            "matches": [
              {
                "type": 15,
                "terms": [
                  {
                    "op": 0,
                    "ipRange": [
                      "192.168.10.10",
                      "192.168.10.20"
                    ]
                  }
                ]
              },
              {
                "type": 15,
                "terms": [
                  {
                    "op": 0,
                    "ip": "192.168.1.5"
                  }
                ]
              }
            ]
          }
        ],
        "rules": [
          {
            "uid": "e998ec1e-f169-4fb3-b059-9d2e6616201e",
            "name": "Allow management",
            "action": 1,
            "logOption": 1,
            "matches": [
              {
                "type": 65536,
                "terms": [
                  {
                    "op": 0,
                    "aggregate": "579b21b0-28da-4451-9afb-a8a7f46d2f6e"
                  }
                ]
              },
              {
                "type": 7,
                "terms": [
                  {
                    "op": 0,
                    "uint16": 3389
                  }
                ]
              }
            ]
          },
          {
            "uid": "19b6c459-2af6-4e41-ad59-726442141fc1",
            "name": "ICMP handling",
            "action": 9,
            "target": "f92d7c08-0155-4481-b0ba-78e7a020629b"
          },
          {
            "uid": "18f63ce4-7dd4-4a7e-8451-35a2f77146da",
            "name": "Block inbound NetBIOS",
            "action": 5,
            "logOption": 2,
            "logThrottle": 1000,
            "matches": [
              {
                "type": 20,
                "terms": [
                  {
                    "op": 0,
                    "uint32": 1
                  }
                ]
              },
              {
                "type": 7,
                "terms": [
                  {
                    "op": 4,
                    "uint16Range": [
                      137,
                      139
                    ]
                  }
                ]
              }
            ]
          },
          {
            "uid": "bd954ec4-db7e-4377-bab3-e3c1d239d3f0",
            "name": "Drop spoofed loopback",
            "action": 5,
            "matches": [
              {
                "type": 15,
                "terms": [
                  {
                    "op": 0,
                    "ip": "127.0.0.0",
                    "prefix": 8
                  }
                ]
              },
              {
                "type": 19,
                "terms": [
                  {
                    "op": 0,
                    "uint32": 1
                  }
                ]
              }
            ]
          }
        ],
        "groups": [
          {
            "uid": "f92d7c08-0155-4481-b0ba-78e7a020629b",
            "rules": [
              {
                "uid": "72926b4d-5420-4fb6-90c4-c18bc208f710",
                "name": "Allow echo reply",
                "action": 1,
                "matches": [
                  {
                    "type": 13,
                    "terms": [
                      {
                        "op": 0,
                        "uint8": 1
                      }
                    ]
                  },
                  {
                    "type": 9,
                    "terms": [
                      {
                        "op": 0,
                        "uint8": 0
                      }
                    ]
                  }
                ]
              }
            ]
          }
        ]
      },
      {
        "uid": "f3a5e5c7-0f8e-4c78-97ff-9a2056e2d119",
        "ppuid": "5fec2b0e-3259-43dd-9896-962e70b7d154",
        "name": "Boot-time protection",
        "type": 2,
        "stateful": false,
        "sticky": false,
        "bootTimeOnly": true,
        "defaultAction": 5,
        "defaultLogOption": 0,
        "rules": [
          {
            "uid": "4bcf8fe4-3885-4ea1-8db8-405cb05e6b0f",
            "name": "Allow DHCP",
            "action": 1,
            "matches": [
              {
                "type": 13,
                "terms": [
                  {
                    "op": 0,
                    "uint8": 17
                  }
                ]
              },
              {
                "type": 8,
                "terms": [
                  {
                    "op": 0,
                    "uint16": 67
                  }
                ]
              }
            ]
          }
        ]
      },
      {
        "uid": "bb192ab2-df8a-4ab8-b561-78bbfb5c6cf2",
        "ppuid": "5fec2b0e-3259-43dd-9896-962e70b7d154",
        "name": "Gateway forwarding",
        "type": 3,
        "defaultAction": 5
      },
      {
        "uid": "2c6dc641-88a5-473c-8c84-45666c2c632b",
        "ppuid": "5fec2b0e-3259-43dd-9896-962e70b7d154",
        "name": "Application control",
        "type": 4,
        "stateful": true,
        "sticky": false,
        "bootTimeOnly": false,
        "defaultAction": 2,
        "defaultLogOption": 1,
        "rules": [
          {
            "uid": "daa62d1a-b3c9-4834-baaf-f3c32ed67888",
            "name": "Allow browser",
            "action": 1,
            "matches": [
              {
                "type": 2,
                "terms": [
                  {
                    "op": 0,
                    "string": "C:\\Program Files\\Browser\\browser.exe"
                  }
                ]
              },
              {
                "type": 8,
                "terms": [
                  {
                    "op": 0,
                    "uint16": 443
                  }
                ]
              }
            ]
          },
          {
            "uid": "751bc32f-0ef9-4a67-8098-81ab5f2f7c64",
            "name": "Ask for unsigned tools",
            "action": 2,
            "matches": [
              {
                "type": 6,
                "terms": [
                  {
                    "op": 1,
                    "string": "Examplesoft Ltd"
                  }
                ]
              },
              {
                "type": 12,
                "terms": [
                  {
                    "op": 0,
                    "uint32": 3
                  }
                ]
              }
            ]
          }
        ]
      }
    ]
  }
}
)json";

}  // namespace

std::string_view DefaultScenarioText() { return kDefaultScenario; }

}  // namespace nw::sim
