// The machine as a test prepares it: the registry that the tool reads, its folders, its files.
// Real ones: on Windows the user's own registry and application data, elsewhere what stands in for
// them. What was there before is put aside for the whole run and put back at its end.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "app/registry_names.h"
#include "testing/end_to_end/process.h"

namespace zentpost::e2e {

// Before the first and after the last test. A text says why this machine cannot be taken over.
[[nodiscard]] std::string TakeMachineOver();
void GiveMachineBack();

enum class Hive { kCurrentUser, kLocalMachine };

// Makes a file impossible to write for as long as the object lives; reading it stays possible.
class ReadOnly {
 public:
  explicit ReadOnly(const std::filesystem::path& path);
  ~ReadOnly();
  ReadOnly(const ReadOnly&) = delete;
  ReadOnly& operator=(const ReadOnly&) = delete;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

// Leaves the processes that are started while it lives too little memory for a file of kTooLarge
// bytes. Not everywhere possible.
class LittleMemory {
 public:
  static constexpr std::uint64_t kTooLarge = std::uint64_t{3} << 30;

  [[nodiscard]] static bool IsPossible();

  LittleMemory();
  ~LittleMemory();
  LittleMemory(const LittleMemory&) = delete;
  LittleMemory& operator=(const LittleMemory&) = delete;
};

// Other paths, each with a separator, that lead to the existing file at `path`, in the ways that
// only some systems have: a short name, another case, the name of its stream, a symbolic link
// beside it.
[[nodiscard]] std::vector<std::filesystem::path> OtherWaysTo(const std::filesystem::path& path);

// One test's machine. It begins with no values in the registry, an empty folder and no log folder,
// and leaves nothing behind.
class Machine {
 public:
  Machine();
  ~Machine();
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;

  // The registry. A text may be one whose variables are to be expanded.
  enum class TextKind { kPlain, kExpandable };
  void SetText(Hive hive, std::u16string_view key, std::u16string_view name, std::string_view text,
               TextKind kind = TextKind::kPlain);
  void SetNumber(Hive hive, std::u16string_view key, std::u16string_view name,
                 std::uint32_t number);
  void AddKey(Hive hive, std::u16string_view key);
  // False where this user may not write to the hive.
  [[nodiscard]] static bool CanWrite(Hive hive);

  // The machine's mail client, and a text of its key.
  void SetDefaultMailClient(std::string_view client);
  void SetMailClientText(std::string_view client, std::u16string_view name, std::string_view text,
                         TextKind kind = TextKind::kPlain);

  // The test's own folder, in which the tool works, and in it the folder for temporary files.
  [[nodiscard]] const std::filesystem::path& Folder() const { return folder_; }
  [[nodiscard]] std::filesystem::path TemporaryFolder() const { return folder_ / "temporary"; }

  // The log file, and the folder that the fax client's installation would make for it.
  [[nodiscard]] std::filesystem::path LogFolder() const;
  [[nodiscard]] std::filesystem::path LogFile() const { return LogFolder() / "zentpost.log"; }
  void AddLogFolder();

  // The path of a named pipe whose other end nobody uses. It is there as long as the machine.
  [[nodiscard]] std::filesystem::path AddPipe();

  // What stands in the registry where the tool and its doctor look: the user's hive, the mail
  // clients, the makers' keys and the installer's components.
  [[nodiscard]] std::string RegistryContents() const;

  // For processes that are to see this machine.
  [[nodiscard]] ProcessOptions Options() const;
  // Adds a variable to the environment of these processes.
  void SetVariable(const std::string& name, const std::filesystem::path& value);

 private:
  struct Registry;

  std::filesystem::path folder_;
  Environment variables_;
  std::unique_ptr<Registry> registry_;
  std::shared_ptr<void> pipe_;  // where it is no file of the folder
};

}  // namespace zentpost::e2e
