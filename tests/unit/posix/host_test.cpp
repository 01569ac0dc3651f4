// The emulated host behind the POSIX backend: registry, signature analogue, host file errors.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "platform/registry.h"
#include "platform/signature.h"
#include "sim/host/host_state.h"

namespace nw {
namespace {

class TempDir {
 public:
  TempDir() {
    char pattern[] = "/tmp/nw-host-XXXXXX";
    path_ = ::mkdtemp(pattern);
  }
  ~TempDir() { std::system(("rm -rf '" + path_ + "'").c_str()); }
  std::string File(const std::string& name) const { return path_ + "/" + name; }
  std::string Write(const std::string& name, const std::string& text, mode_t mode = 0644) const {
    const std::string file = File(name);
    std::ofstream(file) << text;
    ::chmod(file.c_str(), mode);
    return file;
  }

 private:
  std::string path_;
};

std::string ReadFile(const std::string& file) {
  std::ifstream in(file);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

/// Loads a host file for one test and forgets it afterwards.
class HostFile {
 public:
  HostFile(const TempDir& dir, const std::string& json) : file_(dir.Write("host.json", json)) {
    ::setenv("NETWARDEN_HOST", file_.c_str(), 1);
    sim::ResetHostStateForTesting();
    ok_ = sim::LoadHostState(&error_);
  }
  ~HostFile() {
    ::unsetenv("NETWARDEN_HOST");
    sim::ResetHostStateForTesting();
  }
  bool ok() const { return ok_; }
  const std::string& error() const { return error_; }
  const std::string& file() const { return file_; }

 private:
  std::string file_;
  bool ok_ = false;
  std::string error_;
};

constexpr const char* kHost = R"({
  "registry": {
    "HKLM\\SOFTWARE\\WOW6432Node\\Korvane\\HostBase": {"szInstallDir64": "C:\\Product", "Count": 7},
    "HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\kvxnlfk": {"Start": 3}
  }
})";

TEST(HostRegistry, ThirtyTwoBitViewReadsTheRedirectedKey) {
  TempDir dir;
  HostFile host(dir, kHost);
  ASSERT_TRUE(host.ok()) << host.error();
  platform::Registry& registry = platform::TheRegistry();
  platform::RegistryKey key = nullptr;
  EXPECT_EQ(
      registry.OpenKey(platform::kHKeyLocalMachine, L"Software\\Korvane\\HostBase", 0x20019, &key),
      2u);
  ASSERT_EQ(
      registry.OpenKey(platform::kHKeyLocalMachine, L"software\\KORVANE\\hostbase", 0x20219, &key),
      0u);
  wchar_t text[32] = {};
  uint32_t size = sizeof text;
  uint32_t type = 0;
  EXPECT_EQ(registry.QueryValue(key, L"SZINSTALLDIR64", &type, text, &size), 0u);
  EXPECT_EQ(type, platform::kRegSz);
  EXPECT_EQ(std::wstring(text), L"C:\\Product");
  EXPECT_EQ(size, 11 * sizeof(wchar_t));

  uint32_t needed = 0;
  EXPECT_EQ(registry.QueryValue(key, L"szInstallDir64", &type, nullptr, &needed), 0u);
  EXPECT_EQ(needed, 11 * sizeof(wchar_t));
  wchar_t small[4] = {L'#', L'#', L'#', L'#'};
  size = sizeof small;
  EXPECT_EQ(registry.QueryValue(key, L"szInstallDir64", &type, small, &size), 234u);
  EXPECT_EQ(size, 11 * sizeof(wchar_t));
  EXPECT_EQ(small[0], L'#') << "a value that does not fit is not copied";

  uint32_t dword = 0;
  size = sizeof dword;
  EXPECT_EQ(registry.QueryValue(key, L"Count", &type, &dword, &size), 0u);
  EXPECT_EQ(type, platform::kRegDword);
  EXPECT_EQ(dword, 7u);
  EXPECT_EQ(registry.QueryValue(key, L"Missing", &type, &dword, &size), 2u);
  EXPECT_EQ(registry.CloseKey(key), 0u);

  // Intermediate keys exist; keys outside SOFTWARE are not redirected.
  EXPECT_EQ(
      registry.OpenKey(platform::kHKeyLocalMachine, L"SYSTEM\\CurrentControlSet", 0x20219, &key),
      0u);
  registry.CloseKey(key);
  EXPECT_EQ(registry.OpenKey(platform::kHKeyLocalMachine, L"SYSTEM\\Other", 0x20019, &key), 2u);
}

TEST(HostRegistry, SetValueWritesTheHostFileBackKeepingItsSpelling) {
  TempDir dir;
  HostFile host(dir, kHost);
  ASSERT_TRUE(host.ok()) << host.error();
  platform::Registry& registry = platform::TheRegistry();
  platform::RegistryKey key = nullptr;
  ASSERT_EQ(registry.OpenKey(platform::kHKeyLocalMachine,
                             L"SYSTEM\\CurrentControlSet\\Services\\kvxnlfk", 0xF003F, &key),
            0u);
  const uint32_t start = 4;
  EXPECT_EQ(registry.SetValue(key, L"start", platform::kRegDword, &start, 4), 0u);
  const std::wstring image = L"\\SystemRoot\\x.sys";
  EXPECT_EQ(registry.SetValue(key, L"ImagePath", platform::kRegExpandSz, image.c_str(),
                              static_cast<uint32_t>((image.size() + 1) * sizeof(wchar_t))),
            0u);
  registry.CloseKey(key);

  const std::string written = ReadFile(host.file());
  EXPECT_NE(written.find("\"Start\": 4"), std::string::npos) << written;
  EXPECT_NE(written.find("\"REG_EXPAND_SZ\""), std::string::npos) << written;
  EXPECT_NE(written.find("C:\\\\Product"), std::string::npos) << "other values are kept";
  EXPECT_EQ(written.find("SERVICES\\\\KVXNLFK"), std::string::npos) << "no second spelling";

  // The next run sees the change.
  HostFile again(dir, written);
  ASSERT_TRUE(again.ok()) << again.error();
  ASSERT_EQ(registry.OpenKey(platform::kHKeyLocalMachine,
                             L"SYSTEM\\CurrentControlSet\\Services\\kvxnlfk", 0x20019, &key),
            0u);
  uint32_t value = 0, size = 4, type = 0;
  EXPECT_EQ(registry.QueryValue(key, L"Start", &type, &value, &size), 0u);
  EXPECT_EQ(value, 4u);
  registry.CloseKey(key);
}

TEST(HostFile, ErrorsNameTheFileThePathAndWhatWasExpected) {
  struct {
    const char* json;
    const char* error;  // after "<file>: "
  } cases[] = {
      {R"({"registry": {"HKCU\\X": {}}})",
       "/registry/HKCU\\X: expected a key under HKEY_LOCAL_MACHINE (or HKLM)"},
      {R"({"registry": {"HKLM\\X": {"v": true}}})",
       "/registry/HKLM\\X/v: expected a text, a DWORD or {\"type\", \"data\"}"},
      {R"({"registry": {"HKLM\\X": {"v": {"type": "REG_QWORD", "data": 1}}}})",
       "/registry/HKLM\\X/v/type: expected REG_SZ, REG_EXPAND_SZ, REG_DWORD or REG_BINARY"},
      {R"({"registry": {"HKLM\\X": {"v": 4294967296}}})",
       "/registry/HKLM\\X/v: expected an integer from 0 to 4294967295"},
      {R"({"setDefaultDllDirectories": "sometimes"})",
       "/setDefaultDllDirectories: expected \"present\", \"missing\" or \"fails\""},
      {R"({"trustedSha256": ["abc"]})", "/trustedSha256/0: expected 64 hexadecimal digits"},
      {R"({"signatures": {"C:\\x.dll": "0x1234567890"}})",
       "/signatures/C:\\x.dll: expected a status (an integer, or a text \"0x\" and up to 8 hex "
       "digits)"},
      {R"({"faults": {"RegDeleteKey": 5}})", "/faults/RegDeleteKey: expected one of the known"},
      {R"({"registy": {}})", "/registy: expected one of the known fields"},
      {R"([1, 2])", "/: expected an object"},
      {R"({"registry": )", "not valid JSON"},
      // What the JSON library itself refuses is a bad host file too, never an abort.
      {R"({"registry": {"HKLM\\X": {"v": 1e400}}})",
       "/registry/HKLM\\X/v: expected a number within the range of a double (not 1e400)"},
      {R"({"registry": {"HKLM\\X": {"v": 1, "V": 2, "v": 3}}})",
       "/registry/HKLM\\X/v: expected each field once in its object"},
  };
  TempDir dir;
  for (const auto& c : cases) {
    HostFile host(dir, c.json);
    EXPECT_FALSE(host.ok()) << c.json;
    EXPECT_EQ(host.error().rfind(host.file() + ": " + c.error, 0), 0u)
        << host.error() << "\n  for " << c.json;
  }
}

TEST(HostFile, WhatCannotBeReadIsNamed) {
  TempDir dir;
  ::mkdir(dir.File("folder.json").c_str(), 0755);
  const struct {
    std::string file;
    std::string error;
  } cases[] = {
      {"/nonexistent/host.json", "/nonexistent/host.json: cannot open: No such file or directory"},
      {dir.File("folder.json"), dir.File("folder.json") + ": not a regular file (a directory)"},
      {"/dev/zero", "/dev/zero: not a regular file (a character device)"},
  };
  for (const auto& c : cases) {
    ::setenv("NETWARDEN_HOST", c.file.c_str(), 1);
    sim::ResetHostStateForTesting();
    std::string error;
    EXPECT_FALSE(sim::LoadHostState(&error));
    EXPECT_EQ(error, c.error);
  }
  ::unsetenv("NETWARDEN_HOST");
  sim::ResetHostStateForTesting();
}

int32_t Verify(const std::wstring& path) {
  platform::WinTrustFileInfo file{32, path.c_str(), nullptr, nullptr};
  platform::WinTrustData data{};
  data.cbStruct = 88;
  data.dwUnionChoice = platform::kWtdChoiceFile;
  data.pFile = &file;
  data.dwStateAction = platform::kWtdStateActionVerify;
  Guid action = platform::kWinTrustActionGenericVerifyV2;
  return platform::TheTrust().WinVerifyTrust(platform::kNoInteractiveUser, &action, &data);
}

std::wstring Wide(const std::string& text) { return std::wstring(text.begin(), text.end()); }

TEST(HostTrust, OnlyFilesNobodyElseCanChangeAreTrusted) {
  TempDir dir;
  sim::ResetHostStateForTesting();
  struct {
    const char* name;
    mode_t mode;
    uint32_t result;
  } cases[] = {
      {"private.dll", 0600, 0},
      {"readable.dll", 0755, 0},
      {"group-writable.dll", 0664, 0x800B0004},
      {"world-writable.dll", 0646, 0x800B0004},
  };
  for (const auto& c : cases) {
    const std::string file = dir.Write(c.name, "library", c.mode);
    EXPECT_EQ(static_cast<uint32_t>(Verify(Wide(file))), c.result) << c.name;
  }
  EXPECT_EQ(static_cast<uint32_t>(Verify(Wide(dir.File("missing.dll")))), 0x80092003u);
  ::mkdir(dir.File("folder.dll").c_str(), 0755);
  EXPECT_EQ(static_cast<uint32_t>(Verify(Wide(dir.File("folder.dll")))), 0x800B0003u);
  // Windows-form paths name the same files.
  std::wstring windowsForm = Wide(dir.File("private.dll"));
  for (auto& ch : windowsForm) ch = ch == L'/' ? L'\\' : ch;
  EXPECT_EQ(Verify(windowsForm), 0);
}

TEST(HostTrust, DigestListAdmitsOnlyListedFiles) {
  TempDir dir;
  // SHA-256 of the three bytes "abc".
  const std::string abc = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
  HostFile host(dir, R"({"trustedSha256": [")" + abc + R"("]})");
  ASSERT_TRUE(host.ok()) << host.error();
  EXPECT_EQ(Verify(Wide(dir.Write("listed.dll", "abc"))), 0);
  EXPECT_EQ(static_cast<uint32_t>(Verify(Wide(dir.Write("other.dll", "abd")))), 0x80096010u);
}

TEST(HostTrust, ForcedResultsAndTheCloseCall) {
  TempDir dir;
  HostFile host(dir, R"({"signatures": {"C:\\Product\\x.dll": "0x800B0101"}})");
  ASSERT_TRUE(host.ok()) << host.error();
  EXPECT_EQ(static_cast<uint32_t>(Verify(L"c:\\product\\X.DLL")), 0x800B0101u);
  platform::WinTrustData close{};
  close.dwStateAction = platform::kWtdStateActionClose;
  Guid action = platform::kWinTrustActionGenericVerifyV2;
  EXPECT_EQ(platform::TheTrust().WinVerifyTrust(nullptr, &action, &close), 0);
  Guid other{};
  EXPECT_EQ(static_cast<uint32_t>(platform::TheTrust().WinVerifyTrust(nullptr, &other, &close)),
            0x800B0001u);
}

}  // namespace
}  // namespace nw
