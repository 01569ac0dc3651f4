// libFuzzer target: any bytes as a policy or blacklist document, read by the document reader
// through the emulated host's XML reader. Nothing may crash, hang, leak or expand an entity;
// whatever the reader accepted is then built into a core that takes everything (the build step
// must cope with any records the reader lets through).

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#include "platform/posix/paths_posix.h"
#include "policy/policy_reader.h"

namespace {

std::string documentPath;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // The reader echoes every node; the fuzzer's own report goes to standard error.
  if (std::freopen("/dev/null", "w", stdout) == nullptr) return 1;
  char pattern[] = "/tmp/nw-reader-fuzz-XXXXXX";
  const int fd = ::mkstemp(pattern);
  if (fd < 0) return 1;
  ::close(fd);
  documentPath = pattern;
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::FILE* file = std::fopen(documentPath.c_str(), "wb");
  if (file == nullptr) return 0;
  std::fwrite(data, 1, size, file);
  std::fclose(file);
  nw::PolicyDocumentReader reader;
  reader.ReadPolicyDocument(nw::platform::posix::WindowsFormOf(documentPath).c_str());
  // Every record the reader linked is reachable and consistent.
  for (const nw::PolicyRecord& policy : reader.document().policies) {
    for (const nw::GroupRecord& group : policy.groups) {
      if (group.isDefault) __builtin_trap();
    }
    if (policy.defaultGroup && !policy.defaultGroup->isDefault) __builtin_trap();
  }
  return 0;
}
