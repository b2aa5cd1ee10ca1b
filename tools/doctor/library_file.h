// What the file of a library tells without being loaded: what it is made for, and what it exports.
// PE and ELF files are read alike on every system, as a loader reads them: through what it would
// lay into memory. The layouts are those published as IMAGE_* in winnt.h and as Elf32_*, Elf64_* in
// elf.h. Any bytes may be given.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace zentpost::doctor {

// Where a file's bytes come from.
class ByteSource {
 public:
  ByteSource() = default;
  ByteSource(const ByteSource&) = delete;
  ByteSource& operator=(const ByteSource&) = delete;
  virtual ~ByteSource() = default;

  // In bytes. Asked once.
  [[nodiscard]] virtual std::uint64_t Size() const = 0;
  // Copies the `size` bytes at `offset` into `buffer`; they lie within Size(), and `size` is not 0.
  // False when not all of them could be read.
  [[nodiscard]] virtual bool ReadAt(std::uint64_t offset, void* buffer, std::size_t size) = 0;
};

enum class LibraryState {
  kUnreadable,  // a read failed, or too much would have had to be read
  kNoLibrary,   // a loader refuses it, whoever asks (ERROR_BAD_EXE_FORMAT)
  kLibrary,     // a process of its machine and bitness can load it, as far as the file tells
};

enum class LibraryFormat { kNone, kPe, kElf };

enum class LibraryMachine { kOther, kX86, kX64, kArm64 };

struct LibraryHeader {
  LibraryState state = LibraryState::kNoLibrary;
  // What is wrong with what is no kLibrary, as "it ends within its headers"; empty otherwise.
  std::string_view problem;
  // These stay as they are here where it is no kLibrary. ARM64EC files are x64's by their own word.
  LibraryFormat format = LibraryFormat::kNone;
  LibraryMachine machine = LibraryMachine::kOther;
  std::uint16_t machine_number = 0;  // IMAGE_FILE_MACHINE_* or EM_*
  int bitness = 0;                   // 32 or 64
  bool is_program = false;           // a PE file without IMAGE_FILE_DLL; it can be loaded, too
};

struct Export {
  enum class State { kMissing, kThere, kUnknown };  // unknown: as LibraryState::kUnreadable

  State state = State::kMissing;
  // "OTHER.Function" or "OTHER.#7", as it stands there, where the loader is sent to another
  // library; whether that has it is not known. Cut at 256 bytes.
  std::string forwarder;

  bool operator==(const Export&) const = default;
};

// Reads of a file what it is asked for, when it is asked. At most 64 MiB are read in its life;
// small reads, and looking through a file's own tables, count as more than they are, so that time
// is bounded too. Holds a few MiB at most. Not for several threads at once. The functions throw
// std::bad_alloc when memory runs out.
class LibraryFile {
 public:
  // `source` must outlive it.
  explicit LibraryFile(ByteSource& source);
  ~LibraryFile();
  LibraryFile(const LibraryFile&) = delete;
  LibraryFile& operator=(const LibraryFile&) = delete;

  [[nodiscard]] const LibraryHeader& Header() const { return header_; }

  // Whether the system's loader would find `name`, an 8-bit name that is exactly that: a decorated
  // one ("FreeProws@4") is another name. A table is searched as the loader does it: a PE file's by
  // bisection even where it is not sorted, an ELF file's through its hash table. Nothing but a
  // kLibrary has anything.
  [[nodiscard]] Export Find(std::string_view name);

 private:
  struct Contents;

  std::unique_ptr<Contents> contents_;
  LibraryHeader header_;
};

}  // namespace zentpost::doctor
