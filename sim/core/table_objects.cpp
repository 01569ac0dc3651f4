#include "sim/core/table_objects.h"

#include <string>

namespace nw::sim {
namespace {

// What a getter hands out for an index past its list: a cleared record, never a dangling one.
const IpAddress kNoAddress{};
const uint8_t kNoBytes[1] = {};

// One adapter, borrowed from its enumerator; it reads the snapshot it was made from.
class AdapterInfo final : public IAdapterInfo {
 public:
  AdapterInfo(CoreState& state, const AdapterScenario& adapter)
      : adapter_(adapter), call_(&state, "IAdapterInfo") {}

  Status Unused0() override { return Unused("Unused0"); }
  Status Unused1() override { return Unused("Unused1"); }
  Status Unused2() override { return Unused("Unused2"); }
  Status Unused3() override { return Unused("Unused3"); }
  Status Unused4() override { return Unused("Unused4"); }
  Status Unused5() override { return Unused("Unused5"); }
  Status Unused6() override { return Unused("Unused6"); }
  Status Unused7() override { return Unused("Unused7"); }
  Status Unused8() override { return Unused("Unused8"); }

  const uint8_t* GetPhysicalAddress(uint32_t* length) override {
    call_("GetPhysicalAddress");
    if (length != nullptr) *length = static_cast<uint32_t>(adapter_.physicalAddress.size());
    return Bytes(adapter_.physicalAddress);
  }
  uint32_t GetInterfaceIndex(bool ipv4) override {
    call_("GetInterfaceIndex", ipv4);
    return ipv4 ? adapter_.interfaceIndex : adapter_.interfaceIndexV6;
  }
  const wchar_t* GetConnectionSpecificDnsSuffix() override {
    call_("GetConnectionSpecificDnsSuffix");
    return Text(adapter_.dnsSuffix);
  }
  int32_t GetPhysicalMedium() override {
    call_("GetPhysicalMedium");
    return adapter_.physicalMedium;
  }
  const uint8_t* GetIpAddressPrefixLength(uint64_t index) override {
    call_("GetIpAddressPrefixLength", index);
    return index < adapter_.ipAddresses.size() ? &adapter_.ipAddresses[index].prefixLength
                                               : kNoBytes;
  }
  uint64_t GetIpAddressCount() override {
    call_("GetIpAddressCount");
    return ipAddressCounts_.Next(adapter_.ipAddressCounts, adapter_.ipAddresses.size());
  }
  uint64_t GetGatewayCount() override {
    call_("GetGatewayCount");
    return gatewayCounts_.Next(adapter_.gatewayCounts, adapter_.gateways.size());
  }
  const uint8_t* GetGatewayPhysicalAddress(uint64_t index) override {
    call_("GetGatewayPhysicalAddress", index);
    return index < adapter_.gateways.size() ? Bytes(adapter_.gateways[index].physicalAddress)
                                            : kNoBytes;
  }
  uint32_t GetGatewayPhysicalAddressLength(uint64_t index) override {
    call_("GetGatewayPhysicalAddressLength", index);
    return index < adapter_.gateways.size()
               ? static_cast<uint32_t>(adapter_.gateways[index].physicalAddress.size())
               : 0;
  }
  const IpAddress* GetGatewayAddress(uint64_t index) override {
    call_("GetGatewayAddress", index);
    return index < adapter_.gateways.size() ? &adapter_.gateways[index].address : &kNoAddress;
  }
  const IpAddress* GetIpAddress(uint64_t index) override {
    call_("GetIpAddress", index);
    return index < adapter_.ipAddresses.size() ? &adapter_.ipAddresses[index].address : &kNoAddress;
  }
  bool IsDhcpEnabled() override {
    call_("IsDhcpEnabled");
    return adapter_.dhcpEnabled;
  }
  const IpAddress* GetDhcpServer() override {
    call_("GetDhcpServer");
    return &adapter_.dhcpServer;
  }
  uint64_t GetDnsServerCount() override {
    call_("GetDnsServerCount");
    return dnsServerCounts_.Next(adapter_.dnsServerCounts, adapter_.dnsServers.size());
  }
  const IpAddress* GetDnsServer(uint64_t index) override {
    call_("GetDnsServer", index);
    return index < adapter_.dnsServers.size() ? &adapter_.dnsServers[index] : &kNoAddress;
  }
  bool HaveWins() override {
    call_("HaveWins");
    return adapter_.haveWins;
  }
  const IpAddress* GetPrimaryWinsServer() override {
    call_("GetPrimaryWinsServer");
    return &adapter_.primaryWins;
  }
  const IpAddress* GetSecondaryWinsServer() override {
    call_("GetSecondaryWinsServer");
    return &adapter_.secondaryWins;
  }
  const wchar_t* GetName() override {
    call_("GetName");
    return Text(adapter_.name);
  }
  const wchar_t* GetDescription() override {
    call_("GetDescription");
    return Text(adapter_.description);
  }

 private:
  Status Unused(const char* operation) const {
    call_(operation);
    return kStatusNotImplemented;
  }
  static const uint8_t* Bytes(const std::vector<uint8_t>& bytes) {
    return bytes.empty() ? kNoBytes : bytes.data();
  }
  static const wchar_t* Text(const std::optional<std::wstring>& text) {
    return text ? text->c_str() : nullptr;
  }

  const AdapterScenario& adapter_;
  CallTracer call_;
  CountScript ipAddressCounts_;
  CountScript gatewayCounts_;
  CountScript dnsServerCounts_;
};

// One of the host's addresses, borrowed from its enumerator. Its GetAddress can be made to
// fail by its place in the scenario's list ("GetAddress:<index>").
class AddressInfo final : public IAddressInfo {
 public:
  AddressInfo(CoreState& state, const IpAddress& address, uint64_t index)
      : state_(state), address_(address), index_(index), call_(&state, "IAddressInfo") {}

  Status GetAddress(const IpAddress** address) override {
    call_("GetAddress");
    constexpr std::string_view kOperation = "IAddressInfo::GetAddress";
    Status status = kStatusOk;
    if (auto fault = state_.Fault(kOperation, std::to_string(index_))) {
      status = *fault;
    } else if (address == nullptr) {
      status = kStatusInvalidArg;
    } else {
      *address = &address_;
    }
    state_.TraceCall(kOperation, status);
    return status;
  }

 private:
  CoreState& state_;
  const IpAddress& address_;
  uint64_t index_;
  CallTracer call_;
};

// Both enumerators: items made up front from the shared snapshot, handed out one by one.
template <class Interface, class Item>
class Enumerator final : public SimObject<Interface, CoreState> {
 public:
  Enumerator(std::shared_ptr<CoreState> state, const char* name,
             std::shared_ptr<const IpConfigData> data, std::vector<Item> items)
      : SimObject<Interface, CoreState>(std::move(state), name),
        data_(std::move(data)),
        items_(std::move(items)) {}

  Status Unused2() override { return this->Unused("Unused2"); }
  Status Unused3() override { return this->Unused("Unused3"); }
  decltype(std::declval<Interface&>().Next()) Next() override {
    this->Call("Next");
    return next_ < items_.size() ? &items_[next_++] : nullptr;
  }

 private:
  std::shared_ptr<const IpConfigData> data_;  // what the items point into
  std::vector<Item> items_;
  size_t next_ = 0;
};

using AdapterEnumerator = Enumerator<IAdapterInfoEnumerator, AdapterInfo>;
using AddressEnumerator = Enumerator<IAddressInfoEnumerator, AddressInfo>;

}  // namespace

// ---- IP configuration -----------------------------------------------------------------------

IpConfig::IpConfig(std::shared_ptr<CoreState> state) : SimObject(std::move(state), "IIpConfig") {
  auto data = std::make_shared<IpConfigData>();
  if (const Scenario* scenario = this->state().GetScenario()) {
    data->adapters = scenario->tables.adapters;
    data->addresses = scenario->tables.addresses;
  }
  data_ = std::move(data);
}

IAddressInfoEnumerator* IpConfig::GetAddressInfoEnumerator() {
  Call("GetAddressInfoEnumerator");
  if (!data_->addresses) return nullptr;
  std::vector<AddressInfo> items;
  items.reserve(data_->addresses->size());
  for (size_t i = 0; i < data_->addresses->size(); ++i) {
    items.emplace_back(state(), (*data_->addresses)[i], i);
  }
  return NewObject<AddressEnumerator>(sharedState(), "IAddressInfoEnumerator", data_,
                                      std::move(items));
}

IAdapterInfoEnumerator* IpConfig::GetAdapterInfoEnumerator(bool flag) {
  Call("GetAdapterInfoEnumerator", flag);
  if (!data_->adapters) return nullptr;
  std::vector<AdapterInfo> items;
  items.reserve(data_->adapters->size());
  for (const AdapterScenario& adapter : *data_->adapters) items.emplace_back(state(), adapter);
  return NewObject<AdapterEnumerator>(sharedState(), "IAdapterInfoEnumerator", data_,
                                      std::move(items));
}

// ---- Connections and endpoints ----------------------------------------------------------------

Status ConnectionTable::Refresh() {
  Call("Refresh");
  if (auto fault = Fault("Refresh")) return Traced("Refresh", *fault);
  const Scenario* scenario = state().GetScenario();
  if (scenario == nullptr) return Traced("Refresh", kStatusBadScenario);
  const ConnectionsScenario& connections = scenario->tables.connections;
  bytesSent_ = connections.bytesSent;
  bytesReceived_ = connections.bytesReceived;
  snapshot_.Load(connections);
  return Traced("Refresh", kStatusOk);
}

Status OpenedEndpointTable::Refresh() {
  Call("Refresh");
  if (auto fault = Fault("Refresh")) return Traced("Refresh", *fault);
  const Scenario* scenario = state().GetScenario();
  if (scenario == nullptr) return Traced("Refresh", kStatusBadScenario);
  snapshot_.Load(scenario->tables.endpoints);
  return Traced("Refresh", kStatusOk);
}

// ---- Processes --------------------------------------------------------------------------------

Status ActiveProcesses::RefreshProcessIdList() {
  Call("RefreshProcessIdList");
  if (auto fault = Fault("RefreshProcessIdList")) return Traced("RefreshProcessIdList", *fault);
  const Scenario* scenario = state().GetScenario();
  if (scenario == nullptr) return Traced("RefreshProcessIdList", kStatusBadScenario);
  snapshot_.Load(scenario->tables.processes);
  return Traced("RefreshProcessIdList", kStatusOk);
}

Status ActiveProcesses::QueryProcessInfo(IProcessInfo** info, uint64_t processId, uint32_t flags) {
  Call("QueryProcessInfo", processId, FlagWord{flags});
  return Traced("QueryProcessInfo", DoQuery(info, processId));
}

// The core looks the process up itself: no refreshed list is needed.
Status ActiveProcesses::DoQuery(IProcessInfo** info, uint64_t processId) {
  if (info == nullptr) return kStatusInvalidArg;
  *info = nullptr;
  if (auto fault = Fault("QueryProcessInfo", std::to_string(processId))) return *fault;
  const Scenario* scenario = state().GetScenario();
  if (scenario == nullptr) return kStatusBadScenario;
  const TableScenario<ProcessEntry>& processes = scenario->tables.processes;
  const ProcessEntry* listed = nullptr;
  for (const ProcessEntry& entry : processes.entries) {
    if (entry.processId == processId) {
      listed = &entry;
      break;
    }
  }
  std::optional<ProcessEntry> generated;
  if (listed == nullptr) {
    const auto index = GeneratedProcessIndex(processes.generated, processId);
    if (!index) return kStatusProcessNotFound;
    generated = GenerateProcess(processes.generated.seed, *index);
  }
  ProcessInfo* object = NewObject<ProcessInfo>(sharedState(), listed ? *listed : *generated);
  if (object == nullptr) return kStatusOutOfMemory;
  *info = object;
  return kStatusOk;
}

}  // namespace nw::sim
