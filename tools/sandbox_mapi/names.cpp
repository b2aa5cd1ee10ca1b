#include "tools/sandbox_mapi/names.h"

#include <map>
#include <utility>

#include "tools/support/text.h"

namespace zentpost::fake_mapi::sandbox {
namespace {

// Begins those of this tool; the number was drawn for it.
constexpr std::string_view kEntryStart(
    "\x00\x00\x00\x00\x5A\x9E\x3C\x11\x77\x02\x4D\x48\x8B\xD6\x60\x2F\xE1\x94\x0A\xC3", 20);

// Those of texts have a name for each width.
constexpr std::pair<std::uint32_t, std::string_view> kTags[] = {
    {kIdMessageClass, "PR_MESSAGE_CLASS"},
    {kIdSubject, "PR_SUBJECT"},
    {kIdSentRepresentingName, "PR_SENT_REPRESENTING_NAME"},
    {kIdRecipientType, "PR_RECIPIENT_TYPE"},
    {kIdMessageFlags, "PR_MESSAGE_FLAGS"},
    {kIdSentMailEntryId, "PR_SENTMAIL_ENTRYID"},
    {kIdMessageStatus, "PR_MSG_STATUS"},
    {kIdAccess, "PR_ACCESS"},
    {kIdEntryId, "PR_ENTRYID"},
    {kIdBody, "PR_BODY"},
    {kIdDisplayName, "PR_DISPLAY_NAME"},
    {kIdAddressType, "PR_ADDRTYPE"},
    {kIdEmailAddress, "PR_EMAIL_ADDRESS"},
    {kIdDefaultStore, "PR_DEFAULT_STORE"},
    {kIdOutboxEntryId, "PR_IPM_OUTBOX_ENTRYID"},
    {kIdSentItemsEntryId, "PR_IPM_SENTMAIL_ENTRYID"},
    {kIdAttachData, "PR_ATTACH_DATA_BIN"},
    {kIdAttachExtension, "PR_ATTACH_EXTENSION"},
    {kIdAttachFilename, "PR_ATTACH_FILENAME"},
    {0x3705, "PR_ATTACH_METHOD"},
    {kIdAttachLongFilename, "PR_ATTACH_LONG_FILENAME"},
    {0x370B, "PR_RENDERING_POSITION"},
    {0x3714, "PR_ATTACH_FLAGS"},
    {kIdDefaultProfile, "PR_DEFAULT_PROFILE"},
    {0x7FFA, "PR_ATTACHMENT_LINKID"},
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
  const std::uint32_t type = TypeOf(tag);
  for (const auto& [id, name] : kTags) {
    if (id == IdOf(tag)) {
      return std::string(name) + (type == kUnicode ? "_W" : type == kString8 ? "_A" : "");
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
