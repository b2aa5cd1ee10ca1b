#include "mapi/attachments.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "app/registry_names.h"
#include "diag/ascii_case.h"
#include "diag/log_file.h"
#include "mapi/attachment_file.h"
#include "mapi/owners.h"
#include "mapi/property_values.h"
#include "mapi/results.h"
#include "mapi/text_buffer.h"
#include "platform/files.h"
#include "platform/registry.h"

namespace zentpost {
namespace {

constexpr HRESULT kNotFound = 1168;  // ERROR_NOT_FOUND (winerror.h), deliberately positive
constexpr std::uint32_t kPropertySpace = 12;

struct MimeType {
  std::u16string_view extension;
  std::u16string_view type;
};
constexpr MimeType kMimeTypes[] = {
    {u".pdf", u"application/pdf"}, {u".tif", u"image/tiff"}, {u".tiff", u"image/tiff"},
    {u".png", u"image/png"},       {u".mp3", u"audio/mpeg"}, {u".wav", u"audio/wav"},
};

// Whether `text` is `lower` but for the case of ASCII letters.
bool EqualsIgnoringCase(std::u16string_view text, std::u16string_view lower) {
  return std::equal(text.begin(), text.end(), lower.begin(), lower.end(),
                    [](char16_t left, char16_t right) { return ToLower(left) == right; });
}

// The last stretch of `text` without any of `separators`; separators at its very end do not count.
std::u16string_view LastToken(std::u16string_view text, std::u16string_view separators) {
  const std::size_t last = text.find_last_not_of(separators);
  if (last == std::u16string_view::npos) {
    return {};
  }
  text = text.substr(0, last + 1);
  // npos + 1 is 0: without a separator the token is the whole text.
  return text.substr(text.find_last_of(separators) + 1);
}

// The document's path decides only whether there is one: names come from `attach_name`, which is
// what the recipient is to see.
HRESULT GetAttachmentExtension(const char16_t* path, std::u16string_view attach_name,
                               std::u16string& extension) try {
  if (path == nullptr) {
    LogError(u"GetAttachmentExtension(): The file path parameter is NULL.");
    return E_INVALIDARG;
  }
  if (*path == u'\0') {
    LogError(u"GetAttachmentExtension(): The file path parameter is empty.");
    return E_INVALIDARG;
  }
  const std::u16string_view token = LastToken(attach_name.substr(0, kTextBufferSize - 1), u".");
  if (!token.empty()) {
    extension = u".";
    extension += token;
  }
  return S_OK;
} catch (...) {
  return MAPI_E_NOT_ENOUGH_MEMORY;
}

HRESULT GetAttachmentFilename(const char16_t* path, std::u16string_view attach_name,
                              std::u16string& file_name) try {
  if (path == nullptr) {
    LogError(u"GetAttachmentFilename(): The file path parameter is NULL.");
    return E_INVALIDARG;
  }
  if (*path == u'\0') {
    LogError(u"GetAttachmentFilename(): The file path parameter is empty.");
    return E_INVALIDARG;
  }
  file_name = LastToken(attach_name, u"\\/");
  return S_OK;
} catch (...) {
  return MAPI_E_NOT_ENOUGH_MEMORY;
}

// The number of values that describe the attachment.
std::uint32_t FillProperties(SPropValue* values, const AttachmentFileData& file_data,
                             const std::u16string& extension, const std::u16string& file_name) {
  SPropValue* next = values;
  *next++ = NumberProperty(PR_ATTACH_METHOD, ATTACH_BY_VALUE);
  *next++ = NumberProperty(PR_RENDERING_POSITION, -1);  // nowhere in the body
  *next++ = BinaryProperty(PR_ATTACH_DATA_BIN, platform::BlockData<std::uint8_t>(file_data.data),
                           file_data.size);
  *next++ = TextProperty(PR_ATTACH_EXTENSION_W, extension.c_str());
  *next++ = TextProperty(PR_ATTACH_FILENAME_W, file_name.c_str());
  *next++ = TextProperty(PR_ATTACH_LONG_FILENAME_W, file_name.c_str());
  *next++ = NumberProperty(PR_ATTACH_FLAGS, 0);
  *next++ = TextProperty(PR_DISPLAY_NAME_W, file_name.c_str());
  *next++ = NumberProperty(PR_ATTACHMENT_LINKID, 0);
  return static_cast<std::uint32_t>(next - values);
}

platform::Status RemoveFile(const char16_t* path) try {
  return platform::RemoveFile(path);
} catch (...) {
  return platform::kNotEnoughMemory;
}

// The attachment has been saved: the document is not needed any more.
void DeleteDocument(const char16_t* path) {
  const platform::Status status = RemoveFile(path);
  if (status == platform::kSuccess) {
    LogInfo(u"AddAttachment(): The attachment file was deleted successfully.");
  } else {
    LogWarningWithCode(status, u"AddAttachment(): The attachment file cannot be deleted.");
  }
}

}  // namespace

HRESULT GetAttachmentMimeTag(const char16_t* extension, char16_t* mimeTag) try {
  if (mimeTag == nullptr) {
    LogError(u"GetAttachmentMimeTag(): The output parameter is invalid.");
    return E_INVALIDARG;
  }
  if (extension == nullptr) {
    LogError(u"GetAttachmentMimeTag(): The extension parameter is NULL.");
    return E_INVALIDARG;
  }
  if (*extension == u'\0') {
    LogError(u"GetAttachmentMimeTag(): The extension parameter is empty.");
    return E_INVALIDARG;
  }
  std::u16string normalised = extension;
  if (normalised.find(u'.') == std::u16string::npos) {
    normalised.insert(0, u".");
  }
  normalised.resize(std::min(normalised.size(), kTextBufferSize - 1));
  for (const MimeType& known : kMimeTypes) {
    if (EqualsIgnoringCase(normalised, known.extension)) {
      CopyText(known.type, mimeTag, kTextBufferSize);
      return S_OK;
    }
  }
  platform::RegistryKey key;
  if (platform::OpenKey(platform::Hive::kClassesRoot, normalised.c_str(), platform::kKeyQueryValue,
                        key) != platform::kSuccess) {
    return S_OK;
  }
  // One unit more: the value may have been stored without its terminator.
  char16_t type[kTextBufferSize + 1] = {};
  std::uint32_t size = kTextBufferSize * sizeof(char16_t);
  if (platform::QueryValue(key, registry::kContentType, nullptr, type, size) ==
      platform::kSuccess) {
    CopyText(type, mimeTag, kTextBufferSize);
    return S_OK;
  }
  CopyText(u"application/" + normalised.substr(1), mimeTag, kTextBufferSize);
  return kNotFound;
} catch (...) {
  return MAPI_E_NOT_ENOUGH_MEMORY;
}

HRESULT AddAttachment(IMessage* message, const char16_t* path, std::uint32_t /*reserved*/,
                      const char16_t* attachName) {
  LogInfo(u"AddAttachment(): '%s'", path);
  if (message == nullptr) {
    LogError(u"AddAttachment(): The message interface is NULL.");
    return E_INVALIDARG;
  }
  const std::u16string_view attach_name = attachName != nullptr ? attachName : u"";
  std::u16string extension;
  HRESULT result = GetAttachmentExtension(path, attach_name, extension);
  if (Failed(result)) {
    LogWarningWithCode(CodeOf(result), u"AddAttachment(): The extension cannot be retrieved.");
  }
  if (result == MAPI_E_NOT_ENOUGH_MEMORY) {
    return result;
  }
  // Only the warning comes of it: the type is not stored.
  char16_t mime_tag[kTextBufferSize] = {};
  result = GetAttachmentMimeTag(extension.c_str(), mime_tag);
  if (Failed(result)) {
    LogWarningWithCode(CodeOf(result), u"AddAttachment(): The mime tag cannot be retrieved.");
  }
  if (result == MAPI_E_NOT_ENOUGH_MEMORY) {
    return result;
  }
  std::u16string file_name;
  result = GetAttachmentFilename(path, attach_name, file_name);
  if (Failed(result)) {
    // The same text as above, on purpose.
    LogWarningWithCode(CodeOf(result), u"AddAttachment(): The mime tag cannot be retrieved.");
    return result;
  }
  AttachmentFileData file_data;
  MapiBuffer<SPropValue> properties;
  void* block = nullptr;
  result = AllocateZeroed(kPropertySpace * sizeof(SPropValue), block);
  properties.Reset(static_cast<SPropValue*>(block));
  if (Failed(result)) {
    LogErrorWithCode(CodeOf(result),
                     u"AddAttachment(): The attachment property tag memory is not available.");
    return result;
  }
  if (!LoadAttachmentFile(file_data, path)) {
    LogErrorWithCode(file_data.errorCode, u"AddAttachment(): The attachment path cannot be read.");
    return MakeResult(file_data.errorCode);
  }
  MapiReference<IAttach> attachment;
  std::uint32_t number = 0;
  result = ResultOf(message->CreateAttach(nullptr, MAPI_DEFERRED_ERRORS, &number, attachment.Put()),
                    attachment);
  if (Failed(result)) {
    LogErrorWithCode(CodeOf(result), u"AddAttachment(): An attachment could not been created.");
    return result;
  }
  const std::uint32_t count = FillProperties(properties.Get(), file_data, extension, file_name);
  result = attachment.Get()->SetProps(count, properties.Get(), nullptr);
  if (Failed(result)) {
    LogErrorWithCode(CodeOf(result),
                     u"AddAttachment(): The properties of the attachment could not been set.");
    return result;
  }
  LogInfo(u"AddAttachment(): Attachment properties are set.");
  result = attachment.Get()->SaveChanges(0);
  if (Failed(result)) {
    LogErrorWithCode(
        CodeOf(result),
        u"AddAttachment(): The attachment cannot be saved. The attachment is corrupt.");
    return result;
  }
  LogInfo(u"AddAttachment(): Attachment added successfully,");
  DeleteDocument(path);
  return result;
}

}  // namespace zentpost
