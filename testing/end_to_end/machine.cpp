#include "testing/end_to_end/machine.h"

#include "testing/end_to_end/text.h"

namespace zentpost::e2e {

void Machine::SetDefaultMailClient(std::string_view client) {
  SetText(Hive::kLocalMachine, registry::kMailClientsKey, u"", client);
}

void Machine::SetMailClientText(std::string_view client, std::u16string_view name,
                                std::string_view text, TextKind kind) {
  SetText(Hive::kLocalMachine, std::u16string(registry::kMailClientsKey) + u"\\" + Utf16(client),
          name, text, kind);
}

void Machine::SetVariable(const std::string& name, const std::filesystem::path& value) {
  std::erase_if(variables_, [&](const auto& variable) { return variable.first == name; });
  variables_.emplace_back(name, value);
}

}  // namespace zentpost::e2e
