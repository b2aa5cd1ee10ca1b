#include "platform/posix/reg_file.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>

#include "platform/posix/utf8.h"
#include "platform/registry.h"

namespace platform {
namespace {

using namespace std::string_literals;

constexpr char kKey[] = "HKEY_CURRENT_USER\\Software\\Key";
constexpr char kHeader[] = "Windows Registry Editor Version 5.00\r\n\r\n";
constexpr char kSection[] = "[HKEY_CURRENT_USER\\Software\\Key]\r\n";

std::string Utf16(std::u16string_view text) {
  std::string bytes;
  for (const char16_t unit : text) {
    bytes.push_back(static_cast<char>(unit & 0xFF));
    bytes.push_back(static_cast<char>(unit >> 8));
  }
  return bytes;
}

// What `key` has under `name` as "TYPE:BYTES"; "none" when there is no such value.
std::string Found(const RegFile& file, std::string_view key, std::string_view name) {
  const std::optional<RegValue> value = file.FindValue(key, name);
  return value ? std::to_string(value->type) + ':' + value->data : "none";
}

TEST(RegFile, ReadsEveryKindOfValue) {
  struct Case {
    const char* name;
    std::string line;
    std::string expected;
  };
  const Case cases[] = {
      {"text", R"("v"="abc")", "1:" + Utf16(u"abc\0"s)},
      {"empty text", R"("v"="")", "1:" + Utf16(u"\0"s)},
      {"text with escapes", R"("v"="C:\\a \"b\"")", "1:" + Utf16(u"C:\\a \"b\"\0"s)},
      {"text with a backslash that escapes nothing", R"("v"="C:\new")",
       "1:" + Utf16(u"C:\\new\0"s)},
      {"text with signs that mean something elsewhere", R"("v"="a=b;[c]@,")",
       "1:" + Utf16(u"a=b;[c]@,\0"s)},
      {"text beyond ASCII",
       "\"v\"=\"Gr\xC3\xBC\xC3\x9F"
       "e \xF0\x9F\x98\x80\"",
       "1:" + Utf16(u"Gr\u00FC\u00DFe \U0001F600\0"s)},
      {"text behind blanks", "  \"v\" \t= \"abc\"  ", "1:" + Utf16(u"abc\0"s)},
      {"text before a comment", R"("v"="abc" ; why)", "1:" + Utf16(u"abc\0"s)},
      {"number", R"("v"=dword:0000001A)", "4:\x1A\0\0\0"s},
      {"number in small letters", R"("v"=dword:deadbeef)", "4:\xEF\xBE\xAD\xDE"},
      {"number of few digits", R"("v"=dword:1)", "4:\1\0\0\0"s},
      {"number behind a blank", R"("v"=dword: 1)", "4:\1\0\0\0"s},
      {"bytes", R"("v"=hex:00,ff,7F)", "3:\0\xFF\x7F"s},
      {"no bytes", R"("v"=hex:)", "3:"},
      {"bytes of one digit", R"("v"=hex:0,f)", "3:\0\xF"s},
      {"bytes with blanks", R"("v"=hex: 01 , 02)", "3:\1\2"},
      {"bytes with a comma at the end", R"("v"=hex:01,02,)", "3:\1\2"},
      {"bytes before a comment", R"("v"=hex:01 ; why)", "3:\1"},
      {"bytes in two lines", "\"v\"=hex:01,\\\r\n  02,03", "3:\1\2\3"},
      {"bytes in three lines", "\"v\"=hex:01,\\\r\n  02,\\\r\n03", "3:\1\2\3"},
      {"text to be expanded", R"("v"=hex(2):25,00,41,00,25,00,00,00)", "2:" + Utf16(u"%A%\0"s)},
      {"list of texts", R"("v"=hex(7):61,00,00,00,00,00)", "7:" + Utf16(u"a\0\0"s)},
      {"text as bytes, odd", R"("v"=hex(1):61,00,62)", "1:a\0b"s},
      {"number as bytes, short", R"("v"=hex(4):01)", "4:\1"},
      {"another type", R"("v"=hex(1234):01)", "4660:\1"},
      {"keyword in capitals", R"("v"=HEX:01)", "3:\1"},
      {"deleted", R"("v"=-)", "none"},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    const RegFile file(kHeader + (kSection + test.line));
    EXPECT_EQ(Found(file, kKey, "v"), test.expected);
    // Whatever stands there, it does not hide what follows.
    const RegFile longer(kHeader + (kSection + test.line) + "\r\n\"next\"=dword:7\r\n");
    EXPECT_EQ(Found(longer, kKey, "v"), test.expected);
    EXPECT_EQ(Found(longer, kKey, "next"), "4:\7\0\0\0"s);
  }
}

TEST(RegFile, SkipsMalformedLines) {
  const char* const lines[] = {
      R"("v")",
      R"("v"=)",
      R"("v" "abc")",
      R"("v"abc)",
      R"(v="abc")",
      R"("v="abc")",
      R"("v)",
      R"("v"="abc)",
      R"("v"="abc\")",
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
      R"("v"=hex:012)",
      R"("v"=hex:-1)",
      R"("v"=hex():01)",
      R"("v"=hex(:01)",
      R"("v"=hex(1:01)",
      R"("v"=hex(g):01)",
      R"("v"=hex(123456789):01)",
      R"("v"=- x)",
      R"(;"v"="abc")",
      R"(@"v"="abc")",
      R"(="abc")",
      R"(garbage)",
  };
  for (const char* const line : lines) {
    SCOPED_TRACE(line);
    const RegFile file(std::string(kHeader) + kSection + line + "\r\n\"next\"=dword:7\r\n");
    EXPECT_EQ(Found(file, kKey, "v"), "none");
    EXPECT_EQ(Found(file, kKey, "next"), "4:\7\0\0\0"s);
    // Nor does it undo what has been said before.
    const RegFile earlier(std::string(kHeader) + kSection + "\"v\"=dword:5\r\n" + line);
    EXPECT_EQ(Found(earlier, kKey, "v"), "4:\5\0\0\0"s);
  }
}

TEST(RegFile, AValueIsFoundInItsOwnKeyOnly) {
  struct Case {
    const char* name;
    std::string text;
    std::string expected;
  };
  const Case cases[] = {
      {"in front of all keys", "\"v\"=hex:00\r\n", "none"},
      {"parent", "[HKEY_CURRENT_USER\\Software]\r\n\"v\"=hex:02\r\n", "none"},
      {"below", "[HKEY_CURRENT_USER\\Software\\Key\\Below]\r\n\"v\"=hex:01\r\n", "none"},
      {"longer name", "[HKEY_CURRENT_USER\\Software\\Keys]\r\n\"v\"=hex:03\r\n", "none"},
      {"behind a broken key", kSection + "[HKEY_CURRENT_USER\\Other\r\n\"v\"=hex:01\r\n"s, "none"},
      {"cut off behind a backslash", kSection + "\"v\"=hex:01,\\"s, "3:\1"},
      {"bare line feeds", "[HKEY_CURRENT_USER\\Software\\Key]\n\"v\"=hex:01,\\\n02\n", "3:\1\2"},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    EXPECT_EQ(Found(RegFile(kHeader + test.text), kKey, "v"), test.expected);
  }
  const RegFile brackets(std::string(kHeader) + "[HKEY_CURRENT_USER\\a]b[c]\r\n\"v\"=hex:01");
  EXPECT_EQ(Found(brackets, "HKEY_CURRENT_USER\\a]b[c", "v"), "3:\1");
  EXPECT_FALSE(brackets.HasKey("HKEY_CURRENT_USER\\a"));
}

TEST(RegFile, WhatIsSaidLaterCounts) {
  struct Case {
    const char* name;
    std::string text;
    std::string expected;
  };
  const Case cases[] = {
      {"value twice", "\"v\"=hex:01\r\n\"V\"=hex:02\r\n", "3:\2"},
      {"key twice", std::string("\"v\"=hex:01\r\n") + kSection + "\"w\"=hex:02\r\n", "3:\1"},
      {"value deleted", "\"v\"=hex:01\r\n\"v\"=-\r\n", "none"},
      {"value deleted and set", "\"v\"=hex:01\r\n\"v\"=-\r\n\"v\"=hex:02\r\n", "3:\2"},
      {"key deleted", "\"v\"=hex:01\r\n[-HKEY_CURRENT_USER\\software\\Key]\r\n", "no key"},
      {"values below a deleted key", "[-HKEY_CURRENT_USER\\Software\\Key]\r\n\"v\"=hex:01\r\n",
       "no key"},
      {"parent deleted", "\"v\"=hex:01\r\n[-HKEY_CURRENT_USER\\Software]\r\n", "no key"},
      {"key below deleted", "\"v\"=hex:01\r\n[-HKEY_CURRENT_USER\\Software\\Key\\Below]\r\n",
       "3:\1"},
      {"another key deleted", "\"v\"=hex:01\r\n[-HKEY_CURRENT_USER\\Soft]\r\n", "3:\1"},
      {"deleted and made again",
       std::string("\"v\"=hex:01\r\n[-HKEY_CURRENT_USER\\Software\\Key]\r\n") + kSection, "none"},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    const RegFile file(std::string(kHeader) + kSection + test.text);
    EXPECT_EQ(file.HasKey(kKey) ? Found(file, kKey, "v") : "no key", test.expected);
  }
}

TEST(RegFile, ReadsEveryEncodingThatTheEditorWrites) {
  const std::u16string text =
      u"Windows Registry Editor Version 5.00\r\n\r\n[HKEY_CURRENT_USER\\Software\\Gr\u00FC\u00DFe]"
      u"\r\n\"\u00E4\"=\"\u00F6\u20AC\"\r\n";
  std::u16string ansi_text = text;
  ansi_text.replace(0, ansi_text.find(u'\r'), u"REGEDIT4");
  std::string ansi;
  for (const char16_t unit : ansi_text) {
    ansi.push_back(unit == 0x20AC ? '\x80' : static_cast<char>(unit));
  }
  struct Case {
    const char* name;
    std::string bytes;
  };
  const Case cases[] = {
      {"UTF-16 with a mark", "\xFF\xFE" + Utf16(text)},
      {"UTF-16, cut off in a unit", "\xFF\xFE" + Utf16(text) + "x"},
      {"UTF-8 with a mark", "\xEF\xBB\xBF" + ToUtf8(text)},
      {"UTF-8", ToUtf8(text)},
      {"the older format", ansi},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    const RegFile file(test.bytes);
    EXPECT_EQ(Found(file,
                    "HKEY_CURRENT_USER\\Software\\Gr\xC3\xBC\xC3\x9F"
                    "e",
                    "\xC3\xA4"),
              "1:" + Utf16(u"\u00F6\u20AC\0"s));
  }
}

TEST(RegFile, TheOlderFormatHasNarrowTextsInItsBytes) {
  const RegFile file(
      std::string("REGEDIT4\r\n") + kSection +
      "\"expanded\"=hex(2):25,41,25,e4,00\r\n\"bytes\"=hex:25,41\r\n\"none\"=hex(2):");
  EXPECT_EQ(Found(file, kKey, "expanded"), "2:" + Utf16(u"%A%\u00E4\0"s));
  EXPECT_EQ(Found(file, kKey, "bytes"), "3:%A");
  EXPECT_EQ(Found(file, kKey, "none"), "2:");
}

TEST(RegFile, WithoutItsHeaderAFileHasNoKeys) {
  const char* const headers[] = {"", "\r\n", "REGEDIT5\r\n", "Windows Registry Editor\r\n",
                                 "; comment\r\n"};
  for (const char* const header : headers) {
    SCOPED_TRACE(header);
    const RegFile file(header + std::string(kSection) + "\"v\"=hex:01\r\n");
    EXPECT_FALSE(file.HasKey(kKey));
    EXPECT_EQ(Found(file, kKey, "v"), "none");
  }
  EXPECT_FALSE(RegFile("").HasKey(kKey));
  EXPECT_FALSE(RegFile("\xFF\xFE").HasKey(kKey));
  EXPECT_FALSE(RegFile("\xFF").HasKey(kKey));
}

}  // namespace
}  // namespace platform
