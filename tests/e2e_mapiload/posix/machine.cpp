#include "tests/e2e_mapiload/machine.h"

#include <cstdio>
#include <map>
#include <string>

#include "testing/end_to_end/files.h"
#include "testing/end_to_end/text.h"

namespace zentpost::e2e_mapiload {
namespace {

constexpr char kMailKey[] = "HKEY_LOCAL_MACHINE\\Software\\Clients\\Mail";

// Text in quotes, as the registry editor writes it.
std::string InQuotes(std::string_view text) {
  return '"' + e2e::Replaced(e2e::Replaced(std::string(text), "\\", "\\\\"), "\"", "\\\"") + '"';
}

// The same with its variables to be expanded: UTF-16LE with a terminator, byte by byte.
std::string Expandable(std::string_view text) {
  std::string bytes = "hex(2):";
  for (const char16_t unit : e2e::Utf16(text) + u'\0') {
    char two[8];
    std::snprintf(two, sizeof two, "%02x,%02x,", unit & 0xFFu, unsigned{unit} >> 8);
    bytes += two;
  }
  bytes.pop_back();
  return bytes;
}

}  // namespace

bool TakeMachineOver() {
  return true;
}
void GiveMachineBack() {}

// The registry is a file in the format of the registry editor's exports, written anew after every
// change.
struct Machine::System {
  std::filesystem::path registry;
  std::filesystem::path folder;  // the system directory
  // Per key its values, each as the line that stands for it.
  std::map<std::string, std::map<std::string, std::string>> keys;

  void Set(const std::string& key, std::string_view name, const std::string& data) {
    keys[key][name.empty() ? "@" : InQuotes(name)] = data;
    std::string text = "Windows Registry Editor Version 5.00\r\n";
    for (const auto& [path, values] : keys) {
      text += "\r\n[" + path + "]\r\n";
      for (const auto& [value, line] : values) {
        text.append(value).append("=").append(line).append("\r\n");
      }
    }
    e2e::WriteBytes(registry, text);
  }
};

Machine::Machine()
    : folder_(e2e::MakeTestFolder()), program_(ThePrograms().search), system_(new System) {
  system_->registry = folder_ / "registry.reg";
  system_->folder = folder_ / "system";
  e2e::WriteBytes(system_->registry, "Windows Registry Editor Version 5.00\r\n");
  Put("stand_in", "system/mapi32.dll");
  SetVariable("ZENTPOST_REGISTRY", system_->registry);
  SetVariable("ZENTPOST_SYSTEM_DIRECTORY", system_->folder);
}

Machine::~Machine() {
  std::error_code ignored;
  std::filesystem::remove_all(folder_, ignored);
}

void Machine::SetDefaultClient(std::string_view client) {
  system_->Set(kMailKey, "", InQuotes(client));
}

void Machine::SetText(std::string_view client, std::string_view name, std::string_view text) {
  system_->Set(std::string(kMailKey) + "\\" + std::string(client), name, InQuotes(text));
}

void Machine::SetExpandableText(std::string_view client, std::string_view name,
                                std::string_view text) {
  system_->Set(std::string(kMailKey) + "\\" + std::string(client), name, Expandable(text));
}

// The seam joins the directory and the name as Windows does; the system makes a slash of it.
std::string Machine::SystemLibrary() const {
  return (system_->folder / "mapi32.dll").string();
}

bool Machine::HideSystemLibraries() {
  Remove("system/mapi32.dll");
  return true;
}

bool Machine::GivesReferences() const {
  return false;
}

void Machine::PreferOwnLibraries() {
  SetVariable("LD_LIBRARY_PATH", folder_);
}

}  // namespace zentpost::e2e_mapiload
