#pragma once

// A scenario from the documents netwarden writes (-PolicyDisplayXml, -BlackListDisplayXml):
// what a customer can send without running anything new. The documents are read with the
// tool's own reader and built with its own build step into a simulated core held in memory,
// whose store becomes the scenario's policies and blacklist.

#include <cstddef>
#include <functional>
#include <string>

#include "sim/common/scenario.h"

namespace nw::lab {

/// Called after each policy a document gave, with the count so far.
using ImportProgress = std::function<void(size_t policies)>;

/// Reads the policy document policiesFile and, unless blacklistFile is empty, the blacklist
/// document blacklistFile into *out: their policies and blacklist, every other section at its
/// default. What the document format does not carry back as the host had it is not dropped
/// silently: each such value gives a line "<file>: <policy, group, rule>: <what>" in
/// out->captureNotes, saying what the scenario holds instead. On failure returns false with a
/// one-line *error naming the file, the place in the document and what was expected.
bool ImportDocuments(const std::string& policiesFile, const std::string& blacklistFile,
                     sim::Scenario* out, std::string* error, const ImportProgress& progress = {});

/// Whether a file's first character (after blanks) opens an XML document.
bool LooksLikeXml(const std::string& text);

}  // namespace nw::lab
