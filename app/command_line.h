// The command line's grammar: a job file or document, then an optional fax command, then options.
// Everything here throws std::bad_alloc when memory runs out: the job has then ended.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "app/job_parameters.h"

namespace zentpost {

// The tokens of `text` between `separator`s. A double quote or an apostrophe opens a stretch in
// which separators are ordinary characters; the next quote of either kind that stands at the end or
// before a blank closes it, and one that nothing closes makes the rest one token. Tokens are
// trimmed of white space and lose all their quotes; they may be empty. An empty text has no tokens.
[[nodiscard]] std::vector<std::u16string> SplitQuoted(std::u16string_view text, char16_t separator);

// A token as it stands in the text: trimmed, and with its quotes.
struct RawToken {
  std::u16string_view text;
  bool is_last;
  bool is_open;  // nothing closes its last quote
};

// Takes the next of these tokens off `text`, with the separator behind it. Does not throw.
[[nodiscard]] RawToken TakeToken(std::u16string_view& text, char16_t separator);

// Replaces `faxFields` by the fields of a fax command, "0301234567;Nexample;Shello": the fax number
// ("+FAX", also when empty), then fields of a letter (converted to upper case) and a value. Empty
// fields are left out.
void ParseFaxCommand(ParameterList& faxFields, std::u16string_view text);

// Fills `params` from the command line without the program's path. The first token is offered to
// the job file reader, which may log and add entries; it is "jobname" when it is a job file and
// "filename" when it is not. A fax command replaces the job file's fields. The first entry of a
// name counts, so that options never override what came before them.
void ParseCommandLine(JobParameters& params, std::u16string_view command_line);

}  // namespace zentpost
