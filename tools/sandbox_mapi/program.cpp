#include "tools/sandbox_mapi/program.h"

#include <cstdio>
#include <stdexcept>
#include <system_error>

#include "tools/sandbox_mapi/library.h"
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
    "       sandbox_mapi -h | --help | --version\n"
    "\n"
    "Stands in for a mail client: a program that sends mail through MAPI finds the\n"
    "library beside this program, and what it sends becomes files in FOLDER.\n"
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
    throw std::runtime_error(
        "there is no library beside this program: put back what was\nbuilt with it\n  " + path);
  }
  const std::size_t length = support::Utf16(path).size();
  if (length > kLongestLibraryPath) {
    throw std::runtime_error(
        "the library's path has " + std::to_string(length) + " characters, and more than " +
        std::to_string(kLongestLibraryPath) +
        "\nare not read when a mail client is looked for: put it into a folder "
        "with a\nshorter path\n  " +
        path);
  }
}

// Makes the folder, and shows that mail can be kept in it. Throws std::runtime_error.
void CheckFolder(const fs::path& folder) {
  const std::string advice = ": name another with --folder\n  " + support::PathText(folder);
  std::error_code problem;
  if (folder.has_root_path() && !fs::exists(folder.root_path(), problem)) {
    throw std::runtime_error("there is no drive for the mail" + advice);
  }
  fs::create_directories(folder, problem);
  if (problem) {
    throw std::runtime_error("cannot make the folder for the mail" + advice + "\n  " +
                             problem.message());
  }
  const fs::path probe = folder / ("probe-" + std::to_string(ProcessId()));
  const bool is_written = support::WriteBytes(probe, "");
  fs::remove(probe, problem);
  if (!is_written) {
    throw std::runtime_error("cannot write into the folder" + advice);
  }
}

// Orders that the folder has already, or that the environment gives. Throws std::runtime_error.
void CheckOrders(const fs::path& folder) {
  try {
    static_cast<void>(ReadOrders(folder, EnvironmentVariable("SANDBOX_MAPI_CONFIG")));
  } catch (const std::runtime_error& problem) {
    throw std::runtime_error(std::string("the orders cannot be used, and no mail would be sent: "
                                         "correct them or\ntake them away\n  ") +
                             problem.what());
  }
}

// What is told when it is done. Throws std::runtime_error.
std::string RegisterWith(const fs::path& library, const fs::path& folder) {
  CheckFolder(folder);
  CheckLibrary(library);
  CheckOrders(folder);
  Register(library, folder);
  return "this machine's default mail client is now\n  " + support::PathText(library) +
         "\nmail becomes files in\n  " + support::PathText(folder) + "\nthat is written in\n  " +
         RegistrationPlace() + "\nto undo it: sandbox_mapi unregister\n";
}

// Why a command line cannot be used.
std::string Misuse(const std::vector<std::string>& arguments) {
  if (arguments.empty()) {
    return "a command is missing";
  }
  const std::string& command = arguments[0];
  if (command == "register") {
    return arguments.size() == 1 || arguments[1] != "--folder"
               ? "register takes --folder FOLDER alone"
               : "--folder takes one folder";
  }
  for (const std::string_view known : {"unregister", "-h", "--help", "--version"}) {
    if (command == known) {
      return command + " takes nothing behind it";
    }
  }
  return "unknown command " + command;
}

}  // namespace

std::string RegistryProblem(const std::string& call, long code) {
  constexpr long kAccessDenied = 5;
  const std::string failed = call + " failed with " + std::to_string(code);
  return code == kAccessDenied ? "only an administrator may change the machine's mail client: "
                                 "start the\ncommand prompt "
                                 "as an administrator and try again (" +
                                     failed + ")"
                               : "the registry cannot be changed (" + failed + ")";
}

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
      out(Unregister() ? "the former mail client is back\n"
                       : "nothing to undo: sandbox_mapi was not registered\n");
    } else if (arguments.size() == 1 && (command == "--help" || command == "-h")) {
      out(kHelp);
    } else if (arguments.size() == 1 && command == "--version") {
      out("sandbox_mapi " SANDBOX_MAPI_VERSION "\n");
    } else {
      err("sandbox_mapi: " + Misuse(arguments) + "; --help shows what there is\n");
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
