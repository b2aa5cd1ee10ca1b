#include "tools/doctor/options.h"

#include <algorithm>

namespace zentpost::doctor {
namespace {

bool IsBlank(char16_t unit) {
  return unit == u' ' || unit == u'\t';
}

void SkipBlanks(std::u16string_view& text) {
  const auto* const first = std::find_if_not(text.begin(), text.end(), IsBlank);
  text.remove_prefix(static_cast<std::size_t>(first - text.begin()));
}

// Takes the next word off the front, without its double quotes.
std::u16string TakeWord(std::u16string_view& text) {
  std::u16string word;
  bool is_quoted = false;
  std::size_t length = 0;
  for (; length < text.size() && (is_quoted || !IsBlank(text[length])); ++length) {
    if (text[length] == u'"') {
      is_quoted = !is_quoted;
    } else {
      word.push_back(text[length]);
    }
  }
  text.remove_prefix(length);
  SkipBlanks(text);
  return word;
}

// The one action that stands alone; false when `word` is none.
bool ReadAction(const std::u16string& word, std::u16string_view& text, Options& options) {
  if (word == u"--help") {
    options.action = Options::Action::kHelp;
  } else if (word == u"--version") {
    options.action = Options::Action::kVersion;
  } else if (word == u"--explain") {
    options.action = Options::Action::kExplain;
    options.code = TakeWord(text);
    if (options.code.empty()) {
      options.wrong = u"--explain wants a code, such as D13";
    }
  } else {
    return false;
  }
  return true;
}

}  // namespace

Options ReadOptions(std::u16string_view text) {
  Options options;
  SkipBlanks(text);
  bool is_first = true;
  while (options.wrong.empty() && text.starts_with(u"--")) {
    const std::u16string word = TakeWord(text);
    const bool stands_alone = ReadAction(word, text, options);
    if (stands_alone && options.wrong.empty() && !(is_first && text.empty())) {
      options.wrong = word + u" stands alone";
    } else if (word == u"--json") {
      options.is_json = true;
    } else if (word == u"--connect") {
      options.connects = true;
    } else if (word == u"--out") {
      options.wrong = options.out ? u"--out stands twice" : u"";
      options.out = TakeWord(text);
      if (options.out->empty()) {
        options.wrong = u"--out wants a file";
      }
    } else if (!stands_alone) {
      options.wrong = u"unknown option \"" + word + u"\"";
    }
    is_first = false;
  }
  if (!text.empty()) {
    options.line = text;
  }
  return options;
}

}  // namespace zentpost::doctor
