#include "platform/modules.h"

#include <string_view>

#include "platform/module_path.h"
#include "testing/fake_platform/state.h"

namespace platform {
namespace {

using fake::LockedPlatform;
using fake::StoredModule;

StoredModule* FindLoadable(fake::PlatformState& locked, std::u16string_view path) {
  if (StoredModule* const loaded = fake::FindLoaded(locked, path)) {
    return loaded;
  }
  std::u16string wanted(path);
  if (wanted.find_first_of(u"\\/") == std::u16string::npos) {
    wanted.insert(0, locked.system_directory + u"\\");
  }
  const auto found = locked.modules.find(fake::NormalPath(wanted));
  return found == locked.modules.end() ? nullptr : &found->second;
}

}  // namespace

void ModuleTraits::Close(RawModule module) noexcept {
  LockedPlatform locked;
  StoredModule* const found = fake::FindByHandle(*locked, module);
  if (found != nullptr && --found->references == 0) {
    found->handle = 0;
  }
}

Status LoadModule(const char16_t* path, Module& module) {
  module.Reset();
  LockedPlatform locked;
  if (const Status fault = locked.RecordFallible("LoadModule", path)) {
    return fault;
  }
  StoredModule* const found =
      path != nullptr && NamesAFile(path) ? FindLoadable(*locked, path) : nullptr;
  if (found == nullptr) {
    return kModuleNotFound;
  }
  module.Reset(fake::AddReference(*locked, *found));
  return kSuccess;
}

Status FindLoadedModule(const char16_t* name, RawModule& module) {
  module = RawModule{};
  LockedPlatform locked;
  if (const Status fault = locked.RecordFallible("FindLoadedModule", name)) {
    return fault;
  }
  const StoredModule* const found = fake::FindLoaded(*locked, name);
  if (found == nullptr) {
    return kModuleNotFound;
  }
  module = RawModule{found->handle};
  return kSuccess;
}

Status FindProcedure(RawModule module, const char* name, Procedure& procedure) {
  procedure = nullptr;
  LockedPlatform locked;
  const StoredModule* const found = fake::FindByHandle(*locked, module);
  const std::u16string path = found == nullptr ? std::u16string() : found->path;
  if (const Status fault = locked.RecordFallible("FindProcedure", path, name)) {
    return fault;
  }
  if (found == nullptr) {
    return kInvalidHandle;
  }
  const auto procedure_found = found->exports.find(name);
  if (procedure_found == found->exports.end()) {
    return kProcedureNotFound;
  }
  procedure = procedure_found->second;
  return kSuccess;
}

}  // namespace platform
