#include "tools/addin_listener/program.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <new>
#include <optional>
#include <system_error>

#include "tools/addin_listener/listener.h"
#include "tools/addin_listener/options.h"
#include "tools/addin_listener/payload_check.h"
#include "tools/addin_listener/system.h"

namespace zentpost::addin_listener {
namespace {

constexpr int kExitGood = 0;
constexpr int kExitNotValid = 1;
constexpr int kExitUsage = 2;
constexpr int kExitSystem = 3;
constexpr int kExitUnfinished = 4;

std::string Utf8(const std::filesystem::path& path) {
  const std::u8string text = path.u8string();
  return std::string(text.begin(), text.end());
}

std::string Quoted(const std::filesystem::path& path) {
  std::string text = Utf8(path);
  text.insert(text.begin(), '"');
  return text += '"';
}

std::string CountOfBytes(std::size_t count) {
  return std::to_string(count) + (count == 1 ? " byte" : " bytes");
}

// A file with the port's number that lives as long as the object.
class PortFile {
 public:
  PortFile() = default;
  ~PortFile() {
    if (!path_.empty()) {
      std::error_code ignored;
      std::filesystem::remove(path_, ignored);
    }
  }
  PortFile(const PortFile&) = delete;
  PortFile& operator=(const PortFile&) = delete;

  // Nobody sees the file half written: it gets its name, and replaces a file that has it, when it
  // is whole. False: `error` says why.
  bool Write(const std::filesystem::path& path, std::uint16_t port, std::string& error) {
    // As long as the port is ours, so is this name; what stands there was left by a crash.
    const std::string number = std::to_string(port);
    std::filesystem::path unfinished = path;
    unfinished += "." + number + ".tmp";
    std::error_code ignored;
    std::filesystem::remove(unfinished, ignored);
    const CreateResult created = CreateNewFile(unfinished, number + "\n", error);
    if (created != CreateResult::kCreated) {
      if (created == CreateResult::kExists) {
        error = Quoted(unfinished) + " is in the way";
      }
      return false;
    }
    std::error_code status;
    std::filesystem::rename(unfinished, path, status);
    if (status) {
      error = CallError("rename", status.value());
      std::filesystem::remove(unfinished, ignored);
      return false;
    }
    path_ = path;
    return true;
  }

 private:
  std::filesystem::path path_;
};

// Writes a delivery under the first free number from `number` on, which then is the next to try.
// `written` is the name of the file that is of most use. False: `error` says why.
bool KeepDelivery(const std::filesystem::path& folder, const std::string& wire,
                  const std::string& json_utf8, unsigned& number, std::filesystem::path& written,
                  std::string& error) {
  while (true) {
    char name[32];
    std::snprintf(name, sizeof name, "delivery-%04u", number++);
    const std::filesystem::path wire_path = folder / (std::string(name) + ".wire");
    const std::filesystem::path json_path = folder / (std::string(name) + ".json");
    // The pair belongs together: a number is free when neither file is there.
    std::error_code ignored;
    if (std::filesystem::exists(json_path, ignored)) {
      continue;
    }
    const CreateResult wire_result = CreateNewFile(wire_path, wire, error);
    if (wire_result == CreateResult::kExists) {
      continue;
    }
    if (wire_result == CreateResult::kFailed) {
      return false;
    }
    written = wire_path;
    if (json_utf8.empty()) {
      return true;
    }
    const CreateResult json_result = CreateNewFile(json_path, json_utf8, error);
    if (json_result == CreateResult::kCreated) {
      written = json_path;
      return true;
    }
    std::filesystem::remove(wire_path, ignored);
    if (json_result == CreateResult::kFailed) {
      return false;
    }
  }
}

class Program {
 public:
  Program(const Options& options, const Writer& out, const Writer& err)
      : options_(options), out_(out), err_(err) {}

  int Run();

 private:
  static void OnInterrupt(void* listener) noexcept { static_cast<Listener*>(listener)->Stop(); }

  int Fail(const std::string& error) {
    err_("addin_listener: " + error + "\n");
    return kExitSystem;
  }
  void Print(std::string_view text) {
    if (!out_(text)) {
      output_failed_ = true;
      listener_.Stop();
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
  void TakeDelivery(const std::string& heading, const Connection& connection);

  const Options& options_;
  const Writer& out_;
  const Writer& err_;
  Listener listener_;
  std::size_t deliveries_ = 0;
  std::size_t not_valid_ = 0;
  unsigned next_number_ = 1;
  bool output_failed_ = false;
  std::string keeping_error_;
};

void Program::TakeDelivery(const std::string& heading, const Connection& connection) {
  PayloadReport report = CheckPayload(connection.wire);
  if (connection.end == ConnectionEnd::kBroken) {
    report.problems.insert(report.problems.begin(),
                           connection.wire.size() > kMaxPayload
                               ? "there are more bytes than this program takes"
                               : "the sender reset the connection instead of closing it");
  }
  if (!report.valid()) {
    ++not_valid_;
  }
  std::string text = heading + ", " + CountOfBytes(connection.wire.size()) +
                     (report.valid() ? ", valid\n" : ", NOT VALID\n");
  for (const std::string& problem : report.problems) {
    text += "  problem: " + problem + "\n";
  }
  if (options_.display == Display::kReadable) {
    text += FormatMembers(report.members);
  }
  if (options_.out_folder) {
    std::filesystem::path written;
    std::string error;
    if (KeepDelivery(*options_.out_folder, connection.wire, report.json_utf8, next_number_, written,
                     error)) {
      text += "  written to " + Utf8(written) + "\n";
    } else {
      keeping_error_ = "cannot write to " + Quoted(*options_.out_folder) + ": " + error;
      listener_.Stop();
    }
  }
  Tell(text);
  if (options_.display == Display::kJson && !report.json_utf8.empty()) {
    Print(report.json_utf8);
    if (!report.json_utf8.ends_with('\n')) {
      Print("\n");
    }
  }
}

void Program::TakeConnection(const Connection& connection) {
  const std::string heading = "connection " + std::to_string(connection.number) + ": ";
  switch (connection.end) {
    case ConnectionEnd::kProbe:
      Tell(heading + "probe, closed without a byte\n");
      return;
    case ConnectionEnd::kUnaccepted:
      Tell(heading + "closed unaccepted; listening no more, on purpose\n");
      return;
    case ConnectionEnd::kDropped:
      Tell(heading + "dropped at the end, after " + CountOfBytes(connection.wire.size()) + "\n");
      return;
    case ConnectionEnd::kSpoiled:
      ++deliveries_;
      Tell(heading + "delivery " + std::to_string(deliveries_) +
           (options_.listener.misbehaviour == Misbehaviour::kReset
                ? ", reset on purpose\n"
                : ", left unread on purpose until the sender closed\n"));
      return;
    case ConnectionEnd::kDelivered:
    case ConnectionEnd::kBroken:
      ++deliveries_;
      TakeDelivery(heading + "delivery " + std::to_string(deliveries_), connection);
      return;
  }
}

int Program::Run() {
  std::string error;
  if (options_.out_folder) {
    std::error_code ignored;
    if (!std::filesystem::is_directory(*options_.out_folder, ignored)) {
      return Fail("no such folder: " + Quoted(*options_.out_folder));
    }
  }
  if (!listener_.Open(options_.listener, error)) {
    return Fail("cannot listen on 127.0.0.1:" + std::to_string(options_.listener.port) + ": " +
                error);
  }
  const InterruptGuard guard(OnInterrupt, &listener_);
  PortFile port_file;
  if (options_.port_file && !port_file.Write(*options_.port_file, listener_.port(), error)) {
    return Fail("cannot write " + Quoted(*options_.port_file) + ": " + error);
  }
  Print("listening on 127.0.0.1:" + std::to_string(listener_.port()) + "\n");

  const RunEnd end =
      listener_.Run([this](const Connection& connection) { TakeConnection(connection); }, error);

  if (!keeping_error_.empty()) {
    return Fail(keeping_error_);
  }
  if (end == RunEnd::kFailed) {
    return Fail("cannot go on listening: " + error);
  }
  if (output_failed_) {
    return Fail("cannot write the output");
  }
  const bool unfinished =
      end == RunEnd::kTimedOut || (end == RunEnd::kStopped && options_.listener.count != 0);
  if (unfinished) {
    const unsigned count = options_.listener.count;
    err_(std::string("addin_listener: ") +
         (end == RunEnd::kTimedOut ? "the time ran out: " : "ended: ") +
         std::to_string(deliveries_) + (count == 0 ? "" : " of " + std::to_string(count)) +
         " deliveries had come\n");
  }
  if (not_valid_ != 0) {
    return kExitNotValid;
  }
  return unfinished ? kExitUnfinished : kExitGood;
}

}  // namespace

int RunProgram(const std::vector<std::string>& arguments, const Writer& out, const Writer& err) {
  std::string error;
  const std::optional<Options> options = ParseOptions(arguments, error);
  if (!options) {
    err("addin_listener: " + error + "\nTry addin_listener --help.\n");
    return kExitUsage;
  }
  if (options->action == Action::kShowHelp) {
    return out(HelpText()) ? kExitGood : kExitSystem;
  }
  if (options->action == Action::kShowVersion) {
    return out("addin_listener " ADDIN_LISTENER_VERSION "\n") ? kExitGood : kExitSystem;
  }
  try {
    return Program(*options, out, err).Run();
  } catch (const std::bad_alloc&) {
    // Only what others send is large enough to get here.
    err("addin_listener: out of memory\n");
    return kExitSystem;
  }
}

int RunProgram(const std::vector<std::string>& arguments) {
  const auto writer = [](std::FILE* file) {
    return [file](std::string_view text) {
      const bool whole = std::fwrite(text.data(), 1, text.size(), file) == text.size();
      return std::fflush(file) == 0 && whole;
    };
  };
  return RunProgram(arguments, writer(stdout), writer(stderr));
}

}  // namespace zentpost::addin_listener
