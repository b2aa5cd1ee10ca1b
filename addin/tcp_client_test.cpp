#include "addin/tcp_client.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "testing/fake_platform/fixture.h"
#include "testing/log_lines.h"

namespace zentpost {
namespace {

using platform::fake::Peer;
using Calls = std::vector<std::string>;

constexpr std::uint16_t kPort = 5000;
constexpr char16_t kHost[] = u"127.0.0.1";
constexpr std::uint16_t kWinsockVersion = 0x0202;

class TcpClient : public platform::fake::MachineTest {
 protected:
  void SetUp() override {
    MachineTest::SetUp();
    ASSERT_EQ(platform::StartSockets(kWinsockVersion), platform::kSuccess);
    machine_.ClearCalls();
  }

  // A client that is connected to a peer of this kind, with the calls so far forgotten.
  std::unique_ptr<CTCPClient> Connected(Peer peer) {
    machine_.Listen(kPort, peer);
    auto client = std::make_unique<CTCPClient>();
    EXPECT_TRUE(client->ConnectToServer(kHost, kPort));
    machine_.ClearCalls();
    return client;
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
  EXPECT_EQ(machine_.OpenHandles(), 0u);
  EXPECT_EQ(machine_.Calls(), Calls());
}

// --- connecting ---

TEST_F(TcpClient, ConnectToServerRemembersItsPeer) {
  machine_.Listen(kPort);
  CTCPClient client;
  EXPECT_TRUE(client.ConnectToServer(kHost, kPort));
  EXPECT_EQ(client.m_strHost, kHost);
  EXPECT_EQ(client.m_nPort, kPort);
  EXPECT_EQ(client.m_strError, u"");
  EXPECT_EQ(client.m_dwError, 0u);
  EXPECT_EQ(machine_.Calls(), (Calls{"Create()", "Connect(127.0.0.1, 5000)"}));
  EXPECT_EQ(machine_.Connections(), std::vector<std::string>{""});
  EXPECT_EQ(machine_.OpenHandles(), 1u);
}

TEST_F(TcpClient, ASocketThatCannotBeCreatedIsTold) {
  machine_.Listen(kPort);
  CTCPClient client;
  machine_.FailCallOf("Create", 0, platform::kSocketTooMany);
  EXPECT_FALSE(client.ConnectToServer(kHost, kPort));
  EXPECT_EQ(client.m_strError, u"Socket cannot be created.");
  EXPECT_EQ(client.m_dwError, platform::kSocketTooMany);
  EXPECT_EQ(client.m_strHost, u"");
  EXPECT_EQ(client.m_nPort, 0);
  EXPECT_EQ(machine_.Calls(), Calls{"Create()"});
  EXPECT_EQ(machine_.OpenHandles(), 0u);
}

TEST_F(TcpClient, WithoutTheSocketLibraryNoSocketCanBeCreated) {
  machine_.Listen(kPort);
  platform::EndSockets();
  CTCPClient client;
  EXPECT_FALSE(client.ConnectToServer(kHost, kPort));
  EXPECT_EQ(client.m_strError, u"Socket cannot be created.");
  EXPECT_EQ(client.m_dwError, platform::kSocketsNotStarted);
}

TEST_F(TcpClient, APortWithoutAListenerIsTold) {
  CTCPClient client;
  EXPECT_FALSE(client.ConnectToServer(kHost, kPort));
  EXPECT_EQ(client.m_strError, u"Socket connection failed.");
  EXPECT_EQ(client.m_dwError, platform::kSocketRefused);
  EXPECT_EQ(client.m_strHost, u"");
  EXPECT_EQ(client.m_nPort, 0);
  EXPECT_EQ(machine_.Connections(), std::vector<std::string>());
}

TEST_F(TcpClient, AFailedConnectLeavesTheSocketToCloseAndDestruction) {
  {
    CTCPClient client;
    EXPECT_FALSE(client.ConnectToServer(kHost, kPort));
    EXPECT_EQ(machine_.OpenHandles(), 1u);
    client.Close();
    EXPECT_EQ(machine_.OpenHandles(), 0u);
    client.Close();
    EXPECT_FALSE(client.ConnectToServer(kHost, kPort));
    EXPECT_EQ(machine_.OpenHandles(), 1u);
  }
  EXPECT_EQ(machine_.OpenHandles(), 0u);
}

TEST_F(TcpClient, DestructionClosesTheConnection) {
  auto client = Connected(Peer::kAccept);
  EXPECT_EQ(machine_.OpenHandles(), 1u);
  client.reset();
  EXPECT_EQ(machine_.OpenHandles(), 0u);
}

// --- sending ---

TEST_F(TcpClient, SendsUnderAWatchdogThatItWaitsFor) {
  const auto client = Connected(Peer::kAccept);
  client->m_nSendTimeout = std::numeric_limits<std::int32_t>::max();
  EXPECT_TRUE(client->SendWithTimeout("hello"));
  EXPECT_EQ(machine_.Calls(), (Calls{"StartWorker()", "Send(5)", "WaitForWorker()"}));
  EXPECT_EQ(client->m_bSending, 0);
  EXPECT_TRUE(client->m_pWatchdogThread);
  EXPECT_EQ(machine_.Connections(), std::vector<std::string>{"hello"});
  // A watchdog whose send is over has waited at least once and cancelled nothing.
  EXPECT_EQ(machine_.WorkerCalls(),
            Calls(static_cast<std::size_t>(machine_.SleepCount()), "worker: SleepMilliseconds(1)"));
  EXPECT_GE(machine_.SleepCount(), 1u);
}

TEST_F(TcpClient, SendsTheExactBytesInOneCall) {
  std::string bytes(1 << 20, '\0');
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    bytes[i] = static_cast<char>(i * 31 / 7);
  }
  const auto client = Connected(Peer::kAccept);
  EXPECT_TRUE(client->SendWithTimeout(bytes));
  EXPECT_EQ(machine_.CallsOf("Send"), Calls{"Send(1048576)"});
  EXPECT_TRUE(machine_.Connections() == std::vector<std::string>{bytes});
}

TEST_F(TcpClient, SendingNothingSucceeds) {
  const auto client = Connected(Peer::kAccept);
  EXPECT_TRUE(client->SendWithTimeout(""));
  EXPECT_EQ(client->m_strError, u"");
  EXPECT_EQ(client->m_dwError, 0u);
  EXPECT_EQ(machine_.CallsOf("Send"), Calls{"Send(0)"});
  EXPECT_EQ(machine_.Connections(), std::vector<std::string>{""});
}

TEST_F(TcpClient, SendClearsTheErrorFirst) {
  const auto client = Connected(Peer::kAccept);
  client->m_strError = u"from before";
  client->m_dwError = 5;
  EXPECT_TRUE(client->SendWithTimeout("hello"));
  EXPECT_EQ(client->m_strError, u"");
  EXPECT_EQ(client->m_dwError, 0u);
}

TEST_F(TcpClient, AFailedSendIsTold) {
  const auto client = Connected(Peer::kReset);
  client->m_strError = u"from before";
  client->m_dwError = 5;
  EXPECT_FALSE(client->SendWithTimeout("hello!"));
  EXPECT_EQ(client->m_strError, u"A socket error occurred.");
  EXPECT_EQ(client->m_dwError, platform::kSocketReset);
  EXPECT_EQ(client->m_bSending, 0);
  EXPECT_EQ(machine_.Calls(), (Calls{"StartWorker()", "Send(6)", "WaitForWorker()"}));
  EXPECT_EQ(machine_.Connections(), std::vector<std::string>{"hel"});
}

TEST_F(TcpClient, SendingWithoutAConnectionIsTold) {
  CTCPClient client;
  ASSERT_EQ(client.Create(), platform::kSuccess);
  EXPECT_FALSE(client.SendWithTimeout("hello"));
  EXPECT_EQ(client.m_strError, u"A socket error occurred.");
  EXPECT_EQ(client.m_dwError, platform::kSocketNotConnected);
}

TEST_F(TcpClient, APeerThatNeverReadsIsGivenUpAfter10000Waits) {
  machine_.SetSendWindow(4);
  const auto client = Connected(Peer::kNeverRead);
  EXPECT_FALSE(client->SendWithTimeout("hello"));
  EXPECT_EQ(client->m_strError, u"A socket error occurred.");
  EXPECT_EQ(client->m_dwError, platform::kSocketInterrupted);
  EXPECT_EQ(client->m_bSending, 0);
  EXPECT_EQ(machine_.Calls(), (Calls{"StartWorker()", "Send(5)", "WaitForWorker()"}));
  Calls worker_calls(10000, "worker: SleepMilliseconds(1)");
  worker_calls.emplace_back("worker: CancelBlockingCall()");
  EXPECT_TRUE(machine_.WorkerCalls() == worker_calls) << machine_.WorkerCalls().size();
  EXPECT_EQ(machine_.Connections(), std::vector<std::string>{"hell"});
}

TEST_F(TcpClient, APeerWhoseSystemTakesEverythingIsNotWaitedFor) {
  machine_.SetSendWindow(5);
  const auto client = Connected(Peer::kNeverRead);
  EXPECT_TRUE(client->SendWithTimeout("hello"));
  EXPECT_EQ(machine_.Connections(), std::vector<std::string>{"hello"});
}

struct WaitCase {
  std::int32_t timeout;
  std::size_t waits;
};
constexpr WaitCase kWaitCases[] = {
    {std::numeric_limits<std::int32_t>::min(), 0},
    {-1, 0},
    {0, 0},
    {1, 1},
    {2, 2},
    {250, 250},
    {10000, 10000},
};

TEST_F(TcpClient, ABlockedSendIsCancelledAfterAsManyWaitsAsTheTimeOutSays) {
  machine_.SetSendWindow(4);
  for (const WaitCase& test : kWaitCases) {
    SCOPED_TRACE(test.timeout);
    const std::uint64_t before = machine_.SleepCount();
    const auto client = Connected(Peer::kNeverRead);
    client->m_nSendTimeout = test.timeout;
    EXPECT_FALSE(client->SendWithTimeout("hello"));
    EXPECT_EQ(client->m_dwError, platform::kSocketInterrupted);
    EXPECT_EQ(machine_.SleepCount() - before, test.waits);
    EXPECT_EQ(machine_.WorkerCalls().size(), test.waits + 1);
    EXPECT_EQ(machine_.WorkerCalls().back(), "worker: CancelBlockingCall()");
  }
}

TEST_F(TcpClient, WithoutAWatchdogTheSendIsMadeAllTheSame) {
  const auto client = Connected(Peer::kAccept);
  machine_.FailCallOf("StartWorker", 0, platform::kNotEnoughMemory);
  EXPECT_TRUE(client->SendWithTimeout("hello"));
  EXPECT_EQ(machine_.Calls(), (Calls{"StartWorker()", "Send(5)"}));
  EXPECT_EQ(machine_.Connections(), std::vector<std::string>{"hello"});
  EXPECT_FALSE(client->m_pWatchdogThread);
  EXPECT_EQ(client->m_strError, u"");
  EXPECT_EQ(client->m_dwError, 0u);
}

// Nobody is left to read it.
TEST_F(TcpClient, DeliberateWithoutAWatchdogTheFlagStaysSet) {
  const auto client = Connected(Peer::kAccept);
  machine_.FailCallOf("StartWorker", 0, platform::kNotEnoughMemory);
  EXPECT_TRUE(client->SendWithTimeout("hello"));
  EXPECT_EQ(client->m_bSending, 1);
}

TEST_F(TcpClient, WithoutAWatchdogAFailedSendIsToldAllTheSame) {
  const auto client = Connected(Peer::kReset);
  machine_.FailCallOf("StartWorker", 0, platform::kNotEnoughMemory);
  EXPECT_FALSE(client->SendWithTimeout("hello!"));
  EXPECT_EQ(client->m_strError, u"A socket error occurred.");
  EXPECT_EQ(client->m_dwError, platform::kSocketReset);
}

TEST_F(TcpClient, AWaitThatFailsDoesNotChangeTheOutcome) {
  const auto client = Connected(Peer::kAccept);
  machine_.FailCallOf("WaitForWorker", 0, platform::kInvalidHandle);
  EXPECT_TRUE(client->SendWithTimeout("hello"));
  EXPECT_EQ(client->m_dwError, 0u);
  EXPECT_EQ(client->m_bSending, 0);
}

// Often, so that the thread sanitizer sees the two threads meet in every order.
TEST_F(TcpClient, SenderAndWatchdogMeetInAnyOrder) {
  machine_.SetSendWindow(4);
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
  EXPECT_EQ(machine_.Calls(), Calls());
}

TEST_F(TcpClient, TheWatchdogCountsItsWaitsAndCancels) {
  for (const WaitCase& test : kWaitCases) {
    SCOPED_TRACE(test.timeout);
    machine_.ClearCalls();
    CTCPClient client;
    client.m_nSendTimeout = test.timeout;
    client.m_bSending = 1;
    EXPECT_EQ(CTCPClient::SendWatchdogProc(&client), 0u);
    Calls calls(test.waits, "SleepMilliseconds(1)");
    calls.emplace_back("CancelBlockingCall()");
    EXPECT_TRUE(machine_.Calls() == calls) << machine_.Calls().size();
    EXPECT_EQ(client.m_bSending, 1);
  }
}

TEST_F(TcpClient, AnyFlagButZeroMeansThatASendIsUnderWay) {
  for (const std::int32_t flag : {-1, 2, std::numeric_limits<std::int32_t>::min()}) {
    machine_.ClearCalls();
    CTCPClient client;
    client.m_nSendTimeout = 1;
    client.m_bSending = flag;
    EXPECT_EQ(CTCPClient::SendWatchdogProc(&client), 0u);
    EXPECT_EQ(machine_.Calls(), (Calls{"SleepMilliseconds(1)", "CancelBlockingCall()"}));
  }
}

TEST_F(TcpClient, TheWatchdogOfAFinishedSendWaitsOnceAndCancelsNothing) {
  struct Case {
    std::int32_t timeout;
    Calls calls;
  };
  const Case kCases[] = {
      {-1, {}},
      {0, {}},
      {1, {"SleepMilliseconds(1)"}},
      {10000, {"SleepMilliseconds(1)"}},
  };
  for (const Case& test : kCases) {
    SCOPED_TRACE(test.timeout);
    machine_.ClearCalls();
    CTCPClient client;
    client.m_nSendTimeout = test.timeout;
    EXPECT_EQ(CTCPClient::SendWatchdogProc(&client), 0u);
    EXPECT_EQ(machine_.Calls(), test.calls);
  }
}

// --- conversion ---

TEST_F(TcpClient, ConvertToUtf8EncodesWhatItIsGiven) {
  using namespace std::string_literals;
  struct Case {
    const char* name;
    std::u16string text;
    std::string bytes;
  };
  const Case kCases[] = {
      {"ASCII", u"hello", "hello"},
      {"Latin", u"J\u00E4ger", "J\xC3\xA4ger"},
      {"widened UTF-8 is encoded once more", u"\u00C3\u00A4", "\xC3\x83\xC2\xA4"},
      {"two characters of three bytes fit", u"\u4E2D\u6587", "\xE4\xB8\xAD\xE6\x96\x87"},
      {"a surrogate pair", u"\U0001F4E0", "\xF0\x9F\x93\xA0"},
      {"a lone surrogate", u"\xD83D", "\xEF\xBF\xBD"},
      {"the result ends at a zero", u"ab\0cd"s, "ab"},
      {"a zero alone", u"\0"s, ""},
  };
  for (const Case& test : kCases) {
    SCOPED_TRACE(test.name);
    CTCPClient client;
    client.m_strError = u"from before";
    client.m_dwError = 5;
    std::string out = "from before";
    EXPECT_EQ(client.ConvertToUtf8(test.text, out), Utf8Result::Outcome::kConverted);
    EXPECT_EQ(out, test.bytes);
    EXPECT_EQ(client.m_strError, u"");
    EXPECT_EQ(client.m_dwError, 0u);
  }
}

TEST_F(TcpClient, ConvertToUtf8HasTwoBytesForAUnitAndTwoMore) {
  CTCPClient client;
  std::string out;
  client.ConvertToUtf8(u"abc", out);
  EXPECT_EQ(machine_.Calls(), (Calls{"AllocateBlock(8)", "WideToBytes(65001, 3, 8)"}));
}

TEST_F(TcpClient, ConvertToUtf8KeepsItsFailureInTheClient) {
  struct Case {
    const char* name;
    std::u16string text;
    const char* failing_call;  // or null
    platform::Status status;
    std::uint32_t error;
  };
  const Case kCases[] = {
      {"an empty text", u"", nullptr, 0, 0x80004005},
      {"nine bytes in eight", u"\u4E2D\u6587\u5B57", nullptr, 0, 0x80004005},
      {"no memory", u"abc", "AllocateBlock", platform::kNotEnoughMemory, 8},
      {"no memory for another reason", u"abc", "AllocateBlock", 1455, 1455},
      {"the system's conversion", u"abc", "WideToBytes", platform::kInvalidParameter, 0x80004005},
  };
  for (const Case& test : kCases) {
    SCOPED_TRACE(test.name);
    if (test.failing_call != nullptr) {
      machine_.FailCallOf(test.failing_call, 0, test.status);
    }
    CTCPClient client;
    std::string out = "from before";
    EXPECT_EQ(client.ConvertToUtf8(test.text, out), test.error == 0x80004005
                                                        ? Utf8Result::Outcome::kNotConverted
                                                        : Utf8Result::Outcome::kNoMemory);
    EXPECT_EQ(out, "");
    EXPECT_EQ(client.m_strError, u"The utf-8 forward conversion failed.");
    EXPECT_EQ(client.m_dwError, test.error);
  }
}

TEST_F(TcpClient, NothingIsLogged) {
  CTCPClient refused;
  EXPECT_FALSE(refused.ConnectToServer(kHost, kPort));
  std::string out;
  refused.ConvertToUtf8(u"", out);
  const auto client = Connected(Peer::kReset);
  EXPECT_FALSE(client->SendWithTimeout("hello"));
  EXPECT_EQ(test::LogText(), "");
}

}  // namespace
}  // namespace zentpost
