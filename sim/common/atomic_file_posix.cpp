// Saving a file so that a crash, a kill or a concurrent save never leaves it torn, and so that
// nobody who can write its directory can make a save (perhaps run as root) write elsewhere.
//
// The data goes into an unnamed temporary file (O_TMPFILE) in the target's directory, which is
// given a random name only once it is complete and flushed, and is then renamed over the
// target. Where the file system has no unnamed files, the temporary file gets its random name
// at creation, exclusively and without following links. Each temporary file is locked (flock)
// by its writer for as long as it exists, so the next save can tell what a killed save left
// behind (nobody holds its lock) from another save still at work, and removes it.

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <string>

#include "sim/common/file_io.h"

namespace nw::sim {
namespace {

std::atomic<bool> namedTemporariesOnly{false};

// As many links as the kernel follows in one path lookup.
constexpr int kMaxLinkHops = 40;
// A named temporary file is created empty and locked at once; an empty one younger than this
// may be a save between those two steps, and is left alone.
constexpr time_t kEmptyTemporaryGraceSeconds = 60;
constexpr int kNameAttempts = 100;
constexpr size_t kRandomDigits = 16;

std::string SystemMessage(int error) { return std::strerror(error); }

std::string RandomHex() {
  uint64_t value = 0;
  // A request this small comes whole once the kernel's pool is ready. Should it fail anyway (a
  // kernel without getrandom), the name is still created exclusively and never through a
  // link, only less unpredictable: the clock and a counter stand in.
  if (::getrandom(&value, sizeof value, 0) != static_cast<ssize_t>(sizeof value)) {
    static std::atomic<uint64_t> counter{0};
    value = static_cast<uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count()) *
                0x9E3779B97F4A7C15ull +
            ++counter;
  }
  std::string hex(kRandomDigits, '0');
  static const char kDigits[] = "0123456789abcdef";
  for (size_t i = hex.size(); i-- > 0; value >>= 4) hex[i] = kDigits[value & 15];
  return hex;
}

std::string TemporaryName() {
  return std::string(kSaveTemporaryPrefix) + RandomHex() + std::string(kSaveTemporarySuffix);
}

bool IsTemporaryName(std::string_view name) {
  if (name.size() != kSaveTemporaryPrefix.size() + kRandomDigits + kSaveTemporarySuffix.size() ||
      name.substr(0, kSaveTemporaryPrefix.size()) != kSaveTemporaryPrefix ||
      name.substr(name.size() - kSaveTemporarySuffix.size()) != kSaveTemporarySuffix) {
    return false;
  }
  const std::string_view digits = name.substr(kSaveTemporaryPrefix.size(), kRandomDigits);
  return digits.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

/// Follows symbolic links at the end of file to the file they name, so that a save replaces
/// the target and keeps the link. A link owned by someone other than root or this user is not
/// followed: whoever could plant it could otherwise point a save run as root anywhere.
bool ResolveTarget(const std::string& file, std::string* target, std::string* error) {
  std::string path = file;
  for (int hop = 0;; ++hop) {
    struct stat st;
    if (::lstat(path.c_str(), &st) != 0) {
      if (errno == ENOENT) {  // a new file, or a link to one that does not exist yet
        *target = path;
        return true;
      }
      *error = path + ": cannot look at it: " + SystemMessage(errno);
      return false;
    }
    if (!S_ISLNK(st.st_mode)) {
      *target = path;
      return true;
    }
    if (hop == kMaxLinkHops) {
      *error = file + ": too many levels of symbolic links";
      return false;
    }
    if (st.st_uid != 0 && st.st_uid != ::geteuid()) {
      *error = path + ": a symbolic link owned by another user (uid " + std::to_string(st.st_uid) +
               ") is not followed";
      return false;
    }
    std::string link(PATH_MAX, '\0');
    const ssize_t n = ::readlink(path.c_str(), link.data(), link.size());
    if (n < 0 || static_cast<size_t>(n) >= link.size()) {
      *error =
          path + ": cannot read the symbolic link: " + SystemMessage(n < 0 ? errno : ENAMETOOLONG);
      return false;
    }
    link.resize(static_cast<size_t>(n));
    const size_t slash = path.rfind('/');
    path = link[0] == '/' || slash == std::string::npos ? link : path.substr(0, slash + 1) + link;
  }
}

/// Removes the temporary files of saves that were killed before they finished: files of the
/// temporary naming pattern, owned by this user, whose lock nobody holds.
void SweepStaleTemporaries(int dirfd) {
  const int scan = ::openat(dirfd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (scan < 0) return;
  DIR* dir = ::fdopendir(scan);
  if (dir == nullptr) {
    ::close(scan);
    return;
  }
  const time_t now = std::time(nullptr);
  while (const dirent* entry = ::readdir(dir)) {
    if (!IsTemporaryName(entry->d_name)) continue;
    const int fd =
        ::openat(dirfd, entry->d_name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) continue;
    struct stat st;
    struct stat named;
    if (::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_uid == ::geteuid() &&
        (st.st_size > 0 || now - st.st_mtime >= kEmptyTemporaryGraceSeconds) &&
        ::flock(fd, LOCK_EX | LOCK_NB) == 0 &&
        ::fstatat(dirfd, entry->d_name, &named, AT_SYMLINK_NOFOLLOW) == 0 &&
        named.st_dev == st.st_dev && named.st_ino == st.st_ino) {
      ::unlinkat(dirfd, entry->d_name, 0);
    }
    ::close(fd);
  }
  ::closedir(dir);
}

struct Temporary {
  int fd = -1;
  std::string name;  // empty while the file has no name
};

bool CreateTemporary(int dirfd, const std::string& dir, mode_t mode, Temporary* temp,
                     std::string* error) {
  const std::string cannot = dir + ": cannot create a temporary file: ";
  if (!namedTemporariesOnly) {
    const int fd = ::openat(dirfd, ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, mode);
    if (fd >= 0) {
      ::flock(fd, LOCK_EX);
      temp->fd = fd;
      return true;
    }
    // Only a file system (or kernel) without unnamed files moves on to a named one.
    if (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL) {
      *error = cannot + SystemMessage(errno);
      return false;
    }
  }
  for (int attempt = 0; attempt < kNameAttempts; ++attempt) {
    const std::string name = TemporaryName();
    const int fd =
        ::openat(dirfd, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode);
    if (fd >= 0) {
      ::flock(fd, LOCK_EX);
      temp->fd = fd;
      temp->name = name;
      return true;
    }
    if (errno != EEXIST) {
      *error = cannot + SystemMessage(errno);
      return false;
    }
  }
  *error = cannot + "every name tried was taken";
  return false;
}

/// Gives an unnamed temporary file a random name in its directory.
bool NameTemporary(int dirfd, const std::string& dir, Temporary* temp, std::string* error) {
  const std::string self = "/proc/self/fd/" + std::to_string(temp->fd);
  for (int attempt = 0; attempt < kNameAttempts; ++attempt) {
    const std::string name = TemporaryName();
    int linked = ::linkat(AT_FDCWD, self.c_str(), dirfd, name.c_str(), AT_SYMLINK_FOLLOW);
    // Without /proc, the descriptor itself (which needs the right to read any file).
    if (linked != 0 && errno == ENOENT)
      linked = ::linkat(temp->fd, "", dirfd, name.c_str(), AT_EMPTY_PATH);
    if (linked == 0) {
      temp->name = name;
      return true;
    }
    if (errno != EEXIST) {
      *error = dir + ": cannot name the temporary file: " + SystemMessage(errno);
      return false;
    }
  }
  *error = dir + ": cannot name the temporary file: every name tried was taken";
  return false;
}

bool WriteAll(int fd, std::string_view contents, const std::string& target, std::string* error) {
  size_t written = 0;
  while (written < contents.size()) {
    const ssize_t n = ::write(fd, contents.data() + written, contents.size() - written);
    if (n < 0) {
      if (errno == EINTR) continue;
      *error = target + ": cannot write: " + SystemMessage(errno);
      return false;
    }
    written += static_cast<size_t>(n);
  }
  return true;
}

/// The replacement takes the old file's owner (where this process may give it away) and its
/// permission bits, in that order, since a change of owner clears the set-id bits.
bool KeepOwnerAndMode(int fd, const struct stat& old, const std::string& target,
                      std::string* error) {
  if (::fchown(fd, old.st_uid, old.st_gid) != 0) {
    // Not root: keep at least the group, when this user belongs to it.
    (void)::fchown(fd, static_cast<uid_t>(-1), old.st_gid);
  }
  if (::fchmod(fd, old.st_mode & 07777) != 0) {
    *error = target + ": cannot keep its permissions: " + SystemMessage(errno);
    return false;
  }
  return true;
}

bool SaveInto(int dirfd, const std::string& dir, const std::string& base, const std::string& target,
              std::string_view contents, std::string* error) {
  struct stat old;
  const bool exists = ::fstatat(dirfd, base.c_str(), &old, AT_SYMLINK_NOFOLLOW) == 0;
  if (!exists && errno != ENOENT) {
    *error = target + ": cannot look at it: " + SystemMessage(errno);
    return false;
  }
  if (exists && !S_ISREG(old.st_mode)) {
    *error = target + ": not a regular file";
    return false;
  }
  SweepStaleTemporaries(dirfd);
  Temporary temp;
  // Private until complete when it replaces a file whose permissions it then takes.
  if (!CreateTemporary(dirfd, dir, exists ? 0600 : 0644, &temp, error)) return false;
  bool ok = WriteAll(temp.fd, contents, target, error) &&
            (!exists || KeepOwnerAndMode(temp.fd, old, target, error));
  if (ok && ::fsync(temp.fd) != 0) {
    *error = target + ": cannot flush: " + SystemMessage(errno);
    ok = false;
  }
  if (ok && temp.name.empty()) ok = NameTemporary(dirfd, dir, &temp, error);
  if (ok && ::renameat(dirfd, temp.name.c_str(), dirfd, base.c_str()) != 0) {
    *error = target + ": cannot replace: " + SystemMessage(errno);
    ok = false;
  }
  if (!ok && !temp.name.empty()) ::unlinkat(dirfd, temp.name.c_str(), 0);
  // The rename itself reaches the disk with the directory. A failure here loses nothing that a
  // crash right after a successful call would not.
  if (ok) (void)::fsync(dirfd);
  ::close(temp.fd);
  return ok;
}

}  // namespace

void UseNamedTemporaryFilesForTesting(bool named) { namedTemporariesOnly = named; }

bool WriteFileAtomically(const std::string& file, std::string_view contents, std::string* error) {
  std::string target;
  if (!ResolveTarget(file, &target, error)) return false;
  const size_t slash = target.rfind('/');
  const std::string dir =
      slash == std::string::npos ? "." : (slash == 0 ? "/" : target.substr(0, slash));
  const std::string base = slash == std::string::npos ? target : target.substr(slash + 1);
  if (base.empty()) {
    *error = file + ": names a directory, not a file";
    return false;
  }
  const int dirfd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dirfd < 0) {
    *error = dir + ": cannot open the directory: " + SystemMessage(errno);
    return false;
  }
  const bool ok = SaveInto(dirfd, dir, base, target, contents, error);
  ::close(dirfd);
  return ok;
}

}  // namespace nw::sim
