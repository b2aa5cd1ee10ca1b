#include "tools/doctor/parity/random_machine.h"

#include <algorithm>
#include <array>
#include <random>
#include <string_view>
#include <vector>

#include "app/registry_names.h"
#include "fake_mapi/functions.h"
#include "mapiload/discovery.h"
#include "platform/call.h"
#include "testing/fake_platform/fake_platform.h"
#include "tools/doctor/candidates.h"
#include "tools/doctor/test_library.h"
#include "tools/support/text.h"

namespace zentpost::doctor::parity {
namespace {

using platform::Hive;
using platform::fake::FakePlatform;
using platform::reading::Listener;

constexpr char16_t kClient[] = u"Software\\Clients\\Mail\\Tolvan";
constexpr char16_t kSystemLibrary[] = u"C:\\Windows\\system32\\mapi32.dll";
constexpr char16_t kLogFolder[] = u"C:\\AppData\\VORNA\\Client\\Log";
constexpr bool kIs64 = sizeof(void*) == 8;

// What the stub's FGetComponentPath tells the tool.
std::int32_t PLATFORM_STDCALL FindStubComponent(const char* /*component*/,
                                                const char* /*qualifier*/, char* path,
                                                std::uint32_t capacity, std::int32_t /*installs*/) {
  constexpr std::string_view kPath = "C:\\Hidden\\olmapi32.dll";
  if (capacity <= kPath.size()) {
    return 0;
  }
  *std::copy(kPath.begin(), kPath.end(), path) = '\0';
  return 1;
}

class Maker {
 public:
  Maker(std::uint32_t seed, Side side) : random_(seed), side_(side) {}

  RandomJob Make() {
    fake_.Reset();
    MakeProcess();
    MakeAddin();
    MakeClient();
    MakeSettings();
    MakeJob();
    return job_;
  }

 private:
  // A number below `count`.
  std::size_t Below(std::size_t count) { return random_() % count; }
  // True once in `count` times.
  bool OneIn(std::size_t count) { return Below(count) == 0; }
  template <class Value>
  Value Pick(std::initializer_list<Value> values) {
    return *(values.begin() + Below(values.size()));
  }

  bool IsForTool() const { return side_ == Side::kTool; }

  void MakeProcess() {
    fake_.SetProcess({u"C:\\Program Files\\Zentpost\\",
                      OneIn(8),
                      OneIn(8) ? 932u : 1252u,
                      OneIn(8),
                      false,
                      {u"C:\\Users\\Anna", u"C:\\Temp"}});
    if (OneIn(10)) {
      fake_.SetFile(u"C:\\Program Files\\Zentpost\\mapi32.dll", "");
    }
    if (!OneIn(3)) {
      fake_.SetString(Hive::kCurrentUser, u"Software\\Microsoft\\Office\\16.0\\Outlook",
                      u"DefaultProfile", OneIn(6) ? u"" : u"Outlook");
    }
    if (OneIn(10)) {
      fake_.SetDword(Hive::kCurrentUser, u"Software\\Microsoft\\Office\\16.0\\Outlook\\Preferences",
                     u"UseNewOutlook", 1);
    }
  }

  void MakeAddin() {
    if (OneIn(4)) {
      return;
    }
    const auto text = OneIn(3)
                          ? Pick<std::u16string_view>({u"5000 ", u"", u"0", u"70536", u"port",
                                                       u"+5000", u"5000;", u"00000000000000005000"})
                          : u"5000";
    fake_.SetString(Hive::kCurrentUser, registry::kAddinKey, registry::kAddinPort, text,
                    OneIn(8) ? platform::kRegExpandSz : platform::kRegSz);
    if (OneIn(2)) {
      return;
    }
    job_.addin_goes = OneIn(12);
    if (job_.addin_goes && IsForTool()) {
      fake_.Listen(5000, platform::fake::Peer::kAccept, 1);
    } else {
      fake_.Listen(5000);
    }
    if (OneIn(8)) {
      // The doctor alone asks for it.
      fake_.SetListener(5000,
                        {Pick({Listener::State::kPerhaps, Listener::State::kUnknown}), 0, u""});
    } else if (OneIn(2)) {
      fake_.SetListener(5000, {Listener::State::kListens, 4711, u"TOLVAN.EXE"});
    }
  }

  // Puts a library of some kind to where `path` leads.
  void MakeLibrary(const std::u16string& path) {
    TestPe library;
    const bool is_other = OneIn(5);
    if (kIs64 == is_other) {
      library.machine = 0x014C;
      library.bitness = 32;
      library.characteristics = 0x2102;
    }
    FakePlatform::Exports exports;
    const auto functions = fake_mapi::Functions();
    const bool is_simple = OneIn(10);
    const bool lacks_some = OneIn(3);
    const bool is_decorated = library.bitness == 32 && OneIn(4);
    for (const MapiFunction& function : kMapiFunctions) {
      const std::string_view name = function.name;
      const bool is_there = is_simple ? name == "MAPIFreeBuffer" : !lacks_some || !OneIn(9);
      if (is_there) {
        const std::string exported = is_decorated ? function.decorated : function.name;
        library.exports.push_back({exported, ""});
        exports[exported] = functions.at(function.name);
      }
    }
    if (is_simple) {
      library.exports.push_back({"MAPISendMail", ""});
    }
    if (path == kSystemLibrary && OneIn(2)) {
      library.exports.push_back({"FGetComponentPath", ""});
      exports["FGetComponentPath"] = reinterpret_cast<platform::Procedure>(FindStubComponent);
    }
    std::sort(library.exports.begin(), library.exports.end(),
              [](const auto& left, const auto& right) { return left.name < right.name; });
    if (OneIn(10)) {
      library.characteristics &= 0xDFFF;  // a program: it loads all the same
    }
    if (OneIn(12)) {
      fake_.SetFile(path, Pick<std::string>({"", "MZ", "no library at all",
                                             "\x7F"
                                             "ELF"}));
      return;
    }
    fake_.SetFile(path, library.Build());
    if (IsForTool() && !is_other) {
      fake_.AddModule(path, std::move(exports));
    }
  }

  void MakeRegisteredLibrary(const char16_t* name) {
    const std::u16string path = Pick<std::u16string>(
        {u"C:\\Tolvan\\olmapi32.dll", u"C:\\Tolvan\\olmapi32.dll", u"C:\\Users\\Anna\\x.dll",
         u"%TOLVAN%\\olmapi32.dll", u"mail\\x.dll", u"x.dll", u"C:\\Nowhere\\x.dll", u"",
         u"C:\\" + std::u16string(Below(300), u'a') + u"\\x.dll"});
    const std::uint32_t type = OneIn(8)                             ? platform::kRegBinary
                               : path.starts_with(u'%') || OneIn(4) ? platform::kRegExpandSz
                                                                    : platform::kRegSz;
    fake_.SetString(Hive::kLocalMachine, kClient, name, path, type);
    const std::u16string place = path.starts_with(u'%') ? u"C:\\Tolvan\\olmapi32.dll"
                                 : path == u"x.dll"     ? u"C:\\Windows\\system32\\x.dll"
                                                        : path;
    if (!path.empty() && !place.starts_with(u"C:\\Nowhere") && path.size() < 250 &&
        !fake_.FileBytes(place) && !OneIn(6)) {
      MakeLibrary(place);
    }
  }

  void MakeClient() {
    fake_.SetVariable(u"TOLVAN", OneIn(10) ? std::u16string(300, u'b') : u"C:\\Tolvan");
    if (!OneIn(8)) {
      fake_.SetString(Hive::kLocalMachine, registry::kMailClientsKey, u"",
                      OneIn(10) ? Pick<std::u16string>({u"", u"Another", std::u16string(200, u'c')})
                                : u"Tolvan");
    }
    if (OneIn(4)) {
      fake_.SetString(Hive::kCurrentUser, registry::kMailClientsKey, u"",
                      Pick<std::u16string>({u"Tolvan", u"Another", u""}));
    }
    for (const char16_t* const name : {registry::kExtendedLibrary, registry::kLibrary}) {
      if (!OneIn(3)) {
        MakeRegisteredLibrary(name);
      }
    }
    if (OneIn(6)) {
      fake_.SetString(Hive::kLocalMachine, kClient, registry::kInstallerComponent,
                      OneIn(4) ? std::u16string(140, u'd') : u"{1}");
      fake_.SetString(Hive::kLocalMachine, kClient, registry::kInstallerLanguage, u"1033");
      job_.has_unknown_path = true;
    }
    if (!OneIn(3)) {
      MakeLibrary(kSystemLibrary);
    }
    if (OneIn(6)) {
      MakeComponent(OutlookComponentIds[Below(OutlookComponentIds.size())]);
    }
    job_.logon_fails = OneIn(16);
  }

  void MakeComponent(const char16_t* category) {
    const bool is_known = !OneIn(3);
    job_.has_unknown_path |= !is_known;
    const std::u16string folder = OneIn(4) ? u"C:\\Gone" : u"C:\\Office";
    if (folder == u"C:\\Office") {
      MakeLibrary(u"C:\\Office\\olmapi32.dll");
    }
    const std::u16string path = folder + u"\\outlook.exe";
    if (is_known || IsForTool()) {
      fake_.AddComponent(category, Pick<std::u16string_view>({u"outlook.x64.exe", u"outlook.exe"}),
                         path);
    } else {
      fake_.AddComponent(category, Pick<std::u16string_view>({u"outlook.x64.exe", u"outlook.exe"}),
                         std::nullopt);
    }
  }

  void MakeNumber(Hive hive, const char16_t* name) {
    switch (Below(8)) {
      case 0:
      case 1:
        fake_.SetDword(hive, registry::kFaxClientKey, name, static_cast<std::uint32_t>(Below(3)));
        break;
      case 2:
        fake_.SetString(hive, registry::kFaxClientKey, name,
                        Pick<std::u16string_view>({u"", u"0", u"1", u"yes"}));
        break;
      default:
        break;
    }
  }

  void MakeSettings() {
    for (const Hive hive : {Hive::kCurrentUser, Hive::kLocalMachine}) {
      MakeNumber(hive, registry::kLogLevel);
      if (OneIn(3)) {
        MakeNumber(hive, registry::kSkipExtendedMapi);
      }
    }
    if (!OneIn(4)) {
      fake_.AddFolder(kLogFolder);
      if (OneIn(6)) {
        const std::u16string log = kLogFolder + std::u16string(u"\\zentpost.log");
        fake_.SetFile(log, "");
        fake_.SetReadOnly(log, true);
      }
    }
    if (OneIn(3)) {
      const auto set = [&](const char16_t* name, std::u16string_view text) {
        fake_.SetString(Hive::kCurrentUser, registry::kAddinKey, name, text);
      };
      set(registry::kAddressAutomation,
          Pick<std::u16string_view>({u"1", u"1", u"1", u"0", u"", u"1 ", u"true"}));
      set(registry::kAddressPrefix, Pick<std::u16string_view>({u"", u"[FAX", u"FAX=", u"+49"}));
      set(registry::kAddressPostfix,
          Pick<std::u16string_view>({u"", u"]", u"@fax.invalid", u"\u00E4"}));
    }
    if (OneIn(8)) {
      fake_.AddKey(Hive::kCurrentUser, registry::kAddinKey);
      fake_.SetReadOnlyKey(Hive::kCurrentUser, registry::kAddinKey);
    }
  }

  // --- the job ---

  // A text of a fax job, as people write them and as they do not.
  std::u16string RandomText() {
    return Pick<std::u16string>({u"", u"Invoice", u"a b", u"B\u00E4ckerei M\u00FCller",
                                 u"100 \u20AC", u"\u65E5\u672C\u8A9E", u"\U0001F4E0 fax", u"it's",
                                 u"\u0142\u00F3d\u017A", u"x\u00AD\u0081y", u"-",
                                 std::u16string(Below(3000), u'l'),
                                 u"\u00E4" + std::u16string(Below(300), u'\u00F6')});
  }

  std::string Json(std::u16string_view text) {
    std::string json = "\"";
    for (const char byte : support::Utf8(text)) {
      json += byte == '"' || byte == '\\' ? std::string("\\") + byte : std::string(1, byte);
    }
    if (OneIn(60)) {
      json += Pick<const char*>({"\\n", "\\u00e4", "\xFF", "\\ud83d\\udce0", "\\t"});
    }
    return json + "\"";
  }

  // A member, now and then misspelt or of another type.
  std::string Member(std::string name, const std::string& value) {
    if (OneIn(25)) {
      std::swap(name[Below(name.size())], name[Below(name.size())]);
    }
    return "\"" + name +
           "\": " + (OneIn(30) ? Pick<std::string>({"5", "null", "{}", "[]", "true"}) : value);
  }

  std::string Join(const std::vector<std::string>& members) {
    std::string text = "{";
    for (const std::string& member : members) {
      text += (text.size() > 1 ? ", " : "") + member;
    }
    return text + (OneIn(60) ? ",}" : "}");
  }

  std::string JobFile() {
    std::vector<std::string> parameters;
    for (const char* const name :
         {"Subject", "Comment", "RecipientName", "SenderName", "SendTime"}) {
      if (OneIn(3)) {
        parameters.push_back(Member(name, Json(RandomText())));
      }
    }
    for (const char* const name : {"S", "K", "E", "U", "P", "C", "N", "B", "Z"}) {
      if (OneIn(8)) {
        parameters.push_back(Member(name, Json(RandomText())));
      }
    }
    if (!diversion_.empty()) {
      parameters.push_back("\"O\": " + Json(diversion_));
    }
    std::vector<std::string> command;
    if (!OneIn(5)) {
      command.push_back(
          Member("Receiver",
                 OneIn(20) ? Json(u"0301") : "[" + Json(OneIn(6) ? RandomText() : u"0301") + "]"));
    }
    command.push_back(Member(OneIn(4) ? "Commands" : "Parameters", Join(parameters)));
    std::vector<std::string> top;
    if (!OneIn(15)) {
      top.push_back(Member("FilePath", Json(job_.document)));
    }
    if (!OneIn(15)) {
      top.push_back(Member("SourceFileName", Json(OneIn(3) ? RandomText() : u"invoice")));
    }
    if (OneIn(20)) {
      top.push_back("\"Result\": {\"Status\": 7}");
    }
    top.push_back(Member("Cmd", Join(command)));
    std::string text = Join(top);
    switch (Below(40)) {
      case 0:
        return "\xEF\xBB\xBF" + text;
      case 1:
        return "[" + text + "]";
      case 2:
        return text.substr(0, Below(text.size()));
      case 3:
        return "\r\n  " + text + "\n";
      case 4:
        return "";
      default:
        return text;
    }
  }

  std::u16string FaxCommand() {
    std::u16string command = OneIn(6) ? u"" : u"0301";
    for (std::size_t fields = Below(4); fields > 0; --fields) {
      command += u';';
      command += Pick<char16_t>({u'S', u'K', u'E', u'U', u'P', u'C', u'N', u'x'});
      command += Pick<std::u16string>({u"", u"Invoice", u"\u00E4\u20AC", u"-", u"'a;b'", u"l d"});
    }
    if (!diversion_.empty()) {
      command += u";O" + diversion_;
    }
    return command;
  }

  std::u16string Enclosed(const std::u16string& text) {
    const std::u16string quote = Pick<std::u16string>({u"\"", u"\"", u"'", u""});
    return text.find(u' ') != text.npos && quote.empty() ? u"\"" + text + u"\""
                                                         : quote + text + quote;
  }

  void MakeDocument() {
    job_.document =
        Pick<std::u16string>({u"C:\\fax\\a.pdf", u"C:\\fax\\a.pdf", u"C:\\fax\\a.pdf", u"a.pdf",
                              u"C:\\fax\\Brief \u00E4\u20AC.tif", u"C:\\fax\\it's.pdf",
                              u"C:\\fax\\noname", u"C:\\fax\\\u65E5.pdf"});
    switch (Below(14)) {
      case 0:
        break;
      case 1:
        fake_.AddFolder(job_.document);
        break;
      case 2:
        fake_.AddPipe(job_.document);
        break;
      case 3:
        fake_.SetFile(job_.document, "");
        break;
      case 4:
        fake_.SetFile(job_.document, "read-only");
        fake_.SetReadOnly(job_.document, true);
        break;
      case 5:
        fake_.SetFile(job_.document, "great");
        fake_.SetReportedSize(job_.document, std::uint64_t{1} << 32);
        break;
      default:
        fake_.SetFile(job_.document, std::string(Below(40000), 'd'));
    }
  }

  void MakeJob() {
    MakeDocument();
    job_.job_file = u"C:\\fax\\job.json";
    if (OneIn(8)) {
      diversion_ = Pick<std::u16string>({u"C:\\fax\\out.json", u"out.json", job_.document,
                                         job_.job_file, u"C:\\nowhere\\out.json"});
    }
    if (OneIn(3)) {
      job_.line = Enclosed(job_.document);
      if (!OneIn(4)) {
        job_.line += u" " + FaxCommand();
      }
    } else {
      job_.has_job_file = true;
      fake_.SetFile(job_.job_file, JobFile());
      if (OneIn(20)) {
        fake_.SetReadOnly(job_.job_file, true);
      }
      job_.line = Enclosed(job_.job_file);
      if (OneIn(12)) {
        fake_.Remove(job_.job_file);
      }
    }
    if (OneIn(6)) {
      job_.line +=
          Pick<std::u16string>({u" /AttDisplayName Letter", u"  /x y", u" /attdisplayname 'a b'",
                                u" \"open", u" /x", u"  ", u" /FileName C:\\fax\\b.pdf"});
    }
    if (OneIn(40)) {
      job_.line = Pick<std::u16string>({u"", u" ", u"\"\"", u"/x"});
    }
  }

  std::mt19937 random_;
  const Side side_;
  FakePlatform& fake_ = platform::fake::TheFakePlatform();
  RandomJob job_;
  std::u16string diversion_;  // the path for field O; empty: none
};

}  // namespace

RandomJob SetUpRandomMachine(std::uint32_t seed, Side side) {
  return Maker(seed, side).Make();
}

}  // namespace zentpost::doctor::parity
