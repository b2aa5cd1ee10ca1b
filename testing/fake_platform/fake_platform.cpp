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

FakePlatform::FakePlatform() : state_(std::make_unique<PlatformState>()) {
  SetLocalTime(kFirstTime);
}

FakePlatform::~FakePlatform() = default;

LockedState FakePlatform::Locked() const {
  return LockedState(*state_);
}

void FakePlatform::Reset() {
  std::map<std::uintptr_t, std::thread> workers;
  Locked()->workers.swap(workers);
  for (auto& [handle, worker] : workers) {
    if (worker.joinable()) {
      worker.join();
    }
  }
  // Copied, so that what is there already has space for it.
  static const PlatformContents fresh;
  {
    const LockedState state = Locked();
    static_cast<PlatformContents&>(*state) = fresh;
    state->main_thread = std::this_thread::get_id();
  }
  SetLocalTime(kFirstTime);
}

void FakePlatform::AddKey(Hive hive, std::u16string_view path) {
  Locked()->MakeKey(hive, path);
}

void FakePlatform::SetValue(Hive hive, std::u16string_view path, std::u16string_view name,
                            std::uint32_t type, std::string_view raw_bytes) {
  Locked()->MakeKey(hive, path)[std::u16string(name)] = {type, std::string(raw_bytes)};
}

void FakePlatform::SetString(Hive hive, std::u16string_view path, std::u16string_view name,
                             std::u16string_view text, std::uint32_t type) {
  std::string bytes;
  for (const char16_t unit : text) {
    bytes += LittleEndian(unit, 2);
  }
  SetValue(hive, path, name, type, bytes + LittleEndian(0, 2));
}

void FakePlatform::SetDword(Hive hive, std::u16string_view path, std::u16string_view name,
                            std::uint32_t number) {
  SetValue(hive, path, name, kRegDword, LittleEndian(number, 4));
}

void FakePlatform::AddFolder(std::u16string_view path) {
  Locked()->MakeFolder(NormalPath(path));
}

void FakePlatform::SetFile(std::u16string_view path, std::string bytes) {
  auto file = std::make_shared<StoredFile>();
  file->bytes = std::move(bytes);
  Locked()->Store(path, std::move(file));
}

void FakePlatform::AddPipe(std::u16string_view path) {
  auto pipe = std::make_shared<StoredFile>();
  pipe->is_pipe = true;
  Locked()->Store(path, std::move(pipe));
}

void FakePlatform::AddLink(std::u16string_view path, std::u16string_view link) {
  const LockedState state = Locked();
  state->Store(link, state->files.at(NormalPath(path)));
}

void FakePlatform::Remove(std::u16string_view path) {
  const std::u16string normal = NormalPath(path);
  const auto is_gone = [&](std::u16string_view other) {
    return other == normal || (other.starts_with(normal) && other[normal.size()] == u'\\');
  };
  const LockedState state = Locked();
  std::erase_if(state->files, [&](const auto& file) { return is_gone(file.first); });
  std::erase_if(state->folders, is_gone);
}

std::optional<std::string> FakePlatform::FileBytes(std::u16string_view path) const {
  const LockedState state = Locked();
  const auto file = state->files.find(NormalPath(path));
  return file == state->files.end() ? std::nullopt : std::optional(file->second->bytes);
}

std::vector<std::u16string> FakePlatform::FilePaths() const {
  const LockedState state = Locked();
  std::vector<std::u16string> paths;
  for (const auto& [path, file] : state->files) {
    paths.push_back(path);
  }
  return paths;
}

void FakePlatform::SetReadOnly(std::u16string_view path, bool read_only) {
  Locked()->files.at(NormalPath(path))->read_only = read_only;
}

void FakePlatform::SetReportedSize(std::u16string_view path, std::uint64_t bytes) {
  Locked()->files.at(NormalPath(path))->reported_size = bytes;
}

void FakePlatform::SetTemporaryFolder(std::u16string_view folder) {
  Locked()->temporary_folder = folder;
}

void FakePlatform::SetLocalApplicationData(std::int32_t result, std::u16string_view folder) {
  const LockedState state = Locked();
  state->local_application_data_result = result;
  state->local_application_data = folder;
}

const std::vector<std::u16string>& FakePlatform::DebugOutput() const {
  return state_->debug_output;
}

void FakePlatform::SetLocalTime(const LocalTime& time) {
  const std::chrono::sys_seconds instant =
      std::chrono::sys_days(std::chrono::year(time.year) / time.month / time.day) +
      std::chrono::hours(time.hour) + std::chrono::minutes(time.minute) +
      std::chrono::seconds(time.second);
  Locked()->seconds_since_epoch = instant.time_since_epoch().count();
}

void FakePlatform::SetSystemMessage(std::uint32_t code, std::u16string_view text) {
  Locked()->messages[code] = text;
}

void FakePlatform::SetProcess(const reading::Process& process) {
  Locked()->process = process;
}

void FakePlatform::AddComponent(std::u16string_view category, std::u16string_view qualifier,
                                std::optional<std::u16string_view> path) {
  Locked()->components[{std::u16string(category), std::u16string(qualifier)}] = path;
}

void FakePlatform::SetListener(std::uint16_t port, const reading::Listener& listener) {
  Locked()->told_listeners[port] = listener;
}

void FakePlatform::SetReadOnlyKey(Hive hive, std::u16string_view path) {
  Locked()->read_only_keys.insert(
      NormalKeyPath(std::u16string(HiveName(hive)).append(u"\\").append(path)));
}

std::uint64_t FakePlatform::SleepCount() const {
  return Locked()->sleeps;
}

void FakePlatform::Listen(std::uint16_t port, Peer peer, unsigned connections) {
  Locked()->listeners[port] = {peer, connections};
}

void FakePlatform::StopListening(std::uint16_t port) {
  Locked()->listeners.erase(port);
}

void FakePlatform::SetSendWindow(std::size_t bytes) {
  Locked()->send_window = bytes;
}

const std::vector<std::string>& FakePlatform::Connections() const {
  return state_->sent;
}

std::vector<std::string> FakePlatform::Calls() const {
  return Locked()->calls;
}

std::vector<std::string> FakePlatform::CallsOf(std::string_view name) const {
  std::vector<std::string> calls = Calls();
  std::erase_if(calls, [start = std::string(name) + "("](const std::string& call) {
    return !call.starts_with(start);
  });
  return calls;
}

std::vector<std::string> FakePlatform::WorkerCalls() const {
  return Locked()->worker_calls;
}

void FakePlatform::SetRecording(bool records) {
  Locked()->records = records;
}

void FakePlatform::ClearCalls() {
  const LockedState state = Locked();
  state->calls.clear();
  state->worker_calls.clear();
  state->fallible_calls = 0;
}

std::size_t FakePlatform::FallibleCalls() const {
  return Locked()->fallible_calls;
}

void FakePlatform::FailCall(std::size_t index, Status status, FaultMode mode) {
  FailCallOf("", index, status, mode);
}

void FakePlatform::FailCallOf(std::string_view name, std::size_t index, Status status,
                              FaultMode mode) {
  const LockedState state = Locked();
  state->fault = Fault{std::string(name), index, status, mode};
  state->faulted_call.clear();
}

void FakePlatform::SetBytesBeforeFault(std::size_t bytes) {
  Locked()->bytes_before_fault = bytes;
}

void FakePlatform::ClearFault() {
  Locked()->fault.reset();
}

bool FakePlatform::FaultTaken() const {
  return !FaultedCall().empty();
}

std::string FakePlatform::FaultedCall() const {
  return Locked()->faulted_call;
}

std::size_t FakePlatform::OpenHandles() const {
  const LockedState state = Locked();
  return state->open_keys.size() + state->open_files.size() + state->open_sockets.size() +
         state->workers.size() + state->blocks.size();
}

void FakePlatform::SetCallHook(CallHook hook) {
  state_->call_hook = hook;
}

void FakePlatform::SetBlockHook(BlockHook fails) {
  state_->block_hook = fails;
}

FakePlatform& TheFakePlatform() {
  // Never destroyed: owners in static objects may still close something after main.
  static FakePlatform& fake = *new FakePlatform;
  return fake;
}

HookedCall::HookedCall() : hook_(TheFakePlatform().State().call_hook) {
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
  LockedPlatform locked;
  locked.RecordText(std::move(call));
}

Status LibraryCall::RecordFallible(std::string call) {
  const std::string name = call.substr(0, call.find('('));
  LockedPlatform locked;
  locked.RecordText(std::move(call));
  return locked.TakeFault(name);
}

}  // namespace platform::fake
