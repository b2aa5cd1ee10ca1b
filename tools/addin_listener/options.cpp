#include "tools/addin_listener/options.h"

#include <charconv>
#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <set>
#include <stdexcept>
#include <system_error>

#include "tools/addin_listener/code_page.h"
#include "tools/support/files.h"

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
  --code-page N      the ANSI code page of the sender: 1250 to 1254, 932 or 936
                     (default 1252). With 932 and 936 a text may be lost on its
                     way; it is then not valid.
  --decode FILE      do not listen, but take the bytes of one delivery from FILE
                     ("-" is the standard input). Goes with --code-page, --json
                     and --quiet alone.

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

  -h, --help         show this text
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
  1  a delivery was not a valid payload, or not decodable
  2  the command line cannot be used
  3  cannot listen, or cannot read or write a file or the output
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
  addin_listener --code-page 1250 --decode received/delivery-0001.wire
      Look at a delivery of a Polish sender once more.
)";

// A decimal number of digits alone, from `lowest` to `highest`.
unsigned Number(const std::string& value, unsigned lowest, unsigned highest) {
  unsigned number = 0;
  const char* const end = value.data() + value.size();
  const auto [read, status] = std::from_chars(value.data(), end, number);
  if (status != std::errc() || read != end || number < lowest || number > highest) {
    throw std::runtime_error("a number from " + std::to_string(lowest) + " to " +
                             std::to_string(highest) + ", not \"" + value + '"');
  }
  return number;
}

std::filesystem::path Name(const std::string& value) {
  return !value.empty() ? support::Path(value)
                        : throw std::runtime_error("a name, not an empty text");
}

unsigned CodePageNumber(const std::string& value) {
  for (const unsigned number : CodePage::kSupported) {
    if (value == std::to_string(number)) {
      return number;
    }
  }
  throw std::runtime_error("1250 to 1254, 932 or 936, not \"" + value + '"');
}

Misbehaviour Kind(const std::string& value) {
  static const std::map<std::string_view, Misbehaviour> kinds = {
      {"never-read", Misbehaviour::kNeverRead},
      {"slow", Misbehaviour::kSlow},
      {"reset", Misbehaviour::kReset},
      {"stop-after-probe", Misbehaviour::kStopAfterProbe}};
  const auto found = kinds.find(value);
  return found != kinds.end()
             ? found->second
             : throw std::runtime_error("never-read, slow, reset or stop-after-probe, not \"" +
                                        value + '"');
}

}  // namespace

Options ParseOptions(const std::vector<std::string>& arguments) {
  constexpr unsigned kAny = std::numeric_limits<unsigned>::max();
  using Value = const std::string&;
  Options options;
  ListenerOptions& listener = options.listener;
  // Each throws what its option takes, and what the value is.
  const std::map<std::string_view, std::function<void(Value)>> with_value = {
      {"--port",
       [&](Value text) { listener.port = static_cast<std::uint16_t>(Number(text, 0, 65535)); }},
      {"--count", [&](Value text) { listener.count = Number(text, 0, kAny); }},
      {"--timeout",
       [&](Value text) { listener.timeout = std::chrono::seconds(Number(text, 1, 86400)); }},
      {"--connection", [&](Value text) { listener.connection = Number(text, 1, kAny); }},
      {"--misbehave", [&](Value text) { listener.misbehaviour = Kind(text); }},
      {"--port-file", [&](Value text) { options.port_file = Name(text); }},
      {"--out", [&](Value text) { options.out_folder = Name(text); }},
      {"--code-page", [&](Value text) { options.code_page = CodePageNumber(text); }},
      {"--decode", [&](Value text) {
         options.action = Action::kDecode;
         options.capture = text == "-" ? std::nullopt : std::optional(Name(text));
       }}};
  // Those of the listening that were given.
  std::set<std::string> of_listening;
  bool json = false;
  bool quiet = false;
  for (auto word = arguments.begin(); word != arguments.end(); ++word) {
    const std::size_t equals = word->find('=');
    const std::string name = word->substr(0, equals);
    if (const auto option = with_value.find(name); option != with_value.end()) {
      if (equals == std::string::npos && ++word == arguments.end()) {
        throw std::runtime_error(name + " needs a value");
      }
      try {
        option->second(equals == std::string::npos ? *word : word->substr(equals + 1));
      } catch (const std::runtime_error& wanted) {
        throw std::runtime_error(name + " takes " + wanted.what());
      }
      if (name != "--code-page" && name != "--decode") {
        of_listening.insert(name);
      }
    } else if (*word == "--help" || *word == "-h" || *word == "--version") {
      options.action = *word == "--version" ? Action::kShowVersion : Action::kShowHelp;
      return options;
    } else if (*word == "--json") {
      json = true;
    } else if (*word == "--quiet") {
      quiet = true;
    } else {
      throw std::runtime_error("unknown argument \"" + *word + '"');
    }
  }
  if (json && quiet) {
    throw std::runtime_error("--json and --quiet exclude each other");
  }
  if (options.action == Action::kDecode && !of_listening.empty()) {
    throw std::runtime_error("--decode and " + *of_listening.begin() + " exclude each other");
  }
  if (listener.connection != 0 && listener.misbehaviour == Misbehaviour::kNone) {
    throw std::runtime_error("--connection needs --misbehave");
  }
  options.display = json ? Display::kJson : quiet ? Display::kQuiet : Display::kReadable;
  return options;
}

std::string_view HelpText() {
  return kHelp;
}

}  // namespace zentpost::addin_listener
