#include "addin/tcp_client.h"

#include <utility>

#include "platform/system.h"

namespace zentpost {
namespace {

constexpr std::uint32_t kGeneralFailure = 0x80004005;  // E_FAIL (winerror.h)

}  // namespace

bool CTCPClient::ConnectToServer(std::u16string_view host, std::uint16_t port) try {
  // Before there is a connection: one that cannot be noted is not begun.
  std::u16string connected_host(host);
  if (const platform::Status status = Create(); status != platform::kSuccess) {
    m_strError = u"Socket cannot be created.";
    m_dwError = status;
    return false;
  }
  if (const platform::Status status = Connect(connected_host, port); status != platform::kSuccess) {
    m_strError = u"Socket connection failed.";
    m_dwError = status;
    return false;
  }
  m_nPort = port;
  m_strHost = std::move(connected_host);
  return true;
} catch (...) {
  m_strError = u"Socket connection failed.";
  m_dwError = platform::kNotEnoughMemory;
  return false;
}

bool CTCPClient::SendWithTimeout(const std::string& bytes) {
  m_strError = {};
  m_dwError = 0;
  m_bSending.store(1, std::memory_order_relaxed);
  const bool is_watched =
      platform::StartWorker(SendWatchdogProc, this, m_pWatchdogThread) == platform::kSuccess;

  std::size_t sent = 0;
  const platform::Status status = Send(bytes.data(), bytes.size(), sent);
  if (is_watched) {
    m_bSending.store(0, std::memory_order_relaxed);
    platform::WaitForWorker(m_pWatchdogThread);
  }
  if (status != platform::kSuccess) {
    m_strError = u"A socket error occurred.";
    m_dwError = status;
    return false;
  }
  return true;
}

Utf8Result::Outcome CTCPClient::ConvertToUtf8(std::u16string_view text, std::string& out) {
  m_strError = {};
  m_dwError = 0;
  const Utf8Result result = WideToUtf8(text, out);
  if (result.outcome != Utf8Result::Outcome::kConverted) {
    m_strError = u"The utf-8 forward conversion failed.";
    m_dwError = result.outcome == Utf8Result::Outcome::kNoMemory ? result.status : kGeneralFailure;
  }
  return result.outcome;
}

std::uint32_t CTCPClient::SendWatchdogProc(void* client) noexcept {
  auto* watched = static_cast<CTCPClient*>(client);
  if (watched == nullptr) {
    return 0;
  }
  // The time-out is this count of waits, not a measured time: each lasts as long as the system's
  // timer makes it.
  if (watched->m_nSendTimeout > 0) {
    std::int32_t waits = 0;
    do {
      platform::SleepMilliseconds(1);
      if (watched->m_bSending.load(std::memory_order_relaxed) == 0) {
        break;
      }
      ++waits;
    } while (waits != watched->m_nSendTimeout);
  }
  if (watched->m_bSending.load(std::memory_order_relaxed) != 0) {
    watched->CancelBlockingCall();
  }
  return 0;
}

}  // namespace zentpost
