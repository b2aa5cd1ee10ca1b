#include "fake_mapi/properties.h"

#include <utility>

#include "fake_mapi/codes.h"
#include "tools/support/text.h"

namespace zentpost::fake_mapi {
namespace {

// Published: begins each entry identifier of an address that stands in no address book.
constexpr std::string_view kOneOffStart(
    "\x00\x00\x00\x00\x81\x2B\x1F\xA4\xBE\xA3\x10\x19\x9D\x6E\x00\xDD\x01\x0F\x54\x02", 20);
// Version 0; Unicode, without rich text.
constexpr std::string_view kOneOffHeader("\x00\x00\x01\x80", 4);

bool IsText(std::uint32_t type) {
  return type == kUnicode || type == kString8;
}

// `property` as a caller gets it who wants it in the type `wanted`.
Property InType(const Property& property, std::uint32_t wanted) {
  const std::uint32_t type = TypeOf(property.tag);
  const std::uint32_t id = IdOf(property.tag);
  if (property.spool) {
    return Number(Tag(id, kError), kNotEnoughMemory);  // MAPI gives large values by a stream alone
  }
  if (type == wanted || type == kError) {
    return property;
  }
  if (!IsText(type) || !IsText(wanted)) {
    return Number(Tag(id, kError), kNotFound);
  }
  const std::u16string text = property.Text();
  return wanted == kUnicode ? Text(Tag(id, wanted), text)
                            : Bytes(Tag(id, wanted), support::Windows1252(text));
}

void AppendWide(std::string& bytes, std::u16string_view text) {
  for (const char16_t unit : text) {
    bytes += static_cast<char>(unit & 0xFF);
    bytes += static_cast<char>(unit >> 8);
  }
  bytes.append(2, '\0');
}

// Takes a zero-terminated text off the front of `bytes`; false when there is no terminator.
bool TakeWide(std::string_view& bytes, std::u16string& text) {
  text.clear();
  while (bytes.size() >= 2) {
    const auto unit = static_cast<char16_t>(static_cast<unsigned char>(bytes[0]) |
                                            static_cast<unsigned char>(bytes[1]) << 8);
    bytes.remove_prefix(2);
    if (unit == 0) {
      return true;
    }
    text += unit;
  }
  return false;
}

}  // namespace

std::u16string Property::Text() const {
  return TypeOf(tag) == kString8 ? support::FromWindows1252(bytes) : text;
}

Property Number(std::uint32_t tag, std::int32_t number) {
  return {.tag = tag, .number = number};
}

Property Bytes(std::uint32_t tag, std::string bytes) {
  return {.tag = tag, .bytes = std::move(bytes)};
}

Property Text(std::uint32_t tag, std::u16string text) {
  return {.tag = tag, .text = std::move(text)};
}

void Properties::Set(Property property) {
  for (Property& present : *this) {
    if (IdOf(present.tag) == IdOf(property.tag)) {
      present = std::move(property);
      return;
    }
  }
  push_back(std::move(property));
}

const Property* Properties::Find(std::uint32_t id) const {
  for (const Property& property : *this) {
    if (IdOf(property.tag) == id) {
      return &property;
    }
  }
  return nullptr;
}

std::u16string Properties::Text(std::uint32_t id) const {
  const Property* const property = Find(id);
  return property != nullptr ? property->Text() : std::u16string();
}

std::int32_t Properties::Number(std::uint32_t id, std::int32_t otherwise) const {
  const Property* const property = Find(id);
  return property != nullptr ? property->number : otherwise;
}

Properties Properties::Select(const std::vector<std::uint32_t>* tags, std::uint32_t text_type,
                              bool& has_errors) const {
  Properties selected;
  const auto add = [&](const Property& property, std::uint32_t wanted) {
    const std::uint32_t own = TypeOf(property.tag);
    selected.push_back(InType(property, wanted != 0 ? wanted : IsText(own) ? text_type : own));
  };
  if (tags == nullptr) {
    for (const Property& property : *this) {
      add(property, 0);
    }
  } else {
    for (const std::uint32_t tag : *tags) {
      const Property* const property = Find(IdOf(tag));
      add(property != nullptr ? *property : fake_mapi::Number(Tag(IdOf(tag), kError), kNotFound),
          TypeOf(tag));
    }
  }
  has_errors = false;
  for (const Property& property : selected) {
    has_errors = has_errors || TypeOf(property.tag) == kError;
  }
  return selected;
}

Properties ProfileRow(bool is_default, std::string name) {
  return {Number(Tag(kIdDefaultProfile, kBoolean), is_default ? 1 : 0),
          Bytes(Tag(kIdDisplayName, kString8), std::move(name))};
}

Properties StoreRow(bool is_default, std::string entry_id) {
  return {Number(Tag(kIdDefaultStore, kBoolean), is_default ? 1 : 0),
          Bytes(Tag(kIdEntryId, kBinary), std::move(entry_id))};
}

std::string OneOffEntryId(const OneOff& one_off) {
  std::string bytes(kOneOffStart);
  bytes += kOneOffHeader;
  AppendWide(bytes, one_off.name);
  AppendWide(bytes, one_off.address_type);
  AppendWide(bytes, one_off.address);
  return bytes;
}

std::optional<OneOff> ReadOneOff(std::string_view entry_id) {
  if (!entry_id.starts_with(kOneOffStart) ||
      entry_id.size() < kOneOffStart.size() + kOneOffHeader.size()) {
    return std::nullopt;
  }
  entry_id.remove_prefix(kOneOffStart.size() + kOneOffHeader.size());
  OneOff one_off;
  if (!TakeWide(entry_id, one_off.name) || !TakeWide(entry_id, one_off.address_type) ||
      !TakeWide(entry_id, one_off.address)) {
    return std::nullopt;
  }
  return one_off;
}

}  // namespace zentpost::fake_mapi
