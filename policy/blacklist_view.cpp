// The blacklist views (-BlackListDisplay, -BlackListDisplayXml): the list's log option and its
// ranges in the core's order, as indented text or as the blacklist document.

#include "cli/console.h"
#include "cli/core_connection.h"
#include "cli/handlers.h"
#include "policy/match_render.h"
#include "policy/names.h"

namespace nw {
namespace {

constexpr uint32_t kInfiniteTimeToLive = 0xFFFFFFFFu;

// A core that hands out no bytes for an IPv6 end shows the all-zero address rather than a
// crash.
const uint8_t* OrZeroBytes(const uint8_t* bytes) {
  static const uint8_t kZero[16] = {};
  return bytes != nullptr ? bytes : kZero;
}

// One end of a range: between its element tags in the document, after its label as text.
template <class Print>
void PrintEnd(bool xml, const wchar_t* element, const wchar_t* label, Print print) {
  if (xml) {
    ConsolePrint(L"        <%s>", element);
    print(false);
    ConsolePrint(L"</%s>\n", element);
  } else {
    ConsolePrint(L"%s", label);
    print(true);
  }
}

void ShowRange(IIpRangeList* list, uint64_t index, bool xml) {
  if (xml) ConsolePrint(L"    <ip_range>\n");
  const uint32_t timeToLive = list->GetTimeToLive(index);
  const uint32_t timeRemaining = list->GetTimeRemaining(index);
  const bool autoCreate = list->GetAutoCreate(index);
  const int32_t version = list->GetIpVersion(index);
  if (version == 4) {
    const uint32_t low = list->GetLowV4(index);
    const uint32_t high = list->GetHighV4(index);
    PrintEnd(xml, L"low", L"    Low:  ", [&](bool newline) { PrintIpv4Address(low, newline); });
    PrintEnd(xml, L"high", L"    High: ", [&](bool newline) { PrintIpv4Address(high, newline); });
  } else if (version == 6) {
    const uint8_t* low = OrZeroBytes(list->GetLowV6(index));
    const uint8_t* high = OrZeroBytes(list->GetHighV6(index));
    PrintEnd(xml, L"low", L"    Low:  ", [&](bool newline) { PrintIpv6Address(low, newline); });
    PrintEnd(xml, L"high", L"    High: ", [&](bool newline) { PrintIpv6Address(high, newline); });
  } else {
    ConsolePrint(L"Unknown IP version %d from IIpRangeList::GetIpVersion.\n", version);
  }
  if (xml) {
    ConsolePrint(L"        <ttl>0x%x</ttl>\n", timeToLive);
    ConsolePrint(L"    </ip_range>\n");
  } else if (timeToLive == kInfiniteTimeToLive) {
    ConsolePrint(L"           Time to live: infinite\n");
  } else {
    ConsolePrint(L"           Time to live: %d\n", timeToLive);
    ConsolePrint(L"           Time remaining: %d\n", timeRemaining);
    ConsolePrint(L"           Auto create is %s\n", autoCreate ? L"true" : L"false");
  }
}

}  // namespace

void ShowBlacklist(CoreConnection* connection, int mode) {
  IHighPriorityIpListControl* control = connection->highPriorityIpList;
  if (control == nullptr) return;
  const bool xml = mode == kRenderXml;
  if (xml) ConsolePrint(L"<blacklist>\n");

  int32_t logOption = 0;
  LastStatus = control->GetExistingLogOption(&logOption);
  if (LastStatus != kStatusOk) {
    ConsolePrint(L"    Error %x from IHighPriorityIpListControl::GetExistingLogOption\n",
                 LastStatus);
  } else if (xml) {
    ConsolePrint(L"    <blacklist_logoption>%s</blacklist_logoption>\n", LogOptionName(logOption));
  } else {
    ConsolePrint(L"    Logging option is %d\n", logOption);
  }

  IIpRangeList* list = nullptr;
  LastStatus = ObtainObject(&list, [&] { return control->GetExistingList(&list); });
  if (LastStatus != kStatusOk) {
    ConsolePrint(L"    Error %x from IHighPriorityIpListControl::GetExistingList\n", LastStatus);
  } else {
    const uint64_t count = list->GetCount();
    for (uint64_t index = 0; index < count; ++index) ShowRange(list, index, xml);
    list->Release();
  }
  if (xml) ConsolePrint(L"</blacklist>\n");
}

}  // namespace nw
