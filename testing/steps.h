// What a job does to the world around it, step by step.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "testing/fake_platform/fake_platform.h"
#include "testing/log_lines.h"

namespace zentpost::test {

// The main thread's calls in order, but for memory, conversions, and what logging asks the system
// for. A log line is one step: "log INFO: StartZentpost(): a.json".
inline std::vector<std::string> Steps(
    const platform::fake::FakePlatform& fake = platform::fake::TheFakePlatform()) {
  constexpr std::string_view kUninteresting[] = {
      "AllocateBlock(",
      "WideToBytes(",
      "BytesToWide(",
      "SecondsSinceEpoch(",
      "BreakIntoLocalTime(",
      "WriteDebugOutput(\n",
      "QueryValue(LogLevel,",
      "OpenKey(HKCU, Software\\Sollvex\\FaxClient,",
      "OpenKey(HKLM, Software\\Sollvex\\FaxClient,",
      "CloseKey(HKCU\\Software\\Sollvex\\FaxClient)",
  };
  constexpr std::string_view kLine = "WriteDebugOutput(";
  constexpr std::size_t kTagSize = 12;
  std::vector<std::string> steps;
  for (const std::string& call : fake.Calls()) {
    bool interesting = true;
    for (const std::string_view start : kUninteresting) {
      interesting = interesting && !call.starts_with(start);
    }
    if (!interesting) {
      continue;
    }
    if (call.starts_with(kLine)) {
      const std::size_t level = kLine.size() + kLogTime.size();
      const std::string_view tag = std::string_view(call).substr(level, kTagSize);
      const std::string_view name = tag.substr(3, tag.find_first_of(" :", 3) - 3);
      steps.push_back("log " + std::string(name) + ": " +
                      call.substr(level + kTagSize, call.size() - 1 - level - kTagSize));
    } else {
      steps.push_back(call);
    }
  }
  return steps;
}

}  // namespace zentpost::test
