#include "platform/modules.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "platform/memory_failure.h"
#include "platform/module_path.h"
#include "platform/rehearsal/state.h"

namespace platform {
namespace {

using rehearsal::Library;
using rehearsal::LoadedLibrary;
using rehearsal::Step;
using rehearsal::TheState;

// A handle is the library's address, while it is loaded.
LoadedLibrary* Get(RawModule module) {
  for (LoadedLibrary& each : TheState().libraries) {
    if (reinterpret_cast<std::uintptr_t>(&each) == static_cast<std::uintptr_t>(module) &&
        each.references > 0) {
      return &each;
    }
  }
  return nullptr;
}

RawModule Raw(const LoadedLibrary* library) {
  return RawModule{reinterpret_cast<std::uintptr_t>(library)};
}

char16_t Folded(char16_t unit) {
  const bool is_upper = unit >= u'A' && unit <= u'Z';
  return is_upper ? static_cast<char16_t>(unit + (u'a' - u'A')) : unit == u'/' ? u'\\' : unit;
}

bool AreSame(std::u16string_view left, std::u16string_view right) {
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [](char16_t a, char16_t b) { return Folded(a) == Folded(b); });
}

// A library that is loaded already, by its path or by its file name.
LoadedLibrary* FindLoaded(std::u16string_view name) {
  for (LoadedLibrary& each : TheState().libraries) {
    const std::u16string_view path = each.path;
    // npos + 1 is 0.
    const std::u16string_view file_name = path.substr(path.find_last_of(u"\\/") + 1);
    if (each.references > 0 && (AreSame(path, name) || AreSame(file_name, name))) {
      return &each;
    }
  }
  return nullptr;
}

}  // namespace

void ModuleTraits::Close(RawModule module) noexcept {
  LoadedLibrary* const loaded = Get(module);
  if (loaded != nullptr && --loaded->references == 0) {
    loaded->library = Library();  // with the file that it looks into
  }
}

Status LoadModule(const char16_t* path, Module& module) {
  module.Reset();
  if (path == nullptr || !NamesAFile(path)) {
    return kModuleNotFound;
  }
  return UnlessMemoryRunsOut([&] {
    LoadedLibrary* loaded = FindLoaded(path);
    if (loaded == nullptr) {
      Library library = TheState().answers.load ? TheState().answers.load(path) : Library();
      if (rehearsal::Took(Step::Kind::kLoad, path, 0, library.status) != kSuccess) {
        return library.status;
      }
      TheState().libraries.push_back({path, std::move(library)});
      loaded = &TheState().libraries.back();
    }
    ++loaded->references;
    module.Reset(Raw(loaded));
    return kSuccess;
  });
}

Status FindLoadedModule(const char16_t* name, RawModule& module) {
  module = Raw(FindLoaded(name));
  return module != RawModule{} ? kSuccess : kModuleNotFound;
}

Status FindProcedure(RawModule module, const char* name, Procedure& procedure) {
  procedure = nullptr;
  const LoadedLibrary* const loaded = Get(module);
  if (loaded == nullptr) {
    return kInvalidHandle;
  }
  return UnlessMemoryRunsOut([&] {
    procedure = loaded->library.find ? loaded->library.find(name) : nullptr;
    return procedure != nullptr ? kSuccess : kProcedureNotFound;
  });
}

namespace rehearsal {

std::u16string PathOfLibrary(RawModule module) {
  const LoadedLibrary* const loaded = Get(module);
  return loaded == nullptr ? std::u16string() : loaded->path;
}

}  // namespace rehearsal
}  // namespace platform
