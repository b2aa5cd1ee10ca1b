#include "tools/doctor/library_file.h"

#include "fuzz/targets.h"
#include "tools/doctor/test_library.h"

namespace zentpost::fuzz {

void FuzzLibraryFile(std::string_view input) {
  using enum doctor::Export::State;
  constexpr std::uint64_t kMostBytes = 64 << 20;
  doctor::BytesInMemory source(input);
  doctor::LibraryFile file(source);
  const doctor::LibraryHeader& header = file.Header();
  const bool is_library = header.state == doctor::LibraryState::kLibrary;
  Require(header.problem.empty() == is_library);
  Require(is_library ? header.format != doctor::LibraryFormat::kNone : header.bitness == 0);
  Require(!is_library || header.bitness == 32 || header.bitness == 64);
  for (const std::string_view name : {"MAPIFreeBuffer", "FreeProws@4", "A", ""}) {
    const doctor::Export found = file.Find(name);
    Require(is_library || found.state == kMissing);
    Require(found.state == kThere || found.forwarder.empty());
    Require(found.forwarder.size() <= 256 && found.forwarder.find('\0') == std::string::npos);
    // Asked again, it says the same until too much has been read.
    const doctor::Export again = file.Find(name);
    Require(again == found || again.state == kUnknown);
  }
  Require(source.BytesRead() <= kMostBytes);
}

}  // namespace zentpost::fuzz
