// One job as a fax application writes it, and what has to come of it.
#pragma once

#include <string>
#include <string_view>

#include "testing/end_to_end/job_test.h"

namespace zentpost::e2e {

// Some fields stand under their long names and some under their letters; where "RecipientName" has
// both, the long name counts. Of the receivers only the first is taken, and the display name has no
// ".pdf" yet.
inline constexpr char kJobFile[] = R"json({
  "FilePath": "C:\\Fax\\Letter 7.pdf",
  "SourceFileName": "Letter 7",
  "Cmd": {
    "Parameters": {"Baudrate": "14400", "ECM": "0", "RecipientName": "Erika Example",
      "Comment": "Line one\r\n\"Line two\"", "NGDX": "n", "Preview": "-", "SendTime": "22:30"},
    "Commands": {"E": "Somebody Else", "S": "Your order", "U": "Sam Sender"},
    "Receiver": ["0301234567", "0307654321"]
  }
}
)json";

// The job file after the job, in the JSON library's layout.
[[nodiscard]] inline std::string JobFileWithResult(std::string_view status, std::string_view code,
                                                   std::string_view text) {
  constexpr std::string_view kBegin = R"json({
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
	},
	"Result":	{
		"Status":	)json";
  return std::string(kBegin)
      .append(status)
      .append(",\n\t\t\"ErrorCode\":\t")
      .append(code)
      .append(",\n\t\t\"ErrorText\":\t\"")
      .append(text)
      .append("\"\n\t}\n}");
}
[[nodiscard]] inline std::string JobFileDelivered() {
  return JobFileWithResult("0", "0", "");
}
// -2147467259 is 0x80004005, what a machine without a mail client gives.
[[nodiscard]] inline std::string JobFileNotDelivered() {
  return JobFileWithResult("1", "-2147467259", "MAPI Error");
}

// Its payload. All ASCII, so that the bytes on the wire and the text in the log are the same.
inline constexpr char kPayload[] = R"json({
	"Parameters":	{
		"Receiver":	"0301234567",
		"RecipientName":	"Erika Example",
		"SenderName":	"Sam Sender",
		"FileName":	"C:\\Fax\\Letter 7.pdf",
		"AttachmentName":	"Letter 7.pdf",
		"Comment":	"Line one\r\n\"Line two\"",
		"Subject":	"Your order",
		"SendTime":	"22:30",
		"ECM":	false,
		"Preview":	false
	}
})json";

// What the Extended MAPI route logs of it.
[[nodiscard]] inline std::string MapiLinesOfJobFile(bool is_sent = true) {
  return MapiLines({.receiver = "0301234567",
                    .recipient = "Erika Example",
                    .sender = "Sam Sender",
                    .comment = "Line one\r\n\"Line two\"",
                    .subject = "Your order",
                    .send_time = "22:30",
                    .attachment = "C:\\Fax\\Letter 7.pdf",
                    .attachment_name = "Letter 7.pdf",
                    .ecm = "False",
                    .preview = "False",
                    .is_sent = is_sent});
}

// A payload with these members and nothing else, for jobs without a job file.
struct PayloadMembers {
  std::string receiver = {};
  std::string recipient = {};
  std::string sender = {};
  std::string file = {};
  std::string attachment = {};
  std::string comment = {};
  std::string subject = {};
  std::string send_time = {};
  std::string ecm = "true";
  std::string preview = "false";
};
[[nodiscard]] inline std::string Payload(const PayloadMembers& members) {
  return "{\n\t\"Parameters\":\t{\n\t\t\"Receiver\":\t\"" + members.receiver +
         "\",\n\t\t\"RecipientName\":\t\"" + members.recipient + "\",\n\t\t\"SenderName\":\t\"" +
         members.sender + "\",\n\t\t\"FileName\":\t\"" + members.file +
         "\",\n\t\t\"AttachmentName\":\t\"" + members.attachment + "\",\n\t\t\"Comment\":\t\"" +
         members.comment + "\",\n\t\t\"Subject\":\t\"" + members.subject +
         "\",\n\t\t\"SendTime\":\t\"" + members.send_time + "\",\n\t\t\"ECM\":\t" + members.ecm +
         ",\n\t\t\"Preview\":\t" + members.preview + "\n\t}\n}";
}

}  // namespace zentpost::e2e
