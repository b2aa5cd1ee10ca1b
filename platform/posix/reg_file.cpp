#include "platform/posix/reg_file.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <utility>

#include "platform/posix/utf8.h"
#include "platform/registry.h"

namespace platform {
namespace {

constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";
constexpr std::string_view kUtf16Mark = "\xFF\xFE";
constexpr std::string_view kHeader = "Windows Registry Editor Version 5.00";

char Lower(char unit) {
  return unit >= 'A' && unit <= 'Z' ? static_cast<char>(unit - 'A' + 'a') : unit;
}

// Takes the next line off the front of `rest`, without its end and the blanks around it.
std::string_view TakeLine(std::string_view& rest) {
  const std::size_t end = std::min(rest.find('\n'), rest.size());
  std::string_view line = rest.substr(0, end);
  rest.remove_prefix(std::min(end + 1, rest.size()));
  line = line.substr(0, line.find_last_not_of(" \t\r") + 1);  // npos + 1 is 0.
  line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
  return line;
}

// Takes `prefix` off the front of `line`, if it is there.
bool Take(std::string_view& line, std::string_view prefix) {
  if (!line.starts_with(prefix)) {
    return false;
  }
  line.remove_prefix(prefix.size());
  return true;
}

// Takes a quoted text off the front of `line` and undoes its escapes. Absent: there is none, or it
// does not end.
std::optional<std::string> TakeQuoted(std::string_view& line) {
  if (!line.starts_with('"')) {
    return std::nullopt;
  }
  std::string text;
  for (std::size_t i = 1; i < line.size(); ++i) {
    if (line[i] == '"') {
      line.remove_prefix(i + 1);
      return text;
    }
    if (line[i] == '\\' && i + 1 < line.size()) {
      ++i;
    }
    text.push_back(line[i]);
  }
  return std::nullopt;
}

// Takes the hexadecimal number that `text` begins with.
std::optional<std::uint32_t> TakeHex(std::string_view& text, std::uint32_t most) {
  std::uint32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, 16);
  if (error != std::errc() || number > most) {
    return std::nullopt;
  }
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return number;
}

std::string LittleEndian(std::uint32_t number, int size) {
  std::string bytes;
  for (int i = 0; i < size; ++i) {
    bytes.push_back(static_cast<char>(number >> (8 * i) & 0xFF));
  }
  return bytes;
}

std::u16string DecodeUtf16(std::string_view bytes) {
  std::u16string text;
  for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
    text.push_back(static_cast<char16_t>(static_cast<unsigned char>(bytes[i]) |
                                         static_cast<unsigned char>(bytes[i + 1]) << 8));
  }
  return text;
}

// The data of "TEXT".
std::optional<RegValue> ParseText(std::string_view text) {
  const std::optional<std::string> utf8 = TakeQuoted(text);
  if (!utf8 || !text.empty()) {
    return std::nullopt;
  }
  std::string data;
  for (const char16_t unit : FromUtf8(*utf8) + u'\0') {
    data += LittleEndian(unit, 2);
  }
  return RegValue{kRegSz, std::move(data)};
}

// The data of dword:NUMBER, without the word.
std::optional<RegValue> ParseNumber(std::string_view text) {
  const std::optional<std::uint32_t> number = TakeHex(text, UINT32_MAX);
  if (!number || !text.empty()) {
    return std::nullopt;
  }
  return RegValue{kRegDword, LittleEndian(*number, 4)};
}

// The data of hex:BYTE,BYTE or hex(TYPE):BYTE,BYTE, without the word.
std::optional<RegValue> ParseBytes(std::string_view text) {
  RegValue value{kRegBinary, {}};
  if (Take(text, "(")) {
    const std::optional<std::uint32_t> type = TakeHex(text, UINT32_MAX);
    if (!type || !Take(text, ")")) {
      return std::nullopt;
    }
    value.type = *type;
  }
  if (!Take(text, ":")) {
    return std::nullopt;
  }
  while (!text.empty()) {
    const std::optional<std::uint32_t> byte = TakeHex(text, 0xFF);
    if (!byte) {
      return std::nullopt;
    }
    value.data.push_back(static_cast<char>(*byte));
    Take(text, ",");
  }
  return value;
}

// Does what a line of the form NAME=DATA says, or NAME=-, which takes the value away; any other
// line says nothing.
void AddValue(std::string_view line, RegValues& values) {
  const std::optional<std::string> name = Take(line, "@") ? std::string() : TakeQuoted(line);
  if (!name || !Take(line, "=")) {
    return;
  }
  if (line == "-") {
    values.erase(*name);
  }
  std::optional<RegValue> value = Take(line, "dword:") ? ParseNumber(line)
                                  : Take(line, "hex")  ? ParseBytes(line)
                                                       : ParseText(line);
  if (value) {
    values.insert_or_assign(*name, *std::move(value));
  }
}

// Makes a key and its parents.
RegValues& AddKey(std::string_view path, RegKeys& keys) {
  for (std::size_t end = path.find('\\'); end != path.npos; end = path.find('\\', end + 1)) {
    keys.try_emplace(std::string(path.substr(0, end)));
  }
  return keys[std::string(path)];
}

}  // namespace

bool IgnoringCase::operator()(std::string_view left, std::string_view right) const {
  return std::lexicographical_compare(left.begin(), left.end(), right.begin(), right.end(),
                                      [](char a, char b) { return Lower(a) < Lower(b); });
}

RegKeys ParseRegFile(std::string bytes) {
  if (bytes.starts_with(kUtf16Mark)) {
    bytes = ToUtf8(DecodeUtf16(std::string_view(bytes).substr(kUtf16Mark.size())));
  }
  std::string_view rest = bytes;
  Take(rest, kUtf8Mark);
  RegKeys keys;
  if (TakeLine(rest) != kHeader) {
    return keys;
  }
  RegValues* values = nullptr;
  while (!rest.empty()) {
    std::string line(TakeLine(rest));
    while (line.ends_with(",\\")) {  // A list of bytes goes on in the next line.
      line.pop_back();
      line += TakeLine(rest);
    }
    if (line.starts_with('[')) {
      // A broken key's line still ends the key before it: its values belong to neither.
      values = line.ends_with(']')
                   ? &AddKey(std::string_view(line).substr(1, line.size() - 2), keys)
                   : nullptr;
    } else if (values != nullptr) {
      AddValue(line, *values);
    }
  }
  return keys;
}

}  // namespace platform
