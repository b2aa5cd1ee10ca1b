#include "tools/sandbox_mapi/config.h"

#include <cjson/cJSON.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <memory>

#include "fake_mapi/codes.h"
#include "tools/support/text.h"

namespace zentpost::fake_mapi::sandbox {
namespace {

struct JsonDeleter {
  void operator()(cJSON* json) const { cJSON_Delete(json); }
};

bool Fail(std::string& error, const std::string& text) {
  error = text;
  return false;
}

std::string Quoted(std::string_view text) {
  return '"' + std::string(text) + '"';
}

// "0x80040111" or a number that is not negative.
bool ReadCode(const cJSON* json, const std::string& what, std::int32_t& code, std::string& error) {
  if (cJSON_IsNumber(json) && json->valuedouble >= 0 && json->valuedouble <= 0xFFFFFFFFu &&
      std::floor(json->valuedouble) == json->valuedouble) {
    code = Code(static_cast<std::uint32_t>(json->valuedouble));
    return true;
  }
  if (cJSON_IsString(json)) {
    const std::string_view text = json->valuestring;
    if (text.starts_with("0x") || text.starts_with("0X")) {
      const char* const end = text.data() + text.size();
      std::uint32_t number = 0;
      const auto [stop, problem] = std::from_chars(text.data() + 2, end, number, 16);
      if (problem == std::errc() && stop == end) {
        code = Code(number);
        return true;
      }
    }
  }
  return Fail(error, what + " is no code like \"0x80040111\"");
}

bool ReadFlag(const cJSON* json, const std::string& name, bool& flag, std::string& error) {
  if (!cJSON_IsBool(json)) {
    return Fail(error, Quoted(name) + " is neither true nor false");
  }
  flag = cJSON_IsTrue(json) != 0;
  return true;
}

bool ReadFailure(const cJSON* json, Behaviour& failure, std::string& error) {
  if (!cJSON_IsObject(json)) {
    return Fail(error, "\"Fail\" holds something that is no object");
  }
  bool has_code = false;
  for (const cJSON* member = json->child; member != nullptr; member = member->next) {
    const std::string name = member->string;
    if (name == "Call") {
      if (!cJSON_IsString(member) || !CanHaveBehaviour(member->valuestring)) {
        return Fail(error, "\"Call\" is not the name of a call that can fail: " +
                               Quoted(cJSON_IsString(member) ? member->valuestring : "?"));
      }
      failure.call = member->valuestring;
    } else if (name == "At") {
      if (!cJSON_IsNumber(member) || member->valuedouble < 1 || member->valuedouble > 1e9) {
        return Fail(error, "\"At\" is no number from 1 on");
      }
      failure.at = static_cast<std::size_t>(member->valuedouble);
    } else if (name == "From") {
      if (!ReadFlag(member, name, failure.from, error)) {
        return false;
      }
    } else if (name == "Code") {
      if (!ReadCode(member, "\"Code\"", failure.code, error)) {
        return false;
      }
      has_code = true;
    } else {
      return Fail(error, "unknown member of \"Fail\": " + Quoted(name));
    }
  }
  if (failure.call.empty() || !has_code) {
    return Fail(error, "a member of \"Fail\" lacks \"Call\" or \"Code\"");
  }
  return true;
}

bool ReadFailures(const cJSON* json, Config& config, std::string& error) {
  if (!cJSON_IsArray(json)) {
    return Fail(error, "\"Fail\" is no array");
  }
  for (const cJSON* item = json->child; item != nullptr; item = item->next) {
    if (!ReadFailure(item, config.failures.emplace_back(), error)) {
      return false;
    }
  }
  return true;
}

bool ReadFormAnswer(const cJSON* json, Config& config, std::string& error) {
  const std::string_view text = cJSON_IsString(json) ? json->valuestring : "";
  if (text == "sent" || text == "cancelled") {
    config.form_answer = text == "sent" ? kOk : kUserCancel;
    return true;
  }
  if (!ReadCode(json, "", config.form_answer, error)) {
    error = "\"ShowForm\" is neither \"sent\" nor \"cancelled\" nor a code like \"0x80004005\"";
    return false;
  }
  return true;
}

bool ReadMember(const cJSON* member, Config& config, std::string& error) {
  struct Flag {
    std::string_view name;
    bool Config::*flag;
  };
  static constexpr Flag kFlags[] = {{"Garbage", &Config::garbage},
                                    {"ClientShutdown", &Config::client_shutdown},
                                    {"DefaultProfile", &Config::default_profile},
                                    {"DefaultStore", &Config::default_store},
                                    {"Outbox", &Config::outbox},
                                    {"SentItems", &Config::sent_items}};
  const std::string name = member->string;
  for (const Flag& flag : kFlags) {
    if (flag.name == name) {
      return ReadFlag(member, name, config.*flag.flag, error);
    }
  }
  if (name == "Fail") {
    return ReadFailures(member, config, error);
  }
  if (name == "ShowForm") {
    return ReadFormAnswer(member, config, error);
  }
  if (name == "ProfileName") {
    if (!cJSON_IsString(member)) {
      return Fail(error, "\"ProfileName\" is no text");
    }
    config.profile_name = support::Utf16(member->valuestring);
    return true;
  }
  return Fail(error, "unknown member " + Quoted(name));
}

}  // namespace

std::optional<Config> ParseConfig(std::string_view json, std::string& error) {
  error.clear();
  Config config;
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  if (json.starts_with(kByteOrderMark)) {
    json.remove_prefix(kByteOrderMark.size());
  }
  if (json.find_first_not_of(" \t\r\n") == std::string_view::npos) {
    return config;
  }
  const std::string text(json);
  const std::unique_ptr<cJSON, JsonDeleter> root(cJSON_ParseWithOpts(text.c_str(), nullptr, true));
  if (!cJSON_IsObject(root.get())) {
    error = "is no JSON object";
    return std::nullopt;
  }
  for (const cJSON* member = root->child; member != nullptr; member = member->next) {
    if (!ReadMember(member, config, error)) {
      return std::nullopt;
    }
  }
  return config;
}

}  // namespace zentpost::fake_mapi::sandbox
