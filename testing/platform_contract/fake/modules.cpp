#include "testing/platform_contract/modules_contract.h"

#include "testing/fake_platform/fake_platform.h"

namespace platform::modules_contract {
namespace {

constexpr char16_t kFolder[] = u"C:\\Contract\\";
constexpr char16_t kSystemDirectory[] = u"C:\\Contract system";
constexpr char16_t kLibraryOfTheSystem[] = u"contract_system.dll";

int Number() {
  return kContractNumber;
}

std::u16string SystemPath() {
  return std::u16string(kSystemDirectory) + u"\\" + kLibraryOfTheSystem;
}

}  // namespace

void PrepareMachine() {
  fake::Machine& machine = fake::TheMachine();
  machine.Reset();
  machine.SetSystemDirectory(kSystemDirectory);
  machine.AddModule(Library(), {{"ContractNumber", reinterpret_cast<Procedure>(Number)}});
  machine.AddModule(SystemPath(), {});
  machine.SetFile(BrokenLibrary(), "This is no library.");
}

void ClearMachine() {
  fake::TheMachine().Reset();
}

std::u16string Library() {
  return kFolder + LibraryFileName();
}

std::u16string LibraryFileName() {
  return u"library.dll";
}

std::u16string BrokenLibrary() {
  return std::u16string(kFolder) + u"broken.dll";
}

std::u16string MissingLibrary() {
  return std::u16string(kFolder) + u"missing.dll";
}

std::u16string LibraryOfTheSystem() {
  return kLibraryOfTheSystem;
}

bool IsLibraryOfTheSystemLoaded() {
  return fake::TheMachine().ModuleReferences(SystemPath()) != 0;
}

bool IsLibraryLoaded() {
  return fake::TheMachine().ModuleReferences(Library()) != 0;
}

std::u16string TheSystemDirectory() {
  return kSystemDirectory;
}

void SetVariable(const std::u16string& name, const std::u16string& value) {
  fake::TheMachine().SetVariable(name, value);
}

}  // namespace platform::modules_contract
