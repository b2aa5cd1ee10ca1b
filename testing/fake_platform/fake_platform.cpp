#include "testing/fake_platform/fake_platform.h"

#include <chrono>
#include <utility>

#include "testing/fake_platform/state.h"

namespace platform::fake {
namespace {

constexpr LocalTime kFirstTime = {2026, 11, 20, 23, 58, 7};

// As the registry stores text and numbers.
std::string LittleEndian(std::uint32_t number, int size) {
  std::string bytes;
  for (int i = 0; i < size; ++i) {
    bytes.push_back(static_cast<char>(number >> (8 * i) & 0xff));
  }
  return bytes;
}

}  // namespace

Machine::Machine() : state_(std::make_unique<MachineState>()) {
  SetLocalTime(kFirstTime);
}

Machine::~Machine() = default;

LockedState Machine::Locked() const {
  return LockedState(*state_);
}

void Machine::Reset() {
  std::map<std::uintptr_t, std::thread> workers;
  Locked()->workers.swap(workers);
  for (auto& [handle, worker] : workers) {
    if (worker.joinable()) {
      worker.join();
    }
  }
  // Copied, so that what is there already has room for it.
  static const MachineContents fresh;
  {
    const LockedState state = Locked();
    static_cast<MachineContents&>(*state) = fresh;
    state->main_thread = std::this_thread::get_id();
  }
  SetLocalTime(kFirstTime);
}

void Machine::AddKey(Hive hive, std::u16string_view path) {
  Locked()->MakeKey(hive, path);
}

void Machine::SetValue(Hive hive, std::u16string_view path, std::u16string_view name,
                       std::uint32_t type, std::string_view raw_bytes) {
  Locked()->MakeKey(hive, path)[std::u16string(name)] = {type, std::string(raw_bytes)};
}

void Machine::SetString(Hive hive, std::u16string_view path, std::u16string_view name,
                        std::u16string_view text, std::uint32_t type) {
  std::string bytes;
  for (const char16_t unit : text) {
    bytes += LittleEndian(unit, 2);
  }
  SetValue(hive, path, name, type, bytes + LittleEndian(0, 2));
}

void Machine::SetDword(Hive hive, std::u16string_view path, std::u16string_view name,
                       std::uint32_t number) {
  SetValue(hive, path, name, kRegDword, LittleEndian(number, 4));
}

void Machine::AddFolder(std::u16string_view path) {
  Locked()->MakeFolder(NormalPath(path));
}

void Machine::SetFile(std::u16string_view path, std::string bytes) {
  auto file = std::make_shared<StoredFile>();
  file->bytes = std::move(bytes);
  Locked()->Store(path, std::move(file));
}

void Machine::AddPipe(std::u16string_view path) {
  auto pipe = std::make_shared<StoredFile>();
  pipe->is_pipe = true;
  Locked()->Store(path, std::move(pipe));
}

void Machine::AddLink(std::u16string_view path, std::u16string_view link) {
  const LockedState state = Locked();
  state->Store(link, state->files.at(NormalPath(path)));
}

void Machine::Remove(std::u16string_view path) {
  const std::u16string normal = NormalPath(path);
  const auto is_gone = [&](std::u16string_view other) {
    return other == normal || (other.starts_with(normal) && other[normal.size()] == u'\\');
  };
  const LockedState state = Locked();
  std::erase_if(state->files, [&](const auto& file) { return is_gone(file.first); });
  std::erase_if(state->folders, is_gone);
}

std::optional<std::string> Machine::FileBytes(std::u16string_view path) const {
  const LockedState state = Locked();
  const auto file = state->files.find(NormalPath(path));
  return file == state->files.end() ? std::nullopt : std::optional(file->second->bytes);
}

std::vector<std::u16string> Machine::FilePaths() const {
  const LockedState state = Locked();
  std::vector<std::u16string> paths;
  for (const auto& [path, file] : state->files) {
    paths.push_back(path);
  }
  return paths;
}

void Machine::SetReadOnly(std::u16string_view path, bool read_only) {
  Locked()->files.at(NormalPath(path))->read_only = read_only;
}

void Machine::SetReportedSize(std::u16string_view path, std::uint64_t bytes) {
  Locked()->files.at(NormalPath(path))->reported_size = bytes;
}

void Machine::SetTemporaryFolder(std::u16string_view folder) {
  Locked()->temporary_folder = folder;
}

void Machine::SetLocalApplicationData(std::int32_t result, std::u16string_view folder) {
  const LockedState state = Locked();
  state->local_application_data_result = result;
  state->local_application_data = folder;
}

const std::vector<std::u16string>& Machine::DebugOutput() const {
  return state_->debug_output;
}

void Machine::SetLocalTime(const LocalTime& time) {
  const std::chrono::sys_seconds instant =
      std::chrono::sys_days(std::chrono::year(time.year) / time.month / time.day) +
      std::chrono::hours(time.hour) + std::chrono::minutes(time.minute) +
      std::chrono::seconds(time.second);
  Locked()->seconds_since_epoch = instant.time_since_epoch().count();
}

void Machine::SetSystemMessage(std::uint32_t code, std::u16string_view text) {
  Locked()->messages[code] = text;
}

std::uint64_t Machine::SleepCount() const {
  return Locked()->sleeps;
}

void Machine::Listen(std::uint16_t port, Peer peer, unsigned connections) {
  Locked()->listeners[port] = {peer, connections};
}

void Machine::StopListening(std::uint16_t port) {
  Locked()->listeners.erase(port);
}

void Machine::SetSendWindow(std::size_t bytes) {
  Locked()->send_window = bytes;
}

const std::vector<std::string>& Machine::Connections() const {
  return state_->sent;
}

std::vector<std::string> Machine::Calls() const {
  return Locked()->calls;
}

std::vector<std::string> Machine::CallsOf(std::string_view name) const {
  std::vector<std::string> calls = Calls();
  std::erase_if(calls, [start = std::string(name) + "("](const std::string& call) {
    return !call.starts_with(start);
  });
  return calls;
}

std::vector<std::string> Machine::WorkerCalls() const {
  return Locked()->worker_calls;
}

void Machine::SetRecording(bool records) {
  Locked()->records = records;
}

void Machine::ClearCalls() {
  const LockedState state = Locked();
  state->calls.clear();
  state->worker_calls.clear();
  state->fallible_calls = 0;
}

std::size_t Machine::FallibleCalls() const {
  return Locked()->fallible_calls;
}

void Machine::FailCall(std::size_t index, Status status, FaultMode mode) {
  FailCallOf("", index, status, mode);
}

void Machine::FailCallOf(std::string_view name, std::size_t index, Status status, FaultMode mode) {
  const LockedState state = Locked();
  state->fault = Fault{std::string(name), index, status, mode};
  state->faulted_call.clear();
}

void Machine::SetBytesBeforeFault(std::size_t bytes) {
  Locked()->bytes_before_fault = bytes;
}

void Machine::ClearFault() {
  Locked()->fault.reset();
}

bool Machine::FaultTaken() const {
  return !FaultedCall().empty();
}

std::string Machine::FaultedCall() const {
  return Locked()->faulted_call;
}

std::size_t Machine::OpenHandles() const {
  const LockedState state = Locked();
  return state->open_keys.size() + state->open_files.size() + state->open_sockets.size() +
         state->workers.size() + state->blocks.size();
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

HookedCall::HookedCall() : hook_(TheMachine().State().call_hook) {
  if (hook_ != nullptr) {
    hook_(true);
  }
}

HookedCall::~HookedCall() {
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
