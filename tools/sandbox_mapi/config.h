// What the stand-in mail client is told to be and do. Pure: takes a JSON text.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zentpost::sandbox_mapi {

// A call that is to fail instead of being done.
struct ConfiguredFailure {
  std::string call;      // "IMAPISession::OpenMsgStore" or "MAPIInitialize"
  std::uint64_t at = 1;  // The first call of that name that fails, counted from 1 ...
  bool from = false;     // ... and all later ones too.
  std::uint32_t code = 0;
};

enum class FormAnswer { kSent, kCancelled, kFailed };

struct Config {
  std::vector<ConfiguredFailure> failures;
  FormAnswer form_answer = FormAnswer::kSent;
  std::uint32_t form_code = 0;  // With kFailed.
  bool garbage = false;         // Whether failing calls leave garbage in the places for results.
  bool client_shutdown = true;  // Whether the session knows IMAPIClientShutdown.
  bool default_profile = true;
  bool default_store = true;
  bool outbox = true;      // Whether the store tells where its Outbox is ...
  bool sent_items = true;  // ... and its Sent Items.
  std::u16string profile_name = u"Sandbox";
};

// `json` is UTF-8; empty gives the defaults. Nothing for a text that cannot be used: `error` then
// says why. An unknown member is an error: a misspelt wish must not go unnoticed.
[[nodiscard]] std::optional<Config> ParseConfig(std::string_view json, std::string& error);

// The names that "Call" may have. AddRef, Release and the functions without a result cannot fail.
[[nodiscard]] const std::vector<std::string_view>& FailableCalls();

}  // namespace zentpost::sandbox_mapi
