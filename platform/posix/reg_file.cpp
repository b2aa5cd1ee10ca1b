#include "platform/posix/reg_file.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>

#include "platform/codec/software_codec.h"
#include "platform/posix/utf8.h"
#include "platform/registry.h"

namespace platform {
namespace {

constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";
constexpr std::string_view kUtf16Mark = "\xFF\xFE";
constexpr std::string_view kHeader = "Windows Registry Editor Version 5.00";
constexpr std::string_view kAnsiHeader = "REGEDIT4";

bool IsBlank(char unit) {
  return unit == ' ' || unit == '\t' || unit == '\r';
}

char Lower(char unit) {
  return unit >= 'A' && unit <= 'Z' ? static_cast<char>(unit - 'A' + 'a') : unit;
}

bool SameText(std::string_view left, std::string_view right) {
  return left.size() == right.size() &&
         std::equal(left.begin(), left.end(), right.begin(),
                    [](char a, char b) { return Lower(a) == Lower(b); });
}

// Whether `key` is `parent` or below it.
bool IsWithin(std::string_view key, std::string_view parent) {
  return key.size() >= parent.size() && SameText(key.substr(0, parent.size()), parent) &&
         (key.size() == parent.size() || key[parent.size()] == '\\');
}

// Takes the next line off the front of `rest`, without its end and the blanks around it.
std::string_view TakeLine(std::string_view& rest) {
  const std::size_t end = std::min(rest.find('\n'), rest.size());
  std::string_view line = rest.substr(0, end);
  rest.remove_prefix(std::min(end + 1, rest.size()));
  while (!line.empty() && IsBlank(line.front())) {
    line.remove_prefix(1);
  }
  while (!line.empty() && IsBlank(line.back())) {
    line.remove_suffix(1);
  }
  return line;
}

// A key's line: [PATH], or [-PATH] for a key that is deleted with all that is below it.
struct KeyLine {
  std::string_view path;
  bool deleted;
};

std::optional<KeyLine> ParseKeyLine(std::string_view line) {
  if (line.empty() || line.front() != '[') {
    return std::nullopt;
  }
  // A path may have brackets in it.
  const std::size_t end = line.rfind(']');
  if (end == std::string_view::npos) {
    return std::nullopt;
  }
  KeyLine key = {line.substr(1, end - 1), false};
  if (!key.path.empty() && key.path.front() == '-') {
    key.path.remove_prefix(1);
    key.deleted = true;
  }
  return key;
}

// Takes a quoted text off the front of `line` and undoes its escapes. Absent: there is none, or it
// does not end.
std::optional<std::string> TakeQuoted(std::string_view& line) {
  if (line.empty() || line.front() != '"') {
    return std::nullopt;
  }
  std::string text;
  for (std::size_t i = 1; i < line.size(); ++i) {
    if (line[i] == '"') {
      line.remove_prefix(i + 1);
      return text;
    }
    if (line[i] == '\\' && i + 1 < line.size() && (line[i + 1] == '\\' || line[i + 1] == '"')) {
      ++i;
    }
    text.push_back(line[i]);
  }
  return std::nullopt;
}

void SkipBlanks(std::string_view& line) {
  while (!line.empty() && IsBlank(line.front())) {
    line.remove_prefix(1);
  }
}

// Whether nothing counts any more in what is left of a line.
bool AtEnd(std::string_view line) {
  SkipBlanks(line);
  return line.empty() || line.front() == ';';
}

// Takes `digits` hexadecimal digits at the most, at least one.
std::optional<std::uint32_t> TakeHex(std::string_view& line, std::size_t digits) {
  std::uint32_t number = 0;
  const char* const begin = line.data();
  const auto [end, error] =
      std::from_chars(begin, begin + std::min(line.size(), digits), number, 16);
  if (error != std::errc()) {
    return std::nullopt;
  }
  line.remove_prefix(static_cast<std::size_t>(end - begin));
  return number;
}

void AppendUnit(std::string& data, char16_t unit) {
  data.push_back(static_cast<char>(unit & 0xFF));
  data.push_back(static_cast<char>(unit >> 8));
}

std::string Utf16Bytes(std::u16string_view text) {
  std::string data;
  data.reserve(text.size() * 2);
  for (const char16_t unit : text) {
    AppendUnit(data, unit);
  }
  return data;
}

std::u16string WidenAnsi(std::string_view bytes) {
  std::u16string text(std::min<std::size_t>(bytes.size(), std::numeric_limits<std::int32_t>::max()),
                      u'\0');
  std::int32_t written = 0;
  static_cast<void>(software::BytesToWide(CodePage::kThreadAnsi, bytes.data(),
                                          static_cast<std::int32_t>(text.size()), text.data(),
                                          static_cast<std::int32_t>(text.size()), written));
  return text;
}

std::u16string DecodeUtf16(std::string_view bytes) {
  std::u16string text;
  text.reserve(bytes.size() / 2);
  for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
    text.push_back(static_cast<char16_t>(static_cast<unsigned char>(bytes[i]) |
                                         static_cast<unsigned char>(bytes[i + 1]) << 8));
  }
  return text;
}

// The bytes of a hex list, which goes on in the next line when a backslash ends this one.
std::optional<std::string> ParseHexList(std::string_view line, std::string_view rest) {
  std::string data;
  bool byte_expected = false;
  for (;;) {
    SkipBlanks(line);
    if (line == "\\") {
      line = TakeLine(rest);
      continue;
    }
    if (AtEnd(line)) {
      // A list may end in a comma, but not have one in front.
      return data;
    }
    if (byte_expected) {
      if (line.front() != ',') {
        return std::nullopt;
      }
      line.remove_prefix(1);
      byte_expected = false;
      continue;
    }
    const std::optional<std::uint32_t> byte = TakeHex(line, 2);
    if (!byte) {
      return std::nullopt;
    }
    data.push_back(static_cast<char>(*byte));
    byte_expected = true;
  }
}

// `line` is what follows the equals sign, `rest` the lines below it.
std::optional<RegValue> ParseData(std::string_view line, std::string_view rest, bool ansi) {
  SkipBlanks(line);
  if (std::optional<std::string> text = TakeQuoted(line)) {
    if (!AtEnd(line)) {
      return std::nullopt;
    }
    std::u16string stored = FromUtf8(*text);
    stored.push_back(u'\0');
    return RegValue{kRegSz, Utf16Bytes(stored)};
  }
  const auto take = [&line](std::string_view prefix) {
    if (!SameText(line.substr(0, prefix.size()), prefix)) {
      return false;
    }
    line.remove_prefix(prefix.size());
    return true;
  };
  if (take("dword:")) {
    SkipBlanks(line);
    const std::optional<std::uint32_t> number = TakeHex(line, 8);
    if (!number || !AtEnd(line)) {
      return std::nullopt;
    }
    std::string data;
    AppendUnit(data, static_cast<char16_t>(*number & 0xFFFF));
    AppendUnit(data, static_cast<char16_t>(*number >> 16));
    return RegValue{kRegDword, std::move(data)};
  }
  std::uint32_t type = kRegBinary;
  if (take("hex(")) {
    const std::optional<std::uint32_t> number = TakeHex(line, 8);
    if (!number || !take("):")) {
      return std::nullopt;
    }
    type = *number;
  } else if (!take("hex:")) {
    return std::nullopt;
  }
  std::optional<std::string> data = ParseHexList(line, rest);
  if (!data) {
    return std::nullopt;
  }
  const bool is_text = type == kRegSz || type == kRegExpandSz || type == kRegMultiSz;
  return RegValue{type, ansi && is_text ? Utf16Bytes(WidenAnsi(*data)) : std::move(*data)};
}

// Walks the lines and calls `on_value` with each one that `key` has for itself, and with the lines
// below it; `on_deletion` where the key is deleted. True when the key exists at the end.
template <class OnValue, class OnDeletion>
bool WalkKey(std::string_view text, std::string_view key, OnValue on_value,
             OnDeletion on_deletion) {
  bool exists = false;
  bool inside = false;
  while (!text.empty()) {
    const std::string_view line = TakeLine(text);
    if (!line.empty() && line.front() == '[') {
      // A broken key's line still ends the key before it: its values belong to neither.
      const std::optional<KeyLine> found = ParseKeyLine(line);
      inside = false;
      if (found && found->deleted) {
        if (IsWithin(key, found->path)) {
          exists = false;
          on_deletion();
        }
      } else if (found && IsWithin(found->path, key)) {
        exists = true;
        inside = found->path.size() == key.size();
      }
    } else if (inside) {
      on_value(line, text);
    }
  }
  return exists;
}

}  // namespace

RegFile::RegFile(std::string bytes) {
  if (bytes.compare(0, kUtf16Mark.size(), kUtf16Mark) == 0) {
    bytes = ToUtf8(DecodeUtf16(std::string_view(bytes).substr(kUtf16Mark.size())));
  } else if (bytes.compare(0, kUtf8Mark.size(), kUtf8Mark) == 0) {
    bytes.erase(0, kUtf8Mark.size());
  }
  std::string_view rest = bytes;
  const std::string_view header = TakeLine(rest);
  ansi_ = header == kAnsiHeader;
  if (ansi_) {
    text_ = ToUtf8(WidenAnsi(rest));
  } else if (header == kHeader) {
    text_ = std::move(bytes);
    text_.erase(0, text_.size() - rest.size());
  }
}

bool RegFile::HasKey(std::string_view key) const {
  return WalkKey(
      text_, key, [](std::string_view, std::string_view) {}, [] {});
}

std::optional<RegValue> RegFile::FindValue(std::string_view key, std::string_view name) const {
  std::optional<RegValue> value;
  const auto on_value = [&](std::string_view line, std::string_view rest) {
    if (line.empty()) {
      return;
    }
    if (line.front() == '@') {
      if (!name.empty()) {
        return;
      }
      line.remove_prefix(1);
    } else {
      const std::optional<std::string> found = TakeQuoted(line);
      if (!found || !SameText(*found, name)) {
        return;
      }
    }
    SkipBlanks(line);
    if (line.empty() || line.front() != '=') {
      return;
    }
    line.remove_prefix(1);
    SkipBlanks(line);
    if (line.substr(0, 1) == "-" && AtEnd(line.substr(1))) {
      value.reset();
    } else if (std::optional<RegValue> parsed = ParseData(line, rest, ansi_)) {
      value = std::move(parsed);
    }
  };
  WalkKey(text_, key, on_value, [&value] { value.reset(); });
  return value;
}

}  // namespace platform
