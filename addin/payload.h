// The add-in's payload as a file. The payload itself is built by CCommands::json.
#pragma once

#include <string>

#include "app/job_parameters.h"

namespace zentpost {

// Builds the payload for `params` and writes it to `path` as UTF-8, in place of what is there. A
// name without a slash or backslash goes into the folder for temporary files. True when the file
// could be opened; write errors are not looked at.
bool WriteAddinJsonFile(const JobParameters& params, const std::u16string& path);

}  // namespace zentpost
