#include <dlfcn.h>

#include <cstdlib>

#include "sim/common/module_ref.h"

namespace nw::sim {
namespace {

// Any address inside this library tells the dynamic linker which object it belongs to.
const char kAnchor = 0;

}  // namespace

std::string FileBesideLibrary(const char* name) {
  Dl_info info;
  if (::dladdr(&kAnchor, &info) == 0 || info.dli_fname == nullptr) return {};
  std::string path = info.dli_fname;
  const size_t slash = path.rfind('/');
  path.erase(slash == std::string::npos ? 0 : slash + 1);
  return path + name;
}

std::string EnvironmentVariable(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

void ModuleSelfReference::Acquire() {
  if (handle_ != nullptr) return;
  Dl_info info;
  if (::dladdr(&kAnchor, &info) == 0 || info.dli_fname == nullptr) return;
  // RTLD_NOLOAD only adds a reference to the object already loaded under that name.
  handle_ = ::dlopen(info.dli_fname, RTLD_NOW | RTLD_NOLOAD);
}

void ModuleSelfReference::Release() {
  if (handle_ == nullptr) return;
  ::dlclose(handle_);
  handle_ = nullptr;
}

}  // namespace nw::sim
