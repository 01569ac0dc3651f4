#include "sim/common/library_state.h"

#include <cstdarg>
#include <exception>

#include "base/format.h"
#include "platform/debug_log.h"
#include "sim/common/file_io.h"

namespace nw::sim {

LibraryState::LibraryState(Options options) : options_(std::move(options)) {
  if (!options_.sink) {
    options_.sink = [](const std::wstring& line) { platform::WriteDebuggerOutput(line.c_str()); };
  }
}

const Scenario* LibraryState::GetScenario(std::string* error) {
  std::lock_guard<std::mutex> lock(scenarioMutex_);
  if (!scenarioRead_) {
    scenarioRead_ = true;
    // Reading stays inside the library: whatever goes wrong becomes a bad scenario.
    try {
      ReadScenario();
    } catch (const std::exception& e) {
      scenario_.reset();
      scenarioError_ = std::string("the scenario cannot be read: ") + e.what();
    }
    if (!scenario_) {
      // The reason must stay on one line of the log, whatever the parser said.
      for (char& c : scenarioError_) c = c == '\n' || c == '\r' ? ' ' : c;
      Print(L"bad scenario: %hs\n", scenarioError_.c_str());
    }
  }
  if (!scenario_ && error != nullptr) *error = scenarioError_;
  return scenario_ ? &*scenario_ : nullptr;
}

void LibraryState::ReadScenario() {
  std::string file;
  if (options_.scenarioFile) {
    file = *options_.scenarioFile;
  } else {
    file = EnvironmentVariable(kScenarioVariable);
  }
  // The built-in scenario, once changed, lives on in the default state file. Whatever has that
  // name is read (and refused when it is not a file), never opened here just to look.
  if (file.empty() && !options_.defaultStateFile.empty() && FileExists(options_.defaultStateFile)) {
    file = options_.defaultStateFile;
  }
  Scenario scenario;
  if (LoadScenario(file, options_.builtInScenario, &scenario, &scenarioError_)) {
    scenario_ = std::move(scenario);
    saveFile_ = file.empty() ? options_.defaultStateFile : file;
  }
}

Status LibraryState::UpdateScenario(const std::function<void(Scenario&)>& change) {
  if (GetScenario() == nullptr) return kStatusBadScenario;
  std::lock_guard<std::mutex> lock(scenarioMutex_);
  if (options_.inMemory) {
    change(*scenario_);
    return kStatusOk;
  }
  std::string error;
  try {
    Scenario changed = *scenario_;
    change(changed);
    if (saveFile_.empty()) {
      error = "the built-in scenario has no state file to be saved to";
    } else if (WriteFileAtomically(saveFile_, JsonFileText(changed.document), &error)) {
      changed.source = saveFile_;
      scenario_ = std::move(changed);
      return kStatusOk;
    }
  } catch (const std::exception& e) {
    // Nothing was written and the scenario stays as it was.
    error = std::string("cannot prepare the change: ") + e.what();
  }
  for (char& c : error) c = c == '\n' || c == '\r' ? ' ' : c;
  Print(L"cannot save the scenario: %hs\n", error.c_str());
  return kStatusSaveFailed;
}

const DebugOptions& LibraryState::Debug() {
  static const DebugOptions kDefaults;
  const Scenario* scenario = GetScenario();
  return scenario != nullptr ? scenario->debug : kDefaults;
}

std::optional<Status> LibraryState::Fault(std::string_view operation, std::string_view item) {
  const Scenario* scenario = GetScenario();
  if (scenario == nullptr) return std::nullopt;
  if (scenario->faults.empty()) return std::nullopt;
  std::lock_guard<std::mutex> lock(faultMutex_);
  return FindFault(*scenario, &faultCalls_, operation, item);
}

void LibraryState::Print(const wchar_t* format, ...) {
  std::wstring line = Utf8ToWide(options_.prefix);
  line += L": ";
  va_list args;
  va_start(args, format);
  AppendFormatWide(line, format, args);
  va_end(args);
  Write(line);
}

Status LibraryState::TraceGetInterface(const char* interfaceName, Status status) {
  TraceCall(std::string("NotComDllGetInterface(") +
                (interfaceName != nullptr ? interfaceName : "(null)") + ")",
            status);
  return status;
}

void LibraryState::TraceCall(std::string_view call, Status status) {
  if (!Debug().trace) return;
  const std::string text(call);
  Print(L"%hs -> %08x\n", text.c_str(), static_cast<uint32_t>(status));
}

void LibraryState::TraceRelease(const char* interfaceName, uint32_t refs) {
  if (!Debug().trace) return;
  Print(L"%hs::Release -> %u\n", interfaceName, refs);
}

bool LibraryState::TracesCalls(std::string_view interfaceName) {
  const DebugOptions& debug = Debug();
  if (!debug.calls) return false;
  if (debug.callInterfaces.empty()) return true;
  for (const std::string& name : debug.callInterfaces) {
    if (name == interfaceName) return true;
  }
  return false;
}

void LibraryState::TraceCallLine(std::string_view interfaceName, std::string_view operation,
                                 const std::string& arguments) {
  const std::string call = std::string(interfaceName) + "::" + std::string(operation);
  Print(L"call %hs(%hs)\n", call.c_str(), arguments.c_str());
}

uint64_t LibraryState::Track(const char* interfaceName, const std::atomic<uint32_t>* refs) {
  // One lock with Unload, so that an object is never out while the library lets itself go.
  std::lock_guard<std::mutex> lock(moduleMutex_);
  if (options_.holdModule) module_.Acquire();
  return objects_.Add(interfaceName, refs);
}

void LibraryState::Untrack(uint64_t serial) { objects_.Remove(serial); }

Status LibraryState::Unload(const std::vector<std::string>& stillHeld) {
  const DebugOptions debug = Debug();
  if (debug.trace) Print(L"NotComDllUnload\n");
  if (debug.reportLeaks) {
    for (const ObjectRegistry::Live& object : objects_.Snapshot()) {
      Print(L"leak: %hs still referenced (refs %u)\n", object.interfaceName.c_str(), object.refs);
    }
    for (const std::string& held : stillHeld) Print(L"leak: %hs\n", held.c_str());
  }
  // Leaked objects keep the library loaded so that a late Release still finds its code.
  std::lock_guard<std::mutex> lock(moduleMutex_);
  if (objects_.size() == 0) module_.Release();
  return kStatusOk;
}

void LibraryState::Write(const std::wstring& line) { options_.sink(line); }

}  // namespace nw::sim
