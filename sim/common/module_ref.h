#pragma once

// A simulated library's reference on itself. The program's loader drops its own reference as
// soon as it has an interface, yet the objects it got run code that lives in the library; so
// the library holds itself loaded while it has objects out. It lets go only in NotComDllUnload,
// whose caller holds a reference of its own for the call, so the code running is never unmapped
// under it (a last Release cannot do this safely: it would return into an unloaded library).

#include <string>

namespace nw::sim {

/// The file beside the library holding this code: its folder joined with name. Empty when the
/// folder cannot be told.
std::string FileBesideLibrary(const char* name);
/// An environment variable's value as UTF-8 (the encoding of every path the simulator keeps),
/// empty when unset.
std::string EnvironmentVariable(const char* name);

class ModuleSelfReference {
 public:
  ModuleSelfReference() = default;
  ModuleSelfReference(const ModuleSelfReference&) = delete;
  ModuleSelfReference& operator=(const ModuleSelfReference&) = delete;
  // Deliberately no release on destruction: that only happens while the library is already
  // being unloaded or the process is exiting.

  /// Takes the reference unless it is held already. Quietly does nothing when the code is not
  /// in a loaded library (a test program).
  void Acquire();
  /// Drops the reference when it is held.
  void Release();
  bool held() const { return handle_ != nullptr; }

 private:
  void* handle_ = nullptr;
};

}  // namespace nw::sim
