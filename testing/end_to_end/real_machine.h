// Tests change what belongs to the machine they run on: its registry, the user's folders, the mail
// client that is registered. Wine's machine may be changed; a real Windows only when that was asked
// for.
#pragma once

#include <string>

namespace zentpost::e2e {

// Whether a test may change the machine; `what` says what it is about to change, and is printed on
// a real Windows. There ZENTPOST_TEST_REAL_MACHINE has to be 1 in the environment.
[[nodiscard]] bool MayChangeMachine(const std::string& what);

// Whether the machine is somebody's, so that no test may reach his mail client: a real Windows, or
// one that this variable says to take for it.
[[nodiscard]] bool IsRealMachine();

}  // namespace zentpost::e2e
