#include "testing/end_to_end/text.h"

#include <algorithm>

namespace zentpost::e2e {
namespace {

// Some of `text` around `at`, with escapes for what a terminal would not show.
std::string Excerpt(std::string_view text, std::size_t at) {
  constexpr std::size_t kAround = 200;
  const std::size_t from = at > kAround ? at - kAround : 0;
  std::string result;
  for (const char c : text.substr(from, 2 * kAround)) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '\n') {
      result += "\\n\n    ";
    } else if (byte < 0x20 || byte >= 0x7F) {
      result += "\\x" + support::HexDigits(byte, 2);
    } else {
      result.push_back(c);
    }
  }
  return result;
}

}  // namespace

std::string Replaced(std::string text, std::string_view from, std::string_view to) {
  std::string result;
  std::size_t at = 0;
  for (std::size_t found = text.find(from); found != std::string::npos;
       found = text.find(from, at)) {
    result.append(text, at, found - at);
    result += to;
    at = found + from.size();
  }
  result.append(text, at);
  return result;
}

testing::AssertionResult Same(std::string_view expected, std::string_view actual) {
  if (expected == actual) {
    return testing::AssertionSuccess();
  }
  const std::size_t at = static_cast<std::size_t>(
      std::mismatch(expected.begin(), expected.end(), actual.begin(), actual.end()).first -
      expected.begin());
  return testing::AssertionFailure()
         << "the texts differ from byte " << at << " on\n  expected (" << expected.size()
         << " bytes):\n    " << Excerpt(expected, at) << "\n  actual (" << actual.size()
         << " bytes):\n    " << Excerpt(actual, at);
}

}  // namespace zentpost::e2e
