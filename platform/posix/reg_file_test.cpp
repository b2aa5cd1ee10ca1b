// What the contract of all back-ends leaves open. The rest, kinds of data and names of values, is
// in testing/platform_contract/registry_contract_test.cpp.
#include "platform/posix/reg_file.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "platform/posix/utf8.h"

namespace platform {
namespace {

using namespace std::string_literals;

constexpr char kKey[] = "HKEY_CURRENT_USER\\Software\\Key";
const std::string kHeader = "Windows Registry Editor Version 5.00\r\n\r\n";
const std::string kSection = "[HKEY_CURRENT_USER\\Software\\Key]\r\n";

std::string Utf16(std::u16string_view text) {
  std::string bytes;
  for (const char16_t unit : text) {
    bytes += {static_cast<char>(unit & 0xFF), static_cast<char>(unit >> 8)};
  }
  return bytes;
}

// What kKey has under `name` as "TYPE:BYTES"; "none" when there is no such value or key.
std::string Found(const std::string& file, const std::string& name = "v") {
  const RegKeys keys = ParseRegFile(file);
  const auto key = keys.find(kKey);
  if (key == keys.end() || !key->second.contains(name)) {
    return "none";
  }
  const RegValue& value = key->second.at(name);
  return std::to_string(value.type) + ':' + value.data;
}

TEST(RegFile, ReadsWhatALineSays) {
  struct Case {
    std::string line;
    std::string expected;
  };
  const Case cases[] = {
      {R"("v"="abc")", "1:" + Utf16(u"abc\0"s)},
      {R"("v"="")", "1:" + Utf16(u"\0"s)},
      {R"("v"="C:\\a \"b\"")", "1:" + Utf16(u"C:\\a \"b\"\0"s)},
      {R"("v"="a=b;[c]@,")", "1:" + Utf16(u"a=b;[c]@,\0"s)},
      {"\"v\"=\"\xC3\xBC\xF0\x9F\x98\x80\"", "1:" + Utf16(u"\u00FC\U0001F600\0"s)},
      {" \t\"v\"=\"abc\" \t", "1:" + Utf16(u"abc\0"s)},
      {R"("v"=dword:0000001A)", "4:\x1A\0\0\0"s},
      {R"("v"=dword:deadbeef)", "4:\xEF\xBE\xAD\xDE"},
      {R"("v"=dword:1)", "4:\1\0\0\0"s},
      {R"("v"=hex:00,ff,7F)", "3:\0\xFF\x7F"s},
      {R"("v"=hex:)", "3:"},
      {"\"v\"=hex:01,\\\r\n  02,\\\r\n03", "3:\1\2\3"},
      {"\"v\"=hex:01,\\\n02", "3:\1\2"},
      {R"("v"=hex(1234):01)", "4660:\1"},
      {"\"v\"=hex:01\r\n\"V\"=hex:02", "3:\2"},
      {"\"v\"=hex:01\r\n\"V\"=-", "none"},
      {"\"v\"=-\r\n\"v\"=hex:02", "3:\2"},
      {"\"v\"=hex:01\r\n" + kSection + "\"w\"=hex:02", "3:\1"},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.line);
    const std::string file = kHeader + kSection + test.line;
    EXPECT_EQ(Found(file), test.expected);
    EXPECT_EQ(Found(file + "\r\n\"next\"=dword:7\r\n"), test.expected);
    EXPECT_EQ(Found(file + "\r\n\"next\"=dword:7\r\n", "next"), "4:\7\0\0\0"s);
  }
}

TEST(RegFile, SkipsAMalformedLine) {
  for (const char* const line : {R"("v")",
                                 R"("v"=)",
                                 R"("v"abc)",
                                 R"(v="abc")",
                                 R"("v="abc")",
                                 R"("v)",
                                 R"("v"="abc)",
                                 R"("v"="abc\")",
                                 R"("v"="abc\)",
                                 R"("v"="abc"def)",
                                 R"("v"=abc)",
                                 R"("v"=dword:)",
                                 R"("v"=dword:xyz)",
                                 R"("v"=dword:-1)",
                                 R"("v"=dword:123456789)",
                                 R"("v"=dword:12 34)",
                                 R"("v"=hex)",
                                 R"("v"=hex:zz)",
                                 R"("v"=hex:,01)",
                                 R"("v"=hex:01,,02)",
                                 R"("v"=hex:01 02)",
                                 R"("v"=hex:100)",
                                 R"("v"=hex():01)",
                                 R"("v"=hex(1:01)",
                                 R"("v"=- x)",
                                 R"(;"v"="abc")",
                                 R"(@"v"="abc")"}) {
    SCOPED_TRACE(line);
    const std::string next = "\r\n\"next\"=dword:7\r\n";
    EXPECT_EQ(Found(kHeader + kSection + line + next), "none");
    EXPECT_EQ(Found(kHeader + kSection + line + next, "next"), "4:\7\0\0\0"s);
    // Nor does it undo what has been said before.
    EXPECT_EQ(Found(kHeader + kSection + "\"v\"=dword:5\r\n" + line), "4:\5\0\0\0"s);
  }
}

TEST(RegFile, AValueIsFoundInItsOwnKeyOnly) {
  for (const std::string& front :
       {""s, "[HKEY_CURRENT_USER\\Software]\r\n"s, "[HKEY_CURRENT_USER\\Software\\Keys]\r\n"s,
        "[HKEY_CURRENT_USER\\Software\\Key\\Below]\r\n"s, kSection + "[HKEY_CURRENT_USER\\X\r\n"}) {
    EXPECT_EQ(Found(kHeader + front + "\"v\"=hex:00\r\n"), "none") << front;
  }
  const RegKeys keys = ParseRegFile(kHeader + "[HKEY_CURRENT_USER\\a]b[c]\r\n");
  EXPECT_TRUE(keys.contains("hkey_CURRENT_user\\A]b[c"));
  EXPECT_TRUE(keys.contains("HKEY_CURRENT_USER"));
  EXPECT_EQ(keys.size(), 2u);
}

TEST(RegFile, ReadsEveryEncodingAndNothingWithoutItsHeader) {
  const std::string text = kHeader + kSection + "\"\xC3\xA4\"=\"\xC3\xB6\xE2\x82\xAC\"";
  const std::string utf16 = "\xFF\xFE" + Utf16(FromUtf8(text));
  for (const std::string& file : {text, "\xEF\xBB\xBF" + text, utf16, utf16 + "x"}) {
    EXPECT_EQ(Found(file, "\xC3\xA4"), "1:" + Utf16(u"\u00F6\u20AC\0"s)) << file;
  }
  for (const std::string& header :
       {""s, "\r\n"s, "REGEDIT4\r\n"s, "Windows Registry Editor\r\n"s, "; comment\r\n" + kHeader}) {
    EXPECT_TRUE(ParseRegFile(header + kSection + "\"v\"=hex:01\r\n").empty()) << header;
  }
  for (const char* const broken : {"", "\xFF\xFE", "\xFF"}) {
    EXPECT_TRUE(ParseRegFile(broken).empty());
  }
}

}  // namespace
}  // namespace platform
