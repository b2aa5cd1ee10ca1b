// The interfaces that the mail client hands out.
#pragma once

#include "fake_mapi/client.h"
#include "mapi_types.h"

namespace zentpost::fake_mapi {

// Each with one reference, which its receiver gives back. For functions, and for tests that begin
// below the logon.
[[nodiscard]] IProfAdmin* NewProfileAdministration(Client& client);
[[nodiscard]] IMAPISession* NewSession(Client& client);
[[nodiscard]] IMAPIFormMgr* NewFormManager(Client& client);
[[nodiscard]] IMsgStore* NewStore(Client& client);
[[nodiscard]] IMAPIFolder* NewOutbox(Client& client);
// One that was saved.
[[nodiscard]] IMessage* NewMessage(Client& client);

class Call;

// Holds the caller to a set of tags, or none.
void NeedTags(Call& call, const SPropTagArray* tags);
// The rows of a table for those columns; `table` is null in a call that fails.
[[nodiscard]] SRowSet* NewRows(Call& call, const Object* table, const SPropTagArray* tags,
                               std::size_t most);

}  // namespace zentpost::fake_mapi
