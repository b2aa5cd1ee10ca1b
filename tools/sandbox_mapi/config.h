// What the fake mail client is told to be and do. Pure: takes a JSON text.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "fake_mapi/client.h"

namespace zentpost::fake_mapi::sandbox {

struct Config {
  std::vector<Behaviour> failures;
  std::int32_t form_answer = 0;  // as in fake_mapi::Client
  bool garbage = false;          // Whether failing calls leave garbage in the places for results.
  bool client_shutdown = true;   // Whether the session knows IMAPIClientShutdown.
  bool default_profile = true;
  bool default_store = true;
  bool outbox = true;      // Whether the store tells where its Outbox is ...
  bool sent_items = true;  // ... and its Sent Items.
  std::u16string profile_name = u"Sandbox";
};

// `json` is UTF-8; empty gives the defaults. Throws std::runtime_error for a text that cannot be
// used, with the line at which that shows. An unknown member is an error: a misspelt wish must not
// go unnoticed.
[[nodiscard]] Config ParseConfig(std::string_view json);

}  // namespace zentpost::fake_mapi::sandbox
