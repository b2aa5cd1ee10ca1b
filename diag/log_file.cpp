#include "diag/log_file.h"

#include <limits>
#include <new>

#include "diag/client_settings.h"
#include "diag/error_texts.h"
#include "platform/files.h"
#include "platform/system.h"
#include "platform/text_codec.h"

namespace zentpost {
namespace {

constexpr char16_t kLogFileName[] = u"zentpost.log";
constexpr char16_t kLogFolder[] = u"\\VORNA\\Client\\Log\\";

// The line as the file holds it: UTF-8, each line feed stored as CR LF. A line feed that already
// has its carriage return gets another one.
std::string FileBytes(const std::u16string& line) {
  std::u16string stored;
  stored.reserve(line.size() + 1);
  for (const char16_t unit : line) {
    if (unit == u'\n') {
      stored.push_back(u'\r');
    }
    stored.push_back(unit);
  }
  // A UTF-16 unit takes three bytes at the most.
  if (stored.size() > std::numeric_limits<std::int32_t>::max() / 3) {
    return {};
  }
  std::string bytes(stored.size() * 3, '\0');
  std::int32_t written = 0;
  if (platform::WideToBytes(
          platform::CodePage::kUtf8, stored.data(), static_cast<std::int32_t>(stored.size()),
          bytes.data(), static_cast<std::int32_t>(bytes.size()), written) != platform::kSuccess) {
    return {};
  }
  bytes.resize(static_cast<std::size_t>(written));
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
    const bool to_file = ReadClientNumber(u"LogLevel") != 0;
    std::u16string line = FormatLogPrefix(level);
    line += FormatText(format, std::span(arguments.begin(), arguments.size()));
    platform::WriteDebugOutput(line.c_str());
    platform::WriteDebugOutput(u"\n");
    line.push_back(u'\n');
    if (to_file) {
      AppendLine(line);
    }
  } catch (const std::bad_alloc&) {
    // Without memory there is no line; the job goes on.
  }
}

void LogAt(std::uint32_t level, std::u16string_view format,
           std::initializer_list<FormatArgument> arguments) noexcept {
  try {
    const std::u16string message =
        FormatText(format, std::span(arguments.begin(), arguments.size()));
    WriteLogEntry(level, u"%s", {FormatArgument(message)});
  } catch (const std::bad_alloc&) {
    // As in WriteLogEntry.
  }
}

void LogAtWithCode(std::uint32_t level, std::uint32_t code, std::u16string_view format,
                   std::initializer_list<FormatArgument> arguments) noexcept {
  LogAt(level, format, arguments);
  if (code == 0) {
    return;
  }
  try {
    const std::u16string text = GetErrorText(code);
    LogAt(level, u"Code 0x%.8x --> %s", {FormatArgument(code), FormatArgument(text)});
  } catch (const std::bad_alloc&) {
    // As in WriteLogEntry.
  }
}

}  // namespace zentpost
