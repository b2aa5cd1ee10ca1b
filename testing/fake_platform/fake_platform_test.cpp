// What the contract of all back-ends and the tests that run on the fake platform would not notice.
#include "testing/fake_platform/fake_platform.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>
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

using Texts = std::vector<std::string>;

constexpr Hive kUser = Hive::kCurrentUser;
constexpr char16_t kKey[] = u"Software\\Sollvex";
constexpr char16_t kIn[] = u"C:\\Temp\\\u00E4.txt";

std::uint32_t DoNothing(void*) {
  return 0;
}

// What the calls below are made with, and what they give.
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

// A call and the text that it is recorded as.
struct Call {
  std::string text;
  Status (*make)(Used&);
};

// The calls whose result tells of failure, in an order in which they work.
const Call kFallibleCalls[] = {
    {"OpenKey(HKCU, Software\\Sollvex, 0x20019)",
     [](Used& u) { return OpenKey(kUser, kKey, kKeyRead, u.opened_key); }},
    {"OpenSubKey(HKCU\\Software\\Sollvex, Sub, 0x1)",
     [](Used& u) { return OpenSubKey(u.key, u"Sub", kKeyQueryValue, u.opened_key); }},
    {"QueryValue(Port, 8)",
     [](Used& u) { return QueryValue(u.key, u"Port", nullptr, u.bytes, u.capacity); }},
    {"CloseKey(HKCU\\Software\\Sollvex)", [](Used& u) { return CloseKey(u.key); }},
    {"OpenFileAt(C:\\Temp\\\u00E4.txt, kRead)",
     [](Used& u) { return OpenFileAt(kIn, OpenMode::kRead, u.opened_file); }},
    {"OpenFileAt(b.txt, kRewrite)",
     [](Used& u) {
       const Status status = OpenFileAt(u"b.txt", OpenMode::kRewrite, u.opened_file);
       u.opened_file.Reset();  // Else it could not be removed.
       return status;
     }},
    {"QueryFileSize(C:\\Temp\\\u00E4.txt)", [](Used& u) { return QueryFileSize(u.input, u.size); }},
    {"ReadBytes(C:\\Temp\\\u00E4.txt, 8)",
     [](Used& u) { return ReadBytes(u.input, u.bytes, sizeof(u.bytes), u.count); }},
    {"WriteBytes(out.txt, 1)", [](Used& u) { return WriteBytes(u.output, "x", 1); }},
    {"AppendToFile(b.txt, 1)", [](Used&) { return AppendToFile(u"b.txt", "x", 1); }},
    {"RemoveFile(b.txt)", [](Used&) { return RemoveFile(u"b.txt"); }},
    {"IdentifyFile(C:\\Temp\\\u00E4.txt)", [](Used& u) { return IdentifyFile(kIn, u.identity); }},
    {"TemporaryFolder(32)", [](Used& u) { return TemporaryFolder(32, u.folder, u.length); }},
    {"LocalApplicationDataFolder()",
     [](Used& u) { return static_cast<Status>(LocalApplicationDataFolder(u.text)); }},
    {"AllocateBlock(40)", [](Used& u) { return AllocateBlock(40, u.block); }},
    {"InitializeCommonControls(0xff)",
     [](Used&) { return InitializeCommonControls(0xff) ? kSuccess : kDiskFull; }},
    {"SystemMessage(0x5)", [](Used& u) { return SystemMessage(5, u.text); }},
    {"BreakIntoLocalTime(0)", [](Used& u) { return BreakIntoLocalTime(0, u.local); }},
    {"WideToBytes(65001, 1, 8)",
     [](Used& u) { return WideToBytes(CodePage::kUtf8, u"a", 1, u.bytes, 8, u.written); }},
    {"BytesToWide(3, -1, 0)",
     [](Used& u) { return BytesToWide(CodePage::kThreadAnsi, "a", -1, nullptr, 0, u.written); }},
    {"StartWorker()", [](Used& u) { return StartWorker(DoNothing, nullptr, u.started); }},
    {"WaitForWorker()", [](Used& u) { return WaitForWorker(u.worker); }},
    {"StartSockets(0x202)", [](Used&) { return StartSockets(0x0202); }},
    {"Create()", [](Used& u) { return u.socket.Create(); }},
    {"Connect(127.0.0.1, 5000)", [](Used& u) { return u.socket.Connect(u"127.0.0.1", 5000); }},
    {"Send(1)", [](Used& u) { return u.socket.Send("x", 1, u.count); }},
};

// Furnished so that every one of them works.
class FakePlatform : public fake::FakePlatformTest {
 protected:
  void SetUp() override {
    fake_.SetDword(kUser, kKey, u"Port", 5000);
    fake_.AddKey(kUser, u"Software\\Sollvex\\Sub");
    fake_.SetFile(kIn, "abcd");
    fake_.SetSystemMessage(5, u"denied");
    fake_.Listen(5000);
    Used& used = used_.emplace();
    ASSERT_EQ(OpenKey(kUser, kKey, kKeyRead, used.key), kSuccess);
    ASSERT_EQ(OpenFileAt(kIn, OpenMode::kRead, used.input), kSuccess);
    ASSERT_EQ(OpenFileAt(u"out.txt", OpenMode::kRewrite, used.output), kSuccess);
    ASSERT_EQ(StartWorker(DoNothing, nullptr, used.worker), kSuccess);
    fake_.ClearCalls();
  }

  void TearDown() override {
    used_.reset();
    FakePlatformTest::TearDown();
  }

  void ConnectSocket() {
    ASSERT_EQ(StartSockets(0x0202), kSuccess);
    ASSERT_EQ(used_->socket.Create(), kSuccess);
    ASSERT_EQ(used_->socket.Connect(u"127.0.0.1", 5000), kSuccess);
  }

  std::optional<Used> used_;
};

TEST_F(FakePlatform, RecordsAndCountsEveryCallThatCanFail) {
  Texts expected;
  for (const Call& call : kFallibleCalls) {
    SCOPED_TRACE(call.text);
    EXPECT_EQ(call.make(*used_), kSuccess);
    expected.push_back(call.text);
    EXPECT_EQ(fake_.Calls(), expected);
    EXPECT_EQ(fake_.FallibleCalls(), expected.size());
  }
  fake_.ClearCalls();
  EXPECT_EQ(fake_.Calls(), Texts());
  EXPECT_EQ(fake_.FallibleCalls(), 0u);
}

TEST_F(FakePlatform, RecordsAndDoesNotCountACallThatCannotFail) {
  WriteDebugOutput(u"a\u20AC!");
  static_cast<void>(SecondsSinceEpoch());
  SleepMilliseconds(7);
  used_->socket.CancelBlockingCall();
  used_->socket.Close();
  EndSockets();
  EXPECT_EQ(fake_.Calls(),
            (Texts{"WriteDebugOutput(a\xE2\x82\xAC!)", "SecondsSinceEpoch()",
                   "SleepMilliseconds(7)", "CancelBlockingCall()", "Close()", "EndSockets()"}));
  EXPECT_EQ(fake_.FallibleCalls(), 0u);
}

TEST_F(FakePlatform, MakesEveryCallFailThatIsToldTo) {
  for (const Call& call : kFallibleCalls) {
    SCOPED_TRACE(call.text);
    fake_.FailCall(0, kDiskFull);
    EXPECT_FALSE(fake_.FaultTaken());
    // HRESULT_FROM_WIN32(ERROR_DISK_FULL) from the one function that gives an HRESULT.
    EXPECT_EQ(call.make(*used_),
              call.text == "LocalApplicationDataFolder()" ? 0x80070070u : kDiskFull);
    EXPECT_EQ(fake_.FaultedCall(), call.text);
  }
  fake_.FailCall(0, 0x80004005);
  EXPECT_EQ(static_cast<std::uint32_t>(LocalApplicationDataFolder(used_->text)), 0x80004005u);
  EXPECT_EQ(used_->text, u"");
}

TEST_F(FakePlatform, DoesNothingInACallThatFails) {
  fake_.FailCall(0, kDiskFull, FaultMode::kFromThere);
  const std::size_t open_before = fake_.OpenHandles();
  for (const Call& call : kFallibleCalls) {
    EXPECT_NE(call.make(*used_), kSuccess) << call.text;
  }
  // Closing the key is the exception.
  EXPECT_FALSE(used_->key);
  EXPECT_EQ(fake_.OpenHandles(), open_before - 1);
  EXPECT_EQ(fake_.FilePaths(), (std::vector<std::u16string>{kIn, u"out.txt"}));
  EXPECT_EQ(fake_.FileBytes(u"out.txt"), "");
  EXPECT_EQ(fake_.Connections(), Texts());
  fake_.ClearFault();
  EXPECT_EQ(used_->socket.Create(), kSocketsNotStarted);
}

TEST_F(FakePlatform, AFaultStrikesOnceOrFromThereOnAndAmongAllCallsOrThoseOfOneFunction) {
  constexpr char kAppend[] = "AppendToFile";
  struct Case {
    const char* name;
    std::size_t index;
    FaultMode mode;
    const char* results;
    const char* faulted_call;
  };
  for (const Case& test :
       {Case{"", 1, FaultMode::kOnce, "+-++", "InitializeCommonControls(0x0)"},
        Case{"", 1, FaultMode::kFromThere, "+---", "InitializeCommonControls(0x0)"},
        Case{kAppend, 0, FaultMode::kOnce, "-+++", "AppendToFile(a.txt, 1)"},
        Case{kAppend, 1, FaultMode::kOnce, "++-+", "AppendToFile(a.txt, 2)"},
        Case{kAppend, 0, FaultMode::kFromThere, "-+-+", "AppendToFile(a.txt, 1)"}}) {
    SCOPED_TRACE(test.results);
    fake_.FailCallOf(test.name, test.index, kGeneralFailure, test.mode);
    std::string results;
    results += AppendToFile(u"a.txt", "x", 1) == kSuccess ? '+' : '-';
    results += InitializeCommonControls(0) ? '+' : '-';
    results += AppendToFile(u"a.txt", "xy", 2) == kSuccess ? '+' : '-';
    results += InitializeCommonControls(1) ? '+' : '-';
    EXPECT_EQ(results, test.results);
    EXPECT_EQ(fake_.FaultedCall(), test.faulted_call);
    fake_.ClearFault();
    EXPECT_EQ(AppendToFile(u"a.txt", "x", 1), kSuccess);
    EXPECT_TRUE(fake_.FaultTaken());
  }
}

TEST_F(FakePlatform, AFaultMayLeaveWorkHalfDone) {
  Used& used = *used_;
  ConnectSocket();
  fake_.SetBytesBeforeFault(2);
  fake_.FailCall(0, kGeneralFailure, FaultMode::kFromThere);
  EXPECT_EQ(ReadBytes(used.input, used.bytes, 4, used.count), kGeneralFailure);
  EXPECT_EQ(std::string_view(used.bytes, used.count), "ab");
  EXPECT_EQ(WriteBytes(used.output, "wxyz", 4), kGeneralFailure);
  EXPECT_EQ(fake_.FileBytes(u"out.txt"), "wx");
  EXPECT_EQ(used.socket.Send("1234", 4, used.count), kGeneralFailure);
  EXPECT_EQ(used.count, 2u);
  EXPECT_EQ(fake_.Connections(), Texts{"12"});
}

TEST_F(FakePlatform, AWorkersCallsAreNeitherCountedNorMadeToFail) {
  bool worked = false;
  fake_.FailCall(1, kGeneralFailure);
  ASSERT_EQ(StartWorker(
                [](void* parameter) -> std::uint32_t {
                  *static_cast<bool*>(parameter) = InitializeCommonControls(1);
                  return 0;
                },
                &worked, used_->started),
            kSuccess);
  // The wait is the call that fails; it has waited all the same.
  EXPECT_EQ(WaitForWorker(used_->started), kGeneralFailure);
  EXPECT_TRUE(worked);
  EXPECT_EQ(fake_.WorkerCalls(), Texts{"worker: InitializeCommonControls(0x1)"});
  EXPECT_EQ(fake_.Calls(), (Texts{"StartWorker()", "WaitForWorker()"}));
  EXPECT_EQ(fake_.FallibleCalls(), 2u);
}

TEST_F(FakePlatform, ALibrarysCallsStandAmongTheMachinesAndFailWithThem) {
  static int depth = 0;
  depth = 0;
  fake_.SetCallHook([](bool begins) { depth += begins ? 1 : -1; });
  fake_.FailCallOf("Take", 1, kAccessDenied);
  {
    fake::LibraryCall call;
    EXPECT_EQ(depth, 1);
    call.Record("Free(1)");
    EXPECT_EQ(call.RecordFallible("Take(2)"), kSuccess);
    EXPECT_EQ(call.RecordFallible("Take(3)"), kAccessDenied);
    EXPECT_EQ(depth, 1);
  }
  EXPECT_EQ(depth, 0);
  fake_.SetCallHook(nullptr);
  SleepMilliseconds(2);
  EXPECT_EQ(fake_.Calls(), (Texts{"Free(1)", "Take(2)", "Take(3)", "SleepMilliseconds(2)"}));
  EXPECT_EQ(fake_.FallibleCalls(), 2u);
  EXPECT_EQ(fake_.FaultedCall(), "Take(3)");
}

TEST_F(FakePlatform, WithoutRecordingCallsAreStillCountedAndMadeToFail) {
  fake_.SetRecording(false);
  fake_.FailCallOf("AppendToFile", 1, kDiskFull);
  EXPECT_EQ(AppendToFile(u"a.txt", "a", 1), kSuccess);
  EXPECT_EQ(AppendToFile(u"a.txt", "b", 1), kDiskFull);
  WriteDebugOutput(u"text");
  fake_.SetRecording(true);
  EXPECT_EQ(fake_.FallibleCalls(), 2u);
  EXPECT_EQ(fake_.FaultedCall(), "AppendToFile");
  EXPECT_EQ(fake_.Calls(), Texts());
  EXPECT_EQ(fake_.DebugOutput(), std::vector<std::u16string>());
}

TEST_F(FakePlatform, EachKindOfHandleCountsUntilItIsClosedOrTheMachineReset) {
  Used& used = *used_;
  ConnectSocket();
  ASSERT_EQ(AllocateBlock(1, used.block), kSuccess);
  std::size_t open = 6;
  EXPECT_EQ(fake_.OpenHandles(), open);
  const std::function<void()> closes[] = {[&] { used.worker.Reset(); },
                                          [&] { used.socket.Close(); }, [&] { used.block.Reset(); },
                                          [&] { used.output.Reset(); }};
  for (const auto& close : closes) {
    close();
    EXPECT_EQ(fake_.OpenHandles(), --open);
  }
  fake_.Reset();
  fake_.AddKey(kUser, kKey);
  EXPECT_EQ(fake_.OpenHandles(), 0u);
  ASSERT_EQ(OpenKey(kUser, kKey, kKeyRead, used.opened_key), kSuccess);
  EXPECT_EQ(QueryValue(used.key, u"Port", nullptr, nullptr, used.capacity), kInvalidHandle);
  EXPECT_EQ(CloseKey(used.key), kInvalidHandle);
  EXPECT_EQ(ReadBytes(used.input, nullptr, 0, used.count), kInvalidHandle);
  used.input.Reset();
  EXPECT_EQ(fake_.OpenHandles(), 1u);
}

TEST_F(FakePlatform, TheFixtureReportsWhatATestLeavesOpen) {
  class Leaver : public fake::FakePlatformTest {
   public:
    void TestBody() override {}
    using FakePlatformTest::TearDown;
  };
  Leaver leaver;
  HeapBlock block;
  ASSERT_EQ(AllocateBlock(1, block), kSuccess);
  EXPECT_NONFATAL_FAILURE(leaver.TearDown(), "handles left open");
}

TEST_F(FakePlatform, AnOpenFileCannotBeRemoved) {
  EXPECT_EQ(RemoveFile(kIn), kSharingViolation);
  used_->input.Reset();
  EXPECT_EQ(RemoveFile(kIn), kSuccess);
}

}  // namespace
}  // namespace platform
