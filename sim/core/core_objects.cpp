#include "sim/core/core_objects.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <string>

#include "core/interfaces.h"
#include "sim/common/sim_object.h"
#include "sim/core/blacklist_objects.h"
#include "sim/core/config_objects.h"
#include "sim/core/policy_objects.h"
#include "sim/core/table_objects.h"

namespace nw::sim {
namespace {

class Control final : public SimObject<IControl, CoreState> {
 public:
  explicit Control(std::shared_ptr<CoreState> state) : SimObject(std::move(state), "IControl") {}

  Status GetPolicyManager(IPolicyManager** out, const Guid* interfaceId) override {
    Call("GetPolicyManager", interfaceId);
    return Traced(
        "GetPolicyManager",
        HandOut<PolicyManager>("GetPolicyManager", PolicyManagerInterfaceId, out, interfaceId));
  }
  Status GetHighPriorityIpListControl(IHighPriorityIpListControl** out,
                                      const Guid* interfaceId) override {
    Call("GetHighPriorityIpListControl", interfaceId);
    return Traced(
        "GetHighPriorityIpListControl",
        HandOut<HighPriorityIpListControl>("GetHighPriorityIpListControl",
                                           HighPriorityIpListInterfaceId, out, interfaceId));
  }

  // Not simulated yet: these fail as an operation the core does not provide.
  Status Unused3() override { return Unused("Unused3"); }
  Status Unused4() override { return Unused("Unused4"); }
  Status Unused5() override { return Unused("Unused5"); }
  Status Unused6() override { return Unused("Unused6"); }
  Status Unused8() override { return Unused("Unused8"); }
  Status GetIpConfigChanged(IIpConfig** out, const Guid* interfaceId) override {
    Call("GetIpConfigChanged", interfaceId);
    return Traced("GetIpConfigChanged",
                  HandOut<IpConfig>("GetIpConfigChanged", IpConfigInterfaceId, out, interfaceId));
  }
  Status GetGlobalConfigBuilder(IGlobalConfigBuilder** out, const Guid* interfaceId) override {
    Call("GetGlobalConfigBuilder", interfaceId);
    return Traced("GetGlobalConfigBuilder",
                  HandOut<GlobalConfigBuilder>("GetGlobalConfigBuilder",
                                               GlobalConfigBuilderInterfaceId, out, interfaceId));
  }
  Status GetGlobalConfigAndStateInfo(IGlobalConfigAndStateInfo** out,
                                     const Guid* interfaceId) override {
    Call("GetGlobalConfigAndStateInfo", interfaceId);
    return Traced(
        "GetGlobalConfigAndStateInfo",
        HandOut<GlobalConfigAndStateInfo>("GetGlobalConfigAndStateInfo",
                                          GlobalConfigAndStateInfoInterfaceId, out, interfaceId));
  }
  Status GetConnectionTable(IConnectionTable** out, const Guid* interfaceId) override {
    Call("GetConnectionTable", interfaceId);
    return Traced("GetConnectionTable",
                  HandOut<ConnectionTable>("GetConnectionTable", ConnectionTableInterfaceId, out,
                                           interfaceId));
  }
  Status GetOpenedEndpointTable(IOpenedEndpointTable** out, const Guid* interfaceId) override {
    Call("GetOpenedEndpointTable", interfaceId);
    return Traced("GetOpenedEndpointTable",
                  HandOut<OpenedEndpointTable>("GetOpenedEndpointTable",
                                               OpenedEndpointTableInterfaceId, out, interfaceId));
  }
  Status GetActiveProcesses(IActiveProcesses** out, const Guid* interfaceId) override {
    Call("GetActiveProcesses", interfaceId);
    return Traced("GetActiveProcesses",
                  HandOut<ActiveProcesses>("GetActiveProcesses", ActiveProcessesInterfaceId, out,
                                           interfaceId));
  }

 private:
  // A getter's common course: the out pointer is cleared first so that no failure leaves a
  // stale value the caller might release.
  template <class Object, class Interface>
  Status HandOut(const char* operation, const Guid& expected, Interface** out,
                 const Guid* interfaceId) {
    if (out == nullptr) return kStatusInvalidArg;
    *out = nullptr;
    if (interfaceId == nullptr) return kStatusInvalidArg;
    if (auto fault = Fault(operation)) return *fault;
    if (!(*interfaceId == expected)) return kStatusNoInterface;
    Object* object = NewObject<Object>(sharedState());
    if (object == nullptr) return kStatusOutOfMemory;
    *out = object;
    return kStatusOk;
  }
};

class RegisterPointProduct final : public SimObject<IRegisterPointProduct, CoreState> {
 public:
  explicit RegisterPointProduct(std::shared_ptr<CoreState> state)
      : SimObject(std::move(state), "IRegisterPointProduct") {}

  Status Register(IControl** control, const Guid* interfaceId,
                  const Guid* pointProductId) override {
    Call("Register", interfaceId, pointProductId);
    return Traced("Register", DoRegister(control, interfaceId, pointProductId));
  }

  Status Unregister(const Guid* pointProductId, uint64_t reserved) override {
    Call("Unregister", pointProductId, reserved);
    return Traced("Unregister", DoUnregister(pointProductId, reserved));
  }

 private:
  Status DoRegister(IControl** control, const Guid* interfaceId, const Guid* pointProductId) {
    if (control == nullptr) return kStatusInvalidArg;
    *control = nullptr;
    if (interfaceId == nullptr || pointProductId == nullptr) return kStatusInvalidArg;
    // Registering is where the program first depends on the host, so a scenario that cannot
    // be read shows here.
    const Scenario* scenario = state().GetScenario();
    if (scenario == nullptr) return kStatusBadScenario;
    if (auto fault = Fault("Register")) return *fault;
    if (!scenario->service.running) return kStatusServiceNotActive;
    if (!(*interfaceId == ControlInterfaceId)) return kStatusNoInterface;
    if (std::find(std::begin(kKnownPointProducts), std::end(kKnownPointProducts),
                  *pointProductId) == std::end(kKnownPointProducts)) {
      return kStatusInvalidArg;
    }
    Control* object = NewObject<Control>(sharedState());
    if (object == nullptr) return kStatusOutOfMemory;
    state().AddProduct(*pointProductId);
    *control = object;
    return kStatusOk;
  }

  // Lenient: a product that is not registered unregisters without complaint (a product
  // unregistered under the wrong identifier shows at unload, still registered), and a bad
  // scenario (already reported by Register) does not fail the clean-up a second time. The
  // reserved argument carries nothing yet and must be 0.
  Status DoUnregister(const Guid* pointProductId, uint64_t reserved) {
    if (pointProductId == nullptr || reserved != 0) return kStatusInvalidArg;
    if (auto fault = Fault("Unregister")) return *fault;
    const Scenario* scenario = state().GetScenario();
    if (scenario != nullptr && !scenario->service.running) return kStatusServiceNotActive;
    state().RemoveProduct(*pointProductId);
    return kStatusOk;
  }
};

Status GetInterface(const std::shared_ptr<CoreState>& state, const char* interfaceName,
                    void** out) {
  if (out == nullptr) return kStatusInvalidArg;
  *out = nullptr;
  if (interfaceName == nullptr) return kStatusInvalidArg;
  if (std::strcmp(interfaceName, kRegisterPointProductName) != 0) return kStatusNoInterface;
  auto* object = NewObject<RegisterPointProduct>(state);
  if (object == nullptr) return kStatusOutOfMemory;
  *out = static_cast<IRegisterPointProduct*>(object);
  return kStatusOk;
}

}  // namespace

void CoreState::AddProduct(const Guid& product) {
  std::lock_guard<std::mutex> lock(productsMutex_);
  if (std::find(products_.begin(), products_.end(), product) == products_.end()) {
    products_.push_back(product);
  }
}

void CoreState::RemoveProduct(const Guid& product) {
  std::lock_guard<std::mutex> lock(productsMutex_);
  products_.erase(std::remove(products_.begin(), products_.end(), product), products_.end());
}

bool CoreState::IsRegistered(const Guid& product) const {
  std::lock_guard<std::mutex> lock(productsMutex_);
  return std::find(products_.begin(), products_.end(), product) != products_.end();
}

Status CoreState::Unload() {
  std::vector<std::string> stillRegistered;
  {
    std::lock_guard<std::mutex> lock(productsMutex_);
    for (const Guid& product : products_) {
      char text[96];
      std::snprintf(text, sizeof text,
                    "point product {%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X} still "
                    "registered",
                    static_cast<unsigned>(product.Data1), product.Data2, product.Data3,
                    product.Data4[0], product.Data4[1], product.Data4[2], product.Data4[3],
                    product.Data4[4], product.Data4[5], product.Data4[6], product.Data4[7]);
      stillRegistered.emplace_back(text);
    }
  }
  return LibraryState::Unload(stillRegistered);
}

Status CoreGetInterface(const std::shared_ptr<CoreState>& state, const char* interfaceName,
                        void** out) {
  return state->TraceGetInterface(interfaceName, GetInterface(state, interfaceName, out));
}

}  // namespace nw::sim
