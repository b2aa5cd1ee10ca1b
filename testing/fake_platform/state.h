// What the fake platform consists of. Only this folder's own files look in here.
#pragma once

#include <atomic>
#include <concepts>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "platform/files.h"
#include "platform/reading.h"
#include "testing/fake_platform/fake_platform.h"

namespace platform::fake {

// Orders texts whatever the case of their ASCII letters.
struct IgnoringCase {
  using is_transparent = void;
  bool operator()(std::u16string_view left, std::u16string_view right) const;
};

struct PlatformContents;

// Puts the libraries that every machine has into its system directory.
void AddSystemModules(PlatformContents& contents);

// The name of a hive as it starts the paths of keys.
std::u16string_view HiveName(Hive hive);

// A path without repeated backslashes and without one at its end. NormalPath turns slashes into
// backslashes first and resolves "." and ".."; in the registry they are ordinary characters.
std::u16string NormalKeyPath(std::u16string path);
std::u16string NormalPath(std::u16string_view path);

struct RegistryValue {
  std::uint32_t type;
  std::string bytes;
};

using RegistryValues = std::map<std::u16string, RegistryValue, IgnoringCase>;  // by name

struct StoredFile {
  std::string bytes;
  bool read_only = false;
  bool is_pipe = false;
  std::optional<std::uint64_t> reported_size;
};

struct OpenFile {
  std::shared_ptr<StoredFile> file;
  std::u16string path;  // as it was passed
  OpenMode mode;
  std::size_t position = 0;
};

struct StoredModule {
  std::u16string path;  // as it was told
  FakePlatform::Exports exports;
  std::uintptr_t handle = 0;  // while there are references
  std::size_t references = 0;
};

struct Listener {
  Peer peer;
  unsigned connections_left;
};

struct Connection {
  std::uint16_t port;
  Peer peer;
  std::size_t window_left;
  bool closed = false;
};

struct OpenSocket {
  std::optional<std::size_t> connection;  // its index
  bool cancelled = false;
};

struct Fault {
  std::string name;  // counts only the calls of this function; empty: all
  std::size_t calls_before;
  Status status;
  FaultMode mode;
};

// Everything that Reset makes anew.
struct PlatformContents {
  PlatformContents();

  // By path from the hive's name on.
  std::map<std::u16string, RegistryValues, IgnoringCase> keys;
  std::set<std::u16string, std::less<>> folders;
  std::map<std::u16string, std::shared_ptr<StoredFile>> files;
  std::u16string temporary_folder = u"C:\\Temp\\";
  std::int32_t local_application_data_result = 0;
  std::u16string local_application_data = u"C:\\AppData";
  std::vector<std::u16string> debug_output;
  std::int64_t seconds_since_epoch = 0;
  std::map<std::uint32_t, std::u16string> messages;
  std::uint64_t sleeps = 0;
  std::map<std::pair<std::u16string, std::u16string>, std::optional<std::u16string>> components;
  std::map<std::uint16_t, reading::Listener> told_listeners;
  std::set<std::u16string, IgnoringCase> read_only_keys;
  reading::Process process = {u"C:\\Program Files\\Zentpost\\", false, 1252, false, false,
                              {u"C:\\Users\\Anna", u"C:\\Temp"}};

  std::map<std::u16string, StoredModule, IgnoringCase> modules;  // by normal path
  std::u16string system_directory = u"C:\\Windows\\system32";
  std::map<std::u16string, std::u16string, IgnoringCase> environment;  // by name

  unsigned socket_starts = 0;
  std::map<std::uint16_t, Listener> listeners;
  std::size_t send_window = 65536;
  std::vector<Connection> connections;
  std::vector<std::string> sent;  // by connection

  // What is open, by the number that its owner holds.
  std::map<std::uintptr_t, std::u16string> open_keys;  // the path from the hive's name on
  std::map<std::uintptr_t, OpenFile> open_files;
  std::map<std::uintptr_t, OpenSocket> open_sockets;
  std::set<std::uintptr_t> blocks;  // the numbers are the addresses

  std::vector<std::string> calls;
  std::vector<std::string> worker_calls;
  std::size_t fallible_calls = 0;
  std::optional<Fault> fault;
  std::string faulted_call;
  std::size_t bytes_before_fault = 0;
};

struct PlatformState : PlatformContents {
  // True for a folder that exists, the current one ("") included. `normal_path` is as NormalPath
  // gives it.
  bool IsFolder(std::u16string_view normal_path) const;
  // True when a file can be in this path's folder.
  bool HasParent(std::u16string_view normal_path) const;
  // These make the parents, too.
  void MakeFolder(std::u16string_view normal_path);
  void Store(std::u16string_view path, std::shared_ptr<StoredFile> file);
  RegistryValues& MakeKey(Hive hive, std::u16string_view below);

  // Numbers are never given twice, so that a stale one cannot be taken for another's.
  std::uintptr_t NewHandle() { return ++last_handle; }

  mutable std::mutex mutex;         // guards everything here
  std::condition_variable changed;  // a send was cancelled, or a socket closed
  std::thread::id main_thread = std::this_thread::get_id();
  std::uintptr_t last_handle = 0;
  std::map<std::uintptr_t, std::thread> workers;  // by the number that its owner holds

  bool records = true;
  std::atomic<FakePlatform::CallHook> call_hook = nullptr;
  std::atomic<FakePlatform::BlockHook> block_hook = nullptr;
};

// The state, locked for the caller as long as this lives.
class LockedState {
 public:
  explicit LockedState(PlatformState& state) : state_(state), lock_(state.mutex) {}

  PlatformState& operator*() const { return state_; }
  PlatformState* operator->() const { return &state_; }
  std::unique_lock<std::mutex>& Lock() { return lock_; }

 private:
  PlatformState& state_;
  std::unique_lock<std::mutex> lock_;
};

// An argument of a recorded call that is told in hexadecimal.
struct Hex {
  std::uint32_t number;
};

std::string ArgumentText(std::u16string_view text);
std::string ArgumentText(Hex number);
inline std::string ArgumentText(const char16_t* text) {
  return text == nullptr ? std::string() : ArgumentText(std::u16string_view(text));
}
inline std::string ArgumentText(const char* name) {
  return name;
}
std::string ArgumentText(std::integral auto number) {
  return std::to_string(number);
}

// "Name(argument, argument)".
template <class... Arguments>
std::string CallText(std::string_view name, const Arguments&... arguments) {
  std::string text(name);
  [[maybe_unused]] const char* separator = "(";
  ((text.append(std::exchange(separator, ", ")).append(ArgumentText(arguments))), ...);
  return text.append(sizeof...(arguments) == 0 ? "()" : ")");
}

// The state, locked for one platform call. An owner must not be closed meanwhile: that locks, too.
class LockedPlatform : HookedCall, public LockedState {
 public:
  LockedPlatform() : LockedState(TheFakePlatform().State()) {}

  // Records a call that cannot fail.
  template <class... Arguments>
  void Record(std::string_view name, const Arguments&... arguments) {
    if ((*this)->records) {
      RecordText(CallText(name, arguments...));
    }
  }
  void RecordText(std::string call);
  // Records a call that can fail and gives the number that it must fail with now; 0: none.
  template <class... Arguments>
  [[nodiscard]] Status RecordFallible(std::string_view name, const Arguments&... arguments) {
    Record(name, arguments...);
    return TakeFault(name);
  }
  // The second half of RecordFallible, for the call that was recorded last.
  [[nodiscard]] Status TakeFault(std::string_view name);

 private:
  bool OnMainThread() const { return std::this_thread::get_id() == (*this)->main_thread; }
};

// The open file, or null.
OpenFile* FindOpen(LockedPlatform& locked, RawFile file);

// As it was passed; empty for no open file.
std::u16string_view PathOf(const OpenFile* open);

// Gives a new open file its number.
RawFile Opened(LockedPlatform& locked, std::shared_ptr<StoredFile> file, const std::u16string& path,
               OpenMode mode);

// Finds the file at `path`. Gives kFileNotFound when only the file itself is missing, kAccessDenied
// when something else is there.
Status FindStored(LockedPlatform& locked, const std::u16string& path,
                  std::shared_ptr<StoredFile>& file);

// The library with that handle, or null.
StoredModule* FindByHandle(PlatformState& locked, RawModule raw);

// A library that is loaded already, by file name or path, or null.
StoredModule* FindLoaded(PlatformState& locked, std::u16string_view name);

RawModule AddReference(PlatformState& locked, StoredModule& module);

}  // namespace platform::fake
