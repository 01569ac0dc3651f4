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
                    "string": "Contoso Ltd"
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
