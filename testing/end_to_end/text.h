// Text for the end-to-end tests: everything they expect and compare is UTF-8, which the code under
// test has not converted.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "tools/support/text.h"

namespace zentpost::e2e {

using support::Utf16;
using support::Utf8;

// `text` with each `from` in it replaced by `to`.
[[nodiscard]] std::string Replaced(std::string text, std::string_view from, std::string_view to);

// Whether two texts or byte strings are equal. On failure shows both where they begin to differ;
// they may have many megabytes.
[[nodiscard]] testing::AssertionResult Same(std::string_view expected, std::string_view actual);

}  // namespace zentpost::e2e
