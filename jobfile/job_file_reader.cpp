#include <limits>
#include <new>
#include <string_view>

#include "addin/text_encoding.h"
#include "diag/log_file.h"
#include "jobfile/commands.h"
#include "platform/files.h"
#include "platform/memory.h"

namespace zentpost {
namespace {

struct FaxField {
  const char16_t* long_name;  // in "Cmd"/"Parameters"
  const char16_t* letter;     // in "Cmd"/"Commands" and in the job's fields
};

// In the order in which the fields are entered. The add-in and the mail client rely on the pairing
// as it is, "RecipientName" with E and "Comment" with K included.
constexpr FaxField kFaxFields[] = {
    {u"Baudrate", u"B"}, {u"ECM", u"C"},     {u"RecipientName", u"E"}, {u"Comment", u"K"},
    {u"NGDX", u"N"},     {u"", u"O"},        {u"Preview", u"P"},       {u"Subject", u"S"},
    {u"UserName", u"U"}, {u"SendTime", u"Z"}};

// Reads `bytes` as a C library's text mode does on Windows: CR LF is one line feed, and Ctrl-Z ends
// the text. Works in place and gives the new size.
std::size_t FoldText(char* bytes, std::size_t size) {
  constexpr char kEndOfText = '\x1A';
  std::size_t kept = 0;
  for (std::size_t i = 0; i < size && bytes[i] != kEndOfText; ++i) {
    if (bytes[i] == '\r' && i + 1 < size && bytes[i + 1] == '\n') {
      continue;
    }
    bytes[kept] = bytes[i];
    ++kept;
  }
  return kept;
}

// The whole file as a zero-terminated text. Owns nothing when it cannot be read.
platform::HeapBlock ReadTextFile(const std::u16string& path) {
  platform::File file;
  std::uint64_t size = 0;
  if (platform::OpenFileAt(path, platform::OpenMode::kRead, file) != platform::kSuccess ||
      platform::QueryFileSize(file, size) != platform::kSuccess ||
      size >= std::numeric_limits<std::size_t>::max()) {
    return {};
  }
  platform::HeapBlock block;
  const auto capacity = static_cast<std::size_t>(size);
  if (platform::AllocateBlock(capacity + 1, block) != platform::kSuccess) {
    return {};
  }
  char* text = platform::BlockData<char>(block);
  std::size_t count = 0;
  if (platform::ReadBytes(file, text, capacity, count) != platform::kSuccess) {
    return {};
  }
  text[FoldText(text, count)] = '\0';
  return block;
}

const cJSON* Member(const cJSON* object, const char* name) {
  return cJSON_GetObjectItem(object, name);
}

}  // namespace

JsonTree CCommands::LoadJsonFile(const std::u16string& path, std::u16string& error_position) {
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  error_position.clear();
  const platform::HeapBlock block = ReadTextFile(path);
  if (!block) {
    return nullptr;
  }
  const char* text = platform::BlockData<const char>(block);
  if (std::string_view(text).starts_with(kByteOrderMark)) {
    text += kByteOrderMark.size();
  }
  JsonTree tree(cJSON_Parse(text));
  if (tree == nullptr) {
    // The position points into the text, which goes when this function returns.
    error_position = FromUtf8(cJSON_GetErrorPtr());
  }
  return tree;
}

bool CCommands::ReadFromFile(JobParameters& params, const std::u16string& path) {
  std::u16string error_position;
  const JsonTree tree = LoadJsonFile(path, error_position);
  if (tree == nullptr) {
    LogError(u"ReadFromFile(): Parse JSON failed with error '%s'", error_position);
    return false;
  }
  if (!GetDocumentFromJson(params.arguments, tree.get())) {
    LogError(u"ReadFromFile(): Read document failed");
    return true;
  }
  for (const FaxField& field : kFaxFields) {
    // A field that is not there is left out.
    static_cast<void>(ReadCommandValue(params, tree.get(), field.letter, field.long_name));
  }
  const cJSON* command = Member(tree.get(), "Cmd");
  if (cJSON_IsObject(command) != 0) {
    const cJSON* receivers = Member(command, "Receiver");
    const cJSON* first = cJSON_IsArray(receivers) != 0 ? cJSON_GetArrayItem(receivers, 0) : nullptr;
    if (cJSON_IsString(first) != 0) {
      params.faxFields.Add(u"+FAX", FromUtf8(first->valuestring));
    }
  }
  return true;
}

bool CCommands::GetDocumentFromJson(ParameterList& arguments, const cJSON* tree) {
  if (tree == nullptr) {
    LogError(u"GetDocumentFromJson(): JSON error");
    return false;
  }
  std::u16string path;
  if (!GetJsonString(tree, u"FilePath", path, u"")) {
    LogError(u"GetDocumentFromJson(): Filename not found");
    return false;
  }
  std::u16string display_name;
  if (!GetJsonString(tree, u"SourceFileName", display_name, u"")) {
    LogError(u"GetDocumentFromJson(): JobName not found");
    return false;
  }
  if (display_name.find(u".pdf") == std::u16string::npos) {
    display_name += u".pdf";
  }
  arguments.Add(u"filename", std::move(path));
  arguments.Add(u"attdisplayname", std::move(display_name));
  return true;
}

bool CCommands::ReadCommandValue(JobParameters& params, const cJSON* tree,
                                 const std::u16string& letter, const std::u16string& long_name) {
  const cJSON* command = Member(tree, "Cmd");
  if (cJSON_IsObject(command) == 0) {
    return false;
  }
  const auto take = [&params, &letter](const cJSON* object, const std::u16string& name) {
    std::u16string value;
    if (name.empty() || cJSON_IsObject(object) == 0 || !GetJsonString(object, name, value, u"")) {
      return false;
    }
    params.faxFields.Add(letter, std::move(value));
    return true;
  };
  return take(Member(command, "Parameters"), long_name) ||
         take(Member(command, "Commands"), letter);
}

}  // namespace zentpost
