// The functions that a mail client's library exports. They work on TheClient().
#pragma once

#include <span>

namespace zentpost::fake_mapi {

using Procedure = void (*)();  // to be cast to its own type

struct Function {
  const char* name;            // "MAPILogonEx"
  const char* decorated_name;  // "MAPILogonEx@20", as a linker knows it in 32 bits
  Procedure procedure;
};

// The nine that the tool calls.
[[nodiscard]] std::span<const Function> Functions();

}  // namespace zentpost::fake_mapi
