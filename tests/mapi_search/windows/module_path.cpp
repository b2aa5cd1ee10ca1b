#include "tests/mapi_search/module_path.h"

#include <windows.h>

#include <iterator>

#include "testing/end_to_end/text.h"

namespace zentpost::mapi_search {

std::string PathOfModule(platform::RawModule module) {
  if (module == platform::RawModule{}) {
    return {};
  }
  wchar_t path[4096];
  const DWORD length =
      GetModuleFileNameW(reinterpret_cast<HMODULE>(static_cast<std::uintptr_t>(module)), path,
                         static_cast<DWORD>(std::size(path)));
  return e2e::Utf8(std::u16string(path, path + length));
}

}  // namespace zentpost::mapi_search
