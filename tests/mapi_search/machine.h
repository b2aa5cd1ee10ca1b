// The machine as a test of the search sets it up: the mail client's registration, folders with
// fake libraries, the program that searches.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "testing/end_to_end/machine.h"

namespace zentpost::mapi_search {

// Names of the fake libraries, without an extension: "fake_library", "lacks_two" functions and
// "stub"; in 32 bits on Windows also "decorated" and "both_names".
[[nodiscard]] std::filesystem::path FakeLibrary(std::string_view name);

// The mail client that most tests register.
inline constexpr char kClient[] = "Zentpost test client";

// One test's machine: no mail client is registered, and the folder is empty.
class Machine : public e2e::Machine {
 public:
  Machine();
  ~Machine();
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;

  // Copies a fake library to this path below the folder, or puts a text there that is no
  // library, or takes away what is there. The first two give the full path.
  std::string Put(std::string_view fake_library, const std::filesystem::path& below);
  std::string PutBroken(const std::filesystem::path& below);
  void Remove(const std::filesystem::path& below);

  // Makes kClient the default mail client, with this text among its values.
  void SetClient(std::u16string_view name, std::string_view text,
                 TextKind kind = TextKind::kPlain) {
    SetDefaultMailClient(kClient);
    SetMailClientText(kClient, name, text, kind);
  }

  // What the search finds when nothing else is there: the library of the system's own. Empty where
  // the system has none.
  [[nodiscard]] std::string SystemLibrary() const;
  // Whether the system has a function that finds a loaded library and takes a reference.
  [[nodiscard]] bool GivesReferences() const;
  // Lets programs find what stands in the folder by its bare name, before the system's own.
  void PreferOwnLibraries();

  // Starts mapi_search with these steps and gives the lines that it wrote.
  [[nodiscard]] std::vector<std::string> Search(const std::vector<std::string>& steps) const;

 private:
  std::filesystem::path program_;
};

// Of a run's lines: what stands behind "NAME: ", of all lines of that name in their order.
[[nodiscard]] std::vector<std::string> Lines(const std::vector<std::string>& all,
                                             std::string_view name);
// Whether a line of the trace begins with `text`.
[[nodiscard]] bool IsTraced(const std::vector<std::string>& all, std::string_view text);
}  // namespace zentpost::mapi_search
