// The library that the contract test loads.
#include "platform/call.h"

extern "C" PLATFORM_EXPORT int ContractAnswer() {
  return 42;
}
