// The functions that a mail client's library exports. They work on TheClient().
#pragma once

#include <map>
#include <string>

namespace zentpost::fake_mapi {

using Procedure = void (*)();  // to be cast to its own type

// All that such a library exports, by their names.
[[nodiscard]] std::map<std::string, Procedure> Functions();

}  // namespace zentpost::fake_mapi
