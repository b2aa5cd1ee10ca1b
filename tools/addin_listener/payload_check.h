// What the bytes of a delivery mean: undoes the conversion that the sender made, checks the JSON
// document against what the mail client's add-in expects, and makes it readable. Pure: reads no
// file and no socket. Shares no code with the sender, so that a fault there does not hide itself
// here.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tools/addin_listener/code_page.h"

namespace zentpost::addin_listener {

struct PayloadMember {
  std::string name;        // UTF-8
  std::string value_utf8;  // a string's text, unescaped; else the JSON value
};

struct PayloadReport {
  // Whether the bytes lead back to a text with certainty.
  bool decodable = true;
  // The document that was sent, byte for byte; empty when the conversion cannot be undone.
  std::string json_utf8;
  // What "Parameters" holds, in its order and as far as it could be read.
  std::vector<PayloadMember> members;
  // One sentence for each deviation, in UTF-8; empty for a payload that the add-in would take.
  std::vector<std::string> problems;

  bool valid() const { return problems.empty(); }
};

// Undoes and checks one delivery of a sender with this code page. A valid document is an object
// with "Parameters" alone, an object with exactly the ten members, in their order and with their
// types; the case of names counts. Not to be called by two threads at the same time: the JSON
// library keeps its last error position for the whole process.
[[nodiscard]] PayloadReport CheckPayload(std::string_view wire, const CodePage& code_page);
// The same in Windows-1252.
[[nodiscard]] PayloadReport CheckPayload(std::string_view wire);

// Lines "name: value" with the values below each other, each line indented by two blanks and ended
// by a line feed. A line break inside a value continues below it, and so does a line that is longer
// than a console's, behind "> ". Other control characters appear as <U+0007>, so that a payload
// cannot command the terminal.
[[nodiscard]] std::string FormatMembers(const std::vector<PayloadMember>& members);

}  // namespace zentpost::addin_listener
