// Jobs on machines, as chance has it, the same for the same numbers.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <random>

#include "testing/job_model.h"

namespace zentpost::test {

// Any job on any machine.
class RandomSituation {
 public:
  explicit RandomSituation(std::mt19937& random) : random_(random) {}

  Situation Make() {
    Situation situation = {.name = "random"};
    situation.on_command_line = OneIn(4);
    situation.has_result = OneIn(4);
    situation.diverted = OneIn(5);
    situation.preview = OneIn(5);
    situation.receiver = OneIn(6) ? "" : situation.receiver;
    situation.recipient = OneIn(6) ? "" : situation.recipient;
    situation.source_name = OneIn(6) ? "Letter.pdf.xyz" : situation.source_name;
    situation.has_port = OneIn(2);
    situation.peer = Pick<std::optional<platform::fake::Peer>>(
        {platform::fake::Peer::kAccept, platform::fake::Peer::kAccept, platform::fake::Peer::kReset,
         platform::fake::Peer::kNeverRead, std::nullopt});
    situation.connections = OneIn(3) ? 1 : situation.connections;
    situation.user_log_level = OneIn(2) ? 1 : 0;
    situation.machine_log_level = OneIn(4) ? 1 : 0;
    situation.user_skip = OneIn(6) ? 1 : 0;
    situation.has_mail_client = !OneIn(4);
    situation.has_shutdown = OneIn(2);
    situation.is_online = !OneIn(3);
    situation.is_automatic = OneIn(3);
    situation.has_file_type = OneIn(2);
    return situation;
  }

 private:
  bool OneIn(std::uint32_t count) { return random_() % count == 0; }
  template <class Value>
  Value Pick(std::initializer_list<Value> values) {
    return *(values.begin() + random_() % values.size());
  }

  std::mt19937& random_;
};

}  // namespace zentpost::test
