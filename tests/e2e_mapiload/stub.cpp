// A stand-in for the system's MAPI stub, see stand_in.h.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/call.h"
#include "tests/e2e_mapiload/stand_in.h"

namespace zentpost::e2e_mapiload {

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

}  // namespace zentpost::e2e_mapiload
