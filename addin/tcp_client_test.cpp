#include "addin/tcp_client.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "testing/fake_platform/fixture.h"
#include "testing/log_lines.h"
#include "testing/text_printers.h"

namespace zentpost {
namespace {

using platform::fake::Peer;
using Calls = std::vector<std::string>;
using Sent = std::vector<std::string>;

constexpr std::uint16_t kPort = 5000;
constexpr char16_t kHost[] = u"127.0.0.1";
constexpr std::uint16_t kWinsockVersion = 0x0202;

class TcpClient : public platform::fake::FakePlatformTest {
 protected:
  void SetUp() override {
    FakePlatformTest::SetUp();
    ASSERT_EQ(platform::StartSockets(kWinsockVersion), platform::kSuccess);
    fake_.ClearCalls();
  }

  void TearDown() override {
    EXPECT_EQ(test::LogText(), "") << "nothing is logged";
    FakePlatformTest::TearDown();
  }

  // A client that is connected to a peer of this kind, with the calls so far forgotten.
  std::unique_ptr<CTCPClient> Connected(Peer peer = Peer::kAccept) {
    fake_.Listen(kPort, peer);
    auto client = std::make_unique<CTCPClient>();
    EXPECT_TRUE(client->ConnectToServer(kHost, kPort));
    fake_.ClearCalls();
    return client;
  }

  // Sends `bytes` with an error from before and expects this one behind it; 0: none.
  void ExpectSend(CTCPClient& client, const std::string& bytes, std::uint32_t error) {
    client.m_strError = u"from before";
    client.m_dwError = 5;
    EXPECT_EQ(client.SendWithTimeout(bytes), error == 0);
    EXPECT_EQ(client.m_strError, error == 0 ? u"" : u"A socket error occurred.");
    EXPECT_EQ(client.m_dwError, error);
  }
};

TEST_F(TcpClient, ANewClientHoldsNothing) {
  const CTCPClient client;
  EXPECT_EQ(client.m_strError, u"");
  EXPECT_EQ(client.m_dwError, 0u);
  EXPECT_EQ(client.m_strHost, u"");
  EXPECT_EQ(client.m_nPort, 0);
  EXPECT_FALSE(client.m_pWatchdogThread);
  EXPECT_EQ(client.m_nSendTimeout, 10000);
  EXPECT_EQ(client.m_bSending, 0);
  EXPECT_EQ(fake_.OpenHandles(), 0u);
  EXPECT_EQ(fake_.Calls(), Calls());
}

// --- connecting ---

TEST_F(TcpClient, ConnectToServerRemembersItsPeer) {
  fake_.Listen(kPort);
  {
    CTCPClient client;
    EXPECT_TRUE(client.ConnectToServer(kHost, kPort));
    EXPECT_EQ(client.m_strHost, kHost);
    EXPECT_EQ(client.m_nPort, kPort);
    EXPECT_EQ(client.m_strError, u"");
    EXPECT_EQ(client.m_dwError, 0u);
    EXPECT_EQ(fake_.Calls(), (Calls{"Create()", "Connect(127.0.0.1, 5000)"}));
    EXPECT_EQ(fake_.Connections(), Sent{""});
    EXPECT_EQ(fake_.OpenHandles(), 1u);
  }
  EXPECT_EQ(fake_.OpenHandles(), 0u) << "destruction closes the connection";
}

TEST_F(TcpClient, AConnectionThatCannotBeMadeIsTold) {
  struct Case {
    std::function<void()> arrange;
    const char16_t* text;
    platform::Status error;
    std::size_t handles;  // that stay open: the socket is left to Close and destruction
  };
  const Case cases[] = {
      {[this] { fake_.FailCallOf("Create", 0, platform::kSocketTooMany); },
       u"Socket cannot be created.", platform::kSocketTooMany, 0},
      {[this] { fake_.StopListening(kPort); }, u"Socket connection failed.",
       platform::kSocketRefused, 1},
      {[] { platform::EndSockets(); }, u"Socket cannot be created.", platform::kSocketsNotStarted,
       0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.error);
    fake_.Listen(kPort);
    c.arrange();
    fake_.ClearCalls();
    {
      CTCPClient client;
      EXPECT_FALSE(client.ConnectToServer(kHost, kPort));
      EXPECT_EQ(client.m_strError, c.text);
      EXPECT_EQ(client.m_dwError, c.error);
      EXPECT_EQ(client.m_strHost, u"");
      EXPECT_EQ(client.m_nPort, 0);
      EXPECT_EQ(fake_.Calls().size(), 1 + c.handles) << "a socket that is there connects";
      EXPECT_EQ(fake_.OpenHandles(), c.handles);
    }
    EXPECT_EQ(fake_.OpenHandles(), 0u);
  }
  EXPECT_EQ(fake_.Connections(), Sent());
}

// --- sending ---

TEST_F(TcpClient, SendsUnderAWatchdogThatItWaitsFor) {
  const auto client = Connected();
  client->m_nSendTimeout = std::numeric_limits<std::int32_t>::max();
  ExpectSend(*client, "hello", 0);
  EXPECT_EQ(fake_.Calls(), (Calls{"StartWorker()", "Send(5)", "WaitForWorker()"}));
  EXPECT_EQ(client->m_bSending, 0);
  EXPECT_TRUE(client->m_pWatchdogThread);
  EXPECT_EQ(fake_.Connections(), Sent{"hello"});
  // A watchdog whose send is over has waited at least once and cancelled nothing.
  EXPECT_EQ(fake_.WorkerCalls(),
            Calls(static_cast<std::size_t>(fake_.SleepCount()), "worker: SleepMilliseconds(1)"));
  EXPECT_GE(fake_.SleepCount(), 1u);
}

TEST_F(TcpClient, SendsTheExactBytesInOneCall) {
  std::string bytes(1 << 20, '\0');
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    bytes[i] = static_cast<char>(i * 31 / 7);
  }
  for (const std::string& sent : {bytes, std::string()}) {
    ExpectSend(*Connected(), sent, 0);
    EXPECT_EQ(fake_.CallsOf("Send"), Calls{"Send(" + std::to_string(sent.size()) + ")"});
    EXPECT_TRUE(fake_.Connections().back() == sent);
  }
}

TEST_F(TcpClient, AFailedSendIsTold) {
  const auto client = Connected(Peer::kReset);
  ExpectSend(*client, "hello!", platform::kSocketReset);
  EXPECT_EQ(client->m_bSending, 0);
  EXPECT_EQ(fake_.Calls(), (Calls{"StartWorker()", "Send(6)", "WaitForWorker()"}));
  EXPECT_EQ(fake_.Connections(), Sent{"hel"});
  CTCPClient unconnected;
  ASSERT_EQ(unconnected.Create(), platform::kSuccess);
  ExpectSend(unconnected, "hello", platform::kSocketNotConnected);
}

// Time-outs, and the waits that they allow.
constexpr std::pair<std::int32_t, std::size_t> kWaitCases[] = {
    {std::numeric_limits<std::int32_t>::min(), 0}, {-1, 0}, {0, 0}, {1, 1}, {2, 2}, {10000, 10000}};

TEST_F(TcpClient, ABlockedSendIsCancelledAfterAsManyWaitsAsTheTimeOutSays) {
  fake_.SetSendWindow(4);
  for (const auto& [timeout, waits] : kWaitCases) {
    SCOPED_TRACE(timeout);
    const auto client = Connected(Peer::kNeverRead);
    client->m_nSendTimeout = timeout;
    ExpectSend(*client, "hello", platform::kSocketInterrupted);
    EXPECT_EQ(client->m_bSending, 0);
    EXPECT_EQ(fake_.Calls(), (Calls{"StartWorker()", "Send(5)", "WaitForWorker()"}));
    Calls worker_calls(waits, "worker: SleepMilliseconds(1)");
    worker_calls.emplace_back("worker: CancelBlockingCall()");
    EXPECT_EQ(fake_.WorkerCalls(), worker_calls);
    EXPECT_EQ(fake_.Connections().back(), "hell");
  }
}

// Nobody is left then to read the flag.
TEST_F(TcpClient, DeliberateWithoutAWatchdogTheSendIsMadeAndTheFlagStaysSet) {
  for (const Peer peer : {Peer::kAccept, Peer::kReset}) {
    const auto client = Connected(peer);
    fake_.FailCallOf("StartWorker", 0, platform::kNotEnoughMemory);
    ExpectSend(*client, "hello!", peer == Peer::kAccept ? 0 : platform::kSocketReset);
    EXPECT_EQ(fake_.Calls(), (Calls{"StartWorker()", "Send(6)"}));
    EXPECT_FALSE(client->m_pWatchdogThread);
    EXPECT_EQ(client->m_bSending, 1);
  }
  EXPECT_EQ(fake_.Connections(), (Sent{"hello!", "hel"}));
}

TEST_F(TcpClient, AWaitThatFailsDoesNotChangeTheOutcome) {
  const auto client = Connected();
  fake_.FailCallOf("WaitForWorker", 0, platform::kInvalidHandle);
  ExpectSend(*client, "hello", 0);
  EXPECT_EQ(client->m_bSending, 0);
}

// Often, so that the thread sanitizer sees the two threads meet in every order.
TEST_F(TcpClient, SenderAndWatchdogMeetInAnyOrder) {
  fake_.SetSendWindow(4);
  for (const Peer peer : {Peer::kAccept, Peer::kNeverRead, Peer::kReset}) {
    for (std::int32_t timeout = 0; timeout < 50; ++timeout) {
      const auto client = Connected(peer);
      client->m_nSendTimeout = timeout;
      EXPECT_EQ(client->SendWithTimeout("hello"), peer == Peer::kAccept);
      EXPECT_EQ(client->m_bSending, 0);
    }
  }
}

// --- the watchdog's procedure, on this thread ---

TEST_F(TcpClient, TheWatchdogOfNobodyEndsAtOnce) {
  EXPECT_EQ(CTCPClient::SendWatchdogProc(nullptr), 0u);
  EXPECT_EQ(fake_.Calls(), Calls());
}

TEST_F(TcpClient, TheWatchdogCountsItsWaitsAndCancels) {
  for (const auto& [timeout, waits] : kWaitCases) {
    for (const std::int32_t flag : {1, -1, 2, std::numeric_limits<std::int32_t>::min()}) {
      SCOPED_TRACE(timeout);
      fake_.ClearCalls();
      CTCPClient client;
      client.m_nSendTimeout = timeout;
      client.m_bSending = flag;
      EXPECT_EQ(CTCPClient::SendWatchdogProc(&client), 0u);
      Calls calls(waits, "SleepMilliseconds(1)");
      calls.emplace_back("CancelBlockingCall()");
      EXPECT_EQ(fake_.Calls(), calls);
      EXPECT_EQ(client.m_bSending, flag);
    }
  }
}

TEST_F(TcpClient, TheWatchdogOfAFinishedSendWaitsOnceAndCancelsNothing) {
  for (const std::int32_t timeout : {-1, 0, 1, 10000}) {
    fake_.ClearCalls();
    CTCPClient client;
    client.m_nSendTimeout = timeout;
    EXPECT_EQ(CTCPClient::SendWatchdogProc(&client), 0u);
    EXPECT_EQ(fake_.Calls(), Calls(timeout > 0 ? 1 : 0, "SleepMilliseconds(1)"));
  }
}

// --- conversion ---

TEST_F(TcpClient, ConvertToUtf8KeepsItsFailureInTheClient) {
  using namespace std::string_literals;
  constexpr std::uint32_t kNotConverted = 0x80004005;
  struct Case {
    std::u16string text;
    std::string bytes;
    std::uint32_t error = 0;
    const char* failing_call = "";
    platform::Status status = platform::kSuccess;
  };
  const Case cases[] = {
      {u"\u00C3\u00A4", "\xC3\x83\xC2\xA4"},  // it is encoded, even if it was before
      {u"\u4E2D\u6587", "\xE4\xB8\xAD\xE6\x96\x87"},
      {u"\u4E2D\u6587\u5B57", "", kNotConverted},  // nine bytes in eight
      {u"ab\0cd"s, "ab"},
      {u"\0"s, ""},
      {u"", "", kNotConverted},
      {u"abc", "", 8, "AllocateBlock", platform::kNotEnoughMemory},
      {u"abc", "", 1455, "AllocateBlock", 1455},
      {u"abc", "", kNotConverted, "WideToBytes", platform::kInvalidParameter},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(test::Readable(c.text) + c.failing_call);
    if (c.status != platform::kSuccess) {
      fake_.FailCallOf(c.failing_call, 0, c.status);
    }
    CTCPClient client;
    client.m_strError = u"from before";
    client.m_dwError = 5;
    std::string out = "from before";
    EXPECT_EQ(client.ConvertToUtf8(c.text, out), c.error == 0 ? Utf8Result::Outcome::kConverted
                                                 : c.error == kNotConverted
                                                     ? Utf8Result::Outcome::kNotConverted
                                                     : Utf8Result::Outcome::kNoMemory);
    EXPECT_EQ(out, c.bytes);
    EXPECT_EQ(client.m_strError, c.error == 0 ? u"" : u"The utf-8 forward conversion failed.");
    EXPECT_EQ(client.m_dwError, c.error);
  }
}

}  // namespace
}  // namespace zentpost
