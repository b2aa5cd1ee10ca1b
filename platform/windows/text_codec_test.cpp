// The system's conversions against the software ones, which stand in for them elsewhere.
#include "platform/text_codec.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <cstdint>
#include <iterator>
#include <random>
#include <string>
#include <string_view>

#include "platform/codec/software_codec.h"

namespace platform {
namespace {

// Lead bytes, continuations and letters, mostly those at which a rule begins or ends.
constexpr unsigned char kBytes[] = {0x00, 0x41, 0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xBF,
                                    0xC0, 0xC1, 0xC2, 0xDF, 0xE0, 0xE1, 0xEC, 0xED, 0xEE,
                                    0xEF, 0xF0, 0xF1, 0xF3, 0xF4, 0xF5, 0xF8, 0xFF};

std::string Hex(std::string_view bytes) {
  std::string text;
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    text += {' ', "0123456789ABCDEF"[value >> 4], "0123456789ABCDEF"[value & 15]};
  }
  return text;
}

struct Widened {
  Status status = 0;
  std::int32_t written = 0;
  std::u16string text;
};

// A conversion into room for `capacity` units; 0 asks for the room needed.
template <class Function>
Widened Widen(Function convert, CodePage code_page, std::string_view bytes, std::int32_t capacity) {
  Widened result;
  char16_t text[64] = {};
  result.status = convert(code_page, bytes.data(), static_cast<std::int32_t>(bytes.size()), text,
                          capacity, result.written);
  if (capacity != 0) {
    result.text.assign(text, static_cast<std::size_t>(result.written));
  }
  return result;
}

// Where the room ends in the middle of the last pair of surrogates, Wine writes half of it and
// calls that success.
bool IsHalfAPair(const Widened& widened) {
  return !widened.text.empty() && (widened.text.back() & 0xFC00) == 0xD800;
}

bool SameWidening(CodePage code_page, std::string_view bytes, std::int32_t capacity) {
  const Widened system = Widen(BytesToWide, code_page, bytes, capacity);
  const Widened software = Widen(software::BytesToWide, code_page, bytes, capacity);
  if (software.status == kInsufficientBuffer && IsHalfAPair(system)) {
    return true;
  }
  return system.status == software.status && system.written == software.written &&
         system.text == software.text;
}

bool SameNarrowing(CodePage code_page, std::u16string_view text, std::int32_t capacity) {
  char system[64] = {};
  char software[64] = {};
  std::int32_t system_written = -1;
  std::int32_t software_written = -1;
  const auto length = static_cast<std::int32_t>(text.size());
  const Status system_status =
      WideToBytes(code_page, text.data(), length, system, capacity, system_written);
  const Status software_status =
      software::WideToBytes(code_page, text.data(), length, software, capacity, software_written);
  return system_status == software_status && system_written == software_written &&
         (capacity == 0 ||
          std::string_view(system, static_cast<std::size_t>(system_written)) ==
              std::string_view(software, static_cast<std::size_t>(system_written)));
}

TEST(TextCodec, SequencesOfUpToThreeBytesWidenAsInSoftware) {
  std::string bytes;
  const auto expect_same = [&bytes] {
    if (!SameWidening(CodePage::kUtf8, bytes, 8)) {
      ADD_FAILURE() << Hex(bytes);
    }
  };
  for (unsigned number = 0; number < 0x1000000; ++number) {
    bytes = {static_cast<char>(number >> 16), static_cast<char>(number >> 8),
             static_cast<char>(number)};
    expect_same();
    if ((number & 0xFF) == 0) {
      bytes.pop_back();
      expect_same();
    }
    if ((number & 0xFFFF) == 0) {
      bytes.pop_back();
      expect_same();
    }
  }
}

TEST(TextCodec, MixedSequencesWidenAsInSoftware) {
  std::mt19937 random(1);
  const auto below = [&random](std::size_t limit) {
    return static_cast<std::size_t>(random() % limit);
  };
  for (int round = 0; round < 500'000; ++round) {
    std::string bytes(1 + below(14), '\0');
    for (char& byte : bytes) {
      byte = static_cast<char>(kBytes[below(std::size(kBytes))]);
    }
    const auto capacity = static_cast<std::int32_t>(below(3) != 0 ? 60 : below(16));
    for (const CodePage code_page :
         {CodePage::kSystemAnsi, CodePage::kUtf8, CodePage::kThreadAnsi}) {
      if (!SameWidening(code_page, bytes, capacity)) {
        ADD_FAILURE() << Hex(bytes) << ", room for " << capacity;
      }
    }
  }
}

TEST(TextCodec, EveryUnitNarrowsAsInSoftware) {
  for (unsigned number = 0; number < 0x10000; ++number) {
    const auto unit = static_cast<char16_t>(number);
    for (const CodePage code_page :
         {CodePage::kSystemAnsi, CodePage::kUtf8, CodePage::kThreadAnsi}) {
      for (const std::int32_t capacity : {0, 1, 2, 3}) {
        EXPECT_TRUE(SameNarrowing(code_page, {&unit, 1}, capacity)) << number << ' ' << capacity;
      }
    }
  }
}

TEST(TextCodec, MixedUnitsNarrowAsInSoftware) {
  std::mt19937 random(2);
  const auto below = [&random](std::size_t limit) {
    return static_cast<std::size_t>(random() % limit);
  };
  constexpr char16_t kFirst[] = {0, 0x80, 0xD800, 0xDC00, 0xFF00};
  constexpr std::size_t kCount[] = {0x80, 0x780, 0x400, 0x400, 0x100};
  for (int round = 0; round < 500'000; ++round) {
    std::u16string text(1 + below(14), u'\0');
    for (char16_t& unit : text) {
      const std::size_t kind = below(std::size(kFirst));
      unit = static_cast<char16_t>(kFirst[kind] + below(kCount[kind]));
    }
    const auto capacity = static_cast<std::int32_t>(below(3) != 0 ? 60 : below(40));
    for (const CodePage code_page :
         {CodePage::kSystemAnsi, CodePage::kUtf8, CodePage::kThreadAnsi}) {
      EXPECT_TRUE(SameNarrowing(code_page, text, capacity))
          << testing::PrintToString(text) << ", room for " << capacity;
    }
  }
}

// What a mail client or the user has set for the thread changes nothing for the system.
TEST(TextCodec, TheSystemsCodePageIsNotTheThreads) {
  const LCID before = GetThreadLocale();
  const LCID greek = MAKELCID(MAKELANGID(LANG_GREEK, SUBLANG_DEFAULT), SORT_DEFAULT);
  ASSERT_NE(SetThreadLocale(greek), FALSE);
  const Widened by_thread = Widen(BytesToWide, CodePage::kThreadAnsi, "\xE4", 8);
  const Widened by_system = Widen(BytesToWide, CodePage::kSystemAnsi, "\xE4", 8);
  SetThreadLocale(before);
  EXPECT_EQ(by_thread.text, u"\u03B4");
  EXPECT_EQ(by_system.text, Widen(software::BytesToWide, CodePage::kSystemAnsi, "\xE4", 8).text);
}

}  // namespace
}  // namespace platform
