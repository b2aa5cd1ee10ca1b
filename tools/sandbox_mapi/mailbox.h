// The mail client's folders on disk, and what is written into them:
//
//   FOLDER/Profiles/NAME        an empty file for each profile
//   FOLDER/Store/Outbox/0001/   belongs to message 0001 while it is not sent; holds its documents
//   FOLDER/Store/Outbox/0001.json
//   FOLDER/Store/Sent Items/0001.eml, 0001.json
//   FOLDER/Drafts/0001.eml, 0001.json
//   FOLDER/report.txt
//
// Several processes may use one folder at the same time.
#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include "tools/sandbox_mapi/message.h"
#include "tools/sandbox_mapi/sha256.h"

namespace zentpost::sandbox_mapi {

inline constexpr char kOutbox[] = "Outbox";
inline constexpr char kSentItems[] = "Sent Items";

// Functions that return bool give false when a file or folder cannot be written.
class Mailbox {
 public:
  explicit Mailbox(std::filesystem::path folder);

  [[nodiscard]] const std::filesystem::path& Folder() const { return folder_; }

  // Makes the folders that are missing.
  [[nodiscard]] bool Prepare(std::u16string_view profile_name);

  // A name that no message has yet, and its folder in the Outbox.
  [[nodiscard]] bool Reserve(std::string& name);

  // Keeps `bytes` in a file of the message's folder.
  [[nodiscard]] bool Keep(const Message& message, std::uint32_t attachment, std::string_view bytes,
                          Spool& spool);

  // Writes down the message as it stands in the Outbox.
  [[nodiscard]] bool Save(const Message& message);

  // Writes the message into `folder` (kOutbox or kSentItems) and takes away what the Outbox had of
  // it. On failure the Outbox keeps it.
  [[nodiscard]] bool Send(const Message& message, std::string_view folder);

  [[nodiscard]] bool WriteDraft(const Message& message);

  // Takes away a message that was never saved.
  void Discard(const Message& message);

  // Whether the message's JSON file lies in `folder`.
  [[nodiscard]] bool Has(std::string_view folder, std::string_view name) const;

 private:
  [[nodiscard]] std::filesystem::path StoreFolder(std::string_view name) const;
  [[nodiscard]] std::filesystem::path SpoolFolder(const Message& message) const;
  [[nodiscard]] bool WriteBoth(const Message& message, const std::filesystem::path& folder,
                               std::string_view state, bool is_unsent);

  std::filesystem::path folder_;
};

// Whether the identifier is that of a folder in the store.
[[nodiscard]] inline bool IsFolder(const Entry& entry) {
  return entry.kind == 'F' && (entry.name == kOutbox || entry.name == kSentItems);
}

// A message as JSON: every property with its tag, name, type and value. `state` is "saved",
// "submitted" or "draft". `file_folder`: documents that are still in files there are named.
[[nodiscard]] std::string MessageJson(const Message& message, std::string_view state,
                                      const std::filesystem::path& file_folder);

}  // namespace zentpost::sandbox_mapi
