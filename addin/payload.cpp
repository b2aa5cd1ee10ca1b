#include "addin/payload.h"

#include <algorithm>
#include <optional>
#include <string_view>

#include "addin/text_encoding.h"
#include "diag/ascii_case.h"
#include "jobfile/commands.h"
#include "platform/files.h"
#include "platform/memory_failure.h"

namespace zentpost {
namespace {

// Adds `item` to `object` under `name`. False when there is no item, or no memory for its name.
bool AddMember(cJSON* object, const char* name, cJSON* item) {
  if (cJSON_AddItemToObject(object, name, item) != 0) {
    return true;
  }
  cJSON_Delete(item);
  return false;
}

// False when memory runs out over the text.
bool AddText(cJSON* object, const JobParameters& params, const PayloadMember& member) {
  const std::optional<std::string> bytes = _utf8((params.*member.list).Value(member.entry).c_str());
  return bytes && AddMember(object, member.name, cJSON_CreateString(bytes->c_str()));
}

// The folder for temporary files, ending with a separator; empty when there is none.
std::u16string TemporaryFolder() {
  constexpr std::uint32_t kLimit = 260;
  char16_t buffer[kLimit + 1] = {};
  std::uint32_t length = 0;
  if (platform::ThrowWithoutMemory(platform::TemporaryFolder(kLimit, buffer, length)) !=
          platform::kSuccess ||
      length >= kLimit) {
    return {};
  }
  return {buffer, length};
}

// The name behind the last separator, in small ASCII letters.
std::u16string FileName(std::u16string_view path) {
  std::u16string name(path.substr(path.find_last_of(u"/\\") + 1));
  std::transform(name.begin(), name.end(), name.begin(), ToLower);
  return name;
}

}  // namespace

bool IsFileOfTheJob(const JobParameters& params, const std::u16string& path) {
  platform::FileIdentity target;
  const platform::Status status =
      platform::ThrowWithoutMemory(platform::IdentifyFile(path, target));
  if (status == platform::kFileNotFound || status == platform::kPathNotFound) {
    return false;
  }
  const auto is_target = [&](const std::u16string& file) {
    if (status == platform::kNotSupported) {
      return FileName(file) == FileName(path);
    }
    platform::FileIdentity identity;
    return !file.empty() &&
           platform::ThrowWithoutMemory(platform::IdentifyFile(file, identity)) ==
               platform::kSuccess &&
           identity == target;
  };
  return (status != platform::kSuccess && status != platform::kNotSupported) ||
         is_target(params.arguments.Value(argument::kDocument)) ||
         is_target(params.arguments.Value(argument::kJobFile));
}

std::u16string PayloadFilePath(const std::u16string& path) {
  const bool is_bare_name = path.find_first_of(u"/\\") == std::u16string::npos;
  return is_bare_name ? TemporaryFolder() + path : path;
}

std::string CCommands::json(const JobParameters& params) try {
  const ParameterList& fields = params.faxFields;
  const JsonTree root(cJSON_CreateObject());
  cJSON* members = cJSON_CreateObject();
  bool is_built = AddMember(root.get(), "Parameters", members);
  for (const PayloadMember& member : kPayloadTexts) {
    is_built = is_built && AddText(members, params, member);
  }
  // A missing C means true and a missing P means false: the add-in expects the two switches so.
  if (!is_built ||
      !AddMember(members, "ECM", cJSON_CreateBool(IsPresentAndNotMinus(fields, u"C") ? 0 : 1)) ||
      !AddMember(members, "Preview",
                 cJSON_CreateBool(IsPresentAndNotMinus(fields, u"P") ? 1 : 0))) {
    return {};
  }
  const JsonText text(cJSON_Print(root.get()));
  return text == nullptr ? std::string() : std::string(text.get());
} catch (...) {
  return {};
}

PayloadFile WriteAddinJsonFile(const JobParameters& params, const std::u16string& path) try {
  const std::u16string full_path = PayloadFilePath(path);
  platform::File file;
  if (IsFileOfTheJob(params, full_path) ||
      platform::ThrowWithoutMemory(platform::OpenFileAt(full_path, platform::OpenMode::kRewrite,
                                                        file)) != platform::kSuccess) {
    return PayloadFile::kNotOpened;
  }
  const std::string payload = CCommands::json(params);
  if (payload.empty()) {
    return PayloadFile::kNoMemory;
  }
  static_cast<void>(platform::WriteBytes(file, payload.data(), payload.size()));
  return PayloadFile::kWritten;
} catch (...) {
  return PayloadFile::kNoMemory;
}

}  // namespace zentpost
