#include "tools/sandbox_mapi/library.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <fstream>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

#include "tools/sandbox_mapi/eml.h"
#include "tools/sandbox_mapi/system.h"
#include "tools/sandbox_mapi/text.h"

namespace zentpost::sandbox_mapi {
namespace {

namespace fs = std::filesystem;

// As an address it is in memory that no system hands out: whoever follows it ends at once. What is
// to be freed there is a finding.
constexpr std::uint64_t kGarbage = 0xDEAD;

Library* g_library = nullptr;
std::mutex g_mutex;

// Runs when the process ends or the library is unloaded.
struct AtEnd {
  ~AtEnd() {
    // Who still holds the lock now was ended in the middle of a call.
    const std::unique_lock lock(g_mutex, std::try_to_lock);
    if (g_library != nullptr) {
      g_library->Report();
      delete std::exchange(g_library, nullptr);
    }
  }
} g_at_end;

fs::path ChosenFolder() {
  if (const auto folder = EnvironmentVariable("SANDBOX_MAPI_FOLDER")) {
    return Path(*folder);
  }
  if (const auto folder = RegisteredFolder()) {
    return Path(*folder);
  }
  return ModulePath().parent_path() / "Sandbox MAPI";
}

// The orders as JSON text, and where they come from.
std::optional<std::string> ConfigText(const fs::path& folder, std::string& source) {
  if (auto given = EnvironmentVariable("SANDBOX_MAPI_CONFIG")) {
    source = "SANDBOX_MAPI_CONFIG";
    if (given->find_first_not_of(" \t\r\n") == given->find('{')) {
      return given;
    }
    source = *given;
    return ReadFileBytes(Path(*given));
  }
  const fs::path path = folder / "sandbox.json";
  source = PathText(path);
  std::error_code ignored;
  return fs::exists(path, ignored) ? ReadFileBytes(path) : std::optional<std::string>("");
}

// Cut where it would make a line of the report unreadable.
std::string Shortened(std::string text) {
  constexpr std::size_t kMost = 200;
  for (char& c : text) {
    if (static_cast<unsigned char>(c) < 0x20) {
      c = ' ';
    }
  }
  if (text.size() > kMost) {
    text = text.substr(0, kMost) + "...";
  }
  return text;
}

template <class Char>
bool CopyText(const std::basic_string<Char>& text, void* owner, void*& copy) {
  const std::size_t size = (text.size() + 1) * sizeof(Char);
  copy = TheLibrary().accounting.AllocateMore(size, owner);
  if (copy != nullptr) {
    std::memcpy(copy, text.c_str(), size);
  }
  return copy != nullptr;
}

bool Fill(const Property& property, std::uint32_t type, void* owner, SPropValue& value) {
  value.dwAlignPad = 0;
  value.ulPropTag = Tag(IdOf(property.tag), type);
  void* copy = nullptr;
  switch (type) {
    case kBoolean:
      value.Value.b = property.number != 0 ? 1 : 0;
      return true;
    case kUnicode:
      if (!CopyText(property.text, owner, copy)) {
        return false;
      }
      value.Value.lpszW = static_cast<decltype(value.Value.lpszW)>(copy);
      return true;
    case kString8:
      if (!CopyText(Windows1252(property.text), owner, copy)) {
        return false;
      }
      value.Value.lpszA = static_cast<char*>(copy);
      return true;
    case kBinary:
      copy = TheLibrary().accounting.AllocateMore(property.bytes.size(), owner);
      if (copy == nullptr) {
        return false;
      }
      std::memcpy(copy, property.bytes.data(), property.bytes.size());
      value.Value.bin.cb = static_cast<ULONG>(property.bytes.size());
      value.Value.bin.lpb = static_cast<unsigned char*>(copy);
      return true;
    default:
      value.Value.l = static_cast<LONG>(property.number);
      return true;
  }
}

bool IsText(std::uint32_t type) {
  return type == kUnicode || type == kString8;
}

// The type in which a property can be had, kError when not as `wanted`.
std::uint32_t GivenType(const Property& property, std::uint32_t wanted, std::uint32_t text_type) {
  const std::uint32_t type = TypeOf(property.tag);
  if (property.spool) {
    return kError;  // MAPI gives large values through a stream alone.
  }
  if (wanted == 0) {
    return IsText(type) ? text_type : type;
  }
  return wanted == type || (IsText(wanted) && IsText(type)) ? wanted : kError;
}

}  // namespace

Library::Library() : mailbox(ChosenFolder()) {
  std::string source;
  const std::optional<std::string> text = ConfigText(mailbox.Folder(), source);
  std::string error;
  if (!text) {
    config_error = source + ": cannot be read";
  } else if (std::optional<Config> parsed = ParseConfig(*text, error)) {
    config = std::move(*parsed);
  } else {
    config_error = source + ": " + error;
  }
  if (!config_error.empty()) {
    accounting.AddProblem(config_error);
  }
  std::error_code ignored;
  fs::create_directories(mailbox.Folder(), ignored);
  unfinished_report_ =
      mailbox.Folder() / ("report-" + std::to_string(ProcessId()) + ".unfinished.txt");
  // A process that is killed leaves what it has done so far.
  accounting.SetSink([path = unfinished_report_](std::string_view line) {
    std::ofstream(path, std::ios::binary | std::ios::app) << line << '\n';
  });
}

void Library::Report() {
  accounting.SetSink(nullptr);
  const std::string time =
      MailDate(std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()));
  std::string text = "process " + std::to_string(ProcessId()) + " (" +
                     PathText(ProgramPath().filename()) + "), " + time + "\ncalls:\n";
  for (const std::string& line : accounting.Calls()) {
    text += "  " + line + '\n';
  }
  text += "findings:\n";
  const std::vector<std::string> findings = accounting.Findings();
  for (const std::string& line : findings) {
    text += (&line == &findings.back() ? "result: " : "  ") + line + '\n';
  }
  text += '\n';
  // In one piece, since other processes may end at the same time.
  std::ofstream file(mailbox.Folder() / "report.txt", std::ios::binary | std::ios::app);
  file.write(text.data(), static_cast<std::streamsize>(text.size()));
  file.close();
  if (file) {
    std::error_code ignored;
    fs::remove(unfinished_report_, ignored);
  }
}

Library& TheLibrary() {
  const std::lock_guard lock(g_mutex);
  if (g_library == nullptr) {
    g_library = new Library;
  }
  return *g_library;
}

Call::Call(std::string name, const void* object) : name_(std::move(name)), object_(object) {}

Call& Call::Arg(const char* name, const std::string& value) {
  arguments_ += (arguments_.empty() ? "" : ", ") + std::string(name) + '=' + Shortened(value);
  return *this;
}

Call& Call::Hex(const char* name, std::uint64_t value) {
  return Arg(name, sandbox_mapi::Hex(value, 1));
}

Call& Call::Text(const char* name, std::u16string_view value) {
  return Arg(name, '"' + Utf8(value) + '"');
}

Call& Call::Bytes(const char* name, std::string_view entry_id) {
  if (const std::optional<Entry> entry = ReadEntryId(entry_id)) {
    return Arg(name, '"' + entry->name + '"');
  }
  return Arg(name, std::to_string(entry_id.size()) + " bytes");
}

Call& Call::Object(const char* name, const void* object) {
  return Arg(name, TheLibrary().accounting.NameOf(object));
}

bool Call::Fails() {
  Library& library = TheLibrary();
  if (object_ != nullptr && !library.accounting.IsAlive(object_, name_)) {
    failure_ = kInvalidObject;
    return true;
  }
  const std::uint64_t count = library.accounting.Count(name_);
  for (const ConfiguredFailure& failure : library.config.failures) {
    if (failure.call == name_ && (count == failure.at || (failure.from && count > failure.at))) {
      failure_ = Code(failure.code);
      arguments_ += arguments_.empty() ? "as ordered" : ", as ordered";
      return true;
    }
  }
  return false;
}

// "#3 ": which of several objects of one type it is.
std::string Call::NumberOfObject() const {
  const std::string name = object_ != nullptr ? TheLibrary().accounting.NameOf(object_) : "";
  return name.substr(0, name.find(' ') + 1);
}

HRESULT Call::Return(HRESULT result) {
  if (result < 0 && TheLibrary().config.garbage) {
    for (const Place& place : places_) {
      std::memcpy(place.address, &kGarbage, std::min(place.size, sizeof kGarbage));
    }
  }
  Accounting& accounting = TheLibrary().accounting;
  accounting.AddCall(NumberOfObject() + name_ + '(' + arguments_ +
                     ") = " + sandbox_mapi::Hex(static_cast<std::uint32_t>(result)));
  return result;
}

void Call::ReturnNothing() {
  TheLibrary().accounting.AddCall(name_ + '(' + arguments_ + ')');
}

ULONG Call::ReturnCount(ULONG count) {
  Accounting& accounting = TheLibrary().accounting;
  accounting.AddCall(NumberOfObject() + name_ + '(' + arguments_ + ") = " + std::to_string(count));
  return count;
}

bool FromMapi(const SPropValue& value, bool with_bytes, Property& property) {
  property = Property{};
  property.tag = value.ulPropTag;
  switch (TypeOf(value.ulPropTag)) {
    case kLong:
    case kError:
      property.number = value.Value.l;
      return true;
    case kBoolean:
      property.number = value.Value.b != 0 ? 1 : 0;
      return true;
    case kUnicode:
      property.text = FromWide(value.Value.lpszW);
      return value.Value.lpszW != nullptr;
    case kString8:
      property.text =
          FromWindows1252(value.Value.lpszA == nullptr ? std::string_view() : value.Value.lpszA);
      return value.Value.lpszA != nullptr;
    case kBinary:
      if (value.Value.bin.lpb == nullptr && value.Value.bin.cb > 0) {
        return false;
      }
      if (with_bytes) {
        property.bytes = AsBytes(value.Value.bin.lpb, value.Value.bin.cb);
      }
      return true;
    default:
      return false;
  }
}

HRESULT ToMapi(const Properties& properties, const SPropTagArray* tags, std::uint32_t text_type,
               BufferKind kind, ULONG& count, LPSPropValue& values) {
  count = 0;
  values = nullptr;
  const std::size_t wanted = tags != nullptr ? tags->cValues : properties.All().size();
  Accounting& accounting = TheLibrary().accounting;
  void* const block = accounting.Allocate(wanted * sizeof(SPropValue), kind);
  if (block == nullptr) {
    return kNotEnoughMemory;
  }
  auto* const filled = static_cast<LPSPropValue>(block);
  HRESULT result = kOk;
  for (std::size_t i = 0; i < wanted; ++i) {
    const std::uint32_t tag = tags != nullptr ? tags->aulPropTag[i] : properties.All()[i].tag;
    const Property* const property = properties.Find(IdOf(tag));
    const std::uint32_t type =
        property == nullptr ? kError
                            : GivenType(*property, tags != nullptr ? TypeOf(tag) : 0, text_type);
    if (type == kError) {
      filled[i].ulPropTag = Tag(IdOf(tag), kError);
      filled[i].dwAlignPad = 0;
      filled[i].Value.err = property != nullptr && property->spool ? kNotEnoughMemory : kNotFound;
      result = kErrorsReturned;
    } else if (!Fill(*property, type, block, filled[i])) {
      accounting.Free(block);
      return kNotEnoughMemory;
    }
  }
  count = static_cast<ULONG>(wanted);
  values = filled;
  return result;
}

void* CopyToBuffer(std::string_view bytes, BufferKind kind) {
  void* const copy = TheLibrary().accounting.Allocate(bytes.size(), kind);
  if (copy != nullptr && !bytes.empty()) {
    std::memcpy(copy, bytes.data(), bytes.size());
  }
  return copy;
}

HRESULT SendMessageAway(OpenMessage& open) {
  // Without a folder for sent messages a message stays where it was.
  std::string folder = kOutbox;
  if (const Property* const property = open.message.properties.Find(kIdSentMailEntryId)) {
    const std::optional<Entry> entry = ReadEntryId(property->bytes);
    if (!entry || !IsFolder(*entry)) {
      TheLibrary().accounting.AddProblem("PR_SENTMAIL_ENTRYID is the identifier of no folder");
      return kInvalidEntryId;
    }
    folder = entry->name;
  }
  if (!TheLibrary().mailbox.Send(open.message, folder)) {
    return kDiskError;
  }
  open.is_sent = true;
  return kOk;
}

}  // namespace zentpost::sandbox_mapi
