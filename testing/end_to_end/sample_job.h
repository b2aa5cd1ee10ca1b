// Jobs as fax applications write them, and what has to come of them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "testing/expected_texts.h"

namespace zentpost::e2e {

// A job told by its fields. Texts are UTF-8 and stand in JSON as they are, but for backslashes:
// they hold no quotes.
struct Job {
  std::string document = "a.pdf";
  std::string name = "a";
  std::string receiver = {};
  std::string recipient = {};
  std::string sender = {};
  std::string comment = {};
  std::string subject = {};
  std::optional<std::string> preview = {};
  std::optional<std::string> output = {};  // diverts the job

  // The job file, in the layout in which it is written back.
  [[nodiscard]] std::string File() const;
  // Its payload, where all texts are ASCII.
  [[nodiscard]] std::string Payload() const;
  // What the Extended MAPI route logs of it.
  [[nodiscard]] test::MapiJobText Mapi() const;

 private:
  // The name gets the ending ".pdf" unless it has one.
  [[nodiscard]] std::string AttachmentName() const;
};

// A job file as a person writes it. Some fields stand under their long names and some under their
// letters; where "RecipientName" has both, the long name counts. Of the receivers only the first is
// taken, and the display name has no ".pdf" yet.
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

// It after the job, in the JSON library's layout.
[[nodiscard]] std::string JobFileWithResult(std::int32_t status, std::int32_t code,
                                            const std::string& text);
[[nodiscard]] std::string JobFileDelivered();
// On a machine without a mail client.
[[nodiscard]] std::string JobFileNotDelivered();

// Its payload. All ASCII, so that the bytes on the wire and the text in the log are the same.
[[nodiscard]] std::string SamplePayload();

// What the Extended MAPI route logs of it.
[[nodiscard]] test::MapiJobText SampleMapi();

// A payload with these members and nothing else, for jobs without a job file.
[[nodiscard]] inline std::string Payload(const test::PayloadText& members) {
  return members.Bytes();
}

}  // namespace zentpost::e2e
