// The texts that a job leaves behind as they are expected: the add-in's payload and the job file
// with its outcome, put together without the code that writes them.
#pragma once

#include <cstdint>
#include <string>

namespace zentpost::test {

// The add-in's payload. The values stand as JSON writes them, in UTF-8 and with its escapes; at
// first they are those of a job that says nothing.
struct PayloadText {
  std::string receiver{};
  std::string recipient_name{};
  std::string sender_name{};
  std::string file_name{};
  std::string attachment_name{};
  std::string comment{};
  std::string subject{};
  std::string send_time{};
  bool ecm = true;
  bool preview = false;

  [[nodiscard]] std::string Bytes() const {
    const auto text = [](const char* name, const std::string& value) {
      return "\t\t\"" + std::string(name) + "\":\t\"" + value + "\",\n";
    };
    const auto flag = [](bool value) { return std::string(value ? "true" : "false"); };
    return "{\n\t\"Parameters\":\t{\n" + text("Receiver", receiver) +
           text("RecipientName", recipient_name) + text("SenderName", sender_name) +
           text("FileName", file_name) + text("AttachmentName", attachment_name) +
           text("Comment", comment) + text("Subject", subject) + text("SendTime", send_time) +
           "\t\t\"ECM\":\t" + flag(ecm) + ",\n\t\t\"Preview\":\t" + flag(preview) + "\n\t}\n}";
  }
};

// An outcome as a member of a job file. `text` stands as JSON writes it.
inline std::string ResultMember(std::int32_t status, std::int32_t code, const std::string& text) {
  return "\t\"Result\":\t{\n\t\t\"Status\":\t" + std::to_string(status) +
         ",\n\t\t\"ErrorCode\":\t" + std::to_string(code) + ",\n\t\t\"ErrorText\":\t\"" + text +
         "\"\n\t}";
}

// `job_file`, an object in the layout in which it is written back, with an outcome behind its last
// member.
inline std::string WithResult(const std::string& job_file, std::int32_t status, std::int32_t code,
                              const std::string& text) {
  return job_file.substr(0, job_file.rfind("\n}")) + ",\n" + ResultMember(status, code, text) +
         "\n}";
}

// What the Extended MAPI route logs of a job before it sends it, all of it at the level INFO.
struct MapiJobText {
  std::string receiver{};
  std::string recipient{};
  std::string sender{};
  std::string comment{};
  std::string subject{};
  std::string send_time{};
  std::string attachment{};
  std::string attachment_name{};
  bool ecm = true;
  bool preview = false;
};

// As LogText tells it.
inline std::string MapiJobLog(const MapiJobText& job) {
  std::string log;
  for (const std::string& line :
       {std::string("Processing single job to extended MAPI."), std::string("Parameters :"),
        "Receiver   : " + job.receiver, "Recipient  : " + job.recipient,
        "Sendername : " + job.sender, "Comment    : " + job.comment, "Subject    : " + job.subject,
        "SendTime   : " + job.send_time, "Attachment : " + job.attachment,
        "Attach Name: " + job.attachment_name,
        std::string("ECM        : ") + (job.ecm ? "True" : "False"),
        std::string("Preview    : ") + (job.preview ? "True" : "False")}) {
    log += "INFO: ProcessToExtendedMapi(): " + line + "\n";
  }
  return log;
}

// What SendMail logs where there is no MAPI.
inline constexpr char kNoMapiLog[] =
    "ERROR: SendMail(): MAPIInititialize failed.\n"
    "ERROR: Code 0x80004005 --> A general not more specified error occurred.\n";

// What the Extended MAPI route then writes: 0x80004005.
inline std::string WithMapiError(const std::string& job_file) {
  return WithResult(job_file, 1, -2147467259, "MAPI Error");
}

// What either route writes when the job counts as delivered.
inline std::string WithSuccess(const std::string& job_file) {
  return WithResult(job_file, 0, 0, "");
}

// What the add-in route and what lies below both routes log, as LogText tells it.

// A failure with the number of its reason, which has no text.
inline std::string FailureLog(const std::string& message, const std::string& hexadecimal) {
  return "ERROR: " + message + "\nERROR: Code 0x" + hexadecimal + " --> Unknown Error.\n";
}
inline constexpr char kUtf8NoMemory[] = "_utf8(): A memory error occurred.";
inline constexpr char kUtf8Failed[] = "_utf8(): The utf-8 forward conversion failed.";

// `routine` has found that a file is no JSON; `rest` is what stands there from that point on.
inline std::string NoJsonLog(const std::string& routine, const std::string& rest) {
  return "ERROR: " + routine + "(): Parse JSON failed with error '" + rest + "'\n";
}
inline constexpr char kNoFilePathLog[] =
    "ERROR: GetDocumentFromJson(): Filename not found\n"
    "ERROR: ReadFromFile(): Read document failed\n";
inline constexpr char kNoSourceFileNameLog[] =
    "ERROR: GetDocumentFromJson(): JobName not found\n"
    "ERROR: ReadFromFile(): Read document failed\n";

inline constexpr char kAddinStartLog[] =
    "INFO: ProcessToOutlookClient(): Processing job to Ambrolux.OutlookClient.\n";
inline constexpr char kAddinSentLog[] =
    "INFO: ProcessToOutlookClient(): The JSON payload successfully sent.\n";

// The add-in route up to the point where its ways part. `payload` is what the log shows of it.
inline std::string AddinLog(const std::string& payload) {
  return std::string(kAddinStartLog) + "INFO: ProcessToOutlookClient(): Created JSON:\r\n" +
         payload + "\r\n\n";
}

// How the add-in route fails: its line of the log, and what it writes into the job file.
struct AddinFailure {
  const char* log;
  std::int32_t code;
  const char* text;
};
inline constexpr AddinFailure kNoPayload = {
    "ERROR: ProcessToOutlookClient(): The JSON creation failed.\n", 1000,
    "Outlook: Data encoding failure."};
inline constexpr AddinFailure kNoPort = {
    "ERROR: ProcessToOutlookClient(): The communication port is not valid.\n", 1002,
    "OutlookClient: Unknown destination."};
inline constexpr AddinFailure kNotSent = {"ERROR: ProcessToOutlookClient(): The sending failed.\n",
                                          1003, "OutlookClient: Transmission failure."};
inline constexpr AddinFailure kNotConnected = {
    "ERROR: ProcessToOutlookClient(): The client connection to 127.0.0.1:5000 cannot be "
    "established.\n",
    1004, "OutlookClient: Connection cannot be established."};

}  // namespace zentpost::test
