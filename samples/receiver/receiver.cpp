// Takes deliveries as a mail client's add-in does, decodes them and prints their fields.
//
// A sample to start from: C++17, one file, Windows and POSIX, with cJSON for the JSON text.
// The page "Receiving deliveries" says what it does and why, README beside it how it is built.
#ifdef _WIN32
// Else windows.h has macros of the names of std::min and std::max.
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <winsock2.h>
// After winsock2.h, whose types it uses.
#include <windows.h>
#else
#include <arpa/inet.h>
#include <iconv.h>
#include <netinet/in.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#endif
#include <cjson/cJSON.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned kCodePages[] = {1250, 1251, 1252, 1253, 1254, 932, 936};
constexpr const char* kTexts[] = {"Receiver",       "RecipientName", "SenderName", "FileName",
                                  "AttachmentName", "Comment",       "Subject",    "SendTime"};
constexpr const char* kSwitches[] = {"ECM", "Preview"};
// A delivery that grows beyond this is dropped. A job's texts are some hundred bytes as a rule, and
// JSON made to do harm takes more than forty times its length in memory.
constexpr std::size_t kMostBytes = std::size_t{1} << 20;
constexpr std::size_t kMostConnections = 50;
// A connection lasts no longer than so many read time-outs: as a rule 180 s. The tool itself closes
// after 160 s.
constexpr unsigned kMostReadTimeouts = 6;

// The bytes are not the sender's text in this code page, or what is left of it.
struct NotDecodable : std::runtime_error {
  using runtime_error::runtime_error;
};
// The text is not a payload.
struct NotValid : std::runtime_error {
  using runtime_error::runtime_error;
};

std::string Format(const char* format, unsigned long long number) {
  char text[160];
  std::snprintf(text, sizeof text, format, number);
  return text;
}

// ------------------------------------------------------------------------------- the encoding

#ifdef _WIN32
using CodePage = unsigned;

// The character of a byte, or of a pair of bytes.
std::optional<char32_t> CharacterOf(CodePage& code_page, std::string_view code) {
  wchar_t text[4];
  const int length =
      MultiByteToWideChar(code_page, 0, code.data(), static_cast<int>(code.size()), text, 4);
  return length == 1 ? std::optional<char32_t>(text[0]) : std::nullopt;
}

// The ANSI code page by which a program of this user converts.
unsigned SystemCodePage() {
  CPINFOEXW info;
  return GetCPInfoExW(CP_THREAD_ACP, 0, &info) ? info.CodePage : 1252;
}
#else
// The system's own code pages leave out what Windows fills up.
class CodePage {
 public:
  explicit CodePage(unsigned number)
      : number_(number),
        converter_(iconv_open("UTF-16LE", ("CP" + std::to_string(number)).c_str())) {
    if (converter_ == reinterpret_cast<iconv_t>(-1)) {
      throw std::runtime_error("this system's iconv has no code page " + std::to_string(number));
    }
  }
  ~CodePage() { iconv_close(converter_); }
  CodePage(const CodePage&) = delete;
  CodePage& operator=(const CodePage&) = delete;

  std::optional<char32_t> Read(std::string_view code) const {
    char in[2] = {};
    code.copy(in, sizeof in);
    unsigned char out[8];
    char* from = in;
    char* to = reinterpret_cast<char*>(out);
    std::size_t left = code.size();
    std::size_t space = sizeof out;
    iconv(converter_, nullptr, nullptr, nullptr, nullptr);
    if (iconv(converter_, &from, &left, &to, &space) == static_cast<std::size_t>(-1) ||
        space != sizeof out - 2) {
      return std::nullopt;
    }
    return static_cast<char32_t>(out[0] | out[1] << 8);
  }
  unsigned number() const { return number_; }
  char32_t NextSpare() { return spare_++; }

 private:
  unsigned number_;
  iconv_t converter_;
  char32_t spare_ = 0xE766;
};

// The character of a byte, or of a pair of bytes; pairs are to be asked for in ascending order.
std::optional<char32_t> CharacterOf(CodePage& code_page, std::string_view code) {
  const std::optional<char32_t> character = code_page.Read(code);
  const auto first = static_cast<unsigned char>(code[0]);
  if (character) {
    return character;
  }
  if (code.size() == 1) {
    // An undefined byte is the control character of its number, with these exceptions.
    static const std::map<std::pair<unsigned, unsigned>, char32_t> odd = {{{1253, 0xAA}, 0xF8F9},
                                                                          {{1253, 0xD2}, 0xF8FA},
                                                                          {{932, 0xA0}, 0xF8F0},
                                                                          {{936, 0x80}, 0x20AC}};
    const auto found = odd.find({code_page.number(), first});
    return found == odd.end() ? first : found->second;
  }
  if (code_page.number() != 936) {
    return std::nullopt;
  }
  // 936 leaves three areas to its users, and gives its spare pairs what follows, in their order.
  const auto second = static_cast<unsigned char>(code[1]);
  if (first >= 0xAA && first <= 0xAF && second >= 0xA1) {
    return 0xE000u + 94u * (first - 0xAAu) + second - 0xA1u;
  }
  if (first >= 0xF8 && second >= 0xA1) {
    return 0xE234u + 94u * (first - 0xF8u) + second - 0xA1u;
  }
  if (first >= 0xA1 && first <= 0xA7 && second <= 0xA0) {
    return 0xE4C6u + 96u * (first - 0xA1u) + second - 0x40u - (second > 0x7F ? 1u : 0u);
  }
  return code_page.NextSpare();
}

unsigned SystemCodePage() {
  return 1252;
}
#endif

bool IsLead(unsigned code_page, unsigned byte) {
  return code_page == 932   ? (byte >= 0x81 && byte <= 0x9F) || (byte >= 0xE0 && byte <= 0xFC)
         : code_page == 936 ? byte >= 0x81 && byte <= 0xFE
                            : false;
}

bool IsInUtf8(unsigned byte) {
  return byte != 0xC0 && byte != 0xC1 && byte < 0xF5;
}

using WayBack = std::unordered_map<char32_t, std::string>;

// The bytes of each character that UTF-8 text can become when it is read in the code page, without
// the characters that have more than one origin: those are never guessed.
WayBack MakeWayBack(unsigned number) {
  CodePage code_page(number);
  WayBack way_back;
  std::set<char32_t> twice;
  if (number == 932) {
    twice.insert(0x30FB);  // also what a pair without a character becomes
  }
  const auto add = [&](const std::string& code) {
    const std::optional<char32_t> character = CharacterOf(code_page, code);
    const bool is_possible = std::all_of(code.begin(), code.end(), [](char byte) {
      return IsInUtf8(static_cast<unsigned char>(byte));
    });
    if (character && is_possible && !way_back.emplace(*character, code).second) {
      twice.insert(*character);
    }
  };
  for (unsigned first = 0; first < 0x100; ++first) {
    const std::string code(1, static_cast<char>(first));
    if (!IsLead(number, first)) {
      add(code);
      continue;
    }
    for (unsigned second = 0x40; second < 0xFF; ++second) {
      if (second != 0x7F) {
        add(code + static_cast<char>(second));
      }
    }
  }
  for (const char32_t character : twice) {
    way_back.erase(character);
  }
  return way_back;
}

struct Character {
  char32_t code;
  std::size_t size;
};

// The character at the start of `utf8`, which is not empty; nothing where it is ill-formed.
std::optional<Character> FirstCharacter(std::string_view utf8) {
  const auto lead = static_cast<unsigned char>(utf8[0]);
  if (lead < 0x80) {
    return Character{lead, 1};
  }
  const std::size_t size = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC2 || lead > 0xF4 || utf8.size() < size) {
    return std::nullopt;
  }
  char32_t code = lead & (0x7Fu >> size);
  for (std::size_t i = 1; i < size; ++i) {
    const auto next = static_cast<unsigned char>(utf8[i]);
    if ((next & 0xC0) != 0x80) {
      return std::nullopt;
    }
    code = code << 6 | (next & 0x3Fu);
  }
  const bool is_overlong = (size == 3 && code < 0x800) || (size == 4 && code < 0x10000);
  const bool is_surrogate = code >= 0xD800 && code < 0xE000;
  return is_overlong || is_surrogate || code > 0x10FFFF ? std::nullopt
                                                        : std::optional(Character{code, size});
}

// The payload's text.
std::string Decode(std::string_view wire, const WayBack& way_back) {
  std::string utf8;
  for (std::size_t i = 0; i < wire.size();) {
    const std::optional<Character> character = FirstCharacter(wire.substr(i));
    if (!character) {
      throw NotDecodable(Format("byte %llu on the wire is not UTF-8", i));
    }
    const auto found = way_back.find(character->code);
    if (found == way_back.end()) {
      throw NotDecodable(
          Format("U+%04llX has no byte that is certain in this code page", character->code));
    }
    utf8 += found->second;
    i += character->size;
  }
  for (std::size_t i = 0; i < utf8.size();) {
    const std::optional<Character> character = FirstCharacter(std::string_view(utf8).substr(i));
    // In code page 936 a "?" may stand for two bytes that were lost: what is left is not UTF-8.
    if (!character) {
      throw NotDecodable(Format("byte %llu of the text is not UTF-8", i));
    }
    i += character->size;
  }
  return utf8;
}

// The value of a member that stands exactly once, in the case of its letters.
const cJSON* Member(const cJSON* object, const char* name) {
  const cJSON* result = nullptr;
  for (const cJSON* item = object->child; item != nullptr; item = item->next) {
    if (std::strcmp(item->string, name) == 0) {
      if (result != nullptr) {
        throw NotValid(std::string("member \"") + name + "\" stands twice");
      }
      result = item;
    }
  }
  if (result == nullptr) {
    throw NotValid(std::string("no member \"") + name + '"');
  }
  return result;
}

using Fields = std::vector<std::pair<std::string, std::string>>;

// The library would end a text or a name there, and a cut one would pass for the whole.
bool HasEscapedZero(std::string_view text) {
  for (std::size_t i = text.find('\\'); i != text.npos; i = text.find('\\', i + 2)) {
    if (text.substr(i + 1, 5) == "u0000") {
      return true;
    }
  }
  return false;
}

// The payload's members: eight texts and two switches. Members unknown today are left out.
Fields ReadFields(const std::string& text) {
  if (HasEscapedZero(text)) {
    throw NotValid("a text or a name holds a zero character");
  }
  const char* end = nullptr;
  const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> document(
      cJSON_ParseWithLengthOpts(text.c_str(), text.size() + 1, &end, 1), cJSON_Delete);
  // A zero would end the text for the library, and hide what follows.
  if (!document || !cJSON_IsObject(document.get()) || text.find('\0') != text.npos) {
    throw NotValid("no JSON object");
  }
  const cJSON* const parameters = Member(document.get(), "Parameters");
  if (!cJSON_IsObject(parameters)) {
    throw NotValid("\"Parameters\" is no object");
  }
  Fields fields;
  const auto read = [&](const char* name, bool is_switch) {
    const cJSON* const item = Member(parameters, name);
    if (!(is_switch ? cJSON_IsBool(item) : cJSON_IsString(item))) {
      throw NotValid(std::string("member \"") + name + "\" has the wrong type");
    }
    fields.emplace_back(name,
                        is_switch ? (cJSON_IsTrue(item) ? "true" : "false") : item->valuestring);
  };
  for (const char* const name : kTexts) {
    read(name, false);
  }
  for (const char* const name : kSwitches) {
    read(name, true);
  }
  return fields;
}

// ------------------------------------------------------------------------------- the connection

std::atomic<bool> g_ended{false};

#ifdef _WIN32
using Socket = SOCKET;
constexpr Socket kNoSocket = INVALID_SOCKET;
using Length = int;

void Close(Socket socket) {
  closesocket(socket);
}
bool WouldBlock() {
  return WSAGetLastError() == WSAEWOULDBLOCK;
}
std::string LastError() {
  return Format("Windows error %llu", static_cast<unsigned>(WSAGetLastError()));
}
bool MakeNonBlocking(Socket socket) {
  u_long yes = 1;
  return ioctlsocket(socket, FIONBIO, &yes) == 0;
}
bool CanBeSelected(Socket) {
  return true;
}

BOOL WINAPI HandleConsoleEvent(DWORD event) {
  if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) {
    return FALSE;
  }
  g_ended = true;
  return TRUE;
}

bool Prepare() {
  SetConsoleOutputCP(CP_UTF8);
  // Whoever starts this in a group of its own has Ctrl-C ignored.
  SetConsoleCtrlHandler(nullptr, FALSE);
  SetConsoleCtrlHandler(HandleConsoleEvent, TRUE);
  WSADATA data;
  return WSAStartup(MAKEWORD(2, 2), &data) == 0;
}
#else
using Socket = int;
constexpr Socket kNoSocket = -1;
using Length = socklen_t;

void Close(Socket socket) {
  close(socket);
}
bool WouldBlock() {
  return errno == EWOULDBLOCK || errno == EAGAIN || errno == EINTR;
}
std::string LastError() {
  return std::strerror(errno);
}
bool MakeNonBlocking(Socket) {
  return true;  // recv is asked not to wait
}
bool CanBeSelected(Socket socket) {
  return socket < FD_SETSIZE;
}
bool Prepare() {
  struct sigaction action {};
  action.sa_handler = [](int) { g_ended = true; };
  return sigaction(SIGINT, &action, nullptr) == 0 && sigaction(SIGTERM, &action, nullptr) == 0;
}
#endif

#ifdef MSG_DONTWAIT
constexpr int kNotWaiting = MSG_DONTWAIT;
#else
constexpr int kNotWaiting = 0;  // the socket does not wait
#endif

struct Options {
  unsigned port = 0;
  unsigned code_page = SystemCodePage();
  unsigned count = 0;
  unsigned read_timeout = 30;
};

// In one line, and without what could command a terminal.
std::string Shown(const std::string& text) {
  std::string shown;
  for (std::size_t i = 0; i < text.size();) {
    const Character character =
        FirstCharacter(std::string_view(text).substr(i)).value_or(Character{'?', 1});
    const bool is_control =
        character.code < 0x20 || (character.code >= 0x7F && character.code < 0xA0);
    shown += is_control ? Format("<U+%04llX>", character.code) : text.substr(i, character.size);
    i += character.size;
  }
  return shown;
}

void Say(const std::string& text) {
  std::fputs(text.c_str(), stdout);
  std::fflush(stdout);
}

// Serves any number of connections on one thread, until `count` deliveries have ended.
class Receiver {
 public:
  explicit Receiver(const Options& options)
      : options_(options), way_back_(MakeWayBack(options.code_page)) {
    listener_ = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    const int yes = 1;
#ifdef _WIN32
    // Else another program could take the port over.
    const int option = SO_EXCLUSIVEADDRUSE;
#else
    const int option = SO_REUSEADDR;
#endif
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(options.port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto* const any_address = reinterpret_cast<sockaddr*>(&address);
    Length length = sizeof address;
    if (listener_ == kNoSocket || !CanBeSelected(listener_) || !MakeNonBlocking(listener_) ||
        setsockopt(listener_, SOL_SOCKET, option, reinterpret_cast<const char*>(&yes),
                   sizeof yes) != 0 ||
        bind(listener_, any_address, length) != 0 || listen(listener_, SOMAXCONN) != 0 ||
        getsockname(listener_, any_address, &length) != 0) {
      throw std::runtime_error(Format("cannot listen on 127.0.0.1:%llu: ", options.port) +
                               LastError());
    }
    port_ = ntohs(address.sin_port);
  }
  ~Receiver() {
    for (const Connection& connection : connections_) {
      Close(connection.socket);
    }
    Close(listener_);
  }
  Receiver(const Receiver&) = delete;
  Receiver& operator=(const Receiver&) = delete;

  // Whether all that came was good, and as much came as was asked for.
  bool Run() {
    Say(Format("listening on 127.0.0.1:%llu\n", port_));
    while (!g_ended && (options_.count == 0 || deliveries_ < options_.count)) {
      fd_set readable;
      FD_ZERO(&readable);
      FD_SET(listener_, &readable);
      Socket highest = listener_;
      for (const Connection& connection : connections_) {
        FD_SET(connection.socket, &readable);
        highest = std::max(highest, connection.socket);
      }
      // Ctrl-C does not end the waiting on every system.
      timeval half_a_second{0, 500000};
      if (select(static_cast<int>(highest) + 1, &readable, nullptr, nullptr, &half_a_second) < 0) {
        FD_ZERO(&readable);
      }
      // An end takes its connection out of the list; one that is accepted was not waited for yet.
      for (std::size_t i = connections_.size(); i-- > 0;) {
        const Clock::time_point now = Clock::now();
        const std::chrono::seconds read_timeout(options_.read_timeout);
        const std::chrono::seconds longest = kMostReadTimeouts * read_timeout;
        if (now - connections_[i].began > longest) {
          End(i, Format("not complete after %llu s",
                        static_cast<unsigned long long>(longest.count())));
        } else if (FD_ISSET(connections_[i].socket, &readable)) {
          Read(i);
        } else if (now - connections_[i].heard > read_timeout) {
          End(i, Format("not complete after %llu s without a byte", options_.read_timeout));
        }
      }
      if (FD_ISSET(listener_, &readable)) {
        Accept();
      }
    }
    return all_good_ && deliveries_ >= options_.count;
  }

 private:
  struct Connection {
    Socket socket;
    unsigned number;
    Clock::time_point began;
    Clock::time_point heard;
    std::string wire;
  };

  void Accept() {
    const Socket socket = accept(listener_, nullptr, nullptr);
    if (socket == kNoSocket) {
      return;  // it has gone again
    }
    ++came_;
    if (!CanBeSelected(socket) || !MakeNonBlocking(socket)) {
      Close(socket);
      Say(Format("connection %llu: refused, the system has no place for it\n", came_));
      return;
    }
    // Who is slow keeps nobody out: a delivery takes no longer than a moment as a rule.
    if (connections_.size() == kMostConnections) {
      End(0, Format("the oldest of more than %llu connections", kMostConnections));
    }
    const Clock::time_point now = Clock::now();
    connections_.push_back({socket, came_, now, now, {}});
  }

  void Read(std::size_t place) {
    Connection& connection = connections_[place];
    char bytes[1 << 16];
    const auto received = recv(connection.socket, bytes, sizeof bytes, kNotWaiting);
    if (received < 0) {
      if (!WouldBlock()) {
        End(place, "the connection was lost");
      }
      return;
    }
    if (received == 0) {
      return End(place, "");
    }
    connection.wire.append(bytes, static_cast<std::size_t>(received));
    connection.heard = Clock::now();
    if (connection.wire.size() > kMostBytes) {
      End(place, Format("more than %llu bytes", kMostBytes));
    }
  }

  // Nothing is ever sent: the sender reads nothing, and would see its connection reset.
  void End(std::size_t place, const std::string& problem) {
    const Connection connection = std::move(connections_[place]);
    connections_.erase(connections_.begin() + static_cast<std::ptrdiff_t>(place));
    Close(connection.socket);
    const std::string name = Format("connection %llu: ", connection.number);
    if (connection.wire.empty()) {
      return Say(name + "probe\n");
    }
    ++deliveries_;
    const std::string heading = name + Format("%llu bytes, ", connection.wire.size());
    try {
      if (!problem.empty()) {
        throw NotValid(problem);
      }
      std::string lines = heading + "valid\n";
      for (const auto& [field, value] : ReadFields(Decode(connection.wire, way_back_))) {
        std::string line = "  " + field + ":";
        line.resize(18, ' ');
        line += Shown(value);
        lines += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
      }
      Say(lines);
    } catch (const NotDecodable& failure) {
      Say(heading + "NOT DECODABLE\n  problem: " + failure.what() + "\n");
      all_good_ = false;
    } catch (const NotValid& failure) {
      Say(heading + "NOT VALID\n  problem: " + failure.what() + "\n");
      all_good_ = false;
    }
  }

  const Options options_;
  const WayBack way_back_;
  Socket listener_ = kNoSocket;
  unsigned port_ = 0;
  std::vector<Connection> connections_;
  unsigned came_ = 0;
  unsigned deliveries_ = 0;
  bool all_good_ = true;
};

constexpr char kHelp[] =
    "usage: receiver [--port N] [--code-page N] [--count N | --once]\n"
    "                [--read-timeout SECONDS]\n"
    "Takes deliveries as a mail client's add-in does, decodes and prints them.\n"
    "  --port N                0, the default, takes a free one\n"
    "  --code-page N           the sender's ANSI code page: 1250 to 1254, 932, 936;\n"
    "                          the default is this system's, or 1252\n"
    "  --count N               end after N deliveries; 0, the default: go on until\n"
    "                          Ctrl-C\n"
    "  --once                  the same as --count 1\n"
    "  --read-timeout SECONDS  drop a connection that brings nothing for so long\n"
    "                          (default 30), or is not complete after six times that\n"
    "Exit codes: 0 all was good; 1 a delivery was not, or too few came; 2 the command\n"
    "line cannot be used; 3 cannot listen.\n";

unsigned Number(const std::string& option, const char* text, unsigned lowest, unsigned highest) {
  const std::string_view digits = text == nullptr ? "" : text;
  const bool is_number = !digits.empty() && digits.size() < 10 &&
                         digits.find_first_not_of("0123456789") == digits.npos;
  const unsigned long number = is_number ? std::strtoul(text, nullptr, 10) : 0;
  if (!is_number || number < lowest || number > highest) {
    throw NotValid(option + Format(" takes a number from %llu", lowest) +
                   Format(" to %llu", highest));
  }
  return static_cast<unsigned>(number);
}

Options ParseOptions(int argc, char** argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    const std::string option = argv[i];
    const auto value = [&](unsigned lowest, unsigned highest) {
      return Number(option, i + 1 < argc ? argv[++i] : nullptr, lowest, highest);
    };
    if (option == "--port") {
      options.port = value(0, 65535);
    } else if (option == "--code-page") {
      options.code_page = value(0, 65535);
    } else if (option == "--count") {
      options.count = value(0, 999999999);
    } else if (option == "--once") {
      options.count = 1;
    } else if (option == "--read-timeout") {
      options.read_timeout = value(1, 86400);
    } else {
      throw NotValid("unknown argument \"" + option + "\"; see receiver --help");
    }
  }
  if (std::find(std::begin(kCodePages), std::end(kCodePages), options.code_page) ==
      std::end(kCodePages)) {
    throw NotValid(
        Format("--code-page takes 1250 to 1254, 932 or 936, not %llu", options.code_page));
  }
  return options;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0)) {
    Say(kHelp);
    return 0;
  }
  try {
    const Options options = ParseOptions(argc, argv);
    if (!Prepare()) {
      throw std::runtime_error("the system's sockets cannot be used");
    }
    return Receiver(options).Run() ? 0 : 1;
  } catch (const NotValid& problem) {
    std::fprintf(stderr, "receiver: %s\n", problem.what());
    return 2;
  } catch (const std::exception& problem) {
    std::fprintf(stderr, "receiver: %s\n", problem.what());
    return 3;
  }
}
