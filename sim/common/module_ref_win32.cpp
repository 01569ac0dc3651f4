#include <windows.h>

#include "sim/common/module_ref.h"

namespace nw::sim {
namespace {

// Any address inside this library tells the loader which module it belongs to.
const char kAnchor = 0;

}  // namespace

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
