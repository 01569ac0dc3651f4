#include "cli/dispatcher.h"

#include <new>

#include "cli/console.h"
#include "cli/core_connection.h"
#include "cli/handlers.h"
#include "cli/loader.h"
#include "cli/wide_text.h"
#include "platform/process.h"

namespace nw {

const wchar_t* const OptionStateTable = L"-statetable";
const wchar_t* const OptionEndpointTable = L"-eptable";
const wchar_t* const OptionTcpTime = L"-tcptime";
const wchar_t* const OptionForcedTcpTime = L"-forcedtcptime";
const wchar_t* const OptionTcpConnRemovalTime = L"-tcpconnremovaltime";
const wchar_t* const OptionUdpTime = L"-udptime";
const wchar_t* const OptionGcPeriod = L"-gcperiod";
const wchar_t* const OptionProcessList = L"-proclist";
const wchar_t* const OptionProcessQuery = L"-procquery";
const wchar_t* const OptionProcess = L"-proc";
const wchar_t* const OptionLogThrottle = L"-logthrottle";
const wchar_t* const OptionTrackForwarding = L"-trackfwd";
const wchar_t* const OptionStateTableSize = L"-statetablesize";
const wchar_t* const OptionConnThrottlingThreshold = L"-connthrottlingthreshold";
const wchar_t* const OptionConnThrottlingRate = L"-connthrottlingrate";
const wchar_t* const OptionDisableNdis = L"-disable_ndis";
const wchar_t* const OptionEnableNdis = L"-enable_ndis";
const wchar_t* const OptionDisableWfp = L"-disable_wfp";
const wchar_t* const OptionEnableWfp = L"-enable_wfp";
const wchar_t* const OptionDisableUnusedNetDrivers = L"-disableUnusedNetDrivers";

namespace {

enum class Count { kAlone, kOneValue, kAtLeastOneValue, kAny, kPerfData };

struct OptionEntry {
  const wchar_t* const* name;  // the shared constants are reached through their address
  const wchar_t* literal;
  Count count;
  CommandCode code;
};

// Tested in this order; the first whole-string match decides.
const OptionEntry kOptions[] = {
    {nullptr, L"-PolicyDisplay", Count::kAlone, 1},
    {nullptr, L"-PolicyDisplayXml", Count::kAlone, 2},
    {nullptr, L"-PolicyAdd", Count::kOneValue, 20},
    {nullptr, L"-PolicyDelete", Count::kOneValue, 21},
    {nullptr, L"-DeleteAll", Count::kAlone, 19},
    {nullptr, L"-Summary", Count::kAlone, 0},
    {nullptr, L"-BlackListSet", Count::kOneValue, 22},
    {nullptr, L"-BlackListAppend", Count::kOneValue, 23},
    {nullptr, L"-BlackListDelete", Count::kOneValue, 24},
    {nullptr, L"-BlackListDisplay", Count::kAlone, 3},
    {nullptr, L"-BlackListDisplayXml", Count::kAlone, 4},
    {nullptr, L"-ConfigDisplay", Count::kAlone, 5},
    {nullptr, L"-ConfigReset", Count::kAlone, 18},
    {nullptr, L"-KernelLogQueueSize", Count::kOneValue, 25},
    {nullptr, L"-PointProductReplyTime", Count::kOneValue, 26},
    {nullptr, L"-PassThru", Count::kOneValue, 17},
    {nullptr, L"-PassThruStream", Count::kOneValue, 27},
    {nullptr, L"-PassThruPacket", Count::kOneValue, 28},
    {nullptr, L"-TrafficLog", Count::kOneValue, 11},
    {nullptr, L"-TrafficLogSize", Count::kOneValue, 12},
    {nullptr, L"-TrafficLogMask", Count::kOneValue, 13},
    {nullptr, L"-IpConfig", Count::kAlone, 6},
    {&OptionDisableNdis, nullptr, Count::kAlone, 44},
    {&OptionEnableNdis, nullptr, Count::kAlone, 14},
    {&OptionDisableWfp, nullptr, Count::kAlone, 45},
    {&OptionEnableWfp, nullptr, Count::kAlone, 15},
    {&OptionDisableUnusedNetDrivers, nullptr, Count::kAlone, 16},
    {&OptionStateTable, nullptr, Count::kAny, 7},
    {&OptionStateTableSize, nullptr, Count::kAny, 36},
    {&OptionEndpointTable, nullptr, Count::kAny, 8},
    {&OptionTcpTime, nullptr, Count::kAtLeastOneValue, 29},
    {&OptionUdpTime, nullptr, Count::kAtLeastOneValue, 30},
    {&OptionForcedTcpTime, nullptr, Count::kAtLeastOneValue, 31},
    {&OptionTcpConnRemovalTime, nullptr, Count::kAtLeastOneValue, 41},
    {&OptionGcPeriod, nullptr, Count::kAtLeastOneValue, 32},
    {&OptionProcessQuery, nullptr, Count::kAtLeastOneValue, 33},
    {&OptionProcess, nullptr, Count::kAtLeastOneValue, 10},
    {&OptionProcessList, nullptr, Count::kAny, 9},
    {&OptionLogThrottle, nullptr, Count::kAtLeastOneValue, 34},
    {&OptionTrackForwarding, nullptr, Count::kAtLeastOneValue, 35},
    {nullptr, L"-StartPerf", Count::kAny, 37},
    {nullptr, L"-StopPerf", Count::kAny, 38},
    {nullptr, L"-GetPerfData", Count::kPerfData, 39},
    {&OptionConnThrottlingRate, nullptr, Count::kAtLeastOneValue, 43},
    {&OptionConnThrottlingThreshold, nullptr, Count::kAtLeastOneValue, 42},
};

constexpr CommandCode kPerfDataCsvCode = 40;

bool CountFits(Count count, int argc) {
  switch (count) {
    case Count::kAlone:
      return argc == 2;
    case Count::kOneValue:
      return argc == 3;
    case Count::kAtLeastOneValue:
      return argc >= 3;
    case Count::kAny:
    case Count::kPerfData:
      return true;
  }
  return false;
}

void TrafficLogHandler(CommandCode code, CoreConnection& connection, const wchar_t* value) {
  TrafficLogChange(connection, code, value);
}

// The dispatcher never allows pass-through to be switched on.
void ConfigChangeHandler(CommandCode code, CoreConnection& connection, const wchar_t* value) {
  ConfigChange(connection, code, value, false);
}

// The handler of every code, served or refused, in one table: the gate decides what runs, and
// a driver with the gate open reaches the refused commands through the very same entries.
using Handler = void (*)(CommandCode code, CoreConnection& connection, const wchar_t* value);

constexpr Handler kHandlers[kUsageCode] = {
    /* 0 */ [](CommandCode, CoreConnection& c, const wchar_t*) {
      ShowPolicySummary(c.policyManager);
    },
    /* 1 */
    [](CommandCode, CoreConnection& c, const wchar_t*) { ShowAllPolicies(c.policyManager); },
    /* 2 */
    [](CommandCode, CoreConnection& c, const wchar_t*) { WritePolicyDocument(c.policyManager); },
    /* 3 */ [](CommandCode, CoreConnection& c, const wchar_t*) { ShowBlacklist(&c, 0); },
    /* 4 */ [](CommandCode, CoreConnection& c, const wchar_t*) { ShowBlacklist(&c, 1); },
    /* 5 */ [](CommandCode, CoreConnection& c, const wchar_t*) { ConfigDisplay(c); },
    /* 6 */ [](CommandCode, CoreConnection& c, const wchar_t*) { IpConfigDisplay(c.control); },
    /* 7 */ [](CommandCode, CoreConnection& c, const wchar_t*) { StateTableDisplay(c.control); },
    /* 8 */ [](CommandCode, CoreConnection& c, const wchar_t*) { EndpointTableDisplay(c.control); },
    /* 9 */ [](CommandCode, CoreConnection& c, const wchar_t*) { ProcessListDisplay(c.control); },
    /* 10 */
    [](CommandCode, CoreConnection& c, const wchar_t* v) { ProcessInfoDisplay(c.control, v, 0); },
    /* 11 */ TrafficLogHandler,
    /* 12 */ TrafficLogHandler,
    /* 13 */ TrafficLogHandler,
    /* 14 */ [](CommandCode, CoreConnection&, const wchar_t*) { EnableNdisDriver(PrintDriverLog); },
    /* 15 */ [](CommandCode, CoreConnection&, const wchar_t*) { EnableWfpDriver(PrintDriverLog); },
    /* 16 */ [](CommandCode, CoreConnection& c, const wchar_t*) { DisableUnusedNetDrivers(&c); },
    /* 17 */ ConfigChangeHandler,
    // Refused by the gate from here on.
    /* 18 */ [](CommandCode, CoreConnection& c, const wchar_t*) { ConfigReset(c); },
    /* 19 */
    [](CommandCode, CoreConnection& c, const wchar_t*) { DeleteAllPolicies(c.policyManager); },
    /* 20 */ [](CommandCode, CoreConnection& c, const wchar_t* v) { AddPoliciesFromFile(&c, v); },
    /* 21 */
    [](CommandCode, CoreConnection& c, const wchar_t* v) { DeletePolicyByUid(c.policyManager, v); },
    /* 22 */ [](CommandCode, CoreConnection& c, const wchar_t* v) { SetBlacklistFromFile(&c, v); },
    /* 23 */
    [](CommandCode, CoreConnection& c, const wchar_t* v) { AppendBlacklistFromFile(&c, v); },
    /* 24 */
    [](CommandCode, CoreConnection& c, const wchar_t* v) { DeleteBlacklistFromFile(&c, v); },
    /* 25 */ ConfigChangeHandler,
    /* 26 */ ConfigChangeHandler,
    /* 27 */ ConfigChangeHandler,
    /* 28 */ ConfigChangeHandler,
    /* 29 */ ConfigChangeHandler,
    /* 30 */ ConfigChangeHandler,
    /* 31 */ ConfigChangeHandler,
    /* 32 */ ConfigChangeHandler,
    /* 33 */ ConfigChangeHandler,
    /* 34 */ ConfigChangeHandler,
    /* 35 */ ConfigChangeHandler,
    /* 36 */ ConfigChangeHandler,
    /* 37 */ [](CommandCode, CoreConnection&, const wchar_t*) { PerfProfilingControl(true); },
    /* 38 */ [](CommandCode, CoreConnection&, const wchar_t*) { PerfProfilingControl(false); },
    /* 39 */ [](CommandCode, CoreConnection&, const wchar_t*) { GetPerfData(false); },
    /* 40 */ [](CommandCode, CoreConnection&, const wchar_t*) { GetPerfData(true); },
    /* 41 */ ConfigChangeHandler,
    /* 42 */ ConfigChangeHandler,
    /* 43 */ ConfigChangeHandler,
    /* 44 */
    [](CommandCode, CoreConnection&, const wchar_t*) { DisableNdisDriver(PrintDriverLog); },
    /* 45 */ [](CommandCode, CoreConnection&, const wchar_t*) { DisableWfpDriver(PrintDriverLog); },
};

}  // namespace

CommandCode ParseCommandLine(int argc, const wchar_t* const* argv) {
  if (argc <= 1) return kUsageCode;
  for (const OptionEntry& option : kOptions) {
    const wchar_t* name = option.name != nullptr ? *option.name : option.literal;
    if (!EqualsIgnoringAsciiCase(argv[1], name)) continue;
    if (!CountFits(option.count, argc)) return kUsageCode;
    if (option.count == Count::kPerfData && argc > 2) {
      return EqualsIgnoringAsciiCase(argv[2], L"-csv") ? kPerfDataCsvCode : option.code;
    }
    return option.code;
  }
  return kUsageCode;
}

void PrintUsage() {
  ConsolePrint(L"Usage:\n\n");
  ConsolePrint(L"%s <option>\n\n", L"netwarden");
  ConsolePrint(L"Options:\n\n");
  ConsolePrint(L"-Summary\n");
  ConsolePrint(L"                Display a summary of the policies.\n");
  ConsolePrint(L"-ConfigDisplay\n");
  ConsolePrint(L"                Display the global state and configuration.\n");
  ConsolePrint(L"-IpConfig\n");
  ConsolePrint(L"                Display the IP configuration.\n");
  ConsolePrint(L"-PolicyDisplay\n");
  ConsolePrint(L"                Display the contents of all policies.\n");
  ConsolePrint(L"-PolicyDisplayXml\n");
  ConsolePrint(L"                Display the contents of all policies in XML format.\n");
  ConsolePrint(L"-BlackListDisplay\n");
  ConsolePrint(L"                Display the current IP blacklist.\n");
  ConsolePrint(L"-BlackListDisplayXml\n");
  ConsolePrint(L"                Display the current IP blacklist in XML format.\n");
  ConsolePrint(L"-TrafficLog <on|off>\n");
  ConsolePrint(L"                Set traffic log on or off.\n");
  ConsolePrint(L"-TrafficLogSize <xxx>\n");
  ConsolePrint(L"                Set max size of traffic log to xxx bytes.\n");
  ConsolePrint(L"-TrafficLogMask <xxx>\n");
  ConsolePrint(L"                Set traffic log mask to xxx (xxx is interpreted as hex).\n");
  ConsolePrint(L"%s\n", OptionStateTable);
  ConsolePrint(L"                Display the current connection state table.\n");
  ConsolePrint(L"%s\n", OptionEndpointTable);
  ConsolePrint(L"                Display the current opened endpoints.\n");
  ConsolePrint(L"%s\n", OptionProcessList);
  ConsolePrint(L"                Display the list of currently active processes.\n");
  ConsolePrint(L"%s xxx\n", OptionProcess);
  ConsolePrint(L"                Display process info for the specified PID.\n");
  ConsolePrint(L"-Passthru <off>\n");
  ConsolePrint(L"                Set global passthru mode off.\n");
  ConsolePrint(L"%s\n", OptionEnableNdis);
  ConsolePrint(L"                Enable and register the NDIS driver\n");
  ConsolePrint(L"%s\n", OptionEnableWfp);
  ConsolePrint(L"                Enable and register the WFP driver\n");
  ConsolePrint(L"%s\n", OptionDisableUnusedNetDrivers);
  ConsolePrint(L"                Disable unused network drivers.\n");
  ConsolePrint(L"\n");
}

namespace {

int32_t Run(int argc, const wchar_t* const* argv, bool gateOpen) {
  platform::Process& process = platform::TheProcess();
  platform::ModuleHandle* preloaded = HardenLibrarySearch();
  process.IgnoreInvalidParameters();
  constexpr uint16_t kWinsock22 = 0x0202;
  const int32_t socketsError = process.WsaStartup(kWinsock22);
  if (socketsError != 0) {
    ConsolePrint(
        L"WARNING: failed to init ws2_32.dll (err=%d), IP address parsing will not work!\n",
        socketsError);
  }
  const CommandCode code = ParseCommandLine(argc, argv);
  if (code >= kUsageCode || (code >= kFirstRefusedCode && !gateOpen)) {
    PrintUsage();
    LastStatus = kStatusUsage;
  } else {
    // A record that cannot be allocated is a connection that could not be made.
    auto* connection = new (std::nothrow) CoreConnection();
    if (connection == nullptr) {
      ConsolePrint(L"    Error from VantorRegisterPointProductCreate.\n");
      LastStatus = kStatusCoreUnavailable;
    } else {
      LastStatus = ConnectToCore(connection);
      if (LastStatus == kStatusOk) {
        // An option that takes any count may stand alone: its value is then null.
        kHandlers[code](code, *connection, argc > 2 ? argv[2] : nullptr);
      }
      ReleaseCoreConnection(connection);
      delete connection;
    }
    NotComDllUnload(ControlLibraryName);
  }
  process.WsaCleanup();
  if (LastStatus != kStatusOk) ConsolePrint(L"\nReturning error: 0x%X\n", LastStatus);
  ReleasePreloadedLibraries(preloaded);
  return LastStatus;
}

}  // namespace

int32_t RunNetwarden(int argc, const wchar_t* const* argv) { return Run(argc, argv, false); }

int32_t RunWithGateOpen(int argc, const wchar_t* const* argv) { return Run(argc, argv, true); }

}  // namespace nw
