#include <algorithm>
#include <string_view>
#include <utility>

#include "platform/call.h"
#include "testing/fake_platform/state.h"

namespace platform::fake {
namespace {

// GetModuleHandleExW of kernel32.dll. Of its flags the machine knows none.
std::int32_t PLATFORM_STDCALL ModuleHandleEx(std::uint32_t flags, const char16_t* name,
                                             RawModule* module) {
  *module = RawModule{};
  LockedPlatform locked;
  const Status fault = locked.RecordFallible("GetModuleHandleExW", Hex{flags}, name);
  StoredModule* const found = FindLoaded(*locked, name);
  if (fault != kSuccess || found == nullptr) {
    return 0;
  }
  *module = AddReference(*locked, *found);
  return 1;
}

}  // namespace

StoredModule* FindByHandle(PlatformState& locked, RawModule raw) {
  for (auto& [key, module] : locked.modules) {
    if (raw != RawModule{} && module.handle == static_cast<std::uintptr_t>(raw)) {
      return &module;
    }
  }
  return nullptr;
}

StoredModule* FindLoaded(PlatformState& locked, std::u16string_view name) {
  const std::u16string wanted = NormalPath(name);
  const auto is_wanted = [&](std::u16string_view other) {
    const IgnoringCase less;
    return !less(other, wanted) && !less(wanted, other);
  };
  for (auto& [key, module] : locked.modules) {
    // npos + 1 is 0.
    if (module.references > 0 && (is_wanted(key) || is_wanted(key.substr(key.rfind(u'\\') + 1)))) {
      return &module;
    }
  }
  return nullptr;
}

RawModule AddReference(PlatformState& locked, StoredModule& module) {
  if (module.references++ == 0) {
    module.handle = locked.NewHandle();
  }
  return RawModule{module.handle};
}

void AddSystemModules(PlatformContents& contents) {
  const std::u16string path = contents.system_directory + u"\\kernel32.dll";
  contents.modules[NormalPath(path)] = {
      path, {{"GetModuleHandleExW", reinterpret_cast<Procedure>(ModuleHandleEx)}}};
}

void FakePlatform::AddModule(std::u16string_view path, Exports exports) {
  const LockedState state = Locked();
  StoredModule& module = state->modules[NormalPath(path)];
  module.path = path;
  module.exports = std::move(exports);
}

void FakePlatform::SetSystemDirectory(std::u16string_view directory) {
  Locked()->system_directory = directory;
}

std::size_t FakePlatform::ModuleReferences(std::u16string_view path) const {
  const LockedState state = Locked();
  const auto module = state->modules.find(NormalPath(path));
  return module == state->modules.end() ? 0 : module->second.references;
}

std::size_t FakePlatform::ModuleReferences() const {
  const LockedState state = Locked();
  std::size_t references = 0;
  for (const auto& [key, module] : state->modules) {
    references += module.references;
  }
  return references;
}

std::u16string FakePlatform::ModulePath(RawModule module) const {
  const LockedState state = Locked();
  const StoredModule* const found = FindByHandle(*state, module);
  return found == nullptr ? std::u16string() : found->path;
}

void FakePlatform::SetVariable(std::u16string_view name, std::u16string_view value) {
  Locked()->environment[std::u16string(name)] = value;
}

}  // namespace platform::fake
