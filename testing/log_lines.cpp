#include "testing/log_lines.h"

#include <cstddef>
#include <utility>
#include <vector>

#include "testing/text_printers.h"

namespace zentpost::test {
namespace {

// The tags as the log file's readers know them, and the level as it is shown.
constexpr std::pair<std::string_view, std::string_view> kTags[] = {
    {" - INFO   : ", "INFO: "},
    {" - WARNING: ", "WARNING: "},
    {" - ERROR  : ", "ERROR: "},
    {" - DEBUG  : ", "DEBUG: "},
};

// The length of the time at the start of `line`: like "2026/11/20 23:58:07", whatever the digits
// are, or the text for no time. 0 when there is neither.
std::size_t TimeLength(std::string_view line) {
  if (line.starts_with(kNoLogTime)) {
    return kNoLogTime.size();
  }
  if (line.size() < kLogTime.size()) {
    return 0;
  }
  for (std::size_t i = 0; i < kLogTime.size(); ++i) {
    const bool is_digit = line[i] >= '0' && line[i] <= '9';
    const bool wants_digit = kLogTime[i] >= '0' && kLogTime[i] <= '9';
    if (is_digit != wants_digit || (!is_digit && line[i] != kLogTime[i])) {
      return 0;
    }
  }
  return kLogTime.size();
}

}  // namespace

std::string LevelAndMessage(std::string_view line) {
  const std::size_t time_length = TimeLength(line);
  const std::string_view rest = line.substr(time_length);
  for (const auto& [tag, level] : kTags) {
    if (time_length != 0 && rest.starts_with(tag)) {
      return std::string(level).append(rest.substr(tag.size()));
    }
  }
  return "MALFORMED: " + std::string(line);
}

std::string LogText(const platform::fake::FakePlatform& fake) {
  const std::vector<std::u16string>& output = fake.DebugOutput();
  std::string text;
  for (std::size_t i = 0; i < output.size(); i += 2) {
    text += LevelAndMessage(Readable(output[i]));
    text += i + 1 < output.size() && output[i + 1] == u"\n" ? "\n" : "MALFORMED: no line end\n";
  }
  return text;
}

}  // namespace zentpost::test
