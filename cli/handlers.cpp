// Handlers whose commands this build does not carry yet. Each one says so and fails the run,
// so that no command appears to have worked when nothing was done.

#include "cli/handlers.h"

#include <cstdarg>
#include <string>

#include "base/format.h"
#include "cli/console.h"

namespace nw {
namespace {

void NotAvailable(const wchar_t* option) {
  ConsolePrint(L"    %s is not available in this build.\n", option);
  LastStatus = kStatusNotImplemented;
}

// The driver commands tell their outcome in words only and never touch the run's status.
void DriverCommandNotAvailable(const wchar_t* option) {
  ConsolePrint(L"    %s is not available in this build.\n", option);
}

}  // namespace

void PrintDriverLog(const char* format, ...) {
  std::string line;
  va_list args;
  va_start(args, format);
  AppendFormatNarrow(line, format, args);
  va_end(args);
  ConsolePrint(L"%hs\n", line.c_str());
}

void ShowPolicySummary(IPolicyManager*) { NotAvailable(L"-Summary"); }
void ShowAllPolicies(IPolicyManager*) { NotAvailable(L"-PolicyDisplay"); }
void WritePolicyDocument(IPolicyManager*) { NotAvailable(L"-PolicyDisplayXml"); }
void ShowBlacklist(CoreConnection*, int mode) {
  NotAvailable(mode == 0 ? L"-BlackListDisplay" : L"-BlackListDisplayXml");
}
void IpConfigDisplay(IControl*) { NotAvailable(L"-IpConfig"); }
void StateTableDisplay(IControl*) { NotAvailable(OptionStateTable); }
void EndpointTableDisplay(IControl*) { NotAvailable(OptionEndpointTable); }
void ProcessListDisplay(IControl*) { NotAvailable(OptionProcessList); }
void ProcessInfoDisplay(IControl*, const wchar_t*, uint32_t) { NotAvailable(OptionProcess); }
void EnableNdisDriver(DriverLogFn) { DriverCommandNotAvailable(OptionEnableNdis); }
void EnableWfpDriver(DriverLogFn) { DriverCommandNotAvailable(OptionEnableWfp); }
void DisableUnusedNetDrivers(CoreConnection*) {
  DriverCommandNotAvailable(OptionDisableUnusedNetDrivers);
}

}  // namespace nw
