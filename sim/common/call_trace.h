#pragma once

// The call trace: with "debug.calls" on, one debugger-output line per call of a core or driver
// link operation, before it runs, with the arguments that decide what it does. Tests pin with
// it the order and the number of the calls a view makes, which its output alone cannot show.

#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

#include "base/format.h"
#include "core/guid.h"
#include "sim/common/library_state.h"

namespace nw::sim {

/// A flag word argument: traced as 0x and eight hexadecimal digits.
struct FlagWord {
  uint32_t value;
};

/// Appends one argument's text to a call's argument list.
void AppendCallArgument(std::string* text, bool value);
void AppendCallArgument(std::string* text, FlagWord value);
void AppendCallArgument(std::string* text, const Guid* value);
void AppendCallArgument(std::string* text, const wchar_t* value);
void AppendCallArgument(std::string* text, const char* value);
void AppendCallArgument(std::string* text, int64_t value);
void AppendCallArgument(std::string* text, uint64_t value);
template <class T>
requires(std::is_integral_v<T> &&
         !std::is_same_v<T, bool>) void AppendCallArgument(std::string* text, T value) {
  if constexpr (std::is_signed_v<T>) {
    AppendCallArgument(text, static_cast<int64_t>(value));
  } else {
    AppendCallArgument(text, static_cast<uint64_t>(value));
  }
}

/// The call trace of one object: its library and its interface's name. Whether the trace is on
/// is asked once, on the first call, so that a view's millions of getter calls cost a test of
/// one byte each.
class CallTracer {
 public:
  CallTracer(LibraryState* state, const char* interfaceName)
      : state_(state), interfaceName_(interfaceName) {}

  /// "<prefix>: call <interface>::<operation>(<arguments, comma-separated>)".
  template <class... Args>
  void operator()(std::string_view operation, const Args&... args) const {
    if (on_ < 0) on_ = state_->TracesCalls(interfaceName_) ? 1 : 0;
    if (on_ == 0) return;
    std::string arguments;
    (AppendCallArgument(&arguments, args), ...);
    state_->TraceCallLine(interfaceName_, operation, arguments);
  }

 private:
  LibraryState* state_;
  const char* interfaceName_;
  mutable int8_t on_ = -1;
};

}  // namespace nw::sim
