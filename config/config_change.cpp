// The commands that change one global setting each, and the reset of them all. Every change
// goes through a builder that is loaded with the core's current settings, set once and applied.

#include <cstdint>

#include "base/hex_digit.h"
#include "cli/console.h"
#include "cli/handlers.h"
#include "cli/wide_text.h"
#include "config/config_parsers.h"
#include "core/interfaces.h"
#include "policy/names.h"

namespace nw {
namespace {

/// How a command reads its argument and what it accepts.
enum class Accepts {
  kOnOff,            // ParseOnOff gives 1 or 0
  kPositiveDecimal,  // ParseDecimal above 0, compared as signed
  kPositiveHex,      // ParseHex32 parses, and the value is above 0 compared as signed
  kDecimalRange,     // ParseDecimal within [low, high], compared as unsigned
  kPassThru,         // off only, unless the caller allows on
  kNothing,          // the command is recognised but has no case
};

using Setter = Status (*)(IGlobalConfigBuilder& builder, int32_t value);

struct SettingCommand {
  CommandCode code;
  Accepts accepts;
  /// The message for an argument that is not accepted. kDecimalRange formats it with the
  /// argument text, low and high; kOnOff with the option's name.
  const wchar_t* invalid;
  Setter set;
  /// The line for a failing setter, "%08x" taking its status; null: the status is not examined.
  const wchar_t* failure;
  uint32_t low = 0;
  uint32_t high = 0;
};

constexpr SettingCommand kSettingCommands[] = {
    {11, Accepts::kOnOff, L"Value of TrafficLog argument should be 'on' or 'off'.\n",
     [](IGlobalConfigBuilder& b, int32_t v) { return b.EnableTrafficLog(v != 0, true); },
     L"Error from IGlobalConfigBuilder::EnableTrafficLog - %08x.\n"},
    {12, Accepts::kPositiveDecimal, L"Maximum traffic log size must be greater than 0.\n",
     [](IGlobalConfigBuilder& b, int32_t v) { return b.SetMaxTrafficLogSize(v); },
     L"Error from IGlobalConfigBuilder::SetMaxTrafficLogSize - %08x.\n"},
    {13, Accepts::kPositiveHex, L"Trace log mask must be hex number greater than 0.\n",
     [](IGlobalConfigBuilder& b, int32_t v) { return b.SetTraceLogMask(static_cast<uint32_t>(v)); },
     L"Error from IGlobalConfigBuilder::SetTraceLogMask - %08x.\n"},
    {17, Accepts::kPassThru, L"PassThru argument can only be 'off'.\n",
     [](IGlobalConfigBuilder& b, int32_t v) { return b.SetGlobalPassthruMode(v != 0); },
     L"Error from IGlobalConfigBuilder::SetGlobalPassthruMode - %08x.\n"},
    {25, Accepts::kPositiveDecimal, L"Maximum log queue size must be greater than 0.\n",
     [](IGlobalConfigBuilder& b, int32_t v) { return b.SetMaxKernelLogQueueSize(v); },
     L"Error from IGlobalConfigBuilder::SetMaxKernelLogQueueSize - %08x.\n"},
    {26, Accepts::kPositiveDecimal, L"Maximum point product reply time must be greater than 0.\n",
     [](IGlobalConfigBuilder& b, int32_t v) { return b.SetMaxPointProductReplyTime(v); },
     L"Error from IGlobalConfigBuilder::SetMaxPointProductReplyTime - %08x.\n"},
    {27, Accepts::kOnOff, L"Value of PassThruStream argument should be 'on' or 'off'.\n",
     [](IGlobalConfigBuilder& b, int32_t v) {
       return b.SetPassthruMode(v != 0, FW_POLICY_TYPE_STREAM);
     },
     L"Error from IGlobalConfigBuilder::SetPassthruMode - %08x.\n"},
    {28, Accepts::kOnOff, L"Value of PassThruPacket argument should be 'on' or 'off'.\n",
     [](IGlobalConfigBuilder& b, int32_t v) {
       return b.SetPassthruMode(v != 0, FW_POLICY_TYPE_PACKET);
     },
     L"Error from IGlobalConfigBuilder::SetPassthruMode - %08x.\n"},
    {29, Accepts::kDecimalRange, L"Invalid TCP timeout value %s, must be from %d to %d\n",
     [](IGlobalConfigBuilder& b, int32_t v) { return b.SetStateTableTcpTimeout(v); },
     L"Error from IGlobalConfigBuilder::SetStateTableTcpTimeout - %08x.\n", 1, 240},
    {30, Accepts::kDecimalRange, L"Invalid UDP timeout value %s, must be from %d to %d\n",
     [](IGlobalConfigBuilder& b, int32_t v) { return b.SetStateTableUdpTimeout(v); },
     L"Error from IGlobalConfigBuilder::SetStateTableUdpTimeout - %08x.\n", 1, 600},
    // Borrows the TCP timeout message, with unsigned placeholders for its bounds.
    {31, Accepts::kDecimalRange, L"Invalid TCP timeout value %s, must be from %u to %u\n",
     [](IGlobalConfigBuilder& b, int32_t v) {
       return b.SetStateTableForcedTcpTimeout(static_cast<uint32_t>(v));
     },
     L"Error from IGlobalConfigBuilder::SetStateTableForcedTcpTimeout - %08x.\n", 3600,
     4294967295u},
    {32, Accepts::kDecimalRange, L"Invalid GC period value %s, must be from %d to %d\n",
     [](IGlobalConfigBuilder& b, int32_t v) { return b.SetStateTableGcPeriod(v); },
     L"Error from IGlobalConfigBuilder::SetStateTableGcPeriod - %08x.\n", 1, 240},
    {33, Accepts::kNothing, L"Unrecognized command passed to ConfigChange function.\n", nullptr,
     nullptr},
    {34, Accepts::kDecimalRange, L"Invalid log throttle value %s, must be from %d to %d\n",
     [](IGlobalConfigBuilder& b, int32_t v) { return b.SetLogThrottle(v); },
     L"Error from IGlobalConfigBuilder::SetLogThrottle - %08x.\n", 0, 1000000},
    // The only setter whose status is not looked at.
    {35, Accepts::kOnOff, L"Value of %s argument should be 'on' or 'off'.\n",
     [](IGlobalConfigBuilder& b, int32_t v) { return b.SetTrackForwardedConnections(v != 0); },
     nullptr},
    {36, Accepts::kDecimalRange, L"Invalid state tabke size value %s, must be from %d to %d\n",
     [](IGlobalConfigBuilder& b, int32_t v) { return b.SetMaxStateTableSize(v); },
     L"Error from IGlobalConfigBuilder::SetMaxStateTableSize - %08x.\n", 1024, 1048576},
    {41, Accepts::kDecimalRange,
     L"Invalid TCP Connection removal timeout value %s, must be from %d to %d\n",
     [](IGlobalConfigBuilder& b, int32_t v) { return b.SetStateTableTcpConnRemovalTimeOut(v); },
     L"Error from IGlobalConfigBuilder::SetStateTableTcpConnRemovalTimeOut - %08x.\n", 0, 180},
    // The burst threshold reports itself as a rate.
    {42, Accepts::kDecimalRange, L"Invalid Connection rate %s, must be from %d to %d\n",
     [](IGlobalConfigBuilder& b, int32_t v) { return b.SetConnectionThrottleBurstThreshold(v); },
     L"Error from IGlobalConfigBuilder::SetConnectionThrottleBurstThreshold - %08x.\n", 100, 8192},
    {43, Accepts::kDecimalRange, L"Invalid Connection rate %s, must be from %d to %d\n",
     [](IGlobalConfigBuilder& b, int32_t v) {
       return b.SetConnectionThrottleMaxConnectionsRate(v);
     },
     L"Error from IGlobalConfigBuilder::SetConnectionThrottleMaxConnectionsRate - %08x.\n", 1,
     1000},
};

const SettingCommand* FindSettingCommand(CommandCode code) {
  for (const SettingCommand& command : kSettingCommands) {
    if (command.code == code) return &command;
  }
  return nullptr;
}

const wchar_t* OptionName(CommandCode code) { return code == 35 ? OptionTrackForwarding : L""; }

/// Reads the argument as the command wants it. False when it is not accepted; *value then
/// holds nothing of use.
bool ReadArgument(const SettingCommand& command, const wchar_t* text, bool allowOn,
                  int32_t* value) {
  switch (command.accepts) {
    case Accepts::kOnOff:
      *value = ParseOnOff(text);
      return *value != -1;
    case Accepts::kPositiveDecimal:
      *value = ParseDecimal(text);
      return *value > 0;
    case Accepts::kPositiveHex: {
      uint32_t mask = 0;
      if (!ParseHex32(&mask, text)) return false;
      *value = static_cast<int32_t>(mask);
      return *value > 0;
    }
    case Accepts::kDecimalRange: {
      *value = ParseDecimal(text);
      const uint32_t asUnsigned = static_cast<uint32_t>(*value);
      return asUnsigned >= command.low && asUnsigned <= command.high;
    }
    case Accepts::kPassThru:
      *value = ParseOnOff(text);
      return allowOn ? *value != -1 : *value == 0;
    case Accepts::kNothing:
      return false;
  }
  return false;
}

void ReportInvalid(const SettingCommand& command, const wchar_t* text, bool allowOn) {
  switch (command.accepts) {
    case Accepts::kDecimalRange:
      ConsolePrint(command.invalid, text, command.low, command.high);
      return;
    case Accepts::kOnOff:
      ConsolePrint(command.invalid, OptionName(command.code));
      return;
    case Accepts::kPassThru:
      // Switching pass-through on is withheld from the command line, not missing.
      ConsolePrint(allowOn ? L"Value of PassThru argument should be 'on' or 'off'.\n"
                           : command.invalid);
      return;
    default:
      ConsolePrint(command.invalid);
      return;
  }
}

/// One command's case: exactly one setter call for an accepted argument, its status in
/// LastStatus; an argument that is not accepted is reported in words only.
void ChangeSetting(IGlobalConfigBuilder& builder, const SettingCommand& command,
                   const wchar_t* text, bool allowOn) {
  int32_t value = 0;
  if (!ReadArgument(command, text, allowOn, &value)) {
    ReportInvalid(command, text, allowOn);
    return;
  }
  const Status status = command.set(builder, value);
  if (command.failure == nullptr) return;
  LastStatus = status;
  if (status != kStatusOk) ConsolePrint(command.failure, status);
}

/// Step one of every builder command: the builder, or null after its failure was reported and
/// stored in LastStatus.
IGlobalConfigBuilder* GetBuilder(CoreConnection& connection) {
  IGlobalConfigBuilder* builder = nullptr;
  LastStatus = ObtainObject(&builder, [&] {
    return connection.control->GetGlobalConfigBuilder(&builder, &GlobalConfigBuilderInterfaceId);
  });
  if (LastStatus == kStatusOk) return builder;
  ConsolePrint(L"Error from IControl::GetGlobalConfigBuilder %08x\n", LastStatus);
  return nullptr;
}

/// The frame both change handlers share: get the builder, load it, let the case run, and
/// apply only when no setter failed. Apply's own status is not looked at.
template <class Case>
void WithLoadedBuilder(CoreConnection& connection, Case&& handle) {
  IGlobalConfigBuilder* builder = GetBuilder(connection);
  if (builder == nullptr) return;
  builder->Refresh();
  handle(*builder);
  if (LastStatus == kStatusOk) builder->Apply();
  builder->Release();
}

bool IsTrafficLogCode(CommandCode code) { return code >= 11 && code <= 13; }

}  // namespace

int32_t ParseOnOff(const wchar_t* text) {
  for (const wchar_t* on : {L"yes", L"on", L"true"}) {
    if (EqualsIgnoringAsciiCase(text, on)) return 1;
  }
  for (const wchar_t* off : {L"no", L"off", L"false"}) {
    if (EqualsIgnoringAsciiCase(text, off)) return 0;
  }
  return -1;
}

bool ParseHex32(uint32_t* value, const wchar_t* text) {
  if (text == nullptr) return false;
  uint32_t accumulator = 0;
  for (const wchar_t* p = text; *p != L'\0'; ++p) {
    const int digit = HexDigitValue(*p);
    if (digit < 0) return false;
    accumulator = accumulator << 4 | static_cast<uint32_t>(digit);
  }
  *value = accumulator;
  return true;
}

void TrafficLogChange(CoreConnection& connection, CommandCode code, const wchar_t* value) {
  WithLoadedBuilder(connection, [&](IGlobalConfigBuilder& builder) {
    const SettingCommand* command = IsTrafficLogCode(code) ? FindSettingCommand(code) : nullptr;
    if (command == nullptr) {
      ConsolePrint(L"Invalid global config change command %d for netwarden!\n", code);
      return;
    }
    ChangeSetting(builder, *command, value, false);
  });
}

void ConfigChange(CoreConnection& connection, CommandCode code, const wchar_t* value,
                  bool allowOn) {
  WithLoadedBuilder(connection, [&](IGlobalConfigBuilder& builder) {
    const SettingCommand* command = FindSettingCommand(code);
    if (command == nullptr) {
      ConsolePrint(L"Unrecognized command passed to ConfigChange function.\n");
      return;
    }
    ChangeSetting(builder, *command, value, allowOn);
  });
}

void ConfigReset(CoreConnection& connection) {
  IGlobalConfigBuilder* builder = GetBuilder(connection);
  if (builder == nullptr) return;
  builder->ResetToDefaults();
  LastStatus = builder->Apply();
  // The message names IControl although Apply is the builder's; the text stays as it is.
  if (LastStatus != kStatusOk) ConsolePrint(L"Error from IControl::Apply %08x\n", LastStatus);
  builder->Release();
}

}  // namespace nw
