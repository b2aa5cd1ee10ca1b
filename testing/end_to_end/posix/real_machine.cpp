#include "testing/end_to_end/real_machine.h"

namespace zentpost::e2e {

// Registry and folders are files of the tests' own.
bool MayChangeMachine(const std::string& /*what*/) {
  return true;
}

bool IsRealMachine() {
  return false;
}

}  // namespace zentpost::e2e
