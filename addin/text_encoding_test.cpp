#include "addin/text_encoding.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "testing/allocation_faults.h"
#include "testing/fake_platform/fault_sweep.h"
#include "testing/fake_platform/fixture.h"
#include "testing/log_lines.h"
#include "testing/text_printers.h"

// How the system's own conversions treat ill-formed and unmappable text in general is the platform
// contract's subject; here it is what the callers of this file get to see of it. The machine in
// memory has Windows-1252 as its ANSI code page.

namespace zentpost {
namespace {

using platform::fake::FaultRun;
using test::AllocationFaultMode;
using test::AllocationFaults;
using test::LogText;
using test::Readable;
using Calls = std::vector<std::string>;

constexpr std::string_view kConversionFailed =
    "ERROR: _utf8(): The utf-8 forward conversion failed.\n"
    "ERROR: Code 0x0000007a --> Unknown Error.\n";

struct TreeDeleter {
  void operator()(cJSON* tree) const { cJSON_Delete(tree); }
};
using Tree = std::unique_ptr<cJSON, TreeDeleter>;

std::string Printed(const Tree& tree) {
  char* text = cJSON_PrintUnformatted(tree.get());
  std::string copy = text == nullptr ? "(none)" : text;
  cJSON_free(text);
  return copy;
}

std::u16string Units(std::initializer_list<unsigned> units) {
  std::u16string text;
  for (const unsigned unit : units) {
    text.push_back(static_cast<char16_t>(unit));
  }
  return text;
}

class TextEncoding : public platform::fake::MachineTest {};

TEST_F(TextEncoding, NoTextAndAnEmptyTextGiveNoBytesAndNoCall) {
  EXPECT_EQ(_utf8(nullptr), "");
  EXPECT_EQ(_utf8(u""), "");
  EXPECT_EQ(machine_.Calls(), Calls{});
}

TEST_F(TextEncoding, TextBecomesUtf8) {
  struct Case {
    std::u16string text;
    const char* bytes;
  };
  const Case cases[] = {
      {u"a", "a"},
      {u"+49 301 234", "+49 301 234"},
      {u"\u00E4", "\xC3\xA4"},
      {u"Gr\u00FC\u00DFe",
       "Gr\xC3\xBC\xC3\x9F"
       "e"},
      {u"\u07FF", "\xDF\xBF"},
      {u"\u0800", "\xE0\xA0\x80"},
      {u"\u20AC", "\xE2\x82\xAC"},
      {u"\u20AC 5", "\xE2\x82\xAC 5"},
      {u"\uFEFF", "\xEF\xBB\xBF"},
      {u"\uFFFF", "\xEF\xBF\xBF"},
      {u"\U0001F4E0", "\xF0\x9F\x93\xA0"},
      {u"\U0010FFFF", "\xF4\x8F\xBF\xBF"},
      {u"\u0001\u001F\u007F\u0080", "\x01\x1F\x7F\xC2\x80"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(Readable(c.text));
    EXPECT_EQ(_utf8(c.text.c_str()), c.bytes);
  }
  EXPECT_EQ(LogText(), "");
}

TEST_F(TextEncoding, ALoneSurrogateBecomesTheReplacementCharacter) {
  EXPECT_EQ(_utf8(Units({0xD83D}).c_str()), "\xEF\xBF\xBD");
  EXPECT_EQ(_utf8(Units({'a', 0xDCE0, 'b'}).c_str()),
            "a\xEF\xBF\xBD"
            "b");
}

TEST_F(TextEncoding, TheConversionIsAskedForWithItsLengthAndTwiceItsRoom) {
  EXPECT_EQ(_utf8(u"\u20AC 5"), "\xE2\x82\xAC 5");
  EXPECT_EQ(machine_.Calls(), (Calls{"AllocateBlock(8)", "WideToBytes(65001, 3, 8)"}));
}

// Text is taken for widened UTF-8 when the low bytes of two neighbours look like the start of a
// sequence of two or three bytes; it is then narrowed, not encoded.
TEST_F(TextEncoding, DetectionLooksAtTheLowBytesOfNeighbours) {
  const auto is_narrowed = [this](const std::u16string& text) {
    machine_.ClearCalls();
    static_cast<void>(_utf8(text.c_str()));
    const Calls calls = machine_.CallsOf("WideToBytes");
    return !calls.empty() && calls.front().starts_with("WideToBytes(3, ");
  };
  const unsigned edges[] = {0x01, 0x7F, 0x80, 0x81, 0xA5, 0xBF, 0xC0, 0xC1, 0xD0,
                            0xDF, 0xE0, 0xE1, 0xEF, 0xF0, 0xF4, 0xF8, 0xFE, 0xFF};
  for (const unsigned high : {0x00U, 0x04U, 0x20U}) {
    for (unsigned byte = 1; byte < 256; ++byte) {
      for (const unsigned edge : edges) {
        for (const auto& [lead, next] : {std::pair(byte, edge), std::pair(edge, byte)}) {
          const std::u16string text = Units({high << 8 | lead, high << 8 | next});
          const bool expected = lead >= 0xC0 && lead <= 0xEF && next >= 0x80 && next <= 0xBF;
          ASSERT_EQ(is_narrowed(text), expected) << Readable(text);
        }
      }
    }
  }
}

TEST_F(TextEncoding, DetectionFindsAPairAnywhere) {
  for (std::size_t length = 2; length <= 12; ++length) {
    for (std::size_t at = 0; at + 1 < length; ++at) {
      SCOPED_TRACE(std::to_string(length) + " characters, pair at " + std::to_string(at));
      std::u16string text(length, u'x');
      text[at] = 0xC3;
      text[at + 1] = 0xA4;
      std::string expected(length, 'x');
      expected[at] = '\xC3';
      expected[at + 1] = '\xA4';
      EXPECT_EQ(_utf8(text.c_str()), expected);
    }
  }
}

TEST_F(TextEncoding, WidenedUtf8IsNarrowedBack) {
  struct Case {
    std::u16string text;
    const char* bytes;
  };
  const Case cases[] = {
      {u"\u00C3\u00A4", "\xC3\xA4"},
      {u"M\u00C3\u00BCller", "M\xC3\xBCller"},
      {Units({0xE4, 0xB8, 0xAD}), "\xE4\xB8\xAD"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(Readable(c.text));
    machine_.ClearCalls();
    const std::optional<std::string> bytes = _utf8(c.text.c_str());
    ASSERT_TRUE(bytes);
    EXPECT_EQ(Readable(FromUtf8(bytes->c_str()).value_or(u"none")), c.bytes);
    // Asked for its room first, then made.
    const std::string start = "WideToBytes(3, " + std::to_string(c.text.size()) + ", ";
    EXPECT_EQ(machine_.CallsOf("WideToBytes"),
              (Calls{start + "0)", start + std::to_string(bytes->size()) + ")"}));
  }
  EXPECT_EQ(LogText(), "");
}

// There is nothing before or behind it that it could be a pair with.
TEST_F(TextEncoding, DeliberateASingleCharacterIsNeverDetected) {
  EXPECT_EQ(_utf8(u"\u00C3"), "\xC3\x83");
  EXPECT_EQ(_utf8(u"\u00A4"), "\xC2\xA4");
  EXPECT_EQ(_utf8(u"x\u00C3"), "x\xC3\x83");
  EXPECT_EQ(_utf8(u"\u00A4x"), "\xC2\xA4x");
}

// High bytes are left out of the test on purpose, so that this is narrowed: the first character has
// no byte in the code page.
TEST_F(TextEncoding, DeliberateDetectionIgnoresHighBytes) {
  EXPECT_EQ(_utf8(u"\u04C3\u20AC"), "?\x80");
  EXPECT_EQ(LogText(), "");
}

// The lead bytes of sequences of four are left out of the test, so that an emoji that was widened
// byte by byte is encoded a second time.
TEST_F(TextEncoding, DeliberateFourByteLeadsAreNotDetected) {
  EXPECT_EQ(_utf8(Units({0xF0, 0x9F, 0x93, 0xA0}).c_str()), "\xC3\xB0\xC2\x9F\xC2\x93\xC2\xA0");
}

// Narrowing gives back what Windows-1252 made of a byte; a byte from 80 to 9F that was widened to
// the character of its own number has no way back.
TEST_F(TextEncoding, DeliberateDetectedTextThatTheCodePageDoesNotHaveIsLost) {
  EXPECT_EQ(_utf8(Units({0xE2, 0x82, 0xAC}).c_str()), "\xE2?\xAC");
}

// Of a byte from 80 to 9F that became another character in Windows-1252, the low byte is no longer
// that byte: the bytes of U+20AC are missed.
TEST_F(TextEncoding, DeliberateWidenedBytesThatMovedAreNotDetected) {
  EXPECT_EQ(_utf8(u"\u00E2\u201A\u00AC"), "\xC3\xA2\xE2\x80\x9A\xC2\xAC");
}

// The buffer has two bytes for each character and two more; whoever sends text that needs more
// finds the failure in the log and an empty value in the payload.
TEST_F(TextEncoding, DeliberateTextThatNeedsMoreThanItsBufferFails) {
  EXPECT_EQ(_utf8(u"\u4E2D\u6587\u5B57"), "");
  EXPECT_EQ(LogText(), kConversionFailed);
}

TEST_F(TextEncoding, TheLimitHoldsToTheByte) {
  for (std::size_t length = 1; length <= 24; ++length) {
    for (std::size_t wide = 0; wide <= length; ++wide) {
      SCOPED_TRACE(std::to_string(length) + " characters, " + std::to_string(wide) +
                   " of them three bytes long");
      machine_.Reset();
      const std::u16string text =
          std::u16string(wide, u'\u4E2D') + std::u16string(length - wide, u'x');
      const std::string encoded = Readable(text);
      ASSERT_EQ(encoded.size(), length + 2 * wide);
      const bool fits = encoded.size() <= 2 * length + 2;
      EXPECT_EQ(_utf8(text.c_str()), fits ? encoded : "");
      EXPECT_EQ(LogText(), fits ? "" : kConversionFailed);
    }
  }
}

TEST_F(TextEncoding, CharactersOfTwoUnitsAlwaysFit) {
  std::u16string text;
  for (int i = 0; i < 1000; ++i) {
    text += u"\U0001F4E0";
  }
  EXPECT_EQ(_utf8(text.c_str()), Readable(text));
}

TEST_F(TextEncoding, LongTextIsConvertedWhole) {
  const std::u16string text(5000000, u'\u00FC');
  EXPECT_EQ(_utf8(text.c_str()), Readable(text));
}

TEST_F(TextEncoding, FailedConversionsOfTextAreLoggedWithTheSystemsNumber) {
  machine_.SetSystemMessage(8, u"Not enough memory resources are available.\r\n");
  machine_.FailCallOf("AllocateBlock", 0, platform::kNotEnoughMemory);
  EXPECT_EQ(_utf8(u"abc"), std::nullopt);
  machine_.FailCallOf("WideToBytes", 0, 1113);
  EXPECT_EQ(_utf8(u"abc"), "");
  EXPECT_EQ(LogText(),
            "ERROR: _utf8(): A memory error occurred.\n"
            "ERROR: Code 0x00000008 --> Not enough memory resources are available.\n"
            "ERROR: _utf8(): The utf-8 forward conversion failed.\n"
            "ERROR: Code 0x00000459 --> Unknown Error.\n");
}

// Only the encoding is watched over, not the way back through the code page.
TEST_F(TextEncoding, DeliberateAFailedNarrowingIsSilent) {
  for (const std::size_t call : {std::size_t{0}, std::size_t{1}}) {
    machine_.FailCallOf("WideToBytes", call, platform::kInsufficientBuffer);
    EXPECT_EQ(_utf8(u"\u00C3\u00A4"), "");
    EXPECT_TRUE(machine_.FaultTaken());
  }
  EXPECT_EQ(LogText(), "");
}

TEST_F(TextEncoding, WideToUtf8TellsHowItEnded) {
  using Outcome = Utf8Result::Outcome;
  std::string bytes = "old";
  Utf8Result result = WideToUtf8(u"\u00C3\u00A4", bytes);
  EXPECT_EQ(result.outcome, Outcome::kConverted);
  EXPECT_EQ(result.status, platform::kSuccess);
  // Nothing is detected here.
  EXPECT_EQ(bytes, "\xC3\x83\xC2\xA4");

  result = WideToUtf8(u"\u4E2D\u6587\u5B57", bytes);
  EXPECT_EQ(result.outcome, Outcome::kNotConverted);
  EXPECT_EQ(result.status, platform::kInsufficientBuffer);
  EXPECT_EQ(bytes, "");

  bytes = "old";
  machine_.FailCallOf("AllocateBlock", 0, platform::kNotEnoughMemory);
  result = WideToUtf8(u"a", bytes);
  EXPECT_EQ(result.outcome, Outcome::kNoMemory);
  EXPECT_EQ(result.status, platform::kNotEnoughMemory);
  EXPECT_EQ(bytes, "");
  EXPECT_EQ(LogText(), "");
}

TEST_F(TextEncoding, DeliberateWideToUtf8HasNoShortcutForAnEmptyText) {
  std::string bytes = "old";
  const Utf8Result result = WideToUtf8(u"", bytes);
  EXPECT_EQ(result.outcome, Utf8Result::Outcome::kNotConverted);
  EXPECT_EQ(result.status, platform::kInvalidParameter);
  EXPECT_EQ(bytes, "");
  EXPECT_EQ(machine_.Calls(), (Calls{"AllocateBlock(2)", "WideToBytes(65001, 0, 2)"}));
}

TEST_F(TextEncoding, WideToUtf8EndsAtTheFirstZero) {
  std::string bytes;
  EXPECT_EQ(WideToUtf8(std::u16string_view(u"a\0b", 3), bytes).outcome,
            Utf8Result::Outcome::kConverted);
  EXPECT_EQ(bytes, "a");
}

TEST_F(TextEncoding, BytesBecomeText) {
  struct Case {
    std::string bytes;
    std::u16string text;
  };
  const Case cases[] = {
      {"a", u"a"},
      {"Gr\xC3\xBC\xC3\x9F"
       "e",
       u"Gr\u00FC\u00DFe"},
      {"\xE2\x82\xAC", u"\u20AC"},
      {"\xE4\xB8\xAD\xE6\x96\x87\xE5\xAD\x97", u"\u4E2D\u6587\u5B57"},
      {"\xF0\x9F\x93\xA0", u"\U0001F4E0"},
      {"\xEF\xBB\xBF"
       "a",
       u"\uFEFFa"},
      {std::string(100000, 'x'), std::u16string(100000, u'x')},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.bytes.substr(0, 20));
    EXPECT_EQ(FromUtf8(c.bytes.c_str()), c.text);
  }
}

TEST_F(TextEncoding, NoBytesGiveNoText) {
  EXPECT_EQ(FromUtf8(nullptr), u"");
  EXPECT_EQ(machine_.Calls(), Calls{});
  EXPECT_EQ(FromUtf8(""), u"");
}

TEST_F(TextEncoding, BytesAreConvertedWithTheirTerminator) {
  EXPECT_EQ(FromUtf8("abc"), u"abc");
  EXPECT_EQ(machine_.Calls(), Calls{"BytesToWide(65001, -1, 4)"});
}

TEST_F(TextEncoding, IllFormedBytesAreReplacedNotRejected) {
  struct Case {
    const char* bytes;
    const char16_t* start;
    const char16_t* end;
  };
  // How many replacement characters there are is the system's business.
  const Case cases[] = {
      {"a\xFF"
       "b",
       u"a\uFFFD", u"\uFFFDb"},
      {"Gr\xFC\xDF"
       "e",
       u"Gr\uFFFD", u"\uFFFDe"},
      {"\x80", u"\uFFFD", u"\uFFFD"},
      {"\xC3", u"\uFFFD", u"\uFFFD"},
      {"a\xC0\x80z", u"a\uFFFD", u"\uFFFDz"},
      {"a\xE2\x82z", u"a\uFFFD", u"\uFFFDz"},
      {"a\xED\xA0\x80z", u"a\uFFFD", u"\uFFFDz"},
      {"a\xF5\x80\x80\x80z", u"a\uFFFD", u"\uFFFDz"},
      {"\xFF\xFE{", u"\uFFFD", u"\uFFFD{"},
  };
  for (const Case& c : cases) {
    const std::u16string text = FromUtf8(c.bytes).value_or(u"none");
    SCOPED_TRACE(Readable(text));
    EXPECT_TRUE(text.starts_with(c.start));
    EXPECT_TRUE(text.ends_with(c.end));
    EXPECT_LE(text.size(), std::char_traits<char>::length(c.bytes));
  }
}

TEST_F(TextEncoding, FailedConversionsOfBytesAreSilent) {
  machine_.FailCallOf("BytesToWide", 0, platform::kInvalidParameter);
  EXPECT_EQ(FromUtf8("abc"), u"");
  EXPECT_TRUE(machine_.FaultTaken());
  EXPECT_EQ(LogText(), "");
}

TEST_F(TextEncoding, TheCodePageNarrowsAndWidens) {
  struct Case {
    std::u16string text;
    std::string bytes;
  };
  const Case cases[] = {
      {u"", ""},
      {u"abc", "abc"},
      {u"\u00E4\u20AC\u0178", "\xE4\x80\x9F"},
      {u"\u0081\u008D\u008F\u0090\u009D", "\x81\x8D\x8F\x90\x9D"},
      {std::u16string(u"a\0b", 3), std::string("a\0b", 3)},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(Readable(c.text));
    EXPECT_EQ(NarrowThroughAnsi(c.text), c.bytes);
    EXPECT_EQ(WidenThroughAnsi(c.bytes), c.text);
  }
}

TEST_F(TextEncoding, EveryByteSurvivesWideningAndNarrowing) {
  std::string bytes;
  for (int byte = 0; byte < 256; ++byte) {
    bytes.push_back(static_cast<char>(byte));
  }
  const std::optional<std::u16string> text = WidenThroughAnsi(bytes);
  ASSERT_TRUE(text);
  EXPECT_EQ(text->size(), 256u);
  EXPECT_EQ(NarrowThroughAnsi(*text), bytes);
}

TEST_F(TextEncoding, CharactersWithoutAByteGetTheirBestFitOrTheDefault) {
  EXPECT_EQ(NarrowThroughAnsi(u"\u0100\u4E2D\uFF21"), "A?A");
}

TEST_F(TextEncoding, FailedCodePageConversionsGiveNothingSilently) {
  machine_.FailCallOf("WideToBytes", 0, platform::kInvalidParameter);
  EXPECT_EQ(NarrowThroughAnsi(u"a"), "");
  machine_.FailCallOf("WideToBytes", 1, platform::kInvalidParameter);
  EXPECT_EQ(NarrowThroughAnsi(u"a"), "");
  machine_.FailCallOf("BytesToWide", 0, platform::kInvalidParameter);
  EXPECT_EQ(WidenThroughAnsi("a"), u"");
  EXPECT_EQ(LogText(), "");
}

TEST_F(TextEncoding, JsonTextIsFoundOrItsDefaultIsTaken) {
  const Tree tree(cJSON_Parse(
      R"({"text": "t", "empty": "", "number": 5, "true": true, "null": null, "list": ["x"],
          "object": {"x": "y"}, "utf8": "Gr)"
      "\xC3\xBC\xC3\x9F"
      R"(e", "escaped": "\u20ac", "text": "second"})"));
  ASSERT_NE(tree, nullptr);
  struct Case {
    const char16_t* name;
    bool found;
    const char16_t* value;
  };
  const Case cases[] = {
      {u"text", true, u"t"},
      {u"TEXT", true, u"t"},
      {u"TexT", true, u"t"},
      {u"empty", true, u""},
      {u"utf8", true, u"Gr\u00FC\u00DFe"},
      {u"escaped", true, u"\u20AC"},
      {u"number", false, u"default"},
      {u"true", false, u"default"},
      {u"null", false, u"default"},
      {u"list", false, u"default"},
      {u"object", false, u"default"},
      {u"missing", false, u"default"},
      {u"tex", false, u"default"},
      {u"texts", false, u"default"},
      {u"", false, u"default"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(Readable(c.name));
    std::u16string value = u"old";
    EXPECT_EQ(GetJsonString(tree.get(), c.name, value, u"default"),
              c.found ? Lookup::kFound : Lookup::kMissing);
    EXPECT_EQ(value, c.value);
  }
}

TEST_F(TextEncoding, WhatIsNoObjectHasNoJsonText) {
  std::u16string value = u"old";
  EXPECT_EQ(GetJsonString(nullptr, u"text", value, u"default"), Lookup::kMissing);
  EXPECT_EQ(value, u"default");
  for (const char* json : {"[\"text\"]", "\"text\"", "5", "{}"}) {
    const Tree tree(cJSON_Parse(json));
    EXPECT_EQ(GetJsonString(tree.get(), u"text", value, u"default"), Lookup::kMissing) << json;
    EXPECT_EQ(value, u"default");
  }
}

TEST_F(TextEncoding, DeliberateAJsonTextWithoutBytesIsFoundAndEmpty) {
  const Tree tree(cJSON_CreateObject());
  cJSON_AddItemToObject(tree.get(), "text", cJSON_CreateStringReference(nullptr));
  std::u16string value = u"old";
  EXPECT_EQ(GetJsonString(tree.get(), u"text", value, u"default"), Lookup::kFound);
  EXPECT_EQ(value, u"");
}

// Names pass through the ANSI code page, values do not.
TEST_F(TextEncoding, JsonNamesAreLookedUpInTheCodePage) {
  const Tree tree(
      cJSON_Parse("{\"Gr\xC3\xBC\xC3\x9F"
                  "e\": \"utf8\", \"Gr\xFC\xDF"
                  "e\": \"ansi\"}"));
  std::u16string value;
  EXPECT_EQ(GetJsonString(tree.get(), u"Gr\u00FC\u00DFe", value, u""), Lookup::kFound);
  EXPECT_EQ(value, u"ansi");
  // Only ASCII letters have two cases here.
  EXPECT_EQ(GetJsonString(tree.get(), u"gR\u00FC\u00DFE", value, u""), Lookup::kFound);
  EXPECT_EQ(GetJsonString(tree.get(), u"GR\u00DC\u00DFE", value, u""), Lookup::kMissing);
}

TEST_F(TextEncoding, AJsonTextThatCannotBeConvertedIsFoundAndEmpty) {
  const Tree tree(cJSON_Parse("{\"text\": \"t\"}"));
  machine_.FailCallOf("BytesToWide", 0, platform::kInvalidParameter);
  std::u16string value = u"old";
  EXPECT_EQ(GetJsonString(tree.get(), u"text", value, u"default"), Lookup::kFound);
  EXPECT_EQ(value, u"");
  EXPECT_EQ(LogText(), "");
}

// A name that was lost on the way to the code page once stood for the empty name: the value of a
// stranger's member was taken, and a member without a name was added to the job file.
TEST_F(TextEncoding, AJsonNameThatCannotBeConvertedNamesNothing) {
  const Tree tree(cJSON_Parse("{\"\": \"nameless\"}"));
  std::u16string value;
  for (const std::size_t call : {std::size_t{0}, std::size_t{1}}) {
    machine_.FailCallOf("WideToBytes", call, platform::kInsufficientBuffer);
    EXPECT_EQ(GetJsonString(tree.get(), u"text", value, u"default"), Lookup::kMissing);
    EXPECT_EQ(value, u"default");
    machine_.FailCallOf("WideToBytes", call, platform::kInsufficientBuffer);
    EXPECT_TRUE(SetJsonItem(tree.get(), u"text", cJSON_CreateString("new")));
    EXPECT_EQ(Printed(tree), "{\"\":\"nameless\"}");
  }
  EXPECT_EQ(GetJsonString(tree.get(), u"", value, u"default"), Lookup::kFound);
  EXPECT_EQ(value, u"nameless");
}

TEST_F(TextEncoding, JsonItemsAreAddedOrReplaced) {
  const Tree tree(cJSON_Parse("{\"a\": 1, \"b\": {\"x\": 2}, \"c\": 3}"));
  EXPECT_TRUE(SetJsonItem(tree.get(), u"d", cJSON_CreateString("new")));
  EXPECT_EQ(Printed(tree), R"({"a":1,"b":{"x":2},"c":3,"d":"new"})");
  EXPECT_TRUE(SetJsonItem(tree.get(), u"b", cJSON_CreateNumber(-7)));
  EXPECT_EQ(Printed(tree), R"({"a":1,"b":-7,"c":3,"d":"new"})");
  EXPECT_TRUE(SetJsonItem(tree.get(), u"a", cJSON_CreateObject()));
  EXPECT_TRUE(SetJsonItem(tree.get(), u"d", cJSON_CreateNumber(4)));
  EXPECT_EQ(Printed(tree), R"({"a":{},"b":-7,"c":3,"d":4})");
}

TEST_F(TextEncoding, AReplacedJsonItemLeavesOneOfItsName) {
  const Tree tree(cJSON_Parse("{\"Status\": 1}"));
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(SetJsonItem(tree.get(), u"Status", cJSON_CreateNumber(i)));
    EXPECT_EQ(Printed(tree), "{\"Status\":" + std::to_string(i) + "}");
  }
}

TEST_F(TextEncoding, AJsonItemIsReplacedWhateverItsCase) {
  const Tree tree(cJSON_Parse("{\"sTATUS\": 1, \"x\": 2}"));
  EXPECT_TRUE(SetJsonItem(tree.get(), u"Status", cJSON_CreateNumber(0)));
  EXPECT_EQ(Printed(tree), R"({"Status":0,"x":2})");
}

TEST_F(TextEncoding, JsonItemsThatFindNoPlaceAreFreed) {
  EXPECT_TRUE(SetJsonItem(nullptr, u"a", cJSON_CreateNumber(1)));
  const Tree tree(cJSON_Parse("{\"a\": 1}"));
  EXPECT_TRUE(SetJsonItem(tree.get(), u"a", nullptr));
  EXPECT_TRUE(SetJsonItem(tree.get(), u"b", nullptr));
  EXPECT_EQ(Printed(tree), "{\"a\":1}");
}

std::string Converted(const std::optional<std::string>& bytes) {
  return bytes.value_or("no memory");
}

TEST_F(TextEncoding, EveryCallOfTheConversions) {
  struct Case {
    const char* name;
    std::string (*convert)();
    // Without a fault: what is given and logged.
    std::string_view bytes;
    std::string_view log;
    // What is logged, before the number, when the named call fails.
    const char* allocation_log;
    const char* conversion_log;
  };
  constexpr char kMemoryError[] = "ERROR: _utf8(): A memory error occurred.\n";
  constexpr char kFailed[] = "ERROR: _utf8(): The utf-8 forward conversion failed.\n";
  const Case cases[] = {
      {"encoded", [] { return Converted(_utf8(u"\u20AC 5")); }, "\xE2\x82\xAC 5", "", kMemoryError,
       kFailed},
      {"too long", [] { return Converted(_utf8(u"\u4E2D\u6587\u5B57")); }, "", kConversionFailed,
       kMemoryError, kFailed},
      {"narrowed", [] { return Converted(_utf8(u"\u00C3\u00A4")); }, "\xC3\xA4", "", "", ""},
      {"from UTF-8", [] { return Readable(FromUtf8("a\xC3\xA4").value_or(u"none")); }, "a\xC3\xA4",
       "", "", ""},
      {"widened", [] { return Readable(WidenThroughAnsi("a\xE4").value_or(u"none")); }, "a\xC3\xA4",
       "", "", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::string bytes;
    platform::fake::SweepFaults({[] {}, [&] { bytes = c.convert(); }}, [&](const FaultRun& run) {
      const bool in_allocation = run.name == "AllocateBlock";
      const bool in_conversion = run.name == "WideToBytes" || run.name == "BytesToWide";
      std::string log = in_allocation ? c.allocation_log : in_conversion ? c.conversion_log : "";
      if (!log.empty()) {
        log += "ERROR: Code 0x0000001f --> Unknown Error.\n";
      }
      // All other calls are made for the lines of a conversion that has failed by then.
      const bool is_hit = in_allocation || in_conversion;
      EXPECT_EQ(bytes, in_allocation ? "no memory" : is_hit ? "" : c.bytes);
      EXPECT_EQ(LogText(), is_hit ? log : c.log);
    });
  }
}

// Long enough for no text to live inside its string object.
std::u16string LongText(char16_t unit) {
  return std::u16string(200, unit);
}

TEST_F(TextEncoding, EveryAllocationOfEncodingText) {
  const std::u16string text = LongText(u'\u00FC');
  const std::string good = Readable(text);
  test::SweepAllocations("_utf8", [&](AllocationFaults& faults) {
    machine_.Reset();
    std::optional<std::string> bytes;
    ASSERT_TRUE(faults.Run([&] { bytes = _utf8(text.c_str()); }));
    EXPECT_EQ(bytes, faults.Taken() ? std::nullopt : std::optional(good));
    // With no memory left the line is lost as well: logging never changes a job.
    EXPECT_EQ(LogText(), faults.Mode() == AllocationFaultMode::kOnce
                             ? "ERROR: _utf8(): A memory error occurred.\n"
                               "ERROR: Code 0x00000008 --> Unknown Error.\n"
                             : "");
  });
}

TEST_F(TextEncoding, EveryAllocationOfNarrowingText) {
  const std::u16string text = LongText(u'x') + u"\u00C3\u00A4";
  const std::string good = std::string(200, 'x') + "\xC3\xA4";
  test::SweepAllocations("_utf8 of widened bytes", [&](AllocationFaults& faults) {
    machine_.Reset();
    std::optional<std::string> bytes;
    ASSERT_TRUE(faults.Run([&] { bytes = _utf8(text.c_str()); }));
    EXPECT_EQ(bytes, faults.Taken() ? std::nullopt : std::optional(good));
    EXPECT_EQ(LogText(), faults.Mode() == AllocationFaultMode::kOnce
                             ? "ERROR: _utf8(): A memory error occurred.\n"
                               "ERROR: Code 0x00000008 --> Unknown Error.\n"
                             : "");
  });
}

TEST_F(TextEncoding, EveryAllocationOfAFailingConversion) {
  const std::u16string text = LongText(u'\u4E2D');
  test::SweepAllocations("_utf8 that fails", [&](AllocationFaults& faults) {
    machine_.Reset();
    std::optional<std::string> bytes = "old";
    ASSERT_TRUE(faults.Run([&] { bytes = _utf8(text.c_str()); }));
    const std::string log = LogText();
    if (!bytes) {
      EXPECT_EQ(faults.Index(), 0u) << "the buffer comes first";
      return;
    }
    EXPECT_EQ(bytes, "");
    // Lines are lost whole or not at all.
    const std::string lines(kConversionFailed);
    const std::string code = lines.substr(lines.find('\n') + 1);
    const std::string message = lines.substr(0, lines.size() - code.size());
    EXPECT_TRUE(log == lines || log == message || log == code || log.empty()) << log;
    EXPECT_EQ(log == lines, !faults.Taken());
  });
}

TEST_F(TextEncoding, EveryAllocationOfDecodingBytes) {
  const std::string bytes(200, 'x');
  test::SweepAllocations("FromUtf8", [&](AllocationFaults& faults) {
    machine_.Reset();
    std::optional<std::u16string> text;
    ASSERT_TRUE(faults.Run([&] { text = FromUtf8(bytes.c_str()); }));
    EXPECT_EQ(text, faults.Taken() ? std::nullopt : std::optional(LongText(u'x')));
    EXPECT_EQ(LogText(), "");
  });
}

TEST_F(TextEncoding, EveryAllocationOfWideningBytes) {
  const std::string bytes(200, 'x');
  test::SweepAllocations("WidenThroughAnsi", [&](AllocationFaults& faults) {
    machine_.Reset();
    std::optional<std::u16string> text;
    ASSERT_TRUE(faults.Run([&] { text = WidenThroughAnsi(bytes); }));
    EXPECT_EQ(text, faults.Taken() ? std::nullopt : std::optional(LongText(u'x')));
  });
}

TEST_F(TextEncoding, EveryAllocationOfReadingAJsonText) {
  const std::u16string name = LongText(u'n');
  const std::string json = "{\"" + std::string(200, 'n') + "\": \"" + std::string(200, 'v') + "\"}";
  test::SweepAllocations("GetJsonString", [&](AllocationFaults& faults) {
    machine_.Reset();
    const Tree tree(cJSON_Parse(json.c_str()));
    std::u16string value;
    const std::u16string default_value = LongText(u'd');
    Lookup lookup{};
    ASSERT_TRUE(
        faults.Run([&] { lookup = GetJsonString(tree.get(), name, value, default_value); }));
    EXPECT_EQ(lookup, faults.Taken() ? Lookup::kNoMemory : Lookup::kFound);
    if (lookup == Lookup::kFound) {
      EXPECT_EQ(value, LongText(u'v'));
    }
  });
}

// The lengths are only claimed: what is refused or finds no memory is never read.
TEST_F(TextEncoding, WhatIsTooLongForTheSystemIsNotConverted) {
  constexpr std::size_t kLongest = 0x7FFFFFFF;
  std::string bytes;
  for (const auto& [length, calls] :
       {std::pair((kLongest - 2) / 2, Calls{"AllocateBlock(2147483646)"}),
        std::pair(kLongest / 2, Calls{})}) {
    machine_.ClearCalls();
    EXPECT_EQ(WideToUtf8({u"", length}, bytes).outcome, Utf8Result::Outcome::kNoMemory);
    EXPECT_EQ(machine_.Calls(), calls);
  }
  machine_.FailCallOf("WideToBytes", 0, platform::kInvalidParameter);
  EXPECT_EQ(NarrowThroughAnsi({u"", kLongest}), "");
  EXPECT_TRUE(machine_.FaultTaken());
  machine_.ClearCalls();
  EXPECT_EQ(NarrowThroughAnsi({u"", kLongest + 1}), "");
  const auto widened = [](std::size_t length) {
    std::optional<std::u16string> text;
    AllocationFaults faults(AllocationFaultMode::kOnce, 0);
    EXPECT_TRUE(faults.Run([&] { text = WidenThroughAnsi({"", length}); }));
    return text;
  };
  EXPECT_EQ(widened(kLongest), std::nullopt);
  EXPECT_EQ(widened(kLongest + 1), u"");
  EXPECT_EQ(machine_.Calls(), Calls{});
}

TEST_F(TextEncoding, EveryAllocationOfSettingAJsonItem) {
  const std::u16string name = LongText(u'n');
  const std::string key(200, 'n');
  const std::string old_json = "{\"a\":1,\"" + key + "\":2}";
  const std::string new_json = "{\"a\":1,\"" + key + "\":3}";
  // A member whose new name found no memory: what became of it is for the caller to look at.
  const std::string nameless_json = "{\"a\":1,\"\":3}";
  test::SweepAllocations("SetJsonItem, replacing", [&](AllocationFaults& faults) {
    machine_.Reset();
    const Tree tree(cJSON_Parse(old_json.c_str()));
    ASSERT_TRUE(
        faults.Run([&] { EXPECT_TRUE(SetJsonItem(tree.get(), name, cJSON_CreateNumber(3))); }));
    const std::string json = Printed(tree);
    EXPECT_EQ(json == new_json, !faults.Taken());
    EXPECT_TRUE(json == new_json || json == old_json || json == nameless_json) << json;
  });
  test::SweepAllocations("SetJsonItem, adding", [&](AllocationFaults& faults) {
    machine_.Reset();
    const Tree tree(cJSON_Parse("{\"a\":1}"));
    ASSERT_TRUE(
        faults.Run([&] { EXPECT_TRUE(SetJsonItem(tree.get(), name, cJSON_CreateNumber(3))); }));
    EXPECT_EQ(Printed(tree), faults.Taken() ? "{\"a\":1}" : new_json);
  });
}

}  // namespace
}  // namespace zentpost
