#pragma once

// In-memory stand-ins for the host facilities, recording what the logic asked of them, so that
// the loader's decisions can be checked on any host without files, registry or signatures.

#include <cstring>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "base/format.h"
#include "cli/loader.h"
#include "core/status.h"
#include "platform/library.h"
#include "platform/process.h"
#include "platform/registry.h"
#include "platform/signature.h"

namespace nw::testing {

class FakeLibraries final : public platform::Libraries {
 public:
  std::string setDefaultDllDirectories = "present";  // "present", "missing", "fails"
  std::wstring currentDirectory = L"C:\\work";
  uint32_t currentDirectoryError = 0;  // non-zero: GetCurrentDirectory fails with it
  std::wstring programPath = L"C:\\app\\netwarden.exe";
  std::wstring systemDirectory = L"C:\\Windows\\system32";
  /// Paths LoadLibraryEx succeeds for (upper case not needed: compared as given).
  std::vector<std::wstring> loadable;
  /// System libraries that also load, as on the emulated host: by bare name with the
  /// system-directory flag, or by their full path in the system directory.
  std::vector<std::wstring> systemLibraries = {L"wintrust.dll", L"crypt32.dll"};
  /// Exports of every loaded module.
  std::map<std::string, void*> exports;
  uint32_t loadError = 126;

  struct Load {
    std::wstring path;
    uint32_t flags;
  };
  std::vector<Load> loads;
  std::vector<platform::ModuleHandle> freed;
  std::vector<uint32_t> moduleNameCapacities;

  bool HasSetDefaultDllDirectories() override { return setDefaultDllDirectories != "missing"; }
  bool SetDefaultDllDirectories(uint32_t flags) override {
    setDefaultDllDirectoriesFlags = flags;
    return setDefaultDllDirectories == "present";
  }
  uint32_t setDefaultDllDirectoriesFlags = 0;

  platform::ModuleHandle LoadLibraryEx(const wchar_t* path, uint32_t flags,
                                       uint32_t* error) override {
    loads.push_back({path, flags});
    for (size_t i = 0; i < loadable.size(); ++i) {
      if (loadable[i] == path) return ModuleFor(i);
    }
    for (const std::wstring& name : systemLibraries) {
      if ((name == path && (flags & platform::kLoadLibrarySearchSystem32) != 0) ||
          systemDirectory + L"\\" + name == path) {
        return &systemModuleToken_;
      }
    }
    *error = loadError;
    return nullptr;
  }
  /// The loads of product libraries (the only ones made with the altered search path).
  std::vector<Load> ProductLoads() const {
    std::vector<Load> product;
    for (const Load& load : loads) {
      if (load.flags == platform::kLoadWithAlteredSearchPath) product.push_back(load);
    }
    return product;
  }
  platform::ModuleHandle GetModuleHandleEx(const wchar_t*) override { return nullptr; }
  void* GetProcAddress(platform::ModuleHandle, const char* name, uint32_t* error) override {
    auto it = exports.find(name);
    if (it != exports.end()) return it->second;
    *error = kErrorProcNotFound;
    return nullptr;
  }
  void FreeLibrary(platform::ModuleHandle module) override { freed.push_back(module); }
  uint32_t GetModuleFileName(platform::ModuleHandle, wchar_t* buffer, uint32_t capacity,
                             uint32_t* error) override {
    moduleNameCapacities.push_back(capacity);
    if (programPath.size() >= capacity) {
      programPath.copy(buffer, capacity - 1);
      buffer[capacity - 1] = L'\0';
      *error = kErrorInsufficientBuffer;
      return capacity;
    }
    programPath.copy(buffer, programPath.size());
    buffer[programPath.size()] = L'\0';
    return static_cast<uint32_t>(programPath.size());
  }
  uint32_t GetSystemDirectory(wchar_t* buffer, uint32_t capacity) override {
    if (systemDirectory.size() + 1 > capacity) {
      return static_cast<uint32_t>(systemDirectory.size() + 1);
    }
    systemDirectory.copy(buffer, systemDirectory.size());
    buffer[systemDirectory.size()] = L'\0';
    return static_cast<uint32_t>(systemDirectory.size());
  }
  uint32_t GetCurrentDirectory(uint32_t capacity, wchar_t* buffer, uint32_t* error) override {
    if (currentDirectoryError != 0) {
      *error = currentDirectoryError;
      return 0;
    }
    if (currentDirectory.size() + 1 > capacity) {
      return static_cast<uint32_t>(currentDirectory.size() + 1);
    }
    currentDirectory.copy(buffer, currentDirectory.size());
    buffer[currentDirectory.size()] = L'\0';
    return static_cast<uint32_t>(currentDirectory.size());
  }

  /// A distinct non-null handle per loadable path.
  platform::ModuleHandle ModuleFor(size_t index) { return &moduleTokens_[index % 16]; }

 private:
  char moduleTokens_[16] = {};
  char systemModuleToken_ = 0;
};

/// A registry holding at most the install-directory value.
class FakeRegistry final : public platform::Registry {
 public:
  bool keyExists = true;
  bool hasValue = false;
  std::wstring installDirectory;
  uint32_t openAccess = 0;
  std::wstring openedSubKey;
  int openKeys = 0;

  uint32_t OpenKey(platform::RegistryKey root, const wchar_t* subKey, uint32_t access,
                   platform::RegistryKey* key) override {
    openedSubKey = subKey;
    openAccess = access;
    if (root != platform::kHKeyLocalMachine || !keyExists) return kErrorFileNotFound;
    ++openKeys;
    *key = this;
    return 0;
  }
  uint32_t QueryValue(platform::RegistryKey, const wchar_t* name, uint32_t* type, void* data,
                      uint32_t* size) override {
    if (!hasValue || std::wstring(name) != L"szInstallDir64") return kErrorFileNotFound;
    const uint32_t needed = static_cast<uint32_t>((installDirectory.size() + 1) * sizeof(wchar_t));
    *type = platform::kRegSz;
    if (*size < needed) {
      *size = needed;
      return kErrorMoreData;
    }
    std::memcpy(data, installDirectory.c_str(), needed);
    *size = needed;
    return 0;
  }
  uint32_t SetValue(platform::RegistryKey, const wchar_t*, uint32_t, const void*,
                    uint32_t) override {
    return 5;
  }
  uint32_t CloseKey(platform::RegistryKey) override {
    --openKeys;
    return 0;
  }
};

/// Files by path with the verification result each gets; every other path is missing.
class FakeTrust final : public platform::Trust {
 public:
  std::map<std::wstring, int32_t> files;
  int32_t missingResult = kCryptEFileError;
  std::vector<std::wstring> verified;
  std::vector<platform::WinTrustData> calls;
  std::vector<void*> windows;
  /// The modules BindWinVerifyTrust was given, and what it answers.
  std::vector<platform::ModuleHandle> bound;
  uint32_t bindError = 0;

  uint32_t BindWinVerifyTrust(platform::ModuleHandle wintrust) override {
    bound.push_back(wintrust);
    return bindError;
  }

  int32_t WinVerifyTrust(void* window, const Guid* action, platform::WinTrustData* data) override {
    windows.push_back(window);
    calls.push_back(*data);
    if (!(*action == platform::kWinTrustActionGenericVerifyV2)) return -1;
    if (data->dwStateAction == platform::kWtdStateActionClose) return 0;
    verified.push_back(data->pFile->pcwszFilePath);
    auto it = files.find(data->pFile->pcwszFilePath);
    return it == files.end() ? missingResult : it->second;
  }
  wchar_t* MessageText(platform::ModuleHandle, int32_t) override { return nullptr; }
};

class FakeProcess final : public platform::Process {
 public:
  std::vector<std::string> debugLines;
  int32_t wsaStartupError = 0;
  void OutputDebugString(const wchar_t* text) override { debugLines.push_back(WideToUtf8(text)); }
  int32_t WsaStartup(uint16_t) override { return wsaStartupError; }
  void WsaCleanup() override {}
  /// Each address request as (family, length offered); every one fails as text that is no
  /// address.
  std::vector<std::pair<uint16_t, int32_t>> addressRequests;
  int32_t StringToAddress(const wchar_t*, uint16_t family, platform::SocketAddress*,
                          int32_t* length) override {
    addressRequests.emplace_back(family, *length);
    return 10022;
  }
  void IgnoreInvalidParameters() override {}
};

/// Puts the fakes in place for one test and the host's facilities back afterwards.
struct FakePlatform {
  FakeLibraries libraries;
  FakeRegistry registry;
  FakeTrust trust;
  FakeProcess process;
  FakePlatform() {
    // Each test starts as a new process would: unhardened, with WinVerifyTrust not yet bound.
    ResetLoaderStateForTesting();
    platform::Facility<platform::Libraries>::SetForTesting(&libraries);
    platform::Facility<platform::Registry>::SetForTesting(&registry);
    platform::Facility<platform::Trust>::SetForTesting(&trust);
    platform::Facility<platform::Process>::SetForTesting(&process);
  }
  ~FakePlatform() {
    platform::Facility<platform::Libraries>::SetForTesting(nullptr);
    platform::Facility<platform::Registry>::SetForTesting(nullptr);
    platform::Facility<platform::Trust>::SetForTesting(nullptr);
    platform::Facility<platform::Process>::SetForTesting(nullptr);
  }
  FakePlatform(const FakePlatform&) = delete;
  FakePlatform& operator=(const FakePlatform&) = delete;
};

}  // namespace nw::testing
