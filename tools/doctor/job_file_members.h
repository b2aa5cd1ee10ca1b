// The members of a job file, against those that the tool looks for.
#pragma once

#include <cjson/cJSON.h>

#include <string>
#include <vector>

#include "app/job_parameters.h"
#include "jobfile/member_names.h"
#include "tools/doctor/report.h"

namespace zentpost::doctor {

// What the payload calls a text of the job ("+FAX": "Receiver"); `entry` itself where it is none of
// the payload's.
[[nodiscard]] std::u16string FieldName(const char16_t* entry);

// Adds D28 for each member of `tree` that has no effect, and D30 for the texts that the job has of
// it and that are no UTF-8. Beyond the first hundred D28 one more tells how many there are. Throws
// std::bad_alloc when memory runs out.
void AddMemberFindings(const cJSON* tree, const JobParameters& params,
                       std::vector<Finding>& findings);

}  // namespace zentpost::doctor
