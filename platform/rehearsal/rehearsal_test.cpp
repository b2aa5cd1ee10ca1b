// That nothing goes out, and that what is read later sees what would have been done.

#include "platform/rehearsal/rehearsal.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/files.h"
#include "platform/registry.h"
#include "platform/sockets.h"
#include "platform/system.h"
#include "testing/fake_platform/fixture.h"

namespace platform::rehearsal {
namespace {

constexpr char16_t kFile[] = u"C:\\fax\\a.txt";

class Rehearsal : public fake::FakePlatformTest {
 protected:
  Rehearsal() {
    fake_.AddFolder(u"C:\\fax");
    Begin({});
  }
  ~Rehearsal() override { Begin({}); }

  static Status Rewrite(const std::u16string& path, const std::string& bytes) {
    File file;
    const Status status = OpenFileAt(path, OpenMode::kRewrite, file);
    return status != kSuccess ? status : WriteBytes(file, bytes.data(), bytes.size());
  }
  // What is read of the file; the status where it cannot be.
  static std::string Read(const std::u16string& path) {
    File file;
    if (const Status status = OpenFileAt(path, OpenMode::kRead, file)) {
      return std::to_string(status);
    }
    std::string bytes(100, '\0');
    std::size_t count = 0;
    EXPECT_EQ(ReadBytes(file, bytes.data(), bytes.size(), count), kSuccess);
    bytes.resize(count);
    return bytes;
  }
  // No call has changed the machine.
  void ExpectNoEffect() {
    for (const std::string& call : fake_.Calls()) {
      for (const char* const effect : {"kRewrite", "WriteBytes", "AppendToFile", "RemoveFile",
                                       "LoadModule", "Connect", "Send", "WriteDebugOutput"}) {
        EXPECT_EQ(call.find(effect), std::string::npos) << call;
      }
    }
    EXPECT_TRUE(fake_.Connections().empty());
    EXPECT_TRUE(fake_.DebugOutput().empty());
  }
};

TEST_F(Rehearsal, WritesNoFileAndReadsWhatWasWritten) {
  fake_.SetFile(kFile, "as it was");
  EXPECT_EQ(Rewrite(kFile, "new"), kSuccess);
  EXPECT_EQ(Read(u"C:\\fax\\..\\fax\\a.txt"), "new");
  EXPECT_EQ(ChangedBytes(kFile), "new");
  EXPECT_EQ(fake_.FileBytes(kFile), "as it was");
  ExpectNoEffect();
}

TEST_F(Rehearsal, AppendsToNoFileAndReadsAllOfIt) {
  fake_.SetFile(kFile, "first ");
  EXPECT_EQ(AppendToFile(kFile, "second", 6), kSuccess);
  EXPECT_EQ(Read(kFile), "first second");
  EXPECT_EQ(AppendToFile(u"C:\\fax\\b.txt", "alone", 5), kSuccess);
  EXPECT_EQ(Read(u"C:\\fax\\b.txt"), "alone");
  EXPECT_EQ(fake_.FileBytes(kFile), "first ");
  EXPECT_EQ(fake_.FileBytes(u"C:\\fax\\b.txt"), std::nullopt);
  ExpectNoEffect();
}

TEST_F(Rehearsal, RemovesNoFileAndFindsItNoMore) {
  fake_.SetFile(kFile, "here");
  EXPECT_EQ(RemoveFile(kFile), kSuccess);
  EXPECT_EQ(Read(kFile), std::to_string(kFileNotFound));
  EXPECT_EQ(RemoveFile(kFile), kFileNotFound);
  EXPECT_EQ(Rewrite(kFile, "again"), kSuccess);
  EXPECT_EQ(Read(kFile), "again");
  EXPECT_EQ(fake_.FileBytes(kFile), "here");
  ExpectNoEffect();
}

TEST_F(Rehearsal, RefusesWhatTheMachineWouldRefuse) {
  fake_.SetFile(kFile, "read-only");
  fake_.SetReadOnly(kFile, true);
  EXPECT_EQ(Rewrite(kFile, "x"), kAccessDenied);
  EXPECT_EQ(AppendToFile(kFile, "x", 1), kAccessDenied);
  EXPECT_EQ(RemoveFile(kFile), kAccessDenied);
  EXPECT_EQ(Rewrite(u"C:\\nowhere\\a.txt", "x"), kPathNotFound);
  EXPECT_EQ(Read(kFile), "read-only");
  const std::vector<Step>& steps = Recorded().steps;
  ASSERT_EQ(steps.size(), 4u);
  EXPECT_EQ(steps[0].status, kAccessDenied);
  EXPECT_EQ(steps[3].what, u"C:\\nowhere\\a.txt");
  ExpectNoEffect();
}

TEST_F(Rehearsal, OpensNoPipe) {
  fake_.AddPipe(kFile);
  FileIdentity identity;
  EXPECT_EQ(Read(kFile), std::to_string(kAccessDenied));
  EXPECT_EQ(IdentifyFile(kFile, identity), kAccessDenied);
  EXPECT_EQ(Rewrite(kFile, "x"), kAccessDenied);
  EXPECT_EQ(AppendToFile(kFile, "x", 1), kAccessDenied);
  EXPECT_EQ(RemoveFile(kFile), kAccessDenied);
  EXPECT_TRUE(fake_.CallsOf("OpenFileAt").empty());
  EXPECT_TRUE(fake_.CallsOf("IdentifyFile").empty());
}

TEST_F(Rehearsal, SendsNothingAndKeepsTheBytes) {
  fake_.Listen(5000);
  ASSERT_EQ(StartSockets(0x0202), kSuccess);
  CSocket refused;
  ASSERT_EQ(refused.Create(), kSuccess);
  EXPECT_EQ(refused.Connect(u"127.0.0.1", 5000), kSocketRefused);
  refused.Close();
  Begin({.load = nullptr,
         .connect = [](std::uint16_t) { return kSuccess; },
         .debug_output = nullptr});
  ASSERT_EQ(StartSockets(0x0202), kSuccess);
  CSocket socket;
  ASSERT_EQ(socket.Create(), kSuccess);
  EXPECT_EQ(socket.Connect(u"127.0.0.1", 5000), kSuccess);
  std::size_t sent = 0;
  EXPECT_EQ(socket.Send("fax", 3, sent), kSuccess);
  EXPECT_EQ(sent, 3u);
  EXPECT_EQ(Recorded().connections, std::vector<std::string>{"fax"});
  ExpectNoEffect();
}

TEST_F(Rehearsal, LoadsNothingAndAsksWhatWouldBeLoaded) {
  fake_.AddModule(u"C:\\x.dll", {});
  Module module;
  EXPECT_EQ(LoadModule(u"C:\\x.dll", module), kModuleNotFound);
  Begin({.load =
             [](const std::u16string&) {
               return Library{kSuccess, nullptr};
             },
         .connect = nullptr,
         .debug_output = nullptr});
  EXPECT_EQ(LoadModule(u"C:\\x.dll", module), kSuccess);
  EXPECT_EQ(PathOfLibrary(module.Get()), u"C:\\x.dll");
  EXPECT_EQ(fake_.ModuleReferences(), 0u);
  ExpectNoEffect();
}

TEST_F(Rehearsal, OpensKeysForReadingAlone) {
  fake_.AddKey(Hive::kCurrentUser, u"Software\\Open");
  fake_.AddKey(Hive::kCurrentUser, u"Software\\Closed");
  fake_.SetReadOnlyKey(Hive::kCurrentUser, u"Software\\Closed");
  RegistryKey key;
  EXPECT_EQ(OpenKey(Hive::kCurrentUser, u"Software\\Open", kKeyReadWrite, key), kSuccess);
  EXPECT_EQ(OpenKey(Hive::kCurrentUser, u"Software\\Closed", kKeyReadWrite, key), kAccessDenied);
  EXPECT_EQ(OpenKey(Hive::kCurrentUser, u"Software\\Closed", kKeyRead, key), kSuccess);
  for (const std::string& call : fake_.CallsOf("OpenKey")) {
    EXPECT_TRUE(call.ends_with("0x20019)")) << call;
  }
}

TEST_F(Rehearsal, HandsOverWhatTheDebuggerWouldGet) {
  WriteDebugOutput(u"nobody asks");
  std::vector<std::u16string> texts;
  Begin({.load = nullptr, .connect = nullptr, .debug_output = [&](std::u16string_view text) {
           texts.emplace_back(text);
         }});
  WriteDebugOutput(u"a line");
  EXPECT_EQ(texts, std::vector<std::u16string>{u"a line"});
  ExpectNoEffect();
}

}  // namespace
}  // namespace platform::rehearsal
