// The configuration commands against a core that records every call, so that the calling order,
// the Apply/Release rules and every message can be pinned without a library.

#include <gtest/gtest.h>

#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "base/format.h"
#include "cli/console.h"
#include "cli/handlers.h"
#include "config/config_parsers.h"
#include "core/interfaces.h"

namespace nw {
namespace {

std::string Hex(uint32_t value) {
  char text[16];
  std::snprintf(text, sizeof text, "%08x", value);
  return text;
}

// The core's side of one command: what it answers and every call it saw.
struct FakeCore {
  std::vector<std::string> calls;

  Status getInfo = 0;
  Status refresh = 0;
  bool global = false, packet = false, stream = false;
  bool hooks[5] = {};
  std::optional<std::wstring> service = L"1.0.0.1", engine = L"1.0.0.2", library = L"1.0.0.3";

  Status getBuilder = 0;
  /// The setter (by name) that fails, and with what.
  std::string failingSetter;
  Status setterStatus = 0;
  Status apply = 0;
};

class FakeInfo final : public IGlobalConfigAndStateInfo {
 public:
  explicit FakeInfo(FakeCore& core) : core_(core) {}
  Status Unused0() override { return Call("Unused0", kStatusNotImplemented); }
  uint32_t Release() override { return Call("Release", 0u); }
  Status Refresh() override { return Call("Refresh", core_.refresh); }
  int32_t GetMaxKernelLogQueueSize() override { return Call("GetMaxKernelLogQueueSize", 1); }
  int32_t GetMaxPointProductReplyTime() override { return Call("GetMaxPointProductReplyTime", 2); }
  bool GetPassthruMode(int32_t hookType) override {
    return Call("GetPassthruMode(" + std::to_string(hookType) + ")",
                hookType == 2 ? core_.packet : hookType == 4 && core_.stream);
  }
  bool GetGlobalPassthruMode() override { return Call("GetGlobalPassthruMode", core_.global); }
  bool IsHookConnected(int32_t type) override {
    return Call("IsHookConnected(" + std::to_string(type) + ")",
                type >= 1 && type <= 4 && core_.hooks[type]);
  }
  uint32_t GetTraceLogMask() override { return Call("GetTraceLogMask", 0x1Fu); }
  bool IsTrafficLogEnabled() override { return Call("IsTrafficLogEnabled", true); }
  int32_t GetMaxTrafficLogSize() override { return Call("GetMaxTrafficLogSize", 3); }
  int32_t GetMaxStateTableSize() override { return Call("GetMaxStateTableSize", 4); }
  int32_t GetStateTableGcPeriod() override { return Call("GetStateTableGcPeriod", 5); }
  int32_t GetStateTableTcpTimeout() override { return Call("GetStateTableTcpTimeout", 6); }
  int32_t GetStateTableUdpTimeout() override { return Call("GetStateTableUdpTimeout", 7); }
  int32_t GetStateTableForcedTcpTimeout() override {
    return Call("GetStateTableForcedTcpTimeout", -1);
  }
  const wchar_t* GetServiceBuildVersion() override {
    return Call("GetServiceBuildVersion", Text(core_.service));
  }
  const wchar_t* GetEngineBuildVersion() override {
    return Call("GetEngineBuildVersion", Text(core_.engine));
  }
  const wchar_t* GetControlDllBuildVersion() override {
    return Call("GetControlDllBuildVersion", Text(core_.library));
  }
  int32_t GetLogThrottle() override { return Call("GetLogThrottle", 8); }
  bool GetTrackForwardedConnections() override {
    return Call("GetTrackForwardedConnections", false);
  }
  int32_t GetStateTableTcpConnRemovalTimeOut() override {
    return Call("GetStateTableTcpConnRemovalTimeOut", 9);
  }
  int32_t GetConnectionThrottleBurstThreshold() override {
    return Call("GetConnectionThrottleBurstThreshold", 10);
  }
  int32_t GetConnectionThrottleMaxConnectionsRate() override {
    return Call("GetConnectionThrottleMaxConnectionsRate", 11);
  }

 private:
  template <class T>
  T Call(const std::string& name, T result) {
    core_.calls.push_back(name);
    return result;
  }
  static const wchar_t* Text(const std::optional<std::wstring>& v) {
    return v ? v->c_str() : nullptr;
  }
  FakeCore& core_;
};

class FakeBuilder final : public IGlobalConfigBuilder {
 public:
  explicit FakeBuilder(FakeCore& core) : core_(core) {}
  Status Unused0() override { return Record("Unused0", kStatusNotImplemented); }
  uint32_t Release() override {
    core_.calls.push_back("Release");
    return 0;
  }
  // A status the program must ignore: failing here must change nothing.
  Status Refresh() override { return Record("Refresh", static_cast<Status>(0x80004005u)); }
  Status ResetToDefaults() override {
    return Record("ResetToDefaults", static_cast<Status>(0x80004005u));
  }
  Status Apply() override { return Record("Apply", core_.apply); }
  Status SetMaxKernelLogQueueSize(int32_t v) override {
    return Set("SetMaxKernelLogQueueSize", std::to_string(v));
  }
  Status SetMaxPointProductReplyTime(int32_t v) override {
    return Set("SetMaxPointProductReplyTime", std::to_string(v));
  }
  Status SetPassthruMode(bool enable, int32_t hookType) override {
    return Set("SetPassthruMode", Bool(enable) + ", " + std::to_string(hookType));
  }
  Status SetGlobalPassthruMode(bool enable) override {
    return Set("SetGlobalPassthruMode", Bool(enable));
  }
  Status SetTraceLogMask(uint32_t mask) override { return Set("SetTraceLogMask", Hex(mask)); }
  Status EnableTrafficLog(bool enable, bool second) override {
    return Set("EnableTrafficLog", Bool(enable) + ", " + Bool(second));
  }
  Status SetMaxTrafficLogSize(int32_t v) override {
    return Set("SetMaxTrafficLogSize", std::to_string(v));
  }
  Status SetStateTableGcPeriod(int32_t v) override {
    return Set("SetStateTableGcPeriod", std::to_string(v));
  }
  Status SetStateTableTcpTimeout(int32_t v) override {
    return Set("SetStateTableTcpTimeout", std::to_string(v));
  }
  Status SetStateTableUdpTimeout(int32_t v) override {
    return Set("SetStateTableUdpTimeout", std::to_string(v));
  }
  Status SetStateTableForcedTcpTimeout(uint32_t v) override {
    return Set("SetStateTableForcedTcpTimeout", std::to_string(v));
  }
  Status SetLogThrottle(int32_t v) override { return Set("SetLogThrottle", std::to_string(v)); }
  Status SetTrackForwardedConnections(bool track) override {
    return Set("SetTrackForwardedConnections", Bool(track));
  }
  Status SetMaxStateTableSize(int32_t v) override {
    return Set("SetMaxStateTableSize", std::to_string(v));
  }
  Status SetStateTableTcpConnRemovalTimeOut(int32_t v) override {
    return Set("SetStateTableTcpConnRemovalTimeOut", std::to_string(v));
  }
  Status SetConnectionThrottleBurstThreshold(int32_t v) override {
    return Set("SetConnectionThrottleBurstThreshold", std::to_string(v));
  }
  Status SetConnectionThrottleMaxConnectionsRate(int32_t v) override {
    return Set("SetConnectionThrottleMaxConnectionsRate", std::to_string(v));
  }

 private:
  static std::string Bool(bool b) { return b ? "true" : "false"; }
  Status Record(const std::string& call, Status status) {
    core_.calls.push_back(call);
    return status;
  }
  Status Set(const std::string& name, const std::string& args) {
    return Record(name + "(" + args + ")", name == core_.failingSetter ? core_.setterStatus : 0);
  }
  FakeCore& core_;
};

class FakeControl final : public IControl {
 public:
  explicit FakeControl(FakeCore& core) : core_(core), info_(core), builder_(core) {}
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
  Status GetGlobalConfigBuilder(IGlobalConfigBuilder** out, const Guid* id) override {
    core_.calls.push_back("GetGlobalConfigBuilder");
    EXPECT_TRUE(*id == GlobalConfigBuilderInterfaceId);
    if (core_.getBuilder != 0) return core_.getBuilder;
    *out = &builder_;
    return 0;
  }
  Status GetGlobalConfigAndStateInfo(IGlobalConfigAndStateInfo** out, const Guid* id) override {
    core_.calls.push_back("GetGlobalConfigAndStateInfo");
    EXPECT_TRUE(*id == GlobalConfigAndStateInfoInterfaceId);
    if (core_.getInfo != 0) return core_.getInfo;
    *out = &info_;
    return 0;
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
  FakeCore& core_;
  FakeInfo info_;
  FakeBuilder builder_;
};

// Runs one handler against the fake core; gives what it printed.
template <class Handler>
std::string RunAgainst(FakeCore& core, Handler&& handler) {
  FakeControl control(core);
  CoreConnection connection;
  connection.control = &control;
  LastStatus = 0;
  ::testing::internal::CaptureStdout();
  handler(connection);
  std::fflush(stdout);
  return ::testing::internal::GetCapturedStdout();
}

using Calls = std::vector<std::string>;

// ---- -ConfigDisplay -------------------------------------------------------------------------

constexpr const char* kVersionsBlock =
    "File Versions:\n"
    "    Service (kvxfires.dll): 1.0.0.1\n"
    "    Engine (kvxfirek.sys):  1.0.0.2\n"
    "    DLL (kvxfwctl.dll):     1.0.0.3\n"
    "\n";

constexpr const char* kTailBlocks =
    "Hooks connected:\n"
    "        FW_POLICY_TYPE_FRAGMENT\n"
    "        FW_POLICY_TYPE_STREAM\n"
    "\n"
    "Traffic logging:\n"
    "        Traffic logging is enabled\n"
    "        Trace log mask = 0000001f\n"
    "        Max log size = 3 bytes\n"
    "\n"
    "Kernel settings:\n"
    "        Max kernel log queue size                  1 bytes\n"
    "        Max point product reply time               2 seconds\n"
    "        Log Throttle                               8 microseconds\n"
    "        Max state table size                       4 connections\n"
    "        State table GC period                      5 seconds\n"
    "        Max state table TCP timeout                6 seconds\n"
    "        Max state table UDP timeout                7 seconds\n"
    "        Max state table forced TCP timeout         -1 seconds\n"
    "        State table TCP Connection removal timeout 9 seconds\n"
    "        Track forwarded connections                No\n"
    "        Connection throttling max connection rate  11 connections per second\n"
    "        Connection throttling burst threshold      10 connections\n";

TEST(ConfigDisplayTest, WholeReportInCallingOrder) {
  FakeCore core;
  core.hooks[1] = core.hooks[4] = true;
  const std::string out = RunAgainst(core, [](CoreConnection& c) { ConfigDisplay(c); });
  EXPECT_EQ(out, std::string(kVersionsBlock) + "Passthru is not enabled.\n\n" + kTailBlocks);
  EXPECT_EQ(LastStatus, 0);
  const Calls expected = {"GetGlobalConfigAndStateInfo",
                          "Refresh",
                          "GetServiceBuildVersion",
                          "GetEngineBuildVersion",
                          "GetControlDllBuildVersion",
                          "GetGlobalPassthruMode",
                          "GetPassthruMode(2)",
                          "GetPassthruMode(4)",
                          "IsHookConnected(1)",
                          "IsHookConnected(2)",
                          "IsHookConnected(3)",
                          "IsHookConnected(4)",
                          "IsTrafficLogEnabled",
                          "GetTraceLogMask",
                          "GetMaxTrafficLogSize",
                          "GetMaxKernelLogQueueSize",
                          "GetMaxPointProductReplyTime",
                          "GetLogThrottle",
                          "GetMaxStateTableSize",
                          "GetStateTableGcPeriod",
                          "GetStateTableTcpTimeout",
                          "GetStateTableUdpTimeout",
                          "GetStateTableForcedTcpTimeout",
                          "GetStateTableTcpConnRemovalTimeOut",
                          "GetTrackForwardedConnections",
                          "GetConnectionThrottleMaxConnectionsRate",
                          "GetConnectionThrottleBurstThreshold",
                          "Release"};
  EXPECT_EQ(core.calls, expected);
}

TEST(ConfigDisplayTest, PassthruBlockForEveryCombination) {
  const struct {
    bool global, packet, stream;
    const char* block;
  } cases[] = {
      {false, false, false, "Passthru is not enabled.\n"},
      {true, false, false, "In passthru mode.\n"},
      {false, true, false, "Passthru enabled for packet hooks.\n"},
      {false, false, true, "Passthru enabled for stream hooks.\n"},
      {true, true, false, "In passthru mode.\nPassthru enabled for packet hooks.\n"},
      {true, false, true, "In passthru mode.\nPassthru enabled for stream hooks.\n"},
      {false, true, true,
       "Passthru enabled for packet hooks.\nPassthru enabled for stream hooks.\n"},
      {true, true, true,
       "In passthru mode.\nPassthru enabled for packet hooks.\nPassthru enabled for stream "
       "hooks.\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.block);
    FakeCore core;
    core.global = c.global;
    core.packet = c.packet;
    core.stream = c.stream;
    const std::string out = RunAgainst(core, [](CoreConnection& conn) { ConfigDisplay(conn); });
    const std::string expectedStart =
        std::string(kVersionsBlock) + c.block + "\nHooks connected:\n\n";
    EXPECT_EQ(out.substr(0, expectedStart.size()), expectedStart);
  }
}

TEST(ConfigDisplayTest, NullVersionsAreNamedInTheirLines) {
  FakeCore core;
  core.service = core.engine = core.library = std::nullopt;
  const std::string out = RunAgainst(core, [](CoreConnection& c) { ConfigDisplay(c); });
  EXPECT_EQ(out.substr(0, out.find("\n\n") + 2),
            "File Versions:\n"
            "    Service (kvxfires.dll): NULL returned by GetServiceBuildVersion\n"
            "    Engine (kvxfirek.sys):  NULL returned by GetEngineBuildVersion\n"
            "    DLL (kvxfwctl.dll):     NULL returned by GetControlDllBuildVersion\n\n");
}

TEST(ConfigDisplayTest, FailuresPrintOneLineAndRefreshAbandonsTheObject) {
  const struct {
    Status getInfo, refresh;
    const char* out;
    Calls calls;
  } cases[] = {
      {static_cast<Status>(0x80070005u),
       0,
       "Error from IControl::GetGlobalConfigAndStateInfo 80070005\n",
       {"GetGlobalConfigAndStateInfo"}},
      {0,
       static_cast<Status>(0x8000FFFFu),
       "Error from IGlobalConfigAndStateInfo::Refresh 8000ffff\n",
       {"GetGlobalConfigAndStateInfo", "Refresh"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.out);
    FakeCore core;
    core.getInfo = c.getInfo;
    core.refresh = c.refresh;
    EXPECT_EQ(RunAgainst(core, [](CoreConnection& conn) { ConfigDisplay(conn); }), c.out);
    EXPECT_EQ(LastStatus, c.getInfo != 0 ? c.getInfo : c.refresh);
    EXPECT_EQ(core.calls, c.calls);
  }
}

// ---- Changes ---------------------------------------------------------------------------------

enum class Handler { kTrafficLog, kConfigChange, kConfigChangeAllowOn };

struct ChangeCase {
  Handler handler;
  CommandCode code;
  const wchar_t* argument;
  const char* out;
  /// The setter call, or empty when none may be made.
  const char* setter;
};

TEST(ConfigChangeTest, EveryCommandReadsItsArgumentAndSetsOnce) {
  constexpr Handler T = Handler::kTrafficLog;
  constexpr Handler C = Handler::kConfigChange;
  constexpr Handler On = Handler::kConfigChangeAllowOn;
  const char* unrecognized = "Unrecognized command passed to ConfigChange function.\n";
  const char* mask = "Trace log mask must be hex number greater than 0.\n";
  const char* size = "Maximum traffic log size must be greater than 0.\n";
  const char* onlyOff = "PassThru argument can only be 'off'.\n";
  const ChangeCase cases[] = {
      {T, 11, L"ON", "", "EnableTrafficLog(true, true)"},
      {T, 11, L"Yes", "", "EnableTrafficLog(true, true)"},
      {T, 11, L"TRUE", "", "EnableTrafficLog(true, true)"},
      {T, 11, L"fAlSe", "", "EnableTrafficLog(false, true)"},
      {T, 11, L"1", "Value of TrafficLog argument should be 'on' or 'off'.\n", ""},
      {T, 12, L"abc", size, ""},
      {T, 12, L"10kb", "", "SetMaxTrafficLogSize(10)"},
      {T, 12, L"-5", size, ""},
      {T, 12, L"99999999999", "", "SetMaxTrafficLogSize(2147483647)"},
      {T, 13, L"0x10", mask, ""},
      {T, 13, L"ff", "", "SetTraceLogMask(000000ff)"},
      {T, 13, L"80000000", mask, ""},
      {T, 13, L"7FFFFFFF", "", "SetTraceLogMask(7fffffff)"},
      {T, 13, L"123456789", "", "SetTraceLogMask(23456789)"},
      {T, 13, L"0", mask, ""},
      {T, 13, L"", mask, ""},
      {T, 17, L"off", "Invalid global config change command 17 for netwarden!\n", ""},
      {C, 11, L"off", "", "EnableTrafficLog(false, true)"},
      {C, 13, L"-1", mask, ""},
      {C, 17, L"off", "", "SetGlobalPassthruMode(false)"},
      {C, 17, L"No", "", "SetGlobalPassthruMode(false)"},
      {C, 17, L"on", onlyOff, ""},
      {C, 17, L"maybe", onlyOff, ""},
      {On, 17, L"on", "", "SetGlobalPassthruMode(true)"},
      {On, 17, L"false", "", "SetGlobalPassthruMode(false)"},
      {On, 17, L"maybe", "Value of PassThru argument should be 'on' or 'off'.\n", ""},
      {C, 25, L"0", "Maximum log queue size must be greater than 0.\n", ""},
      {C, 25, L"65536", "", "SetMaxKernelLogQueueSize(65536)"},
      {C, 26, L"-30", "Maximum point product reply time must be greater than 0.\n", ""},
      {C, 26, L"45", "", "SetMaxPointProductReplyTime(45)"},
      {C, 27, L"on", "", "SetPassthruMode(true, 4)"},
      {C, 27, L"x", "Value of PassThruStream argument should be 'on' or 'off'.\n", ""},
      {C, 28, L"off", "", "SetPassthruMode(false, 2)"},
      {C, 28, L"", "Value of PassThruPacket argument should be 'on' or 'off'.\n", ""},
      {C, 29, L"0", "Invalid TCP timeout value 0, must be from 1 to 240\n", ""},
      {C, 29, L"240", "", "SetStateTableTcpTimeout(240)"},
      {C, 29, L"-1", "Invalid TCP timeout value -1, must be from 1 to 240\n", ""},
      {C, 30, L"601", "Invalid UDP timeout value 601, must be from 1 to 600\n", ""},
      {C, 30, L"1", "", "SetStateTableUdpTimeout(1)"},
      {C, 31, L"3599", "Invalid TCP timeout value 3599, must be from 3600 to 4294967295\n", ""},
      {C, 31, L"-1", "", "SetStateTableForcedTcpTimeout(4294967295)"},
      {C, 31, L"4294967295", "", "SetStateTableForcedTcpTimeout(2147483647)"},
      {C, 32, L"241", "Invalid GC period value 241, must be from 1 to 240\n", ""},
      {C, 32, L" 60s", "", "SetStateTableGcPeriod(60)"},
      {C, 33, L"anything", unrecognized, ""},
      {C, 34, L"0", "", "SetLogThrottle(0)"},
      {C, 34, L"1000001", "Invalid log throttle value 1000001, must be from 0 to 1000000\n", ""},
      {C, 35, L"yes", "", "SetTrackForwardedConnections(true)"},
      {C, 35, L"2", "Value of -trackfwd argument should be 'on' or 'off'.\n", ""},
      {C, 36, L"1023", "Invalid state tabke size value 1023, must be from 1024 to 1048576\n", ""},
      {C, 36, L"1048576", "", "SetMaxStateTableSize(1048576)"},
      {C, 41, L"0", "", "SetStateTableTcpConnRemovalTimeOut(0)"},
      {C, 41, L"181", "Invalid TCP Connection removal timeout value 181, must be from 0 to 180\n",
       ""},
      {C, 42, L"99", "Invalid Connection rate 99, must be from 100 to 8192\n", ""},
      {C, 42, L"8192", "", "SetConnectionThrottleBurstThreshold(8192)"},
      {C, 43, L"abc", "Invalid Connection rate abc, must be from 1 to 1000\n", ""},
      {C, 43, L"1000", "", "SetConnectionThrottleMaxConnectionsRate(1000)"},
      {C, 10, L"on", unrecognized, ""},
      {C, 14, L"on", unrecognized, ""},
      {C, 16, L"on", unrecognized, ""},
      {C, 18, L"on", unrecognized, ""},
      {C, 24, L"on", unrecognized, ""},
      {C, 37, L"on", unrecognized, ""},
      {C, 40, L"on", unrecognized, ""},
      {C, 44, L"on", unrecognized, ""},
  };
  for (const ChangeCase& c : cases) {
    SCOPED_TRACE("code " + std::to_string(c.code) + " argument '" + WideToUtf8(c.argument) + "'");
    FakeCore core;
    const std::string out = RunAgainst(core, [&c](CoreConnection& conn) {
      if (c.handler == Handler::kTrafficLog) {
        TrafficLogChange(conn, c.code, c.argument);
      } else {
        ConfigChange(conn, c.code, c.argument, c.handler == Handler::kConfigChangeAllowOn);
      }
    });
    EXPECT_EQ(out, c.out);
    // Words only: a refused argument leaves the status alone and the unchanged builder applied.
    EXPECT_EQ(LastStatus, 0);
    Calls expected = {"GetGlobalConfigBuilder", "Refresh"};
    if (*c.setter != '\0') expected.push_back(c.setter);
    expected.push_back("Apply");
    expected.push_back("Release");
    EXPECT_EQ(core.calls, expected);
  }
}

TEST(ConfigChangeTest, FailingSetterIsReportedAndNothingIsApplied) {
  const struct {
    CommandCode code;
    const wchar_t* argument;
    const char* setter;
    const char* out;
  } cases[] = {
      {11, L"on", "EnableTrafficLog", "Error from IGlobalConfigBuilder::EnableTrafficLog - "},
      {12, L"5", "SetMaxTrafficLogSize",
       "Error from IGlobalConfigBuilder::SetMaxTrafficLogSize - "},
      {13, L"1f", "SetTraceLogMask", "Error from IGlobalConfigBuilder::SetTraceLogMask - "},
      {17, L"off", "SetGlobalPassthruMode",
       "Error from IGlobalConfigBuilder::SetGlobalPassthruMode - "},
      {25, L"5", "SetMaxKernelLogQueueSize",
       "Error from IGlobalConfigBuilder::SetMaxKernelLogQueueSize - "},
      {26, L"5", "SetMaxPointProductReplyTime",
       "Error from IGlobalConfigBuilder::SetMaxPointProductReplyTime - "},
      {27, L"on", "SetPassthruMode", "Error from IGlobalConfigBuilder::SetPassthruMode - "},
      {28, L"on", "SetPassthruMode", "Error from IGlobalConfigBuilder::SetPassthruMode - "},
      {29, L"5", "SetStateTableTcpTimeout",
       "Error from IGlobalConfigBuilder::SetStateTableTcpTimeout - "},
      {30, L"5", "SetStateTableUdpTimeout",
       "Error from IGlobalConfigBuilder::SetStateTableUdpTimeout - "},
      {31, L"3600", "SetStateTableForcedTcpTimeout",
       "Error from IGlobalConfigBuilder::SetStateTableForcedTcpTimeout - "},
      {32, L"5", "SetStateTableGcPeriod",
       "Error from IGlobalConfigBuilder::SetStateTableGcPeriod - "},
      {34, L"5", "SetLogThrottle", "Error from IGlobalConfigBuilder::SetLogThrottle - "},
      {36, L"2048", "SetMaxStateTableSize",
       "Error from IGlobalConfigBuilder::SetMaxStateTableSize - "},
      {41, L"5", "SetStateTableTcpConnRemovalTimeOut",
       "Error from IGlobalConfigBuilder::SetStateTableTcpConnRemovalTimeOut - "},
      {42, L"500", "SetConnectionThrottleBurstThreshold",
       "Error from IGlobalConfigBuilder::SetConnectionThrottleBurstThreshold - "},
      {43, L"5", "SetConnectionThrottleMaxConnectionsRate",
       "Error from IGlobalConfigBuilder::SetConnectionThrottleMaxConnectionsRate - "},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.setter);
    FakeCore core;
    core.failingSetter = c.setter;
    core.setterStatus = static_cast<Status>(0x8007000Du);
    const std::string out = RunAgainst(
        core, [&c](CoreConnection& conn) { ConfigChange(conn, c.code, c.argument, false); });
    EXPECT_EQ(out, std::string(c.out) + "8007000d.\n");
    EXPECT_EQ(LastStatus, static_cast<Status>(0x8007000Du));
    ASSERT_EQ(core.calls.size(), 4u);
    EXPECT_EQ(core.calls.back(), "Release");  // no Apply
  }
}

TEST(ConfigChangeTest, TrackForwardedSetterStatusIsNotExamined) {
  FakeCore core;
  core.failingSetter = "SetTrackForwardedConnections";
  core.setterStatus = static_cast<Status>(0x8007000Du);
  EXPECT_EQ(RunAgainst(core, [](CoreConnection& c) { ConfigChange(c, 35, L"on", false); }), "");
  EXPECT_EQ(LastStatus, 0);
  EXPECT_EQ(core.calls, (Calls{"GetGlobalConfigBuilder", "Refresh",
                               "SetTrackForwardedConnections(true)", "Apply", "Release"}));
}

TEST(ConfigChangeTest, FailingApplyGoesUnnoticedAndNoBuilderMeansNothingElse) {
  FakeCore applyFails;
  applyFails.apply = static_cast<Status>(0x80004005u);
  EXPECT_EQ(RunAgainst(applyFails, [](CoreConnection& c) { TrafficLogChange(c, 12, L"4096"); }),
            "");
  EXPECT_EQ(LastStatus, 0);

  FakeCore noBuilder;
  noBuilder.getBuilder = static_cast<Status>(0x80070005u);
  EXPECT_EQ(RunAgainst(noBuilder, [](CoreConnection& c) { ConfigChange(c, 17, L"off", false); }),
            "Error from IControl::GetGlobalConfigBuilder 80070005\n");
  EXPECT_EQ(LastStatus, static_cast<Status>(0x80070005u));
  EXPECT_EQ(noBuilder.calls, Calls{"GetGlobalConfigBuilder"});
}

TEST(ConfigResetTest, ResetsAppliesAndReportsApply) {
  const struct {
    Status getBuilder, apply;
    const char* out;
    Calls calls;
  } cases[] = {
      {0, 0, "", {"GetGlobalConfigBuilder", "ResetToDefaults", "Apply", "Release"}},
      {0,
       static_cast<Status>(0x80004005u),
       "Error from IControl::Apply 80004005\n",
       {"GetGlobalConfigBuilder", "ResetToDefaults", "Apply", "Release"}},
      {static_cast<Status>(0x80070005u),
       0,
       "Error from IControl::GetGlobalConfigBuilder 80070005\n",
       {"GetGlobalConfigBuilder"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.out);
    FakeCore core;
    core.getBuilder = c.getBuilder;
    core.apply = c.apply;
    EXPECT_EQ(RunAgainst(core, [](CoreConnection& conn) { ConfigReset(conn); }), c.out);
    EXPECT_EQ(LastStatus, c.getBuilder != 0 ? c.getBuilder : c.apply);
    EXPECT_EQ(core.calls, c.calls);
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
