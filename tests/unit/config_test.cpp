// The configuration handlers' cases that no run of the program reaches: the dispatcher calls
// ConfigChange with the allow-on flag false and only for -PassThru, and TrafficLogChange only
// for its own three codes. Plus the argument readers every change command relies on.

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "base/format.h"
#include "cli/console.h"
#include "cli/handlers.h"
#include "config/config_parsers.h"
#include "core/interfaces.h"
#include "tests/unit/printed.h"

namespace nw {
namespace {

using Calls = std::vector<std::string>;

// Records every call; nothing fails.
class RecordingBuilder final : public IGlobalConfigBuilder {
 public:
  Calls calls;
  Status Unused0() override { return Note("Unused0"); }
  uint32_t Release() override { return static_cast<uint32_t>(Note("Release")); }
  Status Refresh() override { return Note("Refresh"); }
  Status ResetToDefaults() override { return Note("ResetToDefaults"); }
  Status Apply() override { return Note("Apply"); }
  Status SetMaxKernelLogQueueSize(int32_t) override { return Note("SetMaxKernelLogQueueSize"); }
  Status SetMaxPointProductReplyTime(int32_t) override {
    return Note("SetMaxPointProductReplyTime");
  }
  Status SetPassthruMode(bool, int32_t) override { return Note("SetPassthruMode"); }
  Status SetGlobalPassthruMode(bool on) override {
    return Note(on ? "SetGlobalPassthruMode(true)" : "SetGlobalPassthruMode(false)");
  }
  Status SetTraceLogMask(uint32_t) override { return Note("SetTraceLogMask"); }
  Status EnableTrafficLog(bool on, bool second) override {
    return Note(std::string("EnableTrafficLog(") + (on ? "true" : "false") +
                (second ? ", true)" : ", false)"));
  }
  Status SetMaxTrafficLogSize(int32_t) override { return Note("SetMaxTrafficLogSize"); }
  Status SetStateTableGcPeriod(int32_t) override { return Note("SetStateTableGcPeriod"); }
  Status SetStateTableTcpTimeout(int32_t) override { return Note("SetStateTableTcpTimeout"); }
  Status SetStateTableUdpTimeout(int32_t) override { return Note("SetStateTableUdpTimeout"); }
  Status SetStateTableForcedTcpTimeout(uint32_t) override {
    return Note("SetStateTableForcedTcpTimeout");
  }
  Status SetLogThrottle(int32_t) override { return Note("SetLogThrottle"); }
  Status SetTrackForwardedConnections(bool) override {
    return Note("SetTrackForwardedConnections");
  }
  Status SetMaxStateTableSize(int32_t) override { return Note("SetMaxStateTableSize"); }
  Status SetStateTableTcpConnRemovalTimeOut(int32_t) override {
    return Note("SetStateTableTcpConnRemovalTimeOut");
  }
  Status SetConnectionThrottleBurstThreshold(int32_t) override {
    return Note("SetConnectionThrottleBurstThreshold");
  }
  Status SetConnectionThrottleMaxConnectionsRate(int32_t) override {
    return Note("SetConnectionThrottleMaxConnectionsRate");
  }

 private:
  Status Note(const std::string& call) {
    calls.push_back(call);
    return kStatusOk;
  }
};

class BuilderControl final : public IControl {
 public:
  explicit BuilderControl(RecordingBuilder& builder) : builder_(builder) {}
  Status Unused0() override { return kStatusNotImplemented; }
  uint32_t Release() override { return 0; }
  Status GetPolicyManager(IPolicyManager**, const Guid*) override { return kStatusNotImplemented; }
  Status Unused3() override { return kStatusNotImplemented; }
  Status Unused4() override { return kStatusNotImplemented; }
  Status Unused5() override { return kStatusNotImplemented; }
  Status Unused6() override { return kStatusNotImplemented; }
  Status GetIpConfigChanged(IIpConfig**, const Guid*) override { return kStatusNotImplemented; }
  Status Unused8() override { return kStatusNotImplemented; }
  Status GetHighPriorityIpListControl(IHighPriorityIpListControl**, const Guid*) override {
    return kStatusNotImplemented;
  }
  Status GetGlobalConfigBuilder(IGlobalConfigBuilder** out, const Guid*) override {
    *out = &builder_;
    return kStatusOk;
  }
  Status GetGlobalConfigAndStateInfo(IGlobalConfigAndStateInfo**, const Guid*) override {
    return kStatusNotImplemented;
  }
  Status GetConnectionTable(IConnectionTable**, const Guid*) override {
    return kStatusNotImplemented;
  }
  Status GetOpenedEndpointTable(IOpenedEndpointTable**, const Guid*) override {
    return kStatusNotImplemented;
  }
  Status GetActiveProcesses(IActiveProcesses**, const Guid*) override {
    return kStatusNotImplemented;
  }

 private:
  RecordingBuilder& builder_;
};

TEST(ConfigChangeTest, CasesTheDispatcherNeverReaches) {
  enum class Handler { kTrafficLog, kConfigChange, kConfigChangeAllowOn };
  constexpr Handler T = Handler::kTrafficLog;
  constexpr Handler C = Handler::kConfigChange;
  constexpr Handler On = Handler::kConfigChangeAllowOn;
  const char* unrecognized = "Unrecognized command passed to ConfigChange function.\n";
  const struct {
    Handler handler;
    CommandCode code;
    const wchar_t* argument;
    const char* out;
    const char* setter;  // empty: no setter may be called
  } cases[] = {
      {On, 17, L"on", "", "SetGlobalPassthruMode(true)"},
      {On, 17, L"false", "", "SetGlobalPassthruMode(false)"},
      {On, 17, L"maybe", "Value of PassThru argument should be 'on' or 'off'.\n", ""},
      {C, 11, L"off", "", "EnableTrafficLog(false, true)"},
      {C, 13, L"-1", "Trace log mask must be hex number greater than 0.\n", ""},
      {T, 17, L"off", "Invalid global config change command 17 for netwarden!\n", ""},
      {T, 25, L"5", "Invalid global config change command 25 for netwarden!\n", ""},
      {C, 10, L"on", unrecognized, ""},
      {C, 14, L"on", unrecognized, ""},
      {C, 16, L"on", unrecognized, ""},
      {C, 18, L"on", unrecognized, ""},
      {C, 24, L"on", unrecognized, ""},
      {C, 37, L"on", unrecognized, ""},
      {C, 40, L"on", unrecognized, ""},
      {C, 44, L"on", unrecognized, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE("code " + std::to_string(c.code) + " argument '" + WideToUtf8(c.argument) + "'");
    RecordingBuilder builder;
    BuilderControl control(builder);
    CoreConnection connection;
    connection.control = &control;
    LastStatus = 0;
    const std::string out = testing::Printed([&] {
      if (c.handler == T) {
        TrafficLogChange(connection, c.code, c.argument);
      } else {
        ConfigChange(connection, c.code, c.argument, c.handler == On);
      }
    });
    EXPECT_EQ(out, c.out);
    // A refused argument or code is reported in words only: the unchanged builder is applied.
    EXPECT_EQ(LastStatus, 0);
    Calls expected = {"Refresh"};
    if (*c.setter != '\0') expected.push_back(c.setter);
    expected.push_back("Apply");
    expected.push_back("Release");
    EXPECT_EQ(builder.calls, expected);
  }
}

// ---- Argument readers --------------------------------------------------------------------

TEST(ConfigParsersTest, OnOffWords) {
  const struct {
    const wchar_t* text;
    int32_t expected;
  } cases[] = {
      {L"yes", 1}, {L"ON", 1}, {L"True", 1}, {L"no", 0},   {L"OFF", 0}, {L"faLSE", 0}, {L"1", -1},
      {L"0", -1},  {L"", -1},  {L"on ", -1}, {L"onn", -1}, {L"y", -1},  {nullptr, -1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text != nullptr ? WideToUtf8(c.text) : "(null)");
    EXPECT_EQ(ParseOnOff(c.text), c.expected);
  }
}

TEST(ConfigParsersTest, Hex32KeepsTheLastEightDigits) {
  const struct {
    const wchar_t* text;
    bool ok;
    uint32_t value;
  } cases[] = {
      {L"", true, 0},
      {L"0", true, 0},
      {L"ff", true, 0xFF},
      {L"DeadBeef", true, 0xDEADBEEF},
      {L"123456789", true, 0x23456789},
      {L"0000000000001", true, 1},
      {L"0x10", false, 0},
      {L"-1", false, 0},
      {L"+1", false, 0},
      {L" 1", false, 0},
      {L"1 ", false, 0},
      {L"g", false, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(WideToUtf8(c.text));
    uint32_t value = 0xA5A5A5A5;
    EXPECT_EQ(ParseHex32(&value, c.text), c.ok);
    EXPECT_EQ(value, c.ok ? c.value : 0xA5A5A5A5);  // untouched on failure
  }
}

TEST(ConfigParsersTest, DecimalHasAtoiSemanticsAndClamps) {
  const struct {
    const wchar_t* text;
    int32_t expected;
  } cases[] = {
      {L"42", 42},
      {L"  \t\n42", 42},
      {L"\v\f\r7", 7},
      {L"\x0E"
       L"7",
       0},
      {L"\x08"
       L"7",
       0},
      {L"+7", 7},
      {L"-5", -5},
      {L"10kb", 10},
      {L"abc", 0},
      {L"", 0},
      {L"-", 0},
      {L"+-3", 0},
      {L"2147483647", 2147483647},
      {L"2147483648", 2147483647},
      {L"99999999999", 2147483647},
      {L"4294967295", 2147483647},
      {L"-2147483648", INT32_MIN},
      {L"-2147483649", INT32_MIN},
      {L"-99999999999999999999999", INT32_MIN},
      {L"00000000000000000000012", 12},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(WideToUtf8(c.text));
    EXPECT_EQ(ParseDecimal(c.text), c.expected);
  }
}

}  // namespace
}  // namespace nw
