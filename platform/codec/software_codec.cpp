#include "platform/codec/software_codec.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <limits>
#include <string_view>

#include "platform/codec/best_fit_1252.h"

namespace platform::software {
namespace {

constexpr char16_t kReplacement = 0xFFFD;
constexpr char kDefaultByte = '?';

// The bytes 0x80 to 0x9F of Windows-1252; the rest of the code page is Latin-1. The five bytes
// that it leaves undefined pass through as the control characters of their number.
constexpr char16_t kUpperControls[] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};
static_assert(std::size(kUpperControls) == 32);

// A destination of `capacity` units that also counts when the capacity is 0. `Put` is false when
// there is no space.
template <class Unit>
class Destination {
 public:
  Destination(Unit* units, std::int32_t capacity)
      : units_(units), capacity_(static_cast<std::size_t>(capacity)) {}

  bool Put(const Unit* units, std::size_t count) {
    if (capacity_ != 0) {
      if (capacity_ - used_ < count) {
        return false;
      }
      std::copy_n(units, count, units_ + used_);
    }
    used_ += count;
    return true;
  }
  bool Put(Unit unit) { return Put(&unit, 1); }

  Status Finish(std::int32_t& written) const {
    if (used_ > std::size_t{std::numeric_limits<std::int32_t>::max()}) {
      return kInvalidParameter;
    }
    written = static_cast<std::int32_t>(used_);
    return kSuccess;
  }

 private:
  Unit* units_;
  std::size_t capacity_;
  std::size_t used_ = 0;
};

bool IsHighSurrogate(char16_t unit) {
  return (unit & 0xFC00) == 0xD800;
}
bool IsLowSurrogate(char16_t unit) {
  return (unit & 0xFC00) == 0xDC00;
}
bool IsContinuation(unsigned char byte) {
  return (byte & 0xC0) == 0x80;
}

bool EncodeUtf8(std::u16string_view text, Destination<char>& bytes) {
  constexpr unsigned kLeads[] = {0x00, 0xC0, 0xE0, 0xF0};
  for (std::size_t i = 0; i < text.size(); ++i) {
    unsigned character = text[i];
    if (IsHighSurrogate(text[i]) && i + 1 < text.size() && IsLowSurrogate(text[i + 1])) {
      character = 0x10000 + ((character & 0x3FF) << 10) + (text[i + 1] & 0x3FFU);
      ++i;
    } else if (IsHighSurrogate(text[i]) || IsLowSurrogate(text[i])) {
      character = kReplacement;
    }
    const std::size_t more = character < 0x80      ? 0
                             : character < 0x800   ? 1
                             : character < 0x10000 ? 2
                                                   : 3;
    unsigned char encoded[4];
    for (std::size_t k = more; k > 0; --k) {
      encoded[k] = static_cast<unsigned char>(0x80 | (character & 0x3F));
      character >>= 6;
    }
    encoded[0] = static_cast<unsigned char>(kLeads[more] | character);
    if (!bytes.Put(reinterpret_cast<const char*>(encoded), more + 1)) {
      return false;
    }
  }
  return true;
}

// What stands at the front of some UTF-8: a character, or kReplacement for something ill-formed,
// and how many bytes make it up.
struct Decoded {
  char32_t character;
  std::size_t length;
};

// How many bytes a sequence has by its first byte; 1 for a byte that starts no sequence.
std::size_t SequenceLength(unsigned char first) {
  if (first < 0xC2 || first > 0xF4) {
    return 1;
  }
  return first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
}

// False when the first two bytes alone show a form longer than need be, a surrogate, or a number
// above U+10FFFF.
bool CanBegin(unsigned char first, unsigned char second) {
  switch (first) {
    case 0xE0:
      return second >= 0xA0;
    case 0xED:
      return second < 0xA0;
    case 0xF0:
      return second >= 0x90;
    case 0xF4:
      return second < 0x90;
    default:
      return true;
  }
}

// Takes one or more bytes that are not ASCII. How many bytes an ill-formed sequence comprises, and
// so how many replacements there are, is the system's habit: the bytes that continue the first one,
// up to and with a second byte that cannot follow it; and all that is left when the source ends
// before the sequence could, whatever is left.
Decoded DecodeUtf8(const unsigned char* bytes, std::size_t available) {
  const std::size_t length = SequenceLength(bytes[0]);
  if (length == 1) {
    return {kReplacement, 1};
  }
  if (length > available) {
    return {kReplacement, available};
  }
  char32_t character = bytes[0] & (0x7FU >> length);
  for (std::size_t i = 1; i < length; ++i) {
    if (!IsContinuation(bytes[i])) {
      return {kReplacement, i};
    }
    if (i == 1 && !CanBegin(bytes[0], bytes[1])) {
      return {kReplacement, 2};
    }
    character = character << 6 | (bytes[i] & 0x3FU);
  }
  return {character, length};
}

bool DecodeUtf8(std::string_view bytes, Destination<char16_t>& text) {
  const auto* next = reinterpret_cast<const unsigned char*>(bytes.data());
  const unsigned char* const end = next + bytes.size();
  while (next != end) {
    if (*next < 0x80) {
      if (!text.Put(*next++)) {
        return false;
      }
      continue;
    }
    const Decoded decoded = DecodeUtf8(next, static_cast<std::size_t>(end - next));
    next += decoded.length;
    if (decoded.character < 0x10000) {
      if (!text.Put(static_cast<char16_t>(decoded.character))) {
        return false;
      }
      continue;
    }
    const char32_t offset = decoded.character - 0x10000;
    const char16_t pair[] = {static_cast<char16_t>(0xD800 + (offset >> 10)),
                             static_cast<char16_t>(0xDC00 + (offset & 0x3FF))};
    if (!text.Put(pair, 2)) {
      return false;
    }
  }
  return true;
}

// The stand-in for a unit that the code page does not have, or the unit itself.
char16_t BestFit(char16_t unit) {
  const auto* run = std::upper_bound(
      std::begin(kBestFits), std::end(kBestFits), unit,
      [](char16_t wanted, const BestFitRun& candidate) { return wanted < candidate.first; });
  if (run == std::begin(kBestFits)) {
    return unit;
  }
  --run;
  const auto index = static_cast<std::size_t>(unit - run->first);
  return index < run->stand_ins.size() ? run->stand_ins[index] : unit;
}

char NarrowUnit(char16_t unit) {
  if (unit >= 0x100) {
    unit = BestFit(unit);
  }
  if (unit < 0x80 || (unit >= 0xA0 && unit < 0x100)) {
    return static_cast<char>(static_cast<unsigned char>(unit));
  }
  const auto* found = std::find(std::begin(kUpperControls), std::end(kUpperControls), unit);
  if (found == std::end(kUpperControls)) {
    return kDefaultByte;
  }
  return static_cast<char>(static_cast<unsigned char>(0x80 + (found - std::begin(kUpperControls))));
}

// A pair of surrogates is two characters here, each without a byte.
bool NarrowText(std::u16string_view text, Destination<char>& bytes) {
  return std::all_of(text.begin(), text.end(),
                     [&bytes](char16_t unit) { return bytes.Put(NarrowUnit(unit)); });
}

bool WidenText(std::string_view bytes, Destination<char16_t>& text) {
  return std::all_of(bytes.begin(), bytes.end(), [&text](char byte) {
    const auto value = static_cast<unsigned char>(byte);
    return text.Put(value >= 0x80 && value < 0xA0 ? kUpperControls[value - 0x80] : value);
  });
}

// What the two directions have in common: the checks, and the end.
template <class Source, class Unit, class Convert>
Status Run(const Source* source, std::int32_t length, Unit* destination, std::int32_t capacity,
           std::int32_t& written, Convert convert) {
  written = 0;
  if (source == nullptr || length == 0 || capacity < 0 ||
      (destination == nullptr && capacity != 0)) {
    return kInvalidParameter;
  }
  const std::basic_string_view<Source> whole(
      source,
      length < 0 ? std::char_traits<Source>::length(source) + 1 : static_cast<std::size_t>(length));
  Destination<Unit> target(destination, capacity);
  return convert(whole, target) ? target.Finish(written) : kInsufficientBuffer;
}

}  // namespace

Status WideToBytes(CodePage code_page, const char16_t* text, std::int32_t length, char* bytes,
                   std::int32_t capacity, std::int32_t& written) {
  switch (code_page) {
    case CodePage::kUtf8:
      return Run(text, length, bytes, capacity, written, EncodeUtf8);
    case CodePage::kSystemAnsi:
    case CodePage::kThreadAnsi:
      return Run(text, length, bytes, capacity, written, NarrowText);
  }
  written = 0;
  return kInvalidParameter;
}

Status BytesToWide(CodePage code_page, const char* bytes, std::int32_t length, char16_t* text,
                   std::int32_t capacity, std::int32_t& written) {
  const auto decode = [](std::string_view source, Destination<char16_t>& target) {
    return DecodeUtf8(source, target);
  };
  switch (code_page) {
    case CodePage::kUtf8:
      return Run(bytes, length, text, capacity, written, decode);
    case CodePage::kSystemAnsi:
    case CodePage::kThreadAnsi:
      return Run(bytes, length, text, capacity, written, WidenText);
  }
  written = 0;
  return kInvalidParameter;
}

}  // namespace platform::software
