// What is wrong with a job, before it is one: with its command line, its job file and its document.
#pragma once

#include <string>
#include <vector>

#include "tools/doctor/job_rehearsal.h"
#include "tools/doctor/report.h"

namespace zentpost::doctor {

// Adds D25 to D33 for the rehearsed `line` (the tool's command line without the program's path).
// `route` is where the job would go, and `is_taken_by_addin` whether the add-in's side of the tool
// takes it, the one for field O included. Begins the rehearsal afresh, so that the job's files are
// read as they are. Of a D30 the first text seen is the field's name: the payload's member, or what
// else was changed. Throws std::bad_alloc when memory runs out for more than the job file itself.
void AddJobFindings(const std::u16string& line, const JobRehearsal& job, Route route,
                    bool is_taken_by_addin, std::vector<Finding>& findings);

// Adds D34 where the verdict is that the job was delivered, and what was found, D05 included, says
// that nobody gets it, or not the document. Throws std::bad_alloc when memory runs out.
void AddFalselyDelivered(const JobRehearsal& job, const Verdict& verdict,
                         std::vector<Finding>& findings);

}  // namespace zentpost::doctor
