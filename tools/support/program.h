// The main function of a tool that is a program.
#pragma once

#include <string>
#include <vector>

namespace zentpost {

// The tool's own, from the words after its name, in UTF-8, to its exit code. Both of its outputs
// take UTF-8.
[[nodiscard]] int RunTool(const std::vector<std::string>& arguments);

// Whether its lines end with a line feed alone on Windows too, where others end as the system's do.
extern const bool kToolWritesLineFeeds;

}  // namespace zentpost
