#include "testing/end_to_end/text.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>

namespace zentpost::e2e {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

bool IsHighSurrogate(char32_t unit) {
  return unit >= 0xD800 && unit <= 0xDBFF;
}
bool IsLowSurrogate(char32_t unit) {
  return unit >= 0xDC00 && unit <= 0xDFFF;
}

void AppendUtf8(char32_t character, std::string& utf8) {
  const auto append = [&utf8](char32_t byte) { utf8.push_back(static_cast<char>(byte)); };
  if (character < 0x80) {
    append(character);
  } else if (character < 0x800) {
    append(0xC0 | (character >> 6));
    append(0x80 | (character & 0x3F));
  } else if (character < 0x10000) {
    append(0xE0 | (character >> 12));
    append(0x80 | ((character >> 6) & 0x3F));
    append(0x80 | (character & 0x3F));
  } else {
    append(0xF0 | (character >> 18));
    append(0x80 | ((character >> 12) & 0x3F));
    append(0x80 | ((character >> 6) & 0x3F));
    append(0x80 | (character & 0x3F));
  }
}

// Some of `text` around `at`, with escapes for what a terminal would not show.
std::string Excerpt(std::string_view text, std::size_t at) {
  constexpr std::size_t kAround = 200;
  const std::size_t from = at > kAround ? at - kAround : 0;
  std::string result;
  for (const char c : text.substr(from, 2 * kAround)) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '\n') {
      result += "\\n\n    ";
    } else if (byte < 0x20 || byte >= 0x7F) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\x%02X", unsigned{byte});
      result += escape;
    } else {
      result.push_back(c);
    }
  }
  return result;
}

}  // namespace

std::u16string Utf16(std::string_view utf8) {
  std::u16string text;
  text.reserve(utf8.size());
  for (std::size_t i = 0; i < utf8.size();) {
    const auto lead = static_cast<unsigned char>(utf8[i]);
    const std::size_t length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    char32_t character = lead & (length == 1 ? 0x7FU : 0x7FU >> length);
    for (std::size_t k = 1; k < length && i + k < utf8.size(); ++k) {
      character = (character << 6) | (static_cast<unsigned char>(utf8[i + k]) & 0x3FU);
    }
    i += length;
    if (character >= 0x10000) {
      text.push_back(static_cast<char16_t>(0xD800 + ((character - 0x10000) >> 10)));
      text.push_back(static_cast<char16_t>(0xDC00 + ((character - 0x10000) & 0x3FF)));
    } else {
      text.push_back(static_cast<char16_t>(character));
    }
  }
  return text;
}

std::string Utf8(std::u16string_view text) {
  std::string utf8;
  utf8.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    char32_t character = text[i];
    if (IsHighSurrogate(character) && i + 1 < text.size() && IsLowSurrogate(text[i + 1])) {
      ++i;
      character = 0x10000 + ((character - 0xD800) << 10) + (text[i] - 0xDC00U);
    } else if (IsHighSurrogate(character) || IsLowSurrogate(character)) {
      character = kReplacement;
    }
    AppendUtf8(character, utf8);
  }
  return utf8;
}

std::string Replaced(std::string text, std::string_view from, std::string_view to) {
  std::string result;
  std::size_t at = 0;
  for (std::size_t found = text.find(from); found != std::string::npos;
       found = text.find(from, at)) {
    result.append(text, at, found - at);
    result += to;
    at = found + from.size();
  }
  result.append(text, at);
  return result;
}

testing::AssertionResult Same(std::string_view expected, std::string_view actual) {
  if (expected == actual) {
    return testing::AssertionSuccess();
  }
  const std::size_t at = static_cast<std::size_t>(
      std::mismatch(expected.begin(), expected.end(), actual.begin(), actual.end()).first -
      expected.begin());
  return testing::AssertionFailure()
         << "the texts differ from byte " << at << " on\n  expected (" << expected.size()
         << " bytes):\n    " << Excerpt(expected, at) << "\n  actual (" << actual.size()
         << " bytes):\n    " << Excerpt(actual, at);
}

}  // namespace zentpost::e2e
