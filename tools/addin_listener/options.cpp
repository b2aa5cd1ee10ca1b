#include "tools/addin_listener/options.h"

#include <charconv>
#include <cstdint>
#include <limits>
#include <system_error>

namespace zentpost::addin_listener {
namespace {

constexpr std::string_view kHelp = R"(Usage: addin_listener [options]

Listens on 127.0.0.1 in place of the mail client's add-in, takes what Zentpost
delivers, undoes the conversion of the bytes on the wire, checks the payload and
prints it. The first line on the standard output is always
"listening on 127.0.0.1:PORT".

Where to listen, and for how long
  --port N           the port (0 to 65535); 0, the default, takes a free one
  --port-file FILE   write the port's number to FILE once connections are taken;
                     FILE appears whole and is removed at the end
  --count N          end after N deliveries (default 1); 0: go on until ended
  --timeout SECONDS  end after SECONDS (1 to 86400) in any case

What to show and keep
  --json             print each payload's JSON text as it is; everything but
                     this and the first line goes to the standard error output
  --quiet            print nothing but the first line and errors
  --out FOLDER       write each delivery to the existing FOLDER:
                     delivery-0001.wire, the bytes as they came, and
                     delivery-0001.json, the text with the conversion undone
                     (missing when it cannot be undone). Existing files stay:
                     the next free number is taken.
  --code-page 1252   the ANSI code page of the sender; only 1252 is supported

Behaving badly on purpose
  --misbehave KIND   never-read        accept, and leave the payload unread
                                       until the sender has closed
                     slow              read one byte a second
                     reset             reset the connection
                     stop-after-probe  let the first connection wait until its
                                       sender closes it, then stop listening
  --connection N     misbehave on the N-th connection alone, counted from 1, the
                     probe included. Without it every connection is treated
                     badly from its first byte on; a probe sends none and so is
                     left alone. With it, reset does not wait for a byte, and
                     stop-after-probe serves the connections before it.

  --help             show this text
  --version          show the version

Connections
  The sender connects twice: first for a probe, which closes without a byte and
  is not counted, then for the delivery, which is complete when it closes.
  Deliveries may come at the same time. A connection that is reset by its sender
  or brings more than 256 MiB is a delivery that is not valid. One that was
  misbehaved at counts as a delivery and is not checked, except under slow,
  where the payload arrives in the end.

Exit codes
  0  every delivery was valid, or was misbehaved at as asked
  1  a delivery was not a valid payload
  2  the command line cannot be used
  3  cannot listen, or cannot write a file or the output
  4  the time ran out, or the program was ended, before all deliveries had come
  Where several apply, the first of 3, 1, 4 counts. Ctrl-C ends the program;
  with --count 0 that is no failure.

Examples
  addin_listener --port 5000
      Take one delivery on port 5000 and show it.
  addin_listener --port-file port.txt --timeout 60 --json
      For a script: wait for port.txt, start a job, read the JSON.
  addin_listener --port 5000 --count 0 --out received
      Collect deliveries in the folder "received" until Ctrl-C.
  addin_listener --port 5000 --misbehave never-read
      See how a job ends when the add-in hangs.
)";

// A decimal number of digits alone, from `lowest` to `highest`.
std::optional<unsigned> ParseNumber(std::string_view text, unsigned lowest, unsigned highest) {
  unsigned value = 0;
  const auto [end, status] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (status != std::errc() || end != text.data() + text.size() || value < lowest ||
      value > highest) {
    return std::nullopt;
  }
  return value;
}

std::filesystem::path PathFromUtf8(const std::string& text) {
  return std::filesystem::path(std::u8string(text.begin(), text.end()));
}

std::optional<Misbehaviour> ParseMisbehaviour(std::string_view text) {
  if (text == "never-read") {
    return Misbehaviour::kNeverRead;
  }
  if (text == "slow") {
    return Misbehaviour::kSlow;
  }
  if (text == "reset") {
    return Misbehaviour::kReset;
  }
  if (text == "stop-after-probe") {
    return Misbehaviour::kStopAfterProbe;
  }
  return std::nullopt;
}

// Applies an option that takes a value. False: `error` says why not.
bool ApplyValue(const std::string& name, const std::string& value, Options& options,
                std::string& error) {
  constexpr unsigned kAny = std::numeric_limits<unsigned>::max();
  const auto number = [&](unsigned lowest, unsigned highest) {
    const std::optional<unsigned> result = ParseNumber(value, lowest, highest);
    if (!result) {
      error = name + " takes a number from " + std::to_string(lowest) + " to " +
              std::to_string(highest) + ", not \"" + value + "\"";
    }
    return result;
  };
  if (name == "--port") {
    const std::optional<unsigned> port = number(0, 65535);
    options.listener.port = static_cast<std::uint16_t>(port.value_or(0));
    return port.has_value();
  }
  if (name == "--count") {
    const std::optional<unsigned> count = number(0, kAny);
    options.listener.count = count.value_or(0);
    return count.has_value();
  }
  if (name == "--timeout") {
    const std::optional<unsigned> seconds = number(1, 86400);
    options.listener.timeout = std::chrono::seconds(seconds.value_or(0));
    return seconds.has_value();
  }
  if (name == "--connection") {
    const std::optional<unsigned> connection = number(1, kAny);
    options.listener.connection = connection.value_or(0);
    return connection.has_value();
  }
  if (name == "--misbehave") {
    const std::optional<Misbehaviour> kind = ParseMisbehaviour(value);
    if (!kind) {
      error =
          "--misbehave takes never-read, slow, reset or stop-after-probe, not \"" + value + "\"";
      return false;
    }
    options.listener.misbehaviour = *kind;
    return true;
  }
  if (name == "--code-page") {
    if (value != "1252") {
      error = "--code-page takes 1252 only, not \"" + value + "\"";
      return false;
    }
    return true;
  }
  if (value.empty()) {
    error = name + " takes a name, not an empty text";
    return false;
  }
  (name == "--out" ? options.out_folder : options.port_file) = PathFromUtf8(value);
  return true;
}

bool TakesValue(std::string_view name) {
  for (const std::string_view known : {"--port", "--port-file", "--count", "--timeout", "--out",
                                       "--code-page", "--misbehave", "--connection"}) {
    if (name == known) {
      return true;
    }
  }
  return false;
}

}  // namespace

std::optional<Options> ParseOptions(const std::vector<std::string>& arguments, std::string& error) {
  Options options;
  bool json = false;
  bool quiet = false;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& word = arguments[i];
    const std::size_t equals = word.find('=');
    const std::string name = word.substr(0, equals);
    if (TakesValue(name)) {
      if (equals == std::string::npos && i + 1 == arguments.size()) {
        error = name + " needs a value";
        return std::nullopt;
      }
      const std::string value =
          equals == std::string::npos ? arguments[++i] : word.substr(equals + 1);
      if (!ApplyValue(name, value, options, error)) {
        return std::nullopt;
      }
    } else if (word == "--help" || word == "--version") {
      options.action = word == "--help" ? Action::kShowHelp : Action::kShowVersion;
      return options;
    } else if (word == "--json") {
      json = true;
    } else if (word == "--quiet") {
      quiet = true;
    } else {
      error = "unknown argument \"" + word + "\"";
      return std::nullopt;
    }
  }
  if (json && quiet) {
    error = "--json and --quiet exclude each other";
    return std::nullopt;
  }
  if (options.listener.connection != 0 && options.listener.misbehaviour == Misbehaviour::kNone) {
    error = "--connection needs --misbehave";
    return std::nullopt;
  }
  if (json) {
    options.display = Display::kJson;
  } else if (quiet) {
    options.display = Display::kQuiet;
  }
  return options;
}

std::string_view HelpText() {
  return kHelp;
}

}  // namespace zentpost::addin_listener
