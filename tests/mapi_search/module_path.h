// Where a loaded library lies, asked of the system without the platform layer.
#pragma once

#include <string>

#include "platform/modules.h"

namespace zentpost::mapi_search {

// The full path in UTF-8; empty for no module.
[[nodiscard]] std::string PathOfModule(platform::RawModule module);

}  // namespace zentpost::mapi_search
