#include "addin/payload.h"

#include "addin/text_encoding.h"
#include "jobfile/commands.h"
#include "platform/files.h"

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

bool AddText(cJSON* object, const char* name, const ParameterList& list, const char16_t* entry) {
  const std::u16string text = list.Find(entry).second;
  return AddMember(object, name, cJSON_CreateString(_utf8(text.c_str()).c_str()));
}

// The folder for temporary files, ending with a separator; empty when there is none.
std::u16string TemporaryFolder() {
  constexpr std::uint32_t kLimit = 260;
  char16_t buffer[kLimit + 1] = {};
  std::uint32_t length = 0;
  if (platform::TemporaryFolder(kLimit, buffer, length) != platform::kSuccess || length >= kLimit) {
    return {};
  }
  return {buffer, length};
}

}  // namespace

std::string CCommands::json(const JobParameters& params) {
  const ParameterList& arguments = params.arguments;
  const ParameterList& fields = params.faxFields;
  const JsonTree root(cJSON_CreateObject());
  cJSON* members = cJSON_CreateObject();
  // A missing C means true and a missing P means false: the add-in expects the two switches so.
  if (!AddMember(root.get(), "Parameters", members) ||
      !AddText(members, "Receiver", fields, u"+FAX") ||
      !AddText(members, "RecipientName", fields, u"E") ||
      !AddText(members, "SenderName", fields, u"U") ||
      !AddText(members, "FileName", arguments, u"filename") ||
      !AddText(members, "AttachmentName", arguments, u"attdisplayname") ||
      !AddText(members, "Comment", fields, u"K") || !AddText(members, "Subject", fields, u"S") ||
      !AddText(members, "SendTime", fields, u"Z") ||
      !AddMember(members, "ECM", cJSON_CreateBool(IsSwitchedOn(fields, u"C") ? 0 : 1)) ||
      !AddMember(members, "Preview", cJSON_CreateBool(IsSwitchedOn(fields, u"P") ? 1 : 0))) {
    return {};
  }
  const JsonText text(cJSON_Print(root.get()));
  return text == nullptr ? std::string() : std::string(text.get());
}

bool WriteAddinJsonFile(const JobParameters& params, const std::u16string& path) {
  const bool is_bare_name = path.find_first_of(u"/\\") == std::u16string::npos;
  platform::File file;
  if (platform::OpenFileAt(is_bare_name ? TemporaryFolder() + path : path,
                           platform::OpenMode::kRewrite, file) != platform::kSuccess) {
    return false;
  }
  const std::string payload = CCommands::json(params);
  static_cast<void>(platform::WriteBytes(file, payload.data(), payload.size()));
  return true;
}

}  // namespace zentpost
