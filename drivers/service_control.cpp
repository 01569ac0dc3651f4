#include "drivers/service_control.h"

#include <cstdarg>
#include <iterator>
#include <string>
#include <utility>

#include "base/bounded_string.h"
#include "base/format.h"
#include "cli/console.h"
#include "platform/last_error.h"
#include "platform/self_protection.h"
#include "platform/service_manager.h"

namespace nw {

const wchar_t* const NdisDriverService = L"kvxnlfk";
const wchar_t* const WfpDriverService = L"kvxwfpk";
const wchar_t* const DriverClientTag = L"netwarden";

namespace {

constexpr const wchar_t* kServicesPath[] = {L"SYSTEM", L"CurrentControlSet", L"Services"};
constexpr const wchar_t* kComponentsService = L"kvxmms";
constexpr const wchar_t* kWfpRelativeImagePath = L"system32\\drivers\\kvxwfpk.sys";

wchar_t FoldAsciiLetter(wchar_t c) {
  return c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c - L'A' + L'a') : c;
}

/// Compares ignoring the case of the letters a to z only, as the path check has always done.
bool EqualsIgnoringLetterCase(const wchar_t* a, const wchar_t* b) {
  for (; *a != L'\0' && *b != L'\0'; ++a, ++b) {
    if (FoldAsciiLetter(*a) != FoldAsciiLetter(*b)) return false;
  }
  return *a == *b;
}

class ScmHandle {
 public:
  explicit ScmHandle(platform::ServiceHandle handle = nullptr) : handle_(handle) {}
  ~ScmHandle() {
    if (handle_ != nullptr) platform::TheServiceManager().CloseServiceHandle(handle_);
  }
  ScmHandle(const ScmHandle&) = delete;
  ScmHandle& operator=(const ScmHandle&) = delete;
  platform::ServiceHandle get() const { return handle_; }

 private:
  platform::ServiceHandle handle_;
};

}  // namespace

void PrintDriverLog(const char* format, ...) {
  if (format == nullptr) return;  // nothing could be formatted, so nothing is printed
  // A log line is usually short; the string grows to whatever length the line has, so no line
  // is ever cut.
  std::string line;
  line.reserve(300);
  va_list args;
  va_start(args, format);
  AppendFormatNarrowConsole(line, format, args);
  va_end(args);
  ConsolePrint(L"%hs\n", line.c_str());
}

void SilentDriverLog(const char*, ...) {}

ServiceKey::ServiceKey(const wchar_t* service, uint32_t access) {
  const wchar_t* path[] = {kServicesPath[0], kServicesPath[1], kServicesPath[2], service};
  Open(path, std::size(path), access);
}

ServiceKey ServiceKey::ForComponent(const wchar_t* component) {
  ServiceKey key;
  const wchar_t* path[] = {kServicesPath[0],   kServicesPath[1], kServicesPath[2],
                           kComponentsService, L"Services",      component};
  key.Open(path, std::size(path), kServiceKeyRead);
  return key;
}

void ServiceKey::Open(const wchar_t* const* path, size_t steps, uint32_t access) {
  platform::Registry& registry = platform::TheRegistry();
  platform::RegistryKey parent = platform::kHKeyLocalMachine;
  for (size_t i = 0; i < steps; ++i) {
    platform::RegistryKey child = nullptr;
    const uint32_t error = registry.OpenKey(parent, path[i], access, &child);
    // The predefined root is never closed.
    if (parent != platform::kHKeyLocalMachine) registry.CloseKey(parent);
    if (error != 0) {
      if (access != kServiceKeyRead) platform::SetThreadLastError(error);
      return;
    }
    parent = child;
  }
  key_ = parent;
}

ServiceKey::~ServiceKey() {
  if (key_ != nullptr) platform::TheRegistry().CloseKey(key_);
}

ServiceKey::ServiceKey(ServiceKey&& other) noexcept : key_(std::exchange(other.key_, nullptr)) {}

bool ReadRegistryDword(const ServiceKey& key, const wchar_t* name, uint32_t* value) {
  if (!key.IsOpen()) return false;
  uint32_t type = 0;
  uint32_t data = 0;
  uint32_t size = sizeof data;
  if (platform::TheRegistry().QueryValue(key.Get(), name, &type, &data, &size) != 0 ||
      type != platform::kRegDword || size != sizeof data) {
    return false;
  }
  *value = data;
  return true;
}

bool ReadRegistryString(const ServiceKey& key, const wchar_t* name, wchar_t* buffer,
                        uint32_t capacity) {
  if (!key.IsOpen() || capacity == 0) return false;
  uint32_t type = 0;
  uint32_t size = capacity * static_cast<uint32_t>(sizeof(wchar_t));
  if (platform::TheRegistry().QueryValue(key.Get(), name, &type, buffer, &size) != 0 ||
      (type != platform::kRegSz && type != platform::kRegExpandSz)) {
    return false;
  }
  // The stored text need not carry its terminator.
  const uint32_t length = size / static_cast<uint32_t>(sizeof(wchar_t));
  buffer[length < capacity ? length : capacity - 1] = L'\0';
  return true;
}

bool WriteRegistryString(const ServiceKey& key, const wchar_t* name, const wchar_t* text) {
  if (!key.IsOpen()) return false;
  const std::wstring value(text);
  const uint32_t bytes = static_cast<uint32_t>((value.size() + 1) * sizeof(wchar_t));
  const uint32_t error =
      platform::TheRegistry().SetValue(key.Get(), name, platform::kRegSz, value.c_str(), bytes);
  if (error != 0) platform::SetThreadLastError(error);
  return error == 0;
}

bool IsServiceKeyLocked(const wchar_t* service) {
  return platform::TheSelfProtection().IsServiceKeyLocked(service);
}

bool LiftServiceKeyLock(const wchar_t* service) {
  return platform::TheSelfProtection().LiftServiceKeyLock(service);
}

void RestoreServiceKeyLock(const wchar_t* service) {
  platform::TheSelfProtection().RestoreServiceKeyLock(service);
}

SelfProtectionException::SelfProtectionException(const wchar_t* clientTag, const wchar_t* service,
                                                 DriverLogFn log)
    : clientTag_(clientTag), service_(service) {
  result_ = platform::TheSelfProtection().BeginException(clientTag, service);
  held_ = result_ == 0;
  if (!held_) {
    log("SelfProtectionException: %S was refused an exception for (%S) [%d]", clientTag, service,
        result_);
  }
}

void SelfProtectionException::End() {
  if (!held_) return;
  held_ = false;
  platform::TheSelfProtection().EndException(clientTag_, service_);
}

bool BuildDriverImagePath(const wchar_t* service, uint32_t startType, wchar_t* buffer,
                          size_t capacity) {
  // A boot-start driver is loaded before \SystemRoot exists, so it gets the relative form.
  const wchar_t* folder =
      startType == kStartTypeBoot ? L"system32\\drivers\\" : L"\\SystemRoot\\system32\\drivers\\";
  return BoundedCopy(buffer, capacity, folder) == 0 && BoundedCat(buffer, capacity, service) == 0 &&
         BoundedCat(buffer, capacity, L".sys") == 0;
}

uint32_t EnableDisableDriverViaSCM(const wchar_t* service, uint32_t startType,
                                   uint32_t* previousStartType, DriverLogFn log) {
  *previousStartType = kNoPreviousStartType;
  log("EnableDisableDriverViaSCM: Attempting to change start type of service[%S] to [%d]", service,
      startType);
  ServiceKey key(service, kServiceKeyRead);
  if (!key.IsOpen()) {
    // Deliberately the thread's last error: the read open does not set it.
    const uint32_t error = platform::ThreadLastError();
    log("Driver (%S) failed to open service key [%d]", service, error);
    return error;
  }
  // A missing value leaves kNoPreviousStartType, so an undo has nothing to restore.
  ReadRegistryDword(key, L"Start", previousStartType);
  const bool lifted = IsServiceKeyLocked(service) && LiftServiceKeyLock(service);

  platform::ServiceManager& scm = platform::TheServiceManager();
  uint32_t error = 0;
  ScmHandle manager(scm.OpenSCManager(platform::kScManagerAllAccess, &error));
  if (manager.get() == nullptr) {
    log("Driver [%S] failed to open SCM [%d]", service, error);
  } else {
    ScmHandle handle(
        scm.OpenService(manager.get(), service, platform::kServiceChangeConfig, &error));
    if (handle.get() == nullptr) {
      log("Failed to open service (%S) [%d]", service, error);
    } else {
      wchar_t imagePath[kImagePathChars];
      BuildDriverImagePath(service, startType, imagePath, kImagePathChars);
      log("Driver image path will be [%S]", imagePath);
      if (!scm.ChangeServiceConfig(handle.get(), platform::kServiceNoChange, startType,
                                   platform::kServiceNoChange, imagePath, &error)) {
        log("Driver (%S) failed to configure start of service Error[%d]", service, error);
      }
    }
  }
  if (lifted) {
    log("Restore lockdown of (%S)", service);
    RestoreServiceKeyLock(service);
  }
  return error;
}

uint32_t StopOrStartService(const wchar_t* service, bool stop, DriverLogFn log) {
  bool lifted = false;
  if (stop) {
    log("IGStopDriver::StopOrStartService - Stopping service (%S)", service);
    // The answer is not needed: lifting a lock that is not there does nothing.
    (void)IsServiceKeyLocked(service);
    lifted = LiftServiceKeyLock(service);
  } else {
    log("IGStopDriver::StopOrStartService - Starting service (%S)", service);
  }
  platform::ServiceManager& scm = platform::TheServiceManager();
  uint32_t error = 0;
  ScmHandle manager(scm.OpenSCManager(platform::kGenericRead | platform::kGenericExecute, &error));
  if (manager.get() == nullptr) {
    log("IGStopDriver::StopOrStartService - Failed to open SCM to send stop to (%S) [%d]", service,
        error);
  } else {
    // A service that cannot be opened is not checked for: the call below fails on the null
    // handle and says so.
    uint32_t openError = 0;
    ScmHandle handle(scm.OpenService(manager.get(), service,
                                     platform::kServiceStop | platform::kServiceStart, &openError));
    if (!stop) {
      uint32_t ignored = 0;
      scm.StartService(handle.get(), &ignored);
    } else if (scm.ControlService(handle.get(), platform::kServiceControlStop, &error)) {
      log("IGStopDriver::StopOrStartService - Sent stop to (%S)", service);
    } else {
      log("IGStopDriver::StopOrStartService - Failed to send stop to (%S) [%d]", service, error);
    }
  }
  if (lifted) {
    log("IGStopDriver::StopOrStartService - Restore lockdown of (%S)", service);
    RestoreServiceKeyLock(service);
  }
  return error;
}

uint32_t AdjustWfpImagePath(DriverLogFn log) {
  if (log == nullptr) log = PrintDriverLog;
  SelfProtectionException exception(DriverClientTag, WfpDriverService, log);
  ServiceKey key(WfpDriverService, kServiceKeyWrite);
  if (!key.IsOpen()) return 0;
  wchar_t imagePath[kImagePathChars];
  if (!ReadRegistryString(key, L"ImagePath", imagePath, kImagePathChars)) return 0;
  if (EqualsIgnoringLetterCase(imagePath, kWfpRelativeImagePath)) return 0;
  if (WriteRegistryString(key, L"ImagePath", kWfpRelativeImagePath)) {
    log("Adjust WFP image path from [%S] to [%S]", imagePath, kWfpRelativeImagePath);
    return 0;
  }
  const uint32_t error = platform::ThreadLastError();
  log("Failed to adjust WFP image path from [%S] to [%S] [%d]", imagePath, kWfpRelativeImagePath,
      error);
  return error;
}

}  // namespace nw
