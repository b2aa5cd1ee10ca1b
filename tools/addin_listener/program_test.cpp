#include "tools/addin_listener/program.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tools/addin_listener/test_client.h"

namespace zentpost::addin_listener {
namespace {

using Arguments = std::vector<std::string>;

constexpr char kGood[] =
    "{\"Parameters\":{\"Receiver\":\"1\",\"RecipientName\":\"J\xC3\xBCrgen\",\"SenderName\":\"\","
    "\"FileName\":\"\",\"AttachmentName\":\"\",\"Comment\":\"\",\"Subject\":\"\",\"SendTime\":\"\","
    "\"ECM\":true,\"Preview\":false}}";
constexpr char kGoodWire[] =
    "{\"Parameters\":{\"Receiver\":\"1\",\"RecipientName\":\"J\xC3\x83\xC2\xBCrgen\","
    "\"SenderName\":\"\",\"FileName\":\"\",\"AttachmentName\":\"\",\"Comment\":\"\",\"Subject\":"
    "\"\","
    "\"SendTime\":\"\",\"ECM\":true,\"Preview\":false}}";
constexpr char kGoodLines[] =
    "  Receiver:       1\n"
    "  RecipientName:  J\xC3\xBCrgen\n"
    "  SenderName:\n"
    "  FileName:\n"
    "  AttachmentName:\n"
    "  Comment:\n"
    "  Subject:\n"
    "  SendTime:\n"
    "  ECM:            true\n"
    "  Preview:        false\n";

// A new folder with a name that no ANSI code page holds, removed with all that is in it.
class ScratchFolder {
 public:
  ScratchFolder() {
    std::random_device random;
    do {
      path_ = std::filesystem::temp_directory_path() /
              (u8"zentpost-\u4E2D\u00E4-" + Digits(random()) + Digits(random()));
    } while (!std::filesystem::create_directory(path_));
  }
  ~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  const std::filesystem::path& path() const { return path_; }
  std::string Utf8(const std::string& name = "") const {
    const std::u8string text = (name.empty() ? path_ : path_ / name).u8string();
    return std::string(text.begin(), text.end());
  }
  std::string Read(const std::string& name) const {
    std::ifstream file(path_ / name, std::ios::binary);
    EXPECT_TRUE(file) << name;
    return std::string(std::istreambuf_iterator<char>(file), {});
  }
  void Write(const std::string& name, const std::string& text) const {
    std::ofstream(path_ / name, std::ios::binary) << text;
  }
  std::vector<std::string> Names() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(path_)) {
      names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

 private:
  static std::u8string Digits(unsigned number) {
    const std::string digits = std::to_string(number);
    return std::u8string(digits.begin(), digits.end());
  }
  std::filesystem::path path_;
};

// The program on a thread of its own.
class RunningProgram {
 public:
  explicit RunningProgram(Arguments arguments) {
    thread_ = std::thread([this, arguments = std::move(arguments)] {
      exit_code_ = RunProgram(
          arguments,
          [this](std::string_view text) {
            const std::lock_guard lock(mutex_);
            out_ += text;
            changed_.notify_all();
            return true;
          },
          [this](std::string_view text) {
            const std::lock_guard lock(mutex_);
            err_ += text;
            return true;
          });
    });
  }
  ~RunningProgram() {
    if (thread_.joinable()) {
      thread_.join();
    }
  }

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
    EXPECT_TRUE(out_.starts_with(kFirstLine)) << out_;
    port_ = out_.substr(sizeof kFirstLine - 1, out_.find('\n') - (sizeof kFirstLine - 1));
    return static_cast<std::uint16_t>(std::strtoul(port_.c_str(), nullptr, 10));
  }
  int Join() {
    thread_.join();
    return exit_code_;
  }
  // The output after the first line.
  std::string out() const {
    EXPECT_TRUE(out_.starts_with(kFirstLine + port_ + "\n")) << out_;
    return out_.substr(std::min(out_.size(), sizeof kFirstLine + port_.size()));
  }
  const std::string& err() const { return err_; }

 private:
  static constexpr char kFirstLine[] = "listening on 127.0.0.1:";
  std::thread thread_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::string out_;
  std::string err_;
  std::string port_;
  int exit_code_ = -1;
};

// A program that ends by itself, with what it wrote.
struct Outcome {
  int exit_code;
  std::string out;
  std::string err;
};
Outcome RunToEnd(const Arguments& arguments) {
  Outcome outcome{};
  outcome.exit_code = RunProgram(
      arguments,
      [&](std::string_view text) {
        outcome.out += text;
        return true;
      },
      [&](std::string_view text) {
        outcome.err += text;
        return true;
      });
  return outcome;
}

void Deliver(std::uint16_t port, std::string_view wire) {
  TestClient(port).Close();
  TestClient client(port);
  EXPECT_TRUE(client.Send(wire));
  client.Close();
}

TEST(Program, ShowsAValidDelivery) {
  RunningProgram program({});
  Deliver(program.AwaitPort(), kGoodWire);
  EXPECT_EQ(program.Join(), 0);
  EXPECT_EQ(program.out(), std::string("connection 1: probe, closed without a byte\n"
                                       "connection 2: delivery 1, 176 bytes, valid\n") +
                               kGoodLines);
  EXPECT_EQ(program.err(), "");
}

TEST(Program, NamesWhatIsWrongAndEndsWithOne) {
  RunningProgram program({});
  Deliver(program.AwaitPort(), "{\"Parameters\":{\"Receiver\":\"1\"},\"x\":1}");
  EXPECT_EQ(program.Join(), 1);
  EXPECT_EQ(program.out(),
            "connection 1: probe, closed without a byte\n"
            "connection 2: delivery 1, 37 bytes, NOT VALID\n"
            "  problem: unknown member \"x\" beside \"Parameters\"\n"
            "  problem: member \"RecipientName\" is missing\n"
            "  problem: member \"SenderName\" is missing\n"
            "  problem: member \"FileName\" is missing\n"
            "  problem: member \"AttachmentName\" is missing\n"
            "  problem: member \"Comment\" is missing\n"
            "  problem: member \"Subject\" is missing\n"
            "  problem: member \"SendTime\" is missing\n"
            "  problem: member \"ECM\" is missing\n"
            "  problem: member \"Preview\" is missing\n"
            "  Receiver: 1\n");
  EXPECT_EQ(program.err(), "");
}

TEST(Program, OneBadDeliveryAmongGoodOnesDecides) {
  RunningProgram program({"--count", "3", "--quiet"});
  const std::uint16_t port = program.AwaitPort();
  Deliver(port, kGoodWire);
  Deliver(port, kGood);
  Deliver(port, kGoodWire);
  EXPECT_EQ(program.Join(), 1);
  EXPECT_EQ(program.out(), "");
  EXPECT_EQ(program.err(), "");
}

TEST(Program, JsonStandsAloneOnTheStandardOutput) {
  RunningProgram program({"--json"});
  Deliver(program.AwaitPort(), kGoodWire);
  EXPECT_EQ(program.Join(), 0);
  EXPECT_EQ(program.out(), std::string(kGood) + "\n");
  EXPECT_EQ(program.err(),
            "connection 1: probe, closed without a byte\n"
            "connection 2: delivery 1, 176 bytes, valid\n");
}

TEST(Program, DeliveryThatCannotBeUndoneHasNoJson) {
  RunningProgram program({"--json"});
  Deliver(program.AwaitPort(), "\xFF");
  EXPECT_EQ(program.Join(), 1);
  EXPECT_EQ(program.out(), "");
  EXPECT_EQ(program.err(),
            "connection 1: probe, closed without a byte\n"
            "connection 2: delivery 1, 1 byte, NOT VALID\n"
            "  problem: byte 0 on the wire: ill-formed UTF-8 (FF)\n");
}

TEST(Program, BrokenDeliveryIsNotValidHoweverItLooks) {
  if (WhatAResetLooksLike() != PeerEnd::kReset) {
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
  const ScratchFolder folder;
  folder.Write("delivery-0001.wire", "old");
  folder.Write("delivery-0003.json", "old");
  RunningProgram program({"--count", "3", "--out", folder.Utf8()});
  const std::uint16_t port = program.AwaitPort();
  Deliver(port, kGoodWire);
  Deliver(port, "\xFF");
  Deliver(port, "{}");
  EXPECT_EQ(program.Join(), 1);
  EXPECT_EQ(folder.Names(), (std::vector<std::string>{"delivery-0001.wire", "delivery-0002.json",
                                                      "delivery-0002.wire", "delivery-0003.json",
                                                      "delivery-0004.wire", "delivery-0005.json",
                                                      "delivery-0005.wire"}));
  EXPECT_EQ(folder.Read("delivery-0001.wire"), "old");
  EXPECT_EQ(folder.Read("delivery-0002.json"), kGood);
  EXPECT_EQ(folder.Read("delivery-0002.wire"), kGoodWire);
  EXPECT_EQ(folder.Read("delivery-0003.json"), "old");
  EXPECT_EQ(folder.Read("delivery-0004.wire"), "\xFF");
  EXPECT_EQ(folder.Read("delivery-0005.json"), "{}");
  EXPECT_EQ(folder.Read("delivery-0005.wire"), "{}");
  EXPECT_NE(program.out().find("  written to " + folder.Utf8("delivery-0002.json") + "\n"),
            std::string::npos)
      << program.out();
}

TEST(Program, FolderThatIsNotThereIsSaidBeforeListening) {
  const ScratchFolder folder;
  const Outcome outcome = RunToEnd({"--out", folder.Utf8("none")});
  EXPECT_EQ(outcome.exit_code, 3);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err, "addin_listener: no such folder: \"" + folder.Utf8("none") + "\"\n");
}

TEST(Program, FolderThatGoesAwayEndsTheProgram) {
  const ScratchFolder folder;
  std::filesystem::create_directory(folder.path() / "gone");
  RunningProgram program({"--count", "0", "--out", folder.Utf8("gone")});
  const std::uint16_t port = program.AwaitPort();
  std::filesystem::remove(folder.path() / "gone");
  Deliver(port, kGoodWire);
  EXPECT_EQ(program.Join(), 3);
  EXPECT_TRUE(program.err().starts_with("addin_listener: cannot write to \"" + folder.Utf8("gone") +
                                        "\": "))
      << program.err();
}

TEST(Program, PortFileHoldsThePortWhileTheProgramListens) {
  const ScratchFolder folder;
  folder.Write("port.txt", "a former number");
  RunningProgram program({"--port-file", folder.Utf8("port.txt")});
  const std::uint16_t port = program.AwaitPort();
  EXPECT_EQ(folder.Read("port.txt"), std::to_string(port) + "\n");
  EXPECT_EQ(folder.Names(), std::vector<std::string>{"port.txt"});
  Deliver(port, kGoodWire);
  EXPECT_EQ(program.Join(), 0);
  EXPECT_EQ(folder.Names(), std::vector<std::string>{});
}

TEST(Program, PortFileThatCannotBeWrittenLeavesNothing) {
  const ScratchFolder folder;
  const Outcome nowhere = RunToEnd({"--port-file", folder.Utf8("none/port.txt")});
  EXPECT_EQ(nowhere.exit_code, 3);
  EXPECT_TRUE(nowhere.err.starts_with("addin_listener: cannot write \"")) << nowhere.err;

  std::filesystem::create_directory(folder.path() / "folder");
  const Outcome onto_folder = RunToEnd({"--port-file", folder.Utf8("folder")});
  EXPECT_EQ(onto_folder.exit_code, 3);
  EXPECT_TRUE(onto_folder.err.starts_with("addin_listener: cannot write \"")) << onto_folder.err;
  EXPECT_EQ(folder.Names(), std::vector<std::string>{"folder"});
}

TEST(Program, TimeoutEndsWithFour) {
  const Outcome outcome = RunToEnd({"--timeout", "1", "--count", "2"});
  EXPECT_EQ(outcome.exit_code, 4);
  EXPECT_EQ(outcome.err, "addin_listener: the time ran out: 0 of 2 deliveries had come\n");
}

TEST(Program, TimeoutAfterABadDeliveryEndsWithOne) {
  RunningProgram program({"--timeout", "2", "--count", "2"});
  Deliver(program.AwaitPort(), "{}");
  EXPECT_EQ(program.Join(), 1);
  EXPECT_EQ(program.err(), "addin_listener: the time ran out: 1 of 2 deliveries had come\n");
}

TEST(Program, PortInUseEndsWithThree) {
  RunningProgram first({});
  const std::uint16_t port = first.AwaitPort();
  const Outcome outcome = RunToEnd({"--port", std::to_string(port)});
  EXPECT_EQ(outcome.exit_code, 3);
  EXPECT_EQ(outcome.out, "");
  EXPECT_TRUE(outcome.err.starts_with(
      "addin_listener: cannot listen on 127.0.0.1:" + std::to_string(port) + ": bind: "))
      << outcome.err;
  Deliver(port, kGoodWire);
  EXPECT_EQ(first.Join(), 0);
}

TEST(Program, OutputThatCannotBeWrittenEndsWithThree) {
  std::string err;
  const int exit_code = RunProgram(
      {"--count", "0"}, [](std::string_view) { return false; },
      [&](std::string_view text) {
        err += text;
        return true;
      });
  EXPECT_EQ(exit_code, 3);
  EXPECT_EQ(err, "addin_listener: cannot write the output\n");
}

TEST(Program, MisbehavingAsAskedIsNoFailure) {
  const struct {
    Arguments arguments;
    const char* out;
  } cases[] = {
      {{"--misbehave", "reset"},
       "connection 1: probe, closed without a byte\n"
       "connection 2: delivery 1, reset on purpose\n"},
      {{"--misbehave", "never-read"},
       "connection 1: probe, closed without a byte\n"
       "connection 2: delivery 1, left unread on purpose until the sender closed\n"},
  };
  for (const auto& item : cases) {
    SCOPED_TRACE(item.arguments[1]);
    RunningProgram program(item.arguments);
    Deliver(program.AwaitPort(), kGoodWire);
    EXPECT_EQ(program.Join(), 0);
    EXPECT_EQ(program.out(), item.out);
    EXPECT_EQ(program.err(), "");
  }
}

TEST(Program, StopAfterProbeEndsWithTheProbe) {
  RunningProgram program({"--misbehave", "stop-after-probe"});
  const std::uint16_t port = program.AwaitPort();
  TestClient(port).Close();
  EXPECT_FALSE(TestClient(port).connected());
  EXPECT_EQ(program.Join(), 0);
  EXPECT_EQ(program.out(), "connection 1: closed unaccepted; listening no more, on purpose\n");
}

TEST(Program, UsageErrorsEndWithTwo) {
  const Outcome outcome = RunToEnd({"--port", "x"});
  EXPECT_EQ(outcome.exit_code, 2);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err,
            "addin_listener: --port takes a number from 0 to 65535, not \"x\"\n"
            "Try addin_listener --help.\n");
}

TEST(Program, HelpAndVersionGoToTheStandardOutput) {
  const Outcome help = RunToEnd({"--help"});
  EXPECT_EQ(help.exit_code, 0);
  EXPECT_TRUE(help.out.starts_with("Usage: addin_listener [options]\n"));
  EXPECT_EQ(help.err, "");
  const Outcome version = RunToEnd({"--version"});
  EXPECT_EQ(version.exit_code, 0);
  EXPECT_TRUE(version.out.starts_with("addin_listener ")) << version.out;
  EXPECT_EQ(version.err, "");
}

}  // namespace
}  // namespace zentpost::addin_listener
