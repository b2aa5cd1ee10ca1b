// mapi_search OUTPUT STEP...: uses the search for the MAPI library on the real machine, step by
// step, and writes to the file OUTPUT what came of each, a line per result, with the lines of the
// two traces between them. Steps:
//   search         GetPrivateMAPI          "search: PATH"
//   install=PATH   SetMAPIHandle           "install: PATH of the installed one"
//   clear          SetMAPIHandle of none   "clear: PATH of the installed one"
//   load=PATH      loads a library         "load: yes"
//   unload=PATH    and lets it go again    "unload: yes"
//   loaded=NAME    is it loaded?           "loaded: yes"
//   remove=PATH    removes its file        "remove: yes"
//   generation     MapiHandleGeneration    "generation: 1"
//   installer-ui   what the installer      "installer-ui: LEVEL" (INSTALLUILEVEL of msi.h)
//                  would show
//   call=NAME      one entry point         "call: RESULT <- NAME(ARGUMENT, ...)", the latter as
//                                          the stand-in library saw it
// "yes" may be "no", and a path or what was seen "nothing". Paths are ASCII.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <map>
#include <string>
#include <string_view>

#include "mapiload/entry_points.h"
#include "mapiload/library.h"
#include "mapiload/trace.h"
#include "platform/call.h"
#include "platform/modules.h"
#include "testing/end_to_end/text.h"
#include "tests/mapi_search/module_path.h"
#include "tests/mapi_search/stand_in.h"

namespace zentpost::mapi_search {
namespace {

std::FILE* output = nullptr;

void Print(const char* what, const std::string& result) {
  std::fprintf(output, "%s: %s\n", what, result.empty() ? "nothing" : result.c_str());
}

void PrintAnswer(const char* what, bool answer) {
  Print(what, answer ? "yes" : "no");
}

std::u16string Wide(std::string_view ascii) {
  return {ascii.begin(), ascii.end()};
}

// --- the traces ---

std::string TextOf(const TraceArgument& argument, char conversion) {
  if (const auto* const handle = std::get_if<TraceHandle>(&argument)) {
    return *handle == TraceHandle{} ? "null" : "handle";
  }
  if (const auto* const text = std::get_if<const char16_t*>(&argument)) {
    return e2e::Utf8(*text);
  }
  char digits[16];
  std::snprintf(digits, sizeof digits, conversion == 'd' ? "%u" : "0x%08X",
                std::get<std::uint32_t>(argument));
  return digits;
}

// The formats have %p, %ws, %s, %d and 0x%08X, and each letter comes but once behind its mark.
std::string TextOf(const char16_t* format, TraceArguments arguments) {
  std::string text;
  std::size_t next = 0;
  std::u16string_view rest = format;
  while (!rest.empty()) {
    const std::size_t mark = rest.find(u'%');
    text += e2e::Utf8(rest.substr(0, mark));
    if (mark == rest.npos) {
      break;
    }
    const std::size_t letter = rest.find_first_of(u"psdX", mark);
    if (letter == rest.npos || next == arguments.size()) {
      return text + "<bad format>";
    }
    if (rest[letter] == u'X' && text.ends_with("0x")) {
      text.resize(text.size() - 2);
    }
    text += TextOf(arguments[next++], static_cast<char>(rest[letter]));
    rest.remove_prefix(letter + 1);
  }
  return next == arguments.size() ? text : text + "<too many arguments>";
}

TraceSink SinkFor(const char* name) {
  return [name](const char16_t* format, TraceArguments arguments) {
    std::string text = TextOf(format, arguments);
    if (text.ends_with('\n')) {
      text.pop_back();
    }
    Print(name, text);
  };
}

// --- the entry points ---

// Arguments that the stand-in library has to get as they are. Nothing reads or writes there.
template <class Type>
Type* Pointer(std::uintptr_t number) {
  return reinterpret_cast<Type*>(number);
}

std::string Hex(std::uint32_t number) {
  char digits[16];
  std::snprintf(digits, sizeof digits, "0x%08X", number);
  return digits;
}

std::string Call(std::string_view name) {
  const auto result = [](std::int32_t code) { return Hex(static_cast<std::uint32_t>(code)); };
  if (name == "MAPIInitialize") {
    return result(MAPIInitialize(Pointer<void>(0x11)));
  }
  if (name == "MAPILogonEx") {
    return result(MAPILogonEx(0x21, Pointer<char16_t>(0x22), Pointer<char16_t>(0x24), 0x80000023,
                              Pointer<IMAPISession*>(0x28)));
  }
  if (name == "MAPIOpenFormMgr") {
    return result(MAPIOpenFormMgr(Pointer<IMAPISession>(0x30), Pointer<IMAPIFormMgr*>(0x38)));
  }
  if (name == "MAPIAdminProfiles") {
    return result(MAPIAdminProfiles(0x41, Pointer<IProfAdmin*>(0x48)));
  }
  if (name == "HrQueryAllRows") {
    return result(HrQueryAllRows(Pointer<IMAPITable>(0x50), Pointer<SPropTagArray>(0x54),
                                 Pointer<SRestriction>(0x58), Pointer<SSortOrderSet>(0x5C), -1,
                                 Pointer<SRowSet*>(0x60)));
  }
  if (name == "FreeProws") {
    FreeProws(Pointer<SRowSet>(0x70));
    return "none";
  }
  if (name == "FreePadrlist") {
    FreePadrlist(Pointer<ADRLIST>(0x80));
    return "none";
  }
  if (name == "MAPIAllocateBuffer") {
    return result(MAPIAllocateBuffer(0x91, Pointer<void*>(0x98)));
  }
  if (name == "MAPIFreeBuffer") {
    return Hex(MAPIFreeBuffer(Pointer<void>(0xA0)));
  }
  return "no such function";
}

std::string SeenByTheLibrary() {
  platform::Procedure procedure = nullptr;
  if (platform::FindProcedure(GetMAPIHandle(), "StandInLastCall", procedure) !=
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
  } else if (name == "remove") {
    std::error_code error;
    PrintAnswer("remove", std::filesystem::remove(value, error));
  } else if (name == "generation") {
    Print("generation", std::to_string(MapiHandleGeneration.load()));
  } else if (name == "installer-ui") {
    Print("installer-ui", InstallerUi());
  } else if (name == "call") {
    const std::string result = Call(value);
    Print("call", result + " <- " + SeenByTheLibrary());
  } else {
    return false;
  }
  return true;
}

int Run(int argc, char** argv) {
  output = argc < 2 ? nullptr : std::fopen(argv[1], "wb");
  if (output == nullptr) {
    return 2;
  }
  MapiTraceSink = SinkFor("trace");
  MapiLoadTraceSink = SinkFor("load trace");
  for (int i = 2; i < argc; ++i) {
    if (!TakeStep(argv[i])) {
      Print("cannot do", argv[i]);
      return 3;
    }
  }
  return std::fclose(output) == 0 ? 0 : 2;
}

}  // namespace
}  // namespace zentpost::mapi_search

int main(int argc, char** argv) {
  return zentpost::mapi_search::Run(argc, argv);
}
