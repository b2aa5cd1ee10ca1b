#include "tools/sandbox_mapi/program.h"

#include <cstdio>
#include <optional>
#include <system_error>

#include "tools/sandbox_mapi/registration.h"
#include "tools/sandbox_mapi/system.h"
#include "tools/support/files.h"
#include "tools/support/program.h"

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

int Complain(const Writer& err, const std::string& text, int code) {
  err("sandbox_mapi: " + text + '\n');
  return code;
}

int RunRegister(const fs::path& library, const std::optional<std::string>& chosen,
                const Writer& out, const Writer& err) {
  const fs::path folder =
      fs::absolute(chosen ? support::Path(*chosen) : library.parent_path() / kClientName)
          .lexically_normal();
  std::error_code problem;
  fs::create_directories(folder, problem);
  if (problem) {
    return Complain(
        err, "cannot make the folder " + support::PathText(folder) + ": " + problem.message(),
        kFailed);
  }
  std::string error;
  if (!Register(library, folder, error)) {
    return Complain(err, error, kFailed);
  }
  out("the default mail client is now " + support::PathText(library) + "\nmail goes to " +
      support::PathText(folder) + '\n');
  return kSuccess;
}

int RunUnregister(const Writer& out, const Writer& err) {
  bool was_registered = false;
  std::string error;
  if (!Unregister(was_registered, error)) {
    return Complain(err, error, kFailed);
  }
  out(was_registered ? "the former mail client is back\n" : "was not registered\n");
  return kSuccess;
}

}  // namespace

int RunProgram(const std::vector<std::string>& arguments, const fs::path& library,
               const Writer& out, const Writer& err) {
  const auto is_given = [&arguments](std::string_view word) {
    return arguments.size() == 1 && arguments[0] == word;
  };
  if (is_given("--help")) {
    out(kHelp);
    return kSuccess;
  }
  if (is_given("--version")) {
    out("sandbox_mapi " SANDBOX_MAPI_VERSION "\n");
    return kSuccess;
  }
  if (is_given("unregister")) {
    return RunUnregister(out, err);
  }
  if (is_given("register")) {
    return RunRegister(library, std::nullopt, out, err);
  }
  if (arguments.size() == 3 && arguments[0] == "register" && arguments[1] == "--folder" &&
      !arguments[2].empty()) {
    return RunRegister(library, arguments[2], out, err);
  }
  return Complain(err, "this command line cannot be used; --help shows what can", kUsage);
}

}  // namespace zentpost::fake_mapi::sandbox

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
