// The job's document, loaded as a whole, as an attachment by value needs it.
#pragma once

#include <cstdint>
#include <limits>
#include <string_view>

#include "platform/memory.h"

namespace zentpost {

// In bytes: what an attachment's own size can tell.
inline constexpr std::uint64_t kLargestAttachment = std::numeric_limits<std::uint32_t>::max();

struct AttachmentFileData {
  platform::HeapBlock data;         // the file's bytes; owns nothing while nothing is loaded
  std::uint32_t size = 0;           // bytes
  std::u16string_view errorText{};  // why the last loading failed; empty when it did not
  std::uint32_t errorCode = 0;      // the code of that failure; 0 when there was none
};

// Loads the file at `path` into `fileData`, whose earlier content is gone in any case. On failure
// false, with nothing loaded and the error's text and code set:
//   0x80070057 (E_INVALIDARG)       `path` is null or empty
//   the system's own number         the file cannot be opened. Such a number is positive, and to
//                                   those who look for negative results it is no failure
//   0x8007000E (E_OUTOFMEMORY)      memory runs out
//   0x800700DF (ERROR_FILE_TOO_LARGE as a result)  4 GiB or more
//   another negative result         the file cannot be read whole
// Does not throw.
[[nodiscard]] bool LoadAttachmentFile(AttachmentFileData& fileData, const char16_t* path);

}  // namespace zentpost
