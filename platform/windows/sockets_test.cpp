// How a send is cut and a connection closed, seen at the imports of Winsock, which this program
// supplies itself: there is no network behind them.
#include "platform/sockets.h"

#include <gtest/gtest.h>
#include <winsock2.h>
// In a block of its own: windows.h alone would declare winsock2.h's predecessor.
#include <windows.h>

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

namespace platform {
namespace {

using Calls = std::vector<std::string>;

constexpr SOCKET kSocket = 4711;
constexpr std::size_t kPiece = std::size_t{64} << 10;

// What one call of send does.
struct Answer {
  int error = 0;            // 0: it takes bytes
  int taken = -1;           // -1: all that it is given
  bool makes_room = false;  // sets the event that it waits for
  bool cancels = false;     // another thread cancels meanwhile
};

struct Winsock {
  Calls calls;
  std::deque<Answer> answers;  // of the next calls of send; behind the last, all bytes are taken
  const char* expected = nullptr;  // where the next piece has to begin
  HANDLE network = nullptr;
  CSocket* socket = nullptr;
};
Winsock winsock;

int WSAAPI Send(SOCKET socket, const char* bytes, int size, int flags) {
  EXPECT_EQ(socket, kSocket);
  EXPECT_EQ(flags, 0);
  EXPECT_EQ(static_cast<const void*>(bytes), winsock.expected);
  winsock.calls.push_back("send " + std::to_string(size));
  Answer answer;
  if (!winsock.answers.empty()) {
    answer = winsock.answers.front();
    winsock.answers.pop_front();
  }
  if (answer.cancels) {
    winsock.socket->CancelBlockingCall();
  }
  if (answer.makes_room) {
    SetEvent(winsock.network);
  }
  if (answer.error != 0) {
    WSASetLastError(answer.error);
    return SOCKET_ERROR;
  }
  const int taken = answer.taken < 0 ? size : answer.taken;
  winsock.expected += taken;
  return taken;
}

int WSAAPI Shutdown(SOCKET socket, int how) {
  EXPECT_EQ(socket, kSocket);
  winsock.calls.push_back("shutdown " + std::to_string(how));
  return 0;
}

int WSAAPI CloseSocket(SOCKET socket) {
  EXPECT_EQ(socket, kSocket);
  winsock.calls.push_back("closesocket");
  return 0;
}

SOCKET WSAAPI MakeSocket(int, int, int, void*, unsigned, DWORD) {
  return kSocket;
}

int WSAAPI Connect(SOCKET, const sockaddr*, int) {
  return 0;
}

int WSAAPI SelectEvents(SOCKET, HANDLE network, long events) {
  EXPECT_EQ(events, FD_WRITE | FD_CLOSE);
  winsock.network = network;
  return 0;
}

int WSAAPI TakeEvents(SOCKET, HANDLE network, WSANETWORKEVENTS* events) {
  winsock.calls.push_back("space");
  ResetEvent(network);
  *events = {};
  return 0;
}

}  // namespace
}  // namespace platform

// What the linker would otherwise take from the import library.
#ifdef __i386__
#define IMPORT(name, bytes) __asm__("__imp__" #name "@" #bytes)
#else
#define IMPORT(name, bytes) __asm__("__imp_" #name)
#endif
extern "C" {
extern const decltype(&platform::Send) imported_send IMPORT(send, 16);
extern const decltype(&platform::Shutdown) imported_shutdown IMPORT(shutdown, 8);
extern const decltype(&platform::CloseSocket) imported_close IMPORT(closesocket, 4);
extern const decltype(&platform::MakeSocket) imported_socket IMPORT(WSASocketW, 24);
extern const decltype(&platform::Connect) imported_connect IMPORT(connect, 12);
extern const decltype(&platform::SelectEvents) imported_select IMPORT(WSAEventSelect, 12);
extern const decltype(&platform::TakeEvents) imported_events IMPORT(WSAEnumNetworkEvents, 12);
const decltype(&platform::Send) imported_send = platform::Send;
const decltype(&platform::Shutdown) imported_shutdown = platform::Shutdown;
const decltype(&platform::CloseSocket) imported_close = platform::CloseSocket;
const decltype(&platform::MakeSocket) imported_socket = platform::MakeSocket;
const decltype(&platform::Connect) imported_connect = platform::Connect;
const decltype(&platform::SelectEvents) imported_select = platform::SelectEvents;
const decltype(&platform::TakeEvents) imported_events = platform::TakeEvents;
}

namespace platform {
namespace {

class WindowsSockets : public testing::Test {
 protected:
  WindowsSockets() {
    winsock = {};
    winsock.socket = &socket_;
  }

  void SetUp() override {
    ASSERT_EQ(socket_.Create(), kSuccess);
    ASSERT_EQ(socket_.Connect(u"127.0.0.1", 1), kSuccess);
  }

  // Sends that many bytes; `sent_` is then how many were.
  Status Send(std::size_t size) {
    bytes_.assign(size, 'x');
    winsock.expected = bytes_.data();
    sent_ = 99;
    return socket_.Send(bytes_.data(), size, sent_);
  }

  CSocket socket_;
  std::string bytes_;
  std::size_t sent_ = 0;
};

TEST_F(WindowsSockets, SendInPiecesOfAtMost64KiBAtOnce) {
  struct Case {
    std::size_t size;
    Calls calls;
  };
  const Case cases[] = {
      {0, {"send 0"}},
      {1, {"send 1"}},
      {kPiece, {"send 65536"}},
      {kPiece + 1, {"send 65536", "send 1"}},
      {3 * kPiece - 1, {"send 65536", "send 65536", "send 65535"}},
  };
  for (const Case& test : cases) {
    winsock.calls.clear();
    EXPECT_EQ(Send(test.size), kSuccess);
    EXPECT_EQ(sent_, test.size);
    EXPECT_EQ(winsock.calls, test.calls);
  }
}

TEST_F(WindowsSockets, GoOnBehindWhatWasTakenOfAPiece) {
  winsock.answers = {{.taken = 1000}, {.taken = 1}};
  EXPECT_EQ(Send(kPiece + 2000), kSuccess);
  EXPECT_EQ(sent_, kPiece + 2000);
  EXPECT_EQ(winsock.calls, (Calls{"send 65536", "send 65536", "send 65536", "send 999"}));
}

TEST_F(WindowsSockets, WaitForRoomOnlyWhenThereIsNone) {
  winsock.answers = {{}, {.error = WSAEWOULDBLOCK, .makes_room = true}};
  EXPECT_EQ(Send(2 * kPiece), kSuccess);
  EXPECT_EQ(sent_, 2 * kPiece);
  EXPECT_EQ(winsock.calls, (Calls{"send 65536", "send 65536", "space", "send 65536"}));
}

TEST_F(WindowsSockets, ACancelBetweenTwoPiecesEndsTheSendWhereItMustWait) {
  winsock.answers = {{.cancels = true}, {}, {.error = WSAEWOULDBLOCK, .makes_room = true}};
  EXPECT_EQ(Send(4 * kPiece), kSocketInterrupted);
  EXPECT_EQ(sent_, 2 * kPiece);
  EXPECT_EQ(winsock.calls, (Calls{"send 65536", "send 65536", "send 65536"}));
}

TEST_F(WindowsSockets, ACancelBetweenTwoPiecesDoesNotEndASendThatNeedNotWait) {
  winsock.answers = {{.cancels = true}};
  EXPECT_EQ(Send(2 * kPiece), kSuccess);
  EXPECT_EQ(sent_, 2 * kPiece);
}

TEST_F(WindowsSockets, AFailureInTheMiddleEndsTheSendWithWhatWasTaken) {
  winsock.answers = {{}, {.taken = 10}, {.error = WSAECONNRESET}};
  EXPECT_EQ(Send(3 * kPiece), kSocketReset);
  EXPECT_EQ(sent_, kPiece + 10);
  EXPECT_EQ(winsock.calls, (Calls{"send 65536", "send 65536", "send 65536"}));
}

TEST_F(WindowsSockets, EndTheirSendingBeforeTheyCloseOnceSomethingWasSent) {
  for (const std::size_t size : {std::size_t{0}, std::size_t{1}, 2 * kPiece}) {
    SetUp();
    EXPECT_EQ(Send(size), kSuccess);
    winsock.calls.clear();
    socket_.Close();
    EXPECT_EQ(winsock.calls, (Calls{"shutdown 1", "closesocket"})) << size;
    socket_.Close();
    EXPECT_EQ(winsock.calls.size(), 2u);
  }
}

TEST_F(WindowsSockets, JustCloseWhenNothingWasSent) {
  socket_.Close();
  EXPECT_EQ(winsock.calls, Calls{"closesocket"});
}

TEST_F(WindowsSockets, JustCloseWhenTheLastSendHasFailed) {
  EXPECT_EQ(Send(1), kSuccess);
  winsock.answers = {{}, {.error = WSAECONNABORTED}};
  EXPECT_EQ(Send(2 * kPiece), static_cast<Status>(WSAECONNABORTED));
  winsock.calls.clear();
  socket_.Close();
  EXPECT_EQ(winsock.calls, Calls{"closesocket"});
}

}  // namespace
}  // namespace platform
