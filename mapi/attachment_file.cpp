#include "mapi/attachment_file.h"

#include "mapi/results.h"
#include "platform/files.h"
#include "platform/memory_failure.h"

namespace zentpost {
namespace {

constexpr platform::Status kFileTooLarge = 223;  // ERROR_FILE_TOO_LARGE (winerror.h)

bool Fail(AttachmentFileData& file_data, std::uint32_t code, const char16_t* text) {
  file_data.data.Reset();
  file_data.size = 0;
  file_data.errorCode = code;
  file_data.errorText = text;
  return false;
}

// A message without its document must not go out for want of memory.
bool FailWithoutMemory(AttachmentFileData& file_data) {
  return Fail(file_data, CodeOf(MAPI_E_NOT_ENOUGH_MEMORY), u"A memory error occurred.");
}

}  // namespace

bool LoadAttachmentFile(AttachmentFileData& fileData, const char16_t* path) try {
  fileData = {};
  if (path == nullptr) {
    return Fail(fileData, CodeOf(E_INVALIDARG), u"The attachment path is NULL.");
  }
  if (*path == u'\0') {
    return Fail(fileData, CodeOf(E_INVALIDARG), u"The attachment path is empty.");
  }
  platform::File file;
  platform::Status status = platform::OpenFileAt(path, platform::OpenMode::kRead, file);
  platform::ThrowWithoutMemory(status);
  if (status != platform::kSuccess) {
    return Fail(fileData, status, u"The file cannot be loaded.");
  }
  // A document that is there but does not arrive whole must not be taken for delivered, and not be
  // deleted: from here on codes are negative.
  std::uint64_t size = 0;
  status = platform::QueryFileSize(file, size);
  platform::ThrowWithoutMemory(status);
  if (status != platform::kSuccess) {
    return Fail(fileData, CodeOf(FromSystemError(status)), u"The file's size cannot be told.");
  }
  if (size > kLargestAttachment) {
    return Fail(fileData, CodeOf(FromSystemError(kFileTooLarge)), u"The file is too large.");
  }
  status = platform::AllocateBlock(static_cast<std::size_t>(size), fileData.data);
  if (status != platform::kSuccess) {
    return FailWithoutMemory(fileData);
  }
  std::size_t count = 0;
  status = platform::ReadBytes(file, platform::BlockData<std::uint8_t>(fileData.data),
                               static_cast<std::size_t>(size), count);
  // Somebody may be writing it at the same time: nothing may stand behind what was read.
  std::uint8_t more = 0;
  std::size_t more_count = 0;
  if (status == platform::kSuccess) {
    status = platform::ReadBytes(file, &more, sizeof(more), more_count);
  }
  platform::ThrowWithoutMemory(status);
  if (status == platform::kSuccess && (count != size || more_count != 0)) {
    status = platform::kReadFault;
  }
  if (status != platform::kSuccess) {
    return Fail(fileData, CodeOf(FromSystemError(status)), u"The file cannot be read.");
  }
  fileData.size = static_cast<std::uint32_t>(size);
  return true;
} catch (...) {
  return FailWithoutMemory(fileData);
}

}  // namespace zentpost
