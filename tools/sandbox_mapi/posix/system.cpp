#include "tools/sandbox_mapi/system.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>
#include <string_view>
#include <system_error>

namespace zentpost::fake_mapi::sandbox {

std::optional<std::string> EnvironmentVariable(const char* name) {
  const char* const value = std::getenv(name);
  return value == nullptr || *value == '\0' ? std::nullopt : std::optional<std::string>(value);
}

std::uint64_t ProcessId() {
  return static_cast<std::uint64_t>(getpid());
}

std::filesystem::path ModulePath() {
  Dl_info info = {};
  if (dladdr(reinterpret_cast<void*>(&ModulePath), &info) == 0 || info.dli_fname == nullptr) {
    return {};
  }
  // A program that was found in the search path is known by its bare name.
  if (std::string_view(info.dli_fname).find('/') == std::string_view::npos) {
    return ProgramPath();
  }
  std::error_code error;
  const std::filesystem::path path = std::filesystem::canonical(info.dli_fname, error);
  return error ? std::filesystem::path(info.dli_fname) : path;
}

std::filesystem::path ProgramPath() {
  std::error_code error;
  return std::filesystem::read_symlink("/proc/self/exe", error);
}

}  // namespace zentpost::fake_mapi::sandbox
