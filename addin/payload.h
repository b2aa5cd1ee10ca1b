// The add-in's payload as a file. The payload itself is built by CCommands::json.
#pragma once

#include <string>

#include "app/job_parameters.h"

namespace zentpost {

// A text of the payload: the member's name, and the entry of the job that it holds.
struct PayloadMember {
  const char* name;
  ParameterList JobParameters::*list;
  const char16_t* entry;
};

// In their order; two switches follow them.
inline constexpr PayloadMember kPayloadTexts[] = {
    {"Receiver", &JobParameters::faxFields, u"+FAX"},
    {"RecipientName", &JobParameters::faxFields, u"E"},
    {"SenderName", &JobParameters::faxFields, u"U"},
    {"FileName", &JobParameters::arguments, argument::kDocument},
    {"AttachmentName", &JobParameters::arguments, argument::kDocumentName},
    {"Comment", &JobParameters::faxFields, u"K"},
    {"Subject", &JobParameters::faxFields, u"S"},
    {"SendTime", &JobParameters::faxFields, u"Z"},
};

// What became of writing a payload into a file.
enum class PayloadFile {
  kWritten,    // the file was opened; write errors are not looked at
  kNotOpened,  // nothing was written
  kNoMemory,   // memory ran out; the file, when it was opened, is empty
};

// Builds the payload for `params` and writes it to `path` as UTF-8, in place of what is there. A
// name without a slash or backslash goes into the folder for temporary files. The job's own files
// are not written to, whatever name they go by there: a file that is the document or the job file
// counts as one that cannot be opened. Does not throw.
PayloadFile WriteAddinJsonFile(const JobParameters& params, const std::u16string& path);

// Where WriteAddinJsonFile writes to for `path`. Throws std::bad_alloc when memory runs out, as
// does the next one.
[[nodiscard]] std::u16string PayloadFilePath(const std::u16string& path);

// Whether `path` names one of the files that the job is about. One that is there and cannot be
// identified is taken for one of them: what would be lost by writing to it is not known. Where the
// file system tells no files apart, their names do.
[[nodiscard]] bool IsFileOfTheJob(const JobParameters& params, const std::u16string& path);

}  // namespace zentpost
