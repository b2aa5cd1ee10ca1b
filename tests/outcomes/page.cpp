#include "tests/outcomes/page.h"

#include <algorithm>
#include <cctype>

#include "testing/outcomes.h"

namespace zentpost::test {
namespace {

// NUMBER_OF_OUTCOMES and the list of sections are filled in.
constexpr std::string_view kIntroduction = R"(# Outcomes

For those who start Zentpost and have to decide what became of a job: every combination of route, exit
code, `Result` and last line of the log, with its cause and what the caller should do;
**NUMBER_OF_OUTCOMES outcomes**. Job file, registry values and log are told of in
[integration.md](integration.md).

- [How to read it](#how-to-read-it)
- [What to do](#what-to-do)
- [Delivered, and somebody did not get everything](#delivered-and-somebody-did-not-get-everything)
LIST_OF_SECTIONS
## How to read it

1. **The exit code** says whether the job counts as delivered: 0 yes, 1 no. Where the tool has ended by
   itself it is right also when the job file says something else or nothing. Somebody who ends the tool
   chooses its exit code (the task manager gives 1): without a `Result`, or with one that does not fit, read
   the log before you send again. Any other number: it was ended, or it has crashed, and the job may have
   been delivered or not.
2. **`Result` in the job file** stands here as `Status, ErrorCode, "ErrorText"`. *none*: there is no
   `Result` of this job, since the line named the document itself, or the job file could not be written,
   or was taken for the document. One from an earlier job may stand there: take it out before you start
   the tool. *broken*: the job file is no JSON any more, since it was cut off while it was written, on a
   full disk for example.
3. **The last line of the log** stands here without time and level. Read the log from its end and skip
   the lines that begin with `Code`, the further lines of a payload, and those that clean up:
   `SendMail(): cleanup.`, `DoMAPIFastShutdown()` and `SendMail(): Function end.` Jobs that run at the
   same time log into the same file, line by line. Where the log is off, the first two tell the group.

**The route** is told by the log as well: a job whose log has lines of `ProcessToOutlookClient()` took the
add-in's, one with lines of `ProcessToExtendedMapi()` that of Extended MAPI, and one with both was not
taken by the add-in and went on.

`NUMBER` stands for digits, `TEXT` for any text. Where two rows fit, the upper one counts. *any line* is
one that no other row has: memory ran out, and the log ends there or lacks lines.

| exit code | Result | |
|---|---|---|
| 0 | `0, 0, ""` | delivered |
| 0 | anything else | delivered, and the job file does not say so, unless somebody has ended the tool: do not send again before the log says otherwise |
| 1 | `1, -NUMBER, ...` | not delivered, and the `ErrorCode` tells more: it is a [MAPI result](nothing-was-sent.md#mapi-results) |
| 1 | anything else | not delivered, and the log alone tells why, unless somebody has ended the tool: read it first |

## What to do

| | |
|---|---|
| **Nothing** | the job counts as delivered |
| **Look** | somebody has to see how things are before the job is sent again: it might go out twice, or the document may be gone |
| **Send again** | the same job may work later; job file and document are there, unless the row says otherwise. A message that the tool could not finish may be left in the Outbox: delete it |
| **Correct the job** | the same job will not work: something in it has to change |
| **Tell the administrator** | no job will work until something on the computer has changed |

## Delivered, and somebody did not get everything

The exit code is 0 and the log has one of these lines, not always as its last. What no line tells, such
as an add-in that takes a job and drops it, stands in
[integration.md](integration.md#delivered-although-nobody-received-it).

| in the log | what happened |
|---|---|
)";

constexpr LineOfLoss kLinesOfLoss[] = {
    {"ProcessToOutlookClient(): Created JSON:",
     "As the last line: the field `O` diverts the job into a file. In front of others it is "
     "harmless."},
    {"ProcessToExtendedMapi(): Preview    : ",
     "As the last line: `SkipExtendedMapi` is set, or the field `O` diverts the job. In front of "
     "others "
     "it is harmless."},
    {"SendMail(): Mail will be opened as modal window.",
     "The mail client has shown the message. The user may have closed it without sending."},
    {"AddAttachment(): The attachment path cannot be read.",
     "The message went out without the document, which is missing or in use. It stays where it "
     "is."},
    {"AddRecipientAddress(): The address list cannot be allocated.",
     "The message went on without its recipient."},
    {"_utf8(): The utf-8 forward conversion failed.",
     "A text of the job is empty; the fax number may be."},
    {"ReadFromFile(): Parse JSON failed with error",
     "Where the line named a job file: it is no JSON, a comma may be wrong. It was itself taken "
     "for the "
     "document, without a fax number, and on the Extended MAPI route it is deleted. Where the line "
     "named a document this is harmless."},
    {"GetDocumentFromJson(): Filename not found",
     "The job file has no text `FilePath`: the add-in got a job without document and fields."},
    {"GetDocumentFromJson(): JobName not found",
     "The job file has no text `SourceFileName`: the add-in got a job without document and "
     "fields."},
};

std::string Filled(std::string_view text, std::string_view name, const std::string& value) {
  std::string filled(text);
  return filled.replace(filled.find(name), name.size(), value);
}

std::string Code(std::string_view text) {
  return "`" + std::string(text) + "`";
}

struct Section {
  Route route;
  std::string_view introduction;
};
constexpr Section kSections[] = {
    {Route::kNone, "The job took none, or the lines that would tell it are missing."},
    {Route::kAddin,
     "Something accepted the connection on the add-in's port. A job that it did not take went on "
     "and\n"
     "stands under [the last heading](#add-in-then-extended-mapi)."},
    {Route::kExtendedMapi,
     "No port of the add-in is set up, or nothing accepted the connection on it."},
    {Route::kAddinThenExtendedMapi,
     "The add-in did not take the job, and it went on to Extended MAPI, which decides the exit "
     "code and\n"
     "as a rule the `Result`. See whether the add-in works, too."},
};

std::string Title(Route route, int exit_code) {
  return std::string(NameOf(route)) + ", exit code " + std::to_string(exit_code);
}

std::string LastLine(std::string_view line) {
  if (line == kAnyLine) {
    return "*any line*";
  }
  return Code(line.substr(line.find(": ") + 2));
}

std::string_view TextOf(DocumentFate fate) {
  switch (fate) {
    case DocumentFate::kUntold:
      return "";
    case DocumentFate::kStays:
      return " The document stays where it is.";
    case DocumentFate::kMayBeGone:
      return " As a rule the document is gone from its place: the message that is left in the "
             "Outbox "
             "may hold it.";
  }
  return "";
}

std::string Row(const Outcome& outcome) {
  const bool is_code = outcome.result.find(',') != std::string_view::npos;
  return "| " + (is_code ? Code(outcome.result) : "*" + std::string(outcome.result) + "*") + " | " +
         LastLine(outcome.last_line) + " | " + outcome.cause +
         std::string(TextOf(outcome.document)) + " | **" + std::string(NameOf(outcome.remedy)) +
         ".** " + outcome.advice + " |\n";
}

std::string Table(Route route, int exit_code) {
  std::string rows;
  for (const Outcome& outcome : Outcomes()) {
    if (outcome.route == route && outcome.exit_code == exit_code) {
      rows += Row(outcome);
    }
  }
  return rows.empty() ? ""
                      : "\n### " + Title(route, exit_code) +
                            "\n\n| Result | last line of the log | cause | what to do |\n"
                            "|---|---|---|---|\n" +
                            rows;
}

// As it is made of a heading for links to it.
std::string Anchor(std::string_view heading) {
  std::string anchor;
  for (const char c : heading) {
    if (c == ' ') {
      anchor += '-';
    } else if (c != ',') {
      anchor += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
  }
  return anchor;
}

}  // namespace

std::span<const LineOfLoss> LinesOfLoss() {
  return kLinesOfLoss;
}

std::string OutcomesPage() {
  std::string list;
  std::string body;
  for (const auto& [route, introduction] : kSections) {
    const std::string name(NameOf(route));
    list += "- [" + name + "](#" + Anchor(name) + "):";
    body += "\n## " + name + "\n\n" + std::string(introduction) + "\n";
    for (const int exit_code : {0, 1}) {
      const std::string table = Table(route, exit_code);
      if (!table.empty()) {
        list += (list.ends_with(':') ? "" : ",") + std::string("\n  [exit code ") +
                std::to_string(exit_code) + "](#" + Anchor(Title(route, exit_code)) + ")";
      }
      body += table;
    }
    list += "\n";
  }
  std::string page =
      Filled(Filled(kIntroduction, "NUMBER_OF_OUTCOMES", std::to_string(Outcomes().size())),
             "LIST_OF_SECTIONS", list);
  for (const LineOfLoss& line : kLinesOfLoss) {
    page += "| " + Code(line.text) + " | " + std::string(line.loss) + " |\n";
  }
  return page + body;
}

}  // namespace zentpost::test
