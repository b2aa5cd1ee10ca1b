// Loaded libraries, and what the system says of where they lie. Nothing here throws: what needs
// memory gives kNotEnoughMemory when it runs out.
#pragma once

#include <cstdint>

#include "platform/status.h"
#include "platform/unique_handle.h"

namespace platform {

// A module's handle as the system gives it: the load address on Windows, so that a handle which a
// function of Windows itself has filled in can be taken over.
enum class RawModule : std::uintptr_t {};
struct ModuleTraits {
  using Value = RawModule;
  static constexpr RawModule kNone{};
  static void Close(RawModule module) noexcept;
};

// Owns one reference to a loaded library.
using Module = UniqueHandle<ModuleTraits>;

// Any exported function; cast to its own type before the call.
using Procedure = void (*)();

// Loads the library at `path` and takes a reference; one that is loaded already gets one more. A
// bare name is looked for in the system's own order: among the loaded libraries first, then in the
// system's folders. A path that names no file (null, or as platform/module_path.h says) gives
// kModuleNotFound. On failure `module` owns nothing.
[[nodiscard]] Status LoadModule(const char16_t* path, Module& module);

// The handle of a library that the process has loaded already, by file name or full path, without a
// reference. kModuleNotFound and RawModule{} when it is not loaded.
[[nodiscard]] Status FindLoadedModule(const char16_t* name, RawModule& module);

// The address of the function that `module` exports under the 8-bit `name`. kProcedureNotFound and
// null when there is none; RawModule{} exports nothing.
[[nodiscard]] Status FindProcedure(RawModule module, const char* name, Procedure& procedure);

// The system directory, without a separator at its end, as GetSystemDirectoryW gives it: `length`
// is the number of units without the terminator when `buffer` (space for `capacity` units) took it,
// and the space needed, terminator included, when it did not. On failure `length` is 0.
[[nodiscard]] Status SystemDirectory(std::uint32_t capacity, char16_t* buffer,
                                     std::uint32_t& length);

// Expands %NAME% in `source`, as ExpandEnvironmentStringsW does; a name that is not there stays
// with its marks. `length` is the number of units needed or written, terminator included: more than
// `capacity` when `buffer` did not take it, whose content is then unspecified, as is what stands
// behind the terminator otherwise. On failure `length` is 0.
[[nodiscard]] Status ExpandEnvironment(const char16_t* source, char16_t* buffer,
                                       std::uint32_t capacity, std::uint32_t& length);

}  // namespace platform
