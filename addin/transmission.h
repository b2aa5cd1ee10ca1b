// The add-in route: one job, one connection, one payload.
#pragma once

#include "app/job_parameters.h"

namespace zentpost {

// Builds the payload, sends it to the add-in on this machine and writes the outcome into the job
// file; every step is logged. A fax field "O" diverts the payload into the file that it names, and
// nothing is sent. True when the payload was handed to the system's socket or diverted, whether or
// not an add-in took it; false after a failure, which is logged. Nothing is tried twice.
//
// What goes over the wire is the payload's UTF-8 read in the ANSI code page and encoded as UTF-8
// once more. The add-in undoes exactly this.
[[nodiscard]] bool ProcessToOutlookClient(const JobParameters& params);

}  // namespace zentpost
