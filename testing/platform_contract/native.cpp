#include "testing/platform_contract/native.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <mutex>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "testing/platform_contract/machine.h"

namespace platform::contract {
namespace {

// Tells a copy of this program its number, the port where copies meet and the path, the path as
// decimal numbers of its units.
constexpr char kCopyVariable[] = "ZENTPOST_CONTRACT_COPY";

// A listening port and the thread that serves it.
class Listener {
 public:
  explicit Listener(Peer peer)
      : peer_(peer), listener_(ListenAnywhere(port_)), thread_([this] { Serve(); }) {}
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;
  ~Listener() {
    {
      const std::lock_guard lock(mutex_);
      stopping_ = true;
    }
    changed_.notify_all();
    // Ends the wait for a connection.
    CloseConnection(ConnectTo(port_));
    thread_.join();
    CloseConnection(listener_);
  }

  std::uint16_t Port() const { return port_; }

  std::string Received() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return first_.has_value(); });
    return *first_;
  }

 private:
  void Serve() {
    for (;;) {
      const Connection connection = Accept(listener_);
      {
        const std::lock_guard lock(mutex_);
        if (stopping_) {
          CloseConnection(connection);
          return;
        }
      }
      ServeOne(connection);
    }
  }

  void ServeOne(Connection connection) {
    switch (peer_) {
      case Peer::kReads:
      case Peer::kReadsSlow: {
        std::string received = ReadToEnd(connection);
        CloseConnection(connection);
        const std::lock_guard lock(mutex_);
        if (!first_) {
          first_ = std::move(received);
          changed_.notify_all();
        }
        return;
      }
      case Peer::kNeverReads: {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return stopping_; });
        lock.unlock();
        CloseConnection(connection);
        return;
      }
      case Peer::kResets: {
        char byte = 0;
        Receive(connection, &byte, 1);
        // Every other connection looks as if it ended in peace, and is reset when the other side
        // has filled the buffers and waits.
        if (half_closes_) {
          EndSending(connection);
          std::this_thread::sleep_for(std::chrono::milliseconds(200));
        }
        half_closes_ = !half_closes_;
        ResetConnection(connection);
        return;
      }
    }
  }

  std::string ReadToEnd(Connection connection) const {
    std::string received;
    std::vector<char> piece(262144);
    const auto begin = std::chrono::steady_clock::now();
    while (const std::size_t count = Receive(connection, piece.data(), piece.size())) {
      received.append(piece.data(), count);
      if (peer_ == Peer::kReadsSlow) {
        // 20 MiB a second.
        std::this_thread::sleep_until(begin + std::chrono::microseconds(received.size() / 21));
      }
    }
    return received;
  }

  const Peer peer_;
  std::uint16_t port_ = 0;
  const Connection listener_;
  std::mutex mutex_;
  std::condition_variable changed_;
  bool stopping_ = false;
  bool half_closes_ = false;
  std::optional<std::string> first_;  // What the first connection received, once it has ended.
  std::thread thread_;
};

std::filesystem::path folder;
std::vector<std::unique_ptr<Listener>> listeners;

Listener& Find(std::uint16_t port) {
  for (const std::unique_ptr<Listener>& listener : listeners) {
    if (listener->Port() == port) {
      return *listener;
    }
  }
  throw std::invalid_argument("nobody listens on this port");
}

}  // namespace

std::filesystem::path MakeFolder() {
  const std::filesystem::path parent = std::filesystem::temp_directory_path();
  for (int number = 0;; ++number) {
    std::filesystem::path made = parent / ("zentpost-contract-" + std::to_string(number));
    if (std::filesystem::create_directory(made)) {
      return made;
    }
  }
}

void RemoveFolder(const std::filesystem::path& unwanted) {
  for (const auto& entry : std::filesystem::recursive_directory_iterator(unwanted)) {
    std::filesystem::permissions(entry.path(), std::filesystem::perms::owner_write,
                                 std::filesystem::perm_options::add);
  }
  std::filesystem::remove_all(unwanted);
}

void PrepareFilesAndPeers() {
  StartNetwork();
  folder = MakeFolder();
}

void ClearFilesAndPeers() {
  listeners.clear();
  RemoveFolder(folder);
  EndNetwork();
}

std::u16string Folder() {
  return folder.u16string();
}

void AddFolder(const std::u16string& path) {
  std::filesystem::create_directories(SystemPath(path));
}

void SetFile(const std::u16string& path, std::string_view bytes) {
  std::ofstream file(SystemPath(path), std::ios::binary | std::ios::trunc);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size())).flush();
  if (!file) {
    throw std::runtime_error("a file of the test could not be written");
  }
}

bool MakeReadOnly(const std::u16string& path) {
  using std::filesystem::perms;
  std::filesystem::permissions(SystemPath(path),
                               perms::owner_read | perms::group_read | perms::others_read);
  return !IsWritable(path);
}

void AddLink(const std::u16string& path, const std::u16string& link) {
  std::filesystem::create_hard_link(SystemPath(path), SystemPath(link));
}

std::optional<std::string> FileBytes(const std::u16string& path) {
  std::ifstream file(SystemPath(path), std::ios::binary);
  if (!file) {
    return std::nullopt;
  }
  return std::string(std::istreambuf_iterator<char>(file), {});
}

bool FolderExists(const std::u16string& path) {
  return std::filesystem::is_directory(SystemPath(path));
}

std::uint16_t Listen(Peer peer) {
  listeners.push_back(std::make_unique<Listener>(peer));
  return listeners.back()->Port();
}

std::uint16_t PortWithoutListener() {
  std::uint16_t port = 0;
  CloseConnection(ListenAnywhere(port));
  return port;
}

std::string Received(std::uint16_t port) {
  return Find(port).Received();
}

std::optional<int> RunCopies(int count, const std::string& name, const std::u16string& path) {
  std::uint16_t port = 0;
  const Connection meeting_point = ListenAnywhere(port);
  std::vector<std::intptr_t> processes;
  processes.reserve(static_cast<std::size_t>(count));
  for (int number = 0; number < count; ++number) {
    std::ostringstream value;
    value << number << ' ' << port;
    for (const char16_t unit : path) {
      value << ' ' << static_cast<unsigned>(unit);
    }
    SetVariable(kCopyVariable, value.str());
    processes.push_back(StartCopy("--gtest_filter=" + name));
  }
  SetVariable(kCopyVariable, "");
  std::vector<Connection> arrived;
  arrived.reserve(static_cast<std::size_t>(count));
  for (int number = 0; number < count; ++number) {
    arrived.push_back(Accept(meeting_point));
  }
  std::for_each(arrived.begin(), arrived.end(), CloseConnection);
  CloseConnection(meeting_point);
  return static_cast<int>(
      std::count_if(processes.begin(), processes.end(),
                    [](std::intptr_t process) { return WaitForCopy(process) != 0; }));
}

namespace {

struct Instructions {
  Copy copy;
  std::uint16_t port;
};

std::optional<Instructions> ReadInstructions() {
  const char* const value = std::getenv(kCopyVariable);
  if (value == nullptr || *value == '\0') {
    return std::nullopt;
  }
  std::istringstream stream(value);
  Instructions instructions = {};
  stream >> instructions.copy.number >> instructions.port;
  for (unsigned unit = 0; stream >> unit;) {
    instructions.copy.path.push_back(static_cast<char16_t>(unit));
  }
  return instructions;
}

}  // namespace

std::optional<Copy> ThisCopy() {
  const std::optional<Instructions> instructions = ReadInstructions();
  return instructions ? std::optional(instructions->copy) : std::nullopt;
}

void AwaitOtherCopies() {
  const Connection meeting = ConnectTo(ReadInstructions().value().port);
  char byte = 0;
  Receive(meeting, &byte, 1);
  CloseConnection(meeting);
}

}  // namespace platform::contract
