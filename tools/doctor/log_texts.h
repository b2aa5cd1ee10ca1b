// Every text that the tool can write into its log, and what it means for the person on the
// telephone with a user.
#pragma once

#include <span>
#include <string_view>

namespace zentpost::doctor {

struct LogText {
  std::string_view text;     // as the source has it, with %s and %d for what differs
  std::string_view meaning;  // one sentence, ASCII
  std::string_view codes;    // the doctor's codes that go with it, "D03 D12"; may be empty
};

// The texts of one routine, which most of them begin with.
struct LogRoutine {
  std::string_view name;
  std::string_view task;  // what it does, one sentence
  std::span<const LogText> texts;
};

// Roughly in the order of a job. Does not throw.
[[nodiscard]] std::span<const LogRoutine> LogRoutines();

}  // namespace zentpost::doctor
