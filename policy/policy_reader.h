#pragma once

// The policy document reader: a policy or blacklist document (the elements the document writer
// produces) turned into plain records for the build step. The reader echoes every node it
// reads, checks each element's place and value, and stops at the first refusal with what it
// had read kept. One reader object holds one document's state.

#include <cstdint>
#include <deque>
#include <optional>
#include <string>

#include "core/guid.h"
#include "core/ip_address.h"
#include "core/policy_values.h"
#include "core/status.h"

namespace nw {

struct ActionRecord {
  int32_t type = 0;
  std::optional<Guid> target;
  uint32_t length = 0;
  IpAddress redirectAddress{};
  uint16_t redirectPort = 0;
  int64_t redirectValue = 0;
};

struct MatchRecord {
  int32_t type = 0;
  /// FW_MATCH_OP_LAST: not given.
  int32_t op = FW_MATCH_OP_LAST;
  /// The value text as written; the build step interprets it by the type.
  std::wstring value;
};

struct RuleRecord {
  std::optional<std::wstring> name;
  std::optional<Guid> uid;
  bool enabled = false, hotDropIfNotMatch = false, teredo = false, teredoAwareApp = false,
       invertMatch = false;
  int32_t logOption = 0;
  std::optional<uint32_t> logThrottle;
  std::optional<ActionRecord> action;
  std::deque<MatchRecord> matches;
};

struct GroupRecord {
  std::optional<std::wstring> name;
  std::optional<Guid> uid;
  bool isDefault = false;
  std::deque<RuleRecord> rules;
};

struct AggregateRecord {
  std::optional<std::wstring> name;
  std::optional<Guid> uid;
  bool orOperator = false;
  std::deque<MatchRecord> matches;
};

struct PolicyRecord {
  std::optional<Guid> uid;
  std::optional<Guid> pointProduct;
  std::optional<std::wstring> name;
  int32_t type = 0;
  bool stateful = true, sticky = false, bootTimeOnly = false;
  int32_t defaultLogOption = 0;
  std::optional<ActionRecord> defaultAction;
  std::optional<GroupRecord> defaultGroup;
  std::deque<GroupRecord> groups;
  std::deque<AggregateRecord> aggregates;
};

struct RangeRecord {
  std::optional<IpAddress> low;
  std::optional<IpAddress> high;
  uint32_t timeToLive = 0;
};

struct BlacklistRecord {
  int32_t logOption = 0;
  std::deque<RangeRecord> ranges;
};

/// What a document gave, in document order. Deques, so that a record stays where it is while
/// later ones are added.
struct PolicyDocument {
  std::deque<PolicyRecord> policies;
  std::deque<BlacklistRecord> blacklists;
};

class PolicyDocumentReader {
 public:
  PolicyDocumentReader() = default;
  virtual ~PolicyDocumentReader() = default;
  PolicyDocumentReader(const PolicyDocumentReader&) = delete;
  PolicyDocumentReader& operator=(const PolicyDocumentReader&) = delete;

  /// Reads the file at path (a Windows-form path) through the platform's XML reader, echoing
  /// every node. True when the input ended without a refusal; a malformed document ends
  /// quietly where it breaks, with what was read kept. Opening failures print their message.
  bool ReadPolicyDocument(const wchar_t* path);

  /// The node loop's three handlers; each prints its messages and answers whether the element
  /// or value is accepted. Virtual so that a reader of many documents (the lab's import) can
  /// see each node in its place and hand on what the format can carry.
  virtual bool OpenElement(const wchar_t* name);
  virtual bool TakeValue(const wchar_t* text);
  virtual bool CloseElement(const wchar_t* name);

  /// What ended the node loop: kXmlFalse at the end of the input, 0 when it stopped at a node
  /// (refused, or unreadable), any other status when the document is malformed from there on.
  Status endStatus() const { return endStatus_; }

  const PolicyDocument& document() const { return document_; }
  /// The records being filled when the reading stopped (for the build step's error context).
  const PolicyRecord* currentPolicy() const { return policy_; }

 private:
  bool RecordOpenFor(int pending) const;
  bool ActionComplete() const;
  bool TakeEnumeration(int32_t* field, int which, const wchar_t* text);

  PolicyDocument document_;
  PolicyRecord* policy_ = nullptr;
  AggregateRecord* aggregate_ = nullptr;
  GroupRecord* group_ = nullptr;
  RuleRecord* rule_ = nullptr;
  MatchRecord* match_ = nullptr;
  ActionRecord* action_ = nullptr;
  BlacklistRecord* blacklist_ = nullptr;
  RangeRecord* range_ = nullptr;
  /// The text expected next (odd codes) or just taken (the done codes); 0: none.
  int pending_ = 0;
  Status endStatus_ = kStatusOk;
};

}  // namespace nw
