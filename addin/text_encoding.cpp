#include "addin/text_encoding.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <optional>

#include "diag/log_file.h"
#include "platform/memory.h"
#include "platform/text_codec.h"

namespace zentpost {
namespace {

using platform::CodePage;

constexpr std::size_t kMaxLength = std::numeric_limits<std::int32_t>::max();

// Whether some pair of neighbours looks like the start of a UTF-8 sequence of two or three bytes.
// Only low bytes are looked at, and lead bytes of four-byte sequences are not: job files in the
// field depend on what this finds and what it misses.
bool LooksLikeWidenedUtf8(std::u16string_view text) {
  for (std::size_t i = 0; i + 1 < text.size(); ++i) {
    const unsigned lead = text[i] & 0xFFU;
    const unsigned next = text[i + 1] & 0xFFU;
    const bool is_lead = (lead & 0xE0U) == 0xC0U || (lead & 0xF0U) == 0xE0U;
    if (is_lead && (next & 0xC0U) == 0x80U) {
      return true;
    }
  }
  return false;
}

// The bytes by which a JSON member is looked up. Nothing when `name` cannot be converted: that must
// not be taken for the empty name, under which a job file would get a member of nobody's.
std::optional<std::string> MemberKey(std::u16string_view name) {
  std::string key = NarrowThroughAnsi(name);
  if (key.empty() && !name.empty()) {
    return std::nullopt;
  }
  return key;
}

}  // namespace

Utf8Result WideToUtf8(std::u16string_view text, std::string& bytes) {
  using Outcome = Utf8Result::Outcome;
  bytes.clear();
  if (text.size() > (kMaxLength - 2) / 2) {
    return {Outcome::kNoMemory, platform::kNotEnoughMemory};
  }
  const std::size_t capacity = 2 * text.size() + 2;
  platform::HeapBlock block;
  if (const platform::Status status = platform::AllocateBlock(capacity, block);
      status != platform::kSuccess) {
    return {Outcome::kNoMemory, status};
  }
  char* buffer = platform::BlockData<char>(block);
  std::memset(buffer, 0, capacity);

  std::int32_t written = 0;
  const platform::Status status =
      platform::WideToBytes(CodePage::kUtf8, text.data(), static_cast<std::int32_t>(text.size()),
                            buffer, static_cast<std::int32_t>(capacity), written);
  if (status != platform::kSuccess) {
    return {Outcome::kNotConverted, status};
  }
  try {
    bytes.assign(buffer, std::find(buffer, buffer + capacity, '\0'));
  } catch (const std::bad_alloc&) {
    return {Outcome::kNoMemory, platform::kNotEnoughMemory};
  }
  return {};
}

// NOLINTNEXTLINE(bugprone-reserved-identifier): the name by which the log lines know it
std::string _utf8(const char16_t* text) {
  const std::u16string_view view = text == nullptr ? std::u16string_view() : text;
  if (view.empty()) {
    return {};
  }
  if (LooksLikeWidenedUtf8(view)) {
    return NarrowThroughAnsi(view);
  }
  std::string bytes;
  const Utf8Result result = WideToUtf8(view, bytes);
  switch (result.outcome) {
    case Utf8Result::Outcome::kConverted:
      break;
    case Utf8Result::Outcome::kNoMemory:
      LogErrorWithCode(result.status, u"_utf8(): A memory error occurred.");
      break;
    case Utf8Result::Outcome::kNotConverted:
      LogErrorWithCode(result.status, u"_utf8(): The utf-8 forward conversion failed.");
      break;
  }
  return bytes;
}

std::u16string FromUtf8(const char* bytes) {
  if (bytes == nullptr) {
    return {};
  }
  const std::size_t length = std::strlen(bytes) + 1;
  if (length > kMaxLength) {
    return {};
  }
  platform::HeapBlock block;
  if (platform::AllocateBlock(2 * length, block) != platform::kSuccess) {
    return {};
  }
  // A UTF-8 byte never gives more than one unit.
  char16_t* buffer = platform::BlockData<char16_t>(block);
  std::int32_t written = 0;
  if (platform::BytesToWide(CodePage::kUtf8, bytes, -1, buffer, static_cast<std::int32_t>(length),
                            written) != platform::kSuccess) {
    return {};
  }
  try {
    // No further than what was written: some systems take the terminator for a part of a sequence
    // that is cut short, and there is none then.
    return std::u16string(buffer, std::find(buffer, buffer + written, u'\0'));
  } catch (const std::bad_alloc&) {
    return {};
  }
}

std::string NarrowThroughAnsi(std::u16string_view text) {
  if (text.empty() || text.size() > kMaxLength) {
    return {};
  }
  const auto length = static_cast<std::int32_t>(text.size());
  std::int32_t needed = 0;
  if (platform::WideToBytes(CodePage::kThreadAnsi, text.data(), length, nullptr, 0, needed) !=
      platform::kSuccess) {
    return {};
  }
  try {
    std::string bytes(static_cast<std::size_t>(needed), '\0');
    if (platform::WideToBytes(CodePage::kThreadAnsi, text.data(), length, bytes.data(), needed,
                              needed) != platform::kSuccess) {
      return {};
    }
    return bytes;
  } catch (const std::bad_alloc&) {
    return {};
  }
}

std::u16string WidenThroughAnsi(std::string_view bytes) {
  if (bytes.empty() || bytes.size() > kMaxLength) {
    return {};
  }
  try {
    // A byte never gives more than one unit.
    std::u16string text(bytes.size(), u'\0');
    std::int32_t written = 0;
    const auto length = static_cast<std::int32_t>(bytes.size());
    if (platform::BytesToWide(CodePage::kThreadAnsi, bytes.data(), length, text.data(), length,
                              written) != platform::kSuccess) {
      return {};
    }
    text.resize(static_cast<std::size_t>(written));
    return text;
  } catch (const std::bad_alloc&) {
    return {};
  }
}

bool GetJsonString(const cJSON* object, const std::u16string& name, std::u16string& value,
                   const std::u16string& default_value) {
  value = default_value;
  const std::optional<std::string> key = MemberKey(name);
  const cJSON* member = key ? cJSON_GetObjectItem(object, key->c_str()) : nullptr;
  if (cJSON_IsString(member) == 0) {
    return false;
  }
  value = FromUtf8(member->valuestring);
  return true;
}

bool SetJsonItem(cJSON* object, std::u16string_view name, cJSON* item) {
  const std::optional<std::string> key = MemberKey(name);
  const bool taken = key && (cJSON_HasObjectItem(object, key->c_str()) != 0
                                 ? cJSON_ReplaceItemInObject(object, key->c_str(), item) != 0
                                 : cJSON_AddItemToObject(object, key->c_str(), item) != 0);
  if (!taken) {
    cJSON_Delete(item);
  }
  return true;
}

}  // namespace zentpost
