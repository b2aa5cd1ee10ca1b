// What a job came to, in a form that two programs compare.
#pragma once

#include <iosfwd>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/doctor/report.h"

namespace zentpost::doctor::parity {

// By the names of the things compared, each a text on one line.
using Outcome = std::map<std::string, std::string>;

// A text as it stands in an outcome: on one line, and told from one that is not there.
[[nodiscard]] std::string OneLine(std::string_view bytes);
[[nodiscard]] std::string OneLine(const std::optional<Message>& message);
// Paths, each up to the zeros with which it may be padded.
[[nodiscard]] std::string OneLine(const std::vector<std::u16string>& paths);
inline constexpr char kNothing[] = "nothing";
// The route of a job that is left to Extended MAPI, whether or not that works.
inline constexpr char kExtendedMapi[] = "extended MAPI";

void Write(std::ostream& out, std::uint32_t seed, const Outcome& outcome);
// The next one, which must be that of `seed`; nothing when it is not.
[[nodiscard]] std::optional<Outcome> Read(std::istream& in, std::uint32_t seed);

}  // namespace zentpost::doctor::parity
