#include "tools/doctor/job_file_members.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <optional>
#include <string_view>
#include <utility>

#include "addin/payload.h"
#include "addin/text_encoding.h"
#include "jobfile/commands.h"
#include "tools/doctor/seen_text.h"

namespace zentpost::doctor {

namespace {

constexpr std::size_t kMostFindings = 100;
// A name that is longer, in bytes, is far from every known one.
constexpr std::size_t kLongestName = 64;
// Longer texts, in bytes, are told by their length: a file may have 1 GiB of them.
constexpr std::size_t kLongestText = 65536;

// The objects that the tool looks into, and all others.
enum class Place { kTop, kCommand, kParameters, kCommands, kElsewhere };
enum class MemberKind { kText, kObject, kNumbers };

struct KnownName {
  std::u16string name;
  Place place;
  MemberKind kind;
  // The entry that the tool makes of it.
  ParameterList JobParameters::*list = nullptr;
  const char16_t* entry = nullptr;
  Severity severity = Severity::kWarning;
  std::u16string lower = InLowerCase(name);
};

std::vector<KnownName> KnownNames() {
  constexpr auto kArguments = &JobParameters::arguments;
  constexpr auto kFields = &JobParameters::faxFields;
  std::vector<KnownName> names = {
      {Widened(kFilePathMember), Place::kTop, MemberKind::kText, kArguments, argument::kDocument,
       Severity::kError},
      {Widened(kSourceFileNameMember), Place::kTop, MemberKind::kText, kArguments,
       argument::kDocumentName, Severity::kError},
      {Widened(kReceiverMember), Place::kCommand, MemberKind::kNumbers, kFields, u"+FAX",
       Severity::kError},
      {Widened(kCommandMember), Place::kTop, MemberKind::kObject},
      {Widened(kParametersMember), Place::kCommand, MemberKind::kObject},
      {Widened(kCommandsMember), Place::kCommand, MemberKind::kObject},
  };
  for (const FaxField& field : kFaxFields) {
    if (*field.long_name != u'\0') {
      names.push_back(
          {field.long_name, Place::kParameters, MemberKind::kText, kFields, field.letter});
    }
    names.push_back({field.letter, Place::kCommands, MemberKind::kText, kFields, field.letter});
  }
  return names;
}

std::u16string PlaceText(Place place) {
  std::u16string command = Widened(kCommandMember);
  switch (place) {
    case Place::kCommand:
      return command;
    case Place::kParameters:
      return command + u"." + Widened(kParametersMember);
    case Place::kCommands:
      return command + u"." + Widened(kCommandsMember);
    default:
      return u"the file's outermost object";
  }
}

// Whether one letter more, less or other, or two that change places, make `right` of `left`.
bool DifferByOneSlip(std::u16string_view left, std::u16string_view right) {
  const auto start = static_cast<std::size_t>(
      std::mismatch(left.begin(), left.end(), right.begin(), right.end()).first - left.begin());
  left.remove_prefix(start);
  right.remove_prefix(start);
  if (left.size() > right.size()) {
    return left.substr(1) == right;
  }
  if (left.size() < right.size()) {
    return left == right.substr(1);
  }
  return !left.empty() && (left.substr(1) == right.substr(1) ||
                           (left.size() > 1 && left[0] == right[1] && left[1] == right[0] &&
                            left.substr(2) == right.substr(2)));
}

std::u16string Text(const char* utf8, std::size_t longest) {
  const std::size_t size = std::strlen(utf8);
  if (size > longest) {
    return u"(a text of " + Widened(std::to_string(size)) + u" bytes)";
  }
  const std::optional<std::u16string> text = FromUtf8(utf8);
  return text ? *text : throw std::bad_alloc();
}

std::u16string ValueText(const cJSON* value) {
  if (cJSON_IsObject(value) != 0) {
    return u"an object";
  }
  if (cJSON_IsArray(value) != 0) {
    return cJSON_GetArraySize(value) == 0 ? u"an empty list" : u"a list";
  }
  if (cJSON_IsString(value) != 0) {
    return u"\"" + Text(value->valuestring, kLongestText) + u"\"";
  }
  const JsonText text(cJSON_PrintUnformatted(value));
  return text ? Widened(text.get()) : throw std::bad_alloc();
}

// How many U+FFFD the text has that its bytes do not.
bool IsIllFormed(std::string_view bytes, std::u16string_view text) {
  constexpr std::string_view kReplacement = "\xEF\xBF\xBD";
  std::ptrdiff_t count = std::count(text.begin(), text.end(), u'\uFFFD');
  for (std::size_t at = bytes.find(kReplacement); at != std::string_view::npos && count > 0;
       at = bytes.find(kReplacement, at + kReplacement.size())) {
    --count;
  }
  return count != 0;
}

class MemberCheck {
 public:
  MemberCheck(const JobParameters& params, std::vector<Finding>& findings)
      : params_(params), findings_(findings) {}

  void Check(const cJSON* tree) {
    Look(tree, {}, cJSON_IsObject(tree) != 0 ? Place::kTop : Place::kElsewhere);
    if (more_ > 0) {
      findings_.push_back({"D28",
                           worst_of_more_,
                           {Widened(std::to_string(more_)) + u" more members have no effect"}});
    }
  }

 private:
  // Where a value stands; the outermost one stands nowhere.
  struct Path {
    const Path* outer = nullptr;
    const cJSON* value = nullptr;

    [[nodiscard]] std::u16string Names() const {
      if (value == nullptr) {
        return {};
      }
      const std::u16string before = outer->Names();
      if (value->string == nullptr) {
        return before + u"[]";
      }
      return before + (before.empty() ? u"" : u".") + Text(value->string, kLongestName);
    }
  };

  // The JSON library bounds how deep values may be nested.
  void Look(const cJSON* container, const Path& path, Place place) {
    // What the tool writes itself is nobody's mistake.
    const cJSON* const result =
        place == Place::kTop ? cJSON_GetObjectItem(container, kResultMember) : nullptr;
    std::uint64_t known_so_far = 0;
    const cJSON* member = nullptr;
    cJSON_ArrayForEach(member, container) {
      const Path inner = {&path, member};
      Place inner_place = Place::kElsewhere;
      if (member->string != nullptr) {
        inner_place = LookAtMember(member, inner, place, known_so_far);
      }
      if ((cJSON_IsObject(member) != 0 || cJSON_IsArray(member) != 0) && member != result) {
        Look(member, inner, inner_place);
      }
    }
  }

  // Gives the place that the member's own members have. `known_so_far` has a bit for each known
  // name that the container had already: of several the tool takes the first.
  Place LookAtMember(const cJSON* member, const Path& path, Place place,
                     std::uint64_t& known_so_far) {
    if (std::strlen(member->string) > kLongestName) {
      return Place::kElsewhere;
    }
    const std::u16string name = InLowerCase(Text(member->string, kLongestName));
    for (std::size_t i = 0; i < known_.size(); ++i) {
      const KnownName& known = known_[i];
      if (known.lower != name) {
        continue;
      }
      const std::uint64_t bit = std::uint64_t{1} << i;
      if (known.place != place) {
        Add(known, path, u"the tool looks for it in " + PlaceText(known.place));
      } else if ((known_so_far & bit) != 0) {
        Add(known, path, u"it stands there a second time, and the first one counts");
      } else {
        known_so_far |= bit;
        return LookAtValue(known, path);
      }
      return Place::kElsewhere;
    }
    const auto near = std::find_if(known_.begin(), known_.end(), [&](const KnownName& known) {
      return known.name.size() > 1 && DifferByOneSlip(name, known.lower);
    });
    if (near != known_.end()) {
      Add(*near, path, u"the tool looks for \"" + near->name + u"\"");
    }
    return Place::kElsewhere;
  }

  Place LookAtValue(const KnownName& known, const Path& path) {
    const cJSON* value = path.value;
    switch (known.kind) {
      case MemberKind::kObject:
        if (cJSON_IsObject(value) == 0) {
          Add(known, path, u"it is no object");
          return Place::kElsewhere;
        }
        return known.place == Place::kTop                 ? Place::kCommand
               : known.name == Widened(kParametersMember) ? Place::kParameters
                                                          : Place::kCommands;
      case MemberKind::kNumbers:
        if (cJSON_IsArray(value) == 0) {
          Add(known, path, u"it is no list");
          return Place::kElsewhere;
        }
        value = cJSON_GetArrayItem(value, 0);
        if (cJSON_IsString(value) == 0) {
          Add(known, path, u"its first element is no text");
          return Place::kElsewhere;
        }
        break;
      case MemberKind::kText:
        if (cJSON_IsString(value) == 0) {
          Add(known, path, u"it is no text");
          return Place::kElsewhere;
        }
        break;
    }
    LookAtBytes(known, value->valuestring);
    return Place::kElsewhere;
  }

  // The text of an older code page is no UTF-8.
  void LookAtBytes(const KnownName& known, std::string_view bytes) {
    if (std::none_of(bytes.begin(), bytes.end(), [](char byte) { return (byte & '\x80') != 0; })) {
      return;
    }
    const std::optional<std::u16string> text = FromUtf8(bytes.data());
    if (!text) {
      throw std::bad_alloc();
    }
    // The job has it unless another member or the command line came first.
    if (IsIllFormed(bytes, *text) && (params_.*known.list).Value(known.entry).starts_with(*text)) {
      const std::optional<std::u16string> meant = WidenThroughAnsi(bytes);
      findings_.push_back({"D30",
                           Severity::kError,
                           {FieldName(known.entry), u"in the job: \"" + meant.value_or(u"") + u"\"",
                            u"arrives as: \"" + *text + u"\", since the job file is no UTF-8"}});
    }
  }

  void Add(const KnownName& known, const Path& path, std::u16string reason) {
    if (count_ == kMostFindings) {
      ++more_;
      // The worst is the first.
      worst_of_more_ = std::min(worst_of_more_, known.severity);
      return;
    }
    ++count_;
    findings_.push_back({"D28",
                         known.severity,
                         {path.Names() + u" = " + ValueText(path.value), std::move(reason)}});
  }

  const JobParameters& params_;
  std::vector<Finding>& findings_;
  const std::vector<KnownName> known_ = KnownNames();
  std::size_t count_ = 0;
  std::size_t more_ = 0;
  Severity worst_of_more_ = Severity::kWarning;
};

}  // namespace

std::u16string FieldName(const char16_t* entry) {
  const auto member = std::find_if(
      std::begin(kPayloadTexts), std::end(kPayloadTexts), [entry](const PayloadMember& each) {
        return std::u16string_view(each.entry) == std::u16string_view(entry);
      });
  return member == std::end(kPayloadTexts) ? std::u16string(entry) : Widened(member->name);
}

void AddMemberFindings(const cJSON* tree, const JobParameters& params,
                       std::vector<Finding>& findings) {
  MemberCheck(params, findings).Check(tree);
}

}  // namespace zentpost::doctor
