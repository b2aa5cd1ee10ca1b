#include "diag/log_file.h"

#include <algorithm>
#include <span>

#include "app/registry_names.h"
#include "diag/client_settings.h"
#include "diag/error_texts.h"
#include "diag/utf8_text.h"
#include "platform/files.h"
#include "platform/system.h"
#include "platform/text_codec.h"

namespace zentpost {
namespace {

constexpr char16_t kLogFileName[] = u"zentpost.log";
constexpr char16_t kLogFolder[] = u"\\VORNA\\Client\\Log\\";

// The bytes that `line` takes in UTF-8, or a few more: a pair of surrogates takes four, not six.
std::size_t Utf8Size(const std::u16string& line) {
  std::size_t size = 0;
  for (const char16_t unit : line) {
    size += unit < 0x80 ? 1 : unit < 0x800 ? 2 : 3;
  }
  return size;
}

// The line as the file holds it: UTF-8, each line feed stored as CR LF. A line feed that already
// has its carriage return gets another one. Empty when it is not converted. Throws as CodecLength.
std::string FileBytes(const std::u16string& line) {
  const auto line_feeds = static_cast<std::size_t>(std::count(line.begin(), line.end(), u'\n'));
  const std::int32_t size = CodecLength(Utf8Size(line));
  // Converted to where it leaves space for the carriage returns, and then moved up to them.
  std::string bytes(line_feeds + static_cast<std::size_t>(size), '\0');
  std::int32_t written = 0;
  if (platform::WideToBytes(platform::CodePage::kUtf8, line.data(),
                            static_cast<std::int32_t>(line.size()), bytes.data() + line_feeds, size,
                            written) != platform::kSuccess) {
    return {};
  }
  char* out = bytes.data();
  const char* const end = bytes.data() + line_feeds + written;
  for (const char* in = bytes.data() + line_feeds; in != end; ++in) {
    if (*in == '\n') {
      *out++ = '\r';
    }
    *out++ = *in;
  }
  bytes.resize(static_cast<std::size_t>(out - bytes.data()));
  return bytes;
}

void AppendLine(const std::u16string& line) {
  const std::string bytes = FileBytes(line);
  if (bytes.empty()) {
    return;
  }
  // Dropped silently when the folder is missing or the file cannot be written: a job never suffers
  // from its log.
  static_cast<void>(platform::AppendToFile(GetLogFilePath(), bytes.data(), bytes.size()));
}

std::u16string_view LevelTag(std::uint32_t level) {
  switch (level) {
    case kLevelWarning:
      return u" - WARNING: ";
    case kLevelError:
      return u" - ERROR  : ";
    case kLevelDebug:
      return u" - DEBUG  : ";
    default:
      return u" - INFO   : ";
  }
}

}  // namespace

std::u16string GetLogFilePath() {
  constexpr std::uint32_t kCapacity = 260;
  char16_t buffer[kCapacity] = {};
  std::uint32_t length = 0;
  if (platform::TemporaryFolder(kCapacity, buffer, length) != platform::kSuccess ||
      length >= kCapacity) {
    length = 0;
  }
  std::u16string fallback = std::u16string(buffer, length) + kLogFileName;

  std::u16string folder;
  if (platform::LocalApplicationDataFolder(folder) < 0) {
    return fallback;
  }
  return folder + kLogFolder + kLogFileName;
}

std::u16string FormatLogPrefix(std::uint32_t level) {
  platform::LocalTime time{};
  if (platform::BreakIntoLocalTime(platform::SecondsSinceEpoch(), time) != platform::kSuccess) {
    time = {0, 0, 0, -1, -1, -1};
  }
  std::u16string prefix = Format(u"%.4d/%.2d/%.2d %.2d:%.2d:%.2d", time.year, time.month, time.day,
                                 time.hour, time.minute, time.second);
  prefix.append(LevelTag(level));
  return prefix;
}

void WriteLogEntry(std::uint32_t level, std::u16string_view format,
                   std::initializer_list<FormatArgument> arguments) noexcept {
  try {
    const bool to_file = ReadClientNumber(registry::kLogLevel) != 0;
    std::u16string line = FormatLogPrefix(level);
    AppendFormatted(line, format, std::span(arguments.begin(), arguments.size()));
    platform::WriteDebugOutput(line.c_str());
    platform::WriteDebugOutput(u"\n");
    line.push_back(u'\n');
    if (to_file) {
      AppendLine(line);
    }
  } catch (...) {
    // Without memory, or beyond what a text can hold, there is no line; the job goes on.
  }
}

void WriteLogEntryWithCode(std::uint32_t level, std::uint32_t code, std::u16string_view format,
                           std::initializer_list<FormatArgument> arguments) noexcept {
  WriteLogEntry(level, format, arguments);
  if (code == 0) {
    return;
  }
  try {
    const std::u16string text = GetErrorText(code);
    WriteLogEntry(level, u"Code 0x%.8x --> %s", {FormatArgument(code), FormatArgument(text)});
  } catch (...) {
    // As in WriteLogEntry.
  }
}

}  // namespace zentpost
