#include <windows.h>

#include <cstdio>
#include <string>
#include <string_view>

#include "platform/console.h"
#include "platform/windows/startup.h"
#include "platform/windows/wide.h"

namespace {

bool Write(HANDLE file, std::string_view bytes) {
  while (!bytes.empty()) {
    DWORD written = 0;
    const DWORD piece = static_cast<DWORD>(bytes.size() < 0x10000 ? bytes.size() : 0x10000);
    if (!::WriteFile(file, bytes.data(), piece, &written, nullptr) || written == 0) {
      return false;
    }
    bytes.remove_prefix(written);
  }
  return true;
}

class WindowsConsole : public platform::Console {
 public:
  bool Out(std::string_view text) override { return Write(GetStdHandle(STD_OUTPUT_HANDLE), text); }
  void Err(std::string_view text) override {
    static_cast<void>(Write(GetStdHandle(STD_ERROR_HANDLE), text));
  }
  bool WriteFile(const std::u16string& path, std::string_view bytes) override {
    HANDLE file = CreateFileW(platform::ToSystem(path.c_str()), GENERIC_WRITE, FILE_SHARE_READ,
                              nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
      return false;
    }
    const bool is_written = Write(file, bytes);
    CloseHandle(file);
    return is_written;
  }
  // Started by a double click it has a window of its own, with nobody else in it.
  void AwaitReader() override {
    DWORD processes[2] = {};
    DWORD mode = 0;
    HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
    if (GetConsoleProcessList(processes, 2) == 1 && GetConsoleMode(input, &mode) &&
        GetConsoleMode(GetStdHandle(STD_OUTPUT_HANDLE), &mode)) {
      Out("\nPress Enter to close this window.\n");
      char line[256];
      DWORD count = 0;
      ReadFile(input, line, sizeof(line), &count, nullptr);
    }
  }
};

// The process's command line behind the program's path and the blanks that follow it, as the C
// runtime passes it to a program without a console.
std::u16string_view Arguments() {
  std::u16string_view line = platform::FromSystem(GetCommandLineW());
  bool is_quoted = false;
  while (!line.empty() && (is_quoted || line.front() > u' ')) {
    is_quoted ^= line.front() == u'"';
    line.remove_prefix(1);
  }
  while (!line.empty() && line.front() <= u' ') {
    line.remove_prefix(1);
  }
  return line;
}

}  // namespace

int main() {
  platform::ShowNothingAndLoadNothingFromTheCurrentFolder();
  const UINT former = GetConsoleOutputCP();
  SetConsoleOutputCP(CP_UTF8);
  WindowsConsole console;
  const int exit_code = platform::RunConsoleProgram(Arguments(), console);
  if (former != 0) {
    SetConsoleOutputCP(former);
  }
  return exit_code;
}
