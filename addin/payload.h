// The add-in's payload as a file. The payload itself is built by CCommands::json.
#pragma once

#include <string>

#include "app/job_parameters.h"

namespace zentpost {

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

}  // namespace zentpost
