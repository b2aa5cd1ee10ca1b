// CTCPClient: the tool's only network endpoint, a TCP client that connects to the mail client's
// add-in, sends one buffer and closes. It never reads: the add-in learns from the end of the
// connection that the payload is complete. Nothing is logged here.
//
// A client makes one connection and belongs to one thread. During a send a second one, the
// watchdog, looks at m_bSending and m_nSendTimeout and may cancel the send; it has ended when the
// send returns.
//
// Nothing here throws. When memory runs out over a step, the step has failed with kNotEnoughMemory.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>

#include "addin/text_encoding.h"
#include "platform/sockets.h"
#include "platform/worker.h"

namespace zentpost {

class CTCPClient : public platform::CSocket {
 public:
  // Makes the socket and connects; waits as long as the system's connect does. On failure false,
  // with m_strError and m_dwError set; the socket is closed by Close or with the client.
  [[nodiscard]] bool ConnectToServer(std::u16string_view host, std::uint16_t port);

  // Sends all of `bytes` in one call, with nothing around them, and gives up after m_nSendTimeout
  // waits of about a millisecond. False when the socket failed or the send was cancelled, with
  // m_strError and m_dwError set; both are cleared first. Bytes sent before a failure stay sent.
  [[nodiscard]] bool SendWithTimeout(const std::string& bytes);

  // Puts `text` into `out` as UTF-8, within the limits of WideToUtf8, and tells how that went. On
  // failure, an empty `text` included, `out` is empty and m_strError and m_dwError are set; both
  // are cleared first.
  Utf8Result::Outcome ConvertToUtf8(std::u16string_view text, std::string& out);

  // The watchdog's thread procedure; `client` is the CTCPClient it watches, or null. Waits until
  // the send is over or m_nSendTimeout waits are counted, at least once unless that is 0 or less,
  // then cancels a send that is still under way. Gives 0.
  static std::uint32_t SendWatchdogProc(void* client) noexcept;

  std::u16string_view m_strError;  // text of the last error
  std::uint32_t m_dwError = 0;     // code of the last error: a socket's, the system's or 0x80004005
  std::u16string m_strHost;        // of the last successful connect
  std::uint16_t m_nPort = 0;       // of the last successful connect
  platform::Worker m_pWatchdogThread;
  std::int32_t m_nSendTimeout = 10000;      // in waits of 1 millisecond
  std::atomic<std::int32_t> m_bSending{0};  // not 0 while a send is under way
};

}  // namespace zentpost
