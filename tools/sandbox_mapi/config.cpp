#include "tools/sandbox_mapi/config.h"

#include <cjson/cJSON.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <memory>
#include <stdexcept>
#include <utility>

#include "fake_mapi/codes.h"
#include "tools/support/text.h"

namespace zentpost::fake_mapi::sandbox {
namespace {

using support::Quoted;

// The line of each member's name, in the order in which they stand. `json` can be parsed.
std::vector<std::size_t> LinesOfMembers(std::string_view json) {
  std::vector<std::size_t> lines;
  std::size_t line = 1;
  for (std::size_t i = 0; i < json.size(); ++i) {
    if (json[i] == '\n') {
      ++line;
    } else if (json[i] == '"') {
      for (++i; i < json.size() && json[i] != '"'; ++i) {
        i += json[i] == '\\' ? 1 : 0;
        line += i < json.size() && json[i] == '\n' ? 1 : 0;  // The parser lets it pass.
      }
      const std::size_t behind = json.find_first_not_of(" \t\r\n", i + 1);
      if (behind != std::string_view::npos && json[behind] == ':') {
        lines.push_back(line);
      }
    }
  }
  return lines;
}

// Which member is being read: the last one whose name was asked for.
class Place {
 public:
  explicit Place(std::vector<std::size_t> lines) : lines_(std::move(lines)) {}

  std::string NameOf(const cJSON* member) {
    ++count_;
    return member->string;
  }
  [[nodiscard]] std::size_t Line() const {
    return count_ == 0 || count_ > lines_.size() ? 1 : lines_[count_ - 1];
  }

 private:
  std::vector<std::size_t> lines_;
  std::size_t count_ = 0;
};

std::string AtLine(std::size_t line, const std::string& problem) {
  return "line " + std::to_string(line) + ": " + problem;
}

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

Behaviour Failure(const cJSON* json, Place& place) {
  if (!cJSON_IsObject(json)) {
    throw std::runtime_error("\"Fail\" holds something that is no object");
  }
  Behaviour failure;
  bool has_code = false;
  for (const cJSON* member = json->child; member != nullptr; member = member->next) {
    const std::string name = place.NameOf(member);
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
      throw std::runtime_error("unknown member of \"Fail\": " + Quoted(name) +
                               "; it knows Call, At, From and Code");
    }
  }
  if (failure.call.empty() || !has_code) {
    throw std::runtime_error("a member of \"Fail\" lacks \"Call\" or \"Code\"");
  }
  return failure;
}

void ReadMember(const cJSON* member, Place& place, Config& config) {
  static constexpr std::pair<std::string_view, bool Config::*> kFlags[] = {
      {"Garbage", &Config::garbage},
      {"ClientShutdown", &Config::client_shutdown},
      {"DefaultProfile", &Config::default_profile},
      {"DefaultStore", &Config::default_store},
      {"Outbox", &Config::outbox},
      {"SentItems", &Config::sent_items}};
  const std::string name = place.NameOf(member);
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
      config.failures.push_back(Failure(item, place));
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
    throw std::runtime_error("unknown member " + Quoted(name) +
                             "; there are Fail, Garbage, ShowForm, ClientShutdown, "
                             "DefaultProfile, DefaultStore, Outbox, SentItems and ProfileName");
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
  const std::string text(json);
  const char* stop = text.c_str();
  const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> root(
      cJSON_ParseWithOpts(text.c_str(), &stop, true), cJSON_Delete);
  if (root == nullptr) {
    const auto line = static_cast<std::size_t>(std::count(text.c_str(), stop, '\n')) + 1;
    throw std::runtime_error(AtLine(line, "is no JSON from here on"));
  }
  if (!cJSON_IsObject(root.get())) {
    throw std::runtime_error("is no JSON object");
  }
  Place place(LinesOfMembers(json));
  try {
    for (const cJSON* member = root->child; member != nullptr; member = member->next) {
      ReadMember(member, place, config);
    }
  } catch (const std::runtime_error& problem) {
    throw std::runtime_error(AtLine(place.Line(), problem.what()));
  }
  return config;
}

}  // namespace zentpost::fake_mapi::sandbox
