#include <new>
#include <utility>

#include "tools/doctor/report.h"
#include "tools/doctor/report_parts.h"

namespace zentpost::doctor {
namespace {

// Takes over what the JSON library made: null when memory ran out.
JsonTree Made(cJSON* tree) {
  if (tree == nullptr) {
    throw std::bad_alloc();
  }
  return JsonTree(tree);
}

void Take(cJSON_bool is_added, JsonTree& item) {
  if (is_added == 0) {
    throw std::bad_alloc();
  }
  static_cast<void>(item.release());  // the parent's now
}

JsonTree NewObject() {
  return Made(cJSON_CreateObject());
}

// ToJson gives what stands in the report for a value. The templates find those that are declared
// before them.
JsonTree ToJson(const Verdict& verdict);
JsonTree ToJson(const Finding& finding);
JsonTree ToJson(const Setting& setting);
JsonTree ToJson(const Candidate& candidate);
JsonTree ToJson(const JobResult& result);
JsonTree ToJson(const Message& message);
JsonTree ToJson(const Message::Recipient& recipient);
JsonTree ToJson(const Message::Attachment& attachment);
JsonTree ToJson(const Rehearsal& rehearsal);
JsonTree ToJson(bool value) {
  return Made(cJSON_CreateBool(value ? 1 : 0));
}
JsonTree ToJson(int value) {
  return Made(cJSON_CreateNumber(value));
}
// The library's own numbers are rounded to 15 digits.
JsonTree ToJson(std::uint64_t value) {
  return Made(cJSON_CreateRaw(std::to_string(value).c_str()));
}
JsonTree ToJson(std::u16string_view text) {
  return Made(cJSON_CreateString(ReportText(text).c_str()));
}
JsonTree ToJson(std::string_view text) {
  return Made(cJSON_CreateString(ReportText(text).c_str()));
}
JsonTree ToJson(const std::u16string& text) {
  return ToJson(std::u16string_view(text));
}
JsonTree ToJson(const std::string& text) {
  return ToJson(std::string_view(text));
}
JsonTree ToJson(const LogLine& line) {
  return Made(cJSON_CreateString(ReportText(line.text, line.characters).c_str()));
}
JsonTree ToJson(const char* text) {
  return ToJson(std::string_view(text));
}
JsonTree ToJson(JsonTree tree) {
  return tree;
}

template <class Value>
JsonTree ToJson(const std::optional<Value>& value) {
  return value ? ToJson(*value) : Made(cJSON_CreateNull());
}

template <class Value>
JsonTree ToJson(const std::vector<Value>& values) {
  JsonTree array = Made(cJSON_CreateArray());
  for (const Value& value : values) {
    JsonTree item = ToJson(value);
    Take(cJSON_AddItemToArray(array.get(), item.get()), item);
  }
  return array;
}

template <class Value>
void Add(const JsonTree& object, const char* name, Value&& value) {
  JsonTree item = ToJson(std::forward<Value>(value));
  Take(cJSON_AddItemToObject(object.get(), name, item.get()), item);
}

JsonTree ToJson(const Verdict& verdict) {
  JsonTree object = NewObject();
  Add(object, "route", Name(verdict.route));
  Add(object, "delivered", verdict.delivered);
  Add(object, "exit_code", verdict.exit_code);
  Add(object, "text", verdict.text);
  return object;
}

JsonTree ToJson(const Finding& finding) {
  const CodeText texts = TextsOf(finding);
  JsonTree object = NewObject();
  Add(object, "code", finding.code);
  Add(object, "severity", Name(finding.severity));
  Add(object, "title", texts.title);
  Add(object, "seen", finding.seen);
  Add(object, "remedy", texts.remedy);
  return object;
}

JsonTree ToJson(const Setting& setting) {
  JsonTree object = NewObject();
  Add(object, "name", setting.name);
  Add(object, "hive", setting.hive);
  Add(object, "type", setting.type);
  Add(object, "value", setting.value);
  Add(object, "effect", setting.effect);
  return object;
}

JsonTree ToJson(const Candidate& candidate) {
  JsonTree object = NewObject();
  Add(object, "path", candidate.path);
  Add(object, "source", candidate.source);
  Add(object, "state", Name(candidate.state));
  Add(object, "bitness", candidate.bitness);
  Add(object, "exports", candidate.exports);
  Add(object, "missing_exports", candidate.missing_exports);
  return object;
}

JsonTree ToJson(const JobResult& result) {
  JsonTree object = NewObject();
  Add(object, "Status", result.status);
  Add(object, "ErrorCode", result.error_code);
  Add(object, "ErrorText", result.error_text);
  return object;
}

JsonTree ToJson(const Message::Recipient& recipient) {
  JsonTree object = NewObject();
  Add(object, "address", recipient.address);
  Add(object, "type", recipient.type);
  Add(object, "name", recipient.name);
  return object;
}

JsonTree ToJson(const Message::Attachment& attachment) {
  JsonTree object = NewObject();
  Add(object, "name", attachment.name);
  Add(object, "size", attachment.size);
  return object;
}

JsonTree ToJson(const Message& message) {
  JsonTree object = NewObject();
  Add(object, "subject", message.subject);
  Add(object, "body", message.body);
  Add(object, "sender", message.sender);
  Add(object, "recipient", message.recipient);
  Add(object, "attachment", message.attachment);
  return object;
}

JsonTree Fields(const Rehearsal& rehearsal) {
  JsonTree object = NewObject();
  for (const Rehearsal::Field* field : FirstFields(rehearsal)) {
    Add(object, ReportText(field->first).c_str(), field->second);
  }
  return object;
}

// A payload's tree with its texts, names included, as those of the report. As deep as the library
// parses.
JsonTree Copy(const cJSON* tree) {
  if (cJSON_IsString(tree) != 0) {
    return ToJson(tree->valuestring);
  }
  if (cJSON_IsObject(tree) == 0 && cJSON_IsArray(tree) == 0) {
    return Made(cJSON_Duplicate(tree, 0));
  }
  JsonTree copy = Made(cJSON_IsObject(tree) != 0 ? cJSON_CreateObject() : cJSON_CreateArray());
  for (const cJSON* child = tree->child; child != nullptr; child = child->next) {
    if (child->string != nullptr) {
      Add(copy, ReportText(std::string_view(child->string)).c_str(), Copy(child));
    } else {
      JsonTree item = Copy(child);
      Take(cJSON_AddItemToArray(copy.get(), item.get()), item);
    }
  }
  return copy;
}

JsonTree Payload(const std::optional<std::string>& payload) {
  const JsonTree tree = payload ? ParsePayload(*payload) : nullptr;
  return tree != nullptr ? Copy(tree.get()) : ToJson(payload);
}

JsonTree ToJson(const Rehearsal& rehearsal) {
  JsonTree object = NewObject();
  Add(object, "job_file", rehearsal.job_file);
  Add(object, "document", rehearsal.document);
  Add(object, "document_fate", Name(rehearsal.document_fate));
  Add(object, "result", rehearsal.result);
  Add(object, "fields", Fields(rehearsal));
  Add(object, "payload", Payload(rehearsal.payload));
  Add(object, "message", rehearsal.message);
  Add(object, "log", rehearsal.log);
  Add(object, "steps", rehearsal.steps);
  return object;
}

}  // namespace

std::string ReportAsJson(const Report& report) {
  const JsonTree object = NewObject();
  Add(object, "version", report.version);
  Add(object, "bitness", report.bitness);
  Add(object, "time", report.time);
  Add(object, "verdict", report.verdict);
  Add(object, "findings", report.findings);
  Add(object, "settings", report.settings);
  Add(object, "candidates", report.candidates);
  if (report.rehearsal) {
    Add(object, "rehearsal", *report.rehearsal);
  }
  Add(object, "assumed", report.assumed);
  const JsonText text(cJSON_Print(object.get()));
  if (text == nullptr) {
    throw std::bad_alloc();
  }
  return std::string(text.get()) + "\n";
}

}  // namespace zentpost::doctor
