#include "addin/transmission.h"

#include <string>

#include "addin/addin_port.h"
#include "addin/payload.h"
#include "addin/tcp_client.h"
#include "addin/text_encoding.h"
#include "diag/log_file.h"
#include "jobfile/commands.h"

namespace zentpost {
namespace {

// What the fax application finds in its job file after a failure. The codes and texts are its
// interface, the odd one out among the texts included; 1001 is not in use.
struct Failure {
  std::int32_t code;
  const char16_t* text;
};
constexpr Failure kDataEncodingFailure = {1000, u"Outlook: Data encoding failure."};
constexpr Failure kUnknownDestination = {1002, u"OutlookClient: Unknown destination."};
constexpr Failure kTransmissionFailure = {1003, u"OutlookClient: Transmission failure."};
constexpr Failure kNoConnection = {1004, u"OutlookClient: Connection cannot be established."};

bool Delivered(const JobParameters& params) {
  CCommands::UpdateJobFile(params, 0, 0, u"");
  return true;
}

bool Failed(const JobParameters& params, const Failure& failure) {
  CCommands::UpdateJobFile(params, 1, failure.code, failure.text);
  return false;
}

bool NoPayload(const JobParameters& params) {
  LogError(u"ProcessToOutlookClient(): The JSON creation failed.");
  return Failed(params, kDataEncodingFailure);
}

}  // namespace

bool ProcessToOutlookClient(const JobParameters& params) {
  LogInfo(u"ProcessToOutlookClient(): Processing job to Ambrolux.OutlookClient.");
  const std::u16string payload =
      WidenThroughAnsi(CCommands::json(params)).value_or(std::u16string());
  if (payload.empty()) {
    return NoPayload(params);
  }
  LogInfo(u"ProcessToOutlookClient(): Created JSON:\r\n%s\r\n", payload);

  if (params.faxFields.Contains(u"O")) {
    // A file that cannot be written counts as delivered; one without its payload must not.
    const PayloadFile file = WriteAddinJsonFile(params, params.faxFields.Value(u"O"));
    return file == PayloadFile::kNoMemory ? NoPayload(params) : Delivered(params);
  }

  const std::uint16_t port = ReadAddinPort();
  if (port == 0) {
    LogError(u"ProcessToOutlookClient(): The communication port is not valid.");
    return Failed(params, kUnknownDestination);
  }
  CTCPClient client;
  if (!client.ConnectToServer(kAddinHost, port)) {
    LogError(u"ProcessToOutlookClient(): The client connection to %s:%d cannot be established.",
             kAddinHost, port);
    return Failed(params, kNoConnection);
  }

  // A text that cannot be converted leaves nothing to send, and sending nothing succeeds: such a
  // job counts as delivered. One for whose bytes there is no memory does not.
  std::string bytes;
  if (client.ConvertToUtf8(payload, bytes) == Utf8Result::Outcome::kNoMemory ||
      !client.SendWithTimeout(bytes)) {
    LogError(u"ProcessToOutlookClient(): The sending failed.");
    return Failed(params, kTransmissionFailure);
  }
  LogInfo(u"ProcessToOutlookClient(): The JSON payload successfully sent.");
  return Delivered(params);
}

}  // namespace zentpost
