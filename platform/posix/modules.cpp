#include "platform/modules.h"

#include <dlfcn.h>
#include <link.h>

#include <string>
#include <string_view>

#include "platform/memory_failure.h"
#include "platform/module_path.h"
#include "platform/posix/utf8.h"

namespace platform {
namespace {

RawModule Raw(void* module) {
  return static_cast<RawModule>(reinterpret_cast<std::uintptr_t>(module));
}

void* Handle(RawModule module) {
  return reinterpret_cast<void*>(static_cast<std::uintptr_t>(module));
}

// The path of the loaded library that `name` (a file name or a full path) stands for; empty when
// there is none. A shared object has no other name of its own that the system would look for.
Status FindLoadedPath(std::string_view name, std::string& path) {
  struct Search {
    std::string_view name;
    std::string& path;
    Status status = kSuccess;
  };
  path.clear();
  Search search{name, path};
  dl_iterate_phdr(
      [](dl_phdr_info* library, std::size_t, void* data) {
        Search& found = *static_cast<Search*>(data);
        const std::string_view loaded = library->dlpi_name;
        // The program itself has an empty name; npos + 1 is 0.
        if (!loaded.empty() &&
            (loaded == found.name || loaded.substr(loaded.rfind('/') + 1) == found.name)) {
          // The system's function is not to be left by an exception.
          found.status = UnlessMemoryRunsOut([&] {
            found.path = loaded;
            return kSuccess;
          });
          return 1;
        }
        return 0;
      },
      &search);
  return search.status;
}

}  // namespace

void ModuleTraits::Close(RawModule module) noexcept {
  dlclose(Handle(module));
}

Status LoadModule(const char16_t* path, Module& module) {
  module.Reset();
  if (path == nullptr || !NamesAFile(path)) {
    return kModuleNotFound;
  }
  return UnlessMemoryRunsOut([&] {
    const std::string native = NativePath(path);
    std::string loaded;
    if (const Status status = FindLoadedPath(native, loaded); status != kSuccess) {
      return status;
    }
    module.Reset(Raw(dlopen((loaded.empty() ? native : loaded).c_str(), RTLD_NOW | RTLD_LOCAL)));
    return module ? kSuccess : kModuleNotFound;
  });
}

Status FindLoadedModule(const char16_t* name, RawModule& module) {
  module = RawModule{};
  return UnlessMemoryRunsOut([&] {
    std::string path;
    if (const Status status = FindLoadedPath(NativePath(name), path); status != kSuccess) {
      return status;
    }
    if (!path.empty()) {
      if (void* const found = dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD)) {
        module = Raw(found);
        dlclose(found);  // the handle stays valid as long as the library is loaded
      }
    }
    return module != RawModule{} ? kSuccess : kModuleNotFound;
  });
}

Status FindProcedure(RawModule module, const char* name, Procedure& procedure) {
  procedure = nullptr;
  if (module == RawModule{}) {
    return kInvalidHandle;
  }
  procedure = reinterpret_cast<Procedure>(dlsym(Handle(module), name));
  return procedure != nullptr ? kSuccess : kProcedureNotFound;
}

}  // namespace platform
