#include "lab/import.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "base/format.h"
#include "cli/console.h"
#include "cli/core_connection.h"
#include "core/policy_values.h"
#include "lab/lab_files.h"
#include "platform/xml_reader.h"
#include "policy/names.h"
#include "policy/policy_builder.h"
#include "policy/policy_reader.h"
#include "sim/common/file_io.h"
#include "sim/core/blacklist_objects.h"
#include "sim/core/builder_objects.h"
#include "sim/core/core_objects.h"
#include "sim/core/policy_objects.h"

namespace nw::lab {
namespace {

// One node the loop handed over, kept while its action or match is read whole.
struct Node {
  enum Kind { kOpen, kValue, kClose } kind;
  std::wstring text;
};

// An action whose type the import sets back after the build step: one the tool's reader
// refuses by name, though the core holds it.
struct ActionRestore {
  size_t policy = 0;
  std::optional<size_t> group;  // the model's group index; none: the policy's default action
  size_t rule = 0;
  int32_t action = 0;
};

constexpr std::wstring_view kBlockPacket = L"FW_ACTION_BLOCK_PACKET";

std::string Quoted(const std::wstring& text) { return "\"" + WideToUtf8(text) + "\""; }

// An action type by the name the document writer gives it (the reader lacks some of them).
int32_t ActionType(const std::wstring& name) {
  for (int32_t value = FW_ACTION_ALLOW; value <= FW_ACTION_CALL_PLUGIN; ++value) {
    if (name == ActionName(value)) return value;
  }
  return 0;
}

// The messages the tool's reader or build step printed for a refusal, without the notes they
// print on the way.
std::string ReaderMessage(const std::string& printed) {
  static constexpr std::string_view kNotes[] = {"Return value from MatchElement",
                                                "Into ",
                                                "Aggregate match guid",
                                                "guid:",
                                                "Returned from ",
                                                "Calling "};
  std::string message;
  size_t start = 0;
  while (start < printed.size()) {
    size_t end = printed.find('\n', start);
    if (end == std::string::npos) end = printed.size();
    std::string_view line(printed.data() + start, end - start);
    start = end + 1;
    while (!line.empty() && (line.front() == ' ' || line.front() == '\t')) line.remove_prefix(1);
    bool note = line.empty();
    for (std::string_view prefix : kNotes) note = note || line.starts_with(prefix);
    if (note) continue;
    if (!message.empty()) message += "; ";
    message += line;
  }
  return message;
}

// The tool's reader, watched node by node: where in the document it is (for notes and errors),
// and each action and match held back until it closes, so that a value the format does not
// carry back can be noted and replaced, or the match left out, before the reader sees it.
class ImportReader : public PolicyDocumentReader {
 public:
  ImportReader(ConsoleCapture* printed, const std::shared_ptr<sim::CoreState>& core,
               ImportProgress progress)
      : printed_(printed), probeRule_(new sim::RuleBuilder(core)), progress_(std::move(progress)) {}
  ~ImportReader() override { probeRule_->Release(); }
  ImportReader(const ImportReader&) = delete;
  ImportReader& operator=(const ImportReader&) = delete;

  bool OpenElement(const wchar_t* name) override {
    if (held_) {
      held_->push_back({Node::kOpen, name});
      return true;
    }
    const std::wstring_view element(name);
    if (element == L"action" || element == L"default_action" || element == L"match") {
      held_.emplace();
      held_->push_back({Node::kOpen, name});
      return true;
    }
    if (element == L"policy") {
      ++policies_;
      ppuids_.emplace_back();
      policyUid_.clear();
      policyName_.clear();
      groups_ = 0;
      group_.reset();
    } else if (element == L"default_group" || element == L"group") {
      group_ = element == L"default_group" ? 0 : ++groups_;
      groupName_.clear();
      rules_ = 0;
    } else if (element == L"rule") {
      ++rules_;
      ruleName_.clear();
      inRule_ = true;
    } else if (element == L"aggregate_match") {
      inAggregate_ = true;
      aggregateName_.clear();
    }
    leaf_ = name;
    return Pass([&] { return PolicyDocumentReader::OpenElement(name); },
                L"element <" + leaf_ + L">");
  }

  bool TakeValue(const wchar_t* text) override {
    if (held_) {
      held_->push_back({Node::kValue, text});
      return true;
    }
    if (leaf_ == L"ppuid" && inPolicy()) {
      Guid uid{};
      if (ParseGuid(text, &uid)) ppuids_.back() = uid;
    } else if (leaf_ == L"uid" && inPolicy() && !group_ && !inAggregate_) {
      policyUid_ = text;
    } else if (leaf_ == L"name") {
      (inRule_        ? ruleName_
       : inAggregate_ ? aggregateName_
       : group_       ? groupName_
                      : policyName_) = text;
    }
    return Pass([&] { return PolicyDocumentReader::TakeValue(text); },
                L"the value \"" + std::wstring(text) + L"\" of <" + leaf_ + L">");
  }

  bool CloseElement(const wchar_t* name) override {
    const std::wstring_view element(name);
    if (held_) {
      held_->push_back({Node::kClose, name});
      if (element != held_->front().text) return true;
      std::vector<Node> nodes = std::move(*held_);
      held_.reset();
      return element == L"match" ? Match(std::move(nodes)) : Action(std::move(nodes));
    }
    leaf_.clear();
    const bool closed = Pass([&] { return PolicyDocumentReader::CloseElement(name); },
                             L"the end of <" + std::wstring(element) + L">");
    if (element == L"rule") {
      inRule_ = false;
    } else if (element == L"aggregate_match") {
      inAggregate_ = false;
    } else if (element == L"default_group" || element == L"group") {
      group_.reset();
    } else if (element == L"policy" && closed && progress_) {
      progress_(policies_);
    }
    return closed;
  }

  // Where the reader is, for notes and errors: the policy, and within it the group and rule or
  // the aggregate match.
  std::string Where() const {
    if (policies_ == 0) return "before the first policy";
    std::string where = "policy " + std::to_string(policies_);
    if (!policyUid_.empty()) where += " {" + WideToUtf8(policyUid_) + "}";
    if (!policyName_.empty()) where += " " + Quoted(policyName_);
    if (inAggregate_) {
      where += ", aggregate match";
      if (!aggregateName_.empty()) where += " " + Quoted(aggregateName_);
    } else if (group_) {
      where += *group_ == 0 ? ", default group" : ", group " + std::to_string(*group_);
      if (!groupName_.empty()) where += " " + Quoted(groupName_);
      if (inRule_) {
        where += ", rule " + std::to_string(rules_);
        if (!ruleName_.empty()) where += " " + Quoted(ruleName_);
      }
    }
    return where;
  }

  const std::vector<std::string>& notes() const { return notes_; }
  const std::vector<ActionRestore>& restores() const { return restores_; }
  const std::vector<std::optional<Guid>>& ppuids() const { return ppuids_; }
  // What the reader refused, when it refused: its messages, or what it was given.
  const std::string& refusal() const { return refusal_; }

 private:
  bool inPolicy() const { return policies_ > 0; }

  template <typename F>
  bool Pass(F&& handle, const std::wstring& given) {
    printed_->Clear();
    if (handle()) return true;
    refusal_ = ReaderMessage(printed_->text());
    if (refusal_.empty()) refusal_ = WideToUtf8(given) + " is not expected there";
    return false;
  }

  // One held node handed to a reader's own handler (not this one's overrides).
  static bool Feed(PolicyDocumentReader& reader, const Node& node) {
    const wchar_t* text = node.text.c_str();
    return node.kind == Node::kOpen    ? reader.PolicyDocumentReader::OpenElement(text)
           : node.kind == Node::kValue ? reader.PolicyDocumentReader::TakeValue(text)
                                       : reader.PolicyDocumentReader::CloseElement(text);
  }

  // Hands a held element to the tool's reader, node by node, as the loop would have.
  bool Replay(const std::vector<Node>& nodes) {
    for (const Node& node : nodes) {
      const std::wstring given = node.kind == Node::kOpen    ? L"element <" + node.text + L">"
                                 : node.kind == Node::kValue ? L"the value \"" + node.text + L"\""
                                                             : L"the end of <" + node.text + L">";
      if (!Pass([&] { return Feed(*this, node); }, given)) return false;
    }
    return true;
  }

  // The value given for one of the held element's leaves, if any.
  static std::wstring* LeafValue(std::vector<Node>& nodes, std::wstring_view leaf) {
    for (size_t i = 0; i + 1 < nodes.size(); ++i) {
      if (nodes[i].kind == Node::kOpen && nodes[i].text == leaf &&
          nodes[i + 1].kind == Node::kValue) {
        return &nodes[i + 1].text;
      }
    }
    return nullptr;
  }

  void Note(const std::string& what) { notes_.push_back(Where() + ": " + what); }

  // Whether the tool's reader and build step take a match, asked of a reader and a rule
  // builder of their own so that this reader goes on: empty when they do, else why not.
  std::string Refusal(const std::vector<Node>& nodes) {
    PolicyDocumentReader probe;
    printed_->Clear();
    bool taken = probe.OpenElement(L"policy") && probe.OpenElement(L"aggregate_match");
    for (const Node& node : nodes) {
      if (!taken) break;
      taken = Feed(probe, node);
    }
    std::string refused;
    if (!taken) {
      refused = ReaderMessage(printed_->text());
      return refused.empty() ? "the tool's reader refuses it" : refused;
    }
    const MatchRecord& match = probe.document().policies.front().aggregates.front().matches.back();
    if (match.type == FW_MATCH_APP_VENDOR) return "the core takes no vendor matches";
    printed_->Clear();
    probeRule_->Reset();
    if (BuildMatch(probeRule_->GetMatchBuilder(), match)) return refused;
    refused = ReaderMessage(printed_->text());
    return refused.empty() ? "the tool's build step refuses it" : refused;
  }

  // A match the tool's reader or build step refuses is left out and noted: its rule (or
  // aggregate match) then matches more connections than on the host, and the note says which.
  bool Match(std::vector<Node> nodes) {
    const std::wstring* typeText = LeafValue(nodes, L"matchtype");
    const std::string type = typeText != nullptr ? WideToUtf8(*typeText) : "without a type";
    if (const std::string refused = Refusal(nodes); !refused.empty()) {
      Note("match " + type + ": " + refused + "; left out, so what holds it matches more");
      return true;
    }
    int32_t matchType = 0;
    if (typeText != nullptr) LookUpName(kMatchTypeReaderNames, typeText->c_str(), &matchType);
    if (matchType == FW_MATCH_BYTES_SENT || matchType == FW_MATCH_BYTES_RECEIVED ||
        matchType == FW_MATCH_PROCESS_ID || matchType == FW_MATCH_VTP_PRIVILEGES) {
      if (const std::wstring* value = LeafValue(nodes, L"value")) {
        // Each number of the value (a range has two) is read as a 32-bit decimal.
        for (const wchar_t* at = value->c_str(); *at != L'\0';) {
          wchar_t* end = nullptr;
          const unsigned long long number = std::wcstoull(at, &end, 10);
          if (end == at) {
            ++at;
            continue;
          }
          if (number > 2147483647ULL) {
            Note("match " + type + ": " + std::to_string(number) +
                 " is above 2147483647, which the tool's reader reads in its place");
            break;
          }
          at = end;
        }
      }
    }
    return Replay(nodes);
  }

  // An action (or default action) the reader would refuse, or read short of what the host had,
  // is built as the format allows and noted; a continue, which the reader refuses by name
  // though it needs nothing more, is set back after the build.
  bool Action(std::vector<Node> nodes) {
    const bool isDefault = nodes.front().text == L"default_action";
    std::wstring* typeText = LeafValue(nodes, L"actiontype");
    const int32_t type = typeText != nullptr ? ActionType(*typeText) : 0;
    const std::string name = typeText != nullptr ? WideToUtf8(*typeText) : "";
    const std::wstring* target = LeafValue(nodes, L"target");
    if (type == FW_ACTION_CONTINUE) {
      restores_.push_back(
          {policies_ - 1, isDefault ? std::nullopt : group_, rules_ - (isDefault ? 0 : 1), type});
      *typeText = kBlockPacket;
    } else if (type == FW_ACTION_BLOCK_HOST && LeafValue(nodes, L"length") == nullptr) {
      Note((isDefault ? "default action " : "action ") + name +
           ": its length is not in the document; imported as FW_ACTION_BLOCK_PACKET");
      *typeText = kBlockPacket;
    } else if (isDefault && target == nullptr &&
               (type == FW_ACTION_REDIRECT || type == FW_ACTION_JUMP ||
                type == FW_ACTION_CALL_PLUGIN)) {
      Note("default action " + name +
           ": its target is not in the document; imported as FW_ACTION_BLOCK_PACKET");
      *typeText = kBlockPacket;
    } else if (type == FW_ACTION_REDIRECT && target != nullptr) {
      // "ADDRESS PORT VALUE": a port of five digits does not fit the writer's field, which is
      // then left empty. 10000 is the least port the host can have had.
      std::wstring* text = LeafValue(nodes, L"target");
      const size_t space = text->find(L' ');
      if (space != std::wstring::npos && space + 1 < text->size() && (*text)[space + 1] == L' ') {
        Note("action " + name +
             ": its port is not in the document (it is 10000 or more); imported as 10000");
        text->insert(space + 1, L"10000");
      }
    }
    return Replay(nodes);
  }

  ConsoleCapture* printed_;
  sim::RuleBuilder* probeRule_;  // where matches are tried before the reader is given them
  ImportProgress progress_;
  std::optional<std::vector<Node>> held_;
  std::wstring leaf_;
  size_t policies_ = 0, groups_ = 0, rules_ = 0;
  std::optional<size_t> group_;
  bool inRule_ = false, inAggregate_ = false;
  std::wstring policyUid_, policyName_, groupName_, ruleName_, aggregateName_;
  std::vector<std::string> notes_;
  std::vector<ActionRestore> restores_;
  std::vector<std::optional<Guid>> ppuids_;
  std::string refusal_;
};

// The simulated core the documents are built into: in memory, empty, nothing failing.
struct MemoryCore {
  MemoryCore()
      : state(std::make_shared<sim::CoreState>(sim::LibraryState::Options{
            "kvxfwctl", "{}", std::string(), "", [](const std::wstring&) {}, false, true})) {
    connection.policyManager = new sim::PolicyManager(state);
    connection.highPriorityIpList = new sim::HighPriorityIpListControl(state);
  }
  ~MemoryCore() {
    connection.policyManager->Release();
    connection.highPriorityIpList->Release();
  }
  std::shared_ptr<sim::CoreState> state;
  CoreConnection connection;
};

// Reads one document: its records, the reader's notes; false with *error when it is not one.
bool ReadDocument(const std::string& file, ConsoleCapture* printed, ImportReader* reader,
                  std::string* error) {
  std::string text;
  if (!sim::ReadRegularFile(file, kMaxLabFileBytes, &text, error)) return false;
  if (!LooksLikeXml(text)) {
    *error = file + ": not an XML document: expected \"<\" at its start";
    return false;
  }
  text.clear();
  text.shrink_to_fit();
  const bool read = reader->ReadPolicyDocument(DocumentPath(file).c_str());
  const Status end = reader->endStatus();
  if (read && end == platform::kXmlFalse) return true;
  if (end != kStatusOk && end != platform::kXmlFalse) {
    char status[16];
    std::snprintf(status, sizeof status, "0x%08X", static_cast<unsigned>(end));
    *error = file + ": " + reader->Where() + ": not well-formed XML (the reader's status " +
             status + ")";
  } else {
    const std::string refusal =
        reader->refusal().empty() ? ReaderMessage(printed->text()) : reader->refusal();
    *error = file + ": " + reader->Where() + ": " + refusal;
  }
  return false;
}

}  // namespace

bool LooksLikeXml(const std::string& text) {
  const size_t first = text.find_first_not_of(" \t\r\n");
  return first != std::string::npos && text[first] == '<';
}

bool ImportDocuments(const std::string& policiesFile, const std::string& blacklistFile,
                     sim::Scenario* out, std::string* error, const ImportProgress& progress) {
  ConsoleCapture printed;
  MemoryCore core;
  ImportReader policies(&printed, core.state, progress);
  if (!ReadDocument(policiesFile, &printed, &policies, error)) return false;
  if (!policies.document().blacklists.empty()) {
    *error = policiesFile + ": a blacklist document, where policies were expected";
    return false;
  }
  printed.Clear();
  if (!policies.document().policies.empty() &&
      !BuildConfiguration(&core.connection, 0, policies.document())) {
    *error = policiesFile + ": the build step refused it: " + ReaderMessage(printed.text());
    return false;
  }
  std::vector<std::string> notes;
  for (const std::string& note : policies.notes()) notes.push_back(policiesFile + ": " + note);
  if (!blacklistFile.empty()) {
    ImportReader blacklist(&printed, core.state, {});
    if (!ReadDocument(blacklistFile, &printed, &blacklist, error)) return false;
    if (blacklist.document().blacklists.empty()) {
      *error = blacklistFile + ": no blacklist in it, where a blacklist document was expected";
      return false;
    }
    printed.Clear();
    if (!BuildConfiguration(&core.connection, kBlacklistSet, blacklist.document())) {
      *error = blacklistFile + ": the build step refused it: " + ReaderMessage(printed.text());
      return false;
    }
  }
  const sim::Scenario* built = core.state->GetScenario();
  if (built == nullptr) {
    *error = "the simulated core has no scenario";
    return false;
  }
  sim::Scenario scenario = *built;
  // The core gives a policy its adding product's identifier; the host's is in the document.
  auto& store = scenario.policies.policies;
  // One entry per policy read, and every policy read was built, in the document's order.
  const size_t read = std::min(store.size(), policies.ppuids().size());
  for (size_t i = 0; i < read; ++i) {
    if (!policies.ppuids()[i]) continue;
    auto policy = std::make_shared<sim::PolicyModel>(*store[i]);
    policy->ppuid = *policies.ppuids()[i];
    store[i] = std::move(policy);
  }
  for (const ActionRestore& restore : policies.restores()) {
    if (restore.policy >= store.size()) continue;
    auto policy = std::make_shared<sim::PolicyModel>(*store[restore.policy]);
    if (!restore.group) {
      policy->defaultAction = restore.action;
    } else if (*restore.group < policy->groups.size() &&
               restore.rule < policy->groups[*restore.group].rules.size()) {
      policy->groups[*restore.group].rules[restore.rule].action = restore.action;
    }
    store[restore.policy] = std::move(policy);
  }
  scenario.document = sim::Json::object();
  scenario.source = policiesFile;
  scenario.captureNotes = std::move(notes);
  *out = std::move(scenario);
  return true;
}

}  // namespace nw::lab
