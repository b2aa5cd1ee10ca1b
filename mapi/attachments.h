// The job's document as an attachment of the message.
#pragma once

#include <cstdint>

#include "mapiload/extended_mapi.h"

namespace zentpost {

// Attaches the document at `path` under the name `attachName` (may be empty) and, once the
// attachment is saved, deletes the document. It stays where it is when any step before fails.
// `reserved` is ignored. Gives the result of the first call that failed; E_INVALIDARG when
// `message` is null, or `path` is null or empty. A document that cannot be opened gives the
// system's own positive number, see LoadAttachmentFile. MAPI_E_NOT_ENOUGH_MEMORY when memory runs
// out. Does not throw. The message itself is not saved.
[[nodiscard]] HRESULT AddAttachment(IMessage* message, const char16_t* path, std::uint32_t reserved,
                                    const char16_t* attachName);

// Puts the MIME type of files with `extension` (with or without its dot) into `mimeTag` (space for
// kTextBufferSize UTF-16 units with the terminator): out of a table of our own, else as the
// registry's file types say. S_OK also for a type that the registry does not know, with `mimeTag`
// as it was; ERROR_NOT_FOUND (1168) for one that it knows without a MIME type, with
// "application/..." made up; E_INVALIDARG when `extension` is null or empty, or `mimeTag` null;
// MAPI_E_NOT_ENOUGH_MEMORY when memory runs out. Does not throw.
[[nodiscard]] HRESULT GetAttachmentMimeTag(const char16_t* extension, char16_t* mimeTag);

}  // namespace zentpost
