#pragma once

// What a piece of code writes to standard output, for the tests that pin a view's bytes.

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

namespace nw::testing {

/// Runs print with standard output captured and returns the bytes it wrote.
template <typename F>
std::string Printed(F&& print) {
  ::testing::internal::CaptureStdout();
  print();
  std::fflush(stdout);
  return ::testing::internal::GetCapturedStdout();
}

}  // namespace nw::testing
