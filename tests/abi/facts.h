// Two tables of facts about Extended MAPI's binary interface, to be held against each other. Both
// come from facts.inc; each from declarations that know nothing of the other's, since the published
// names are macros, and the types have the same names.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace zentpost::abi {

using Facts = std::vector<std::pair<std::string, std::string>>;  // name and fact

[[nodiscard]] Facts OurFacts();
[[nodiscard]] Facts PublishedFacts();

}  // namespace zentpost::abi
