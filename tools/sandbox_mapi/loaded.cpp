// The library as a process loads it: made by its first call, and gone at the process' end.
#include <memory>
#include <mutex>

#include "tools/sandbox_mapi/library.h"

namespace zentpost::fake_mapi {
namespace {

std::mutex mutex;
std::unique_ptr<sandbox::Library> library;

// Runs when the process ends or the library is unloaded.
struct AtEnd {
  ~AtEnd() {
    // Who still holds the lock now was ended in the middle of the first call.
    const std::unique_lock lock(mutex, std::try_to_lock);
    library.reset();
  }
} at_end;

}  // namespace

Client& TheClient() {
  const std::lock_guard lock(mutex);
  if (library == nullptr) {
    library = std::make_unique<sandbox::Library>();
  }
  return library->TheClient();
}

}  // namespace zentpost::fake_mapi
