// Libraries on the emulated host: product libraries are ELF shared objects that keep their
// Windows file names and are loaded with dlopen; system libraries exist only as names listed
// in the host file, since nothing on Linux stands for them.

#include <dlfcn.h>
#include <link.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <string>

#include "core/status.h"
#include "platform/library.h"
#include "platform/posix/paths_posix.h"
#include "sim/host/host_state.h"

namespace nw::platform {
namespace {

constexpr uint32_t kErrorModNotFound = 126;
constexpr uint32_t kErrorBadExeFormat = 193;

// Stand-ins for loaded system libraries: distinct addresses that dlclose never sees.
std::array<char, 64> systemModules;

bool IsSystemModule(ModuleHandle module) {
  auto* p = static_cast<char*>(module);
  return p >= systemModules.data() && p < systemModules.data() + systemModules.size();
}

std::wstring BaseName(const std::wstring& path) {
  size_t slash = path.find_last_of(L"\\/");
  return slash == std::wstring::npos ? path : path.substr(slash + 1);
}

/// A system library is asked for by its bare name with the system-directory search, or by its
/// full path in the system directory.
ModuleHandle LoadSystemModule(const std::wstring& path, uint32_t flags) {
  const sim::HostState& host = sim::Host();
  const std::wstring upper = sim::UpperAscii(path);
  const std::wstring base = BaseName(upper);
  const bool bare = base == upper;
  const bool inSystemDirectory =
      !bare && upper == sim::UpperAscii(host.systemDirectory) + L"\\" + base;
  if (!(bare && (flags & kLoadLibrarySearchSystem32)) && !inSystemDirectory) return nullptr;
  auto it = std::find(host.systemLibraries.begin(), host.systemLibraries.end(), base);
  if (it == host.systemLibraries.end()) return nullptr;
  size_t index = static_cast<size_t>(it - host.systemLibraries.begin()) % systemModules.size();
  return systemModules.data() + index;
}

class PosixLibraries final : public Libraries {
 public:
  bool HasSetDefaultDllDirectories() override {
    return sim::Host().setDefaultDllDirectories != "missing";
  }

  bool SetDefaultDllDirectories(uint32_t) override {
    return sim::Host().setDefaultDllDirectories == "present";
  }

  ModuleHandle LoadLibraryEx(const wchar_t* path, uint32_t flags, uint32_t* error) override {
    *error = 0;
    const std::wstring name = path == nullptr ? L"" : path;
    if (ModuleHandle system = LoadSystemModule(name, flags)) return system;
    if (BaseName(name) == name) {
      // A bare name would be searched for along paths this host does not have.
      *error = kErrorModNotFound;
      return nullptr;
    }
    const std::string file = posix::PosixPathOf(name);
    struct stat st;
    if (::stat(file.c_str(), &st) != 0) {
      *error = kErrorModNotFound;
      return nullptr;
    }
    void* module = ::dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (module == nullptr) *error = kErrorBadExeFormat;
    return module;
  }

  ModuleHandle GetModuleHandleEx(const wchar_t* name) override {
    if (name == nullptr) return nullptr;
    // Product libraries carry their file name as their soname, so a loaded one is found by
    // its bare name as Windows finds a module by its base name.
    const std::string file = posix::PosixPathOf(name);
    // An empty name would hand back the program itself.
    if (file.empty()) return nullptr;
    return ::dlopen(file.c_str(), RTLD_NOW | RTLD_NOLOAD);
  }

  void* GetProcAddress(ModuleHandle module, const char* name, uint32_t* error) override {
    *error = 0;
    void* proc = module == nullptr || IsSystemModule(module) ? nullptr : ::dlsym(module, name);
    if (proc == nullptr) *error = kErrorProcNotFound;
    return proc;
  }

  void FreeLibrary(ModuleHandle module) override {
    if (module != nullptr && !IsSystemModule(module)) ::dlclose(module);
  }

  uint32_t GetModuleFileName(ModuleHandle module, wchar_t* buffer, uint32_t capacity,
                             uint32_t* error) override {
    *error = 0;
    if (auto fault = sim::HostFault("GetModuleFileName")) {
      *error = static_cast<uint32_t>(*fault);
      return 0;
    }
    std::string file;
    if (module == nullptr) {
      char link[PATH_MAX];
      ssize_t n = ::readlink("/proc/self/exe", link, sizeof link);
      if (n <= 0 || static_cast<size_t>(n) >= sizeof link) {
        *error = kErrorInternalError;
        return 0;
      }
      file.assign(link, static_cast<size_t>(n));
    } else {
      link_map* map = nullptr;
      if (IsSystemModule(module) || ::dlinfo(module, RTLD_DI_LINKMAP, &map) != 0 ||
          map == nullptr) {
        *error = kErrorModNotFound;
        return 0;
      }
      file = map->l_name;
    }
    const std::wstring name = posix::WindowsFormOf(file);
    if (capacity == 0) {
      *error = kErrorInsufficientBuffer;
      return 0;
    }
    if (name.size() >= capacity) {
      // As Windows does: the text cut to the buffer, terminated, and the full size returned.
      std::copy_n(name.c_str(), capacity - 1, buffer);
      buffer[capacity - 1] = L'\0';
      *error = kErrorInsufficientBuffer;
      return capacity;
    }
    std::copy_n(name.c_str(), name.size() + 1, buffer);
    return static_cast<uint32_t>(name.size());
  }

  uint32_t GetSystemDirectory(wchar_t* buffer, uint32_t capacity) override {
    if (sim::HostFault("GetSystemDirectory")) return 0;
    const std::wstring& dir = sim::Host().systemDirectory;
    if (dir.size() + 1 > capacity) return static_cast<uint32_t>(dir.size() + 1);
    std::copy_n(dir.c_str(), dir.size() + 1, buffer);
    return static_cast<uint32_t>(dir.size());
  }

  uint32_t GetCurrentDirectory(uint32_t capacity, wchar_t* buffer, uint32_t* error) override {
    *error = 0;
    if (auto fault = sim::HostFault("GetCurrentDirectory")) {
      *error = static_cast<uint32_t>(*fault);
      return 0;
    }
    char cwd[PATH_MAX];
    if (::getcwd(cwd, sizeof cwd) == nullptr) {
      *error = kErrorFileNotFound;
      return 0;
    }
    const std::wstring dir = posix::WindowsFormOf(cwd);
    if (dir.size() + 1 > capacity) return static_cast<uint32_t>(dir.size() + 1);
    std::copy_n(dir.c_str(), dir.size() + 1, buffer);
    return static_cast<uint32_t>(dir.size());
  }
};

}  // namespace

template <>
Libraries& Facility<Libraries>::Host() {
  static PosixLibraries libraries;
  return libraries;
}

}  // namespace nw::platform
