#include "tools/doctor/seen_text.h"

#include <algorithm>

#include "diag/ascii_case.h"

namespace zentpost::doctor {

void AddFinding(std::vector<Finding>& findings, std::string_view code, Severity severity,
                std::initializer_list<std::u16string_view> seen) {
  findings.push_back({code, severity, {}});
  findings.back().seen.assign(seen.begin(), seen.end());
}

std::u16string Widened(std::string_view ascii) {
  return {ascii.begin(), ascii.end()};
}

std::u16string Number(std::uint64_t number) {
  return Widened(std::to_string(number));
}

std::u16string Quoted(std::u16string_view text) {
  return std::u16string(u"\"").append(text).append(u"\"");
}

std::u16string InLowerCase(std::u16string_view text) {
  std::u16string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(), ToLower);
  return lower;
}

}  // namespace zentpost::doctor
