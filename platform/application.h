// The process's start and end. The back-end owns main (or wWinMain) and drives the application
// object through its two hooks; nothing here opens a window or runs a message loop.
//
// An exception that nobody catches, on whatever thread, ends the process with exit code 1, without
// a word and without ExitInstance. On Windows the process is set up first so that the system shows
// no box of its own for it (SetErrorMode, the C runtime's _set_error_mode) and finds no library in
// the current folder by its bare name (SetDllDirectoryW).
#pragma once

namespace platform {

// The part of the framework's application class that the tool uses.
class CWinApp {
 public:
  CWinApp() = default;
  CWinApp(const CWinApp&) = delete;
  CWinApp& operator=(const CWinApp&) = delete;
  virtual ~CWinApp() = default;

  // Start-up hook. False sends the process straight on to ExitInstance.
  virtual bool InitInstance() { return true; }

  // Gives the process's exit code.
  virtual int ExitInstance() { return 0; }

  // The command line without the program's path, zero-terminated, never null; set before
  // InitInstance and valid until the process ends. On Windows it is the process's own raw text from
  // the first character behind the program's path and the blanks that follow it.
  const char16_t* m_lpCmdLine = u"";
};

// The one application object; every executable that links the entry point defines this.
CWinApp& Application();

}  // namespace platform
