#include "testing/fake_platform/fake_platform.h"

#include <chrono>
#include <utility>

#include "testing/fake_platform/state.h"

namespace platform::fake {
namespace {

constexpr LocalTime kFirstTime = {2026, 11, 20, 23, 58, 7};

// Little-endian, as the registry stores text and numbers.
std::string Utf16Bytes(std::u16string_view text) {
  std::string bytes;
  for (const char16_t unit : text) {
    bytes.push_back(static_cast<char>(unit & 0xff));
    bytes.push_back(static_cast<char>(unit >> 8));
  }
  return bytes;
}

std::u16string KeyPath(Hive hive, std::u16string_view path) {
  return NormalKeyPath(std::u16string(HiveName(hive)).append(u"\\").append(path));
}

// Makes a key and its parents.
RegistryValues& MakeKey(MachineState& state, const std::u16string& path) {
  for (std::size_t end = path.find(u'\\'); end != std::u16string::npos;
       end = path.find(u'\\', end + 1)) {
    state.keys.try_emplace(path.substr(0, end));
  }
  return state.keys[path];
}

// Puts `file` at `path` and makes the parents.
void Store(MachineState& state, std::u16string_view path, std::shared_ptr<StoredFile> file) {
  const std::u16string normal = NormalPath(path);
  const std::size_t separator = normal.rfind(u'\\');
  if (separator != std::u16string::npos) {
    state.MakeFolder(std::u16string_view(normal).substr(0, separator));
  }
  state.files[normal] = std::move(file);
}

}  // namespace

Machine::Machine() : state_(std::make_unique<MachineState>()) {
  SetLocalTime(kFirstTime);
}

Machine::~Machine() = default;

void Machine::Reset() {
  std::map<std::uintptr_t, std::thread> workers;
  {
    const std::lock_guard lock(state_->mutex);
    workers.swap(state_->workers);
  }
  for (auto& [handle, worker] : workers) {
    if (worker.joinable()) {
      worker.join();
    }
  }
  {
    // Copied, so that what is there already has room for it.
    static const MachineContents fresh;
    const std::lock_guard lock(state_->mutex);
    static_cast<MachineContents&>(*state_) = fresh;
    state_->main_thread = std::this_thread::get_id();
  }
  SetLocalTime(kFirstTime);
}

void Machine::AddKey(Hive hive, std::u16string_view path) {
  const std::lock_guard lock(state_->mutex);
  MakeKey(*state_, KeyPath(hive, path));
}

void Machine::SetValue(Hive hive, std::u16string_view path, std::u16string_view name,
                       std::uint32_t type, std::string_view raw_bytes) {
  const std::lock_guard lock(state_->mutex);
  MakeKey(*state_, KeyPath(hive, path))[std::u16string(name)] = {type, std::string(raw_bytes)};
}

void Machine::SetString(Hive hive, std::u16string_view path, std::u16string_view name,
                        std::u16string_view text, std::uint32_t type) {
  std::string bytes = Utf16Bytes(text);
  bytes.append(2, '\0');
  SetValue(hive, path, name, type, bytes);
}

void Machine::SetDword(Hive hive, std::u16string_view path, std::u16string_view name,
                       std::uint32_t number) {
  std::string bytes;
  for (unsigned shift = 0; shift < 32; shift += 8) {
    bytes.push_back(static_cast<char>((number >> shift) & 0xff));
  }
  SetValue(hive, path, name, kRegDword, bytes);
}

void Machine::AddFolder(std::u16string_view path) {
  const std::lock_guard lock(state_->mutex);
  state_->MakeFolder(NormalPath(path));
}

void Machine::SetFile(std::u16string_view path, std::string bytes) {
  auto file = std::make_shared<StoredFile>();
  file->bytes = std::move(bytes);
  const std::lock_guard lock(state_->mutex);
  Store(*state_, path, std::move(file));
}

void Machine::AddPipe(std::u16string_view path) {
  auto pipe = std::make_shared<StoredFile>();
  pipe->is_pipe = true;
  const std::lock_guard lock(state_->mutex);
  Store(*state_, path, std::move(pipe));
}

void Machine::AddLink(std::u16string_view path, std::u16string_view link) {
  const std::lock_guard lock(state_->mutex);
  Store(*state_, link, state_->files.at(NormalPath(path)));
}

void Machine::Remove(std::u16string_view path) {
  const std::u16string normal = NormalPath(path);
  const auto is_gone = [&](std::u16string_view other) {
    return other == normal || (other.starts_with(normal) && other[normal.size()] == u'\\');
  };
  const std::lock_guard lock(state_->mutex);
  std::erase_if(state_->files, [&](const auto& file) { return is_gone(file.first); });
  std::erase_if(state_->folders, is_gone);
}

std::optional<std::string> Machine::FileBytes(std::u16string_view path) const {
  const std::lock_guard lock(state_->mutex);
  const auto file = state_->files.find(NormalPath(path));
  if (file == state_->files.end()) {
    return std::nullopt;
  }
  return file->second->bytes;
}

std::vector<std::u16string> Machine::FilePaths() const {
  const std::lock_guard lock(state_->mutex);
  std::vector<std::u16string> paths;
  for (const auto& [path, file] : state_->files) {
    paths.push_back(path);
  }
  return paths;
}

void Machine::SetReadOnly(std::u16string_view path, bool read_only) {
  const std::lock_guard lock(state_->mutex);
  state_->files.at(NormalPath(path))->read_only = read_only;
}

void Machine::SetReportedSize(std::u16string_view path, std::uint64_t bytes) {
  const std::lock_guard lock(state_->mutex);
  state_->files.at(NormalPath(path))->reported_size = bytes;
}

void Machine::SetTemporaryFolder(std::u16string_view folder) {
  const std::lock_guard lock(state_->mutex);
  state_->temporary_folder = folder;
}

void Machine::SetLocalApplicationData(std::int32_t result, std::u16string_view folder) {
  const std::lock_guard lock(state_->mutex);
  state_->local_application_data_result = result;
  state_->local_application_data = folder;
}

const std::vector<std::u16string>& Machine::DebugOutput() const {
  return state_->debug_output;
}

void Machine::SetLocalTime(const LocalTime& time) {
  const std::chrono::year_month_day date(std::chrono::year(time.year),
                                         std::chrono::month(static_cast<unsigned>(time.month)),
                                         std::chrono::day(static_cast<unsigned>(time.day)));
  const std::chrono::sys_seconds instant =
      std::chrono::sys_days(date) + std::chrono::hours(time.hour) +
      std::chrono::minutes(time.minute) + std::chrono::seconds(time.second);
  const std::lock_guard lock(state_->mutex);
  state_->seconds_since_epoch = instant.time_since_epoch().count();
}

void Machine::SetSystemMessage(std::uint32_t code, std::u16string_view text) {
  const std::lock_guard lock(state_->mutex);
  state_->messages[code] = text;
}

std::uint64_t Machine::SleepCount() const {
  const std::lock_guard lock(state_->mutex);
  return state_->sleeps;
}

void Machine::Listen(std::uint16_t port, Peer peer, unsigned connections) {
  const std::lock_guard lock(state_->mutex);
  state_->listeners[port] = {peer, connections};
}

void Machine::StopListening(std::uint16_t port) {
  const std::lock_guard lock(state_->mutex);
  state_->listeners.erase(port);
}

void Machine::SetSendWindow(std::size_t bytes) {
  const std::lock_guard lock(state_->mutex);
  state_->send_window = bytes;
}

const std::vector<std::string>& Machine::Connections() const {
  return state_->sent;
}

std::vector<std::string> Machine::Calls() const {
  const std::lock_guard lock(state_->mutex);
  return state_->calls;
}

std::vector<std::string> Machine::CallsOf(std::string_view name) const {
  std::vector<std::string> calls = Calls();
  std::erase_if(calls, [start = std::string(name) + "("](const std::string& call) {
    return !call.starts_with(start);
  });
  return calls;
}

std::vector<std::string> Machine::WorkerCalls() const {
  const std::lock_guard lock(state_->mutex);
  return state_->worker_calls;
}

void Machine::SetRecording(bool records) {
  const std::lock_guard lock(state_->mutex);
  state_->records = records;
}

void Machine::ClearCalls() {
  const std::lock_guard lock(state_->mutex);
  state_->calls.clear();
  state_->worker_calls.clear();
  state_->fallible_calls = 0;
}

std::size_t Machine::FallibleCalls() const {
  const std::lock_guard lock(state_->mutex);
  return state_->fallible_calls;
}

void Machine::FailCall(std::size_t index, Status status, FaultMode mode) {
  FailCallOf("", index, status, mode);
}

void Machine::FailCallOf(std::string_view name, std::size_t index, Status status, FaultMode mode) {
  const std::lock_guard lock(state_->mutex);
  state_->fault = Fault{std::string(name), index, status, mode};
  state_->faulted_call.clear();
}

void Machine::SetBytesBeforeFault(std::size_t bytes) {
  const std::lock_guard lock(state_->mutex);
  state_->bytes_before_fault = bytes;
}

void Machine::ClearFault() {
  const std::lock_guard lock(state_->mutex);
  state_->fault.reset();
}

bool Machine::FaultTaken() const {
  return !FaultedCall().empty();
}

std::string Machine::FaultedCall() const {
  const std::lock_guard lock(state_->mutex);
  return state_->faulted_call;
}

std::size_t Machine::OpenHandles() const {
  const std::lock_guard lock(state_->mutex);
  return state_->open_keys.size() + state_->open_files.size() + state_->open_sockets.size() +
         state_->workers.size() + state_->blocks.size();
}

void Machine::SetCallHook(CallHook hook) {
  state_->call_hook = hook;
}

void Machine::SetBlockHook(BlockHook fails) {
  state_->block_hook = fails;
}

Machine& TheMachine() {
  // Never destroyed: owners in static objects may still close something after main.
  static Machine& machine = *new Machine;
  return machine;
}

LibraryCall::LibraryCall() : hook_(TheMachine().State().call_hook) {
  if (hook_ != nullptr) {
    hook_(true);
  }
}

LibraryCall::~LibraryCall() {
  if (hook_ != nullptr) {
    hook_(false);
  }
}

void LibraryCall::Record(std::string call) {
  LockedMachine machine;
  machine.RecordText(std::move(call));
}

Status LibraryCall::RecordFallible(std::string call) {
  const std::string name = call.substr(0, call.find('('));
  LockedMachine machine;
  machine.RecordText(std::move(call));
  return machine.TakeFault(name);
}

}  // namespace platform::fake
