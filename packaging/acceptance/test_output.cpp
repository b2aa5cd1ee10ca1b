#include "packaging/acceptance/test_output.h"

#include <algorithm>
#include <cstddef>

namespace zentpost::acceptance {
namespace {

constexpr std::size_t kLongestTest = 20000;
constexpr std::size_t kEnd = 4000;

constexpr std::string_view kRun = "[ RUN      ] ";
constexpr std::string_view kPassed = "[       OK ] ";
constexpr std::string_view kFailed = "[  FAILED  ] ";
constexpr std::string_view kSkipped = "[  SKIPPED ] ";

std::string WithoutCarriageReturns(std::string_view text) {
  std::string result(text);
  std::erase(result, '\r');
  return result;
}

std::string Cut(std::string text) {
  if (text.size() > kLongestTest) {
    text.replace(kLongestTest / 2, text.size() - kLongestTest, "\n...\n");
  }
  return text;
}

char Folded(char letter) {
  if (letter >= 'A' && letter <= 'Z') {
    return static_cast<char>(letter - 'A' + 'a');
  }
  return letter == '/' ? '\\' : letter;
}

bool BeginsWith(std::string_view text, std::string_view name) {
  return text.size() >= name.size() &&
         std::equal(name.begin(), name.end(), text.begin(),
                    [](char left, char right) { return Folded(left) == Folded(right); });
}

// Letters beyond ASCII, too.
bool IsOfWord(char letter) {
  const char folded = Folded(letter);
  return (folded >= 'a' && folded <= 'z') || (folded >= '0' && folded <= '9') ||
         static_cast<unsigned char>(folded) >= 0x80;
}

}  // namespace

TestOutput ReadTestOutput(std::string_view output) {
  const std::string text = WithoutCarriageReturns(output);
  TestOutput result;
  std::string test;  // the output of the one that runs
  bool is_running = false;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find('\n', begin), text.size() - 1) + 1;
    const std::string_view line = std::string_view(text).substr(begin, end - begin);
    begin = end;
    // What a test prints may leave its line unfinished; the verdict then stands at the end of it.
    const auto has = [&](std::string_view tag) {
      return is_running && line.find(tag) != std::string_view::npos;
    };
    if (line.starts_with(kRun)) {
      is_running = true;
      test = line.substr(kRun.size());
    } else if (has(kPassed)) {
      ++result.passed;
      is_running = false;
    } else if (has(kFailed)) {
      ++result.failed;
      result.failures.push_back(Cut(test));
      is_running = false;
    } else if (has(kSkipped)) {
      ++result.skipped;
      result.skips.push_back(Cut(test));
      is_running = false;
    } else if (is_running) {
      test += line;
    }
  }
  if (is_running) {
    // The program ended within it.
    ++result.failed;
    result.failures.push_back(Cut(test));
  }
  result.end = text.substr(text.size() - std::min(text.size(), kEnd));
  return result;
}

std::string WithoutNames(std::string_view text,
                         const std::vector<std::pair<std::string, std::string>>& names) {
  std::string result;
  char before = ' ';
  while (!text.empty()) {
    std::size_t length = 1;
    std::string_view shown = text.substr(0, 1);
    std::size_t longest = 0;
    for (const auto& [name, replacement] : names) {
      if (name.size() > longest && !IsOfWord(before) && BeginsWith(text, name) &&
          (text.size() == name.size() || !IsOfWord(text[name.size()]))) {
        length = longest = name.size();
        shown = replacement;
      }
    }
    result += shown;
    before = text[length - 1];
    text.remove_prefix(length);
  }
  return result;
}

}  // namespace zentpost::acceptance
