#include <windows.h>
// After windows.h, whose types they use.
#include <shellapi.h>

#include <memory>
#include <string>
#include <vector>

#include "fake_mapi/text.h"
#include "tools/sandbox_mapi/program.h"

namespace {

struct LocalDeleter {
  void operator()(void* memory) const { LocalFree(memory); }
};

}  // namespace

int main() {
  // The C run-time's own arguments are in the ANSI code page and have their wildcards expanded.
  int count = 0;
  const std::unique_ptr<wchar_t*, LocalDeleter> wide(CommandLineToArgvW(GetCommandLineW(), &count));
  std::vector<std::string> arguments;
  for (int i = 1; wide && i < count; ++i) {
    using zentpost::fake_mapi::FromWide;
    using zentpost::fake_mapi::Utf8;
    arguments.push_back(Utf8(FromWide(wide.get()[i])));
  }
  // A console shows UTF-8 as text only with this code page; it is the window's, so it is given
  // back.
  const UINT former = GetConsoleOutputCP();
  SetConsoleOutputCP(CP_UTF8);
  const int code = zentpost::fake_mapi::sandbox::RunProgram(arguments);
  SetConsoleOutputCP(former);
  return code;
}
