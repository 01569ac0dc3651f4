#pragma once

// The conformance programs' expectations: the Windows build has no test framework, so each
// program prints every failed expectation and exits with 1 when there was any.

#include <cstdint>
#include <cstdio>
#include <string>

namespace nw::conformance {

inline int failures = 0;

inline void Expect(bool ok, const std::string& what) {
  if (ok) return;
  ++failures;
  std::printf("FAILED: %s\n", what.c_str());
}

inline void ExpectEqual(uint32_t actual, uint32_t expected, const std::string& what) {
  Expect(actual == expected,
         what + ": " + std::to_string(actual) + ", expected " + std::to_string(expected));
}

/// The program's last line and exit status.
inline int Verdict(const std::string& more = std::string()) {
  std::printf("%s: %d failed%s\n", failures == 0 ? "passed" : "FAILED", failures, more.c_str());
  return failures == 0 ? 0 : 1;
}

}  // namespace nw::conformance
