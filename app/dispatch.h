// The choice of the route by which a job is delivered.
#pragma once

#include "app/job_parameters.h"

namespace zentpost {

// Delivers the job through the mail client's add-in when one accepts connections, and through
// Extended MAPI when there is none or that route fails. True when the job was delivered. The route
// that runs last decides, and its outcome is what the job file keeps. Logs nothing itself. When
// memory runs out over one route, that route has failed. Does not throw.
[[nodiscard]] bool DispatchJob(const JobParameters& params);

}  // namespace zentpost
