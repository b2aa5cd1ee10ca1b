#include "mapi/send_mail.h"

#include "diag/log_file.h"
#include "mapi/attachments.h"
#include "mapi/message_form.h"
#include "mapi/owners.h"
#include "mapi/profiles_and_stores.h"
#include "mapi/property_values.h"
#include "mapi/recipients.h"
#include "mapi/results.h"
#include "mapi/text_buffer.h"

namespace zentpost {
namespace {

struct Mail {
  const std::u16string& subject;
  const std::u16string& body;
  const std::u16string& recipient;
  const std::u16string& recipient_name;
  const std::u16string& attachment_path;
  const std::u16string& attachment_name;
  const std::u16string& sender_name;
  bool is_submitted;  // otherwise it is shown
};

// What is held while one message is made. CleanUp lets go of it.
struct MailObjects {
  MapiReference<IMAPISession> session;
  MapiReference<IMsgStore> store;
  MapiBuffer<SPropValue> store_values;
  std::uint32_t store_value_count = 0;
  MapiReference<IMAPIFolder> outbox;
  MapiReference<IMAPIFormMgr> form_manager;
  MapiReference<IMessage> message;
};

HRESULT LogOn(MapiReference<IMAPISession>& session) {
  char16_t profile[kProfileNameSize] = {};
  HRESULT result = GetDefaultProfile(profile);
  if (Failed(result)) {
    LogErrorWithCode(CodeOf(result), u"SendMail(): The default profile cannot be obtained.");
    profile[0] = u'\0';
  } else {
    LogInfo(u"SendMail(): Profile '%s' will be used.", profile);
  }
  constexpr std::uint32_t kSharedSession =
      MAPI_UNICODE | MAPI_EXTENDED | MAPI_ALLOW_OTHERS | MAPI_LOGON_UI;
  constexpr std::uint32_t kNewSession =
      MAPI_UNICODE | MAPI_EXTENDED | MAPI_NEW_SESSION | MAPI_LOGON_UI;
  if (profile[0] != u'\0') {
    LogInfo(u"SendMail(): MAPILogonEx with profile '%s'.", profile);
    result = ResultOf(MAPILogonEx(0, profile, nullptr, kSharedSession, session.Put()), session);
    if (!Failed(result)) {
      return result;
    }
    LogInfo(u"SendMail(): MAPILogonEx with profile '%s' and Logon UI.", profile);
  } else {
    LogInfo(u"SendMail(): MAPILogonEx without profile and Logon UI.");
  }
  result = ResultOf(MAPILogonEx(0, profile, nullptr, kNewSession, session.Put()), session);
  if (Failed(result)) {
    LogErrorWithCode(CodeOf(result), u"SendMail(): MAPILogonEx failed.");
  }
  return result;
}

HRESULT OpenStore(MailObjects& objects) {
  HRESULT result = FindDefaultMsgStore(objects.session.Get(), objects.store.Put());
  if (!Failed(result) && !objects.store) {
    result = MAPI_E_NOT_FOUND;
  }
  if (Failed(result)) {
    LogErrorWithCode(CodeOf(result), u"SendMail(): The default message store cannot be found.");
    return result;
  }
  result = ForgetOnFailure(
      objects.store.Get()->GetProps(nullptr, MAPI_UNICODE, &objects.store_value_count,
                                    objects.store_values.Put()),
      objects.store_value_count, objects.store_values);
  if (Failed(result)) {
    LogErrorWithCode(CodeOf(result), u"SendMail(): The store properties cannot be obtained.");
  }
  return result;
}

HRESULT OpenOutbox(MailObjects& objects) {
  HRESULT result = MAPI_E_NOT_FOUND;
  const SPropValue* const entry =
      FindProperty(objects.store_values.Get(), objects.store_value_count, PR_IPM_OUTBOX_ENTRYID);
  if (entry != nullptr) {
    MapiReference<IUnknown> folder;
    std::uint32_t object_type = 0;
    result = ResultOf(objects.store.Get()->OpenEntry(
                          entry->Value.bin.cb, reinterpret_cast<ENTRYID*>(entry->Value.bin.lpb),
                          nullptr, MAPI_BEST_ACCESS, &object_type, folder.Put()),
                      folder);
    if (!Failed(result)) {
      objects.outbox.Reset(static_cast<IMAPIFolder*>(folder.Detach()));
    }
  }
  if (Failed(result)) {
    LogErrorWithCode(CodeOf(result), u"SendMail(): The outbox folder cannot be opened.");
  }
  return result;
}

// The store's folder for sent items as the property by which a message asks to be moved there. Null
// when the store names none: the mail client then decides.
const SPropValue* SentItemsLink(MailObjects& objects) {
  SPropValue* const entry =
      FindProperty(objects.store_values.Get(), objects.store_value_count, PR_IPM_SENTMAIL_ENTRYID);
  if (entry != nullptr) {
    entry->ulPropTag = PR_SENTMAIL_ENTRYID;
  }
  return entry;
}

HRESULT AddRecipient(const MailObjects& objects, const Mail& mail) {
  char16_t address[kTextBufferSize] = {};
  char16_t address_type[kTextBufferSize] = {};
  HRESULT result = ProcessClientAddressAutomation(mail.recipient.c_str(), address, 0, address_type);
  if (!Failed(result)) {
    result = AddRecipientAddress(objects.session.Get(), objects.message.Get(), address,
                                 mail.recipient_name.c_str(), address_type);
  }
  if (Failed(result)) {
    LogError(u"SendMail(): The recipient '%s' cannot be added.", mail.recipient);
  }
  return result;
}

HRESULT SetMessageContents(IMessage* message, const Mail& mail, const SPropValue* sent_items) {
  LogDebug(u"SetMessageContents()");
  // Labels alone: the values stand in the job's own lines.
  LogDebug(u"  Sendername    : ");
  LogDebug(u"  Subject       : ");
  LogDebug(u"  Bodytext      : ");
  SPropValue values[5];
  SPropValue* next = values;
  *next++ = TextProperty(PR_MESSAGE_CLASS_W, u"IPM.Note");
  if (!mail.subject.empty()) {
    *next++ = TextProperty(PR_SUBJECT_W, mail.subject.c_str());
  }
  if (!mail.body.empty()) {
    *next++ = TextProperty(PR_BODY_W, mail.body.c_str());
  }
  if (!mail.sender_name.empty()) {
    *next++ = TextProperty(PR_SENT_REPRESENTING_NAME_W, mail.sender_name.c_str());
  }
  if (sent_items != nullptr) {
    *next++ = *sent_items;
  }
  HRESULT result = message->SetProps(static_cast<std::uint32_t>(next - values), values, nullptr);
  if (Failed(result)) {
    LogErrorWithCode(CodeOf(result), u"SetMessageContents(): Setting properties failed.");
    return result;
  }
  result = message->SaveChanges(KEEP_OPEN_READWRITE);
  if (Failed(result)) {
    LogErrorWithCode(CodeOf(result), u"SetMessageContents(): Saving properties failed.");
  }
  return result;
}

HRESULT Submit(IMessage* message) {
  const HRESULT result = message->SubmitMessage(0);
  if (Failed(result)) {
    LogErrorWithCode(CodeOf(result), u"SendMail(): Submit message failed.");
  } else {
    LogInfo(u"SendMail(): Message sent successfully.");
  }
  return result;
}

HRESULT ShowModally(MailObjects& objects) {
  HRESULT result = ResultOf(MAPIOpenFormMgr(objects.session.Get(), objects.form_manager.Put()),
                            objects.form_manager);
  if (Failed(result)) {
    LogErrorWithCode(CodeOf(result), u"SendMail(): Form manager cannot be opened.");
    return result;
  }
  result = OpenMessageModal(objects.session.Get(), objects.store.Get(), objects.outbox.Get(),
                            objects.message.Get());
  if (Failed(result)) {
    LogErrorWithCode(CodeOf(result), u"SendMail(): Message cannot be opened modally.");
  } else {
    LogInfo(u"SendMail(): Mail will be opened as modal window.");
  }
  return result;
}

// Everything between the start of MAPI and the clean-up.
HRESULT Deliver(const Mail& mail, MailObjects& objects) {
  HRESULT result = LogOn(objects.session);
  if (Failed(result)) {
    return result;
  }
  result = OpenStore(objects);
  if (Failed(result)) {
    return result;
  }
  result = OpenOutbox(objects);
  if (Failed(result)) {
    return result;
  }
  const SPropValue* const sent_items = SentItemsLink(objects);
  result = ResultOf(objects.outbox.Get()->CreateMessage(nullptr, 0, objects.message.Put()),
                    objects.message);
  if (Failed(result)) {
    LogErrorWithCode(CodeOf(result), u"SendMail(): A new message cannot be created.");
    return result;
  }
  if (!mail.recipient.empty()) {
    result = AddRecipient(objects, mail);
    if (Failed(result)) {
      return result;
    }
  }
  result = SetMessageContents(objects.message.Get(), mail, sent_items);
  if (Failed(result)) {
    LogError(u"SendMail(): Message content cannot be set.");
    return result;
  }
  // A document that cannot be opened gives a positive result, and the message goes out without it.
  result = AddAttachment(objects.message.Get(), mail.attachment_path.c_str(), 0,
                         mail.attachment_name.c_str());
  if (Failed(result)) {
    LogError(u"SendMail(): The attachment cannot be added.");
    return result;
  }
  return mail.is_submitted ? Submit(objects.message.Get()) : ShowModally(objects);
}

// Lets a mail client that was started for this session end at once.
void DoMAPIFastShutdown(IMAPISession* session) {
  LogInfo(u"DoMAPIFastShutdown(): Function in progress.");
  void* found = nullptr;
  if (!Failed(ResultOf(session->QueryInterface(IID_IMAPIClientShutdown, &found), found))) {
    const MapiReference<IMAPIClientShutdown> shutdown(static_cast<IMAPIClientShutdown*>(found));
    if (!Failed(shutdown.Get()->QueryFastShutdown())) {
      const HRESULT result = shutdown.Get()->DoFastShutdown();
      if (Failed(result)) {
        LogDebugWithCode(CodeOf(result), u"DoMAPIFastShutdown(): Fast shutdown failed.");
      }
    }
  }
  LogInfo(u"DoMAPIFastShutdown(): Function end.");
}

void CleanUp(MailObjects& objects) {
  LogDebug(u"SendMail(): cleanup.");
  objects.message.Reset();
  objects.form_manager.Reset();
  objects.outbox.Reset();
  objects.store_values.Reset();
  objects.store.Reset();
  if (objects.session) {
    DoMAPIFastShutdown(objects.session.Get());
    objects.session.Get()->Logoff(0, 0, 0);
    objects.session.Reset();
  }
}

}  // namespace

HRESULT SendMail(const std::u16string& subject, const std::u16string& body, std::uint32_t showModal,
                 std::uint32_t submit, std::uint32_t /*reserved1*/, std::uint32_t /*reserved2*/,
                 const std::u16string& recipient, const std::u16string& recipientName,
                 const std::u16string& attachmentPath, const std::u16string& attachmentName,
                 const std::u16string& senderName) {
  const HRESULT initialized = MAPIInitialize(nullptr);
  if (Failed(initialized)) {
    LogErrorWithCode(CodeOf(initialized), u"SendMail(): MAPIInititialize failed.");
    return E_FAIL;
  }
  const Mail mail = {subject,        body,           recipient,  recipientName,
                     attachmentPath, attachmentName, senderName, showModal == 0 && submit != 0};
  MailObjects objects;
  HRESULT result = S_OK;
  try {
    result = Deliver(mail, objects);
  } catch (...) {
    result = MAPI_E_NOT_ENOUGH_MEMORY;
  }
  CleanUp(objects);
  LogDebug(u"SendMail(): Function end.");
  return result;
}

}  // namespace zentpost
