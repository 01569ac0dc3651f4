// -eptable: the endpoints processes hold open, IPv4 first.

#include <cstdint>

#include "cli/console.h"
#include "cli/handlers.h"
#include "core/interfaces.h"
#include "policy/names.h"
#include "tables/table_text.h"

namespace nw {
namespace {

constexpr uint8_t kProtocolTcp = 6;

// Every protocol but TCP shows as UDP with its port swapped, ICMP included: this view has no
// ICMP case of its own.
void PrintEndpoint(IOpenedEndpointTable& table, uint64_t i) {
  ConsolePrint(L"PID %04d", table.GetProcessId(i));
  ConsolePrint(L" %s ", table.GetProtocol(i) == kProtocolTcp ? L"TCP" : L"UDP");
  PrintIpAddress(table.GetLocalAddress(i), false, false);
  ConsolePrint(L" %d\n", PortFromNetworkOrder(table.GetLocalPort(i)));
}

void PrintSection(IOpenedEndpointTable& table, uint32_t version) {
  for (uint64_t i = 0; i < table.GetEndpointCount(); ++i) {
    if (table.GetLocalAddress(i)->version == version) PrintEndpoint(table, i);
  }
}

}  // namespace

void EndpointTableDisplay(IControl* control) {
  IOpenedEndpointTable* table = nullptr;
  LastStatus = ObtainObject(&table, [&] {
    return control->GetOpenedEndpointTable(&table, &OpenedEndpointTableInterfaceId);
  });
  if (LastStatus != kStatusOk) {
    ConsolePrint(L"    Error from IControl::GetOpenedEndpointTable: %08x.\n", LastStatus);
    return;
  }
  LastStatus = table->Refresh();
  if (LastStatus != kStatusOk) {
    ConsolePrint(L"    Error from IOpenedEndpointTable::Refresh: %08x.\n", LastStatus);
    table->Release();
    return;
  }
  ConsolePrint(L"\n");
  ConsolePrint(L"Opened Endpoints:  %zd\n", static_cast<size_t>(table->GetEndpointCount()));
  // The two rules differ by one equals sign; that is how this report has always looked.
  ConsolePrint(L"\n==========================IPv4=============================\n");
  PrintSection(*table, 4);
  ConsolePrint(L"\n==========================IPv6============================\n");
  PrintSection(*table, 6);
  table->Release();
}

}  // namespace nw
