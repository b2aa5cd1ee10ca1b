#include "testing/mapi_search.h"

#include <algorithm>
#include <map>
#include <optional>
#include <utility>

#include "mapiload/discovery.h"
#include "mapiload/process_state.h"
#include "mapiload/trace.h"
#include "platform/call.h"
#include "testing/text_printers.h"

namespace zentpost::test {
namespace {

using platform::fake::TheFakePlatform;

// What the doubles know. Searches of tests that look in here run on one thread.
struct Doubles {
  struct Component {
    std::u16string path;
    std::uint32_t fetch_status = 0;
    std::optional<std::uint32_t> careless_count = std::nullopt;
  };
  std::map<std::pair<std::u16string, std::u16string>, Component> components;
  std::string stub_path;
  std::int32_t stub_answer = 0;
  std::u16string watched;
  std::function<void()> look;
  bool record = true;
};
Doubles doubles;
MapiSearchTest::Seen& seen = MapiSearchTest::seen_;

// Published in msi.h's error codes: ERROR_UNKNOWN_COMPONENT.
constexpr std::uint32_t kUnknownComponent = 1607;

std::uint32_t PLATFORM_STDCALL MsiProvideQualifiedComponentW(const char16_t* category,
                                                             const char16_t* qualifier,
                                                             std::uint32_t install_mode,
                                                             char16_t* path, std::uint32_t* count) {
  if (doubles.record) {
    seen.installer_questions.push_back(
        Readable(category) + ", " + Readable(qualifier) + ", " + std::to_string(install_mode) +
        (path == nullptr ? ", size " : ", fetch ") + std::to_string(*count));
  }
  // Memory may be running out, so the key is not made for a look-up.
  const auto found = std::find_if(
      doubles.components.begin(), doubles.components.end(), [&](const auto& component) {
        return component.first.first == category && component.first.second == qualifier;
      });
  if (found == doubles.components.end()) {
    *count = 4711;  // no caller may rely on it
    return kUnknownComponent;
  }
  const Doubles::Component& component = found->second;
  const std::uint32_t capacity = *count;
  if (component.careless_count) {
    *count = *component.careless_count;
    if (path != nullptr) {
      std::copy_n(component.path.data(), std::min<std::size_t>(component.path.size(), capacity),
                  path);
    }
    return 0;
  }
  *count = static_cast<std::uint32_t>(component.path.size());
  if (path == nullptr) {
    return 0;
  }
  if (component.fetch_status != 0) {
    return component.fetch_status;
  }
  if (*count >= capacity) {
    return platform::kMoreData;
  }
  std::copy_n(component.path.c_str(), component.path.size() + 1, path);
  return 0;
}

std::uint32_t PLATFORM_STDCALL MsiSetInternalUI(std::uint32_t level, void** window) {
  if (doubles.record) {
    seen.installer_settings.push_back(std::to_string(level) +
                                      (window == nullptr ? ", no window, " : ", a window, ") +
                                      std::to_string(seen.installer_questions.size()));
  }
  return 5;  // INSTALLUILEVEL_FULL, what was set before
}

std::int32_t PLATFORM_STDCALL FGetComponentPath(const char* component, const char* qualifier,
                                                char* path, std::uint32_t capacity,
                                                std::int32_t install) {
  if (doubles.record) {
    const bool zeroed = std::all_of(path, path + capacity, [](char byte) { return byte == '\0'; });
    seen.stub_questions.push_back(std::string(component) + ", " + qualifier + ", " +
                                  std::to_string(capacity) + ", " + std::to_string(install) +
                                  (zeroed ? ", zeroed" : ", not zeroed"));
  }
  std::copy_n(doubles.stub_path.data(), std::min<std::size_t>(doubles.stub_path.size(), capacity),
              path);
  return doubles.stub_answer;
}

std::string HandleText(TraceHandle handle) {
  if (handle == TraceHandle{}) {
    return "null";
  }
  const std::u16string path =
      TheFakePlatform().ModulePath(static_cast<platform::RawModule>(handle));
  return path.empty() ? "handle" : Readable(path.substr(path.rfind(u'\\') + 1));
}

std::string ArgumentText(const TraceArgument& argument) {
  if (const auto* text = std::get_if<const char16_t*>(&argument)) {
    return Readable(*text);
  }
  if (const auto* number = std::get_if<std::uint32_t>(&argument)) {
    return std::to_string(*number);
  }
  return HandleText(std::get<TraceHandle>(argument));
}

void Record(std::string start, const char16_t* format, TraceArguments arguments) {
  std::string line = std::move(start);
  for (const char byte : Readable(format)) {
    if (byte == '\n') {
      line += "\\n";
    } else {
      line += byte;
    }
  }
  if (!arguments.empty()) {
    line += " [";
    for (const TraceArgument& argument : arguments) {
      line += ArgumentText(argument) + ", ";
    }
    line.replace(line.size() - 2, 2, "]");
  }
  seen.trace.push_back(std::move(line));
  if (doubles.look && std::u16string_view(format).starts_with(doubles.watched)) {
    doubles.look();
  }
}

}  // namespace

MapiSearchTest::MapiSearchTest() {
  ForgetMapiLoading();
  doubles = {};
  seen = {};
  MapiTraceSink = [](const char16_t* format, TraceArguments arguments) {
    Record("", format, arguments);
  };
  MapiLoadTraceSink = [](const char16_t* format, TraceArguments arguments) {
    Record("load: ", format, arguments);
  };
}

MapiSearchTest::~MapiSearchTest() {
  UseSystemMapiOnly = false;
  PreferOutlookClient = false;
}

void MapiSearchTest::TearDown() {
  MapiTraceSink = nullptr;
  MapiLoadTraceSink = nullptr;
  doubles.look = nullptr;
  ForgetMapiLoading();
  EXPECT_EQ(fake_.ModuleReferences(), 0u) << "a library kept a reference";
  FakePlatformTest::TearDown();
}

void MapiSearchTest::SetDefaultClient() {
  TheFakePlatform().SetString(platform::Hive::kLocalMachine, kMailKey, u"", kClient);
  TheFakePlatform().AddKey(platform::Hive::kLocalMachine, kClientKey);
}

void MapiSearchTest::SetClientText(std::u16string_view name, std::u16string_view text,
                                   std::uint32_t type) {
  TheFakePlatform().SetString(platform::Hive::kLocalMachine, kClientKey, name, text, type);
}

platform::Module MapiSearchTest::Load(std::u16string_view path,
                                      platform::fake::FakePlatform::Exports exports) {
  TheFakePlatform().AddModule(path, std::move(exports));
  platform::Module module;
  EXPECT_EQ(platform::LoadModule(std::u16string(path).c_str(), module), platform::kSuccess);
  return module;
}

void MapiSearchTest::AddEmptyLibrary(std::u16string_view path) {
  TheFakePlatform().AddModule(path, {});
}

void MapiSearchTest::AddInstaller() {
  TheFakePlatform().AddModule(
      kInstaller, {{"MsiProvideQualifiedComponentW",
                    reinterpret_cast<platform::Procedure>(MsiProvideQualifiedComponentW)},
                   {"MsiSetInternalUI", reinterpret_cast<platform::Procedure>(MsiSetInternalUI)}});
}

void MapiSearchTest::AddComponent(std::u16string_view category, std::u16string_view qualifier,
                                  std::u16string_view path, std::uint32_t fetch_status,
                                  std::optional<std::uint32_t> careless_count) {
  AddInstaller();
  doubles.components[{std::u16string(category), std::u16string(qualifier)}] = {
      std::u16string(path), fetch_status, careless_count};
}

void MapiSearchTest::AddStub(std::u16string_view library, std::string path, std::int32_t answer) {
  TheFakePlatform().AddModule(
      library, {{"FGetComponentPath", reinterpret_cast<platform::Procedure>(FGetComponentPath)}});
  doubles.stub_path = std::move(path);
  doubles.stub_answer = answer;
}

void MapiSearchTest::RecordNothing() {
  MapiTraceSink = nullptr;
  MapiLoadTraceSink = nullptr;
  doubles.record = false;
}

void MapiSearchTest::WatchTrace(std::u16string_view start, std::function<void()> look) {
  doubles.watched = start;
  doubles.look = std::move(look);
}

}  // namespace zentpost::test
