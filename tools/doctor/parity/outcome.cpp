#include "tools/doctor/parity/outcome.h"

#include <istream>
#include <ostream>
#include <string_view>

#include "tools/support/text.h"

namespace zentpost::doctor::parity {

std::string OneLine(std::string_view bytes) {
  std::string line = "\"";
  for (const char byte : bytes) {
    if (static_cast<unsigned char>(byte) < ' ' || byte == '\\') {
      line += "\\" + support::HexBytes({&byte, 1});
    } else {
      line += byte;
    }
  }
  return line + "\"";
}

std::string OneLine(const std::optional<Message>& message) {
  if (!message) {
    return kNothing;
  }
  std::string text;
  const auto add = [&](std::u16string_view part) {
    // As it stands, ill-formed parts included.
    for (const char16_t unit : part) {
      text += static_cast<char>(unit & 0xFF);
      text += static_cast<char>(unit >> 8);
    }
    text += '|';
  };
  add(message->subject);
  add(message->body);
  add(message->sender);
  if (message->recipient) {
    add(message->recipient->address);
    add(message->recipient->type);
    add(message->recipient->name);
  }
  if (message->attachment) {
    add(message->attachment->name);
    text += std::to_string(message->attachment->size);
  }
  return support::HexBytes(text);
}

std::string OneLine(const std::vector<std::u16string>& paths) {
  std::string text;
  for (const std::u16string& path : paths) {
    text += support::Utf8(path.substr(0, path.find(u'\0'))) + "|";
  }
  return OneLine(text);
}

void Write(std::ostream& out, std::uint32_t seed, const Outcome& outcome) {
  out << "job " << seed << '\n';
  for (const auto& [name, text] : outcome) {
    out << name << '=' << text << '\n';
  }
  out << '\n';
}

std::optional<Outcome> Read(std::istream& in, std::uint32_t seed) {
  std::string line;
  if (!std::getline(in, line) || line != "job " + std::to_string(seed)) {
    return std::nullopt;
  }
  Outcome outcome;
  while (std::getline(in, line) && !line.empty()) {
    const std::size_t end = line.find('=');
    outcome[line.substr(0, end)] = line.substr(end + 1);
  }
  return outcome;
}

}  // namespace zentpost::doctor::parity
