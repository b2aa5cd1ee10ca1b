#include "fake_mapi/record.h"

#include <algorithm>
#include <string_view>

#include "fake_mapi/properties.h"
#include "tools/support/text.h"

namespace zentpost::fake_mapi {
namespace {

using support::LowerHex;

constexpr std::size_t kLongestText = 2000;
constexpr std::uint32_t kLongestBytes = 256;
constexpr std::uint32_t kBeginning = 16;

// In quotes, on one line.
std::string Quoted(std::u16string_view text) {
  std::string quoted = "\"";
  for (const char byte : support::Utf8(text.substr(0, kLongestText))) {
    if (static_cast<unsigned char>(byte) < 0x20) {
      quoted += "\\u" + LowerHex(static_cast<unsigned char>(byte), 4).substr(2);
    } else {
      quoted += byte;
    }
  }
  return quoted + "\"" + (text.size() > kLongestText ? "..." : "");
}

std::string ValueOf(const SPropValue& value) {
  const std::string tag = LowerHex(value.ulPropTag, 8) + " ";
  switch (TypeOf(value.ulPropTag)) {
    case kLong:
      return tag + std::to_string(value.Value.l);
    case kBoolean:
      return tag + std::to_string(value.Value.b);
    case kError:
      return tag + LowerHex(static_cast<std::uint32_t>(value.Value.err));
    case kString8:
      return tag + TextOf(value.Value.lpszA);
    case kUnicode:
      return tag + TextOf(value.Value.lpszW);
    case kBinary:
      return tag + BytesOf(value.Value.bin.cb, value.Value.bin.lpb);
    default:
      return tag + "of another type";
  }
}

// "[first, second]" of what stands at `whole`; `of` gives the one of a number.
template <class Of>
std::string Listed(const void* whole, ULONG count, const Of& of) {
  if (whole == nullptr) {
    return "null";
  }
  std::string text = "[";
  for (ULONG i = 0; i < count; ++i) {
    text += (i == 0 ? "" : ", ") + of(i);
  }
  return text + "]";
}

}  // namespace

std::u16string FromText(const WideChar* text, bool is_wide) {
  return is_wide || text == nullptr
             ? support::FromWide(text)
             : support::FromWindows1252(static_cast<const char*>(static_cast<const void*>(text)));
}

std::string TextOf(const WideChar* text, bool is_wide) {
  return text == nullptr ? "null" : Quoted(FromText(text, is_wide));
}

std::string TextOf(const char* text) {
  return text == nullptr ? "null" : Quoted(support::FromWindows1252(text));
}

std::string BytesOf(ULONG size, const void* bytes) {
  const std::string text = std::to_string(size) + " bytes";
  if (bytes == nullptr) {
    return text + " at null";
  }
  const std::size_t told = size > kLongestBytes ? kBeginning : size;
  std::string digits;
  for (const char byte : std::string_view(static_cast<const char*>(bytes), told)) {
    digits += LowerHex(static_cast<unsigned char>(byte), 2).substr(2);
  }
  return text + (size > 0 ? " " : "") + digits + (told < size ? "..." : "");
}

std::string ValuesOf(ULONG count, const SPropValue* values) {
  return Listed(values, count, [&](ULONG i) { return ValueOf(values[i]); });
}

std::string TagsOf(const SPropTagArray* tags) {
  // More of them than the published type says stand behind the first.
  const auto* const first = tags == nullptr ? nullptr : static_cast<const ULONG*>(tags->aulPropTag);
  return Listed(tags, tags == nullptr ? 0 : tags->cValues,
                [&](ULONG i) { return LowerHex(first[i], 8); });
}

std::string ListOf(const ADRLIST* list) {
  return Listed(list, list == nullptr ? 0 : list->cEntries, [&](ULONG i) {
    const ADRENTRY& entry = static_cast<const ADRENTRY*>(list->aEntries)[i];
    return std::to_string(entry.cValues) + " " + ValuesOf(entry.cValues, entry.rgPropVals);
  });
}

std::string InterfaceOf(const GUID* id) {
  return id == nullptr           ? "null"
         : IsClientShutdown(*id) ? "IMAPIClientShutdown"
                                 : "another interface";
}

std::string NullOr(const void* pointer) {
  return pointer == nullptr ? "null" : "not null";
}

bool IsClientShutdown(const GUID& id) {
  return id == InterfaceId(0x00020397);
}

// Published: the interfaces' identifiers are these with their own first part.
GUID InterfaceId(std::uint32_t first) {
  return GUID{first, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
}

}  // namespace zentpost::fake_mapi
