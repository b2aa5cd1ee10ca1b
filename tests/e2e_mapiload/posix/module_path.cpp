#include "tests/e2e_mapiload/module_path.h"

#include <dlfcn.h>
#include <link.h>

namespace zentpost::e2e_mapiload {

std::string PathOfModule(platform::RawModule module) {
  link_map* library = nullptr;
  if (module == platform::RawModule{} ||
      dlinfo(reinterpret_cast<void*>(static_cast<std::uintptr_t>(module)), RTLD_DI_LINKMAP,
             &library) != 0) {
    return {};
  }
  return library->l_name;
}

}  // namespace zentpost::e2e_mapiload
