// The Extended MAPI route: one job from its parameters to its outcome.
#pragma once

#include "app/job_parameters.h"

namespace zentpost {

// Logs the job's values, hands them to SendMail and writes the outcome into the job file. A job
// without a fax number, or with a preview, is shown to the user instead of being sent. A fax field
// "O" diverts the add-in's payload into the file that it names, and the registry value
// "SkipExtendedMapi" leaves the sending out: both count as delivered. False when SendMail failed,
// or memory ran out before the message was submitted or shown. Does not throw.
[[nodiscard]] bool ProcessToExtendedMapi(const JobParameters& params);

}  // namespace zentpost
