#include "cli/loader.h"

#include <algorithm>
#include <iterator>
#include <new>

#include "base/bounded_string.h"
#include "core/interfaces.h"
#include "platform/process.h"
#include "platform/registry.h"

namespace nw {
namespace {

constexpr const wchar_t* kSystemLibraryPreloadList[] = {
    L"winnsi.dll",   L"cabinet.dll",   L"msasn1.dll",   L"secur32.dll",  L"userenv.dll",
    L"crypt32.dll",  L"wintrust.dll",  L"samlib.dll",   L"SLC.dll",      L"gpapi.dll",
    L"ncrypt.dll",   L"ntmarta.dll",   L"rsaenh.dll",   L"bcrypt.dll",   L"dnsapi.dll",
    L"dhcpcsvc.dll", L"dhcpcsvc6.dll", L"iphlpapi.dll", L"FWPUCLNT.DLL", L"ADVAPI32.DLL",
    nullptr};
constexpr size_t kPreloadCount = std::size(kSystemLibraryPreloadList) - 1;

constexpr const wchar_t* kInstallKey = L"Software\\Korvane\\HostBase";
constexpr const wchar_t* kInstallDirValue = L"szInstallDir64";
constexpr uint32_t kInstallKeyAccess = platform::kKeyRead | platform::kKeyWow64_32Key;
constexpr size_t kMinPathChars = 261;
constexpr uint32_t kFirstModuleNameChars = 260;

// WinVerifyTrust is bound on the first verification and the outcome holds for the process.
bool trustBound = false;
Status trustBindingFailure = kStatusOk;

/// A name the caller already made a path of: nothing else is searched.
bool IsGivenPath(const wchar_t* name, uint64_t length) {
  return length <= 2 || name[0] == L'\\' || name[1] == L':';
}

bool IsAcceptedResult(Status status) {
  return status == 0 || status == kCryptESecuritySettings || status == kCertEExpired ||
         status == kCertERevocationFailure;
}

bool IsMissingFile(Status status) {
  return status == static_cast<Status>(kErrorFileNotFound) || status == kCryptEFileError;
}

void Debug(const wchar_t* text) { platform::TheProcess().OutputDebugString(text); }

bool AllocateResolvedPath(LibraryLoadRequest* request, uint64_t chars) {
  FreeResolvedPath(request);
  request->resolvedPath = new (std::nothrow) wchar_t[chars]();
  if (request->resolvedPath == nullptr) return false;
  request->resolvedCapacity = chars;
  return true;
}

/// Binds WinVerifyTrust from a wintrust that LoadSystemLibrary loaded, so it comes from the
/// system directory under the search flags the hardening chose, like every other system library.
/// wintrust then stays loaded for the rest of the process. Returns 0, or the failure every
/// verification reports from then on.
Status BindWinVerifyTrust() {
  if (!trustBound) {
    trustBound = true;
    uint32_t error = kErrorModNotFound;
    if (platform::ModuleHandle wintrust = platform::LoadSystemLibrary(L"wintrust.dll")) {
      error = platform::TheTrust().BindWinVerifyTrust(wintrust);
    }
    trustBindingFailure = HresultFromWin32(error);
  }
  return trustBindingFailure;
}

/// The system's text for a verification result, from crypt32's message table; null without it.
wchar_t* VerificationMessage(int32_t result) {
  platform::ModuleHandle crypt32 = platform::LoadSystemLibrary(L"crypt32.dll");
  if (crypt32 == nullptr) return nullptr;
  wchar_t* text = platform::TheTrust().MessageText(crypt32, result);
  platform::TheLibraries().FreeLibrary(crypt32);
  return text;
}

Status VerifyPath(const wchar_t* path) {
  SignatureCheck check;
  check.path = path;
  const Status status = VerifyFileSignature(&check, nullptr);
  CloseSignatureCheck(&check);
  return status;
}

/// Builds "<szInstallDir64>\<name>" in the path buffer. On failure *lastError tells why; 111
/// means the directory was read but the name did not fit after it.
bool InstallDirectoryPath(LibraryLoadRequest* request, uint32_t* lastError) {
  platform::Registry& registry = platform::TheRegistry();
  platform::RegistryKey key = nullptr;
  *lastError = registry.OpenKey(platform::kHKeyLocalMachine, kInstallKey, kInstallKeyAccess, &key);
  if (*lastError != 0) return false;
  const uint64_t bytes = request->resolvedCapacity * sizeof(wchar_t);
  uint32_t size = static_cast<uint32_t>(std::min<uint64_t>(bytes, UINT32_MAX));
  uint32_t type = 0;
  *lastError = registry.QueryValue(key, kInstallDirValue, &type, request->resolvedPath, &size);
  registry.CloseKey(key);
  if (*lastError != 0) return false;
  const size_t cch = request->resolvedCapacity;
  if (BoundedCat(request->resolvedPath, cch, L"\\") != 0 ||
      BoundedCat(request->resolvedPath, cch, request->name) != 0) {
    *lastError = kErrorBufferOverflow;
    return false;
  }
  return true;
}

Status CurrentDirectoryCandidate(LibraryLoadRequest* request) {
  platform::Libraries& libraries = platform::TheLibraries();
  uint32_t error = 0;
  const uint32_t needed = libraries.GetCurrentDirectory(0, nullptr, &error);
  if (needed == 0) return static_cast<Status>(error);
  wchar_t* directory = new (std::nothrow) wchar_t[needed]();
  if (directory == nullptr) return kErrorOutOfMemory;
  const uint32_t length = libraries.GetCurrentDirectory(needed, directory, &error);
  Status status = 0;
  if (length == 0 || length >= needed) {
    // Zero is a failure; a larger length means the directory changed between the two calls.
    status =
        length == 0 ? static_cast<Status>(error) : static_cast<Status>(kErrorInsufficientBuffer);
  } else if (!AllocateResolvedPath(request, request->nameLength + 2 + length)) {
    status = kErrorOutOfMemory;
  } else if (BoundedPrintf(request->resolvedPath, request->resolvedCapacity, L"%ls\\%ls", directory,
                           request->name) != 0) {
    status = kErrorBufferOverflow;
  } else {
    status = VerifyPath(request->resolvedPath);
  }
  delete[] directory;
  return status;
}

/// The file name of module (null: the program) in a new[] buffer that grows until it holds the
/// whole name. Returns 0 or the error that stopped it.
Status ModuleFileName(platform::ModuleHandle module, wchar_t** name) {
  platform::Libraries& libraries = platform::TheLibraries();
  *name = nullptr;
  for (uint32_t capacity = kFirstModuleNameChars;; capacity *= 2) {
    wchar_t* buffer = new (std::nothrow) wchar_t[capacity]();
    if (buffer == nullptr) return kErrorOutOfMemory;
    uint32_t error = 0;
    const uint32_t length = libraries.GetModuleFileName(module, buffer, capacity, &error);
    if (length == capacity && error == kErrorInsufficientBuffer && capacity <= UINT32_MAX / 2) {
      delete[] buffer;
      continue;
    }
    if (length == 0) {
      delete[] buffer;
      return static_cast<Status>(error);
    }
    *name = buffer;
    return 0;
  }
}

Status ExeDirectoryCandidate(LibraryLoadRequest* request) {
  wchar_t* moduleName = nullptr;
  Status status = ModuleFileName(request->pathModule, &moduleName);
  if (status != 0) return status;
  const wchar_t* lastSeparator = nullptr;
  for (const wchar_t* p = moduleName; *p != L'\0'; ++p) {
    if (*p == L'\\') lastSeparator = p;
  }
  wchar_t* directory = nullptr;
  size_t directoryChars = 0;
  if (lastSeparator != nullptr) {
    directoryChars = static_cast<size_t>(lastSeparator - moduleName);
    directory = new (std::nothrow) wchar_t[directoryChars + 1];
  }
  if (directory == nullptr) {
    status = kErrorInternalError;
  } else {
    std::copy_n(moduleName, directoryChars, directory);
    directory[directoryChars] = L'\0';
    const uint64_t needed = directoryChars + request->nameLength + 2;
    if (request->resolvedCapacity < needed && !AllocateResolvedPath(request, needed)) {
      status = kErrorOutOfMemory;
    } else if (BoundedPrintf(request->resolvedPath, request->resolvedCapacity, L"%ls\\%ls",
                             directory, request->name) != 0) {
      status = kErrorBufferOverflow;
    } else {
      status = VerifyPath(request->resolvedPath);
    }
  }
  delete[] directory;
  delete[] moduleName;
  return status;
}

void ReportRejection(const LibraryLoadRequest* request, Status status) {
  const wchar_t* tried = request->resolvedPath != nullptr ? request->resolvedPath : request->name;
  size_t triedChars = 0;
  if (!BoundedLength(tried, kMaxLibraryNameChars, &triedChars)) return;
  wchar_t* program = nullptr;
  if (ModuleFileName(request->pathModule, &program) != 0) return;
  size_t programChars = 0;
  BoundedLength(program, kStrSafeMaxChars, &programChars);
  const size_t capacity = triedChars + programChars + 512;
  wchar_t* message = new (std::nothrow) wchar_t[capacity];
  if (message != nullptr &&
      BoundedPrintf(message, capacity,
                    L"NotComDllGetInterface: %ls loading %ls, WinVerifyTrust failed with %08x\n",
                    program, tried, status) == 0) {
    Debug(message);
  }
  delete[] message;
  delete[] program;
}

}  // namespace

platform::ModuleHandle* HardenLibrarySearch() {
  platform::Libraries& libraries = platform::TheLibraries();
  if (libraries.HasSetDefaultDllDirectories()) {
    platform::LibraryLoadFlags = platform::kLoadLibrarySearchSystem32;
    if (!libraries.SetDefaultDllDirectories(platform::kLoadLibrarySearchSystem32)) {
      platform::LibraryLoadFlags = 0;
    }
  } else {
    platform::LibraryLoadFlags = 0;
  }
  if (platform::LibraryLoadFlags != 0) return nullptr;
  auto* modules = new (std::nothrow) platform::ModuleHandle[kPreloadCount + 1]();
  if (modules == nullptr) return nullptr;
  size_t kept = 0;
  for (size_t i = 0; i < kPreloadCount; ++i) {
    if (platform::ModuleHandle module = platform::LoadSystemLibrary(kSystemLibraryPreloadList[i])) {
      modules[kept++] = module;
    }
  }
  return modules;
}

void ReleasePreloadedLibraries(platform::ModuleHandle* modules) {
  if (modules == nullptr) return;
  for (platform::ModuleHandle* m = modules; *m != nullptr; ++m) {
    platform::TheLibraries().FreeLibrary(*m);
  }
  delete[] modules;
}

void ResetLoaderStateForTesting() {
  platform::ResetSystemLibraryStateForTesting();
  trustBound = false;
  trustBindingFailure = kStatusOk;
}

void FreeResolvedPath(LibraryLoadRequest* request) {
  delete[] request->resolvedPath;
  request->resolvedPath = nullptr;
  request->resolvedCapacity = 0;
}

Status NCPrivateLoadAndValidateHPLDll(LibraryLoadRequest* request) {
  request->resolvedPath = nullptr;
  request->resolvedCapacity = 0;
  if (request->name == nullptr || request->nameLength == 0 ||
      request->nameLength > kMaxLibraryNameChars) {
    return kErrorInvalidParameter;
  }
  if (!AllocateResolvedPath(request, std::max<uint64_t>(request->nameLength + 1, kMinPathChars))) {
    return kErrorOutOfMemory;
  }
  const bool givenPath = IsGivenPath(request->name, request->nameLength);
  Status status = 0;
  if (givenPath) {
    BoundedCopy(request->resolvedPath, request->resolvedCapacity, request->name);
    status = VerifyPath(request->resolvedPath);
  } else {
    uint32_t lastError = 0;
    if (InstallDirectoryPath(request, &lastError)) {
      status = VerifyPath(request->resolvedPath);
    } else {
      FreeResolvedPath(request);
      status = kErrorFileNotFound;
      // A directory too long for the name is configured but unusable: the current directory
      // must not stand in for it.
      if (lastError != kErrorBufferOverflow) {
        Debug(L"NCPrivateLoadAndValidateHPLDll: Looking in current directory\n");
        status = CurrentDirectoryCandidate(request);
      }
    }
  }
  if (!givenPath && IsMissingFile(status)) {
    Debug(L"NCPrivateLoadAndValidateHPLDll: Looking in EXE directory\n");
    status = ExeDirectoryCandidate(request);
  }
  if (IsAcceptedResult(status)) {
    if (request->resolvedPath == nullptr) return kErrorInternalError;
    uint32_t error = 0;
    request->module = platform::TheLibraries().LoadLibraryEx(
        request->resolvedPath, platform::kLoadWithAlteredSearchPath, &error);
    if (request->module == nullptr) {
      FreeResolvedPath(request);
      return static_cast<Status>(error);
    }
    return 0;
  }
  ReportRejection(request, status);
  FreeResolvedPath(request);
  return status;
}

int32_t VerifyFileSignature(SignatureCheck* check, SignatureErrorText* errorText) {
  if (check->done) return check->result;
  check->fileInfo = {};
  check->fileInfo.cbStruct = sizeof(platform::WinTrustFileInfo);
  check->fileInfo.pcwszFilePath = check->path;
  check->trustData = {};
  check->trustData.cbStruct = sizeof(platform::WinTrustData);
  check->trustData.dwUIChoice = platform::kWtdUiNone;
  check->trustData.fdwRevocationChecks = platform::kWtdRevokeNone;
  check->trustData.dwUnionChoice = platform::kWtdChoiceFile;
  check->trustData.pFile = &check->fileInfo;
  check->trustData.dwStateAction = platform::kWtdStateActionVerify;
  check->trustData.dwProvFlags =
      platform::kWtdRevocationCheckNone | platform::kWtdCacheOnlyUrlRetrieval;
  Guid action = platform::kWinTrustActionGenericVerifyV2;
  check->result = BindWinVerifyTrust();
  if (check->result == kStatusOk) {
    check->result = platform::TheTrust().WinVerifyTrust(platform::kNoInteractiveUser, &action,
                                                        &check->trustData);
  }
  check->done = true;
  if (check->result != 0 && errorText != nullptr) {
    errorText->result = check->result;
    errorText->text = VerificationMessage(check->result);
    if (errorText->text == nullptr) {
      // 200 bytes of UTF-16 text on the product's platform.
      constexpr size_t kFallbackChars = 100;
      errorText->text = new (std::nothrow) wchar_t[kFallbackChars]();
      if (errorText->text != nullptr) {
        BoundedPrintf(errorText->text, kFallbackChars,
                      L"WinVerifyTrust() call failed with result code 0x%08lX",
                      static_cast<uint32_t>(check->result));
      }
    }
  }
  return check->result;
}

void CloseSignatureCheck(SignatureCheck* check) {
  // Without a verifier nothing was opened that needs closing.
  if (!check->done || trustBindingFailure != kStatusOk) return;
  check->trustData.dwStateAction = platform::kWtdStateActionClose;
  Guid action = platform::kWinTrustActionGenericVerifyV2;
  platform::TheTrust().WinVerifyTrust(nullptr, &action, &check->trustData);
}

Status GetProductInterface(const wchar_t* libraryName, uint64_t nameLength,
                           const char* interfaceName, void** out,
                           platform::ModuleHandle pathModule) {
  LibraryLoadRequest request;
  request.name = libraryName;
  request.nameLength = nameLength;
  request.pathModule = pathModule;
  Status status = NCPrivateLoadAndValidateHPLDll(&request);
  if (status == 0) {
    *out = nullptr;
    platform::Libraries& libraries = platform::TheLibraries();
    if (request.module != nullptr) {
      uint32_t error = 0;
      auto getInterface = reinterpret_cast<NotComDllGetInterfaceFn>(
          libraries.GetProcAddress(request.module, "NotComDllGetInterface", &error));
      status =
          getInterface != nullptr ? getInterface(interfaceName, out) : static_cast<Status>(error);
      // The library keeps itself loaded while its objects live; the program holds no reference.
      libraries.FreeLibrary(request.module);
    } else {
      status = kErrorFileNotFound;
    }
  }
  FreeResolvedPath(&request);
  return status;
}

Status NotComDllGetInterface(const wchar_t* libraryName, const char* interfaceName, void** out,
                             platform::ModuleHandle pathModule) {
  size_t length = 0;
  if (!BoundedLength(libraryName, kMaxLibraryNameChars, &length)) return kErrorInvalidParameter;
  return GetProductInterface(libraryName, length, interfaceName, out, pathModule);
}

void NotComDllUnload(const wchar_t* libraryName) {
  platform::Libraries& libraries = platform::TheLibraries();
  platform::ModuleHandle module = libraries.GetModuleHandleEx(libraryName);
  if (module == nullptr) return;
  uint32_t error = 0;
  if (auto unload = reinterpret_cast<NotComDllUnloadFn>(
          libraries.GetProcAddress(module, "NotComDllUnload", &error))) {
    unload();
  }
  libraries.FreeLibrary(module);
}

}  // namespace nw
