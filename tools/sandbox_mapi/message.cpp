#include "tools/sandbox_mapi/message.h"

#include <algorithm>
#include <array>
#include <utility>

#include "tools/sandbox_mapi/text.h"

namespace zentpost::sandbox_mapi {
namespace {

// Published: begins each entry identifier of an address that stands in no address book.
constexpr std::string_view kOneOffStart(
    "\x00\x00\x00\x00\x81\x2B\x1F\xA4\xBE\xA3\x10\x19\x9D\x6E\x00\xDD\x01\x0F\x54\x02", 20);
constexpr unsigned kOneOffIsUnicode = 0x8000;
constexpr unsigned kOneOffWithoutRichText = 0x0001;

// Begins those of this tool; the number was drawn for it.
constexpr std::string_view kEntryStart(
    "\x00\x00\x00\x00\x5A\x9E\x3C\x11\x77\x02\x4D\x48\x8B\xD6\x60\x2F\xE1\x94\x0A\xC3", 20);

struct NamedTag {
  std::uint32_t id;
  std::string_view name;
  bool is_text;
};
constexpr std::array<NamedTag, 27> kTags = {{
    {kIdMessageClass, "PR_MESSAGE_CLASS", true},
    {kIdSubject, "PR_SUBJECT", true},
    {kIdSentRepresentingName, "PR_SENT_REPRESENTING_NAME", true},
    {kIdRecipientType, "PR_RECIPIENT_TYPE", false},
    {kIdMessageFlags, "PR_MESSAGE_FLAGS", false},
    {kIdSentMailEntryId, "PR_SENTMAIL_ENTRYID", false},
    {kIdMessageStatus, "PR_MSG_STATUS", false},
    {kIdAccess, "PR_ACCESS", false},
    {kIdEntryId, "PR_ENTRYID", false},
    {kIdBody, "PR_BODY", true},
    {kIdDisplayName, "PR_DISPLAY_NAME", true},
    {kIdAddressType, "PR_ADDRTYPE", true},
    {kIdEmailAddress, "PR_EMAIL_ADDRESS", true},
    {kIdDefaultStore, "PR_DEFAULT_STORE", false},
    {kIdOutboxEntryId, "PR_IPM_OUTBOX_ENTRYID", false},
    {kIdSentItemsEntryId, "PR_IPM_SENTMAIL_ENTRYID", false},
    {kIdAttachData, "PR_ATTACH_DATA_BIN", false},
    {kIdAttachExtension, "PR_ATTACH_EXTENSION", true},
    {kIdAttachFilename, "PR_ATTACH_FILENAME", true},
    {0x3705, "PR_ATTACH_METHOD", false},
    {kIdAttachLongFilename, "PR_ATTACH_LONG_FILENAME", true},
    {0x370B, "PR_RENDERING_POSITION", false},
    {0x370E, "PR_ATTACH_MIME_TAG", true},
    {0x3714, "PR_ATTACH_FLAGS", false},
    {kIdDefaultProfile, "PR_DEFAULT_PROFILE", false},
    {0x7FFA, "PR_ATTACHMENT_LINKID", false},
    {0x0E1D, "PR_NORMALIZED_SUBJECT", true},
}};

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

void Properties::Set(Property property) {
  for (Property& present : all_) {
    if (IdOf(present.tag) == IdOf(property.tag)) {
      present = std::move(property);
      return;
    }
  }
  all_.push_back(std::move(property));
}

const Property* Properties::Find(std::uint32_t id) const {
  for (const Property& property : all_) {
    if (IdOf(property.tag) == id) {
      return &property;
    }
  }
  return nullptr;
}

std::u16string Properties::Text(std::uint32_t id) const {
  const Property* const property = Find(id);
  return property != nullptr ? property->text : std::u16string();
}

std::int64_t Properties::Number(std::uint32_t id, std::int64_t otherwise) const {
  const Property* const property = Find(id);
  return property != nullptr ? property->number : otherwise;
}

std::string OneOffEntryId(const OneOff& one_off) {
  std::string bytes(kOneOffStart);
  bytes.append(2, '\0');  // version
  const unsigned flags = kOneOffIsUnicode | kOneOffWithoutRichText;
  bytes += static_cast<char>(flags & 0xFF);
  bytes += static_cast<char>(flags >> 8);
  AppendWide(bytes, one_off.name);
  AppendWide(bytes, one_off.address_type);
  AppendWide(bytes, one_off.address);
  return bytes;
}

std::optional<OneOff> ReadOneOff(std::string_view entry_id) {
  if (!entry_id.starts_with(kOneOffStart) || entry_id.size() < kOneOffStart.size() + 4) {
    return std::nullopt;
  }
  entry_id.remove_prefix(kOneOffStart.size() + 4);
  OneOff one_off;
  if (!TakeWide(entry_id, one_off.name) || !TakeWide(entry_id, one_off.address_type) ||
      !TakeWide(entry_id, one_off.address)) {
    return std::nullopt;
  }
  return one_off;
}

std::string EntryId(const Entry& entry) {
  return std::string(kEntryStart) + entry.kind + entry.name;
}

std::optional<Entry> ReadEntryId(std::string_view entry_id) {
  if (!entry_id.starts_with(kEntryStart) || entry_id.size() <= kEntryStart.size()) {
    return std::nullopt;
  }
  entry_id.remove_prefix(kEntryStart.size());
  return Entry{entry_id[0], std::string(entry_id.substr(1))};
}

std::string TagName(std::uint32_t tag) {
  for (const NamedTag& named : kTags) {
    if (named.id == IdOf(tag)) {
      // Texts have a name for each width.
      const char* const width = TypeOf(tag) == kUnicode ? "_W" : "_A";
      return std::string(named.name) + (named.is_text ? width : "");
    }
  }
  return {};
}

std::string TypeName(std::uint32_t tag) {
  switch (TypeOf(tag)) {
    case kLong:
      return "PT_LONG";
    case kError:
      return "PT_ERROR";
    case kBoolean:
      return "PT_BOOLEAN";
    case kString8:
      return "PT_STRING8";
    case kUnicode:
      return "PT_UNICODE";
    case kBinary:
      return "PT_BINARY";
    default:
      return Hex(TypeOf(tag), 4);
  }
}

}  // namespace zentpost::sandbox_mapi
