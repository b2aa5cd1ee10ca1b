#include "testing/platform_contract/modules_contract.h"

#include <dlfcn.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/posix/utf8.h"

namespace platform::modules_contract {
namespace {

constexpr char kSystemDirectory[] = "/opt/contract system";
constexpr char kSystemDirectoryVariable[] = "ZENTPOST_SYSTEM_DIRECTORY";
// An old part of the C library that nothing needs any more.
constexpr char kLibraryOfTheSystem[] = "libBrokenLocale.so.1";

std::vector<std::string> variables;

void Set(const std::string& name, const std::string& value) {
  setenv(name.c_str(), value.c_str(), 1);
  variables.push_back(name);
}

// The libraries stand beside the test program.
std::u16string PathOf(const char* name) {
  const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe");
  return (program.parent_path() / "modules_contract" / name).u16string();
}

bool IsLoaded(const std::string& path) {
  void* const loaded = dlopen(path.c_str(), RTLD_LAZY | RTLD_NOLOAD);
  return loaded != nullptr && dlclose(loaded) == 0;
}

}  // namespace

void PrepareMachine() {
  Set(kSystemDirectoryVariable, kSystemDirectory);
}

void ClearMachine() {
  for (const std::string& name : variables) {
    unsetenv(name.c_str());
  }
  variables.clear();
}

std::u16string Library() {
  return PathOf("library.dll");
}

std::u16string LibraryFileName() {
  return u"library.dll";
}

std::u16string BrokenLibrary() {
  return PathOf("broken.dll");
}

std::u16string MissingLibrary() {
  return PathOf("missing.dll");
}

std::u16string LibraryOfTheSystem() {
  return FromUtf8(kLibraryOfTheSystem);
}

bool IsLibraryOfTheSystemLoaded() {
  return IsLoaded(kLibraryOfTheSystem);
}

bool IsLibraryLoaded() {
  return IsLoaded(ToUtf8(Library()));
}

std::u16string TheSystemDirectory() {
  return FromUtf8(kSystemDirectory);
}

void SetVariable(const std::u16string& name, const std::u16string& value) {
  Set(ToUtf8(name), ToUtf8(value));
}

}  // namespace platform::modules_contract
