#include <cstdlib>

#include "fake_mapi/client.h"

namespace zentpost::fake_mapi {

Client& TheClient() {
  Client* const client = Client::Latest();
  if (client == nullptr) {
    std::abort();  // a call when there is no client any more
  }
  return *client;
}

}  // namespace zentpost::fake_mapi
