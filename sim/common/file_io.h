#pragma once

// The file layer under the simulator's JSON files (the core scenario and the host state). Those
// files come from elsewhere (a colleague, a ticket, a generator), and the program may run as
// root in a folder that others can write: reading refuses what is not a plain file of a sane
// size, and saving never follows a name someone else planted. Paths are UTF-8 on both hosts.

#include <cstddef>
#include <string>
#include <string_view>

namespace nw::sim {

/// The largest scenario or host file that is read: 16 MiB. Generated content is described in a
/// few lines, so only hand-made listings come near it.
inline constexpr size_t kMaxJsonFileBytes = size_t{16} << 20;

/// Reads a whole regular file of at most limit bytes. Anything else (a directory, a FIFO, a
/// device, a socket) is refused without being read, as is a larger file. On failure returns
/// false with *error set to "<file>: <reason>":
///   "<file>: cannot open: <system message>"
///   "<file>: not a regular file (a directory)"  (or a FIFO, a character device, a block device,
///                                                 a socket)
///   "<file>: too large: <n> bytes (the limit is <limit>)"  (or "more than <limit> bytes" for a
///                                                        file that grew while it was read)
///   "<file>: cannot read: <system message>"
bool ReadRegularFile(const std::string& file, size_t limit, std::string* contents,
                     std::string* error);

/// Whether anything (a file, a directory, a link, ...) has this name.
bool FileExists(const std::string& file);

/// Names of the temporary files a save creates beside its target: this prefix, 16 lower-case
/// hexadecimal digits of random, and kSaveTemporarySuffix.
inline constexpr std::string_view kSaveTemporaryPrefix = ".nwsave-";
inline constexpr std::string_view kSaveTemporarySuffix = ".tmp";

/// Replaces a file's contents atomically. The data goes to the file a symbolic link points at
/// (the link stays); it is written into a temporary file beside that target, created so that
/// no name planted by someone else is ever followed or reused, flushed to disk and renamed over
/// the target, which keeps its permissions and, where the process may, its owner. A save
/// interrupted at any point leaves the old file whole; what an interrupted save left behind is
/// removed by the next save into the same folder. Returns false with *error set when any step
/// fails, in which case the old file is untouched.
bool WriteFileAtomically(const std::string& file, std::string_view contents, std::string* error);

/// Tests only: makes saves use a named temporary file even where the file system offers unnamed
/// ones, so that both ways are exercised. No effect on hosts without unnamed temporary files.
void UseNamedTemporaryFilesForTesting(bool named);

}  // namespace nw::sim
