#include "lab/lab.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <string>

#include "cli/console.h"
#include "cli/core_connection.h"
#include "cli/loader.h"
#include "lab/capture.h"
#include "platform/process.h"
#include "sim/common/file_io.h"
#include "sim/common/json_util.h"

namespace nw::lab {
namespace {

constexpr const char* kProgram = "netwarden-lab";

int Error(const std::string& message) {
  std::fprintf(stderr, "%s: %s\n", kProgram, message.c_str());
  return kExitError;
}

// Writes text to file, or to standard output for "-": whole or not at all.
int WriteOutput(const std::string& file, const std::string& text) {
  if (file == "-") {
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() ||
        std::fflush(stdout) != 0) {
      return Error("cannot write the standard output");
    }
    return kExitOk;
  }
  std::string error;
  if (!sim::WriteFileAtomically(file, text, &error)) return Error(file + ": " + error);
  return kExitOk;
}

// Connects as netwarden does (hardened library search, sockets, the signed control library,
// the point product's registration), captures, and lets go in netwarden's order.
int Capture(const std::string& output) {
  platform::Process& process = platform::TheProcess();
  platform::ModuleHandle* preloaded = HardenLibrarySearch();
  process.IgnoreInvalidParameters();
  constexpr uint16_t kWinsock22 = 0x0202;
  const int32_t socketsError = process.WsaStartup(kWinsock22);
  CoreConnection connection;
  const Status status = ConnectToCore(&connection);
  sim::Scenario scenario;
  if (status == kStatusOk) CaptureHost(connection, &scenario);
  ReleaseCoreConnection(&connection);
  NotComDllUnload(ControlLibraryName);
  if (socketsError == 0) process.WsaCleanup();
  ReleasePreloadedLibraries(preloaded);
  if (status != kStatusOk) {
    char text[80];
    std::snprintf(text, sizeof text, "capture: the core could not be reached (status 0x%08X)",
                  static_cast<unsigned>(status));
    return Error(text);
  }
  for (const std::string& note : scenario.captureNotes) {
    std::fprintf(stderr, "%s: capture: %s\n", kProgram, note.c_str());
  }
  return WriteOutput(output, sim::JsonFileText(sim::ScenarioToJson(scenario)));
}

}  // namespace

int RunLab(int argc, char** argv) {
  CLI::App app{
      "Reproduces a host's firewall as a scenario of the simulated core, to look into it "
      "anywhere.",
      kProgram};
  app.require_subcommand(1);
  std::string output = "-";
  CLI::App* capture = app.add_subcommand(
      "capture",
      "Read the host's firewall through the core's read-only getters into a scenario file");
  capture->add_option("-o,--output", output, "The scenario file to write (- for standard output)")
      ->capture_default_str();
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForAllHelp& e) {
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    return Error(std::string(e.what()) + " (see " + kProgram + " --help)");
  }
  if (capture->parsed()) return Capture(output);
  return Error("no subcommand");
}

}  // namespace nw::lab
