// What the tests change on the machine, saved in files beforehand and put back afterwards. The
// tests put back themselves what they found; this is for when they could not.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace zentpost::acceptance {

// What the tests may change, a line each: for the user, who is asked.
[[nodiscard]] std::vector<std::string> ThingsThatAreChanged();

// Whether `folder` holds what was saved and not put back yet, since a run was cut short.
[[nodiscard]] bool IsSaved(const std::filesystem::path& folder);

// Whether nothing is in `folder`, which is there, but what SaveMachine may have left in it.
[[nodiscard]] bool HoldsOnlySaved(const std::filesystem::path& folder);

// Leaves what is a file, or holds anything.
void RemoveEmptyFolder(const std::filesystem::path& folder);

// Saves the machine's state into `folder`. False, and nothing of it is left, when that fails.
[[nodiscard]] bool SaveMachine(const std::filesystem::path& folder);

struct PutBack {
  std::vector<std::string> restored;  // what was not as it had been
  std::vector<std::string> failed;    // and still is not
};
// Compares the machine with what was saved, and puts back what differs. What was saved, and no file
// of anybody else's, is removed, unless something failed.
[[nodiscard]] PutBack PutMachineBack(const std::filesystem::path& folder);

}  // namespace zentpost::acceptance
