#pragma once

// The part every simulated object shares: its reference count, its place among the library's
// live objects, and tracing. A concrete object derives from SimObject<its interface> and
// implements the interface's remaining slots.

#include <atomic>
#include <cstdint>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "core/status.h"
#include "sim/common/call_trace.h"
#include "sim/common/library_state.h"

namespace nw::sim {

template <class Interface, class State = LibraryState>
class SimObject : public Interface {
 public:
  SimObject(const SimObject&) = delete;
  SimObject& operator=(const SimObject&) = delete;

  Status Unused0() override { return Unused("Unused0"); }

  uint32_t Release() override {
    Call("Release");
    const uint32_t refs = refs_.fetch_sub(1, std::memory_order_acq_rel) - 1;
    state_->TraceRelease(name_, refs);
    if (refs == 0) delete this;
    return refs;
  }

 protected:
  /// A new object holds one reference, the caller's.
  SimObject(std::shared_ptr<State> state, const char* interfaceName)
      : state_(std::move(state)),
        name_(interfaceName),
        serial_(state_->Track(name_, &refs_)),
        call_(state_.get(), interfaceName) {}
  virtual ~SimObject() { state_->Untrack(serial_); }

  State& state() const { return *state_; }
  const std::shared_ptr<State>& sharedState() const { return state_; }

  /// The fault the scenario injects for this interface's operation (see FindFault).
  std::optional<Status> Fault(std::string_view operation, std::string_view item = {}) const {
    std::string qualified(name_);
    qualified += "::";
    qualified += operation;
    return state_->Fault(qualified, item);
  }

  /// Traces the call of an operation with the arguments that decide it (see CallTracer).
  template <class... Args>
  void Call(std::string_view operation, const Args&... args) const {
    call_(operation, args...);
  }

  /// A slot the core does not provide: traced as a call and as its status.
  Status Unused(std::string_view operation) const {
    Call(operation);
    return Traced(operation, kStatusNotImplemented);
  }

  /// Traces "<interface>::<operation> -> <status>" and returns status.
  Status Traced(std::string_view operation, Status status) const {
    std::string call(name_);
    call += "::";
    call += operation;
    state_->TraceCall(call, status);
    return status;
  }

 private:
  std::atomic<uint32_t> refs_{1};
  std::shared_ptr<State> state_;
  const char* name_;
  uint64_t serial_;
  CallTracer call_;
};

/// Creates an object for handing out; null when memory runs out, since no exception may cross
/// into the program that called.
template <class T, class... Args>
T* NewObject(Args&&... args) {
  try {
    return new T(std::forward<Args>(args)...);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

}  // namespace nw::sim
