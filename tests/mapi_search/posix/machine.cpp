#include "tests/mapi_search/machine.h"

#include "testing/end_to_end/settings.h"

namespace zentpost::mapi_search {

Machine::Machine() : program_(e2e::Setting("mapi-search")) {
  Put("fake_library", "system/mapi32.dll");
  SetVariable("ZENTPOST_SYSTEM_DIRECTORY", Folder() / "system");
}
Machine::~Machine() = default;

// The search joins the directory and the name as Windows does; the system makes a slash of it.
std::string Machine::SystemLibrary() const {
  return (Folder() / "system" / "mapi32.dll").string();
}

bool Machine::GivesReferences() const {
  return false;
}

void Machine::PreferOwnLibraries() {
  SetVariable("LD_LIBRARY_PATH", Folder());
}

}  // namespace zentpost::mapi_search
