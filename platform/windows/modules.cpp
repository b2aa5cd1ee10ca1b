#include "platform/modules.h"

#include <windows.h>

#include "platform/module_path.h"
#include "platform/windows/wide.h"

namespace platform {
namespace {

RawModule Raw(HMODULE module) {
  return static_cast<RawModule>(reinterpret_cast<std::uintptr_t>(module));
}

HMODULE Handle(RawModule module) {
  return reinterpret_cast<HMODULE>(static_cast<std::uintptr_t>(module));
}

// The number of a call that gave nothing. Where the system left none, 0 would say that it worked.
Status Failure() {
  const DWORD error = GetLastError();
  return error != ERROR_SUCCESS ? error : kGeneralFailure;
}

}  // namespace

void ModuleTraits::Close(RawModule module) noexcept {
  FreeLibrary(Handle(module));
}

Status LoadModule(const char16_t* path, Module& module) {
  if (path == nullptr || !NamesAFile(path)) {
    module.Reset();
    return kModuleNotFound;
  }
  const HMODULE loaded = LoadLibraryW(ToSystem(path));
  const Status status = loaded != nullptr ? kSuccess : Failure();
  module.Reset(Raw(loaded));
  return status;
}

Status FindLoadedModule(const char16_t* name, RawModule& module) {
  module = Raw(GetModuleHandleW(ToSystem(name)));
  return module != RawModule{} ? kSuccess : Failure();
}

Status FindProcedure(RawModule module, const char* name, Procedure& procedure) {
  procedure = nullptr;
  if (module == RawModule{}) {
    return kInvalidHandle;  // where the system would look in the program itself
  }
  procedure = reinterpret_cast<Procedure>(GetProcAddress(Handle(module), name));
  return procedure != nullptr ? kSuccess : Failure();
}

}  // namespace platform
