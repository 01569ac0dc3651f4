#include "policy/match_render.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

#include "cli/console.h"
#include "core/policy_values.h"
#include "policy/names.h"

namespace nw {
namespace {

// Match types grouped by the getter that reads their value and the form it is written in.
enum class ValueForm {
  kString,
  kHashSum,
  kPort,
  kByte,
  kConnectionState,
  kIpAddress,
  kAdapterAddress,
  kPhysicalMedium,
  kDirection,
  kInterfaceIndex,
  kNumber64,
  kNone,
  kAggregateReference,
  kUnknown,
};

ValueForm FormOf(int32_t type) {
  if (type >= FW_MATCH_FIRST_AGGREGATE_MATCH) return ValueForm::kAggregateReference;
  switch (type) {
    case FW_MATCH_USER_ID:
    case FW_MATCH_APP_PATH:
    case FW_MATCH_APP_COMMAND_LINE_PARAMS:
    case FW_MATCH_APP_VENDOR:
    case FW_MATCH_APP_DIGITAL_SIGNER:
    case FW_MATCH_CONNSPEC_DNS_SUFFIX:
    case FW_MATCH_ADAPTER_DESCRIPTION:
    case FW_MATCH_PE_FILE_DESCRIPTION:
    case FW_MATCH_STANDARDIZED_APP_PATH:
    case FW_MATCH_APP_DIGITAL_SIGNER_CASEINS:
    case FW_MATCH_HTTP_SERVER:
      return ValueForm::kString;
    case FW_MATCH_APP_MD5_HASH_SUM:
      return ValueForm::kHashSum;
    case FW_MATCH_LOCAL_PORT:
    case FW_MATCH_REMOTE_PORT:
    case FW_MATCH_NETWORK_LAYER_PROTOCOL:
    case FW_MATCH_SOURCE_PORT:
    case FW_MATCH_DESTINATION_PORT:
      return ValueForm::kPort;
    case FW_MATCH_ICMPV4_TYPE:
    case FW_MATCH_ICMPV6_TYPE:
    case FW_MATCH_TCP_FLAGS:
    case FW_MATCH_IP_PROTOCOL:
      return ValueForm::kByte;
    case FW_MATCH_CONNECTION_STATE:
      return ValueForm::kConnectionState;
    case FW_MATCH_LOCAL_IP_ADDRESS:
    case FW_MATCH_REMOTE_IP_ADDRESS:
    case FW_MATCH_SOURCE_IP_ADDRESS:
    case FW_MATCH_DESTINATION_IP_ADDRESS:
      return ValueForm::kIpAddress;
    case FW_MATCH_LOCAL_ADAPTER_ADDRESS:
    case FW_MATCH_REMOTE_ADAPTER_ADDRESS:
    case FW_MATCH_SOURCE_ADAPTER_ADDRESS:
    case FW_MATCH_DESTINATION_ADAPTER_ADDRESS:
      return ValueForm::kAdapterAddress;
    case FW_MATCH_PHYSICAL_MEDIUM:
      return ValueForm::kPhysicalMedium;
    case FW_MATCH_DIRECTION:
      return ValueForm::kDirection;
    case FW_MATCH_INTERFACE_INDEX:
      return ValueForm::kInterfaceIndex;
    case FW_MATCH_BYTES_SENT:
    case FW_MATCH_BYTES_RECEIVED:
    case FW_MATCH_PROCESS_ID:
    case FW_MATCH_VTP_PRIVILEGES:
      return ValueForm::kNumber64;
    case FW_MATCH_IP_ADDRESS_IS_LOCAL:
      return ValueForm::kNone;
    default:
      return ValueForm::kUnknown;
  }
}

// The range getters are chosen by the operator alone, whatever value the term holds.
bool IsRangeOperator(int32_t op) {
  return op == FW_MATCH_OP_IN_RANGE || op == FW_MATCH_OP_IN_RANGE_NOT;
}

// A domain name is copied into a buffer of this many characters, terminator included.
constexpr size_t kDomainNameCapacity = 256;
// The escaped copy of a string has room for the reported length plus this many characters,
// terminator included.
constexpr size_t kEscapeRoom = 4;

const IpAddress kClearedAddress = {};

// One term being written: where it is and in which mode.
struct Term {
  IMatchTerms* terms;
  uint32_t index;
  bool xml;
  int32_t type;
};

// Stores a value getter's status and, when it failed, prints the getter's line; true when the
// value may be written.
bool Took(Status status, const wchar_t* getter) {
  LastStatus = status;
  if (status == kStatusOk) return true;
  ConsolePrint(L"                error %08x from IMatchTerms::%s\n", status, getter);
  return false;
}

// The private copy of a string value: at most length characters, ending at an earlier
// terminator; a null pointer is an empty string.
std::wstring_view StringValue(const wchar_t* text, uint32_t length) {
  if (text == nullptr) return {};
  size_t size = 0;
  while (size < length && text[size] != L'\0') ++size;
  return {text, size};
}

// Only the first "&" is escaped, into a buffer with room for the reported length plus four
// characters (terminator included); whatever does not fit is cut off, so a length that does
// not count a terminator loses the escaped string's last character. The limit is applied to
// the text rather than allocated, so a huge reported length costs nothing.
std::wstring EscapeFirstAmpersand(std::wstring_view value, uint32_t reportedLength) {
  const size_t ampersand = value.find(L'&');
  std::wstring escaped(value.substr(0, ampersand + 1));
  escaped += L"amp;";
  escaped += value.substr(ampersand + 1);
  const size_t room = static_cast<size_t>(reportedLength) + kEscapeRoom - 1;
  if (escaped.size() > room) escaped.resize(room);
  return escaped;
}

void WriteString(const Term& t) {
  const wchar_t* text = nullptr;
  uint32_t length = 0;
  if (!Took(t.terms->GetString(t.index, &text, &length), L"GetString")) return;
  const std::wstring copy(StringValue(text, length));
  if (!t.xml) {
    ConsolePrint(L"                string = %s\n", copy.c_str());
  } else if (copy.find(L'&') == std::wstring::npos) {
    ConsolePrint(L"                    <value>%s</value>\n\n", copy.c_str());
  } else {
    ConsolePrint(L"                    <value>%s</value>\n\n",
                 EscapeFirstAmpersand(copy, length).c_str());
  }
}

// Copies the first count bytes (at most N) of an array the core handed out; positions beyond
// its count stay zero.
template <size_t N>
void TakeBytes(uint8_t (&out)[N], const uint8_t* bytes, uint32_t count) {
  if (bytes != nullptr) std::memcpy(out, bytes, std::min<size_t>(count, N));
}

void WriteHashSum(const Term& t) {
  const uint8_t* bytes = nullptr;
  uint32_t count = 0;
  if (!Took(t.terms->GetUint8Array(t.index, &bytes, &count), L"GetUint8Array")) return;
  uint8_t b[16] = {};
  TakeBytes(b, bytes, count);
  if (!t.xml) {
    ConsolePrint(
        L"                value = %02x %02x %02x %02x %02x %02x %02x %02x %02x %02x %02x %02x "
        L"%02x %02x %02x %02x\n",
        b[0], b[1], b[2], b[3], b[4], b[5], b[6], b[7], b[8], b[9], b[10], b[11], b[12], b[13],
        b[14], b[15]);
  } else {
    ConsolePrint(
        L"                    <value>%d,%d,%d,%d,%d,%d,%d,%d,%d,%d,%d,%d,%d,%d,%d,%d</value>\n",
        b[0], b[1], b[2], b[3], b[4], b[5], b[6], b[7], b[8], b[9], b[10], b[11], b[12], b[13],
        b[14], b[15]);
  }
}

// An adapter address has eight byte positions, and a second group of eight when the core
// reports exactly sixteen bytes.
void WriteAdapterAddress(const Term& t) {
  const uint8_t* bytes = nullptr;
  uint32_t count = 0;
  if (!Took(t.terms->GetUint8Array(t.index, &bytes, &count), L"GetUint8Array")) return;
  uint8_t b[16] = {};
  TakeBytes(b, bytes, count);
  const bool twoGroups = count == 16;
  if (!t.xml) {
    if (twoGroups) {
      ConsolePrint(
          L"                value = %02x-%02x-%02x-%02x-%02x-%02x-%02x-%02x "
          L"%02x-%02x-%02x-%02x-%02x-%02x-%02x-%02x\n",
          b[0], b[1], b[2], b[3], b[4], b[5], b[6], b[7], b[8], b[9], b[10], b[11], b[12], b[13],
          b[14], b[15]);
    } else {
      ConsolePrint(L"                value = %02x-%02x-%02x-%02x-%02x-%02x-%02x-%02x\n", b[0], b[1],
                   b[2], b[3], b[4], b[5], b[6], b[7]);
    }
  } else if (twoGroups) {
    ConsolePrint(
        L"                    <value>%02x-%02x-%02x-%02x-%02x-%02x-%02x-%02x "
        L"%02x-%02x-%02x-%02x-%02x-%02x-%02x-%02x</value>\n",
        b[0], b[1], b[2], b[3], b[4], b[5], b[6], b[7], b[8], b[9], b[10], b[11], b[12], b[13],
        b[14], b[15]);
  } else {
    ConsolePrint(L"                    <value>%02x-%02x-%02x-%02x-%02x-%02x-%02x-%02x</value>\n",
                 b[0], b[1], b[2], b[3], b[4], b[5], b[6], b[7]);
  }
}

void WritePort(const Term& t, int32_t op) {
  if (IsRangeOperator(op)) {
    uint16_t low = 0, high = 0;
    if (!Took(t.terms->GetUint16Range(t.index, &low, &high), L"GetUint16Range")) return;
    if (t.xml) {
      ConsolePrint(L"                    <value>%d-%d</value>\n", low, high);
    } else {
      ConsolePrint(L"                low = 0x%x (%d), high = 0x%x (%d)\n", low, low, high, high);
    }
    return;
  }
  uint16_t value = 0;
  if (!Took(t.terms->GetUint16(t.index, &value), L"GetUint16")) return;
  if (t.xml) {
    ConsolePrint(L"                    <value>%d</value>\n", value);
  } else {
    ConsolePrint(L"                value = 0x%x (%d)\n", value, value);
  }
}

void WriteByte(const Term& t) {
  uint8_t value = 0;
  if (!Took(t.terms->GetUint8(t.index, &value), L"GetUint8")) return;
  if (t.xml) {
    ConsolePrint(L"                    <value>%d</value>\n", value);
  } else {
    ConsolePrint(L"                value = 0x%x (%d)\n", value, value);
  }
}

// Connection states and physical media: a name below the bound, the view's own line at or
// above it (and for a value that is negative as a signed number).
void WriteNamedState(const Term& t, const wchar_t* getter, const wchar_t* (*name)(int32_t),
                     const wchar_t* unrecognized) {
  uint32_t value = 0;
  if (!Took(t.terms->GetUint32(t.index, &value), getter)) return;
  const wchar_t* text = name(static_cast<int32_t>(value));
  if (text == nullptr) {
    ConsolePrint(unrecognized, static_cast<int32_t>(value));
  } else if (t.xml) {
    ConsolePrint(L"                    <value>%s</value>\n", text);
  } else {
    ConsolePrint(L"                %s\n", text);
  }
}

void WriteDirection(const Term& t) {
  uint32_t value = 0;
  if (!Took(t.terms->GetUint32(t.index, &value), L"GetDirection")) return;
  const int32_t direction = static_cast<int32_t>(value);
  if (t.xml) {
    ConsolePrint(L"                    <value>%s</value>\n", DirectionName(direction));
  } else if (direction == FW_DIRECTION_INBOUND) {
    ConsolePrint(L"                inbound\n");
  } else if (direction == FW_DIRECTION_OUTBOUND) {
    ConsolePrint(L"                outbound\n");
  } else {
    ConsolePrint(L"                unknown value for direction (%d)\n", direction);
  }
}

void WriteInterfaceIndex(const Term& t, int32_t op) {
  if (IsRangeOperator(op)) {
    uint64_t low = 0, high = 0;
    if (!Took(t.terms->GetUint64Range(t.index, &low, &high), L"GetUint64Range")) return;
    if (t.xml) {
      ConsolePrint(L"                    <value>0x%I64x-0x%I64x</value>\n", low, high);
    } else {
      ConsolePrint(L"                low = 0x%I64x (%I64d), high = 0x%I64x (%I64d)\n", low, low,
                   high, high);
    }
    return;
  }
  uint64_t value = 0;
  if (!Took(t.terms->GetUint64(t.index, &value), L"GetUint64")) return;
  if (t.xml) {
    ConsolePrint(L"                    <value>0x%I64x</value>\n", value);
  } else {
    ConsolePrint(L"                value = 0x%I64x (%I64d)\n", value, value);
  }
}

void WriteNumber64(const Term& t) {
  uint64_t value = 0;
  if (!Took(t.terms->GetUint64(t.index, &value), L"GetUint64")) return;
  if (t.xml) {
    ConsolePrint(L"                    <value>%I64d</value>\n", value);
  } else {
    ConsolePrint(L"                value = 0x%I64x (%I64d)\n", value, value);
  }
}

const IpAddress* OrCleared(const IpAddress* address) {
  return address != nullptr ? address : &kClearedAddress;
}

// The address text as every form writes it: a cleared 40-character buffer.
struct AddressText {
  explicit AddressText(const IpAddress* address) {
    FormatIpAddress(text, kIpv6TextCapacity, OrCleared(address));
  }
  wchar_t text[kIpv6TextCapacity] = {};
};

void WriteIpAddress(const Term& t) {
  const int32_t kind = t.terms->GetIpAddressMatchType(t.index);
  switch (kind) {
    case kIpAddressSingle: {
      const IpAddress* address = nullptr;
      if (!Took(t.terms->GetIpAddress(t.index, &address), L"GetIpAddress")) return;
      if (t.xml) {
        ConsolePrint(L"                    <value>%s</value>\n", AddressText(address).text);
      } else {
        PrintIpAddress(OrCleared(address), true, true);
      }
      return;
    }
    case kIpAddressRange: {
      const IpAddress* low = nullptr;
      const IpAddress* high = nullptr;
      if (!Took(t.terms->GetIpAddressRange(t.index, &low, &high), L"GetIpAddressRange")) return;
      if (t.xml) {
        ConsolePrint(L"                    <value>%s-%s</value>\n", AddressText(low).text,
                     AddressText(high).text);
      } else {
        PrintIpAddress(OrCleared(low), true, true);
        PrintIpAddress(OrCleared(high), true, true);
      }
      return;
    }
    case kIpAddressPrefix: {
      const uint8_t* prefix = nullptr;
      const IpAddress* address = nullptr;
      if (!Took(t.terms->GetIpMask(t.index, &prefix), L"GetIpAddress/Mask")) return;
      if (!Took(t.terms->GetIpAddress(t.index, &address), L"GetIpAddress/Mask")) return;
      const int prefixLength = prefix != nullptr ? *prefix : 0;
      if (t.xml) {
        ConsolePrint(L"                    <value>%s/%d</value>\n", AddressText(address).text,
                     prefixLength);
      } else {
        ConsolePrint(L"                %s/%d\n", AddressText(address).text, prefixLength);
      }
      return;
    }
    case kIpAddressDomainName: {
      const wchar_t* name = nullptr;
      uint32_t length = 0;
      if (!Took(t.terms->GetString(t.index, &name, &length),
                L"GetString when obtaining domain name")) {
        return;
      }
      // Longer names are cut to what the buffer holds; they are not escaped.
      wchar_t copy[kDomainNameCapacity] = {};
      for (size_t i = 0; name != nullptr && i + 1 < kDomainNameCapacity && name[i] != L'\0'; ++i) {
        copy[i] = name[i];
      }
      if (t.xml) {
        ConsolePrint(L"                    <value>%s</value>\n", copy);
      } else {
        ConsolePrint(L"                %s\n", copy);
      }
      return;
    }
    default:
      ConsolePrint(
          L"                unrecognized type returned from IMatchTerms::GetIpAddressMatchType: "
          L"%d\n",
          kind);
      return;
  }
}

void WriteAggregateReference(const Term& t, uint32_t count) {
  // The getter's status is not examined: there is no message for it.
  const Guid* uid = nullptr;
  t.terms->GetAggregateUid(t.index, &uid);
  if (!t.xml) {
    ConsolePrint(L"            Aggregate match with %d terms\n", count);
    return;
  }
  const Guid none = {};
  wchar_t text[kGuidTextCapacity];
  FormatGuid(text, uid != nullptr ? uid : &none);
  ConsolePrint(L"                    <value>%s</value>\n", text);
}

void WriteValue(const Term& t, int32_t op, uint32_t count) {
  switch (FormOf(t.type)) {
    case ValueForm::kString:
      return WriteString(t);
    case ValueForm::kHashSum:
      return WriteHashSum(t);
    case ValueForm::kPort:
      return WritePort(t, op);
    case ValueForm::kByte:
      return WriteByte(t);
    case ValueForm::kConnectionState:
      return WriteNamedState(t, L"GetConnectionState", ConnectionStateName,
                             L"                unrecognized connection state %d\n");
    case ValueForm::kIpAddress:
      return WriteIpAddress(t);
    case ValueForm::kAdapterAddress:
      return WriteAdapterAddress(t);
    case ValueForm::kPhysicalMedium:
      return WriteNamedState(t, L"GetPhysicalMedium", PhysicalMediumName,
                             L"                unrecognized physical medium %d\n");
    case ValueForm::kDirection:
      return WriteDirection(t);
    case ValueForm::kInterfaceIndex:
      return WriteInterfaceIndex(t, op);
    case ValueForm::kNumber64:
      return WriteNumber64(t);
    case ValueForm::kNone:
      return;
    case ValueForm::kAggregateReference:
      return WriteAggregateReference(t, count);
    case ValueForm::kUnknown:
      ConsolePrint(L"            Unknown match type %d\n", t.type);
      return;
  }
}

}  // namespace

void RenderMatch(IMatch* match, int mode) {
  const bool xml = mode == kRenderXml;
  const int32_t type = match->GetType();
  IMatchTerms* terms = match->GetTerms();
  const uint32_t count = terms != nullptr ? terms->GetCount() : 0;
  const bool aggregate = type >= FW_MATCH_FIRST_AGGREGATE_MATCH;
  if (!xml) {
    ConsolePrint(L"            Match\n");
    if (aggregate) {
      ConsolePrint(L"                aggregate match %d\n", type);
    } else {
      ConsolePrint(L"                match type: %s (%d)\n", MatchTypeName(type), type);
    }
  }
  for (uint32_t index = 0; index < count; ++index) {
    int32_t op = 0;
    if (xml) {
      ConsolePrint(L"                <match>\n");
      if (aggregate) {
        ConsolePrint(L"                    <matchtype>%d</matchtype>\n", type);
      } else {
        ConsolePrint(L"                    <matchtype>%s</matchtype>\n", MatchTypeName(type));
      }
      op = terms->GetOperator(index);
      ConsolePrint(L"                    <optype>%s</optype>\n", MatchOpName(op));
    } else {
      op = terms->GetOperator(index);
      ConsolePrint(L"\n                op = %s\n", MatchOpName(op));
    }
    WriteValue(Term{terms, index, xml, type}, op, count);
    if (xml) ConsolePrint(L"                </match>\n");
  }
}

}  // namespace nw
