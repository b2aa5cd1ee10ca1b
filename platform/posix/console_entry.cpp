#include <sys/stat.h>

#include <csignal>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "platform/console.h"
#include "platform/posix/command_line.h"
#include "platform/posix/utf8.h"

namespace {

bool Write(std::FILE* file, std::string_view text) {
  return std::fwrite(text.data(), 1, text.size(), file) == text.size() && std::fflush(file) == 0;
}

class PosixConsole : public platform::Console {
 public:
  bool Out(std::string_view text) override { return Write(stdout, text); }
  void Err(std::string_view text) override { static_cast<void>(Write(stderr, text)); }
  bool WriteFile(const std::u16string& path, std::string_view bytes) override {
    const std::string native = platform::NativePath(path);
    // What a link to nowhere would make is not the file that was named.
    struct stat properties = {};
    const bool leads_nowhere =
        lstat(native.c_str(), &properties) == 0 && stat(native.c_str(), &properties) != 0;
    std::FILE* const file = leads_nowhere ? nullptr : std::fopen(native.c_str(), "wb");
    if (file == nullptr) {
      return false;
    }
    const bool is_written = Write(file, bytes);
    return std::fclose(file) == 0 && is_written;
  }
  void AwaitReader() override {}
};

}  // namespace

int main(int argc, char** argv) {
  std::signal(SIGPIPE, SIG_IGN);
  const std::vector<std::string_view> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
  PosixConsole console;
  return platform::RunConsoleProgram(platform::RebuildCommandLine(arguments), console);
}
