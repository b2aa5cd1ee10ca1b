// The page docs/nothing-was-sent.md.
#pragma once

#include <string>

namespace zentpost::doctor {

// The whole page: ASCII, with line feeds. Throws std::bad_alloc when memory runs out.
[[nodiscard]] std::string Page();

}  // namespace zentpost::doctor
