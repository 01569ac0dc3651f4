#pragma once

// The files the lab reads: scenarios and the documents netwarden writes.

#include <cstddef>
#include <string>

namespace nw::lab {

/// The largest scenario or document the lab reads: 2 GiB. A capture lists every policy, rule
/// and connection, so a large host's (10,000 policies of 20 rules) is some hundreds of MiB.
inline constexpr size_t kMaxLabFileBytes = size_t{2} << 30;

/// The most values (objects, arrays and what they hold) a scenario the lab reads may have: a
/// capture of that host holds some 60 million.
inline constexpr size_t kMaxLabJsonValues = size_t{400} << 20;

/// A file named on the command line (UTF-8) as the tool's document reader takes a path.
std::wstring DocumentPath(const std::string& file);

/// Whether standard error goes to a terminal (where a progress line may be shown).
bool StandardErrorIsTerminal();

}  // namespace nw::lab
