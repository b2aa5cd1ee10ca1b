#include "testing/platform_contract/machine.h"

#include <algorithm>
#include <chrono>

#include "testing/fake_platform/state.h"

namespace platform::contract {
namespace {

constexpr std::uint16_t kFirstPort = 50000;
constexpr char16_t kFolder[] = u"C:\\Contract";
constexpr char16_t kLibraryFolder[] = u"C:\\Contract libraries\\";
constexpr char16_t kSystemDirectory[] = u"C:\\Contract system";

std::uint16_t next_port = kFirstPort;

}  // namespace

void PrepareMachine() {
  fake::FakePlatform& machine = fake::TheFakePlatform();
  machine.Reset();
  machine.AddFolder(kFolder);
  machine.SetSystemMessage(kAccessDenied, u"Nobody may do that.\r\n");
  machine.SetSystemDirectory(kSystemDirectory);
  machine.AddModule(
      LibraryFolder() + u"library.dll",
      {{"ContractNumber", reinterpret_cast<Procedure>(+[] { return kContractNumber; })}});
  machine.SetFile(LibraryFolder() + u"broken.dll", "This is no library.");
  machine.AddModule(TheSystemDirectory() + u"\\" + LibraryOfTheSystem(), {});
  next_port = kFirstPort;
}

void ClearMachine() {
  fake::TheFakePlatform().Reset();
}

bool MayChangeRegistry() {
  return true;
}

std::u16string KeyPath(std::u16string_view below) {
  return std::u16string(u"Software\\Contract").append(below);
}

bool AddKey(Hive hive, const std::u16string& path) {
  fake::TheFakePlatform().AddKey(hive, path);
  return true;
}

bool SetValue(Hive hive, const std::u16string& path, const std::u16string& name, std::uint32_t type,
              std::string_view bytes) {
  fake::TheFakePlatform().SetValue(hive, path, name, type, bytes);
  return true;
}

std::u16string Folder() {
  return kFolder;
}

void AddFolder(const std::u16string& path) {
  fake::TheFakePlatform().AddFolder(path);
}

void SetFile(const std::u16string& path, std::string_view bytes) {
  fake::TheFakePlatform().SetFile(path, std::string(bytes));
}

bool MakeReadOnly(const std::u16string& path) {
  fake::TheFakePlatform().SetReadOnly(path, true);
  return true;
}

void AddLink(const std::u16string& path, const std::u16string& link) {
  fake::TheFakePlatform().AddLink(path, link);
}

std::u16string Pipe() {
  std::u16string path = Folder() + u"\\pipe";
  fake::TheFakePlatform().AddPipe(path);
  return path;
}

std::optional<std::u16string> ShortName(const std::u16string& /*path*/) {
  return std::nullopt;
}

// Nobody holds files in this machine.
std::shared_ptr<void> HoldFile(const std::u16string& /*path*/, Hold /*how*/) {
  return nullptr;
}

std::optional<std::string> FileBytes(const std::u16string& path) {
  return fake::TheFakePlatform().FileBytes(path);
}

bool FolderExists(const std::u16string& path) {
  fake::LockedPlatform machine;
  return machine->IsFolder(fake::NormalPath(path));
}

std::u16string LibraryFolder() {
  return kLibraryFolder;
}

std::u16string LibraryOfTheSystem() {
  return u"contract_system.dll";
}

bool IsLoaded(const std::u16string& path) {
  const std::u16string name = u"\\" + path.substr(path.rfind(u'\\') + 1);
  return fake::TheFakePlatform().ModuleReferences(LibraryFolder() + name) != 0 ||
         fake::TheFakePlatform().ModuleReferences(TheSystemDirectory() + name) != 0;
}

std::u16string TheSystemDirectory() {
  return kSystemDirectory;
}

void SetVariable(const std::u16string& name, const std::u16string& value) {
  fake::TheFakePlatform().SetVariable(name, value);
}

std::uint16_t Listen(Peer peer) {
  // Nothing takes time on this machine: the slow one reads as any other.
  fake::TheFakePlatform().Listen(next_port, peer == Peer::kNeverReads ? fake::Peer::kNeverRead
                                            : peer == Peer::kResets   ? fake::Peer::kReset
                                                                      : fake::Peer::kAccept);
  return next_port++;
}

std::uint16_t PortWithoutListener() {
  return kFirstPort - 1;
}

std::string Received(std::uint16_t port) {
  fake::LockedPlatform machine;
  std::size_t index = 0;
  machine->changed.wait(machine.Lock(), [&] {
    const auto first = std::find_if(
        machine->connections.begin(), machine->connections.end(),
        [port](const fake::Connection& connection) { return connection.port == port; });
    index = static_cast<std::size_t>(first - machine->connections.begin());
    return first != machine->connections.end() && first->closed;
  });
  return machine->sent[index];
}

std::u16string DebugOutput() {
  std::u16string all;
  for (const std::u16string& text : fake::TheFakePlatform().DebugOutput()) {
    all += text;
  }
  return all;
}

std::u16string StoredMessage(std::uint32_t code) {
  fake::LockedPlatform machine;
  const auto message = machine->messages.find(code);
  return message == machine->messages.end() ? std::u16string() : message->second;
}

std::int64_t InstantOf(const LocalTime& local) {
  const std::chrono::sys_seconds instant =
      std::chrono::sys_days(std::chrono::year(local.year) / local.month / local.day) +
      std::chrono::hours(local.hour) + std::chrono::minutes(local.minute) +
      std::chrono::seconds(local.second);
  return instant.time_since_epoch().count();
}

// There is but one process in this machine.
std::optional<std::vector<int>> RunCopies(int /*count*/, const std::string& /*name*/) {
  return std::nullopt;
}

}  // namespace platform::contract
