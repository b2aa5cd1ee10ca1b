// A message as this tool keeps it: MAPI's properties, without MAPI's types, so that what writes it
// down can be tested without a MAPI header.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zentpost::sandbox_mapi {

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
  std::filesystem::path file;
  std::uint64_t size = 0;
  std::string sha256;
};

// Which member holds the value is told by the tag's type.
struct Property {
  std::uint32_t tag = 0;
  std::int64_t number = 0;     // kLong, kBoolean, kError
  std::u16string text;         // kUnicode, kString8
  std::string bytes;           // kBinary
  std::optional<Spool> spool;  // kBinary, instead of `bytes`
};

class Properties {
 public:
  // In the place of a property with the same identifier, else behind the others.
  void Set(Property property);

  // The property with the identifier, whatever its type; null when there is none.
  [[nodiscard]] const Property* Find(std::uint32_t id) const;

  // The text of a property, empty when there is none.
  [[nodiscard]] std::u16string Text(std::uint32_t id) const;
  [[nodiscard]] std::int64_t Number(std::uint32_t id, std::int64_t otherwise) const;

  [[nodiscard]] const std::vector<Property>& All() const { return all_; }

 private:
  std::vector<Property> all_;
};

struct Attachment {
  std::uint32_t number = 0;
  std::uint32_t create_flags = 0;
  bool saved = false;
  Properties properties;
};

struct Message {
  std::string name;  // Of its files, without folder and extension.
  Properties properties;
  std::vector<Properties> recipients;
  std::vector<Attachment> attachments;
  std::vector<std::string> flags;  // "IMessage::SaveChanges: 0x00000002", in the order of the calls
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

// An entry identifier of this tool: what kind of thing ('S' store, 'F' folder, 'M' message) and
// its name in UTF-8.
struct Entry {
  char kind = 0;
  std::string name;
};
[[nodiscard]] std::string EntryId(const Entry& entry);
[[nodiscard]] std::optional<Entry> ReadEntryId(std::string_view entry_id);

// "PR_SUBJECT_W"; empty for a tag that this tool does not know by name.
[[nodiscard]] std::string TagName(std::uint32_t tag);
// "PT_UNICODE", or the number in hexadecimal.
[[nodiscard]] std::string TypeName(std::uint32_t tag);

}  // namespace zentpost::sandbox_mapi
