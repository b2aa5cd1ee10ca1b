// The search with every call to the system failing, one after the other, and with memory running
// out. What is expected of such a search is not recorded but worked out: ExpectedSearch goes
// through it once more in its own words, asks at every call whether it is the one that fails, and
// says what is then traced, found and kept.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "mapiload/discovery.h"
#include "mapiload/entry_points.h"
#include "mapiload/library.h"
#include "mapiload/process_state.h"
#include "mapiload/trace.h"
#include "testing/allocation_faults.h"
#include "testing/fake_platform/fault_sweep.h"
#include "testing/mapi_search.h"
#include "testing/text_printers.h"

namespace zentpost {
namespace {

using platform::Module;
using platform::RawModule;
using platform::fake::FaultMode;
using platform::fake::FaultRun;
using platform::fake::SweepFaults;
using test::Readable;
using Lines = std::vector<std::string>;

const std::string kExPath = R"(C:\Mail\ex.dll)";
const std::string kOutlookPath = R"(C:\Office\olmapi32.dll)";
const std::string kPlainPath = R"(C:\Mail\plain.dll)";
const std::string kMsiPath = R"(C:\Mail\msi.dll)";
const std::string kSystemFolder = R"(C:\Windows\system32)";
const std::string kSystemPath = R"(C:\Windows\system32\mapi32.dll)";
const std::string kLoadedPath = R"(D:\Host\olmapi32.dll)";

constexpr std::size_t kOutlookCategory = 2;

std::u16string Wide(const std::string& text) {
  return std::u16string(text.begin(), text.end());
}

std::string FileName(const std::string& path) {
  return path.substr(path.rfind('\\') + 1);
}

// Every source of the search has something to say; they differ in which libraries are there.
struct Scenario {
  const char* name;
  // Apart from the system's own, which is also the stub.
  std::set<std::string> libraries;
  bool is_loaded_already = false;  // an olmapi32.dll of the process's own
};

class ExpectedSearch {
 public:
  ExpectedSearch(const Scenario& scenario, const FaultRun& run) : scenario_(scenario), run_(run) {
    Search();
  }

  Lines trace;
  std::string found;                              // the installed library; empty: none
  std::map<std::string, std::size_t> references;  // what the search keeps

 private:
  struct Function {
    std::string library;
    std::string name;
    bool is_loaded = false;
    bool is_bound = false;
  };

  // One more call to the system: whether it works.
  bool Call() {
    const std::size_t index = calls_++;
    return run_.mode == FaultMode::kOnce ? index != run_.index : index < run_.index;
  }
  bool Load(const std::string& path) {
    return Call() && (path == kSystemPath || scenario_.libraries.contains(path));
  }

  void Line(const std::string& format, const std::optional<std::string>& arguments = {}) {
    trace.push_back(format + (arguments ? " [" + *arguments + "]" : ""));
  }
  void Failure(const std::string& label, std::uint32_t status) {
    Line("%ws failed with 0x%08X", label + ", " + std::to_string(status));
  }

  void Search() {
    Line(R"(Enter GetPrivateMAPI\n)");
    if (Attach("olmapi32.dll", scenario_.is_loaded_already)) {
      Install(kLoadedPath);
    } else if (!Attach("msmapi32.dll", false)) {
      const std::string path = FirstCandidate();
      if (!path.empty()) {
        ++references[path];
        Install(path);
      }
    }
    Line(R"(Exit GetPrivateMAPI: Returning GetMAPIHandle() = %p\n)",
         found.empty() ? "null" : FileName(found));
  }

  bool Attach(const std::string& name, bool is_loaded) {
    Line(R"(Enter AttachToMAPIDll: wzMapiDll = %ws\n)", name);
    const bool has_function = Bind(kernel_);
    const bool is_found = Call() && is_loaded;
    if (is_found && has_function) {
      ++references[kLoadedPath];
    }
    Line(R"(Exit AttachToMAPIDll: hinstPrivateMAPI = %p\n)", is_found ? name : "null");
    return is_found;
  }

  std::string FirstCandidate() {
    Line(R"(Enter GetDefaultMapiHandle\n)");
    Lines candidates;
    const bool has_client = OpenClient();
    const auto add = [&](const std::optional<std::string>& path) {
      if (path) {
        candidates.push_back(*path);
      }
    };
    add(Value(has_client, "DllPathEx", R"(%Mail%\ex.dll)", kExPath));
    Line(R"(Enter GetInstalledOutlookMAPI\n)");
    std::size_t outlooks = 0;
    for (std::size_t category = 0; category < OutlookComponentIds.size(); ++category) {
      const std::optional<std::string> path = BesideOutlook(category);
      outlooks += path ? 1 : 0;
      add(path);
    }
    Line(R"(Exit GetInstalledOutlookMAPI: found %d paths\n)", std::to_string(outlooks));
    add(Value(has_client, "DllPath", kPlainPath, std::nullopt));
    if (has_client) {
      add(InstallersPath());
    }
    add(SystemFolder() + R"(\mapi32.dll)");

    std::string loaded;
    for (const std::string& path : candidates) {
      Line(R"(Trying %ws\n)", path);
      if (Load(path)) {
        loaded = path;
        break;
      }
    }
    Line(R"(Exit GetDefaultMapiHandle: hinstMapi = %p\n)",
         loaded.empty() ? "null" : FileName(loaded));
    return loaded;
  }

  void Install(const std::string& path) {
    found = path;
    Line(R"(Enter SetMAPIHandle: hinstMAPI = %p\n)", FileName(path));
    Line(R"(load: LoadFromOLMAPIDir - loading "%ws"\n)", "pstprx32.dll");
    for (std::size_t category = 0; category < OutlookComponentIds.size(); ++category) {
      if (BesideOutlook(category)) {
        Line(R"(load: LoadFromOLMAPIDir - loading from "%ws"\n)", "C:");
        Call();  // nothing has that path
      }
    }
    Line(R"(Exit SetMAPIHandle\n)");
  }

  bool OpenClient() {
    Line(R"(Enter GetHKeyMapiClient (%ws)\n)", "");
    bool is_open = false;
    if (!Call()) {
      Failure("GetHKeyMapiClient: RegOpenKeyExW(HKLM)", run_.status);
    } else if (!Call()) {
      Failure("GetHKeyMapiClient: RegQueryValueExW(hMailKey)", run_.status);
    } else {
      Line(R"(GetHKeyMapiClient: HKLM\%ws = %ws\n)", R"(Software\Clients\Mail, Some Client)");
      Line(R"(GetHKeyMapiClient: pwzProvider = %ws\n)", "Some Client");
      is_open = Call();
      if (!is_open) {
        Failure("GetHKeyMapiClient: RegOpenKeyExW", run_.status);
      }
    }
    Line(R"(Exit GetHKeyMapiClient.hkeyMapiClient found (%ws)\n)", is_open ? "true" : "false");
    return is_open;
  }

  // `expanded`: what the value becomes; nothing when it is not to be expanded.
  std::optional<std::string> Value(bool has_key, const std::string& name, const std::string& stored,
                                   const std::optional<std::string>& expanded) {
    Line(R"(Enter RegQueryWszExpand: hKey = %p, lpValueName = %ws\n)",
         (has_key ? "handle, " : "null, ") + name);
    std::uint32_t status = run_.status;
    if (Call()) {
      status = has_key ? platform::kSuccess : platform::kInvalidHandle;
    }
    std::optional<std::string> result;
    if (status == platform::kSuccess) {
      Line(R"(RegQueryWszExpand: rgchValue = %ws\n)", stored);
      if (!expanded) {
        result = stored;
      } else if (Call()) {
        result = expanded;
        Line(R"(RegQueryWszExpand: rgchValue(expanded) = %ws\n)", *expanded);
      }
    }
    Line(R"(Exit RegQueryWszExpand: dwErr = 0x%08X\n)", std::to_string(status));
    return result;
  }

  std::optional<std::string> InstallersPath() {
    Line(R"(Enter GetMailClientFromMSIData\n)");
    std::optional<std::string> path;
    if (Call() && Call()) {
      Line(R"(Enter GetComponentPath: szComponent = %ws, szQualifier = %ws, fInstall = 0x%08X\n)",
           "{C}, 1031, 0");
      bool has_stub = Call();
      if (!has_stub) {
        Call();  // there is no mapistub.dll
      }
      if (has_stub && Call()) {
        path = kMsiPath;
        Line(R"(GetComponentPath: path = %ws\n)", *path);
      }
      Line(R"(Exit GetComponentPath: fReturn = 0x%08X\n)", path ? "1" : "0");
    }
    Line(R"(Exit GetMailClientFromMSIData: szPath = %ws\n)", path.value_or(""));
    return path;
  }

  std::optional<std::string> BesideOutlook(std::size_t category) {
    const std::string id = Readable(OutlookComponentIds[category]);
    Line(R"(Enter GetInstalledOutlookMAPI(%s)\n)", id);
    Line(R"(Enter GetOutlookPath: szCategory = %ws\n)", id);
    const bool is_known = category == kOutlookCategory;
    if (AskInstaller(is_known) && AskInstaller(is_known)) {
      Line(R"(Exit GetOutlookPath: Path = %ws\n)", R"(C:\Office\OUTLOOK.EXE)");
      Line(R"(GetInstalledOutlookMAPI: found %ws\n)", kOutlookPath);
      return kOutlookPath;
    }
    Line(R"(Exit GetOutlookPath: nothing found\n)");
    Line(R"(Exit GetInstalledOutlookMAPI: found nothing\n)");
    return std::nullopt;
  }

  // The 64-bit Outlook is never known.
  bool AskInstaller(bool knows_x86) {
    constexpr std::uint32_t kUnknown = 1607;
    constexpr std::uint32_t kUnbound = 0x80004005;
    Failure("GetOutlookPath: MsiProvideQualifiedComponent(x64)",
            BindInstaller() ? kUnknown : kUnbound);
    const bool is_bound = BindInstaller();
    if (is_bound && knows_x86) {
      return true;
    }
    Failure("GetOutlookPath: MsiProvideQualifiedComponent(x86)", is_bound ? kUnknown : kUnbound);
    return false;
  }

  // Before its first question it is told to show nothing, which may fail.
  bool BindInstaller() {
    const bool is_bound = Bind(installer_);
    if (is_bound && !is_told_) {
      Call();
      is_told_ = true;
    }
    return is_bound;
  }

  bool Bind(Function& function) {
    if (function.is_bound) {
      return true;
    }
    if (!function.is_loaded) {
      Line(R"(load: LoadFromSystemDir - loading "%ws"\n)", function.library);
      if (!cached_folder_) {
        cached_folder_ = SystemFolder();
      }
      const std::string path = *cached_folder_ + "\\" + function.library;
      Line(R"(load: LoadFromSystemDir - loading from "%ws"\n)", path);
      function.is_loaded = Call() && *cached_folder_ == kSystemFolder;
      references[path] += function.is_loaded ? 1 : 0;
    }
    if (function.is_loaded) {
      function.is_bound = Call();
      if (!function.is_bound) {
        Line(R"(load: LoadProc: failed to load "%ws" from "%ws"\n)",
             function.name + ", " + function.library);
      }
    }
    return function.is_bound;
  }

  std::string SystemFolder() {
    Line(R"(Enter GetSystemDirectory\n)");
    std::string folder;
    if (Call()) {
      folder = kSystemFolder;
    } else {
      Line(R"(GetSystemDirectory: GetSystemDirectoryW failed with 0x%08X\n)",
           std::to_string(run_.status));
    }
    Line(R"(Exit GetSystemDirectory: found %ws\n)", folder);
    return folder;
  }

  const Scenario& scenario_;
  const FaultRun run_;
  std::size_t calls_ = 0;
  Function kernel_{"kernel32.dll", "GetModuleHandleExW"};
  Function installer_{"msi.dll", "MsiProvideQualifiedComponentW"};
  bool is_told_ = false;
  std::optional<std::string> cached_folder_;
};

const Scenario kScenarios[] = {
    {"only the system's library is there", {}},
    {"the libraries of all sources are there", {kExPath, kOutlookPath, kPlainPath, kMsiPath}},
    {"the process has loaded one already", {kExPath, kOutlookPath, kPlainPath, kMsiPath}, true},
};

class SearchFaults : public test::MapiSearchTest {
 protected:
  void Prepare(const Scenario& scenario) {
    ForgetMapiLoading();
    seen_.trace.clear();
    SetDefaultClient();
    SetClientText(u"DllPathEx", u"%Mail%\\ex.dll", platform::kRegExpandSz);
    fake_.SetVariable(u"Mail", u"C:\\Mail");
    SetClientText(u"DllPath", Wide(kPlainPath));
    SetClientText(u"MSIComponentID", u"{C}");
    SetClientText(u"MSIApplicationLCID", u"1031");
    AddComponent(OutlookComponentIds[kOutlookCategory], u"outlook.exe", u"C:\\Office\\OUTLOOK.EXE");
    AddStub(kSystemMapi, kMsiPath);
    for (const std::string& library : scenario.libraries) {
      AddEmptyLibrary(Wide(library));
    }
    loaded_.Reset();
    if (scenario.is_loaded_already) {
      loaded_ = Load(Wide(kLoadedPath));
    }
  }

  // What the process holds by itself.
  Module loaded_;
};

TEST_F(SearchFaults, LeadToTheNextSourceAndLeaveNothingOpen) {
  for (const Scenario& scenario : kScenarios) {
    SCOPED_TRACE(scenario.name);
    RawModule found{};
    const auto expect = [&](const FaultRun& run) {
      const ExpectedSearch expected(scenario, run);
      EXPECT_EQ(seen_.trace, expected.trace);
      EXPECT_EQ(Readable(fake_.ModulePath(found)), expected.found);
      EXPECT_EQ(GetMAPIHandle(), found);
      EXPECT_EQ(MapiHandleGeneration, expected.found.empty() ? 1u : 2u);
      std::size_t kept = scenario.is_loaded_already ? 1 : 0;
      for (const auto& [path, references] : expected.references) {
        kept += references;
        const std::size_t own = path == kLoadedPath ? 1 : 0;
        EXPECT_EQ(fake_.ModuleReferences(Wide(path)), references + own) << path;
      }
      EXPECT_EQ(fake_.ModuleReferences(), kept);
    };
    const platform::fake::FaultScenario search = {[&] { Prepare(scenario); },
                                                  [&] { found = GetPrivateMAPI(); }};
    SweepFaults(search, expect);

    // The search in which nothing fails.
    fake_.Reset();
    search.prepare();
    search.act();
    expect({SIZE_MAX, "", "", FaultMode::kOnce, platform::kGeneralFailure});
  }
  loaded_.Reset();
}

TEST_F(SearchFaults, AreForgottenByTheNextSearch) {
  for (const Scenario& scenario : kScenarios) {
    SCOPED_TRACE(scenario.name);
    std::uint32_t result = 0;
    SweepFaults({[&] { Prepare(scenario); },
                 [&] {
                   // Whatever is found exports nothing.
                   result = MAPIFreeBuffer(nullptr);
                 }},
                [&](const FaultRun&) {
                  EXPECT_EQ(result, 0u);
                  EXPECT_NE(GetPrivateMAPI(), RawModule{});
                });
  }
  loaded_.Reset();
}

TEST_F(SearchFaults, OfMemoryAreFailuresOfASourceAndLeakNothing) {
  for (const Scenario& scenario : kScenarios) {
    test::SweepAllocations(scenario.name, [&](test::AllocationFaults& faults) {
      fake_.Reset();
      Prepare(scenario);
      RecordNothing();
      RawModule found{};
      EXPECT_TRUE(faults.Run([&] { found = GetPrivateMAPI(); }));
      EXPECT_EQ(fake_.OpenHandles(), 0u);
      // One allocation that fails takes one source away.
      using Mode = test::AllocationFaultMode;
      if (faults.Mode() == Mode::kNone ||
          (faults.Mode() == Mode::kOnce && !scenario.libraries.empty())) {
        EXPECT_NE(found, RawModule{});
      }
      EXPECT_EQ(GetMAPIHandle(), found);
      EXPECT_NE(GetPrivateMAPI(), RawModule{});
      loaded_.Reset();
      ForgetMapiLoading();
      EXPECT_EQ(fake_.ModuleReferences(), 0u);
    });
  }
}

}  // namespace
}  // namespace zentpost
