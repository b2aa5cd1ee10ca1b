#include "tools/sandbox_mapi/config.h"

#include <cjson/cJSON.h>

#include <charconv>
#include <cmath>
#include <memory>
#include <stdexcept>

#include "fake_mapi/codes.h"
#include "tools/support/text.h"

namespace zentpost::fake_mapi::sandbox {
namespace {

using support::Quoted;

std::string Text(const cJSON* json, const std::string& problem) {
  if (!cJSON_IsString(json)) {
    throw std::runtime_error(problem);
  }
  return json->valuestring;
}

bool Flag(const cJSON* json) {
  if (!cJSON_IsBool(json)) {
    throw std::runtime_error(Quoted(json->string) + " is neither true nor false");
  }
  return cJSON_IsTrue(json) != 0;
}

// "0x80040111" or a number that is not negative.
std::int32_t CodeOf(const cJSON* json, const char* problem) {
  if (cJSON_IsNumber(json) && json->valuedouble >= 0 && json->valuedouble <= 0xFFFFFFFFu &&
      std::floor(json->valuedouble) == json->valuedouble) {
    return Code(static_cast<std::uint32_t>(json->valuedouble));
  }
  const std::string text = Text(json, problem);
  const char* const end = text.data() + text.size();
  std::uint32_t number = 0;
  if (text.starts_with("0x") || text.starts_with("0X")) {
    const auto [stop, status] = std::from_chars(text.data() + 2, end, number, 16);
    if (status == std::errc() && stop == end) {
      return Code(number);
    }
  }
  throw std::runtime_error(problem);
}

Behaviour Failure(const cJSON* json) {
  if (!cJSON_IsObject(json)) {
    throw std::runtime_error("\"Fail\" holds something that is no object");
  }
  Behaviour failure;
  bool has_code = false;
  for (const cJSON* member = json->child; member != nullptr; member = member->next) {
    const std::string name = member->string;
    if (name == "Call") {
      const std::string problem = "\"Call\" is not the name of a call that can fail: ";
      failure.call = Text(member, problem + "\"?\"");
      if (!CanHaveBehaviour(failure.call)) {
        throw std::runtime_error(problem + Quoted(failure.call));
      }
    } else if (name == "At") {
      if (!cJSON_IsNumber(member) || member->valuedouble < 1 || member->valuedouble > 1e9) {
        throw std::runtime_error("\"At\" is no number from 1 on");
      }
      failure.at = static_cast<std::size_t>(member->valuedouble);
    } else if (name == "From") {
      failure.from = Flag(member);
    } else if (name == "Code") {
      failure.code = CodeOf(member, "\"Code\" is no code like \"0x80040111\"");
      has_code = true;
    } else {
      throw std::runtime_error("unknown member of \"Fail\": " + Quoted(name));
    }
  }
  if (failure.call.empty() || !has_code) {
    throw std::runtime_error("a member of \"Fail\" lacks \"Call\" or \"Code\"");
  }
  return failure;
}

void ReadMember(const cJSON* member, Config& config) {
  static constexpr std::pair<std::string_view, bool Config::*> kFlags[] = {
      {"Garbage", &Config::garbage},
      {"ClientShutdown", &Config::client_shutdown},
      {"DefaultProfile", &Config::default_profile},
      {"DefaultStore", &Config::default_store},
      {"Outbox", &Config::outbox},
      {"SentItems", &Config::sent_items}};
  const std::string name = member->string;
  for (const auto& [flag_name, flag] : kFlags) {
    if (flag_name == name) {
      config.*flag = Flag(member);
      return;
    }
  }
  if (name == "Fail") {
    if (!cJSON_IsArray(member)) {
      throw std::runtime_error("\"Fail\" is no array");
    }
    for (const cJSON* item = member->child; item != nullptr; item = item->next) {
      config.failures.push_back(Failure(item));
    }
  } else if (name == "ShowForm") {
    const std::string_view text = cJSON_IsString(member) ? member->valuestring : "";
    config.form_answer = text == "sent" ? kOk
                         : text == "cancelled"
                             ? kUserCancel
                             : CodeOf(member,
                                      "\"ShowForm\" is neither \"sent\" nor "
                                      "\"cancelled\" nor a code like \"0x80004005\"");
  } else if (name == "ProfileName") {
    config.profile_name = support::Utf16(Text(member, "\"ProfileName\" is no text"));
  } else {
    throw std::runtime_error("unknown member " + Quoted(name));
  }
}

}  // namespace

Config ParseConfig(std::string_view json) {
  Config config;
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  if (json.starts_with(kByteOrderMark)) {
    json.remove_prefix(kByteOrderMark.size());
  }
  if (json.find_first_not_of(" \t\r\n") == std::string_view::npos) {
    return config;
  }
  const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> root(
      cJSON_ParseWithOpts(std::string(json).c_str(), nullptr, true), cJSON_Delete);
  if (!cJSON_IsObject(root.get())) {
    throw std::runtime_error("is no JSON object");
  }
  for (const cJSON* member = root->child; member != nullptr; member = member->next) {
    ReadMember(member, config);
  }
  return config;
}

}  // namespace zentpost::fake_mapi::sandbox
