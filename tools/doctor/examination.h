// All that the doctor finds out, and what follows from it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/doctor/report.h"

namespace zentpost::doctor {

struct Wanted {
  std::optional<std::u16string> line;  // the tool's command line; nothing: the machine alone
  bool connects = false;               // whether one connection to the add-in's port is made
  bool keeps_whole_log = false;        // beyond what is reported of a long line
};

struct Examination {
  Report report;
  // The files that the tool would read, write, remove or load: the report must not stand in any.
  std::vector<std::u16string> files;
};

// Examines the machine, and rehearses the line. Throws std::bad_alloc when memory runs out.
[[nodiscard]] Examination Examine(const Wanted& wanted);

}  // namespace zentpost::doctor
