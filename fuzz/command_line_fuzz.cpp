#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "app/command_line.h"
#include "fuzz/input.h"
#include "fuzz/targets.h"
#include "testing/fake_platform/fake_platform.h"

namespace zentpost::fuzz {
namespace {

using Tokens = std::vector<std::u16string>;

bool IsQuote(char16_t unit) {
  return unit == u'"' || unit == u'\'';
}

bool IsWhiteSpace(char16_t unit) {
  return unit == u' ' || (unit >= u'\t' && unit <= u'\r');
}

bool HasQuote(std::u16string_view text) {
  return std::any_of(text.begin(), text.end(), IsQuote);
}

// What splitting neither adds nor takes away.
std::u16string Substance(std::u16string text, char16_t separator) {
  std::erase_if(text, [separator](char16_t unit) {
    return unit == separator || IsQuote(unit) || IsWhiteSpace(unit);
  });
  return text;
}

void CheckSplitting(const std::u16string& text, char16_t separator) {
  const Tokens tokens = SplitQuoted(text, separator);
  Require(tokens.empty() == text.empty());
  const auto separators = static_cast<std::size_t>(std::count(text.begin(), text.end(), separator));
  Require(tokens.size() <= separators + 1);
  if (!HasQuote(text)) {
    Require(text.empty() || tokens.size() == separators + 1);
  }
  std::u16string joined;
  for (const std::u16string& token : tokens) {
    Require(!HasQuote(token));
    joined += token;
  }
  Require(Substance(joined, separator) == Substance(text, separator));
}

void CheckFaxCommand(const std::u16string& text) {
  ParameterList fields;
  fields.Add(u"S", u"from before");
  ParseFaxCommand(fields, text);
  bool first = true;
  for (const auto& [name, value] : fields.Entries()) {
    if (first) {
      Require(name == u"+FAX");
    } else {
      Require(name.size() == 1 && !(name[0] >= u'a' && name[0] <= u'z'));
    }
    Require(!HasQuote(name) && !HasQuote(value));
    first = false;
  }
}

void CheckCommandLine(const std::u16string& line) {
  constexpr char kJob[] = R"({"FilePath": "d", "SourceFileName": "n"})";
  const FuzzedPlatform fuzzed;
  platform::fake::TheFakePlatform().SetFile(u"j", kJob);
  JobParameters params;
  ParseCommandLine(params, line);
  Require(platform::fake::TheFakePlatform().OpenHandles() == 0);

  const std::vector<ParameterList::Entry>& entries = params.arguments.Entries();
  for (const auto& [name, value] : entries) {
    Require(!HasQuote(name) && !HasQuote(value));
  }
  if (entries.empty()) {
    Require(std::all_of(line.begin(), line.end(), IsWhiteSpace));
    Require(!params.fromJobFile && params.faxFields.Entries().empty());
    return;
  }
  // The job file adds its document and its display name before it is named itself.
  const std::size_t first = params.fromJobFile ? 2 : 0;
  Require(entries.size() > first);
  Require(entries[first].first == (params.fromJobFile ? u"jobname" : u"filename"));
  if (params.fromJobFile) {
    // Whatever the spelling of its path, as in ".//j".
    Require(platform::fake::TheFakePlatform().FileBytes(entries[first].second) == kJob);
  }
  const bool has_command = entries.size() > first + 1 &&
                           entries[first + 1].first == u"faxcommand" &&
                           !entries[first + 1].second.starts_with(u'/');
  for (std::size_t i = first + (has_command ? 2 : 1); i < entries.size(); ++i) {
    for (const char16_t unit : entries[i].first) {
      Require(!(unit >= u'A' && unit <= u'Z'));
    }
  }
}

}  // namespace

void FuzzCommandLine(std::string_view input) {
  const std::u16string text = Input(input).Text();
  CheckSplitting(text, u' ');
  CheckSplitting(text, u';');
  CheckFaxCommand(text);
  CheckCommandLine(text);
}

}  // namespace zentpost::fuzz
