#include <limits>
#include <new>
#include <optional>
#include <string_view>
#include <utility>

#include "addin/text_encoding.h"
#include "diag/log_file.h"
#include "jobfile/commands.h"
#include "jobfile/json_memory.h"
#include "jobfile/member_names.h"
#include "platform/files.h"
#include "platform/memory.h"
#include "platform/memory_failure.h"

namespace zentpost {
namespace {

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

// The whole file as a zero-terminated text, and its size in bytes without that terminator. Owns
// nothing when it cannot be read.
struct Text {
  platform::HeapBlock block;
  std::size_t size = 0;
};

Text ReadTextFile(const std::u16string& path) {
  platform::File file;
  std::uint64_t file_size = 0;
  if (platform::ThrowWithoutMemory(platform::OpenFileAt(path, platform::OpenMode::kRead, file)) !=
          platform::kSuccess ||
      platform::ThrowWithoutMemory(platform::QueryFileSize(file, file_size)) !=
          platform::kSuccess ||
      file_size >= std::numeric_limits<std::size_t>::max()) {
    return {};
  }
  Text text;
  const auto capacity = static_cast<std::size_t>(file_size);
  if (platform::AllocateBlock(capacity + 1, text.block) != platform::kSuccess) {
    return {};
  }
  char* bytes = platform::BlockData<char>(text.block);
  std::size_t count = 0;
  if (platform::ThrowWithoutMemory(platform::ReadBytes(file, bytes, capacity, count)) !=
      platform::kSuccess) {
    return {};
  }
  text.size = FoldText(bytes, count);
  bytes[text.size] = '\0';
  return text;
}

// The first character from `text` on that the JSON library does not skip as white space.
const char* SkipWhiteSpace(const char* text) {
  while (*text != '\0' && static_cast<unsigned char>(*text) <= ' ') {
    ++text;
  }
  return text;
}

// A converted text, unless memory ran out over it.
std::u16string WithinMemory(std::optional<std::u16string> text) {
  if (!text) {
    throw std::bad_alloc();
  }
  return std::move(*text);
}

const cJSON* Member(const cJSON* object, const char* name) {
  return cJSON_GetObjectItem(object, name);
}

// Whether `tree` is an object with the two texts that make a job file of it, whatever stands
// behind.
bool NamesADocument(const cJSON* tree) {
  return cJSON_IsObject(tree) != 0 && cJSON_IsString(Member(tree, kFilePathMember)) != 0 &&
         cJSON_IsString(Member(tree, kSourceFileNameMember)) != 0;
}

std::u16string Widened(std::string_view ascii) {
  return {ascii.begin(), ascii.end()};
}

// GetJsonString without a default.
bool FindText(const cJSON* object, const std::u16string& name, std::u16string& value) {
  const Lookup lookup = GetJsonString(object, name, value, u"");
  if (lookup == Lookup::kNoMemory) {
    throw std::bad_alloc();
  }
  return lookup == Lookup::kFound;
}

}  // namespace

LoadedJson CCommands::LoadJsonFile(const std::u16string& path) {
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  LoadedJson loaded;
  Text file = ReadTextFile(path);
  if (!file.block) {
    return loaded;
  }
  const char* const file_end = platform::BlockData<const char>(file.block) + file.size;
  const char* text = platform::BlockData<const char>(file.block);
  if (std::string_view(text).starts_with(kByteOrderMark)) {
    text += kByteOrderMark.size();
  }
  const JsonMemoryWatch memory;
  const char* behind = nullptr;
  JsonTree tree(cJSON_ParseWithOpts(text, &behind, 0));
  if (tree == nullptr && memory.RanOut()) {
    throw std::bad_alloc();
  }
  if (tree == nullptr) {
    loaded.error_position = cJSON_GetErrorPtr();
  } else {
    behind = SkipWhiteSpace(behind);
    // A zero byte that is the file's last one has nothing behind it.
    const bool is_all = *behind == '\0' && file_end - behind <= 1;
    if (is_all || NamesADocument(tree.get())) {
      loaded.tree = std::move(tree);
      return loaded;
    }
    loaded.error_position = behind;
  }
  loaded.text = std::move(file.block);
  return loaded;
}

JobFileReading CCommands::ReadFromFile(JobParameters& params, const std::u16string& path) try {
  const LoadedJson loaded = LoadJsonFile(path);
  const cJSON* const tree = loaded.tree.get();
  if (tree == nullptr) {
    LogError(u"ReadFromFile(): Parse JSON failed with error '%s'", Utf8Text{loaded.error_position});
    return JobFileReading::kNoJobFile;
  }
  if (!GetDocumentFromJson(params.arguments, tree)) {
    LogError(u"ReadFromFile(): Read document failed");
    return JobFileReading::kJobFile;
  }
  for (const FaxField& field : kFaxFields) {
    // A field that is not there is left out.
    static_cast<void>(ReadCommandValue(params, tree, field.letter, field.long_name));
  }
  const cJSON* command = Member(tree, kCommandMember);
  if (cJSON_IsObject(command) != 0) {
    const cJSON* receivers = Member(command, kReceiverMember);
    const cJSON* first = cJSON_IsArray(receivers) != 0 ? cJSON_GetArrayItem(receivers, 0) : nullptr;
    if (cJSON_IsString(first) != 0) {
      params.faxFields.Add(u"+FAX", WithinMemory(FromUtf8(first->valuestring)));
    }
  }
  return JobFileReading::kJobFile;
} catch (...) {
  // Whatever was thrown, the job is not the one that its file describes.
  return JobFileReading::kNoMemory;
}

bool CCommands::GetDocumentFromJson(ParameterList& arguments, const cJSON* tree) {
  if (tree == nullptr) {
    LogError(u"GetDocumentFromJson(): JSON error");
    return false;
  }
  std::u16string path;
  if (!FindText(tree, Widened(kFilePathMember), path)) {
    LogError(u"GetDocumentFromJson(): Filename not found");
    return false;
  }
  std::u16string display_name;
  if (!FindText(tree, Widened(kSourceFileNameMember), display_name)) {
    LogError(u"GetDocumentFromJson(): JobName not found");
    return false;
  }
  if (display_name.find(u".pdf") == std::u16string::npos) {
    display_name += u".pdf";
  }
  arguments.Add(argument::kDocument, std::move(path));
  arguments.Add(argument::kDocumentName, std::move(display_name));
  return true;
}

bool CCommands::ReadCommandValue(JobParameters& params, const cJSON* tree,
                                 const std::u16string& letter, const std::u16string& long_name) {
  const cJSON* command = Member(tree, kCommandMember);
  if (cJSON_IsObject(command) == 0) {
    return false;
  }
  const auto take = [&params, &letter](const cJSON* object, const std::u16string& name) {
    std::u16string value;
    if (name.empty() || cJSON_IsObject(object) == 0 || !FindText(object, name, value)) {
      return false;
    }
    params.faxFields.Add(letter, std::move(value));
    return true;
  };
  return take(Member(command, kParametersMember), long_name) ||
         take(Member(command, kCommandsMember), letter);
}

}  // namespace zentpost
