#include <optional>
#include <string>
#include <string_view>

#include "addin/text_encoding.h"
#include "diag/log_file.h"
#include "jobfile/commands.h"
#include "jobfile/member_names.h"
#include "platform/files.h"

namespace zentpost {
namespace {

// The job file's member "Result", made when it is missing. A "Result" that is no object cannot hold
// an outcome and gives way to one that can. Null when memory runs out.
cJSON* ResultObject(cJSON* job_file) {
  cJSON* result = cJSON_GetObjectItem(job_file, kResultMember);
  if (cJSON_IsObject(result) != 0) {
    return result;
  }
  SetJsonItem(job_file, u"Result", cJSON_CreateObject());
  return cJSON_GetObjectItem(job_file, kResultMember);
}

// Whether `result` says all of this outcome. Where memory ran out, a member is missing or still
// tells of an earlier outcome, and the job file is better left as it is.
bool HoldsOutcome(const cJSON* result, std::int32_t status, std::int32_t error_code,
                  std::string_view error_text) {
  const cJSON* status_member = cJSON_GetObjectItem(result, "Status");
  const cJSON* code_member = cJSON_GetObjectItem(result, "ErrorCode");
  const cJSON* text_member = cJSON_GetObjectItem(result, "ErrorText");
  return cJSON_IsNumber(status_member) != 0 && status_member->valueint == status &&
         cJSON_IsNumber(code_member) != 0 && code_member->valueint == error_code &&
         cJSON_IsString(text_member) != 0 && text_member->valuestring == error_text;
}

}  // namespace

bool CCommands::UpdateJobFile(const JobParameters& params, std::int32_t status,
                              std::int32_t errorCode, const char16_t* errorText) try {
  const std::u16string& path = params.arguments.Value(argument::kJobFile);
  if (path.empty()) {
    return false;
  }
  const LoadedJson loaded = LoadJsonFile(path);
  cJSON* const tree = loaded.tree.get();
  if (tree == nullptr) {
    LogError(u"WriteJobFileResult(): Parse JSON failed with error '%s'",
             Utf8Text{loaded.error_position});
    return false;
  }
  // Such a file has no place for an outcome: it is somebody's document.
  if (cJSON_IsObject(tree) == 0) {
    return false;
  }
  const std::optional<std::string> error_text = _utf8(errorText);
  if (!error_text) {
    return false;
  }
  cJSON* result = ResultObject(tree);
  SetJsonItem(result, u"Status", cJSON_CreateNumber(status));
  SetJsonItem(result, u"ErrorCode", cJSON_CreateNumber(errorCode));
  SetJsonItem(result, u"ErrorText", cJSON_CreateString(error_text->c_str()));
  if (!HoldsOutcome(result, status, errorCode, *error_text)) {
    return false;
  }
  const JsonText text(cJSON_Print(tree));

  platform::File file;
  if (platform::OpenFileAt(path, platform::OpenMode::kRewrite, file) != platform::kSuccess) {
    return false;
  }
  // From here on the file is emptied, and there is nothing to fall back on: a write that fails, or
  // a text that could not be printed, leaves what it leaves.
  if (text != nullptr) {
    static_cast<void>(
        platform::WriteBytes(file, text.get(), std::char_traits<char>::length(text.get())));
  }
  return true;
} catch (...) {
  // A job that was delivered stays delivered, whether or not that can be written down.
  return false;
}

}  // namespace zentpost
