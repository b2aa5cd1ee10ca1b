#include "tools/sandbox_mapi/program.h"

#include <cstdio>
#include <stdexcept>
#include <system_error>

#include "tools/sandbox_mapi/registration.h"
#include "tools/sandbox_mapi/system.h"
#include "tools/support/files.h"
#include "tools/support/program.h"
#include "tools/support/text.h"

namespace zentpost::fake_mapi::sandbox {
namespace {

namespace fs = std::filesystem;

constexpr int kSuccess = 0;
constexpr int kUsage = 2;
constexpr int kFailed = 3;

constexpr std::string_view kHelp =
    "usage: sandbox_mapi register [--folder FOLDER]\n"
    "       sandbox_mapi unregister\n"
    "       sandbox_mapi --help | --version\n"
    "\n"
    "Stands in for a mail client: a program that sends mail through MAPI finds the library beside\n"
    "this program, and what it sends becomes files in FOLDER.\n"
    "\n"
    "  register       make the library this machine's default mail client\n"
    "  unregister     put back what was the default mail client before\n"
    "  --folder       where the mail goes (the folder \"Sandbox MAPI\" beside the library)\n"
    "\n"
    "exit codes:\n"
    "  0  done\n"
    "  2  the command line cannot be used\n"
    "  3  the registration cannot be changed\n";

// Throws std::runtime_error when the library cannot be registered.
void CheckLibrary(const fs::path& library) {
  const std::string path = support::PathText(library);
  std::error_code ignored;
  if (!fs::is_regular_file(library, ignored)) {
    throw std::runtime_error("there is no library " + path);
  }
  const std::size_t length = support::Utf16(path).size();
  if (length > kLongestLibraryPath) {
    throw std::runtime_error(
        "the library's path has " + std::to_string(length) + " characters, and more than " +
        std::to_string(kLongestLibraryPath) +
        " are not read when a mail client is looked for: put it into a folder with a shorter "
        "path\n  " +
        path);
  }
}

// What is told when it is done. Throws std::runtime_error.
std::string RegisterWith(const fs::path& library, const fs::path& folder) {
  std::error_code problem;
  fs::create_directories(folder, problem);
  if (problem) {
    throw std::runtime_error("cannot make the folder " + support::PathText(folder) + ": " +
                             problem.message());
  }
  CheckLibrary(library);
  Register(library, folder);
  return "the default mail client is now " + support::PathText(library) + "\nmail goes to " +
         support::PathText(folder) + '\n';
}

}  // namespace

int RunProgram(const std::vector<std::string>& arguments, const fs::path& library,
               const Writer& out, const Writer& err) {
  const std::string command = arguments.empty() ? "" : arguments[0];
  const bool has_folder = arguments.size() == 3 && command == "register" &&
                          arguments[1] == "--folder" && !arguments[2].empty();
  try {
    if (has_folder || (arguments.size() == 1 && command == "register")) {
      const fs::path folder =
          has_folder ? support::Path(arguments[2]) : library.parent_path() / kClientName;
      out(RegisterWith(library, fs::absolute(folder).lexically_normal()));
    } else if (arguments.size() == 1 && command == "unregister") {
      out(Unregister() ? "the former mail client is back\n" : "was not registered\n");
    } else if (arguments.size() == 1 && command == "--help") {
      out(kHelp);
    } else if (arguments.size() == 1 && command == "--version") {
      out("sandbox_mapi " SANDBOX_MAPI_VERSION "\n");
    } else {
      err("sandbox_mapi: this command line cannot be used; --help shows what can\n");
      return kUsage;
    }
    return kSuccess;
  } catch (const std::runtime_error& problem) {
    err(std::string("sandbox_mapi: ") + problem.what() + '\n');
    return kFailed;
  }
}

}  // namespace zentpost::fake_mapi::sandbox

const bool zentpost::kToolWritesLineFeeds = false;

int zentpost::RunTool(const std::vector<std::string>& arguments) {
  const auto to = [](std::FILE* file) {
    return [file](std::string_view text) {
      std::fwrite(text.data(), 1, text.size(), file);
      std::fflush(file);
    };
  };
  return fake_mapi::sandbox::RunProgram(
      arguments, fake_mapi::sandbox::ModulePath().parent_path() / SANDBOX_MAPI_LIBRARY, to(stdout),
      to(stderr));
}
