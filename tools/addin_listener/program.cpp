#include "tools/addin_listener/program.h"

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <new>
#include <optional>
#include <stdexcept>
#include <system_error>

#include "tools/addin_listener/code_page.h"
#include "tools/addin_listener/listener.h"
#include "tools/addin_listener/options.h"
#include "tools/addin_listener/payload_check.h"
#include "tools/addin_listener/system.h"
#include "tools/support/files.h"
#include "tools/support/program.h"
#include "tools/support/wrap.h"

namespace zentpost::addin_listener {
namespace {

constexpr char kTooManyBytes[] = "there are more bytes than this program takes";

enum ExitCode : int { kExitGood, kExitNotValid, kExitUsage, kExitSystem, kExitUnfinished };

std::string Quoted(const std::filesystem::path& path) {
  return '"' + support::PathText(path) + '"';
}

std::string CountOfBytes(std::size_t count) {
  return std::to_string(count) + (count == 1 ? " byte" : " bytes");
}

void Remove(const std::filesystem::path& path) {
  std::error_code ignored;
  std::filesystem::remove(path, ignored);
}

// Nothing when it cannot be read. More than kMaxPayload is not read to its end.
std::optional<std::string> ReadStandardInput() {
  MakeInputBinary();
  std::string bytes;
  std::vector<char> piece(65536);
  while (bytes.size() <= kMaxPayload) {
    const std::size_t count = std::fread(piece.data(), 1, piece.size(), stdin);
    bytes.append(piece.data(), count);
    if (count == 0) {
      return std::ferror(stdin) != 0 ? std::nullopt : std::optional(bytes);
    }
  }
  return bytes;
}

// Creates `path` with `bytes` as its content. False: a file of that name was there already and is
// untouched. Throws std::system_error when that fails; no new file remains then.
bool WriteNewFile(const std::filesystem::path& path, std::string_view bytes) {
  std::FILE* const file = CreateNewFile(path);
  if (file == nullptr) {
    if (errno == EEXIST) {
      return false;
    }
    throw std::system_error(errno, std::generic_category(), "open");
  }
  int code = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size() ? 0 : errno;
  if (std::fclose(file) != 0 && code == 0) {
    code = errno;
  }
  if (code != 0) {
    Remove(path);
    throw std::system_error(code, std::generic_category(), "write");
  }
  return true;
}

// A file with the port's number that lives as long as the object.
class PortFile {
 public:
  // Nobody sees the file half written: it gets its name, and replaces a file that has it, when it
  // is whole. Throws std::system_error.
  PortFile(std::filesystem::path path, std::uint16_t port) : path_(std::move(path)) {
    // As long as the port is ours, so is this name; what stands there was left by a crash.
    const std::string number = std::to_string(port);
    const std::filesystem::path unfinished =
        support::Path(support::PathText(path_) + "." + number + ".tmp");
    Remove(unfinished);
    if (!WriteNewFile(unfinished, number + "\n")) {
      throw std::system_error(EEXIST, std::generic_category(), "open");
    }
    std::error_code error;
    std::filesystem::rename(unfinished, path_, error);
    if (error) {
      Remove(unfinished);
      throw std::system_error(error, "rename");
    }
  }
  ~PortFile() { Remove(path_); }
  PortFile(const PortFile&) = delete;
  PortFile& operator=(const PortFile&) = delete;

 private:
  std::filesystem::path path_;
};

// Writes a delivery under the first free number from `number` on, which then is the next to try.
// Gives the name of the file that is of most use. Throws std::system_error.
std::filesystem::path KeepDelivery(const std::filesystem::path& folder, const std::string& wire,
                                   const std::string& json_utf8, unsigned& number) {
  while (true) {
    char name[32];
    std::snprintf(name, sizeof name, "delivery-%04u", number++);
    std::filesystem::path wire_path = folder / (std::string(name) + ".wire");
    std::filesystem::path json_path = folder / (std::string(name) + ".json");
    // The pair belongs together: a number is free when neither file is there.
    std::error_code ignored;
    if (std::filesystem::exists(json_path, ignored) || !WriteNewFile(wire_path, wire)) {
      continue;
    }
    if (json_utf8.empty()) {
      return wire_path;
    }
    try {
      if (WriteNewFile(json_path, json_utf8)) {
        return json_path;
      }
    } catch (const std::system_error&) {
      Remove(wire_path);
      throw;
    }
    Remove(wire_path);
  }
}

class Program {
 public:
  Program(const Options& options, const Writer& out, const Writer& err)
      : options_(options), out_(out), err_(err), code_page_(options.code_page) {}

  // The exit code. Both throw std::runtime_error where it is kExitSystem.
  int Run();
  int Decode();

 private:
  // Ends the listening; the first failure is the one that is named.
  void GiveUp(const std::string& failure) {
    if (failure_.empty()) {
      failure_ = failure;
    }
    if (options_.action == Action::kListen) {
      listener_.Stop();
    }
  }
  void Print(std::string_view text) {
    if (!out_(text)) {
      GiveUp("cannot write the output");
    }
  }
  // What is said about a connection, as opposed to the payload itself.
  void Tell(const std::string& text) {
    if (options_.display == Display::kReadable) {
      Print(text);
    } else if (options_.display == Display::kJson) {
      err_(text);
    }
  }
  void TakeConnection(const Connection& connection);
  void TakeDelivery(std::string text, const Connection& connection);
  // "332 bytes, valid", the problems and the members, as far as they are shown.
  std::string Described(const PayloadReport& report, std::size_t size) const;
  void PrintJson(const PayloadReport& report);

  const Options& options_;
  const Writer& out_;
  const Writer& err_;
  const CodePage code_page_;
  Listener listener_;
  std::size_t deliveries_ = 0;
  bool not_valid_ = false;
  unsigned next_number_ = 1;
  std::string failure_;
};

std::string Program::Described(const PayloadReport& report, std::size_t size) const {
  std::string text = CountOfBytes(size) + (report.valid()     ? ", valid\n"
                                           : report.decodable ? ", NOT VALID\n"
                                                              : ", NOT VALID, not decodable\n");
  for (const std::string& problem : report.problems) {
    text += support::Wrap(problem, "  problem: ", "           ");
  }
  if (options_.display == Display::kReadable) {
    text += FormatMembers(report.members);
  }
  return text;
}

void Program::PrintJson(const PayloadReport& report) {
  if (options_.display == Display::kJson && !report.json_utf8.empty()) {
    Print(report.json_utf8);
    if (!report.json_utf8.ends_with('\n')) {
      Print("\n");
    }
  }
}

void Program::TakeDelivery(std::string text, const Connection& connection) {
  PayloadReport report = CheckPayload(connection.wire, code_page_);
  if (connection.end == ConnectionEnd::kBroken) {
    report.problems.insert(report.problems.begin(),
                           connection.wire.size() > kMaxPayload
                               ? kTooManyBytes
                               : "the sender reset the connection instead of closing it");
  }
  not_valid_ = not_valid_ || !report.valid();
  text += ", " + Described(report, connection.wire.size());
  if (options_.out_folder) {
    try {
      const std::filesystem::path written =
          KeepDelivery(*options_.out_folder, connection.wire, report.json_utf8, next_number_);
      text += "  written to " + support::PathText(written) + "\n";
    } catch (const std::system_error& error) {
      GiveUp("cannot write to " + Quoted(*options_.out_folder) + ": " + CallError(error));
    }
  }
  Tell(text);
  PrintJson(report);
}

void Program::TakeConnection(const Connection& connection) {
  const std::string heading = "connection " + std::to_string(connection.number) + ": ";
  if (connection.end == ConnectionEnd::kProbe) {
    return Tell(heading + "probe, closed without a byte\n");
  }
  if (connection.end == ConnectionEnd::kUnaccepted) {
    return Tell(heading + "closed unaccepted; listening no more, on purpose\n");
  }
  if (connection.end == ConnectionEnd::kDropped) {
    return Tell(heading + "dropped at the end, after " + CountOfBytes(connection.wire.size()) +
                "\n");
  }
  const std::string delivery = heading + "delivery " + std::to_string(++deliveries_);
  if (connection.end != ConnectionEnd::kSpoiled) {
    return TakeDelivery(delivery, connection);
  }
  Tell(delivery + (options_.listener.misbehaviour == Misbehaviour::kReset
                       ? ", reset on purpose\n"
                       : ", left unread on purpose until the sender closed\n"));
}

int Program::Decode() {
  const std::optional<std::string> wire =
      options_.capture ? support::ReadBytes(*options_.capture) : ReadStandardInput();
  if (!wire) {
    throw std::runtime_error("cannot read " +
                             (options_.capture ? Quoted(*options_.capture) : "the standard input"));
  }
  PayloadReport report;
  if (wire->size() > kMaxPayload) {
    report.problems.push_back(kTooManyBytes);
  } else {
    report = CheckPayload(*wire, code_page_);
  }
  Tell(Described(report, wire->size()));
  PrintJson(report);
  if (!failure_.empty()) {
    throw std::runtime_error(failure_);
  }
  return report.valid() ? kExitGood : kExitNotValid;
}

int Program::Run() {
  std::error_code ignored;
  if (options_.out_folder && !std::filesystem::is_directory(*options_.out_folder, ignored)) {
    throw std::runtime_error("no such folder: " + Quoted(*options_.out_folder));
  }
  std::string error;
  if (!listener_.Open(options_.listener, error)) {
    throw std::runtime_error(
        "cannot listen on 127.0.0.1:" + std::to_string(options_.listener.port) + ": " + error);
  }
  const InterruptGuard guard(listener_);
  std::optional<PortFile> port_file;
  try {
    if (options_.port_file) {
      port_file.emplace(*options_.port_file, listener_.port());
    }
  } catch (const std::system_error& failure) {
    throw std::runtime_error("cannot write " + Quoted(*options_.port_file) + ": " +
                             CallError(failure));
  }
  Print("listening on 127.0.0.1:" + std::to_string(listener_.port()) + "\n");

  const RunEnd end =
      listener_.Run([this](const Connection& connection) { TakeConnection(connection); }, error);
  if (end == RunEnd::kFailed) {
    GiveUp("cannot go on listening: " + error);
  }
  if (!failure_.empty()) {
    throw std::runtime_error(failure_);
  }
  const unsigned count = options_.listener.count;
  const bool timed_out = end == RunEnd::kTimedOut;
  const bool unfinished = timed_out || (end == RunEnd::kStopped && count != 0);
  if (unfinished) {
    err_(std::string("addin_listener: ") + (timed_out ? "the time ran out: " : "ended: ") +
         std::to_string(deliveries_) + (count == 0 ? "" : " of " + std::to_string(count)) +
         " deliveries had come\n");
  }
  return not_valid_ ? kExitNotValid : unfinished ? kExitUnfinished : kExitGood;
}

}  // namespace

int RunProgram(const std::vector<std::string>& arguments, const Writer& out, const Writer& err) {
  std::string ending = "; see addin_listener --help\n";
  int exit_code = kExitUsage;
  try {
    const Options options = ParseOptions(arguments);
    ending = "\n";
    exit_code = kExitSystem;
    if (options.action == Action::kListen) {
      return Program(options, out, err).Run();
    }
    if (options.action == Action::kDecode) {
      return Program(options, out, err).Decode();
    }
    const bool is_help = options.action == Action::kShowHelp;
    const bool is_told = out(is_help ? HelpText() : "addin_listener " ADDIN_LISTENER_VERSION "\n");
    return is_told ? kExitGood : kExitSystem;
  } catch (const std::runtime_error& problem) {
    err("addin_listener: " + std::string(problem.what()) + ending);
  } catch (const std::bad_alloc&) {
    // Only what others send is large enough to get here.
    err("addin_listener: out of memory\n");
  }
  return exit_code;
}

}  // namespace zentpost::addin_listener

const bool zentpost::kToolWritesLineFeeds = true;

int zentpost::RunTool(const std::vector<std::string>& arguments) {
  const auto writer = [](std::FILE* file) {
    return [file](std::string_view text) {
      const bool whole = std::fwrite(text.data(), 1, text.size(), file) == text.size();
      return std::fflush(file) == 0 && whole;
    };
  };
  return addin_listener::RunProgram(arguments, writer(stdout), writer(stderr));
}
