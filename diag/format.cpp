#include "diag/format.h"

#include <cstring>

#include "diag/utf8_text.h"

namespace zentpost {
namespace {

// Digits of `number` in `base`, at least `least` of them, and a minus sign in front of a negative
// one; blanks or zeros fill up to the conversion's width.
void AppendNumber(std::u16string& out, std::uintptr_t number, bool negative, unsigned base,
                  bool upper_case, const format_internal::Conversion& conversion) {
  const char16_t* digits = upper_case ? u"0123456789ABCDEF" : u"0123456789abcdef";
  std::u16string reversed;
  while (number != 0 || reversed.empty()) {
    reversed.push_back(digits[number % base]);
    number /= base;
  }
  std::size_t least = conversion.precision;
  const std::size_t sign = negative ? 1 : 0;
  if (conversion.zero_padded && conversion.width > sign + least) {
    least = conversion.width - sign;
  }
  if (reversed.size() < least) {
    reversed.append(least - reversed.size(), u'0');
  }
  if (negative) {
    reversed.push_back(u'-');
  }
  if (reversed.size() < conversion.width) {
    reversed.append(conversion.width - reversed.size(), u' ');
  }
  out.append(reversed.rbegin(), reversed.rend());
}

void AppendArgument(std::u16string& out, const FormatArgument& argument,
                    format_internal::Conversion conversion) {
  switch (conversion.type) {
    case u's':
      if (argument.Utf8() != nullptr) {
        AppendUtf8(out, argument.Utf8());
      } else {
        out.append(argument.Text());
      }
      break;
    case u'd': {
      const std::int64_t number = argument.Signed();
      const bool negative = number < 0;
      AppendNumber(out, static_cast<std::uintptr_t>(negative ? -number : number), negative, 10,
                   false, conversion);
      break;
    }
    case u'u':
      AppendNumber(out, argument.Unsigned(), false, 10, false, conversion);
      break;
    case u'p':
      conversion.precision = sizeof(void*) * 2;
      AppendNumber(out, argument.Pointer(), false, 16, true, conversion);
      break;
    default:
      AppendNumber(out, argument.Unsigned(), false, 16, conversion.type == u'X', conversion);
      break;
  }
}

}  // namespace

void AppendFormatted(std::u16string& out, std::u16string_view format,
                     std::span<const FormatArgument> arguments) {
  // Texts may be as long as a document: `out` does not grow step by step. Numbers are short.
  std::size_t needed = out.size() + format.size() + 1;
  for (const FormatArgument& argument : arguments) {
    needed +=
        argument.Utf8() != nullptr ? std::strlen(argument.Utf8()) + 1 : argument.Text().size();
  }
  out.reserve(needed);
  std::size_t used = 0;
  while (!format.empty()) {
    const std::size_t percent = format.find(u'%');
    out.append(format.substr(0, percent));
    if (percent == std::u16string_view::npos) {
      break;
    }
    format.remove_prefix(percent);
    const format_internal::Conversion conversion = format_internal::ReadConversion(format);
    if (conversion.type == u'%') {
      out.push_back(u'%');
    } else if (conversion.valid && used < arguments.size()) {
      AppendArgument(out, arguments[used], conversion);
      ++used;
    }
    format.remove_prefix(conversion.length == 0 ? format.size() : conversion.length);
  }
}

}  // namespace zentpost
