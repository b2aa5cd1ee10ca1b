// A fake of the system's MAPI stub, see fake_library.h.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/call.h"
#include "tests/mapi_search/fake_library.h"

namespace zentpost::mapi_search {

extern "C" PLATFORM_EXPORT std::int32_t PLATFORM_STDCALL FGetComponentPath(const char* component,
                                                                           const char* qualifier,
                                                                           char* path,
                                                                           std::uint32_t size,
                                                                           std::int32_t install) {
  const char* const answer = std::getenv(kAnswerVariable);
  if (answer == nullptr || std::strcmp(component, kComponent) != 0 ||
      std::strcmp(qualifier, kQualifier) != 0 || size != 260 || install != 0) {
    return 0;
  }
  std::snprintf(path, size, "%s", answer);
  return 1;
}

}  // namespace zentpost::mapi_search
