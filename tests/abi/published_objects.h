// Objects of Extended MAPI's interfaces, made from the published declarations, that note down how
// they are called.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace zentpost::abi {

// A call of a method in use: what it got, pointers and numbers alike, and what it gave.
struct Call {
  std::string method;
  std::vector<std::uintptr_t> arguments;
  std::int32_t result;

  friend bool operator==(const Call&, const Call&) = default;
};

// The last call; its name is empty when there was none since it was last taken.
[[nodiscard]] Call TakeLastCall();

// One object of each interface, which lives as long as the program.
[[nodiscard]] void* PublishedSession();
[[nodiscard]] void* PublishedProfileAdministration();
[[nodiscard]] void* PublishedAddressBook();
[[nodiscard]] void* PublishedStore();
[[nodiscard]] void* PublishedFolder();
[[nodiscard]] void* PublishedMessage();
[[nodiscard]] void* PublishedAttachment();
[[nodiscard]] void* PublishedTable();
[[nodiscard]] void* PublishedFormManager();

}  // namespace zentpost::abi
