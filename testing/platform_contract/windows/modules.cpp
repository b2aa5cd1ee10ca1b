#include "testing/platform_contract/modules_contract.h"

#include <windows.h>
// After windows.h, whose types they use.
#include <psapi.h>

#include <cwchar>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/windows/wide.h"

namespace platform::modules_contract {
namespace {

// Small, and nothing that the test program or its libraries would load.
constexpr char16_t kLibraryOfTheSystem[] = u"lz32.dll";

std::vector<std::u16string> variables;

std::u16string PathOfModule(HMODULE module) {
  wchar_t path[4096] = {};
  const DWORD length = GetModuleFileNameW(module, path, std::size(path));
  return {FromSystem(path), length};
}

std::u16string FileNameOf(const std::u16string& path) {
  return path.substr(path.rfind(u'\\') + 1);
}

// The libraries stand beside the test program.
std::u16string PathOf(const char16_t* name) {
  const std::u16string program = PathOfModule(nullptr);
  return program.substr(0, program.rfind(u'\\')) + u"\\modules_contract\\" + name;
}

// Asks for the list of all that the process has loaded: the calls that find one library by its name
// are what the seam uses.
bool IsLoaded(const std::u16string& file_name) {
  std::vector<HMODULE> modules(1000);
  DWORD size = 0;
  if (!EnumProcessModules(GetCurrentProcess(), modules.data(),
                          static_cast<DWORD>(modules.size() * sizeof(HMODULE)), &size)) {
    throw std::runtime_error("EnumProcessModules failed");
  }
  modules.resize(size / sizeof(HMODULE));
  for (const HMODULE module : modules) {
    if (_wcsicmp(ToSystem(FileNameOf(PathOfModule(module)).c_str()), ToSystem(file_name.c_str())) ==
        0) {
      return true;
    }
  }
  return false;
}

}  // namespace

void PrepareMachine() {}

void ClearMachine() {
  for (const std::u16string& name : variables) {
    SetEnvironmentVariableW(ToSystem(name.c_str()), nullptr);
  }
  variables.clear();
}

std::u16string Library() {
  return PathOf(u"library.dll");
}

std::u16string LibraryFileName() {
  return u"library.dll";
}

std::u16string BrokenLibrary() {
  return PathOf(u"broken.dll");
}

std::u16string MissingLibrary() {
  return PathOf(u"missing.dll");
}

std::u16string LibraryOfTheSystem() {
  return kLibraryOfTheSystem;
}

bool IsLibraryOfTheSystemLoaded() {
  return IsLoaded(kLibraryOfTheSystem);
}

bool IsLibraryLoaded() {
  return IsLoaded(LibraryFileName());
}

// From the place of a library that lies in it and that every process has.
std::u16string TheSystemDirectory() {
  const std::u16string path = PathOfModule(GetModuleHandleW(L"kernel32.dll"));
  return path.substr(0, path.rfind(u'\\'));
}

void SetVariable(const std::u16string& name, const std::u16string& value) {
  SetEnvironmentVariableW(ToSystem(name.c_str()), ToSystem(value.c_str()));
  variables.push_back(name);
}

}  // namespace platform::modules_contract
