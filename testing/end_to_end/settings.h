// What the command line of a test program says, as --NAME=PATH: where the programs under test are,
// and where files are put.
#pragma once

#include <filesystem>
#include <string_view>

namespace zentpost::e2e {

// False, and a message: an argument is of another kind.
[[nodiscard]] bool ReadSettings(int argc, char** argv);

// An absolute path, the same for the whole run; empty when the command line does not give it.
//   tool, log-writer, sandbox, mapi-search   programs
//   starter, python, script, played-tool     the same, for the tests of the sample starters
//   cases                                    the random jobs of the starter in Python
//   libraries                                the folder of the MAPI libraries that stand in
//   work-folder                              each test has a folder of its own in here
//   samples                                  what the tool wrote, kept for the checks that follow
[[nodiscard]] std::filesystem::path Setting(std::string_view name);

}  // namespace zentpost::e2e
