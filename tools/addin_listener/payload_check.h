// What the bytes of a delivery mean: undoes the conversion that the sender made, checks the JSON
// document against what the mail client's add-in expects, and makes it readable. Pure: reads no
// file and no socket. Shares no code with the sender, so that a fault there does not hide itself
// here.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace zentpost::addin_listener {

// Undoes the sender's conversion. The sender reads its UTF-8 JSON text as Windows-1252, one
// character a byte, and sends these characters in UTF-8; here each character of `wire` becomes its
// Windows-1252 byte again. The bytes 81 8D 8F 90 9D, which that code page leaves undefined, stand
// for the characters of the same number, as on Windows.
// Success: true, `json_utf8` holds the text. Failure: false, `problem` says what is wrong at which
// byte of `wire`, and `json_utf8` is empty: ill-formed UTF-8, a character without a byte, or a text
// that is not UTF-8 once it is undone.
[[nodiscard]] bool UndoWireConversion(std::string_view wire, std::string& json_utf8,
                                      std::string& problem);

struct PayloadMember {
  std::string name;        // UTF-8
  std::string value_utf8;  // a string's text, unescaped; else the JSON value
};

struct PayloadReport {
  // The document that was sent, byte for byte; empty when the conversion cannot be undone.
  std::string json_utf8;
  // What "Parameters" holds, in its order and as far as it could be read.
  std::vector<PayloadMember> members;
  // One sentence for each deviation, in UTF-8; empty for a payload that the add-in would take.
  std::vector<std::string> problems;

  bool valid() const { return problems.empty(); }
};

// Undoes and checks one delivery. A valid document is an object with "Parameters" alone, an object
// with exactly the ten members, in their order and with their types; the case of names counts.
// Not to be called by two threads at the same time: the JSON library keeps its last error position
// for the whole process.
[[nodiscard]] PayloadReport CheckPayload(std::string_view wire);

// Lines "name: value" with the values below each other, each line indented by two blanks and ended
// by a line feed. A line break inside a value continues below it; other control characters appear
// as <U+0007>, so that a payload cannot command the terminal.
[[nodiscard]] std::string FormatMembers(const std::vector<PayloadMember>& members);

}  // namespace zentpost::addin_listener
