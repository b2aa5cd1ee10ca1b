// The doctor's own command line.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace zentpost::doctor {

struct Options {
  enum class Action { kExamine, kHelp, kVersion, kExplain };

  Action action = Action::kExamine;
  std::u16string code;  // of kExplain, as it was given
  bool is_json = false;
  bool connects = false;
  std::optional<std::u16string> out;   // the file to write to
  std::optional<std::u16string> line;  // the tool's command line, as it stands
  std::u16string wrong;                // not empty: what is wrong, naming the argument
};

// Takes the raw text behind the program's path apart: options up to the first word that does not
// begin with "--", which begins the tool's line. Words end at blanks and tabs; only double quotes
// enclose them. Throws std::bad_alloc when memory runs out.
[[nodiscard]] Options ReadOptions(std::u16string_view text);

}  // namespace zentpost::doctor
