// libFuzzer target: any bytes as the text of a policy document element, read by every value
// parser, once decoded as UTF-8 and once with each byte as one character (so that text outside
// what UTF-8 decoding yields is tried too). Nothing may crash or read past the text, and what a
// parser accepts must make sense: ranges in order, prefixes within their version's length,
// hardware addresses within the text, byte lists within their capacity.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <string>
#include <string_view>

#include "base/format.h"
#include "core/interfaces.h"
#include "policy/value_parsers.h"

namespace {

void Check(bool condition) {
  if (!condition) __builtin_trap();
}

void CheckNumbers(const wchar_t* text) {
  const uint64_t maxima[] = {0, 255, 65535, 2147483646, 0xFFFFFFFF, UINT64_MAX};
  for (const uint64_t maximum : maxima) {
    uint64_t value = 0;
    if (nw::GetNumericValue(text, maximum, &value)) Check(value <= maximum);
  }
  const bool range = nw::IsRangeText(text);
  uint16_t lowPort = 0, highPort = 0;
  if (nw::GetPortRange(text, &lowPort, &highPort)) Check(range && lowPort <= highPort);
  uint32_t low32 = 0, high32 = 0;
  if (nw::GetUint32Range(text, &low32, &high32)) Check(range && low32 < high32);
  uint64_t low64 = 0, high64 = 0;
  if (nw::GetUint64Range(text, &low64, &high64)) Check(range && low64 < high64);
}

void CheckWords(const wchar_t* text) {
  const int boolean = nw::ParseBoolean(text);
  Check(boolean >= -1 && boolean <= 1);
  const int yesNo = nw::ParseYesNo(text);
  Check(yesNo >= -1 && yesNo <= 1);
  Check(boolean == -1 || yesNo == -1);  // no word is both
  std::wstring name;
  const bool named = nw::ParseName(text, nw::NameOwner::kRule, &name);
  Check(named == (std::wcslen(text) <= 63));
  if (named) Check(name == text);
  nw::Guid uid{};
  nw::ParseUid(text, &uid);
}

void CheckTargets(const wchar_t* text) {
  nw::ParsedTarget target;
  if (nw::ParseTarget(text, 3, &target)) {
    Check(target.port != 0);
    Check(target.address.version == 4 || target.address.version == 6);
  }
  nw::ParsedTarget other;
  nw::ParseTarget(text, 9, &other);
}

void CheckNetworkObject(const wchar_t* text) {
  nw::NetworkObject object;
  if (!nw::BuildNetworkObj(text, &object)) return;
  switch (object.kind) {
    case nw::kIpAddressSingle:
      Check(object.address.version == 4 || object.address.version == 6);
      break;
    case nw::kIpAddressPrefix:
      Check(object.prefixLength <= (object.address.version == 4 ? 32 : 128));
      break;
    case nw::kIpAddressRange:
      Check(object.address.version == object.high.version);
      Check(std::memcmp(object.address.bytes, object.high.bytes, sizeof object.high.bytes) <= 0);
      break;
    case nw::kIpAddressDomainName:
      Check(object.domain == text && object.domain.find(L':') == std::wstring::npos);
      break;
    default:
      Check(false);
  }
}

void CheckBytes(const wchar_t* text) {
  const size_t length = std::wcslen(text);
  uint8_t mac[9];
  mac[8] = 0xA5;
  size_t used = 0;
  if (nw::ParseMacAddress(text, mac, &used)) Check(used <= length);
  Check(mac[8] == 0xA5);

  for (const size_t capacity : {size_t{0}, size_t{1}, size_t{16}}) {
    uint8_t bytes[17];
    bytes[capacity] = 0xA5;
    size_t count = 0;
    if (nw::ParseByteList(text, capacity, bytes, &count)) Check(count <= capacity);
    Check(bytes[capacity] == 0xA5);
  }

  uint32_t word = 0;
  bool allHex = true;
  for (size_t i = 0; i < length; ++i) {
    const wchar_t c = text[i];
    allHex = allHex &&
             ((c >= L'0' && c <= L'9') || (c >= L'a' && c <= L'f') || (c >= L'A' && c <= L'F'));
  }
  Check(nw::ParseHexWord(text, length, &word) == allHex);
  // One more than the text holds reaches its terminator, which is no hex digit.
  Check(!nw::ParseHexWord(text, length + 1, &word));
}

void CheckAll(const std::wstring& text) {
  CheckNumbers(text.c_str());
  CheckWords(text.c_str());
  CheckTargets(text.c_str());
  CheckNetworkObject(text.c_str());
  CheckBytes(text.c_str());
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // The refusal messages would bury the fuzzer's own report, which goes to standard error.
  if (std::freopen("/dev/null", "w", stdout) == nullptr) return 1;
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  CheckAll(nw::Utf8ToWide(bytes));
  std::wstring widened;
  for (const unsigned char c : bytes) widened += static_cast<wchar_t>(c);
  CheckAll(widened);
  return 0;
}
