#include <unistd.h>

#include <array>
#include <cstdlib>

#include "platform/modules_contract_machine.h"
#include "platform/posix/utf8.h"

namespace platform::contract {
namespace {

// The folder of this program, with a separator at its end.
std::u16string ProgramFolder() {
  std::array<char, 4096> path{};
  const ssize_t length = readlink("/proc/self/exe", path.data(), path.size());
  const std::string text(path.data(), static_cast<std::size_t>(length > 0 ? length : 0));
  return FromUtf8(text.substr(0, text.rfind('/') + 1));
}

}  // namespace

void PrepareLibraries() {
  setenv("ZENTPOST_SYSTEM_DIRECTORY", "/a folder/for libraries", 1);
}

void ClearLibraries() {
  unsetenv("ZENTPOST_SYSTEM_DIRECTORY");
}

std::u16string LibraryPath() {
  return ProgramFolder() + u"modules_contract/library.dll";
}

int CallAnswer(Procedure procedure) {
  return reinterpret_cast<int (*)()>(procedure)();
}

std::u16string BrokenLibraryPath() {
  return ProgramFolder() + u"modules_contract/broken.dll";
}

std::u16string SystemDirectoryPath() {
  return u"/a folder/for libraries";
}

void SetVariable(const std::u16string& name, const std::u16string& value) {
  setenv(ToUtf8(name).c_str(), ToUtf8(value).c_str(), 1);
}

}  // namespace platform::contract
