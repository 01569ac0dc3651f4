#include "lab/lab.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <string>

#include "base/format.h"
#include "cli/console.h"
#include "cli/core_connection.h"
#include "cli/loader.h"
#include "lab/capture.h"
#include "lab/diff.h"
#include "lab/explain.h"
#include "lab/find.h"
#include "lab/import.h"
#include "lab/lab_files.h"
#include "lab/progress.h"
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

void PrintNotes(const char* command, const std::vector<std::string>& notes) {
  for (const std::string& note : notes) {
    std::fprintf(stderr, "%s: %s: %s\n", kProgram, command, note.c_str());
  }
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
  Progress progress("capture");
  if (status == kStatusOk) CaptureHost(connection, &scenario, progress.Report());
  progress.Done();
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
  PrintNotes("capture", scenario.captureNotes);
  return WriteOutput(output, sim::JsonFileText(sim::ScenarioToJson(scenario)));
}

// A scenario file, or a one-line reason naming it. A policy document (what netwarden
// -PolicyDisplayXml writes) is imported, when allowed, with what it does not carry noted.
bool LoadHost(const std::string& file, bool documents, sim::Scenario* out, std::string* error) {
  std::string text;
  if (!sim::ReadRegularFile(file, kMaxLabFileBytes, &text, error)) return false;
  if (LooksLikeXml(text)) {
    if (!documents) {
      *error = file +
               ": an XML document, where a scenario (from netwarden-lab capture or "
               "import) was expected";
      return false;
    }
    text.clear();
    text.shrink_to_fit();
    if (!ImportDocuments(file, "", out, error)) return false;
    PrintNotes("diff", out->captureNotes);
    return true;
  }
  sim::Json doc;
  return sim::ParseJsonText(text, file, &doc, error, kMaxLabJsonValues) &&
         sim::ParseScenario(doc, file, out, error);
}

int Import(const std::string& policies, const std::string& blacklist, const std::string& output) {
  sim::Scenario scenario;
  std::string error;
  Progress progress("import");
  if (!ImportDocuments(policies, blacklist, &scenario, &error,
                       [&progress](size_t count) { progress.Show(count, "policies read"); })) {
    progress.Done();
    return Error("import: " + error);
  }
  progress.Done();
  PrintNotes("import", scenario.captureNotes);
  return WriteOutput(output, sim::JsonFileText(sim::ScenarioToJson(scenario)));
}

int Diff(const std::string& fileA, const std::string& fileB, bool json) {
  sim::Scenario a, b;
  std::string error;
  if (!LoadHost(fileA, true, &a, &error) || !LoadHost(fileB, true, &b, &error)) {
    return Error("diff: " + error);
  }
  const std::vector<Difference> differences = DiffScenarios(a, b);
  std::string text;
  if (json) {
    text = sim::JsonFileText(DifferencesToJson(differences));
  } else {
    for (const Difference& d : differences) text += DifferenceText(d) + "\n";
  }
  const int written = WriteOutput("-", text);
  if (written != kExitOk) return written;
  return differences.empty() ? kExitOk : kExitDiffers;
}

int Find(const std::string& file, const std::vector<std::string>& terms, bool json) {
  std::vector<Query> queries;
  std::string error;
  for (const std::string& term : terms) {
    Query q;
    if (!ParseQuery(term, &q, &error)) return Error("find: " + error);
    queries.push_back(std::move(q));
  }
  sim::Scenario scenario;
  if (!LoadHost(file, false, &scenario, &error)) return Error("find: " + error);
  const std::vector<Found> found = FindRules(scenario, queries);
  std::string text;
  if (json) {
    text = sim::JsonFileText(FoundToJson(found));
  } else {
    for (const Found& f : found) text += FoundText(f);
  }
  const int written = WriteOutput("-", text);
  if (written != kExitOk) return written;
  return found.empty() ? kExitDiffers : kExitOk;
}

struct ConnectionText {
  std::string protocol, local, remote, direction, application, user;
};

int Explain(const std::string& file, const ConnectionText& given, bool json) {
  Connection c;
  if (!ParseProtocol(given.protocol, &c.protocol)) {
    return Error("explain: --protocol " + given.protocol +
                 ": expected tcp, udp, icmp, icmpv6 or a number from 0 to 255");
  }
  if (!ParseEndpoint(given.local, &c.localAddress, &c.localPort)) {
    return Error("explain: --local " + given.local +
                 ": expected ADDRESS:PORT (an IPv6 address in brackets: [fe80::1]:443)");
  }
  if (!ParseEndpoint(given.remote, &c.remoteAddress, &c.remotePort)) {
    return Error("explain: --remote " + given.remote +
                 ": expected ADDRESS:PORT (an IPv6 address in brackets: [fe80::1]:443)");
  }
  if (!ParseDirection(given.direction, &c.direction)) {
    return Error("explain: --direction " + given.direction + ": expected in or out");
  }
  if (!given.application.empty()) c.application = Utf8ToWide(given.application);
  if (!given.user.empty()) c.user = Utf8ToWide(given.user);
  sim::Scenario scenario;
  std::string error;
  if (!LoadHost(file, false, &scenario, &error)) return Error("explain: " + error);
  std::vector<PolicyVerdict> verdicts;
  if (!ExplainConnection(scenario, c, &verdicts, &error)) return Error("explain: " + error);
  std::string text;
  if (json) {
    text = sim::JsonFileText(VerdictsToJson(verdicts));
  } else {
    for (const PolicyVerdict& v : verdicts) text += VerdictText(v);
  }
  return WriteOutput("-", text);
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
  std::string policiesFile, blacklistFile;
  CLI::App* import =
      app.add_subcommand("import",
                         "Make a scenario from the documents netwarden -PolicyDisplayXml and "
                         "-BlackListDisplayXml write, read with netwarden's own reader");
  import->add_option("POLICIES", policiesFile, "The policy document")->required();
  import->add_option("--blacklist", blacklistFile, "The blacklist document");
  import->add_option("-o,--output", output, "The scenario file to write (- for standard output)")
      ->capture_default_str();
  std::string fileA, fileB;
  bool json = false;
  CLI::App* diff = app.add_subcommand(
      "diff",
      "Compare two scenarios or policy documents: policies, groups, rules, aggregate matches and "
      "terms by "
      "identifier, blacklist ranges, configuration, versions and hooks (exit 0 equal, "
      "1 different, 2 error)");
  diff->add_option("A", fileA, "The scenario or policy document before")->required();
  diff->add_option("B", fileB, "The scenario or policy document after")->required();
  diff->add_flag("--json", json, "One JSON document for scripts (docs/lab.md)");
  std::string scenarioFile;
  std::vector<std::string> terms;
  CLI::App* find = app.add_subcommand(
      "find",
      "List the rules whose terms mention every value given (exit 0 found, 1 none, "
      "2 error)");
  find->add_option("SCENARIO", scenarioFile, "The scenario to search")->required();
  find->add_option("TERM", terms,
                   "ip:ADDRESS[-ADDRESS], port:N[-N], path:TEXT, user:TEXT or hash:MD5")
      ->required();
  find->add_flag("--json", json, "One JSON document for scripts (docs/lab.md)");
  ConnectionText connection;
  CLI::App* explain = app.add_subcommand(
      "explain",
      "Walk the packet and stream policies' rules in the take-jumps order for one "
      "connection and say which rule decides it, and why each rule before it did not");
  explain->add_option("SCENARIO", scenarioFile, "The scenario")->required();
  explain->add_option("--protocol", connection.protocol, "tcp, udp, icmp, icmpv6 or a number")
      ->required();
  explain->add_option("--local", connection.local, "The local ADDRESS:PORT")->required();
  explain->add_option("--remote", connection.remote, "The remote ADDRESS:PORT")->required();
  explain->add_option("--direction", connection.direction, "in or out")->required();
  explain->add_option("--app", connection.application, "The application's path (else unknown)");
  explain->add_option("--user", connection.user, "The user's identifier (else unknown)");
  explain->add_flag("--json", json, "One JSON document for scripts (docs/lab.md)");
  const auto isSubcommand = [&app](const std::string& name) {
    for (const CLI::App* sub : app.get_subcommands({})) {
      if (sub->get_name() == name) return true;
    }
    return false;
  };
  if (argc > 1 && argv[1][0] != '-' && !isSubcommand(argv[1])) {
    return Error(std::string(argv[1]) +
                 ": not a subcommand (capture, import, diff, find or explain; see " + kProgram +
                 " --help)");
  }
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
  if (import->parsed()) return Import(policiesFile, blacklistFile, output);
  if (diff->parsed()) return Diff(fileA, fileB, json);
  if (find->parsed()) return Find(scenarioFile, terms, json);
  if (explain->parsed()) return Explain(scenarioFile, connection, json);
  return Error("no subcommand");
}

}  // namespace nw::lab
