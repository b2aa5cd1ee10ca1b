#include <algorithm>
#include <cstdint>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "addin/text_encoding.h"
#include "fuzz/targets.h"
#include "jobfile/commands.h"
#include "testing/fake_platform/fake_platform.h"

namespace zentpost::fuzz {
namespace {

constexpr char16_t kPath[] = u"job";

// Reading twice must give the same.
JobParameters Read(bool& is_job_file) {
  JobParameters params;
  is_job_file = CCommands::ReadFromFile(params, kPath) == JobFileReading::kJobFile;
  return params;
}

void CheckParameters(const JobParameters& params, bool is_job_file) {
  const std::vector<ParameterList::Entry>& arguments = params.arguments.Entries();
  const std::vector<ParameterList::Entry>& fields = params.faxFields.Entries();
  if (!is_job_file || arguments.empty()) {
    Require(arguments.empty() && fields.empty());
    return;
  }
  Require(arguments.size() == 2);
  Require(arguments[0].first == u"filename");
  Require(arguments[1].first == u"attdisplayname");
  Require(arguments[1].second.find(u".pdf") != std::u16string::npos);
  // Every field at most once and in its order, the number last.
  std::u16string letters;
  for (const auto& [name, value] : fields) {
    letters += name == u"+FAX" ? u"~" : name;
  }
  std::size_t at = 0;
  for (const char16_t letter : letters) {
    at = std::u16string_view(u"BCEKNOPSUZ~").find(letter, at);
    Require(at != std::u16string_view::npos);
    ++at;
  }
}

// What the parser passes over first: a byte-order mark, and all up to the blank.
bool BeginsObject(std::string_view text) {
  text.remove_prefix(text.starts_with("\xEF\xBB\xBF") ? 3 : 0);
  const auto first = std::find_if(text.begin(), text.end(),
                                  [](char unit) { return static_cast<unsigned char>(unit) > ' '; });
  return first != text.end() && *first == '{';
}

struct Outcome {
  std::int32_t status;
  std::int32_t code;
  const char16_t* text;
};
constexpr Outcome kOutcomes[] = {{0, 0, u""}, {1, -2147467259, u"MAPI Error"}};

void CheckOutcome(const Outcome& outcome) {
  const JsonTree tree = CCommands::LoadJsonFile(kPath).tree;
  Require(tree != nullptr);
  const cJSON* result = cJSON_GetObjectItem(tree.get(), "Result");
  Require(cJSON_IsObject(result) != 0);
  const cJSON* status = cJSON_GetObjectItem(result, "Status");
  const cJSON* code = cJSON_GetObjectItem(result, "ErrorCode");
  std::u16string text;
  Require(cJSON_IsNumber(status) != 0 && status->valueint == outcome.status);
  Require(cJSON_IsNumber(code) != 0 && code->valueint == outcome.code);
  Require(GetJsonString(result, u"ErrorText", text, u"none") == Lookup::kFound);
  Require(text == outcome.text);
}

}  // namespace

void FuzzJobFile(std::string_view input) {
  const FuzzedPlatform fuzzed;
  platform::fake::FakePlatform& fake = platform::fake::TheFakePlatform();
  fake.SetFile(kPath, std::string(input));

  bool is_job_file = false;
  const JobParameters before = Read(is_job_file);
  CheckParameters(before, is_job_file);
  Require(fake.FileBytes(kPath) == input);

  JobParameters job;
  job.arguments.Add(u"jobname", kPath);
  const Outcome& outcome = kOutcomes[input.size() % std::size(kOutcomes)];
  const bool is_written = CCommands::UpdateJobFile(job, outcome.status, outcome.code, outcome.text);
  Require(is_written == (is_job_file && BeginsObject(input)));
  if (is_written) {
    CheckOutcome(outcome);
    // What the job says is still what it said.
    bool is_still_job_file = false;
    const JobParameters after = Read(is_still_job_file);
    Require(is_still_job_file);
    Require(after.arguments.Entries() == before.arguments.Entries());
    Require(after.faxFields.Entries() == before.faxFields.Entries());
  } else {
    // Whatever it is, it is not the tool's to rewrite.
    Require(fake.FileBytes(kPath) == input);
  }
}

}  // namespace zentpost::fuzz
