#include "mapi/message_form.h"

#include <cstdint>

#include "diag/log_file.h"
#include "mapi/owners.h"
#include "mapi/property_values.h"
#include "mapi/results.h"

namespace zentpost {
namespace {

// What the form needs to know of the message. A property that the message does not have is 0, or an
// empty entry identifier, which the folder then refuses with a code of its own.
struct MessageFacts {
  std::uint32_t flags;
  std::uint32_t access;
  SBinary entry_id;
};

MessageFacts FactsOf(SPropValue* values, std::uint32_t count) {
  const auto number = [&](std::uint32_t tag) {
    const SPropValue* const value = FindProperty(values, count, tag);
    return value == nullptr ? 0U : static_cast<std::uint32_t>(value->Value.l);
  };
  const SPropValue* const entry_id = FindProperty(values, count, PR_ENTRYID);
  return {number(PR_MESSAGE_FLAGS), number(PR_ACCESS),
          entry_id == nullptr ? SBinary{} : entry_id->Value.bin};
}

}  // namespace

HRESULT OpenMessageModal(IMAPISession* session, IMsgStore* store, IMAPIFolder* outbox,
                         IMessage* message) {
  if (message == nullptr) {
    LogErrorWithCode(CodeOf(E_INVALIDARG), u"OpenMessageModal(): The specified message is NULL.");
    return E_INVALIDARG;
  }
  SizedSPropTagArray<5> tags = {
      5, {PR_MESSAGE_FLAGS, PR_MESSAGE_CLASS_W, PR_ACCESS, PR_ENTRYID, PR_MSG_STATUS}};
  MapiBuffer<SPropValue> values;
  std::uint32_t count = 0;
  HRESULT result = ForgetOnFailure(message->GetProps(reinterpret_cast<SPropTagArray*>(&tags),
                                                     MAPI_UNICODE, &count, values.Put()),
                                   count, values);
  if (Failed(result)) {
    LogErrorWithCode(CodeOf(result), u"OpenMessageModal(): Getting properties failed.");
    return result;
  }
  const MessageFacts facts = FactsOf(values.Get(), count);
  std::uintptr_t token = 0;
  result = ForgetOnFailure(session->PrepareForm(nullptr, message, &token), token);
  if (Failed(result)) {
    LogErrorWithCode(CodeOf(result), u"OpenMessageModal(): Dialog preparation failed.");
    return result;
  }
  LogInfo(u"OpenMessageModal(): Dialog prepared.");
  std::uint32_t status = 0;
  result = ForgetOnFailure(
      outbox->GetMessageStatus(facts.entry_id.cb, reinterpret_cast<ENTRYID*>(facts.entry_id.lpb), 0,
                               &status),
      status);
  if (Failed(result)) {
    LogErrorWithCode(CodeOf(result),
                     u"OpenMessageModal(): Dialog message status retrieval failed.");
    return result;
  }
  LogInfo(u"OpenMessageModal(): Message status retrieval succeeded.");
  char message_class[] = "IPM.Note";
  result = session->ShowForm(0, store, outbox, nullptr, token, nullptr, 0, status, facts.flags,
                             facts.access, message_class);
  if (Failed(result) && result != MAPI_E_USER_CANCEL) {
    LogErrorWithCode(CodeOf(result), u"OpenMessageModal(): The form cannot be shown.");
    return result;
  }
  return S_OK;
}

}  // namespace zentpost
