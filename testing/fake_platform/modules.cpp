#include "platform/modules.h"

#include <algorithm>
#include <optional>
#include <string_view>
#include <utility>

#include "platform/call.h"
#include "platform/codec/copy_if_it_fits.h"
#include "platform/codec/expand_variables.h"
#include "platform/module_path.h"
#include "testing/fake_platform/state.h"

namespace platform {
namespace {

using fake::LockedPlatform;
using fake::StoredModule;

// The library with that handle, or null.
StoredModule* Find(fake::PlatformState& locked, RawModule raw) {
  for (auto& [key, module] : locked.modules) {
    if (raw != RawModule{} && module.handle == static_cast<std::uintptr_t>(raw)) {
      return &module;
    }
  }
  return nullptr;
}

// A library that is loaded already, by file name or path, or null.
StoredModule* FindLoaded(fake::PlatformState& locked, std::u16string_view name) {
  const std::u16string wanted = fake::NormalPath(name);
  const auto is_wanted = [&](std::u16string_view other) {
    const fake::IgnoringCase less;
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

StoredModule* FindLoadable(fake::PlatformState& locked, std::u16string_view path) {
  if (StoredModule* const loaded = FindLoaded(locked, path)) {
    return loaded;
  }
  std::u16string wanted(path);
  if (wanted.find_first_of(u"\\/") == std::u16string::npos) {
    wanted.insert(0, locked.system_directory + u"\\");
  }
  const auto found = locked.modules.find(fake::NormalPath(wanted));
  return found == locked.modules.end() ? nullptr : &found->second;
}

RawModule AddReference(fake::PlatformState& locked, StoredModule& module) {
  if (module.references++ == 0) {
    module.handle = locked.NewHandle();
  }
  return RawModule{module.handle};
}

// GetModuleHandleExW of kernel32.dll. Of its flags the machine knows none.
std::int32_t PLATFORM_STDCALL ModuleHandleEx(std::uint32_t flags, const char16_t* name,
                                             RawModule* module) {
  *module = RawModule{};
  LockedPlatform locked;
  const Status fault = locked.RecordFallible("GetModuleHandleExW", fake::Hex{flags}, name);
  StoredModule* const found = FindLoaded(*locked, name);
  if (fault != kSuccess || found == nullptr) {
    return 0;
  }
  *module = AddReference(*locked, *found);
  return 1;
}

}  // namespace

void ModuleTraits::Close(RawModule module) noexcept {
  LockedPlatform locked;
  StoredModule* const found = Find(*locked, module);
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
  module.Reset(AddReference(*locked, *found));
  return kSuccess;
}

Status FindLoadedModule(const char16_t* name, RawModule& module) {
  module = RawModule{};
  LockedPlatform locked;
  if (const Status fault = locked.RecordFallible("FindLoadedModule", name)) {
    return fault;
  }
  const StoredModule* const found = FindLoaded(*locked, name);
  if (found == nullptr) {
    return kModuleNotFound;
  }
  module = RawModule{found->handle};
  return kSuccess;
}

Status FindProcedure(RawModule module, const char* name, Procedure& procedure) {
  procedure = nullptr;
  LockedPlatform locked;
  const StoredModule* const found = Find(*locked, module);
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

Status SystemDirectory(std::uint32_t capacity, char16_t* buffer, std::uint32_t& length) {
  length = 0;
  LockedPlatform locked;
  if (const Status fault = locked.RecordFallible("SystemDirectory", capacity)) {
    return fault;
  }
  length = software::CopyIfItFits(locked->system_directory, buffer, capacity);
  return kSuccess;
}

Status ExpandEnvironment(const char16_t* source, char16_t* buffer, std::uint32_t capacity,
                         std::uint32_t& length) {
  length = 0;
  LockedPlatform locked;
  if (const Status fault = locked.RecordFallible("ExpandEnvironment", source, capacity)) {
    return fault;
  }
  const auto value_of = [&](std::u16string_view name) -> std::optional<std::u16string> {
    const auto variable = locked->environment.find(name);
    return variable == locked->environment.end() ? std::nullopt : std::optional(variable->second);
  };
  length = software::CopyIfItFits(software::ExpandVariables(source, value_of), buffer, capacity);
  if (length < capacity) {
    ++length;  // this one counts the terminator in either case
    // Nobody promises what stands behind it, so it is never as it was.
    std::fill(buffer + length, buffer + capacity, u'?');
  }
  return kSuccess;
}

namespace fake {

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
  const StoredModule* const found = Find(*state, module);
  return found == nullptr ? std::u16string() : found->path;
}

void FakePlatform::SetVariable(std::u16string_view name, std::u16string_view value) {
  Locked()->environment[std::u16string(name)] = value;
}

}  // namespace fake
}  // namespace platform
