// What the contract tests arrange on the machine, and look up there, behind the back of platform/.
// Each back-end implements it with its own machine's means, never with the functions under test:
// fake/machine.cpp, and native.cpp with windows/machine.cpp or posix/machine.cpp.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/registry.h"
#include "platform/system.h"

namespace platform::contract {

// Called before and after every test. In between, what the functions below arrange is there; before
// and after, nothing of it is.
void PrepareMachine();
void ClearMachine();

// The registry. False: it is the user's own, and tests may not write to it.
bool MayChangeRegistry();
// The path, below any hive, of a key that belongs to this process's tests alone, with `below`
// behind it ("" or "\\Sub\\Key").
std::u16string KeyPath(std::u16string_view below);
// These create what is missing in between; false says that this user may not write to that hive.
// `bytes` is the data as it is stored.
bool AddKey(Hive hive, const std::u16string& path);
bool SetValue(Hive hive, const std::u16string& path, const std::u16string& name, std::uint32_t type,
              std::string_view bytes);

// Files. `Folder` is an empty folder of the test's own, without a separator at its end; the others
// take paths in it, with backslashes.
std::u16string Folder();
void AddFolder(const std::u16string& path);
void SetFile(const std::u16string& path, std::string_view bytes);
bool MakeReadOnly(const std::u16string& path);  // false: this user may still write to it
void AddLink(const std::u16string& path, const std::u16string& link);  // another path of that file
std::u16string Pipe();  // the path of a named pipe whose other end nobody uses
std::optional<std::string> FileBytes(const std::u16string& path);  // absent: no such file
bool FolderExists(const std::u16string& path);                     // a separator may end it

// The file's other name, as systems keep one for programs that know only short ones; absent: it has
// none.
std::optional<std::u16string> ShortName(const std::u16string& path);

// Does to a file what another program may do to it, for as long as the result lives.
enum class Hold {
  kAlone,   // shares it with nobody, where the system knows that
  kLocked,  // locks every byte that is there and the last one that could be
};
std::shared_ptr<void> HoldFile(const std::u16string& path, Hold how);

// Libraries. `LibraryFolder` ends with a separator and holds library.dll, which exports
// ContractNumber and nothing else that a test may rely on, and broken.dll, which is a text. No
// other folder has files of these names.
std::u16string LibraryFolder();
inline constexpr int kContractNumber = 1707;
using ContractNumber = int (*)();
// The bare name of a library that stands in the system's own folders and is not loaded.
std::u16string LibraryOfTheSystem();
// Whether the process has loaded a library with the file name of `path`.
bool IsLoaded(const std::u16string& path);
std::u16string TheSystemDirectory();

// Sets a variable of the environment until ClearMachine. ZENTPOST_NONE is not there.
void SetVariable(const std::u16string& name, const std::u16string& value);

// Peers on 127.0.0.1. They are served, one connection after the other, until the test's end.
enum class Peer {
  kReads,      // reads until its peer closes
  kReadsSlow,  // the same, in small pieces and with pauses, 20 MiB a second where there is time
  kNeverReads,
  kResets,  // resets the connection once some bytes have arrived, at once or a little later
};
std::uint16_t Listen(Peer peer);  // gives the port
std::uint16_t PortWithoutListener();

// Waits until the first connection to `port` (of a reading peer) has ended and gives what it
// received.
std::string Received(std::uint16_t port);

// Everything that WriteDebugOutput has handed on since PrepareMachine, in one piece.
std::u16string DebugOutput();

// The system's own text for `code` as it is stored; empty when it has none.
std::u16string StoredMessage(std::uint32_t code);

// An instant that this machine's clocks on the wall show as `local`.
std::int64_t InstantOf(const LocalTime& local);

// Other processes: runs `count` copies of this test program at once, in `Folder` and each with just
// the test `name` ("Suite.Name") and with a random seed of its own from 1 on. A copy writes one
// byte to its standard output when it is ready; its standard input ends when all are. Gives their
// exit codes; absent: a machine without processes.
std::optional<std::vector<int>> RunCopies(int count, const std::string& name);

}  // namespace platform::contract
