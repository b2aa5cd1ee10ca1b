// mapi_search OUTPUT STEP...: uses the search for the MAPI library on the real machine, step by
// step, and writes to the file OUTPUT what came of each, a line per result, with the lines of the
// two traces between them. Steps:
//   search         GetPrivateMAPI          "search: PATH"
//   install=PATH   SetMAPIHandle           "install: PATH of the installed one"
//   clear          SetMAPIHandle of none   "clear: PATH of the installed one"
//   load=PATH      loads a library         "load: yes"
//   unload=PATH    and lets it go again    "unload: yes"
//   loaded=NAME    is it loaded?           "loaded: yes"
//   installer-ui   what the installer      "installer-ui: LEVEL" (INSTALLUILEVEL of msi.h)
//                  would show
//   call=NAME      one entry point         "call: RESULT <- NAME(ARGUMENT, ...)", the latter as
//                                          the fake library saw it
// "yes" may be "no", and a path or what was seen "nothing". Texts are UTF-8. A line of a trace is
// "trace: FORMAT [ARGUMENT, ...]" or "load trace: ...", that of a path that the search tries
// "tried: PATH".
#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "mapiload/library.h"
#include "mapiload/trace.h"
#include "platform/call.h"
#include "platform/modules.h"
#include "testing/end_to_end/text.h"
#include "testing/entry_points.h"
#include "tests/mapi_search/fake_library.h"
#include "tests/mapi_search/module_path.h"
#include "tools/support/program.h"

namespace zentpost::mapi_search {
namespace {

std::FILE* output = nullptr;

void Print(const char* what, const std::string& result) {
  std::fprintf(output, "%s: %s\n", what, result.empty() ? "nothing" : result.c_str());
}

void PrintAnswer(const char* what, bool answer) {
  Print(what, answer ? "yes" : "no");
}

std::u16string Wide(std::string_view utf8) {
  return e2e::Utf16(utf8);
}

// --- the traces ---

std::string TextOf(const TraceArgument& argument) {
  if (const auto* const handle = std::get_if<TraceHandle>(&argument)) {
    return *handle == TraceHandle{} ? "null" : "handle";
  }
  const auto* const text = std::get_if<const char16_t*>(&argument);
  return text != nullptr ? e2e::Utf8(*text) : std::to_string(std::get<std::uint32_t>(argument));
}

TraceSink SinkFor(const char* name) {
  return [name](std::u16string_view format, TraceArguments arguments) {
    if (format.starts_with(u"Trying")) {
      Print("tried", TextOf(arguments[0]));
      return;
    }
    std::string text = e2e::Utf8(format.substr(0, format.find(u'\n')));
    for (std::size_t i = 0; i < arguments.size(); ++i) {
      text += (i == 0 ? " [" : ", ") + TextOf(arguments[i]);
    }
    Print(name, arguments.empty() ? text : text + "]");
  };
}

// --- the entry points ---

std::string SeenByTheLibrary() {
  platform::Procedure procedure = nullptr;
  if (platform::FindProcedure(GetMAPIHandle(), "FakeLibraryLastCall", procedure) !=
      platform::kSuccess) {
    return "nothing";
  }
  const std::string seen = reinterpret_cast<LastCallFunction>(procedure)();
  return seen.empty() ? "nothing" : seen;
}

// --- the installer ---

std::string InstallerUi() {
  using Function = std::uint32_t(PLATFORM_STDCALL*)(std::uint32_t, void**);
  static platform::Module installer;  // stays loaded, and keeps what it was told
  platform::Procedure procedure = nullptr;
  if (platform::LoadModule(u"msi.dll", installer) != platform::kSuccess ||
      platform::FindProcedure(installer.Get(), "MsiSetInternalUI", procedure) !=
          platform::kSuccess) {
    return "no installer";
  }
  // 0 (INSTALLUILEVEL_NOCHANGE) only asks.
  return std::to_string(reinterpret_cast<Function>(procedure)(0, nullptr));
}

// --- the steps ---

bool TakeStep(std::string_view step) {
  static std::map<std::u16string, platform::Module> loaded;
  const std::size_t equals = step.find('=');
  const std::string_view name = step.substr(0, equals);
  const std::string_view value = equals == step.npos ? "" : step.substr(equals + 1);
  if (name == "search") {
    Print("search", PathOfModule(GetPrivateMAPI()));
  } else if (name == "install") {
    platform::Module module;
    if (platform::LoadModule(Wide(value).c_str(), module) != platform::kSuccess) {
      return false;
    }
    SetMAPIHandle(std::move(module));
    Print("install", PathOfModule(GetMAPIHandle()));
  } else if (name == "clear") {
    SetMAPIHandle({});
    Print("clear", PathOfModule(GetMAPIHandle()));
  } else if (name == "load") {
    PrintAnswer("load", platform::LoadModule(Wide(value).c_str(), loaded[Wide(value)]) ==
                            platform::kSuccess);
  } else if (name == "unload") {
    PrintAnswer("unload", loaded.erase(Wide(value)) == 1);
  } else if (name == "loaded") {
    platform::RawModule module{};
    PrintAnswer("loaded",
                platform::FindLoadedModule(Wide(value).c_str(), module) == platform::kSuccess);
  } else if (name == "installer-ui") {
    Print("installer-ui", InstallerUi());
  } else if (name == "call") {
    const std::string result = std::to_string(test::CallEntryPoint(value));
    Print("call", result + " <- " + SeenByTheLibrary());
  } else {
    return false;
  }
  return true;
}

int Run(const std::vector<std::string>& arguments) {
  output = arguments.empty() ? nullptr : std::fopen(arguments[0].c_str(), "wb");
  if (output == nullptr) {
    return 2;
  }
  MapiTraceSink = SinkFor("trace");
  MapiLoadTraceSink = SinkFor("load trace");
  for (std::size_t i = 1; i < arguments.size(); ++i) {
    if (!TakeStep(arguments[i])) {
      Print("cannot do", arguments[i]);
      return 3;
    }
  }
  return std::fclose(output) == 0 ? 0 : 2;
}

}  // namespace
}  // namespace zentpost::mapi_search

const bool zentpost::kToolWritesLineFeeds = true;

int zentpost::RunTool(const std::vector<std::string>& arguments) {
  return mapi_search::Run(arguments);
}
