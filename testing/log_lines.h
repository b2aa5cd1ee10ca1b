// What the code under test has logged, taken from the debugger output of the fake platform, in
// a form that whole logs are compared in.
#pragma once

#include <string>
#include <string_view>

#include "testing/fake_platform/fake_platform.h"

namespace zentpost::test {

// The time that the machine's clock shows unless a test sets it, as log lines begin with it.
inline constexpr std::string_view kLogTime = "2026/11/20 23:58:07";

// What stands in its place when the time has no local form.
inline constexpr std::string_view kNoLogTime = "0000/00/00 -01:-01:-01";

// A line of the log without its time, and the level as a word: "INFO: StartZentpost(): a.json".
// "MALFORMED: " and the line when it is no whole one.
std::string LevelAndMessage(std::string_view line);

// The log so far in UTF-8, one line for each, as level and message:
//   "INFO: StartZentpost(): a.json\nERROR: ReadFromFile(): Read document failed\n"
// What is no whole log line (line and "\n" in turn; time, level tag, message) stands there as
// "MALFORMED: ", so that no comparison takes it for one.
std::string LogText(const platform::fake::FakePlatform& fake = platform::fake::TheFakePlatform());

}  // namespace zentpost::test
