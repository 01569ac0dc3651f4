// Handlers whose commands this build does not carry yet. Each one says so and fails the run,
// so that no command appears to have worked when nothing was done.

#include "cli/handlers.h"

#include "cli/console.h"

namespace nw {
namespace {

void NotAvailable(const wchar_t* option) {
  ConsolePrint(L"    %s is not available in this build.\n", option);
  LastStatus = kStatusNotImplemented;
}

}  // namespace

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

}  // namespace nw
