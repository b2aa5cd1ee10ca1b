#include "platform/fake/machine.h"
#include "platform/modules_contract_machine.h"

namespace platform::contract {
namespace {

int Answer() {
  return kAnswer;
}

}  // namespace

void PrepareLibraries() {
  fake::TheMachine().Reset();
  fake::TheMachine().AddModule(LibraryPath(),
                               {{"ContractAnswer", reinterpret_cast<Procedure>(Answer)}});
  fake::TheMachine().SetFile(BrokenLibraryPath(), "no library");
}

void ClearLibraries() {
  fake::TheMachine().Reset();
}

std::u16string LibraryPath() {
  return u"C:\\Libraries\\library.dll";
}

int CallAnswer(Procedure procedure) {
  return reinterpret_cast<int (*)()>(procedure)();
}

std::u16string BrokenLibraryPath() {
  return u"C:\\Libraries\\broken.dll";
}

std::u16string SystemDirectoryPath() {
  return u"C:\\Windows\\system32";
}

void SetVariable(const std::u16string& name, const std::u16string& value) {
  fake::TheMachine().SetVariable(name, value);
}

}  // namespace platform::contract
