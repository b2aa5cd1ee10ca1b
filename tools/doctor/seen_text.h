// Findings, and the pieces of which their texts are put together. All of it throws std::bad_alloc
// when memory runs out.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "tools/doctor/report.h"

namespace zentpost::doctor {

void AddFinding(std::vector<Finding>& findings, std::string_view code, Severity severity,
                std::initializer_list<std::u16string_view> seen = {});

[[nodiscard]] std::u16string Widened(std::string_view ascii);
[[nodiscard]] std::u16string Number(std::uint64_t number);
[[nodiscard]] std::u16string Quoted(std::u16string_view text);
// Of ASCII letters alone.
[[nodiscard]] std::u16string InLowerCase(std::u16string_view text);

}  // namespace zentpost::doctor
