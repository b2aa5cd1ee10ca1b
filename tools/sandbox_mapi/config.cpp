#include "tools/sandbox_mapi/config.h"

#include <cjson/cJSON.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <memory>

#include "tools/sandbox_mapi/text.h"

namespace zentpost::sandbox_mapi {
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
bool ReadCode(const cJSON* json, const std::string& what, std::uint32_t& code, std::string& error) {
  if (cJSON_IsNumber(json) && json->valuedouble >= 0 && json->valuedouble <= 0xFFFFFFFFu &&
      std::floor(json->valuedouble) == json->valuedouble) {
    code = static_cast<std::uint32_t>(json->valuedouble);
    return true;
  }
  if (cJSON_IsString(json)) {
    const std::string_view text = json->valuestring;
    if (text.starts_with("0x") || text.starts_with("0X")) {
      const char* const end = text.data() + text.size();
      const auto [stop, problem] = std::from_chars(text.data() + 2, end, code, 16);
      if (problem == std::errc() && stop == end) {
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

bool ReadFailure(const cJSON* json, ConfiguredFailure& failure, std::string& error) {
  if (!cJSON_IsObject(json)) {
    return Fail(error, "\"Fail\" holds something that is no object");
  }
  bool has_code = false;
  for (const cJSON* member = json->child; member != nullptr; member = member->next) {
    const std::string name = member->string;
    if (name == "Call") {
      const auto& calls = FailableCalls();
      if (!cJSON_IsString(member) ||
          std::find(calls.begin(), calls.end(), member->valuestring) == calls.end()) {
        return Fail(error, "\"Call\" is not the name of a call that can fail: " +
                               Quoted(cJSON_IsString(member) ? member->valuestring : "?"));
      }
      failure.call = member->valuestring;
    } else if (name == "At") {
      if (!cJSON_IsNumber(member) || member->valuedouble < 1 || member->valuedouble > 1e9) {
        return Fail(error, "\"At\" is no number from 1 on");
      }
      failure.at = static_cast<std::uint64_t>(member->valuedouble);
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
  if (text == "sent") {
    config.form_answer = FormAnswer::kSent;
    return true;
  }
  if (text == "cancelled") {
    config.form_answer = FormAnswer::kCancelled;
    return true;
  }
  config.form_answer = FormAnswer::kFailed;
  if (!ReadCode(json, "\"ShowForm\"", config.form_code, error)) {
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
    config.profile_name = Utf16(member->valuestring);
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

const std::vector<std::string_view>& FailableCalls() {
  static const std::vector<std::string_view> calls = {
      "MAPIInitialize",
      "MAPILogonEx",
      "MAPIOpenFormMgr",
      "MAPIAdminProfiles",
      "HrQueryAllRows",
      "MAPIAllocateBuffer",
      "MAPIAllocateMore",
      "MAPIFreeBuffer",
      "IProfAdmin::QueryInterface",
      "IProfAdmin::GetProfileTable",
      "IMAPITable::QueryInterface",
      "IMAPIFormMgr::QueryInterface",
      "IMAPISession::QueryInterface",
      "IMAPISession::GetMsgStoresTable",
      "IMAPISession::OpenMsgStore",
      "IMAPISession::OpenAddressBook",
      "IMAPISession::Logoff",
      "IMAPISession::ShowForm",
      "IMAPISession::PrepareForm",
      "IMAPIClientShutdown::QueryInterface",
      "IMAPIClientShutdown::QueryFastShutdown",
      "IMAPIClientShutdown::NotifyProcessShutdown",
      "IMAPIClientShutdown::DoFastShutdown",
      "IAddrBook::QueryInterface",
      "IAddrBook::SaveChanges",
      "IAddrBook::GetProps",
      "IAddrBook::SetProps",
      "IAddrBook::CreateOneOff",
      "IAddrBook::ResolveName",
      "IMsgStore::QueryInterface",
      "IMsgStore::SaveChanges",
      "IMsgStore::GetProps",
      "IMsgStore::SetProps",
      "IMsgStore::OpenEntry",
      "IMAPIFolder::QueryInterface",
      "IMAPIFolder::SaveChanges",
      "IMAPIFolder::GetProps",
      "IMAPIFolder::SetProps",
      "IMAPIFolder::CreateMessage",
      "IMAPIFolder::GetMessageStatus",
      "IMessage::QueryInterface",
      "IMessage::SaveChanges",
      "IMessage::GetProps",
      "IMessage::SetProps",
      "IMessage::CreateAttach",
      "IMessage::ModifyRecipients",
      "IMessage::SubmitMessage",
      "IAttach::QueryInterface",
      "IAttach::SaveChanges",
      "IAttach::GetProps",
      "IAttach::SetProps",
  };
  return calls;
}

}  // namespace zentpost::sandbox_mapi
