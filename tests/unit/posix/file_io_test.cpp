// The file layer under the scenario and host files on the emulated host: what reading refuses,
// and that saving neither tears a file nor writes where it must not, whatever happens around it
// (links, other users, concurrent saves, kills, a full disk, a read-only directory).

#include "sim/common/file_io.h"

#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "sim/common/json_util.h"
#include "sim/common/library_state.h"

namespace nw::sim {
namespace {

constexpr uid_t kOtherUser = 65534;  // nobody

class TempDir {
 public:
  TempDir() {
    char pattern[] = "/tmp/nw-file-io-XXXXXX";
    path_ = ::mkdtemp(pattern);
    // Traversable, so that a child running as another user reaches its files.
    ::chmod(path_.c_str(), 0755);
  }
  ~TempDir() { std::system(("chmod -R u+rwx '" + path_ + "'; rm -rf '" + path_ + "'").c_str()); }
  const std::string& path() const { return path_; }
  std::string File(const std::string& name) const { return path_ + "/" + name; }
  std::string Write(const std::string& name, const std::string& text, mode_t mode = 0644) const {
    const std::string file = File(name);
    std::ofstream(file, std::ios::binary) << text;
    ::chmod(file.c_str(), mode);
    return file;
  }

 private:
  std::string path_;
};

std::string ReadAll(const std::string& file) {
  std::ifstream in(file, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

/// The names in dir that look like a save's temporary file.
std::vector<std::string> Temporaries(const std::string& dir) {
  std::vector<std::string> names;
  DIR* d = ::opendir(dir.c_str());
  if (d == nullptr) return names;
  while (const dirent* entry = ::readdir(d)) {
    if (std::string(entry->d_name).rfind(std::string(kSaveTemporaryPrefix), 0) == 0) {
      names.push_back(entry->d_name);
    }
  }
  ::closedir(d);
  return names;
}

/// Runs body in a child process and hands back what it returned (gtest assertions do not cross
/// a fork, so the parent checks).
std::string InChild(const std::function<std::string()>& body) {
  int fds[2];
  if (::pipe(fds) != 0) return "pipe failed";
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::close(fds[0]);
    const std::string result = body();
    (void)!::write(fds[1], result.data(), result.size());
    ::_exit(0);
  }
  ::close(fds[1]);
  std::string result;
  char buffer[512];
  ssize_t n;
  while ((n = ::read(fds[0], buffer, sizeof buffer)) > 0)
    result.append(buffer, static_cast<size_t>(n));
  ::close(fds[0]);
  int status = 0;
  ::waitpid(pid, &status, 0);
  return result;
}

/// In a child: give up root, if the tests run as root, so that permissions apply.
bool BecomeOtherUserIfRoot() {
  if (::geteuid() != 0) return true;
  return ::setgroups(0, nullptr) == 0 && ::setresgid(kOtherUser, kOtherUser, kOtherUser) == 0 &&
         ::setresuid(kOtherUser, kOtherUser, kOtherUser) == 0;
}

std::string Save(const std::string& file, const std::string& text) {
  std::string error;
  return WriteFileAtomically(file, text, &error) ? "" : error;
}

// ---- Reading --------------------------------------------------------------------------------

TEST(ReadRegularFileTest, RefusesWhatIsNotAPlainFileOfASaneSize) {
  TempDir dir;
  dir.Write("ten.json", "0123456789");
  dir.Write("eleven.json", "0123456789A");
  ::symlink("ten.json", dir.File("link.json").c_str());
  ::mkdir(dir.File("folder").c_str(), 0755);
  ::mkfifo(dir.File("fifo").c_str(), 0644);
  ::symlink("fifo", dir.File("link-to-fifo").c_str());
  const int sock = ::socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, dir.File("socket").c_str(), sizeof address.sun_path - 1);
  ASSERT_EQ(::bind(sock, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);

  const struct {
    std::string file;
    size_t limit;
    std::string error;  // after "<file>: "; empty: read
  } cases[] = {
      {dir.File("ten.json"), 10, ""},
      {dir.File("link.json"), 10, ""},
      {dir.File("eleven.json"), 10, "too large: 11 bytes (the limit is 10)"},
      {dir.File("folder"), 10, "not a regular file (a directory)"},
      {dir.File("fifo"), 10, "not a regular file (a FIFO)"},  // and no wait for a writer
      {dir.File("link-to-fifo"), 10, "not a regular file (a FIFO)"},
      {"/dev/null", 10, "not a regular file (a character device)"},
      {"/dev/zero", 10, "not a regular file (a character device)"},
      {dir.File("socket"), 10, "not a regular file (a socket)"},
      {dir.File("missing.json"), 10, "cannot open: No such file or directory"},
      // Its size says 0, yet it holds more: what is read is bounded all the same.
      {"/proc/self/status", 16, "too large: more than 16 bytes (the limit is 16)"},
  };
  for (const auto& c : cases) {
    std::string contents = "untouched";
    std::string error;
    const bool read = ReadRegularFile(c.file, c.limit, &contents, &error);
    if (c.error.empty()) {
      EXPECT_TRUE(read) << error;
      EXPECT_EQ(contents, "0123456789") << c.file;
    } else {
      EXPECT_FALSE(read) << c.file;
      EXPECT_EQ(error, c.file + ": " + c.error);
      EXPECT_EQ(contents, "untouched") << c.file;
    }
  }
  ::close(sock);
}

TEST(ReadRegularFileTest, JsonFilesAreLimitedBeforeTheyAreRead) {
  TempDir dir;
  // Sparse files: the size is what counts, nothing needs writing.
  const struct {
    off_t size;
    std::string error;  // after "<file>: "
  } cases[] = {
      {static_cast<off_t>(kMaxJsonFileBytes) + 1,
       "too large: 16777217 bytes (the limit is 16777216)"},
      // At the limit the file is read, and its zeros are what is wrong with it.
      {static_cast<off_t>(kMaxJsonFileBytes), "not valid JSON: a NUL byte at offset 0"},
  };
  for (const auto& c : cases) {
    const std::string file = dir.Write("sparse.json", "");
    ASSERT_EQ(::truncate(file.c_str(), c.size), 0);
    Json doc;
    std::string error;
    EXPECT_FALSE(LoadJsonFile(file, &doc, &error));
    EXPECT_EQ(error, file + ": " + c.error);
  }
}

// ---- Saving ---------------------------------------------------------------------------------

// Each saving test runs with unnamed temporary files (where the file system has them) and with
// named ones.
class SaveTest : public ::testing::TestWithParam<bool> {
 protected:
  void SetUp() override { UseNamedTemporaryFilesForTesting(GetParam()); }
  void TearDown() override { UseNamedTemporaryFilesForTesting(false); }
};

INSTANTIATE_TEST_SUITE_P(Temporaries, SaveTest, ::testing::Values(false, true),
                         [](const auto& test) { return test.param ? "Named" : "Unnamed"; });

TEST_P(SaveTest, ReplacesTheFileKeepingItsPermissions) {
  TempDir dir;
  const mode_t oldMask = ::umask(022);
  const struct {
    const char* name;
    std::optional<mode_t> before;  // none: no file yet
    mode_t after;
  } cases[] = {
      {"new.json", std::nullopt, 0644}, {"private.json", 0600, 0600},  {"group.json", 0640, 0640},
      {"read-only.json", 0444, 0444},   {"setgid.json", 02664, 02664},
  };
  for (const auto& c : cases) {
    const std::string file = c.before ? dir.Write(c.name, "old", *c.before) : dir.File(c.name);
    struct stat before {};
    ::stat(file.c_str(), &before);
    EXPECT_EQ(Save(file, "{\"new\": 1}\n"), "") << c.name;
    EXPECT_EQ(ReadAll(file), "{\"new\": 1}\n") << c.name;
    struct stat after {};
    ASSERT_EQ(::stat(file.c_str(), &after), 0);
    EXPECT_EQ(after.st_mode & 07777, c.after) << c.name;
    // Replaced by a rename, never rewritten in place where a reader could see half of it.
    if (c.before) {
      EXPECT_NE(after.st_ino, before.st_ino) << c.name;
    }
  }
  ::umask(oldMask);
  EXPECT_TRUE(Temporaries(dir.path()).empty());
}

TEST_P(SaveTest, ThroughSymbolicLinksTheTargetChangesAndTheLinksStay) {
  TempDir dir;
  ::mkdir(dir.File("data").c_str(), 0755);
  ::mkdir(dir.File("links").c_str(), 0755);
  dir.Write("data/target.json", "old");
  const struct {
    const char* link;
    std::string pointsAt;
    const char* target;  // relative to dir
  } cases[] = {
      {"links/relative.json", "../data/target.json", "data/target.json"},
      {"links/absolute.json", dir.File("data/target.json"), "data/target.json"},
      {"links/chain.json", "relative.json", "data/target.json"},
      {"links/dangling.json", "../data/created.json", "data/created.json"},
  };
  for (const auto& c : cases) {
    ASSERT_EQ(::symlink(c.pointsAt.c_str(), dir.File(c.link).c_str()), 0);
    const std::string text = std::string("{\"through\": \"") + c.link + "\"}\n";
    EXPECT_EQ(Save(dir.File(c.link), text), "") << c.link;
    EXPECT_EQ(ReadAll(dir.File(c.target)), text) << c.link;
    char link[4096] = {};
    ASSERT_GT(::readlink(dir.File(c.link).c_str(), link, sizeof link - 1), 0) << c.link;
    EXPECT_EQ(link, c.pointsAt) << "the link is kept as it was";
    EXPECT_TRUE(Temporaries(dir.File("data")).empty());
    EXPECT_TRUE(Temporaries(dir.File("links")).empty());
  }
}

TEST_P(SaveTest, RelativePathsSaveFromTheCurrentDirectory) {
  TempDir dir;
  ::mkdir(dir.File("d").c_str(), 0755);
  char previous[PATH_MAX];
  ASSERT_NE(::getcwd(previous, sizeof previous), nullptr);
  ASSERT_EQ(::chdir(dir.path().c_str()), 0);
  ::symlink("d/target.json", "link.json");
  const struct {
    const char* file;
    const char* written;  // where the text lands
  } cases[] = {
      {"plain.json", "plain.json"}, {"d/x.json", "d/x.json"}, {"link.json", "d/target.json"}};
  for (const auto& c : cases) {
    EXPECT_EQ(Save(c.file, c.file), "") << c.file;
    EXPECT_EQ(ReadAll(dir.File(c.written)), c.file);
  }
  EXPECT_EQ(::chdir(previous), 0);
  EXPECT_TRUE(Temporaries(dir.path()).empty());
  EXPECT_TRUE(Temporaries(dir.File("d")).empty());
}

TEST_P(SaveTest, RefusesWhatItMustNotWriteThrough) {
  TempDir dir;
  ::symlink("loop-b.json", dir.File("loop-a.json").c_str());
  ::symlink("loop-a.json", dir.File("loop-b.json").c_str());
  ::mkdir(dir.File("folder.json").c_str(), 0755);
  const std::string victim = dir.Write("victim", "precious");
  ::symlink(victim.c_str(), dir.File("planted.json").c_str());
  const bool root = ::geteuid() == 0;
  if (root) ::lchown(dir.File("planted.json").c_str(), kOtherUser, kOtherUser);

  const struct {
    std::string file;
    std::string error;
    bool needsRoot;
  } cases[] = {
      {dir.File("loop-a.json"), dir.File("loop-a.json") + ": too many levels of symbolic links",
       false},
      {dir.File("folder.json"), dir.File("folder.json") + ": not a regular file", false},
      {dir.File("folder.json") + "/", dir.File("folder.json") + "/: names a directory, not a file",
       false},
      {dir.File("none/x.json"),
       dir.File("none") + ": cannot open the directory: No such file or directory", false},
      // A link someone else planted: whoever could plant it must not steer a save run as root.
      {dir.File("planted.json"),
       dir.File("planted.json") + ": a symbolic link owned by another user (uid 65534) is not "
                                  "followed",
       true},
  };
  for (const auto& c : cases) {
    if (c.needsRoot && !root) continue;
    EXPECT_EQ(Save(c.file, "new"), c.error);
  }
  EXPECT_EQ(ReadAll(victim), "precious");
  EXPECT_TRUE(Temporaries(dir.path()).empty());
}

TEST_P(SaveTest, KeepsTheOwnerWhereItMay) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can give a file away";
  TempDir dir;
  const std::string file = dir.Write("owned.json", "old", 0604);
  ASSERT_EQ(::chown(file.c_str(), kOtherUser, kOtherUser), 0);
  EXPECT_EQ(Save(file, "new"), "");
  struct stat st {};
  ASSERT_EQ(::stat(file.c_str(), &st), 0);
  EXPECT_EQ(st.st_uid, kOtherUser);
  EXPECT_EQ(st.st_gid, kOtherUser);
  EXPECT_EQ(st.st_mode & 07777, 0604u);
  EXPECT_EQ(ReadAll(file), "new");
}

TEST_P(SaveTest, NamesNearTheLengthLimitSave) {
  TempDir dir;
  for (size_t length : {size_t{250}, size_t{NAME_MAX}}) {
    const std::string file = dir.File(std::string(length - 5, 'n') + ".json");
    EXPECT_EQ(Save(file, "first"), "") << length;
    EXPECT_EQ(Save(file, "second"), "") << length;
    EXPECT_EQ(ReadAll(file), "second");
  }
  EXPECT_TRUE(Temporaries(dir.path()).empty());
}

TEST_P(SaveTest, PlantedNamesAreNeverFollowed) {
  TempDir dir;
  const std::string victim = dir.Write("victim", "precious");
  const std::string file = dir.Write("scenario.json", "old");
  // Links at the names a save might pick: the old predictable ones, and a crowd of the pattern
  // the temporary files use now.
  std::vector<std::string> planted;
  for (pid_t pid = ::getpid() - 5; pid <= ::getpid() + 5; ++pid) {
    planted.push_back("scenario.json.tmp." + std::to_string(pid));
  }
  for (int i = 0; i < 300; ++i) {
    char digits[17];
    std::snprintf(digits, sizeof digits, "%016x", i);
    planted.push_back(std::string(kSaveTemporaryPrefix) + digits +
                      std::string(kSaveTemporarySuffix));
  }
  for (const std::string& name : planted) {
    ASSERT_EQ(::symlink(victim.c_str(), dir.File(name).c_str()), 0);
  }
  for (int i = 0; i < 5; ++i) EXPECT_EQ(Save(file, "new " + std::to_string(i)), "");
  EXPECT_EQ(ReadAll(file), "new 4");
  EXPECT_EQ(ReadAll(victim), "precious");
  for (const std::string& name : planted) {
    struct stat st {};
    ASSERT_EQ(::lstat(dir.File(name).c_str(), &st), 0) << name;
    EXPECT_TRUE(S_ISLNK(st.st_mode)) << name << " was neither followed nor removed";
  }
}

TEST_P(SaveTest, WhatKilledSavesLeftIsRemovedByTheNextSave) {
  TempDir dir;
  const std::string file = dir.Write("scenario.json", "old");
  const auto temporary = [](const char* digits) {
    return std::string(kSaveTemporaryPrefix) + digits + std::string(kSaveTemporarySuffix);
  };
  // A save still at work holds the lock on its temporary file.
  const std::string busy = dir.Write(temporary("00000000000000b5"), "half of a save");
  int ready[2], release[2];
  ASSERT_EQ(::pipe(ready), 0);
  ASSERT_EQ(::pipe(release), 0);
  const pid_t holder = ::fork();
  if (holder == 0) {
    const int fd = ::open(busy.c_str(), O_RDONLY);
    ::flock(fd, LOCK_EX);
    (void)!::write(ready[1], "x", 1);
    char c;
    (void)!::read(release[0], &c, 1);
    ::_exit(0);
  }
  char signal;
  ASSERT_EQ(::read(ready[0], &signal, 1), 1);

  const struct {
    std::string name;
    std::string contents;
    time_t age;  // seconds since it was last written
    bool removed;
  } cases[] = {
      {temporary("0123456789abcdef"), "a whole scenario nobody renamed", 0, true},
      {temporary("00000000000000b5"), "half of a save", 0, false},  // locked by a live save
      {temporary("fedcba9876543210"), "", 0, false},  // may be a save that has not locked yet
      {temporary("00000000000000e0"), "", 120, true},
      {temporary("0123456789ABCDEF"), "x", 0, false},  // not the pattern: upper-case digits
      {temporary("0123456789abcde"), "x", 0, false},   // fifteen digits
      {".nwsave-0123456789abcdef.tmp.bak", "x", 0, false},
      {"scenario.json.tmp.12345", "x", 0, false},  // someone else's naming
  };
  for (const auto& c : cases) {
    if (c.name != busy.substr(dir.path().size() + 1)) dir.Write(c.name, c.contents);
    const timespec times[2] = {{std::time(nullptr) - c.age, 0}, {std::time(nullptr) - c.age, 0}};
    ::utimensat(AT_FDCWD, dir.File(c.name).c_str(), times, 0);
  }
  ::mkdir(dir.File(temporary("00000000000000d1")).c_str(), 0755);  // a directory: kept

  EXPECT_EQ(Save(file, "new"), "");
  for (const auto& c : cases) {
    EXPECT_EQ(::access(dir.File(c.name).c_str(), F_OK) != 0, c.removed) << c.name;
  }
  EXPECT_EQ(::access(dir.File(temporary("00000000000000d1")).c_str(), F_OK), 0);
  EXPECT_EQ(ReadAll(file), "new");

  (void)!::write(release[1], "x", 1);
  ::waitpid(holder, nullptr, 0);
  // Once its save is gone, the next save clears it too.
  EXPECT_EQ(Save(file, "newer"), "");
  EXPECT_NE(::access(busy.c_str(), F_OK), 0);
}

TEST_P(SaveTest, ConcurrentSavesLeaveOneWholeFile) {
  TempDir dir;
  const std::string file = dir.Write("scenario.json", "{\"value\": -1}\n");
  const std::string pad(64 * 1024, 'p');
  const auto text = [&](int value) {
    return "{\"value\": " + std::to_string(value) + ", \"pad\": \"" + pad + "\"}\n";
  };
  constexpr int kWriters = 50;
  int go[2];
  ASSERT_EQ(::pipe(go), 0);
  std::vector<pid_t> writers;
  for (int i = 0; i < kWriters; ++i) {
    const pid_t pid = ::fork();
    if (pid == 0) {
      ::close(go[1]);
      char c;
      (void)!::read(go[0], &c, 1);  // all start together when the pipe closes
      ::_exit(Save(file, text(i)).empty() ? 0 : 1);
    }
    writers.push_back(pid);
  }
  // A reader alongside: every read sees one whole file.
  const pid_t reader = ::fork();
  if (reader == 0) {
    ::close(go[1]);
    char c;
    (void)!::read(go[0], &c, 1);
    int torn = 0;
    for (int i = 0; i < 300; ++i) {
      Json doc;
      std::string error;
      if (!LoadJsonFile(file, &doc, &error) || !doc.contains("value")) ++torn;
    }
    ::_exit(torn == 0 ? 0 : 1);
  }
  ::close(go[0]);
  ::close(go[1]);
  for (pid_t pid : writers) {
    int status = 0;
    ::waitpid(pid, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "a save failed";
  }
  int status = 0;
  ::waitpid(reader, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "a reader saw a torn file";

  Json doc;
  std::string error;
  ASSERT_TRUE(LoadJsonFile(file, &doc, &error)) << error;
  ASSERT_TRUE(doc["value"].is_number_integer());
  const int value = doc["value"].get<int>();
  EXPECT_GE(value, 0);
  EXPECT_LT(value, kWriters);
  EXPECT_EQ(ReadAll(file), text(value));
  EXPECT_TRUE(Temporaries(dir.path()).empty());
}

TEST_P(SaveTest, AKilledSaveLeavesTheOldFileOrTheNewAndNothingForEver) {
  TempDir dir;
  const std::string old = "{\"old\": true}\n";
  const std::string file = dir.Write("scenario.json", old);
  const std::string big = "{\"pad\": \"" + std::string(16 << 20, 'b') + "\"}\n";
  std::string expectedOld = old;
  // Kills at different moments of the save; where each lands does not change what must hold.
  for (useconds_t delay : {0u, 300u, 1000u, 3000u, 10000u, 30000u, 100000u}) {
    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);
    const pid_t pid = ::fork();
    if (pid == 0) {
      ::close(ready[0]);
      (void)!::write(ready[1], "x", 1);
      std::string error;
      WriteFileAtomically(file, big, &error);
      ::pause();  // a save that finished waits to be killed too
      ::_exit(0);
    }
    ::close(ready[1]);
    char c;
    ASSERT_EQ(::read(ready[0], &c, 1), 1);
    ::close(ready[0]);
    ::usleep(delay);
    ::kill(pid, SIGKILL);
    ::waitpid(pid, nullptr, 0);
    const std::string now = ReadAll(file);
    EXPECT_TRUE(now == expectedOld || now == big)
        << "torn after " << delay << " us: " << now.size() << " bytes";
    expectedOld = now;
  }
  EXPECT_EQ(Save(file, old), "");
  EXPECT_EQ(ReadAll(file), old);
  // Only a save killed between creating its named temporary file and locking it can leave one,
  // empty, and that goes once it is old enough (see the test above).
  for (const std::string& name : Temporaries(dir.path())) {
    EXPECT_EQ(ReadAll(dir.File(name)), "") << name;
  }
}

TEST_P(SaveTest, AFullDiskOrAReadOnlyDirectoryLosesNothing) {
  const struct {
    const char* what;
    std::function<bool(const TempDir&)> prepare;  // in the saving process
    std::function<std::string(const TempDir&)> error;
  } cases[] = {
      {"full disk",
       [](const TempDir&) {
         // A file-size limit makes writes fail part-way as a full disk does.
         ::signal(SIGXFSZ, SIG_IGN);
         const rlimit limit{64 * 1024, 64 * 1024};
         return ::setrlimit(RLIMIT_FSIZE, &limit) == 0;
       },
       [](const TempDir& dir) {
         return dir.File("scenario.json") + ": cannot write: File too large";
       }},
      {"read-only directory",
       [](const TempDir& dir) {
         return ::chmod(dir.path().c_str(), 0555) == 0 && BecomeOtherUserIfRoot();
       },
       [](const TempDir& dir) {
         return dir.path() + ": cannot create a temporary file: Permission denied";
       }},
  };
  for (const auto& c : cases) {
    TempDir dir;
    const std::string file = dir.Write("scenario.json", "{\"old\": true}\n");
    const std::string error = InChild([&] {
      if (!c.prepare(dir)) return std::string("cannot prepare");
      return Save(file, "{\"pad\": \"" + std::string(1 << 20, 'x') + "\"}\n");
    });
    EXPECT_EQ(error, c.error(dir)) << c.what;
    EXPECT_EQ(ReadAll(file), "{\"old\": true}\n") << c.what;
    EXPECT_TRUE(Temporaries(dir.path()).empty()) << c.what;
  }
}

TEST(SaveFailureTest, TheReasonReachesTheDebugLogAndTheScenarioStaysAsItWas) {
  const struct {
    const char* what;
    std::function<bool(const TempDir&)> prepare;
    std::function<std::string(const TempDir&)> reason;
  } cases[] = {
      {"full disk",
       [](const TempDir&) {
         ::signal(SIGXFSZ, SIG_IGN);
         const rlimit limit{16, 16};
         return ::setrlimit(RLIMIT_FSIZE, &limit) == 0;
       },
       [](const TempDir& dir) {
         return dir.File("scenario.json") + ": cannot write: File too large";
       }},
      {"read-only directory",
       [](const TempDir& dir) {
         return ::chmod(dir.path().c_str(), 0555) == 0 && BecomeOtherUserIfRoot();
       },
       [](const TempDir& dir) {
         return dir.path() + ": cannot create a temporary file: Permission denied";
       }},
  };
  for (const auto& c : cases) {
    TempDir dir;
    const std::string original =
        "{\"debug\": {\"trace\": false}, \"config\": {\"trafficLog\": true}}";
    const std::string file = dir.Write("scenario.json", original);
    const std::string report = InChild([&] {
      auto lines = std::make_shared<std::vector<std::wstring>>();
      LibraryState state(LibraryState::Options{
          "kvxfwctl", "", file, "", [lines](const std::wstring& line) { lines->push_back(line); },
          false});
      if (state.GetScenario() == nullptr || !c.prepare(dir)) return std::string("cannot prepare");
      const Status status = state.UpdateScenario([](Scenario& s) {
        s.config.trafficLog = false;
        s.document["config"]["trafficLog"] = false;
      });
      std::string out = std::to_string(static_cast<uint32_t>(status)) + "|" +
                        (state.GetScenario()->config.trafficLog ? "kept" : "changed") + "|";
      for (const std::wstring& line : *lines) out += std::string(line.begin(), line.end());
      return out;
    });
    EXPECT_EQ(report, std::to_string(static_cast<uint32_t>(kStatusSaveFailed)) + "|kept|" +
                          "kvxfwctl: cannot save the scenario: " + c.reason(dir) + "\n")
        << c.what;
    EXPECT_EQ(ReadAll(file), original) << c.what;
  }
}

}  // namespace
}  // namespace nw::sim
