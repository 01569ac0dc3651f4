#include "policy/value_parsers.h"

#include <cstring>
#include <cwchar>
#include <string>
#include <utility>

#include "base/hex_digit.h"
#include "cli/console.h"
#include "cli/wide_text.h"
#include "core/interfaces.h"
#include "core/policy_values.h"
#include "platform/uuid.h"
#include "policy/names.h"

namespace nw {
namespace {

constexpr size_t kNameLimit = 63;
// The redirect address is copied into a 40-character buffer before it is parsed, so a longer
// text is cut rather than refused.
constexpr size_t kRedirectAddressLimit = 39;
constexpr uint8_t kIpv4PrefixLimit = 32;
constexpr uint8_t kIpv6PrefixLimit = 128;
constexpr int kMacGroups = 8;
constexpr uint32_t kByteLimit = 255;

bool IsDecimalDigit(wchar_t c) { return c >= L'0' && c <= L'9'; }

// The three range parsers differ only in their name, their maximum and whether equal ends pass.
template <class Value>
bool GetRange(const wchar_t* parser, const wchar_t* text, uint64_t maximum, bool allowEqual,
              Value* low, Value* high) {
  const wchar_t* separator = text == nullptr ? nullptr : std::wcschr(text, L'-');
  if (separator == nullptr && text != nullptr) separator = std::wcschr(text, L':');
  if (separator == nullptr) {
    ConsolePrint(L"%s: SplitRangeIntoTerms failed\n", parser);
    return false;
  }
  const std::wstring lowText(text, separator);
  uint64_t lowValue = 0;
  if (!GetNumericValue(lowText.c_str(), maximum, &lowValue)) {
    ConsolePrint(L"%s: GetNumericValue number 1 failed\n", parser);
    return false;
  }
  uint64_t highValue = 0;
  if (!GetNumericValue(separator + 1, maximum, &highValue)) {
    ConsolePrint(L"%s: GetNumericValue number 2 failed\n", parser);
    return false;
  }
  if (lowValue > highValue || (!allowEqual && lowValue == highValue)) {
    ConsolePrint(L"%s: low (%I64d) greater than high (%I64d), \n", parser,
                 static_cast<int64_t>(lowValue), static_cast<int64_t>(highValue));
    return false;
  }
  *low = static_cast<Value>(lowValue);
  *high = static_cast<Value>(highValue);
  return true;
}

// An IPv4 record keeps its address in the first four bytes; only those take part.
bool AddressNotAbove(const IpAddress& low, const IpAddress& high) {
  const size_t length = low.version == 4 ? 4 : sizeof low.bytes;
  return std::memcmp(low.bytes, high.bytes, length) <= 0;
}

}  // namespace

bool GetNumericValue(const wchar_t* text, uint64_t maximum, uint64_t* value) {
  if (text == nullptr || *text == L'\0') return false;
  const wchar_t* p = text;
  while (IsDecimalDigit(*p)) ++p;
  if (*p == L'\0') {
    // Decimal text goes through the 32-bit conversion on purpose: larger values are written in
    // hexadecimal, and a long decimal run stops at 2147483647 instead of being refused.
    const auto converted = static_cast<uint64_t>(static_cast<int64_t>(ParseDecimal(text)));
    if (converted > maximum) return false;
    *value = converted;
    return true;
  }
  if (text[0] != L'0' || (text[1] != L'x' && text[1] != L'X') || text[2] == L'\0') return false;
  uint64_t accumulator = 0;
  for (p = text + 2; *p != L'\0'; ++p) {
    const int digit = HexDigitValue(*p);
    if (digit < 0) return false;
    accumulator = accumulator << 4 | static_cast<uint64_t>(digit);
  }
  if (accumulator > maximum) return false;
  *value = accumulator;
  return true;
}

bool GetPortRange(const wchar_t* text, uint16_t* low, uint16_t* high) {
  return GetRange(L"GetPortRange", text, UINT16_MAX, true, low, high);
}

bool GetUint32Range(const wchar_t* text, uint32_t* low, uint32_t* high) {
  return GetRange(L"GetUint32Range", text, UINT32_MAX, false, low, high);
}

bool GetUint64Range(const wchar_t* text, uint64_t* low, uint64_t* high) {
  return GetRange(L"GetUint64Range", text, UINT64_MAX, false, low, high);
}

bool IsRangeText(const wchar_t* text) {
  return text != nullptr &&
         (std::wcschr(text, L'-') != nullptr || std::wcschr(text, L':') != nullptr);
}

int ParseBoolean(const wchar_t* text) {
  if (EqualsIgnoringAsciiCase(text, L"1") || EqualsIgnoringAsciiCase(text, L"true")) return 1;
  if (EqualsIgnoringAsciiCase(text, L"0") || EqualsIgnoringAsciiCase(text, L"false")) return 0;
  return -1;
}

int ParseYesNo(const wchar_t* text) {
  if (EqualsIgnoringAsciiCase(text, L"yes")) return 1;
  if (EqualsIgnoringAsciiCase(text, L"no")) return 0;
  return -1;
}

bool ParseName(const wchar_t* text, NameOwner owner, std::wstring* name) {
  const wchar_t* value = text == nullptr ? L"" : text;
  if (std::wcslen(value) > kNameLimit) {
    switch (owner) {
      case NameOwner::kPolicy:
        ConsolePrint(L"policy name is limited to 63 characters\n");
        break;
      case NameOwner::kGroup:
        ConsolePrint(L"group name is limited to 63 characters\n");
        break;
      case NameOwner::kRule:
        ConsolePrint(L"rule name is limited to 63 characters\n");
        break;
    }
    return false;
  }
  *name = value;
  return true;
}

bool ParseUid(const wchar_t* text, Guid* uid) {
  if (EqualsIgnoringAsciiCase(text, L"auto")) {
    Guid created{};
    if (platform::TheUuids().Create(&created) != 0) return false;
    *uid = created;
    return true;
  }
  return ParseGuid(text, uid);
}

bool ParseTarget(const wchar_t* text, int32_t actionType, ParsedTarget* target) {
  if (actionType != FW_ACTION_REDIRECT) {
    Guid uid{};
    if (!ParseGuid(text, &uid)) {
      ConsolePrint(L"Illegal value for target guid\n");
      return false;
    }
    target->uid = uid;
    return true;
  }
  const wchar_t* space = text == nullptr ? nullptr : std::wcschr(text, L' ');
  if (space == nullptr) {
    ConsolePrint(L"Target value - could not find separating token between address and port!\n");
    return false;
  }
  std::wstring addressText(text, space);
  if (addressText.size() > kRedirectAddressLimit) addressText.resize(kRedirectAddressLimit);
  IpAddress address{};
  if (!ParseIpAddress(&address, addressText.c_str())) {
    ConsolePrint(L"Target value - invalid redirected address %s\n", addressText.c_str());
    return false;
  }
  const wchar_t* portText = space + 1;
  // The port is read as the runtime reads any int and then stored in its 16-bit field, so
  // 65536 wraps to 0 (refused below) and 70000 to 4464.
  const auto port = static_cast<uint16_t>(ParseDecimal(portText));
  if (port == 0) {
    ConsolePrint(L"Target value - invalid 0 redirect port specified!\n");
    return false;
  }
  const wchar_t* valueSpace = std::wcschr(portText, L' ');
  target->address = address;
  target->port = port;
  target->value = valueSpace == nullptr ? 0 : ParseDecimal64(valueSpace + 1);
  return true;
}

bool BuildNetworkObj(const wchar_t* text, NetworkObject* object) {
  if (text == nullptr) return false;
  NetworkObject parsed;
  if (ParseIpAddress(&parsed.address, text)) {
    parsed.kind = kIpAddressSingle;
    *object = std::move(parsed);
    return true;
  }
  if (const wchar_t* slash = std::wcschr(text, L'/'); slash != nullptr) {
    const std::wstring addressText(text, slash);
    if (!ParseIpAddress(&parsed.address, addressText.c_str()) || slash[1] == L'\0') return false;
    // The length is stored in a byte before it is checked, so 288 passes as 32.
    parsed.prefixLength = static_cast<uint8_t>(ParseDecimal(slash + 1));
    const uint8_t limit = parsed.address.version == 4 ? kIpv4PrefixLimit : kIpv6PrefixLimit;
    if (parsed.prefixLength > limit) return false;
    parsed.kind = kIpAddressPrefix;
    *object = std::move(parsed);
    return true;
  }
  const bool hasColon = std::wcschr(text, L':') != nullptr;
  if (const wchar_t* dash = std::wcschr(text, L'-'); dash != nullptr) {
    const std::wstring lowText(text, dash);
    if (ParseIpAddress(&parsed.address, lowText.c_str()) &&
        ParseIpAddress(&parsed.high, dash + 1)) {
      if (parsed.address.version != parsed.high.version) return false;
      if (!AddressNotAbove(parsed.address, parsed.high)) return false;
      parsed.kind = kIpAddressRange;
      *object = std::move(parsed);
      return true;
    }
    parsed = NetworkObject{};
  }
  // Host names may hold hyphens, so a range whose ends are not addresses is tried as a name;
  // a colon marks a text that was meant as an address and cannot be one.
  if (hasColon) return false;
  parsed.kind = kIpAddressDomainName;
  parsed.domain = text;
  *object = std::move(parsed);
  return true;
}

bool ParseMacAddress(const wchar_t* text, uint8_t bytes[8], size_t* used) {
  if (text == nullptr) return false;
  uint8_t parsed[kMacGroups] = {};
  const wchar_t* p = text;
  for (int group = 0; group < kMacGroups; ++group) {
    const wchar_t* end;
    if (group < kMacGroups - 1) {
      end = std::wcschr(p, L'-');
      if (end == nullptr) end = std::wcschr(p, L':');
      if (end == nullptr) return false;
    } else {
      end = p;
      while (HexDigitValue(*end) >= 0) ++end;
    }
    uint32_t word = 0;
    if (!ParseHexWord(p, static_cast<size_t>(end - p), &word)) return false;
    parsed[group] = static_cast<uint8_t>(word);
    p = group < kMacGroups - 1 ? end + 1 : end;
  }
  std::memcpy(bytes, parsed, sizeof parsed);
  *used = static_cast<size_t>(p - text);
  return true;
}

bool ParseByteList(const wchar_t* text, size_t capacity, uint8_t* bytes, size_t* count) {
  if (text == nullptr) return false;
  // Checked in full before anything is stored, so a refused text leaves the caller's bytes alone.
  size_t numbers = 0;
  for (const wchar_t* p = text; *p != L'\0';) {
    if (!IsDecimalDigit(*p)) {
      ++p;
      continue;
    }
    uint32_t number = 0;
    for (; IsDecimalDigit(*p); ++p) {
      number = number * 10 + static_cast<uint32_t>(*p - L'0');
      if (number > kByteLimit) return false;
    }
    if (++numbers > capacity) return false;
  }
  size_t stored = 0;
  for (const wchar_t* p = text; *p != L'\0';) {
    if (!IsDecimalDigit(*p)) {
      ++p;
      continue;
    }
    uint32_t number = 0;
    for (; IsDecimalDigit(*p); ++p) number = number * 10 + static_cast<uint32_t>(*p - L'0');
    bytes[stored++] = static_cast<uint8_t>(number);
  }
  *count = stored;
  return true;
}

bool ParseHexWord(const wchar_t* text, size_t length, uint32_t* value) {
  uint32_t accumulator = 0;
  for (size_t i = 0; i < length; ++i) {
    const int digit = HexDigitValue(text[i]);
    if (digit < 0) return false;
    accumulator = accumulator << 4 | static_cast<uint32_t>(digit);
  }
  *value = accumulator;
  return true;
}

}  // namespace nw
