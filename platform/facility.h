#pragma once

namespace nw::platform {

/// The active implementation of one host facility: the build's backend, unless a test has put a
/// fake in its place. Tests restore the backend by passing nullptr.
template <class Api>
class Facility {
 public:
  static Api& Get() { return override_ ? *override_ : Host(); }
  static void SetForTesting(Api* fake) { override_ = fake; }

 private:
  static Api& Host();  // defined by the backend
  static inline Api* override_ = nullptr;
};

}  // namespace nw::platform
