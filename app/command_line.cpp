#include "app/command_line.h"

#include <algorithm>
#include <new>
#include <utility>

#include "diag/ascii_case.h"
#include "diag/text_trim.h"
#include "jobfile/commands.h"

namespace zentpost {
namespace {

bool IsQuote(char16_t unit) {
  return unit == u'"' || unit == u'\'';
}

}  // namespace

RawToken TakeToken(std::u16string_view& text, char16_t separator) {
  bool quoted = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (IsQuote(text[i])) {
      // A quote closes before a blank whatever the separator is: fax commands rely on it.
      quoted = !quoted || (i + 1 != text.size() && text[i + 1] != u' ');
    }
    if (text[i] == separator && !quoted) {
      const std::u16string_view token = Trimmed(text.substr(0, i));
      text.remove_prefix(i + 1);
      return {token, false, false};
    }
  }
  return {Trimmed(std::exchange(text, {})), true, quoted};
}

std::vector<std::u16string> SplitQuoted(std::u16string_view text, char16_t separator) {
  std::vector<std::u16string> tokens;
  for (bool is_done = text.empty(); !is_done;) {
    const RawToken raw = TakeToken(text, separator);
    std::u16string token(raw.text);
    std::erase_if(token, IsQuote);
    tokens.push_back(std::move(token));
    is_done = raw.is_last;
  }
  return tokens;
}

void ParseFaxCommand(ParameterList& faxFields, std::u16string_view text) {
  faxFields.Clear();
  const std::vector<std::u16string> fields = SplitQuoted(Trimmed(text), u';');
  for (std::size_t i = 0; i < fields.size(); ++i) {
    const std::u16string& field = fields[i];
    if (i == 0) {
      faxFields.Add(u"+FAX", field);
    } else if (!field.empty()) {
      faxFields.Add(std::u16string(1, ToUpper(field.front())), field.substr(1));
    }
  }
}

void ParseCommandLine(JobParameters& params, std::u16string_view command_line) {
  params.arguments.Clear();
  const std::vector<std::u16string> tokens = SplitQuoted(Trimmed(command_line), u' ');
  if (tokens.empty()) {
    return;
  }
  const JobFileReading reading = CCommands::ReadFromFile(params, tokens[0]);
  if (reading == JobFileReading::kNoMemory) {
    throw std::bad_alloc();
  }
  params.fromJobFile = reading == JobFileReading::kJobFile;
  params.arguments.Add(params.fromJobFile ? argument::kJobFile : argument::kDocument, tokens[0]);

  std::size_t next = 1;
  if (next < tokens.size() && !tokens[next].starts_with(u'/')) {
    params.arguments.Add(argument::kFaxCommand, tokens[next]);
    ParseFaxCommand(params.faxFields, tokens[next]);
    ++next;
  }
  while (next < tokens.size()) {
    // What stands in the option's first place goes, whether or not it is a slash; what follows is
    // its value, whether or not it looks like another option.
    std::u16string name = tokens[next].substr(tokens[next].empty() ? 0 : 1);
    std::transform(name.begin(), name.end(), name.begin(), ToLower);
    const bool has_value = next + 1 < tokens.size();
    params.arguments.Add(std::move(name), has_value ? tokens[next + 1] : u"1");
    next += 2;
  }
}

}  // namespace zentpost
