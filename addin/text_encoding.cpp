#include "addin/text_encoding.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <utility>

#include "diag/log_file.h"
#include "diag/utf8_text.h"
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
    const bool is_lead = (text[i] & 0xE0U) == 0xC0U || (text[i] & 0xF0U) == 0xE0U;
    if (is_lead && (text[i + 1] & 0xC0U) == 0x80U) {
      return true;
    }
  }
  return false;
}

// Whether `key`, which NarrowThroughAnsi made of `name`, names a member. What could not be
// converted must not be taken for the empty name, under which a job file would get a member of
// nobody's.
bool NamesAMember(const std::string& key, std::u16string_view name) {
  return !key.empty() || name.empty();
}

// What `convert` gives, or nothing when it wants more memory than there is or could be.
template <class Conversion>
auto WithinMemory(Conversion convert) noexcept -> std::optional<decltype(convert())> {
  try {
    return convert();
  } catch (...) {
    return std::nullopt;
  }
}

}  // namespace

Utf8Result WideToUtf8(std::u16string_view text, std::string& bytes) noexcept {
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
  } catch (...) {
    return {Outcome::kNoMemory, platform::kNotEnoughMemory};
  }
  return {};
}

// NOLINTNEXTLINE(clang-diagnostic-reserved-identifier): the name by which the log lines know it
std::optional<std::string> _utf8(const char16_t* text) noexcept {
  const std::u16string_view view = text == nullptr ? std::u16string_view() : text;
  if (view.empty()) {
    return std::string();
  }
  std::optional<std::string> bytes;
  Utf8Result result;
  if (LooksLikeWidenedUtf8(view)) {
    bytes = NarrowThroughAnsi(view);
    if (!bytes) {
      result = {Utf8Result::Outcome::kNoMemory, platform::kNotEnoughMemory};
    }
  } else {
    result = WideToUtf8(view, bytes.emplace());
  }
  if (result.outcome == Utf8Result::Outcome::kNoMemory) {
    LogErrorWithCode(result.status, u"_utf8(): A memory error occurred.");
    return std::nullopt;
  }
  if (result.outcome == Utf8Result::Outcome::kNotConverted) {
    LogErrorWithCode(result.status, u"_utf8(): The utf-8 forward conversion failed.");
  }
  return bytes;
}

std::optional<std::u16string> FromUtf8(const char* bytes) noexcept {
  return WithinMemory([bytes] {
    std::u16string text;
    if (bytes != nullptr) {
      AppendUtf8(text, bytes);
    }
    return text;
  });
}

std::optional<std::string> NarrowThroughAnsi(std::u16string_view text) noexcept {
  return WithinMemory([text] {
    std::string bytes;
    if (text.empty() || text.size() > kMaxLength) {
      return bytes;
    }
    const auto length = static_cast<std::int32_t>(text.size());
    std::int32_t needed = 0;
    if (platform::WideToBytes(CodePage::kThreadAnsi, text.data(), length, nullptr, 0, needed) !=
        platform::kSuccess) {
      return bytes;
    }
    bytes.resize(static_cast<std::size_t>(needed));
    if (platform::WideToBytes(CodePage::kThreadAnsi, text.data(), length, bytes.data(), needed,
                              needed) != platform::kSuccess) {
      bytes.clear();
    }
    return bytes;
  });
}

std::optional<std::u16string> WidenThroughAnsi(std::string_view bytes) noexcept {
  return WithinMemory([bytes] {
    std::u16string text;
    if (bytes.empty() || bytes.size() > kMaxLength) {
      return text;
    }
    // A byte never gives more than one unit.
    text.resize(bytes.size());
    std::int32_t written = 0;
    const auto length = static_cast<std::int32_t>(bytes.size());
    // A failure has the length 0.
    static_cast<void>(platform::BytesToWide(CodePage::kThreadAnsi, bytes.data(), length,
                                            text.data(), length, written));
    text.resize(static_cast<std::size_t>(written));
    return text;
  });
}

Lookup GetJsonString(const cJSON* object, const std::u16string& name, std::u16string& value,
                     const std::u16string& defaultValue) noexcept try {
  value = defaultValue;
  const std::optional<std::string> key = NarrowThroughAnsi(name);
  if (!key) {
    return Lookup::kNoMemory;
  }
  const cJSON* member =
      NamesAMember(*key, name) ? cJSON_GetObjectItem(object, key->c_str()) : nullptr;
  if (cJSON_IsString(member) == 0) {
    return Lookup::kMissing;
  }
  std::optional<std::u16string> text = FromUtf8(member->valuestring);
  if (!text) {
    return Lookup::kNoMemory;
  }
  value = std::move(*text);
  return Lookup::kFound;
} catch (...) {
  return Lookup::kNoMemory;
}

bool SetJsonItem(cJSON* object, std::u16string_view name, cJSON* item) noexcept {
  const std::optional<std::string> key = NarrowThroughAnsi(name);
  const bool taken = key && NamesAMember(*key, name) &&
                     (cJSON_HasObjectItem(object, key->c_str()) != 0
                          ? cJSON_ReplaceItemInObject(object, key->c_str(), item) != 0
                          : cJSON_AddItemToObject(object, key->c_str(), item) != 0);
  if (!taken) {
    cJSON_Delete(item);
  }
  return true;
}

}  // namespace zentpost
