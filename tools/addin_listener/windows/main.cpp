#include <windows.h>
// After windows.h, whose types they use.
#include <fcntl.h>
#include <io.h>
#include <shellapi.h>

#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tools/addin_listener/program.h"

namespace {

struct LocalDeleter {
  void operator()(void* memory) const { LocalFree(memory); }
};

std::string Utf8(std::wstring_view text) {
  if (text.empty()) {
    return {};
  }
  const int length = static_cast<int>(text.size());
  const int size =
      WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
  std::string result(static_cast<std::size_t>(size), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text.data(), length, result.data(), size, nullptr, nullptr);
  return result;
}

// A console shows the UTF-8 output as text only with this code page; it is the window's, not the
// program's, so it is given back.
class Utf8Console {
 public:
  Utf8Console() : former_(GetConsoleOutputCP()) {
    if (former_ != 0) {
      SetConsoleOutputCP(CP_UTF8);
    }
  }
  ~Utf8Console() {
    if (former_ != 0) {
      SetConsoleOutputCP(former_);
    }
  }
  Utf8Console(const Utf8Console&) = delete;
  Utf8Console& operator=(const Utf8Console&) = delete;

 private:
  UINT former_;
};

}  // namespace

int main() {
  // The C run-time's own arguments are in the ANSI code page and have their wildcards expanded.
  int count = 0;
  const std::unique_ptr<wchar_t*, LocalDeleter> wide(CommandLineToArgvW(GetCommandLineW(), &count));
  std::vector<std::string> arguments;
  for (int i = 1; wide && i < count; ++i) {
    arguments.push_back(Utf8(wide.get()[i]));
  }
  const Utf8Console console;
  for (std::FILE* const file : {stdout, stderr}) {
    _setmode(_fileno(file), _O_BINARY);
    // Else a console is given one byte at a time, which tears characters apart. Every message is
    // flushed.
    std::setvbuf(file, nullptr, _IOFBF, 1 << 16);
  }
  return zentpost::addin_listener::RunProgram(arguments);
}
