// Where the mail client's add-in listens.
#pragma once

#include <cstdint>

namespace zentpost {

// The add-in's host: always this machine.
inline constexpr char16_t kAddinHost[] = u"127.0.0.1";

// The TCP port from the string value "TolvanAddinPort" of "Software\Sollvex\OutlookAddin" under the
// current user; 0 when none is configured. The number's low 16 bits count, whatever was written:
// "70000" is 4464 and "-1" is 65535. Does not throw.
[[nodiscard]] std::uint16_t ReadAddinPort();

}  // namespace zentpost
