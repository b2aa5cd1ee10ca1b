#include "testing/platform_contract/native.h"

#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <vector>

#include "testing/end_to_end/files.h"
#include "testing/end_to_end/process.h"
#include "testing/platform_contract/machine.h"

namespace platform::contract {

namespace e2e = zentpost::e2e;
using asio::ip::tcp;

namespace {

const tcp::endpoint kAnyPort(asio::ip::address_v4::loopback(), 0);

struct StartedNetwork {
  StartedNetwork() { StartNetwork(); }
  ~StartedNetwork() { EndNetwork(); }
  StartedNetwork(const StartedNetwork&) = delete;
  StartedNetwork& operator=(const StartedNetwork&) = delete;
};

// A listening port and the thread that serves it.
class Listener {
 public:
  explicit Listener(Peer peer) : peer_(peer), thread_([this] { Serve(); }) {}
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;
  ~Listener() {
    {
      const std::lock_guard lock(mutex_);
      stopping_ = true;
    }
    changed_.notify_all();
    // Ends the wait for a connection.
    tcp::socket(io_).connect(endpoint_);
    thread_.join();
  }

  std::uint16_t Port() const { return endpoint_.port(); }

  std::string Received() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return first_.has_value(); });
    return *first_;
  }

 private:
  void Serve() {
    for (;;) {
      tcp::socket connection = acceptor_.accept();
      std::unique_lock lock(mutex_);
      if (stopping_) {
        return;
      }
      if (peer_ == Peer::kNeverReads) {
        changed_.wait(lock, [this] { return stopping_; });
        continue;
      }
      lock.unlock();
      if (peer_ == Peer::kResets) {
        Reset(connection);
        continue;
      }
      std::string received = ReadToEnd(connection);
      lock.lock();
      if (!first_) {
        first_ = std::move(received);
        changed_.notify_all();
      }
    }
  }

  // Every other connection looks as if it ended in peace, and is reset when the other side has
  // filled the buffers and waits.
  void Reset(tcp::socket& connection) {
    std::error_code ignored;
    char byte = 0;
    connection.read_some(asio::buffer(&byte, 1), ignored);
    if (half_closes_) {
      connection.shutdown(tcp::socket::shutdown_send, ignored);
      std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
    half_closes_ = !half_closes_;
    connection.set_option(tcp::socket::linger(true, 0));
    connection.close(ignored);
  }

  std::string ReadToEnd(tcp::socket& connection) const {
    std::error_code end;
    std::string received;
    std::vector<char> piece(262144);
    const auto begin = std::chrono::steady_clock::now();
    while (const std::size_t count = connection.read_some(asio::buffer(piece), end)) {
      received.append(piece.data(), count);
      if (peer_ == Peer::kReadsSlow) {
        // 20 MiB a second.
        std::this_thread::sleep_until(begin + std::chrono::microseconds(received.size() / 21));
      }
    }
    return received;
  }

  const Peer peer_;
  const StartedNetwork network_;
  asio::io_context io_;
  tcp::acceptor acceptor_{io_, kAnyPort, false};
  const tcp::endpoint endpoint_ = acceptor_.local_endpoint();
  std::mutex mutex_;
  std::condition_variable changed_;
  bool stopping_ = false;
  bool half_closes_ = false;
  std::optional<std::string> first_;  // What the first connection received, once it has ended.
  std::thread thread_;
};

std::filesystem::path folder;
std::vector<std::unique_ptr<Listener>> listeners;

}  // namespace

const std::filesystem::path& TestFolder() {
  return folder;
}

void PrepareFilesAndPeers() {
  folder = e2e::MakeTestFolder();
  std::filesystem::create_directory(folder / "files");
}

void ClearFilesAndPeers() {
  listeners.clear();
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    std::filesystem::permissions(entry.path(), std::filesystem::perms::owner_write,
                                 std::filesystem::perm_options::add);
  }
  std::filesystem::remove_all(folder);
}

std::u16string Folder() {
  return (folder / "files").u16string();
}

void AddFolder(const std::u16string& path) {
  std::filesystem::create_directories(SystemPath(path));
}

void SetFile(const std::u16string& path, std::string_view bytes) {
  e2e::WriteBytes(SystemPath(path), bytes);
}

bool MakeReadOnly(const std::u16string& path) {
  using std::filesystem::perms;
  std::filesystem::permissions(SystemPath(path),
                               perms::owner_read | perms::group_read | perms::others_read);
  return ReadOnlyBinds(path);
}

void AddLink(const std::u16string& path, const std::u16string& link) {
  std::filesystem::create_hard_link(SystemPath(path), SystemPath(link));
}

std::optional<std::string> FileBytes(const std::u16string& path) {
  return e2e::ReadBytes(SystemPath(path));
}

bool FolderExists(const std::u16string& path) {
  return std::filesystem::is_directory(SystemPath(path));
}

std::u16string LibraryFolder() {
  return (ThisProgram().parent_path() / "contract_libraries" / "").u16string();
}

std::uint16_t Listen(Peer peer) {
  listeners.push_back(std::make_unique<Listener>(peer));
  return listeners.back()->Port();
}

std::uint16_t PortWithoutListener() {
  const StartedNetwork network;
  asio::io_context io;
  return tcp::acceptor(io, kAnyPort, false).local_endpoint().port();
}

std::string Received(std::uint16_t port) {
  for (const std::unique_ptr<Listener>& listener : listeners) {
    if (listener->Port() == port) {
      return listener->Received();
    }
  }
  return "nobody listens on this port";
}

std::int64_t InstantOf(const LocalTime& local) {
  std::tm fields = {};
  fields.tm_year = local.year - 1900;
  fields.tm_mon = local.month - 1;
  fields.tm_mday = local.day;
  fields.tm_hour = local.hour;
  fields.tm_min = local.minute;
  fields.tm_sec = local.second;
  fields.tm_isdst = -1;
  return Instant(fields);
}

std::optional<std::vector<int>> RunCopies(int count, const std::string& name) {
  std::vector<std::vector<std::string>> arguments;
  for (int number = 1; number <= count; ++number) {
    // Nothing else may be printed before the byte that says that the copy is ready.
    arguments.push_back({"--gtest_brief=1", "--gtest_filter=" + name,
                         "--gtest_random_seed=" + std::to_string(number)});
  }
  e2e::ProcessOptions options;
  options.folder = folder / "files";
  return e2e::RunTogether(ThisProgram(), arguments, options);
}

}  // namespace platform::contract
