#pragma once

// What one simulated library keeps for as long as it or any object it handed out lives: its
// name in the debugger output, its scenario (read once, on first need), the live objects and the
// reference it holds on itself. Objects share ownership of it, so an object released after the
// library's own statics are gone (at process exit) still finds it.

#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/status.h"
#include "sim/common/module_ref.h"
#include "sim/common/object_registry.h"
#include "sim/common/scenario.h"

namespace nw::sim {

/// The scenario could not be read: the invalid-data HRESULT.
inline constexpr Status kStatusBadScenario = static_cast<Status>(0x8007000Du);
inline constexpr Status kStatusOutOfMemory = static_cast<Status>(0x8007000Eu);
/// A change could not be saved to the scenario's file: the unspecified-failure HRESULT.
inline constexpr Status kStatusSaveFailed = static_cast<Status>(0x80004005u);
/// The file beside the libraries that holds the built-in scenario once a change was saved.
inline constexpr const char* kDefaultStateFileName = "kvx-sim-state.json";

class LibraryState {
 public:
  /// Receives each debugger-output message, a whole line with its "\n".
  using Sink = std::function<void(const std::wstring& line)>;

  struct Options {
    /// The library's name at the start of each of its debugger-output lines ("kvxfwctl").
    std::string prefix;
    /// The scenario used when no file is named.
    std::string_view builtInScenario;
    /// The scenario file; absent: the file named by KVX_SIM_STATE. Empty: the built-in one.
    std::optional<std::string> scenarioFile;
    /// Where the built-in scenario is saved when something changes it, and read from when
    /// that file exists. Empty: changes to the built-in scenario cannot be saved.
    std::string defaultStateFile;
    /// Where messages go; empty: the debugger output.
    Sink sink;
    /// Hold the library loaded while objects are out (the real libraries; not a test program).
    bool holdModule = false;
    /// The scenario lives in memory only: a change applies at once, nothing is saved, and the
    /// scenario's document form is not kept up to date. The lab builds imported documents into
    /// such a core, where saving the whole store after each added policy would make an import
    /// quadratic in its size.
    bool inMemory = false;
  };

  explicit LibraryState(Options options);
  LibraryState(const LibraryState&) = delete;
  LibraryState& operator=(const LibraryState&) = delete;

  const std::string& prefix() const { return options_.prefix; }

  /// The scenario, read on the first call. Null when it could not be read; *error (when given)
  /// then holds the reason, which has been written to the debugger output once as
  /// "<prefix>: bad scenario: <reason>".
  const Scenario* GetScenario(std::string* error = nullptr);
  /// The scenario's debug options, or the defaults when it could not be read.
  const DebugOptions& Debug();
  /// Changes the scenario and saves it: change edits a copy (its parsed fields and its document
  /// alike), which is written atomically to the file the scenario came from (the default
  /// state file for the built-in one) and only then becomes the scenario. Returns 0, or
  /// kStatusSaveFailed with the reason in the debugger output and nothing changed.
  Status UpdateScenario(const std::function<void(Scenario&)>& change);
  /// Whether a change must also bring the scenario's document form up to date (not in memory).
  bool KeepsDocument() const { return !options_.inMemory; }

  /// The fault injected for this call of an operation (see FindFault; the calls are counted
  /// for the life of the library); none when the scenario is bad.
  std::optional<Status> Fault(std::string_view operation, std::string_view item = {});

  /// Writes "<prefix>: <text>" to the debugger output; text ends with its own "\n".
  void Print(const wchar_t* format, ...);
  /// With tracing on: "<prefix>: <call> -> <status as 8 lower-case hex digits>".
  void TraceCall(std::string_view call, Status status);
  /// Traces the library's export NotComDllGetInterface for interfaceName and passes status on.
  Status TraceGetInterface(const char* interfaceName, Status status);
  /// With tracing on: "<prefix>: <interfaceName>::Release -> <refs in decimal>".
  void TraceRelease(const char* interfaceName, uint32_t refs);
  /// Whether the calls of interfaceName's operations are traced (debug.calls).
  bool TracesCalls(std::string_view interfaceName);
  /// "<prefix>: call <interfaceName>::<operation>(<arguments>)" (see CallTracer).
  void TraceCallLine(std::string_view interfaceName, std::string_view operation,
                     const std::string& arguments);

  /// Records a new object (see ObjectRegistry) and keeps the library loaded while it lives.
  uint64_t Track(const char* interfaceName, const std::atomic<uint32_t>* refs);
  void Untrack(uint64_t serial);
  size_t LiveObjects() const { return objects_.size(); }

  /// NotComDllUnload: traces the call, reports every object still referenced (with leak
  /// reporting on) as "<prefix>: leak: <interface> still referenced (refs <n>)" in creation
  /// order, then each of stillHeld as "<prefix>: leak: <text>", and lets the library go when no
  /// object is left. Returns 0.
  Status Unload(const std::vector<std::string>& stillHeld = {});

 private:
  /// Reads the scenario into scenario_, or leaves it empty with the reason in scenarioError_.
  void ReadScenario();
  void Write(const std::wstring& line);

  Options options_;
  std::mutex scenarioMutex_;
  bool scenarioRead_ = false;
  std::optional<Scenario> scenario_;
  std::string scenarioError_;
  /// The file changes are saved to; empty when they cannot be.
  std::string saveFile_;
  std::mutex faultMutex_;
  FaultCalls faultCalls_;
  ObjectRegistry objects_;
  std::mutex moduleMutex_;
  ModuleSelfReference module_;
};

}  // namespace nw::sim
