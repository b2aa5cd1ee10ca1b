// Printf-style formatting of UTF-16 text, the same on every system: the C libraries disagree about
// "%s" in wide formats. A format that does not fit its arguments does not compile.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

namespace zentpost {

// A zero-terminated UTF-8 text as an argument (never null): it is converted where it comes to
// stand, so that a long one does not exist in UTF-16 twice. Ill-formed bytes become U+FFFD; a text
// that cannot be converted is empty.
struct Utf8Text {
  const char* bytes;
};

// One value to be formatted. Refers to the text it was made from; lives no longer than that.
class FormatArgument {
 public:
  enum class Kind { kText, kSigned, kUnsigned, kPointer };

  // A text ends at its first zero unit, as a C string does. A null pointer prints as "(null)".
  FormatArgument(const char16_t* text)  // NOLINT(google-explicit-constructor): made at the call
      : kind_(Kind::kText), text_(text == nullptr ? u"(null)" : text) {}
  FormatArgument(std::u16string_view text)  // NOLINT(google-explicit-constructor): as above
      : kind_(Kind::kText), text_(text.substr(0, text.find(u'\0'))) {}
  FormatArgument(const std::u16string& text)  // NOLINT(google-explicit-constructor): as above
      : FormatArgument(std::u16string_view(text)) {}
  FormatArgument(Utf8Text text)  // NOLINT(google-explicit-constructor): as above
      : kind_(Kind::kText), utf8_(text.bytes) {}
  FormatArgument(std::int32_t number)  // NOLINT(google-explicit-constructor): as above
      : kind_(Kind::kSigned), number_(static_cast<std::uint32_t>(number)) {}
  FormatArgument(std::uint32_t number)  // NOLINT(google-explicit-constructor): as above
      : kind_(Kind::kUnsigned), number_(number) {}
  FormatArgument(std::uint16_t number)  // NOLINT(google-explicit-constructor): as above
      : kind_(Kind::kSigned), number_(number) {}
  FormatArgument(const void* pointer)  // NOLINT(google-explicit-constructor): as above
      : kind_(Kind::kPointer), number_(reinterpret_cast<std::uintptr_t>(pointer)) {}

  [[nodiscard]] Kind GetKind() const { return kind_; }
  [[nodiscard]] std::u16string_view Text() const { return text_; }
  // The text in UTF-8, which then stands for Text(); null when it is none.
  [[nodiscard]] const char* Utf8() const { return utf8_; }
  [[nodiscard]] std::int32_t Signed() const { return static_cast<std::int32_t>(number_); }
  [[nodiscard]] std::uint32_t Unsigned() const { return static_cast<std::uint32_t>(number_); }
  [[nodiscard]] std::uintptr_t Pointer() const { return number_; }

 private:
  Kind kind_;
  std::u16string_view text_;
  const char* utf8_ = nullptr;
  std::uintptr_t number_ = 0;
};

namespace format_internal {

// One conversion of a format: "%" [0] [width] [. precision] type. "%ws" is "%s". As in C, the zero
// flag says nothing beside a precision; texts and "%%" take no flag, width or precision.
struct Conversion {
  bool valid = false;
  std::size_t length = 0;  // in units, with the percent sign
  bool zero_padded = false;
  std::size_t width = 0;
  std::size_t precision = 0;  // the least number of digits
  char16_t type = 0;          // 's', 'd', 'u', 'x', 'X', 'p' or '%'
};

// Reads the conversion that begins at the percent sign text[0].
constexpr Conversion ReadConversion(std::u16string_view text) {
  Conversion result;
  std::size_t at = 1;
  const auto number = [&text, &at] {
    std::size_t value = 0;
    while (at < text.size() && text[at] >= u'0' && text[at] <= u'9') {
      value = value * 10 + static_cast<std::size_t>(text[at] - u'0');
      ++at;
    }
    return value;
  };
  if (at < text.size() && text[at] == u'0') {
    result.zero_padded = true;
    ++at;
  }
  result.width = number();
  if (at < text.size() && text[at] == u'.') {
    ++at;
    result.precision = number();
    result.zero_padded = false;
  }
  const bool is_plain = at == 1;
  if (text.substr(at, 2) == u"ws") {
    ++at;
  }
  if (at < text.size()) {
    result.type = text[at];
    result.length = at + 1;
    const std::u16string_view types = is_plain ? u"s%duxXp" : u"duxXp";
    result.valid = types.find(result.type) != std::u16string_view::npos;
  }
  return result;
}

template <class T>
constexpr FormatArgument::Kind KindOf() {
  if constexpr (std::convertible_to<T, std::u16string_view> || std::same_as<T, Utf8Text>) {
    return FormatArgument::Kind::kText;
  } else if constexpr (std::is_pointer_v<std::decay_t<T>>) {
    return FormatArgument::Kind::kPointer;
  } else {
    static_assert(std::is_integral_v<T> && sizeof(T) <= 4,
                  "a 32-bit number, a UTF-16 text or a pointer");
    // What C's integer promotion would make of it.
    return std::is_signed_v<T> || sizeof(T) < 4 ? FormatArgument::Kind::kSigned
                                                : FormatArgument::Kind::kUnsigned;
  }
}

constexpr bool Fits(char16_t type, FormatArgument::Kind kind) {
  switch (type) {
    case u's':
      return kind == FormatArgument::Kind::kText;
    case u'd':
      return kind == FormatArgument::Kind::kSigned;
    case u'p':
      return kind == FormatArgument::Kind::kPointer;
    default:  // hexadecimal digits are asked for numbers of either sign
      return kind == FormatArgument::Kind::kUnsigned || kind == FormatArgument::Kind::kSigned;
  }
}

// Not constant expressions: reaching one of them is the compiler's error message.
void FormatHasAnUnknownConversion();
void FormatHasMoreConversionsThanArguments();
void FormatHasFewerConversionsThanArguments();
void FormatDoesNotFitTheArgumentsType();

}  // namespace format_internal

// A format literal that was held against the types of its arguments when it was compiled.
template <class... Args>
class CheckedFormat {
 public:
  consteval CheckedFormat(const char16_t* text)  // NOLINT(google-explicit-constructor): literals
      : text_(text) {
    constexpr std::size_t kCount = sizeof...(Args);
    constexpr FormatArgument::Kind kKinds[kCount + 1] = {format_internal::KindOf<Args>()...};
    std::size_t used = 0;
    for (std::size_t at = 0; at < text_.size();) {
      if (text_[at] != u'%') {
        ++at;
        continue;
      }
      const format_internal::Conversion conversion =
          format_internal::ReadConversion(text_.substr(at));
      if (!conversion.valid) {
        format_internal::FormatHasAnUnknownConversion();
      }
      at += conversion.length;
      if (conversion.type == u'%') {
        continue;
      }
      if (used == kCount) {
        format_internal::FormatHasMoreConversionsThanArguments();
      }
      if (!format_internal::Fits(conversion.type, kKinds[used])) {
        format_internal::FormatDoesNotFitTheArgumentsType();
      }
      ++used;
    }
    if (used != kCount) {
      format_internal::FormatHasFewerConversionsThanArguments();
    }
  }

  [[nodiscard]] constexpr std::u16string_view Text() const { return text_; }

 private:
  std::u16string_view text_;
};

// Formats `arguments` into `format`, which has been held against them, and appends that to `out`,
// which gets space for it at once, and for one unit more. Supported: %s and %ws (text), %d %u %x
// %X (32 bits; with a zero flag, a width and a precision), %p (upper-case hexadecimal digits in the
// machine's full width) and %%. Throws std::bad_alloc when memory runs out, and std::length_error
// beyond what a text can hold.
void AppendFormatted(std::u16string& out, std::u16string_view format,
                     std::span<const FormatArgument> arguments);

// The same as a text of its own, for a format literal and its arguments.
template <class... Args>
[[nodiscard]] std::u16string Format(std::type_identity_t<CheckedFormat<Args...>> format,
                                    const Args&... args) {
  const std::initializer_list<FormatArgument> arguments = {FormatArgument(args)...};
  std::u16string out;
  AppendFormatted(out, format.Text(), std::span(arguments.begin(), arguments.size()));
  return out;
}

}  // namespace zentpost
