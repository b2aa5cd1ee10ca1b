#include "addin/addin_port.h"

#include <algorithm>
#include <limits>
#include <string_view>

#include "app/registry_names.h"
#include "diag/text_trim.h"
#include "platform/registry.h"

namespace zentpost {
namespace {

// The decimal number at the start of `text`, as C's _wtoi reads it: white space and a sign may
// stand in front, the first other character ends it, no digits give 0, and a number beyond 32 bits
// stops at the nearest that fits.
std::int32_t ToNumber(std::u16string_view text) {
  text = Trimmed(text);
  const bool negative = text.starts_with(u'-');
  if (negative || text.starts_with(u'+')) {
    text.remove_prefix(1);
  }
  constexpr std::int64_t kMax = std::numeric_limits<std::int32_t>::max();
  const std::int64_t limit = negative ? kMax + 1 : kMax;
  std::int64_t number = 0;
  for (const char16_t unit : text) {
    if (unit < u'0' || unit > u'9') {
      break;
    }
    number = std::min(number * 10 + (unit - u'0'), limit);
  }
  return static_cast<std::int32_t>(negative ? -number : number);
}

}  // namespace

std::uint16_t ReadAddinPort() {
  platform::RegistryKey key;
  if (platform::OpenKey(platform::Hive::kCurrentUser, registry::kAddinKey, platform::kKeyRead,
                        key) != platform::kSuccess) {
    return 0;
  }
  constexpr std::size_t kCapacity = 20;
  char16_t text[kCapacity] = {};
  std::uint32_t size = sizeof(text);
  if (platform::QueryValue(key, registry::kAddinPort, nullptr, text, size) != platform::kSuccess) {
    return 0;
  }
  // The value may have been stored without its terminator.
  text[kCapacity - 1] = u'\0';
  return static_cast<std::uint16_t>(ToNumber(text));
}

}  // namespace zentpost
