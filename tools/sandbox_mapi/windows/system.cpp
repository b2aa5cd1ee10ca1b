#include "tools/sandbox_mapi/system.h"

#include <windows.h>

#include <string_view>
#include <vector>

#include "tools/support/text.h"

namespace zentpost::fake_mapi::sandbox {
namespace {

std::wstring Wide(std::string_view utf8) {
  const std::u16string text = support::Utf16(utf8);
  return std::wstring(text.begin(), text.end());
}

std::filesystem::path FileOf(HMODULE module) {
  std::vector<wchar_t> buffer(32768);  // No path is longer.
  const DWORD length = GetModuleFileNameW(module, buffer.data(), static_cast<DWORD>(buffer.size()));
  return std::filesystem::path(buffer.data(), buffer.data() + length);
}

}  // namespace

std::optional<std::string> EnvironmentVariable(const char* name) {
  std::vector<wchar_t> buffer(32768);  // No variable is longer.
  const DWORD length =
      GetEnvironmentVariableW(Wide(name).c_str(), buffer.data(), static_cast<DWORD>(buffer.size()));
  if (length == 0 || length >= buffer.size()) {
    return std::nullopt;
  }
  return support::Utf8(support::FromWide(buffer.data()));
}

std::uint64_t ProcessId() {
  return GetCurrentProcessId();
}

std::filesystem::path ModulePath() {
  HMODULE module = nullptr;
  // The address stands where the function otherwise has a name.
  GetModuleHandleExA(
      GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
      reinterpret_cast<LPCSTR>(&ModulePath), &module);
  return FileOf(module);
}

std::filesystem::path ProgramPath() {
  return FileOf(nullptr);
}

}  // namespace zentpost::fake_mapi::sandbox
