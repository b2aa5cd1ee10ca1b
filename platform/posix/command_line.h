// The raw command line that the host does not have.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace platform {

// Joins `arguments` (those behind the program's path, UTF-8) with one blank in between, so that the
// tool takes the text apart into the same tokens again. An argument that is empty or has white
// space or a quotation mark (" or ') in it stands in double quotes. The tool knows no escapes: a
// quotation ends at a mark with a blank or the text's end behind it, and no token keeps a mark. So
// marks in front of a blank are left out here, since they would end the quotation early. Throws
// std::bad_alloc when memory runs out.
[[nodiscard]] std::u16string RebuildCommandLine(const std::vector<std::string_view>& arguments);

}  // namespace platform
