// What the tool would do with a command line, found out by its own code on a back-end that has no
// effects.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "app/job_parameters.h"
#include "platform/rehearsal/rehearsal.h"
#include "tools/doctor/report.h"

namespace zentpost::doctor {

struct JobRehearsal {
  int exit_code = 1;
  JobParameters parameters;  // as the command line was understood
  platform::rehearsal::Record record;
  std::vector<LogLine> log;         // "INFO: StartZentpost(): ..."
  std::optional<std::string> wire;  // the bytes that the add-in would get
  std::optional<std::string> file;  // those that the file of the field O would get
  std::optional<Message> message;   // what the mail client would get
  bool is_shown = false;            // the message, in the mail client's own window
  std::size_t steps_before_message = 0;
  bool has_initialized = false;  // the mail client's library
  bool has_logged_on = false;
  std::optional<JobResult> result;  // what would stand in the job file
  bool is_document_removed = false;
};

// Rehearses the tool's command line without the program's path. Of each line of the log so many
// UTF-16 units are kept. Throws std::bad_alloc when memory runs out for more than the tool itself
// would have wanted.
[[nodiscard]] JobRehearsal RehearseJob(const std::u16string& line,
                                       platform::rehearsal::Answers answers, std::size_t log_units);

// Where the job would go. `is_skipped`: Extended MAPI is switched off; `is_usable`: the library
// that the tool takes has what the job needs.
[[nodiscard]] Route RouteOf(const JobRehearsal& job, bool is_skipped, bool is_usable);

// The rehearsal as it is reported. Throws std::bad_alloc when memory runs out.
[[nodiscard]] Rehearsal Reported(JobRehearsal job, Route route);

}  // namespace zentpost::doctor
