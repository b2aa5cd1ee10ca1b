// The mail client of a process: where it keeps its mail, what it is ordered to be and do, and the
// report of what was done with it.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "fake_mapi/client.h"
#include "tools/sandbox_mapi/config.h"

namespace zentpost::fake_mapi::sandbox {

// The orders of a process: `orders` is JSON text that begins with '{', or a file of UTF-8 JSON;
// nothing: sandbox.json in the folder, if there is one. Throws std::runtime_error, with where they
// stand, for orders that cannot be used.
[[nodiscard]] Config ReadOrders(const std::filesystem::path& folder,
                                const std::optional<std::string>& orders);

class Library : private CallHook {
 public:
  // The folder and the orders that the environment and the registration name.
  Library();
  // Orders that cannot be used make MAPIInitialize fail.
  Library(std::filesystem::path folder, const std::optional<std::string>& orders);
  // Writes the report.
  ~Library() override;

  [[nodiscard]] Client& TheClient() { return *client_; }

 private:
  // A process that is killed leaves what it has done so far.
  void CallHasResult(const RecordedCall& call) override;

  std::filesystem::path folder_;
  std::filesystem::path unfinished_report_;
  std::unique_ptr<Client> client_;
};

}  // namespace zentpost::fake_mapi::sandbox
