// What the contract test arranges on the machine, and looks up there, behind the seam's back. Every
// back-end implements it with its own machine's means (contract_windows.cpp, contract_posix.cpp,
// contract_fake.cpp), never with the seam's functions, which are what is being tested.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/registry.h"
#include "platform/system.h"

namespace platform::contract {

// Called before and after every test. In between, what the functions below arrange is there; before
// and after, nothing of it is.
void PrepareMachine();
void ClearMachine();

// The registry. `KeyPath` gives the path, below any hive, of a key that belongs to this process's
// tests alone, with `below` behind it ("" or "\\Sub\\Key"). The other two create what is missing in
// between; false says that this user may not write to that hive. `bytes` is the data as it is
// stored.
std::u16string KeyPath(std::u16string_view below);
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

// Other processes, on the machines that have any: runs `count` copies of this test program at once,
// each with just the test `name` ("Suite.Name"), and waits for their end. Gives the number of
// copies that failed; absent: a machine without processes.
std::optional<int> RunCopies(int count, const std::string& name, const std::u16string& path);

// In such a copy, its number (from 0) and the path; absent in the program that was started first.
struct Copy {
  int number;
  std::u16string path;
};
std::optional<Copy> ThisCopy();

// In such a copy: waits until all copies have come this far.
void AwaitOtherCopies();

}  // namespace platform::contract
