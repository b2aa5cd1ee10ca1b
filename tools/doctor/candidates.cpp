#include "tools/doctor/candidates.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <memory>
#include <string_view>
#include <utility>

#include "app/registry_names.h"
#include "diag/error_texts.h"
#include "fake_mapi/functions.h"
#include "mapiload/discovery.h"
#include "platform/memory_failure.h"
#include "platform/module_path.h"
#include "platform/reading.h"
#include "tools/doctor/library_file.h"
#include "tools/doctor/seen_text.h"
#include "tools/doctor/system_libraries.h"

namespace zentpost::doctor {
namespace {

namespace reading = platform::reading;
using platform::Status;

// Published in winerror.h: ERROR_BAD_EXE_FORMAT.
constexpr Status kNoLibraryOfOurs = 193;

class FileOnDisk : public ByteSource {
 public:
  explicit FileOnDisk(const std::u16string& path)
      : status_(platform::ThrowWithoutMemory(reading::LookBeforeOpening(path))) {
    if (status_ == platform::kSuccess) {
      status_ =
          platform::ThrowWithoutMemory(reading::OpenFileAt(path, reading::Sharing::kAll, file_));
    }
    if (status_ == platform::kSuccess) {
      status_ = reading::QueryFileSize(file_.Get(), size_);
    }
  }

  [[nodiscard]] Status Opening() const { return status_; }
  [[nodiscard]] std::uint64_t Size() const override { return size_; }
  [[nodiscard]] bool ReadAt(std::uint64_t offset, void* buffer, std::size_t size) override {
    std::size_t count = 0;
    return reading::ReadBytesAt(file_.Get(), offset, buffer, size, count) == platform::kSuccess &&
           count == size;
  }

 private:
  reading::File file_;
  std::uint64_t size_ = 0;
  Status status_;
};

// A library's file, and what reads it.
struct OpenedLibrary {
  explicit OpenedLibrary(const std::u16string& path) : source(path), library(source) {}

  FileOnDisk source;
  LibraryFile library;
};

bool IsOurs(const LibraryHeader& header) {
  const LibraryMachine machine = sizeof(void*) == 8 ? LibraryMachine::kX64 : LibraryMachine::kX86;
  return header.machine == machine;
}

// Whether this system has libraries of that kind at all.
bool IsOfThisSystem(const LibraryHeader& header) {
  reading::Process process;
  static_cast<void>(platform::ThrowWithoutMemory(reading::DescribeProcess(process)));
  return header.format == (process.loads_elf ? LibraryFormat::kElf : LibraryFormat::kPe);
}

// Whether a job needs the function; an ordinary one shows no message.
bool IsNeeded(std::string_view name, bool is_shown) {
  constexpr std::string_view kNeeded[] = {"MAPIInitialize", "MAPILogonEx", "HrQueryAllRows",
                                          "MAPIAllocateBuffer"};
  return std::find(std::begin(kNeeded), std::end(kNeeded), name) != std::end(kNeeded) ||
         (is_shown && name == "MAPIOpenFormMgr");
}

bool LiesIn(const std::u16string& path, const std::u16string& folder) {
  std::u16string key;
  std::u16string folder_key;
  if (platform::ThrowWithoutMemory(reading::PathKey(path, key)) != platform::kSuccess ||
      platform::ThrowWithoutMemory(reading::PathKey(folder, folder_key)) != platform::kSuccess) {
    return false;
  }
  while (folder_key.ends_with(u'\\') || folder_key.ends_with(u'/')) {
    folder_key.pop_back();
  }
  return key.size() > folder_key.size() && key.starts_with(folder_key) &&
         (key[folder_key.size()] == u'\\' || key[folder_key.size()] == u'/');
}

constexpr std::string_view kSystemSource = "system";

// A candidate before its file is looked at; without a path where the installer does not tell it.
struct Entry {
  std::string_view source;
  std::optional<std::u16string> path;
};

// What GetMapiCandidatePaths gives, in its order and found by its own parts, each with where it is
// from; and in between what nobody tells without installing.
std::vector<Entry> AllEntries() {
  std::vector<Entry> entries;
  const auto add = [&](std::string_view source, std::u16string path) {
    const UnknownComponents unknown = TakeUnknownComponents();
    // One component may be unknown, and another one known that stands behind it.
    if (unknown.is_outlook || unknown.is_mail_client) {
      entries.push_back({source, std::nullopt});
    }
    if (!path.empty()) {
      path.resize(std::min(path.size(), path.find(u'\0')));  // it may be padded
      entries.push_back({source, std::move(path)});
    }
  };
  static_cast<void>(TakeUnknownComponents());  // those of a rehearsal before
  const platform::RegistryKey client = GetHKeyMapiClient(u"");
  add("DllPathEx", RegQueryWszExpand(client, registry::kExtendedLibrary));
  for (const char16_t* const category : OutlookComponentIds) {
    add("installer", GetInstalledOutlookMAPI(category));
  }
  add("DllPath", RegQueryWszExpand(client, registry::kLibrary));
  add("MSI", GetMailClientFromMSIData(client));
  add(kSystemSource, GetSystemMapiPath());
  return entries;
}

// "it lacks MAPIInitialize, MAPILogonEx".
std::u16string MissingText(const LibraryFinding& library) {
  std::u16string text;
  for (const std::string& name : library.missing) {
    text.append(text.empty() ? u"it lacks " : u", ").append(Widened(name));
  }
  const bool has_one = library.missing.size() == kMapiFunctions.size() - 1 &&
                       std::find(library.missing.begin(), library.missing.end(),
                                 "MAPIFreeBuffer") == library.missing.end();
  return library.has_simple_mapi && has_one ? u"Simple MAPI only: " + text : text;
}

// The tool asks for the function only when the document is attached already.
bool LacksTheWindowAlone(const LibraryFinding& library) {
  return std::none_of(library.missing.begin(), library.missing.end(),
                      [](const std::string& name) { return IsNeeded(name, false); });
}

// Whether somebody has written the path down; the system's own library may always be missing.
bool IsRegistered(const FoundCandidate& candidate) {
  return candidate.reported.source != kSystemSource &&
         !candidate.reported.path.value_or(u"").empty();
}

// Why a candidate's place is unusual; empty when it is not.
std::u16string UnusualPlace(const FoundCandidate& candidate) {
  const std::u16string path = candidate.reported.path.value_or(u"");
  std::u16string complete;
  if (path.find_first_of(u"\\/:") == path.npos) {
    complete = candidate.library.file;  // where the loader finds a bare name
  } else if (platform::ThrowWithoutMemory(reading::CompletePath(path, complete)) !=
                 platform::kSuccess ||
             complete != path) {
    return u"the path is relative";
  }
  reading::Process process;
  static_cast<void>(platform::ThrowWithoutMemory(reading::DescribeProcess(process)));
  for (const std::u16string& folder : process.users_folders) {
    if (!complete.empty() && LiesIn(complete, folder)) {
      return u"it lies in " + folder;
    }
  }
  return {};
}

}  // namespace

LibraryFinding LookAtLibrary(const std::u16string& path, bool is_shown) {
  LibraryFinding finding;
  const Status found = platform::ThrowWithoutMemory(reading::FindLibrary(path, finding.file));
  if (found != platform::kSuccess) {
    return finding;
  }
  finding.state = CandidateState::kMissing;
  if (finding.file.empty()) {
    return finding;
  }
  OpenedLibrary opened(finding.file);
  finding.opening = opened.source.Opening();
  if (finding.opening != platform::kSuccess) {
    return finding;
  }
  const LibraryHeader& header = opened.library.Header();
  if (header.state != LibraryState::kLibrary) {
    finding.state = header.state == LibraryState::kNoLibrary ? CandidateState::kNoLibrary
                                                             : CandidateState::kUnknown;
    finding.status = kNoLibraryOfOurs;
    return finding;
  }
  if (!IsOfThisSystem(header)) {
    finding.state = CandidateState::kNoLibrary;
    finding.status = kNoLibraryOfOurs;
    return finding;
  }
  finding.bitness = header.bitness;
  finding.is_foreign =
      header.machine != LibraryMachine::kX86 && header.machine != LibraryMachine::kX64;
  const bool may_be_decorated = header.machine == LibraryMachine::kX86;
  bool is_readable = true;
  const auto has = [&](const char* name) {
    const Export::State state = opened.library.Find(name).state;
    is_readable = is_readable && state != Export::State::kUnknown;
    return state != Export::State::kMissing;
  };
  for (const MapiFunction& function : kMapiFunctions) {
    if (!has(function.name) && !(may_be_decorated && has(function.decorated))) {
      finding.missing.emplace_back(function.name);
    }
  }
  if (!IsOurs(header)) {
    finding.state = CandidateState::kOtherBitness;
    finding.status = kNoLibraryOfOurs;
    return finding;
  }
  finding.has_simple_mapi = has("MAPISendMail");
  if (!is_readable) {
    finding.state = CandidateState::kUnknown;
    finding.status = kNoLibraryOfOurs;
    return finding;
  }
  finding.status = platform::kSuccess;
  const bool lacks = std::any_of(finding.missing.begin(), finding.missing.end(),
                                 [&](const std::string& name) { return IsNeeded(name, is_shown); });
  finding.state = lacks ? CandidateState::kLacksExports : CandidateState::kUsable;
  return finding;
}

platform::rehearsal::Library LoadForRehearsal(const std::u16string& path) {
  if (auto system_library = SystemLibrary(path)) {
    return *std::move(system_library);
  }
  platform::rehearsal::Library library;
  const LibraryFinding finding = LookAtLibrary(path, false);
  library.status = finding.status;
  if (library.status == platform::kSuccess) {
    auto opened = std::make_shared<OpenedLibrary>(finding.file);
    library.find = [opened = std::move(opened), functions = fake_mapi::Functions()](
                       std::string_view name) -> platform::Procedure {
      if (opened->library.Find(name).state == Export::State::kMissing) {
        return nullptr;
      }
      if (name == "FGetComponentPath") {
        return UnknownComponentPath();
      }
      // A linker's own name for a function has the bytes of its arguments behind it.
      const auto function = functions.find(std::string(name.substr(0, name.find('@'))));
      return function != functions.end() ? function->second : nullptr;
    };
  }
  return library;
}

std::vector<FoundCandidate> FindCandidates(bool is_shown) {
  std::vector<FoundCandidate> found;
  for (const Entry& entry : AllEntries()) {
    FoundCandidate candidate;
    candidate.reported.path = entry.path;
    candidate.reported.source = entry.source;
    if (entry.path) {
      candidate.library.state = CandidateState::kMissing;
      if (platform::NamesAFile(*entry.path)) {
        candidate.library = LookAtLibrary(*entry.path, is_shown);
      }
    }
    candidate.reported.state = candidate.library.state;
    if (candidate.library.state == CandidateState::kUnknown) {
      candidate.untold = std::exchange(candidate.reported.path, std::nullopt).value_or(u"");
    }
    if (candidate.library.bitness != 0) {
      candidate.reported.bitness = candidate.library.bitness;
      candidate.reported.exports =
          static_cast<int>(kMapiFunctions.size() - candidate.library.missing.size());
      candidate.reported.missing_exports = candidate.library.missing;
    }
    found.push_back(std::move(candidate));
  }
  return found;
}

const FoundCandidate* Taken(const std::vector<FoundCandidate>& candidates) {
  const auto taken = std::find_if(candidates.begin(), candidates.end(),
                                  [](const FoundCandidate& each) { return each.library.Loads(); });
  return taken == candidates.end() ? nullptr : &*taken;
}

void AddLibraryFindings(const std::vector<FoundCandidate>& candidates, bool is_taken_by_addin,
                        std::vector<Finding>& findings) {
  const FoundCandidate* const taken = Taken(candidates);
  const bool is_usable = taken != nullptr && taken->library.state == CandidateState::kUsable;
  const auto add = [&](std::string_view code, bool is_error, const FoundCandidate& candidate,
                       std::u16string_view text) {
    const bool stands_in_the_way = is_error && !is_taken_by_addin;
    AddFinding(
        findings, code, stands_in_the_way ? Severity::kError : Severity::kWarning,
        {*candidate.reported.path + u" (" + Widened(candidate.reported.source) + u")", text});
  };
  for (const FoundCandidate& candidate : candidates) {
    const LibraryFinding& library = candidate.library;
    const bool is_behind = taken != nullptr && &candidate > taken;
    if (library.state == CandidateState::kOtherBitness && !is_behind) {
      add("D13", !is_usable, candidate,
          library.is_foreign
              ? u"it is a library for another processor, such as ARM64"
              : u"it is a " + Number(static_cast<unsigned>(library.bitness)) + u"-bit library");
    }
    if (library.Loads() && !library.missing.empty()) {
      const bool is_needed = library.state == CandidateState::kLacksExports;
      add("D14", is_needed && &candidate == taken, candidate, MissingText(library));
      if (is_needed && &candidate == taken && LacksTheWindowAlone(library)) {
        findings.back().seen.emplace_back(
            u"the message cannot be shown, and the document is deleted all the same");
      }
    }
    if (library.state == CandidateState::kMissing && IsRegistered(candidate)) {
      const Status opening = library.opening;
      const bool is_there = opening != platform::kSuccess && opening != platform::kFileNotFound &&
                            opening != platform::kPathNotFound;
      add("D15", false, candidate,
          is_there ? u"it cannot be opened: " + GetErrorText(opening) : u"there is no such file");
    }
    if (const std::u16string place = UnusualPlace(candidate); !place.empty()) {
      add("D21", false, candidate, place);
    }
  }
  const bool has_usable = std::any_of(
      candidates.begin(), candidates.end(),
      [](const FoundCandidate& each) { return each.library.state == CandidateState::kUsable; });
  if (!has_usable) {
    AddFinding(findings, "D12", is_taken_by_addin ? Severity::kWarning : Severity::kError);
  }
}

}  // namespace zentpost::doctor
