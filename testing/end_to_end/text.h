// Text for the end-to-end tests: everything they expect and compare is UTF-8, converted here and
// not by the code under test.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace zentpost::e2e {

[[nodiscard]] std::u16string Utf16(std::string_view utf8);

// An unpaired surrogate becomes U+FFFD.
[[nodiscard]] std::string Utf8(std::u16string_view text);

// `text` with each `from` in it replaced by `to`.
[[nodiscard]] std::string Replaced(std::string text, std::string_view from, std::string_view to);

// Whether two texts or byte strings are equal. On failure shows both where they begin to differ;
// they may have many megabytes.
[[nodiscard]] testing::AssertionResult Same(std::string_view expected, std::string_view actual);

}  // namespace zentpost::e2e
