#include <windows.h>
// After windows.h, whose types they use.
#include <fcntl.h>
#include <io.h>
#include <shellapi.h>

#include <cstdio>

#include "tools/support/program.h"
#include "tools/support/text.h"

int main() {
  // The C run-time's own arguments are in the ANSI code page and have their wildcards expanded.
  int count = 0;
  wchar_t** const words = CommandLineToArgvW(GetCommandLineW(), &count);
  std::vector<std::string> arguments;
  for (int i = 1; i < count; ++i) {
    arguments.push_back(zentpost::support::Utf8(zentpost::support::FromWide(words[i])));
  }
  LocalFree(words);
  for (std::FILE* const file : {stdout, stderr}) {
    if (zentpost::kToolWritesLineFeeds) {
      _setmode(_fileno(file), _O_BINARY);
    }
    // Else a console is given one byte at a time, which tears characters apart. Every message is
    // flushed.
    std::setvbuf(file, nullptr, _IOFBF, 1 << 16);
  }
  // A console shows UTF-8 as text only with this code page; it is the window's, not the program's,
  // so it is given back.
  const UINT former = GetConsoleOutputCP();
  SetConsoleOutputCP(CP_UTF8);
  const int exit_code = zentpost::RunTool(arguments);
  if (former != 0) {
    SetConsoleOutputCP(former);
  }
  return exit_code;
}
