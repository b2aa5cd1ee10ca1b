#include "addin/text_encoding.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "testing/allocation_faults.h"
#include "testing/expected_texts.h"
#include "testing/fake_platform/fault_sweep.h"
#include "testing/fake_platform/fixture.h"
#include "testing/log_lines.h"
#include "testing/text_printers.h"

// How the system's own conversions treat ill-formed and unmappable text in general is the platform
// contract's subject; here it is what the callers of this file get to see of it. The fake
// platform has Windows-1252 as its ANSI code page.

namespace zentpost {
namespace {

using test::AllocationFaultMode;
using test::AllocationFaults;
using test::FailureLog;
using test::kUtf8Failed;
using test::kUtf8NoMemory;
using test::LogText;
using test::Readable;
using Calls = std::vector<std::string>;
using Outcome = Utf8Result::Outcome;

struct TreeDeleter {
  void operator()(cJSON* tree) const { cJSON_Delete(tree); }
};
using Tree = std::unique_ptr<cJSON, TreeDeleter>;

Tree Parsed(const std::string& json) {
  return Tree(cJSON_Parse(json.c_str()));
}

std::string Printed(const Tree& tree) {
  char* text = cJSON_PrintUnformatted(tree.get());
  std::string copy = text == nullptr ? "(none)" : text;
  cJSON_free(text);
  return copy;
}

class TextEncoding : public platform::fake::FakePlatformTest {};

TEST_F(TextEncoding, NoTextAndAnEmptyTextGiveNoBytesAndNoCall) {
  EXPECT_EQ(_utf8(nullptr), "");
  EXPECT_EQ(_utf8(u""), "");
  EXPECT_EQ(fake_.Calls(), Calls{});
}

TEST_F(TextEncoding, TextBecomesUtf8) {
  const std::pair<const char16_t*, const char*> cases[] = {
      {u"+49 301 234", "+49 301 234"},
      {u"Gr\u00FC\u00DFe \u07FF", "Gr\u00FC\u00DFe \xDF\xBF"},
      {u"\u0800 \u20AC 5", "\xE0\xA0\x80 \xE2\x82\xAC 5"},
      {u"\uFEFF", "\xEF\xBB\xBF"},
      {u"\uFFFF", "\xEF\xBF\xBF"},
      {u"\U0001F4E0\U0010FFFF", "\xF0\x9F\x93\xA0\xF4\x8F\xBF\xBF"},
      {u"\u0001\u001F\u007F\u0080", "\x01\x1F\x7F\xC2\x80"},
      // A lone surrogate becomes the replacement character.
      {u"a\xDCE0 b", "a\xEF\xBF\xBD b"},
  };
  for (const auto& [text, bytes] : cases) {
    EXPECT_EQ(_utf8(text), bytes);
  }
  EXPECT_EQ(LogText(), "");
}

TEST_F(TextEncoding, TheConversionIsAskedForWithItsLengthAndTwiceItsSize) {
  EXPECT_EQ(_utf8(u"\u20AC 5"), "\xE2\x82\xAC 5");
  EXPECT_EQ(fake_.Calls(), (Calls{"AllocateBlock(8)", "WideToBytes(65001, 3, 8)"}));
}

// Text is taken for widened UTF-8 when the low bytes of two neighbours look like the start of a
// sequence of two or three bytes; it is then narrowed, not encoded.
TEST_F(TextEncoding, DetectionLooksAtTheLowBytesOfNeighbours) {
  const auto is_narrowed = [this](const std::u16string& text) {
    fake_.ClearCalls();
    static_cast<void>(_utf8(text.c_str()));
    const Calls calls = fake_.CallsOf("WideToBytes");
    return !calls.empty() && calls.front().starts_with("WideToBytes(3, ");
  };
  const unsigned edges[] = {0x01, 0x7F, 0x80, 0x81, 0xA5, 0xBF, 0xC0, 0xC1, 0xD0,
                            0xDF, 0xE0, 0xE1, 0xEF, 0xF0, 0xF4, 0xF8, 0xFE, 0xFF};
  for (const unsigned high : {0x00U, 0x04U, 0x20U}) {
    for (unsigned byte = 1; byte < 256; ++byte) {
      for (const unsigned edge : edges) {
        for (const auto& [lead, next] : {std::pair(byte, edge), std::pair(edge, byte)}) {
          const std::u16string text = {static_cast<char16_t>(high << 8 | lead),
                                       static_cast<char16_t>(high << 8 | next)};
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
      EXPECT_EQ(_utf8(std::u16string(length, u'x').replace(at, 2, u"\u00C3\u00A4").c_str()),
                std::string(length, 'x').replace(at, 2, "\xC3\xA4"));
    }
  }
}

TEST_F(TextEncoding, WidenedUtf8IsNarrowedBack) {
  const std::pair<std::u16string, std::string> cases[] = {
      {u"\u00C3\u00A4", "\xC3\xA4"},
      {u"M\u00C3\u00BCller", "M\xC3\xBCller"},
      {u"\u00E4\u00B8\u00AD", "\xE4\xB8\xAD"},
  };
  for (const auto& [text, bytes] : cases) {
    fake_.ClearCalls();
    EXPECT_EQ(_utf8(text.c_str()), bytes);
    // Asked for its size first, then made.
    const std::string start = "WideToBytes(3, " + std::to_string(text.size()) + ", ";
    EXPECT_EQ(fake_.Calls(), (Calls{start + "0)", start + std::to_string(bytes.size()) + ")"}));
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
  EXPECT_EQ(_utf8(u"\u00F0\u009F\u0093\u00A0"), "\xC3\xB0\xC2\x9F\xC2\x93\xC2\xA0");
}

// Narrowing gives back what Windows-1252 made of a byte; a byte from 80 to 9F that was widened to
// the character of its own number has no way back.
TEST_F(TextEncoding, DeliberateDetectedTextThatTheCodePageDoesNotHaveIsLost) {
  EXPECT_EQ(_utf8(u"\u00E2\u0082\u00AC"), "\xE2?\xAC");
}

// Of a byte from 80 to 9F that became another character in Windows-1252, the low byte is no longer
// that byte: the bytes of U+20AC are missed.
TEST_F(TextEncoding, DeliberateWidenedBytesThatMovedAreNotDetected) {
  EXPECT_EQ(_utf8(u"\u00E2\u201A\u00AC"), "\xC3\xA2\xE2\x80\x9A\xC2\xAC");
}

// The buffer has two bytes for each character and two more; whoever sends text that needs more
// finds the failure in the log and an empty value in the payload.
TEST_F(TextEncoding, DeliberateTextThatNeedsMoreThanItsBufferFails) {
  for (std::size_t length = 1; length <= 24; ++length) {
    for (std::size_t wide = 0; wide <= length; ++wide) {
      SCOPED_TRACE(std::to_string(length) + " characters, " + std::to_string(wide) +
                   " of them three bytes long");
      fake_.Reset();
      const std::u16string text =
          std::u16string(wide, u'\u4E2D') + std::u16string(length - wide, u'x');
      const std::string encoded = Readable(text);
      ASSERT_EQ(encoded.size(), length + 2 * wide);
      const bool fits = encoded.size() <= 2 * length + 2;
      EXPECT_EQ(_utf8(text.c_str()), fits ? encoded : "");
      EXPECT_EQ(LogText(), fits ? "" : FailureLog(kUtf8Failed, "0000007a"));
    }
  }
}

TEST_F(TextEncoding, LongTextIsConvertedWhole) {
  std::u16string pairs;  // which always fit
  for (int i = 0; i < 1000; ++i) {
    pairs += u"\U0001F4E0";
  }
  for (const std::u16string& text : {pairs, std::u16string(5000000, u'\u00FC')}) {
    EXPECT_TRUE(_utf8(text.c_str()) == Readable(text));
  }
}

// Only the encoding is watched over, not the way back through the code page.
TEST_F(TextEncoding, DeliberateAFailedNarrowingIsSilent) {
  for (const std::size_t call : {0U, 1U}) {
    fake_.FailCallOf("WideToBytes", call, platform::kInsufficientBuffer);
    EXPECT_EQ(_utf8(u"\u00C3\u00A4"), "");
    EXPECT_TRUE(fake_.FaultTaken());
  }
  EXPECT_EQ(LogText(), "");
}

TEST_F(TextEncoding, WideToUtf8TellsHowItEnded) {
  using namespace std::string_view_literals;
  struct Case {
    std::u16string_view text;
    std::string bytes;
    Outcome outcome = Outcome::kConverted;
    platform::Status status = platform::kSuccess;
  };
  const Case cases[] = {
      {u"\u00C3\u00A4", "\xC3\x83\xC2\xA4"},  // nothing is detected here
      {u"a\0b"sv, "a"},                       // the first zero ends it
      {u"\u4E2D\u6587\u5B57", "", Outcome::kNotConverted, platform::kInsufficientBuffer},
      {u"without memory", "", Outcome::kNoMemory, platform::kNotEnoughMemory},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(Readable(c.text));
    if (c.outcome == Outcome::kNoMemory) {
      fake_.FailCallOf("AllocateBlock", 0, c.status);
    }
    std::string bytes = "old";
    const Utf8Result result = WideToUtf8(c.text, bytes);
    EXPECT_EQ(result.outcome, c.outcome);
    EXPECT_EQ(result.status, c.status);
    EXPECT_EQ(bytes, c.bytes);
  }
  EXPECT_EQ(LogText(), "");
}

TEST_F(TextEncoding, DeliberateWideToUtf8HasNoShortcutForAnEmptyText) {
  std::string bytes = "old";
  const Utf8Result result = WideToUtf8(u"", bytes);
  EXPECT_EQ(result.outcome, Outcome::kNotConverted);
  EXPECT_EQ(result.status, platform::kInvalidParameter);
  EXPECT_EQ(bytes, "");
  EXPECT_EQ(fake_.Calls(), (Calls{"AllocateBlock(2)", "WideToBytes(65001, 0, 2)"}));
}

TEST_F(TextEncoding, BytesBecomeText) {
  const std::pair<const char*, const char16_t*> cases[] = {
      {"Gr\u00FC\u00DFe", u"Gr\u00FC\u00DFe"},
      {"\xE2\x82\xAC\xE4\xB8\xAD", u"\u20AC\u4E2D"},
      {"\xF0\x9F\x93\xA0", u"\U0001F4E0"},
      {"\xEF\xBB\xBF a", u"\uFEFF a"},
      {"", u""},
      {nullptr, u""},
  };
  for (const auto& [bytes, text] : cases) {
    EXPECT_EQ(FromUtf8(bytes), text);
  }
  EXPECT_EQ(FromUtf8(std::string(100000, 'x').c_str()), std::u16string(100000, u'x'));
}

TEST_F(TextEncoding, BytesAreConvertedWithTheirTerminator) {
  EXPECT_EQ(FromUtf8(nullptr), u"");
  EXPECT_EQ(FromUtf8("abc"), u"abc");
  EXPECT_EQ(fake_.Calls(), Calls{"BytesToWide(65001, -1, 4)"});
}

// How many replacement characters there are is the system's business.
TEST_F(TextEncoding, IllFormedBytesAreReplacedNotRejected) {
  for (const std::string bytes : {"\xFF", "\xFC\xDF", "\xC3", "\xC0\x80", "\xE2\x82",
                                  "\xED\xA0\x80", "\xF5\x80\x80\x80", "\xFF\xFE"}) {
    const std::u16string text = FromUtf8(("a" + bytes + "{").c_str()).value_or(u"none");
    EXPECT_TRUE(text.starts_with(u"a\uFFFD") && text.ends_with(u"\uFFFD{")) << Readable(text);
    EXPECT_LE(text.size(), bytes.size() + 2);
  }
}

TEST_F(TextEncoding, TheCodePageNarrowsAndWidens) {
  const std::pair<std::u16string, std::string> cases[] = {
      {u"", ""},
      {u"abc", "abc"},
      {u"\u00E4\u20AC\u0178", "\xE4\x80\x9F"},
      {u"\u0081\u008D\u008F\u0090\u009D", "\x81\x8D\x8F\x90\x9D"},
      {std::u16string(u"a\0b", 3), std::string("a\0b", 3)},
  };
  for (const auto& [text, bytes] : cases) {
    EXPECT_EQ(NarrowThroughAnsi(text), bytes);
    EXPECT_EQ(WidenThroughAnsi(bytes), text);
  }
}

// Expects that `name` has this text in `tree`; nothing: it is missing.
void ExpectJsonText(const Tree& tree, const char16_t* name, const char16_t* text) {
  SCOPED_TRACE(Readable(name));
  std::u16string value = u"old";
  EXPECT_EQ(GetJsonString(tree.get(), name, value, u"default"),
            text == nullptr ? Lookup::kMissing : Lookup::kFound);
  EXPECT_EQ(value, text == nullptr ? u"default" : text);
}

TEST_F(TextEncoding, JsonTextIsFoundOrItsDefaultIsTaken) {
  const Tree tree = Parsed(
      R"({"text": "t", "empty": "", "number": 5, "true": true, "null": null, "list": ["x"],
          "object": {"x": "y"}, "utf8": "Grüße", "escaped": "\u20ac", "text": "second"})");
  ASSERT_NE(tree, nullptr);
  for (const char16_t* name : {u"text", u"TEXT", u"TexT"}) {
    ExpectJsonText(tree, name, u"t");
  }
  ExpectJsonText(tree, u"empty", u"");
  ExpectJsonText(tree, u"utf8", u"Gr\u00FC\u00DFe");
  ExpectJsonText(tree, u"escaped", u"\u20AC");
  for (const char16_t* name :
       {u"number", u"true", u"null", u"list", u"object", u"missing", u"tex", u"texts", u""}) {
    ExpectJsonText(tree, name, nullptr);
  }
}

TEST_F(TextEncoding, WhatIsNoObjectHasNoJsonText) {
  ExpectJsonText(nullptr, u"text", nullptr);
  for (const char* json : {"[\"text\"]", "\"text\"", "5", "{}"}) {
    ExpectJsonText(Parsed(json), u"text", nullptr);
  }
}

TEST_F(TextEncoding, DeliberateAJsonTextWithoutBytesIsFoundAndEmpty) {
  const Tree tree(cJSON_CreateObject());
  cJSON_AddItemToObject(tree.get(), "text", cJSON_CreateStringReference(nullptr));
  ExpectJsonText(tree, u"text", u"");
}

// Names pass through the ANSI code page, values do not.
TEST_F(TextEncoding, JsonNamesAreLookedUpInTheCodePage) {
  const Tree tree = Parsed("{\"M\xC3\xBCller\": \"utf8\", \"M\xFCller\": \"ansi\"}");
  ExpectJsonText(tree, u"M\u00FCller", u"ansi");
  // Only ASCII letters have two cases here.
  ExpectJsonText(tree, u"m\u00FCLLER", u"ansi");
  ExpectJsonText(tree, u"M\u00DCLLER", nullptr);
}

TEST_F(TextEncoding, AJsonTextThatCannotBeConvertedIsFoundAndEmpty) {
  fake_.FailCallOf("BytesToWide", 0, platform::kInvalidParameter);
  ExpectJsonText(Parsed("{\"text\": \"t\"}"), u"text", u"");
  EXPECT_EQ(LogText(), "");
}

// A name that was lost on the way to the code page once stood for the empty name: the value of a
// stranger's member was taken, and a member without a name was added to the job file.
TEST_F(TextEncoding, AJsonNameThatCannotBeConvertedNamesNothing) {
  const Tree tree = Parsed("{\"\": \"nameless\"}");
  for (const std::size_t call : {0U, 1U}) {
    fake_.FailCallOf("WideToBytes", call, platform::kInsufficientBuffer);
    ExpectJsonText(tree, u"text", nullptr);
    fake_.FailCallOf("WideToBytes", call, platform::kInsufficientBuffer);
    EXPECT_TRUE(SetJsonItem(tree.get(), u"text", cJSON_CreateString("new")));
    EXPECT_EQ(Printed(tree), "{\"\":\"nameless\"}");
  }
  ExpectJsonText(tree, u"", u"nameless");
}

TEST_F(TextEncoding, JsonItemsAreAddedOrReplaced) {
  struct Case {
    const char16_t* name;
    cJSON* item;
    const char* json;  // then
  };
  const Tree tree = Parsed(R"({"a": 1, "b": {"x": 2}, "c": 3})");
  const Case cases[] = {
      {u"d", cJSON_CreateString("new"), R"({"a":1,"b":{"x":2},"c":3,"d":"new"})"},
      {u"b", cJSON_CreateNumber(-7), R"({"a":1,"b":-7,"c":3,"d":"new"})"},
      {u"a", cJSON_CreateObject(), R"({"a":{},"b":-7,"c":3,"d":"new"})"},
      {u"d", cJSON_CreateNumber(4), R"({"a":{},"b":-7,"c":3,"d":4})"},
      {u"d", cJSON_CreateNumber(5), R"({"a":{},"b":-7,"c":3,"d":5})"},
      // Whatever the case of its name, which becomes the new one.
      {u"C", cJSON_CreateNumber(0), R"({"a":{},"b":-7,"C":0,"d":5})"},
      {u"a", nullptr, R"({"a":{},"b":-7,"C":0,"d":5})"},
      {u"e", nullptr, R"({"a":{},"b":-7,"C":0,"d":5})"},
  };
  for (const Case& c : cases) {
    EXPECT_TRUE(SetJsonItem(tree.get(), c.name, c.item));
    EXPECT_EQ(Printed(tree), c.json);
  }
  EXPECT_TRUE(SetJsonItem(nullptr, u"a", cJSON_CreateNumber(1))) << "which is freed";
}

std::string Converted(const std::optional<std::string>& bytes) {
  return bytes.value_or("no memory");
}

TEST_F(TextEncoding, EveryCallOfTheConversions) {
  struct Case {
    const char* name;
    std::string (*convert)();
    // Without a fault: what is given and logged.
    std::string bytes;
    std::string log;
    bool is_logged;  // when it fails
  };
  const Case cases[] = {
      {"encoded", [] { return Converted(_utf8(u"\u20AC 5")); }, "\xE2\x82\xAC 5", "", true},
      {"too long", [] { return Converted(_utf8(u"\u4E2D\u6587\u5B57")); }, "",
       FailureLog(kUtf8Failed, "0000007a"), true},
      {"narrowed", [] { return Converted(_utf8(u"\u00C3\u00A4")); }, "\xC3\xA4", "", false},
      {"NarrowThroughAnsi", [] { return Converted(NarrowThroughAnsi(u"a")); }, "a", "", false},
      {"from UTF-8", [] { return Readable(FromUtf8("a\xC3\xA4").value_or(u"none")); }, "a\xC3\xA4",
       "", false},
      {"widened", [] { return Readable(WidenThroughAnsi("a\xE4").value_or(u"none")); }, "a\xC3\xA4",
       "", false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::string bytes;
    platform::fake::SweepFaults(
        {[] {}, [&] { bytes = c.convert(); }}, [&](const platform::fake::FaultRun& run) {
          const bool in_allocation = run.name == "AllocateBlock";
          if (!in_allocation && run.name != "WideToBytes" && run.name != "BytesToWide") {
            // A call for the lines of a conversion that has failed by then.
            EXPECT_EQ(bytes, c.bytes);
            EXPECT_EQ(LogText(), c.log);
            return;
          }
          EXPECT_EQ(bytes, in_allocation ? "no memory" : "");
          EXPECT_EQ(LogText(), c.is_logged ? FailureLog(in_allocation ? kUtf8NoMemory : kUtf8Failed,
                                                        "0000001f")
                                           : "");
        });
  }
}

// Long enough for no text to live inside its string object.
const std::u16string kLongText(200, u'x');
const std::string kLongBytes(200, 'x');

// Sweeps a conversion that gives `good`, or nothing and `log` when memory runs out.
template <class Text, class Convert>
void SweepConversion(const char* name, const Text& good, const std::string& log, Convert convert) {
  test::SweepAllocations(name, [&](AllocationFaults& faults) {
    platform::fake::TheFakePlatform().Reset();
    std::optional<Text> text;
    ASSERT_TRUE(faults.Run([&] { text = convert(); }));
    EXPECT_EQ(text, faults.Taken() ? std::nullopt : std::optional(good));
    // With no memory left the line is lost as well: logging never changes a job.
    EXPECT_EQ(LogText(), faults.Mode() == AllocationFaultMode::kOnce ? log : "");
  });
}

TEST_F(TextEncoding, EveryAllocationOfTheConversions) {
  const std::string log = FailureLog(kUtf8NoMemory, "00000008");
  const std::u16string widened = kLongText + u"\u00C3\u00A4";
  SweepConversion("_utf8", kLongBytes, log, [] { return _utf8(kLongText.c_str()); });
  SweepConversion("_utf8 of widened bytes", kLongBytes + "\xC3\xA4", log,
                  [&] { return _utf8(widened.c_str()); });
  SweepConversion("FromUtf8", kLongText, "", [] { return FromUtf8(kLongBytes.c_str()); });
  SweepConversion("WidenThroughAnsi", kLongText, "", [] { return WidenThroughAnsi(kLongBytes); });
}

TEST_F(TextEncoding, EveryAllocationOfAFailingConversion) {
  const std::u16string text(200, u'\u4E2D');
  test::SweepAllocations("_utf8 that fails", [&](AllocationFaults& faults) {
    fake_.Reset();
    std::optional<std::string> bytes = "old";
    ASSERT_TRUE(faults.Run([&] { bytes = _utf8(text.c_str()); }));
    const std::string log = LogText();
    if (!bytes) {
      EXPECT_EQ(faults.Index(), 0u) << "the buffer comes first";
      return;
    }
    EXPECT_EQ(bytes, "");
    // Lines are lost whole or not at all.
    const std::string lines = FailureLog(kUtf8Failed, "0000007a");
    const std::string code = lines.substr(lines.find('\n') + 1);
    const std::string message = lines.substr(0, lines.size() - code.size());
    EXPECT_TRUE(log == lines || log == message || log == code || log.empty()) << log;
    EXPECT_EQ(log == lines, !faults.Taken());
  });
}

TEST_F(TextEncoding, EveryAllocationOfReadingAJsonText) {
  const std::string json = "{\"" + kLongBytes + "\": \"" + std::string(200, 'v') + "\"}";
  test::SweepAllocations("GetJsonString", [&](AllocationFaults& faults) {
    const Tree tree = Parsed(json);
    std::u16string value;
    const std::u16string default_value(200, u'd');
    Lookup lookup{};
    ASSERT_TRUE(
        faults.Run([&] { lookup = GetJsonString(tree.get(), kLongText, value, default_value); }));
    EXPECT_EQ(lookup, faults.Taken() ? Lookup::kNoMemory : Lookup::kFound);
    if (lookup == Lookup::kFound) {
      EXPECT_EQ(value, std::u16string(200, u'v'));
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
    fake_.ClearCalls();
    EXPECT_EQ(WideToUtf8({u"", length}, bytes).outcome, Outcome::kNoMemory);
    EXPECT_EQ(fake_.Calls(), calls);
  }
  fake_.FailCallOf("WideToBytes", 0, platform::kInvalidParameter);
  EXPECT_EQ(NarrowThroughAnsi({u"", kLongest}), "");
  EXPECT_TRUE(fake_.FaultTaken());
  fake_.ClearCalls();
  EXPECT_EQ(NarrowThroughAnsi({u"", kLongest + 1}), "");
  const auto widened = [](std::size_t length) {
    std::optional<std::u16string> text;
    AllocationFaults faults(AllocationFaultMode::kOnce, 0);
    EXPECT_TRUE(faults.Run([&] { text = WidenThroughAnsi({"", length}); }));
    return text;
  };
  EXPECT_EQ(widened(kLongest), std::nullopt);
  EXPECT_EQ(widened(kLongest + 1), u"");
  EXPECT_EQ(fake_.Calls(), Calls{});
}

TEST_F(TextEncoding, EveryAllocationOfSettingAJsonItem) {
  const std::string new_json = "{\"a\":1,\"" + kLongBytes + "\":3}";
  for (const std::string& old_json :
       {std::string("{\"a\":1}"), "{\"a\":1,\"" + kLongBytes + "\":2}"}) {
    test::SweepAllocations("SetJsonItem", [&](AllocationFaults& faults) {
      const Tree tree = Parsed(old_json);
      ASSERT_TRUE(faults.Run(
          [&] { EXPECT_TRUE(SetJsonItem(tree.get(), kLongText, cJSON_CreateNumber(3))); }));
      const std::string json = Printed(tree);
      EXPECT_EQ(json == new_json, !faults.Taken());
      // A replaced member whose new name found no memory is for the caller to look at.
      EXPECT_TRUE(json == new_json || json == old_json ||
                  (json == "{\"a\":1,\"\":3}" && old_json != "{\"a\":1}"))
          << json;
    });
  }
}

}  // namespace
}  // namespace zentpost
