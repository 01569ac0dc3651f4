// The yardstick for `netwarden -PolicyDisplay` over a generated policy set: the same bytes,
// formatted with snprintf straight from the generator's structures into one buffer and written
// with one fwrite. No interfaces, no wide text, no per-line writes: what is left is the cost of
// the text itself.
//
// Usage: policy_display_reference COUNT RULES MATCHES SEED OUTPUT

#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "sim/common/scenario_policies.h"

namespace {

using nw::Guid;
using nw::IpAddress;
using nw::sim::GeneratedPolicies;
using nw::sim::MatchModel;
using nw::sim::PolicyModel;
using nw::sim::RuleModel;
using nw::sim::TermModel;

// One growing block: realloc lets the system move pages rather than copy them, and nothing is
// cleared that is about to be written.
class Buffer {
 public:
  ~Buffer() { std::free(data_); }
  void Put(const char* format, ...) __attribute__((format(printf, 2, 3))) {
    if (size_ - used_ < 4096) {
      size_ = size_ * 2 + (1 << 20);
      data_ = static_cast<char*>(std::realloc(data_, size_));
      if (data_ == nullptr) std::abort();
    }
    va_list args;
    va_start(args, format);
    used_ += static_cast<size_t>(std::vsnprintf(data_ + used_, size_ - used_, format, args));
    va_end(args);
  }
  bool WriteTo(const char* path) const {
    FILE* file = std::fopen(path, "wb");
    if (file == nullptr) return false;
    const bool written = std::fwrite(data_, 1, used_, file) == used_;
    return std::fclose(file) == 0 && written;
  }

 private:
  char* data_ = nullptr;
  size_t size_ = 0;
  size_t used_ = 0;
};

Buffer out;

const char* const kMatchNames[] = {"FW_MATCH_INVALID",
                                   "FW_MATCH_USER_ID",
                                   "FW_MATCH_APP_PATH",
                                   "FW_MATCH_APP_COMMAND_LINE_PARAMS",
                                   "FW_MATCH_APP_MD5_HASH_SUM",
                                   "FW_MATCH_APP_VENDOR",
                                   "FW_MATCH_APP_DIGITAL_SIGNER",
                                   "FW_MATCH_LOCAL_PORT",
                                   "FW_MATCH_REMOTE_PORT",
                                   "FW_MATCH_ICMPV4_TYPE",
                                   "FW_MATCH_ICMPV6_TYPE",
                                   "FW_MATCH_TCP_FLAGS",
                                   "FW_MATCH_CONNECTION_STATE",
                                   "FW_MATCH_IP_PROTOCOL",
                                   "FW_MATCH_LOCAL_IP_ADDRESS",
                                   "FW_MATCH_REMOTE_IP_ADDRESS",
                                   "FW_MATCH_NETWORK_LAYER_PROTOCOL",
                                   "FW_MATCH_LOCAL_ADAPTER_ADDRESS",
                                   "FW_MATCH_REMOTE_ADAPTER_ADDRESS",
                                   "FW_MATCH_PHYSICAL_MEDIUM",
                                   "FW_MATCH_DIRECTION",
                                   "FW_MATCH_INTERFACE_INDEX_V6",
                                   "FW_MATCH_INTERFACE_INDEX_V4",
                                   "FW_MATCH_INTERFACE_INDEX",
                                   "FW_MATCH_BYTES_SENT",
                                   "FW_MATCH_BYTES_RECEIVED",
                                   "FW_MATCH_CONNSPEC_DNS_SUFFIX",
                                   "FW_MATCH_ADAPTER_DESCRIPTION",
                                   "FW_MATCH_SOURCE_IP_ADDRESS",
                                   "FW_MATCH_DESTINATION_IP_ADDRESS",
                                   "FW_MATCH_SOURCE_PORT",
                                   "FW_MATCH_DESTINATION_PORT",
                                   "FW_MATCH_SOURCE_ADAPTER_ADDRESS",
                                   "FW_MATCH_DESTINATION_ADAPTER_ADDRESS",
                                   "FW_MATCH_PROCESS_ID",
                                   "FW_MATCH_PE_FILE_DESCRIPTION",
                                   "FW_MATCH_STANDARDIZED_APP_PATH",
                                   "FW_MATCH_APP_DIGITAL_SIGNER_CASEINS",
                                   "FW_MATCH_IP_ADDRESS_IS_LOCAL",
                                   "FW_MATCH_CERT_HASH",
                                   "FW_MATCH_HTTP_SERVER",
                                   "FW_MATCH_HTTP_URI",
                                   "FW_MATCH_VTP_PRIVILEGES"};
const char* const kOpNames[] = {"FW_MATCH_OP_EQUAL",    "FW_MATCH_OP_EQUAL_NOT",
                                "FW_MATCH_OP_GEQ",      "FW_MATCH_OP_LEQ",
                                "FW_MATCH_OP_IN_RANGE", "FW_MATCH_OP_IN_RANGE_NOT",
                                "FW_MATCH_OP_BITMASK",  "FW_MATCH_OP_BITMASK_NOT"};
const char* const kStates[] = {"FWCS_UNKNOWN",      "FWCS_LISTEN",
                               "FWCS_INIT",         "FWCS_CONNECTING",
                               "FWCS_ESTABLISHED",  "FWCS_PROBATION_PENDING",
                               "FWCS_ON_PROBATION", "FWCS_PROBATION_FAILED",
                               "FWCS_TIMED_OUT",    "FWCS_CHILD_INIT"};
const char* const kMedia[] = {
    "FW_PHYSICAL_MEDIUM_INVALID",       "FW_PHYSICAL_MEDIUM_WIRED",
    "FW_PHYSICAL_MEDIUM_WIRELESS",      "FW_PHYSICAL_MEDIUM_VIRTUAL",
    "FW_PHYSICAL_MEDIUM_DIAL_UP",       "FW_PHYSICAL_MEDIUM_TUNNEL_TEREDO",
    "FW_PHYSICAL_MEDIUM_TUNNEL_6_TO_4", "FW_PHYSICAL_MEDIUM_TUNNEL_ISATAP"};

std::string Narrow(const std::wstring& text) { return std::string(text.begin(), text.end()); }

std::string GuidText(const Guid& g) {
  char text[40];
  std::snprintf(text, sizeof text, "%08x-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x", g.Data1,
                g.Data2, g.Data3, g.Data4[0], g.Data4[1], g.Data4[2], g.Data4[3], g.Data4[4],
                g.Data4[5], g.Data4[6], g.Data4[7]);
  return text;
}

std::string AddressText(const IpAddress& a) {
  char text[48];
  if (a.version == 4) {
    std::snprintf(text, sizeof text, "%u.%u.%u.%u", a.bytes[0], a.bytes[1], a.bytes[2], a.bytes[3]);
    return text;
  }
  std::string groups;
  for (int g = 0; g < 8; ++g) {
    std::snprintf(text, sizeof text, g == 0 ? "%x" : ":%x",
                  a.bytes[2 * g] << 8 | a.bytes[2 * g + 1]);
    groups += text;
  }
  return groups;
}

bool IsRange(int32_t op) { return op == 4 || op == 5; }

void PutValue(int32_t type, const TermModel& t, size_t terms) {
  if (type >= 0x10000) {
    out.Put("            Aggregate match with %d terms\n", static_cast<int>(terms));
    return;
  }
  switch (type) {
    case 4: {
      const uint8_t* b = t.bytes->storage.data();
      out.Put(
          "                value = %02x %02x %02x %02x %02x %02x %02x %02x %02x %02x %02x "
          "%02x %02x %02x %02x %02x\n",
          b[0], b[1], b[2], b[3], b[4], b[5], b[6], b[7], b[8], b[9], b[10], b[11], b[12], b[13],
          b[14], b[15]);
      return;
    }
    case 7:
    case 8:
    case 16:
    case 30:
    case 31:
      if (IsRange(t.op)) {
        out.Put("                low = 0x%x (%d), high = 0x%x (%d)\n", t.uint16Range->low,
                t.uint16Range->low, t.uint16Range->high, t.uint16Range->high);
      } else {
        out.Put("                value = 0x%x (%d)\n", *t.uint16, *t.uint16);
      }
      return;
    case 9:
    case 10:
    case 11:
    case 13:
      out.Put("                value = 0x%x (%d)\n", *t.uint8, *t.uint8);
      return;
    case 12:
      out.Put("                %s\n", kStates[*t.uint32]);
      return;
    case 19:
      out.Put("                %s\n", kMedia[*t.uint32]);
      return;
    case 20:
      out.Put(*t.uint32 == 1 ? "                inbound\n" : "                outbound\n");
      return;
    case 14:
    case 15:
    case 28:
    case 29:
      switch (t.AddressKind()) {
        case 1:
          out.Put("\t\t%s\n", AddressText(*t.ip).c_str());
          return;
        case 2:
          out.Put("\t\t%s\n\t\t%s\n", AddressText(t.ipRange->low).c_str(),
                  AddressText(t.ipRange->high).c_str());
          return;
        case 3:
          out.Put("                %s/%d\n", AddressText(*t.ip).c_str(), *t.prefix);
          return;
        default:
          out.Put("                %s\n", Narrow(t.string->text).c_str());
          return;
      }
    case 17:
    case 18:
    case 32:
    case 33: {
      const uint8_t* b = t.bytes->storage.data();
      if (t.bytes->count == 16) {
        out.Put(
            "                value = %02x-%02x-%02x-%02x-%02x-%02x-%02x-%02x "
            "%02x-%02x-%02x-%02x-%02x-%02x-%02x-%02x\n",
            b[0], b[1], b[2], b[3], b[4], b[5], b[6], b[7], b[8], b[9], b[10], b[11], b[12], b[13],
            b[14], b[15]);
      } else {
        out.Put("                value = %02x-%02x-%02x-%02x-%02x-%02x-%02x-%02x\n", b[0], b[1],
                b[2], b[3], b[4], b[5], b[6], b[7]);
      }
      return;
    }
    case 23:
      if (IsRange(t.op)) {
        out.Put("                low = 0x%" PRIx64 " (%" PRId64 "), high = 0x%" PRIx64 " (%" PRId64
                ")\n",
                t.uint64Range->low, t.uint64Range->low, t.uint64Range->high, t.uint64Range->high);
        return;
      }
      [[fallthrough]];
    case 24:
    case 25:
    case 34:
    case 42:
      out.Put("                value = 0x%" PRIx64 " (%" PRId64 ")\n", *t.uint64, *t.uint64);
      return;
    case 38:
      return;
    default:
      out.Put("                string = %s\n", Narrow(t.string->text).c_str());
      return;
  }
}

void PutMatch(const MatchModel& m) {
  out.Put("            Match\n");
  if (m.type >= 0x10000) {
    out.Put("                aggregate match %d\n", m.type);
  } else {
    out.Put("                match type: %s (%d)\n", kMatchNames[m.type], m.type);
  }
  for (const TermModel& t : m.terms) {
    out.Put("\n                op = %s\n", kOpNames[t.op]);
    PutValue(m.type, t, m.terms.size());
  }
}

void PutRuleTakingJumps(const PolicyModel& p, const RuleModel& rule) {
  out.Put("        Rule\n            Name: %s\n", Narrow(rule.name.value_or(L"")).c_str());
  for (const MatchModel& m : rule.matches) {
    PutMatch(m);
    if (m.type < 0x10000) continue;
    for (const auto& a : p.aggregates) {
      if (!(a.uid == *m.terms[0].aggregate)) continue;
      out.Put(
          "                Aggregate Match\n                    Name: %s\n                    "
          "Or operator: %s\n",
          Narrow(a.name.value_or(L"")).c_str(), a.orOperator ? "true" : "false");
      for (const MatchModel& member : a.matches) PutMatch(member);
      out.Put("                    ====================================\n\n");
    }
  }
  out.Put("    ====================================\n\n");
}

// Evaluation order: a jump continues in its target group and returns after it; a group already
// on the way is not entered again.
void WalkGroup(const PolicyModel& p, size_t group, std::vector<size_t>& path) {
  path.push_back(group);
  for (const RuleModel& rule : p.groups[group].rules) {
    PutRuleTakingJumps(p, rule);
    if (rule.action != 9) continue;
    for (size_t g = 0; g < p.groups.size(); ++g) {
      bool onPath = false;
      for (size_t on : path) onPath = onPath || on == g;
      if (p.groups[g].uid == rule.target && !onPath) WalkGroup(p, g, path);
    }
  }
  path.pop_back();
}

void PutPolicy(const PolicyModel& p) {
  out.Put("    Policy %s:\n           %s\n", GuidText(p.uid).c_str(),
          Narrow(p.name.value_or(L"")).c_str());
  out.Put("    LINEAR ITERATION\n    ====================================\n\n");
  for (const auto& a : p.aggregates) {
    out.Put("        Aggregate Match\n            Name: %s\n            Or operator: %s\n",
            Narrow(a.name.value_or(L"")).c_str(), a.orOperator ? "true" : "false");
    for (const MatchModel& m : a.matches) PutMatch(m);
    out.Put("    ====================================\n\n");
  }
  for (const auto& g : p.groups) {
    for (const RuleModel& rule : g.rules) {
      out.Put("        Rule\n            Name: %s\n", Narrow(rule.name.value_or(L"")).c_str());
      for (const MatchModel& m : rule.matches) PutMatch(m);
      out.Put("            ====================================\n\n");
    }
  }
  out.Put("    TAKE JUMPS ITERATION\n    ====================================\n\n");
  std::vector<size_t> path;
  if (!p.groups.empty()) WalkGroup(p, 0, path);
}

void PutType(const GeneratedPolicies& set, int32_t type, const char* name) {
  uint32_t count = 0;
  for (uint32_t i = 0; i < set.count; ++i) count += nw::sim::GeneratedPolicyType(i) == type;
  if (count == 0) {
    out.Put("There are no %s policies.\n", name);
  } else if (count == 1) {
    out.Put("There is one %s policy.\n", name);
  } else {
    out.Put("There are %d %s policies.\n", static_cast<int>(count), name);
  }
  out.Put("====================================\n\n");
  for (uint32_t i = 0; i < set.count; ++i) {
    if (nw::sim::GeneratedPolicyType(i) == type) PutPolicy(nw::sim::GeneratePolicy(set, i));
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 6) {
    std::fprintf(stderr, "usage: %s COUNT RULES MATCHES SEED OUTPUT\n", argv[0]);
    return 2;
  }
  const GeneratedPolicies set{static_cast<uint32_t>(std::strtoul(argv[1], nullptr, 10)),
                              static_cast<uint32_t>(std::strtoul(argv[2], nullptr, 10)),
                              static_cast<uint32_t>(std::strtoul(argv[3], nullptr, 10)),
                              std::strtoull(argv[4], nullptr, 10)};
  out.Put("\n\nDISPLAYING ALL POLICIES...\n\n");
  PutType(set, 2, "FW_POLICY_TYPE_PACKET");
  out.Put("\n====================================\n\n");
  PutType(set, 4, "FW_POLICY_TYPE_STREAM");
  return out.WriteTo(argv[5]) ? 0 : 1;
}
