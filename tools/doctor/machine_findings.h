// What is wrong with the machine for any job: with its mail clients, its user and this process.
#pragma once

#include <vector>

#include "tools/doctor/report.h"

namespace zentpost::doctor {

// D11, D16 to D20 and D22 to D24. Throws std::bad_alloc when memory runs out, as does the next one.
void AddMachineFindings(std::vector<Finding>& findings);

// Whether a default profile of the mail client is registered for the user.
[[nodiscard]] bool HasDefaultProfile();

}  // namespace zentpost::doctor
