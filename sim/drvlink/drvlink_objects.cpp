#include "sim/drvlink/drvlink_objects.h"

#include <cstring>
#include <string>

#include "core/interfaces.h"
#include "sim/common/sim_object.h"
#include "sim/drvlink/profile_reply.h"

namespace nw::sim {
namespace {

constexpr Status kErrorFileNotFoundStatus = static_cast<Status>(kErrorFileNotFound);

// File names on the product's platform compare without regard to ASCII case.
bool SameFileName(const wchar_t* a, const wchar_t* b) {
  auto lower = [](wchar_t c) { return c >= L'A' && c <= L'Z' ? c - L'A' + L'a' : c; };
  for (; *a != L'\0' && *b != L'\0'; ++a, ++b) {
    if (lower(*a) != lower(*b)) return false;
  }
  return *a == *b;
}

class DriverLink final : public SimObject<IDriverLink> {
 public:
  explicit DriverLink(std::shared_ptr<LibraryState> state)
      : SimObject(std::move(state), "IDriverLink") {}

  Status Unused2() override { return Unused("Unused2"); }

  Status SendControlRequest(uint32_t code, const void*, uint32_t inputSize, void* output,
                            uint32_t outputSize, uint32_t* bytesReturned) override {
    Call("SendControlRequest", code, inputSize, outputSize);
    const std::string codeText = std::to_string(code);
    return Traced("SendControlRequest(" + codeText + ")",
                  Send(code, codeText, output, outputSize, bytesReturned));
  }

 private:
  Status Send(uint32_t code, const std::string& codeText, void* output, uint32_t outputSize,
              uint32_t* bytesReturned) {
    if (auto fault = Fault("SendControlRequest", codeText)) return *fault;
    if (code >= kDriverRequestStartProfiling && code <= kDriverRequestReadProfile) {
      const Scenario* scenario = state().GetScenario();
      if (scenario == nullptr) return kStatusBadScenario;
      return AnswerProfilingRequest(scenario->driverLink, code, output, outputSize, bytesReturned);
    }
    if (code != FW_IOCTL_EVALUATE_NET_DRIVER_REQUIREMENTS) return kErrorInvalidFunction;
    // Re-evaluating the drivers' requirements returns no data.
    if (bytesReturned != nullptr) *bytesReturned = 0;
    return kStatusOk;
  }
};

class DriverLinkConnector final : public SimObject<IDriverLinkConnector> {
 public:
  explicit DriverLinkConnector(std::shared_ptr<LibraryState> state)
      : SimObject(std::move(state), "IDriverLinkConnector") {}

  Status Unused2() override { return Unused("Unused2"); }

  Status ConnectToContentDriver(const wchar_t* driverName, IDriverLink** link) override {
    Call("ConnectToContentDriver", driverName);
    return Traced("ConnectToContentDriver", Connect(driverName, link));
  }

 private:
  Status Connect(const wchar_t* driverName, IDriverLink** link) {
    if (link == nullptr) return kStatusInvalidArg;
    *link = nullptr;
    if (auto fault = Fault("ConnectToContentDriver")) return *fault;
    const Scenario* scenario = state().GetScenario();
    // A driver that is not running, or one of another name, cannot be opened: its device
    // does not exist.
    if (scenario != nullptr && !scenario->driverLink.driverRunning) {
      return kErrorFileNotFoundStatus;
    }
    if (driverName == nullptr || !SameFileName(driverName, kContentDriverName)) {
      return kErrorFileNotFoundStatus;
    }
    DriverLink* object = NewObject<DriverLink>(sharedState());
    if (object == nullptr) return kStatusOutOfMemory;
    *link = object;
    return kStatusOk;
  }
};

Status GetInterface(const std::shared_ptr<LibraryState>& state, const char* interfaceName,
                    void** out) {
  if (out == nullptr) return kStatusInvalidArg;
  *out = nullptr;
  if (interfaceName == nullptr) return kStatusInvalidArg;
  if (std::strcmp(interfaceName, "DrvLinkConnectAsync") != 0 &&
      std::strcmp(interfaceName, "DrvLinkConnect") != 0) {
    return kStatusNoInterface;
  }
  // Getting a connector is the driver link's first call that depends on the host.
  if (state->GetScenario() == nullptr) return kStatusBadScenario;
  if (auto fault = state->Fault(interfaceName)) return *fault;
  auto* object = NewObject<DriverLinkConnector>(state);
  if (object == nullptr) return kStatusOutOfMemory;
  *out = static_cast<IDriverLinkConnector*>(object);
  return kStatusOk;
}

}  // namespace

Status DriverLinkGetInterface(const std::shared_ptr<LibraryState>& state, const char* interfaceName,
                              void** out) {
  return state->TraceGetInterface(interfaceName, GetInterface(state, interfaceName, out));
}

}  // namespace nw::sim
