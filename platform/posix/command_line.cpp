#include "platform/posix/command_line.h"

#include <algorithm>

#include "platform/posix/utf8.h"

namespace platform {
namespace {

constexpr std::u16string_view kMarks = u"\"'";
constexpr std::u16string_view kWhiteSpace = u" \t\n\v\f\r";

bool NeedsQuotes(std::u16string_view argument) {
  return argument.empty() || argument.find_first_of(kMarks) != std::u16string_view::npos ||
         argument.find_first_of(kWhiteSpace) != std::u16string_view::npos;
}

void AppendQuoted(std::u16string_view argument, std::u16string& line) {
  line += u'"';
  while (!argument.empty()) {
    const std::size_t marks = std::min(argument.find_first_not_of(kMarks), argument.size());
    // In front of a blank they would end the quotation.
    if (marks == argument.size() || argument[marks] != u' ') {
      line += argument.substr(0, marks);
    }
    argument.remove_prefix(marks);
    const std::size_t others = std::min(argument.find_first_of(kMarks), argument.size());
    line += argument.substr(0, others);
    argument.remove_prefix(others);
  }
  line += u'"';
}

}  // namespace

std::u16string RebuildCommandLine(const std::vector<std::string_view>& arguments) {
  std::u16string line;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    if (i != 0) {
      line += u' ';
    }
    const std::u16string argument = FromUtf8(arguments[i]);
    if (NeedsQuotes(argument)) {
      AppendQuoted(argument, line);
    } else {
      line += argument;
    }
  }
  return line;
}

}  // namespace platform
