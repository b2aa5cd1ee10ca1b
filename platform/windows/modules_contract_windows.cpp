#include <windows.h>

#include "platform/modules_contract_machine.h"
#include "platform/windows/wide.h"

namespace platform::contract {
namespace {

// The folder of this program, with a separator at its end.
std::u16string ProgramFolder() {
  std::u16string path(MAX_PATH, u'\0');
  path.resize(GetModuleFileNameW(nullptr, ToSystem(path.data()), MAX_PATH));
  return path.substr(0, path.rfind(u'\\') + 1);
}

}  // namespace

void PrepareLibraries() {}
void ClearLibraries() {}

std::u16string LibraryPath() {
  return ProgramFolder() + u"modules_contract\\library.dll";
}

int CallAnswer(Procedure procedure) {
  return reinterpret_cast<int (*)()>(procedure)();
}

std::u16string BrokenLibraryPath() {
  return ProgramFolder() + u"modules_contract\\broken.dll";
}

std::u16string SystemDirectoryPath() {
  std::u16string path(MAX_PATH, u'\0');
  path.resize(GetSystemDirectoryW(ToSystem(path.data()), MAX_PATH));
  return path;
}

void SetVariable(const std::u16string& name, const std::u16string& value) {
  SetEnvironmentVariableW(ToSystem(name.c_str()), ToSystem(value.c_str()));
}

}  // namespace platform::contract
