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

class Random {
 public:
  explicit Random(unsigned seed) : numbers_(seed) {}
  std::size_t Below(std::size_t limit) { return static_cast<std::size_t>(numbers_() % limit); }

 private:
  std::mt19937 numbers_;
};

constexpr CodePage kPages[] = {CodePage::kSystemAnsi, CodePage::kUtf8, CodePage::kThreadAnsi};

template <class Unit>
struct Converted {
  Status status = 0;
  std::int32_t written = 0;
  std::basic_string<Unit> text;
  bool operator==(const Converted&) const = default;
};
using Widened = Converted<char16_t>;

// A conversion with `capacity` units to write to; 0 asks how many are needed.
template <class Unit, class Function, class Source>
Converted<Unit> Convert(Function convert, CodePage code_page, Source source,
                        std::int32_t capacity) {
  Converted<Unit> result;
  Unit units[64] = {};
  result.status = convert(code_page, source.data(), static_cast<std::int32_t>(source.size()), units,
                          capacity, result.written);
  if (capacity != 0) {
    result.text.assign(units, static_cast<std::size_t>(result.written));
  }
  return result;
}

// Where the capacity ends in the middle of the last pair of surrogates, Wine writes half of it and
// calls that success.
bool IsHalfAPair(const Widened& widened) {
  return !widened.text.empty() && (widened.text.back() & 0xFC00) == 0xD800;
}

bool SameWidening(CodePage code_page, std::string_view bytes, std::int32_t capacity) {
  const auto system = Convert<char16_t>(BytesToWide, code_page, bytes, capacity);
  const auto software = Convert<char16_t>(software::BytesToWide, code_page, bytes, capacity);
  return system == software || (software.status == kInsufficientBuffer && IsHalfAPair(system));
}

bool SameNarrowing(CodePage code_page, std::u16string_view text, std::int32_t capacity) {
  return Convert<char>(WideToBytes, code_page, text, capacity) ==
         Convert<char>(software::WideToBytes, code_page, text, capacity);
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
  Random random(1);
  for (int round = 0; round < 500'000; ++round) {
    std::string bytes(1 + random.Below(14), '\0');
    for (char& byte : bytes) {
      byte = static_cast<char>(kBytes[random.Below(std::size(kBytes))]);
    }
    const auto capacity = static_cast<std::int32_t>(random.Below(3) != 0 ? 60 : random.Below(16));
    for (const CodePage code_page : kPages) {
      if (!SameWidening(code_page, bytes, capacity)) {
        ADD_FAILURE() << Hex(bytes) << ", space for " << capacity;
      }
    }
  }
}

TEST(TextCodec, EveryUnitNarrowsAsInSoftware) {
  for (unsigned number = 0; number < 0x10000; ++number) {
    const auto unit = static_cast<char16_t>(number);
    for (const CodePage code_page : kPages) {
      for (const std::int32_t capacity : {0, 1, 2, 3}) {
        EXPECT_TRUE(SameNarrowing(code_page, {&unit, 1}, capacity)) << number << ' ' << capacity;
      }
    }
  }
}

TEST(TextCodec, MixedUnitsNarrowAsInSoftware) {
  Random random(2);
  constexpr char16_t kFirst[] = {0, 0x80, 0xD800, 0xDC00, 0xFF00};
  constexpr std::size_t kCount[] = {0x80, 0x780, 0x400, 0x400, 0x100};
  for (int round = 0; round < 500'000; ++round) {
    std::u16string text(1 + random.Below(14), u'\0');
    for (char16_t& unit : text) {
      const std::size_t kind = random.Below(std::size(kFirst));
      unit = static_cast<char16_t>(kFirst[kind] + random.Below(kCount[kind]));
    }
    const auto capacity = static_cast<std::int32_t>(random.Below(3) != 0 ? 60 : random.Below(40));
    for (const CodePage code_page : kPages) {
      EXPECT_TRUE(SameNarrowing(code_page, text, capacity))
          << testing::PrintToString(text) << ", space for " << capacity;
    }
  }
}

// What a mail client or the user has set for the thread changes nothing for the system.
TEST(TextCodec, TheSystemsCodePageIsNotTheThreads) {
  constexpr std::string_view kLetter = "\xE4";
  const LCID before = GetThreadLocale();
  const LCID greek = MAKELCID(MAKELANGID(LANG_GREEK, SUBLANG_DEFAULT), SORT_DEFAULT);
  ASSERT_NE(SetThreadLocale(greek), FALSE);
  const Widened by_thread = Convert<char16_t>(BytesToWide, CodePage::kThreadAnsi, kLetter, 8);
  const Widened by_system = Convert<char16_t>(BytesToWide, CodePage::kSystemAnsi, kLetter, 8);
  SetThreadLocale(before);
  EXPECT_EQ(by_thread.text, u"\u03B4");
  EXPECT_TRUE(by_system ==
              Convert<char16_t>(software::BytesToWide, CodePage::kSystemAnsi, kLetter, 8));
}

}  // namespace
}  // namespace platform
