#include "addin/text_encoding.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

#include "fuzz/input.h"
#include "fuzz/targets.h"
#include "testing/end_to_end/text.h"

namespace zentpost::fuzz {
namespace {

std::string UpToZero(const std::string& bytes) {
  return bytes.substr(0, bytes.find('\0'));
}

bool CarriesUtf8(std::u16string_view text) {
  for (std::size_t i = 1; i < text.size(); ++i) {
    const unsigned lead = text[i - 1] % 0x100U;
    const unsigned next = text[i] % 0x100U;
    if (lead >= 0xC0 && lead < 0xF0 && next >= 0x80 && next < 0xC0) {
      return true;
    }
  }
  return false;
}

void CheckFromUtf16(const std::u16string& text) {
  using Outcome = Utf8Result::Outcome;
  const std::string encoded = e2e::Utf8(text);
  const bool fits = !text.empty() && encoded.size() <= 2 * text.size() + 2;
  std::string bytes = "from before";
  const Utf8Result result = WideToUtf8(text, bytes);
  Require(result.outcome == (fits ? Outcome::kConverted : Outcome::kNotConverted));
  Require(bytes == (fits ? UpToZero(encoded) : ""));

  // What stops at the first zero.
  const std::u16string until_zero = text.substr(0, text.find(u'\0'));
  std::string expected;
  if (CarriesUtf8(until_zero)) {
    expected = NarrowThroughAnsi(until_zero).value();
    Require(!expected.empty());
  } else if (!until_zero.empty() && e2e::Utf8(until_zero).size() <= 2 * until_zero.size() + 2) {
    expected = e2e::Utf8(until_zero);
  }
  Require(_utf8(text.c_str()) == expected);

  // Back again, unless a lone surrogate was lost on the way.
  const std::u16string back = FromUtf8(encoded.c_str()).value();
  Require(e2e::Utf8(back) == UpToZero(encoded));
}

void CheckFromBytes(const std::string& bytes) {
  // Every byte is a character of the code page, and every such character that byte.
  const std::u16string widened = WidenThroughAnsi(bytes).value();
  Require(widened.size() == bytes.size());
  Require(NarrowThroughAnsi(widened) == bytes);

  // UTF-8 is never shorter than what it encodes, and what is ill-formed becomes well-formed.
  const std::string until_zero = UpToZero(bytes);
  const std::u16string decoded = FromUtf8(bytes.c_str()).value();
  Require(decoded.size() <= until_zero.size());
  Require(decoded.empty() == until_zero.empty());
  Require(FromUtf8(e2e::Utf8(decoded).c_str()) == decoded);

  // What the add-in does with what it receives.
  std::string wire;
  if (WideToUtf8(WidenThroughAnsi(until_zero).value(), wire).outcome ==
      Utf8Result::Outcome::kConverted) {
    Require(NarrowThroughAnsi(FromUtf8(wire.c_str()).value()) == until_zero);
  }
}

}  // namespace

void FuzzTextEncoding(std::string_view input) {
  const FuzzedPlatform platform;
  CheckFromUtf16(Input(input).Text());
  CheckFromBytes(std::string(input));
}

}  // namespace zentpost::fuzz
