#include <cjson/cJSON.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "app/registry_names.h"
#include "fuzz/input.h"
#include "fuzz/targets.h"
#include "platform/rehearsal/rehearsal.h"
#include "testing/fake_platform/fake_platform.h"
#include "tools/doctor/examination.h"
#include "tools/doctor/report.h"
#include "tools/doctor/test_library.h"
#include "tools/support/text.h"

namespace zentpost::fuzz {
namespace {

using platform::Hive;

constexpr char16_t kClient[] = u"Software\\Clients\\Mail\\Tolvan";

// A machine with a mail client, without an add-in, and with files under short names.
void SetUp(platform::fake::FakePlatform& fake) {
  static const std::string library = [] {
    doctor::TestPe made;
    for (const char* const name :
         {"FreePadrlist", "FreeProws", "HrQueryAllRows", "MAPIAdminProfiles", "MAPIAllocateBuffer",
          "MAPIFreeBuffer", "MAPIInitialize", "MAPILogonEx", "MAPIOpenFormMgr"}) {
      made.exports.push_back({name, ""});
    }
    return made.Build();
  }();
  fake.SetString(Hive::kLocalMachine, registry::kMailClientsKey, u"", u"Tolvan");
  fake.SetString(Hive::kLocalMachine, kClient, registry::kExtendedLibrary, u"C:\\m.dll");
  fake.SetFile(u"C:\\m.dll", library);
  fake.SetFile(u"j", R"({"FilePath": "d", "SourceFileName": "n", "Cmd": {"Receiver": ["1"]}})");
  fake.SetFile(u"k", R"({"Filepaht": "d", "S": 5, "Cmd": [{}]})");
  fake.SetFile(u"d", "document");
}

// That it is one JSON object in UTF-8.
void CheckJson(const std::string& json) {
  for (std::string_view rest = json; !rest.empty();) {
    const auto character = support::FirstCharacter(rest);
    Require(character.has_value());
    rest.remove_prefix(character->size);
  }
  cJSON* const tree = cJSON_Parse(json.c_str());
  Require(cJSON_IsObject(tree) != 0);
  cJSON_Delete(tree);
}

// That no text of the job looks like a line of the report.
void CheckText(const std::string& text) {
  for (const char byte : text) {
    Require(byte == '\n' || static_cast<unsigned char>(byte) >= ' ');
  }
}

}  // namespace

void FuzzDoctorLine(std::string_view input) {
  const FuzzedPlatform fuzzed;
  platform::fake::FakePlatform& fake = platform::fake::TheFakePlatform();
  SetUp(fake);
  const std::vector<std::u16string> files = fake.FilePaths();
  {
    const doctor::Report report =
        doctor::Examine({.line = Input(input).Text(), .connects = false, .keeps_whole_log = false})
            .report;
    CheckJson(doctor::ReportAsJson(report));
    CheckText(doctor::ReportAsText(report));
    Require(report.verdict.delivered == (report.verdict.exit_code == 0));
    Require(report.rehearsal.has_value());
  }
  platform::rehearsal::Begin({});
  Require(fake.FilePaths() == files);
}

std::vector<Target> Targets() {
  return {{"doctor_line", FuzzDoctorLine}};
}

}  // namespace zentpost::fuzz
