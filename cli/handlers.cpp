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

void WritePolicyDocument(IPolicyManager*) { NotAvailable(L"-PolicyDisplayXml"); }
void ShowBlacklist(CoreConnection*, int mode) {
  NotAvailable(mode == 0 ? L"-BlackListDisplay" : L"-BlackListDisplayXml");
}

}  // namespace nw
