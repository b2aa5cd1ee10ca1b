// Hands one fax job to Zentpost and tells what became of it: a sample for fax applications on
// Windows. README beside it tells what it does and why.
#include <windows.h>
// After windows.h, whose types it uses.
#include <shellapi.h>

#include <cstdio>
#include <vector>

#include "job.h"

namespace starter {
namespace {

constexpr DWORD kPatience = 60'000;  // milliseconds until the user is told that the tool is at work

std::wstring Wide(const std::string& utf8) {
  const int size = static_cast<int>(utf8.size());
  std::wstring text(utf8.size(), L'\0');
  text.resize(static_cast<std::size_t>(
      MultiByteToWideChar(CP_UTF8, 0, utf8.data(), size, text.data(), size)));
  return text;
}

// Throws Refused where `text` has half of a character.
std::string Utf8(const std::wstring& text) {
  if (text.empty()) {
    return "";
  }
  const int size = static_cast<int>(text.size());
  std::string utf8(text.size() * 3, '\0');  // No character needs more.
  const int written =
      WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, text.data(), size, utf8.data(),
                          static_cast<int>(utf8.size()), nullptr, nullptr);
  if (written == 0) {
    throw Refused("a text or a path is no Unicode text");
  }
  utf8.resize(static_cast<std::size_t>(written));
  return utf8;
}

[[noreturn]] void RefuseWithError(const std::string& sentence, const std::string& path) {
  throw Refused(sentence + ": " + path + ": error " + std::to_string(GetLastError()));
}

constexpr char kNoFolder[] = "no folder can be made for the job";

class Handle {
 public:
  explicit Handle(HANDLE handle) : handle_(handle) {}
  ~Handle() {
    if (IsOpen()) {
      CloseHandle(handle_);
    }
  }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
  bool IsOpen() const { return handle_ != nullptr && handle_ != INVALID_HANDLE_VALUE; }
  HANDLE Get() const { return handle_; }

 private:
  HANDLE handle_;
};

HANDLE OpenToRead(const std::string& path) {
  return CreateFileW(Wide(path).c_str(), GENERIC_READ,
                     FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                     FILE_ATTRIBUTE_NORMAL, nullptr);
}

// Throws Refused with `sentence`.
std::string AbsolutePath(const std::string& path, const std::string& sentence) {
  const std::wstring wide = Wide(path);
  std::wstring full(32768, L'\0');  // No path is longer.
  const DWORD length =
      GetFullPathNameW(wide.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr);
  // A path of blanks alone has none.
  if (length == 0 || length >= full.size()) {
    RefuseWithError(sentence, path);
  }
  full.resize(length);
  return Utf8(full);
}

// Where the Windows Installer has put the tool; the 64-bit one first.
std::string InstalledTool() {
  for (const REGSAM view : {KEY_WOW64_64KEY, KEY_WOW64_32KEY}) {
    HKEY key = nullptr;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"Software\\Sollvex\\Zentpost", 0, KEY_READ | view,
                      &key) != ERROR_SUCCESS) {
      continue;
    }
    wchar_t folder[MAX_PATH] = {};
    DWORD size = sizeof folder;
    const LSTATUS status =
        RegGetValueW(key, nullptr, L"InstallDir", RRF_RT_REG_SZ, nullptr, folder, &size);
    RegCloseKey(key);
    if (status == ERROR_SUCCESS && folder[0] != L'\0') {
      const std::string path = Utf8(folder);
      return path + (path.back() == '\\' ? "" : "\\") + "zentpost.exe";
    }
  }
  throw Refused("--tool is missing, and Zentpost is not installed");
}

// A new folder with the job file in it. Both go with the object, unless they are kept.
class JobFolder {
 public:
  // Throws Refused.
  JobFolder(const std::string& parent, const std::string& job) {
    for (unsigned number = GetTickCount();; ++number) {
      path_ = Wide(parent) + (parent.back() == '\\' ? L"" : L"\\") + L"zentpost-job-" +
              std::to_wstring(GetCurrentProcessId()) + L'-' + std::to_wstring(number);
      if (CreateDirectoryW(path_.c_str(), nullptr) != 0) {
        break;
      }
      if (GetLastError() != ERROR_ALREADY_EXISTS) {
        RefuseWithError(kNoFolder, parent);
      }
    }
    try {
      CheckPath(JobFile());
      Write(job);
    } catch (...) {
      Remove();
      throw;
    }
  }
  ~JobFolder() {
    if (!is_kept_) {
      Remove();
    }
  }
  JobFolder(const JobFolder&) = delete;
  JobFolder& operator=(const JobFolder&) = delete;

  std::string JobFile() const { return Utf8(path_ + L"\\job.json"); }
  void Keep() { is_kept_ = true; }

  std::string Read() const {
    const Handle file(OpenToRead(JobFile()));
    std::string text;
    char buffer[4096];
    for (DWORD count = 1; file.IsOpen() && count > 0;) {
      if (ReadFile(file.Get(), buffer, sizeof buffer, &count, nullptr) == 0) {
        return "";
      }
      text.append(buffer, count);
    }
    return text;
  }

 private:
  // In UTF-8 without a byte-order mark, and on the disk before anybody is told of it.
  void Write(const std::string& text) const {
    const Handle file(CreateFileW(Wide(JobFile()).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                  FILE_ATTRIBUTE_NORMAL, nullptr));
    DWORD written = 0;
    if (!file.IsOpen() ||
        WriteFile(file.Get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr) ==
            0 ||
        FlushFileBuffers(file.Get()) == 0) {
      RefuseWithError("the job file cannot be written", JobFile());
    }
  }

  void Remove() const {
    DeleteFileW((path_ + L"\\job.json").c_str());
    RemoveDirectoryW(path_.c_str());
  }

  std::wstring path_;
  bool is_kept_ = false;
};

std::string TemporaryFolder() {
  wchar_t folder[MAX_PATH + 1] = {};
  GetTempPathW(MAX_PATH + 1, folder);
  return Utf8(folder);
}

// Starts the tool and gives its exit code. There is no time-out: the mail client may be showing a
// window to the user, for as long as it likes. Throws Refused.
unsigned long RunTool(const std::string& tool, const std::vector<std::string>& words) {
  std::wstring line = Wide(CommandLine(tool, words));
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION information = {};
  if (CreateProcessW(Wide(tool).c_str(), line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                     &startup, &information) == 0) {
    RefuseWithError("the tool cannot be started", tool);
  }
  const Handle thread(information.hThread);
  const Handle process(information.hProcess);
  if (WaitForSingleObject(process.Get(), kPatience) == WAIT_TIMEOUT) {
    std::fputs("starter: still waiting; the mail client may be showing a window\n", stderr);
    WaitForSingleObject(process.Get(), INFINITE);
  }
  DWORD exit_code = 0;
  GetExitCodeProcess(process.Get(), &exit_code);
  return exit_code;
}

int Run(Options options) {
  const std::string no_document = "the document cannot be read";
  options["document"] = AbsolutePath(options["document"], no_document);
  if (options["name"].empty()) {
    options["name"] = DisplayName(options["document"]);
  }
  if (!Handle(OpenToRead(options["document"])).IsOpen()) {
    throw Refused(no_document + ": " + options["document"]);
  }
  const std::string tool = options["tool"].empty() ? InstalledTool() : options["tool"];
  const std::string job = JobFileText(options);
  std::vector<std::string> words = {""};
  if (options.count("fax-command") != 0) {
    words.push_back(FaxCommand(options));
  }
  const std::string parent =
      options["job-folder"].empty() ? TemporaryFolder() : options["job-folder"];
  JobFolder folder(AbsolutePath(parent, kNoFolder), job);
  words[0] = folder.JobFile();

  const unsigned long exit_code = RunTool(tool, words);
  const Judgement judgement = Judge(exit_code, ReadResult(folder.Read()));
  std::printf("%s\n", judgement.told.c_str());
  if (judgement.outcome != kDelivered) {
    folder.Keep();  // The doctor reads it.
    std::printf("job file: %s\n", folder.JobFile().c_str());
  }
  return judgement.outcome;
}

// The program's words in UTF-8. Throws Refused.
std::vector<std::string> Words() {
  int count = 0;
  wchar_t** const words = CommandLineToArgvW(GetCommandLineW(), &count);
  const std::vector<std::wstring> wide(words, words + count);
  LocalFree(words);
  std::vector<std::string> result;
  for (int i = 1; i < count; ++i) {
    result.push_back(Utf8(wide[static_cast<std::size_t>(i)]));
  }
  return result;
}

int Main() {
  try {
    const std::vector<std::string> words = Words();
    if (words.size() == 1 && (words[0] == "-h" || words[0] == "--help")) {
      std::fputs(kHelp, stdout);
      return kDelivered;
    }
    return Run(ReadOptions(words));
  } catch (const Refused& refusal) {
    std::fprintf(stderr, "starter: %s\n", refusal.what());
    return kNothingStarted;
  }
}

}  // namespace
}  // namespace starter

int main() {
  // What a console shows is UTF-8 for as long as this runs.
  const UINT former = GetConsoleOutputCP();
  SetConsoleOutputCP(CP_UTF8);
  const int exit_code = starter::Main();
  std::fflush(stdout);
  SetConsoleOutputCP(former);
  return exit_code;
}
