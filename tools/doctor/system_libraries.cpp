#include "tools/doctor/system_libraries.h"

#include <algorithm>
#include <cstdint>
#include <string_view>
#include <utility>

#include "mapiload/system_libraries.h"
#include "platform/call.h"
#include "platform/memory_failure.h"
#include "platform/reading.h"

namespace zentpost::doctor {
namespace {

using platform::Procedure;
using platform::RawModule;
using platform::Status;

UnknownComponents unknown_components;

// GetModuleHandleExW without flags: takes a reference.
std::int32_t PLATFORM_STDCALL ModuleHandleEx(std::uint32_t /*flags*/, const char16_t* name,
                                             RawModule* module) {
  *module = RawModule{};
  platform::Module loaded;
  if (platform::FindLoadedModule(name, *module) != platform::kSuccess ||
      platform::LoadModule(platform::rehearsal::PathOfLibrary(*module).c_str(), loaded) !=
          platform::kSuccess) {
    *module = RawModule{};
    return 0;
  }
  *module = loaded.Detach();
  return 1;
}

std::uint32_t PLATFORM_STDCALL SetInternalUi(std::uint32_t /*level*/, void** /*window*/) {
  return 0;
}

// MsiProvideQualifiedComponentW, which would also install and repair.
std::uint32_t PLATFORM_STDCALL ProvideComponent(const char16_t* category, const char16_t* qualifier,
                                                std::uint32_t /*install_mode*/, char16_t* path,
                                                std::uint32_t* count) {
  std::u16string found;
  const Status status = platform::reading::FindComponent(category, qualifier, found);
  if (status != platform::kSuccess) {
    unknown_components.is_outlook |= status == platform::kNotSupported;
    return status;
  }
  const std::uint32_t capacity = std::exchange(*count, static_cast<std::uint32_t>(found.size()));
  if (path == nullptr) {
    return platform::kSuccess;
  }
  if (capacity <= found.size()) {
    return platform::kMoreData;
  }
  std::copy_n(found.c_str(), found.size() + 1, path);
  return platform::kSuccess;
}

std::int32_t PLATFORM_STDCALL FindNoComponentPath(const char* /*component*/,
                                                  const char* /*qualifier*/, char* /*path*/,
                                                  std::uint32_t /*capacity*/,
                                                  std::int32_t /*installs*/) {
  unknown_components.is_mail_client = true;
  return 0;
}

template <class Function>
Procedure ProcedureOf(Function* function) {
  return reinterpret_cast<Procedure>(function);
}

platform::rehearsal::Library LibraryWith(
    std::vector<std::pair<std::string_view, Procedure>> functions) {
  return {platform::kSuccess,
          [functions = std::move(functions)](std::string_view name) -> Procedure {
            const auto found = std::find_if(functions.begin(), functions.end(),
                                            [&](const auto& each) { return each.first == name; });
            return found == functions.end() ? nullptr : found->second;
          }};
}

}  // namespace

std::optional<platform::rehearsal::Library> SystemLibrary(const std::u16string& path) {
  const std::u16string directory = GetSystemDirectory() + u"\\";
  if (path == directory + u"kernel32.dll") {
    return LibraryWith({{"GetModuleHandleExW", ProcedureOf(ModuleHandleEx)}});
  }
  if (path == directory + u"msi.dll") {
    return LibraryWith({{"MsiSetInternalUI", ProcedureOf(SetInternalUi)},
                        {"MsiProvideQualifiedComponentW", ProcedureOf(ProvideComponent)}});
  }
  return std::nullopt;
}

Procedure UnknownComponentPath() {
  return ProcedureOf(FindNoComponentPath);
}

UnknownComponents TakeUnknownComponents() {
  return std::exchange(unknown_components, {});
}

}  // namespace zentpost::doctor
