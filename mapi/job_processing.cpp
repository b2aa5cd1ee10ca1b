#include "mapi/job_processing.h"

#include <string>

#include "addin/payload.h"
#include "app/registry_names.h"
#include "diag/client_settings.h"
#include "diag/log_file.h"
#include "jobfile/commands.h"
#include "mapi/results.h"
#include "mapi/send_mail.h"

namespace zentpost {

bool ProcessToExtendedMapi(const JobParameters& params) {
  LogInfo(u"ProcessToExtendedMapi(): Processing single job to extended MAPI.");
  const ParameterList& fields = params.faxFields;
  const std::u16string& attachment_path = params.arguments.Value(argument::kDocument);
  const std::u16string& attachment_name = params.arguments.Value(argument::kDocumentName);
  const std::u16string& recipient = fields.Value(u"+FAX");
  const std::u16string& recipient_name = fields.Value(u"E");
  const std::u16string& sender_name = fields.Value(u"U");
  const std::u16string& comment = fields.Value(u"K");
  const std::u16string& subject = fields.Value(u"S");
  const std::u16string& send_time = fields.Value(u"Z");
  const bool preview = IsPresentAndNotMinus(fields, u"P");

  LogInfo(u"ProcessToExtendedMapi(): Parameters :");
  LogInfo(u"ProcessToExtendedMapi(): Receiver   : %s", recipient);
  LogInfo(u"ProcessToExtendedMapi(): Recipient  : %s", recipient_name);
  LogInfo(u"ProcessToExtendedMapi(): Sendername : %s", sender_name);
  LogInfo(u"ProcessToExtendedMapi(): Comment    : %s", comment);
  LogInfo(u"ProcessToExtendedMapi(): Subject    : %s", subject);
  LogInfo(u"ProcessToExtendedMapi(): SendTime   : %s", send_time);
  LogInfo(u"ProcessToExtendedMapi(): Attachment : %s", attachment_path);
  LogInfo(u"ProcessToExtendedMapi(): Attach Name: %s", attachment_name);
  // Deliberately the opposite of the switch.
  LogInfo(u"ProcessToExtendedMapi(): ECM        : %s",
          IsPresentAndNotMinus(fields, u"C") ? u"False" : u"True");
  LogInfo(u"ProcessToExtendedMapi(): Preview    : %s", preview ? u"True" : u"False");

  HRESULT result = S_OK;
  if (fields.Contains(u"O")) {
    // A file that cannot be written counts as delivered; one without its payload must not.
    if (WriteAddinJsonFile(params, fields.Value(u"O")) == PayloadFile::kNoMemory) {
      result = MAPI_E_NOT_ENOUGH_MEMORY;
    }
  } else if (ReadClientNumber(registry::kSkipExtendedMapi) == 0) {
    // Without a recipient only the user can complete the message.
    const bool show_modal = preview || recipient.empty();
    result = SendMail(subject, comment, show_modal ? 1 : 0, show_modal ? 0 : 1, 0, 0, recipient,
                      recipient_name, attachment_path, attachment_name, sender_name);
  }
  if (Failed(result)) {
    CCommands::UpdateJobFile(params, 1, result, u"MAPI Error");
    return false;
  }
  CCommands::UpdateJobFile(params, 0, 0, u"");
  return true;
}

}  // namespace zentpost
