#include "platform/sockets.h"

#include <string>

#include "platform/system.h"
#include "platform/worker.h"
#include "testing/platform_contract/contract_test.h"

namespace platform::contract {
namespace {

using namespace std::string_literals;

constexpr std::uint16_t kVersion = 0x0202;
constexpr Status kNotASocket = 10038;  // WSAENOTSOCK

class SocketsNotStartedContract : public ContractTest {};

TEST_F(SocketsNotStartedContract, NoSocketIsMadeBeforeTheStartNorBehindTheEnd) {
  CSocket socket;
  EXPECT_EQ(socket.Create(), kSocketsNotStarted);
  ASSERT_EQ(StartSockets(kVersion), kSuccess);
  ASSERT_EQ(StartSockets(kVersion), kSuccess);
  for (int users = 2; users > 0; --users) {
    EXPECT_EQ(socket.Create(), kSuccess);
    socket.Close();
    EndSockets();
  }
  EXPECT_EQ(socket.Create(), kSocketsNotStarted);
}

class SocketsContract : public ContractTest {
 protected:
  SocketsContract() { EXPECT_EQ(StartSockets(kVersion), kSuccess); }
  ~SocketsContract() override { EndSockets(); }

  void Connect(Peer peer) {
    if (peer_ != peer) {
      peer_ = peer;
      port_ = Listen(peer);
    }
    ASSERT_EQ(socket_.Create(), kSuccess);
    ASSERT_EQ(socket_.Connect(u"127.0.0.1", port_), kSuccess);
  }

  // Gives the outcome; the number of bytes is in sent_.
  Status Send(const std::string& bytes) {
    sent_ = 99999;
    return socket_.Send(bytes.data(), bytes.size(), sent_);
  }

  void ExpectSends(const std::string& bytes) {
    EXPECT_EQ(Send(bytes), kSuccess);
    EXPECT_EQ(sent_, bytes.size());
  }

  void ExpectReceived(const std::string& bytes) { EXPECT_TRUE(Received(port_) == bytes); }

  std::optional<Peer> peer_;
  std::uint16_t port_ = 0;
  CSocket socket_;
  std::size_t sent_ = 0;
};

// More than any buffer takes.
const std::string& Much() {
  static const std::string much = Pattern(std::size_t{64} << 20);
  return much;
}

TEST_F(SocketsContract, DeliversWhatIsSent) {
  Connect(Peer::kReads);
  ExpectSends("one");
  ExpectSends("");
  ExpectSends("\0two\r\n"s);
  socket_.Close();
  ExpectReceived("one\0two\r\n"s);
}

TEST_F(SocketsContract, DeliversMuchToASlowReader) {
  Connect(Peer::kReadsSlow);
  ExpectSends(Much());
  // What the system has taken, but the reader not yet, is delivered behind this.
  socket_.Close();
  ExpectReceived(Much());
}

TEST_F(SocketsContract, EndingTheOwnerClosesTheConnection) {
  const std::uint16_t port = Listen(Peer::kReads);
  {
    CSocket socket;
    ASSERT_EQ(socket.Create(), kSuccess);
    ASSERT_EQ(socket.Connect(u"localhost", port), kSuccess);
    std::size_t sent = 0;
    EXPECT_EQ(socket.Send("x", 1, sent), kSuccess);
  }
  EXPECT_EQ(Received(port), "x");
}

TEST_F(SocketsContract, CreatingAgainClosesTheConnection) {
  Connect(Peer::kReads);
  EXPECT_EQ(socket_.Create(), kSuccess);
  ExpectReceived("");
}

TEST_F(SocketsContract, APortWithoutListenerRefusesAndTheSocketStaysOpen) {
  ASSERT_EQ(socket_.Create(), kSuccess);
  EXPECT_EQ(socket_.Connect(u"127.0.0.1", PortWithoutListener()), kSocketRefused);
  const Status status = Send("x");
  EXPECT_NE(status, kSuccess);
  EXPECT_NE(status, kNotASocket);
  EXPECT_EQ(sent_, 0U);
}

TEST_F(SocketsContract, SendingNeedsAConnection) {
  ASSERT_EQ(socket_.Create(), kSuccess);
  for (const char* const bytes : {"", "x"}) {
    // Windows says that there is no connection, Wine that there is none any more.
    EXPECT_NE(Send(bytes), kSuccess);
    EXPECT_EQ(sent_, 0U);
  }
}

TEST_F(SocketsContract, EverythingNeedsASocket) {
  EXPECT_EQ(socket_.Connect(u"127.0.0.1", 1), kNotASocket);
  EXPECT_EQ(Send("x"), kNotASocket);
  EXPECT_EQ(sent_, 0U);
  socket_.CancelBlockingCall();
  socket_.Close();
}

TEST_F(SocketsContract, ClosingIsPossibleTwice) {
  Connect(Peer::kReads);
  socket_.Close();
  socket_.Close();
  EXPECT_EQ(Send("x"), kNotASocket);
  ExpectReceived("");
}

TEST_F(SocketsContract, AnotherThreadEndsASendThatWaits) {
  // Once at once, and once when the other thread has had the time to fill the buffers; nothing
  // depends on it.
  const WorkerProcedure cancels[] = {[](void* socket) -> std::uint32_t {
                                       SleepMilliseconds(300);
                                       static_cast<CSocket*>(socket)->CancelBlockingCall();
                                       return 0;
                                     },
                                     [](void* socket) -> std::uint32_t {
                                       static_cast<CSocket*>(socket)->CancelBlockingCall();
                                       return 0;
                                     }};
  for (const WorkerProcedure cancel : cancels) {
    peer_.reset();  // one that is free
    Connect(Peer::kNeverReads);
    Worker worker;
    ASSERT_EQ(StartWorker(cancel, &socket_, worker), kSuccess);
    EXPECT_EQ(Send(Much()), kSocketInterrupted);
    EXPECT_GT(sent_, 0U);
    EXPECT_LT(sent_, Much().size());
    EXPECT_EQ(WaitForWorker(worker), kSuccess);
  }
}

TEST_F(SocketsContract, ACancelIsRememberedButStopsOnlyWhatMustWait) {
  Connect(Peer::kNeverReads);
  socket_.CancelBlockingCall();
  ExpectSends("small");
  for (int attempt = 0; attempt < 2; ++attempt) {
    EXPECT_EQ(Send(Much()), kSocketInterrupted);
    EXPECT_LT(sent_, Much().size());
  }
}

TEST_F(SocketsContract, ACancelIsForgottenWithTheSocket) {
  ASSERT_EQ(socket_.Create(), kSuccess);
  socket_.CancelBlockingCall();
  Connect(Peer::kReads);
  ExpectSends(Much());
  socket_.Close();
  ExpectReceived(Much());
}

TEST_F(SocketsContract, AConnectionThatIsResetEndsTheSend) {
  // At once, and after the peer has ended sending.
  for (int connection = 0; connection < 2; ++connection) {
    SCOPED_TRACE(connection);
    Connect(Peer::kResets);
    EXPECT_EQ(Send(Much()), kSocketReset);
    EXPECT_LT(sent_, Much().size());
    EXPECT_NE(Send("x"), kSuccess);
    EXPECT_EQ(sent_, 0U);
  }
}

}  // namespace
}  // namespace platform::contract
