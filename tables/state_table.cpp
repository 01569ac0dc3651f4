// -statetable: the traffic totals and one line per tracked connection, IPv4 first.

#include <cstdint>

#include "cli/console.h"
#include "cli/handlers.h"
#include "core/interfaces.h"
#include "policy/names.h"
#include "tables/table_text.h"

namespace nw {
namespace {

constexpr uint8_t kProtocolIcmp = 1;
constexpr uint8_t kProtocolTcp = 6;
constexpr uint8_t kProtocolIcmpv6 = 58;

// The core's calls for one entry come in a fixed order, which the line's pieces follow.
void PrintConnection(IConnectionTable& table, uint64_t i) {
  const uint8_t protocol = table.GetProtocol(i);
  const uint32_t processId = table.GetProcessId(i);
  uint16_t localPort = table.GetLocalPort(i);
  uint16_t remotePort = table.GetRemotePort(i);
  const wchar_t* name;
  if (protocol == kProtocolIcmp || protocol == kProtocolIcmpv6) {
    // ICMP carries its own values in the port fields, stored as they are.
    name = table.GetRemoteAddress(i)->version == 6 ? L"ICMPv6" : L"ICMP";
  } else {
    name = protocol == kProtocolTcp ? L"TCP" : L"UDP";
    localPort = PortFromNetworkOrder(localPort);
    remotePort = PortFromNetworkOrder(remotePort);
  }
  ConsolePrint(L"PID %04d %s ", processId, name);
  PrintIpAddress(table.GetLocalAddress(i), false, false);
  ConsolePrint(table.IsOutbound(i) ? L" %d --> " : L" %d <-- ", localPort);
  PrintIpAddress(table.GetRemoteAddress(i), false, false);
  // This view has a name of its own for a state outside the table, negative ones included.
  const int32_t state = table.GetState(i);
  const wchar_t* stateName =
      state >= 0 && state < kConnectionStateBound ? ConnectionStateName(state) : L"FWCS_INVALID";
  const uint32_t right = table.GetPairRight(i);
  const uint32_t left = table.GetPairLeft(i);
  ConsolePrint(L" %d %d/%d %s\n", remotePort, left, right, stateName);
}

// One pass over the table for one address version. The count is asked again after every
// entry, so a table that changes while it is listed is followed.
void PrintSection(IConnectionTable& table, uint32_t version) {
  for (uint64_t i = 0; i < table.GetConnectionCount(); ++i) {
    if (table.GetLocalAddress(i)->version == version) PrintConnection(table, i);
  }
}

}  // namespace

void StateTableDisplay(IControl* control) {
  IConnectionTable* table = nullptr;
  LastStatus = ObtainObject(
      &table, [&] { return control->GetConnectionTable(&table, &ConnectionTableInterfaceId); });
  if (LastStatus != kStatusOk) {
    ConsolePrint(L"    Error from IControl::GetConnectionTable: %08x.\n", LastStatus);
    return;
  }
  LastStatus = table->Refresh();
  if (LastStatus != kStatusOk) {
    ConsolePrint(L"    Error from IConnectionTable::Refresh: %08x.\n", LastStatus);
    table->Release();
    return;
  }
  ConsolePrint(L"\n");
  ConsolePrint(L"Bytes Sent Since Boot:     %I64d\n", table->GetBytesSentSinceBoot());
  ConsolePrint(L"Bytes Received Since Boot: %I64d\n", table->GetBytesReceivedSinceBoot());
  ConsolePrint(L"Active Connections:        %zd\n",
               static_cast<size_t>(table->GetConnectionCount()));
  ConsolePrint(L"\n=============================IPv4=================================\n");
  PrintSection(*table, 4);
  ConsolePrint(L"\n=============================IPv6=================================\n");
  PrintSection(*table, 6);
  table->Release();
}

}  // namespace nw
