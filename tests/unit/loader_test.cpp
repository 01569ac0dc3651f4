#include "cli/loader.h"

#include <gtest/gtest.h>

#include <cwchar>
#include <optional>
#include <string>
#include <vector>

#include "tests/unit/fake_platform.h"

namespace nw {
namespace {

using testing::FakePlatform;

const std::string kCurrent = "NCPrivateLoadAndValidateHPLDll: Looking in current directory\n";
const std::string kExe = "NCPrivateLoadAndValidateHPLDll: Looking in EXE directory\n";

std::string Rejection(const std::string& path, const std::string& status) {
  return "NotComDllGetInterface: C:\\app\\netwarden.exe loading " + path +
         ", WinVerifyTrust failed with " + status + "\n";
}

struct SearchCase {
  const char* what;
  std::optional<std::wstring> installDirectory;  // nullopt: no value
  std::map<std::wstring, int32_t> files;         // path -> verification result
  Status expectedStatus;
  std::wstring expectedLoad;  // empty: nothing loaded
  std::vector<std::string> expectedDebug;
};

class SearchOrder : public ::testing::TestWithParam<SearchCase> {};

TEST_P(SearchOrder, FindsVerifiesAndLoads) {
  const SearchCase& c = GetParam();
  FakePlatform fake;
  fake.registry.hasValue = c.installDirectory.has_value();
  fake.registry.installDirectory = c.installDirectory.value_or(L"");
  fake.trust.files = c.files;
  for (const auto& file : c.files) fake.libraries.loadable.push_back(file.first);

  LibraryLoadRequest request;
  request.name = L"kvxfwctl.dll";
  request.nameLength = 12;
  const Status status = NCPrivateLoadAndValidateHPLDll(&request);

  EXPECT_EQ(static_cast<uint32_t>(status), static_cast<uint32_t>(c.expectedStatus));
  EXPECT_EQ(fake.process.debugLines, c.expectedDebug);
  const auto loads = fake.libraries.ProductLoads();
  if (c.expectedLoad.empty()) {
    EXPECT_TRUE(loads.empty());
    EXPECT_EQ(request.module, nullptr);
    EXPECT_EQ(request.resolvedPath, nullptr);
  } else {
    ASSERT_EQ(loads.size(), 1u);
    EXPECT_EQ(loads[0].path, c.expectedLoad);
    EXPECT_NE(request.module, nullptr);
    ASSERT_NE(request.resolvedPath, nullptr);
    EXPECT_EQ(std::wstring(request.resolvedPath), c.expectedLoad);
  }
  EXPECT_EQ(fake.registry.openKeys, 0) << "the install key was left open";
  EXPECT_EQ(fake.registry.openAccess, 0x20219u);
  EXPECT_EQ(fake.registry.openedSubKey, L"Software\\Korvane\\HostBase");
  FreeResolvedPath(&request);
}

const std::wstring kInstalled = L"D:\\Product\\kvxfwctl.dll";
const std::wstring kInCurrent = L"C:\\work\\kvxfwctl.dll";
const std::wstring kBesideProgram = L"C:\\app\\kvxfwctl.dll";
constexpr Status kNoSignature = static_cast<Status>(0x800B0100u);

INSTANTIATE_TEST_SUITE_P(
    Loader, SearchOrder,
    ::testing::Values(SearchCase{"only beside the program",
                                 std::nullopt,
                                 {{kBesideProgram, 0}},
                                 0,
                                 kBesideProgram,
                                 {kCurrent, kExe}},
                      SearchCase{"current directory before the program's",
                                 std::nullopt,
                                 {{kInCurrent, 0}, {kBesideProgram, 0}},
                                 0,
                                 kInCurrent,
                                 {kCurrent}},
                      SearchCase{"install directory first",
                                 L"D:\\Product",
                                 {{kInstalled, 0}, {kInCurrent, 0}, {kBesideProgram, 0}},
                                 0,
                                 kInstalled,
                                 {}},
                      SearchCase{
                          "install directory without the library skips the current directory",
                          L"D:\\Product",
                          {{kInCurrent, 0}, {kBesideProgram, 0}},
                          0,
                          kBesideProgram,
                          {kExe}},
                      SearchCase{"an untrusted library ends the search",
                                 L"D:\\Product",
                                 {{kInstalled, kNoSignature}, {kBesideProgram, 0}},
                                 kNoSignature,
                                 L"",
                                 {Rejection("D:\\Product\\kvxfwctl.dll", "800b0100")}},
                      SearchCase{"an untrusted library in the current directory ends the search",
                                 std::nullopt,
                                 {{kInCurrent, kNoSignature}, {kBesideProgram, 0}},
                                 kNoSignature,
                                 L"",
                                 {kCurrent, Rejection("C:\\work\\kvxfwctl.dll", "800b0100")}},
                      SearchCase{"expired certificate accepted",
                                 L"D:\\Product",
                                 {{kInstalled, kCertEExpired}},
                                 0,
                                 kInstalled,
                                 {}},
                      SearchCase{"failed revocation check accepted",
                                 L"D:\\Product",
                                 {{kInstalled, kCertERevocationFailure}},
                                 0,
                                 kInstalled,
                                 {}},
                      SearchCase{"verification disabled by policy accepted",
                                 L"D:\\Product",
                                 {{kInstalled, kCryptESecuritySettings}},
                                 0,
                                 kInstalled,
                                 {}},
                      SearchCase{"missing everywhere",
                                 std::nullopt,
                                 {},
                                 kCryptEFileError,
                                 L"",
                                 {kCurrent, kExe, Rejection("C:\\app\\kvxfwctl.dll", "80092003")}},
                      SearchCase{"directory that leaves no room for the name",
                                 L"C:\\" + std::wstring(247, L'd'),
                                 {{kInCurrent, 0}, {kBesideProgram, 0}},
                                 0,
                                 kBesideProgram,
                                 {kExe}},
                      SearchCase{"directory that just leaves room for the name",
                                 L"C:\\" + std::wstring(244, L'd'),
                                 {{L"C:\\" + std::wstring(244, L'd') + L"\\kvxfwctl.dll", 0}},
                                 0,
                                 L"C:\\" + std::wstring(244, L'd') + L"\\kvxfwctl.dll",
                                 {}},
                      SearchCase{"directory too long to read is a failed read",
                                 L"C:\\" + std::wstring(297, L'd'),
                                 {{kInCurrent, 0}},
                                 0,
                                 kInCurrent,
                                 {kCurrent}}),
    [](const ::testing::TestParamInfo<SearchCase>& param) {
      std::string name;
      for (const char* p = param.param.what; *p != '\0'; ++p) {
        name += std::isalnum(static_cast<unsigned char>(*p)) ? *p : '_';
      }
      return name;
    });

TEST(Loader, MissingFileAsTheVerifierOfSomeHostsReportsItAlsoMovesOn) {
  FakePlatform fake;
  fake.trust.missingResult = static_cast<Status>(kErrorFileNotFound);
  fake.trust.files = {{kBesideProgram, 0}};
  fake.libraries.loadable = {kBesideProgram};
  LibraryLoadRequest request{L"kvxfwctl.dll", 12};
  EXPECT_EQ(NCPrivateLoadAndValidateHPLDll(&request), 0);
  EXPECT_EQ(fake.process.debugLines, (std::vector<std::string>{kCurrent, kExe}));
  FreeResolvedPath(&request);
}

TEST(Loader, GivenPathIsTheOnlyPlaceLooked) {
  FakePlatform fake;
  fake.trust.files = {{kBesideProgram, 0}};
  LibraryLoadRequest request{L"D:\\elsewhere\\kvxfwctl.dll", 25};
  EXPECT_EQ(NCPrivateLoadAndValidateHPLDll(&request), kCryptEFileError);
  EXPECT_EQ(fake.trust.verified, (std::vector<std::wstring>{L"D:\\elsewhere\\kvxfwctl.dll"}));
  EXPECT_EQ(fake.process.debugLines,
            (std::vector<std::string>{Rejection("D:\\elsewhere\\kvxfwctl.dll", "80092003")}));
}

// A name of at most two characters, one starting with a backslash or one with a drive colon is
// a path the caller chose: it alone is verified. Anything else is searched for.
TEST(Loader, WhatCountsAsAGivenPath) {
  struct Case {
    const wchar_t* name;
    std::vector<std::wstring> verified;
  };
  const Case cases[] = {
      {L"ab", {L"ab"}},
      {L"\\x", {L"\\x"}},
      {L"C:x", {L"C:x"}},
      {L"abc", {L"C:\\work\\abc", L"C:\\app\\abc"}},
      {L"a\\b", {L"C:\\work\\a\\b", L"C:\\app\\a\\b"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::PrintToString(std::wstring(c.name)));
    FakePlatform fake;
    fake.registry.hasValue = false;
    LibraryLoadRequest request{c.name, std::wcslen(c.name)};
    EXPECT_EQ(NCPrivateLoadAndValidateHPLDll(&request), kCryptEFileError);
    EXPECT_EQ(fake.trust.verified, c.verified);
  }
}

TEST(Loader, RejectsBadNames) {
  FakePlatform fake;
  const std::wstring longName(32769, L'a');
  struct {
    const wchar_t* name;
    uint64_t length;
  } cases[] = {{nullptr, 5}, {L"x.dll", 0}, {longName.c_str(), 32769}};
  for (const auto& c : cases) {
    LibraryLoadRequest request{c.name, c.length};
    EXPECT_EQ(NCPrivateLoadAndValidateHPLDll(&request), 87);
    EXPECT_EQ(request.resolvedPath, nullptr);
  }
  EXPECT_TRUE(fake.trust.verified.empty());
  EXPECT_EQ(NotComDllGetInterface(longName.c_str(), "x", nullptr), 87);
}

TEST(Loader, LoadFailureReturnsTheLoadersErrorAndNoPath) {
  FakePlatform fake;
  fake.trust.files = {{kBesideProgram, 0}};
  fake.libraries.loadError = 193;
  LibraryLoadRequest request{L"kvxfwctl.dll", 12};
  EXPECT_EQ(NCPrivateLoadAndValidateHPLDll(&request), 193);
  EXPECT_EQ(request.resolvedPath, nullptr);
  EXPECT_EQ(request.module, nullptr);
}

TEST(Loader, CurrentDirectoryFailureIsRefusedWithTheNameAsThePathTried) {
  FakePlatform fake;
  fake.libraries.currentDirectoryError = 5;
  fake.trust.files = {{kBesideProgram, 0}};
  LibraryLoadRequest request{L"kvxfwctl.dll", 12};
  EXPECT_EQ(NCPrivateLoadAndValidateHPLDll(&request), 5);
  EXPECT_EQ(fake.process.debugLines,
            (std::vector<std::string>{kCurrent, Rejection("kvxfwctl.dll", "00000005")}));
}

TEST(Loader, LongProgramPathGrowsTheNameBufferUntilItFits) {
  FakePlatform fake;
  const std::wstring directory = L"C:\\" + std::wstring(600, L'p');
  fake.libraries.programPath = directory + L"\\netwarden.exe";
  fake.trust.files = {{directory + L"\\kvxfwctl.dll", 0}};
  fake.libraries.loadable = {directory + L"\\kvxfwctl.dll"};
  LibraryLoadRequest request{L"kvxfwctl.dll", 12};
  EXPECT_EQ(NCPrivateLoadAndValidateHPLDll(&request), 0);
  EXPECT_EQ(fake.libraries.moduleNameCapacities, (std::vector<uint32_t>{260, 520, 1040}));
  const auto loads = fake.libraries.ProductLoads();
  ASSERT_EQ(loads.size(), 1u);
  EXPECT_EQ(loads[0].path, directory + L"\\kvxfwctl.dll");
  FreeResolvedPath(&request);
}

TEST(SignatureCheck, AsksTheVerifierOnceWithTheLoadersSettingsAndClosesWhatRan) {
  FakePlatform fake;
  fake.trust.files = {{L"C:\\x.dll", kNoSignature}};
  SignatureCheck check;
  check.path = L"C:\\x.dll";
  EXPECT_EQ(VerifyFileSignature(&check, nullptr), kNoSignature);
  EXPECT_EQ(VerifyFileSignature(&check, nullptr), kNoSignature);
  ASSERT_EQ(fake.trust.calls.size(), 1u) << "the result is cached";
  const platform::WinTrustData& data = fake.trust.calls[0];
  EXPECT_EQ(fake.trust.windows[0], platform::kNoInteractiveUser);
  EXPECT_EQ(data.cbStruct, 88u);
  EXPECT_EQ(data.pPolicyCallbackData, nullptr);
  EXPECT_EQ(data.pSIPClientData, nullptr);
  EXPECT_EQ(data.dwUIChoice, 2u);
  EXPECT_EQ(data.fdwRevocationChecks, 0u);
  EXPECT_EQ(data.dwUnionChoice, 1u);
  EXPECT_EQ(data.dwStateAction, 1u);
  EXPECT_EQ(data.hWVTStateData, nullptr);
  EXPECT_EQ(data.pwszURLReference, nullptr);
  EXPECT_EQ(data.dwProvFlags, 0x1010u);
  EXPECT_EQ(data.dwUIContext, 0u);
  EXPECT_EQ(data.pSignatureSettings, nullptr);
  EXPECT_EQ(data.pFile->cbStruct, 32u);
  EXPECT_EQ(data.pFile->hFile, nullptr);
  EXPECT_EQ(data.pFile->pgKnownSubject, nullptr);

  CloseSignatureCheck(&check);
  ASSERT_EQ(fake.trust.calls.size(), 2u);
  EXPECT_EQ(fake.trust.calls[1].dwStateAction, 2u);
  EXPECT_EQ(fake.trust.windows[1], nullptr);

  SignatureCheck neverRan;
  CloseSignatureCheck(&neverRan);
  EXPECT_EQ(fake.trust.calls.size(), 2u);
}

TEST(SignatureCheck, FailureTextFallsBackToTheResultCode) {
  FakePlatform fake;
  fake.trust.files = {{L"C:\\x.dll", kNoSignature}};
  SignatureCheck check;
  check.path = L"C:\\x.dll";
  SignatureErrorText text;
  VerifyFileSignature(&check, &text);
  EXPECT_EQ(text.result, kNoSignature);
  ASSERT_NE(text.text, nullptr);
  EXPECT_EQ(std::wstring(text.text), L"WinVerifyTrust() call failed with result code 0x800B0100");
  delete[] text.text;
  // The message table's crypt32 comes from the system directory too, and is let go again.
  ASSERT_EQ(fake.libraries.loads.size(), 2u);
  EXPECT_EQ(fake.libraries.loads[1].path, L"crypt32.dll");
  EXPECT_EQ(fake.libraries.loads[1].flags, 0x800u);
  EXPECT_EQ(fake.libraries.freed.size(), 1u);
}

struct TrustBindingCase {
  const char* name;
  const char* setDefault;           // the host's SetDefaultDllDirectories
  bool wintrustPresent;             // whether the system directory holds wintrust.dll
  uint32_t bindError;               // what looking up WinVerifyTrust answers
  const wchar_t* expectedWintrust;  // the path the one wintrust load asks for
  uint32_t expectedFlags;
  Status expectedResult;
};

class TrustBinding : public ::testing::TestWithParam<TrustBindingCase> {};

// WinVerifyTrust is bound once, on the first verification, from a wintrust loaded the way every
// system library is: by name under the system-directory flag where the search can be
// restricted, by its full path in the system directory where it cannot. Without it no file is
// trusted and no product library is loaded.
TEST_P(TrustBinding, BindsOnceFromTheSystemDirectory) {
  const TrustBindingCase& c = GetParam();
  FakePlatform fake;
  fake.libraries.setDefaultDllDirectories = c.setDefault;
  if (!c.wintrustPresent) fake.libraries.systemLibraries.clear();
  fake.trust.bindError = c.bindError;
  fake.trust.files = {{L"C:\\work\\kvxfwctl.dll", 0}, {L"C:\\app\\kvxfwctl.dll", 0}};
  fake.libraries.loadable = {L"C:\\work\\kvxfwctl.dll", L"C:\\app\\kvxfwctl.dll"};
  platform::ModuleHandle* preloaded = HardenLibrarySearch();
  fake.libraries.loads.clear();

  for (int run = 0; run < 2; ++run) {
    LibraryLoadRequest request{L"kvxfwctl.dll", 12};
    EXPECT_EQ(static_cast<uint32_t>(NCPrivateLoadAndValidateHPLDll(&request)),
              static_cast<uint32_t>(c.expectedResult));
    FreeResolvedPath(&request);
  }

  std::vector<std::wstring> wintrustLoads;
  for (const auto& load : fake.libraries.loads) {
    if (load.path.find(L"wintrust") != std::wstring::npos) {
      wintrustLoads.push_back(load.path);
      EXPECT_EQ(load.flags, c.expectedFlags);
    }
  }
  EXPECT_EQ(wintrustLoads, std::vector<std::wstring>{c.expectedWintrust});
  EXPECT_EQ(fake.trust.bound.size(), c.wintrustPresent ? 1u : 0u);
  const bool bound = c.wintrustPresent && c.bindError == 0;
  // Verify and close for the current directory's copy, in each of the two runs.
  EXPECT_EQ(fake.trust.calls.size(), bound ? 4u : 0u);
  EXPECT_EQ(fake.libraries.ProductLoads().size(), bound ? 2u : 0u);
  ReleasePreloadedLibraries(preloaded);
}

INSTANTIATE_TEST_SUITE_P(
    Loader, TrustBinding,
    ::testing::Values(TrustBindingCase{"restricted_search", "present", true, 0, L"wintrust.dll",
                                       0x800, 0},
                      TrustBindingCase{"call_fails_flag_found_again", "fails", true, 0,
                                       L"wintrust.dll", 0x800, 0},
                      TrustBindingCase{"no_restriction_full_path", "missing", true, 0,
                                       L"C:\\Windows\\system32\\wintrust.dll", 0, 0},
                      TrustBindingCase{"wintrust_missing", "present", false, 0, L"wintrust.dll",
                                       0x800, static_cast<Status>(0x8007007Eu)},
                      TrustBindingCase{"wintrust_missing_full_path", "missing", false, 0,
                                       L"C:\\Windows\\system32\\wintrust.dll", 0,
                                       static_cast<Status>(0x8007007Eu)},
                      TrustBindingCase{"no_verifier_export", "present", true, 127, L"wintrust.dll",
                                       0x800, static_cast<Status>(0x8007007Fu)}),
    [](const ::testing::TestParamInfo<TrustBindingCase>& param) { return param.param.name; });

struct HardeningCase {
  const char* setDefault;
  bool preloads;
  uint32_t flagsAfter;        // platform::LibraryLoadFlags once the run is hardened
  const wchar_t* loadPrefix;  // what stands before each preloaded name
  uint32_t loadFlags;
};

class Hardening : public ::testing::TestWithParam<HardeningCase> {};

TEST_P(Hardening, RestrictsTheSearchOrPreloadsFromTheSystemDirectory) {
  const HardeningCase& c = GetParam();
  FakePlatform fake;
  fake.libraries.setDefaultDllDirectories = c.setDefault;
  for (const wchar_t* name : {L"crypt32.dll", L"wintrust.dll", L"ADVAPI32.DLL"}) {
    fake.libraries.loadable.push_back(std::wstring(c.loadPrefix) + name);
  }
  ResetLoaderStateForTesting();
  platform::ModuleHandle* preloaded = HardenLibrarySearch();
  EXPECT_EQ(platform::LibraryLoadFlags, c.flagsAfter);
  if (!c.preloads) {
    EXPECT_EQ(fake.libraries.setDefaultDllDirectoriesFlags, 0x800u);
    EXPECT_EQ(preloaded, nullptr);
    EXPECT_TRUE(fake.libraries.loads.empty());
    return;
  }
  ASSERT_NE(preloaded, nullptr);
  const std::vector<std::wstring> kPreloaded = {
      L"winnsi.dll",   L"cabinet.dll",   L"msasn1.dll",   L"secur32.dll",  L"userenv.dll",
      L"crypt32.dll",  L"wintrust.dll",  L"samlib.dll",   L"SLC.dll",      L"gpapi.dll",
      L"ncrypt.dll",   L"ntmarta.dll",   L"rsaenh.dll",   L"bcrypt.dll",   L"dnsapi.dll",
      L"dhcpcsvc.dll", L"dhcpcsvc6.dll", L"iphlpapi.dll", L"FWPUCLNT.DLL", L"ADVAPI32.DLL"};
  std::vector<std::wstring> asked;
  for (const auto& load : fake.libraries.loads) {
    asked.push_back(load.path);
    EXPECT_EQ(load.flags, c.loadFlags);
  }
  std::vector<std::wstring> expected;
  for (const std::wstring& name : kPreloaded) expected.push_back(c.loadPrefix + name);
  EXPECT_EQ(asked, expected);
  // The modules that loaded are packed from the front, in list order, and null-terminated.
  EXPECT_EQ(preloaded[0], fake.libraries.ModuleFor(0));
  EXPECT_EQ(preloaded[1], fake.libraries.ModuleFor(1));
  EXPECT_EQ(preloaded[2], fake.libraries.ModuleFor(2));
  EXPECT_EQ(preloaded[3], nullptr);
  ReleasePreloadedLibraries(preloaded);
  EXPECT_EQ(fake.libraries.freed.size(), 3u);
}

// When the call exists but fails, the first system-library load finds it again and restricts
// each load to the system directory by flag instead of by path.
INSTANTIATE_TEST_SUITE_P(Loader, Hardening,
                         ::testing::Values(HardeningCase{"present", false, 0x800, L"", 0},
                                           HardeningCase{"fails", true, 0x800, L"", 0x800},
                                           HardeningCase{"missing", true, 0,
                                                         L"C:\\Windows\\system32\\", 0}));

TEST(LoadSystemLibrary, AbsoluteOrShortNamesAreLoadedAsGiven) {
  FakePlatform fake;
  fake.libraries.setDefaultDllDirectories = "missing";
  ResetLoaderStateForTesting();
  platform::LoadSystemLibrary(L"D:\\x\\a.dll");
  platform::LoadSystemLibrary(L"\\\\server\\a.dll");
  platform::LoadSystemLibrary(L"ab");
  platform::LoadSystemLibrary(L"abc.dll");
  ASSERT_EQ(fake.libraries.loads.size(), 4u);
  EXPECT_EQ(fake.libraries.loads[0].path, L"D:\\x\\a.dll");
  EXPECT_EQ(fake.libraries.loads[1].path, L"\\\\server\\a.dll");
  EXPECT_EQ(fake.libraries.loads[2].path, L"ab");
  EXPECT_EQ(fake.libraries.loads[3].path, L"C:\\Windows\\system32\\abc.dll");
}

// The path is built in 260 characters. A system directory that does not fit there is reported
// by its length alone; the path is then never built from an empty directory ("\\abc", a file in
// the root of the current drive).
TEST(LoadSystemLibrary, PathMustFitTwoHundredSixtyCharacters) {
  struct Case {
    size_t directoryChars;
    bool loads;
  };
  const Case cases[] = {{255, true}, {256, false}, {259, false}, {260, false}, {400, false}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.directoryChars);
    FakePlatform fake;
    fake.libraries.setDefaultDllDirectories = "missing";
    fake.libraries.systemDirectory = L"C:\\" + std::wstring(c.directoryChars - 3, L's');
    platform::LoadSystemLibrary(L"abc");
    if (c.loads) {
      ASSERT_EQ(fake.libraries.loads.size(), 1u);
      EXPECT_EQ(fake.libraries.loads[0].path, fake.libraries.systemDirectory + L"\\abc");
    } else {
      EXPECT_TRUE(fake.libraries.loads.empty());
    }
  }
}

TEST(LoadSystemLibrary, WithRestrictedSearchTheBareNameIsLoaded) {
  FakePlatform fake;
  ResetLoaderStateForTesting();
  platform::LoadSystemLibrary(L"wintrust.dll");
  ASSERT_EQ(fake.libraries.loads.size(), 1u);
  EXPECT_EQ(fake.libraries.loads[0].path, L"wintrust.dll");
  EXPECT_EQ(fake.libraries.loads[0].flags, 0x800u);
}

}  // namespace
}  // namespace nw
