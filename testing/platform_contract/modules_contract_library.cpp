// The library that the contract test of platform/modules.h loads where libraries are real.
#include "platform/call.h"
#include "testing/platform_contract/modules_contract.h"

extern "C" PLATFORM_EXPORT int ContractNumber() {
  return platform::modules_contract::kContractNumber;
}
