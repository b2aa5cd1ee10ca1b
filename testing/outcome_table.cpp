#include <array>

#include "testing/outcomes.h"

namespace zentpost::test {
namespace {

// What became of writing an ending down in the job file.
using Tellings = unsigned;
constexpr Tellings kTold = 1;         // its Result stands there
constexpr Tellings kNotTold = 2;      // no Result of this job stands there
constexpr Tellings kHalfWritten = 4;  // the job file was cut off then
constexpr Tellings kOnlyAddin = 8;    // the add-in's Result still stands there
constexpr Tellings kNever = 0;

constexpr std::string_view kDelivered = "0, 0, \"\"";
constexpr std::string_view kMapiError = "1, -NUMBER, \"MAPI Error\"";
constexpr std::string_view kCallFailed = "1, -2147467259, \"MAPI Error\"";
constexpr std::string_view kOutOfMemory = "1, -2147024882, \"MAPI Error\"";
constexpr std::string_view kInvalidArgument = "1, -2147024809, \"MAPI Error\"";

constexpr std::string_view kCreated = "INFO: ProcessToOutlookClient(): Created JSON:";
constexpr std::string_view kParameters = "INFO: ProcessToExtendedMapi(): Preview    : TEXT";
constexpr std::string_view kNoJobFile =
    "ERROR: WriteJobFileResult(): Parse JSON failed with error 'TEXT'";
constexpr std::string_view kNotConverted = "ERROR: _utf8(): The utf-8 forward conversion failed.";
constexpr std::string_view kNoMemoryForText = "ERROR: _utf8(): A memory error occurred.";
constexpr std::string_view kNotAttached = "ERROR: SendMail(): The attachment cannot be added.";

constexpr DocumentFate kStays = DocumentFate::kStays;
constexpr DocumentFate kMayBeGone = DocumentFate::kMayBeGone;
constexpr DocumentFate kUntold = DocumentFate::kUntold;

// What a job comes to, apart from how that is written down.
struct Ending {
  int exit_code;
  std::string_view result;
  std::string_view last_line;
  // Which there are on the add-in route, on the Extended MAPI route, and on that one behind the
  // other.
  Tellings by_addin;
  Tellings by_mapi;
  Tellings behind_addin;
  std::string_view cause;
  DocumentFate document;
  Remedy remedy;
  std::string_view advice;
};

constexpr Tellings kTwo = kTold | kNotTold;
constexpr Tellings kThree = kTwo | kHalfWritten;
constexpr Tellings kAll = kThree | kOnlyAddin;

constexpr Ending kEndings[] = {
    // --- delivered, as far as the tool can tell ---
    {0, kDelivered, "INFO: ProcessToOutlookClient(): The JSON payload successfully sent.", kThree,
     kNever, kNever,
     "The payload went to the program that listens on the add-in's port. What becomes of it there "
     "the tool is not told.",
     kUntold, Remedy::kNothing, "The add-in has the job now."},
    {0, kDelivered, kCreated, kThree, kNever, kNever,
     "The field `O` diverts the job: its payload goes into a file, and nobody gets it.", kUntold,
     Remedy::kLook,
     "See whether the file that `O` names is there; the job counts as delivered without it, too."},
    {0, kDelivered, "INFO: SendMail(): Message sent successfully.", kNever, kThree, kAll,
     "The message was handed to the mail client. Whether it holds the document, the lines before "
     "tell.",
     kUntold, Remedy::kNothing, "The mail client has the job now."},
    {0, kDelivered, "INFO: SendMail(): Mail will be opened as modal window.", kNever, kThree, kAll,
     "The mail client has shown the message, since the job asks for a preview or has no recipient, "
     "and the user has closed the form.",
     kUntold, Remedy::kLook,
     "Whether the user has sent the message, the Sent Items tell. A job without a fax number that "
     "should have one is wrong."},
    {0, kDelivered, kParameters, kNever, kThree, kAll,
     "Nobody gets the job: `SkipExtendedMapi` is set, or the field `O` diverts the payload into a "
     "file.",
     kUntold, Remedy::kLook,
     "Where `O` is given, see whether its file is there. Otherwise the administrator takes "
     "`SkipExtendedMapi` away."},
    {0, kDelivered, kNotConverted, kTold, kTold, kNever,
     "The field `O` diverts the job, and a text of it cannot be converted: it is empty in the "
     "file.",
     kUntold, Remedy::kJob, "Shorten the text, or write it in other characters."},
    {0, kNoResult, kNoJobFile, kTold, kTold, kTold | kHalfWritten | kOnlyAddin,
     "The job counts as delivered, as the lines before tell. Then the job file could not be read "
     "any more: somebody has removed, changed or locked it.",
     kUntold, Remedy::kNothing,
     "The exit code is the answer. Leave the job file alone until the tool has ended."},

    // --- not delivered ---
    {1, kCallFailed, "ERROR: SendMail(): MAPIInititialize failed.", kNever, kThree, kAll,
     "No usable MAPI library was found, or it did not start: there is no mail client of the tool's "
     "bitness.",
     kStays, Remedy::kAdministrator,
     "Install or repair the mail client, or take the tool of its bitness; `zentpost_doctor` tells "
     "which."},
    {1, kMapiError, "ERROR: SendMail(): MAPILogonEx failed.", kNever, kTwo, kTwo,
     "The mail client refused the logon, or the user cancelled it.", kStays, Remedy::kRetry,
     "Start the mail client as this user first."},
    {1, kMapiError, "ERROR: SendMail(): The default message store cannot be found.", kNever, kTwo,
     kTwo, "The profile has no default mailbox or data file that can be opened.", kStays,
     Remedy::kAdministrator, "Give the profile a default mailbox or data file."},
    {1, kMapiError, "ERROR: SendMail(): The store properties cannot be obtained.", kNever, kTwo,
     kTwo, "The mailbox or data file does not tell where its folders are.", kStays, Remedy::kRetry,
     "If it happens again, the profile or the data file needs repair."},
    {1, kMapiError, "ERROR: SendMail(): The outbox folder cannot be opened.", kNever, kTwo, kTwo,
     "The default mailbox or data file has no Outbox, or it cannot be opened.", kStays,
     Remedy::kAdministrator, "Repair the mailbox or data file."},
    {1, kMapiError, "ERROR: SendMail(): A new message cannot be created.", kNever, kTwo, kTwo,
     "The Outbox takes no new message: it is full, or may not be written to.", kStays,
     Remedy::kRetry, "If it happens again, make room in the mailbox and look at its rights."},
    {1, kMapiError, "ERROR: SendMail(): The recipient 'TEXT' cannot be added.", kNever, kTwo, kTwo,
     "The mail client does not take the fax number as an address, or the message could not be "
     "saved "
     "with it; the lines before tell which.",
     kStays, Remedy::kJob,
     "Look at the fax number and at the settings `AddrExtFaxEnabled`, `AddrExtFaxPrefix` and "
     "`AddrExtFaxPostfix`."},
    {1, kMapiError, "ERROR: SendMail(): Message content cannot be set.", kNever, kTwo, kTwo,
     "The message did not take subject, text or sender, or could not be saved with them.", kStays,
     Remedy::kRetry,
     "If it happens again, the mailbox may be full, or a text of the job too long."},
    {1, kInvalidArgument, kNotAttached, kNever, kTold, kTold,
     "The job names no document, or the mail client has found a call not valid.", kStays,
     Remedy::kJob, "Give the job file the texts `FilePath` and `SourceFileName`."},
    {1, kOutOfMemory, kNotAttached, kNever, kTold, kTold,
     "There was no memory for the document, or for what the mail client makes of it.", kStays,
     Remedy::kJob, "Send a smaller document."},
    {1, kMapiError, kNotAttached, kNever, kTwo, kTwo,
     "The document could not be read whole, or the message did not take it; the lines before tell "
     "which.",
     kStays, Remedy::kRetry,
     "If it happens again, look whether the job names a document, who has it open, and how large "
     "it "
     "is."},
    {1, kMapiError, "ERROR: SendMail(): Submit message failed.", kNever, kTwo, kTwo,
     "The mail client does not send the message.", kMayBeGone, Remedy::kLook,
     "Open the message in the Outbox and send it from there, or send the job again from a copy of "
     "the document."},
    {1, kMapiError, "ERROR: SendMail(): Form manager cannot be opened.", kNever, kTwo, kTwo,
     "The mail client does not offer its form, with which it would show the message.", kMayBeGone,
     Remedy::kLook,
     "Open the message in the Outbox and send it from there, or send the job again from a copy of "
     "the document without a preview."},
    {1, kMapiError, "ERROR: SendMail(): Message cannot be opened modally.", kNever, kTwo, kTwo,
     "The mail client did not show the message; the line before tells at which step.", kMayBeGone,
     Remedy::kLook,
     "Open the message in the Outbox and send it from there, or send the job again from a copy of "
     "the document."},
    {1, kOutOfMemory, kNoMemoryForText, kNever, kTold, kNever,
     "The field `O` diverts the job, and there was no memory for its payload.", kStays,
     Remedy::kRetry, "Close programs first."},
    {1, kNoResult, kNoMemoryForText, kNever, kTold, kOnlyAddin,
     "The job failed, as the lines before tell. Then there was no memory for the Result's text.",
     kUntold, Remedy::kRetry, "Close programs first, and look at the lines before."},
    {1, "1, -NUMBER, \"\"", kNotConverted, kNever, kTold, kTold,
     "The job failed, as the lines before tell. The system then could not convert the Result's "
     "text.",
     kUntold, Remedy::kAdministrator,
     "The lines before tell what failed; the computer may need a restart."},
    {1, kNoResult, kNotConverted, kNever, kTold, kOnlyAddin,
     "The job failed, as the lines before tell. The system then could convert no text any more.",
     kUntold, Remedy::kAdministrator,
     "The lines before tell what failed; the computer may need a restart."},
    {1, kNoResult, kNoJobFile, kNever, kTold, kTold | kHalfWritten | kOnlyAddin,
     "The job failed, as the lines before tell. Then the job file could not be read any more: "
     "somebody has removed, changed or locked it.",
     kUntold, Remedy::kLook,
     "The lines before tell what failed. Leave the job file alone until the tool has ended."},
};

// What the model of whole jobs does not know. Without memory a job ends as others do, but its log
// ends where the memory did, or lacks a line.
struct OtherEnding {
  Route route;
  int exit_code;
  std::string_view result;
  std::string_view cause;
  Remedy remedy;
  std::string_view advice;
  std::string_view last_line = kAnyLine;
  Source source = Source::kMemory;
};

constexpr std::string_view kLinesMissing =
    "The job counts as delivered. There was no memory for all lines of its log, which ends early.";
constexpr std::string_view kLinesAndResultMissing =
    "The job counts as delivered. There was no memory for all lines of its log, which ends early, "
    "nor for its Result.";
constexpr std::string_view kOnlyAddinsWithoutMemory =
    "The job counts as delivered. There was no memory for all lines of its log, which ends early, "
    "nor for its Result: the one that stands there is that of the add-in's route.";
constexpr std::string_view kMemoryRanOut =
    "Memory ran out, and the log ends where it did. Nothing was sent. The document stays, unless "
    "the "
    "log tells that it was deleted; a message that holds it is then left in the Outbox.";
constexpr std::string_view kNoMemoryForAddin =
    "Memory ran out on the add-in's route, and there was none for the other one. Nothing was "
    "delivered, and the document stays where it is.";
constexpr std::string_view kExitCode = "The exit code is the answer: do not send the job again.";
constexpr std::string_view kClose = "Close programs first.";
constexpr std::string_view kCloseAndWrite = "Close programs first, and write the job file anew.";

constexpr std::string_view kTransmission = "1, 1003, \"OutlookClient: Transmission failure.\"";

constexpr OtherEnding kOtherEndings[] = {
    {Route::kNone, 0, kNoResult, kLinesAndResultMissing, Remedy::kNothing, kExitCode},
    {Route::kNone, 1, kNoResult,
     "The job ended before it took a route: memory ran out, or something happened that nobody has "
     "foreseen. Job file and document are as they were.",
     Remedy::kRetry, "Close programs first. If it happens again, tell us.",
     "INFO: StartZentpost(): TEXT", Source::kException},
    {Route::kNone, 1, kNoResult,
     "Memory ran out before the job took a route. Job file and document are as they were.",
     Remedy::kRetry, kClose},
    {Route::kAddin, 0, kBroken,
     "The payload was sent. Meanwhile somebody has written something into the job file that is no "
     "JSON.",
     Remedy::kNothing,
     "The exit code is the answer. Leave the job file alone until the tool has ended.", kNoJobFile,
     Source::kSpoiledJobFile},
    {Route::kAddin, 0, kDelivered, kLinesMissing, Remedy::kNothing, kExitCode},
    {Route::kAddin, 1, kTransmission, kNoMemoryForAddin, Remedy::kRetry, kClose},
    {Route::kAddin, 1, kNoResult, kNoMemoryForAddin, Remedy::kRetry, kClose},
    {Route::kAddin, 1, kBroken, kNoMemoryForAddin, Remedy::kRetry, kCloseAndWrite},
    {Route::kExtendedMapi, 0, kDelivered, kLinesMissing, Remedy::kNothing, kExitCode},
    {Route::kExtendedMapi, 0, kNoResult, kLinesAndResultMissing, Remedy::kNothing, kExitCode},
    {Route::kExtendedMapi, 1, kOutOfMemory, kMemoryRanOut, Remedy::kRetry, kClose},
    {Route::kExtendedMapi, 1, kNoResult, kMemoryRanOut, Remedy::kRetry, kClose},
    {Route::kAddinThenExtendedMapi, 0, kDelivered, kLinesMissing, Remedy::kNothing, kExitCode},
    {Route::kAddinThenExtendedMapi, 0, kNoResult, kLinesAndResultMissing, Remedy::kNothing,
     kExitCode},
    {Route::kAddinThenExtendedMapi, 0, kTransmission, kOnlyAddinsWithoutMemory, Remedy::kNothing,
     kExitCode},
    {Route::kAddinThenExtendedMapi, 1, kTransmission, kMemoryRanOut, Remedy::kRetry, kClose},
    {Route::kAddinThenExtendedMapi, 1, kNoResult, kMemoryRanOut, Remedy::kRetry, kClose},
};

// What the add-in's route has written when the other one could not.
struct AddinsResult {
  std::string_view result;
  std::string_view cause;
};
constexpr AddinsResult kAddinsResults[] = {
    {kTransmission, "the add-in broke the connection off, or did not read"},
    {"1, 1004, \"OutlookClient: Connection cannot be established.\"",
     "the add-in has stopped listening since the job began"},
};

class Table {
 public:
  Table() {
    for (const Route route : kRoutes) {
      for (const int exit_code : {0, 1}) {
        for (const Ending& ending : kEndings) {
          if (ending.exit_code == exit_code) {
            Add(route, ending);
          }
        }
        for (const OtherEnding& ending : kOtherEndings) {
          if (ending.route == route && ending.exit_code == exit_code) {
            outcomes.push_back({route, exit_code, ending.result, ending.last_line,
                                std::string(ending.cause), kUntold, ending.remedy,
                                std::string(ending.advice), ending.source});
          }
        }
      }
    }
  }

  std::vector<Outcome> outcomes;

 private:
  static Tellings TellingsOf(Route route, const Ending& ending) {
    switch (route) {
      case Route::kNone:
        return kNever;
      case Route::kAddin:
        return ending.by_addin;
      case Route::kExtendedMapi:
        return ending.by_mapi;
      case Route::kAddinThenExtendedMapi:
        return ending.behind_addin;
    }
    return kNever;
  }

  void Add(Route route, const Ending& ending) {
    const Tellings tellings = TellingsOf(route, ending);
    const bool is_delivered = ending.exit_code == 0;
    if ((tellings & kTold) != 0) {
      Add(route, ending, ending.result, "", "");
    }
    if ((tellings & kNotTold) != 0) {
      Add(route, ending, kNoResult, " There was no job file, or it could not be written.",
          is_delivered ? " The exit code is the answer." : "");
    }
    if ((tellings & kHalfWritten) != 0) {
      Add(route, ending, kBroken, " The job file was cut off when the Result was written.",
          is_delivered ? " The exit code is the answer. Write the job file anew before it is used "
                         "again."
                       : " Write the job file anew.");
    }
    if ((tellings & kOnlyAddin) != 0) {
      for (const AddinsResult& addins : kAddinsResults) {
        Add(route, ending, addins.result,
            " The Result is that of the add-in's route (" + std::string(addins.cause) +
                ") and could not be replaced.",
            is_delivered ? " The exit code is the answer: do not send the job again." : "");
      }
    }
  }

  void Add(Route route, const Ending& ending, std::string_view result, const std::string& more,
           std::string_view more_advice) {
    outcomes.push_back({route, ending.exit_code, result, ending.last_line,
                        std::string(ending.cause) + more, ending.document, ending.remedy,
                        std::string(ending.advice) + std::string(more_advice), Source::kModel});
  }
};

}  // namespace

std::string_view NameOf(Remedy remedy) {
  switch (remedy) {
    case Remedy::kNothing:
      return "Nothing";
    case Remedy::kLook:
      return "Look";
    case Remedy::kRetry:
      return "Send again";
    case Remedy::kJob:
      return "Correct the job";
    case Remedy::kAdministrator:
      return "Tell the administrator";
  }
  return "";
}

const std::vector<Outcome>& Outcomes() {
  static const Table table;
  return table.outcomes;
}

}  // namespace zentpost::test
