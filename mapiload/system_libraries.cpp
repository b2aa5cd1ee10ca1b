#include "mapiload/system_libraries.h"

#include <atomic>
#include <memory>
#include <utility>

#include "mapiload/process_state.h"
#include "mapiload/trace.h"

namespace zentpost {
namespace {

using platform::Module;
using platform::Procedure;
using platform::RawModule;

// The directory is told in steps of this many characters.
constexpr std::uint32_t kSystemDirectoryStep = 260;

// Published in winerror.h, E_FAIL.
constexpr std::uint32_t kFailed = 0x80004005;

// Published in msi.h, INSTALLUILEVEL_NONE.
constexpr std::uint32_t kNoUserInterface = 2;

// Two threads may both ask; the first answer stays.
const std::u16string& KeptSystemDirectory() {
  const std::u16string* kept = processState.system_directory.load(std::memory_order_acquire);
  if (kept == nullptr) {
    auto asked = std::make_unique<const std::u16string>(GetSystemDirectory());
    if (processState.system_directory.compare_exchange_strong(kept, asked.get(),
                                                              std::memory_order_acq_rel)) {
      kept = asked.release();
    }
  }
  return *kept;
}

// The function's address, looked up when it is not known yet. Null is not remembered.
Procedure LoadProc(LazyFunction& function, const char16_t* library_name, const char* name,
                   const char16_t* wide_name) {
  if (const Procedure bound = function.procedure.load(std::memory_order_acquire)) {
    return bound;
  }
  RawModule library = function.handle.load(std::memory_order_acquire);
  if (library == RawModule{}) {
    Module loaded = LoadFromSystemDir(library_name);
    // Of two threads that load at the same time, one keeps its reference. `library` is then what
    // the other one stored.
    if (loaded &&
        function.handle.compare_exchange_strong(library, loaded.Get(), std::memory_order_acq_rel)) {
      library = loaded.Detach();
    }
  }
  if (library == RawModule{}) {
    return nullptr;
  }
  Procedure procedure = nullptr;
  // The address tells; a failure leaves none.
  static_cast<void>(platform::FindProcedure(library, name, procedure));
  if (procedure == nullptr) {
    MapiLoadTrace(u"LoadProc: failed to load \"%ws\" from \"%ws\"\n", {wide_name, library_name});
    return nullptr;
  }
  function.procedure.store(procedure, std::memory_order_release);
  return procedure;
}

// The installer would repair a component that is broken, and show its progress. Where it cannot be
// told otherwise it is asked all the same. Two threads may both tell it, each before it asks.
void SilenceInstaller() {
  using Function = std::uint32_t(PLATFORM_STDCALL*)(std::uint32_t, void**);
  if (processState.is_installer_silent.load(std::memory_order_acquire)) {
    return;
  }
  Procedure procedure = nullptr;
  // The address tells; a failure leaves none.
  static_cast<void>(platform::FindProcedure(
      processState.provide_qualified_component.handle.load(std::memory_order_acquire),
      "MsiSetInternalUI", procedure));
  if (procedure != nullptr) {
    reinterpret_cast<Function>(procedure)(kNoUserInterface, nullptr);
  }
  processState.is_installer_silent.store(true, std::memory_order_release);
}

}  // namespace

std::u16string GetSystemDirectory() {
  MapiTrace(u"Enter GetSystemDirectory\n");
  std::u16string directory;
  std::uint32_t size = kSystemDirectoryStep;
  std::uint32_t length = 0;
  for (;;) {
    directory.resize(size);
    const platform::Status status = platform::SystemDirectory(size, directory.data(), length);
    if (length == 0) {
      MapiTrace(u"GetSystemDirectory: GetSystemDirectoryW failed with 0x%08X\n", {status});
    }
    if (length < size) {
      break;
    }
    size += kSystemDirectoryStep;
  }
  directory.resize(length);
  MapiTrace(u"Exit GetSystemDirectory: found %ws\n", {directory.c_str()});
  return directory;
}

Module LoadFromSystemDir(const char16_t* name) {
  Module module;
  if (*name == u'\0') {
    return module;
  }
  MapiLoadTrace(u"LoadFromSystemDir - loading \"%ws\"\n", {name});
  std::u16string path;
  path.append(KeptSystemDirectory()).append(u"\\").append(name);
  MapiLoadTrace(u"LoadFromSystemDir - loading from \"%ws\"\n", {path.c_str()});
  // A failure leaves the owner empty, which is all that is asked for.
  static_cast<void>(platform::LoadModule(path.c_str(), module));
  return module;
}

std::uint32_t ProvideQualifiedComponent(const char16_t* category, const char16_t* qualifier,
                                        std::uint32_t /*install_mode*/, char16_t* path,
                                        std::uint32_t* count) {
  using Function = std::uint32_t(PLATFORM_STDCALL*)(const char16_t*, const char16_t*, std::uint32_t,
                                                    char16_t*, std::uint32_t*);
  const auto function = reinterpret_cast<Function>(
      LoadProc(processState.provide_qualified_component, u"msi.dll",
               "MsiProvideQualifiedComponentW", u"MsiProvideQualifiedComponentW"));
  if (function == nullptr) {
    return kFailed;
  }
  SilenceInstaller();
  return function(category, qualifier, 0, path, count);
}

ModuleHandleExFunction BindModuleHandleEx() {
  return reinterpret_cast<ModuleHandleExFunction>(LoadProc(processState.get_module_handle_ex,
                                                           u"kernel32.dll", "GetModuleHandleExW",
                                                           u"GetModuleHandleExW"));
}

}  // namespace zentpost
