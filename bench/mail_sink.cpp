// The least that a mail client's MAPI library must do with a document: nothing is kept but its
// bytes, which are written into the file named by MAIL_SINK_FILE straight from where the tool has
// them. Whole runs of the tool with this library are measured against bench/floor.
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <string_view>

#include "fake_mapi/client.h"

namespace zentpost::fake_mapi {
namespace {

class Sink : public Storage {
 public:
  bool KeepDocument(const Message& /*message*/, const Attachment& /*attachment*/,
                    std::string_view bytes, Property& /*value*/) override {
    const int file =
        open(std::getenv("MAIL_SINK_FILE"), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    ssize_t written = 0;
    while (!bytes.empty() && (written = write(file, bytes.data(), bytes.size())) > 0) {
      bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    close(file);
    return bytes.empty();
  }
};

}  // namespace

Client& TheClient() {
  static Client client(std::make_unique<Sink>());
  return client;
}

}  // namespace zentpost::fake_mapi
