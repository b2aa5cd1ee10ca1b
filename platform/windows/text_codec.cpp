#include "platform/text_codec.h"

#include <windows.h>

#include "platform/windows/wide.h"

namespace platform {

Status WideToBytes(CodePage code_page, const char16_t* text, std::int32_t length, char* bytes,
                   std::int32_t capacity, std::int32_t& written) {
  written = WideCharToMultiByte(static_cast<UINT>(code_page), 0, ToSystem(text), length, bytes,
                                capacity, nullptr, nullptr);
  return written != 0 ? kSuccess : GetLastError();
}

Status BytesToWide(CodePage code_page, const char* bytes, std::int32_t length, char16_t* text,
                   std::int32_t capacity, std::int32_t& written) {
  written =
      MultiByteToWideChar(static_cast<UINT>(code_page), 0, bytes, length, ToSystem(text), capacity);
  return written != 0 ? kSuccess : GetLastError();
}

}  // namespace platform
