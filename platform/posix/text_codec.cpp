#include "platform/text_codec.h"

#include "platform/codec/software_codec.h"

namespace platform {

Status WideToBytes(CodePage code_page, const char16_t* text, std::int32_t length, char* bytes,
                   std::int32_t capacity, std::int32_t& written) {
  return software::WideToBytes(code_page, text, length, bytes, capacity, written);
}

Status BytesToWide(CodePage code_page, const char* bytes, std::int32_t length, char16_t* text,
                   std::int32_t capacity, std::int32_t& written) {
  return software::BytesToWide(code_page, bytes, length, text, capacity, written);
}

}  // namespace platform
