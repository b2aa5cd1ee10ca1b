#include "tools/addin_listener/program.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <filesystem>
#include <future>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "tools/addin_listener/test_client.h"
#include "tools/support/files.h"

namespace zentpost::addin_listener {
namespace {

using support::PathText;
using support::WriteBytes;
using Arguments = std::vector<std::string>;

std::string PayloadOf(const std::string& name) {
  return R"({"Parameters":{"Receiver":"1","RecipientName":")" + name +
         R"(","SenderName":"","FileName":"","AttachmentName":"","Comment":"","Subject":"","SendTime":"",)"
         R"("ECM":true,"Preview":false}})";
}

const std::string kGood = PayloadOf("J\xC3\xBCrgen");
const std::string kGoodWire = PayloadOf("J\xC3\x83\xC2\xBCrgen");
constexpr char kProbe[] = "connection 1: probe, closed without a byte\n";
constexpr char kGoodLines[] =
    "  Receiver:       1\n  RecipientName:  J\xC3\xBCrgen\n  SenderName:\n  FileName:\n"
    "  AttachmentName:\n  Comment:\n  Subject:\n  SendTime:\n  ECM:            true\n"
    "  Preview:        false\n";

// What `folder` holds, each file with its content, a folder without.
using Files = std::map<std::string, std::string>;
Files FilesIn(const std::filesystem::path& folder) {
  Files files;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    files[entry.path().filename().string()] =
        entry.is_directory() ? "" : support::ReadBytes(entry.path()).value_or("");
  }
  return files;
}

Writer AppendsTo(std::string& all) {
  return [&all](std::string_view text) {
    all += text;
    return true;
  };
}

// The program on a thread of its own.
class RunningProgram {
 public:
  explicit RunningProgram(const Arguments& arguments)
      : exit_code_(std::async(std::launch::async, [this, arguments] {
          return RunProgram(arguments, Into(out_), Into(err_));
        })) {}

  // Waits until `text` has been written to the standard output.
  bool AwaitOut(std::string_view text) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, kLongEnough,
                             [&] { return out_.find(text) != std::string::npos; });
  }
  // Waits for the first line and takes the port from it.
  std::uint16_t AwaitPort() {
    EXPECT_TRUE(AwaitOut("\n"));
    const std::lock_guard lock(mutex_);
    unsigned port = 0;
    int length = 0;
    EXPECT_EQ(std::sscanf(out_.c_str(), "listening on 127.0.0.1:%5u%n", &port, &length), 1) << out_;
    first_line_ = static_cast<std::size_t>(length) + 1;
    return static_cast<std::uint16_t>(port);
  }
  int Join() { return exit_code_.get(); }
  // The output after the first line.
  std::string out() const { return out_.substr(std::min(out_.size(), first_line_)); }
  const std::string& err() const { return err_; }

 private:
  Writer Into(std::string& all) {
    return [this, &all](std::string_view text) {
      const std::lock_guard lock(mutex_);
      all += text;
      changed_.notify_all();
      return true;
    };
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::string out_;
  std::string err_;
  std::size_t first_line_ = 0;  // its size
  std::future<int> exit_code_;  // the last: what it waits for uses the others
};

void Deliver(std::uint16_t port, std::string_view wire) {
  TestClient(port).Close();
  TestClient client(port);
  EXPECT_TRUE(client.Send(wire));
  client.Close();
}

TEST(Program, TellsOfWhatCameAndEndsWithItsExitCode) {
  const std::string good = std::string(kProbe) + "connection 2: delivery 1, 176 bytes, valid\n";
  const std::string bad = std::string(kProbe) +
                          "connection 2: delivery 1, 1 byte, NOT VALID, not decodable\n" +
                          "  problem: byte 0 on the wire: ill-formed UTF-8 (FF)\n";
  const struct {
    Arguments arguments;
    std::vector<std::string> wires;
    int exit_code;
    std::string out;
    std::string err = "";
  } cases[] = {
      {{}, {kGoodWire}, 0, good + kGoodLines},
      {{},
       {R"({"Parameters":[],"x":1})"},
       1,
       std::string(kProbe) + "connection 2: delivery 1, 23 bytes, NOT VALID\n"
                             "  problem: unknown member \"x\" beside \"Parameters\"\n"
                             "  problem: member \"Parameters\" is an array, not an object\n"},
      {{"--count", "3", "--quiet"}, {kGoodWire, kGood, kGoodWire}, 1, ""},
      {{"--json"}, {kGoodWire}, 0, kGood + "\n", good},
      {{"--json", "--misbehave", "slow"}, {"\xFF"}, 1, "", bad},
      {{"--timeout", "5", "--count", "2", "--quiet"},
       {"{}"},
       1,
       "",
       "addin_listener: the time ran out: 1 of 2 deliveries had come\n"},
      {{"--misbehave=never-read", "--misbehave=reset"},
       {kGoodWire},
       0,
       std::string(kProbe) + "connection 2: delivery 1, reset on purpose\n"},
      {{"--misbehave", "never-read", "--connection", "2"},
       {kGoodWire},
       0,
       std::string(kProbe) +
           "connection 2: delivery 1, left unread on purpose until the sender closed\n"},
  };
  for (const auto& item : cases) {
    SCOPED_TRACE(::testing::PrintToString(item.arguments));
    RunningProgram program(item.arguments);
    const std::uint16_t port = program.AwaitPort();
    for (const std::string& wire : item.wires) {
      Deliver(port, wire);
    }
    EXPECT_EQ(program.Join(), item.exit_code);
    EXPECT_EQ(program.out(), item.out);
    EXPECT_EQ(program.err(), item.err);
  }
}

TEST(Program, StopAfterProbeEndsWithTheProbe) {
  RunningProgram program({"--misbehave", "stop-after-probe"});
  TestClient(program.AwaitPort()).Close();
  EXPECT_EQ(program.Join(), 0);
  EXPECT_EQ(program.out(), "connection 1: closed unaccepted; listening no more, on purpose\n");
}

TEST(Program, BrokenDeliveryIsNotValidHoweverItLooks) {
  if (ResetMayLookOrderly()) {
    GTEST_SKIP() << "this system closes in order before it resets";
  }
  RunningProgram program({});
  const std::uint16_t port = program.AwaitPort();
  TestClient client(port);
  EXPECT_TRUE(client.Send(kGoodWire));
  // A later connection that has been served shows that these bytes have been read.
  TestClient(port).Close();
  ASSERT_TRUE(program.AwaitOut("connection 2: probe"));
  client.CloseWithReset();
  EXPECT_EQ(program.Join(), 1);
  EXPECT_EQ(program.out(),
            std::string("connection 2: probe, closed without a byte\n"
                        "connection 1: delivery 1, 176 bytes, NOT VALID\n"
                        "  problem: the sender reset the connection instead of closing it\n") +
                kGoodLines);
}

TEST(Program, KeepsEachDeliveryAndOverwritesNothing) {
  const support::TemporaryFolder folder;
  WriteBytes(folder.Path() / "delivery-0001.wire", "old");
  WriteBytes(folder.Path() / "delivery-0003.json", "old");
  RunningProgram program({"--count", "3", "--out", PathText(folder.Path())});
  const std::uint16_t port = program.AwaitPort();
  for (const std::string& wire : {kGoodWire, std::string("\xFF"), std::string("{}")}) {
    Deliver(port, wire);
  }
  EXPECT_EQ(program.Join(), 1);
  EXPECT_EQ(FilesIn(folder.Path()), (Files{{"delivery-0001.wire", "old"},
                                           {"delivery-0002.json", kGood},
                                           {"delivery-0002.wire", kGoodWire},
                                           {"delivery-0003.json", "old"},
                                           {"delivery-0004.wire", "\xFF"},
                                           {"delivery-0005.json", "{}"},
                                           {"delivery-0005.wire", "{}"}}));
  EXPECT_NE(
      program.out().find("  written to " + PathText(folder.Path() / "delivery-0002.json") + "\n"),
      std::string::npos)
      << program.out();
}

TEST(Program, FolderThatGoesAwayEndsTheProgram) {
  const support::TemporaryFolder folder;
  std::filesystem::create_directory(folder.Path() / "gone");
  RunningProgram program({"--count", "0", "--out", PathText(folder.Path() / "gone")});
  const std::uint16_t port = program.AwaitPort();
  std::filesystem::remove(folder.Path() / "gone");
  Deliver(port, kGoodWire);
  EXPECT_EQ(program.Join(), 3);
  EXPECT_TRUE(program.err().starts_with("addin_listener: cannot write to \"" +
                                        PathText(folder.Path() / "gone") + "\": "))
      << program.err();
}

TEST(Program, PortFileHoldsThePortWhileTheProgramListens) {
  const support::TemporaryFolder folder;
  WriteBytes(folder.Path() / "port.txt", "a former number");
  RunningProgram program({"--port-file", PathText(folder.Path() / "port.txt")});
  const std::uint16_t port = program.AwaitPort();
  EXPECT_EQ(FilesIn(folder.Path()), (Files{{"port.txt", std::to_string(port) + "\n"}}));
  Deliver(port, kGoodWire);
  EXPECT_EQ(program.Join(), 0);
  EXPECT_EQ(FilesIn(folder.Path()), Files{});
}

TEST(Program, NeedsNoDeliveryToEndForAnotherReason) {
  const support::TemporaryFolder folder;
  std::filesystem::create_directory(folder.Path() / "folder");
  const std::string nowhere = PathText(folder.Path() / "none");
  RunningProgram first({});
  const std::string port = std::to_string(first.AwaitPort());
  // What the two outputs begin with; nothing means that they are empty.
  const struct {
    Arguments arguments;
    int exit_code;
    std::string out;
    std::string err;
  } cases[] = {
      {{"--port", "65535", "--timeout=86400", "--connection", "1", "--count=4294967295", "--help",
        "-"},
       0,
       "Usage: addin_listener [options]\n",
       ""},
      {{"-h"}, 0, "Usage: addin_listener [options]\n", ""},
      {{"--version"}, 0, "addin_listener ", ""},
      {{"--decode", nowhere}, 3, "", "addin_listener: cannot read \"" + nowhere + "\"\n"},
      {{"--out", nowhere}, 3, "", "addin_listener: no such folder: \"" + nowhere + "\"\n"},
      {{"--port-file", nowhere + "/port.txt"}, 3, "", "addin_listener: cannot write \""},
      {{"--port-file", PathText(folder.Path() / "folder")},
       3,
       "",
       "addin_listener: cannot write \""},
      {{"--port", port}, 3, "", "addin_listener: cannot listen on 127.0.0.1:" + port + ": bind: "},
      {{"--timeout", "1", "--count", "2"},
       4,
       "listening on 127.0.0.1:",
       "addin_listener: the time ran out: 0 of 2 deliveries had come\n"},
  };
  for (const auto& item : cases) {
    SCOPED_TRACE(::testing::PrintToString(item.arguments));
    std::string out;
    std::string err;
    EXPECT_EQ(RunProgram(item.arguments, AppendsTo(out), AppendsTo(err)), item.exit_code);
    EXPECT_TRUE(out.starts_with(item.out) && out.empty() == item.out.empty()) << out;
    EXPECT_TRUE(err.starts_with(item.err) && err.empty() == item.err.empty()) << err;
    EXPECT_EQ(FilesIn(folder.Path()), (Files{{"folder", ""}}));
  }
  Deliver(first.AwaitPort(), kGoodWire);
  EXPECT_EQ(first.Join(), 0);
}

TEST(Program, SaysWhatIsWrongWithItsCommandLine) {
  const std::string port = "--port takes a number from 0 to 65535, not ";
  const std::string timeout = "--timeout takes a number from 1 to 86400, not ";
  const std::pair<Arguments, std::string> cases[] = {
      {{"5000"}, "unknown argument \"5000\""},
      {{"--json=1"}, "unknown argument \"--json=1\""},
      {{"--port"}, "--port needs a value"},
      {{"--port", ""}, port + "\"\""},
      {{"--port", "65536"}, port + "\"65536\""},
      {{"--port", "-1"}, port + "\"-1\""},
      {{"--port", "1x"}, port + "\"1x\""},
      {{"--count=4294967296"}, "--count takes a number from 0 to 4294967295, not \"4294967296\""},
      {{"--timeout", "0"}, timeout + "\"0\""},
      {{"--timeout", "86401"}, timeout + "\"86401\""},
      {{"--connection", "0"}, "--connection takes a number from 1 to 4294967295, not \"0\""},
      {{"--connection", "2"}, "--connection needs --misbehave"},
      {{"--misbehave", "Slow"},
       "--misbehave takes never-read, slow, reset or stop-after-probe, not \"Slow\""},
      {{"--code-page", "1255"}, "--code-page takes 1250 to 1254, 932 or 936, not \"1255\""},
      {{"--code-page="}, "--code-page takes 1250 to 1254, 932 or 936, not \"\""},
      {{"--decode"}, "--decode needs a value"},
      {{"--decode="}, "--decode takes a name, not an empty text"},
      {{"--port", "1", "--decode", "x"}, "--decode and --port exclude each other"},
      {{"--decode", "x", "--out", "y"}, "--decode and --out exclude each other"},
      {{"--out", ""}, "--out takes a name, not an empty text"},
      {{"--port-file="}, "--port-file takes a name, not an empty text"},
      {{"--json", "--quiet"}, "--json and --quiet exclude each other"},
  };
  for (const auto& [arguments, error] : cases) {
    SCOPED_TRACE(error);
    std::string out;
    std::string err;
    EXPECT_EQ(RunProgram(arguments, AppendsTo(out), AppendsTo(err)), 2);
    EXPECT_EQ(err, "addin_listener: " + error + "; see addin_listener --help\n");
    EXPECT_EQ(out, "");
  }
}

TEST(Program, DecodesACaptureAsItDoesADelivery) {
  const support::TemporaryFolder folder(u8"capture-");
  const std::string capture = PathText(folder.Path() / "delivery.wire");
  const std::string good = "176 bytes, valid\n";
  const std::string polish_wire = PayloadOf("\u0139\u201A");  // C5 82 in Windows-1250
  const struct {
    std::string wire;
    Arguments more;
    int exit_code;
    std::string out;
    std::string err = "";
  } cases[] = {
      {kGoodWire, {}, 0, good + kGoodLines},
      {kGoodWire, {"--json"}, 0, kGood + "\n", good},
      {kGoodWire, {"--quiet"}, 0, ""},
      {polish_wire,
       {"--code-page=1250", "--json"},
       0,
       PayloadOf("\u0142") + "\n",
       "172 bytes, valid\n"},
      {polish_wire,
       {"--json"},
       1,
       "",
       "172 bytes, NOT VALID, not decodable\n"
       "  problem: byte 47 on the wire: character U+0139 has no byte in Windows-1252;\n"
       "           was the text sent as plain UTF-8, without the conversion?\n"},
      {"{}", {}, 1, "2 bytes, NOT VALID\n  problem: member \"Parameters\" is missing\n"},
      {"", {}, 1, "0 bytes, NOT VALID\n  problem: byte 0 of the text: no JSON from here on\n"},
  };
  for (const auto& item : cases) {
    Arguments arguments = {"--decode", capture};
    arguments.insert(arguments.end(), item.more.begin(), item.more.end());
    SCOPED_TRACE(::testing::PrintToString(arguments));
    WriteBytes(folder.Path() / "delivery.wire", item.wire);
    std::string out;
    std::string err;
    EXPECT_EQ(RunProgram(arguments, AppendsTo(out), AppendsTo(err)), item.exit_code);
    EXPECT_EQ(out, item.out);
    EXPECT_EQ(err, item.err);
    // The same from the standard input.
    ASSERT_NE(std::freopen(capture.c_str(), "r", stdin), nullptr);
    arguments[1] = "-";
    std::string out_of_input;
    EXPECT_EQ(RunProgram(arguments, AppendsTo(out_of_input), AppendsTo(err)), item.exit_code);
    EXPECT_EQ(out_of_input, item.out);
  }
}

TEST(Program, EndOfACaptureIsNoEndOfALine) {
  // What a text file of Windows would lose: a line end's first byte, and all behind 1A.
  const support::TemporaryFolder folder(u8"capture-");
  const std::string capture = PathText(folder.Path() / "delivery.wire");
  WriteBytes(folder.Path() / "delivery.wire", "{\r\n\x1A}");
  ASSERT_NE(std::freopen(capture.c_str(), "r", stdin), nullptr);
  std::string out;
  EXPECT_EQ(RunProgram({"--decode", "-"}, AppendsTo(out), AppendsTo(out)), 1);
  EXPECT_TRUE(out.starts_with("5 bytes, ")) << out;
}

TEST(Program, LinesFitAConsole) {
  const auto fits = [](const std::string& text) {
    for (std::size_t start = 0; start < text.size(); start = text.find('\n', start) + 1) {
      const std::string line = text.substr(start, text.find('\n', start) - start);
      EXPECT_LE(line.size(), 80u) << line;
    }
  };
  const support::TemporaryFolder folder;
  const std::string capture = PathText(folder.Path() / "delivery.wire");
  std::string out;
  EXPECT_EQ(RunProgram({"--help"}, AppendsTo(out), AppendsTo(out)), 0);
  for (const std::string& wire :
       {PayloadOf(std::string(1000, 'x')), std::string(1000, '['), PayloadOf("\u4E2D")}) {
    WriteBytes(folder.Path() / "delivery.wire", wire);
    EXPECT_EQ(RunProgram({"--decode", capture}, AppendsTo(out), AppendsTo(out)),
              wire.find('x') == wire.npos ? 1 : 0);
  }
  fits(out);
}

TEST(Program, OutputThatCannotBeWrittenEndsWithThree) {
  std::string err;
  const auto refuses = [](std::string_view) { return false; };
  EXPECT_EQ(RunProgram({"--count", "0"}, refuses, AppendsTo(err)), 3);
  EXPECT_EQ(err, "addin_listener: cannot write the output\n");
  const support::TemporaryFolder folder;
  WriteBytes(folder.Path() / "wire", "{}");
  err.clear();
  EXPECT_EQ(RunProgram({"--decode", PathText(folder.Path() / "wire")}, refuses, AppendsTo(err)), 3);
  EXPECT_EQ(err, "addin_listener: cannot write the output\n");
}

}  // namespace
}  // namespace zentpost::addin_listener
