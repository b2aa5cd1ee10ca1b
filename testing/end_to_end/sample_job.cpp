#include "testing/end_to_end/sample_job.h"

#include <utility>
#include <vector>

#include "testing/end_to_end/text.h"

namespace zentpost::e2e {
namespace {

std::string Quoted(const std::string& text) {
  return '"' + Replaced(text, "\\", "\\\\") + '"';
}

// A member of "Cmd" with those of its own that are not empty, and a comma.
std::string Object(const std::string& name,
                   const std::vector<std::pair<std::string, std::optional<std::string>>>& members) {
  std::string inside;
  for (const auto& [member, value] : members) {
    if (value) {
      inside += (inside.empty() ? "\t\t\t\"" : ",\n\t\t\t\"") + member + "\":\t" + Quoted(*value);
    }
  }
  return inside.empty() ? "" : "\t\t\"" + name + "\":\t{\n" + inside + "\n\t\t},\n";
}

std::optional<std::string> UnlessEmpty(const std::string& text) {
  return text.empty() ? std::nullopt : std::optional(text);
}

}  // namespace

std::string Job::File() const {
  return "{\n\t\"FilePath\":\t" + Quoted(document) + ",\n\t\"SourceFileName\":\t" + Quoted(name) +
         ",\n\t\"Cmd\":\t{\n" +
         Object("Parameters", {{"RecipientName", UnlessEmpty(recipient)},
                               {"Comment", UnlessEmpty(comment)},
                               {"Subject", UnlessEmpty(subject)},
                               {"UserName", UnlessEmpty(sender)}}) +
         Object("Commands", {{"P", preview}, {"O", output}}) + "\t\t\"Receiver\":\t[" +
         (receiver.empty() ? "" : Quoted(receiver)) + "]\n\t}\n}";
}

std::string Job::AttachmentName() const {
  return name.find('.') == std::string::npos ? name + ".pdf" : name;
}

std::string Job::Payload() const {
  return test::PayloadText{.receiver = receiver,
                           .recipient_name = recipient,
                           .sender_name = sender,
                           .file_name = Replaced(document, "\\", "\\\\"),
                           .attachment_name = AttachmentName(),
                           .comment = comment,
                           .subject = subject,
                           .preview = preview.value_or("-") != "-"}
      .Bytes();
}

test::MapiJobText Job::Mapi() const {
  return {.receiver = receiver,
          .recipient = recipient,
          .sender = sender,
          .comment = comment,
          .subject = subject,
          .attachment = document,
          .attachment_name = AttachmentName(),
          .preview = preview.value_or("-") != "-"};
}

std::string JobFileWithResult(std::int32_t status, std::int32_t code, const std::string& text) {
  return test::WithResult(R"json({
	"FilePath":	"C:\\Fax\\Letter 7.pdf",
	"SourceFileName":	"Letter 7",
	"Cmd":	{
		"Parameters":	{
			"Baudrate":	"14400",
			"ECM":	"0",
			"RecipientName":	"Erika Example",
			"Comment":	"Line one\r\n\"Line two\"",
			"NGDX":	"n",
			"Preview":	"-",
			"SendTime":	"22:30"
		},
		"Commands":	{
			"E":	"Somebody Else",
			"S":	"Your order",
			"U":	"Sam Sender"
		},
		"Receiver":	["0301234567", "0307654321"]
	}
})json",
                          status, code, text);
}

std::string JobFileDelivered() {
  return JobFileWithResult(0, 0, "");
}

std::string JobFileNotDelivered() {
  return JobFileWithResult(1, -2147467259, "MAPI Error");  // 0x80004005
}

std::string SamplePayload() {
  return test::PayloadText{.receiver = "0301234567",
                           .recipient_name = "Erika Example",
                           .sender_name = "Sam Sender",
                           .file_name = R"(C:\\Fax\\Letter 7.pdf)",
                           .attachment_name = "Letter 7.pdf",
                           .comment = R"(Line one\r\n\"Line two\")",
                           .subject = "Your order",
                           .send_time = "22:30",
                           .ecm = false}
      .Bytes();
}

test::MapiJobText SampleMapi() {
  return {.receiver = "0301234567",
          .recipient = "Erika Example",
          .sender = "Sam Sender",
          .comment = "Line one\r\n\"Line two\"",
          .subject = "Your order",
          .send_time = "22:30",
          .attachment = "C:\\Fax\\Letter 7.pdf",
          .attachment_name = "Letter 7.pdf",
          .ecm = false};
}

}  // namespace zentpost::e2e
