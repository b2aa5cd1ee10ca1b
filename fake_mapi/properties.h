// Properties and messages as the mail client keeps them: free of MAPI's types, so that what writes
// them down needs none of its headers.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zentpost::fake_mapi {

// Published in mapidefs.h: the types of properties, the lower half of a tag.
inline constexpr std::uint32_t kLong = 0x0003;
inline constexpr std::uint32_t kError = 0x000A;
inline constexpr std::uint32_t kBoolean = 0x000B;
inline constexpr std::uint32_t kString8 = 0x001E;
inline constexpr std::uint32_t kUnicode = 0x001F;
inline constexpr std::uint32_t kBinary = 0x0102;

// Published in mapitags.h: the upper half of a tag.
inline constexpr std::uint32_t kIdMessageClass = 0x001A;
inline constexpr std::uint32_t kIdSubject = 0x0037;
inline constexpr std::uint32_t kIdSentRepresentingName = 0x0042;
inline constexpr std::uint32_t kIdRecipientType = 0x0C15;
inline constexpr std::uint32_t kIdMessageFlags = 0x0E07;
inline constexpr std::uint32_t kIdSentMailEntryId = 0x0E0A;
inline constexpr std::uint32_t kIdMessageStatus = 0x0E17;
inline constexpr std::uint32_t kIdAccess = 0x0FF4;
inline constexpr std::uint32_t kIdEntryId = 0x0FFF;
inline constexpr std::uint32_t kIdBody = 0x1000;
inline constexpr std::uint32_t kIdDisplayName = 0x3001;
inline constexpr std::uint32_t kIdAddressType = 0x3002;
inline constexpr std::uint32_t kIdEmailAddress = 0x3003;
inline constexpr std::uint32_t kIdDefaultStore = 0x3400;
inline constexpr std::uint32_t kIdOutboxEntryId = 0x35E2;
inline constexpr std::uint32_t kIdSentItemsEntryId = 0x35E4;
inline constexpr std::uint32_t kIdAttachData = 0x3701;
inline constexpr std::uint32_t kIdAttachExtension = 0x3703;
inline constexpr std::uint32_t kIdAttachFilename = 0x3704;
inline constexpr std::uint32_t kIdAttachLongFilename = 0x3707;
inline constexpr std::uint32_t kIdDefaultProfile = 0x3D04;

constexpr std::uint32_t TypeOf(std::uint32_t tag) {
  return tag & 0xFFFF;
}
constexpr std::uint32_t IdOf(std::uint32_t tag) {
  return tag >> 16;
}
constexpr std::uint32_t Tag(std::uint32_t id, std::uint32_t type) {
  return id << 16 | type;
}

// Bytes that were written to a file instead of being kept.
struct Spool {
  std::string file;  // its path in UTF-8
  std::uint64_t size = 0;
};

// Which member holds the value is told by the tag's type.
struct Property {
  // Of both kinds of text.
  [[nodiscard]] std::u16string Text() const;

  std::uint32_t tag = 0;
  std::int32_t number = 0;          // kLong, kBoolean, kError
  std::string bytes = {};           // kBinary; kString8 in Windows-1252
  std::u16string text = {};         // kUnicode
  bool has_null = false;            // a null pointer stands in the text's place
  std::optional<Spool> spool = {};  // kBinary, instead of `bytes`
};
[[nodiscard]] Property Number(std::uint32_t tag, std::int32_t number);
[[nodiscard]] Property Bytes(std::uint32_t tag, std::string bytes);
[[nodiscard]] Property Text(std::uint32_t tag, std::u16string text);

struct Properties : std::vector<Property> {
  using std::vector<Property>::vector;

  // In the place of a property with the same identifier, else behind the others.
  void Set(Property property);
  // The first property with the identifier, whatever its type; null when there is none.
  [[nodiscard]] const Property* Find(std::uint32_t id) const;
  // Empty, or `otherwise`, when there is none.
  [[nodiscard]] std::u16string Text(std::uint32_t id) const;
  [[nodiscard]] std::int32_t Number(std::uint32_t id, std::int32_t otherwise) const;

  // What a caller gets who asks for `tags`: each in its type, or an error in its place. Null asks
  // for all, with texts of `text_type`. `has_errors` tells whether there is an error among them.
  [[nodiscard]] Properties Select(const std::vector<std::uint32_t>* tags, std::uint32_t text_type,
                                  bool& has_errors) const;
};

// The rows of a table of profiles and of one of stores.
[[nodiscard]] Properties ProfileRow(bool is_default, std::string name);
[[nodiscard]] Properties StoreRow(bool is_default, std::string entry_id);

struct Attachment {
  std::uint32_t number = 0;
  std::uint32_t create_flags = 0;
  bool saved = false;
  Properties properties = {};
};

struct Message {
  std::string name = {};      // the storage's own
  std::string entry_id = {};  // the same
  Properties properties = {};
  std::vector<Properties> recipients = {};
  std::vector<Attachment> attachments = {};
  std::vector<std::string> flags = {};  // "IMessage::SaveChanges 0x00000002", as the calls came
  bool is_saved = false;
  bool is_sent = false;
  bool is_in_outbox = true;
};

// Published in the mail protocols' documentation: an address that stands in no address book.
struct OneOff {
  std::u16string name;
  std::u16string address_type;
  std::u16string address;
};
[[nodiscard]] std::string OneOffEntryId(const OneOff& one_off);
// Nothing when `entry_id` is not such an address.
[[nodiscard]] std::optional<OneOff> ReadOneOff(std::string_view entry_id);

}  // namespace zentpost::fake_mapi
