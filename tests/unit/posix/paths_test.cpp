// Paths on the emulated host: every POSIX name has a Windows form that leads back to it, drive
// letters lead to the drives' roots, and a path written in two ways is one file to the loader's
// directories and to the forced verification results.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <fstream>
#include <random>
#include <string>

#include "platform/library.h"
#include "platform/posix/paths_posix.h"
#include "platform/signature.h"
#include "sim/host/host_state.h"

namespace nw::platform::posix {
namespace {

// The Windows form of a name byte that is not valid UTF-8, and of "\\" inside a name.
constexpr wchar_t Escaped(unsigned char byte) { return static_cast<wchar_t>(0xDC00 + byte); }
constexpr wchar_t kBackslashInName = 0xDC5C;

/// A host file for one test; forgotten afterwards.
class Host {
 public:
  explicit Host(const std::string& json) {
    char pattern[] = "/tmp/nw-paths-XXXXXX";
    dir_ = ::mkdtemp(pattern);
    file_ = dir_ + "/host.json";
    std::ofstream(file_) << json;
    ::setenv("NETWARDEN_HOST", file_.c_str(), 1);
    sim::ResetHostStateForTesting();
    ok_ = sim::LoadHostState(&error_);
  }
  ~Host() {
    ::unsetenv("NETWARDEN_HOST");
    sim::ResetHostStateForTesting();
    std::system(("rm -rf '" + dir_ + "'").c_str());
  }
  bool ok() const { return ok_; }
  const std::string& error() const { return error_; }
  const std::string& file() const { return file_; }

 private:
  std::string dir_;
  std::string file_;
  bool ok_ = false;
  std::string error_;
};

TEST(PathsTest, EveryPosixNameHasAWindowsForm) {
  const struct {
    std::string posix;
    std::wstring windows;
  } cases[] = {
      {"/tmp/x/netwarden", L"\\tmp\\x\\netwarden"},
      {"/opt/x\\y/kvxfwctl.dll", std::wstring(L"\\opt\\x") + kBackslashInName + L"y\\kvxfwctl.dll"},
      {"/caf\xC3\xA9", L"\\caf\u00E9"},                                    // UTF-8 is read as such
      {"/\xF0\x9F\x98\x80", L"\\\U0001F600"},                              // four bytes
      {"/caf\xE9", std::wstring(L"\\caf") + Escaped(0xE9)},                // Latin-1, not UTF-8
      {"/\xC0\xAF", std::wstring(L"\\") + Escaped(0xC0) + Escaped(0xAF)},  // overlong "/"
      {"/\xED\xA0\x80", std::wstring(L"\\") + Escaped(0xED) + Escaped(0xA0) + Escaped(0x80)},
      {"/\xF4\x90\x80\x80",  // above U+10FFFF
       std::wstring(L"\\") + Escaped(0xF4) + Escaped(0x90) + Escaped(0x80) + Escaped(0x80)},
      {"/\xE2\x82", std::wstring(L"\\") + Escaped(0xE2) + Escaped(0x82)},  // cut short
      {"/\xE2\x82x", std::wstring(L"\\") + Escaped(0xE2) + Escaped(0x82) + L"x"},
      {"/\x80\xBF", std::wstring(L"\\") + Escaped(0x80) + Escaped(0xBF)},  // no lead byte
  };
  for (const auto& c : cases) {
    EXPECT_EQ(WindowsFormOf(c.posix), c.windows) << c.posix;
    EXPECT_EQ(PosixPathOf(c.windows), c.posix) << c.posix;
  }
}

TEST(PathsTest, AnyNamesGoThereAndBackUnchanged) {
  std::mt19937 random(9);
  for (int i = 0; i < 5000; ++i) {
    std::string path;
    const int components = 1 + static_cast<int>(random() % 4);
    for (int k = 0; k < components; ++k) {
      std::string name;
      const int length = 1 + static_cast<int>(random() % 6);
      for (int j = 0; j < length; ++j) {
        // Bytes a name can hold (anything but NUL and "/"), weighted toward the awkward ones.
        const unsigned char pick[] = {'a', '\\', '.', 0xC3, 0xA9, 0xE2, 0x82, 0xAC, 0xFF, 0x80};
        unsigned char byte = random() % 2 ? pick[random() % sizeof pick]
                                          : static_cast<unsigned char>(1 + random() % 255);
        if (byte == '/') byte = 'b';
        name += static_cast<char>(byte);
      }
      if (name == "." || name == "..") name += "x";  // not names a directory listing shows
      path += "/" + name;
    }
    const std::wstring windows = WindowsFormOf(path);
    ASSERT_EQ(PosixPathOf(windows), path) << "round " << i;
    ASSERT_EQ(WindowsFormOf(PosixPathOf(windows)), windows) << "round " << i;
  }
}

TEST(PathsTest, WindowsPathsResolveAsWindowsResolvesThem) {
  const struct {
    const wchar_t* windows;
    std::string posix;
  } defaults[] = {
      {L"\\bin\\..\\inst\\kvxfwctl.dll", "/inst/kvxfwctl.dll"},  // not /usr/inst where /bin links
      {L"\\inst\\", "/inst"},
      {L"\\inst\\.\\\\x.dll", "/inst/x.dll"},
      {L"\\..\\..\\inst", "/inst"},  // nothing above the root
      {L"C:\\inst", "/inst"},
      {L"c:/inst//kvxfwctl.dll", "/inst/kvxfwctl.dll"},
      {L"C:inst", "/inst"},
      {L"C:", "/"},
      {L"C:\\..", "/"},
      {L"D:\\inst", ""},  // no such drive
      {L"kvxfwctl.dll", "kvxfwctl.dll"},
      {L".\\kvxfwctl.dll", "./kvxfwctl.dll"},  // still a path, not a name to search for
      {L"..\\x\\..\\..\\y", "../../y"},
      {L"..\\", "./.."},
      {L"", ""},
  };
  {
    Host host("{}");
    ASSERT_TRUE(host.ok()) << host.error();
    for (const auto& c : defaults) EXPECT_EQ(PosixPathOf(c.windows), c.posix) << c.windows;
  }
  const struct {
    const wchar_t* windows;
    std::string posix;
  } mapped[] = {
      {L"C:\\inst\\kvxfwctl.dll", "/srv/c/inst/kvxfwctl.dll"},
      {L"c:\\..\\..\\etc", "/srv/c/etc"},  // nothing above the drive's root
      {L"d:\\", "/mnt/d"},
      {L"E:\\x", "/x"},
      {L"\\inst", "/inst"},  // no drive: the file system itself
  };
  Host host(R"({"drives": {"C": "/srv/c", "d:": "\\mnt\\d\\", "E": "/"}})");
  ASSERT_TRUE(host.ok()) << host.error();
  for (const auto& c : mapped) EXPECT_EQ(PosixPathOf(c.windows), c.posix) << c.windows;
}

TEST(PathsTest, SamePathComparesTheFilesNotTheSpelling) {
  Host host(R"({"drives": {"D": "/srv/d"}})");
  ASSERT_TRUE(host.ok()) << host.error();
  const struct {
    const wchar_t* a;
    const wchar_t* b;
    bool same;
  } cases[] = {
      {L"\\bin\\..\\inst\\kvxfwctl.dll", L"\\inst\\kvxfwctl.dll", true},
      {L"\\inst\\kvxfwctl.dll\\", L"/inst/KVXFWCTL.DLL", true},
      {L"\\abyz\\", L"\\ABYZ", true},  // the first and last letters, in either case
      {L"\\@", L"\\`", false},         // the characters beside them are not letters
      {L"\\[", L"\\{", false},
      {L"C:\\inst\\kvxfwctl.dll", L"\\inst\\kvxfwctl.dll", true},
      {L"D:\\inst\\kvxfwctl.dll", L"\\srv\\d\\inst\\kvxfwctl.dll", true},
      {L"\\inst\\kvxfwctl.dll", L"\\inst\\kvxhida.dll", false},
      {L"\\caf\u00E9", L"\\CAF\u00C9", false},  // only ASCII letters ignore case
      {L"X:\\a", L"X:\\a", false},              // a drive the host does not have holds no file
  };
  for (const auto& c : cases) {
    EXPECT_EQ(SamePath(c.a, c.b), c.same) << c.a << " / " << c.b;
    EXPECT_EQ(SamePath(c.b, c.a), c.same) << c.b << " / " << c.a;
  }
}

TEST(PathsTest, DriveTableErrorsNameThePlace) {
  const struct {
    const char* json;
    std::string error;  // after "<file>: "
  } cases[] = {
      {R"({"drives": {"CD": "/x"}})", "/drives/CD: expected a drive letter (\"D\" or \"D:\")"},
      {R"({"drives": {"1": "/x"}})", "/drives/1: expected a drive letter (\"D\" or \"D:\")"},
      {R"({"drives": {"D": "srv"}})", "/drives/D: expected an absolute path (\"/srv/d\")"},
      {R"({"drives": {"D": ""}})", "/drives/D: expected an absolute path (\"/srv/d\")"},
      {R"({"drives": {"D": 4}})", "/drives/D: expected a text"},
      {R"({"drives": ["/x"]})", "/drives: expected an object"},
  };
  for (const auto& c : cases) {
    Host host(c.json);
    EXPECT_FALSE(host.ok()) << c.json;
    EXPECT_EQ(host.error(), host.file() + ": " + c.error);
  }
}

int32_t Verify(const std::wstring& path) {
  WinTrustFileInfo file{32, path.c_str(), nullptr, nullptr};
  WinTrustData data{};
  data.cbStruct = 88;
  data.dwUnionChoice = kWtdChoiceFile;
  data.pFile = &file;
  data.dwStateAction = kWtdStateActionVerify;
  Guid action = kWinTrustActionGenericVerifyV2;
  return TheTrust().WinVerifyTrust(kNoInteractiveUser, &action, &data);
}

TEST(PathsTest, ForcedVerificationResultsHoldForEverySpellingOfThePath) {
  char pattern[] = "/tmp/nw-forced-XXXXXX";
  const std::string dir = ::mkdtemp(pattern);
  ::mkdir((dir + "/inst").c_str(), 0755);
  std::ofstream(dir + "/inst/kvxfwctl.dll") << "library";
  std::ofstream(dir + "/inst/kvxhida.dll") << "library";
  const std::wstring root = WindowsFormOf(dir);
  std::string rootJson;  // the root in a JSON text
  for (wchar_t c : root) rootJson += c == L'\\' ? "\\\\" : std::string(1, static_cast<char>(c));
  Host host(R"({"signatures": {")" + rootJson +
            R"(\\bin\\..\\inst\\kvxfwctl.dll\\": "0x800B0101"}})");
  ASSERT_TRUE(host.ok()) << host.error();
  const struct {
    std::wstring path;
    uint32_t result;
  } cases[] = {
      {root + L"\\inst\\kvxfwctl.dll", 0x800B0101},
      {root + L"\\INST\\.\\KVXFWCTL.DLL", 0x800B0101},
      {L"C:" + root + L"\\inst\\kvxfwctl.dll", 0x800B0101},
      {root + L"/inst//kvxfwctl.dll", 0x800B0101},
      {root + L"\\inst\\kvxhida.dll", 0},  // another file: judged on itself
      {root + L"\\inst\\missing.dll", 0x80092003},
      {L"Q:" + root + L"\\inst\\kvxhida.dll", 0x80092003},  // no drive Q: on this host
  };
  for (const auto& c : cases) EXPECT_EQ(static_cast<uint32_t>(Verify(c.path)), c.result) << c.path;
  std::system(("rm -rf '" + dir + "'").c_str());
}

TEST(PathsTest, FoldersWhoseNamesWindowsCannotSayStillLeadToTheirFiles) {
  char pattern[] = "/tmp/nw-names-XXXXXX";
  const std::string dir = ::mkdtemp(pattern);
  const struct {
    std::string folder;
    std::string decoy;  // where a lossy mapping would lead
  } cases[] = {
      {"x\\y", "x/y"}, {"caf\xE9", "caf\xEF\xBF\xBD"},  // U+FFFD in place of the byte
  };
  char previous[PATH_MAX];
  ASSERT_NE(::getcwd(previous, sizeof previous), nullptr);
  sim::ResetHostStateForTesting();
  for (const auto& c : cases) {
    const std::string folder = dir + "/" + c.folder;
    ASSERT_EQ(::mkdir(folder.c_str(), 0755), 0);
    ::mkdir((dir + "/x").c_str(), 0755);
    ::mkdir((dir + "/" + c.decoy).c_str(), 0755);
    std::ofstream(folder + "/kvxfwctl.dll") << "the library";
    std::ofstream(dir + "/" + c.decoy + "/kvxfwctl.dll") << "a decoy";
    ::chmod((dir + "/" + c.decoy + "/kvxfwctl.dll").c_str(), 0666);  // refused if ever looked at
    ASSERT_EQ(::chdir(folder.c_str()), 0);
    wchar_t buffer[PATH_MAX];
    uint32_t error = 0;
    const uint32_t length = TheLibraries().GetCurrentDirectory(PATH_MAX, buffer, &error);
    ASSERT_GT(length, 0u);
    const std::wstring current(buffer, length);
    EXPECT_EQ(current, WindowsFormOf(folder));
    EXPECT_EQ(Verify(current + L"\\kvxfwctl.dll"), 0) << c.folder;
    EXPECT_EQ(PosixPathOf(current + L"\\kvxfwctl.dll"), folder + "/kvxfwctl.dll");
  }
  EXPECT_EQ(::chdir(previous), 0);
  std::system(("rm -rf '" + dir + "'").c_str());
}

}  // namespace
}  // namespace nw::platform::posix
