// -proclist: one line per active process; -proc <pid>: everything the core holds on one.

#include <cstddef>
#include <cstdint>

#include "cli/console.h"
#include "cli/handlers.h"
#include "core/interfaces.h"
#include "tables/table_text.h"

namespace nw {
namespace {

// The image-name column: a shorter name is padded to this width, a longer one runs into the
// next column.
constexpr size_t kImageNameColumn = 21;

void PrintMd5(const uint8_t* md5) {
  ConsolePrint(L"%02X%02X%02X%02X%02X%02X%02X%02X%02X%02X%02X%02X%02X%02X%02X%02X\n", md5[0],
               md5[1], md5[2], md5[3], md5[4], md5[5], md5[6], md5[7], md5[8], md5[9], md5[10],
               md5[11], md5[12], md5[13], md5[14], md5[15]);
}

void PrintProcessLine(IProcessInfo& info) {
  ConsolePrint(L"%04d\t", info.GetProcessId());
  const wchar_t* name = ImageName(info.GetPath(0));
  const size_t length = Utf16Length(name);
  const int padding = length < kImageNameColumn ? static_cast<int>(kImageNameColumn - length) : 0;
  ConsolePrint(L"%s%*s", name, padding, L"");
  // Signer and trust mean something only for a validated image.
  const wchar_t* signature = L"N/A";
  const wchar_t* trust = L"N/A";
  if (info.IsValidated()) {
    signature = info.GetSigner(0) != nullptr ? L"Yes" : L"No ";
    trust = info.IsTrusted() ? L"Yes" : L"No ";
  }
  ConsolePrint(L"%s    %s   0x", signature, trust);
  PrintMd5(info.GetMd5());
}

// A null string is shown as an empty one; the getter is asked once to test and once to print.
template <class Getter>
void PrintStringLine(const wchar_t* format, IProcessInfo& info, Getter get) {
  ConsolePrint(format, get(info) != nullptr ? get(info) : L"");
}

void PrintProcessDetails(IProcessInfo& info) {
  ConsolePrint(L"\n");
  ConsolePrint(L"PID         \t\t%04d\n", info.GetProcessId());
  PrintStringLine(L"Path        \t\t%s\n", info, [](IProcessInfo& i) { return i.GetPath(0); });
  PrintStringLine(L"Case Correct Path        \t\t%s\n", info,
                  [](IProcessInfo& i) { return i.GetCaseCorrectPath(0); });
  PrintStringLine(L"Command Args\t\t%s\n", info,
                  [](IProcessInfo& i) { return i.GetCommandArgs(0); });
  PrintStringLine(L"Text SID    \t\t%s\n", info, [](IProcessInfo& i) { return i.GetTextSid(0); });
  ConsolePrint(L"Validated   \t\t%s\n", info.IsValidated() ? L"Yes" : L"No");
  ConsolePrint(L"Trusted     \t\t%s\n", info.IsTrusted() ? L"Yes" : L"No");
  PrintStringLine(L"Signer      \t\t%s\n", info, [](IProcessInfo& i) { return i.GetSigner(0); });
  PrintStringLine(L"PE Descr    \t\t%s\n", info,
                  [](IProcessInfo& i) { return i.GetPeDescription(0); });
  ConsolePrint(L"MD5         \t\t0x");
  PrintMd5(info.GetMd5());
}

}  // namespace

void ProcessListDisplay(IControl* control) {
  IActiveProcesses* processes = nullptr;
  LastStatus = ObtainObject(&processes, [&] {
    return control->GetActiveProcesses(&processes, &ActiveProcessesInterfaceId);
  });
  if (LastStatus != kStatusOk) {
    ConsolePrint(L"    Error from IControl::GetActiveProcesses: %08x.\n", LastStatus);
    return;
  }
  LastStatus = processes->RefreshProcessIdList();
  if (LastStatus != kStatusOk) {
    ConsolePrint(L"    Error from IActiveProcesses::RefreshProcessIdList: %08x.\n", LastStatus);
    processes->Release();
    return;
  }
  const uint64_t listed = processes->GetProcessCount();
  ConsolePrint(L"\n");
  ConsolePrint(L"Active Processes:  %zd\n\n", static_cast<size_t>(listed));
  ConsolePrint(L"PID\tImage Name           Signed Trust MD5\n");
  ConsolePrint(L"--------------------------------------------------------------");
  ConsolePrint(L"--------------\n");

  bool described = false;
  for (uint64_t i = 0; i < processes->GetProcessCount(); ++i) {
    IProcessInfo* info = nullptr;
    const uint64_t processId = processes->GetProcessId(i);
    LastStatus =
        ObtainObject(&info, [&] { return processes->QueryProcessInfo(&info, processId, 0); });
    if (LastStatus != kStatusOk) {
      ConsolePrint(L"    Error from IActiveProcesses::QueryProcessInfo: %08x.\n", LastStatus);
      continue;
    }
    described = true;
    PrintProcessLine(*info);
    info->Release();
  }
  // One process described is a success, whatever the queries after it answered; with none, the
  // last failure stands.
  if (listed != 0 && described) LastStatus = kStatusOk;
  processes->Release();
}

void ProcessInfoDisplay(IControl* control, const wchar_t* processIdText, uint32_t flags) {
  const int64_t processId = ParseDecimal64(processIdText);
  if (processId == 0) {
    ConsolePrint(L"Invalid PID specified - %s\n", processIdText);
    return;
  }
  IActiveProcesses* processes = nullptr;
  LastStatus = ObtainObject(&processes, [&] {
    return control->GetActiveProcesses(&processes, &ActiveProcessesInterfaceId);
  });
  if (LastStatus != kStatusOk) {
    ConsolePrint(L"    Error from IControl::GetActiveProcesses: %08x.\n", LastStatus);
    return;
  }
  IProcessInfo* info = nullptr;
  LastStatus = ObtainObject(&info, [&] {
    return processes->QueryProcessInfo(&info, static_cast<uint64_t>(processId), flags);
  });
  if (LastStatus != kStatusOk) {
    ConsolePrint(L"    Error from IActiveProcesses::QueryProcessInfo: %08x.\n", LastStatus);
    processes->Release();
    return;
  }
  PrintProcessDetails(*info);
  info->Release();
  processes->Release();
}

}  // namespace nw
