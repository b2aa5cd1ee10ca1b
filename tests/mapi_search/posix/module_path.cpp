#include "tests/mapi_search/module_path.h"

#include <dlfcn.h>
#include <link.h>

namespace zentpost::mapi_search {

std::string PathOfModule(platform::RawModule module) {
  link_map* library = nullptr;
  if (module == platform::RawModule{} ||
      dlinfo(reinterpret_cast<void*>(static_cast<std::uintptr_t>(module)), RTLD_DI_LINKMAP,
             &library) != 0) {
    return {};
  }
  return library->l_name;
}

}  // namespace zentpost::mapi_search
