// The interfaces that the library hands out.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "mapi_headers.h"
#include "tools/sandbox_mapi/library.h"
#include "tools/sandbox_mapi/message.h"

namespace zentpost::sandbox_mapi {

// Each with one reference. Objects live until the library ends, to tell of late calls.
[[nodiscard]] IMAPISession* NewSession();
[[nodiscard]] IProfAdmin* NewProfAdmin();
[[nodiscard]] IMAPIFormMgr* NewFormMgr();
[[nodiscard]] IMAPITable* NewTable(std::vector<Properties> rows);

// The rows of one of this library's tables; null for any other.
[[nodiscard]] const std::vector<Properties>* RowsOf(IMAPITable* table);

}  // namespace zentpost::sandbox_mapi
