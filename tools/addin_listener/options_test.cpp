#include "tools/addin_listener/options.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace zentpost::addin_listener {
namespace {

using std::chrono::seconds;

Options Parsed(const std::vector<std::string>& arguments) {
  std::string error;
  const std::optional<Options> options = ParseOptions(arguments, error);
  EXPECT_TRUE(options) << error;
  return options.value_or(Options{});
}

TEST(Options, NoArgumentsMeanOneDeliveryOnAFreePort) {
  const Options options = Parsed({});
  EXPECT_EQ(options.action, Action::kListen);
  EXPECT_EQ(options.display, Display::kReadable);
  EXPECT_EQ(options.listener.port, 0);
  EXPECT_EQ(options.listener.count, 1u);
  EXPECT_FALSE(options.listener.timeout);
  EXPECT_EQ(options.listener.misbehaviour, Misbehaviour::kNone);
  EXPECT_EQ(options.listener.connection, 0u);
  EXPECT_EQ(options.listener.slow_interval, seconds(1));
  EXPECT_FALSE(options.port_file || options.out_folder);
}

TEST(Options, EachOptionIsTaken) {
  const Options options =
      Parsed({"--port", "1", "--port", "65535", "--port-file", "a b.txt", "--count=0", "--timeout",
              "86400", "--json", "--out=a=\xC3\x9F", "--code-page", "1252", "--misbehave", "slow",
              "--connection", "3"});
  EXPECT_EQ(options.listener.port, 65535) << "the last one counts";
  EXPECT_EQ(options.port_file, "a b.txt");
  EXPECT_EQ(options.listener.count, 0u);
  EXPECT_EQ(options.listener.timeout, seconds(86400));
  EXPECT_EQ(options.display, Display::kJson);
  EXPECT_EQ(options.out_folder, std::filesystem::path(u8"a=\u00DF"));
  EXPECT_EQ(options.listener.misbehaviour, Misbehaviour::kSlow);
  EXPECT_EQ(options.listener.connection, 3u);
  EXPECT_EQ(Parsed({"--json", "--help", "--nonsense"}).action, Action::kShowHelp);
}

TEST(Options, SaysWhatIsWrong) {
  const struct {
    std::vector<std::string> arguments;
    const char* error;
  } cases[] = {
      {{"5000"}, "unknown argument \"5000\""},
      {{"--json=1"}, "unknown argument \"--json=1\""},
      {{"--port"}, "--port needs a value"},
      {{"--port", ""}, "--port takes a number from 0 to 65535, not \"\""},
      {{"--port", "65536"}, "--port takes a number from 0 to 65535, not \"65536\""},
      {{"--port", "-1"}, "--port takes a number from 0 to 65535, not \"-1\""},
      {{"--port", "1x"}, "--port takes a number from 0 to 65535, not \"1x\""},
      {{"--count", "4294967296"},
       "--count takes a number from 0 to 4294967295, not \"4294967296\""},
      {{"--timeout", "0"}, "--timeout takes a number from 1 to 86400, not \"0\""},
      {{"--timeout", "86401"}, "--timeout takes a number from 1 to 86400, not \"86401\""},
      {{"--connection", "0", "--misbehave", "slow"},
       "--connection takes a number from 1 to 4294967295, not \"0\""},
      {{"--connection", "2"}, "--connection needs --misbehave"},
      {{"--misbehave", "Slow"},
       "--misbehave takes never-read, slow, reset or stop-after-probe, not \"Slow\""},
      {{"--code-page", "1250"}, "--code-page takes 1252 only, not \"1250\""},
      {{"--out", ""}, "--out takes a name, not an empty text"},
      {{"--port-file="}, "--port-file takes a name, not an empty text"},
      {{"--json", "--quiet"}, "--json and --quiet exclude each other"},
  };
  for (const auto& item : cases) {
    SCOPED_TRACE(item.error);
    std::string error;
    EXPECT_FALSE(ParseOptions(item.arguments, error));
    EXPECT_EQ(error, item.error);
  }
}

}  // namespace
}  // namespace zentpost::addin_listener
