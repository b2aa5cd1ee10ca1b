#include "tools/sandbox_mapi/names.h"

#include <map>

#include "tools/support/text.h"

namespace zentpost::fake_mapi::sandbox {
namespace {

// Begins those of this tool; the number was drawn for it.
constexpr std::string_view kEntryStart(
    "\x00\x00\x00\x00\x5A\x9E\x3C\x11\x77\x02\x4D\x48\x8B\xD6\x60\x2F\xE1\x94\x0A\xC3", 20);

struct NamedTag {
  std::uint32_t id;
  std::string_view name;
  bool is_text;
};
constexpr NamedTag kTags[] = {
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
};

}  // namespace

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
  static const std::map<std::uint32_t, const char*> names = {
      {kLong, "PT_LONG"},       {kError, "PT_ERROR"},     {kBoolean, "PT_BOOLEAN"},
      {kString8, "PT_STRING8"}, {kUnicode, "PT_UNICODE"}, {kBinary, "PT_BINARY"}};
  const auto found = names.find(TypeOf(tag));
  return found == names.end() ? support::Hex(TypeOf(tag), 4) : found->second;
}

}  // namespace zentpost::fake_mapi::sandbox
