// -ConfigDisplay: one report of the core's global configuration and state.

#include "cli/console.h"
#include "cli/handlers.h"
#include "core/interfaces.h"
#include "policy/names.h"

namespace nw {
namespace {

void PrintVersion(const wchar_t* format, const wchar_t* version, const wchar_t* nullText) {
  ConsolePrint(format, version != nullptr ? version : nullText);
}

void PrintPassthruBlock(IGlobalConfigAndStateInfo& info) {
  bool printed = false;
  if (info.GetGlobalPassthruMode()) {
    ConsolePrint(L"In passthru mode.\n");
    printed = true;
  }
  // Both hook types are read before either line is printed: the calls are the contract.
  const bool packet = info.GetPassthruMode(FW_POLICY_TYPE_PACKET);
  const bool stream = info.GetPassthruMode(FW_POLICY_TYPE_STREAM);
  if (packet) {
    ConsolePrint(L"Passthru enabled for packet hooks.\n");
    printed = true;
  }
  if (stream) {
    ConsolePrint(L"Passthru enabled for stream hooks.\n");
  } else if (!printed) {
    ConsolePrint(L"Passthru is not enabled.\n");
  }
  ConsolePrint(L"\n");
}

void PrintHooksBlock(IGlobalConfigAndStateInfo& info) {
  ConsolePrint(L"Hooks connected:\n");
  for (int32_t type = FW_POLICY_TYPE_FRAGMENT; type <= FW_POLICY_TYPE_STREAM; ++type) {
    if (info.IsHookConnected(type)) ConsolePrint(L"        %s\n", PolicyTypeName(type));
  }
  ConsolePrint(L"\n");
}

void PrintTrafficLogBlock(IGlobalConfigAndStateInfo& info) {
  ConsolePrint(L"Traffic logging:\n");
  ConsolePrint(info.IsTrafficLogEnabled() ? L"        Traffic logging is enabled\n"
                                          : L"        Traffic logging is disabled\n");
  ConsolePrint(L"        Trace log mask = %08x\n", info.GetTraceLogMask());
  ConsolePrint(L"        Max log size = %d bytes\n", info.GetMaxTrafficLogSize());
  ConsolePrint(L"\n");
}

// Labels sit in a 43-character field after eight blanks, so that every value starts in one
// column; the last line has no blank line after it.
void PrintKernelBlock(IGlobalConfigAndStateInfo& info) {
  ConsolePrint(L"Kernel settings:\n");
  ConsolePrint(L"        Max kernel log queue size                  %d bytes\n",
               info.GetMaxKernelLogQueueSize());
  ConsolePrint(L"        Max point product reply time               %d seconds\n",
               info.GetMaxPointProductReplyTime());
  ConsolePrint(L"        Log Throttle                               %d microseconds\n",
               info.GetLogThrottle());
  ConsolePrint(L"        Max state table size                       %d connections\n",
               info.GetMaxStateTableSize());
  ConsolePrint(L"        State table GC period                      %d seconds\n",
               info.GetStateTableGcPeriod());
  ConsolePrint(L"        Max state table TCP timeout                %d seconds\n",
               info.GetStateTableTcpTimeout());
  ConsolePrint(L"        Max state table UDP timeout                %d seconds\n",
               info.GetStateTableUdpTimeout());
  ConsolePrint(L"        Max state table forced TCP timeout         %d seconds\n",
               info.GetStateTableForcedTcpTimeout());
  ConsolePrint(L"        State table TCP Connection removal timeout %d seconds\n",
               info.GetStateTableTcpConnRemovalTimeOut());
  ConsolePrint(L"        Track forwarded connections                %s\n",
               info.GetTrackForwardedConnections() ? L"Yes" : L"No");
  ConsolePrint(L"        Connection throttling max connection rate  %d connections per second\n",
               info.GetConnectionThrottleMaxConnectionsRate());
  ConsolePrint(L"        Connection throttling burst threshold      %d connections\n",
               info.GetConnectionThrottleBurstThreshold());
}

}  // namespace

void ConfigDisplay(CoreConnection& connection) {
  IGlobalConfigAndStateInfo* info = nullptr;
  LastStatus = ObtainObject(&info, [&] {
    return connection.control->GetGlobalConfigAndStateInfo(&info,
                                                           &GlobalConfigAndStateInfoInterfaceId);
  });
  if (LastStatus != kStatusOk) {
    ConsolePrint(L"Error from IControl::GetGlobalConfigAndStateInfo %08x\n", LastStatus);
    return;
  }
  LastStatus = info->Refresh();
  if (LastStatus != kStatusOk) {
    // The object is left as it is, unreleased, to the end of the process.
    ConsolePrint(L"Error from IGlobalConfigAndStateInfo::Refresh %08x\n", LastStatus);
    return;
  }
  const wchar_t* service = info->GetServiceBuildVersion();
  const wchar_t* engine = info->GetEngineBuildVersion();
  const wchar_t* library = info->GetControlDllBuildVersion();
  ConsolePrint(L"File Versions:\n");
  PrintVersion(L"    Service (kvxfires.dll): %s\n", service,
               L"NULL returned by GetServiceBuildVersion");
  PrintVersion(L"    Engine (kvxfirek.sys):  %s\n", engine,
               L"NULL returned by GetEngineBuildVersion");
  PrintVersion(L"    DLL (kvxfwctl.dll):     %s\n", library,
               L"NULL returned by GetControlDllBuildVersion");
  ConsolePrint(L"\n");
  PrintPassthruBlock(*info);
  PrintHooksBlock(*info);
  PrintTrafficLogBlock(*info);
  PrintKernelBlock(*info);
  info->Release();
}

}  // namespace nw
