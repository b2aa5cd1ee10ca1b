#include "testing/fake_platform/state.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "platform/codec/software_codec.h"

namespace platform::fake {

std::u16string FoldCase(std::u16string_view text) {
  std::u16string folded(text);
  for (char16_t& unit : folded) {
    if (unit >= u'A' && unit <= u'Z') {
      unit = static_cast<char16_t>(unit - u'A' + u'a');
    }
  }
  return folded;
}

std::u16string_view HiveName(Hive hive) {
  switch (hive) {
    case Hive::kCurrentUser:
      return u"HKCU";
    case Hive::kLocalMachine:
      return u"HKLM";
    case Hive::kClassesRoot:
      return u"HKCR";
  }
  return u"";
}

std::u16string NormalKeyPath(std::u16string_view path) {
  std::u16string normal;
  for (const char16_t unit : path) {
    if (unit != u'\\' || normal.empty() || normal.back() != u'\\') {
      normal.push_back(unit);
    }
  }
  if (!normal.empty() && normal.back() == u'\\') {
    normal.pop_back();
  }
  return normal;
}

std::u16string NormalPath(std::u16string_view path) {
  std::u16string with_backslashes(path);
  std::replace(with_backslashes.begin(), with_backslashes.end(), u'/', u'\\');
  const std::u16string single = NormalKeyPath(with_backslashes);
  std::u16string_view rest = single;
  std::vector<std::u16string_view> names;
  while (!rest.empty()) {
    const std::size_t end = std::min(rest.find(u'\\'), rest.size());
    const std::u16string_view name = rest.substr(0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    if (name == u"..") {
      // A drive and the current folder have no parent here.
      if (names.size() > 1 || (names.size() == 1 && !names[0].ends_with(u':'))) {
        names.pop_back();
      }
    } else if (name != u".") {
      names.push_back(name);
    }
  }
  std::u16string normal;
  for (const std::u16string_view& name : names) {
    normal.append(&name == names.data() ? u"" : u"\\").append(name);
  }
  return normal;
}

MachineContents::MachineContents() {
  for (const Hive hive : {Hive::kCurrentUser, Hive::kLocalMachine, Hive::kClassesRoot}) {
    keys.try_emplace(FoldCase(HiveName(hive)));
  }
  folders = {u"C:", NormalPath(temporary_folder), NormalPath(local_application_data)};
  AddSystemModules(*this);
}

bool MachineState::IsFolder(std::u16string_view normal_path) const {
  return normal_path.empty() || folders.contains(std::u16string(normal_path));
}

bool MachineState::HasParent(std::u16string_view normal_path) const {
  const std::size_t separator = normal_path.rfind(u'\\');
  return separator == std::u16string_view::npos || IsFolder(normal_path.substr(0, separator));
}

void MachineState::MakeFolder(std::u16string_view normal_path) {
  while (!normal_path.empty()) {
    folders.emplace(normal_path);
    const std::size_t separator = normal_path.rfind(u'\\');
    normal_path = normal_path.substr(0, separator == std::u16string_view::npos ? 0 : separator);
  }
}

void LockedMachine::Record(std::string call) {
  if (OnMainThread()) {
    state_.calls.push_back(std::move(call));
  } else {
    state_.worker_calls.push_back("worker: " + call);
  }
}

Status LockedMachine::RecordFallible(std::string call) {
  if (!OnMainThread()) {
    Record(std::move(call));
    return kSuccess;
  }
  ++state_.fallible_calls;
  Status status = kSuccess;
  if (state_.fault && (state_.fault->name.empty() || call.starts_with(state_.fault->name + "("))) {
    if (state_.fault->calls_before > 0) {
      --state_.fault->calls_before;
    } else {
      status = state_.fault->status;
      if (state_.faulted_call.empty()) {
        state_.faulted_call = call;
      }
      if (state_.fault->mode == FaultMode::kOnce) {
        state_.fault.reset();
      }
    }
  }
  Record(std::move(call));
  return status;
}

std::string ArgumentText(std::u16string_view text) {
  const std::int32_t length = static_cast<std::int32_t>(text.size());
  std::int32_t written = 0;
  // A UTF-16 unit takes three bytes at the most.
  std::string bytes(text.size() * 3, '\0');
  if (software::WideToBytes(CodePage::kUtf8, text.data(), length, bytes.data(),
                            static_cast<std::int32_t>(bytes.size()), written) != kSuccess) {
    return {};
  }
  bytes.resize(static_cast<std::size_t>(written));
  return bytes;
}

std::string ArgumentText(Hex number) {
  char text[16];
  std::snprintf(text, sizeof(text), "0x%lx", static_cast<unsigned long>(number.number));
  return text;
}

}  // namespace platform::fake
