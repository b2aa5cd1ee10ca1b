// The libraries that the search for the mail client's would try, told from their files.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "platform/rehearsal/rehearsal.h"
#include "tools/doctor/report.h"

namespace zentpost::doctor {

// The functions that the tool calls: by their plain names, and by those that a linker for x86 gives
// them, with the bytes of their arguments, under which alone some libraries export them.
struct MapiFunction {
  const char* name;
  const char* decorated;
};
inline constexpr std::array kMapiFunctions = {
    MapiFunction{"MAPIInitialize", "MAPIInitialize@4"},
    MapiFunction{"MAPILogonEx", "MAPILogonEx@20"},
    MapiFunction{"MAPIOpenFormMgr", "MAPIOpenFormMgr@8"},
    MapiFunction{"MAPIAdminProfiles", "MAPIAdminProfiles@8"},
    MapiFunction{"HrQueryAllRows", "HrQueryAllRows@24"},
    MapiFunction{"FreeProws", "FreeProws@4"},
    MapiFunction{"FreePadrlist", "FreePadrlist@4"},
    MapiFunction{"MAPIAllocateBuffer", "MAPIAllocateBuffer@8"},
    MapiFunction{"MAPIFreeBuffer", "MAPIFreeBuffer@4"}};

// What a library's file says.
struct LibraryFinding {
  CandidateState state = CandidateState::kUnknown;
  std::u16string file;                                  // where it was found
  platform::Status opening = platform::kSuccess;        // what opening that comes to
  int bitness = 0;                                      // 0: not known
  bool is_foreign = false;                              // neither x86 nor x64
  std::vector<std::string> missing;                     // their plain names
  bool has_simple_mapi = false;                         // MAPISendMail
  platform::Status status = platform::kModuleNotFound;  // what loading it would give

  [[nodiscard]] bool Loads() const { return status == platform::kSuccess; }
};

// Looks at the file that loading `path` would take. `state` is kUsable or kLacksExports by what an
// ordinary job needs, and by MAPIOpenFormMgr as well when `is_shown`. Throws std::bad_alloc when
// memory runs out, as does everything here.
[[nodiscard]] LibraryFinding LookAtLibrary(const std::u16string& path, bool is_shown);

// What loading it would come to, with the fake mail client's functions in the place of its own.
[[nodiscard]] platform::rehearsal::Library LoadForRehearsal(const std::u16string& path);

// A candidate of the search, and what its file says.
struct FoundCandidate {
  Candidate reported;
  LibraryFinding library;
  std::u16string untold;  // its name, where it is known and what loading it gives is not
};

// All that the search would try, in its order.
[[nodiscard]] std::vector<FoundCandidate> FindCandidates(bool is_shown);

// The one that the tool takes; null when none loads.
[[nodiscard]] const FoundCandidate* Taken(const std::vector<FoundCandidate>& candidates);

// D12 to D15 and D21. `is_taken_by_addin`: the job would go to the add-in.
void AddLibraryFindings(const std::vector<FoundCandidate>& candidates, bool is_taken_by_addin,
                        std::vector<Finding>& findings);

}  // namespace zentpost::doctor
