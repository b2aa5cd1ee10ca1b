// A fake platform behind the platform layer, for unit tests on every system. Tests prepare it,
// run the code under test on it, look at what was done to it, and make single calls fail. It never
// touches the real machine's registry, files, clock or network.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/modules.h"
#include "platform/reading.h"
#include "platform/registry.h"
#include "platform/status.h"
#include "platform/system.h"

namespace platform::fake {

class LockedState;
struct PlatformState;

// What the peer behind a listening port does with the bytes that are sent to it.
enum class Peer {
  kAccept,     // takes everything
  kNeverRead,  // the system takes as many bytes as the send window holds, then Send blocks
  kReset,      // the system takes half of the bytes, then Send fails with kSocketReset
};

enum class FaultMode {
  kOnce,       // the call fails, later ones work
  kFromThere,  // the call and every later one fails
};

// There is one machine, TheFakePlatform(). It may be used from several threads; the thread that
// reset it last is its main thread, and every other thread's calls count as a worker's.
class FakePlatform {
 public:
  using Peer = platform::fake::Peer;
  using FaultMode = platform::fake::FaultMode;

  static constexpr unsigned kUnlimited = std::numeric_limits<unsigned>::max();

  FakePlatform();
  FakePlatform(const FakePlatform&) = delete;
  FakePlatform& operator=(const FakePlatform&) = delete;
  ~FakePlatform();

  // Makes a fresh machine: no keys, no files, the default folders, nobody listening, nothing
  // recorded, no fault. Waits for workers that were never let go. A handle that is still open is
  // forgotten: it no longer works and counts no more, and closing it is harmless.
  void Reset();

  // The registry. Keys are made with their parents; paths and names ignore the case of ASCII
  // letters. An empty `name` is the key's default value. SetValue takes the bytes as they are
  // stored, SetString adds the terminator.
  void AddKey(Hive hive, std::u16string_view path);
  void SetValue(Hive hive, std::u16string_view path, std::u16string_view name, std::uint32_t type,
                std::string_view raw_bytes);
  void SetString(Hive hive, std::u16string_view path, std::u16string_view name,
                 std::u16string_view text, std::uint32_t type = kRegSz);
  void SetDword(Hive hive, std::u16string_view path, std::u16string_view name,
                std::uint32_t number);

  // Files. '/' and '\' are the same in a path, repeated ones count once, "." and ".." are resolved
  // as they are read, case matters, and a name without a folder is in the current folder, which
  // always exists. As on Windows, a file that is open cannot be removed through the layer
  // (kSharingViolation). AddFolder and SetFile make the parents; SetFile replaces what is there.
  void AddFolder(std::u16string_view path);
  void SetFile(std::u16string_view path, std::string bytes);
  // Puts something there that is no file on a disk, as a named pipe is, and makes the parents. It
  // has no bytes, and every use of it through the layer fails with kAccessDenied.
  void AddPipe(std::u16string_view path);
  // Makes `link` another path of the file at `path`, which must exist, and the parents of `link`.
  // What is written under one path is read under the other, and each goes away alone.
  void AddLink(std::u16string_view path, std::u16string_view link);
  // Takes a file away, read-only or not, or a folder with all that is in it.
  void Remove(std::u16string_view path);
  // What the file holds; nothing when there is no such file.
  std::optional<std::string> FileBytes(std::u16string_view path) const;
  // The paths of all files, sorted, with backslashes.
  std::vector<std::u16string> FilePaths() const;
  // Opening a read-only file for writing, appending to it and removing it fail with kAccessDenied.
  // The file must exist, as for the next one.
  void SetReadOnly(std::u16string_view path, bool read_only);
  // Makes QueryFileSize tell this instead of the truth, as for a file that changes its size between
  // that call and the reading.
  void SetReportedSize(std::u16string_view path, std::uint64_t bytes);

  // The folders that the layer tells. They are u"C:\\Temp\\" and u"C:\\AppData" (with 0, S_OK) at
  // first, and both exist; what is set here comes into being by AddFolder only.
  void SetTemporaryFolder(std::u16string_view folder);
  void SetLocalApplicationData(std::int32_t result, std::u16string_view folder);

  // The texts handed to the debugger, one per WriteDebugOutput.
  const std::vector<std::u16string>& DebugOutput() const;
  // Stops the clock at another time; it stands at 2026-11-20 23:58:07 at first. The machine's time
  // zone is UTC.
  void SetLocalTime(const LocalTime& time);
  // Gives an error code a text; without one, SystemMessage fails with kMessageNotFound.
  void SetSystemMessage(std::uint32_t code, std::u16string_view text);
  // Sleeping takes no time. This is how often it was called, on all threads together.
  std::uint64_t SleepCount() const;

  // Libraries. Paths are as for files, but ignore the case of ASCII letters. AddModule puts a
  // library there that exports `exports`, functions of the test's own; nothing but it loads. A bare
  // name finds a loaded library of that name, else one in the system directory, which is
  // u"C:\\Windows\\system32" at first and holds a kernel32.dll with a GetModuleHandleExW that works
  // on this machine (and counts as one of its fallible calls).
  using Exports = std::map<std::string, Procedure>;
  void AddModule(std::u16string_view path, Exports exports);
  void SetSystemDirectory(std::u16string_view directory);
  // How many references the library at `path` has; 0: it is not loaded. Without a path, those of
  // all libraries. They do not count as open handles.
  std::size_t ModuleReferences(std::u16string_view path) const;
  std::size_t ModuleReferences() const;
  // The path of a loaded library, as AddModule was told it; empty for any other handle.
  std::u16string ModulePath(RawModule module) const;
  // The case of a variable's name is ignored, as in paths of libraries.
  void SetVariable(std::u16string_view name, std::u16string_view value);

  // Listens on 127.0.0.1 (also known as "localhost"; there is no other host). After `connections`
  // connections the port refuses.
  void Listen(std::uint16_t port, Peer peer = Peer::kAccept, unsigned connections = kUnlimited);
  // Refuses from now on; connections that exist live on.
  void StopListening(std::uint16_t port);
  // How many bytes the system takes for a connection to a Peer::kNeverRead; 65536 at first.
  void SetSendWindow(std::size_t bytes);
  // The bytes that the system took for each connection, in the order of connecting.
  const std::vector<std::string>& Connections() const;

  // What the machine tells of itself to platform/reading.h. The process is in
  // C:\Program Files\Zentpost\ at first, not elevated, with code page 1252. A component without a
  // path may be installed, and its path is not known. A listener stands in the table of ports only:
  // connecting is another matter, and without one the table tells of Listen.
  void SetProcess(const reading::Process& process);
  void AddComponent(std::u16string_view category, std::u16string_view qualifier,
                    std::optional<std::u16string_view> path);
  void SetListener(std::uint16_t port, const reading::Listener& listener);
  // Opening the key for more than reading fails with kAccessDenied.
  void SetReadOnlyKey(Hive hive, std::u16string_view path);

  // Every platform call of the main thread in order, as "Name(arguments)" in UTF-8; this folder's
  // test has one of each. Paths, names and texts stand as they were passed, numbers are decimal,
  // masks and codes hexadecimal. An open key or file stands as its path:
  //   OpenSubKey(HKCU\Software, Sollvex, 0x1)          WriteBytes(C:\a.txt, 57)
  // What the end of an owner closes is not a call.
  std::vector<std::string> Calls() const;
  // The calls of one function out of that list.
  std::vector<std::string> CallsOf(std::string_view name) const;
  // The calls of all other threads, each with "worker: " in front.
  std::vector<std::string> WorkerCalls() const;
  // Whether calls and debug output are recorded, as they are at first. Calls are counted and made
  // to fail in either case. Reset keeps it.
  void SetRecording(bool records);
  // Forgets the recorded calls of all threads and counts the fallible ones from 0 again.
  void ClearCalls();
  // The number of calls on the main thread that could have failed, that is, whose result tells of
  // failure.
  std::size_t FallibleCalls() const;

  // Makes a call fail with `status`: the one at `index` (0 is the next) among the main thread's
  // fallible calls from now on. It fails before it does anything, except that CloseKey closes and
  // WaitForWorker waits nevertheless. `status` is not 0; where the layer gives an HRESULT, a Win32
  // number becomes HRESULT_FROM_WIN32 of it. There is one fault at a time: a new one replaces it.
  void FailCall(std::size_t index, Status status, FaultMode mode = FaultMode::kOnce);
  // The same, counting only the calls of the function `name`.
  void FailCallOf(std::string_view name, std::size_t index, Status status,
                  FaultMode mode = FaultMode::kOnce);
  // How many of their bytes ReadBytes, WriteBytes and Send move before such a fault stops them; 0
  // at first.
  void SetBytesBeforeFault(std::size_t bytes);
  // Takes the fault back; FaultTaken still tells of it.
  void ClearFault();
  bool FaultTaken() const;
  // The first call that the fault stopped, as in Calls(); empty when there was none.
  std::string FaultedCall() const;

  // Keys, files, blocks, workers and sockets that are open.
  std::size_t OpenHandles() const;

  // Called with true when a layer call begins to use the machine and with false when it has done
  // so, on the thread that calls. What happens in between is the machine's doing, not that of the
  // code under test: it is for tests that tell the two apart. Null, as at first: nothing is called.
  // Reset keeps it.
  using CallHook = void (*)(bool begins);
  void SetCallHook(CallHook hook);

  // Asked before each block that the code under test takes, on the thread that asks for it and
  // before the machine is used: true makes AllocateBlock fail with kNotEnoughMemory. Null, as at
  // first: every block can be had. Reset keeps it.
  using BlockHook = bool (*)();
  void SetBlockHook(BlockHook fails);

  // For the layer's functions of this back-end only.
  PlatformState& State() { return *state_; }

 private:
  [[nodiscard]] LockedState Locked() const;

  std::unique_ptr<PlatformState> state_;
};

FakePlatform& TheFakePlatform();

// Tells the call hook that a call begins and, at its own end, that the call ends.
class HookedCall {
 public:
  HookedCall();
  HookedCall(const HookedCall&) = delete;
  HookedCall& operator=(const HookedCall&) = delete;
  ~HookedCall();

 private:
  const FakePlatform::CallHook hook_;
};

// One call of a function that a library of the test's own exports, for as long as this lives: what
// happens meanwhile is the machine's doing, as in a platform call.
class LibraryCall : HookedCall {
 public:
  // Records the call among the machine's own. One that can fail counts among the fallible calls and
  // is told the number that it must fail with now; 0: none.
  void Record(std::string call);
  [[nodiscard]] Status RecordFallible(std::string call);
};

}  // namespace platform::fake
