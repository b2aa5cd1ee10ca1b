#include "job.h"

#include <cjson/cJSON.h>

#include <cstdio>
#include <memory>

namespace starter {
namespace {

using Json = std::unique_ptr<cJSON, decltype(&cJSON_Delete)>;

// The fields' options, their names in the job file, and their letters in a fax command.
const struct {
  const char* option;
  const char* name;
  char letter;
} kFields[] = {{"recipient", "RecipientName", 'E'},
               {"comment", "Comment", 'K'},
               {"preview", "Preview", 'P'},
               {"subject", "Subject", 'S'},
               {"sender", "UserName", 'U'}};

std::string Value(const Options& options, const std::string& name) {
  const auto found = options.find(name);
  return found == options.end() ? "" : found->second;
}

// A text of the job file arrives as it is, whatever it holds, but for this.
void CheckText(const std::string& what, const std::string& text) {
  if (text.find('\0') != std::string::npos) {
    throw Refused(what + " holds a zero character, at which the tool would end it");
  }
}

bool IsControlCharacter(const std::string& text, std::size_t at) {
  const auto byte = static_cast<unsigned char>(text[at]);
  // U+0080 to U+009F are C2 80 to C2 9F.
  return byte < 0x20 || byte == 0x7F ||
         (byte == 0xC2 && at + 1 < text.size() && static_cast<unsigned char>(text[at + 1]) < 0xA0);
}

void CheckField(const std::string& what, const std::string& text) {
  bool is_bad = !text.empty() && (text.front() == ' ' || text.back() == ' ');
  for (std::size_t i = 0; i < text.size(); ++i) {
    is_bad = is_bad || text[i] == ';' || text[i] == '"' || text[i] == '\'' ||
             IsControlCharacter(text, i);
  }
  if (is_bad) {
    throw Refused(
        what +
        " holds a semicolon, a quote, an apostrophe, a control character or a blank at one "
        "of its ends, which no fax command can carry: leave --fax-command out");
  }
}

bool IsInteger(const cJSON* json) {
  return cJSON_IsNumber(json) && json->valuedouble == json->valueint;
}

}  // namespace

const char kHelp[] =
    R"(usage: starter [--tool PATH] --document PATH --to NUMBER [options]

Hands one fax job to Zentpost, waits for its end and tells what became of it.

  --tool PATH        zentpost; else the one that is installed (Windows alone)
  --document PATH    the document; Zentpost may delete it once it is attached
  --to NUMBER        the fax number
  --name NAME        the document's name for its receiver; else its own
  --recipient NAME   the recipient's name
  --sender NAME      the sender's name
  --subject TEXT     the subject
  --comment TEXT     the text of the message
  --preview          show the message to the user before it goes out
  --job-folder PATH  where the job's own folder is made; else the folder for
                     temporary files
  --fax-command      number and texts go onto the command line, not into the
                     job file
  --help             show this text (also -h)

exit codes:
  0  delivered
  1  not delivered
  2  nothing was started: a wrong command line, or no tool
  3  unclear: do not send it again before you know
)";

Options ReadOptions(const std::vector<std::string>& words) {
  static const std::map<std::string, bool> kHasValue = {
      {"--tool", true},      {"--document", true},   {"--to", true},          {"--name", true},
      {"--recipient", true}, {"--sender", true},     {"--subject", true},     {"--comment", true},
      {"--preview", false},  {"--job-folder", true}, {"--fax-command", false}};
  Options options;
  for (auto word = words.begin(); word != words.end(); ++word) {
    const auto found = kHasValue.find(*word);
    if (found == kHasValue.end()) {
      throw Refused("unknown option " + *word + "; --help shows those there are");
    }
    if (found->second && ++word == words.end()) {
      throw Refused(found->first + " needs a value");
    }
    options[found->first.substr(2)] = found->second ? *word : "1";
  }
  for (const char* const name : {"document", "to"}) {
    if (Value(options, name).empty()) {
      throw Refused(std::string("--") + name + " is missing");
    }
  }
  return options;
}

void CheckPath(const std::string& path) {
  CheckText("the job file's path", path);
  if (path.empty()) {
    throw Refused("the job file's path is empty");
  }
  if (path.find_first_of("\"'") != std::string::npos) {
    throw Refused(
        "the job file's path holds a quote or an apostrophe, which the tool takes away: choose "
        "another folder with --job-folder: " +
        path);
  }
}

// The tool looks for ".pdf" in small letters, and appends it where there is none.
std::string DisplayName(const std::string& document) {
  std::string name = document.substr(document.find_last_of("/\\") + 1);
  if (name.size() >= 4) {
    std::string end = name.substr(name.size() - 4);
    for (char& letter : end) {
      letter = letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
    }
    if (end == ".pdf") {
      name.replace(name.size() - 4, 4, end);
    }
  }
  return name;
}

std::string JobFileText(const Options& options) {
  const Json job(cJSON_CreateObject(), cJSON_Delete);
  const auto add = [&options](cJSON* object, const char* name, const char* option) {
    const std::string text = Value(options, option);
    CheckText(std::string("--") + option, text);
    cJSON_AddStringToObject(object, name, text.c_str());
  };
  add(job.get(), "FilePath", "document");
  add(job.get(), "SourceFileName", "name");
  if (options.count("fax-command") == 0) {
    cJSON* const command = cJSON_AddObjectToObject(job.get(), "Cmd");
    cJSON* const parameters = cJSON_AddObjectToObject(command, "Parameters");
    for (const auto& field : kFields) {
      if (!Value(options, field.option).empty()) {
        add(parameters, field.name, field.option);
      }
    }
    const std::string number = Value(options, "to");
    CheckText("--to", number);
    cJSON_AddItemToArray(cJSON_AddArrayToObject(command, "Receiver"),
                         cJSON_CreateString(number.c_str()));
  }
  const std::unique_ptr<char, decltype(&cJSON_free)> text(cJSON_Print(job.get()), cJSON_free);
  return text != nullptr ? text.get() : throw std::bad_alloc();
}

std::string FaxCommand(const Options& options) {
  std::string command = Value(options, "to");
  CheckField("--to", command);
  if (command.rfind('/', 0) == 0) {
    throw Refused(
        "--to begins with a slash, and would be taken for an option: leave --fax-command out");
  }
  for (const auto& field : kFields) {
    const std::string text = Value(options, field.option);
    CheckField(std::string("--") + field.option, text);
    if (!text.empty()) {
      command += std::string(";") + field.letter + text;
    }
  }
  return command;
}

std::string CommandLine(const std::string& tool, const std::vector<std::string>& words) {
  std::string line = '"' + tool + '"';
  for (const std::string& word : words) {
    line += " \"" + word + '"';
  }
  return line;
}

std::optional<Result> ReadResult(const std::string& job_file) {
  const Json job(cJSON_ParseWithOpts(job_file.c_str(), nullptr, 1), cJSON_Delete);
  const cJSON* const result = cJSON_GetObjectItemCaseSensitive(job.get(), "Result");
  const cJSON* const status = cJSON_GetObjectItemCaseSensitive(result, "Status");
  const cJSON* const code = cJSON_GetObjectItemCaseSensitive(result, "ErrorCode");
  const cJSON* const text = cJSON_GetObjectItemCaseSensitive(result, "ErrorText");
  if (!IsInteger(status) || !IsInteger(code) || !cJSON_IsString(text)) {
    return std::nullopt;
  }
  return Result{status->valueint, code->valueint, text->valuestring};
}

Judgement Judge(unsigned long exit_code, const std::optional<Result>& result) {
  if (exit_code == 0 && result && result->status == 0) {
    return {kDelivered, "delivered"};
  }
  if (exit_code == 1 && result && result->status == 1) {
    char code[16];
    std::snprintf(code, sizeof code, "0x%08X", static_cast<unsigned>(result->error_code));
    return {kNotDelivered, "not delivered: " + result->error_text + " (error code " +
                               std::to_string(result->error_code) + ", " + code + ')'};
  }
  return {
      kUnclear,
      "unclear: the tool ended with exit code " + std::to_string(exit_code) + " and left " +
          (result ? "a Result with the status " + std::to_string(result->status) : "no Result")};
}

}  // namespace starter
