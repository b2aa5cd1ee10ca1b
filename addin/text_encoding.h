// Text at the system's UTF-8 edges, and the two operations on JSON members that convert on the way.
// The conversions differ in sizing and in how they fail because their callers rely on it. None of
// them throws; nothing (std::nullopt) means that memory ran out.
#pragma once

#include <cjson/cJSON.h>

#include <optional>
#include <string>
#include <string_view>

#include "platform/status.h"

namespace zentpost {

// How WideToUtf8 ended. `status` is the system's number for the failure, 0 when there is none.
struct Utf8Result {
  enum class Outcome { kConverted, kNoMemory, kNotConverted };
  Outcome outcome = Outcome::kConverted;
  platform::Status status = platform::kSuccess;
};

// Converts `text` to UTF-8 in a buffer of two bytes a unit and two more: text whose UTF-8 form
// needs more (many characters from U+0800 on) is not converted, and neither is an empty text.
// `bytes` ends at the first zero byte and is empty on failure.
[[nodiscard]] Utf8Result WideToUtf8(std::u16string_view text, std::string& bytes) noexcept;

// UTF-8 of the zero-terminated `text` (may be null), within WideToUtf8's limit. Text that looks
// like UTF-8 bytes widened one byte a character is narrowed back through the ANSI code page instead
// of being encoded a second time. Empty for an empty text and when it cannot be converted, which is
// logged; nothing when memory runs out, which is logged, too.
[[nodiscard]] std::optional<std::string> _utf8(const char16_t* text) noexcept;

// UTF-16 of the zero-terminated UTF-8 `bytes` (may be null). Ill-formed bytes become U+FFFD. Empty
// when it cannot be converted; nothing when memory runs out.
[[nodiscard]] std::optional<std::u16string> FromUtf8(const char* bytes) noexcept;

// `text` as bytes of the thread's ANSI code page. Empty when it cannot be converted; nothing when
// memory runs out.
[[nodiscard]] std::optional<std::string> NarrowThroughAnsi(std::u16string_view text) noexcept;

// `bytes`, read in the thread's ANSI code page, as UTF-16. Empty when they cannot be converted;
// nothing when memory runs out.
[[nodiscard]] std::optional<std::u16string> WidenThroughAnsi(std::string_view bytes) noexcept;

// What became of looking a member up.
enum class Lookup { kFound, kMissing, kNoMemory };

// Looks `name` up in `object` (the case of ASCII letters is ignored). Found when the member is a
// string: `value` is then its text. Otherwise `value` is `defaultValue`, or unspecified when memory
// runs out.
[[nodiscard]] Lookup GetJsonString(const cJSON* object, const std::u16string& name,
                                   std::u16string& value,
                                   const std::u16string& defaultValue) noexcept;

// Gives `object` the member `name`, in place of one of that name (the case of ASCII letters is
// ignored) or behind its last. Takes `item` over in any case, null included. Always true, also when
// memory runs out, which leaves `object` as it was.
bool SetJsonItem(cJSON* object, std::u16string_view name, cJSON* item) noexcept;

}  // namespace zentpost
