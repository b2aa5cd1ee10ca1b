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

#include <filesystem>
#include <string>
#include <string_view>

#include "fake_mapi/client.h"

namespace zentpost::fake_mapi::sandbox {

inline constexpr char kOutbox[] = "Outbox";
inline constexpr char kSentItems[] = "Sent Items";

class Mailbox : public Storage {
 public:
  Mailbox(std::filesystem::path folder, std::u16string profile_name);

  // Makes the folders that are missing.
  [[nodiscard]] std::int32_t Start() override;
  // Gives a name that no message has yet, and makes its folder in the Outbox.
  [[nodiscard]] bool Create(Message& message) override;
  // Into a file of the message's folder.
  [[nodiscard]] bool KeepDocument(const Message& message, const Attachment& attachment,
                                  std::string_view bytes, Property& value) override;
  [[nodiscard]] bool Save(const Message& message) override;
  // Takes away what the Outbox had of it. On failure the Outbox keeps it.
  [[nodiscard]] bool Send(const Message& message, bool stays_in_outbox) override;
  [[nodiscard]] bool Show(const Message& message) override;
  void Discard(const Message& message) override;

 private:
  [[nodiscard]] std::filesystem::path StoreFolder(std::string_view name) const;
  [[nodiscard]] std::filesystem::path SpoolFolder(const Message& message) const;
  [[nodiscard]] bool WriteBoth(const Message& message, const std::filesystem::path& folder,
                               std::string_view state, bool is_unsent);

  std::filesystem::path folder_;
  std::u16string profile_name_;
};

// A message as JSON: every property with its tag, name, type and value. `state` is "saved",
// "submitted" or "draft". `file_folder`: documents that are still in files there are named.
[[nodiscard]] std::string MessageJson(const Message& message, std::string_view state,
                                      const std::filesystem::path& file_folder);

}  // namespace zentpost::fake_mapi::sandbox
