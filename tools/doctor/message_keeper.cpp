#include "tools/doctor/message_keeper.h"

#include <utility>

namespace zentpost::doctor {

bool MessageKeeper::KeepDocument(const fake_mapi::Message& /*message*/,
                                 const fake_mapi::Attachment& /*attachment*/,
                                 std::string_view bytes, fake_mapi::Property& /*value*/) {
  document_size_ = bytes.size();
  return true;
}

bool MessageKeeper::Send(const fake_mapi::Message& message, bool /*stays_in_outbox*/) {
  Keep(message, false);
  return true;
}

bool MessageKeeper::Show(const fake_mapi::Message& message) {
  Keep(message, true);
  return true;
}

void MessageKeeper::Keep(const fake_mapi::Message& message, bool is_shown) {
  Message kept;
  kept.subject = message.properties.Text(fake_mapi::kIdSubject);
  kept.body = message.properties.Text(fake_mapi::kIdBody);
  kept.sender = message.properties.Text(fake_mapi::kIdSentRepresentingName);
  for (const fake_mapi::Properties& recipient : message.recipients) {
    kept.recipient = {recipient.Text(fake_mapi::kIdEmailAddress),
                      recipient.Text(fake_mapi::kIdAddressType),
                      recipient.Text(fake_mapi::kIdDisplayName)};
  }
  for (const fake_mapi::Attachment& attachment : message.attachments) {
    if (attachment.saved) {
      kept.attachment = {attachment.properties.Text(fake_mapi::kIdAttachLongFilename),
                         document_size_};
    }
  }
  is_shown_ = is_shown_ || is_shown;  // the user may send what is shown
  message_ = std::move(kept);
}

}  // namespace zentpost::doctor
