// What the fake mail client does with messages here: it keeps the last one that was sent or shown.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "fake_mapi/client.h"
#include "tools/doctor/report.h"

namespace zentpost::doctor {

// Of the document its size alone is kept.
class MessageKeeper : public fake_mapi::Storage {
 public:
  // Both must outlive it. `is_shown`: the message was shown, whether or not it was sent then.
  MessageKeeper(std::optional<Message>& message, bool& is_shown)
      : message_(message), is_shown_(is_shown) {}

  bool KeepDocument(const fake_mapi::Message& message, const fake_mapi::Attachment& attachment,
                    std::string_view bytes, fake_mapi::Property& value) override;
  bool Send(const fake_mapi::Message& message, bool stays_in_outbox) override;
  bool Show(const fake_mapi::Message& message) override;

 private:
  void Keep(const fake_mapi::Message& message, bool is_shown);

  std::optional<Message>& message_;
  bool& is_shown_;
  std::uint64_t document_size_ = 0;
};

}  // namespace zentpost::doctor
