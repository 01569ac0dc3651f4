#include <stdlib.h>
#include <windows.h>

#include "base/format.h"
#include "sim/common/module_ref.h"

namespace nw::sim {
namespace {

// Any address inside this library tells the loader which module it belongs to.
const char kAnchor = 0;

}  // namespace

std::string FileBesideLibrary(const char* name) {
  HMODULE module = nullptr;
  if (!::GetModuleHandleExW(
          GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
          reinterpret_cast<LPCWSTR>(&kAnchor), &module)) {
    return {};
  }
  std::wstring path(MAX_PATH, L'\0');
  for (;;) {
    const DWORD length = ::GetModuleFileNameW(module, path.data(), static_cast<DWORD>(path.size()));
    if (length == 0) return {};
    if (length < path.size()) {
      path.resize(length);
      break;
    }
    path.resize(path.size() * 2);
  }
  path.erase(path.find_last_of(L"\\/") + 1);
  return WideToUtf8(path) + name;
}

std::string EnvironmentVariable(const char* name) {
  // The wide environment: the narrow one is in the ANSI code page, which cannot say every path.
  const wchar_t* value = ::_wgetenv(Utf8ToWide(name).c_str());
  return value != nullptr ? WideToUtf8(value) : "";
}

void ModuleSelfReference::Acquire() {
  if (handle_ != nullptr) return;
  HMODULE module = nullptr;
  // Without GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT this adds a reference.
  if (::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                           reinterpret_cast<LPCWSTR>(&kAnchor), &module)) {
    handle_ = module;
  }
}

void ModuleSelfReference::Release() {
  if (handle_ == nullptr) return;
  ::FreeLibrary(static_cast<HMODULE>(handle_));
  handle_ = nullptr;
}

}  // namespace nw::sim
