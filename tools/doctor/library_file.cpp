#include "tools/doctor/library_file.h"

#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

namespace zentpost::doctor {
namespace {

constexpr std::uint64_t kPage = 0x1000;
constexpr std::uint64_t kMostWork = 64U << 20U;
constexpr std::uint64_t kWorkOfALookUp = kPage;  // what the system reads for it
constexpr std::size_t kLongestForwarder = 256;

constexpr std::string_view kUnreadable = "it could not be read";
constexpr std::string_view kEndsInHeaders = "it ends within its headers";
constexpr std::string_view kEndsInImage = "it ends before what is loaded of it";

// The little-endian number of `size` bytes at `offset`, which lie within `bytes`.
std::uint64_t Number(std::string_view bytes, std::size_t offset, std::size_t size) {
  std::uint64_t number = 0;
  for (std::size_t i = size; i > 0; --i) {
    number = number << 8U | static_cast<unsigned char>(bytes[offset + i - 1]);
  }
  return number;
}

// The file, until it costs too much.
class Reader {
 public:
  explicit Reader(ByteSource& source) : source_(source), size_(source.Size()) {}

  [[nodiscard]] std::uint64_t Size() const { return size_; }
  // Whether something was not told since the last time that this was asked.
  [[nodiscard]] bool GaveUp() { return std::exchange(gave_up_, false); }

  bool Spend(std::uint64_t work) {
    if (work > work_left_) {
      gave_up_ = true;
      return false;
    }
    work_left_ -= work;
    return true;
  }

  // Nothing where the file does not have all of them.
  std::optional<std::string> Read(std::uint64_t offset, std::uint64_t size) {
    if (offset > size_ || size > size_ - offset || !Spend(size)) {
      return std::nullopt;
    }
    std::string bytes(static_cast<std::size_t>(size), '\0');
    if (size != 0 && !source_.ReadAt(offset, bytes.data(), bytes.size())) {
      gave_up_ = true;
      return std::nullopt;
    }
    return bytes;
  }

 private:
  ByteSource& source_;
  std::uint64_t size_;
  std::uint64_t work_left_ = kMostWork;
  bool gave_up_ = false;
};

// A part of the file as a loader lays it into memory: `file_size` bytes of it, then zeros.
struct Piece {
  std::uint64_t address;  // from the start of the image on
  std::uint64_t size;
  std::uint64_t offset;
  std::uint64_t file_size;  // at most `size`, all within the file
};

// What a loader makes of the file.
class Image {
 public:
  explicit Image(ByteSource& source) : file_(source) {}

  [[nodiscard]] Reader& File() { return file_; }
  // Of pieces that overlap the first counts.
  void Add(const Piece& piece) { pieces_.push_back(piece); }

  // Fewer than `size` bytes where the image ends before.
  std::string ReadSome(std::uint64_t address, std::size_t size) {
    std::string bytes;
    while (bytes.size() < size) {
      const Piece* piece = Find(address + bytes.size());
      if (piece == nullptr) {
        break;
      }
      const std::uint64_t start = address + bytes.size() - piece->address;
      const auto count = std::min<std::uint64_t>(size - bytes.size(), piece->size - start);
      const auto in_file = std::min(count, piece->file_size - std::min(start, piece->file_size));
      if (in_file != 0) {
        const auto part = file_.Read(piece->offset + start, in_file);
        if (!part) {
          break;
        }
        bytes += *part;
      }
      bytes.append(static_cast<std::size_t>(count - in_file), '\0');
    }
    return bytes;
  }

  std::optional<std::string> Read(std::uint64_t address, std::size_t size) {
    std::string bytes = ReadSome(address, size);
    return bytes.size() == size ? std::optional(std::move(bytes)) : std::nullopt;
  }

  std::optional<std::uint64_t> ReadNumber(std::uint64_t address, std::size_t size) {
    const auto bytes = Read(address, size);
    return bytes ? std::optional(Number(*bytes, 0, size)) : std::nullopt;
  }

  // A zero-terminated text, of which no more than `longest` bytes are looked at. Nothing where the
  // image ends before.
  std::optional<std::string> ReadText(std::uint64_t address, std::size_t longest) {
    std::string text = ReadSome(address, longest);
    const std::size_t end = text.find('\0');
    if (end == std::string::npos && text.size() < longest) {
      return std::nullopt;
    }
    text.resize(std::min(end, text.size()));
    return text;
  }

 private:
  const Piece* Find(std::uint64_t address) {
    if (!file_.Spend(kWorkOfALookUp + pieces_.size())) {
      return nullptr;
    }
    const auto piece = std::find_if(pieces_.begin(), pieces_.end(), [&](const Piece& candidate) {
      return address >= candidate.address && address - candidate.address < candidate.size;
    });
    return piece == pieces_.end() ? nullptr : &*piece;
  }

  Reader file_;
  std::vector<Piece> pieces_;
};

// IMAGE_DATA_DIRECTORY of the exports; without an address there are none.
struct PeExports {
  std::uint64_t address = 0;
  std::uint64_t size = 0;
};

LibraryMachine PeMachine(std::uint64_t number) {
  switch (number) {
    case 0x014C:  // IMAGE_FILE_MACHINE_I386
      return LibraryMachine::kX86;
    case 0x8664:  // IMAGE_FILE_MACHINE_AMD64
      return LibraryMachine::kX64;
    case 0xAA64:  // IMAGE_FILE_MACHINE_ARM64
      return LibraryMachine::kArm64;
    default:
      return LibraryMachine::kOther;
  }
}

// Adds the sections at `table` (IMAGE_SECTION_HEADER) to the image; gives what is wrong.
std::string_view AddSections(Image& image, std::uint64_t table, std::uint64_t count, bool is_flat) {
  constexpr std::size_t kSize = 40;
  constexpr std::uint64_t kSector = 0x200;  // sections begin on one, whatever their headers say
  Reader& file = image.File();
  const auto headers = file.Read(table, count * kSize);
  if (!headers) {
    return kEndsInHeaders;
  }
  for (std::size_t at = 0; at < headers->size(); at += kSize) {
    const std::uint64_t virtual_size = Number(*headers, at + 8, 4);
    const std::uint64_t address = Number(*headers, at + 12, 4);
    const std::uint64_t raw_size = Number(*headers, at + 16, 4);
    const std::uint64_t raw = Number(*headers, at + 20, 4);
    const std::uint64_t used = virtual_size != 0 ? virtual_size : raw_size;
    const std::uint64_t size = (used + kPage - 1) / kPage * kPage;
    const std::uint64_t offset = raw / kSector * kSector;
    const std::uint64_t in_file = raw != 0 ? std::min(raw_size, size) : 0;
    if (in_file != 0 && offset + in_file > file.Size()) {
      return kEndsInImage;
    }
    if (!is_flat) {
      image.Add({address, size, offset, in_file});
    }
  }
  return {};
}

// Gives what is wrong with the file; nothing: a loader may take it. Only what no Windows loads is
// wrong, so that nothing is called broken here that works there.
std::string_view ReadPe(Image& image, LibraryHeader& header, PeExports& exports) {
  Reader& file = image.File();
  const auto dos = file.Read(0, 64);  // IMAGE_DOS_HEADER
  if (!dos) {
    return kEndsInHeaders;
  }
  const std::uint64_t start = Number(*dos, 0x3C, 4);
  const auto fixed = file.Read(start, 26);  // signature, IMAGE_FILE_HEADER, Magic
  using namespace std::string_view_literals;
  if (!fixed || fixed->substr(0, 4) != "PE\0\0"sv) {
    return "it has no PE header";
  }
  const std::uint64_t machine_number = Number(*fixed, 4, 2);
  const std::uint64_t section_count = Number(*fixed, 6, 2);
  const std::uint64_t optional_size = Number(*fixed, 20, 2);
  const std::uint64_t characteristics = Number(*fixed, 22, 2);
  const std::uint64_t magic = Number(*fixed, 24, 2);

  const LibraryMachine machine = PeMachine(machine_number);
  const bool is_wide = magic == 0x20B;  // IMAGE_NT_OPTIONAL_HDR64_MAGIC
  if ((!is_wide && magic != 0x10B) ||   // IMAGE_NT_OPTIONAL_HDR32_MAGIC
      (is_wide && machine == LibraryMachine::kX86) ||
      (!is_wide && (machine == LibraryMachine::kX64 || machine == LibraryMachine::kArm64))) {
    return "its optional header does not fit its machine";
  }
  if ((characteristics & 0x0002U) == 0) {  // IMAGE_FILE_EXECUTABLE_IMAGE
    return "it is not marked as executable";
  }
  // Whatever size it claims, the loader reads all of it.
  const auto optional = file.Read(start + 24, is_wide ? 240 : 224);
  if (!optional) {
    return kEndsInHeaders;
  }
  const std::uint64_t section_alignment = Number(*optional, 32, 4);
  const std::uint64_t file_alignment = Number(*optional, 36, 4);
  const std::uint64_t image_size = Number(*optional, 56, 4);
  const std::uint64_t headers_size = Number(*optional, 60, 4);
  if (section_alignment < file_alignment) {
    return "its sections are aligned too little";
  }
  if (image_size == 0) {
    return "it takes no memory";
  }
  // With sections that are less than a page apart the file is laid into memory as it is.
  const bool is_flat = section_alignment < kPage;
  const std::string_view problem =
      AddSections(image, start + 24 + optional_size, section_count, is_flat);
  if (!problem.empty()) {
    return problem;
  }
  const std::uint64_t head = is_flat ? image_size : headers_size;
  image.Add({0, head, 0, std::min(head, file.Size())});

  const std::size_t directories = is_wide ? 112 : 96;
  if (Number(*optional, directories - 4, 4) != 0) {  // NumberOfRvaAndSizes
    exports.address = Number(*optional, directories, 4);
    exports.size = Number(*optional, directories + 4, 4);
  }
  header.format = LibraryFormat::kPe;
  header.machine = machine;
  header.machine_number = static_cast<std::uint16_t>(machine_number);
  header.bitness = is_wide ? 64 : 32;
  header.is_program = (characteristics & 0x2000U) == 0;  // IMAGE_FILE_DLL
  return {};
}

// The place of `name` in the table of names, by the loader's own bisection.
std::optional<std::uint64_t> PeNameIndex(Image& image, std::uint64_t names, std::uint64_t count,
                                         std::string_view name) {
  std::uint64_t low = 0;
  std::uint64_t high = count;  // behind the last one
  while (low < high) {
    const std::uint64_t middle = low + (high - 1 - low) / 2;
    const auto address = image.ReadNumber(names + middle * 4, 4);
    const auto entry = address ? image.ReadText(*address, name.size() + 1) : std::nullopt;
    if (!entry) {
      return std::nullopt;
    }
    const int order = entry->compare(name);
    if (order == 0) {
      return middle;
    }
    if (order < 0) {
      low = middle + 1;
    } else {
      high = middle;
    }
  }
  return std::nullopt;
}

Export FindInPe(Image& image, const PeExports& exports, std::string_view name) {
  if (exports.address == 0) {
    return {};
  }
  const auto table = image.Read(exports.address, 40);  // IMAGE_EXPORT_DIRECTORY
  if (!table) {
    return {};
  }
  const std::uint64_t function_count = Number(*table, 20, 4);
  const std::uint64_t name_count = Number(*table, 24, 4);
  const std::uint64_t functions = Number(*table, 28, 4);
  const std::uint64_t names = Number(*table, 32, 4);
  const std::uint64_t ordinals = Number(*table, 36, 4);
  const auto index = PeNameIndex(image, names, name_count, name);
  const auto ordinal = index ? image.ReadNumber(ordinals + *index * 2, 2) : std::nullopt;
  if (!ordinal || *ordinal >= function_count) {
    return {};
  }
  const std::uint64_t address = image.ReadNumber(functions + *ordinal * 4, 4).value_or(0);
  if (address == 0) {
    return {};
  }
  // What lies among the exports themselves is no function, but the name of another one.
  if (address < exports.address || address - exports.address >= exports.size) {
    return {Export::State::kThere, {}};
  }
  auto forwarder = image.ReadText(address, kLongestForwarder);
  return forwarder ? Export{Export::State::kThere, std::move(*forwarder)} : Export{};
}

// Addresses of the tables that the dynamic section names; 0: there is none.
struct ElfSymbols {
  std::size_t word = 0;  // bytes of an address
  std::uint64_t symbols = 0;
  std::uint64_t strings = 0;
  std::uint64_t gnu_hash = 0;
  std::uint64_t hash = 0;
};

LibraryMachine ElfMachine(std::uint64_t number) {
  switch (number) {
    case 3:  // EM_386
      return LibraryMachine::kX86;
    case 62:  // EM_X86_64
      return LibraryMachine::kX64;
    case 183:  // EM_AARCH64
      return LibraryMachine::kArm64;
    default:
      return LibraryMachine::kOther;
  }
}

// Reads the dynamic section (Elf32_Dyn, Elf64_Dyn); gives what is wrong.
std::string_view ReadDynamic(Image& image, std::uint64_t address, std::uint64_t size,
                             ElfSymbols& symbols) {
  constexpr std::uint64_t kMostBytes = 0x10000;  // for thousands of entries; there are dozens
  const std::size_t word = symbols.word;
  const std::string entries =
      image.ReadSome(address, static_cast<std::size_t>(std::min(size, kMostBytes)));
  for (std::size_t at = 0; entries.size() - at >= 2 * word; at += 2 * word) {
    const std::uint64_t value = Number(entries, at + word, word);
    switch (Number(entries, at, word)) {
      case 0:  // DT_NULL
        return {};
      case 4:  // DT_HASH
        symbols.hash = value;
        break;
      case 5:  // DT_STRTAB
        symbols.strings = value;
        break;
      case 6:  // DT_SYMTAB
        symbols.symbols = value;
        break;
      case 0x6FFFFEF5:  // DT_GNU_HASH
        symbols.gnu_hash = value;
        break;
      case 0x6FFFFFFB:                     // DT_FLAGS_1
        if ((value & 0x08000000U) != 0) {  // DF_1_PIE
          return "it is a program";
        }
        break;
      default:
        break;
    }
  }
  return {};
}

// Gives what is wrong with the file; nothing: the loader may take it.
std::string_view ReadElf(Image& image, LibraryHeader& header, ElfSymbols& symbols) {
  Reader& file = image.File();
  const auto identity = file.Read(0, 16);  // e_ident
  if (!identity) {
    return kEndsInHeaders;
  }
  const std::uint64_t elf_class = Number(*identity, 4, 1);
  const bool is_wide = elf_class == 2;  // ELFCLASS64
  if ((!is_wide && elf_class != 1) ||   // ELFCLASS32
      Number(*identity, 5, 1) != 1 ||   // ELFDATA2LSB
      Number(*identity, 6, 1) != 1) {   // EV_CURRENT
    return "it is of an unknown kind of ELF";
  }
  const std::size_t word = symbols.word = is_wide ? 8 : 4;
  const auto fixed = file.Read(0, is_wide ? 64 : 52);  // Elf64_Ehdr, Elf32_Ehdr
  if (!fixed) {
    return kEndsInHeaders;
  }
  if (Number(*fixed, 16, 2) != 3) {  // ET_DYN
    return "it is no shared object";
  }
  const std::size_t entry_size = is_wide ? 56 : 32;  // Elf64_Phdr, Elf32_Phdr
  if (Number(*fixed, is_wide ? 54 : 42, 2) != entry_size) {
    return "its program headers have another size";
  }
  const std::uint64_t count = Number(*fixed, is_wide ? 56 : 44, 2);
  const auto entries = file.Read(Number(*fixed, 24 + word, word), count * entry_size);
  if (!entries) {
    return kEndsInHeaders;
  }
  bool is_loaded = false;
  std::optional<std::size_t> dynamic;
  for (std::size_t at = 0; at < entries->size(); at += entry_size) {
    const std::uint64_t type = Number(*entries, at, 4);
    if (type == 2) {  // PT_DYNAMIC
      dynamic = at;
    }
    if (type == 1) {  // PT_LOAD
      const std::uint64_t offset = Number(*entries, at + word, word);
      const std::uint64_t file_size = Number(*entries, at + 4 * word, word);
      const std::uint64_t size = Number(*entries, at + 5 * word, word);
      if (offset > file.Size() || file_size > file.Size() - offset) {
        return kEndsInImage;
      }
      image.Add({Number(*entries, at + 2 * word, word), size, offset, std::min(size, file_size)});
      is_loaded = true;
    }
  }
  if (!is_loaded || !dynamic) {
    return "it has nothing to be loaded";
  }
  header.format = LibraryFormat::kElf;
  header.machine_number = static_cast<std::uint16_t>(Number(*fixed, 18, 2));
  header.machine = ElfMachine(header.machine_number);
  header.bitness = is_wide ? 64 : 32;
  return ReadDynamic(image, Number(*entries, *dynamic + 2 * word, word),
                     Number(*entries, *dynamic + 5 * word, word), symbols);
}

// Whether the symbol of this number is the function or object `name` for others.
bool IsExported(Image& image, const ElfSymbols& tables, std::uint64_t number,
                std::string_view name) {
  const bool is_wide = tables.word == 8;
  const std::size_t size = is_wide ? 24 : 16;  // Elf64_Sym, Elf32_Sym
  const auto symbol = image.Read(tables.symbols + number * size, size);
  if (!symbol) {
    return false;
  }
  const std::size_t info = is_wide ? 4 : 12;
  const std::uint64_t binding = Number(*symbol, info, 1) >> 4U;
  const std::uint64_t visibility = Number(*symbol, info + 1, 1) & 3U;
  const bool is_defined = Number(*symbol, info + 2, 2) != 0;             // SHN_UNDEF
  const bool is_global = binding == 1 || binding == 2 || binding == 10;  // and weak, and unique
  const bool is_visible = visibility == 0 || visibility == 3;  // STV_DEFAULT, STV_PROTECTED
  return is_defined && is_global && is_visible &&
         image.ReadText(tables.strings + Number(*symbol, 0, 4), name.size() + 1) == name;
}

// Through DT_GNU_HASH. Its filter only spares work, and is left out.
bool FindByGnuHash(Image& image, const ElfSymbols& tables, std::string_view name) {
  std::uint32_t hash = 5381;
  for (const char character : name) {
    hash = hash * 33 + static_cast<unsigned char>(character);
  }
  const auto head = image.Read(tables.gnu_hash, 16);
  if (!head || Number(*head, 0, 4) == 0) {
    return false;
  }
  const std::uint64_t bucket_count = Number(*head, 0, 4);
  const std::uint64_t first_symbol = Number(*head, 4, 4);
  const std::uint64_t buckets = tables.gnu_hash + 16 + Number(*head, 8, 4) * tables.word;
  const std::uint64_t chains = buckets + bucket_count * 4;
  const auto first = image.ReadNumber(buckets + hash % bucket_count * 4, 4);
  if (!first || *first == 0 || *first < first_symbol) {
    return false;
  }
  for (std::uint64_t number = *first;; ++number) {
    const auto entry = image.ReadNumber(chains + (number - first_symbol) * 4, 4);
    if (!entry) {
      return false;
    }
    if (((*entry ^ hash) >> 1U) == 0 && IsExported(image, tables, number, name)) {
      return true;
    }
    if ((*entry & 1U) != 0) {
      return false;
    }
  }
}

// Through DT_HASH. What goes round in circles ends when too much has been read.
bool FindByHash(Image& image, const ElfSymbols& tables, std::string_view name) {
  std::uint32_t hash = 0;
  for (const char character : name) {
    hash = (hash << 4U) + static_cast<unsigned char>(character);
    const std::uint32_t high = hash & 0xF0000000U;
    hash = (hash ^ high >> 24U) & ~high;
  }
  const std::uint64_t bucket_count = image.ReadNumber(tables.hash, 4).value_or(0);
  if (bucket_count == 0) {
    return false;
  }
  const std::uint64_t buckets = tables.hash + 8;
  const std::uint64_t chains = buckets + bucket_count * 4;
  auto number = image.ReadNumber(buckets + hash % bucket_count * 4, 4);
  while (number && *number != 0) {
    if (IsExported(image, tables, *number, name)) {
      return true;
    }
    number = image.ReadNumber(chains + *number * 4, 4);
  }
  return false;
}

Export FindInElf(Image& image, const ElfSymbols& tables, std::string_view name) {
  if (tables.symbols == 0 || tables.strings == 0) {
    return {};
  }
  const bool is_there = tables.gnu_hash != 0 ? FindByGnuHash(image, tables, name)
                                             : tables.hash != 0 && FindByHash(image, tables, name);
  return {is_there ? Export::State::kThere : Export::State::kMissing, {}};
}

}  // namespace

struct LibraryFile::Contents {
  explicit Contents(ByteSource& source) : image(source) {}

  Image image;
  PeExports pe;
  ElfSymbols elf;
};

LibraryFile::LibraryFile(ByteSource& source) : contents_(std::make_unique<Contents>(source)) {
  Image& image = contents_->image;
  LibraryHeader header;
  const std::uint64_t size = image.File().Size();
  const std::string start = image.File().Read(0, std::min<std::uint64_t>(size, 4)).value_or("");
  if (start.substr(0, 2) == "MZ") {
    header.problem = ReadPe(image, header, contents_->pe);
  } else if (start ==
             "\x7F"
             "ELF") {
    header.problem = ReadElf(image, header, contents_->elf);
  } else {
    header.problem = "it is neither a PE nor an ELF file";
  }
  if (image.File().GaveUp()) {
    header_.state = LibraryState::kUnreadable;
    header_.problem = kUnreadable;
  } else if (!header.problem.empty()) {
    header_.problem = header.problem;
  } else {
    header_ = header;
    header_.state = LibraryState::kLibrary;
  }
}

LibraryFile::~LibraryFile() = default;

Export LibraryFile::Find(std::string_view name) {
  Export found;
  if (header_.state == LibraryState::kLibrary) {
    found = header_.format == LibraryFormat::kPe
                ? FindInPe(contents_->image, contents_->pe, name)
                : FindInElf(contents_->image, contents_->elf, name);
  }
  return contents_->image.File().GaveUp() ? Export{Export::State::kUnknown, {}} : found;
}

}  // namespace zentpost::doctor
