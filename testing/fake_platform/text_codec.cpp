#include "platform/text_codec.h"

#include "platform/codec/software_codec.h"
#include "testing/fake_platform/state.h"

namespace platform {
namespace {

Status Begin(const char* name, CodePage code_page, std::int32_t length, std::int32_t capacity) {
  fake::LockedPlatform locked;
  return locked.RecordFallible(name, static_cast<std::uint32_t>(code_page), length, capacity);
}

}  // namespace

Status WideToBytes(CodePage code_page, const char16_t* text, std::int32_t length, char* bytes,
                   std::int32_t capacity, std::int32_t& written) {
  written = 0;
  if (const Status fault = Begin("WideToBytes", code_page, length, capacity)) {
    return fault;
  }
  return software::WideToBytes(code_page, text, length, bytes, capacity, written);
}

Status BytesToWide(CodePage code_page, const char* bytes, std::int32_t length, char16_t* text,
                   std::int32_t capacity, std::int32_t& written) {
  written = 0;
  if (const Status fault = Begin("BytesToWide", code_page, length, capacity)) {
    return fault;
  }
  return software::BytesToWide(code_page, bytes, length, text, capacity, written);
}

}  // namespace platform
