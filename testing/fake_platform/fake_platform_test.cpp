#include "testing/fake_platform/fake_platform.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/files.h"
#include "platform/memory.h"
#include "platform/registry.h"
#include "platform/sockets.h"
#include "platform/system.h"
#include "platform/text_codec.h"
#include "platform/worker.h"
#include "testing/fake_platform/fixture.h"

namespace platform {
namespace {

using fake::FaultMode;
using fake::Peer;

using Texts = std::vector<std::string>;

constexpr Hive kUser = Hive::kCurrentUser;
constexpr char16_t kKey[] = u"Software\\Sollvex";

class Machine : public fake::MachineTest {
 protected:
  static RegistryKey OpenedKey(const char16_t* path = kKey) {
    RegistryKey key;
    EXPECT_EQ(OpenKey(kUser, path, kKeyRead, key), kSuccess);
    return key;
  }

  static File OpenedFile(const std::u16string& path, OpenMode mode = OpenMode::kRead) {
    File file;
    EXPECT_EQ(OpenFileAt(path, mode, file), kSuccess);
    return file;
  }

  void ConnectTo(CSocket& socket, std::uint16_t port) {
    ASSERT_EQ(StartSockets(0x0202), kSuccess);
    ASSERT_EQ(socket.Create(), kSuccess);
    ASSERT_EQ(socket.Connect(u"127.0.0.1", port), kSuccess);
  }
};

std::uint32_t DoNothing(void*) {
  return 0;
}

std::string Stored(const RegistryKey& key, const char16_t* name, std::uint32_t expected_type) {
  char data[64] = {};
  std::uint32_t size = sizeof(data);
  std::uint32_t type = 0;
  EXPECT_EQ(QueryValue(key, name, &type, data, size), kSuccess);
  EXPECT_EQ(type, expected_type);
  return std::string(data, size);
}

std::string ReadAll(const File& file) {
  std::string bytes(100, '\0');
  std::size_t count = 0;
  EXPECT_EQ(ReadBytes(file, bytes.data(), bytes.size(), count), kSuccess);
  bytes.resize(count);
  return bytes;
}

TEST_F(Machine, ResetLeavesNothingOfWhatWasThere) {
  machine_.SetDword(kUser, kKey, u"Port", 5000);
  machine_.SetFile(u"C:\\Temp\\a.txt", "a");
  machine_.SetTemporaryFolder(u"D:\\");
  machine_.SetLocalApplicationData(-1, u"");
  machine_.SetSystemMessage(5, u"denied");
  machine_.SetLocalTime({1999, 1, 2, 3, 4, 5});
  machine_.Listen(5000);
  machine_.FailCall(3, kDiskFull);
  CSocket socket;
  ConnectTo(socket, 5000);
  WriteDebugOutput(u"text");
  SleepMilliseconds(1);

  machine_.Reset();

  EXPECT_EQ(machine_.Calls(), Texts());
  EXPECT_EQ(machine_.FallibleCalls(), 0u);
  EXPECT_EQ(machine_.OpenHandles(), 0u);
  EXPECT_EQ(machine_.DebugOutput(), std::vector<std::u16string>());
  EXPECT_EQ(machine_.SleepCount(), 0u);
  EXPECT_EQ(machine_.Connections(), Texts());
  EXPECT_EQ(machine_.FilePaths(), std::vector<std::u16string>());
  RegistryKey key;
  EXPECT_EQ(OpenKey(kUser, kKey, kKeyRead, key), kFileNotFound);
  char16_t folder[20] = {};
  std::uint32_t length = 0;
  EXPECT_EQ(TemporaryFolder(20, folder, length), kSuccess);
  EXPECT_EQ(std::u16string_view(folder, length), u"C:\\Temp\\");
  std::u16string data;
  EXPECT_EQ(LocalApplicationDataFolder(data), 0);
  EXPECT_EQ(data, u"C:\\AppData");
  EXPECT_EQ(SystemMessage(5, data), kMessageNotFound);
  EXPECT_EQ(SecondsSinceEpoch(), 1795219087);
  EXPECT_EQ(socket.Create(), kSocketsNotStarted);
}

TEST_F(Machine, HandleFromBeforeResetIsDead) {
  machine_.AddKey(kUser, kKey);
  machine_.SetFile(u"a.txt", "a");
  RegistryKey old_key = OpenedKey();
  const File old_file = OpenedFile(u"a.txt");
  HeapBlock old_block;
  ASSERT_EQ(AllocateBlock(1, old_block), kSuccess);

  machine_.Reset();
  machine_.AddKey(kUser, kKey);
  const RegistryKey new_key = OpenedKey();

  std::uint32_t size = 0;
  EXPECT_EQ(QueryValue(old_key, u"Port", nullptr, nullptr, size), kInvalidHandle);
  std::size_t count = 1;
  EXPECT_EQ(ReadBytes(old_file, nullptr, 0, count), kInvalidHandle);
  EXPECT_EQ(CloseKey(old_key), kInvalidHandle);
  old_block.Reset();
  EXPECT_EQ(machine_.OpenHandles(), 1u);
}

TEST_F(Machine, FixtureReportsWhatATestLeavesOpen) {
  class Leaver : public fake::MachineTest {
   public:
    void TestBody() override {}
    using MachineTest::TearDown;
  };
  Leaver leaver;
  machine_.AddKey(kUser, kKey);
  const RegistryKey key = OpenedKey();
  EXPECT_NONFATAL_FAILURE(leaver.TearDown(), "handles left open");
}

TEST_F(Machine, EachKindOfHandleCountsUntilItIsClosed) {
  machine_.AddKey(kUser, kKey);
  machine_.SetFile(u"a.txt", "a");
  ASSERT_EQ(StartSockets(0x0202), kSuccess);
  RegistryKey key;
  File file;
  HeapBlock block;
  Worker worker;
  CSocket socket;
  const std::function<void()> opens[] = {
      [&] { key = OpenedKey(); },
      [&] { file = OpenedFile(u"a.txt"); },
      [&] { ASSERT_EQ(AllocateBlock(10, block), kSuccess); },
      [&] { ASSERT_EQ(StartWorker(DoNothing, nullptr, worker), kSuccess); },
      [&] { ASSERT_EQ(socket.Create(), kSuccess); },
  };
  const std::function<void()> closes[] = {[&] { key.Reset(); }, [&] { file.Reset(); },
                                          [&] { block.Reset(); }, [&] { worker.Reset(); },
                                          [&] { socket.Close(); }};
  std::size_t open = 0;
  for (const auto& one : opens) {
    one();
    EXPECT_EQ(machine_.OpenHandles(), ++open);
  }
  for (const auto& one : closes) {
    one();
    EXPECT_EQ(machine_.OpenHandles(), --open);
  }
}

TEST_F(Machine, ValuesAreStoredAsBytes) {
  machine_.SetString(kUser, kKey, u"Text", u"A\u20AC");
  machine_.SetString(kUser, kKey, u"Expand", u"", kRegExpandSz);
  machine_.SetDword(kUser, kKey, u"Number", 0x01020384);
  machine_.SetValue(kUser, kKey, u"Odd", kRegSz, "abc");
  machine_.SetString(kUser, kKey, u"", u"d");
  const RegistryKey key = OpenedKey();
  EXPECT_EQ(Stored(key, u"Text", kRegSz), std::string("A\0\xAC\x20\0\0", 6));
  EXPECT_EQ(Stored(key, u"Expand", kRegExpandSz), std::string(2, '\0'));
  EXPECT_EQ(Stored(key, u"Number", kRegDword), "\x84\x03\x02\x01");
  EXPECT_EQ(Stored(key, u"Odd", kRegSz), "abc");
  EXPECT_EQ(Stored(key, nullptr, kRegSz), std::string("d\0\0\0", 4));
}

TEST_F(Machine, FileIsTheSameUnderEverySpellingOfItsPath) {
  machine_.SetFile(u"C:\\Data\\a.txt", "bytes");
  machine_.SetFile(u"b.txt", "others");
  for (const char16_t* const path :
       {u"C:/Data//a.txt", u"C:\\Data\\.\\a.txt", u"C:\\Data\\..\\Data\\a.txt",
        u"C:\\..\\Data/../Data/./a.txt", u"C:\\None\\..\\Data\\a.txt"}) {
    EXPECT_EQ(machine_.FileBytes(path), "bytes");
  }
  EXPECT_EQ(ReadAll(OpenedFile(u".\\b.txt")), "others");
  EXPECT_EQ(ReadAll(OpenedFile(u"C\\..\\b.txt")), "others");
  EXPECT_EQ(machine_.FileBytes(u"...\\b.txt"), std::nullopt);
  EXPECT_EQ(machine_.FileBytes(u"C:\\Data\\A.txt"), std::nullopt);
}

TEST_F(Machine, PathThatEndsWithASeparatorMeansAFolder) {
  machine_.SetFile(u"C:\\Data\\a.txt", "a");
  File file;
  EXPECT_EQ(OpenFileAt(u"C:\\Data\\a.txt\\", OpenMode::kRead, file), kPathNotFound);
  EXPECT_EQ(OpenFileAt(u"C:\\Data\\b.txt/", OpenMode::kRewrite, file), kPathNotFound);
  EXPECT_EQ(OpenFileAt(u"C:\\Data\\", OpenMode::kRead, file), kAccessDenied);
  EXPECT_EQ(machine_.FilePaths(), std::vector<std::u16string>{u"C:\\Data\\a.txt"});
}

TEST_F(Machine, OpenFileCannotBeRemoved) {
  machine_.SetFile(u"a.txt", "a");
  machine_.SetFile(u"b.txt", "b");
  File file = OpenedFile(u"a.txt");
  EXPECT_EQ(RemoveFile(u"a.txt"), kSharingViolation);
  EXPECT_EQ(RemoveFile(u"b.txt"), kSuccess);
  file.Reset();
  EXPECT_EQ(RemoveFile(u"a.txt"), kSuccess);
}

TEST_F(Machine, ReportedSizeMayDifferFromTheBytesThatAreThere) {
  machine_.SetFile(u"a.txt", "abc");
  machine_.SetReportedSize(u"a.txt", 5'000'000'000);
  const File file = OpenedFile(u"a.txt");
  std::uint64_t size = 0;
  EXPECT_EQ(QueryFileSize(file, size), kSuccess);
  EXPECT_EQ(size, 5'000'000'000u);
  EXPECT_EQ(ReadAll(file), "abc");
}

TEST_F(Machine, RemoveTakesAWholeFolderAway) {
  machine_.SetFile(u"C:\\Data\\Sub\\a.txt", "a");
  machine_.SetFile(u"C:\\Data2\\b.txt", "b");
  machine_.Remove(u"C:\\Data");
  EXPECT_EQ(machine_.FilePaths(), std::vector<std::u16string>{u"C:\\Data2\\b.txt"});
  EXPECT_EQ(AppendToFile(u"C:\\Data\\Sub\\a.txt", "a", 1), kPathNotFound);
  machine_.Remove(u"C:\\Data2\\b.txt");
  EXPECT_EQ(RemoveFile(u"C:\\Data2\\b.txt"), kFileNotFound);
}

TEST_F(Machine, ClockStandsAtTheTimeThatWasSet) {
  const auto shown = [] {
    LocalTime local{};
    EXPECT_EQ(BreakIntoLocalTime(SecondsSinceEpoch(), local), kSuccess);
    return std::array{local.year, local.month, local.day, local.hour, local.minute, local.second};
  };
  EXPECT_EQ(shown(), (std::array{2026, 11, 20, 23, 58, 7}));
  machine_.SetLocalTime({2028, 2, 29, 0, 0, 59});
  EXPECT_EQ(shown(), (std::array{2028, 2, 29, 0, 0, 59}));
}

TEST_F(Machine, ClockTellsTheYearsThatFileTimesKnow) {
  struct Case {
    const char* name;
    std::int64_t seconds;
    Status status;
    int year;
  };
  for (const Case& test_case :
       {Case{"before the first", -11644473601, kInvalidParameter, 0},
        Case{"first", -11644473600, kSuccess, 1601}, Case{"last before 1970", -1, kSuccess, 1969},
        Case{"last", 910670515199, kSuccess, 30827},
        Case{"after the last", 910670515200, kInvalidParameter, 0}}) {
    SCOPED_TRACE(test_case.name);
    LocalTime local{};
    EXPECT_EQ(BreakIntoLocalTime(test_case.seconds, local), test_case.status);
    EXPECT_EQ(local.year, test_case.year);
  }
}

TEST_F(Machine, PortRefusesAfterItsLastConnection) {
  machine_.Listen(5000, Peer::kAccept, 1);
  CSocket first;
  ConnectTo(first, 5000);
  first.Close();
  CSocket second;
  ASSERT_EQ(second.Create(), kSuccess);
  EXPECT_EQ(second.Connect(u"127.0.0.1", 5000), kSocketRefused);
  machine_.Listen(5000);
  machine_.StopListening(5000);
  EXPECT_EQ(second.Connect(u"127.0.0.1", 5000), kSocketRefused);
  EXPECT_EQ(second.Connect(u"elsewhere", 5000), kHostNotFound);
}

TEST_F(Machine, ConnectionsKeepTheirBytesInTheOrderOfConnecting) {
  machine_.Listen(5000);
  machine_.Listen(5001);
  CSocket probe;
  ConnectTo(probe, 5000);
  CSocket later;
  ConnectTo(later, 5001);
  CSocket last;
  ConnectTo(last, 5000);
  std::size_t sent = 0;
  EXPECT_EQ(last.Send("ab", 2, sent), kSuccess);
  EXPECT_EQ(later.Send("xyz", 3, sent), kSuccess);
  EXPECT_EQ(last.Send("cd", 2, sent), kSuccess);
  EXPECT_EQ(machine_.Connections(), (Texts{"", "xyz", "abcd"}));
}

TEST_F(Machine, SendToANeverReadingPeerWaitsForItsCancellation) {
  machine_.Listen(5000, Peer::kNeverRead);
  machine_.SetSendWindow(3);
  CSocket socket;
  ConnectTo(socket, 5000);
  std::size_t sent = 0;
  ASSERT_EQ(socket.Send("ab", 2, sent), kSuccess);
  Worker worker;
  ASSERT_EQ(StartWorker(
                [](void* parameter) -> std::uint32_t {
                  SleepMilliseconds(1);
                  static_cast<CSocket*>(parameter)->CancelBlockingCall();
                  return 0;
                },
                &socket, worker),
            kSuccess);
  EXPECT_EQ(socket.Send("cdef", 4, sent), kSocketInterrupted);
  EXPECT_EQ(sent, 1u);
  EXPECT_EQ(WaitForWorker(worker), kSuccess);
  EXPECT_EQ(machine_.Connections(), Texts{"abc"});
  EXPECT_EQ(machine_.SleepCount(), 1u);
  EXPECT_EQ(machine_.WorkerCalls(),
            (Texts{"worker: SleepMilliseconds(1)", "worker: CancelBlockingCall()"}));
  EXPECT_EQ(machine_.CallsOf("CancelBlockingCall"), Texts());
}

TEST_F(Machine, ResettingPeerTakesHalf) {
  machine_.Listen(5000, Peer::kReset);
  CSocket socket;
  ConnectTo(socket, 5000);
  std::size_t sent = 0;
  EXPECT_EQ(socket.Send("abcde", 5, sent), kSocketReset);
  EXPECT_EQ(sent, 2u);
  EXPECT_EQ(machine_.Connections(), Texts{"ab"});
}

// A call of the seam with the text that it is recorded as.
struct SeamCall {
  std::string text;
  std::function<Status()> call;
};

// What the calls are made with, and what they give.
struct Used {
  RegistryKey key;
  RegistryKey opened_key;
  File input;
  File output;
  File opened_file;
  HeapBlock block;
  CSocket socket;
  Worker worker;
  Worker started;
  char bytes[8] = {};
  std::uint32_t capacity = sizeof(bytes);
  std::size_t count = 0;
  std::uint64_t size = 0;
  std::int32_t written = 0;
  char16_t folder[32] = {};
  std::uint32_t length = 0;
  std::u16string text;
  FileIdentity identity;
  LocalTime local{};
};

// Furnished so that every call below works.
class EverySeamCall : public Machine {
 protected:
  void SetUp() override {
    machine_.SetDword(kUser, kKey, u"Port", 5000);
    machine_.AddKey(kUser, u"Software\\Sollvex\\Sub");
    machine_.SetFile(u"C:\\Temp\\\u00E4.txt", "a");
    machine_.SetSystemMessage(5, u"denied");
    machine_.Listen(5000);
    used_.emplace();
    used_->key = OpenedKey();
    used_->input = OpenedFile(u"C:\\Temp\\\u00E4.txt");
    used_->output = OpenedFile(u"out.txt", OpenMode::kRewrite);
    ASSERT_EQ(StartWorker(DoNothing, nullptr, used_->worker), kSuccess);
    machine_.ClearCalls();
  }

  void TearDown() override {
    used_.reset();
    Machine::TearDown();
  }

  // The calls whose result tells of failure, in an order in which they work.
  std::vector<SeamCall> FallibleCalls() {
    Used& u = *used_;
    return {
        {"OpenKey(HKCU, Software\\Sollvex, 0x20019)",
         [&u] { return OpenKey(kUser, kKey, kKeyRead, u.opened_key); }},
        {"OpenSubKey(HKCU\\Software\\Sollvex, Sub, 0x1)",
         [&u] { return OpenSubKey(u.key, u"Sub", kKeyQueryValue, u.opened_key); }},
        {"QueryValue(Port, 8)",
         [&u] { return QueryValue(u.key, u"Port", nullptr, u.bytes, u.capacity); }},
        {"CloseKey(HKCU\\Software\\Sollvex)", [&u] { return CloseKey(u.key); }},
        {"OpenFileAt(C:\\Temp\\\u00E4.txt, kRead)",
         [&u] { return OpenFileAt(u"C:\\Temp\\\u00E4.txt", OpenMode::kRead, u.opened_file); }},
        {"OpenFileAt(b.txt, kRewrite)",
         [&u] {
           const Status status = OpenFileAt(u"b.txt", OpenMode::kRewrite, u.opened_file);
           u.opened_file.Reset();
           return status;
         }},
        {"QueryFileSize(C:\\Temp\\\u00E4.txt)", [&u] { return QueryFileSize(u.input, u.size); }},
        {"ReadBytes(C:\\Temp\\\u00E4.txt, 8)",
         [&u] { return ReadBytes(u.input, u.bytes, sizeof(u.bytes), u.count); }},
        {"WriteBytes(out.txt, 1)", [&u] { return WriteBytes(u.output, "x", 1); }},
        {"AppendToFile(b.txt, 1)", [] { return AppendToFile(u"b.txt", "x", 1); }},
        {"RemoveFile(b.txt)", [] { return RemoveFile(u"b.txt"); }},
        {"IdentifyFile(C:\\Temp\\\u00E4.txt)",
         [&u] { return IdentifyFile(u"C:\\Temp\\\u00E4.txt", u.identity); }},
        {"TemporaryFolder(32)", [&u] { return TemporaryFolder(32, u.folder, u.length); }},
        {"LocalApplicationDataFolder()",
         [&u] { return static_cast<Status>(LocalApplicationDataFolder(u.text)); }},
        {"AllocateBlock(40)", [&u] { return AllocateBlock(40, u.block); }},
        {"InitializeCommonControls(0xff)",
         [] { return InitializeCommonControls(0xff) ? kSuccess : kDiskFull; }},
        {"SystemMessage(0x5)", [&u] { return SystemMessage(5, u.text); }},
        {"BreakIntoLocalTime(0)", [&u] { return BreakIntoLocalTime(0, u.local); }},
        {"WideToBytes(65001, 1, 8)",
         [&u] { return WideToBytes(CodePage::kUtf8, u"a", 1, u.bytes, 8, u.written); }},
        {"BytesToWide(3, -1, 0)",
         [&u] { return BytesToWide(CodePage::kThreadAnsi, "a", -1, nullptr, 0, u.written); }},
        {"StartWorker()", [&u] { return StartWorker(DoNothing, nullptr, u.started); }},
        {"WaitForWorker()", [&u] { return WaitForWorker(u.worker); }},
        {"StartSockets(0x202)", [] { return StartSockets(0x0202); }},
        {"Create()", [&u] { return u.socket.Create(); }},
        {"Connect(127.0.0.1, 5000)", [&u] { return u.socket.Connect(u"127.0.0.1", 5000); }},
        {"Send(1)", [&u] { return u.socket.Send("x", 1, u.count); }},
    };
  }

  std::optional<Used> used_;
};

TEST_F(EverySeamCall, IsRecordedAndSucceeds) {
  Texts expected;
  for (const SeamCall& call : FallibleCalls()) {
    SCOPED_TRACE(call.text);
    EXPECT_EQ(call.call(), kSuccess);
    expected.push_back(call.text);
    EXPECT_EQ(machine_.Calls(), expected);
    EXPECT_EQ(machine_.FallibleCalls(), expected.size());
  }
}

TEST_F(EverySeamCall, ThatCannotFailIsRecordedAndNotCounted) {
  WriteDebugOutput(u"a\u20AC!");
  static_cast<void>(SecondsSinceEpoch());
  SleepMilliseconds(7);
  used_->socket.CancelBlockingCall();
  used_->socket.Close();
  EndSockets();
  EXPECT_EQ(machine_.Calls(),
            (Texts{"WriteDebugOutput(a\xE2\x82\xAC!)", "SecondsSinceEpoch()",
                   "SleepMilliseconds(7)", "CancelBlockingCall()", "Close()", "EndSockets()"}));
  EXPECT_EQ(machine_.FallibleCalls(), 0u);
}

TEST_F(EverySeamCall, FailsWhenItIsToldTo) {
  for (const SeamCall& call : FallibleCalls()) {
    SCOPED_TRACE(call.text);
    machine_.FailCall(0, kDiskFull);
    EXPECT_FALSE(machine_.FaultTaken());
    const Status status = call.call();
    // HRESULT_FROM_WIN32(ERROR_DISK_FULL) from the one function that gives an HRESULT.
    EXPECT_EQ(status, call.text.starts_with("LocalApplicationData") ? 0x80070070u : kDiskFull);
    EXPECT_TRUE(machine_.FaultTaken());
    EXPECT_EQ(machine_.FaultedCall(), call.text);
  }
}

TEST_F(EverySeamCall, HasNoEffectWhenItFails) {
  machine_.FailCall(0, kDiskFull, FaultMode::kFromThere);
  const std::size_t open_before = machine_.OpenHandles();
  for (const SeamCall& call : FallibleCalls()) {
    EXPECT_NE(call.call(), kSuccess) << call.text;
  }
  // Closing the key is the exception.
  EXPECT_FALSE(used_->key);
  EXPECT_EQ(machine_.OpenHandles(), open_before - 1);
  EXPECT_EQ(machine_.FilePaths(),
            (std::vector<std::u16string>{u"C:\\Temp\\\u00E4.txt", u"out.txt"}));
  EXPECT_EQ(machine_.FileBytes(u"out.txt"), "");
  EXPECT_EQ(machine_.Connections(), Texts());
  machine_.ClearFault();
  EXPECT_EQ(used_->socket.Create(), kSocketsNotStarted);
}

TEST_F(Machine, BlocksAreRefusedWhenTheHookSaysSo) {
  static int asked = 0;
  asked = 0;
  machine_.SetBlockHook([] { return ++asked == 2; });
  machine_.Reset();
  HeapBlock first;
  HeapBlock second;
  HeapBlock third;
  EXPECT_EQ(AllocateBlock(1, first), kSuccess);
  EXPECT_EQ(AllocateBlock(2, second), kNotEnoughMemory);
  EXPECT_FALSE(second);
  EXPECT_EQ(AllocateBlock(3, third), kSuccess);
  EXPECT_EQ(asked, 3);
  EXPECT_EQ(machine_.CallsOf("AllocateBlock"),
            (Texts{"AllocateBlock(1)", "AllocateBlock(2)", "AllocateBlock(3)"}));
  machine_.SetBlockHook(nullptr);
  EXPECT_EQ(AllocateBlock(2, second), kSuccess);
  EXPECT_EQ(asked, 3);
}

TEST_F(Machine, FaultStrikesOnceOrFromThereOn) {
  struct Case {
    const char* name;
    FaultMode mode;
    std::vector<bool> results;
  };
  for (const Case& test_case :
       {Case{"once", FaultMode::kOnce, {true, false, true, true}},
        Case{"from there", FaultMode::kFromThere, {true, false, false, false}}}) {
    SCOPED_TRACE(test_case.name);
    machine_.FailCall(1, kGeneralFailure, test_case.mode);
    std::vector<bool> results;
    for (std::uint32_t call = 0; call < 4; ++call) {
      results.push_back(InitializeCommonControls(call));
    }
    EXPECT_EQ(results, test_case.results);
    EXPECT_EQ(machine_.FaultedCall(), "InitializeCommonControls(0x1)");
    machine_.ClearFault();
    EXPECT_TRUE(InitializeCommonControls(9));
    EXPECT_TRUE(machine_.FaultTaken());
  }
}

TEST_F(Machine, FaultCanBeMeantForOneFunction) {
  machine_.FailCallOf("AppendToFile", 1, kDiskFull);
  EXPECT_EQ(AppendToFile(u"a.txt", "a", 1), kSuccess);
  EXPECT_TRUE(InitializeCommonControls(0));
  EXPECT_EQ(AppendToFile(u"a.txt", "b", 1), kDiskFull);
  EXPECT_EQ(AppendToFile(u"a.txt", "c", 1), kSuccess);
  EXPECT_EQ(machine_.FileBytes(u"a.txt"), "ac");
  EXPECT_EQ(machine_.FaultedCall(), "AppendToFile(a.txt, 1)");
}

TEST_F(Machine, HresultFaultIsGivenAsItIs) {
  machine_.FailCall(0, 0x80004005);
  std::u16string folder = u"before";
  EXPECT_EQ(static_cast<std::uint32_t>(LocalApplicationDataFolder(folder)), 0x80004005u);
  EXPECT_EQ(folder, u"");
}

TEST_F(Machine, FaultMayLeaveWorkHalfDone) {
  machine_.SetBytesBeforeFault(2);
  machine_.SetFile(u"in.txt", "abcd");
  machine_.Listen(5000);
  CSocket socket;
  ConnectTo(socket, 5000);
  const File in = OpenedFile(u"in.txt");
  const File out = OpenedFile(u"out.txt", OpenMode::kRewrite);

  machine_.FailCall(0, kGeneralFailure, FaultMode::kFromThere);
  char buffer[4] = {};
  std::size_t count = 0;
  EXPECT_EQ(ReadBytes(in, buffer, sizeof(buffer), count), kGeneralFailure);
  EXPECT_EQ(std::string_view(buffer, count), "ab");
  EXPECT_EQ(WriteBytes(out, "wxyz", 4), kGeneralFailure);
  EXPECT_EQ(machine_.FileBytes(u"out.txt"), "wx");
  EXPECT_EQ(socket.Send("1234", 4, count), kGeneralFailure);
  EXPECT_EQ(count, 2u);
  EXPECT_EQ(machine_.Connections(), Texts{"12"});
}

TEST_F(Machine, WorkersCallsAreNeitherCountedNorMadeToFail) {
  struct Outcome {
    bool worked = false;
  } outcome;
  machine_.FailCall(1, kGeneralFailure);
  Worker worker;
  ASSERT_EQ(StartWorker(
                [](void* parameter) -> std::uint32_t {
                  static_cast<Outcome*>(parameter)->worked = InitializeCommonControls(1);
                  return 0;
                },
                &outcome, worker),
            kSuccess);
  // The wait is the call that fails; it has waited all the same.
  EXPECT_EQ(WaitForWorker(worker), kGeneralFailure);
  EXPECT_TRUE(outcome.worked);
  EXPECT_EQ(machine_.WorkerCalls(), Texts{"worker: InitializeCommonControls(0x1)"});
  EXPECT_EQ(machine_.Calls(), (Texts{"StartWorker()", "WaitForWorker()"}));
  EXPECT_EQ(machine_.FallibleCalls(), 2u);
}

TEST_F(Machine, ClearCallsCountsFromZeroAgain) {
  EXPECT_TRUE(InitializeCommonControls(1));
  machine_.ClearCalls();
  EXPECT_EQ(machine_.Calls(), Texts());
  EXPECT_EQ(machine_.FallibleCalls(), 0u);
  EXPECT_TRUE(InitializeCommonControls(2));
  EXPECT_EQ(machine_.Calls(), Texts{"InitializeCommonControls(0x2)"});
}

// Of a library of a test's own.
TEST_F(Machine, ALibrarysCallsStandAmongTheMachinesAndFailWithThem) {
  static int depth = 0;
  depth = 0;
  machine_.SetCallHook([](bool begins) { depth += begins ? 1 : -1; });
  machine_.FailCallOf("Take", 1, kAccessDenied);
  SleepMilliseconds(1);
  {
    fake::LibraryCall call;
    EXPECT_EQ(depth, 1);
    call.Record("Free(1)");
    EXPECT_EQ(call.RecordFallible("Take(2)"), kSuccess);
    EXPECT_EQ(call.RecordFallible("Take(3)"), kAccessDenied);
    EXPECT_EQ(depth, 1);
  }
  EXPECT_EQ(depth, 0);
  machine_.SetCallHook(nullptr);
  SleepMilliseconds(2);
  EXPECT_EQ(machine_.Calls(), (Texts{"SleepMilliseconds(1)", "Free(1)", "Take(2)", "Take(3)",
                                     "SleepMilliseconds(2)"}));
  EXPECT_EQ(machine_.FallibleCalls(), 2u);
  EXPECT_EQ(machine_.FaultedCall(), "Take(3)");
}

TEST_F(Machine, WithoutRecordingCallsAreStillCountedAndMadeToFail) {
  machine_.SetRecording(false);
  machine_.FailCallOf("AppendToFile", 1, kDiskFull);
  EXPECT_EQ(AppendToFile(u"a.txt", "a", 1), kSuccess);
  EXPECT_EQ(AppendToFile(u"a.txt", "b", 1), kDiskFull);
  WriteDebugOutput(u"text");
  machine_.SetRecording(true);
  EXPECT_EQ(machine_.FallibleCalls(), 2u);
  EXPECT_EQ(machine_.FaultedCall(), "AppendToFile");
  EXPECT_EQ(machine_.Calls(), Texts());
  EXPECT_EQ(machine_.DebugOutput(), std::vector<std::u16string>());
}

}  // namespace
}  // namespace platform
