// The library that the contract tests load where libraries are real.
#include "platform/call.h"
#include "testing/platform_contract/machine.h"

extern "C" PLATFORM_EXPORT int ContractNumber() {
  return platform::contract::kContractNumber;
}
