#include "platform/posix/utf8.h"

#include <algorithm>

#include "platform/codec/software_codec.h"

namespace platform {
namespace {

// The codec counts in 32 bits; paths, names, arguments and messages are far from needing more.
constexpr std::size_t kLongest = 0x7FFFFFFF / 3;

}  // namespace

std::string ToUtf8(std::u16string_view text) {
  text = text.substr(0, kLongest);
  std::string bytes(text.size() * 3, '\0');  // A unit takes three bytes at the most.
  std::int32_t written = 0;
  static_cast<void>(software::WideToBytes(CodePage::kUtf8, text.data(),
                                          static_cast<std::int32_t>(text.size()), bytes.data(),
                                          static_cast<std::int32_t>(bytes.size()), written));
  bytes.resize(static_cast<std::size_t>(written));
  return bytes;
}

std::u16string FromUtf8(std::string_view bytes) {
  bytes = bytes.substr(0, kLongest);
  std::u16string text(bytes.size(), u'\0');  // A byte gives one unit at the most.
  std::int32_t written = 0;
  static_cast<void>(software::BytesToWide(CodePage::kUtf8, bytes.data(),
                                          static_cast<std::int32_t>(bytes.size()), text.data(),
                                          static_cast<std::int32_t>(text.size()), written));
  text.resize(static_cast<std::size_t>(written));
  return text;
}

std::string NativePath(std::u16string_view path) {
  std::string native = ToUtf8(path);
  std::replace(native.begin(), native.end(), '\\', '/');
  return native;
}

}  // namespace platform
