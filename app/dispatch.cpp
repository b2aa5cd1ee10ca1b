#include "app/dispatch.h"

#include "addin/addin_port.h"
#include "addin/tcp_client.h"
#include "addin/transmission.h"
#include "mapi/job_processing.h"

namespace zentpost {
namespace {

// Whether something accepts connections on the port. The connection is closed at once: the add-in
// route opens its own.
bool IsAddinListening(std::uint16_t port) {
  CTCPClient probe;
  return probe.ConnectToServer(kAddinHost, port);
}

}  // namespace

bool DispatchJob(const JobParameters& params) {
  const std::uint16_t port = ReadAddinPort();
  if (port != 0 && IsAddinListening(port) && ProcessToOutlookClient(params)) {
    return true;
  }
  return ProcessToExtendedMapi(params);
}

}  // namespace zentpost
