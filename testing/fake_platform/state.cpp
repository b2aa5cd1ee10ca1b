#include "testing/fake_platform/state.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "platform/codec/software_codec.h"

namespace platform::fake {

bool IgnoringCase::operator()(std::u16string_view left, std::u16string_view right) const {
  const auto folded = [](char16_t unit) {
    return unit >= u'A' && unit <= u'Z' ? static_cast<char16_t>(unit - u'A' + u'a') : unit;
  };
  return std::lexicographical_compare(
      left.begin(), left.end(), right.begin(), right.end(),
      [&](char16_t a, char16_t b) { return folded(a) < folded(b); });
}

std::u16string_view HiveName(Hive hive) {
  constexpr std::u16string_view kNames[] = {u"HKCU", u"HKLM", u"HKCR"};
  return kNames[static_cast<std::size_t>(hive)];
}

std::u16string NormalKeyPath(std::u16string path) {
  path.erase(std::unique(path.begin(), path.end(),
                         [](char16_t a, char16_t b) { return a == u'\\' && b == u'\\'; }),
             path.end());
  if (path.ends_with(u'\\')) {
    path.pop_back();
  }
  return path;
}

std::u16string NormalPath(std::u16string_view path) {
  if (path.find_first_of(u"\\/.") == std::u16string_view::npos) {
    return std::u16string(path);
  }
  std::u16string with_backslashes(path);
  std::replace(with_backslashes.begin(), with_backslashes.end(), u'/', u'\\');
  const std::u16string single = NormalKeyPath(std::move(with_backslashes));
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

PlatformContents::PlatformContents() {
  for (const Hive hive : {Hive::kCurrentUser, Hive::kLocalMachine, Hive::kClassesRoot}) {
    keys.try_emplace(std::u16string(HiveName(hive)));
  }
  folders = {u"C:", NormalPath(temporary_folder), NormalPath(local_application_data)};
  AddSystemModules(*this);
}

bool PlatformState::IsFolder(std::u16string_view normal_path) const {
  return normal_path.empty() || folders.contains(normal_path);
}

bool PlatformState::HasParent(std::u16string_view normal_path) const {
  const std::size_t separator = normal_path.rfind(u'\\');
  return separator == std::u16string_view::npos || IsFolder(normal_path.substr(0, separator));
}

void PlatformState::MakeFolder(std::u16string_view normal_path) {
  while (!normal_path.empty()) {
    folders.emplace(normal_path);
    const std::size_t separator = normal_path.rfind(u'\\');
    normal_path = normal_path.substr(0, separator == std::u16string_view::npos ? 0 : separator);
  }
}

RegistryValues& PlatformState::MakeKey(Hive hive, std::u16string_view below) {
  const std::u16string path =
      NormalKeyPath(std::u16string(HiveName(hive)).append(u"\\").append(below));
  for (std::size_t end = path.find(u'\\'); end != path.npos; end = path.find(u'\\', end + 1)) {
    keys.try_emplace(path.substr(0, end));
  }
  return keys[path];
}

void PlatformState::Store(std::u16string_view path, std::shared_ptr<StoredFile> file) {
  const std::u16string normal = NormalPath(path);
  const std::size_t separator = normal.rfind(u'\\');
  if (separator != normal.npos) {
    MakeFolder(normal.substr(0, separator));
  }
  files[normal] = std::move(file);
}

void LockedPlatform::RecordText(std::string call) {
  if (!(*this)->records) {
    return;
  }
  if (OnMainThread()) {
    (*this)->calls.push_back(std::move(call));
  } else {
    (*this)->worker_calls.push_back("worker: " + call);
  }
}

Status LockedPlatform::TakeFault(std::string_view name) {
  if (!OnMainThread()) {
    return kSuccess;
  }
  ++(*this)->fallible_calls;
  std::optional<Fault>& fault = (*this)->fault;
  if (!fault || (!fault->name.empty() && fault->name != name)) {
    return kSuccess;
  }
  if (fault->calls_before > 0) {
    --fault->calls_before;
    return kSuccess;
  }
  if ((*this)->faulted_call.empty()) {
    (*this)->faulted_call = (*this)->records ? (*this)->calls.back() : std::string(name);
  }
  const Status status = fault->status;
  if (fault->mode == FaultMode::kOnce) {
    fault.reset();
  }
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
