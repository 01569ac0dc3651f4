#pragma once

// The core's runtime tables as the simulated core hands them out: the IP configuration with its
// enumerators, the connection state table, the opened endpoints and the active processes, all
// read from the scenario's table sections.

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/interfaces.h"
#include "sim/common/scenario_tables.h"
#include "sim/common/sim_object.h"
#include "sim/core/core_objects.h"

namespace nw::sim {

/// What an IP configuration snapshot holds; shared with the enumerators it hands out, so that
/// an item stays valid whichever of them the program releases first.
struct IpConfigData {
  std::optional<std::vector<AdapterScenario>> adapters;
  std::optional<std::vector<IpAddress>> addresses;
};

class IpConfig final : public SimObject<IIpConfig, CoreState> {
 public:
  /// The snapshot is complete when it is handed out: it copies the scenario's now.
  explicit IpConfig(std::shared_ptr<CoreState> state);

  Status Unused2() override { return Unused("Unused2"); }
  IAddressInfoEnumerator* GetAddressInfoEnumerator() override;
  IAdapterInfoEnumerator* GetAdapterInfoEnumerator(bool flag) override;

 private:
  std::shared_ptr<const IpConfigData> data_;
};

/// A count getter's scripted answers: one a call, the last repeating; without a script, the
/// actual number.
class CountScript {
 public:
  uint64_t Next(const std::vector<uint64_t>& script, uint64_t actual) {
    if (script.empty()) return actual;
    const uint64_t count = script[next_];
    if (next_ + 1 < script.size()) ++next_;
    return count;
  }
  void Restart() { next_ = 0; }

 private:
  size_t next_ = 0;
};

/// A table entry source: the snapshot's listed entries, then generated ones computed from the
/// index into a small ring of recent entries. A pointer into a generated entry stays valid until
/// kRecentEntries other indexes have been asked for (the program asks for one entry at a time);
/// a listed entry's until the table is refreshed or released.
template <class Entry>
class TableSnapshot {
 public:
  static constexpr size_t kRecentEntries = 16;
  using Generator = Entry (*)(uint64_t seed, uint64_t index);

  explicit TableSnapshot(Generator generate) : generate_(generate) {}

  /// Takes the scenario's table; the scripted counts start again from the first.
  void Load(const TableScenario<Entry>& table) {
    table_ = table;
    counts_.Restart();
    for (Recent& recent : recent_) recent.valid = false;
  }
  /// Adds an entry after the listed ones (a list being built has no generated ones).
  void Append(const Entry& entry) { table_.entries.push_back(entry); }
  const std::vector<Entry>& Listed() const { return table_.entries; }
  /// The next scripted count, or the number of entries.
  uint64_t Count() { return counts_.Next(table_.counts, table_.size()); }
  /// The entry at index; a cleared entry past the end (a scripted count may exceed the table).
  const Entry& At(uint64_t index) {
    if (index < table_.entries.size()) return table_.entries[index];
    const uint64_t generatedIndex = index - table_.entries.size();
    if (generatedIndex >= table_.generated.count) return past_;
    Recent& recent = recent_[index % kRecentEntries];
    if (!recent.valid || recent.index != index) {
      recent.entry = generate_(table_.generated.seed, generatedIndex);
      recent.index = index;
      recent.valid = true;
    }
    return recent.entry;
  }

 private:
  struct Recent {
    bool valid = false;
    uint64_t index = 0;
    Entry entry;
  };

  Generator generate_;
  TableScenario<Entry> table_;
  CountScript counts_;
  std::array<Recent, kRecentEntries> recent_;
  Entry past_{};
};

class ConnectionTable final : public SimObject<IConnectionTable, CoreState> {
 public:
  /// Empty until Refresh.
  explicit ConnectionTable(std::shared_ptr<CoreState> state)
      : SimObject(std::move(state), "IConnectionTable") {}

  Status Refresh() override;
  int64_t GetBytesSentSinceBoot() override {
    Call("GetBytesSentSinceBoot");
    return bytesSent_;
  }
  int64_t GetBytesReceivedSinceBoot() override {
    Call("GetBytesReceivedSinceBoot");
    return bytesReceived_;
  }
  uint64_t GetConnectionCount() override {
    Call("GetConnectionCount");
    return snapshot_.Count();
  }
  const IpAddress* GetLocalAddress(uint64_t index) override {
    Call("GetLocalAddress", index);
    return &snapshot_.At(index).local;
  }
  const IpAddress* GetRemoteAddress(uint64_t index) override {
    Call("GetRemoteAddress", index);
    return &snapshot_.At(index).remote;
  }
  uint8_t GetProtocol(uint64_t index) override {
    Call("GetProtocol", index);
    return snapshot_.At(index).protocol;
  }
  uint16_t GetLocalPort(uint64_t index) override {
    Call("GetLocalPort", index);
    return snapshot_.At(index).storedLocalPort;
  }
  uint16_t GetRemotePort(uint64_t index) override {
    Call("GetRemotePort", index);
    return snapshot_.At(index).storedRemotePort;
  }
  uint32_t GetProcessId(uint64_t index) override {
    Call("GetProcessId", index);
    return snapshot_.At(index).processId;
  }
  Status Unused12() override { return Unused("Unused12"); }
  Status Unused13() override { return Unused("Unused13"); }
  Status Unused14() override { return Unused("Unused14"); }
  int32_t GetState(uint64_t index) override {
    Call("GetState", index);
    return snapshot_.At(index).state;
  }
  uint32_t GetPairRight(uint64_t index) override {
    Call("GetPairRight", index);
    return snapshot_.At(index).right;
  }
  uint32_t GetPairLeft(uint64_t index) override {
    Call("GetPairLeft", index);
    return snapshot_.At(index).left;
  }
  bool IsOutbound(uint64_t index) override {
    Call("IsOutbound", index);
    return snapshot_.At(index).outbound;
  }

 private:
  int64_t bytesSent_ = 0;
  int64_t bytesReceived_ = 0;
  TableSnapshot<ConnectionEntry> snapshot_{GenerateConnection};
};

class OpenedEndpointTable final : public SimObject<IOpenedEndpointTable, CoreState> {
 public:
  /// Empty until Refresh.
  explicit OpenedEndpointTable(std::shared_ptr<CoreState> state)
      : SimObject(std::move(state), "IOpenedEndpointTable") {}

  Status Refresh() override;
  uint64_t GetEndpointCount() override {
    Call("GetEndpointCount");
    return snapshot_.Count();
  }
  const IpAddress* GetLocalAddress(uint64_t index) override {
    Call("GetLocalAddress", index);
    return &snapshot_.At(index).local;
  }
  uint8_t GetProtocol(uint64_t index) override {
    Call("GetProtocol", index);
    return snapshot_.At(index).protocol;
  }
  uint16_t GetLocalPort(uint64_t index) override {
    Call("GetLocalPort", index);
    return snapshot_.At(index).storedPort;
  }
  uint32_t GetProcessId(uint64_t index) override {
    Call("GetProcessId", index);
    return snapshot_.At(index).processId;
  }

 private:
  TableSnapshot<EndpointEntry> snapshot_{GenerateEndpoint};
};

class ActiveProcesses final : public SimObject<IActiveProcesses, CoreState> {
 public:
  /// The list is empty until RefreshProcessIdList; QueryProcessInfo needs no list.
  explicit ActiveProcesses(std::shared_ptr<CoreState> state)
      : SimObject(std::move(state), "IActiveProcesses") {}

  Status RefreshProcessIdList() override;
  uint64_t GetProcessCount() override {
    Call("GetProcessCount");
    return snapshot_.Count();
  }
  uint64_t GetProcessId(uint64_t index) override {
    Call("GetProcessId", index);
    return snapshot_.At(index).processId;
  }
  Status QueryProcessInfo(IProcessInfo** info, uint64_t processId, uint32_t flags) override;

 private:
  Status DoQuery(IProcessInfo** info, uint64_t processId);

  TableSnapshot<ProcessEntry> snapshot_{GenerateProcess};
};

/// A process the core does not know: the not-found error as an HRESULT.
inline constexpr Status kStatusProcessNotFound = static_cast<Status>(0x80070490u);

class ProcessInfo final : public SimObject<IProcessInfo, CoreState> {
 public:
  ProcessInfo(std::shared_ptr<CoreState> state, ProcessEntry entry)
      : SimObject(std::move(state), "IProcessInfo"), entry_(std::move(entry)) {}

  uint32_t GetProcessId() override {
    Call("GetProcessId");
    return static_cast<uint32_t>(entry_.processId);
  }
  const uint8_t* GetMd5() override {
    Call("GetMd5");
    return entry_.md5;
  }
  const wchar_t* GetPath(uint32_t flags) override {
    Call("GetPath", FlagWord{flags});
    return Text(entry_.path);
  }
  const wchar_t* GetCommandArgs(uint32_t flags) override {
    Call("GetCommandArgs", FlagWord{flags});
    return Text(entry_.commandArgs);
  }
  const wchar_t* GetTextSid(uint32_t flags) override {
    Call("GetTextSid", FlagWord{flags});
    return Text(entry_.textSid);
  }
  const wchar_t* GetSigner(uint32_t flags) override {
    Call("GetSigner", FlagWord{flags});
    return Text(entry_.signer);
  }
  const wchar_t* GetPeDescription(uint32_t flags) override {
    Call("GetPeDescription", FlagWord{flags});
    return Text(entry_.peDescription);
  }
  bool IsTrusted() override {
    Call("IsTrusted");
    return entry_.trusted;
  }
  bool IsValidated() override {
    Call("IsValidated");
    return entry_.validated;
  }
  const wchar_t* GetCaseCorrectPath(uint32_t flags) override {
    Call("GetCaseCorrectPath", FlagWord{flags});
    return Text(entry_.caseCorrectPath);
  }

 private:
  static const wchar_t* Text(const std::optional<std::wstring>& text) {
    return text ? text->c_str() : nullptr;
  }

  ProcessEntry entry_;
};

}  // namespace nw::sim
